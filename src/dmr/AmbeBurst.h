#pragma once

#include <cstdint>

namespace zl::dmr {

// The 216 AMBE bits of a voice burst as three 9-byte frames, still interleaved and scrambled as on the
// air: bytes 0-12 are burst bytes 0-12, byte 13 joins the high nibble of burst byte 13 with the low
// nibble of burst byte 19, bytes 14-26 are burst bytes 20-32. The 48 bits between carry sync or
// embedded signalling.
void extractAmbe(const uint8_t* burst33, uint8_t* out27);

// Builds a voice burst from three frames a, b, c. sync7 holds the 48 sync bits in the 7-byte form of
// burst bytes 13-19 (outer nibbles ignored); without it (nullptr) the middle 48 bits are zero.
void insertAmbe(const uint8_t* a9, const uint8_t* b9, const uint8_t* c9, const uint8_t* sync7, uint8_t* burst33);

} // namespace zl::dmr
