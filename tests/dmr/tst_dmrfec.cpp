// The codes against their published parameters and the properties that an implementation error breaks.
#include "ReferenceMath.h"

#include "dmr/AmbeBurst.h"
#include "dmr/BPTC19696.h"
#include "dmr/Bits.h"
#include "dmr/DmrdFrame.h"
#include "dmr/Golay2087.h"
#include "dmr/Hamming.h"
#include "dmr/RS129.h"
#include "dmr/Sync.h"

#include <QRandomGenerator>
#include <QTest>

#include <algorithm>
#include <bit>
#include <vector>

using namespace zl::dmr;

namespace {

struct CodeUnderTest {
    const char* name;
    int n;
    int k;
    int minDistance;
    void (*encode)(uint8_t*);
    bool (*decode)(uint8_t*);
};

const CodeUnderTest kHammingCodes[] = {
    {"Hamming(15,11,3) type 2", 15, 11, 3, Hamming15113_2::encode, Hamming15113_2::decode},
    {"Hamming(13,9,3)", 13, 9, 3, Hamming1393::encode, Hamming1393::decode},
    {"Hamming(15,11,3) type 1", 15, 11, 3, Hamming15113_1::encode, Hamming15113_1::decode},
    {"Hamming(10,6,3)", 10, 6, 3, Hamming1063::encode, Hamming1063::decode},
    {"Hamming(16,11,4)", 16, 11, 4, Hamming16114::encode, Hamming16114::decode},
    {"Hamming(17,12,3)", 17, 12, 3, Hamming17123::encode, Hamming17123::decode},
};

std::vector<uint8_t> codeword(const CodeUnderTest& code, unsigned data)
{
    std::vector<uint8_t> bits(size_t(code.n), 0);
    for (int i = 0; i < code.k; ++i)
        bits[size_t(i)] = (data >> i) & 1U;
    code.encode(bits.data());
    return bits;
}

// Parity columns of the published Hamming(16,11,4) generator matrix, one row per data bit; the first
// four columns are the generator of the (15,11,3) code of the BPTC rows.
const uint8_t kGenerator16114[11][5] = {
    {1, 0, 0, 1, 1}, {1, 1, 0, 1, 0}, {1, 1, 1, 1, 1}, {1, 1, 1, 0, 0}, {0, 1, 1, 1, 0}, {1, 0, 1, 0, 1},
    {0, 1, 0, 1, 1}, {1, 0, 1, 1, 0}, {1, 1, 0, 0, 1}, {0, 1, 1, 0, 1}, {0, 0, 1, 1, 1},
};

void placeGolayWord(uint32_t word20, uint8_t* out3)
{
    const uint32_t placed = word20 << 4;
    out3[0] = uint8_t(placed >> 16);
    out3[1] = uint8_t(placed >> 8);
    out3[2] = uint8_t(placed);
}

} // namespace

class TestDmrFec : public QObject {
    Q_OBJECT

private slots:
    // ---- Reed-Solomon(12,9) ----

    void rsCodeWordsVanishAtTheRoots()
    {
        QRandomGenerator random(4);
        for (int trial = 0; trial < 500; ++trial) {
            std::vector<uint8_t> word(12);
            for (int i = 0; i < 9; ++i)
                word[size_t(i)] = uint8_t(random.bounded(256));
            uint8_t parity[3];
            rs129Encode(word.data(), 9, parity);
            word[9] = parity[2];
            word[10] = parity[1];
            word[11] = parity[0];
            QVERIFY(reference::hasRsRoots(word));
            QVERIFY(rs129Check(word.data()));
        }
    }

    void rsDetectsEverySingleCorruptedByte()
    {
        std::vector<uint8_t> word = {0x00, 0x00, 0x00, 0x00, 0x00, 0x5B, 0x24, 0x9F, 0x00, 0, 0, 0};
        uint8_t parity[3];
        rs129Encode(word.data(), 9, parity);
        word[9] = parity[2];
        word[10] = parity[1];
        word[11] = parity[0];
        QVERIFY(rs129Check(word.data()));
        for (int position = 0; position < 12; ++position) {
            for (int error = 1; error < 256; ++error) {
                std::vector<uint8_t> bad = word;
                bad[size_t(position)] ^= uint8_t(error);
                QVERIFY2(!rs129Check(bad.data()), qPrintable(QString("byte %1 ^ %2").arg(position).arg(error)));
            }
        }
    }

    // ---- Hamming family ----

