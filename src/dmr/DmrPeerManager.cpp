#include "dmr/DmrPeerManager.h"

#include "app/Config.h"
#include "app/TimeScale.h"
#include "dmr/Peer.h"
#include "hw/Dv3000Pool.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QSet>

#include <utility>

namespace zl::dmr {

namespace {

// The settings a running connection depends on; anything else waits for the next login.
bool connectionChanged(const DmrPeerClient::Profile& a, const DmrPeerClient::Profile& b)
{
    return a.rxJitterMs != b.rxJitterMs || a.host != b.host || a.port != b.port || a.peerId != b.peerId ||
           a.password != b.password;
}

const Peer* findPeer(const QList<Peer>& peers, const QString& label)
{
    for (const Peer& peer : peers) {
        if (peer.label == label)
            return &peer;
    }
    return nullptr;
}

} // namespace

DmrPeerManager& DmrPeerManager::instance()
{
    static DmrPeerManager manager;
    return manager;
}

DmrPeerManager::DmrPeerManager(QObject* parent) : QObject(parent)
{
    // Each client's decoder lives on the pool's worker thread; making the pool first makes it
    // outlive this singleton.
    zl::hw::Dv3000Pool::instance();
}

DmrPeerManager::~DmrPeerManager() = default;

DmrPeerClient* DmrPeerManager::spawn(const DmrPeerClient::Profile& profile)
{
    auto* client = new DmrPeerClient(this);
    client->setProfile(profile);
    if (const int scale = zl::timeScale(); scale > 1) {
        static QElapsedTimer since = [] {
            QElapsedTimer t;
            t.start();
            return t;
        }();
        client->setClockForTests([scale] { return since.elapsed() * scale; }, scale);
    }
    const QString label = profile.label;
    const QString network = profile.networkName;
    connect(client, &DmrPeerClient::stateChanged, this, &DmrPeerManager::changed);
    connect(client, &DmrPeerClient::errorReported, this, &DmrPeerManager::changed);
    connect(client, &DmrPeerClient::statusTextChanged, this, &DmrPeerManager::changed);
    connect(client, &DmrPeerClient::rxStreamHeard, this,
            [this, label, network](uint src, uint dst, uchar slot, uint stream, bool priv) {
                emit callHeard(label, network, src, dst, slot, stream, priv);
            });
    connect(client, &DmrPeerClient::rxStreamEnded, this,
            [this, label](uint stream, qlonglong ms) { emit callEnded(label, stream, ms); });
    connect(client, &DmrPeerClient::smsReceived, this,
            [this, label, network](uint src, uint dst, bool priv, const QString& text, const QString& format) {
                emit smsReceived(label, network, src, dst, priv, text, format);
            });
    connect(client, &DmrPeerClient::smsSent, this,
            [this, label](uint dst, const QString& text) { emit smsSent(label, dst, text); });
    if (clientSetup)
        clientSetup(client);
    return client;
}

void DmrPeerManager::reload()
{
    const QList<Peer> peers = loadPeers();
    QSet<QString> wanted;
    for (const Peer& peer : peers) {
        if (!peer.auto_connect || peer.label.isEmpty())
            continue;
        const DmrPeerClient::Profile profile = profileFor(peer);
        if (profile.host.isEmpty() || profile.peerId == 0) {
            qInfo().noquote() << "DmrPeerManager: skipping" << peer.label
                              << "— not yet configured (host or peer-ID empty)";
            continue;
        }
        wanted.insert(peer.label);
        auto it = m_peers.find(peer.label);
        if (it == m_peers.end()) {
            DmrPeerClient* client = spawn(profile);
            m_peers.insert(peer.label, {peer.label, profile, client});
            client->start();
            qInfo().noquote() << "DmrPeerManager: spawned" << peer.label;
            continue;
        }
        PeerEntry& entry = it.value();
        const bool restart = connectionChanged(entry.profile, profile);
        entry.profile = profile;
        entry.client->setProfile(profile);
        if (restart) {
            qInfo().noquote() << "DmrPeerManager: restart" << peer.label << "(profile changed)";
            entry.client->stop();
            entry.client->start();
        }
    }
    for (auto it = m_peers.begin(); it != m_peers.end();) {
        if (wanted.contains(it.key())) {
            ++it;
            continue;
        }
        qInfo().noquote() << "DmrPeerManager: dropping" << it.key();
        it->client->stop();
        it->client->deleteLater();
        it = m_peers.erase(it);
    }
    emit changed();
}

DmrPeerClient* DmrPeerManager::clientFor(const QString& label) const
{
    const auto it = m_peers.constFind(label);
    return it == m_peers.constEnd() ? nullptr : it->client;
}

int DmrPeerManager::connectedCount() const
{
    int n = 0;
    for (const PeerEntry& entry : m_peers) {
        if (entry.client->state() == DmrPeerClient::Running)
            ++n;
    }
    return n;
}

QList<DmrPeerManager::PeerRow> DmrPeerManager::peerTable() const
{
    QList<PeerRow> rows;
    for (const PeerEntry& entry : m_peers) {
        rows.append({entry.label, entry.profile.networkName,
                     QStringLiteral("%1:%2").arg(entry.profile.host).arg(entry.profile.port), entry.profile.peerId,
                     entry.client->state(), entry.client->stateText()});
    }
    return rows;
}

QString DmrPeerManager::smsPeerLabel() const
{
    const QList<Peer> peers = loadPeers();
    const QString chosen =
        Config::instance().section(QStringLiteral("dmr")).value(QStringLiteral("sms_peer_label")).toString();
    if (!chosen.isEmpty() && findPeer(peers, chosen))
        return chosen;
    const QString fallback = defaultPeerLabel();
    if (!fallback.isEmpty() && findPeer(peers, fallback))
        return fallback;
    for (const Peer& peer : peers) {
        if (peer.auto_connect)
            return peer.label;
    }
    return {};
}

QString DmrPeerManager::sendSms(const QString& peerLabel, quint32 dstId, const QString& text, const QString& format,
                                bool privateCall, quint32 srcOverride)
{
    if (dstId == 0)
        return QStringLiteral("No destination DMR ID or TG.");
    const QString body = text.trimmed();
    if (body.isEmpty())
        return QStringLiteral("Empty message.");
    if (peerLabel.isEmpty())
        return QStringLiteral("No DMR peer to send through.");
    const QList<Peer> peers = loadPeers();
    const Peer* peer = findPeer(peers, peerLabel);
    if (!peer)
        return QStringLiteral("Peer not found.");
    DmrPeerClient* client = clientFor(peerLabel);
    if (!client)
        return QStringLiteral("%1 is not connected.").arg(peerLabel);
    const quint32 srcId = srcOverride != 0 ? srcOverride : dmrId(*peer);
    if (srcId == 0)
        return QStringLiteral("Peer has no DMR ID (identity).");
    // Slot 2 is where hotspots and most masters expect data; a group message to the talkgroup held
    // on slot 1 goes there instead, where that group's radios listen.
    const quint32 ts1Tg = m_peers.value(peerLabel).profile.ts1Tg;
    const quint8 slot = !privateCall && ts1Tg != 0 && ts1Tg == dstId ? 1 : 2;
    if (!client->sendSms(srcId, dstId, slot, privateCall, body, format))
        return QStringLiteral("Send failed (peer not running).");
    return {};
}

void DmrPeerManager::stopAll()
{
    qInfo() << "[shutdown] stopAll: m_peers count =" << m_peers.size();
    // Taken out first: a stop emits changed, and whoever asks for the peer table then must
    // not meet a client that was deleted a moment ago.
    const QHash<QString, PeerEntry> stopping = std::exchange(m_peers, {});
    for (const PeerEntry& entry : stopping) {
        qInfo().noquote() << "[shutdown]   stop()" << entry.label;
        // A running peer says goodbye with RPTCL while the socket still lives.
        entry.client->stop();
        qInfo().noquote() << "[shutdown]   delete" << entry.label;
        // The event loop is ending: deleteLater would never run.
        delete entry.client;
        qInfo().noquote() << "[shutdown]   deleted" << entry.label;
    }
    qInfo() << "[shutdown] stopAll: emit changed";
    emit changed();
    qInfo() << "[shutdown] stopAll: done";
}

} // namespace zl::dmr
