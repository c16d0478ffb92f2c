#include "dmr/RS129.h"

#include <array>

namespace zl::dmr {

namespace {

constexpr unsigned kFieldPolynomial = 0x11D;
// Generator coefficients from x^0 up to x^2; x^3 has coefficient 1.
constexpr std::array<uint8_t, 3> kGenerator = {0x40, 0x38, 0x0E};

struct GaloisField {
    std::array<uint8_t, 512> exp{};
    std::array<uint8_t, 256> log{};

    constexpr GaloisField()
    {
        unsigned value = 1;
        for (int i = 0; i < 255; ++i) {
            exp[i] = uint8_t(value);
            log[value] = uint8_t(i);
            value <<= 1;
            if (value & 0x100)
                value ^= kFieldPolynomial;
        }
        // A doubled exponent table spares the modulo in multiplication.
        for (int i = 255; i < 512; ++i)
            exp[i] = exp[i - 255];
    }

    constexpr uint8_t multiply(uint8_t a, uint8_t b) const
    {
        if (a == 0 || b == 0)
            return 0;
        return exp[log[a] + log[b]];
    }
};

constexpr GaloisField kField;

} // namespace

void rs129Encode(const uint8_t* data, int count, uint8_t* parity3)
{
    parity3[0] = parity3[1] = parity3[2] = 0;
    for (int i = 0; i < count; ++i) {
        const uint8_t feedback = data[i] ^ parity3[2];
        parity3[2] = parity3[1];
        parity3[1] = parity3[0];
        parity3[0] = 0;
        if (feedback == 0)
            continue;
        for (int j = 0; j < 3; ++j)
            parity3[j] ^= kField.multiply(kGenerator[j], feedback);
    }
}

bool rs129Check(const uint8_t* data12)
{
    uint8_t parity[3];
    rs129Encode(data12, 9, parity);
    return data12[9] == parity[2] && data12[10] == parity[1] && data12[11] == parity[0];
}

} // namespace zl::dmr
