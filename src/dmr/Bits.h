#pragma once

#include <cstdint>

namespace zl::dmr {

// Bit n of a byte buffer, counted from the most significant bit of byte 0, the order bits take on the air.
inline bool readBit(const uint8_t* bytes, int n)
{
    return ((bytes[n >> 3] >> (7 - (n & 7))) & 1U) != 0;
}

inline void writeBit(uint8_t* bytes, int n, bool value)
{
    const auto mask = uint8_t(0x80U >> (n & 7));
    if (value)
        bytes[n >> 3] |= mask;
    else
        bytes[n >> 3] &= uint8_t(~mask);
}

// Big-endian numbers of 1 to 4 bytes, as IDs stand in frames and headers.
inline uint32_t readBe(const uint8_t* bytes, int width)
{
    uint32_t value = 0;
    for (int i = 0; i < width; ++i)
        value = (value << 8) | bytes[i];
    return value;
}

inline void writeBe(uint8_t* bytes, int width, uint32_t value)
{
    for (int i = width - 1; i >= 0; --i) {
        bytes[i] = uint8_t(value & 0xFF);
        value >>= 8;
    }
}

} // namespace zl::dmr
