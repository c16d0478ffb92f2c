#include "db/UserTable.h"

#include <limits>

namespace zl {

namespace {

// Calls a function with the fields of each line, split at `separator`, without copying.
template <typename Handler>
void forEachLine(QByteArrayView data, char separator, Handler handle)
{
    QByteArrayView fields[3];
    while (!data.isEmpty()) {
        qsizetype end = data.indexOf('\n');
        if (end < 0)
            end = data.size();
        QByteArrayView line = data.first(end);
        data = data.sliced(qMin(end + 1, data.size()));
        if (line.endsWith('\r'))
            line.chop(1);
        if (line.isEmpty())
            continue;
        int count = 0;
        while (count < 3) {
            const qsizetype cut = line.indexOf(separator);
            fields[count++] = cut < 0 ? line : line.first(cut);
            if (cut < 0)
                break;
            line = line.sliced(cut + 1);
        }
        if (count >= 2)
            handle(fields[0], fields[1], count > 2 ? fields[2] : QByteArrayView());
    }
}

int idOf(QByteArrayView field)
{
    bool ok = false;
    const int id = field.trimmed().toInt(&ok);
    return ok ? id : 0;
}

} // namespace

void UserTable::insert(int id, QByteArrayView callsign, QByteArrayView name)
{
    constexpr qsizetype longest = std::numeric_limits<quint16>::max();
    callsign = callsign.first(qMin(callsign.size(), longest));
    name = name.first(qMin(name.size(), longest));
    // Past 4 GiB of text the offsets would wrap; no real list comes near.
    if (text.size() + callsign.size() + name.size() > std::numeric_limits<quint32>::max())
        return;
    index.insert(id, Slot{quint32(text.size()), quint16(callsign.size()), quint16(name.size())});
    text.append(callsign);
    text.append(name);
}

QString UserTable::callsignOf(int id) const
{
    const auto it = index.constFind(id);
    if (it == index.constEnd())
        return {};
    return QString::fromUtf8(text.constData() + it->offset, it->callsignLength);
}

QString UserTable::nameOf(int id) const
{
    const auto it = index.constFind(id);
    if (it == index.constEnd())
        return {};
    return QString::fromUtf8(text.constData() + it->offset + it->callsignLength, it->nameLength);
}

UserTable UserTable::fromCsv(QByteArrayView csv)
{
    UserTable table;
    // Some 30 bytes a line in the published list; callsigns and names take about half of that.
    table.index.reserve(csv.size() / 32);
    table.text.reserve(csv.size() / 2);
    QByteArray upper;
    forEachLine(csv, ',', [&](QByteArrayView id, QByteArrayView callsign, QByteArrayView name) {
        const int number = idOf(id);
        if (number < 1)
            return;
        upper = callsign.trimmed().toByteArray().toUpper();
        table.insert(number, upper, name.trimmed());
    });
    table.text.squeeze();
    return table;
}

UserTable UserTable::fromTsv(QByteArrayView tsv, qsizetype expected)
{
    UserTable table;
    if (expected > 0)
        table.index.reserve(expected);
    table.text.reserve(tsv.size());
    forEachLine(tsv, '\t', [&](QByteArrayView id, QByteArrayView callsign, QByteArrayView name) {
        const int number = idOf(id);
        if (number >= 1)
            table.insert(number, callsign.trimmed(), name.trimmed());
    });
    table.text.squeeze();
    return table;
}

QByteArray UserTable::toTsv() const
{
    QByteArray out;
    out.reserve(text.size() + index.size() * 12);
    for (auto it = index.constBegin(); it != index.constEnd(); ++it) {
        out.append(QByteArray::number(it.key()));
        out.append('\t');
        out.append(text.constData() + it->offset, it->callsignLength);
        out.append('\t');
        out.append(text.constData() + it->offset + it->callsignLength, it->nameLength);
        out.append('\n');
    }
    return out;
}

} // namespace zl
