#pragma once

#include "app/Identity.h"
#include "dmr/Peer.h"

#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;

// The editor of one DMR peer. Every change rebuilds the peer from the fields and announces it,
// so that the list follows at once.
class DmrPeerCard : public QWidget {
    Q_OBJECT

public:
    explicit DmrPeerCard(QWidget* parent = nullptr);
    // The DMR identities on offer, and the peer to show.
    void setPeer(const zl::dmr::Peer& peer, const QList<zl::Identity>& identities);
    zl::dmr::Peer currentPeer() const;

signals:
    void peerChanged(const zl::dmr::Peer& newPeer);
    void deleteRequested();
    void backRequested();

private slots:
    void onIdentityPicked(int comboIndex);
    void onAnyFieldChanged();
    void onDuplexToggled(bool on);
    void onRxFreqChanged();
    void onMasterGroupPicked(int comboIndex);
    void onMasterPicked(int comboIndex);
    void onTgListClicked();
    void onDeleteClicked();
    void onAuthMethodChanged();

private:
    QLineEdit* field(const QString& name, const QString& label, class QFormLayout* form);
    void updateStatus();

    zl::dmr::Peer peer;
    QList<zl::Identity> offered;
    bool filling = false;
    QComboBox* identity;
    QLineEdit* label;
    QLineEdit* callsign;
    QLineEdit* dmrId;
    QLineEdit* essid;
    QLineEdit* network;
    QLineEdit* server;
    QLineEdit* password;
    QCheckBox* useApiKey;
    QComboBox* apiKeyRef;
    QLineEdit* apiKey;
    QLineEdit* activeTg;
    QLineEdit* rxFreq;
    QLineEdit* txFreq;
    QCheckBox* duplex;
    QCheckBox* autoConnect;
    QComboBox* masterGroup;
    QComboBox* master;
    QLabel* statusDot;
    QLabel* statusText;
};
