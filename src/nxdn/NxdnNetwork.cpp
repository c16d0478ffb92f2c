#include "NxdnNetwork.h"

#include "NxdnFrame.h"
#include "app/HostLookup.h"

#include <QDebug>
#include <QNetworkDatagram>
#include <QTimer>
#include <QUdpSocket>

namespace zl::nxdn {

NxdnNetwork::NxdnNetwork(const QString& ownCallsign, quint16 talkgroup, QObject* parent)
    : QObject(parent), callsign(ownCallsign), tg(talkgroup), pollTimer(new QTimer(this))
{
    pollTimer->setInterval(5000);
    connect(pollTimer, &QTimer::timeout, this, &NxdnNetwork::sendPoll);
}

NxdnNetwork::~NxdnNetwork()
{
    disconnectFrom();
}

void NxdnNetwork::setPollInterval(int ms)
{
    pollTimer->setInterval(ms);
}

bool NxdnNetwork::connectTo(const QString& host, quint16 reflectorPort)
{
    disconnectFrom();
    port = reflectorPort;
    address = lookupHost(host);
    if (address.isNull()) {
        emit errorReported(QStringLiteral("NXDN: cannot resolve %1").arg(host));
        return false;
    }
    socket = new QUdpSocket(this);
    if (!socket->bind(QHostAddress::Any, 0)) {
        emit errorReported(QStringLiteral("NXDN: cannot bind UDP"));
        socket->deleteLater();
        socket = nullptr;
        return false;
    }
    connect(socket, &QUdpSocket::readyRead, this, &NxdnNetwork::onReadyRead);
    linkedUp = false;
    qInfo() << "NxdnNetwork: connecting to" << host << port << "as" << callsign;
    sendPoll();
    pollTimer->start();
    return true;
}

void NxdnNetwork::disconnectFrom()
{
    if (socket) {
        if (linkedUp)
            socket->writeDatagram(buildNxdnControl("NXDNU", callsign, tg), address, port);
        socket->disconnect(this);
        socket->deleteLater();
        socket = nullptr;
    }
    pollTimer->stop();
    if (linkedUp) {
        linkedUp = false;
        emit linked(false);
    }
}

void NxdnNetwork::sendFrame(const QByteArray& nxdnd43)
{
    if (socket && linkedUp && nxdnd43.size() == kNxdndSize)
        socket->writeDatagram(nxdnd43, address, port);
}

void NxdnNetwork::sendPoll()
{
    if (socket)
        socket->writeDatagram(buildNxdnControl("NXDNP", callsign, tg), address, port);
}

void NxdnNetwork::onReadyRead()
{
    while (socket && socket->hasPendingDatagrams()) {
        const QNetworkDatagram datagram = socket->receiveDatagram();
        if (datagram.senderPort() != port ||
            !datagram.senderAddress().isEqual(address, QHostAddress::TolerantConversion))
            continue;
        const QByteArray data = datagram.data();
        if (data.startsWith("NXDNP")) {
            if (!linkedUp) {
                linkedUp = true;
                qInfo() << "NxdnNetwork: linked";
                emit linked(true);
            }
        } else if (data.startsWith("NXDNU")) {
            // The reflector dropped us; polling goes on and its next answer links again.
            if (linkedUp) {
                linkedUp = false;
                emit linked(false);
            }
        } else if (data.startsWith("NXDND")) {
            emit dataReceived(data.left(kNxdndSize));
        }
    }
}

} // namespace zl::nxdn
