#include "ui/ReflectorModePage.h"

#include "app/Config.h"
#include "app/Identity.h"
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

ReflectorModePage::ReflectorModePage(const QString& mode, const QString& title, QWidget* parent)
    : BaseModePage(mode, parent)
{
    auto* layout = new QVBoxLayout(this);
    auto* heading = new QLabel(title);
    heading->setProperty("role", QStringLiteral("section"));
    layout->addWidget(heading);
    rowsLayout = new QVBoxLayout;
    layout->addLayout(rowsLayout);
    layout->addWidget(addButton(QStringLiteral("+ Add reflector")), 0, Qt::AlignLeft);
    layout->addStretch(1);
}

void ReflectorModePage::begin()
{
    rebuildRows();
    startTimer = new QTimer(this);
    startTimer->setSingleShot(true);
    connect(startTimer, &QTimer::timeout, this, [this] {
        started = true;
        start();
    });
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
            connect(row, &ReflectorRow::clickedActive, this, &ReflectorModePage::rowClicked);
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
            relink(key);
    }
    if (!servers.contains(activeKey))
        activeKey.clear();
    rowsRebuilt();
    emit enabledChanged(isModeEnabled());
}

void ReflectorModePage::onRowToggled(const QString& key, bool on)
{
    storeRow(key, QStringLiteral("enabled"), on);
    if (!on)
        dropClient(key);
    else if (started)
        rowEnabled(key);
    emit enabledChanged(isModeEnabled());
    emit statusTextChanged(statusWords());
}

void ReflectorModePage::storeRow(const QString& key, const QString& field, const QJsonValue& value)
{
    zl::Config& config = zl::Config::instance();
    QJsonObject section = config.section(modeKey());
    if (key.isEmpty()) {
        section.insert(field, value);
    } else {
        Server& server = servers[key];
        server.values.insert(field, value);
        server.enabled = server.values.value(QStringLiteral("enabled")).toBool(false);
        QJsonObject all = section.value(QStringLiteral("servers")).toObject();
        all.insert(key, server.values);
        section.insert(QStringLiteral("servers"), all);
    }
    config.setSectionSilent(modeKey(), section);
    config.save();
    if (key.isEmpty())
        return;
    const Server& server = servers[key];
    if (key == activeKey)
        activeChanged(server);
    // A changed field that the link depends on links anew.
    if (started && server.enabled && linkedWith.contains(key) && linkedWith.value(key) != linkData(server))
        relink(key);
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
