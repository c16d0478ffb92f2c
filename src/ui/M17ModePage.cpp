#include "ui/M17ModePage.h"

#include "app/Config.h"
#include "app/TimeScale.h"
#include "audio/AudioMixer.h"
#include "m17/M17Client.h"
#include "m17/M17Voice.h"
#include "ui/M17ReflectorRow.h"

#include <QDebug>

using zl::m17::M17Client;
using zl::ui::ReflectorRow;

namespace {

QString colourOf(M17Client::State state)
{
    switch (state) {
    case M17Client::State::Linked:
        return QLatin1String(BaseModePage::kUp);
    case M17Client::State::Linking:
    case M17Client::State::Reconnecting:
        return QLatin1String(BaseModePage::kBetween);
    case M17Client::State::Rejected:
    case M17Client::State::Failed:
        return QLatin1String(BaseModePage::kFailed);
    default:
        return QLatin1String(BaseModePage::kIdle);
    }
}

// The row's module letter: stored upper case, "A" when none is.
QString moduleOf(const QJsonObject& values)
{
    const QString module = values.value(QStringLiteral("module")).toString().trimmed().toUpper().left(1);
    return module.isEmpty() ? QStringLiteral("A") : module;
}

} // namespace

M17ModePage::M17ModePage(QWidget* parent)
    : ReflectorModePage(QStringLiteral("M17"),
                        QStringLiteral("M17 reflectors — click a row to link it, click again to unlink"), parent)
{
    voice = new zl::m17::M17Voice(this);
    connect(voice, &zl::m17::M17Voice::frameReady, this, [this](const QByteArray& frame) {
        if (M17Client* client = clients.value(activeKey))
            client->sendFrame(frame);
    });
    connect(voice, &zl::m17::M17Voice::rxPcm, this, &M17ModePage::playPcm);
    connect(voice, &zl::m17::M17Voice::talkerStarted, this, &M17ModePage::onTalker);
    connect(&zl::audio::AudioMixer::instance(), &zl::audio::AudioMixer::micPcmReady, voice,
            &zl::m17::M17Voice::pushMicPcm);
    begin();
}

M17ModePage::~M17ModePage()
{
    // The clients send their unlink while the page is still whole.
    for (M17Client* client : std::as_const(clients))
        client->disconnectFromReflector();
}

bool M17ModePage::isModeConnected() const
{
    const M17Client* client = clients.value(activeKey);
    return client && client->state() == M17Client::State::Linked;
}

void M17ModePage::setPttActive(bool on)
{
    if (!on) {
        voice->stopTx();
        return;
    }
    if (!isModeConnected())
        return;
    const QString callsign = ownCallsign();
    if (callsign.isEmpty()) {
        qWarning() << "M17: no callsign configured, not transmitting";
        return;
    }
    voice->startTx(callsign);
}

void M17ModePage::reloadConfig()
{
    ReflectorModePage::reloadConfig();
    if (isStarted() && activeKey.isEmpty())
        start();
}

zl::ui::ReflectorRow* M17ModePage::createRow(const QString& key)
{
    return new zl::ui::M17ReflectorRow(key);
}

void M17ModePage::start()
{
    QString first = zl::Config::instance().section(modeKey()).value(QStringLiteral("active")).toString();
    if (!servers.value(first).enabled) {
        first.clear();
        for (const QString& key : std::as_const(order)) {
            if (servers.value(key).enabled) {
                first = key;
                break;
            }
        }
    }
    if (!first.isEmpty())
        connectTo(first);
}

QString M17ModePage::linkData(const Server& server) const
{
    return QStringLiteral("%1|%2|%3|%4").arg(server.host).arg(server.port).arg(moduleOf(server.values), ownCallsign());
}

