#include "ui/AprsModePage.h"

#include "app/Config.h"
#include "app/FileWrite.h"
#include "app/Identity.h"
#include "aprs/AprsBeacon.h"
#include "aprs/AprsClient.h"
#include "aprs/AprsGeo.h"
#include "aprs/DmrBridge.h"
#include "db/ServerRegistry.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGridLayout>
#include <QHeaderView>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTableWidget>
#include <QTime>
#include <QVBoxLayout>

using zl::aprs::AprsClient;
using zl::aprs::ParsedPacket;

namespace {

constexpr int kMaxRows = 200;
constexpr int kMaxText = 67;
enum Column { Time, Dir, From, To, Text, Status };

QJsonObject section()
{
    return zl::Config::instance().section(QStringLiteral("aprs"));
}

QString historyPath()
{
    return QFileInfo(zl::Config::instance().path()).dir().filePath(QStringLiteral("aprs_msgs.json"));
}

QString now()
{
    return QTime::currentTime().toString(QStringLiteral("HH:mm:ss"));
}

QTableWidget* table(const QString& name, const QStringList& headers)
{
    auto* t = new QTableWidget(0, int(headers.size()));
    t->setObjectName(name);
    t->setHorizontalHeaderLabels(headers);
    t->setEditTriggers(QAbstractItemView::NoEditTriggers);
    t->verticalHeader()->hide();
    t->horizontalHeader()->setStretchLastSection(true);
    return t;
}

} // namespace

AprsModePage::AprsModePage(QWidget* parent) : BaseModePage(QStringLiteral("APRS"), parent)
{
    aprs = new AprsClient(this);
    beacon = new zl::aprs::AprsBeacon(aprs, this);
    connect(aprs, &AprsClient::packetReceived, this, &AprsModePage::onPacket);
    bridge = new zl::aprs::DmrBridge(aprs, this);
    connect(bridge, &zl::aprs::DmrBridge::sentToAprs, this,
            [this](const QString& id, const QString& dest, const QString& text, uint source) {
                addHistory(QStringLiteral("→"), ownCall(), dest, text, QStringLiteral("sent (via DMR %1)").arg(source));
                pending.insert(id, history->item(history->rowCount() - 1, Status));
                saveHistory();
            });
    connect(aprs, &AprsClient::messageStatus, this, &AprsModePage::onMessageStatus);
    connect(aprs, &AprsClient::loginResult, this, [this](bool verified) {
        if (verified)
            showStatus(QStringLiteral("connected (verified)"));
        else
            showStatus(QStringLiteral("login unverified — check callsign/passcode"), true);
    });
    connect(aprs, &AprsClient::errorReported, this,
            [this](const QString& reason) { showStatus(QStringLiteral("err: ") + reason, true); });
    connect(aprs, &AprsClient::stateChanged, this, [this] {
        const bool running = aprs->state() != AprsClient::State::Disconnected;
        connectButton->setText(running ? QStringLiteral("Disconnect") : QStringLiteral("Connect"));
        if (aprs->state() != AprsClient::State::Failed)
            showStatus(aprs->statusText());
        emit connectedChanged(isModeConnected());
    });

    auto* layout = new QVBoxLayout(this);
    auto* top = new QHBoxLayout;
    enabledBox = new QCheckBox(QStringLiteral("Connect at start"));
    serverCombo = new QComboBox;
    serverCombo->setObjectName(QStringLiteral("aprsServer"));
    connectButton = new QPushButton(QStringLiteral("Connect"));
    connectButton->setObjectName(QStringLiteral("aprsConnect"));
    statusLabel = new QLabel(QStringLiteral("idle"));
    statusLabel->setObjectName(QStringLiteral("aprsStatus"));
    top->addWidget(enabledBox);
    top->addWidget(serverCombo, 1);
    top->addWidget(connectButton);
    top->addWidget(statusLabel, 1);
    layout->addLayout(top);

    auto* form = new QHBoxLayout;
    destEdit = new QLineEdit;
    destEdit->setObjectName(QStringLiteral("aprsDest"));
    destEdit->setPlaceholderText(QStringLiteral("To (callsign-SSID)"));
    textEdit = new QLineEdit;
    textEdit->setObjectName(QStringLiteral("aprsText"));
    textEdit->setMaxLength(kMaxText);
    textEdit->setPlaceholderText(QStringLiteral("Message, up to 67 characters"));
    auto* send = new QPushButton(QStringLiteral("Send"));
    send->setObjectName(QStringLiteral("aprsSend"));
    form->addWidget(destEdit);
    form->addWidget(textEdit, 1);
    form->addWidget(send);
    layout->addLayout(form);

    auto* lists = new QGridLayout;
    history = table(QStringLiteral("aprsHistory"), {"Time", "Dir", "From", "To", "Text", "Status"});
    topics = table(QStringLiteral("aprsTopics"), {"Time", "From", "To", "Text"});
    activity = new QListWidget;
    activity->setObjectName(QStringLiteral("aprsActivity"));
    lists->addWidget(new QLabel(QStringLiteral("Messages")), 0, 0);
    lists->addWidget(history, 1, 0, 3, 1);
    lists->addWidget(new QLabel(QStringLiteral("Stations heard")), 0, 1);
    lists->addWidget(activity, 1, 1);
    lists->addWidget(new QLabel(QStringLiteral("Topics")), 2, 1);
    lists->addWidget(topics, 3, 1);
    lists->setColumnStretch(0, 3);
    lists->setColumnStretch(1, 2);
    layout->addLayout(lists, 1);

    connect(enabledBox, &QCheckBox::toggled, this, &AprsModePage::onEnabledToggled);
    connect(connectButton, &QPushButton::clicked, this, &AprsModePage::onConnectClicked);
    connect(send, &QPushButton::clicked, this, &AprsModePage::onSendClicked);
    connect(textEdit, &QLineEdit::returnPressed, this, &AprsModePage::onSendClicked);
    connect(serverCombo, &QComboBox::activated, this, [this] {
        zl::Config& config = zl::Config::instance();
        QJsonObject aprsSection = config.section(QStringLiteral("aprs"));
        aprsSection.insert(QStringLiteral("server"), serverCombo->currentData().toString());
        config.setSectionSilent(QStringLiteral("aprs"), aprsSection);
        config.save();
    });

    loadHistory();
    reloadConfig();
    if (enabledBox->isChecked())
        onConnectClicked();
}

