#pragma once

#include <QByteArray>
#include <QList>

namespace zl::ysf {

// The rate-1/2, constraint-length-5 convolutional code of the YSF FICH and header data:
// for each input bit d, g1 = d + d3 + d4 and g2 = d + d1 + d2 + d4 (mod 2), from a zero state.

// Bits in, one per entry (0 or 1); two bits out per input bit, g1 first.
QList<quint8> convolutionalEncode(const QList<quint8>& bits);
// Hard-decision Viterbi decoding of pairs (g1, g2), ending in state 0. The result has one bit
// per pair.
QList<quint8> viterbiDecode(const QList<quint8>& pairs);

// Bits of a byte array, top bit of byte 0 first, and back.
QList<quint8> bitsOf(const QByteArray& bytes, int count);
QByteArray bytesOf(const QList<quint8>& bits);

} // namespace zl::ysf
