#include "ui/PolledReflectorPage.h"

#include "app/PolledUdpLink.h"
#include "audio/AudioMixer.h"
#include "ui/ReflectorRow.h"

using zl::ui::ReflectorRow;

PolledReflectorPage::PolledReflectorPage(const QString& mode, QWidget* parent)
    : ReflectorModePage(mode, QStringLiteral("%1 reflectors — click a row to make it the one PTT talks to").arg(mode),
                        parent)
{
}

PolledReflectorPage::~PolledReflectorPage()
{
    // The clients send their unlink while the page is still whole.
    for (zl::PolledUdpLink* client : std::as_const(clients))
        client->disconnectFrom();
}

bool PolledReflectorPage::isModeConnected() const
{
    const zl::PolledUdpLink* client = clients.value(activeKey);
    return client && client->isLinked();
}

void PolledReflectorPage::start()
{
    for (const QString& key : std::as_const(order)) {
        if (servers.value(key).enabled)
            startClient(key);
    }
}

void PolledReflectorPage::rowsRebuilt()
{
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
    emit statusTextChanged(statusWords());
}

void PolledReflectorPage::startClient(const QString& key)
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

void PolledReflectorPage::dropClient(const QString& key)
{
    linkedWith.remove(key);
    errors.remove(key);
    if (zl::PolledUdpLink* client = clients.take(key)) {
        client->disconnectFrom();
        client->deleteLater();
    }
    updateRow(key);
}

void PolledReflectorPage::updateRow(const QString& key)
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

QString PolledReflectorPage::statusWords() const
{
    if (!isModeEnabled())
        return QStringLiteral("Offline — enable in Settings");
    if (!isModeConnected())
        return QStringLiteral("Registering…");
    return QStringLiteral("Online as %1").arg(ownCallsign());
}

void PolledReflectorPage::makeActive(const QString& key)
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
