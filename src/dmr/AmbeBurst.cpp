#include "dmr/AmbeBurst.h"

#include <algorithm>
#include <array>

namespace zl::dmr {

void extractAmbe(const uint8_t* burst33, uint8_t* out27)
{
    std::copy(burst33, burst33 + 13, out27);
    out27[13] = uint8_t((burst33[13] & 0xF0) | (burst33[19] & 0x0F));
    std::copy(burst33 + 20, burst33 + 33, out27 + 14);
}

void insertAmbe(const uint8_t* a9, const uint8_t* b9, const uint8_t* c9, const uint8_t* sync7, uint8_t* burst33)
{
    std::array<uint8_t, 27> ambe{};
    std::copy(a9, a9 + 9, ambe.begin());
    std::copy(b9, b9 + 9, ambe.begin() + 9);
    std::copy(c9, c9 + 9, ambe.begin() + 18);

    std::copy(ambe.begin(), ambe.begin() + 13, burst33);
    std::copy(ambe.begin() + 14, ambe.end(), burst33 + 20);
    const uint8_t split = ambe[13];
    if (sync7) {
        burst33[13] = uint8_t((split & 0xF0) | (sync7[0] & 0x0F));
        std::copy(sync7 + 1, sync7 + 6, burst33 + 14);
        burst33[19] = uint8_t((sync7[6] & 0xF0) | (split & 0x0F));
    } else {
        burst33[13] = uint8_t(split & 0xF0);
        std::fill(burst33 + 14, burst33 + 19, uint8_t(0));
        burst33[19] = uint8_t(split & 0x0F);
    }
}

} // namespace zl::dmr
