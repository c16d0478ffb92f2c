#pragma once

#include <cstdint>

namespace zl::dmr {

// Slot type of a data burst: colour code and data type, Golay(20,8)-protected, in bits 98-107 and
// 156-165 on either side of the sync.
struct SlotType {
    uint8_t colorCode = 0;
    uint8_t dataType = 0;
};

SlotType slotTypeDecode(const uint8_t* burst33);
void slotTypeEncode(uint8_t colorCode, uint8_t dataType, uint8_t* burst33);

} // namespace zl::dmr