M17Client* M17ModePage::clientFor(const QString& key)
{
    if (M17Client* client = clients.value(key))
        return client;
    auto* client = new M17Client(this);
    if (const int scale = zl::timeScale(); scale > 1)
        client->setTiming({10000 / scale, 30000 / scale, scale});
    clients.insert(key, client);
    connect(client, &M17Client::stateChanged, this,
            [this, key](M17Client::State state) { onClientState(key, int(state)); });
    connect(client, &M17Client::rejected, this, [this, key](const QString& reason) {
        if (ReflectorRow* row = rows.value(key))
            row->setStatus(row->statusColour(), reason);
    });
    connect(client, &M17Client::reconnectCountdown, this, [this, key](int remainingMs) {
        if (key != activeKey)
            return;
        const QString text = zl::ReconnectBackoff::countdownText(remainingMs);
        if (ReflectorRow* row = rows.value(key))
            row->setStatus(QLatin1String(kBetween), text);
        emit statusTextChanged(QStringLiteral("%1: %2").arg(rowName(key), text));
    });
    connect(client, &M17Client::voiceFrameRx, this, [this, key](const QByteArray& frame) {
        if (key == activeKey)
            voice->onVoiceFrame(frame);
    });
    return client;
}

void M17ModePage::dropClient(const QString& key)
{
    if (key == activeKey)
        disconnectActive();
    if (M17Client* client = clients.take(key)) {
        client->disconnectFromReflector();
        client->deleteLater();
    }
    linkedWith.remove(key);
}

void M17ModePage::disconnectActive()
{
    const QString key = activeKey;
    if (key.isEmpty())
        return;
    voice->stopTx();
    activeKey.clear();
    if (M17Client* client = clients.value(key))
        client->disconnectFromReflector();
    linkedWith.remove(key);
    if (ReflectorRow* row = rows.value(key)) {
        row->setActive(false);
        row->setStatus(QLatin1String(kIdle), QString());
    }
    emit connectedChanged(false);
    emit statusTextChanged(statusWords());
}

void M17ModePage::connectTo(const QString& key)
{
    ReflectorRow* row = rows.value(key);
    if (!row || !servers.value(key).enabled)
        return;
    if (!activeKey.isEmpty())
        disconnectActive();
    activeKey = key;
    haveStream = false;
    row->setActive(true);
    row->setStatus(QLatin1String(kBetween), QString());
    zl::audio::AudioMixer::instance().applyChains(modeKey(), key);
    storeRow(QString(), QStringLiteral("active"), key);

    const Server server = servers.value(key);
    const QString module = moduleOf(server.values);
    const char letter = module.at(0).unicode() > 255 ? char(0) : char(module.at(0).unicode());
    QString callsign = ownCallsign();
    if (callsign.isEmpty())
        callsign = QStringLiteral("N0CALL");
    qInfo() << "M17: connecting to" << server.host << server.port << module << "as" << callsign;
    linkedWith.insert(key, linkData(server));
    if (!clientFor(key)->linkTo(server.host, server.port, callsign, letter))
        row->setStatus(QLatin1String(kFailed), row->toolTip());
    emit statusTextChanged(rowName(key));
}

void M17ModePage::rowClicked(const QString& key)
{
    if (key == activeKey)
        disconnectActive();
    else
        connectTo(key);
}

void M17ModePage::rowEnabled(const QString& key)
{
    if (activeKey.isEmpty())
        connectTo(key);
}

void M17ModePage::relink(const QString& key)
{
    if (key == activeKey)
        connectTo(key);
}

QString M17ModePage::statusWords() const
{
    if (activeKey.isEmpty())
        return QStringLiteral("idle");
    return isModeConnected() ? QStringLiteral("linked to %1").arg(rowName(activeKey))
                             : QStringLiteral("linking to %1").arg(rowName(activeKey));
}

void M17ModePage::onClientState(const QString& key, int state)
{
    qInfo() << "M17: state" << state
            << "(0=NotLinked 1=Linking 2=Linked 3=Unlinking 4=Rejected 5=Failed 6=Reconnecting)";
    if (key != activeKey)
        return;
    if (ReflectorRow* row = rows.value(key))
        row->setStatus(colourOf(M17Client::State(state)), row->toolTip());
    emit connectedChanged(isModeConnected());
    emit statusTextChanged(statusWords());
}

void M17ModePage::onTalker(const QString& source, quint16 streamId)
{
    // Repeated packets of one stream make no further row.
    if (haveStream && streamId == lastStreamId)
        return;
    haveStream = true;
    lastStreamId = streamId;
    talkerHeard(source);
}
