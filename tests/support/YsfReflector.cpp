#include "YsfReflector.h"

#include <QDateTime>
#include <QNetworkDatagram>

namespace {
const QByteArray kPollReply = QByteArrayLiteral("YSFP") + QByteArray("LOOPBACK  ");
}

YsfReflector::YsfReflector(QObject* parent) : QObject(parent)
{
    socket.bind(QHostAddress::LocalHost, 0);
    connect(&socket, &QUdpSocket::readyRead, this, &YsfReflector::onReadyRead);
    pollTimer.setInterval(5000);
    connect(&pollTimer, &QTimer::timeout, this, &YsfReflector::onPollTick);
    pollTimer.start();
}

void YsfReflector::sendTo(const Client& client, const QByteArray& data)
{
    socket.writeDatagram(data, client.address, client.port);
}

void YsfReflector::onReadyRead()
{
    while (socket.hasPendingDatagrams()) {
        const QNetworkDatagram datagram = socket.receiveDatagram();
        const QByteArray data = datagram.data();
        received.append(data);
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        qsizetype at = -1;
        for (qsizetype i = 0; i < linked.size(); ++i) {
            if (linked.at(i).address.isEqual(datagram.senderAddress()) && linked.at(i).port == datagram.senderPort())
                at = i;
        }
        if (data.size() == 14 && data.startsWith("YSFP")) {
            if (at < 0) {
                linked.append(Client{datagram.senderAddress(), quint16(datagram.senderPort()), data.mid(4, 10), now});
                at = linked.size() - 1;
            }
            linked[at].lastSeenMs = now;
            sendTo(linked.at(at), kPollReply);
        } else if (data.size() == 14 && data.startsWith("YSFU") && at >= 0) {
            linked.removeAt(at);
        } else if (data.size() == 155 && data.startsWith("YSFD") && at >= 0) {
            for (qsizetype i = 0; i < linked.size(); ++i) {
                if (i != at)
                    sendTo(linked.at(i), data);
            }
        }
    }
}

void YsfReflector::onPollTick()
{
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    linked.removeIf([&](const Client& c) { return now - c.lastSeenMs > expiryMs; });
    for (const Client& client : std::as_const(linked))
        sendTo(client, kPollReply);
}
