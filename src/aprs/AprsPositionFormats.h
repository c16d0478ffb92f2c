#pragma once

#include "aprs/AprsPacket.h"

#include <QByteArray>

namespace zl::aprs {

// The two position encodings most trackers and handhelds send. Each fills the position fields
// of the packet (coordinates, symbol, course and speed where present, comment) and returns
// false, touching nothing, when the bytes are not that encoding.

// Compressed position: symbol table, base-91 latitude and longitude, symbol code, course/speed
// or range or altitude, compression type; 13 bytes, then the comment.
bool decodeCompressed(const QByteArray& field, ParsedPacket& packet);
// Mic-E: latitude and flags in the destination's six characters, longitude, speed, course and
// symbol in the information field behind its type byte.
bool decodeMicE(const QByteArray& destination, const QByteArray& information, ParsedPacket& packet);

} // namespace zl::aprs
