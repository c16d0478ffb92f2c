#include "ui/M17ModePage.h"

#include "app/Config.h"
#include "app/Identity.h"
#include "app/TimeScale.h"
#include "audio/AudioMixer.h"
#include "db/ServerRegistry.h"
#include "m17/M17Client.h"
#include "m17/M17Voice.h"
#include "ui/M17ReflectorRow.h"

#include <QDebug>
#include <QJsonObject>
#include <QLabel>
#include <QPushButton>
#include <QTime>
#include <QTimer>
#include <QVBoxLayout>

using zl::m17::M17Client;
using zl::ui::M17ReflectorRow;

namespace {

int startDelayMs = 1500;
const QString kModeKey = QStringLiteral("m17");

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

} // namespace

void M17ModePage::setStartDelay(int ms)
{
    startDelayMs = ms;
}

M17ModePage::M17ModePage(QWidget* parent) : BaseModePage(QStringLiteral("M17"), parent)
{
    auto* layout = new QVBoxLayout(this);
    auto* title = new QLabel(QStringLiteral("M17 reflectors — click a row to link it, click again to unlink"));
    title->setProperty("role", QStringLiteral("section"));
    layout->addWidget(title);
    rowsLayout = new QVBoxLayout;
    layout->addLayout(rowsLayout);
    layout->addWidget(addButton(QStringLiteral("+ Add reflector")), 0, Qt::AlignLeft);
    layout->addStretch(1);

    voice = new zl::m17::M17Voice(this);
    connect(voice, &zl::m17::M17Voice::frameReady, this, [this](const QByteArray& frame) {
        if (M17Client* client = clients.value(activeKey))
            client->sendFrame(frame);
    });
    connect(voice, &zl::m17::M17Voice::rxPcm, this,
            [this](const QByteArray& pcm) { zl::audio::AudioMixer::instance().pushPcm(kModeKey, pcm, activeKey); });
    connect(voice, &zl::m17::M17Voice::talkerStarted, this, &M17ModePage::onTalker);
    connect(&zl::audio::AudioMixer::instance(), &zl::audio::AudioMixer::micPcmReady, voice,
            &zl::m17::M17Voice::pushMicPcm);

    rebuildRows();
    startTimer = new QTimer(this);
    startTimer->setSingleShot(true);
    connect(startTimer, &QTimer::timeout, this, &M17ModePage::start);
    startTimer->start(startDelayMs);
}

M17ModePage::~M17ModePage()
{
    // The clients send their unlink while the page is still whole.
    for (M17Client* client : std::as_const(clients))
        client->disconnectFromReflector();
}

bool M17ModePage::isModeEnabled() const
{
    for (const Server& server : servers) {
        if (server.enabled)
            return true;
    }
    return false;
}

bool M17ModePage::isModeConnected() const
{
    const M17Client* client = clients.value(activeKey);
    return client && client->state() == M17Client::State::Linked;
}

QString M17ModePage::serverText() const
{
    return activeKey.isEmpty() ? QString() : rowName(activeKey);
}

QString M17ModePage::targetText() const
{
    return serverText();
}

void M17ModePage::setPttActive(bool on)
{
    if (!on) {
        voice->stopTx();
        return;
    }
    if (!isModeConnected())
        return;
    const QString callsign = zl::resolveIdentity(kModeKey).callsign;
    if (callsign.isEmpty()) {
        qWarning() << "M17: no callsign configured, not transmitting";
        return;
    }
    voice->startTx(callsign);
}

void M17ModePage::reloadConfig()
{
    rebuildRows();
    if (started && activeKey.isEmpty())
        start();
}

