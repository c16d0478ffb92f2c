#include "ui/DmrSmsPage.h"

#include "app/Config.h"
#include "app/FileWrite.h"
#include "dmr/DmrPeerManager.h"
#include "dmr/Peer.h"
#include "ui/DmrPeerRow.h"
#include "ui/SmsPeerRow.h"

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
#include <QTableWidget>
#include <QTime>
#include <QVBoxLayout>

using zl::dmr::DmrPeerManager;

namespace {

constexpr int kMaxRows = 200;
// What the radios of most makers show and keep in one message.
constexpr int kMaxText = 144;
enum Column { Time, Dir, Peer, From, To, Text, Format, Status, Columns };
const char* const kKeys[Columns] = {"time", "dir", "peer", "from", "to", "text", "format", "status"};

QString historyPath()
{
    return QFileInfo(zl::Config::instance().path()).dir().filePath(QStringLiteral("dmr_sms.json"));
}

QString now()
{
    return QTime::currentTime().toString(QStringLiteral("HH:mm:ss"));
}

QString addressText(uint id, bool privateCall)
{
    return privateCall ? QString::number(id) : QStringLiteral("TG %1").arg(id);
}

quint32 ownId(const QString& peerLabel)
{
    for (const zl::dmr::Peer& peer : zl::dmr::loadPeers()) {
        if (peer.label == peerLabel)
            return zl::dmr::dmrId(peer);
    }
    return 0;
}

} // namespace

DmrSmsPage::DmrSmsPage(QWidget* parent) : BaseModePage(QStringLiteral("DMR SMS"), parent)
{
    auto* layout = new QVBoxLayout(this);
    auto* hint = new QLabel(QStringLiteral("Click the row to send SMS via this peer."));
    layout->addWidget(hint);
    peerList = new QVBoxLayout;
    noPeers = new QLabel(QStringLiteral("No DMR peer is connecting: turn one on on the DMR page."));
    peerList->addWidget(noPeers);
    layout->addLayout(peerList);

    auto* form = new QHBoxLayout;
    toEdit = new QLineEdit;
    toEdit->setObjectName(QStringLiteral("smsTo"));
    toEdit->setPlaceholderText(QStringLiteral("To: DMR ID (7 digits) or TG"));
    toEdit->setMaxLength(7);
    textEdit = new QLineEdit;
    textEdit->setObjectName(QStringLiteral("smsText"));
    textEdit->setMaxLength(kMaxText);
    textEdit->setPlaceholderText(QStringLiteral("Message"));
    formatCombo = new QComboBox;
    formatCombo->setObjectName(QStringLiteral("smsFormat"));
    formatCombo->addItem(QStringLiteral("ETSI (UTF-16)"), QStringLiteral("etsi"));
    formatCombo->addItem(QStringLiteral("AnyTone / TYT"), QStringLiteral("anytone"));
    formatCombo->addItem(QStringLiteral("Motorola short data"), QStringLiteral("short_data"));
    formatCombo->setToolTip(QStringLiteral("How the text is coded: pick what the receiving radio reads"));
    auto* send = new QPushButton(QStringLiteral("Send"));
    send->setObjectName(QStringLiteral("smsSend"));
    form->addWidget(toEdit);
    form->addWidget(textEdit, 1);
    form->addWidget(formatCombo);
    form->addWidget(send);
    layout->addLayout(form);
    statusLabel = new QLabel;
    statusLabel->setObjectName(QStringLiteral("smsStatus"));
    layout->addWidget(statusLabel);

    history = new QTableWidget(0, Columns);
    history->setObjectName(QStringLiteral("smsHistory"));
    history->setHorizontalHeaderLabels({"Time", "Dir", "Peer", "From", "To", "Text", "Format", "Status"});
    history->setEditTriggers(QAbstractItemView::NoEditTriggers);
    history->verticalHeader()->hide();
    history->horizontalHeader()->setSectionResizeMode(Text, QHeaderView::Stretch);
    layout->addWidget(history, 1);

    connect(send, &QPushButton::clicked, this, &DmrSmsPage::onSendClicked);
    connect(textEdit, &QLineEdit::returnPressed, this, &DmrSmsPage::onSendClicked);
    connect(formatCombo, &QComboBox::activated, this, [this] {
        zl::Config& config = zl::Config::instance();
        QJsonObject dmr = config.section(QStringLiteral("dmr"));
        dmr.insert(QStringLiteral("sms_format"), formatCombo->currentData().toString());
        config.setSectionSilent(QStringLiteral("dmr"), dmr);
        config.save();
    });
    DmrPeerManager& manager = DmrPeerManager::instance();
    connect(&manager, &DmrPeerManager::changed, this, &DmrSmsPage::refreshPeers);
    connect(&manager, &DmrPeerManager::smsReceived, this,
            [this](const QString& peerLabel, const QString&, uint src, uint dst, bool priv, const QString& text,
                   const QString& format) { onReceived(peerLabel, src, dst, priv, text, format); });
    connect(&manager, &DmrPeerManager::smsSent, this, &DmrSmsPage::onSent);

    loadHistory();
    reloadConfig();
}

