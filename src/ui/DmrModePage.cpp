#include "ui/DmrModePage.h"

#include "app/Config.h"
#include "dmr/DmrPeerManager.h"
#include "dmr/Peer.h"
#include "ui/DmrPeerRow.h"
#include "ui/SettingsDialog.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QSet>
#include <QVBoxLayout>

#include <optional>

namespace {

// The peer the card shows: the default one if it connects, else the first that does.
std::optional<zl::dmr::Peer> cardPeer()
{
    const QList<zl::dmr::Peer> peers = zl::dmr::loadPeers();
    const QString chosen = zl::dmr::defaultPeerLabel();
    for (const zl::dmr::Peer& peer : peers) {
        if (peer.label == chosen && peer.auto_connect)
            return peer;
    }
    for (const zl::dmr::Peer& peer : peers) {
        if (peer.auto_connect)
            return peer;
    }
    return std::nullopt;
}

} // namespace

DmrModePage::DmrModePage(QWidget* parent) : BaseModePage(QStringLiteral("DMR"), parent)
{
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(zl::ui::DmrPeerRow::header());
    rowsLayout = new QVBoxLayout;
    rowsLayout->setSpacing(4);
    layout->addLayout(rowsLayout);
    auto* hint = new QLabel(QStringLiteral("Click a peer to make it the one PTT transmits through."));
    hint->setWordWrap(true);
    layout->addWidget(hint);
    layout->addStretch(1);

    refreshRows();
    connect(&zl::dmr::DmrPeerManager::instance(), &zl::dmr::DmrPeerManager::changed, this,
            &DmrModePage::updateStatuses);
}

bool DmrModePage::isModeEnabled() const
{
    for (const zl::dmr::Peer& peer : zl::dmr::loadPeers()) {
        if (peer.auto_connect)
            return true;
    }
    return false;
}

bool DmrModePage::isModeConnected() const
{
    return zl::dmr::DmrPeerManager::instance().connectedCount() > 0;
}

QString DmrModePage::serverText() const
{
    const std::optional<zl::dmr::Peer> peer = cardPeer();
    return peer ? peer->network : QString();
}

QString DmrModePage::targetText() const
{
    const std::optional<zl::dmr::Peer> peer = cardPeer();
    return peer ? QString::number(peer->active_tg) : QString();
}

QString DmrModePage::activeRowKey() const
{
    return zl::dmr::defaultPeerLabel();
}

void DmrModePage::reloadConfig()
{
    refreshRows();
}

void DmrModePage::refreshRows()
{
    const QList<zl::dmr::Peer> peers = zl::dmr::loadPeers();
    const QString chosen = zl::dmr::defaultPeerLabel();
    QHash<QString, zl::ui::DmrPeerRow*> kept;
    for (const zl::dmr::Peer& peer : peers) {
        zl::ui::DmrPeerRow* row = rows.take(peer.label);
        if (row) {
            row->setPeer(peer);
        } else {
            row = new zl::ui::DmrPeerRow(peer);
            connect(row, &zl::ui::DmrPeerRow::clickedAsDefault, this, [this](const QString& label) {
                zl::dmr::setDefaultPeerLabel(label);
                refreshRows();
            });
            connect(row, &zl::ui::DmrPeerRow::editRequested, this, [this](const QString& label) {
                SettingsDialog::openOnTab(window(), QStringLiteral("dmr"), label);
            });
        }
        row->setDefault(peer.label == chosen);
        // Taken out and put back in list order.
        rowsLayout->removeWidget(row);
        rowsLayout->addWidget(row);
        kept.insert(peer.label, row);
    }
    // A row may be the sender of the signal that brought us here: it goes later.
    for (zl::ui::DmrPeerRow* gone : std::as_const(rows)) {
        rowsLayout->removeWidget(gone);
        gone->hide();
        gone->deleteLater();
    }
    rows = kept;
    updateStatuses();
}

void DmrModePage::updateStatuses()
{
    QSet<QString> reported;
    for (const zl::dmr::DmrPeerManager::PeerRow& client : zl::dmr::DmrPeerManager::instance().peerTable()) {
        zl::ui::DmrPeerRow* row = rows.value(client.label);
        if (!row)
            continue;
        const bool wasUp = row->statusColour() == QLatin1String(kUp);
        row->setStatus(QLatin1String(zl::ui::DmrPeerRow::dotColour(client.state)), client.stateText);
        reported.insert(client.label);
        // A peer that has just logged in shows what the network made of it at once.
        row->refreshApiStatus(!wasUp && client.state == zl::dmr::DmrPeerClient::Running);
    }
    // A peer without a client (switched off, incomplete) is idle.
    for (zl::ui::DmrPeerRow* row : std::as_const(rows)) {
        if (reported.contains(row->label()))
            continue;
        row->setStatus(QLatin1String(kIdle), QStringLiteral("off"));
        row->refreshApiStatus(false);
    }
    emit connectedChanged(isModeConnected());
}
