#include "dmr/Hamming.h"

#include <array>
#include <initializer_list>

namespace zl::dmr {

namespace {

// A systematic binary code given by its parity equations: parity bit p is the XOR of the data bits
// set in masks[p]. The single-error syndromes are the columns of the parity-check matrix.
template <int K, int P>
class HammingCode {
public:
    constexpr explicit HammingCode(std::array<uint32_t, P> parityMasks) : masks(parityMasks)
    {
        for (auto& position : flipAt)
            position = -1;
        for (int i = 0; i < K + P; ++i)
            flipAt[column(i)] = int8_t(i);
    }

    void encode(uint8_t* bits) const
    {
        for (int p = 0; p < P; ++p)
            bits[K + p] = parity(bits, p);
    }

    bool decode(uint8_t* bits) const
    {
        unsigned syndrome = 0;
        for (int p = 0; p < P; ++p) {
            if (parity(bits, p) != (bits[K + p] & 1U))
                syndrome |= 1U << p;
        }
        const int position = flipAt[syndrome];
        if (syndrome == 0 || position < 0)
            return false;
        bits[position] ^= 1U;
        return true;
    }

private:
    constexpr unsigned column(int bit) const
    {
        if (bit >= K)
            return 1U << (bit - K);
        unsigned syndrome = 0;
        for (int p = 0; p < P; ++p) {
            if (masks[p] & (1U << bit))
                syndrome |= 1U << p;
        }
        return syndrome;
    }

    uint8_t parity(const uint8_t* bits, int p) const
    {
        unsigned value = 0;
        for (int i = 0; i < K; ++i) {
            if (masks[p] & (1U << i))
                value ^= bits[i] & 1U;
        }
        return uint8_t(value);
    }

    std::array<uint32_t, P> masks;
    std::array<int8_t, (1U << P)> flipAt{};
};

constexpr uint32_t dataBits(std::initializer_list<int> positions)
{
    uint32_t mask = 0;
    for (int position : positions)
        mask |= 1U << position;
    return mask;
}

// Parity equations of ETSI TS 102 361-1 Annex B.
constexpr HammingCode<11, 4> kHamming15113_2({dataBits({0, 1, 2, 3, 5, 7, 8}), dataBits({1, 2, 3, 4, 6, 8, 9}),
                                              dataBits({2, 3, 4, 5, 7, 9, 10}), dataBits({0, 1, 2, 4, 6, 7, 10})});
constexpr HammingCode<9, 4> kHamming1393({dataBits({0, 1, 3, 5, 6}), dataBits({0, 1, 2, 4, 6, 7}),
                                          dataBits({0, 1, 2, 3, 5, 7, 8}), dataBits({0, 2, 4, 5, 8})});
constexpr HammingCode<11, 4> kHamming15113_1({dataBits({0, 1, 2, 3, 4, 5, 6}), dataBits({0, 1, 2, 3, 7, 8, 9}),
                                              dataBits({0, 1, 4, 5, 7, 8, 10}), dataBits({0, 2, 4, 6, 7, 9, 10})});
constexpr HammingCode<6, 4> kHamming1063({dataBits({0, 1, 2, 5}), dataBits({0, 1, 3, 5}), dataBits({0, 2, 3, 4}),
                                          dataBits({1, 2, 3, 4})});
// The (15,11,3) row code with a fifth parity bit.
constexpr HammingCode<11, 5> kHamming16114({dataBits({0, 1, 2, 3, 5, 7, 8}), dataBits({1, 2, 3, 4, 6, 8, 9}),
                                            dataBits({2, 3, 4, 5, 7, 9, 10}), dataBits({0, 1, 2, 4, 6, 7, 10}),
                                            dataBits({0, 2, 5, 6, 8, 9, 10})});
constexpr HammingCode<12, 5> kHamming17123({dataBits({0, 1, 2, 3, 6, 7, 9}), dataBits({0, 1, 2, 3, 4, 7, 8, 10}),
                                            dataBits({1, 2, 3, 4, 5, 8, 9, 11}), dataBits({0, 1, 4, 5, 7, 10}),
                                            dataBits({0, 1, 2, 5, 6, 8, 11})});

} // namespace

void Hamming15113_2::encode(uint8_t* bits)
{
    kHamming15113_2.encode(bits);
}

bool Hamming15113_2::decode(uint8_t* bits)
{
    return kHamming15113_2.decode(bits);
}

void Hamming1393::encode(uint8_t* bits)
{
    kHamming1393.encode(bits);
}

bool Hamming1393::decode(uint8_t* bits)
{
    return kHamming1393.decode(bits);
}

void Hamming15113_1::encode(uint8_t* bits)
{
    kHamming15113_1.encode(bits);
}

bool Hamming15113_1::decode(uint8_t* bits)
{
    return kHamming15113_1.decode(bits);
}

void Hamming1063::encode(uint8_t* bits)
{
    kHamming1063.encode(bits);
}

bool Hamming1063::decode(uint8_t* bits)
{
    return kHamming1063.decode(bits);
}

void Hamming16114::encode(uint8_t* bits)
{
    kHamming16114.encode(bits);
}

bool Hamming16114::decode(uint8_t* bits)
{
    return kHamming16114.decode(bits);
}

void Hamming17123::encode(uint8_t* bits)
{
    kHamming17123.encode(bits);
}

bool Hamming17123::decode(uint8_t* bits)
{
    return kHamming17123.decode(bits);
}

} // namespace zl::dmr
