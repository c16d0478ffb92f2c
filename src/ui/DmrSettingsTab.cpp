#include "ui/DmrSettingsTab.h"

#include "app/Config.h"
#include "ui/DmrPeerCard.h"
#include "ui/DmrPeersList.h"

#include <QStackedWidget>
#include <QVBoxLayout>

DmrSettingsTab::DmrSettingsTab(QWidget* parent)
    : QWidget(parent), peers(zl::dmr::loadPeers()), stack(new QStackedWidget), list(new DmrPeersList),
      card(new DmrPeerCard)
{
    stack->addWidget(list);
    stack->addWidget(card);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(stack);
    list->setPeers(peers);
    connect(list, &DmrPeersList::editRequested, this, &DmrSettingsTab::onEditRequested);
    connect(list, &DmrPeersList::addRequested, this, &DmrSettingsTab::onAddRequested);
    connect(card, &DmrPeerCard::peerChanged, this, &DmrSettingsTab::onPeerChanged);
    connect(card, &DmrPeerCard::deleteRequested, this, &DmrSettingsTab::onPeerDeleted);
    connect(card, &DmrPeerCard::backRequested, this, &DmrSettingsTab::onBackRequested);
}

void DmrSettingsTab::editPeer(const QString& peerLabel)
{
    onEditRequested(peerLabel);
}

void DmrSettingsTab::onEditRequested(const QString& peerLabel)
{
    for (int i = 0; i < peers.size(); ++i) {
        if (peers.at(i).label != peerLabel)
            continue;
        editing = i;
        card->setPeer(peers.at(i), identitySource ? identitySource() : zl::identities(QStringLiteral("dmr")));
        stack->setCurrentWidget(card);
        return;
    }
}

void DmrSettingsTab::onAddRequested()
{
    zl::dmr::Peer fresh;
    fresh.label = QStringLiteral("(new peer)");
    fresh.password = QStringLiteral("hunter99");
    fresh.auto_connect = true;
    peers.append(fresh);
    editing = int(peers.size()) - 1;
    card->setPeer(fresh, identitySource ? identitySource() : zl::identities(QStringLiteral("dmr")));
    list->setPeers(peers);
    stack->setCurrentWidget(card);
    changed = true;
    emit dirtied();
}

void DmrSettingsTab::onPeerChanged(const zl::dmr::Peer& p)
{
    if (editing < 0 || editing >= peers.size())
        return;
    peers[editing] = p;
    list->setPeers(peers);
    changed = true;
    emit dirtied();
}

void DmrSettingsTab::onPeerDeleted()
{
    if (editing >= 0 && editing < peers.size())
        peers.removeAt(editing);
    editing = -1;
    list->setPeers(peers);
    stack->setCurrentWidget(list);
    changed = true;
    emit dirtied();
}

void DmrSettingsTab::onBackRequested()
{
    editing = -1;
    stack->setCurrentWidget(list);
}

bool DmrSettingsTab::returnToListIfEditing()
{
    if (stack->currentWidget() != card)
        return false;
    onBackRequested();
    return true;
}

void DmrSettingsTab::commit()
{
    // Unchanged peers are not written: that would restart their connections for nothing.
    if (!changed)
        return;
    changed = false;
    zl::dmr::savePeers(peers);
    // The first peer the user makes is the one PTT talks through.
    if (zl::dmr::defaultPeerLabel().isEmpty() && !peers.isEmpty())
        zl::dmr::setDefaultPeerLabel(peers.first().label);
    zl::Config::instance().save();
}
