#include "Trellis34.h"

#include "dmr/Bits.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace zl::dmr {

namespace {

constexpr int kDibits = 98;
constexpr int kSteps = 49;
constexpr int kDataTribits = 48;
constexpr int kRepairRounds = 20;
// The info bits skip slot type and sync: the second half starts at burst bit 166.
constexpr int kSecondHalfGap = 68;

using Points = std::array<uint8_t, kSteps>;
using Tribits = std::array<uint8_t, kSteps>;

// Constellation point sent from each state (row) for each input tribit (column).
constexpr uint8_t kTransition[8][8] = {
    {0, 8, 4, 12, 2, 10, 6, 14}, {4, 12, 2, 10, 6, 14, 0, 8}, {1, 9, 5, 13, 3, 11, 7, 15}, {5, 13, 3, 11, 7, 15, 1, 9},
    {3, 11, 7, 15, 1, 9, 5, 13}, {7, 15, 1, 9, 5, 13, 3, 11}, {2, 10, 6, 14, 0, 8, 4, 12}, {6, 14, 0, 8, 4, 12, 2, 10},
};

// The two dibit symbols of each constellation point.
constexpr int8_t kPointDibits[16][2] = {
    {1, -1}, {-1, -1}, {3, -3}, {-3, -3}, {-3, -1}, {3, -1}, {-1, -3}, {1, -3},
    {-3, 3}, {3, 3},   {-1, 1}, {1, 1},   {1, 3},   {-1, 3}, {3, 1},   {-3, 1},
};

// The dibit at air position i belongs at position kInterleave[i] of the coded sequence: the sequence
// is sent in four passes, each taking two adjacent dibits out of every eight.
constexpr std::array<uint8_t, kDibits> kInterleave = [] {
    std::array<uint8_t, kDibits> table{};
    int i = 0;
    for (int pass = 0; pass < 4; ++pass) {
        for (int base = 2 * pass; base < kDibits; base += 8) {
            table[i++] = uint8_t(base);
            table[i++] = uint8_t(base + 1);
        }
    }
    return table;
}();

int8_t symbolOf(bool high, bool low)
{
    static constexpr int8_t kSymbols[4] = {1, 3, -1, -3}; // 00, 01, 10, 11
    return kSymbols[(high ? 2 : 0) | (low ? 1 : 0)];
}

int burstBit(int n)
{
    return n < kDibits ? n : n + kSecondHalfGap;
}

Points readPoints(const uint8_t* burst33)
{
    std::array<int8_t, kDibits> dibits{};
    for (int i = 0; i < kDibits; ++i)
        dibits[kInterleave[i]] = symbolOf(readBit(burst33, burstBit(2 * i)), readBit(burst33, burstBit(2 * i + 1)));
    Points points{};
    for (int i = 0; i < kSteps; ++i) {
        // A pair outside the constellation cannot happen with four symbol values; 16 marks it anyway.
        points[i] = 16;
        for (uint8_t p = 0; p < 16; ++p) {
            if (kPointDibits[p][0] == dibits[2 * i] && kPointDibits[p][1] == dibits[2 * i + 1]) {
                points[i] = p;
                break;
            }
        }
    }
    return points;
}

// Walks the state machine; the position of the first point no transition explains, or kSteps.
int walk(const Points& points, Tribits& tribits)
{
    uint8_t state = 0;
    for (int i = 0; i < kSteps; ++i) {
        const uint8_t* row = kTransition[state];
        const uint8_t* hit = std::find(row, row + 8, points[i]);
        if (hit == row + 8)
            return i;
        tribits[i] = uint8_t(hit - row);
        state = tribits[i];
    }
    return kSteps;
}

struct Attempt {
    int reached = -1;
    Tribits tribits{};
};

// Tries every point value at the break, keeps the one that walks furthest and goes on from its next
// break; `best` keeps the furthest walk seen for a burst that cannot be repaired.
bool repair(Points points, int failAt, Attempt& best)
{
    for (int round = 0; round < kRepairRounds; ++round) {
        int furthest = -1;
        uint8_t furthestValue = 0;
        for (uint8_t value = 0; value < 16; ++value) {
            points[failAt] = value;
            Tribits tribits{};
            const int reached = walk(points, tribits);
            if (reached > best.reached)
                best = {reached, tribits};
            if (reached == kSteps)
                return true;
            if (reached > furthest) {
                furthest = reached;
                furthestValue = value;
            }
        }
        points[failAt] = furthestValue;
        failAt = furthest;
    }
    return false;
}

void writeTribits(const Tribits& tribits, int count, uint8_t* out18)
{
    std::memset(out18, 0, 18);
    for (int i = 0; i < std::min(count, kDataTribits); ++i) {
        for (int b = 0; b < 3; ++b)
            writeBit(out18, 3 * i + b, (tribits[i] >> (2 - b)) & 1U);
    }
}

} // namespace

bool trellis34Decode(const uint8_t* burst33, uint8_t* out18)
{
    const Points points = readPoints(burst33);
    Attempt best;
    best.reached = walk(points, best.tribits);
    const int failAt = best.reached;
    bool ok = failAt == kSteps || repair(points, failAt, best);
    if (!ok && failAt > 0)
        ok = repair(points, failAt - 1, best);
    writeTribits(best.tribits, best.reached, out18);
    return ok;
}

} // namespace zl::dmr
