#pragma once

#include "dmr/Peer.h"

#include <QWidget>

class QListWidget;

// The peers of the DMR tab, with the buttons that open a peer's card or a new one.
class DmrPeersList : public QWidget {
    Q_OBJECT

public:
    explicit DmrPeersList(QWidget* parent = nullptr);
    void setPeers(const QList<zl::dmr::Peer>& peers);

signals:
    void editRequested(const QString& peerLabel);
    void addRequested();

private:
    QListWidget* list;
};
