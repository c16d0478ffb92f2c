#pragma once

#include <QAudioFormat>
#include <QString>

namespace zl::audio {

// The part of an output stream the mixer uses: a push-mode sink with a fixed queue.
// Tests stand in for the sound server through it.
class SinkPort {
public:
    virtual ~SinkPort() = default;

    virtual QAudioFormat format() const = 0;
    virtual qsizetype bufferSize() const = 0;
    virtual qsizetype bytesFree() const = 0;
    // Bytes taken, which may be fewer than offered when the queue is full.
    virtual qint64 write(const char* data, qint64 size) = 0;
    // The sound server may suspend an idle stream; playback must go on.
    virtual void resumeIfSuspended() = 0;
};

} // namespace zl::audio
