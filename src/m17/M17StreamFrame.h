#pragma once

#include <QByteArray>
#include <QString>

namespace zl::m17 {

// The 54-byte stream frame of the M17 network:
// "M17 ", stream id, destination, source, type 0x0005, 14 bytes meta, frame number with the
// end-of-stream bit on top, two 8-byte Codec2 frames, CRC over bytes 0..51.
namespace frame {
inline constexpr qsizetype kSize = 54;
inline constexpr qsizetype kStreamId = 4;
inline constexpr qsizetype kDestination = 6;
inline constexpr qsizetype kSource = 12;
inline constexpr qsizetype kType = 18;
inline constexpr qsizetype kFrameNumber = 34;
inline constexpr qsizetype kCodec2First = 36;
inline constexpr qsizetype kCodec2Second = 44;
inline constexpr qsizetype kCrc = 52;
inline constexpr qsizetype kCodec2Size = 8;
inline constexpr quint16 kEndOfStream = 0x8000;
} // namespace frame

// Empty when the source is not 1 to 9 characters or the destination is empty or over 9.
QByteArray buildStreamFrame(const QString& source, const QString& destination, quint16 streamId, quint16 frameNumber,
                            bool endOfStream, const QByteArray& codec2First, const QByteArray& codec2Second);

bool isStreamFrame(const QByteArray& datagram);
quint16 streamIdOf(const QByteArray& streamFrame);
QString sourceOf(const QByteArray& streamFrame);
bool isEndOfStream(const QByteArray& streamFrame);

} // namespace zl::m17
