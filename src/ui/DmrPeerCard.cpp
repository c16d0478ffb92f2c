#include "ui/DmrPeerCard.h"

#include "app/Config.h"

#include "app/Identity.h"
#include "dmr/DmrPeerManager.h"
#include "ui/FieldCheck.h"
#include "ui/SettingsFields.h"
#include "ui/TgListDialog.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QJsonArray>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

#include <tuple>

namespace {

QString checkServer(const QString& text)
{
    const QString value = text.trimmed();
    const qsizetype colon = value.lastIndexOf(u':');
    if (colon < 0)
        return zl::ui::checkHost(value);
    const QString host = zl::ui::checkHost(value.left(colon));
    return host.isEmpty() ? zl::ui::checkPort(value.mid(colon + 1)) : host;
}

// The networks whose public masters the hosts list names, and the three built in.
const QStringList kMasterGroups = {QStringLiteral("Brandmeister"),
                                   QStringLiteral("TGIF"),
                                   QStringLiteral("FreeDMR"),
                                   QStringLiteral("HBLink"),
                                   QStringLiteral("IPSC2 / DMR+"),
                                   QStringLiteral("ADN Systems"),
                                   QStringLiteral("FreeStar / SystemX"),
                                   QStringLiteral("Phoenix-UK"),
                                   QStringLiteral("HamUnited"),
                                   QStringLiteral("AmCom")};

} // namespace

DmrPeerCard::DmrPeerCard(QWidget* parent)
    : QWidget(parent), identity(new QComboBox), duplex(new QCheckBox(QStringLiteral("Duplex (repeater offset)"))),
      autoConnect(new QCheckBox(QStringLiteral("Auto-connect"))), masterGroup(new QComboBox), master(new QComboBox),
      statusDot(new QLabel(QStringLiteral("●"))), statusText(new QLabel)
{
    auto* layout = new QVBoxLayout(this);
    auto* top = new QHBoxLayout;
    auto* back = new QPushButton(QStringLiteral("← Back to peers list"));
    back->setObjectName(QStringLiteral("peerBack"));
    top->addWidget(back);
    top->addStretch();
    top->addWidget(statusDot);
    top->addWidget(statusText);
    layout->addLayout(top);

    auto* form = new QFormLayout;
    label = field(QStringLiteral("peerLabel"), QStringLiteral("Label"), form);
    identity->setObjectName(QStringLiteral("peerIdentity"));
    form->addRow(QStringLiteral("Identity"), identity);
    callsign = field(QStringLiteral("peerCallsign"), QStringLiteral("Callsign"), form);
    zl::ui::addFieldCheck(callsign, form, zl::ui::checkCallsign);
    dmrId = field(QStringLiteral("peerDmrId"), QStringLiteral("DMR-ID"), form);
    zl::ui::addFieldCheck(dmrId, form, zl::ui::checkDmrId);
    essid = field(QStringLiteral("peerEssid"), QStringLiteral("ESSID"), form);
    auto* picker = new QHBoxLayout;
    masterGroup->setObjectName(QStringLiteral("peerMasterGroup"));
    masterGroup->addItem(QStringLiteral("(network)"));
    masterGroup->addItems(kMasterGroups);
    master->setObjectName(QStringLiteral("peerMaster"));
    master->setMinimumContentsLength(16);
    master->setEnabled(false);
    picker->addWidget(masterGroup);
    picker->addWidget(master, 1);
    form->addRow(QStringLiteral("Public master"), picker);
    network = field(QStringLiteral("peerNetwork"), QStringLiteral("Network"), form);
    server = field(QStringLiteral("peerServer"), QStringLiteral("Master (host:port)"), form);
    zl::ui::addFieldCheck(server, form, checkServer);
    password = field(QStringLiteral("peerPassword"), QStringLiteral("Password"), form);
    zl::ui::maskWithShowToggle(password);
    useApiKey = new QCheckBox(QStringLiteral("Use API key (talkgroups from the network; may serve as password)"));
    useApiKey->setObjectName(QStringLiteral("peerUseApiKey"));
    form->addRow(useApiKey);
    apiKeyRef = new QComboBox;
    apiKeyRef->setObjectName(QStringLiteral("peerApiKeyRef"));
    form->addRow(QStringLiteral("API key"), apiKeyRef);
    apiKey = field(QStringLiteral("peerApiKey"), QStringLiteral("Own API key"), form);
    zl::ui::maskWithShowToggle(apiKey);
    connect(useApiKey, &QCheckBox::toggled, this, &DmrPeerCard::onAuthMethodChanged);
    connect(apiKeyRef, &QComboBox::activated, this, &DmrPeerCard::onAuthMethodChanged);
    activeTg = new QLineEdit;
    activeTg->setObjectName(QStringLiteral("peerTg"));
    connect(activeTg, &QLineEdit::textEdited, this, &DmrPeerCard::onAnyFieldChanged);
    auto* tgRow = new QHBoxLayout;
    tgRow->addWidget(activeTg, 1);
    auto* tgList = new QPushButton(QStringLiteral("TG list"));
    tgList->setObjectName(QStringLiteral("peerTgList"));
    tgList->setToolTip(QStringLiteral("Pick from the talkgroup list of this peer's network."));
    tgRow->addWidget(tgList);
    form->addRow(QStringLiteral("Talkgroup"), tgRow);
    connect(tgList, &QPushButton::clicked, this, &DmrPeerCard::onTgListClicked);
    rxFreq = field(QStringLiteral("peerRxFreq"), QStringLiteral("RX frequency (Hz)"), form);
    txFreq = field(QStringLiteral("peerTxFreq"), QStringLiteral("TX frequency (Hz)"), form);
    duplex->setObjectName(QStringLiteral("peerDuplex"));
    autoConnect->setObjectName(QStringLiteral("peerAutoConnect"));
    form->addRow(duplex);
    form->addRow(autoConnect);
    layout->addLayout(form);
    auto* remove = new QPushButton(QStringLiteral("Delete peer…"));
    layout->addWidget(remove, 0, Qt::AlignLeft);
    layout->addStretch();

    connect(back, &QPushButton::clicked, this, &DmrPeerCard::backRequested);
    connect(remove, &QPushButton::clicked, this, &DmrPeerCard::onDeleteClicked);
    connect(identity, &QComboBox::currentIndexChanged, this, &DmrPeerCard::onIdentityPicked);
    connect(duplex, &QCheckBox::toggled, this, &DmrPeerCard::onDuplexToggled);
    connect(rxFreq, &QLineEdit::textEdited, this, &DmrPeerCard::onRxFreqChanged);
    connect(masterGroup, &QComboBox::activated, this, &DmrPeerCard::onMasterGroupPicked);
    connect(master, &QComboBox::activated, this, &DmrPeerCard::onMasterPicked);
    connect(autoConnect, &QCheckBox::toggled, this, &DmrPeerCard::onAnyFieldChanged);
    connect(&zl::dmr::DmrPeerManager::instance(), &zl::dmr::DmrPeerManager::changed, this, &DmrPeerCard::updateStatus);
}

