#pragma once

#include <QByteArray>
#include <optional>

namespace zl::ysf {

// The frame information channel of a YSF frame: 32 bits of fields protected by a CRC-16,
// Golay(24,12), the rate-1/2 convolutional code and interleaving into 25 bytes.
struct Fich {
    quint8 fi = 0; // 0 header, 1 communications, 2 terminator
    quint8 cs = 0;
    quint8 cm = 0;
    quint8 bn = 0;
    quint8 bt = 0;
    quint8 fn = 0; // frame number 0..6
    quint8 ft = 0; // frame total
    quint8 dt = 0; // 2: V/D mode 2
    quint8 mr = 0;
    bool voip = false;
    bool dev = false;
    quint8 sq = 0; // DG-ID, 7 bits

    QByteArray toBytes() const; // the four field bytes
    static Fich fromBytes(const QByteArray& four);
};

inline constexpr qsizetype kFichFieldSize = 25;

QByteArray encodeFich(const Fich& fich);
// Empty when a Golay word cannot be corrected or the CRC does not match.
std::optional<Fich> decodeFich(const QByteArray& fichField25);

// The bit position pairs of the interleaver: pair i of the coded bits goes to bits T(i) and
// T(i) + 1, with T = 40r + 2c for c = 0..columns-1 and r = 0..rows-1, c the outer loop.
QList<int> interleaveTable(int rows);

} // namespace zl::ysf
