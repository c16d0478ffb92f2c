#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace zl::hw {

// The AMBE-3000 packet stream: 0x61, LEN (big endian, of which a reader takes 12 bits),
// type, LEN bytes of fields. Cuts every complete packet off the front of buffer, dropping
// bytes one at a time until a start byte leads; an incomplete packet stays in buffer.
QList<QByteArray> takeAmbePackets(QByteArray& buffer);

// Identity texts of a control packet: product id (field 0x30) and version (0x31), each
// NUL-terminated Latin-1. Every other field is skipped with one data byte. Fields absent
// from the packet leave the outputs untouched.
void readAmbeIdentity(const QByteArray& packet, QString& prodId, QString& version);

} // namespace zl::hw
