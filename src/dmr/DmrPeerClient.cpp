#include "DmrPeerClient.h"

#include "audio/AudioMixer.h"
#include "dmr/DmrVoiceDecoder.h"
#include "dmr/DmrdFrame.h"
#include "dmr/SmsEncoder.h"
#include "dmr/SmsText.h"
#include "hw/Dv3000Pool.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDebug>
#include <QHostInfo>
#include <QRandomGenerator64>
#include <QtEndian>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <netinet/in.h>

namespace zl::dmr {

namespace {

constexpr int kClockMs = 200;
constexpr int kJitterTickMs = 10;
constexpr int kLoginTimeoutMs = 4000;
constexpr int kPingMs = 5000;
constexpr int kSilenceMs = 30000;
constexpr int kStreamEndMs = 1500;
constexpr int kMaxRetryDelayMs = 30000;
constexpr int kMaxAttempts = 3;
// A master takes data bursts at the pace of the air interface, one per slot time.
constexpr int kSmsBurstMs = 60;

void appendBe32(QByteArray& out, quint32 value)
{
    char bytes[4];
    qToBigEndian(value, bytes);
    out.append(bytes, 4);
}

// Left-justified, blank-padded and cut to width, as every text field of RPTC.
void appendField(QByteArray& out, QByteArray text, int width)
{
    text.truncate(width);
    out.append(text);
    out.append(width - text.size(), ' ');
}

QByteArray formatted(const char* format, auto... args)
{
    char buffer[64];
    const int n = std::snprintf(buffer, sizeof buffer, format, args...);
    return QByteArray(buffer, std::clamp(n, 0, int(sizeof buffer) - 1));
}

QByteArray coordinate(const char* format, float value)
{
    return formatted(format, value >= 0.0f ? '+' : '-', std::fabs(double(value)));
}

char slotsCharacter(const DmrPeerClient::Profile& p)
{
    if (!p.duplex)
        return '4';
    const bool ts1 = p.ts1Tg != 0 && p.ts1Tg != 4000;
    const bool ts2 = p.ts2Tg != 0 && p.ts2Tg != 4000;
    if (ts1 && ts2)
        return '3';
    if (ts1)
        return '1';
    return ts2 ? '2' : '0';
}

} // namespace

DmrPeerClient::DmrPeerClient(QObject* parent)
    : QObject(parent), socket(new QUdpSocket(this)), clockTimer(new QTimer(this)), jitterTimer(new QTimer(this)),
      retryTimer(new QTimer(this)), countdownTimer(new QTimer(this)), smsTimer(new QTimer(this)),
      jitter([this](const QByteArray& frame) { deliver(frame); })
{
    clockTimer->setInterval(kClockMs);
    jitterTimer->setInterval(kJitterTickMs);
    jitterTimer->setTimerType(Qt::PreciseTimer);
    retryTimer->setSingleShot(true);
    connect(socket, &QUdpSocket::readyRead, this, &DmrPeerClient::onReadyRead);
    connect(clockTimer, &QTimer::timeout, this, &DmrPeerClient::onClock);
    connect(jitterTimer, &QTimer::timeout, this, &DmrPeerClient::onJitterTick);
    connect(retryTimer, &QTimer::timeout, this, &DmrPeerClient::onRetryTimer);
    smsTimer->setInterval(kSmsBurstMs);
    smsTimer->setTimerType(Qt::PreciseTimer);
    connect(smsTimer, &QTimer::timeout, this, &DmrPeerClient::onSmsTick);
    countdownTimer->setInterval(1000);
    connect(countdownTimer, &QTimer::timeout, this, &DmrPeerClient::statusTextChanged);

    decoder = new DmrVoiceDecoder;
    decoder->moveToThread(zl::hw::Dv3000Pool::instance()->workerThread());
    connect(this, &DmrPeerClient::voiceFrameForDecode, decoder, &DmrVoiceDecoder::onDmrFrame);
    connect(decoder, &DmrVoiceDecoder::pcmReady, this, [this](const QByteArray& pcm) {
        if (pcmSink)
            pcmSink(QStringLiteral("dmr"), pcm, profile.label);
        else
            zl::audio::AudioMixer::instance().pushPcm(QStringLiteral("dmr"), pcm, profile.label);
    });
}

DmrPeerClient::~DmrPeerClient()
{
    stop();
    // The decoder gives its chip back on its own thread as it goes; nothing here waits for it.
    decoder->deleteLater();
}

void DmrPeerClient::setClockForTests(std::function<qint64()> nowFunction, int factor)
{
    clock = std::move(nowFunction);
    speedup = std::max(1, factor);
    clockTimer->setInterval(scaled(kClockMs));
    jitterTimer->setInterval(scaled(kJitterTickMs));
    smsTimer->setInterval(scaled(kSmsBurstMs));
}

qint64 DmrPeerClient::now() const
{
    return clock ? clock() : QDateTime::currentMSecsSinceEpoch();
}

int DmrPeerClient::scaled(int intervalMs) const
{
    return std::max(1, intervalMs / speedup);
}

QString DmrPeerClient::stateText() const
{
    switch (currentState) {
    case Idle:
        return QStringLiteral("idle");
    case Resolving:
        return QStringLiteral("resolving");
    case WaitingLogin:
        return QStringLiteral("logging in");
    case WaitingAuth:
        return QStringLiteral("authenticating");
    case WaitingConfig:
        return QStringLiteral("configuring");
    case Running:
        return QStringLiteral("connected");
    case Closing:
        return QStringLiteral("closing");
    case Failed:
        if (reconnecting && retryTimer->isActive())
            return ReconnectBackoff::countdownText(retryTimer->remainingTime() * speedup);
        return error.isEmpty() ? QStringLiteral("failed") : error;
    }
    return {};
}

void DmrPeerClient::setState(State s)
{
    if (s == currentState)
        return;
    currentState = s;
    // Voice goes out only while logged in. The chip is set to rate 33 ahead of the first call.
    if (s == Running) {
        voice->open(int(socket->socketDescriptor()), masterSockAddr, profile.peerId, profile.colorCode);
        zl::hw::Dv3000Pool::instance()->prewarm(33);
    } else {
        voice->close();
    }
    emit stateChanged(s);
}

void DmrPeerClient::fail(const QString& reason)
{
    error = reason;
    setState(Failed);
    emit errorReported(error);
}

// Final failure: no automatic retry; only stop() and start() bring the peer back.
void DmrPeerClient::giveUp(const QString& reason)
{
    error = reason;
    voice->close();
    if (socket->state() != QAbstractSocket::UnconnectedState)
        socket->abort();
    clockTimer->stop();
    retryTimer->stop();
    countdownTimer->stop();
    reconnecting = false;
    setState(Failed);
    emit errorReported(error);
}

void DmrPeerClient::start()
{
    if (currentState != Idle && currentState != Failed)
        return;
    profile = pendingProfile;
    jitter.setName(profile.networkName);
    error.clear();
    retryDelayMs = 1000;
    attempts = 0;
    if (profile.host.isEmpty() || profile.peerId == 0) {
        fail(QStringLiteral("missing host or peerId in profile"));
        return;
    }
    setState(Resolving);
    QHostInfo::lookupHost(profile.host, this, SLOT(onLookupResolved()));
}

// The asynchronous lookup only wakes us up; the resolver cache answers the blocking call at once.
void DmrPeerClient::onLookupResolved()
{
    if (currentState != Resolving)
        return;
    const QHostInfo info = QHostInfo::fromName(profile.host);
    if (info.error() != QHostInfo::NoError || info.addresses().isEmpty()) {
        fail(QStringLiteral("DNS lookup failed: %1").arg(info.errorString()));
        return;
    }
    masterAddress = info.addresses().constFirst();
    if (socket->state() != QAbstractSocket::UnconnectedState)
        socket->abort();
    if (!socket->bind(QHostAddress::AnyIPv4, 0)) {
        fail(QStringLiteral("Bind failed: %1").arg(socket->errorString()));
        return;
    }
    // The voice path writes from the vocoder thread straight to the kernel, bypassing the event loop.
    voice->close();
    masterSockAddr = {};
    masterSockAddr.sin_family = AF_INET;
    masterSockAddr.sin_port = htons(profile.port);
    masterSockAddr.sin_addr.s_addr = htonl(masterAddress.toIPv4Address());
    qInfo().noquote() << "DmrPeer" << logName() << "resolved" << profile.host << "->" << masterAddress.toString()
                      << "peerId" << profile.peerId;
    lastPingMs = 0;
    lastRxMs = now();
    clockTimer->start();
    setState(WaitingLogin);
    sendLogin();
}

void DmrPeerClient::stop()
{
    voice->close();
    if (currentState == Running) {
        qInfo().noquote() << "DmrPeer" << logName() << "DISCONNECT (sending RPTCL goodbye)";
        sendControl(withPeerId("RPTCL"));
    }
    clockTimer->stop();
    retryTimer->stop();
    countdownTimer->stop();
    // A message still queued goes nowhere after the goodbye; it is not reported as sent.
    smsTimer->stop();
    smsQueue.clear();
    reconnecting = false;
    backoff.reset();
    if (socket->state() != QAbstractSocket::UnconnectedState)
        socket->abort();
    setState(Idle);
}

bool DmrPeerClient::sendControl(const QByteArray& datagram)
{
    const auto s = socket->state();
    if (s != QAbstractSocket::BoundState && s != QAbstractSocket::ConnectedState)
        return false;
    return socket->writeDatagram(datagram, masterAddress, profile.port) == datagram.size();
}

QByteArray DmrPeerClient::withPeerId(const char* tag) const
{
    QByteArray out(tag);
    appendBe32(out, profile.peerId);
    return out;
}

void DmrPeerClient::sendLogin()
{
    sendControl(withPeerId("RPTL"));
}

void DmrPeerClient::sendAuth()
{
    QByteArray out = withPeerId("RPTK");
    out.append(QCryptographicHash::hash(salt + profile.password.toUtf8(), QCryptographicHash::Sha256));
    sendControl(out);
}

void DmrPeerClient::sendConfig()
{
    const Profile& p = profile;
    QByteArray out = withPeerId("RPTC");
    appendField(out, p.callsign.toUtf8(), 8);
    appendField(out, formatted("%09u", p.rxFreq), 9);
    appendField(out, formatted("%09u", p.txFreq), 9);
    appendField(out, formatted("%02u", unsigned(std::min<quint8>(p.power, 99))), 2);
    appendField(out, formatted("%02u", unsigned(p.colorCode)), 2);
    appendField(out, coordinate("%c%07.4f", p.latitude), 8);
    appendField(out, coordinate("%c%08.4f", p.longitude), 9);
    appendField(out, "000", 3); // masters ignore the height; it is always sent as zero
    appendField(out, p.locationName.toUtf8(), 20);
    appendField(out, p.description.toUtf8(), 19);
    out.append(slotsCharacter(p));
    appendField(out, p.url.toUtf8(), 124);
    appendField(out, p.versionString.toUtf8(), 40);
    appendField(out, p.softwareName.toUtf8(), 40);
    sendControl(out);
}

void DmrPeerClient::sendOptions()
{
    sendControl(withPeerId("RPTO") + profile.options.toUtf8());
}

void DmrPeerClient::onReadyRead()
{
    // A datagram may end the link (final MSTNAK), which closes the socket under this loop.
    while (socket->state() == QAbstractSocket::BoundState && socket->hasPendingDatagrams()) {
        QByteArray datagram(qMax<qint64>(socket->pendingDatagramSize(), 0), Qt::Uninitialized);
        const qint64 n = socket->readDatagram(datagram.data(), datagram.size());
        if (n < 0)
            continue;
        datagram.truncate(n);
        handleDatagram(datagram);
    }
}

void DmrPeerClient::handleDatagram(const QByteArray& datagram)
{
    lastRxMs = now();
    if (datagram.startsWith("DMRD"))
        onVoiceFrame(datagram);
    else if (datagram.startsWith("RPTACK"))
        onAck(datagram);
    else if (datagram.startsWith("MSTNAK"))
        onNak();
    else if (datagram.startsWith("MSTCL")) {
        qInfo().noquote() << "DmrPeer" << logName() << "master closing";
        setState(WaitingLogin);
        sendLogin();
    }
}

void DmrPeerClient::onAck(const QByteArray& datagram)
{
    switch (currentState) {
    case WaitingLogin:
        // The login answer carries the 4-byte salt; without it the login timer resends RPTL.
        if (datagram.size() > 9) {
            salt = datagram.mid(6, 4);
            sendAuth();
            setState(WaitingAuth);
        }
        break;
    case WaitingAuth:
        sendConfig();
        setState(WaitingConfig);
        break;
    case WaitingConfig:
        if (!profile.options.isEmpty()) {
            sendOptions();
            break;
        }
        retryDelayMs = 1000;
        attempts = 0;
        error.clear();
        backoff.reset();
        reconnecting = false;
        qInfo().noquote() << "DmrPeer" << logName() << "logged in";
        setState(Running);
        break;
    default:
        setState(Running);
        retryDelayMs = 1000;
        break;
    }
}

void DmrPeerClient::onNak()
{
    QString reason;
    switch (currentState) {
    case WaitingAuth:
        reason = QStringLiteral("rejected: wrong password / API key");
        break;
    case WaitingConfig:
        reason = QStringLiteral("rejected: config payload");
        break;
    case WaitingLogin:
        reason = QStringLiteral("rejected: peer-ID not recognised (check DMR-ID + ESSID on master)");
        break;
    default:
        reason = QStringLiteral("rejected by master");
        break;
    }
    ++attempts;
    qInfo().noquote() << "DmrPeer" << logName() << "MSTNAK —" << reason
                      << QStringLiteral("(attempt %1 of 3)").arg(attempts);
    if (attempts < kMaxAttempts) {
        retryDelayMs = std::min(retryDelayMs * 2, kMaxRetryDelayMs);
        fail(reason);
        retryTimer->start(scaled(retryDelayMs));
        return;
    }
    const QString text =
        QStringLiteral("%1 — stopped after %2 attempts. Fix credentials and toggle the peer off/on to retry.")
            .arg(reason)
            .arg(attempts);
    qInfo().noquote() << "DmrPeer" << logName() << "giving up auto-retry —" << text;
    giveUp(text);
}

void DmrPeerClient::onRetryTimer()
{
    countdownTimer->stop();
    if (currentState != Failed)
        return;
    qInfo().noquote() << "DmrPeer" << logName() << "retry after" << retryDelayMs << "ms";
    setState(WaitingLogin);
    lastRxMs = now();
    sendLogin();
}

void DmrPeerClient::onClock()
{
    const qint64 t = now();
    if (rxStreamId != 0 && rxLastFrameMs > 0 && t - rxLastFrameMs >= kStreamEndMs) {
        emit rxStreamEnded(rxStreamId, rxLastFrameMs - rxStartMs);
        rxStreamId = 0;
        rxLastFrameMs = 0;
    }

    if (currentState == Running) {
        if (t - lastPingMs >= kPingMs) {
            sendControl(withPeerId("RPTPING"));
            lastPingMs = t;
        }
        if (t - lastRxMs >= kSilenceMs) {
            qInfo().noquote() << "DmrPeer" << logName() << "no rx for" << (t - lastRxMs) / 1000 << "s — re-login";
            setState(WaitingLogin);
            sendLogin();
            lastRxMs = t;
        }
        return;
    }

    if (currentState != WaitingLogin && currentState != WaitingAuth && currentState != WaitingConfig)
        return;
    if (t - lastRxMs < kLoginTimeoutMs)
        return;
    ++attempts;
    if (attempts > 2) {
        // A master that restarts is silent for a while: keep trying, more and more slowly.
        const int delay = backoff.nextDelayMs();
        attempts = 0;
        reconnecting = true;
        fail(QStringLiteral("master not responding (no reply after 3 login attempts)"));
        retryTimer->start(scaled(delay));
        countdownTimer->start();
        qInfo().noquote() << "DmrPeer" << logName() << "— master not responding," << stateText();
        return;
    }
    qInfo().noquote() << "DmrPeer" << logName() << "no response — resending login (attempt"
                      << QStringLiteral("%1)").arg(attempts);
    setState(WaitingLogin);
    sendLogin();
    lastRxMs = t;
}

void DmrPeerClient::onVoiceFrame(const QByteArray& dmrd)
{
    const std::optional<DmrdHeader> header = parseDmrdHeader(dmrd);
    if (!header) {
        deliver(dmrd);
        return;
    }
    if (dmrd.size() >= kDmrdMinBurstSize && header->isDataCallBurst()) {
        onDataBurst(*header, dmrd);
        return;
    }

    const qint64 t = now();
    if (header->streamId != rxStreamId) {
        if (rxStreamId != 0)
            emit rxStreamEnded(rxStreamId, t - rxStartMs);
        rxStreamId = header->streamId;
        rxStartMs = t;
        emit rxStreamHeard(header->srcId, header->dstId, uchar(header->slot()), header->streamId,
                           header->privateCall());
    }
    rxLastFrameMs = t;

    if (profile.rxJitterMs < 1) {
        deliver(dmrd);
        return;
    }
    jitter.insert(header->streamId, header->seq, dmrd, header->isTerminator(), t);
    updateJitterTimer();
}

void DmrPeerClient::onJitterTick()
{
    jitter.tick(now(), rxLastFrameMs, profile.rxJitterMs);
    updateJitterTimer();
}

void DmrPeerClient::updateJitterTimer()
{
    if (!jitter.needsTicks())
        jitterTimer->stop();
    else if (!jitterTimer->isActive())
        jitterTimer->start();
}

void DmrPeerClient::deliver(const QByteArray& dmrd)
{
    emit voiceFrameForDecode(dmrd);
    emit dmrFrameReceived(dmrd);
}

void DmrPeerClient::onDataBurst(const DmrdHeader& header, const QByteArray& dmrd)
{
    const std::optional<DataCall> call = dataCalls.feed(header.streamId, header.lowNibble(), dmrdBurst(dmrd), now());
    if (!call)
        return;
    const auto* bytes = reinterpret_cast<const uint8_t*>(call->payload.constData());
    const DecodedText decoded = decodeSmsText(bytes, int(call->payload.size()));
    // Some radios leave the header's addresses empty; the network header always has them.
    const uint src = call->srcId ? call->srcId : header.srcId;
    const uint dst = call->dstId ? call->dstId : header.dstId;
    qInfo().noquote() << "DmrPeerClient" << logName() << "data call complete"
                      << QStringLiteral("src=%1 dst=%2 dpf=%3 sap=%4 bytes=%5 kind=%6 text=%7")
                             .arg(src)
                             .arg(dst)
                             .arg(call->dpf)
                             .arg(call->sap)
                             .arg(call->payload.size())
                             .arg(decoded.format, decoded.text);
    if (!decoded.text.isEmpty())
        emit smsReceived(src, dst, !call->group, decoded.text, decoded.format);
}

bool DmrPeerClient::sendSms(quint32 srcId, quint32 dstId, quint8 slot, bool privateCall, const QString& text,
                            const QString& format)
{
    if (currentState != Running)
        return false;
    const SmsPdu pdu = smsPdu(text, format, srcId, dstId);
    if (pdu.bytes.isEmpty())
        return false;
    const auto streamId = quint32(QRandomGenerator64::global()->generate());
    const DataCallFrames call =
        buildDataCall(pdu, srcId, dstId, slot, privateCall, streamId, profile.peerId, profile.colorCode);
    for (const QByteArray& frame : call.frames)
        smsQueue.enqueue(frame);
    smsDstId = dstId;
    smsText = text;
    qInfo().noquote() << "DmrPeerClient" << logName() << "SMS →" << dstId << "from" << srcId << "slot" << slot
                      << (privateCall ? "private" : "group") << "format" << smsFormatName(format) << "pdu"
                      << pdu.bytes.size() << "bytes," << call.frames.size() << "bursts";
    if (!smsTimer->isActive()) {
        onSmsTick();
        smsTimer->start();
    }
    return true;
}

void DmrPeerClient::onSmsTick()
{
    // Our own transmission has the slot: the data call waits for its end rather than cut into it.
    if (voice->inCall())
        return;
    if (smsQueue.isEmpty()) {
        smsTimer->stop();
        emit smsSent(smsDstId, smsText);
        return;
    }
    sendControl(smsQueue.dequeue());
}

QString DmrPeerClient::logName() const
{
    if (profile.label.isEmpty() || profile.label == profile.networkName)
        return profile.networkName;
    return QStringLiteral("%1 (%2)").arg(profile.label, profile.networkName);
}

} // namespace zl::dmr