void M17ModePage::start()
{
    started = true;
    QString first = zl::Config::instance().section(kModeKey).value(QStringLiteral("active")).toString();
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

void M17ModePage::rebuildRows()
{
    const QJsonObject stored = zl::Config::instance().section(kModeKey).value(QStringLiteral("servers")).toObject();
    QHash<QString, Server> fresh;
    QStringList freshOrder;
    for (const zl::ServerEntry& entry : zl::ServerRegistry(QStringLiteral("M17")).selected()) {
        const QJsonObject values = stored.value(entry.id).toObject();
        Server server;
        server.name = entry.name;
        server.host = entry.host;
        server.port = quint16(entry.port);
        server.enabled = values.value(QStringLiteral("enabled")).toBool(false);
        server.module = values.value(QStringLiteral("module")).toString(QStringLiteral("A")).toUpper().left(1);
        fresh.insert(entry.id, server);
        freshOrder << entry.id;
    }
    servers = fresh;
    order = freshOrder;

    for (const QString& key : rows.keys()) {
        if (!servers.contains(key)) {
            dropClient(key);
            delete rows.take(key);
        }
    }
    for (const QString& key : std::as_const(order)) {
        const Server& server = servers[key];
        M17ReflectorRow* row = rows.value(key);
        if (!row) {
            row = new M17ReflectorRow(key);
            rows.insert(key, row);
            connect(row, &M17ReflectorRow::clickedActive, this, &M17ModePage::onRowClicked);
            connect(row, &M17ReflectorRow::toggled, this, &M17ModePage::onRowToggled);
            connect(row, &M17ReflectorRow::editRequested, this, &M17ModePage::openModeSettings);
            connect(row, &M17ReflectorRow::moduleChanged, this, [this](const QString& rowKey, const QString& module) {
                storeRow(rowKey, "module", module);
                servers[rowKey].module = module;
            });
        }
        rowsLayout->addWidget(row); // keeps list order
        row->show(rowName(key), QStringLiteral("%1:%2").arg(server.host).arg(server.port), server.enabled,
                  server.module);
        if (!server.enabled)
            dropClient(key);
        else if (key == activeKey && linkedWith.value(key) != linkData(key))
            connectTo(key);
    }
    emit enabledChanged(isModeEnabled());
}

QString M17ModePage::linkData(const QString& key) const
{
    const Server server = servers.value(key);
    return QStringLiteral("%1|%2|%3|%4")
        .arg(server.host)
        .arg(server.port)
        .arg(server.module, zl::resolveIdentity(kModeKey).callsign);
}

QString M17ModePage::rowName(const QString& key) const
{
    const QString name = servers.value(key).name;
    return name.isEmpty() ? key : name;
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
        if (M17ReflectorRow* row = rows.value(key))
            row->setStatus(row->statusColour(), reason);
    });
    connect(client, &M17Client::reconnectCountdown, this, [this, key](int remainingMs) {
        if (key != activeKey)
            return;
        const QString text = zl::ReconnectBackoff::countdownText(remainingMs);
        if (M17ReflectorRow* row = rows.value(key))
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
    if (M17ReflectorRow* row = rows.value(key)) {
        row->setActive(false);
        row->setStatus(QLatin1String(kIdle), QString());
    }
    emit connectedChanged(false);
    emit statusTextChanged(QStringLiteral("idle"));
}

void M17ModePage::connectTo(const QString& key)
{
    M17ReflectorRow* row = rows.value(key);
    if (!row || !servers.value(key).enabled)
        return;
    if (!activeKey.isEmpty())
        disconnectActive();
    activeKey = key;
    haveStream = false;
    row->setActive(true);
    row->setStatus(QLatin1String(kBetween), QString());
    zl::audio::AudioMixer::instance().applyChains(kModeKey, key);
    storeRow(QString(), "active", key);

    const Server server = servers.value(key);
    const QChar letter = server.module.isEmpty() ? QLatin1Char('A') : server.module.at(0);
    const char module = letter.unicode() > 255 ? char(0) : char(letter.unicode());
    QString callsign = zl::resolveIdentity(kModeKey).callsign;
    if (callsign.isEmpty())
        callsign = QStringLiteral("N0CALL");
    qInfo() << "M17: connecting to" << server.host << server.port << server.module << "as" << callsign;
    linkedWith.insert(key, linkData(key));
    if (!clientFor(key)->linkTo(server.host, server.port, callsign, module))
        row->setStatus(QLatin1String(kFailed), row->toolTip());
    emit statusTextChanged(rowName(key));
}

void M17ModePage::onRowClicked(const QString& key)
{
    if (key == activeKey)
        disconnectActive();
    else
        connectTo(key);
}

void M17ModePage::onRowToggled(const QString& key, bool on)
{
    storeRow(key, "enabled", on);
    servers[key].enabled = on;
    if (!on)
        dropClient(key);
    else if (started && activeKey.isEmpty())
        connectTo(key);
    emit enabledChanged(isModeEnabled());
}

void M17ModePage::onClientState(const QString& key, int state)
{
    qInfo() << "M17: state" << state
            << "(0=NotLinked 1=Linking 2=Linked 3=Unlinking 4=Rejected 5=Failed 6=Reconnecting)";
    if (key != activeKey)
        return;
    if (M17ReflectorRow* row = rows.value(key))
        row->setStatus(colourOf(M17Client::State(state)), row->toolTip());
    emit connectedChanged(isModeConnected());
    emit statusTextChanged(isModeConnected() ? QStringLiteral("linked to %1").arg(rowName(key))
                                             : QStringLiteral("linking to %1").arg(rowName(key)));
}

void M17ModePage::onTalker(const QString& source, quint16 streamId)
{
    // Repeated packets of one stream make no further row.
    if (haveStream && streamId == lastStreamId)
        return;
    haveStream = true;
    lastStreamId = streamId;
    emit lastHeardLine(QTime::currentTime().toString(QStringLiteral("HH:mm:ss")), source, QString(),
                       QStringLiteral("M17"), rowName(activeKey), QString(), QString(), QString());
}

void M17ModePage::storeRow(const QString& key, const char* field, const QJsonValue& value)
{
    zl::Config& config = zl::Config::instance();
    QJsonObject section = config.section(kModeKey);
    if (key.isEmpty()) {
        section.insert(QLatin1String(field), value);
    } else {
        QJsonObject all = section.value(QStringLiteral("servers")).toObject();
        QJsonObject row = all.value(key).toObject();
        row.insert(QLatin1String(field), value);
        all.insert(key, row);
        section.insert(QStringLiteral("servers"), all);
    }
    config.setSectionSilent(kModeKey, section);
    config.save();
}