AprsModePage::~AprsModePage()
{
    aprs->disconnect(this);
}

bool AprsModePage::isModeEnabled() const
{
    return section().value(QStringLiteral("enabled")).toBool(false);
}

bool AprsModePage::isModeConnected() const
{
    return aprs->state() == AprsClient::State::LoggedIn;
}

QString AprsModePage::serverText() const
{
    return serverCombo->currentData().toString();
}

QString AprsModePage::ownCall() const
{
    const QString own = section().value(QStringLiteral("callsign_ssid")).toString().trimmed();
    return (own.isEmpty() ? zl::resolveIdentity(modeKey()).callsign : own).toUpper();
}

void AprsModePage::reloadConfig()
{
    const QJsonObject aprsSection = section();
    {
        const QSignalBlocker block(serverCombo);
        serverCombo->clear();
        for (const zl::ServerEntry& server : zl::ServerRegistry(mode()).selected())
            serverCombo->addItem(server.name, QStringLiteral("%1:%2").arg(server.host).arg(server.port));
        const QString ownHost = aprsSection.value(QStringLiteral("server_host")).toString().trimmed();
        if (!ownHost.isEmpty()) {
            const QString address =
                QStringLiteral("%1:%2").arg(ownHost).arg(aprsSection.value(QStringLiteral("server_port")).toInt(14580));
            serverCombo->addItem(QStringLiteral("%1 (own server, Settings → APRS)").arg(address), address);
        }
        const int stored = serverCombo->findData(aprsSection.value(QStringLiteral("server")).toString());
        serverCombo->setCurrentIndex(stored >= 0 ? stored : 0);
    }
    const QSignalBlocker block(enabledBox);
    enabledBox->setChecked(isModeEnabled());
    applySettings();
    beacon->reload();
    emit enabledChanged(isModeEnabled());
}

