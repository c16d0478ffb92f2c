#pragma once

#include <cstdint>

namespace zl::dmr {

// The Hamming codes of the DMR air interface. Each works on an array of one bit per byte (0 or 1),
// data bits first and parity bits behind them. encode writes the parity bits; decode computes the
// syndrome, flips the bit it names and returns true if it flipped one. A syndrome that names no single
// bit (two errors in the distance-4 code) changes nothing.

// (15,11,3) of the BPTC(196,96) rows.
struct Hamming15113_2 {
    static void encode(uint8_t* bits);
    static bool decode(uint8_t* bits);
};

// (13,9,3) of the BPTC(196,96) columns.
struct Hamming1393 {
    static void encode(uint8_t* bits);
    static bool decode(uint8_t* bits);
};

// (15,11,3) with the other parity equations of the standard.
struct Hamming15113_1 {
    static void encode(uint8_t* bits);
    static bool decode(uint8_t* bits);
};

struct Hamming1063 {
    static void encode(uint8_t* bits);
    static bool decode(uint8_t* bits);
};

// Distance 4: corrects one error and leaves two untouched.
struct Hamming16114 {
    static void encode(uint8_t* bits);
    static bool decode(uint8_t* bits);
};

struct Hamming17123 {
    static void encode(uint8_t* bits);
    static bool decode(uint8_t* bits);
};

} // namespace zl::dmr
