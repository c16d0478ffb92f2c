// Any 33-byte burst through the full LC and slot type decoders never crashes.
#include "dmr/DMRLC.h"
#include "dmr/SlotType.h"

#include <algorithm>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    uint8_t burst[33] = {};
    std::copy(data, data + std::min<size_t>(size, sizeof(burst)), burst);
    (void)zl::dmr::slotTypeDecode(burst);
    (void)zl::dmr::fullLcDecode(burst, 1);
    (void)zl::dmr::fullLcDecode(burst, 2);
    return 0;
}
