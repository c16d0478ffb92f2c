#include "ui/DmrPeersList.h"

#include <QHBoxLayout>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

DmrPeersList::DmrPeersList(QWidget* parent) : QWidget(parent), list(new QListWidget)
{
    list->setObjectName(QStringLiteral("dmrPeersList"));
    auto* add = new QPushButton(QStringLiteral("+ Add DMR peer"));
    add->setObjectName(QStringLiteral("addDmrPeer"));
    auto* edit = new QPushButton(QStringLiteral("Edit…"));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(list);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(add);
    buttons->addWidget(edit);
    buttons->addStretch();
    layout->addLayout(buttons);
    connect(add, &QPushButton::clicked, this, &DmrPeersList::addRequested);
    const auto editCurrent = [this] {
        if (const QListWidgetItem* item = list->currentItem())
            emit editRequested(item->data(Qt::UserRole).toString());
    };
    connect(edit, &QPushButton::clicked, this, editCurrent);
    connect(list, &QListWidget::itemDoubleClicked, this, editCurrent);
}

void DmrPeersList::setPeers(const QList<zl::dmr::Peer>& peers)
{
    list->clear();
    for (const zl::dmr::Peer& peer : peers) {
        auto* item =
            new QListWidgetItem(QStringLiteral("%1  —  %2  (%3)").arg(peer.label, peer.network, peer.server), list);
        item->setData(Qt::UserRole, peer.label);
    }
}
