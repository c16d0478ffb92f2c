#include "HomebrewMaster.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QRandomGenerator>
#include <QtEndian>

namespace {

QByteArray be32(quint32 value)
{
    char bytes[4];
    qToBigEndian(value, bytes);
    return QByteArray(bytes, 4);
}

} // namespace

HomebrewMaster::HomebrewMaster(QObject* parent) : QObject(parent)
{
    connect(&socket, &QUdpSocket::readyRead, this, [this] { onReadyRead(); });
}

bool HomebrewMaster::listen()
{
    return socket.bind(QHostAddress::LocalHost, 0);
}

void HomebrewMaster::addPeer(quint32 peerId, const QString& password)
{
    Peer& p = peers[peerId];
    p.password = password;
    p.known = true;
}

bool HomebrewMaster::isLoggedIn(quint32 peerId) const
{
    const auto it = peers.constFind(peerId);
    return it != peers.cend() && it->connected && it->stage == Stage::Configured;
}

void HomebrewMaster::closePeer(quint32 peerId)
{
    const Peer& p = peers.value(peerId);
    reply(p.address, p.port, "MSTCL", peerId);
    peers[peerId].connected = false;
}

void HomebrewMaster::sendToPeer(quint32 peerId, const QByteArray& datagram)
{
    const Peer& p = peers.value(peerId);
    socket.writeDatagram(datagram, p.address, p.port);
}

void HomebrewMaster::sendTo(quint16 localPort, const QByteArray& datagram)
{
    socket.writeDatagram(datagram, QHostAddress::LocalHost, localPort);
}

QList<HomebrewMaster::Datagram> HomebrewMaster::receivedWith(const QByteArray& tag) const
{
    QList<Datagram> out;
    for (const Datagram& d : log) {
        if (d.data.startsWith(tag) && !(tag == "RPTC" && d.data.startsWith("RPTCL")))
            out.append(d);
    }
    return out;
}

qint64 HomebrewMaster::now() const
{
    return clock ? clock() : QDateTime::currentMSecsSinceEpoch();
}

void HomebrewMaster::onReadyRead()
{
    while (socket.hasPendingDatagrams()) {
        QByteArray data(qMax<qint64>(socket.pendingDatagramSize(), 0), Qt::Uninitialized);
        QHostAddress from;
        quint16 fromPort = 0;
        const qint64 n = socket.readDatagram(data.data(), data.size(), &from, &fromPort);
        if (n < 0)
            continue;
        data.truncate(n);
        log.append({data, fromPort, now()});
        emit datagramReceived(data);
        if (!silent)
            handle(data, from, fromPort);
    }
}

void HomebrewMaster::reply(const QHostAddress& to, quint16 toPort, const QByteArray& tag, quint32 peerId)
{
    socket.writeDatagram(tag + be32(peerId), to, toPort);
}

void HomebrewMaster::handle(const QByteArray& data, const QHostAddress& from, quint16 fromPort)
{
    // Every client message carries its peer-ID right after a tag of 4 to 7 letters.
    const auto idAt = [&](int offset) { return qFromBigEndian<quint32>(data.constData() + offset); };

    if (data.startsWith("DMRD") && data.size() >= 15) {
        const quint32 id = idAt(11);
        if (isLoggedIn(id))
            relay(data, id);
        return;
    }
    if (data.startsWith("RPTL") && data.size() == 8) {
        const quint32 id = idAt(4);
        if (!peers.value(id).known) {
            reply(from, fromPort, "MSTNAK", id);
            return;
        }
        Peer& p = peers[id];
        p.address = from;
        p.port = fromPort;
        p.connected = true;
        p.stage = Stage::Challenged;
        p.salt = be32(QRandomGenerator::global()->generate());
        socket.writeDatagram(QByteArray("RPTACK") + p.salt, from, fromPort);
        return;
    }
    if (data.startsWith("RPTK") && data.size() == 40) {
        const quint32 id = idAt(4);
        Peer& p = peers[id];
        const QByteArray expected = QCryptographicHash::hash(p.salt + p.password.toUtf8(), QCryptographicHash::Sha256);
        if (!p.connected || p.stage != Stage::Challenged || data.mid(8) != expected) {
            p.connected = false;
            reply(from, fromPort, "MSTNAK", id);
            return;
        }
        p.stage = Stage::Authenticated;
        reply(from, fromPort, "RPTACK", id);
        return;
    }
    if (data.startsWith("RPTCL") && data.size() == 9) {
        const quint32 id = idAt(5);
        peers[id].connected = false;
        reply(from, fromPort, "MSTNAK", id);
        return;
    }
    if (data.startsWith("RPTC") && data.size() >= 8) {
        const quint32 id = idAt(4);
        Peer& p = peers[id];
        if (!p.connected || p.stage == Stage::Challenged || data.size() != 302) {
            p.connected = false;
            reply(from, fromPort, "MSTNAK", id);
            return;
        }
        p.stage = Stage::Configured;
        p.config = data;
        reply(from, fromPort, "RPTACK", id);
        return;
    }
    if (data.startsWith("RPTO") && data.size() >= 8) {
        const quint32 id = idAt(4);
        if (!isLoggedIn(id)) {
            reply(from, fromPort, "MSTNAK", id);
            return;
        }
        peers[id].options = data.mid(8);
        reply(from, fromPort, "RPTACK", id);
        return;
    }
    if (data.startsWith("RPTPING") && data.size() == 11) {
        const quint32 id = idAt(7);
        reply(from, fromPort, isLoggedIn(id) ? "MSTPONG" : "MSTNAK", id);
    }
}

void HomebrewMaster::relay(const QByteArray& dmrd, quint32 senderId)
{
    for (auto it = peers.cbegin(); it != peers.cend(); ++it) {
        if (it.key() == senderId || !isLoggedIn(it.key()))
            continue;
        QByteArray copy = dmrd;
        copy.replace(11, 4, be32(it.key()));
        socket.writeDatagram(copy, it->address, it->port);
    }
}
