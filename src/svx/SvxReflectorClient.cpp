#include "svx/SvxReflectorClient.h"

#include "svx/SvxSrv.h"
#include "svx/SvxWire.h"

#include <QDebug>
#include <QDnsLookup>
#include <QFile>
#include <QFileInfo>
#include <QNetworkDatagram>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslSocket>
#include <QTimer>
#include <QUdpSocket>
#include <QtEndian>

#include <algorithm>

namespace zl::svx {

namespace {

constexpr int kTcpHeartbeatAfter = 9; // a heartbeat follows ten silent seconds
constexpr int kTcpTimeoutAfter = 14;
constexpr int kUdpTimeoutAfter = 59;
constexpr qint64 kDropLogIntervalMs = 10000;

} // namespace

SvxReflectorClient::SvxReflectorClient(QObject* parent)
    : QObject(parent), ctrlSocket(new QSslSocket(this)), udpSocket(new QUdpSocket(this)),
      heartbeatTimer(new QTimer(this)), reconnectTimer(new QTimer(this))
{
    dropClock.start();
    heartbeatTimer->setInterval(1000);
    reconnectTimer->setInterval(10000);
    reconnectTimer->setSingleShot(true);
    connect(heartbeatTimer, &QTimer::timeout, this, &SvxReflectorClient::onHeartbeatTick);
    connect(reconnectTimer, &QTimer::timeout, this, &SvxReflectorClient::onReconnectTick);
    connect(ctrlSocket, &QSslSocket::connected, this, &SvxReflectorClient::onCtrlConnected);
    connect(ctrlSocket, &QSslSocket::readyRead, this, &SvxReflectorClient::onCtrlReadyRead);
    connect(ctrlSocket, &QSslSocket::disconnected, this, &SvxReflectorClient::onCtrlDisconnected);
    connect(ctrlSocket, &QSslSocket::errorOccurred, this, &SvxReflectorClient::onCtrlError);
    connect(ctrlSocket, &QSslSocket::encrypted, this, &SvxReflectorClient::onCtrlEncrypted);
    connect(ctrlSocket, &QSslSocket::sslErrors, this, &SvxReflectorClient::onSslErrors);
    connect(udpSocket, &QUdpSocket::readyRead, this, &SvxReflectorClient::onUdpReadyRead);
}

SvxReflectorClient::~SvxReflectorClient()
{
    running = false;
    ctrlSocket->disconnect(this);
    ctrlSocket->abort();
}

void SvxReflectorClient::setServer(const QString& h, quint16 p)
{
    host = h.trimmed();
    port = p;
}

void SvxReflectorClient::setCallsign(const QString& cs)
{
    callsign = cs.trimmed().toUpper();
}

void SvxReflectorClient::setUdpHeartbeat(int seconds)
{
    udpHeartbeatSec = (seconds >= 1 && seconds <= 120) ? seconds : 15;
}

void SvxReflectorClient::setProtocolV3(bool on)
{
    wantV3 = on;
    useV3 = on;
    useClientCert = on;
}

void SvxReflectorClient::setAutoPki(bool on, const QString& dir)
{
    autoPki = on;
    pkiDir = dir;
}

void SvxReflectorClient::setCertFields(const QString& email, const QString& description)
{
    certEmail = email;
    certDesc = description;
}

void SvxReflectorClient::setTlsFiles(const QString& caFile, const QString& certFile, const QString& keyFile)
{
    tlsCaFile = caFile.trimmed();
    tlsCertFile = certFile.trimmed();
    tlsKeyFile = keyFile.trimmed();
}

void SvxReflectorClient::setTiming(const Timing& t)
{
    heartbeatTimer->setInterval(t.tickMs);
    reconnectTimer->setInterval(t.reconnectMs);
}

QStringList SvxReflectorClient::nodes() const
{
    QStringList list(nodeSet.cbegin(), nodeSet.cend());
    list.sort();
    return list;
}

QString SvxReflectorClient::statusText() const
{
    switch (currentState) {
    case State::Disconnected:
        return QStringLiteral("idle");
    case State::Connecting:
        return QStringLiteral("connecting");
    case State::Authenticating:
        return QStringLiteral("authenticating");
    case State::Connected:
        return QStringLiteral("connected");
    case State::Failed:
        break;
    }
    return lastError.isEmpty() ? QStringLiteral("failed") : lastError;
}

void SvxReflectorClient::setState(State s)
{
    if (s == currentState)
        return;
    currentState = s;
    emit stateChanged(s);
}

void SvxReflectorClient::fail(const QString& reason)
{
    lastError = reason;
    setState(State::Failed);
    emit errorReported(reason);
}

void SvxReflectorClient::setNodes(const QSet<QString>& list)
{
    nodeSet = list;
    nodeSet.remove(QString());
    qInfo() << "SvxReflectorClient: node list now" << nodeSet.size() << "nodes";
    emit nodesUpdated(nodes());
}

void SvxReflectorClient::start()
{
    if (callsign.isEmpty())
        return fail(QStringLiteral("no callsign"));
    if (!wantV3 && authKey.isEmpty())
        return fail(QStringLiteral("no auth key"));
    if (host.isEmpty() || port == 0)
        return fail(QStringLiteral("no server"));

    running = true;
    if (!nodeSet.isEmpty()) {
        nodeSet.clear();
        emit nodesUpdated({});
    }
    resetLinkState();
    idleTg = 0;

    if (useV3 && useClientCert && autoPki) {
        pki.setup(pkiDir, callsign);
        pki.setCertFields(certEmail, certDesc);
        if (!certName.isEmpty())
            pki.setCommonName(certName);
        if (!pki.ensureKeyAndCsr())
            qWarning() << "SvxReflectorClient: could not generate PKI key/CSR in" << pkiDir;
    }

    ticksSinceTcpTx = 0;
    ticksSinceUdpTx = 0;
    if (udpSocket->state() != QAbstractSocket::BoundState)
        udpSocket->bind(QHostAddress::AnyIPv4, 0);
    if (ctrlSocket->state() != QAbstractSocket::UnconnectedState)
        ctrlSocket->abort();
    setState(State::Connecting);
    resolveAndConnect();
}

void SvxReflectorClient::stop()
{
    running = false;
    heartbeatTimer->stop();
    reconnectTimer->stop();
    if (ctrlSocket->state() != QAbstractSocket::UnconnectedState)
        ctrlSocket->disconnectFromHost();
    if (ctrlSocket->state() != QAbstractSocket::UnconnectedState)
        ctrlSocket->abort();
    setState(State::Disconnected);
}

// Everything that belongs to one connection. A reflector that restarted knows nothing of
// us: the UDP path is verified again, and the talk group and monitor list are sent anew.
void SvxReflectorClient::resetLinkState()
{
    rxBuffer.clear();
    tlsUp = false;
    clientId = 0;
    udpSeq = 0;
    udpEncryptionStarted = false;
    udpVerified = false;
    replayWindow.reset();
    useV3 = wantV3;
    useClientCert = wantV3;
    firstAudioLogged = false;
    holdLeftSec = 0;
    currentTg = 0;
    udpCounter = 1;
}

void SvxReflectorClient::resolveAndConnect()
{
    reasonFromReflector = false;
    resetLinkState();
    // An address literal has no SRV records; asking for them would only delay the connect.
    if (host.isEmpty() || !QHostAddress(host).isNull())
        return connectHostPort(host, port);
    if (dnsLookup) {
        dnsLookup->disconnect(this);
        dnsLookup->abort();
        dnsLookup->deleteLater();
    }
    auto* lookup = new QDnsLookup(QDnsLookup::SRV, QStringLiteral("_svxreflector._tcp.%1").arg(host), this);
    dnsLookup = lookup;
    connect(lookup, &QDnsLookup::finished, this, [this, lookup] {
        lookup->deleteLater();
        if (lookup != dnsLookup)
            return;
        QList<SrvRecord> records;
        if (lookup->error() == QDnsLookup::NoError) {
            for (const QDnsServiceRecord& r : lookup->serviceRecords())
                records.append({r.target(), r.port(), r.priority(), r.weight()});
        }
        const std::optional<SrvRecord> best = pickSrvRecord(records);
        if (!best)
            return connectHostPort(host, port);
        QString target = best->target;
        if (target.endsWith(u'.'))
            target.chop(1);
        if (best->port != 0)
            port = best->port;
        if (target.isEmpty())
            target = host;
        qInfo() << "SvxReflectorClient: SRV _svxreflector._tcp." << host << "->" << target << port << "(prio"
                << best->priority << best->weight;
        connectHostPort(target, port);
    });
    lookup->lookup();
}

void SvxReflectorClient::connectHostPort(const QString& targetHost, quint16 targetPort)
{
    if (!running || ctrlSocket->state() != QAbstractSocket::UnconnectedState)
        return;
    qInfo() << "SvxReflectorClient: connecting to" << targetHost << targetPort << "as" << callsign;
    ctrlSocket->connectToHost(targetHost, targetPort, QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
}

void SvxReflectorClient::onCtrlConnected()
{
    peerAddress = ctrlSocket->peerAddress();
    setState(State::Authenticating);
    const quint16 major = useV3 ? 3 : 2;
    qInfo().nospace() << "SvxReflectorClient: TCP connected, sending ProtoVer " << major << "." << 0;
    sendCtrl(msg::ProtoVer, encodeProtoVer(major, 0));
}

void SvxReflectorClient::sendCtrl(quint16 type, const QByteArray& payload)
{
    if (ctrlSocket->state() != QAbstractSocket::ConnectedState)
        return;
    ctrlSocket->write(encodeFrame(type, payload));
    ticksSinceTcpTx = 0;
}

void SvxReflectorClient::sendSelectTg(quint32 tg)
{
    sendCtrl(msg::SelectTg, encodeSelectTg(tg));
}

void SvxReflectorClient::onCtrlReadyRead()
{
    rxBuffer.append(ctrlSocket->readAll());
    ticksSinceTcpRx = 0;
    QList<Frame> frames;
    const qsizetype used = takeFrames(rxBuffer, frames);
    for (const Frame& f : std::as_const(frames))
        dispatch(f);
    rxBuffer.remove(0, used);
}

void SvxReflectorClient::dispatch(const Frame& frame)
{
    switch (frame.type) {
    case msg::AuthChallenge:
        return handleAuthChallenge(frame.payload);
    case msg::AuthOk:
        qInfo() << "SvxReflectorClient: auth OK";
        return;
    case msg::Error:
        return handleError(frame.payload);
    case msg::ProtoVerDowngrade:
        return handleProtoVerDowngrade(frame.payload);
    case msg::CaInfo:
        if (autoPki && !QFileInfo::exists(pki.caBundleFile()))
            return sendCtrl(msg::CaBundleRequest);
        return sendCtrl(msg::StartEncryptionRequest);
    case msg::CaBundle:
        return handleCaBundle(frame.payload);
    case msg::StartEncryption:
        return startTls();
    case msg::ClientCsrRequest:
        return handleClientCsrRequest();
    case msg::ClientCert:
        return handleClientCert(frame.payload);
    case msg::ServerInfo:
        return handleServerInfo(frame.payload);
    case msg::NodeList:
    case msg::NodeJoined:
    case msg::NodeLeft:
        return handleNodeChange(frame.type, frame.payload);
    case msg::TalkerStart:
    case msg::TalkerStop:
        return handleTalker(frame.type, frame.payload);
    case msg::StartUdpEncryption:
        qInfo() << "SvxReflectorClient: StartUdpEncryption received — sending initial encrypted UDP heartbeat to"
                << peerAddress.toString() << port << "client_id=" << clientId;
        sendUdp(udp::Heartbeat, {}, true);
        udpEncryptionStarted = true;
        return;
    default:
        return; // heartbeats and unknown types: arrival alone counts
    }
}

void SvxReflectorClient::handleAuthChallenge(const QByteArray& payload)
{
    const std::optional<QByteArray> challenge = parseAuthChallenge(payload);
    if (!challenge)
        return;
    if (authKey.isEmpty()) {
        lastError = useV3 ? QStringLiteral("certificate not signed yet — set the auth key (password) so the reflector "
                                           "can enroll this node, or have the admin sign the CSR")
                          : QStringLiteral("password challenge but no auth key set");
        reasonFromReflector = true;
        qWarning() << "SvxReflectorClient:" << lastError;
        emit errorReported(lastError);
        return;
    }
    sendCtrl(msg::AuthResponse, encodeAuthResponse(callsign, hmacSha1(authKey.toUtf8(), *challenge)));
    qInfo() << "SvxReflectorClient: answered auth challenge as" << callsign
            << (useV3 ? "(v3 certificate enrollment)" : "(v2 login)");
}

void SvxReflectorClient::handleProtoVerDowngrade(const QByteArray& payload)
{
    const std::optional<quint16> major = parseProtoVerDowngrade(payload);
    if (!major || !useV3 || *major >= 3)
        return;
    if (authKey.isEmpty()) {
        // Every new attempt would end the same way: stop until the settings change.
        running = false;
        ctrlSocket->abort();
        qWarning() << "SvxReflectorClient: reflector asked for protocol" << *major << "and no auth key is set";
        return fail(QStringLiteral("reflector speaks only protocol v2 — set an auth key"));
    }
    useV3 = false;
    useClientCert = false;
    qInfo() << "SvxReflectorClient: reflector speaks only protocol v2 — logging in again with v2 and the auth key";
    sendCtrl(msg::ProtoVer, encodeProtoVer(2, 0));
}

void SvxReflectorClient::handleError(const QByteArray& payload)
{
    lastError = parseError(payload);
    reasonFromReflector = true;
    qWarning() << "SvxReflectorClient: server error:" << lastError;
    emit errorReported(lastError);
    setState(State::Failed);
}

void SvxReflectorClient::handleCaBundle(const QByteArray& payload)
{
    const std::optional<QString> pem = parseString(payload);
    if (autoPki && pem)
        pki.saveCaBundle(*pem);
    sendCtrl(msg::StartEncryptionRequest);
}

void SvxReflectorClient::handleClientCsrRequest()
{
    if (!autoPki) {
        qInfo() << "SvxReflectorClient: reflector requested a CSR but auto-PKI is off; enable it or use password auth";
        return;
    }
    const QString csr = pki.readCsr();
    if (csr.isEmpty())
        return;
    sendCtrl(msg::ClientCsr, encodeClientCsr(csr));
    qInfo() << "SvxReflectorClient: sent CSR for" << callsign << "— waiting for the reflector admin to sign it";
}

void SvxReflectorClient::handleClientCert(const QByteArray& payload)
{
    const std::optional<QString> pem = parseString(payload);
    if (!autoPki || !pem || !pki.saveSignedCert(*pem))
        return;
    qInfo() << "SvxReflectorClient: signed certificate received and saved — reconnect to authenticate with it";
    emit errorReported(QStringLiteral("Certificate signed by the reflector — reconnect to use it"));
}

bool SvxReflectorClient::useCaBundleFile() const
{
    return autoPki && QFileInfo::exists(pki.caBundleFile());
}

void SvxReflectorClient::startTls()
{
    QSslConfiguration conf = ctrlSocket->sslConfiguration();
    const QString caFile = useCaBundleFile() ? pki.caBundleFile() : tlsCaFile;
    const bool managed = autoPki && pki.hasSignedCert();
    const QString certFile = managed ? pki.certFile() : tlsCertFile;
    const QString keyFile = managed ? pki.keyFile() : tlsKeyFile;

    QList<QSslCertificate> cas;
    if (!caFile.isEmpty())
        cas = QSslCertificate::fromPath(caFile, QSsl::Pem);
    QList<QSslCertificate> chain;
    if (!certFile.isEmpty())
        chain = QSslCertificate::fromPath(certFile, QSsl::Pem);
    if (chain.size() > 1)
        cas.append(chain.mid(1));
    if (!cas.isEmpty())
        conf.setCaCertificates(cas);
    if (useClientCert && !chain.isEmpty() && !keyFile.isEmpty()) {
        conf.setLocalCertificate(chain.first());
        if (chain.size() > 1)
            conf.setLocalCertificateChain(chain);
        QFile f(keyFile);
        QSslKey key;
        if (f.open(QIODevice::ReadOnly))
            key = QSslKey(&f, QSsl::Rsa, QSsl::Pem, QSsl::PrivateKey);
        if (key.isNull()) {
            qWarning() << "SvxReflectorClient: failed to load private key" << keyFile;
        } else {
            conf.setPrivateKey(key);
            qInfo() << "SvxReflectorClient: presenting client certificate CN="
                    << chain.first().subjectInfo(QSslCertificate::CommonName).value(0) << "chain=" << chain.size();
        }
    } else if (useClientCert) {
        qInfo() << "SvxReflectorClient: no signed client certificate yet — enrolling (CSR/auth challenge)";
    }
    ctrlSocket->setSslConfiguration(conf);
    ctrlSocket->startClientEncryption();
}

void SvxReflectorClient::onCtrlEncrypted()
{
    tlsUp = true;
    qInfo() << "SvxReflectorClient: TLS established";
}

void SvxReflectorClient::onSslErrors(const QList<QSslError>& errors)
{
    for (const QSslError& e : errors)
        qWarning() << "SvxReflectorClient: TLS error:" << e.errorString();
}

void SvxReflectorClient::handleServerInfo(const QByteArray& payload)
{
    const std::optional<ServerInfo> info = parseServerInfo(payload);
    if (!info)
        return;
    clientId = info->clientId;
    setNodes(QSet<QString>(info->nodes.cbegin(), info->nodes.cend()));
    if (!info->codecs.isEmpty() && !info->codecs.contains(QStringLiteral("OPUS"))) {
        lastError = QStringLiteral("reflector does not offer the Opus codec (zephyrlake only supports Opus)");
        reasonFromReflector = true;
        qWarning() << "SvxReflectorClient:" << lastError << "— offered:" << info->codecs.join(u',');
        emit errorReported(lastError);
        return;
    }
    qInfo() << "SvxReflectorClient: server info, client_id=" << clientId << "codec=OPUS";
    nodeInfoStep();
}

void SvxReflectorClient::nodeInfoStep()
{
    if (!useV3 && !nodeInfoJson.isEmpty())
        sendCtrl(msg::NodeInfo, encodeNodeInfoV2(nodeInfoJson));
    encoder = makeOpusEncoder();
    decoder = makeOpusDecoder();
    ticksSinceUdpRx = 0;
    if (useV3) {
        udpCipher.generate();
        udpCipher.setClientId(clientId);
        const QString json = nodeInfoJson.trimmed().isEmpty() ? QStringLiteral("{}") : nodeInfoJson.trimmed();
        sendCtrl(msg::NodeInfo, encodeNodeInfoV3(udpCipher.ivRandBytes(), udpCipher.keyBytes(), json));
        qInfo() << "SvxReflectorClient: sent v3 NodeInfo (udp key + iv_rand) — awaiting StartUdpEncryption";
    } else {
        sendUdp(udp::Heartbeat, {});
    }
    if (!heartbeatTimer->isActive())
        heartbeatTimer->start();
}

void SvxReflectorClient::handleNodeChange(quint16 type, const QByteArray& payload)
{
    if (type == msg::NodeList) {
        const std::optional<QStringList> list = parseNodeList(payload);
        if (list)
            setNodes(QSet<QString>(list->cbegin(), list->cend()));
        return;
    }
    const std::optional<QString> cs = parseString(payload);
    if (!cs || cs->isEmpty())
        return;
    QSet<QString> next = nodeSet;
    if (type == msg::NodeJoined)
        next.insert(*cs);
    else
        next.remove(*cs);
    setNodes(next);
}

void SvxReflectorClient::handleTalker(quint16 type, const QByteArray& payload)
{
    const std::optional<Talker> t = parseTalker(payload);
    if (!t)
        return;
    if (type == msg::TalkerStop) {
        emit talkerStop(t->tg, t->callsign);
        return;
    }
    emit talkerStart(t->tg, t->callsign);
    monitorFollow(t->tg);
}

void SvxReflectorClient::monitorFollow(quint32 tg)
{
    if (currentState != State::Connected || hangTimeSec < 1 || tg == 0)
        return;
    if (tg == currentTg) {
        holdLeftSec = hangTimeSec;
        return;
    }
    if (!monitorTgs.contains(tg) || holdLeftSec > 0)
        return; // the talk group being held goes first
    currentTg = tg;
    sendSelectTg(tg);
    holdLeftSec = hangTimeSec;
    qInfo() << "SvxReflectorClient: monitor follow -> TG" << tg << "(hang" << hangTimeSec << "s)";
}

void SvxReflectorClient::setTalking(bool on)
{
    if (on == talking)
        return;
    talking = on;
    if (on) {
        if (currentState == State::Connected && txTg != 0 && txTg != currentTg) {
            currentTg = txTg;
            holdLeftSec = 0;
            sendSelectTg(currentTg);
        }
        return;
    }
    txPcm16k.clear();
    prevMicSample = 0;
    if (currentState != State::Connected)
        return;
    sendUdp(udp::FlushSamples, {});
    if (currentTg == idleTg)
        return;
    // The talk group of our own transmission is held for the hang time from its end, so
    // that an answer finds us there.
    if (hangTimeSec > 0) {
        holdLeftSec = hangTimeSec;
    } else {
        currentTg = idleTg;
        sendSelectTg(currentTg);
    }
}

void SvxReflectorClient::pushMicPcm(const QByteArray& pcm160)
{
    if (currentState != State::Connected || !talking || !encoder)
        return;
    txPcm16k.append(upsampleTo16k(pcm160, prevMicSample));
    constexpr qsizetype kFrameBytes = kOpusFrameSamples * 2;
    qsizetype used = 0;
    while (txPcm16k.size() - used >= kFrameBytes) {
        qint16 frame[kOpusFrameSamples];
        memcpy(frame, txPcm16k.constData() + used, sizeof frame);
        used += kFrameBytes;
        const QByteArray packet = encodeFrame16k(encoder.get(), frame);
        if (!packet.isEmpty())
            sendUdp(udp::Audio, audioPayload(packet));
    }
    txPcm16k.remove(0, used);
}

void SvxReflectorClient::sendUdp(quint16 type, const QByteArray& payload, bool initial)
{
    if (peerAddress.isNull())
        return;
    if (!useV3) {
        udpSocket->writeDatagram(encodeUdpV2(type, clientId, udpSeq, payload), peerAddress, port);
        ++udpSeq;
        ticksSinceUdpTx = 0;
        return;
    }
    if (!udpCipher.ready())
        return;
    quint32 counter = 0;
    if (!initial)
        counter = udpCounter++;
    const QByteArray datagram = udpCipher.seal(counter, WireWriter().u16(type).data() + payload, initial);
    if (datagram.isEmpty()) {
        qWarning() << "SvxReflectorClient: UDP seal failed (cipher not ready?) type=" << type;
        return;
    }
    const qint64 wrote = udpSocket->writeDatagram(datagram, peerAddress, port);
    ticksSinceUdpTx = 0;
    if (type != udp::Audio || initial) {
        if (initial)
            qInfo() << "SvxReflectorClient: UDP tx type=" << type << "cntr=" << counter << "bytes=" << datagram.size()
                    << "wrote=" << wrote << "(initial)";
        else
            qInfo() << "SvxReflectorClient: UDP tx type=" << type << "cntr=" << counter << "bytes=" << datagram.size()
                    << "wrote=" << wrote;
    }
}

void SvxReflectorClient::onUdpReadyRead()
{
    while (udpSocket->hasPendingDatagrams()) {
        const QNetworkDatagram d = udpSocket->receiveDatagram();
        handleDatagram(d.data(), d.senderAddress(), quint16(d.senderPort()));
    }
}

void SvxReflectorClient::handleDatagram(const QByteArray& datagram, const QHostAddress& from, quint16 fromPort)
{
    // Audio comes from the reflector's own address and port, or it is not audio for us.
    if (fromPort != port || !from.isEqual(peerAddress, QHostAddress::TolerantConversion)) {
        dropDatagram(QStringLiteral("from %1:%2, not the reflector").arg(from.toString()).arg(fromPort));
        return;
    }
    QByteArray data = datagram;
    if (useV3) {
        const std::optional<QByteArray> inner = udpCipher.open(datagram);
        if (!inner) {
            dropDatagram(QStringLiteral("%1 bytes, decrypt failed (bad tag / not for us)").arg(datagram.size()));
            return;
        }
        // The counter is sealed with the datagram, so only an authentic one moves the window.
        const quint32 counter = qFromBigEndian<quint32>(datagram.constData());
        if (!replayWindow.accept(counter)) {
            dropDatagram(QStringLiteral("counter %1 repeated or too old").arg(counter));
            return;
        }
        if (!udpVerified)
            qInfo() << "SvxReflectorClient: first UDP datagram decrypted (" << inner->size() << "bytes) — UDP path up";
        data = *inner;
    }
    ticksSinceUdpRx = 0;
    if (!udpVerified) {
        udpVerified = true;
        currentTg = idleTg;
        sendSelectTg(currentTg);
        if (!monitorTgs.isEmpty())
            sendCtrl(msg::TgMonitor, encodeTgMonitor(monitorTgs));
        qInfo() << "SvxReflectorClient: bidirectional UDP verified — connected";
        setState(State::Connected);
    }
    const QByteArray opus = useV3 ? audioOfV3Message(data) : audioOfV2Datagram(data);
    if (!decoder || opus.isEmpty())
        return;
    int decoded = 0;
    const QByteArray pcm = decodeTo8k(decoder.get(), opus, &decoded);
    if (decoded < 1)
        return;
    if (!pcm.isEmpty())
        emit pcmReady(pcm);
    if (hangTimeSec > 0)
        holdLeftSec = hangTimeSec;
    if (!firstAudioLogged) {
        firstAudioLogged = true;
        qInfo() << "SvxReflectorClient: first RX audio decoded (" << decoded << "samples @16k)";
    }
}

void SvxReflectorClient::onHeartbeatTick()
{
    if (currentState != State::Authenticating && currentState != State::Connected)
        return;
    if (++ticksSinceTcpTx > kTcpHeartbeatAfter) {
        ticksSinceTcpTx = 0;
        sendCtrl(msg::Heartbeat);
    }
    if (++ticksSinceUdpTx >= udpHeartbeatSec) {
        ticksSinceUdpTx = 0;
        sendUdp(udp::Heartbeat, {});
    }
    if (++ticksSinceTcpRx > kTcpTimeoutAfter) {
        // A hung reflector: close once and let the reconnect timer take over.
        lastError = QStringLiteral("TCP heartbeat timeout");
        reasonFromReflector = true;
        qWarning() << "SvxReflectorClient:" << lastError;
        emit errorReported(lastError);
        ctrlSocket->abort();
        return;
    }
    if (currentState != State::Connected)
        return;
    if (++ticksSinceUdpRx > kUdpTimeoutAfter) {
        lastError = QStringLiteral("UDP heartbeat timeout");
        qWarning() << "SvxReflectorClient:" << lastError;
        ctrlSocket->abort();
        return;
    }
    // While we talk the hold does not run down: a long transmission keeps its talk group.
    if (!talking && holdLeftSec > 0 && --holdLeftSec == 0 && currentTg != idleTg) {
        currentTg = idleTg;
        sendSelectTg(currentTg);
        qInfo() << "SvxReflectorClient: hang expired -> idle (TG" << currentTg;
    }
}

void SvxReflectorClient::onCtrlDisconnected()
{
    qInfo() << "SvxReflectorClient: TCP disconnected";
    heartbeatTimer->stop();
    if (!nodeSet.isEmpty()) {
        nodeSet.clear();
        emit nodesUpdated({});
    }
    if (!running) {
        setState(State::Disconnected);
        return;
    }
    setState(State::Connecting);
    reconnectTimer->start();
}

void SvxReflectorClient::onCtrlError()
{
    // The socket's own words, unless the reflector said why it is closing on us.
    if (!reasonFromReflector || lastError.isEmpty())
        lastError = ctrlSocket->errorString();
    qWarning() << "SvxReflectorClient: socket error —" << lastError;
    emit errorReported(lastError);
    if (running && !reconnectTimer->isActive())
        reconnectTimer->start();
}

void SvxReflectorClient::onReconnectTick()
{
    if (!running || ctrlSocket->state() == QAbstractSocket::ConnectedState)
        return;
    lastError.clear();
    qInfo() << "SvxReflectorClient: reconnect attempt";
    setState(State::Connecting);
    resolveAndConnect();
}

void SvxReflectorClient::dropDatagram(const QString& why)
{
    // A flood of junk must not flood the log: one line per ten seconds, with the count.
    ++droppedDatagrams;
    const qint64 nowMs = dropClock.elapsed();
    if (lastDropLogMs >= 0 && nowMs - lastDropLogMs < kDropLogIntervalMs)
        return;
    qWarning().noquote() << "SvxReflectorClient: dropped" << droppedDatagrams
                         << "bad UDP datagram(s); the last:" << why;
    droppedDatagrams = 0;
    lastDropLogMs = nowMs;
}

quint16 SvxReflectorClient::localUdpPort() const
{
    return udpSocket->localPort();
}

} // namespace zl::svx
