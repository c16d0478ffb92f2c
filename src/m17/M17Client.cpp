#include "M17Client.h"

#include "M17Callsign.h"
#include "M17StreamFrame.h"
#include "app/HostLookup.h"

#include <QNetworkDatagram>
#include <QTimer>
#include <QUdpSocket>

namespace zl::m17 {

M17Client::M17Client(QObject* parent)
    : QObject(parent), socket(new QUdpSocket(this)), linkTimer(new QTimer(this)), pingWatchdog(new QTimer(this))
{
    linkTimer->setSingleShot(true);
    pingWatchdog->setSingleShot(true);
    connect(socket, &QUdpSocket::readyRead, this, &M17Client::onReadyRead);
    connect(linkTimer, &QTimer::timeout, this, &M17Client::onLinkTimeout);
    connect(pingWatchdog, &QTimer::timeout, this, &M17Client::onPingWatchdog);
}

M17Client::~M17Client()
{
    // Tell the reflector we are gone rather than let it time us out.
    if (currentState == State::Linking || currentState == State::Linked)
        disconnectFromReflector();
}

bool M17Client::linkTo(const QString& host, quint16 port, const QString& ownCallsign, char moduleLetter)
{
    if (ownCallsign.isEmpty() || ownCallsign.size() > 9) {
        emit rejected(QStringLiteral("callsign invalid (1-9 chars)"));
        return false;
    }
    if (moduleLetter < 'A' || moduleLetter > 'Z') {
        emit rejected(QStringLiteral("module must be A-Z"));
        return false;
    }
    if (socket->state() != QAbstractSocket::BoundState && !socket->bind(QHostAddress::AnyIPv4, 0)) {
        emit rejected(QStringLiteral("could not bind local UDP socket: ") + socket->errorString());
        setState(State::Failed);
        return false;
    }
    const QHostAddress address = lookupHost(host);
    if (address.isNull()) {
        emit rejected(QStringLiteral("DNS lookup failed for ") + host);
        setState(State::Failed);
        return false;
    }
    peer = address;
    peerPort = port;
    callsign = ownCallsign;
    module = moduleLetter;
    setState(State::Linking);
    emit info(QStringLiteral("CONN → %1:%2 module %3").arg(peer.toString()).arg(port).arg(QLatin1Char(module)));
    sendConn();
    linkTimer->start(timing.linkTimeoutMs);
    return true;
}

void M17Client::disconnectFromReflector()
{
    if (currentState == State::NotLinked)
        return;
    setState(State::Unlinking);
    if (peerPort != 0)
        sendControl("DISC");
    setState(State::NotLinked);
    linkTimer->stop();
    pingWatchdog->stop();
    relinking = false;
    emit info(QStringLiteral("DISC sent"));
}

void M17Client::sendFrame(const QByteArray& frame)
{
    if (frame.size() != frame::kSize || currentState != State::Linked || peerPort == 0)
        return;
    socket->writeDatagram(frame, peer, peerPort);
}

void M17Client::onReadyRead()
{
    while (socket->hasPendingDatagrams()) {
        const QNetworkDatagram datagram = socket->receiveDatagram();
        // Only the reflector we link to may talk to us.
        if (datagram.senderAddress().isEqual(peer, QHostAddress::TolerantConversion) &&
            datagram.senderPort() == peerPort && datagram.data().size() > 3)
            handleDatagram(datagram.data());
    }
}

void M17Client::handleDatagram(const QByteArray& data)
{
    if (data.startsWith("ACKN")) {
        linkTimer->stop();
        relinking = false;
        setState(State::Linked);
        pingWatchdog->start(timing.pingWatchdogMs);
        emit info(QStringLiteral("ACKN — linked"));
    } else if (data.startsWith("NACK")) {
        linkTimer->stop();
        setState(State::Rejected);
        emit rejected(QStringLiteral("reflector said NACK"));
    } else if (data.startsWith("PING")) {
        sendControl("PONG");
        if (currentState == State::Linked)
            pingWatchdog->start(timing.pingWatchdogMs);
    } else if (data.startsWith("DISC")) {
        pingWatchdog->stop();
        setState(State::NotLinked);
        emit info(QStringLiteral("DISC from reflector"));
    } else if (isStreamFrame(data)) {
        emit voiceFrameRx(data);
    }
}

void M17Client::onLinkTimeout()
{
    if (currentState != State::Linking)
        return;
    if (relinking) {
        emit info(QStringLiteral("re-link: no ACKN yet, retrying CONN"));
        sendConn();
        linkTimer->start(timing.linkTimeoutMs);
        return;
    }
    emit rejected(QStringLiteral("link timeout — no ACKN/NACK from reflector"));
    setState(State::Failed);
}

void M17Client::onPingWatchdog()
{
    if (currentState != State::Linked)
        return;
    emit info(QStringLiteral("no PING for %1 s — re-linking").arg(timing.pingWatchdogMs / 1000));
    relinking = true;
    setState(State::Linking);
    sendConn();
    linkTimer->start(timing.linkTimeoutMs);
}

void M17Client::setState(State s)
{
    if (s == currentState)
        return;
    currentState = s;
    emit stateChanged(s);
}

void M17Client::sendConn()
{
    QByteArray packet = QByteArrayLiteral("CONN") + addressBytes(encodeCallsign(callsign));
    packet.append(module);
    socket->writeDatagram(packet, peer, peerPort);
}

void M17Client::sendControl(const char* tag)
{
    socket->writeDatagram(QByteArray(tag, 4) + addressBytes(encodeCallsign(callsign)), peer, peerPort);
}

} // namespace zl::m17
