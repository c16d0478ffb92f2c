#include "EchoLinkPeer.h"

#include <gsm.h>

#include <QCoreApplication>
#include <QNetworkDatagram>
#include <QtEndian>

EchoLinkPeer::EchoLinkPeer(const QHostAddress& address, quint16 audioPortNumber, quint16 ctrlPortNumber,
                           QObject* parent)
    : QObject(parent), audioPort(audioPortNumber), ctrlPort(ctrlPortNumber), encoder(gsm_create())
{
    bound = audio.bind(address, audioPort) && ctrl.bind(address, ctrlPort);
    connect(&audio, &QUdpSocket::readyRead, this, [this] {
        while (audio.hasPendingDatagrams())
            audioReceived.append(audio.receiveDatagram().data());
    });
    connect(&ctrl, &QUdpSocket::readyRead, this, [this] {
        while (ctrl.hasPendingDatagrams()) {
            const QNetworkDatagram datagram = ctrl.receiveDatagram();
            const QByteArray data = datagram.data();
            ctrlReceived.append(data);
            if (answerSdes && data.size() > 9 && quint8(data.at(9)) == 202)
                connectTo(datagram.senderAddress());
        }
    });
}

EchoLinkPeer::~EchoLinkPeer()
{
    gsm_destroy(encoder);
}

quint16 EchoLinkPeer::freePortPair(const QHostAddress& other)
{
    for (quint16 port = 40000 + quint16(QCoreApplication::applicationPid() % 1000) * 20; port < 65000; port += 2) {
        QUdpSocket probes[4];
        if (probes[0].bind(QHostAddress::LocalHost, port) && probes[1].bind(QHostAddress::LocalHost, port + 1) &&
            probes[2].bind(other, port) && probes[3].bind(other, port + 1))
            return port;
    }
    return 0;
}

QByteArray EchoLinkPeer::controlPacket(quint8 kind) const
{
    // Receiver report without blocks, then one SDES or BYE chunk, padded to whole words.
    QByteArray packet = QByteArray::fromHex("c0c9000100000000");
    packet += char(0xC1);
    packet += char(kind);
    packet += QByteArray(6, '\0');
    if (kind == 202) {
        packet += QByteArray("\x01\x08") + "CALLSIGN";
        packet += char(2) + QByteArray(1, char(sdesName.size())) + sdesName;
        packet += '\0';
    } else {
        packet += QByteArray("\x00\x07", 2) + "jan2002";
    }
    while (packet.size() % 4)
        packet += '\0';
    qToBigEndian<quint16>(quint16((packet.size() - 8) / 4 - 1), packet.data() + 10);
    return packet;
}

void EchoLinkPeer::connectTo(const QHostAddress& node)
{
    ctrl.writeDatagram(controlPacket(202), node, ctrlPort);
}

void EchoLinkPeer::sendBye(const QHostAddress& node)
{
    ctrl.writeDatagram(controlPacket(203), node, ctrlPort);
}

void EchoLinkPeer::sendAudio(const QHostAddress& node, const QByteArray& datagram)
{
    audio.writeDatagram(datagram, node, audioPort);
}

QByteArray EchoLinkPeer::gsmPacket(const QByteArray& pcm640)
{
    QByteArray packet = QByteArray::fromHex("c003") + QByteArray(10, '\0');
    qToBigEndian<quint16>(sequence++, packet.data() + 2);
    for (int frame = 0; frame < 4; ++frame) {
        gsm_signal samples[160];
        for (int i = 0; i < 160; ++i)
            samples[i] = qFromLittleEndian<qint16>(pcm640.constData() + 2 * (frame * 160 + i));
        gsm_byte out[33];
        gsm_encode(encoder, samples, out);
        packet.append(reinterpret_cast<const char*>(out), 33);
    }
    return packet;
}
