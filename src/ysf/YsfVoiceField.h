#pragma once

#include <QByteArray>

namespace zl::ysf {

// The 13-byte voice field of V/D mode 2: the 49 bits of one AMBE frame, A and B and the top
// three bits of c sent three times, whitened and interleaved over 104 bits.
inline constexpr qsizetype kVoiceFieldSize = 13;

// To the 9-byte 72-bit frame a chip takes. Of each repeated bit the middle copy is taken.
QByteArray voiceFieldToChipFrame(const QByteArray& field13);
// From the 9-byte 72-bit frame a chip gives.
QByteArray chipFrameToVoiceField(const QByteArray& frame9);

// The YSF whitening sequence, first n bytes (n <= 20).
QByteArray whitening(int n);

} // namespace zl::ysf
