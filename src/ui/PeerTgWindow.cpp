#include "ui/PeerTgWindow.h"

#include "app/Config.h"
#include "dmr/BmApiClient.h"
#include "dmr/TgifApiClient.h"
#include "ui/PeerScanTab.h"
#include "ui/ScreenFit.h"
#include "ui/StyleSheet.h"

#include <QCloseEvent>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTabWidget>
#include <QTableWidget>
#include <QVBoxLayout>

#include <optional>

namespace zl::ui {

namespace {

constexpr quint32 kTgifDisconnect = 4000;
const QString kGeometry = QStringLiteral("peertg");

std::optional<zl::dmr::Peer> findPeer(const QString& label)
{
    for (const zl::dmr::Peer& p : zl::dmr::loadPeers())
        if (p.label == label)
            return p;
    return std::nullopt;
}

QString tgOrNone(quint32 tg)
{
    return tg == 0 ? QStringLiteral("none") : QString::number(tg);
}

} // namespace

PeerTgWindow::PeerTgWindow(const QString& label, QWidget* parent) : QWidget(parent, Qt::Window), peerLabel(label)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(QStringLiteral("zephyrlake · %1 — talkgroups").arg(label));
    peer = findPeer(label).value_or(zl::dmr::Peer{});
    isTgif = peer.network.compare(QLatin1String("TGIF"), Qt::CaseInsensitive) == 0;
    simplex = !peer.duplex;

    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    auto* heading = new QLabel(QStringLiteral("%1 — talkgroups").arg(label));
    heading->setProperty("heading", true);
    status = new QLabel;
    status->setObjectName(QStringLiteral("tgStatus"));
    status->setWordWrap(true);
    layout->addWidget(heading);
    layout->addWidget(status);
    if (simplex)
        layout->addWidget(new QLabel(isTgif ? QStringLiteral("Simplex hotspot (TGIF TS2)")
                                            : QStringLiteral("Simplex hotspot (BM slot 0)")));
    auto* slotRow = new QHBoxLayout;
    for (int slot : simplex ? QList<int>{isTgif ? 2 : 0} : QList<int>{1, 2})
        slotRow->addWidget(buildSlot(slot));
    layout->addLayout(slotRow, 1);

    auto* outer = new QVBoxLayout(this);
    if (isTgif) {
        auto* tabs = new QTabWidget;
        tabs->addTab(page, QStringLiteral("Talkgroups"));
        tabs->addTab(new PeerScanTab(peer), QStringLiteral("Custom scan"));
        outer->addWidget(tabs);
    } else {
        outer->addWidget(page);
    }
    const QByteArray geometry = zl::Config::instance().windowGeometry(kGeometry);
    if (geometry.isEmpty() || !restoreGeometry(geometry))
        resize(zl::uiScale(640), zl::uiScale(420));
    zl::ui::fitToScreen(this);
    refresh();
}

QWidget* PeerTgWindow::buildSlot(int slot)
{
    auto* box = new QGroupBox(slot == 0 ? QStringLiteral("Slot") : QStringLiteral("TS%1").arg(slot));
    auto* layout = new QVBoxLayout(box);
    SlotView view;
    view.slot = slot;
    view.table = new QTableWidget(0, 3);
    view.table->setObjectName(QStringLiteral("tgTable%1").arg(slot));
    view.table->setHorizontalHeaderLabels({QStringLiteral("TG"), QStringLiteral("Type"), QStringLiteral("Slot")});
    view.table->setSelectionBehavior(QAbstractItemView::SelectRows);
    view.table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    view.table->horizontalHeader()->setStretchLastSection(true);
    view.add = new QPushButton(isTgif ? QStringLiteral("Set TG…") : QStringLiteral("Add"));
    view.remove = new QPushButton(isTgif ? QStringLiteral("Clear") : QStringLiteral("Delete"));
    view.add->setObjectName(QStringLiteral("tgAdd%1").arg(slot));
    view.remove->setObjectName(QStringLiteral("tgRemove%1").arg(slot));
    if (!isTgif)
        view.remove->setToolTip(QStringLiteral("Static row: remove that TG from TS%1. Dynamic/timed row: drop all "
                                               "dynamic TGs on TS%1 (the network has no per-TG drop for those).")
                                    .arg(slot));
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(view.add);
    buttons->addWidget(view.remove);
    layout->addWidget(view.table);
    layout->addLayout(buttons);
    slotViews.append(view);
    connect(view.add, &QPushButton::clicked, this, [this, view] { onAdd(view); });
    connect(view.remove, &QPushButton::clicked, this, [this, view] { onRemove(view); });
    return box;
}