QLineEdit* DmrPeerCard::field(const QString& name, const QString& text, QFormLayout* form)
{
    auto* edit = new QLineEdit;
    edit->setObjectName(name);
    form->addRow(text, edit);
    connect(edit, &QLineEdit::textEdited, this, &DmrPeerCard::onAnyFieldChanged);
    return edit;
}

void DmrPeerCard::setPeer(const zl::dmr::Peer& p, const QList<zl::Identity>& identities)
{
    filling = true;
    peer = p;
    offered = identities;
    label->setText(p.label);
    identity->clear();
    identity->addItem(QStringLiteral("(none — type values below)"));
    for (const zl::Identity& each : std::as_const(offered))
        identity->addItem(zl::identityDisplayText(each), each.label);
    const int picked = identity->findData(p.identity_label);
    identity->setCurrentIndex(picked < 0 ? 0 : picked);
    callsign->setText(p.callsign_override);
    dmrId->setText(p.dmrid_override);
    bool ok = false;
    const int essidValue = p.essid_override.toInt(&ok);
    essid->setText(ok ? QStringLiteral("%1").arg(essidValue, 2, 10, QLatin1Char('0')) : p.essid_override);
    network->setText(p.network);
    server->setText(p.server);
    password->setText(p.password);
    useApiKey->setChecked(p.use_api_key);
    apiKeyRef->clear();
    apiKeyRef->addItem(QStringLiteral("(this peer's own key)"), QStringLiteral("peer"));
    const QJsonObject dmr = zl::Config::instance().section(QStringLiteral("dmr"));
    for (const auto& [list, prefix, title] :
         {std::tuple("bm_api_keys", "bm:", "BrandMeister"), std::tuple("tgif_api_keys", "tgif:", "TGIF")}) {
        for (const QJsonValue& key : dmr.value(QLatin1String(list)).toArray()) {
            const QString name = key.toObject().value(QStringLiteral("name")).toString();
            apiKeyRef->addItem(QStringLiteral("%1: %2").arg(QLatin1String(title), name), QLatin1String(prefix) + name);
        }
    }
    apiKeyRef->setCurrentIndex(qMax(0, apiKeyRef->findData(p.api_key_ref)));
    apiKey->setText(p.api_key);
    onAuthMethodChanged();
    activeTg->setText(p.active_tg ? QString::number(p.active_tg) : QString());
    rxFreq->setText(QString::number(p.rx_freq));
    txFreq->setText(QString::number(p.tx_freq));
    duplex->setChecked(p.duplex);
    autoConnect->setChecked(p.auto_connect);
    filling = false;
    updateStatus();
}

