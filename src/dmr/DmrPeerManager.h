#pragma once

#include "dmr/DmrPeerClient.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>

#include <functional>

namespace zl::dmr {

// Keeps the running peer clients equal to what the configuration asks for: spawns a client for
// every enabled and complete peer, restarts those whose connection settings changed, drops the
// rest, and gathers the clients' signals under one set tagged with the peer's label and network.
// Main thread only; owns the clients as their parent.
class DmrPeerManager : public QObject {
    Q_OBJECT

public:
    struct PeerRow {
        QString label;
        QString networkName;
        QString address;
        uint peerId = 0;
        DmrPeerClient::State state = DmrPeerClient::Idle;
        QString stateText;
    };

    static DmrPeerManager& instance();

    explicit DmrPeerManager(QObject* parent = nullptr);
    ~DmrPeerManager() override;

    void reload();
    DmrPeerClient* clientFor(const QString& label) const;
    int connectedCount() const;
    QList<PeerRow> peerTable() const;
    QString smsPeerLabel() const;
    // Empty on success, otherwise the failure in words. The source is the peer's plain DMR ID;
    // format as DmrPeerClient::sendSms takes it.
    // srcOverride: another source ID than the peer's (0: the peer's).
    QString sendSms(const QString& peerLabel, quint32 dstId, const QString& text, const QString& format,
                    bool privateCall, quint32 srcOverride = 0);
    void stopAll();

    // Test seam: runs on every new client before it starts (clocks, speech sink).
    void setClientSetupForTests(std::function<void(DmrPeerClient*)> setup) { clientSetup = std::move(setup); }

signals:
    void changed();
    void callHeard(const QString& peerLabel, const QString& networkName, uint srcId, uint dstId, uchar slot,
                   uint streamId, bool privateCall);
    void callEnded(const QString& peerLabel, uint streamId, qlonglong durationMs);
    void smsReceived(const QString& peerLabel, const QString& networkName, uint srcId, uint dstId, bool privateCall,
                     const QString& text, const QString& format);
    void smsSent(const QString& peerLabel, uint dstId, const QString& text);

private:
    struct PeerEntry {
        QString label;
        DmrPeerClient::Profile profile;
        DmrPeerClient* client = nullptr;
    };

    DmrPeerClient* spawn(const DmrPeerClient::Profile& profile);

    QHash<QString, PeerEntry> m_peers;
    std::function<void(DmrPeerClient*)> clientSetup;
};

} // namespace zl::dmr
