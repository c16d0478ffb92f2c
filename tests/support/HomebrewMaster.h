#pragma once

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QString>
#include <QUdpSocket>

#include <functional>

// A Homebrew (MMDVM) DMR master on 127.0.0.1, behaving as the public masters do: RPTL is answered
// with RPTACK and a 4-byte salt, RPTK must carry SHA-256(salt + password), RPTC must be 302 bytes,
// RPTO is accepted only after RPTC, RPTPING gets MSTPONG (MSTNAK when not logged in), RPTCL gets
// MSTNAK and the peer is forgotten. DMRD from a logged-in peer is relayed to every other logged-in
// peer with bytes 11 to 14 set to the receiver's peer-ID, never back to the sender. Every datagram
// is recorded with its arrival time, so that tests can check what a client sent and when.
class HomebrewMaster : public QObject {
    Q_OBJECT

public:
    struct Datagram {
        QByteArray data;
        quint16 fromPort = 0;
        qint64 ms = 0;
    };

    explicit HomebrewMaster(QObject* parent = nullptr);

    bool listen();
    quint16 port() const { return socket.localPort(); }

    // Peers the master knows; any other peer-ID is refused at RPTL.
    void addPeer(quint32 peerId, const QString& password);
    // Arrival times come from this clock (default: wall clock), e.g. a client's accelerated one.
    void setClock(std::function<qint64()> now) { clock = std::move(now); }
    // A silent master records what arrives and answers nothing.
    void setSilent(bool on) { silent = on; }

    bool isLoggedIn(quint32 peerId) const;
    // The last RPTC of a peer and its RPTO text.
    QByteArray configOf(quint32 peerId) const { return peers.value(peerId).config; }
    QByteArray optionsOf(quint32 peerId) const { return peers.value(peerId).options; }

    // MSTCL to a peer: the master is going down.
    void closePeer(quint32 peerId);
    // Any datagram to the address a peer last logged in from.
    void sendToPeer(quint32 peerId, const QByteArray& datagram);
    // Any datagram to a local port, e.g. the one a recorded datagram came from.
    void sendTo(quint16 localPort, const QByteArray& datagram);

    QList<Datagram> received() const { return log; }
    // Recorded datagrams starting with the tag ("RPTL", "RPTPING", ...). RPTC does not match RPTCL.
    QList<Datagram> receivedWith(const QByteArray& tag) const;
    void clearLog() { log.clear(); }

signals:
    // Every datagram as it arrives; the voice benchmark times the bursts with it.
    void datagramReceived(const QByteArray& data);

private:
    enum class Stage { Challenged, Authenticated, Configured };
    struct Peer {
        QString password;
        QHostAddress address;
        quint16 port = 0;
        bool known = false;
        bool connected = false;
        Stage stage = Stage::Challenged;
        QByteArray salt;
        QByteArray config;
        QByteArray options;
    };

    void onReadyRead();
    void handle(const QByteArray& data, const QHostAddress& from, quint16 fromPort);
    void reply(const QHostAddress& to, quint16 toPort, const QByteArray& tag, quint32 peerId);
    void relay(const QByteArray& dmrd, quint32 senderId);
    qint64 now() const;

    QUdpSocket socket;
    QHash<quint32, Peer> peers;
    QList<Datagram> log;
    std::function<qint64()> clock;
    bool silent = false;
};