void AprsModePage::applySettings()
{
    QString server = serverCombo->currentData().toString();
    const int colon = server.lastIndexOf(QLatin1Char(':'));
    quint16 port = 14580;
    if (colon > 0) {
        port = quint16(server.mid(colon + 1).toUInt());
        server.truncate(colon);
    }
    aprs->setServer(server, port);
    aprs->setCallsign(ownCall());
    aprs->setFilter(section().value(QStringLiteral("filter")).toString(QStringLiteral("t/m")));
}

void AprsModePage::onEnabledToggled(bool on)
{
    zl::Config& config = zl::Config::instance();
    QJsonObject aprsSection = config.section(QStringLiteral("aprs"));
    aprsSection.insert(QStringLiteral("enabled"), on);
    config.setSectionSilent(QStringLiteral("aprs"), aprsSection);
    config.save();
    if (on != (aprs->state() != AprsClient::State::Disconnected))
        onConnectClicked();
    emit enabledChanged(on);
}

void AprsModePage::onConnectClicked()
{
    if (aprs->state() != AprsClient::State::Disconnected && aprs->state() != AprsClient::State::Failed) {
        aprs->stop();
        return;
    }
    applySettings();
    aprs->start();
}

void AprsModePage::showStatus(const QString& text, bool bad)
{
    statusLabel->setText(text);
    statusLabel->setStyleSheet(bad ? QStringLiteral("color: #ff5050;") : QString());
    emit statusTextChanged(text);
}

void AprsModePage::onPacket(const ParsedPacket& packet)
{
    if (packet.type == ParsedPacket::Position) {
        QString text = QString::asprintf("POS %.5f,%.5f %c%c ", packet.latitude, packet.longitude, packet.symbolTable,
                                         packet.symbolCode) +
                       packet.comment;
        const double lat = section().value(QStringLiteral("lat")).toDouble();
        const double lon = section().value(QStringLiteral("lon")).toDouble();
        // Distance and bearing from this station's own beacon position, when it has one.
        if (packet.hasPosition && (lat != 0.0 || lon != 0.0))
            text += QString::asprintf(" — %.1f km, %03d°",
                                      zl::aprs::distanceKm(lat, lon, packet.latitude, packet.longitude),
                                      qRound(zl::aprs::bearingDeg(lat, lon, packet.latitude, packet.longitude)) % 360);
        addActivity(packet.source + QStringLiteral(": ") + text);
        return;
    }
    if (packet.type == ParsedPacket::Status) {
        addActivity(packet.source + QStringLiteral(": STATUS ") + packet.comment);
        return;
    }
    if (packet.type != ParsedPacket::Message || packet.isAck)
        return;
    const bool forMe = aprs->isForMe(packet.addressee);
    // The ack goes before the duplicate test: the sender of a repeat missed the first one.
    if (forMe && !packet.msgId.isEmpty())
        aprs->sendAck(packet.source, packet.msgId);
    if (packet.duplicate)
        return;
    matchTopics(packet);
    if (!forMe)
        return;
    addHistory(QStringLiteral("←"), packet.source, packet.addressee, packet.body, QString());
    emit lastHeardLine(now(), packet.source, QString(), mode(), serverText(), QString(), QString(), QString());
    bridge->bridgeToDmr(packet.source, packet.body);
}

void AprsModePage::matchTopics(const ParsedPacket& packet)
{
    const QString body = packet.body.toLower();
    for (const QJsonValue& value : section().value(QStringLiteral("topics")).toArray()) {
        const QString topic = value.toString().toLower();
        if (topic.isEmpty())
            continue;
        const bool hit = body.contains(QLatin1Char('#') + topic) ||
                         (topic == QLatin1String("aprsthursday") && body.contains(QLatin1String("#aprsthu")));
        if (!hit)
            continue;
        topics->insertRow(0);
        const QStringList cells{now(), packet.source, packet.addressee, packet.body};
        for (int c = 0; c < cells.size(); ++c)
            topics->setItem(0, c, new QTableWidgetItem(cells.at(c)));
        return;
    }
}

