#include "M17Reflector.h"

#include <QDateTime>
#include <QNetworkDatagram>

M17Reflector::M17Reflector(QObject* parent) : QObject(parent)
{
    socket.bind(QHostAddress::LocalHost, 0);
    connect(&socket, &QUdpSocket::readyRead, this, &M17Reflector::onReadyRead);
    pingTimer.setInterval(3000);
    connect(&pingTimer, &QTimer::timeout, this, &M17Reflector::onPingTick);
    pingTimer.start();
}

qsizetype M17Reflector::indexOf(const QHostAddress& address, quint16 port) const
{
    for (qsizetype i = 0; i < linked.size(); ++i) {
        if (linked.at(i).address.isEqual(address, QHostAddress::TolerantConversion) && linked.at(i).port == port)
            return i;
    }
    return -1;
}

void M17Reflector::sendTo(const Client& client, const QByteArray& data)
{
    socket.writeDatagram(data, client.address, client.port);
}

void M17Reflector::disconnectAll()
{
    for (const Client& client : std::as_const(linked))
        sendTo(client, QByteArrayLiteral("DISC"));
    linked.clear();
}

void M17Reflector::onReadyRead()
{
    while (socket.hasPendingDatagrams()) {
        const QNetworkDatagram datagram = socket.receiveDatagram();
        const QByteArray data = datagram.data();
        received.append(data);
        if (silent)
            continue;
        const QHostAddress from = datagram.senderAddress();
        const quint16 fromPort = quint16(datagram.senderPort());
        const qsizetype at = indexOf(from, fromPort);
        const qint64 now = QDateTime::currentMSecsSinceEpoch();

        if (data.size() == 11 && data.startsWith("CONN")) {
            const char module = data.at(10);
            if (module < 'A' || module > 'Z') {
                socket.writeDatagram(QByteArrayLiteral("NACK"), from, fromPort);
                continue;
            }
            Client client{from, fromPort, data.mid(4, 6), module, now};
            if (at >= 0)
                linked[at] = client;
            else
                linked.append(client);
            socket.writeDatagram(QByteArrayLiteral("ACKN"), from, fromPort);
        } else if (data.size() == 10 && data.startsWith("PONG") && at >= 0) {
            linked[at].lastPongMs = now;
        } else if (data.size() == 10 && data.startsWith("DISC") && at >= 0) {
            linked.removeAt(at);
            socket.writeDatagram(QByteArrayLiteral("DISC"), from, fromPort);
        } else if (data.size() == 54 && data.startsWith("M17 ") && at >= 0) {
            relayed.append(data);
            for (const Client& other : std::as_const(linked)) {
                if (&other != &linked.at(at) && other.module == linked.at(at).module)
                    sendTo(other, data);
            }
        }
    }
}

void M17Reflector::onPingTick()
{
    if (silent)
        return;
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    linked.removeIf([&](const Client& c) { return now - c.lastPongMs > dropAfterMs; });
    for (const Client& client : std::as_const(linked))
        sendTo(client, QByteArrayLiteral("PING") + client.callsign);
}
