#include "SvxReflector.h"

#include <QMessageAuthenticationCode>
#include <QNetworkDatagram>
#include <QRandomGenerator>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslSocket>
#include <QtEndian>

#include <openssl/evp.h>

namespace {

enum : quint16 {
    Heartbeat = 1,
    ProtoVer = 5,
    ProtoVerDowngrade = 6,
    AuthChallenge = 10,
    AuthResponse = 11,
    AuthOk = 12,
    Error = 13,
    StartEncryptionRequest = 14,
    StartEncryption = 15,
    ClientCsrRequest = 16,
    ClientCsr = 17,
    ClientCert = 18,
    CaInfo = 19,
    CaBundleRequest = 20,
    CaBundle = 21,
    ServerInfo = 100,
    NodeJoined = 102,
    NodeLeft = 103,
    TalkerStart = 104,
    TalkerStop = 105,
    SelectTg = 106,
    TgMonitor = 107,
    NodeInfo = 111,
    StartUdpEncryption = 114,
};
enum : quint16 { UdpHeartbeat = 1, UdpAudio = 101, UdpFlush = 102 };

// Accepted connections are TLS-capable sockets that start in plain text.
class PlainFirstServer : public QTcpServer {
public:
    using QTcpServer::QTcpServer;

protected:
    void incomingConnection(qintptr fd) override
    {
        auto* s = new QSslSocket(this);
        s->setSocketDescriptor(fd);
        addPendingConnection(s);
    }
};

struct Reader {
    const QByteArray& d;
    qsizetype pos = 0;
    bool ok = true;
    quint16 u16()
    {
        if (d.size() - pos < 2) {
            ok = false;
            return 0;
        }
        pos += 2;
        return qFromBigEndian<quint16>(d.constData() + pos - 2);
    }
    quint32 u32()
    {
        const quint32 hi = u16();
        return (hi << 16) | u16();
    }
    QByteArray bytes()
    {
        const quint16 n = u16();
        if (!ok || d.size() - pos < n) {
            ok = false;
            return {};
        }
        pos += n;
        return d.mid(pos - n, n);
    }
};

QByteArray gcm(bool seal, const QByteArray& key, const QByteArray& iv, const QByteArray& aad, const QByteArray& in,
               QByteArray& tag, bool& ok)
{
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    auto u = [](const QByteArray& b) { return reinterpret_cast<const unsigned char*>(b.constData()); };
    QByteArray out(in.size(), '\0');
    auto* o = reinterpret_cast<unsigned char*>(out.data());
    int len = 0;
    ok = EVP_CipherInit_ex(ctx, EVP_aes_128_gcm(), nullptr, nullptr, nullptr, seal ? 1 : 0) == 1 &&
         EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_SET_IVLEN, int(iv.size()), nullptr) == 1 &&
         EVP_CipherInit_ex(ctx, nullptr, nullptr, u(key), u(iv), seal ? 1 : 0) == 1 &&
         EVP_CipherUpdate(ctx, nullptr, &len, u(aad), int(aad.size())) == 1 &&
         EVP_CipherUpdate(ctx, o, &len, u(in), int(in.size())) == 1;
    if (ok && !seal)
        ok = EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_SET_TAG, int(tag.size()), tag.data()) == 1;
    ok = ok && EVP_CipherFinal_ex(ctx, o + len, &len) == 1;
    if (ok && seal) {
        tag.resize(8);
        ok = EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_GET_TAG, 8, tag.data()) == 1;
    }
    EVP_CIPHER_CTX_free(ctx);
    return out;
}

} // namespace

SvxReflector::SvxReflector(QObject* parent) : QObject(parent), server(new PlainFirstServer(this))
{
    server->listen(QHostAddress::LocalHost, 0);
    udp.bind(QHostAddress::LocalHost, server->serverPort());
    connect(server, &QTcpServer::newConnection, this, &SvxReflector::onNewConnection);
    connect(&udp, &QUdpSocket::readyRead, this, &SvxReflector::onUdp);
    connect(&heartbeat, &QTimer::timeout, this, &SvxReflector::onHeartbeat);
    serverCert = authority.issueServer(QStringLiteral("IP:127.0.0.1"));
}

