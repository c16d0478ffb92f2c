#include "YsfConvolution.h"

#include <array>
#include <limits>

namespace zl::ysf {

namespace {

// The state holds d1 (bit 0) to d4 (bit 3), the four previous input bits.
struct Output {
    quint8 g1;
    quint8 g2;
};

Output outputFor(unsigned state, quint8 d)
{
    const unsigned d1 = state & 1, d2 = (state >> 1) & 1, d3 = (state >> 2) & 1, d4 = (state >> 3) & 1;
    return {quint8((d + d3 + d4) & 1), quint8((d + d1 + d2 + d4) & 1)};
}

unsigned nextState(unsigned state, quint8 d)
{
    return ((state << 1) | d) & 0xF;
}

} // namespace

QList<quint8> convolutionalEncode(const QList<quint8>& bits)
{
    QList<quint8> out;
    out.reserve(bits.size() * 2);
    unsigned state = 0;
    for (quint8 d : bits) {
        const Output o = outputFor(state, d & 1);
        out.append(o.g1);
        out.append(o.g2);
        state = nextState(state, d & 1);
    }
    return out;
}

QList<quint8> viterbiDecode(const QList<quint8>& pairs)
{
    constexpr int kStates = 16;
    constexpr unsigned kUnreached = std::numeric_limits<unsigned>::max() / 2;
    const qsizetype steps = pairs.size() / 2;
    std::array<unsigned, kStates> metric;
    metric.fill(kUnreached);
    metric[0] = 0;
    // For each step and state: the predecessor state and the input bit that led there.
    QList<std::array<quint8, kStates>> from(steps);
    for (qsizetype t = 0; t < steps; ++t) {
        std::array<unsigned, kStates> next;
        next.fill(kUnreached);
        for (unsigned s = 0; s < kStates; ++s) {
            if (metric[s] >= kUnreached)
                continue;
            for (quint8 d = 0; d < 2; ++d) {
                const Output o = outputFor(s, d);
                const unsigned cost = metric[s] + (o.g1 != (pairs[2 * t] & 1)) + (o.g2 != (pairs[2 * t + 1] & 1));
                const unsigned n = nextState(s, d);
                if (cost < next[n]) {
                    next[n] = cost;
                    from[t][n] = quint8(s << 1 | d);
                }
            }
        }
        metric = next;
    }
    // The tail bits bring the encoder back to state 0: chain back from there.
    QList<quint8> bits(steps);
    unsigned state = 0;
    for (qsizetype t = steps - 1; t >= 0; --t) {
        bits[t] = from[t][state] & 1;
        state = from[t][state] >> 1;
    }
    return bits;
}

QList<quint8> bitsOf(const QByteArray& bytes, int count)
{
    QList<quint8> bits(count);
    for (int i = 0; i < count; ++i)
        bits[i] = (quint8(bytes.at(i / 8)) >> (7 - i % 8)) & 1;
    return bits;
}

QByteArray bytesOf(const QList<quint8>& bits)
{
    QByteArray bytes((bits.size() + 7) / 8, '\0');
    for (qsizetype i = 0; i < bits.size(); ++i) {
        if (bits[i])
            bytes[i / 8] = char(quint8(bytes.at(i / 8)) | (0x80 >> (i % 8)));
    }
    return bytes;
}

} // namespace zl::ysf
