#include "YsfVoiceField.h"

#include "YsfConvolution.h"
#include "hw/AmbeFrame.h"

#include <array>

namespace zl::ysf {

namespace {

constexpr int kBits = 104;

// Deinterleaving: output bit i is input bit D(i), 26 columns of 4.
std::array<int, kBits> makeD()
{
    std::array<int, kBits> d{};
    int i = 0;
    for (int phase = 0; phase < 4; ++phase) {
        for (int pos = phase; pos < kBits; pos += 4)
            d[i++] = pos;
    }
    return d;
}

const std::array<int, kBits> kD = makeD();

struct Words {
    quint32 a = 0; // 12 bits
    quint32 b = 0; // 12 bits
    quint32 c = 0; // 25 bits
};

QByteArray packed49(const Words& w)
{
    const quint64 bits = ((quint64(w.a) << 37) | (quint64(w.b) << 25) | w.c) << 7;
    QByteArray out(7, '\0');
    for (int i = 0; i < 7; ++i)
        out[i] = char(bits >> (48 - 8 * i));
    return out;
}

Words unpacked49(const QByteArray& seven)
{
    quint64 bits = 0;
    for (int i = 0; i < 7; ++i)
        bits = (bits << 8) | quint8(seven.at(i));
    bits >>= 7;
    return {quint32(bits >> 37) & 0xFFF, quint32(bits >> 25) & 0xFFF, quint32(bits) & 0x1FFFFFF};
}

} // namespace

QByteArray whitening(int n)
{
    static const QByteArray sequence = QByteArray::fromHex("93d751219c2f6cd0ef0ff83df1732094ed1e7cd8");
    return sequence.left(n);
}

QByteArray voiceFieldToChipFrame(const QByteArray& field)
{
    const QList<quint8> in = bitsOf(field, kBits);
    const QList<quint8> white = bitsOf(whitening(kVoiceFieldSize), kBits);
    QList<quint8> bits(kBits);
    for (int i = 0; i < kBits; ++i)
        bits[i] = in[kD[i]] ^ white[i];

    Words w;
    for (int i = 0; i < 12; ++i) {
        w.a = (w.a << 1) | bits[1 + 3 * i];
        w.b = (w.b << 1) | bits[37 + 3 * i];
    }
    for (int i = 0; i < 3; ++i)
        w.c = (w.c << 1) | bits[73 + 3 * i];
    for (int i = 81; i <= 102; ++i)
        w.c = (w.c << 1) | bits[i];

    const QByteArray seven = packed49(w);
    QByteArray frame(9, '\0');
    zl::hw::ambe49To72(reinterpret_cast<const uint8_t*>(seven.constData()), reinterpret_cast<uint8_t*>(frame.data()));
    return frame;
}

QByteArray chipFrameToVoiceField(const QByteArray& frame9)
{
    QByteArray seven(7, '\0');
    zl::hw::ambe72To49(reinterpret_cast<const uint8_t*>(frame9.constData()), reinterpret_cast<uint8_t*>(seven.data()));
    const Words w = unpacked49(seven);

    QList<quint8> bits(kBits, 0);
    for (int i = 0; i < 12; ++i) {
        for (int k = 0; k < 3; ++k) {
            bits[3 * i + k] = (w.a >> (11 - i)) & 1;
            bits[36 + 3 * i + k] = (w.b >> (11 - i)) & 1;
        }
    }
    for (int i = 0; i < 3; ++i) {
        for (int k = 0; k < 3; ++k)
            bits[72 + 3 * i + k] = (w.c >> (24 - i)) & 1;
    }
    for (int i = 0; i < 22; ++i)
        bits[81 + i] = (w.c >> (21 - i)) & 1;

    const QList<quint8> white = bitsOf(whitening(kVoiceFieldSize), kBits);
    QList<quint8> out(kBits, 0);
    for (int i = 0; i < kBits; ++i)
        out[kD[i]] = bits[i] ^ white[i];
    return bytesOf(out);
}

} // namespace zl::ysf
