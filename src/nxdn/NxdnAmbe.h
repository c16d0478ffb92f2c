#pragma once

#include <QByteArray>

namespace zl::nxdn {

// The four AMBE frames of an NXDN voice block sit at 49-bit slots: bits 0 and 49 of the
// halves at bytes 5 and 19, each as A (12 bits), B (12 bits), c (25 bits), top bits first.
inline constexpr int kAmbePerBlock = 4;

// Writes a chip's 9-byte 72-bit frame into slot 0..3 of a 33-byte block.
void putAmbe(QByteArray& block33, int slot, const QByteArray& frame9);
// The 9-byte 72-bit frame of slot 0..3, as a chip takes it.
QByteArray ambeAt(const QByteArray& block33, int slot);

} // namespace zl::nxdn
