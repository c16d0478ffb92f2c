#include "IaxClient.h"

#include "IaxFrame.h"
#include "IaxMessages.h"
#include "MuLaw.h"

#include <QDebug>
#include <QNetworkDatagram>
#include <QTimer>
#include <QUdpSocket>

namespace zl::iax {

namespace {

const char* stateName(IaxClient::State s)
{
    switch (s) {
    case IaxClient::State::Disconnected:
        return "Disconnected";
    case IaxClient::State::Connecting:
        return "Connecting";
    case IaxClient::State::Up:
        return "Up";
    }
    return "?";
}

} // namespace

IaxClient::IaxClient(QObject* parent) : QObject(parent), pingTimer(new QTimer(this))
{
    pingTimer->setInterval(10000);
    connect(pingTimer, &QTimer::timeout, this, &IaxClient::onPing);
}

void IaxClient::setAccount(const QString& serverHost, int serverPort, const QString& user, const QString& secret,
                           const QString& nodeNumber, const QString& ownCallsign)
{
    host = serverHost;
    port = serverPort;
    username = user;
    password = secret;
    node = nodeNumber;
    callsign = ownCallsign.toUpper();
}

void IaxClient::setPingIntervalForTest(int ms)
{
    pingTimer->setInterval(ms);
}

quint16 IaxClient::localPort() const
{
    return socket ? socket->localPort() : 0;
}

void IaxClient::call()
{
    // A literal address only: a host name gives a null peer and the datagrams go nowhere.
    peer = QHostAddress(host);
    if (!socket) {
        socket = new QUdpSocket(this);
        socket->bind(QHostAddress::AnyIPv4, 0);
        connect(socket, &QUdpSocket::readyRead, this, &IaxClient::onReadyRead);
    }
    dstCall = 0;
    oseq = 0;
    iseq = 0;
    voiceStarted = false;
    // Call numbers run 1..32766; 0 means "not yet known" on the wire.
    srcCall = quint16(srcCall % 32766 + 1);
    callClock.start();
    setState(State::Connecting);
    qInfo() << "IaxClient: calling" << host << port << "node" << node << "as" << callsign;
    sendNew({});
    pingTimer->start();
}

void IaxClient::hangup()
{
    if (currentState != State::Disconnected && socket)
        sendFull(FrameType::Iax, IaxSubclass::Hangup, hangupPayload(QStringLiteral("normal")));
    pingTimer->stop();
    if (currentState != State::Disconnected)
        setState(State::Disconnected);
}

void IaxClient::sendDtmf(const QString& digits)
{
    if (currentState != State::Up) {
        emit errorReported(QStringLiteral("not connected"));
        return;
    }
    for (const QChar c : digits) {
        if (c.unicode() >= 1 && c.unicode() <= 127)
            sendFull(FrameType::Dtmf, c.unicode());
    }
    qInfo() << "IaxClient: sent DTMF" << digits;
}

void IaxClient::pushPcm(const QByteArray& pcm)
{
    if (currentState != State::Up)
        return;
    const QByteArray codes = encodeMuLaw(pcm);
    if (!voiceStarted) {
        // The first voice frame is full, so that the far end learns the format.
        voiceStarted = true;
        sendFull(FrameType::Voice, kFormatMuLaw, codes);
        return;
    }
    socket->writeDatagram(miniFrame(srcCall, quint16(callClock.elapsed()), codes), peer, quint16(port));
}

void IaxClient::onReadyRead()
{
    while (socket->hasPendingDatagrams())
        handleDatagram(socket->receiveDatagram().data());
}

void IaxClient::onPing()
{
    if (currentState != State::Disconnected)
        sendFull(FrameType::Iax, IaxSubclass::Ping);
}

void IaxClient::handleDatagram(const QByteArray& datagram)
{
    if (const std::optional<FullFrame> frame = parseFullFrame(datagram)) {
        handleFullFrame(*frame);
        return;
    }
    if (datagram.size() > 4)
        emit pcmReady(decodeMuLaw(datagram.mid(4)));
}

void IaxClient::handleFullFrame(const FullFrame& frame)
{
    if (dstCall == 0 && frame.srcCall != 0)
        dstCall = frame.srcCall;
    iseq = quint8(frame.oseq + 1);
    switch (frame.type) {
    case FrameType::Voice:
        sendAck(frame);
        emit pcmReady(decodeMuLaw(frame.payload));
        break;
    case FrameType::Control:
        sendAck(frame);
        if (frame.subclass == ControlSubclass::Ringing || frame.subclass == ControlSubclass::Answer) {
            if (currentState != State::Up)
                setState(State::Up);
        } else if (frame.subclass == ControlSubclass::Hangup) {
            hangup();
        }
        break;
    case FrameType::Iax:
        handleIaxFrame(frame);
        break;
    default:
        break;
    }
}

void IaxClient::handleIaxFrame(const FullFrame& frame)
{
    switch (frame.subclass) {
    case IaxSubclass::Ping:
        sendFull(FrameType::Iax, IaxSubclass::Pong);
        break;
    case IaxSubclass::Ack:
        break;
    case IaxSubclass::Hangup:
        sendAck(frame);
        hangup();
        break;
    case IaxSubclass::Reject:
    case IaxSubclass::Inval: {
        const QByteArray cause = parseIes(frame.payload).value(Ie::Cause);
        sendAck(frame);
        emit errorReported(cause.isEmpty() ? QStringLiteral("call rejected") : QString::fromUtf8(cause));
        hangup();
        break;
    }
    case IaxSubclass::AuthReq: {
        const QByteArray challenge = parseIes(frame.payload).value(Ie::Challenge);
        sendAck(frame);
        sendFull(FrameType::Iax, IaxSubclass::AuthRep, authRepPayload(challenge, password));
        break;
    }
    case IaxSubclass::LagRq:
        sendFull(FrameType::Iax, IaxSubclass::LagRp);
        break;
    case IaxSubclass::Poke:
        sendFull(FrameType::Iax, IaxSubclass::Pong);
        break;
    case IaxSubclass::CallToken: {
        const QByteArray token = parseIes(frame.payload).value(Ie::CallToken);
        sendAck(frame);
        // The server keeps no state for the first NEW: the call starts over with the token.
        dstCall = 0;
        sendNew(token);
        break;
    }
    default:
        sendAck(frame);
        break;
    }
}

void IaxClient::sendFull(quint8 type, quint32 subclass, const QByteArray& payload)
{
    FullFrame frame;
    frame.srcCall = srcCall;
    frame.dstCall = dstCall;
    frame.timestamp = quint32(callClock.isValid() ? callClock.elapsed() : 0);
    frame.oseq = oseq;
    frame.iseq = iseq;
    frame.type = type;
    frame.subclass = subclass;
    frame.payload = payload;
    if (socket)
        socket->writeDatagram(fullFrame(frame), peer, quint16(port));
    ++oseq;
}

void IaxClient::sendAck(const FullFrame& received)
{
    FullFrame ack;
    ack.srcCall = srcCall;
    ack.dstCall = dstCall;
    ack.timestamp = received.timestamp;
    ack.oseq = oseq;
    ack.iseq = iseq;
    ack.type = FrameType::Iax;
    ack.subclass = IaxSubclass::Ack;
    if (socket)
        socket->writeDatagram(fullFrame(ack), peer, quint16(port));
}

void IaxClient::sendNew(const QByteArray& token)
{
    sendFull(FrameType::Iax, IaxSubclass::New, newPayload(node, callsign, username, token));
}

void IaxClient::setState(State s)
{
    currentState = s;
    qInfo() << "IaxClient: state ->" << stateName(s);
    emit stateChanged(s);
}

} // namespace zl::iax
