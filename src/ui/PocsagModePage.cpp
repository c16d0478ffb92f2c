#include "ui/PocsagModePage.h"

#include "app/Config.h"
#include "app/FileWrite.h"
#include "app/Identity.h"
#include "db/ServerRegistry.h"
#include "pocsag/DapnetClient.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QStandardItemModel>
#include <QTableWidget>
#include <QTime>
#include <QVBoxLayout>

#include <algorithm>

using zl::pocsag::DapnetClient;

namespace {

constexpr int kMaxRows = 300;
constexpr int kMaxText = 80;
constexpr quint16 kDefaultPort = 43434;
enum Column { Time, Ric, Mine, Type, Text };

const QString kSection = QStringLiteral("pocsag");

QJsonObject section()
{
    return zl::Config::instance().section(kSection);
}

QString historyPath()
{
    return QFileInfo(zl::Config::instance().path()).dir().filePath(QStringLiteral("pocsag_pages.json"));
}

QStringList splitList(const QString& text)
{
    static const QRegularExpression separators(QStringLiteral("[,\\s]+"));
    return text.split(separators, Qt::SkipEmptyParts);
}

QString typeText(int func)
{
    switch (func) {
    case 0:
        return QStringLiteral("numeric");
    case 1:
        return QStringLiteral("alert 1");
    case 2:
        return QStringLiteral("alert 2");
    default:
        return QStringLiteral("text");
    }
}

} // namespace

PocsagModePage::PocsagModePage(QWidget* parent) : BaseModePage(QStringLiteral("POCSAG"), parent)
{
    dapnet = new DapnetClient(this);
    connect(dapnet, &DapnetClient::pageReceived, this, &PocsagModePage::onPageReceived);
    connect(dapnet, &DapnetClient::stateChanged, this, &PocsagModePage::onStateChanged);
    connect(dapnet, &DapnetClient::errorReported, this,
            [this](const QString& reason) { showStatus(QStringLiteral("err: ") + reason, true); });
    connect(dapnet, &DapnetClient::callResult, this, [this](bool ok, const QString& message) {
        showStatus(message, !ok);
        if (!ok)
            return;
        textEdit->clear();
        // An emergency page is a deliberate act each time, never the leftover of the last one.
        emergencyBox->setChecked(false);
    });
    connect(dapnet, &DapnetClient::scheduleReceived, this, [this](const QString& schedule) {
        statusLabel->setToolTip(QStringLiteral("Time slots of this transmitter: %1").arg(schedule));
    });

    auto* layout = new QVBoxLayout(this);
    auto* top = new QHBoxLayout;
    enabledBox = new QCheckBox(QStringLiteral("Connect at start"));
    serverCombo = new QComboBox;
    serverCombo->setObjectName(QStringLiteral("pocsagServer"));
    connectButton = new QPushButton(QStringLiteral("Connect"));
    connectButton->setObjectName(QStringLiteral("pocsagConnect"));
    auto* servers = new QPushButton(QStringLiteral("Servers…"));
    statusLabel = new QLabel(QStringLiteral("idle"));
    statusLabel->setObjectName(QStringLiteral("pocsagStatus"));
    statusLabel->setWordWrap(true);
    top->addWidget(enabledBox);
    top->addWidget(serverCombo, 1);
    top->addWidget(connectButton);
    top->addWidget(servers);
    layout->addLayout(top);
    layout->addWidget(statusLabel);

    auto* form = new QHBoxLayout;
    identityCombo = new QComboBox;
    identityCombo->setToolTip(QStringLiteral("The account that sends when none is set on the POCSAG tab; its RICs "
                                             "count as this station's own"));
    form->addWidget(identityCombo);
    toEdit = new QLineEdit;
    toEdit->setObjectName(QStringLiteral("pocsagTo"));
    toEdit->setPlaceholderText(QStringLiteral("To (callsigns)"));
    groupEdit = new QLineEdit;
    groupEdit->setObjectName(QStringLiteral("pocsagGroup"));
    groupEdit->setPlaceholderText(QStringLiteral("TX group, e.g. all"));
    textEdit = new QLineEdit;
    textEdit->setObjectName(QStringLiteral("pocsagText"));
    textEdit->setMaxLength(kMaxText);
    textEdit->setPlaceholderText(QStringLiteral("Message, up to 80 characters"));
    emergencyBox = new QCheckBox(QStringLiteral("Emergency"));
    auto* send = new QPushButton(QStringLiteral("Send"));
    send->setObjectName(QStringLiteral("pocsagSend"));
    form->addWidget(toEdit, 1);
    form->addWidget(groupEdit, 1);
    layout->addLayout(form);
    // The message gets a line of its own: the window may be as narrow as a 7-inch screen.
    auto* message = new QHBoxLayout;
    message->addWidget(textEdit, 1);
    message->addWidget(emergencyBox);
    message->addWidget(send);
    layout->addLayout(message);

    pages = new QTableWidget(0, 5);
    pages->setObjectName(QStringLiteral("pocsagPages"));
    pages->setHorizontalHeaderLabels({"Time", "RIC", "Mine", "Type", "Text"});
    pages->setEditTriggers(QAbstractItemView::NoEditTriggers);
    pages->verticalHeader()->hide();
    pages->horizontalHeader()->setStretchLastSection(true);
    layout->addWidget(pages, 1);

    connect(enabledBox, &QCheckBox::toggled, this, &PocsagModePage::onEnabledToggled);
    connect(connectButton, &QPushButton::clicked, this, &PocsagModePage::onConnectClicked);
    connect(servers, &QPushButton::clicked, this, &PocsagModePage::openModeSettings);
    connect(send, &QPushButton::clicked, this, &PocsagModePage::onSendClicked);
    connect(textEdit, &QLineEdit::returnPressed, this, &PocsagModePage::onSendClicked);
    connect(serverCombo, &QComboBox::activated, this, [this] {
        storeKey(QStringLiteral("server"), serverCombo->currentData().toString());
        if (applySettings() && clientActive())
            dapnet->start();
    });
    // The main window reloads every page when the choice is stored, this one included.
    connect(identityCombo, &QComboBox::activated, this,
            [this] { zl::setActiveIdentity(modeKey(), identityCombo->currentData().toString()); });
    connect(groupEdit, &QLineEdit::editingFinished, this,
            [this] { storeKey(QStringLiteral("tx_group"), groupEdit->text().trimmed()); });

    loadHistory();
    reloadConfig();
    if (enabledBox->isChecked())
        onConnectClicked();
}