void AprsModePage::onSendClicked()
{
    const QString dest = destEdit->text().trimmed().toUpper();
    const QString text = textEdit->text().trimmed().left(kMaxText);
    if (dest.isEmpty() || text.isEmpty())
        return;
    const QString id = aprs->sendTrackedMessage(dest, text);
    if (id.isEmpty())
        return;
    addHistory(QStringLiteral("→"), ownCall(), dest, text, QStringLiteral("sent"));
    pending.insert(id, history->item(history->rowCount() - 1, Status));
    emit lastHeardLine(now(), ownCall(), QString(), mode(), serverText(), dest, QString(), QString());
    textEdit->clear();
}

void AprsModePage::onMessageStatus(const QString& msgId, const QString& /*dest*/, const QString& status)
{
    QTableWidgetItem* cell = pending.value(msgId);
    if (!cell)
        return;
    static const QHash<QString, QString> shown{{QStringLiteral("acked"), QStringLiteral("ACK")},
                                               {QStringLiteral("rejected"), QStringLiteral("REJ")},
                                               {QStringLiteral("timeout"), QStringLiteral("no ACK")}};
    cell->setText(shown.value(status, status));
    if (status != QLatin1String("sent") && status != QLatin1String("retry"))
        pending.remove(msgId);
    saveHistory();
}

void AprsModePage::addHistory(const QString& dir, const QString& from, const QString& to, const QString& text,
                              const QString& status, const QString& time)
{
    while (history->rowCount() >= kMaxRows) {
        // The oldest row leaves; a message of it still waiting for an answer no longer has a cell.
        const QTableWidgetItem* gone = history->item(0, Status);
        for (auto it = pending.begin(); it != pending.end();)
            it = it.value() == gone ? pending.erase(it) : std::next(it);
        history->removeRow(0);
    }
    const int row = history->rowCount();
    history->insertRow(row);
    const QStringList cells{time.isEmpty() ? now() : time, dir, from, to, text, status};
    for (int c = 0; c < cells.size(); ++c)
        history->setItem(row, c, new QTableWidgetItem(cells.at(c)));
    history->scrollToBottom();
    if (time.isEmpty())
        saveHistory();
}

void AprsModePage::addActivity(const QString& text)
{
    activity->insertItem(0, now() + QLatin1Char(' ') + text);
    while (activity->count() > kMaxRows)
        delete activity->takeItem(activity->count() - 1);
}

void AprsModePage::loadHistory()
{
    QFile file(historyPath());
    if (!file.open(QIODevice::ReadOnly))
        return;
    for (const QJsonValue& value : QJsonDocument::fromJson(file.readAll()).array()) {
        const QJsonObject row = value.toObject();
        const auto text = [&row](const char* key) { return row.value(QLatin1String(key)).toString(); };
        addHistory(text("dir"), text("from"), text("to"), text("text"), text("status"),
                   text("time").isEmpty() ? QStringLiteral("--:--:--") : text("time"));
    }
}

void AprsModePage::saveHistory() const
{
    QJsonArray rows;
    for (int r = 0; r < history->rowCount(); ++r) {
        const auto cell = [this, r](int c) { return history->item(r, c) ? history->item(r, c)->text() : QString(); };
        rows.append(QJsonObject{{"time", cell(Time)},
                                {"dir", cell(Dir)},
                                {"from", cell(From)},
                                {"to", cell(To)},
                                {"text", cell(Text)},
                                {"status", cell(Status)}});
    }
    zl::writeFileAtomically(historyPath(), QJsonDocument(rows).toJson(QJsonDocument::Compact), zl::FileAccess::Private);
}
