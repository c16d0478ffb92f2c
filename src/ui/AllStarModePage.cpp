#include "ui/AllStarModePage.h"

#include "app/Config.h"
#include "audio/AudioMixer.h"
#include "iax/IaxClient.h"
#include "ui/AllStarNodeRow.h"

#include <QDateTime>
#include <QJsonArray>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

namespace {

int startDelayMs = 1500;
// Audio after this much silence is a new reception.
constexpr qint64 kNewReceptionMs = 1000;

QList<QPair<QString, QJsonObject>> nodeEntries()
{
    QList<QPair<QString, QJsonObject>> list;
    const QJsonArray servers =
        zl::Config::instance().section(QStringLiteral("allstar")).value(QStringLiteral("servers")).toArray();
    for (const QJsonObject& entry : zl::configObjects(servers, QStringLiteral("allstar.servers"))) {
        QString key = entry.value(QStringLiteral("node")).toVariant().toString().trimmed();
        if (key.isEmpty())
            key = entry.value(QStringLiteral("name")).toString().trimmed();
        if (!key.isEmpty())
            list.append({key, entry});
    }
    return list;
}

const char* dotColour(zl::iax::IaxClient::State state)
{
    switch (state) {
    case zl::iax::IaxClient::State::Up:
        return BaseModePage::kUp;
    case zl::iax::IaxClient::State::Connecting:
        return BaseModePage::kBetween;
    default:
        return BaseModePage::kIdle;
    }
}

} // namespace

void AllStarModePage::setStartDelay(int ms)
{
    startDelayMs = ms;
}

AllStarModePage::AllStarModePage(QWidget* parent) : BaseModePage(QStringLiteral("AllStar"), parent)
{
    auto* layout = new QVBoxLayout(this);
    rowsLayout = new QVBoxLayout;
    rowsLayout->setSpacing(4);
    layout->addLayout(rowsLayout);
    layout->addWidget(addButton(QStringLiteral("+ Add node")), 0, Qt::AlignLeft);
    commandEdit = new QLineEdit;
    commandEdit->setObjectName(QStringLiteral("allstarCommand"));
    commandEdit->setPlaceholderText(
        QStringLiteral("DTMF command: *3<node> connect, *1<node> disconnect, *2<node> monitor, *70 status"));
    layout->addWidget(commandEdit);
    resultLabel = new QLabel;
    resultLabel->setObjectName(QStringLiteral("allstarCommandResult"));
    layout->addWidget(resultLabel);
    layout->addStretch(1);
    connect(commandEdit, &QLineEdit::returnPressed, this, [this] {
        sendCommand(commandEdit->text());
        commandEdit->clear();
    });

    refreshRows();
    QTimer::singleShot(startDelayMs, this, &AllStarModePage::startClients);
}

AllStarModePage::~AllStarModePage()
{
    for (zl::iax::IaxClient* each : std::as_const(clients)) {
        each->disconnect(this);
        each->hangup();
    }
}

bool AllStarModePage::isModeEnabled() const
{
    for (const auto& [key, entry] : nodeEntries()) {
        if (entry.value(QStringLiteral("enabled")).toBool())
            return true;
    }
    return false;
}

bool AllStarModePage::isModeConnected() const
{
    for (const zl::iax::IaxClient* each : clients) {
        if (each->state() == zl::iax::IaxClient::State::Up)
            return true;
    }
    return false;
}

QString AllStarModePage::serverText() const
{
    const zl::ui::AllStarNodeRow* row = rows.value(activeKey);
    return row ? row->text() : QString();
}

QString AllStarModePage::targetText() const
{
    return activeKey;
}

QString AllStarModePage::activeRowKey() const
{
    return activeKey;
}

void AllStarModePage::setPttActive(bool on)
{
    QObject::disconnect(micConnection);
    zl::iax::IaxClient* active = clients.value(activeKey);
    if (on && active && active->state() == zl::iax::IaxClient::State::Up) {
        micConnection = connect(&zl::audio::AudioMixer::instance(), &zl::audio::AudioMixer::micPcmReady, active,
                                &zl::iax::IaxClient::pushPcm);
    }
}

void AllStarModePage::reloadConfig()
{
    refreshRows();
    startClients();
}

