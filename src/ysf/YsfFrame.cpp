#include "YsfFrame.h"

namespace zl::ysf {

QByteArray textField(const QString& text, qsizetype width)
{
    QByteArray field = text.toUtf8().left(width);
    field.append(QByteArray(width - field.size(), ' '));
    return field;
}

QByteArray buildYsfControl(const char* tag, const QString& callsign)
{
    return QByteArray(tag, 4) + textField(callsign, 10);
}

QByteArray buildYsfOptions(const QString& callsign, const QString& options)
{
    return QByteArrayLiteral("YSFO") + textField(callsign, 10) + textField(options, 36);
}

QByteArray buildYsfd(const QString& gateway, const QString& source, const QString& destination, quint8 counter,
                     bool end, const QByteArray& payload)
{
    QByteArray out =
        QByteArrayLiteral("YSFD") + textField(gateway, 10) + textField(source, 10) + textField(destination, 10);
    out.append(char(((counter & 0x7F) << 1) | (end ? 1 : 0)));
    QByteArray body = payload.left(kPayloadSize);
    body.append(QByteArray(kPayloadSize - body.size(), '\0'));
    return out + body;
}

bool parseYsfd(const QByteArray& datagram, Ysfd& out)
{
    if (datagram.size() < kYsfdSize || !datagram.startsWith("YSFD"))
        return false;
    out.gateway = QString::fromUtf8(datagram.mid(4, 10)).trimmed();
    out.source = QString::fromUtf8(datagram.mid(14, 10)).trimmed();
    out.destination = QString::fromUtf8(datagram.mid(24, 10)).trimmed();
    out.counter = quint8(quint8(datagram.at(34)) >> 1);
    out.end = datagram.at(34) & 1;
    out.payload = datagram.mid(35, kPayloadSize);
    return out.payload.size() == kPayloadSize;
}

} // namespace zl::ysf
