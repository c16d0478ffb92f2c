#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QTimer>
#include <QUdpSocket>

// A loopback YSF reflector as YSFReflector behaves on the wire: a YSFP poll is answered with
// the reflector's own poll ("YSFP" and its name), every client is polled unsolicited each poll
// interval, YSFD datagrams are relayed to every other client and never back to the sender,
// YSFU unlinks. Clients that stop polling are forgotten after the expiry interval.
class YsfReflector : public QObject {
    Q_OBJECT

public:
    struct Client {
        QHostAddress address;
        quint16 port = 0;
        QByteArray callsign; // 10 bytes as received
        qint64 lastSeenMs = 0;
    };

    explicit YsfReflector(QObject* parent = nullptr);

    quint16 port() const { return socket.localPort(); }
    const QList<Client>& clients() const { return linked; }
    void setPollInterval(int ms) { pollTimer.setInterval(ms); }

    QList<QByteArray> received;

private:
    void sendTo(const Client& client, const QByteArray& data);
    void onReadyRead();
    void onPollTick();

    QUdpSocket socket;
    QTimer pollTimer;
    QList<Client> linked;
    int expiryMs = 60000;
};
