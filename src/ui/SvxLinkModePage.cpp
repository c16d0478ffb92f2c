#include "ui/SvxLinkModePage.h"

#include "app/Config.h"
#include "audio/AudioMixer.h"
#include "svx/SvxReflectorClient.h"
#include "svx/SvxReflectorConfig.h"
#include "ui/ScreenFit.h"
#include "ui/StyleSheet.h"
#include "ui/SvxServerRow.h"

#include <QDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QJsonDocument>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPushButton>
#include <QTableWidget>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>

namespace {

SvxLinkModePage::Timing timing;

const QString kSection = QStringLiteral("svxlink");

QJsonObject servers()
{
    return zl::Config::instance().section(kSection).value(QStringLiteral("servers")).toObject();
}

const char* dotColour(zl::svx::SvxReflectorClient::State state)
{
    using State = zl::svx::SvxReflectorClient::State;
    switch (state) {
    case State::Connected:
        return BaseModePage::kUp;
    case State::Connecting:
    case State::Authenticating:
        return BaseModePage::kBetween;
    case State::Failed:
        return BaseModePage::kFailed;
    default:
        return BaseModePage::kIdle;
    }
}

QString now()
{
    return QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss"));
}

} // namespace

void SvxLinkModePage::setTiming(const Timing& t)
{
    timing = t;
}

SvxLinkModePage::SvxLinkModePage(QWidget* parent) : BaseModePage(QStringLiteral("SvxLink"), parent)
{
    auto* layout = new QVBoxLayout(this);
    rowsLayout = new QVBoxLayout;
    rowsLayout->setSpacing(4);
    layout->addLayout(rowsLayout);
    auto* nodesButton = new QPushButton(QStringLiteral("Nodes…"));
    nodesButton->setObjectName(QStringLiteral("svxNodesButton"));
    connect(nodesButton, &QPushButton::clicked, this, [this] { nodeListDialog()->open(); });
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(addButton(QStringLiteral("+ Add reflector")));
    buttons->addWidget(nodesButton);
    buttons->addStretch(1);
    layout->addLayout(buttons);
    auto* hint = new QLabel(QStringLiteral("Click a reflector to make it the one PTT transmits through."));
    hint->setWordWrap(true);
    layout->addWidget(hint);
    layout->addStretch(1);

    http = new QNetworkAccessManager(this);
    pollTimer = new QTimer(this);
    pollTimer->setInterval(timing.pollMs);
    connect(pollTimer, &QTimer::timeout, this, &SvxLinkModePage::pollStatus);
    pollTimer->start();
    QTimer::singleShot(timing.firstPollMs, this, &SvxLinkModePage::pollStatus);

    refreshNodes();
    // Sockets open once the window is on screen.
    QTimer::singleShot(timing.startMs, this, &SvxLinkModePage::startClients);
}

SvxLinkModePage::~SvxLinkModePage()
{
    for (zl::svx::SvxReflectorClient* each : std::as_const(clients)) {
        each->disconnect(this);
        each->stop();
    }
}

bool SvxLinkModePage::isModeEnabled() const
{
    const QJsonObject all = servers();
    for (auto it = all.begin(); it != all.end(); ++it) {
        if (it.value().toObject().value(QStringLiteral("enabled")).toBool())
            return true;
    }
    return false;
}

bool SvxLinkModePage::isModeConnected() const
{
    for (zl::svx::SvxReflectorClient* each : clients) {
        if (each->state() == zl::svx::SvxReflectorClient::State::Connected)
            return true;
    }
    return false;
}

QString SvxLinkModePage::serverText() const
{
    return activeKey;
}

QString SvxLinkModePage::targetText() const
{
    const zl::ui::SvxServerRow* row = rows.value(activeKey);
    return row ? QStringLiteral("TG %1").arg(row->tg()) : QString();
}

QString SvxLinkModePage::activeRowKey() const
{
    return activeKey;
}

