#pragma once

#include <array>
#include <cstdint>

namespace zl::dmr {

// Block product turbo code BPTC(196,96) of full LC and data bursts: 96 bits in a matrix of 13 rows of
// 15 columns, rows protected by Hamming(15,11,3), columns by Hamming(13,9,3), interleaved over the
// 196 info bits of the burst (bits 0-97 and 166-263). An instance is local to one call.
class BPTC19696 {
public:
    // Corrects what the Hamming codes can and yields the 96 bits as 12 bytes; never fails.
    void decode(const uint8_t* burst33, uint8_t* out12);
    // Writes the 196 info bits into the burst; slot type and sync stay as they are.
    void encode(const uint8_t* in12, uint8_t* burst33);

private:
    void readInfoBits(const uint8_t* burst33);
    void writeInfoBits(uint8_t* burst33) const;
    void deinterleave();
    void interleave();
    void correct();
    void extractData(uint8_t* out12) const;
    void spreadData(const uint8_t* in12);
    void encodeParity();

    // Bits in burst order and in matrix order, one bit per byte.
    std::array<uint8_t, 196> raw{};
    std::array<uint8_t, 196> matrix{};
};

} // namespace zl::dmr