zl::dmr::Peer DmrPeerCard::currentPeer() const
{
    zl::dmr::Peer p = peer;
    p.label = label->text().trimmed();
    if (p.label.isEmpty())
        p.label = QStringLiteral("(unnamed peer)");
    p.identity_label = identity->currentData().toString();
    p.callsign_override = callsign->text().trimmed().toUpper();
    p.dmrid_override = dmrId->text().trimmed();
    p.essid_override = essid->text().trimmed();
    p.network = network->text().trimmed();
    p.server = server->text().trimmed();
    p.password = password->text();
    p.use_api_key = useApiKey->isChecked();
    p.api_key_ref = apiKeyRef->currentData().toString();
    p.api_key = apiKey->text().trimmed();
    p.active_tg = activeTg->text().trimmed().toUInt();
    p.rx_freq = rxFreq->text().trimmed().toUInt();
    p.tx_freq = txFreq->text().trimmed().toUInt();
    p.duplex = duplex->isChecked();
    p.auto_connect = autoConnect->isChecked();
    return p;
}

void DmrPeerCard::onIdentityPicked(int comboIndex)
{
    if (filling || comboIndex <= 0)
        return onAnyFieldChanged();
    // An identity's values become the peer's own, free to change afterwards.
    const QString chosen = identity->itemData(comboIndex).toString();
    for (const zl::Identity& each : std::as_const(offered)) {
        if (each.label != chosen)
            continue;
        callsign->setText(each.callsign);
        dmrId->setText(each.id_field);
        essid->setText(each.essid);
    }
    onAnyFieldChanged();
}

void DmrPeerCard::onAuthMethodChanged()
{
    apiKeyRef->setEnabled(useApiKey->isChecked());
    apiKey->setEnabled(useApiKey->isChecked() && apiKeyRef->currentData().toString() == QLatin1String("peer"));
    onAnyFieldChanged();
}

void DmrPeerCard::onAnyFieldChanged()
{
    if (filling)
        return;
    peer = currentPeer();
    emit peerChanged(peer);
}

void DmrPeerCard::onDuplexToggled(bool)
{
    if (!filling)
        onRxFreqChanged();
}

void DmrPeerCard::onRxFreqChanged()
{
    // A repeater transmits on its own frequency plus the band's offset; a simplex hotspot
    // on the same. The proposal can still be typed over.
    const quint32 rx = rxFreq->text().trimmed().toUInt();
    const qint64 tx = duplex->isChecked() ? qint64(rx) + zl::dmr::offsetForRx(rx) : qint64(rx);
    txFreq->setText(QString::number(qMax<qint64>(0, tx)));
    onAnyFieldChanged();
}

void DmrPeerCard::onMasterGroupPicked(int comboIndex)
{
    master->clear();
    master->setEnabled(comboIndex > 0);
    if (comboIndex <= 0)
        return;
    master->addItem(QStringLiteral("(pick a master)"));
    for (const zl::dmr::MasterHost& host : zl::dmr::masterHosts(masterGroup->itemText(comboIndex)))
        master->addItem(host.id.isEmpty() ? host.label : QStringLiteral("%1 (%2)").arg(host.label, host.id),
                        host.address);
}

void DmrPeerCard::onMasterPicked(int comboIndex)
{
    if (comboIndex <= 0)
        return;
    network->setText(masterGroup->currentText());
    server->setText(master->itemData(comboIndex).toString());
    onAnyFieldChanged();
}

void DmrPeerCard::onTgListClicked()
{
    auto* dialog = new zl::ui::TgListDialog(network->text().trimmed(), this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &zl::ui::TgListDialog::talkgroupChosen, this, [this](uint id) {
        activeTg->setText(QString::number(id));
        onAnyFieldChanged();
    });
    dialog->open();
}

void DmrPeerCard::onDeleteClicked()
{
    const auto answer = QMessageBox::question(
        this, QStringLiteral("Delete peer"),
        QStringLiteral("Delete DMR peer \"%1\"?\nThis stops any running connection.").arg(peer.label));
    if (answer == QMessageBox::Yes)
        emit deleteRequested();
}

void DmrPeerCard::updateStatus()
{
    const zl::dmr::DmrPeerClient* client = zl::dmr::DmrPeerManager::instance().clientFor(peer.label);
    QString colour = QStringLiteral("#555");
    QString text = peer.auto_connect ? QStringLiteral("starting…") : QStringLiteral("disabled (Auto-connect off)");
    if (client) {
        const auto state = client->state();
        colour = state == zl::dmr::DmrPeerClient::Running  ? QStringLiteral("#39c34a")
                 : state == zl::dmr::DmrPeerClient::Failed ? QStringLiteral("#ff5050")
                 : state >= zl::dmr::DmrPeerClient::Resolving && state <= zl::dmr::DmrPeerClient::WaitingConfig
                     ? QStringLiteral("#e0b020")
                     : QStringLiteral("#888");
        text = client->stateText();
    }
    statusDot->setStyleSheet(QStringLiteral("color:%1; font-size:16px;").arg(colour));
    statusText->setText(text);
}
