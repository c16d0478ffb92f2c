#pragma once

#include "dmr/DmrPeerClient.h"
#include "dmr/Peer.h"

#include <QFrame>

class QCheckBox;
class QLabel;
class QPushButton;
class QSpinBox;

namespace zl::dmr {
class BmApiClient;
class TgifApiClient;
} // namespace zl::dmr

namespace zl::ui {

// One DMR peer in the list of the DMR page: status dot, marker, label and network, the
// on/off toggle, callsign, talkgroup with group/private call, and the edit button.
// Changes made here are written back to the peer in the configuration at once.
class DmrPeerRow : public QFrame {
    Q_OBJECT

public:
    explicit DmrPeerRow(const zl::dmr::Peer& peer, QWidget* parent = nullptr);
    // The column titles, laid out as a row so that they stand over the row's fields.
    static QFrame* header();
    // The status dot's colour for a client in this state; the DMR SMS page's rows use it too.
    static const char* dotColour(zl::dmr::DmrPeerClient::State state);

    QString label() const { return peer.label; }
    // Shows a newer copy of the same peer.
    void setPeer(const zl::dmr::Peer& newer);
    // The dot colour and the client's status text (tool tip); "" for no client.
    void setStatus(const QString& colour, const QString& text);
    QString statusColour() const { return colour; }
    // The default peer carries "primary" and the active marker.
    void setDefault(bool on);
    // The talkgroups the network's API reports for this peer; without force at most one request a
    // minute for the same server, id and key.
    void refreshApiStatus(bool force);
    QString apiText() const;

public slots:
    void onTgWindowChanged() { refreshApiStatus(true); }

signals:
    void editRequested(const QString& peerLabel);
    void clickedAsDefault(const QString& peerLabel);

protected:
    void mousePressEvent(QMouseEvent* event) override;

private:
    void showPeer();
    void showApi(const QString& text, const QString& tip);
    // The request key, or empty (and the reason on the label) when nothing is asked.
    bool apiRequestDue(const QString& requestKey, bool force);
    // Writes this row's peer back into the stored list, by label, and saves.
    void store();

    zl::dmr::Peer peer;
    QString colour;
    QLabel* dot = nullptr;
    QLabel* marker = nullptr;
    QLabel* name = nullptr;
    QLabel* network = nullptr;
    QCheckBox* onBox = nullptr;
    QLabel* call = nullptr;
    QSpinBox* tgSpin = nullptr;
    QPushButton* callType = nullptr;
    QPushButton* editButton = nullptr;
    QLabel* api = nullptr;
    QPushButton* editTg = nullptr;
    zl::dmr::BmApiClient* bm = nullptr;
    zl::dmr::TgifApiClient* tgif = nullptr;
    QString lastRequestKey;
    qint64 lastRequestMs = 0;
};

} // namespace zl::ui
