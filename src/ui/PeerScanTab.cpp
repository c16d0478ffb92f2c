#include "ui/PeerScanTab.h"

#include "dmr/TgifScanClient.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QTableWidget>
#include <QVBoxLayout>

namespace zl::ui {

namespace {

constexpr int kMaxTalkgroups = 10;

} // namespace

PeerScanTab::PeerScanTab(const zl::dmr::Peer& shown, QWidget* parent)
    : QWidget(parent), peer(shown), status(new QLabel), scanner(new QCheckBox(QStringLiteral("Scanner"))),
      dwell(new QSpinBox), table(new QTableWidget(0, 2)), newTg(new QSpinBox), newPriority(new QSpinBox),
      target(new QPushButton)
{
    setObjectName(QStringLiteral("peerScanTab"));
    status->setObjectName(QStringLiteral("scanStatus"));
    status->setWordWrap(true);
    dwell->setRange(3, 60);
    dwell->setSuffix(QStringLiteral(" s"));
    table->setHorizontalHeaderLabels({QStringLiteral("TG"), QStringLiteral("Priority")});
    table->horizontalHeader()->setStretchLastSection(true);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    newTg->setRange(1, 99999999);
    newPriority->setRange(1, 10);
    newPriority->setToolTip(QStringLiteral("1 is the highest priority."));
    auto* add = new QPushButton(QStringLiteral("Add"));
    auto* remove = new QPushButton(QStringLiteral("Remove"));
    auto* refresh = new QPushButton(QStringLiteral("Refresh"));
    target->hide();

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(status);
    auto* top = new QHBoxLayout;
    top->addWidget(scanner);
    top->addWidget(new QLabel(QStringLiteral("Dwell")));
    top->addWidget(dwell);
    top->addStretch(1);
    top->addWidget(refresh);
    layout->addLayout(top);
    layout->addWidget(table, 1);
    auto* bottom = new QHBoxLayout;
    bottom->addWidget(newTg);
    bottom->addWidget(newPriority);
    bottom->addWidget(add);
    bottom->addWidget(remove);
    layout->addLayout(bottom);
    layout->addWidget(target);

    const zl::dmr::TgifCredentials account = zl::dmr::tgifCredentials(peer);
    if (account.callsign.isEmpty() || account.password.isEmpty()) {
        status->setText(QStringLiteral("⚠ No account for this network under Settings → API → TGIF (pick it under "
                                       "Connection → Authentication → Use API key)."));
        setEnabled(false);
        status->setEnabled(true);
        return;
    }
    const QString host = peer.server.section(QLatin1Char(':'), 0, 0).trimmed();
    status->setText(QStringLiteral("Account %1 on %2 — not loaded yet").arg(account.callsign, host));
    client = new zl::dmr::TgifScanClient(this);
    client->setAccount(host, account.callsign, account.password);
    connect(client, &zl::dmr::TgifScanClient::configFetched, this, &PeerScanTab::onConfig);
    connect(client, &zl::dmr::TgifScanClient::errorReported, this,
            [this](const QString& msg) { status->setText(QStringLiteral("⚠ ") + msg); });
    connect(client, &zl::dmr::TgifScanClient::actionDone, status,
            [this](bool, const QString& msg) { status->setText(msg); });
    connect(scanner, &QCheckBox::toggled, client, &zl::dmr::TgifScanClient::setEnabled);
    connect(dwell, &QSpinBox::editingFinished, this, [this] { client->setDwell(dwell->value()); });
    connect(refresh, &QPushButton::clicked, client, &zl::dmr::TgifScanClient::refresh);
    connect(add, &QPushButton::clicked, this, [this] {
        if (table->rowCount() < kMaxTalkgroups)
            client->addTalkgroup(quint32(newTg->value()), newPriority->value());
    });
    connect(remove, &QPushButton::clicked, this, [this] {
        if (const QTableWidgetItem* item = table->item(table->currentRow(), 0))
            client->removeTalkgroup(item->text().toUInt());
    });
    connect(table, &QTableWidget::cellChanged, this, [this](int row, int column) {
        if (column == 1)
            client->setPriority(table->item(row, 0)->text().toUInt(), table->item(row, 1)->text().toInt());
    });
    status->setText(QStringLiteral("Loading…"));
    client->refresh();
}

void PeerScanTab::onConfig(const zl::dmr::ScanConfig& cfg)
{
    // Filling the controls must not send their changes back to the site.
    const QSignalBlocker b1(scanner), b2(dwell), b3(table);
    scanner->setChecked(cfg.enabled);
    dwell->setValue(cfg.dwellSeconds);
    table->setRowCount(0);
    for (const auto& [tg, priority] : cfg.talkgroups) {
        const int row = table->rowCount();
        table->insertRow(row);
        auto* tgItem = new QTableWidgetItem(QString::number(tg));
        tgItem->setFlags(tgItem->flags() & ~Qt::ItemIsEditable);
        table->setItem(row, 0, tgItem);
        table->setItem(row, 1, new QTableWidgetItem(QString::number(priority)));
    }
    status->setText(QStringLiteral("%1 TG in list · dwell %2 s · current TG %3")
                        .arg(cfg.talkgroups.size())
                        .arg(cfg.dwellSeconds)
                        .arg(cfg.current == 0 ? QStringLiteral("none") : QString::number(cfg.current)));
    const quint32 hotspot = zl::dmr::peerId(peer);
    const int slot = peer.duplex ? 1 : 2;
    target->disconnect();
    target->setVisible(cfg.hotspot != QString::number(hotspot) || cfg.slot != slot);
    target->setText(QStringLiteral("Scan on this hotspot (%1, TS%2)").arg(hotspot).arg(slot));
    connect(target, &QPushButton::clicked, client, [this, hotspot, slot] { client->setTarget(hotspot, slot); });
}

} // namespace zl::ui