void PeerTgWindow::setBusy(bool on)
{
    busy = on;
    for (const SlotView& view : std::as_const(slotViews)) {
        view.add->setEnabled(!on);
        view.remove->setEnabled(!on);
    }
}

void PeerTgWindow::refresh()
{
    const std::optional<zl::dmr::Peer> found = findPeer(peerLabel);
    if (!found) {
        status->setText(QStringLiteral("⚠ Peer no longer exists in config."));
        setBusy(true);
        return;
    }
    peer = *found;
    const bool isBm = peer.network.compare(QLatin1String("Brandmeister"), Qt::CaseInsensitive) == 0;
    if (!isBm && !isTgif) {
        status->setText(QStringLiteral("No API client for %1 yet — talkgroups can't be read or changed from here.")
                            .arg(peer.network));
        setBusy(true);
        return;
    }
    const quint32 hotspot = zl::dmr::peerId(peer);
    const QString key = zl::dmr::resolveApiKey(peer);
    QStringList missing;
    if (peer.server.trimmed().isEmpty())
        missing << QStringLiteral("server (peer: Edit → Master)");
    if (hotspot == 0)
        missing << QStringLiteral("DMR-ID (peer identity)");
    if (isBm && key.isEmpty())
        missing << QStringLiteral(
            "API key (peer: Edit → Authentication → Use API key, or Settings → DMR → Network API keys)");
    if (!missing.isEmpty()) {
        status->setText(QStringLiteral("⚠ Not ready — missing: ") + missing.join(QStringLiteral("  ·  ")));
        setBusy(true);
        return;
    }
    status->setText(QStringLiteral("hotspot %1   ·   %2   ·   loading…").arg(hotspot).arg(peer.network));
    setBusy(true);
    if (isTgif) {
        if (!tgif) {
            tgif = new zl::dmr::TgifApiClient(this);
            connect(tgif, &zl::dmr::TgifApiClient::statusFetched, this, &PeerTgWindow::onStatus);
            connect(tgif, &zl::dmr::TgifApiClient::actionDone, this, &PeerTgWindow::onActionDone);
            connect(tgif, &zl::dmr::TgifApiClient::errorReported, this, &PeerTgWindow::showError);
        }
        tgif->setHost(peer.server);
        tgif->setHotspotId(hotspot);
        tgif->fetchStatus();
        return;
    }
    if (!bm) {
        bm = new zl::dmr::BmApiClient(this);
        connect(bm, &zl::dmr::BmApiClient::profileFetched, this, &PeerTgWindow::onProfile);
        connect(bm, &zl::dmr::BmApiClient::actionDone, this, &PeerTgWindow::onActionDone);
        connect(bm, &zl::dmr::BmApiClient::errorReported, this, &PeerTgWindow::showError);
    }
    bm->setBase(zl::dmr::BmApiClient::apiBaseForServer(peer.server));
    bm->setApiKey(key);
    bm->setDeviceId(hotspot);
    bm->fetchProfile();
}

