#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace zl::hw {

// The largest packet a chip sends: speech of 160 samples with its fields, and some room.
constexpr qsizetype kMaxAmbePacket = 400;

// The AMBE-3000 packet stream: 0x61, LEN (big endian, of which a reader takes 12 bits),
// type, LEN bytes of fields. Cuts every complete packet off the front of buffer, dropping
// bytes one at a time until a plausible header leads (start byte, a length no chip sends
// or an unknown type means line noise, and the search goes on at the next start byte);
// an incomplete packet stays in buffer.
QList<QByteArray> takeAmbePackets(QByteArray& buffer);

// True when a datagram is exactly one well-formed packet, as an AMBEserver sends them.
bool isWholeAmbePacket(const QByteArray& datagram);

// Identity texts of a control packet: product id (field 0x30) and version (0x31), each
// NUL-terminated Latin-1. Every other field is skipped with one data byte. Fields absent
// from the packet leave the outputs untouched.
void readAmbeIdentity(const QByteArray& packet, QString& prodId, QString& version);

} // namespace zl::hw
