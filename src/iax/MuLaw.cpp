#include "MuLaw.h"

#include <QtEndian>

namespace zl::iax {

namespace {

constexpr int kBias = 132;
constexpr int kClip = 32635;

} // namespace

quint8 linearToMuLaw(qint16 sample)
{
    int value = sample;
    const int sign = value < 0 ? 0x80 : 0x00;
    if (value < 0)
        value = -value;
    value = qMin(value, kClip) + kBias;
    int exponent = 7;
    for (int mask = 0x4000; (value & mask) == 0 && exponent > 0; mask >>= 1)
        --exponent;
    const int mantissa = (value >> (exponent + 3)) & 0x0F;
    return quint8(~(sign | (exponent << 4) | mantissa));
}

qint16 muLawToLinear(quint8 code)
{
    const int inverted = ~code & 0xFF;
    const int exponent = (inverted >> 4) & 0x07;
    const int mantissa = inverted & 0x0F;
    const int magnitude = (((mantissa << 3) + kBias) << exponent) - kBias;
    return qint16((inverted & 0x80) ? -magnitude : magnitude);
}

QByteArray encodeMuLaw(const QByteArray& pcm)
{
    const qsizetype count = pcm.size() / 2;
    QByteArray codes(count, '\0');
    for (qsizetype i = 0; i < count; ++i)
        codes[i] = char(linearToMuLaw(qFromLittleEndian<qint16>(pcm.constData() + 2 * i)));
    return codes;
}

QByteArray decodeMuLaw(const QByteArray& codes)
{
    QByteArray pcm(codes.size() * 2, '\0');
    for (qsizetype i = 0; i < codes.size(); ++i)
        qToLittleEndian<qint16>(muLawToLinear(quint8(codes.at(i))), pcm.data() + 2 * i);
    return pcm;
}

} // namespace zl::iax
