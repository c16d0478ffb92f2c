#pragma once

#include <cstdint>

namespace zl::dmr {

// Reed-Solomon(12,9) of the full LC over GF(256), field polynomial 0x11D, generator
// x^3 + 0x0E x^2 + 0x38 x + 0x40 (roots alpha, alpha^2, alpha^3). Detection only, no correction.

// The remainder of count data bytes: parity3[2] is the coefficient of x^2, parity3[0] that of x^0.
void rs129Encode(const uint8_t* data, int count, uint8_t* parity3);
// True if bytes 9-11 are the parity of bytes 0-8, highest coefficient first.
bool rs129Check(const uint8_t* data12);

} // namespace zl::dmr