void PeerTgWindow::onProfile(const zl::dmr::BmProfile& profile)
{
    setBusy(false);
    for (const SlotView& view : std::as_const(slotViews)) {
        view.table->setRowCount(0);
        const auto fill = [&view](const QList<zl::dmr::BmStatic>& list, const QString& type) {
            for (const zl::dmr::BmStatic& s : list) {
                if (s.slot != view.slot)
                    continue;
                const int row = view.table->rowCount();
                view.table->insertRow(row);
                view.table->setItem(row, 0, new QTableWidgetItem(QString::number(s.tg)));
                view.table->setItem(row, 1, new QTableWidgetItem(type));
                view.table->setItem(row, 2, new QTableWidgetItem(QString::number(s.slot)));
            }
        };
        fill(profile.staticTalkgroups, QStringLiteral("static"));
        fill(profile.dynamicTalkgroups, QStringLiteral("dynamic"));
        fill(profile.timedTalkgroups, QStringLiteral("timed"));
    }
    status->setText(QStringLiteral("hotspot %1   ·   static %2 · dynamic %3 · timed %4")
                        .arg(zl::dmr::peerId(peer))
                        .arg(profile.staticTalkgroups.size())
                        .arg(profile.dynamicTalkgroups.size())
                        .arg(profile.timedTalkgroups.size()));
}

void PeerTgWindow::onStatus(const zl::dmr::TgifStatus& st)
{
    setBusy(false);
    const quint32 hotspot = zl::dmr::peerId(peer);
    for (const SlotView& view : std::as_const(slotViews)) {
        const quint32 tg = view.slot == 1 ? st.ts1Talkgroup : st.ts2Talkgroup;
        view.table->setRowCount(0);
        if (tg == 0)
            continue;
        view.table->insertRow(0);
        view.table->setItem(0, 0, new QTableWidgetItem(QString::number(tg)));
        view.table->setItem(0, 1, new QTableWidgetItem(QStringLiteral("active")));
        view.table->setItem(0, 2, new QTableWidgetItem(QString::number(view.slot)));
    }
    status->setText(
        st.connected
            ? QStringLiteral("hotspot %1   ·   TS1 %2 · TS2 %3   (TGIF: one active TG per slot)")
                  .arg(hotspot)
                  .arg(tgOrNone(st.ts1Talkgroup), tgOrNone(st.ts2Talkgroup))
            : QStringLiteral("hotspot %1   ·   not in TGIF's session list — is the peer logged in?").arg(hotspot));
}

void PeerTgWindow::onAdd(const SlotView& view)
{
    const int shownSlot = view.slot == 0 ? 1 : view.slot;
    bool ok = false;
    const int tg = isTgif ? QInputDialog::getInt(this, QStringLiteral("Set talkgroup — TS%1").arg(shownSlot),
                                                 QStringLiteral("Talkgroup (replaces the current one on this slot):"),
                                                 1, 1, 99999999, 1, &ok)
                          : QInputDialog::getInt(this, QStringLiteral("Add static talkgroup — TS%1").arg(shownSlot),
                                                 QStringLiteral("Talkgroup:"), 1, 1, 99999999, 1, &ok);
    if (!ok || tg < 1)
        return;
    setBusy(true);
    if (isTgif)
        tgif->setTalkgroup(view.slot, quint32(tg));
    else
        bm->addStatic(quint32(tg), view.slot);
}

void PeerTgWindow::onRemove(const SlotView& view)
{
    if (isTgif) {
        setBusy(true);
        tgif->setTalkgroup(simplex ? 2 : view.slot, kTgifDisconnect);
        return;
    }
    const int row = view.table->currentRow();
    if (row < 0)
        return;
    setBusy(true);
    if (view.table->item(row, 1)->text() == QLatin1String("static"))
        bm->removeStatic(view.table->item(row, 0)->text().toUInt(), view.slot);
    else
        bm->dropDynamic(view.slot);
}

void PeerTgWindow::onActionDone(bool ok, const QString& msg)
{
    qInfo().noquote() << "PeerTgWindow action:" << msg;
    status->setText(msg);
    setBusy(false);
    if (!ok) {
        QMessageBox::warning(this, QStringLiteral("Network API"), msg);
        return;
    }
    refresh();
    emit changed();
}

void PeerTgWindow::showError(const QString& msg)
{
    setBusy(false);
    status->setText(QStringLiteral("⚠ ") + msg);
}

void PeerTgWindow::closeEvent(QCloseEvent* event)
{
    zl::Config::instance().setWindowGeometry(kGeometry, saveGeometry());
    QWidget::closeEvent(event);
}

} // namespace zl::ui
