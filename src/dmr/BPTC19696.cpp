#include "dmr/BPTC19696.h"

#include "dmr/Bits.h"
#include "dmr/Hamming.h"

namespace zl::dmr {

namespace {

constexpr int kBits = 196;
constexpr int kRows = 13;
constexpr int kColumns = 15;
constexpr int kDataRows = 9;
constexpr int kInterleave = 181;
constexpr int kMaxPasses = 5;
// The first half of the info bits ends before the slot type, the second starts after it and the sync.
constexpr int kFirstHalf = 98;
constexpr int kSecondHalfStart = 166;
// Row 0 starts with three reserved bits.
constexpr int kReservedBits = 3;

// Element (row, column); index 0 of the matrix is unused.
constexpr int at(int row, int column)
{
    return 1 + kColumns * row + column;
}

} // namespace

void BPTC19696::decode(const uint8_t* burst33, uint8_t* out12)
{
    readInfoBits(burst33);
    deinterleave();
    correct();
    extractData(out12);
}

void BPTC19696::encode(const uint8_t* in12, uint8_t* burst33)
{
    spreadData(in12);
    encodeParity();
    interleave();
    writeInfoBits(burst33);
}

void BPTC19696::readInfoBits(const uint8_t* burst33)
{
    for (int i = 0; i < kFirstHalf; ++i)
        raw[i] = readBit(burst33, i);
    for (int i = kFirstHalf; i < kBits; ++i)
        raw[i] = readBit(burst33, kSecondHalfStart + i - kFirstHalf);
}

void BPTC19696::writeInfoBits(uint8_t* burst33) const
{
    for (int i = 0; i < kFirstHalf; ++i)
        writeBit(burst33, i, raw[i]);
    for (int i = kFirstHalf; i < kBits; ++i)
        writeBit(burst33, kSecondHalfStart + i - kFirstHalf, raw[i]);
}

void BPTC19696::deinterleave()
{
    for (int i = 0; i < kBits; ++i)
        matrix[i] = raw[(i * kInterleave) % kBits];
}

void BPTC19696::interleave()
{
    for (int i = 0; i < kBits; ++i)
        raw[(i * kInterleave) % kBits] = matrix[i];
}

void BPTC19696::correct()
{
    for (int pass = 0; pass < kMaxPasses; ++pass) {
        bool changed = false;
        for (int c = 0; c < kColumns; ++c) {
            uint8_t column[kRows];
            for (int r = 0; r < kRows; ++r)
                column[r] = matrix[at(r, c)];
            if (Hamming1393::decode(column)) {
                for (int r = 0; r < kRows; ++r)
                    matrix[at(r, c)] = column[r];
                changed = true;
            }
        }
        for (int r = 0; r < kDataRows; ++r) {
            if (Hamming15113_2::decode(&matrix[at(r, 0)]))
                changed = true;
        }
        if (!changed)
            break;
    }
}

void BPTC19696::extractData(uint8_t* out12) const
{
    int n = 0;
    for (int r = 0; r < kDataRows; ++r) {
        for (int c = r == 0 ? kReservedBits : 0; c < 11; ++c)
            writeBit(out12, n++, matrix[at(r, c)]);
    }
}

void BPTC19696::spreadData(const uint8_t* in12)
{
    matrix.fill(0);
    int n = 0;
    for (int r = 0; r < kDataRows; ++r) {
        for (int c = r == 0 ? kReservedBits : 0; c < 11; ++c)
            matrix[at(r, c)] = readBit(in12, n++);
    }
}

void BPTC19696::encodeParity()
{
    for (int r = 0; r < kDataRows; ++r)
        Hamming15113_2::encode(&matrix[at(r, 0)]);
    for (int c = 0; c < kColumns; ++c) {
        uint8_t column[kRows];
        for (int r = 0; r < kRows; ++r)
            column[r] = matrix[at(r, c)];
        Hamming1393::encode(column);
        for (int r = kDataRows; r < kRows; ++r)
            matrix[at(r, c)] = column[r];
    }
}

} // namespace zl::dmr