PocsagModePage::~PocsagModePage()
{
    dapnet->disconnect(this);
}

bool PocsagModePage::isModeEnabled() const
{
    return section().value(QStringLiteral("enabled")).toBool(false);
}

bool PocsagModePage::isModeConnected() const
{
    return dapnet->state() == DapnetClient::State::LoggedIn;
}

QString PocsagModePage::serverText() const
{
    return serverCombo->currentData().toString();
}

QString PocsagModePage::targetText() const
{
    QList<uint> sorted(ownRics.cbegin(), ownRics.cend());
    std::sort(sorted.begin(), sorted.end());
    QStringList rics;
    for (const uint ric : std::as_const(sorted))
        rics.append(QString::number(ric));
    return rics.join(QStringLiteral(", "));
}

void PocsagModePage::reloadConfig()
{
    const QJsonObject pocsag = section();
    {
        const QSignalBlocker block(serverCombo);
        serverCombo->clear();
        for (const zl::ServerEntry& server : zl::ServerRegistry(mode()).selected())
            serverCombo->addItem(
                server.name,
                QStringLiteral("%1:%2").arg(server.host).arg(server.port > 0 ? server.port : kDefaultPort));
        if (serverCombo->count() == 0) {
            serverCombo->addItem(QStringLiteral("(no DAPNET servers — add one in Settings → POCSAG)"), QString());
            if (auto* model = qobject_cast<QStandardItemModel*>(serverCombo->model()))
                model->item(0)->setEnabled(false);
        }
        const int stored = serverCombo->findData(pocsag.value(QStringLiteral("server")).toString());
        serverCombo->setCurrentIndex(stored >= 0 ? stored : 0);
    }
    connectButton->setEnabled(!serverCombo->currentData().toString().isEmpty() ||
                              dapnet->state() != DapnetClient::State::Disconnected);
    groupEdit->setText(pocsag.value(QStringLiteral("tx_group")).toString());
    fillIdentityCombo(identityCombo, modeKey());
    // Own RICs are set on the tab and on the identities of the mode; both count.
    ownRics.clear();
    const QString identityRics = zl::resolveIdentity(modeKey()).id_field;
    for (const QString& ric : splitList(pocsag.value(QStringLiteral("rics")).toString() + u' ' + identityRics))
        ownRics.insert(ric.toUInt());
    const QSignalBlocker block(enabledBox);
    enabledBox->setChecked(isModeEnabled());
    // New credentials or another core take effect at once, not at the next reconnect.
    if (applySettings() && clientActive())
        dapnet->start();
    emit enabledChanged(isModeEnabled());
}

bool PocsagModePage::clientActive() const
{
    return dapnet->state() != DapnetClient::State::Disconnected && dapnet->state() != DapnetClient::State::Failed;
}

bool PocsagModePage::applySettings()
{
    const QJsonObject pocsag = section();
    QString server = serverCombo->currentData().toString();
    quint16 port = kDefaultPort;
    const int colon = int(server.lastIndexOf(QLatin1Char(':')));
    if (colon > 0) {
        port = quint16(server.mid(colon + 1).toUInt());
        server.truncate(colon);
    }
    dapnet->setServer(server, port);
    const auto text = [&pocsag](const char* key) { return pocsag.value(QLatin1String(key)).toString(); };
    dapnet->setTransmitter(text("tx_name"), text("auth_key"));
    // Without a name on the tab, the account is the username of the mode's identity.
    const QString username = text("username").trimmed();
    dapnet->setAccount(username.isEmpty() ? zl::resolveIdentity(modeKey()).callsign : username, text("password"));
    const QString login =
        QStringList{serverCombo->currentData().toString(), text("tx_name"), text("auth_key")}.join(u'\n');
    const bool changed = login != appliedLogin;
    appliedLogin = login;
    return changed;
}

