#include "svx/SvxReflectorConfig.h"

#include "app/Identity.h"
#include "svx/SvxPki.h"
#include "svx/SvxReflectorClient.h"

#include <QFile>
#include <QRegularExpression>

namespace zl::svx {

namespace {

QJsonValue withFallback(const QJsonObject& entry, const QJsonObject& section, const QString& name)
{
    return entry.contains(name) ? entry.value(name) : section.value(name);
}

// Numbers may be stored as JSON numbers or as decimal text.
qint64 integerOf(const QJsonValue& v, qint64 fallback)
{
    if (v.isDouble())
        return qint64(v.toDouble());
    bool ok = false;
    const qint64 n = v.toString().trimmed().toLongLong(&ok);
    return ok ? n : fallback;
}

} // namespace

QPair<QString, quint16> splitReflectorKey(const QString& key)
{
    const qsizetype colon = key.lastIndexOf(u':');
    if (colon <= 0)
        return {key, 5300};
    bool ok = false;
    const uint port = key.mid(colon + 1).toUInt(&ok);
    return {key.left(colon), quint16(ok && port <= 0xffff ? port : 0)};
}

QList<quint32> parseMonitorTgs(const QString& text)
{
    static const QRegularExpression separators(QStringLiteral("[,\\s]+"));
    QList<quint32> tgs;
    for (const QString& part : text.split(separators, Qt::SkipEmptyParts)) {
        bool ok = false;
        const quint32 tg = part.toUInt(&ok, 10);
        if (ok)
            tgs.append(tg);
    }
    return tgs;
}

void applyReflectorSettings(SvxReflectorClient& client, const QString& key, const QJsonObject& entry,
                            const QJsonObject& section, const QString& configDir)
{
    const auto [host, port] = splitReflectorKey(key);
    client.setServer(host, port);
    const QString callsign = entry.value(QStringLiteral("callsign")).toString().trimmed();
    client.setCallsign(callsign.isEmpty() ? resolveIdentity(QStringLiteral("svxlink")).callsign : callsign);
    client.setAuthKey(entry.value(QStringLiteral("auth_key")).toString());
    client.setTxTalkGroup(quint32(integerOf(entry.value(QStringLiteral("tg")), 0)));

    QString nodeInfo = withFallback(entry, section, QStringLiteral("node_info")).toString();
    const QString nodeInfoFile = withFallback(entry, section, QStringLiteral("node_info_file")).toString();
    if (QFile file(nodeInfoFile); !nodeInfoFile.isEmpty() && file.open(QIODevice::ReadOnly))
        nodeInfo = QString::fromUtf8(file.readAll());
    client.setNodeInfo(nodeInfo);

    client.setUdpHeartbeat(int(integerOf(withFallback(entry, section, QStringLiteral("udp_heartbeat_s")), 15)));
    client.setMonitorTalkGroups(
        parseMonitorTgs(withFallback(entry, section, QStringLiteral("monitor_tgs")).toString()));
    client.setHangTime(int(integerOf(entry.value(QStringLiteral("hang_time")), 30)));

    const bool v3 = entry.value(QStringLiteral("protocol")).toString() == QStringLiteral("v3");
    client.setProtocolV3(v3);
    const QString name = entry.value(QStringLiteral("name")).toString().trimmed();
    const QString pkiDir = SvxPki::folderFor(configDir, host, port);
    if (v3)
        SvxPki::adoptEarlierFolder(configDir, name.isEmpty() ? key : name, pkiDir);
    client.setAutoPki(v3, pkiDir);
    client.setCertFields(entry.value(QStringLiteral("cert_email")).toString(),
                         entry.value(QStringLiteral("cert_desc")).toString());
}

} // namespace zl::svx