SvxReflector::~SvxReflector()
{
    for (Node* n : std::as_const(connected)) {
        n->socket->disconnect(this);
        delete n;
    }
}

SvxReflector::Node* SvxReflector::node(const QString& callsign) const
{
    for (Node* n : connected) {
        if (n->callsign == callsign && n->loggedIn)
            return n;
    }
    return nullptr;
}

void SvxReflector::onNewConnection()
{
    while (QTcpSocket* s = server->nextPendingConnection()) {
        auto* n = new Node;
        n->socket = qobject_cast<QSslSocket*>(s);
        connected.append(n);
        connect(s, &QTcpSocket::readyRead, this, [this, n] { onReadyRead(n); });
        connect(s, &QTcpSocket::disconnected, this, [this, n] { onDisconnected(n); });
        connect(n->socket, &QSslSocket::encrypted, this, [this, n] {
            const QSslCertificate cert = n->socket->peerCertificate();
            if (!cert.isNull() && authority.issued(cert.toPem())) {
                n->callsign = cert.subjectInfo(QSslCertificate::CommonName).value(0);
                login(n);
            } else {
                send(n, ClientCsrRequest);
            }
        });
    }
}

void SvxReflector::onDisconnected(Node* n)
{
    connected.removeOne(n);
    if (n->loggedIn)
        broadcast(NodeLeft, str(n->callsign));
    n->socket->deleteLater();
    delete n;
}

void SvxReflector::dropAll()
{
    const QList<Node*> all = connected;
    for (Node* n : all)
        n->socket->abort();
}

void SvxReflector::send(Node* n, quint16 type, const QByteArray& payload)
{
    if (!tcpSilent)
        n->socket->write(frame(type, payload));
}

void SvxReflector::broadcast(quint16 type, const QByteArray& payload)
{
    for (Node* n : std::as_const(connected)) {
        if (n->loggedIn)
            send(n, type, payload);
    }
}

void SvxReflector::onReadyRead(Node* n)
{
    n->rx += n->socket->readAll();
    while (n->rx.size() >= 6) {
        const quint32 len = qFromBigEndian<quint32>(n->rx.constData());
        if (len < 2 || len > 0x100000) {
            n->socket->abort();
            return;
        }
        if (n->rx.size() < 4 + qsizetype(len))
            break;
        Frame f{qFromBigEndian<quint16>(n->rx.constData() + 4), n->rx.mid(6, qsizetype(len) - 2)};
        n->rx.remove(0, 4 + qsizetype(len));
        receivedFrames.append(f);
        handle(n, f);
        if (!connected.contains(n))
            return;
    }
}

QByteArray SvxReflector::challengeFor(Node* n)
{
    n->challenge = QByteArray(20, '\0');
    for (char& c : n->challenge)
        c = char(QRandomGenerator::global()->bounded(256));
    return u16(20) + n->challenge;
}