DmrSmsPage::~DmrSmsPage()
{
    // The manager outlives every page.
    DmrPeerManager::instance().disconnect(this);
}

bool DmrSmsPage::isModeEnabled() const
{
    return !DmrPeerManager::instance().peerTable().isEmpty();
}

bool DmrSmsPage::isModeConnected() const
{
    return DmrPeerManager::instance().connectedCount() > 0;
}

QString DmrSmsPage::serverText() const
{
    return DmrPeerManager::instance().smsPeerLabel();
}

QString DmrSmsPage::targetText() const
{
    return toEdit->text().trimmed();
}

void DmrSmsPage::reloadConfig()
{
    const QString format =
        zl::Config::instance().section(QStringLiteral("dmr")).value(QStringLiteral("sms_format")).toString();
    const int index = formatCombo->findData(format);
    formatCombo->setCurrentIndex(index >= 0 ? index : 0);
    refreshPeers();
}

void DmrSmsPage::refreshPeers()
{
    const QList<DmrPeerManager::PeerRow> table = DmrPeerManager::instance().peerTable();
    QSet<QString> present;
    for (const DmrPeerManager::PeerRow& peer : table) {
        present.insert(peer.label);
        zl::ui::SmsPeerRow* row = rows.value(peer.label);
        if (!row) {
            row = new zl::ui::SmsPeerRow(peer.label);
            connect(row, &zl::ui::SmsPeerRow::clicked, this, &DmrSmsPage::choosePeer);
            rows.insert(peer.label, row);
            peerList->addWidget(row);
        }
        row->setStatus(peer.networkName, QLatin1String(zl::ui::DmrPeerRow::dotColour(peer.state)), peer.stateText);
    }
    for (auto it = rows.begin(); it != rows.end();) {
        if (present.contains(it.key())) {
            ++it;
            continue;
        }
        it.value()->deleteLater();
        it = rows.erase(it);
    }
    noPeers->setVisible(rows.isEmpty());
    const QString chosen = DmrPeerManager::instance().smsPeerLabel();
    for (zl::ui::SmsPeerRow* row : std::as_const(rows))
        row->setChosen(row->label() == chosen);
    emit enabledChanged(isModeEnabled());
    emit connectedChanged(isModeConnected());
}

void DmrSmsPage::choosePeer(const QString& label)
{
    zl::Config& config = zl::Config::instance();
    QJsonObject dmr = config.section(QStringLiteral("dmr"));
    dmr.insert(QStringLiteral("sms_peer_label"), label);
    config.setSectionSilent(QStringLiteral("dmr"), dmr);
    config.save();
    refreshPeers();
}

