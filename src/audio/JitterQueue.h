#pragma once

#include <QByteArray>
#include <QtGlobal>

namespace zl::audio {

// The receive jitter buffer: converted audio in the sink's format, held back until the preroll
// depth is reached (or the stream has paused that long), then fed to the sink no more than
// 100 ms ahead. Late frames are bridged with 20 ms of silence; a stream ends after 300 ms dry.
// Pure bookkeeping: the caller owns the clock and the sink and carries out each Step.
class JitterQueue {
public:
    struct Step {
        enum Kind { Wait, Write, Silence, Ended };
        Kind kind = Wait;
        qsizetype bytes = 0; // Write: bytes of data() to offer; Silence: bytes of zeros
        int gapFrames = 0;   // Ended: silence frames inserted in the stream
    };

    // Bytes per sample frame (all channels) and frames per second of the sink.
    void setFormat(int sampleRate, int frameBytes);

    qsizetype bytesFor(int ms) const;
    int durationMs(qsizetype bytes) const;

    // Drops the buffered audio; playback waits for the preroll again.
    void clear();
    // A new talker: empty buffer, preroll, no gaps counted.
    void startStream();
    // Appends one converted frame taken at nowMs; true when it completes the preroll of depthMs.
    bool push(const QByteArray& bytes, qint64 nowMs, int depthMs);
    // What the 5 ms beat should do now, given the sink's queue.
    Step step(qint64 nowMs, int depthMs, qsizetype sinkBufferSize, qsizetype sinkBytesFree);
    // Removes what the sink took after a Write, in whole frames.
    void consume(qsizetype taken);
    // Counts a silence frame written for a Silence step. It is a gap in the stream only if
    // audio follows: the silence that bridges to the end of a stream conceals nothing.
    void countGap() { ++pendingGaps; }

    const QByteArray& data() const { return buffer; }
    bool isPlaying() const { return playing; }
    int gapFrames() const { return gaps; }
    qint64 lastPushMs() const { return lastPush; }

    // At most this much audio is buffered; older audio is dropped.
    static constexpr int kMaxBufferMs = 2000;
    // Audio queued in the sink ahead of playback.
    static constexpr int kSinkAheadMs = 100;
    // A stream with no frame for this long has ended.
    static constexpr int kStreamEndMs = 300;
    // Below this much audio queued in the sink, a late frame is bridged with silence.
    static constexpr int kLowWaterMs = 40;
    static constexpr int kSilenceMs = 20;

private:
    qsizetype wholeFrames(qsizetype bytes) const { return bytes - bytes % frameSize; }

    QByteArray buffer;
    bool playing = false;
    qint64 lastPush = 0;
    int gaps = 0;
    int pendingGaps = 0; // silence written since the last frame came
    int rate = 48000;
    int frameSize = 4;
};

} // namespace zl::audio
