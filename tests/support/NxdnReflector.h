#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QUdpSocket>

// A loopback NXDN reflector for one talkgroup, as NXDNReflector behaves on the wire: only
// 17-byte control and 43-byte data datagrams are looked at; a poll for its talkgroup is
// echoed back and links the sender, a poll for another talkgroup is ignored; NXDND is relayed
// to every other linked client; NXDNU unlinks.
class NxdnReflector : public QObject {
    Q_OBJECT

public:
    struct Client {
        QHostAddress address;
        quint16 port = 0;
    };

    explicit NxdnReflector(quint16 tg, QObject* parent = nullptr);

    quint16 port() const { return socket.localPort(); }
    const QList<Client>& clients() const { return linked; }
    // Tells every client it is unlinked and forgets them, as a reflector restart does.
    void unlinkAll();

    QList<QByteArray> received;

private:
    void sendTo(const Client& client, const QByteArray& data);
    void onReadyRead();

    quint16 tg;
    QUdpSocket socket;
    QList<Client> linked;
};
