#include "ui/YsfModePage.h"

#include "audio/AudioMixer.h"
#include "ui/YsfReflectorRow.h"
#include "ysf/YsfNetwork.h"
#include "ysf/YsfVoice.h"

#include <QDebug>

YsfModePage::YsfModePage(QWidget* parent) : PolledReflectorPage(QStringLiteral("YSF"), parent)
{
    voice = new zl::ysf::YsfVoice(nullptr, this);
    connect(voice, &zl::ysf::YsfVoice::frameReady, this, [this](const QByteArray& frame) {
        if (auto* client = qobject_cast<zl::ysf::YsfNetwork*>(activeClient()))
            client->sendFrame(frame);
    });
    connect(voice, &zl::ysf::YsfVoice::pcmReady, this, &YsfModePage::playPcm);
    connect(voice, &zl::ysf::YsfVoice::talkerStart, this, &YsfModePage::talkerHeard);
    connect(&zl::audio::AudioMixer::instance(), &zl::audio::AudioMixer::micPcmReady, voice,
            &zl::ysf::YsfVoice::pushMicPcm);
    begin();
}

void YsfModePage::setPttActive(bool on)
{
    if (!on) {
        voice->stopTx();
        return;
    }
    if (!isModeConnected())
        return;
    if (ownCallsign().isEmpty()) {
        qWarning() << "YSF: no callsign configured, not transmitting";
        return;
    }
    voice->startTx();
}

zl::ui::ReflectorRow* YsfModePage::createRow(const QString& key)
{
    return new zl::ui::YsfReflectorRow(key);
}

QString YsfModePage::linkCallsign() const
{
    const QString callsign = ownCallsign();
    return callsign.isEmpty() ? QStringLiteral("N0CALL") : callsign;
}

zl::PolledUdpLink* YsfModePage::createClient(const Server& /*server*/)
{
    return new zl::ysf::YsfNetwork(linkCallsign());
}

QString YsfModePage::linkData(const Server& server) const
{
    return QStringLiteral("%1|%2|%3").arg(server.host).arg(server.port).arg(linkCallsign());
}

void YsfModePage::activeChanged(const Server& server)
{
    const QString callsign = ownCallsign();
    voice->setIdentity(callsign, callsign, QString(), server.values.value(QStringLiteral("tx_dgid")).toInt());
    voice->setRxDgIdFilter(quint8(server.values.value(QStringLiteral("rx_dgid")).toInt()));
}

void YsfModePage::voiceFrame(const QByteArray& frame)
{
    voice->onNetworkFrame(frame);
}
