#include "NxdnReflector.h"

#include <QNetworkDatagram>

NxdnReflector::NxdnReflector(quint16 talkgroup, QObject* parent) : QObject(parent), tg(talkgroup)
{
    socket.bind(QHostAddress::LocalHost, 0);
    connect(&socket, &QUdpSocket::readyRead, this, &NxdnReflector::onReadyRead);
}

void NxdnReflector::sendTo(const Client& client, const QByteArray& data)
{
    socket.writeDatagram(data, client.address, client.port);
}

void NxdnReflector::unlinkAll()
{
    QByteArray unlink = QByteArrayLiteral("NXDNU") + QByteArray("LOOPBACK  ");
    unlink.append(char(tg >> 8)).append(char(tg & 0xFF));
    for (const Client& client : std::as_const(linked))
        sendTo(client, unlink);
    linked.clear();
}

void NxdnReflector::onReadyRead()
{
    while (socket.hasPendingDatagrams()) {
        const QNetworkDatagram datagram = socket.receiveDatagram();
        const QByteArray data = datagram.data();
        received.append(data);
        if (data.size() != 17 && data.size() != 43)
            continue;
        qsizetype at = -1;
        for (qsizetype i = 0; i < linked.size(); ++i) {
            if (linked.at(i).address.isEqual(datagram.senderAddress()) && linked.at(i).port == datagram.senderPort())
                at = i;
        }
        if (data.size() == 17 && data.startsWith("NXDNP")) {
            const quint16 wanted = quint16((quint8(data.at(15)) << 8) | quint8(data.at(16)));
            if (wanted != tg)
                continue;
            if (at < 0)
                linked.append(Client{datagram.senderAddress(), quint16(datagram.senderPort())});
            socket.writeDatagram(data, datagram.senderAddress(), quint16(datagram.senderPort()));
        } else if (data.size() == 17 && data.startsWith("NXDNU") && at >= 0) {
            linked.removeAt(at);
        } else if (data.size() == 43 && data.startsWith("NXDND") && at >= 0) {
            for (qsizetype i = 0; i < linked.size(); ++i) {
                if (i != at)
                    sendTo(linked.at(i), data);
            }
        }
    }
}