    void hammingMatchesThePublishedGenerator()
    {
        for (int row = 0; row < 11; ++row) {
            const std::vector<uint8_t> word16 = codeword(kHammingCodes[4], 1U << row);
            const std::vector<uint8_t> word15 = codeword(kHammingCodes[0], 1U << row);
            for (int p = 0; p < 5; ++p)
                QCOMPARE(word16[size_t(11 + p)], kGenerator16114[row][p]);
            for (int p = 0; p < 4; ++p)
                QCOMPARE(word15[size_t(11 + p)], kGenerator16114[row][p]);
        }
    }

    // Every single error in every position of every code word is corrected, and the smallest weight of
    // a non-zero code word, the minimum distance of a linear code, is the published one.
    void hammingCorrectsEverySingleErrorAndHasItsDistance()
    {
        for (const CodeUnderTest& code : kHammingCodes) {
            int minimum = code.n;
            for (unsigned data = 0; data < (1U << code.k); ++data) {
                const std::vector<uint8_t> clean = codeword(code, data);
                if (data)
                    minimum = std::min(minimum, int(std::count(clean.begin(), clean.end(), 1)));
                std::vector<uint8_t> unchanged = clean;
                QVERIFY2(!code.decode(unchanged.data()), code.name);
                QVERIFY(unchanged == clean);
                for (int position = 0; position < code.n; ++position) {
                    std::vector<uint8_t> word = clean;
                    word[size_t(position)] ^= 1U;
                    QVERIFY2(code.decode(word.data()) && word == clean,
                             qPrintable(QString("%1 bit %2").arg(code.name).arg(position)));
                }
            }
            QVERIFY2(minimum == code.minDistance, code.name);
        }
    }

    void hamming16114LeavesDoubleErrorsAlone()
    {
        const CodeUnderTest& code = kHammingCodes[4];
        for (unsigned data : {0U, 0x5A5U, 0x7FFU}) {
            const std::vector<uint8_t> clean = codeword(code, data);
            for (int a = 0; a < 16; ++a) {
                for (int b = a + 1; b < 16; ++b) {
                    std::vector<uint8_t> word = clean;
                    word[size_t(a)] ^= 1U;
                    word[size_t(b)] ^= 1U;
                    const std::vector<uint8_t> damaged = word;
                    QVERIFY(!code.decode(word.data()));
                    QVERIFY(word == damaged);
                }
            }
        }
    }

    // ---- Golay(20,8) ----

    void golayCodeWordsAreMultiplesOfTheGeneratorWithEvenParity()
    {
        for (unsigned value = 0; value < 256; ++value) {
            const uint32_t word = golay2087Encode(uint8_t(value));
            QCOMPARE(word >> 20, 0U);
            QCOMPARE(word >> 12, value);
            QCOMPARE(reference::polyMod(word >> 1, 0xC75), 0U);
            QCOMPARE(std::popcount(word) % 2, 0);
        }
        // By hand: x^11 mod g = 0x475, so value 1 gives 0xC75, weight 7, parity bit 1.
        QCOMPARE(golay2087Encode(1), 0x018EBU);
    }

    void golayMinimumDistanceIsEight()
    {
        int minimum = 20;
        for (unsigned a = 0; a < 256; ++a) {
            for (unsigned b = a + 1; b < 256; ++b)
                minimum = std::min(minimum, std::popcount(golay2087Encode(uint8_t(a)) ^ golay2087Encode(uint8_t(b))));
        }
        QCOMPARE(minimum, 8);
    }

    void golayCorrectsUpToThreeErrors()
    {
        std::vector<uint32_t> patterns = {0};
        // Errors within the 19 bits that decoding reads (bits 19 to 1 of the word).
        for (int a = 1; a < 20; ++a) {
            patterns.push_back(1U << a);
            for (int b = a + 1; b < 20; ++b) {
                patterns.push_back((1U << a) | (1U << b));
                for (int c = b + 1; c < 20; ++c)
                    patterns.push_back((1U << a) | (1U << b) | (1U << c));
            }
        }
        QCOMPARE(patterns.size(), size_t(1 + 19 + 171 + 969));
        for (unsigned value = 0; value < 256; value += 7) {
            const uint32_t word = golay2087Encode(uint8_t(value));
            for (uint32_t pattern : patterns) {
                uint8_t bytes[3];
                // The parity bit, bit 0, is flipped as well: decoding does not read it.
                placeGolayWord(word ^ pattern ^ 1U, bytes);
                QCOMPARE(unsigned(golay2087Decode(bytes)), value);
            }
        }
    }

    // ---- BPTC(196,96) ----

