#include "dmr/SlotType.h"

#include "dmr/Bits.h"
#include "dmr/Golay2087.h"

namespace zl::dmr {

namespace {

constexpr int kFirstHalf = 98;
constexpr int kSecondHalf = 156;
constexpr int kHalfBits = 10;

} // namespace

SlotType slotTypeDecode(const uint8_t* burst33)
{
    uint8_t word[3] = {};
    for (int i = 0; i < kHalfBits; ++i) {
        writeBit(word, i, readBit(burst33, kFirstHalf + i));
        writeBit(word, kHalfBits + i, readBit(burst33, kSecondHalf + i));
    }
    const uint8_t value = golay2087Decode(word);
    return {uint8_t(value >> 4), uint8_t(value & 0x0F)};
}

void slotTypeEncode(uint8_t colorCode, uint8_t dataType, uint8_t* burst33)
{
    const uint32_t word = golay2087Encode(uint8_t(((colorCode & 0x0F) << 4) | (dataType & 0x0F)));
    for (int i = 0; i < kHalfBits; ++i) {
        writeBit(burst33, kFirstHalf + i, (word >> (19 - i)) & 1U);
        writeBit(burst33, kSecondHalf + i, (word >> (9 - i)) & 1U);
    }
}

} // namespace zl::dmr