void SvxLinkModePage::setPttActive(bool on)
{
    zl::svx::SvxReflectorClient* active = clients.value(activeKey);
    QObject::disconnect(micConnection);
    if (!active)
        return;
    if (on && active->state() != zl::svx::SvxReflectorClient::State::Connected)
        return;
    if (on) {
        micConnection = connect(&zl::audio::AudioMixer::instance(), &zl::audio::AudioMixer::micPcmReady, active,
                                &zl::svx::SvxReflectorClient::pushMicPcm);
    }
    active->setTalking(on);
}

void SvxLinkModePage::reloadConfig()
{
    refreshNodes();
    startClients();
}

QString SvxLinkModePage::locationOf(const QString& key, const QString& callsign) const
{
    return locations.value(key).value(callsign);
}

void SvxLinkModePage::refreshNodes()
{
    const QJsonObject all = servers();
    QHash<QString, zl::ui::SvxServerRow*> kept;
    for (auto it = all.begin(); it != all.end(); ++it) {
        const QString key = it.key();
        zl::ui::SvxServerRow* row = rows.take(key);
        if (!row) {
            row = new zl::ui::SvxServerRow(key, it.value().toObject());
            connect(row, &zl::ui::SvxServerRow::clickedActive, this, &SvxLinkModePage::setActive);
            connect(row, &zl::ui::SvxServerRow::enabledToggled, this, [this](const QString& rowKey, bool on) {
                if (on)
                    startClient(rowKey);
                else
                    stopClient(rowKey);
                emit enabledChanged(isModeEnabled());
            });
            connect(row, &zl::ui::SvxServerRow::tgChanged, this, [this](const QString& rowKey, uint tg) {
                if (zl::svx::SvxReflectorClient* each = clients.value(rowKey))
                    each->selectTalkGroup(tg);
                emit statusTextChanged(targetText());
            });
        }
        rowsLayout->removeWidget(row);
        rowsLayout->addWidget(row);
        kept.insert(key, row);
    }
    for (zl::ui::SvxServerRow* gone : std::as_const(rows)) {
        stopClient(gone->key());
        rowsLayout->removeWidget(gone);
        gone->hide();
        gone->deleteLater();
    }
    rows = kept;
    QString chosen = zl::Config::instance().section(kSection).value(QStringLiteral("default_server")).toString();
    if (!rows.contains(chosen)) {
        chosen.clear();
        for (auto it = all.begin(); it != all.end() && chosen.isEmpty(); ++it) {
            if (it.value().toObject().value(QStringLiteral("enabled")).toBool())
                chosen = it.key();
        }
    }
    activeKey = chosen;
    for (zl::ui::SvxServerRow* row : std::as_const(rows))
        row->setActive(row->key() == activeKey);
    updateStatuses();
}

void SvxLinkModePage::startClients()
{
    const QJsonObject all = servers();
    for (auto it = all.begin(); it != all.end(); ++it) {
        if (it.value().toObject().value(QStringLiteral("enabled")).toBool())
            startClient(it.key());
    }
}

void SvxLinkModePage::startClient(const QString& key)
{
    if (clients.contains(key))
        return;
    const QJsonObject section = zl::Config::instance().section(kSection);
    auto* each = new zl::svx::SvxReflectorClient(this);
    zl::svx::applyReflectorSettings(*each, key,
                                    section.value(QStringLiteral("servers")).toObject().value(key).toObject(), section,
                                    QFileInfo(zl::Config::instance().path()).absolutePath());
    connect(each, &zl::svx::SvxReflectorClient::stateChanged, this, &SvxLinkModePage::updateStatuses);
    connect(each, &zl::svx::SvxReflectorClient::errorReported, this, &SvxLinkModePage::updateStatuses);
    connect(each, &zl::svx::SvxReflectorClient::talkerStart, this,
            [this, key](uint tg, const QString& call) { onTalkerStart(key, tg, call); });
    connect(each, &zl::svx::SvxReflectorClient::talkerStop, this,
            [this, key](uint tg, const QString& call) { onTalkerStop(key, tg, call); });
    connect(each, &zl::svx::SvxReflectorClient::pcmReady, this,
            [this, key](const QByteArray& pcm) { zl::audio::AudioMixer::instance().pushPcm(modeKey(), pcm, key); });
    clients.insert(key, each);
    qInfo() << "SvxLinkModePage: starting" << key;
    each->start();
    updateStatuses();
}

