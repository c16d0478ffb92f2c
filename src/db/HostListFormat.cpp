#include "db/HostListFormat.h"

#include <QJsonObject>
#include <QRegularExpression>

namespace zl {

namespace {

int number(const QString& text)
{
    bool ok = false;
    const int value = text.trimmed().toInt(&ok);
    return ok ? value : 0;
}

QJsonObject entry(const QString& id, const QString& name, const QString& host, int port)
{
    return QJsonObject{{QStringLiteral("id"), id},
                       {QStringLiteral("name"), name},
                       {QStringLiteral("host"), host},
                       {QStringLiteral("port"), port}};
}

// "host:port;description": the APRS-IS servers have no name of their own, so the entries are
// numbered and named after the host.
void parseAprsLine(const QString& prefix, const QString& line, int& count, QJsonArray& out)
{
    const qsizetype colon = line.indexOf(u':');
    if (colon < 0)
        return;
    const qsizetype semicolon = line.indexOf(u';');
    const QString host = line.left(colon).trimmed();
    const bool hasText = semicolon > colon;
    const int port = number(hasText ? line.mid(colon + 1, semicolon - colon - 1) : line.mid(colon + 1));
    const QString description = hasText ? line.mid(semicolon + 1).trimmed() : QString();
    if (host.isEmpty() || port < 1)
        return;
    ++count;
    const QString name = description.isEmpty() ? host : QStringLiteral("%1 — %2").arg(host, description);
    out.append(entry(QStringLiteral("%1-%2").arg(prefix).arg(count), name, host, port));
}

} // namespace

const QList<HostSource>& hostSources()
{
    static const QList<HostSource> sources = {
        {QStringLiteral("M17"), QStringLiteral("M17_Hosts.txt"), HostFormat::Plain},
        {QStringLiteral("DMR"), QStringLiteral("DMR_Hosts.txt"), HostFormat::Dmr},
        {QStringLiteral("YSF"), QStringLiteral("YSF_Hosts.txt"), HostFormat::Ysf},
        {QStringLiteral("NXDN"), QStringLiteral("NXDN_Hosts.txt"), HostFormat::Plain},
        {QStringLiteral("D-STAR"), QStringLiteral("DCS_Hosts.txt"), HostFormat::Dcs},
        {QStringLiteral("P25"), QStringLiteral("P25_Hosts.txt"), HostFormat::Plain},
        {QStringLiteral("APRS"), QStringLiteral("APRS_Hosts.txt"), HostFormat::Aprs},
    };
    return sources;
}

const HostSource* hostSourceFor(const QString& mode)
{
    for (const HostSource& source : hostSources()) {
        if (source.mode == mode)
            return &source;
    }
    return nullptr;
}

QJsonArray parseHostList(const HostSource& source, const QByteArray& body)
{
    static const QRegularExpression blanks(QStringLiteral("[\\t ]+"));
    const QString prefix = source.mode.toLower();
    // The DMR and DCS lists have no ';' comments, and a name may begin with one there.
    const bool semicolonComments = source.format != HostFormat::Dmr && source.format != HostFormat::Dcs;
    QJsonArray out;
    int aprsCount = 0;
    for (const QString& raw : QString::fromUtf8(body).split(u'\n', Qt::SkipEmptyParts)) {
        const QString line = raw.trimmed();
        if (line.isEmpty() || line.startsWith(u'#') || (semicolonComments && line.startsWith(u';')))
            continue;
        switch (source.format) {
        case HostFormat::Plain: {
            const QStringList f = line.split(blanks, Qt::SkipEmptyParts);
            if (f.size() >= 3)
                out.append(entry(prefix + u'-' + f[0], f[0], f[1], number(f[2])));
            break;
        }
        case HostFormat::Ysf: {
            const QStringList f = line.split(u';');
            if (f.size() >= 5)
                out.append(entry(prefix + u'-' + f[0], f[1] + QStringLiteral(" — ") + f[2], f[3], number(f[4])));
            break;
        }
        case HostFormat::Dmr: {
            const QStringList f = line.split(blanks, Qt::SkipEmptyParts);
            if (f.size() < 5)
                break;
            QJsonObject o = entry(prefix + u'-' + f[0], f[0], f[2], number(f[4]));
            if (f[3].compare(QLatin1String("none"), Qt::CaseInsensitive) != 0)
                o.insert(QStringLiteral("password"), f[3]);
            out.append(o);
            break;
        }
        case HostFormat::Dcs: {
            const QStringList f = line.split(blanks, Qt::SkipEmptyParts);
            if (f.size() >= 2)
                out.append(entry(prefix + u'-' + f[0], f[0], f[1], 30001));
            break;
        }
        case HostFormat::Aprs:
            parseAprsLine(prefix, line, aprsCount, out);
            break;
        }
    }
    return out;
}

} // namespace zl
