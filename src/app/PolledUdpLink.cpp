#include "PolledUdpLink.h"

#include "HostLookup.h"

#include <QDebug>
#include <QNetworkDatagram>
#include <QTimer>
#include <QUdpSocket>

namespace zl {

PolledUdpLink::PolledUdpLink(const QString& modeName, const QString& logName, const QString& ownCallsign,
                             QObject* parent)
    : QObject(parent), mode(modeName), name(logName), callsign(ownCallsign), pollTimer(new QTimer(this))
{
    pollTimer->setInterval(5000);
    connect(pollTimer, &QTimer::timeout, this, &PolledUdpLink::sendPoll);
}

void PolledUdpLink::setPollInterval(int ms)
{
    pollTimer->setInterval(ms);
}

bool PolledUdpLink::connectTo(const QString& host, quint16 reflectorPort)
{
    disconnectFrom();
    port = reflectorPort;
    address = lookupHost(host);
    if (address.isNull()) {
        emit errorReported(QStringLiteral("%1: cannot resolve %2").arg(mode, host));
        return false;
    }
    socket = new QUdpSocket(this);
    if (!socket->bind(QHostAddress::Any, 0)) {
        emit errorReported(QStringLiteral("%1: cannot bind UDP").arg(mode));
        socket->deleteLater();
        socket = nullptr;
        return false;
    }
    connect(socket, &QUdpSocket::readyRead, this, &PolledUdpLink::onReadyRead);
    linkedUp = false;
    qInfo().noquote() << name + QStringLiteral(": connecting to") << host << port << "as" << callsign;
    sendPoll();
    pollTimer->start();
    return true;
}

void PolledUdpLink::disconnectFrom()
{
    if (socket) {
        if (linkedUp)
            socket->writeDatagram(unlinkDatagram(), address, port);
        socket->disconnect(this);
        socket->deleteLater();
        socket = nullptr;
    }
    pollTimer->stop();
    setLinked(false);
}

void PolledUdpLink::setLinked(bool up)
{
    if (up == linkedUp)
        return;
    linkedUp = up;
    if (up)
        qInfo().noquote() << name + QStringLiteral(": linked");
    emit linked(up);
}

void PolledUdpLink::send(const QByteArray& data)
{
    if (socket)
        socket->writeDatagram(data, address, port);
}

void PolledUdpLink::sendPoll()
{
    send(pollDatagram());
}

void PolledUdpLink::onReadyRead()
{
    while (socket && socket->hasPendingDatagrams()) {
        const QNetworkDatagram datagram = socket->receiveDatagram();
        // Only the reflector may talk to us; anything else is dropped in silence.
        if (datagram.senderPort() != port ||
            !datagram.senderAddress().isEqual(address, QHostAddress::TolerantConversion))
            continue;
        onDatagram(datagram.data(), datagram.senderAddress());
    }
}

} // namespace zl
