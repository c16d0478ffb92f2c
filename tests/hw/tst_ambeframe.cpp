#include "hw/AmbeFrame.h"

#include <QRandomGenerator>
#include <QTest>

#include <array>
#include <bit>
#include <vector>

namespace {

using Frame49 = std::array<uint8_t, 7>;
using Frame72 = std::array<uint8_t, 9>;

Frame49 pack49(uint32_t a, uint32_t b, uint32_t c)
{
    const uint64_t bits = ((uint64_t(a) << 37) | (uint64_t(b) << 25) | c) << 7;
    Frame49 out{};
    for (int i = 0; i < 7; ++i)
        out[i] = uint8_t(bits >> (48 - 8 * i));
    return out;
}

// Air-frame bit positions of the code words, in order: 0, 4 .. 68, 1, 5 .. 69, 2 .., 3 .. 71.
std::vector<int> airPositions(int first, int count)
{
    std::vector<int> all;
    for (int phase = 0; phase < 4; ++phase) {
        for (int pos = phase; pos < 72; pos += 4)
            all.push_back(pos);
    }
    return {all.begin() + first, all.begin() + first + count};
}

void flip(Frame72& frame, int pos)
{
    frame[pos / 8] ^= uint8_t(0x80 >> (pos % 8));
}

Frame49 to49(const Frame72& in)
{
    Frame49 out{};
    zl::hw::ambe72To49(in.data(), out.data());
    return out;
}

Frame72 to72(const Frame49& in)
{
    Frame72 out{};
    zl::hw::ambe49To72(in.data(), out.data());
    return out;
}

} // namespace

class TestAmbeFrame : public QObject {
    Q_OBJECT

private slots:
    // Every pattern of one to three errors within a Golay word is corrected; an error among the 25
    // unprotected bits of C passes through to its own parameter bit.
    void correction_data()
    {
        QTest::addColumn<int>("first");
        QTest::addColumn<int>("count");
        QTest::newRow("A") << 0 << 24;
        QTest::newRow("B") << 24 << 23;
        QTest::newRow("C") << 47 << 25;
    }

    void correction()
    {
        QFETCH(int, first);
        QFETCH(int, count);
        const std::vector<int> positions = airPositions(first, count);
        QRandomGenerator rng(7);
        for (int round = 0; round < 3; ++round) {
            const Frame49 original = pack49(rng.bounded(4096), rng.bounded(4096), rng.bounded(1u << 25));
            const Frame72 clean = to72(original);
            for (int i = 0; i < count; ++i) {
                if (first == 47) {
                    Frame72 damaged = clean;
                    flip(damaged, positions[i]);
                    Frame49 expected = original;
                    expected[(24 + i) / 8] ^= uint8_t(0x80 >> ((24 + i) % 8)); // C follows A and B
                    QCOMPARE(to49(damaged), expected);
                    continue;
                }
                for (int j = i; j < count; ++j) {
                    for (int k = j; k < count; ++k) {
                        Frame72 damaged = clean;
                        flip(damaged, positions[i]);
                        if (j != i)
                            flip(damaged, positions[j]);
                        if (k != j)
                            flip(damaged, positions[k]);
                        if (to49(damaged) != original)
                            QFAIL(qPrintable(QStringLiteral("errors at %1 %2 %3 not corrected")
                                                 .arg(positions[i])
                                                 .arg(positions[j])
                                                 .arg(positions[k])));
                    }
                }
            }
        }
        Frame72 allOnes;
        allOnes.fill(0xFF);
        QCOMPARE(to49(allOnes)[6] & 0x7F, 0);
    }

    // The extended Golay code's published weight enumerator: 1, 759, 2576, 759, 1.
    void golay24WeightEnumerator()
    {
        std::array<int, 25> weights{};
        for (uint32_t data = 0; data < 4096; ++data) {
            const uint32_t word = zl::hw::golay24Encode(data);
            QCOMPARE(word >> 12, data);
            ++weights[std::popcount(word)];
        }
        QCOMPARE(weights, (std::array<int, 25>{1, 0, 0, 0,   0, 0, 0, 0, 759, 0, 0, 0, 2576,
                                               0, 0, 0, 759, 0, 0, 0, 0, 0,   0, 0, 1}));
    }

    // The AMBE silence frame that DMR repeaters send between words, made by real vocoders, is a code
    // frame under our scrambling: it survives the trip to parameters and back bit for bit.
    void dmrSilenceFrameIsACodeFrame()
    {
        const Frame72 silence = {0xB9, 0xE8, 0x81, 0x52, 0x61, 0x73, 0x00, 0x2A, 0x6B};
        QCOMPARE(to72(to49(silence)), silence);
    }
};

QTEST_GUILESS_MAIN(TestAmbeFrame)
#include "tst_ambeframe.moc"
