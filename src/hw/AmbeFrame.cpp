#include "hw/AmbeFrame.h"

#include <array>

namespace zl::hw {

namespace {

constexpr uint32_t golayGenerator = 0xC75;

constexpr uint32_t golaySyndrome(uint32_t word)
{
    // Polynomial division of the 23-bit word by the generator, from bit 22 down.
    for (int bit = 22; bit >= 11 && word >= 0x800; --bit) {
        if (word & (1u << bit))
            word ^= golayGenerator << (bit - 11);
    }
    return word;
}

struct Tables {
    std::array<uint32_t, 4096> encode23{};
    std::array<uint32_t, 2048> errorPattern{};
    std::array<uint32_t, 4096> scramble{};
    // Bit position in the 72-bit frame of the n-th bit of a, b, c taken in order.
    std::array<uint8_t, 72> interleave{};
};

Tables makeTables()
{
    Tables t;
    for (uint32_t data = 0; data < 4096; ++data)
        t.encode23[data] = (data << 11) | golaySyndrome(data << 11);
    // The code is perfect: the patterns of weight 0 to 3 fill all 2048 syndromes exactly.
    for (int i = 0; i < 23; ++i) {
        for (int j = i; j < 23; ++j) {
            for (int k = j; k < 23; ++k) {
                const uint32_t pattern = (1u << i) | (1u << j) | (1u << k);
                t.errorPattern[golaySyndrome(pattern)] = pattern;
            }
        }
    }
    for (uint32_t u = 0; u < 4096; ++u) {
        uint32_t p = 16 * u;
        uint32_t m = 0;
        for (int i = 0; i < 24; ++i) {
            p = (173 * p + 13849) & 0xFFFF;
            m = (m << 1) | (p >> 15);
        }
        t.scramble[u] = m;
    }
    int n = 0;
    for (int phase = 0; phase < 4; ++phase) {
        for (int pos = phase; pos < 72; pos += 4)
            t.interleave[n++] = static_cast<uint8_t>(pos);
    }
    return t;
}

const Tables& tables()
{
    static const Tables t = makeTables();
    return t;
}

inline int getBit(const uint8_t* bytes, int pos)
{
    return (bytes[pos >> 3] >> (7 - (pos & 7))) & 1;
}

inline uint32_t golay23Decode(const Tables& t, uint32_t word23)
{
    return (word23 ^ t.errorPattern[golaySyndrome(word23)]) >> 11;
}

inline void setBit(uint8_t* bytes, int pos)
{
    bytes[pos >> 3] |= static_cast<uint8_t>(0x80 >> (pos & 7));
}

} // namespace

uint32_t golay24Encode(uint32_t data12)
{
    const uint32_t word = tables().encode23[data12 & 0xFFF];
    return (word << 1) | (__builtin_popcount(word) & 1);
}

bool golay24Decode(uint32_t word24, uint32_t& data12)
{
    const Tables& t = tables();
    const uint32_t word23 = (word24 >> 1) & 0x7FFFFF;
    const uint32_t error = t.errorPattern[golaySyndrome(word23)];
    const uint32_t corrected = word23 ^ error;
    data12 = corrected >> 11;
    // Three corrected bits and a wrong overall parity mean four errors: a wrong code word.
    const bool parityOk = ((__builtin_popcount(corrected) + (word24 & 1)) & 1) == 0;
    return parityOk || __builtin_popcount(error) < 3;
}

void ambe72To49(const uint8_t in[9], uint8_t out[7])
{
    const Tables& t = tables();
    uint32_t a = 0;
    uint32_t b = 0;
    uint32_t c = 0;
    for (int n = 0; n < 24; ++n)
        a = (a << 1) | getBit(in, t.interleave[n]);
    for (int n = 24; n < 47; ++n)
        b = (b << 1) | getBit(in, t.interleave[n]);
    for (int n = 47; n < 72; ++n)
        c = (c << 1) | getBit(in, t.interleave[n]);
    const uint32_t dataA = golay23Decode(t, a >> 1);
    const uint32_t dataB = golay23Decode(t, b ^ (t.scramble[dataA] >> 1));
    // A (12) B (12) c (25) = 49 bits, left-aligned in 56.
    const uint64_t bits = ((uint64_t(dataA) << 37) | (uint64_t(dataB) << 25) | c) << 7;
    for (int i = 0; i < 7; ++i)
        out[i] = static_cast<uint8_t>(bits >> (48 - 8 * i));
}

void ambe49To72(const uint8_t in[7], uint8_t out[9])
{
    const Tables& t = tables();
    uint64_t bits = 0;
    for (int i = 0; i < 7; ++i)
        bits = (bits << 8) | in[i];
    bits >>= 7;
    const uint32_t dataA = static_cast<uint32_t>(bits >> 37) & 0xFFF;
    const uint32_t dataB = static_cast<uint32_t>(bits >> 25) & 0xFFF;
    const uint32_t c = static_cast<uint32_t>(bits) & 0x1FFFFFF;
    const uint32_t a = golay24Encode(dataA);
    const uint32_t b = t.encode23[dataB] ^ (t.scramble[dataA] >> 1);
    for (int i = 0; i < 9; ++i)
        out[i] = 0;
    for (int n = 0; n < 24; ++n) {
        if (a & (1u << (23 - n)))
            setBit(out, t.interleave[n]);
    }
    for (int n = 0; n < 23; ++n) {
        if (b & (1u << (22 - n)))
            setBit(out, t.interleave[24 + n]);
    }
    for (int n = 0; n < 25; ++n) {
        if (c & (1u << (24 - n)))
            setBit(out, t.interleave[47 + n]);
    }
}

} // namespace zl::hw
