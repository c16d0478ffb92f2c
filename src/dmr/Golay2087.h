#pragma once

#include <cstdint>

namespace zl::dmr {

// Golay(20,8,8): Golay(23,12) with generator 0xC75 shortened to 8 data bits, plus an overall even parity
// bit. Code word layout, 20 bits: the value in bits 19-12, eleven check bits, the parity bit in bit 0.
uint32_t golay2087Encode(uint8_t value);
// Reads the code word from the top 20 bits of three bytes, corrects up to three errors in its first
// 19 bits and returns the value. An uncorrectable word gives some byte; no decision is reported.
uint8_t golay2087Decode(const uint8_t* in3);

} // namespace zl::dmr
