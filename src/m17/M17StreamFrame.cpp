#include "M17StreamFrame.h"

#include "M17Callsign.h"
#include "M17Crc.h"

#include <algorithm>

namespace zl::m17 {

namespace {

void putU16(QByteArray& data, qsizetype offset, quint16 value)
{
    data[offset] = char(value >> 8);
    data[offset + 1] = char(value & 0xFF);
}

// Copies at most size bytes of value to offset; a shorter value leaves zeros after it.
void putBytes(QByteArray& data, qsizetype offset, const QByteArray& value, qsizetype size)
{
    std::copy_n(value.constData(), std::min(size, value.size()), data.data() + offset);
}

quint16 u16At(const QByteArray& data, qsizetype offset)
{
    return quint16((quint8(data.at(offset)) << 8) | quint8(data.at(offset + 1)));
}

} // namespace

QByteArray buildStreamFrame(const QString& source, const QString& destination, quint16 streamId, quint16 frameNumber,
                            bool endOfStream, const QByteArray& codec2First, const QByteArray& codec2Second)
{
    if (source.isEmpty() || source.size() > 9 || destination.isEmpty() || destination.size() > 9)
        return {};
    const QString dest = (destination == QLatin1String("ALL") || destination == QLatin1String("ALL "))
                             ? kBroadcastCallsign
                             : destination;
    QByteArray out(frame::kSize, '\0');
    putBytes(out, 0, QByteArrayLiteral("M17 "), 4);
    putU16(out, frame::kStreamId, streamId);
    putBytes(out, frame::kDestination, addressBytes(encodeCallsign(dest)), 6);
    putBytes(out, frame::kSource, addressBytes(encodeCallsign(source)), 6);
    putU16(out, frame::kType, 0x0005);
    putU16(out, frame::kFrameNumber, quint16((frameNumber & 0x7FFF) | (endOfStream ? frame::kEndOfStream : 0)));
    putBytes(out, frame::kCodec2First, codec2First, frame::kCodec2Size);
    putBytes(out, frame::kCodec2Second, codec2Second, frame::kCodec2Size);
    putU16(out, frame::kCrc, m17Crc(QByteArrayView(out).first(frame::kCrc)));
    return out;
}

bool isStreamFrame(const QByteArray& datagram)
{
    return datagram.size() == frame::kSize && datagram.startsWith("M17 ");
}

quint16 streamIdOf(const QByteArray& streamFrame)
{
    return u16At(streamFrame, frame::kStreamId);
}

QString sourceOf(const QByteArray& streamFrame)
{
    return decodeCallsign(addressAt(streamFrame, frame::kSource));
}

bool isEndOfStream(const QByteArray& streamFrame)
{
    return u16At(streamFrame, frame::kFrameNumber) & frame::kEndOfStream;
}

} // namespace zl::m17
