#include "dmr/Sync.h"

namespace zl::dmr {

std::array<uint8_t, 7> syncBytes(uint64_t pattern)
{
    // 48 bits shifted into the middle of 56: one nibble of room on either side.
    const uint64_t placed = pattern << 4;
    std::array<uint8_t, 7> bytes{};
    for (int i = 0; i < 7; ++i)
        bytes[i] = uint8_t(placed >> (8 * (6 - i)));
    return bytes;
}

void writeSync(uint64_t pattern, uint8_t* burst33)
{
    const std::array<uint8_t, 7> bytes = syncBytes(pattern);
    burst33[13] = uint8_t((burst33[13] & 0xF0) | bytes[0]);
    for (int i = 1; i < 6; ++i)
        burst33[13 + i] = bytes[i];
    burst33[19] = uint8_t((burst33[19] & 0x0F) | bytes[6]);
}

uint64_t readSync(const uint8_t* burst33)
{
    uint64_t placed = 0;
    for (int i = 13; i < 20; ++i)
        placed = (placed << 8) | burst33[i];
    return (placed >> 4) & 0xFFFFFFFFFFFF;
}

} // namespace zl::dmr