void SvxLinkModePage::stopClient(const QString& key)
{
    zl::svx::SvxReflectorClient* each = clients.take(key);
    if (!each)
        return;
    each->stop();
    each->deleteLater();
    updateStatuses();
}

void SvxLinkModePage::setActive(const QString& key)
{
    zl::Config& config = zl::Config::instance();
    QJsonObject section = config.section(kSection);
    section.insert(QStringLiteral("default_server"), key);
    config.setSection(kSection, section);
    activeKey = key;
    for (zl::ui::SvxServerRow* row : std::as_const(rows))
        row->setActive(row->key() == activeKey);
    zl::audio::AudioMixer::instance().applyChains(modeKey(), key);
    emit statusTextChanged(serverText());
}

void SvxLinkModePage::updateStatuses()
{
    for (zl::ui::SvxServerRow* row : std::as_const(rows)) {
        const zl::svx::SvxReflectorClient* each = clients.value(row->key());
        if (!each) {
            row->setStatus(QLatin1String(kIdle), QStringLiteral("off"));
            continue;
        }
        // Why the last attempt failed stays on the row until the link is up again.
        QString text = each->statusText();
        const QString why = each->lastErrorText();
        if (each->state() != zl::svx::SvxReflectorClient::State::Connected && !why.isEmpty() && text != why)
            text = QStringLiteral("%1: %2").arg(text, why);
        row->setStatus(QLatin1String(dotColour(each->state())), text);
    }
    emit connectedChanged(isModeConnected());
}

QString SvxLinkModePage::statusUrl(const QString& key) const
{
    const QJsonObject entry = servers().value(key).toObject();
    const QString url = entry.value(QStringLiteral("portal_url")).toString().trimmed();
    if (!url.isEmpty())
        return url;
    const int port = entry.value(QStringLiteral("status_port")).toVariant().toInt();
    if (port <= 0 || port > 65535)
        return {};
    QUrl built;
    built.setScheme(QStringLiteral("http"));
    built.setHost(zl::svx::splitReflectorKey(key).first);
    built.setPort(port);
    // The reflector serves its node table at /status; its root answers 404.
    built.setPath(QStringLiteral("/status"));
    return built.toString();
}

void SvxLinkModePage::pollStatus()
{
    const QString key = activeKey;
    const QString url = statusUrl(key);
    if (url.isEmpty())
        return;
    qInfo().noquote() << "SvxLink status: fetching" << url;
    QNetworkReply* reply = http->get(QNetworkRequest(QUrl(url)));
    connect(reply, &QNetworkReply::finished, this, [this, reply, key] {
        reply->deleteLater();
        QJsonParseError error;
        const QJsonDocument doc = QJsonDocument::fromJson(reply->readAll(), &error);
        if (reply->error() != QNetworkReply::NoError || error.error != QJsonParseError::NoError || !doc.isObject())
            return;
        QHash<QString, QString>& table = locations[key];
        QHash<QString, uint>& tgTable = nodeTgs[key];
        int count = 0;
        for (const char* group : {"nodes", "bridge_nodes"}) {
            const QJsonObject nodes = doc.object().value(QLatin1String(group)).toObject();
            for (auto it = nodes.begin(); it != nodes.end(); ++it) {
                const QJsonObject node = it.value().toObject();
                table.insert(it.key(), node.value(QStringLiteral("nodeLocation")).toString());
                tgTable.insert(it.key(), uint(node.value(QStringLiteral("tg")).toVariant().toULongLong()));
                ++count;
            }
        }
        int total = 0;
        for (const QHash<QString, QString>& each : std::as_const(locations))
            total += int(each.size());
        qInfo().noquote() << "SvxLink status: got" << count << "nodes for" << key << "(locations now"
                          << QString::number(total) + QLatin1Char(')');
    });
}

bool SvxLinkModePage::isOwnCallsign(const QString& key, const QString& callsign) const
{
    const zl::svx::SvxReflectorClient* each = clients.value(key);
    return each && callsign.compare(each->nodeCallsign(), Qt::CaseInsensitive) == 0;
}

