#include "dmr/DmrVoiceEncoder.h"

#include "app/ThreadHandOff.h"
#include "dmr/AmbeBurst.h"
#include "dmr/DmrPeerClient.h"
#include "dmr/DmrdFrame.h"
#include "hw/Dv3000.h"
#include "hw/Dv3000Pool.h"

#include <QDateTime>
#include <QDebug>
#include <QRandomGenerator64>
#include <QTimer>

namespace zl::dmr {

namespace {

constexpr int kPaceMs = 20;
constexpr int kBurstMs = 60;
// Four bursts wait in the queue before the first leaves, so that a late chip makes no gap.
constexpr int kHeadStartMs = 240;
constexpr int kAmbeRate = 33;
constexpr int kSpeechFrameBytes = 320;
// One second of microphone audio at most waits for the chip.
constexpr int kMaxPcmBytes = 16000;
// A longer queue means the network side has stalled: old audio is worth less than new.
constexpr int kMaxBursts = 30;
constexpr int kAmbeFrameBytes = 9;
// BS-sourced voice sync in the alignment of burst bytes 13 to 19.
constexpr uint8_t kVoiceSync[7] = {0x07, 0x55, 0xFD, 0x7D, 0xF7, 0x5F, 0x70};
// Bursts B to F: no embedded signalling is sent.
constexpr uint8_t kNoEmbedded[7] = {};

qint64 nowMs()
{
    return QDateTime::currentMSecsSinceEpoch();
}

} // namespace

DmrVoiceEncoder::DmrVoiceEncoder(DmrPeerClient* peerClient, QObject* parent)
    : QObject(parent), link(peerClient ? peerClient->voiceLink() : nullptr), paceTimer(new QTimer(this)),
      burstTimer(new QTimer(this)), headStartTimer(new QTimer(this))
{
    paceTimer->setInterval(kPaceMs);
    paceTimer->setTimerType(Qt::PreciseTimer);
    burstTimer->setInterval(kBurstMs);
    burstTimer->setTimerType(Qt::PreciseTimer);
    headStartTimer->setInterval(kHeadStartMs);
    headStartTimer->setSingleShot(true);
    headStartTimer->setTimerType(Qt::PreciseTimer);
    connect(paceTimer, &QTimer::timeout, this, &DmrVoiceEncoder::paceTick);
    connect(burstTimer, &QTimer::timeout, this, &DmrVoiceEncoder::burstSendTick);
    connect(headStartTimer, &QTimer::timeout, this, [this] {
        if (active)
            burstTimer->start();
    });
}

DmrVoiceEncoder::~DmrVoiceEncoder()
{
    if (active)
        stopStream();
}

void DmrVoiceEncoder::setIntervalsForTests(int paceMs, int burstMs, int headStartMs)
{
    paceTimer->setInterval(paceMs);
    burstTimer->setInterval(burstMs);
    headStartTimer->setInterval(headStartMs);
}

void DmrVoiceEncoder::startStream(quint8 callSlot, quint32 src, quint32 dst, bool isPrivate)
{
    if (active) {
        qWarning() << "DmrVoiceEncoder::startStream: already active, stopping first";
        stopStream();
    }
    slot = callSlot;
    srcId = src;
    dstId = dst;
    privateCall = isPrivate;
    streamId = quint32(QRandomGenerator64::global()->generate());
    voiceSeq = 0;
    frameSeq = 0;
    ambe.clear();

    chip = zl::hw::Dv3000Pool::instance()->acquire(kAmbeRate);
    if (!chip) {
        qWarning() << "DmrVoiceEncoder::startStream: no AMBE chip available";
        return;
    }
    connect(chip, &zl::hw::Dv3000::ambeFrameReady, this, &DmrVoiceEncoder::onChipAmbeFrame, Qt::DirectConnection);
    qInfo().noquote() << "DMR-TX startStream slot=" << slot << "src=" << srcId << "dst=" << dstId
                      << "streamId=" << QString::number(streamId, 16);
    if (link) {
        link->sendVoiceHeader(slot, srcId, dstId, streamId, frameSeq, privateCall);
        ++frameSeq;
    }
    active = true;
    pcm.clear();
    hasOddByte = false;
    bursts.clear();
    startMs = nowMs();
    samplesIn = 0;
    paceSent = paceSkip = burstSent = burstEmpty = 0;
    paceTimer->start();
    headStartTimer->start();
}

void DmrVoiceEncoder::feedPcm(const QByteArray& block)
{
    if (!active)
        return;
    if (hasOddByte) {
        pcm.append(char(oddByte));
        hasOddByte = false;
    }
    pcm.append(block);
    if (pcm.size() % 2) {
        oddByte = quint8(pcm.back());
        hasOddByte = true;
        pcm.chop(1);
    }
    samplesIn += block.size() / 2;
    if (pcm.size() > kMaxPcmBytes)
        pcm.remove(0, pcm.size() - kMaxPcmBytes);
}

void DmrVoiceEncoder::paceTick()
{
    if (!active || !chip)
        return;
    if (pcm.size() < kSpeechFrameBytes) {
        // No silence is made up: the chip gets speech only as it arrives.
        ++paceSkip;
        return;
    }
    if (zl::hw::Dv3000* next = zl::hw::Dv3000Pool::instance()->replaceIfBroken(chip, kAmbeRate); next != chip) {
        disconnect(chip, &zl::hw::Dv3000::ambeFrameReady, this, &DmrVoiceEncoder::onChipAmbeFrame);
        chip = next;
        if (!chip)
            return;
        connect(chip, &zl::hw::Dv3000::ambeFrameReady, this, &DmrVoiceEncoder::onChipAmbeFrame, Qt::DirectConnection);
    }
    ++paceSent;
    const QByteArray frame = pcm.left(kSpeechFrameBytes);
    pcm.remove(0, kSpeechFrameBytes);
    zl::hw::Dv3000* target = chip;
    zl::postTo(target, [target, frame] { target->postSpeech(frame); });
}

void DmrVoiceEncoder::onChipAmbeFrame(const QByteArray& ambe9)
{
    if (!active)
        return;
    if (ambe9.size() < kAmbeFrameBytes) {
        qWarning().noquote() << "DmrVoiceEncoder: AMBE frame too short:" << ambe9.size();
        return;
    }
    ambe.append(ambe9.left(kAmbeFrameBytes));
    if (ambe.size() >= 3 * kAmbeFrameBytes) {
        buildBurst();
        ambe.clear();
    }
}

void DmrVoiceEncoder::buildBurst()
{
    const auto* frames = reinterpret_cast<const uint8_t*>(ambe.constData());
    QByteArray payload(kBurstSize, Qt::Uninitialized);
    insertAmbe(frames, frames + kAmbeFrameBytes, frames + 2 * kAmbeFrameBytes, voiceSeq == 0 ? kVoiceSync : kNoEmbedded,
               reinterpret_cast<uint8_t*>(payload.data()));
    bursts.append({payload, voiceSeq});
    while (bursts.size() > kMaxBursts)
        bursts.removeFirst();
    voiceSeq = quint8((voiceSeq + 1) % 6);
}

void DmrVoiceEncoder::burstSendTick()
{
    if (!active || !link)
        return;
    if (bursts.isEmpty()) {
        // A gap, heard as a click.
        ++burstEmpty;
        return;
    }
    ++burstSent;
    const Burst burst = bursts.takeFirst();
    link->sendVoiceBurst(slot, srcId, dstId, streamId, frameSeq, burst.voiceSeq, burst.payload, privateCall);
    ++frameSeq;
}

void DmrVoiceEncoder::stopStream()
{
    if (!active)
        return;
    qInfo().noquote() << "DMR-TX stopStream streamId=" << QString::number(streamId, 16);
    const qint64 dur = nowMs() - startMs;
    const qint64 audioMs = samplesIn / 8;
    const QString percent = dur > 0 ? QStringLiteral(" (%1% of realtime)").arg(audioMs * 100 / dur) : QString();
    qInfo().noquote() << QStringLiteral("DMR-TX diag: dur=%1ms  audio-received=%2ms%3  paceSent=%4 paceSkip=%5  "
                                        "burstSent=%6 burstEmpty(=gap/click)=%7")
                             .arg(dur)
                             .arg(audioMs)
                             .arg(percent)
                             .arg(paceSent)
                             .arg(paceSkip)
                             .arg(burstSent)
                             .arg(burstEmpty);
    paceTimer->stop();
    burstTimer->stop();
    headStartTimer->stop();
    // Bursts still queued are not sent: the terminator goes right away.
    if (link) {
        link->sendVoiceTerminator(slot, srcId, dstId, streamId, frameSeq, privateCall);
        ++frameSeq;
    }
    if (chip) {
        disconnect(chip, &zl::hw::Dv3000::ambeFrameReady, this, &DmrVoiceEncoder::onChipAmbeFrame);
        zl::hw::Dv3000Pool::instance()->release(chip);
    }
    chip = nullptr;
    ambe.clear();
    pcm.clear();
    hasOddByte = false;
    bursts.clear();
    active = false;
}

} // namespace zl::dmr
