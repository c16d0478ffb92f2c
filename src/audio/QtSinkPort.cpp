#include "QtSinkPort.h"

#include <QAudioSink>

namespace zl::audio {

QtSinkPort::QtSinkPort(const QAudioDevice& device, const QAudioFormat& format, qsizetype bufferBytes)
    : sink(new QAudioSink(device, format))
{
    sink->setBufferSize(bufferBytes);
    sinkDevice = sink->start();
}

QtSinkPort::~QtSinkPort()
{
    sink->stop();
    delete sink;
}

QAudioFormat QtSinkPort::format() const
{
    return sink->format();
}

qsizetype QtSinkPort::bufferSize() const
{
    return sink->bufferSize();
}

qsizetype QtSinkPort::bytesFree() const
{
    return sink->bytesFree();
}

qint64 QtSinkPort::write(const char* data, qint64 size)
{
    return sinkDevice ? sinkDevice->write(data, size) : 0;
}

void QtSinkPort::resumeIfSuspended()
{
    if (sink->state() == QAudio::SuspendedState)
        sink->resume();
}

} // namespace zl::audio
