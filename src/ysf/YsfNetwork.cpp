#include "YsfNetwork.h"

#include "YsfFrame.h"
#include "app/HostLookup.h"

#include <QDebug>
#include <QNetworkDatagram>
#include <QTimer>
#include <QUdpSocket>

namespace zl::ysf {

YsfNetwork::YsfNetwork(const QString& ownCallsign, const QString& optionText, QObject* parent)
    : QObject(parent), callsign(ownCallsign), options(optionText), pollTimer(new QTimer(this))
{
    pollTimer->setInterval(5000);
    connect(pollTimer, &QTimer::timeout, this, &YsfNetwork::sendPoll);
}

YsfNetwork::~YsfNetwork()
{
    disconnectFrom();
}

void YsfNetwork::setPollInterval(int ms)
{
    pollTimer->setInterval(ms);
}

bool YsfNetwork::connectTo(const QString& host, quint16 reflectorPort)
{
    disconnectFrom();
    port = reflectorPort;
    address = lookupHost(host);
    if (address.isNull()) {
        emit errorReported(QStringLiteral("YSF: cannot resolve %1").arg(host));
        return false;
    }
    socket = new QUdpSocket(this);
    if (!socket->bind(QHostAddress::Any, 0)) {
        emit errorReported(QStringLiteral("YSF: cannot bind UDP"));
        socket->deleteLater();
        socket = nullptr;
        return false;
    }
    connect(socket, &QUdpSocket::readyRead, this, &YsfNetwork::onReadyRead);
    linkedUp = false;
    optionSent = false;
    qInfo() << "YsfNetwork: connecting to" << host << port << "as" << callsign;
    sendPoll();
    pollTimer->start();
    return true;
}

void YsfNetwork::disconnectFrom()
{
    if (socket) {
        if (linkedUp)
            socket->writeDatagram(buildYsfControl("YSFU", callsign), address, port);
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

void YsfNetwork::sendFrame(const QByteArray& ysfd155)
{
    // Frames go out whether or not the reflector has answered yet.
    if (socket && ysfd155.size() == kYsfdSize)
        socket->writeDatagram(ysfd155, address, port);
}

void YsfNetwork::sendPoll()
{
    if (socket)
        socket->writeDatagram(buildYsfControl("YSFP", callsign), address, port);
}

void YsfNetwork::onReadyRead()
{
    while (socket && socket->hasPendingDatagrams()) {
        const QNetworkDatagram datagram = socket->receiveDatagram();
        if (datagram.senderPort() != port ||
            !datagram.senderAddress().isEqual(address, QHostAddress::TolerantConversion))
            continue;
        const QByteArray data = datagram.data();
        if (!linkedUp)
            qInfo() << "YsfNetwork: rx" << data.size() << "B tag" << data.left(4) << "from" << datagram.senderAddress();
        if (data.startsWith("YSFP")) {
            if (!linkedUp) {
                linkedUp = true;
                qInfo() << "YsfNetwork: linked";
                emit linked(true);
            }
            if (!optionSent && !options.isEmpty()) {
                socket->writeDatagram(buildYsfOptions(callsign, options), address, port);
                optionSent = true;
            }
        } else if (data.startsWith("YSFD")) {
            emit dataReceived(data.left(kYsfdSize));
        }
    }
}

} // namespace zl::ysf