void SvxLinkModePage::onTalkerStart(const QString& key, uint tg, const QString& callsign)
{
    // The reflector announces our own transmission too; the window already has its TX row.
    if (isOwnCallsign(key, callsign))
        return;
    talkStarts.insert(key + QLatin1Char('\n') + callsign, QDateTime::currentDateTime());
    emit transmissionStarted(now(), callsign, locationOf(key, callsign), key, QStringLiteral("TG %1").arg(tg), false);
}

void SvxLinkModePage::onTalkerStop(const QString& key, uint tg, const QString& callsign)
{
    if (isOwnCallsign(key, callsign))
        return;
    const QDateTime started = talkStarts.take(key + QLatin1Char('\n') + callsign);
    const qint64 seconds = started.isValid() ? started.secsTo(QDateTime::currentDateTime()) : 0;
    emit lastHeardLine(now(), callsign, locationOf(key, callsign), key, QStringLiteral("TG %1").arg(tg),
                       QStringLiteral("%1s").arg(seconds), QString(), QString());
    emit transmissionEnded(callsign);
}

QDialog* SvxLinkModePage::nodeListDialog()
{
    auto* dialog = new QDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(QStringLiteral("SvxLink nodes"));
    auto* layout = new QVBoxLayout(dialog);
    auto* filter = new QLineEdit;
    filter->setPlaceholderText(QStringLiteral("filter callsign / location / TG…"));
    layout->addWidget(filter);
    auto* info = new QLabel;
    info->setObjectName(QStringLiteral("nodeListInfo"));
    layout->addWidget(info);
    auto* table = new QTableWidget(0, 3);
    table->setObjectName(QStringLiteral("nodeListTable"));
    table->setHorizontalHeaderLabels({QStringLiteral("CALLSIGN"), QStringLiteral("LOCATION"), QStringLiteral("TG")});
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    table->horizontalHeader()->setSectionResizeMode(2, QHeaderView::ResizeToContents);
    layout->addWidget(table);
    // Room for a callsign, a location and the talk group, cut to a small screen.
    dialog->resize(zl::uiScale(560), zl::uiScale(520));
    zl::ui::fitToScreen(dialog);

    const QString key = activeKey;
    const zl::svx::SvxReflectorClient* each = clients.value(key);
    QStringList calls;
    if (each && each->state() == zl::svx::SvxReflectorClient::State::Connected) {
        calls = each->nodes();
        info->setText(calls.isEmpty()
                          ? QStringLiteral("Connected — waiting for the reflector node list…")
                          : QStringLiteral("%1 nodes from the reflector — double-click a row to select its TG")
                                .arg(calls.size()));
    } else if (!locations.value(key).isEmpty()) {
        calls = locations.value(key).keys();
        calls.sort();
        info->setText(QStringLiteral("%1 nodes — double-click a row to select its TG").arg(calls.size()));
    } else {
        info->setText(QStringLiteral("Connect this reflector to see its nodes."));
    }
    for (const QString& call : std::as_const(calls)) {
        const int row = table->rowCount();
        table->insertRow(row);
        table->setItem(row, 0, new QTableWidgetItem(call));
        table->setItem(row, 1, new QTableWidgetItem(locationOf(key, call)));
        const uint tg = nodeTgs.value(key).value(call);
        table->setItem(row, 2, new QTableWidgetItem(tg ? QString::number(tg) : QString()));
    }
    connect(table, &QTableWidget::cellDoubleClicked, this, [this, table, key](int row) {
        bool ok = false;
        const uint tg = table->item(row, 2)->text().toUInt(&ok);
        if (zl::ui::SvxServerRow* target = rows.value(key); ok && target)
            target->setTg(tg);
    });
    connect(filter, &QLineEdit::textChanged, table, [table](const QString& text) {
        for (int row = 0; row < table->rowCount(); ++row) {
            bool match = false;
            for (int column = 0; column < table->columnCount(); ++column)
                match = match || table->item(row, column)->text().contains(text, Qt::CaseInsensitive);
            table->setRowHidden(row, !match);
        }
    });
    return dialog;
}
