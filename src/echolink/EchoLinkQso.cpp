#include "EchoLinkQso.h"

#include "EchoLinkPackets.h"

#include <QDebug>
#include <QTimer>

namespace zl::echolink {

namespace {

constexpr int kPacketPcmBytes = GsmCodec::kPcmBytes * kGsmFramesPerPacket; // 80 ms
constexpr int kMaxConnectRetries = 6;

const char* stateName(EchoLinkQso::State s)
{
    switch (s) {
    case EchoLinkQso::State::Disconnected:
        return "Disconnected";
    case EchoLinkQso::State::Connecting:
        return "Connecting";
    case EchoLinkQso::State::Connected:
        return "Connected";
    }
    return "?";
}

} // namespace

EchoLinkQso::EchoLinkQso(QObject* parent)
    : QObject(parent), keepaliveTimer(new QTimer(this)), timeoutTimer(new QTimer(this))
{
    const Timing timing;
    keepaliveTimer->setInterval(timing.keepaliveMs);
    timeoutTimer->setInterval(timing.timeoutMs);
    timeoutTimer->setSingleShot(true);
    connect(keepaliveTimer, &QTimer::timeout, this, &EchoLinkQso::onKeepalive);
    connect(timeoutTimer, &QTimer::timeout, this, &EchoLinkQso::onTimeout);
}

void EchoLinkQso::setPorts(quint16 audio, quint16 ctrl)
{
    audioPort = audio;
    ctrlPort = ctrl;
}

void EchoLinkQso::setTiming(const Timing& timing)
{
    keepaliveTimer->setInterval(timing.keepaliveMs);
    timeoutTimer->setInterval(timing.timeoutMs);
}

bool EchoLinkQso::connectTo(const QString& address)
{
    const QHostAddress parsed(address);
    if (parsed.isNull()) {
        emit errorReported(QStringLiteral("EchoLink: bad peer address %1").arg(address));
        return false;
    }
    peer = parsed;
    txBuffer.clear();
    txSeq = 0;
    connectRetries = 0;
    qInfo() << "EchoLinkQso: connecting to" << address << "as" << callsign;
    sendSdes();
    setState(State::Connecting);
    startTimers();
    return true;
}

void EchoLinkQso::acceptIncoming(const QHostAddress& address)
{
    peer = address;
    txSeq = 0;
    txBuffer.clear();
    qInfo() << "EchoLinkQso: accepting incoming from" << address.toString();
    sendSdes();
    startTimers();
    setState(State::Connected);
}

void EchoLinkQso::disconnect()
{
    hangUp();
}

void EchoLinkQso::sendChat(const QString& text)
{
    if (!peer.isNull())
        send(audioPort, chatPacket(callsign, text));
}

void EchoLinkQso::pushPcm(const QByteArray& pcm)
{
    if (currentState != State::Connected || peer.isNull())
        return;
    txBuffer.append(pcm);
    while (txBuffer.size() >= kPacketPcmBytes) {
        QByteArray frames;
        frames.reserve(kGsmFrameBytes * kGsmFramesPerPacket);
        for (int i = 0; i < kGsmFramesPerPacket; ++i)
            frames.append(gsm.encode(txBuffer.mid(i * GsmCodec::kPcmBytes, GsmCodec::kPcmBytes)));
        send(audioPort, audioPacket(txSeq++, frames));
        txBuffer.remove(0, kPacketPcmBytes);
    }
}

void EchoLinkQso::onAudioDatagram(const QByteArray& datagram)
{
    if (datagram.isEmpty())
        return;
    if (quint8(datagram.at(0)) != 0xC0) {
        const TextMessage message = parseTextPacket(datagram);
        if (message.kind == TextMessage::Kind::Info)
            emit infoReceived(message.text);
        else if (message.kind == TextMessage::Kind::Chat)
            emit chatReceived(message.text);
        return;
    }
    if (datagram.size() < kAudioPacketBytes || datagram.at(1) != 3)
        return;
    QByteArray pcm;
    pcm.reserve(kPacketPcmBytes);
    for (int i = 0; i < kGsmFramesPerPacket; ++i)
        pcm.append(gsm.decode(datagram.mid(kAudioHeaderBytes + i * kGsmFrameBytes, kGsmFrameBytes)));
    emit pcmReady(pcm);
}

void EchoLinkQso::onCtrlDatagram(const QByteArray& datagram)
{
    if (datagram.size() <= 9)
        return;
    const quint8 kind = quint8(datagram.at(9));
    if (kind == kRtcpBye) {
        // The far end has gone: no BYE in answer.
        stopTimers();
        if (currentState != State::Disconnected)
            setState(State::Disconnected);
    } else if (kind == kRtcpSdes) {
        timeoutTimer->start();
        if (currentState == State::Connecting)
            setState(State::Connected);
    }
}

void EchoLinkQso::onKeepalive()
{
    if (currentState != State::Connecting) {
        sendSdes();
        return;
    }
    if (++connectRetries < kMaxConnectRetries) {
        sendSdes();
        return;
    }
    emit errorReported(QStringLiteral("EchoLink: no answer from node"));
    send(ctrlPort, byePacket());
    stopTimers();
    setState(State::Disconnected);
}

void EchoLinkQso::onTimeout()
{
    emit errorReported(QStringLiteral("EchoLink: connection timed out"));
    hangUp();
}

void EchoLinkQso::hangUp()
{
    if (currentState != State::Disconnected && !peer.isNull())
        send(ctrlPort, byePacket());
    stopTimers();
    if (currentState != State::Disconnected)
        setState(State::Disconnected);
}

void EchoLinkQso::setState(State s)
{
    currentState = s;
    qInfo() << "EchoLinkQso: state ->" << stateName(s);
    emit stateChanged(s);
    if (s == State::Connected)
        send(audioPort, infoPacket(description));
}

void EchoLinkQso::send(quint16 port, const QByteArray& bytes)
{
    if (sendDatagram)
        sendDatagram(peer, port, bytes);
}

void EchoLinkQso::sendSdes()
{
    sdesPacket = zl::echolink::sdesPacket(callsign, name);
    send(ctrlPort, sdesPacket);
}

void EchoLinkQso::startTimers()
{
    keepaliveTimer->start();
    timeoutTimer->start();
}

void EchoLinkQso::stopTimers()
{
    keepaliveTimer->stop();
    timeoutTimer->stop();
}

} // namespace zl::echolink
