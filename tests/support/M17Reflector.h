#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QTimer>
#include <QUdpSocket>

// A loopback M17 reflector as mrefd behaves on the wire: CONN with a module letter is
// answered ACKN (NACK for a letter outside A-Z), every linked client gets a PING each
// ping interval and is dropped when it has not answered PONG for the drop interval, stream
// frames are relayed to the other clients on the same module, DISC unlinks and is
// acknowledged with DISC. Callsigns are kept as the raw six address bytes.
class M17Reflector : public QObject {
    Q_OBJECT

public:
    struct Client {
        QHostAddress address;
        quint16 port = 0;
        QByteArray callsign; // six bytes, base 40
        char module = 0;
        qint64 lastPongMs = 0;
    };

    explicit M17Reflector(QObject* parent = nullptr);

    quint16 port() const { return socket.localPort(); }
    const QList<Client>& clients() const { return linked; }
    void setPingInterval(int ms) { pingTimer.setInterval(ms); }
    // A silent reflector neither answers nor pings: clients see it as gone.
    void setSilent(bool on) { silent = on; }
    // Sends DISC to every client and forgets them, as a reflector going down does.
    void disconnectAll();
    // Sends raw bytes to a client, for tests of what the client accepts.
    void sendTo(const Client& client, const QByteArray& data);

    QList<QByteArray> received; // every datagram, in order
    QList<QByteArray> relayed;  // stream frames passed on

private:
    void onReadyRead();
    void onPingTick();
    qsizetype indexOf(const QHostAddress& address, quint16 port) const;

    QUdpSocket socket;
    QTimer pingTimer;
    QList<Client> linked;
    int dropAfterMs = 30000;
    bool silent = false;
};