void SvxReflector::handle(Node* n, const Frame& f)
{
    Reader r{f.payload};
    switch (f.type) {
    case Heartbeat:
        return send(n, Heartbeat);
    case ProtoVer:
        n->version = r.u16();
        if (n->version > highestVersion)
            return send(n, ProtoVerDowngrade, u16(highestVersion) + u16(0));
        if (n->version == 2)
            return send(n, AuthChallenge, challengeFor(n));
        if (n->version == 3)
            return send(n, CaInfo, u16(0));
        send(n, Error, str(QStringLiteral("Unsupported protocol version")));
        n->socket->disconnectFromHost();
        return;
    case AuthResponse:
        return handleAuthResponse(n, f.payload);
    case CaBundleRequest:
        return send(n, CaBundle, str(QString::fromUtf8(authority.certPem())));
    case StartEncryptionRequest: {
        send(n, StartEncryption);
        QSslConfiguration conf = n->socket->sslConfiguration();
        conf.setLocalCertificate(QSslCertificate(serverCert.certPem));
        conf.setPrivateKey(QSslKey(serverCert.keyPem, QSsl::Rsa));
        conf.setPeerVerifyMode(QSslSocket::QueryPeer);
        n->socket->setSslConfiguration(conf);
        n->socket->startServerEncryption();
        return;
    }
    case ClientCsr:
        n->csr = r.bytes();
        return send(n, AuthChallenge, challengeFor(n));
    case SelectTg:
        n->tg = r.u32();
        n->selections.append(n->tg);
        return;
    case TgMonitor: {
        n->monitored.clear();
        const quint16 count = r.u16();
        for (quint16 i = 0; i < count && r.ok; ++i)
            n->monitored.append(r.u32());
        return;
    }
    case NodeInfo:
        if (n->version == 3) {
            n->ivRand = r.bytes();
            n->udpKey = r.bytes();
            n->nodeInfo = QString::fromUtf8(r.bytes());
            return send(n, StartUdpEncryption);
        }
        n->nodeInfo = QString::fromUtf8(r.bytes());
        return;
    default:
        return;
    }
}

void SvxReflector::handleAuthResponse(Node* n, const QByteArray& payload)
{
    Reader r{payload};
    const QString callsign = QString::fromUtf8(r.bytes());
    const QByteArray digest = r.bytes();
    const auto pw = passwords.constFind(callsign);
    const bool good = r.ok && !n->challenge.isEmpty() && pw != passwords.cend() &&
                      digest == QMessageAuthenticationCode::hash(n->challenge, pw->toUtf8(), QCryptographicHash::Sha1);
    n->challenge.clear();
    if (!good) {
        send(n, Error, str(QStringLiteral("Access denied")));
        n->socket->disconnectFromHost();
        return;
    }
    n->callsign = callsign;
    if (n->version == 3) {
        // Enrolment: the password vouches for the request; the node logs in with the
        // certificate on its next connection.
        send(n, ClientCert, str(QString::fromUtf8(authority.signCsr(n->csr))));
        return;
    }
    login(n);
}

void SvxReflector::login(Node* n)
{
    n->loggedIn = true;
    n->clientId = nextClientId++;
    QByteArray list = u16(0);
    quint16 count = 0;
    for (const Node* other : std::as_const(connected)) {
        if (other->loggedIn) {
            list += str(other->callsign);
            ++count;
        }
    }
    QByteArray codecList = u16(quint16(codecs.size()));
    for (const QString& c : std::as_const(codecs))
        codecList += str(c);
    send(n, AuthOk);
    send(n, ServerInfo, u16(0) + u16(n->clientId) + u16(count) + list.mid(2) + codecList);
    for (Node* other : std::as_const(connected)) {
        if (other != n && other->loggedIn)
            send(other, NodeJoined, str(n->callsign));
    }
    emit nodeLoggedIn(n->callsign);
}

