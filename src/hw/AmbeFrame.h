#pragma once

#include <cstdint>

namespace zl::hw {

// Conversion between the 72-bit AMBE air frame (9 bytes, three code words a, b, c
// interleaved, a protected by Golay(24,12), b by a scrambled Golay(23,12)) and the
// 49-bit vocoder parameter frame (7 bytes: A 12 bits, B 12 bits, c 25 bits, top bit first).
// Up to three bit errors in each of a and b are corrected; more decode to whatever the
// syndrome table gives, without an error report.
void ambe72To49(const uint8_t in[9], uint8_t out[7]);
void ambe49To72(const uint8_t in[7], uint8_t out[9]);

// The Golay(24,12) code word of 12 data bits: the Golay(23,12) word, then an even parity bit.
uint32_t golay24Encode(uint32_t data12);
// Decodes a Golay(24,12) code word: up to three bit errors are corrected; four are detected,
// and then the result is false.
bool golay24Decode(uint32_t word24, uint32_t& data12);

} // namespace zl::hw
