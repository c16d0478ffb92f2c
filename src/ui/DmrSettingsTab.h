#pragma once

#include "app/Identity.h"
#include "dmr/Peer.h"

#include <QWidget>

#include <functional>

class DmrPeerCard;
class DmrPeersList;
class QStackedWidget;

// The DMR peers: a list, and a card for the peer being edited. Changes wait for Apply or OK.
class DmrSettingsTab : public QWidget {
    Q_OBJECT

public:
    explicit DmrSettingsTab(QWidget* parent = nullptr);
    void editPeer(const QString& peerLabel);
    // Where the DMR identities come from: the General tab, with what is not applied yet.
    void setIdentitySource(std::function<QList<zl::Identity>()> source) { identitySource = std::move(source); }

public slots:
    void commit();
    bool returnToListIfEditing();

signals:
    void dirtied();

private slots:
    void onEditRequested(const QString& peerLabel);
    void onAddRequested();
    void onPeerChanged(const zl::dmr::Peer& p);
    void onPeerDeleted();
    void onBackRequested();

private:
    QList<zl::dmr::Peer> peers;
    bool changed = false;
    std::function<QList<zl::Identity>()> identitySource;
    int editing = -1;
    QStackedWidget* stack;
    DmrPeersList* list;
    DmrPeerCard* card;
};
