#pragma once

#include <array>
#include <cstdint>

namespace zl::dmr {

// 48-bit sync patterns of the air interface, bits 108-155 of a burst.
inline constexpr uint64_t kBsVoiceSync = 0x755FD7DF75F7;
inline constexpr uint64_t kBsDataSync = 0xDFF57D75DF5D;
// What hotspots forward from a handheld's transmission.
inline constexpr uint64_t kMsVoiceSync = 0x7F7D5DD57DFD;
inline constexpr uint64_t kMsDataSync = 0xD5D7F77FD757;

// The pattern as 7 bytes in the place of burst bytes 13-19, outer nibbles zero: the sync7 of insertAmbe.
std::array<uint8_t, 7> syncBytes(uint64_t pattern);
// Writes the pattern into bits 108-155 of the burst, leaving the nibbles around it.
void writeSync(uint64_t pattern, uint8_t* burst33);
uint64_t readSync(const uint8_t* burst33);

} // namespace zl::dmr
