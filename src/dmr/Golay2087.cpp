#include "dmr/Golay2087.h"

#include <array>
#include <bit>

namespace zl::dmr {

namespace {

constexpr uint32_t kGenerator = 0xC75;
constexpr int kCheckBits = 11;
constexpr int kShortWordBits = 19;

// Remainder of a word of up to 19 bits divided by the generator.
constexpr uint32_t syndrome(uint32_t word)
{
    for (int bit = kShortWordBits - 1; bit >= kCheckBits; --bit) {
        if (word & (1U << bit))
            word ^= kGenerator << (bit - kCheckBits);
    }
    return word;
}

struct GolayTables {
    std::array<uint32_t, 256> encoding{};
    // Error pattern of weight three or less for each of the 2048 syndromes; the code's distance of 7
    // over 19 bits keeps these patterns apart.
    std::array<uint32_t, 1U << kCheckBits> correction{};

    constexpr GolayTables()
    {
        for (uint32_t value = 0; value < 256; ++value) {
            const uint32_t shortWord = (value << kCheckBits) | syndrome(value << kCheckBits);
            encoding[value] = (shortWord << 1) | uint32_t(std::popcount(shortWord) & 1);
        }
        for (int a = 0; a < kShortWordBits; ++a) {
            const uint32_t one = 1U << a;
            correction[syndrome(one)] = one;
            for (int b = a + 1; b < kShortWordBits; ++b) {
                const uint32_t two = one | (1U << b);
                correction[syndrome(two)] = two;
                for (int c = b + 1; c < kShortWordBits; ++c) {
                    const uint32_t three = two | (1U << c);
                    correction[syndrome(three)] = three;
                }
            }
        }
    }
};

const GolayTables& tables()
{
    static const GolayTables computed;
    return computed;
}

} // namespace

uint32_t golay2087Encode(uint8_t value)
{
    return tables().encoding[value];
}

uint8_t golay2087Decode(const uint8_t* in3)
{
    // The parity bit is not needed to correct three errors.
    uint32_t word = (uint32_t(in3[0]) << 11) | (uint32_t(in3[1]) << 3) | (uint32_t(in3[2]) >> 5);
    word ^= tables().correction[syndrome(word)];
    return uint8_t(word >> kCheckBits);
}

} // namespace zl::dmr