void PocsagModePage::storeKey(const QString& key, const QJsonValue& value)
{
    zl::Config& config = zl::Config::instance();
    QJsonObject pocsag = config.section(kSection);
    pocsag.insert(key, value);
    config.setSectionSilent(kSection, pocsag);
    config.save();
}

void PocsagModePage::onEnabledToggled(bool on)
{
    storeKey(QStringLiteral("enabled"), on);
    if (on && !clientActive())
        onConnectClicked();
    else if (!on)
        dapnet->stop();
    emit enabledChanged(on);
}

void PocsagModePage::onConnectClicked()
{
    if (clientActive()) {
        dapnet->stop();
        return;
    }
    applySettings();
    dapnet->start();
}

void PocsagModePage::onStateChanged()
{
    const DapnetClient::State state = dapnet->state();
    const bool active = clientActive();
    connectButton->setText(active ? QStringLiteral("Disconnect") : QStringLiteral("Connect"));
    connectButton->setEnabled(active || !serverCombo->currentData().toString().isEmpty());
    // While it tries again, the reason it lost the core stays in view.
    if (state == DapnetClient::State::Connecting && !dapnet->lastErrorText().isEmpty())
        showStatus(QStringLiteral("connecting — ") + dapnet->lastErrorText(), true);
    else if (state != DapnetClient::State::Failed)
        showStatus(dapnet->statusText());
    emit connectedChanged(isModeConnected());
}

void PocsagModePage::showStatus(const QString& text, bool bad)
{
    statusLabel->setText(text);
    statusLabel->setStyleSheet(bad ? QStringLiteral("color: #ff5050;") : QString());
    emit statusTextChanged(text);
}

void PocsagModePage::onSendClicked()
{
    const QStringList recipients = splitList(toEdit->text().toUpper());
    const QStringList groups = splitList(groupEdit->text());
    const QString text = textEdit->text().trimmed().left(kMaxText);
    if (recipients.isEmpty()) {
        showStatus(QStringLiteral("Enter a recipient callsign."), true);
        return;
    }
    if (groups.isEmpty()) {
        showStatus(QStringLiteral("Enter a TX group (e.g. all)."), true);
        return;
    }
    if (text.isEmpty()) {
        showStatus(QStringLiteral("Enter a message."), true);
        return;
    }
    applySettings();
    showStatus(QStringLiteral("Sending to %1 …").arg(recipients.join(QStringLiteral(", "))));
    dapnet->sendCall(text, recipients, groups, emergencyBox->isChecked());
}

void PocsagModePage::onPageReceived(uint ric, int /*type*/, int func, const QString& text)
{
    const bool mine = ownRics.contains(ric);
    addRow(QTime::currentTime().toString(QStringLiteral("HH:mm:ss")), ric, mine, typeText(func), text);
    saveHistory();
    // A pager is for being called: a page to this station asks for attention like a chat message.
    if (mine)
        QApplication::alert(window());
}

void PocsagModePage::addRow(const QString& time, uint ric, bool mine, const QString& type, const QString& text)
{
    while (pages->rowCount() >= kMaxRows)
        pages->removeRow(0);
    const int row = pages->rowCount();
    pages->insertRow(row);
    const QStringList cells{time, QString::number(ric), mine ? QStringLiteral("✓") : QString(), type, text};
    for (int c = 0; c < cells.size(); ++c)
        pages->setItem(row, c, new QTableWidgetItem(cells.at(c)));
    pages->scrollToBottom();
}

void PocsagModePage::loadHistory()
{
    QFile file(historyPath());
    if (!file.open(QIODevice::ReadOnly))
        return;
    for (const QJsonValue& value : QJsonDocument::fromJson(file.readAll()).array()) {
        const QJsonObject row = value.toObject();
        const QString time = row.value(QStringLiteral("time")).toString();
        addRow(time.isEmpty() ? QStringLiteral("--:--:--") : time,
               quint32(row.value(QStringLiteral("ric")).toInteger()), row.value(QStringLiteral("mine")).toBool(),
               row.value(QStringLiteral("type")).toString(), row.value(QStringLiteral("text")).toString());
    }
}

void PocsagModePage::saveHistory() const
{
    QJsonArray rows;
    for (int r = 0; r < pages->rowCount(); ++r) {
        const auto cell = [this, r](int c) { return pages->item(r, c)->text(); };
        rows.append(QJsonObject{{"time", cell(Time)},
                                {"ric", qint64(cell(Ric).toUInt())},
                                {"mine", !cell(Mine).isEmpty()},
                                {"type", cell(Type)},
                                {"text", cell(Text)}});
    }
    zl::writeFileAtomically(historyPath(), QJsonDocument(rows).toJson(QJsonDocument::Compact), zl::FileAccess::Private);
}
