#include "EchoLinkDispatcher.h"

#include "EchoLinkPackets.h"
#include "EchoLinkQso.h"

#include <QDebug>
#include <QNetworkDatagram>
#include <QUdpSocket>

namespace zl::echolink {

namespace {

// IPv4 peers arrive as v4-mapped addresses on a dual-stack socket; the table holds plain text.
QString addressKey(const QHostAddress& address)
{
    bool isV4 = false;
    const quint32 v4 = address.toIPv4Address(&isV4);
    return isV4 ? QHostAddress(v4).toString() : address.toString();
}

} // namespace

EchoLinkDispatcher::EchoLinkDispatcher(QObject* parent) : QObject(parent)
{
}

void EchoLinkDispatcher::setPortsForTest(quint16 audioPortNumber, quint16 ctrlPortNumber, const QHostAddress& address)
{
    audio = audioPortNumber;
    ctrl = ctrlPortNumber;
    bindAddress = address;
}

bool EchoLinkDispatcher::bind()
{
    if (audioSocket && ctrlSocket)
        return true;
    delete audioSocket;
    delete ctrlSocket;
    audioSocket = new QUdpSocket(this);
    ctrlSocket = new QUdpSocket(this);
    const bool audioOk = audioSocket->bind(bindAddress, audio);
    const bool ctrlOk = ctrlSocket->bind(bindAddress, ctrl);
    if (!audioOk || !ctrlOk) {
        qWarning() << "EchoLinkDispatcher: cannot bind UDP" << audio << ctrl
                   << "— audio:" << (audioOk ? QString() : audioSocket->errorString())
                   << "ctrl:" << (ctrlOk ? QString() : ctrlSocket->errorString());
        delete audioSocket;
        delete ctrlSocket;
        audioSocket = nullptr;
        ctrlSocket = nullptr;
        return false;
    }
    connect(audioSocket, &QUdpSocket::readyRead, this, &EchoLinkDispatcher::onAudioReadyRead);
    connect(ctrlSocket, &QUdpSocket::readyRead, this, &EchoLinkDispatcher::onCtrlReadyRead);
    qInfo() << "EchoLinkDispatcher: bound UDP audio" << audio << "control" << ctrl;
    return true;
}

void EchoLinkDispatcher::addPeer(const QString& address, EchoLinkQso* qso)
{
    peers.insert(addressKey(QHostAddress(address)), qso);
}

void EchoLinkDispatcher::removePeer(EchoLinkQso* qso)
{
    for (auto it = peers.begin(); it != peers.end();) {
        if (it.value() == qso)
            it = peers.erase(it);
        else
            ++it;
    }
}

void EchoLinkDispatcher::send(const QHostAddress& address, quint16 port, const QByteArray& bytes)
{
    // Replies leave from the well-known ports, which is where the far end expects them.
    QUdpSocket* socket = port == ctrl ? ctrlSocket : audioSocket;
    if (socket)
        socket->writeDatagram(bytes, address, port);
}

void EchoLinkDispatcher::onAudioReadyRead()
{
    while (audioSocket && audioSocket->hasPendingDatagrams()) {
        const QNetworkDatagram datagram = audioSocket->receiveDatagram();
        if (EchoLinkQso* qso = peers.value(addressKey(datagram.senderAddress())))
            qso->onAudioDatagram(datagram.data());
    }
}

void EchoLinkDispatcher::onCtrlReadyRead()
{
    while (ctrlSocket && ctrlSocket->hasPendingDatagrams()) {
        const QNetworkDatagram datagram = ctrlSocket->receiveDatagram();
        const QByteArray data = datagram.data();
        const QHostAddress sender(addressKey(datagram.senderAddress()));
        if (EchoLinkQso* qso = peers.value(sender.toString())) {
            qso->onCtrlDatagram(data);
            continue;
        }
        if (data.size() < 10 || quint8(data.at(9)) != kRtcpSdes)
            continue;
        const QString callsign = sdesCallsign(data);
        qInfo() << "EchoLinkDispatcher: incoming connection from" << sender.toString() << callsign;
        emit incomingConnection(sender, callsign);
    }
}

} // namespace zl::echolink
