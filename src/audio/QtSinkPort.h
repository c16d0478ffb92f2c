#pragma once

#include "SinkPort.h"

#include <QAudioDevice>

class QAudioSink;
class QIODevice;

namespace zl::audio {

// A QAudioSink in push mode on one device, stopped and deleted with this object.
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
};

} // namespace zl::audio
