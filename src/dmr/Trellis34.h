#pragma once

#include <cstdint>

namespace zl::dmr {

// Rate 3/4 trellis code of confirmed and unconfirmed data bursts: 144 data bits as 48 tribits (and a
// closing zero tribit) through an 8-state encoder, each step one of 16 constellation points, sent as
// two dibits and interleaved over the 196 info bits of the burst.
//
// Decodes 18 bytes from the burst. Where the received points break the state machine, the point at
// the break is tried with every value (up to 20 rounds, then once more one place earlier); true when
// a complete walk was found. Otherwise out18 holds what decoded up to the furthest break, zeros after.
bool trellis34Decode(const uint8_t* burst33, uint8_t* out18);

} // namespace zl::dmr
