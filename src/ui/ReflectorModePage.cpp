#include "ui/ReflectorModePage.h"

#include "app/Config.h"
#include "app/Identity.h"
#include "app/PolledUdpLink.h"
#include "audio/AudioMixer.h"
#include "db/ServerRegistry.h"
#include "ui/ReflectorRow.h"

#include <QLabel>
#include <QPushButton>
#include <QTime>
#include <QTimer>
#include <QVBoxLayout>

using zl::ui::ReflectorRow;

namespace {

int startDelayMs = 1500;

} // namespace

void ReflectorModePage::setStartDelay(int ms)
{
    startDelayMs = ms;
}

ReflectorModePage::ReflectorModePage(const QString& mode, QWidget* parent) : BaseModePage(mode, parent)
{
    auto* layout = new QVBoxLayout(this);
    auto* title = new QLabel(QStringLiteral("%1 reflectors — click a row to make it the one PTT talks to").arg(mode));
    title->setProperty("role", QStringLiteral("section"));
    layout->addWidget(title);
    rowsLayout = new QVBoxLayout;
    layout->addLayout(rowsLayout);
    layout->addWidget(addButton(QStringLiteral("+ Add reflector")), 0, Qt::AlignLeft);
    layout->addStretch(1);
}

ReflectorModePage::~ReflectorModePage()
{
    // The clients send their unlink while the page is still whole.
    for (zl::PolledUdpLink* client : std::as_const(clients))
        client->disconnectFrom();
}

void ReflectorModePage::begin()
{
    rebuildRows();
    startTimer = new QTimer(this);
    startTimer->setSingleShot(true);
    connect(startTimer, &QTimer::timeout, this, &ReflectorModePage::start);
    startTimer->start(startDelayMs);
}

bool ReflectorModePage::isModeEnabled() const
{
    for (const Server& server : servers) {
        if (server.enabled)
            return true;
    }
    return false;
}

bool ReflectorModePage::isModeConnected() const
{
    const zl::PolledUdpLink* client = clients.value(activeKey);
    return client && client->isLinked();
}

QString ReflectorModePage::serverText() const
{
    return activeKey.isEmpty() ? QString() : rowName(activeKey);
}

QString ReflectorModePage::targetText() const
{
    return serverText();
}

void ReflectorModePage::reloadConfig()
{
    rebuildRows();
}

QString ReflectorModePage::ownCallsign() const
{
    return zl::resolveIdentity(modeKey()).callsign;
}

void ReflectorModePage::start()
{
    started = true;
    for (const QString& key : std::as_const(order)) {
        if (servers.value(key).enabled)
            startClient(key);
    }
}

void ReflectorModePage::rebuildRows()
{
    const QJsonObject stored = zl::Config::instance().section(modeKey()).value(QStringLiteral("servers")).toObject();
    QHash<QString, Server> fresh;
    QStringList freshOrder;
    for (const zl::ServerEntry& entry : zl::ServerRegistry(mode()).selected()) {
        Server server;
        server.name = entry.name;
        server.host = entry.host;
        server.port = quint16(entry.port);
        server.values = stored.value(entry.id).toObject();
        server.enabled = server.values.value(QStringLiteral("enabled")).toBool(false);
        fresh.insert(entry.id, server);
        freshOrder << entry.id;
    }
    const QHash<QString, Server> before = servers;
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
        ReflectorRow* row = rows.value(key);
        if (!row) {
            row = createRow(key);
            rows.insert(key, row);
            connect(row, &ReflectorRow::clickedActive, this, &ReflectorModePage::makeActive);
            connect(row, &ReflectorRow::toggled, this, &ReflectorModePage::onRowToggled);
            connect(row, &ReflectorRow::fieldChanged, this, &ReflectorModePage::storeRow);
            connect(row, &ReflectorRow::editRequested, this, &ReflectorModePage::openModeSettings);
        }
        rowsLayout->addWidget(row); // keeps list order
        row->show(rowName(key), QStringLiteral("%1:%2").arg(server.host).arg(server.port), server.enabled,
                  server.values);
        if (!server.enabled)
            dropClient(key);
        else if (started && linkedWith.value(key) != linkData(server))
            startClient(key);
    }
    if (!servers.contains(activeKey))
        activeKey.clear();
    if (activeKey.isEmpty() && !order.isEmpty()) {
        // The first enabled row, or the first row when none is.
        QString first = order.first();
        for (const QString& key : std::as_const(order)) {
            if (servers.value(key).enabled) {
                first = key;
                break;
            }
        }
        makeActive(first);
    } else if (!activeKey.isEmpty())
        activeChanged(activeServer());
    emit enabledChanged(isModeEnabled());
    emit statusTextChanged(statusWords());
}