void SvxReflector::onUdp()
{
    while (udp.hasPendingDatagrams()) {
        const QNetworkDatagram d = udp.receiveDatagram();
        const QByteArray data = d.data();
        receivedDatagrams.append(data);
        Node* from = nullptr;
        QByteArray inner;
        for (Node* n : std::as_const(connected)) {
            if (n->loggedIn && n->udpPort == d.senderPort() && n->udpAddress.isEqual(d.senderAddress()))
                from = n;
        }
        if (data.size() >= 6 && (!from || from->version == 2)) {
            // Version 2: type, client id, sequence in clear.
            const quint16 id = qFromBigEndian<quint16>(data.constData() + 2);
            for (Node* n : std::as_const(connected)) {
                if (n->loggedIn && n->version == 2 && n->clientId == id)
                    from = n;
            }
            if (from && from->version == 2)
                inner = data.left(2) + data.mid(6);
        }
        if (!from || from->version == 3) {
            // Version 3: a node we don't know by address yet sends the initial datagram with
            // its client id in the clear after a zero counter.
            const bool initial = !from;
            const int header = initial ? 6 : 4;
            if (data.size() < header + 8)
                continue;
            if (initial) {
                const quint16 id = qFromBigEndian<quint16>(data.constData() + 4);
                for (Node* n : std::as_const(connected)) {
                    if (n->loggedIn && n->version == 3 && n->clientId == id && n->udpKey.size() == 16)
                        from = n;
                }
            }
            if (!from)
                continue;
            const QByteArray iv = from->ivRand + u16(from->clientId) + data.left(4);
            QByteArray tag = data.mid(header, 8);
            bool ok = false;
            inner = gcm(false, from->udpKey, iv, data.left(header), data.mid(header + 8), tag, ok);
            const quint32 counter = qFromBigEndian<quint32>(data.constData());
            if (!ok || (!initial && counter <= from->rxCounter))
                continue;
            from->rxCounter = counter;
        }
        if (!from || inner.size() < 2)
            continue;
        from->udpAddress = d.senderAddress();
        from->udpPort = quint16(d.senderPort());
        handleUdp(from, qFromBigEndian<quint16>(inner.constData()), inner.mid(2));
    }
}

void SvxReflector::handleUdp(Node* n, quint16 type, const QByteArray& payload)
{
    if (type == UdpHeartbeat)
        return sendUdp(n, UdpHeartbeat, {});
    if (type == UdpFlush) {
        if (talkers.value(n->tg) == n->callsign) {
            talkers.remove(n->tg);
            talkerLog.append(QStringLiteral("stop %1 %2").arg(n->tg).arg(n->callsign));
            broadcast(TalkerStop, u32(n->tg) + str(n->callsign));
        }
        return;
    }
    if (type != UdpAudio)
        return;
    Reader r{payload};
    receivedAudio.append(r.bytes());
    if (n->tg == 0)
        return;
    if (!talkers.contains(n->tg)) {
        talkers.insert(n->tg, n->callsign);
        talkerLog.append(QStringLiteral("start %1 %2").arg(n->tg).arg(n->callsign));
        broadcast(TalkerStart, u32(n->tg) + str(n->callsign));
    }
    if (talkers.value(n->tg) != n->callsign)
        return;
    for (Node* other : std::as_const(connected)) {
        if (other != n && other->loggedIn && other->tg == n->tg)
            sendUdp(other, UdpAudio, payload);
    }
}

void SvxReflector::sendAudio(Node* n, const QByteArray& opusPacket)
{
    sendUdp(n, UdpAudio, u16(quint16(opusPacket.size())) + opusPacket);
}

void SvxReflector::sendUdp(Node* n, quint16 type, const QByteArray& payload)
{
    if (udpSilent || n->udpPort == 0)
        return;
    if (n->version == 2) {
        n->sentDatagrams.append(u16(type) + u16(n->clientId) + u16(udpSeq++) + payload);
        udp.writeDatagram(n->sentDatagrams.last(), n->udpAddress, n->udpPort);
        return;
    }
    const QByteArray counter = u32(n->txCounter++);
    QByteArray tag;
    bool ok = false;
    const QByteArray body = gcm(true, n->udpKey, n->ivRand + u16(0) + counter, counter, u16(type) + payload, tag, ok);
    if (!ok)
        return;
    n->sentDatagrams.append(counter + tag + body);
    udp.writeDatagram(n->sentDatagrams.last(), n->udpAddress, n->udpPort);
}

void SvxReflector::onHeartbeat()
{
    for (Node* n : std::as_const(connected)) {
        if (!n->loggedIn)
            continue;
        send(n, Heartbeat);
        sendUdp(n, UdpHeartbeat, {});
    }
}
