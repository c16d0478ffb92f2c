#pragma once

// Arithmetic written from the definitions, without tables, as an independent yardstick for the codecs.

#include <cstdint>
#include <vector>

namespace reference {

// Product in GF(256) with the field polynomial x^8 + x^4 + x^3 + x^2 + 1 (0x11D), by shift and add.
inline uint8_t gfMultiply(uint8_t a, uint8_t b)
{
    unsigned product = 0;
    unsigned shifted = a;
    for (int bit = 0; bit < 8; ++bit) {
        if (b & (1U << bit))
            product ^= shifted;
        shifted <<= 1;
        if (shifted & 0x100)
            shifted ^= 0x11D;
    }
    return uint8_t(product);
}

inline uint8_t gfPower(uint8_t base, int exponent)
{
    uint8_t result = 1;
    for (int i = 0; i < exponent; ++i)
        result = gfMultiply(result, base);
    return result;
}

// Value at x of the polynomial whose coefficients are given from the highest degree down (Horner).
inline uint8_t gfEvaluate(const std::vector<uint8_t>& coefficients, uint8_t x)
{
    uint8_t value = 0;
    for (uint8_t coefficient : coefficients)
        value = uint8_t(gfMultiply(value, x) ^ coefficient);
    return value;
}

// A Reed-Solomon(12,9) code word with generator roots alpha, alpha^2, alpha^3 (alpha = 2) is zero there.
inline bool hasRsRoots(const std::vector<uint8_t>& word12)
{
    for (int i = 1; i <= 3; ++i) {
        if (gfEvaluate(word12, gfPower(2, i)) != 0)
            return false;
    }
    return true;
}

// Remainder of a binary polynomial divided by another, both as bit masks.
inline uint32_t polyMod(uint32_t dividend, uint32_t divisor)
{
    int divisorDegree = 31;
    while (!(divisor & (1U << divisorDegree)))
        --divisorDegree;
    for (int bit = 31; bit >= divisorDegree; --bit) {
        if (dividend & (1U << bit))
            dividend ^= divisor << (bit - divisorDegree);
    }
    return dividend;
}

} // namespace reference
