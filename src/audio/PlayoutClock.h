#pragma once

#include <QtGlobal>

namespace zl::audio {

// How much written audio has not been played yet, measured as the sound card would: from the
// moment audio is written it plays at the nominal rate, and a queue that ran dry starts again
// with the next write. Qt's processed time on PulseAudio counts only what left Qt's own buffer
// for the server, not what the server still holds, so the sink cannot tell this itself.
// Times are in microseconds on any monotonic clock the caller keeps.
class PlayoutClock {
public:
    explicit PlayoutClock(qint64 bytesPerSecond = 192000) : rate(qMax<qint64>(1, bytesPerSecond)) {}

    void wrote(qint64 bytes, qint64 nowUs);
    qint64 queuedBytes(qint64 nowUs) const;

private:
    qint64 rate;
    qint64 drainsAtUs = 0; // when the last written byte has played
};

} // namespace zl::audio