void DmrSmsPage::onSendClicked()
{
    static const QRegularExpression digits(QStringLiteral("^[0-9]{1,7}$"));
    const QString to = toEdit->text().trimmed();
    const quint32 dstId = digits.match(to).hasMatch() ? to.toUInt() : 0;
    if (dstId == 0) {
        showStatus(QStringLiteral("Enter a DMR ID or TG in To."), true);
        return;
    }
    const QString text = textEdit->text().trimmed();
    if (text.isEmpty()) {
        showStatus(QStringLiteral("Enter a message."), true);
        return;
    }
    const QString peer = DmrPeerManager::instance().smsPeerLabel();
    if (peer.isEmpty()) {
        showStatus(QStringLiteral("No DMR peer to send through — click a peer row."), true);
        return;
    }
    // Seven digits are a radio's ID; anything shorter is a talkgroup.
    const bool privateCall = to.size() == 7;
    const QString format = formatCombo->currentData().toString();
    const QString error = DmrPeerManager::instance().sendSms(peer, dstId, text, format, privateCall);
    if (!error.isEmpty()) {
        showStatus(error, true);
        return;
    }
    showStatus(QStringLiteral("Sending to %1 via %2 …").arg(addressText(dstId, privateCall), peer));
    addHistory({now(), QStringLiteral("→"), peer, QString::number(ownId(peer)), addressText(dstId, privateCall), text,
                format, QStringLiteral("sending")});
    textEdit->clear();
}

void DmrSmsPage::onReceived(const QString& peerLabel, uint srcId, uint dstId, bool privateCall, const QString& text,
                            const QString& format)
{
    addHistory({now(), QStringLiteral("←"), peerLabel, QString::number(srcId), addressText(dstId, privateCall), text,
                format, QString()});
    emit lastHeardLine(now(), QString::number(srcId), QString(), peerLabel, addressText(dstId, privateCall), QString(),
                       QString(), QString());
}

void DmrSmsPage::onSent(const QString& peerLabel, uint dstId, const QString& text)
{
    // The newest row still sending this text there is the message whose last burst just left.
    for (int r = history->rowCount() - 1; r >= 0; --r) {
        const auto cell = [this, r](int c) { return history->item(r, c)->text(); };
        if (cell(Status) == QLatin1String("sending") && cell(Peer) == peerLabel && cell(Text) == text &&
            cell(To).endsWith(QString::number(dstId))) {
            history->item(r, Status)->setText(QStringLiteral("sent"));
            showStatus(QStringLiteral("Sent to %1 via %2").arg(cell(To), peerLabel));
            saveHistory();
            return;
        }
    }
}

void DmrSmsPage::addHistory(const QStringList& cells)
{
    while (history->rowCount() >= kMaxRows)
        history->removeRow(0);
    const int row = history->rowCount();
    history->insertRow(row);
    for (int c = 0; c < Columns; ++c)
        history->setItem(row, c, new QTableWidgetItem(cells.value(c)));
    history->scrollToBottom();
    saveHistory();
}

void DmrSmsPage::loadHistory()
{
    QFile file(historyPath());
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QJsonArray stored = QJsonDocument::fromJson(file.readAll()).array();
    // Only the newest rows fit; the file is written back only when something new comes.
    for (qsizetype i = std::max<qsizetype>(0, stored.size() - kMaxRows); i < stored.size(); ++i) {
        const QJsonObject entry = stored.at(i).toObject();
        const int row = history->rowCount();
        history->insertRow(row);
        for (int c = 0; c < Columns; ++c)
            history->setItem(row, c, new QTableWidgetItem(entry.value(QLatin1String(kKeys[c])).toString()));
    }
    history->scrollToBottom();
}

void DmrSmsPage::saveHistory() const
{
    QJsonArray entries;
    for (int r = 0; r < history->rowCount(); ++r) {
        QJsonObject entry;
        for (int c = 0; c < Columns; ++c)
            entry.insert(QLatin1String(kKeys[c]), history->item(r, c)->text());
        entries.append(entry);
    }
    zl::writeFileAtomically(historyPath(), QJsonDocument(entries).toJson(QJsonDocument::Compact),
                            zl::FileAccess::Private);
}

void DmrSmsPage::showStatus(const QString& text, bool bad)
{
    statusLabel->setText(text);
    statusLabel->setStyleSheet(bad ? QStringLiteral("color: #ff5050;") : QString());
    emit statusTextChanged(text);
}