void AllStarModePage::setActive(const QString& key)
{
    if (!rows.contains(key))
        return;
    activeKey = key;
    for (zl::ui::AllStarNodeRow* row : std::as_const(rows))
        row->setActive(row->key() == activeKey);
    zl::audio::AudioMixer::instance().applyChains(modeKey(), key);
    emit statusTextChanged(serverText());
}

void AllStarModePage::sendCommand(const QString& text)
{
    const QString digits = text.trimmed();
    zl::iax::IaxClient* active = clients.value(activeKey);
    if (!active || active->state() != zl::iax::IaxClient::State::Up) {
        resultLabel->setText(QStringLiteral("command: no active node connected"));
        return;
    }
    active->sendDtmf(digits);
    resultLabel->setText(QStringLiteral("sent %1 to %2").arg(digits, activeKey));
}

QString AllStarModePage::commandResult() const
{
    return resultLabel->text();
}

void AllStarModePage::refreshRows()
{
    QHash<QString, zl::ui::AllStarNodeRow*> kept;
    for (const auto& [key, entry] : nodeEntries()) {
        delete rows.take(key);
        auto* row = new zl::ui::AllStarNodeRow(key, entry);
        connect(row, &zl::ui::AllStarNodeRow::clickedActive, this, &AllStarModePage::setActive);
        rowsLayout->addWidget(row);
        kept.insert(key, row);
        if (activeKey.isEmpty() && entry.value(QStringLiteral("enabled")).toBool())
            activeKey = key;
    }
    for (zl::ui::AllStarNodeRow* gone : std::as_const(rows))
        delete gone;
    // Rows are rebuilt from the stored entries, and their calls are made again.
    for (auto it = clients.begin(); it != clients.end();) {
        it.value()->disconnect(this);
        it.value()->hangup();
        it.value()->deleteLater();
        it = clients.erase(it);
    }
    rows = kept;
    if (!rows.contains(activeKey))
        activeKey.clear();
    for (zl::ui::AllStarNodeRow* row : std::as_const(rows))
        row->setActive(row->key() == activeKey);
    updateStatuses();
}

void AllStarModePage::startClients()
{
    for (const QPair<QString, QJsonObject>& node : nodeEntries()) {
        // A named copy: lambdas can't capture structured bindings in C++20.
        const QString key = node.first;
        const QJsonObject& entry = node.second;
        if (!entry.value(QStringLiteral("enabled")).toBool() || clients.contains(key) || !rows.contains(key))
            continue;
        auto* each = new zl::iax::IaxClient(this);
        each->setAccount(
            entry.value(QStringLiteral("host")).toString(), entry.value(QStringLiteral("port")).toInt(4569),
            entry.value(QStringLiteral("username")).toString(), entry.value(QStringLiteral("password")).toString(),
            entry.value(QStringLiteral("node")).toVariant().toString(),
            entry.value(QStringLiteral("callsign")).toString());
        connect(each, &zl::iax::IaxClient::stateChanged, this, &AllStarModePage::updateStatuses);
        connect(each, &zl::iax::IaxClient::pcmReady, this, [this, key](const QByteArray& pcm) { onPcm(key, pcm); });
        clients.insert(key, each);
        each->call();
    }
    updateStatuses();
}

void AllStarModePage::updateStatuses()
{
    for (zl::ui::AllStarNodeRow* row : std::as_const(rows)) {
        const zl::iax::IaxClient* each = clients.value(row->key());
        const zl::iax::IaxClient::State state = each ? each->state() : zl::iax::IaxClient::State::Disconnected;
        row->setStatus(QLatin1String(dotColour(state)), each ? QString() : QStringLiteral("off"));
    }
    emit connectedChanged(isModeConnected());
}

void AllStarModePage::onPcm(const QString& key, const QByteArray& pcm)
{
    zl::audio::AudioMixer::instance().pushPcm(modeKey(), pcm, key);
    QElapsedTimer& last = lastAudio[key];
    if (!last.isValid() || last.elapsed() > kNewReceptionMs) {
        const zl::ui::AllStarNodeRow* row = rows.value(key);
        emit lastHeardLine(QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss")), row ? row->text() : key,
                           QString(), QStringLiteral("AllStar"), key, QString(), QString(), QString());
    }
    last.start();
}
