#include "dmr/DmrVoiceDecoder.h"

#include "dmr/AmbeBurst.h"
#include "dmr/DmrdFrame.h"
#include "hw/Dv3000.h"
#include "hw/Dv3000Pool.h"

#include <QDateTime>
#include <QDebug>
#include <QTimer>

#include <utility>

namespace zl::dmr {

namespace {

constexpr int kMinFrameSize = 47;
constexpr int kIdleCheckMs = 250;
constexpr int kIdleEndMs = 1000;
constexpr int kDrainMs = 150;
constexpr int kAmbeRate = 33;

qint64 nowMs()
{
    return QDateTime::currentMSecsSinceEpoch();
}

QString hex(quint32 id)
{
    return QString::number(id, 16);
}

} // namespace

DmrVoiceDecoder::DmrVoiceDecoder(QObject* parent)
    : QObject(parent), idleTimer(new QTimer(this)), drainTimer(new QTimer(this))
{
    drainTimer->setSingleShot(true);
    drainTimer->setTimerType(Qt::PreciseTimer);
    drainTimer->setInterval(kDrainMs);
    connect(drainTimer, &QTimer::timeout, this, &DmrVoiceDecoder::finishDrain);
    idleTimer->setInterval(kIdleCheckMs);
    connect(idleTimer, &QTimer::timeout, this, &DmrVoiceDecoder::onIdleCheck);
}

DmrVoiceDecoder::~DmrVoiceDecoder()
{
    // The owner runs endStream on this thread first; a lease must never outlive us in any case.
    if (chip) {
        disconnect(chip, nullptr, this, nullptr);
        zl::hw::Dv3000Pool::instance()->release(chip);
    }
}

void DmrVoiceDecoder::onDmrFrame(const QByteArray& dmrd)
{
    if (dmrd.size() < kMinFrameSize)
        return;
    if (draining) {
        heldFrames.append(dmrd);
        return;
    }
    const std::optional<DmrdHeader> header = parseDmrdHeader(dmrd);
    if (!header)
        return;
    // Headers, terminators and data carry no speech; a stream is known by its ID alone.
    if (header->isDataSync())
        return;
    if (header->streamId != streamId) {
        endStream();
        if (draining) {
            heldFrames.append(dmrd);
            return;
        }
        startStream(header->streamId);
    }
    lastFrameMs = nowMs();
    if (zl::hw::Dv3000* next = zl::hw::Dv3000Pool::instance()->replaceIfBroken(chip, kAmbeRate); next != chip) {
        disconnect(chip, &zl::hw::Dv3000::pcmFrameReady, this, &DmrVoiceDecoder::onChipPcmFrame);
        chip = next;
        if (chip)
            connect(chip, &zl::hw::Dv3000::pcmFrameReady, this, &DmrVoiceDecoder::onChipPcmFrame, Qt::DirectConnection);
    }
    if (!chip || dmrd.size() < kDmrdMinBurstSize)
        return;

    const QByteArray burst = dmrdBurst(dmrd);
    uint8_t frames[27];
    extractAmbe(reinterpret_cast<const uint8_t*>(burst.constData()), frames);
    const auto chunk = [&frames](int i) { return QByteArray(reinterpret_cast<const char*>(frames) + 9 * i, 9); };
    // Three separate posts, no batching: the chip's first PCM comes out as early as possible.
    for (int i = 0; i < 3; ++i)
        chip->postChannel(chunk(i), 72);

    if ((burstCount & 7) == 0) {
        qDebug().noquote() << "DMR AMBE chunks burst#" + QString::number(burstCount)
                           << "burst[0..12]=" + burst.left(13).toHex() << "burst[13,19]=" + burst.mid(13, 7).toHex()
                           << "burst[20..32]=" + burst.mid(20, 13).toHex() << "slot0=" + chunk(0).toHex()
                           << "slot1=" + chunk(1).toHex() << "slot2=" + chunk(2).toHex();
        qDebug().noquote() << "DMR burst#" << burstCount << "streamId=" << hex(streamId) << "posted 3 chunks";
    }
    ++burstCount;
}

void DmrVoiceDecoder::startStream(quint32 id)
{
    streamId = id;
    lastFrameMs = nowMs();
    burstCount = 0;
    chip = zl::hw::Dv3000Pool::instance()->acquire(kAmbeRate);
    qInfo().noquote() << "DMR voice stream START id=" << hex(id)
                      << "chip=" << (chip ? QStringLiteral("acquired") : QStringLiteral("(none — no AMBE stick)"));
    if (chip)
        connect(chip, &zl::hw::Dv3000::pcmFrameReady, this, &DmrVoiceDecoder::onChipPcmFrame, Qt::DirectConnection);
    if (!idleTimer->isActive())
        idleTimer->start();
}

void DmrVoiceDecoder::onChipPcmFrame(const QByteArray& pcm)
{
    emit pcmReady(pcm);
    if (draining && chip->framesInFlight() == 0)
        finishDrain();
}

void DmrVoiceDecoder::finishDrain()
{
    drainTimer->stop();
    draining = false;
    if (chip->framesInFlight() > 0)
        qWarning().noquote() << "DmrVoiceDecoder::endStream: drain timeout —" << chip->framesInFlight()
                             << "PCM frames untouched";
    releaseChip();
    replayHeldFrames();
}

void DmrVoiceDecoder::onIdleCheck()
{
    if (streamId != 0 && nowMs() - lastFrameMs >= kIdleEndMs) {
        qInfo().noquote() << "DMR voice stream IDLE timeout (no frame for 1000 ms) — closing stream";
        endStream();
    }
}

void DmrVoiceDecoder::replayHeldFrames()
{
    const QList<QByteArray> frames = std::exchange(heldFrames, {});
    for (const QByteArray& frame : frames)
        onDmrFrame(frame);
}

void DmrVoiceDecoder::endStream()
{
    if (draining)
        return;
    if (!chip && streamId == 0) {
        lastFrameMs = 0;
        idleTimer->stop();
        return;
    }
    qInfo().noquote() << "DMR voice stream STOP id=" << hex(streamId);
    if (!chip) {
        streamId = 0;
        lastFrameMs = 0;
        idleTimer->stop();
        return;
    }
    // Let the chip's last answers out, so that the tail of a transmission is not cut; bounded,
    // since a longer wait would delay the first burst of the next stream. Frames that arrive
    // meanwhile wait for the end of the drain.
    if (chip->framesInFlight() > 0) {
        draining = true;
        drainTimer->start();
        return;
    }
    releaseChip();
}

void DmrVoiceDecoder::releaseChip()
{
    disconnect(chip, &zl::hw::Dv3000::pcmFrameReady, this, &DmrVoiceDecoder::onChipPcmFrame);
    zl::hw::Dv3000Pool::instance()->release(chip);
    chip = nullptr;
    streamId = 0;
    lastFrameMs = 0;
    idleTimer->stop();
}

} // namespace zl::dmr