void ReflectorModePage::startClient(const QString& key)
{
    dropClient(key);
    const Server server = servers.value(key);
    zl::PolledUdpLink* client = createClient(server);
    client->setParent(this);
    clients.insert(key, client);
    linkedWith.insert(key, linkData(server));
    errors.remove(key);
    connect(client, &zl::PolledUdpLink::linked, this, [this, key] {
        errors.remove(key);
        updateRow(key);
    });
    connect(client, &zl::PolledUdpLink::errorReported, this, [this, key](const QString& reason) {
        errors.insert(key, reason);
        updateRow(key);
    });
    connect(client, &zl::PolledUdpLink::dataReceived, this, [this, key](const QByteArray& frame) {
        if (key == activeKey)
            voiceFrame(frame);
    });
    if (!client->connectTo(server.host, server.port) && !errors.contains(key))
        errors.insert(key, QStringLiteral("cannot link"));
    updateRow(key);
}

void ReflectorModePage::dropClient(const QString& key)
{
    linkedWith.remove(key);
    errors.remove(key);
    if (zl::PolledUdpLink* client = clients.take(key)) {
        client->disconnectFrom();
        client->deleteLater();
    }
    updateRow(key);
}

void ReflectorModePage::updateRow(const QString& key)
{
    ReflectorRow* row = rows.value(key);
    if (!row)
        return;
    const zl::PolledUdpLink* client = clients.value(key);
    if (errors.contains(key))
        row->setStatus(QLatin1String(kFailed), errors.value(key));
    else if (!client)
        row->setStatus(QLatin1String(kIdle), QString());
    else if (client->isLinked())
        row->setStatus(QLatin1String(kUp), QString());
    else
        row->setStatus(QLatin1String(kBetween), QString());
    if (key == activeKey) {
        emit connectedChanged(isModeConnected());
        emit statusTextChanged(statusWords());
    }
}

QString ReflectorModePage::statusWords() const
{
    if (!isModeEnabled())
        return QStringLiteral("Offline — enable in Settings");
    if (!isModeConnected())
        return QStringLiteral("Registering…");
    return QStringLiteral("Online as %1").arg(ownCallsign());
}

void ReflectorModePage::makeActive(const QString& key)
{
    if (!rows.contains(key))
        return;
    if (ReflectorRow* old = rows.value(activeKey))
        old->setActive(false);
    activeKey = key;
    rows.value(key)->setActive(true);
    zl::audio::AudioMixer::instance().applyChains(modeKey(), key);
    activeChanged(activeServer());
    emit connectedChanged(isModeConnected());
    emit statusTextChanged(statusWords());
}

void ReflectorModePage::onRowToggled(const QString& key, bool on)
{
    storeRow(key, QStringLiteral("enabled"), on);
    if (!on)
        dropClient(key);
    else if (started)
        startClient(key);
    emit enabledChanged(isModeEnabled());
    emit statusTextChanged(statusWords());
}

void ReflectorModePage::storeRow(const QString& key, const QString& field, const QJsonValue& value)
{
    Server& server = servers[key];
    server.values.insert(field, value);
    server.enabled = server.values.value(QStringLiteral("enabled")).toBool(false);
    zl::Config& config = zl::Config::instance();
    QJsonObject section = config.section(modeKey());
    QJsonObject all = section.value(QStringLiteral("servers")).toObject();
    all.insert(key, server.values);
    section.insert(QStringLiteral("servers"), all);
    config.setSectionSilent(modeKey(), section);
    config.save();
    if (key == activeKey)
        activeChanged(server);
    // A changed field that the link depends on links anew.
    if (started && server.enabled && clients.contains(key) && linkedWith.value(key) != linkData(server))
        startClient(key);
}

QString ReflectorModePage::rowName(const QString& key) const
{
    const QString name = servers.value(key).name;
    return name.isEmpty() ? key : name;
}

void ReflectorModePage::playPcm(const QByteArray& pcm)
{
    zl::audio::AudioMixer::instance().pushPcm(modeKey(), pcm, activeKey);
}

void ReflectorModePage::talkerHeard(const QString& call)
{
    emit lastHeardLine(QTime::currentTime().toString(QStringLiteral("HH:mm:ss")), call, QString(), mode(),
                       rowName(activeKey), QString(), QString(), QString());
}
