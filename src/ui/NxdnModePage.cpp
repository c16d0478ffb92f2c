#include "ui/NxdnModePage.h"

#include "app/Identity.h"
#include "audio/AudioMixer.h"
#include "db/UserDb.h"
#include "nxdn/NxdnNetwork.h"
#include "nxdn/NxdnVoice.h"
#include "ui/NxdnReflectorRow.h"

#include <QDebug>

namespace {

quint16 tgOf(const QJsonObject& values)
{
    return quint16(values.value(QStringLiteral("tg")).toInt());
}

} // namespace

NxdnModePage::NxdnModePage(QWidget* parent) : PolledReflectorPage(QStringLiteral("NXDN"), parent)
{
    voice = new zl::nxdn::NxdnVoice(nullptr, this);
    connect(voice, &zl::nxdn::NxdnVoice::frameReady, this, [this](const QByteArray& frame) {
        if (auto* client = qobject_cast<zl::nxdn::NxdnNetwork*>(activeClient()))
            client->sendFrame(frame);
    });
    connect(voice, &zl::nxdn::NxdnVoice::pcmReady, this, &NxdnModePage::playPcm);
    connect(voice, &zl::nxdn::NxdnVoice::talkerStart, this, [this](ushort src) {
        // The user database may not exist yet (or at all, outside the window): the id stands in.
        const zl::UserDb* users = zl::UserDb::instance();
        const QString call = users ? users->nxdnCallsignOf(src) : QString();
        talkerHeard(call.isEmpty() ? QString::number(src) : call);
    });
    connect(&zl::audio::AudioMixer::instance(), &zl::audio::AudioMixer::micPcmReady, voice,
            &zl::nxdn::NxdnVoice::pushMicPcm);
    begin();
}

void NxdnModePage::setPttActive(bool on)
{
    if (!on) {
        voice->stopTx();
        return;
    }
    if (!isModeConnected())
        return;
    if (radioId(activeServer()) == 0) {
        qWarning() << "NXDN: no radio id configured, not transmitting";
        return;
    }
    voice->startTx();
}

zl::ui::ReflectorRow* NxdnModePage::createRow(const QString& key)
{
    return new zl::ui::NxdnReflectorRow(key);
}

QString NxdnModePage::linkCallsign(const Server& server) const
{
    QString callsign = server.values.value(QStringLiteral("callsign")).toString();
    if (callsign.isEmpty())
        callsign = ownCallsign();
    return callsign.isEmpty() ? QStringLiteral("N0CALL") : callsign.toUpper();
}

quint16 NxdnModePage::radioId(const Server& server) const
{
    const int own = server.values.value(QStringLiteral("radio_id")).toInt();
    if (own > 0)
        return quint16(own);
    return quint16(zl::resolveIdentity(modeKey()).id_field.toUInt());
}

zl::PolledUdpLink* NxdnModePage::createClient(const Server& server)
{
    return new zl::nxdn::NxdnNetwork(linkCallsign(server), tgOf(server.values));
}

QString NxdnModePage::linkData(const Server& server) const
{
    return QStringLiteral("%1|%2|%3|%4")
        .arg(server.host)
        .arg(server.port)
        .arg(linkCallsign(server))
        .arg(tgOf(server.values));
}

void NxdnModePage::activeChanged(const Server& server)
{
    voice->setIdentity(radioId(server), tgOf(server.values), server.values.value(QStringLiteral("ran")).toInt());
}

void NxdnModePage::voiceFrame(const QByteArray& frame)
{
    voice->onNetworkFrame(frame);
}