    void bptcFillsExactlyTheInfoBits()
    {
        // Zero data gives zero parity: every info bit is 0, and slot type and sync keep their ones.
        QByteArray burst(33, char(0xFF));
        const uint8_t zeros[12] = {};
        BPTC19696().encode(zeros, reinterpret_cast<uint8_t*>(burst.data()));
        const auto* bytes = reinterpret_cast<const uint8_t*>(burst.constData());
        for (int n = 0; n < 264; ++n)
            QCOMPARE(readBit(bytes, n), n >= 98 && n < 166);
    }

    // ---- Sync and AMBE ----

    void syncBytesAreThePatternBetweenTheNibbles()
    {
        const std::array<uint8_t, 7> data = syncBytes(kBsDataSync);
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(data.data()), 7), QByteArray::fromHex("0dff57d75df5d0"));
        const std::array<uint8_t, 7> voice = syncBytes(kBsVoiceSync);
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(voice.data()), 7), QByteArray::fromHex("0755fd7df75f70"));

        uint8_t burst[33];
        std::fill(burst, burst + 33, 0xAA);
        writeSync(kBsVoiceSync, burst);
        QCOMPARE(readSync(burst), kBsVoiceSync);
        QCOMPARE(burst[13], uint8_t(0xA7));
        QCOMPARE(burst[19], uint8_t(0x7A));
        QCOMPARE(burst[12], uint8_t(0xAA));
        QCOMPARE(burst[20], uint8_t(0xAA));
    }

    void ambeGoesWhereTheLayoutSays()
    {
        uint8_t a[9], b[9], c[9];
        for (int i = 0; i < 9; ++i) {
            a[i] = uint8_t(0x10 + i);
            b[i] = uint8_t(0x20 + i);
            c[i] = uint8_t(0x30 + i);
        }
        uint8_t burst[33];
        const std::array<uint8_t, 7> sync = syncBytes(kBsVoiceSync);
        insertAmbe(a, b, c, sync.data(), burst);
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(burst), 33),
                 QByteArray::fromHex("101112131415161718202122232" // a, b0-3, high nibble of b4
                                     "755fd7df75f7"                // voice sync
                                     "4"                           // low nibble of b4
                                     "25262728303132333435363738"));
        uint8_t ambe[27];
        extractAmbe(burst, ambe);
        QVERIFY(std::equal(a, a + 9, ambe));
        QVERIFY(std::equal(b, b + 9, ambe + 9));
        QVERIFY(std::equal(c, c + 9, ambe + 18));

        insertAmbe(a, b, c, nullptr, burst);
        QCOMPARE(burst[13], uint8_t(0x20));
        QCOMPARE(burst[19], uint8_t(0x04));
        QVERIFY(std::all_of(burst + 14, burst + 19, [](uint8_t v) { return v == 0; }));
    }

    // ---- DMRD flags ----

    void sendFlags()
    {
        QCOMPARE(voiceHeaderFlags(1, false), uint8_t(0x21));
        QCOMPARE(voiceHeaderFlags(2, false), uint8_t(0xA1));
        QCOMPARE(voiceHeaderFlags(2, true), uint8_t(0xE1));
        QCOMPARE(voiceTerminatorFlags(1, true), uint8_t(0x62));
        QCOMPARE(voiceTerminatorFlags(2, false), uint8_t(0xA2));
        QCOMPARE(voiceBurstFlags(1, false, 0), uint8_t(0x10));
        QCOMPARE(voiceBurstFlags(2, false, 5), uint8_t(0x85));
        QCOMPARE(voiceBurstFlags(1, true, 3), uint8_t(0x43));
        QCOMPARE(dataFlags(2, true, DataType::Csbk), uint8_t(0xE3));
    }

    void shortOrForeignDatagramsHaveNoHeader()
    {
        QVERIFY(!parseDmrdHeader(QByteArray("DMRD", 4)));
        QVERIFY(!parseDmrdHeader(QByteArray(55, 'x')));
        const QByteArray headerOnly = QByteArray("DMRD") + QByteArray(16, '\1');
        QVERIFY(parseDmrdHeader(headerOnly));
        QVERIFY(dmrdBurst(headerOnly).isEmpty());
        QVERIFY(dmrdBurst(headerOnly + QByteArray(32, '\0')).isEmpty());
        QCOMPARE(dmrdBurst(headerOnly + QByteArray(33, '\7')), QByteArray(33, '\7'));
    }
};

QTEST_GUILESS_MAIN(TestDmrFec)
#include "tst_dmrfec.moc"
