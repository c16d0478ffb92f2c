#pragma once

#include "PlayoutClock.h"
#include "SinkPort.h"

#include <QAudioDevice>
#include <QElapsedTimer>

class QAudioSink;
class QIODevice;

namespace zl::audio {

// A QAudioSink in push mode on one device, stopped and deleted with this object.
// PulseAudio's writable size is what the server asks for next, not the free part of the
// queue (it starts at one period and never comes near the buffer size), and Qt's processed
// time counts what reached the server, not what it played. So the free space is counted
// here: the buffer size less what was written and not yet played, by the playout clock (or
// by Qt's count, where that is more).
class QtSinkPort : public SinkPort {
public:
    QtSinkPort(const QAudioDevice& device, const QAudioFormat& format, qsizetype bufferBytes);
    ~QtSinkPort() override;

    QAudioFormat format() const override;
    qsizetype bufferSize() const override;
    qsizetype bytesFree() const override;
    qint64 write(const char* data, qint64 size) override;
    void resumeIfSuspended() override;

private:
    QAudioSink* sink = nullptr;
    QIODevice* sinkDevice = nullptr;
    qint64 written = 0;
    PlayoutClock playout;
    QElapsedTimer clock;
};

} // namespace zl::audio
