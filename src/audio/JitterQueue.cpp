#include "JitterQueue.h"

#include <utility>

namespace zl::audio {

void JitterQueue::setFormat(int sampleRate, int frameBytes)
{
    rate = qMax(1, sampleRate);
    frameSize = qMax(1, frameBytes);
}

qsizetype JitterQueue::bytesFor(int ms) const
{
    return qsizetype(rate) * ms / 1000 * frameSize;
}

int JitterQueue::durationMs(qsizetype bytes) const
{
    return int(bytes / frameSize * 1000 / rate);
}

void JitterQueue::clear()
{
    buffer.clear();
    playing = false;
    pendingGaps = 0;
}

void JitterQueue::startStream()
{
    clear();
    gaps = 0;
}

bool JitterQueue::push(const QByteArray& bytes, qint64 nowMs, int depthMs)
{
    buffer.append(bytes);
    const qsizetype excess = buffer.size() - bytesFor(kMaxBufferMs);
    if (excess > 0)
        buffer.remove(0, wholeFrames(excess + frameSize - 1));
    lastPush = nowMs;
    gaps += std::exchange(pendingGaps, 0);
    if (playing || durationMs(buffer.size()) < depthMs)
        return false;
    playing = true;
    return true;
}

JitterQueue::Step JitterQueue::step(qint64 nowMs, int depthMs, qsizetype sinkBufferSize, qsizetype sinkBytesFree)
{
    if (!playing) {
        // A burst shorter than the preroll is played once it has stayed that long without a successor.
        if (buffer.isEmpty() || nowMs - lastPush < depthMs)
            return {};
        playing = true;
    }
    const qsizetype cap = qMin(bytesFor(kSinkAheadMs), sinkBufferSize);
    const qsizetype free = qMin(sinkBytesFree, sinkBufferSize);
    const qsizetype room = free - (sinkBufferSize - cap);
    if (room < frameSize)
        return {};
    if (!buffer.isEmpty())
        return {Step::Write, wholeFrames(qMin(buffer.size(), room)), 0};
    if (nowMs - lastPush >= kStreamEndMs) {
        const int inserted = gaps;
        playing = false;
        gaps = 0;
        pendingGaps = 0;
        return {Step::Ended, 0, inserted};
    }
    if (sinkBufferSize - free >= bytesFor(kLowWaterMs))
        return {};
    return {Step::Silence, bytesFor(kSilenceMs), 0};
}

void JitterQueue::consume(qsizetype taken)
{
    buffer.remove(0, wholeFrames(qBound(qsizetype(0), taken, buffer.size())));
}

} // namespace zl::audio
