#include "aprs/DmrBridge.h"

#include "app/Config.h"
#include "aprs/AprsClient.h"
#include "dmr/DmrPeerManager.h"
#include "dmr/Peer.h"

#include <QRegularExpression>

namespace zl::aprs {

namespace {

constexpr int kMaxText = 67;

QJsonObject aprsSection()
{
    return Config::instance().section(QStringLiteral("aprs"));
}

} // namespace

DmrBridge::DmrBridge(AprsClient* client, QObject* parent) : QObject(parent), aprs(client)
{
    connect(&zl::dmr::DmrPeerManager::instance(), &zl::dmr::DmrPeerManager::smsReceived, this,
            [this](const QString&, const QString&, uint srcId, uint dstId, bool, const QString& text, const QString&) {
                onDmrSms(srcId, dstId, text);
            });
}

void DmrBridge::onDmrSms(uint srcId, uint dstId, const QString& text)
{
    const QJsonObject section = aprsSection();
    const uint tg = uint(section.value(QStringLiteral("dmr_bridge_tg")).toInteger());
    if (!section.value(QStringLiteral("dmr_bridge_enabled")).toBool() || tg == 0 || dstId != tg)
        return;
    static const QRegularExpression form(QStringLiteral("^\\s*([A-Za-z0-9]{3,6}(?:-[A-Za-z0-9]{1,2})?)\\s+(.+)$"));
    const QRegularExpressionMatch m = form.match(text);
    if (!m.hasMatch()) {
        qInfo().noquote() << "APRS bridge: SMS on TG" << tg << "not \"CALL text\" — ignored:" << text;
        return;
    }
    const QString dest = m.captured(1).toUpper();
    const QString body = m.captured(2).trimmed().left(kMaxText);
    if (aprs->state() != AprsClient::State::LoggedIn) {
        qInfo().noquote() << "APRS bridge: not logged in to APRS-IS — SMS from" << srcId << "dropped";
        return;
    }
    const QString id = aprs->sendTrackedMessage(dest, body);
    if (id.isEmpty())
        return;
    qInfo().noquote() << "APRS bridge: SMS from" << srcId << "on TG" << tg << "→ APRS to" << dest;
    emit sentToAprs(id, dest, body, srcId);
}

void DmrBridge::bridgeToDmr(const QString& from, const QString& body)
{
    const QJsonObject section = aprsSection();
    if (!section.value(QStringLiteral("dmr_bridge_enabled")).toBool())
        return;
    const QString peerLabel = zl::dmr::defaultPeerLabel();
    quint32 radio = 0;
    for (const zl::dmr::Peer& peer : zl::dmr::loadPeers()) {
        if (peer.label == peerLabel)
            radio = zl::dmr::dmrId(peer);
    }
    if (radio == 0) {
        qInfo().noquote() << "APRS bridge: no DMR peer/radio ID — SMS not sent";
        return;
    }
    const QString format = Config::instance()
                               .section(QStringLiteral("dmr"))
                               .value(QStringLiteral("sms_format"))
                               .toString(QStringLiteral("etsi"));
    const quint32 source = quint32(section.value(QStringLiteral("dmr_bridge_src_id")).toInteger());
    const QString error = zl::dmr::DmrPeerManager::instance().sendSms(
        peerLabel, radio, from + QStringLiteral("> ") + body, format, true, source);
    if (!error.isEmpty()) {
        qWarning().noquote() << "APRS bridge: APRS → SMS failed:" << error;
        return;
    }
    qInfo().noquote() << "APRS bridge: APRS from" << from << "→ SMS to" << radio << "via" << peerLabel;
}

} // namespace zl::aprs
