#include "M17Client.h"

#include "M17Callsign.h"
#include "M17StreamFrame.h"
#include "app/HostLookup.h"

#include <QNetworkDatagram>
#include <QTimer>
#include <QUdpSocket>

namespace zl::m17 {

M17Client::M17Client(QObject* parent)
    : QObject(parent), socket(new QUdpSocket(this)), linkTimer(new QTimer(this)), pingWatchdog(new QTimer(this)),
      retryTimer(new QTimer(this)), countdownTimer(new QTimer(this))
{
    linkTimer->setSingleShot(true);
    pingWatchdog->setSingleShot(true);
    retryTimer->setSingleShot(true);
    countdownTimer->setInterval(1000);
    connect(retryTimer, &QTimer::timeout, this, &M17Client::onRetry);
    connect(countdownTimer, &QTimer::timeout, this, [this] { emit reconnectCountdown(reconnectInMs()); });
    connect(socket, &QUdpSocket::readyRead, this, &M17Client::onReadyRead);
    connect(linkTimer, &QTimer::timeout, this, &M17Client::onLinkTimeout);
    connect(pingWatchdog, &QTimer::timeout, this, &M17Client::onPingWatchdog);
}

M17Client::~M17Client()
{
    // Tell the reflector we are gone rather than let it time us out.
    if (currentState == State::Linking || currentState == State::Linked || currentState == State::Reconnecting)
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
    backoff.reset();
    retryTimer->stop();
    countdownTimer->stop();
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
    retryTimer->stop();
    countdownTimer->stop();
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
        if (currentState != State::Linking)
            return;
        linkTimer->stop();
        relinking = false;
        backoff.reset();
        setState(State::Linked);
        pingWatchdog->start(timing.pingWatchdogMs);
        emit info(QStringLiteral("ACKN — linked"));
    } else if (data.startsWith("NACK")) {
        // A refusal stands: asking again would only get the address banned.
        linkTimer->stop();
        retryTimer->stop();
        countdownTimer->stop();
        setState(State::Rejected);
        emit rejected(QStringLiteral("reflector said NACK"));
    } else if (data.startsWith("PING")) {
        sendControl("PONG");
        if (currentState == State::Linked)
            pingWatchdog->start(timing.pingWatchdogMs);
    } else if (data.startsWith("DISC")) {
        // A reflector that timed us out after a one-way outage says DISC: link again.
        if (currentState != State::Linked && currentState != State::Linking)
            return;
        pingWatchdog->stop();
        linkTimer->stop();
        emit info(QStringLiteral("DISC from reflector"));
        scheduleReconnect(QStringLiteral("DISC from reflector"));
    } else if (isStreamFrame(data)) {
        emit voiceFrameRx(data);
    }
}

void M17Client::onLinkTimeout()
{
    if (currentState != State::Linking)
        return;
    scheduleReconnect(QStringLiteral("no ACKN/NACK from reflector"));
}

void M17Client::scheduleReconnect(const QString& why)
{
    relinking = true;
    const int delay = backoff.nextDelayMs() / qMax(1, timing.backoffSpeedup);
    retryTimer->start(delay);
    countdownTimer->start();
    setState(State::Reconnecting);
    emit info(QStringLiteral("%1 — %2").arg(why, ReconnectBackoff::countdownText(delay)));
    emit reconnectCountdown(delay);
}

void M17Client::onRetry()
{
    countdownTimer->stop();
    if (currentState != State::Reconnecting)
        return;
    setState(State::Linking);
    sendConn();
    linkTimer->start(timing.linkTimeoutMs);
}

int M17Client::reconnectInMs() const
{
    return currentState == State::Reconnecting ? qMax(0, retryTimer->remainingTime()) : 0;
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
