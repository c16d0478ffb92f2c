#include "IaxServer.h"

#include <QCryptographicHash>
#include <QNetworkDatagram>
#include <QtEndian>

namespace {

// Subclass values of IAX frames (type 6) used here.
constexpr quint8 kNew = 1, kPing = 2, kPong = 3, kAck = 4, kHangup = 5, kReject = 6, kAccept = 7, kAuthReq = 8,
                 kAuthRep = 9, kCallToken = 40;

QByteArray ie(quint8 type, const QByteArray& value)
{
    return QByteArray(1, char(type)) + char(value.size()) + value;
}

IaxServer::Frame decode(const QByteArray& d)
{
    IaxServer::Frame f;
    if (d.size() >= 12 && (quint8(d.at(0)) & 0x80)) {
        f.full = true;
        f.srcCall = qFromBigEndian<quint16>(d.constData()) & 0x7FFF;
        f.dstCall = qFromBigEndian<quint16>(d.constData() + 2);
        f.timestamp = qFromBigEndian<quint32>(d.constData() + 4);
        f.oseq = quint8(d.at(8));
        f.iseq = quint8(d.at(9));
        f.type = quint8(d.at(10));
        f.subclass = quint8(d.at(11));
        f.payload = d.mid(12);
        if (f.type == 6)
            for (int at = 0; at + 2 <= f.payload.size() && at + 2 + quint8(f.payload.at(at + 1)) <= f.payload.size();
                 at += 2 + quint8(f.payload.at(at + 1)))
                f.ies.insert(quint8(f.payload.at(at)), f.payload.mid(at + 2, quint8(f.payload.at(at + 1))));
    } else if (d.size() >= 4) {
        f.srcCall = qFromBigEndian<quint16>(d.constData());
        f.timestamp = qFromBigEndian<quint16>(d.constData() + 2);
        f.payload = d.mid(4);
    }
    return f;
}

} // namespace

IaxServer::IaxServer(QObject* parent) : QObject(parent)
{
    socket.bind(QHostAddress::LocalHost, 0);
    connect(&socket, &QUdpSocket::readyRead, this, &IaxServer::onReadyRead);
}

void IaxServer::sendFull(quint8 type, quint8 subclass, const QByteArray& payload, quint32 timestamp)
{
    QByteArray d(12, '\0');
    qToBigEndian<quint16>(quint16(0x8000 | ourCall), d.data());
    qToBigEndian<quint16>(clientCall, d.data() + 2);
    qToBigEndian<quint32>(timestamp, d.data() + 4);
    d[8] = char(oseq);
    d[9] = char(iseq);
    d[10] = char(type);
    d[11] = char(subclass);
    if (!(type == 6 && subclass == kAck))
        ++oseq;
    sendRaw(d + payload);
}

void IaxServer::sendRaw(const QByteArray& datagram)
{
    socket.writeDatagram(datagram, client, clientPort);
}

void IaxServer::sendMini(const QByteArray& audio)
{
    QByteArray d(4, '\0');
    qToBigEndian<quint16>(ourCall, d.data());
    qToBigEndian<quint16>(160, d.data() + 2);
    sendRaw(d + audio);
}

void IaxServer::onReadyRead()
{
    while (socket.hasPendingDatagrams()) {
        const QNetworkDatagram datagram = socket.receiveDatagram();
        client = datagram.senderAddress();
        clientPort = quint16(datagram.senderPort());
        const Frame frame = decode(datagram.data());
        received.append(frame);
        handle(frame);
    }
}

void IaxServer::handle(const Frame& frame)
{
    if (!frame.full)
        return;
    clientCall = frame.srcCall;
    const bool isAck = frame.type == 6 && frame.subclass == kAck;
    if (!isAck)
        iseq = quint8(frame.oseq + 1);
    if (frame.type == 1) { // DTMF: acknowledge and play the digit back
        sendFull(6, kAck, {}, frame.timestamp);
        sendFull(1, frame.subclass);
        return;
    }
    if (frame.type == 2) {
        sendFull(6, kAck, {}, frame.timestamp);
        return;
    }
    if (frame.type != 6)
        return;
    switch (frame.subclass) {
    case kNew:
        oseq = 0;
        if (requireToken && frame.ies.value(54).isEmpty()) {
            // No call state is kept for a NEW without a token.
            clientCall = frame.srcCall;
            const quint16 saved = ourCall;
            ourCall = 0;
            sendFull(6, kCallToken, ie(54, token));
            ourCall = saved;
            oseq = 0;
            return;
        }
        if (requireToken && frame.ies.value(54) != token)
            return;
        if (answer == Answer::Silent)
            return;
        if (answer == Answer::RejectWithCause) {
            sendFull(6, kReject, ie(22, "No such node"));
            return;
        }
        if (answer == Answer::RejectWithoutCause) {
            sendFull(6, kReject);
            return;
        }
        if (!password.isEmpty()) {
            sendFull(6, kAuthReq, ie(14, QByteArray("\x00\x02", 2)) + ie(15, challenge));
            return;
        }
        sendFull(6, kAccept, ie(9, QByteArray("\x00\x00\x00\x04", 4)));
        sendFull(4, 4);
        return;
    case kAuthRep: {
        const QByteArray expected = QCryptographicHash::hash(challenge + password, QCryptographicHash::Md5).toHex();
        if (frame.ies.value(16) != expected) {
            sendFull(6, kReject, ie(22, "Authentication failed"));
            return;
        }
        sendFull(6, kAck, {}, frame.timestamp);
        sendFull(6, kAccept, ie(9, QByteArray("\x00\x00\x00\x04", 4)));
        sendFull(4, 4);
        return;
    }
    case kPing:
        sendFull(6, kPong, {}, frame.timestamp);
        return;
    case kHangup:
        sendFull(6, kAck, {}, frame.timestamp);
        return;
    case kAck:
    case kPong:
    default:
        return;
    }
}
