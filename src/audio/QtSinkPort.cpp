#include "QtSinkPort.h"

#include <QAudioSink>

namespace zl::audio {

QtSinkPort::QtSinkPort(const QAudioDevice& device, const QAudioFormat& format, qsizetype bufferBytes)
    : sink(new QAudioSink(device, format)), playout(format.bytesForDuration(1000000))
{
    sink->setBufferSize(bufferBytes);
    sinkDevice = sink->start();
    clock.start();
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
    const qint64 handedOn = sink->format().bytesForDuration(sink->processedUSecs());
    const qint64 inQt = qMax<qint64>(0, written - handedOn);
    const qint64 queued = qMax(inQt, playout.queuedBytes(clock.nsecsElapsed() / 1000));
    return qMax<qint64>(0, sink->bufferSize() - queued);
}

qint64 QtSinkPort::write(const char* data, qint64 size)
{
    const qint64 taken = sinkDevice ? sinkDevice->write(data, size) : 0;
    written += qMax<qint64>(0, taken);
    playout.wrote(taken, clock.nsecsElapsed() / 1000);
    return taken;
}

void QtSinkPort::resumeIfSuspended()
{
    if (sink->state() == QAudio::SuspendedState)
        sink->resume();
}

} // namespace zl::audio
