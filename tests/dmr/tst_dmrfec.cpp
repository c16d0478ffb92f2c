// The DMR codes against their published parameters, hand-derived bytes and DMRD datagrams captured from live
// Homebrew masters.
#include "ReferenceMath.h"

#include "dmr/AmbeBurst.h"
#include "dmr/BPTC19696.h"
#include "dmr/Bits.h"
#include "dmr/DMRLC.h"
#include "dmr/DmrdFrame.h"
#include "dmr/Golay2087.h"
#include "dmr/Hamming.h"
#include "dmr/RS129.h"
#include "dmr/SlotType.h"
#include "dmr/Sync.h"

#include <QFile>
#include <QHash>
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

// A Golay(20,8) code word built from its definition: value, remainder modulo 0xC75, even parity.
uint32_t referenceGolay(uint8_t value)
{
    const uint32_t word19 = (uint32_t(value) << 11) | reference::polyMod(uint32_t(value) << 11, 0xC75);
    return (word19 << 1) | uint32_t(std::popcount(word19) & 1);
}

const uint8_t* bytesOf(const QByteArray& bytes)
{
    return reinterpret_cast<const uint8_t*>(bytes.constData());
}

std::vector<uint8_t> bptcPayload(const QByteArray& burst)
{
    std::vector<uint8_t> bytes(12);
    BPTC19696().decode(bytesOf(burst), bytes.data());
    return bytes;
}

void flipBit(QByteArray& burst, int n)
{
    burst[n / 8] = char(uint8_t(burst[n / 8]) ^ (0x80U >> (n % 8)));
}

// Burst bit of matrix element (row, column): the matrix index m sits at interleaved position
// m * 181 mod 196 of the info bits, which skip the 68 bits of slot type and sync after bit 97.
int burstBitOf(int row, int column)
{
    const int info = ((1 + 15 * row + column) * 181) % 196;
    return info < 98 ? info : info + 68;
}

} // namespace

class TestDmrFec : public QObject {
    Q_OBJECT

    QList<QByteArray> captures;

    QList<QByteArray> capturesWhere(bool (*wanted)(const DmrdHeader&)) const
    {
        QList<QByteArray> result;
        for (const QByteArray& frame : captures) {
            if (wanted(*parseDmrdHeader(frame)))
                result << frame;
        }
        return result;
    }

private slots:
    void initTestCase()
    {
        QFile file(QStringLiteral(ZL_DMR_TESTDATA "/real_captures_dmrd.txt"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        for (const QByteArray& line : file.readAll().split('\n')) {
            if (!line.trimmed().isEmpty())
                captures << QByteArray::fromHex(line.trimmed());
        }
        QCOMPARE(captures.size(), 18);
    }

    // Random words vanish at the generator's roots; any change of any one byte is detected.
    void reedSolomon()
    {
        QRandomGenerator random(4);
        for (int trial = 0; trial < 200; ++trial) {
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
            if (trial > 0)
                continue;
            for (int position = 0; position < 12; ++position) {
                for (int error = 1; error < 256; ++error) {
                    std::vector<uint8_t> bad = word;
                    bad[size_t(position)] ^= uint8_t(error);
                    QVERIFY2(!rs129Check(bad.data()), qPrintable(QString("byte %1 ^ %2").arg(position).arg(error)));
                }
            }
        }
    }

    // The published generator; every single error corrected; the minimum weight of a non-zero code word is
    // the published distance; the distance-4 code leaves double errors alone.
    void hamming()
    {
        for (int row = 0; row < 11; ++row) {
            const std::vector<uint8_t> word16 = codeword(kHammingCodes[4], 1U << row);
            const std::vector<uint8_t> word15 = codeword(kHammingCodes[0], 1U << row);
            for (int p = 0; p < 5; ++p)
                QCOMPARE(word16[size_t(11 + p)], kGenerator16114[row][p]);
            for (int p = 0; p < 4; ++p)
                QCOMPARE(word15[size_t(11 + p)], kGenerator16114[row][p]);
        }
        for (const CodeUnderTest& code : kHammingCodes) {
            int minimum = code.n;
            for (unsigned data = 0; data < (1U << code.k); ++data) {
                const std::vector<uint8_t> clean = codeword(code, data);
                if (data)
                    minimum = std::min(minimum, int(std::count(clean.begin(), clean.end(), 1)));
                std::vector<uint8_t> unchanged = clean;
                QVERIFY2(!code.decode(unchanged.data()) && unchanged == clean, code.name);
                for (int a = 0; a < code.n; ++a) {
                    std::vector<uint8_t> word = clean;
                    word[size_t(a)] ^= 1U;
                    QVERIFY2(code.decode(word.data()) && word == clean,
                             qPrintable(QString("%1 bit %2").arg(code.name).arg(a)));
                    for (int b = a + 1; code.minDistance == 4 && data % 97 == 0 && b < code.n; ++b) {
                        std::vector<uint8_t> two = clean;
                        two[size_t(a)] ^= 1U;
                        two[size_t(b)] ^= 1U;
                        const std::vector<uint8_t> damaged = two;
                        QVERIFY(!code.decode(two.data()) && two == damaged);
                    }
                }
            }
            QVERIFY2(minimum == code.minDistance, code.name);
        }
    }

    void golay()
    {
        for (unsigned value = 0; value < 256; ++value)
            QCOMPARE(golay2087Encode(uint8_t(value)), referenceGolay(uint8_t(value)));
        // By hand: x^11 mod g = 0x475, so value 1 gives 0xC75, weight 7, parity bit 1.
        QCOMPARE(golay2087Encode(1), 0x018EBU);
        // Up to three errors within the 19 bits that decoding reads; the parity bit, bit 0, flipped as well.
        std::vector<uint32_t> patterns = {0};
        for (int a = 1; a < 20; ++a) {
            patterns.push_back(1U << a);
            for (int b = a + 1; b < 20; ++b) {
                patterns.push_back((1U << a) | (1U << b));
                for (int c = b + 1; c < 20; ++c)
                    patterns.push_back((1U << a) | (1U << b) | (1U << c));
            }
        }
        for (unsigned value = 0; value < 256; value += 7) {
            for (uint32_t pattern : patterns) {
                const uint32_t placed = (referenceGolay(uint8_t(value)) ^ pattern ^ 1U) << 4;
                const uint8_t bytes[3] = {uint8_t(placed >> 16), uint8_t(placed >> 8), uint8_t(placed)};
                QCOMPARE(unsigned(golay2087Decode(bytes)), value);
            }
        }
    }

    // The slot type's code word, built from the definition, split around the sync: bits 98-107 and 156-165.
    void slotType_data()
    {
        QTest::addColumn<int>("colour");
        QTest::addColumn<int>("dataType");
        QTest::newRow("cc 1, voice header") << 1 << 1;
        QTest::newRow("cc 5, rate 3/4") << 5 << 8;
        QTest::newRow("cc 12, idle") << 12 << 9;
        QTest::newRow("cc 15, type 15") << 15 << 15;
    }

    void slotType()
    {
        QFETCH(int, colour);
        QFETCH(int, dataType);
        const uint32_t word = referenceGolay(uint8_t(colour << 4 | dataType));
        QByteArray expected(33, '\0');
        for (int i = 0; i < 10; ++i) {
            writeBit(reinterpret_cast<uint8_t*>(expected.data()), 98 + i, (word >> (19 - i)) & 1U);
            writeBit(reinterpret_cast<uint8_t*>(expected.data()), 156 + i, (word >> (9 - i)) & 1U);
        }
        QByteArray burst(33, '\0');
        slotTypeEncode(uint8_t(colour), uint8_t(dataType), reinterpret_cast<uint8_t*>(burst.data()));
        QCOMPARE(burst, expected);
        const SlotType decoded = slotTypeDecode(bytesOf(expected));
        QCOMPARE(int(decoded.colorCode), colour);
        QCOMPARE(int(decoded.dataType), dataType);
    }

    void syncAndAmbeLayout()
    {
        const std::array<uint8_t, 7> data = syncBytes(kBsDataSync);
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(data.data()), 7), QByteArray::fromHex("0dff57d75df5d0"));
        uint8_t a[9], b[9], c[9];
        for (int i = 0; i < 9; ++i) {
            a[i] = uint8_t(0x10 + i);
            b[i] = uint8_t(0x20 + i);
            c[i] = uint8_t(0x30 + i);
        }
        uint8_t burst[33];
        std::fill(burst, burst + 33, 0xAA);
        writeSync(kBsVoiceSync, burst);
        QCOMPARE(readSync(burst), kBsVoiceSync);
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(burst + 12), 9), QByteArray::fromHex("aaa755fd7df75f7aaa"));
        const std::array<uint8_t, 7> sync = syncBytes(kBsVoiceSync);
        insertAmbe(a, b, c, sync.data(), burst);
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(burst), 33),
                 QByteArray::fromHex("101112131415161718202122232" // a, b0-3, high nibble of b4
                                     "755fd7df75f7"                // voice sync
                                     "4"                           // low nibble of b4
                                     "25262728303132333435363738"));
        uint8_t ambe[27];
        extractAmbe(burst, ambe);
        QVERIFY(std::equal(a, a + 9, ambe) && std::equal(b, b + 9, ambe + 9) && std::equal(c, c + 9, ambe + 18));
        insertAmbe(a, b, c, nullptr, burst);
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(burst + 13), 7), QByteArray::fromHex("20000000000004"));
    }

    void dmrdFlagsAndBounds()
    {
        QCOMPARE(voiceHeaderFlags(1, false), uint8_t(0x21));
        QCOMPARE(voiceHeaderFlags(2, true), uint8_t(0xE1));
        QCOMPARE(voiceTerminatorFlags(1, true), uint8_t(0x62));
        QCOMPARE(voiceTerminatorFlags(2, false), uint8_t(0xA2));
        QCOMPARE(voiceBurstFlags(1, false, 0), uint8_t(0x10));
        QCOMPARE(voiceBurstFlags(2, false, 5), uint8_t(0x85));
        QCOMPARE(voiceBurstFlags(1, true, 3), uint8_t(0x43));
        QCOMPARE(dataFlags(2, true, DataType::Csbk), uint8_t(0xE3));
        QVERIFY(!parseDmrdHeader(QByteArray("DMRD", 4)));
        QVERIFY(!parseDmrdHeader(QByteArray(55, 'x')));
        const QByteArray headerOnly = QByteArray("DMRD") + QByteArray(16, '\1');
        QVERIFY(parseDmrdHeader(headerOnly));
        QVERIFY(dmrdBurst(headerOnly + QByteArray(32, '\0')).isEmpty());
        QCOMPARE(dmrdBurst(headerOnly + QByteArray(33, '\7')), QByteArray(33, '\7'));
    }

    // The LC bytes derived by hand (FLCO 0 group, 3 private; FID and options 0; destination, then source,
    // 24 bits each), the Reed-Solomon parity masked with 0x96 in headers and 0x99 in terminators, the slot
    // type and data sync around them, and the decoder reading back what went in.
    void lcBurst_data()
    {
        QTest::addColumn<uint>("src");
        QTest::addColumn<uint>("dst");
        QTest::addColumn<int>("dataType");
        QTest::addColumn<bool>("privateCall");
        QTest::addColumn<QByteArray>("lc");
        QTest::newRow("group header") << 2400000U << 91U << 1 << false << QByteArray::fromHex("00000000005b249f00");
        QTest::newRow("group terminator") << 2400000U << 91U << 2 << false << QByteArray::fromHex("00000000005b249f00");
        QTest::newRow("private header") << 3100123U << 2623266U << 1 << true
                                        << QByteArray::fromHex("0300002807222f4ddb");
        QTest::newRow("largest ids") << 0xFFFFFFU << 0xFFFFFFU << 2 << true
                                     << QByteArray::fromHex("030000ffffffffffff");
    }

    void lcBurst()
    {
        QFETCH(uint, src);
        QFETCH(uint, dst);
        QFETCH(int, dataType);
        QFETCH(bool, privateCall);
        QFETCH(QByteArray, lc);
        const QByteArray burst = buildLcBurst(src, dst, 12, uint8_t(dataType), privateCall);
        std::vector<uint8_t> word = bptcPayload(burst);
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(word.data()), 9), lc);
        QVERIFY(!reference::hasRsRoots(word));
        for (int i = 9; i < 12; ++i)
            word[size_t(i)] ^= dataType == 1 ? 0x96 : 0x99;
        QVERIFY(reference::hasRsRoots(word));
        QCOMPARE(readSync(bytesOf(burst)), kBsDataSync);
        const SlotType slotType = slotTypeDecode(bytesOf(burst));
        QCOMPARE(int(slotType.colorCode), 12);
        QCOMPARE(int(slotType.dataType), dataType);

        const std::optional<DMRLC> decoded = fullLcDecode(bytesOf(burst), uint8_t(dataType));
        QVERIFY(decoded);
        QCOMPARE(decoded->srcId, src);
        QCOMPARE(decoded->dstId, dst);
        QCOMPARE(decoded->FLCO, uint8_t(privateCall ? 3 : 0));
        // Read as the other type, the mask is wrong and the check fails.
        QVERIFY(!fullLcDecode(bytesOf(burst), uint8_t(3 - dataType)));
    }

    void lcFieldsAndUnsupportedTypes()
    {
        DMRLC lc;
        lc.PF = lc.R = true;
        lc.FLCO = 0x3F;
        lc.FID = 0x10;
        lc.options = 0x20;
        lc.dstId = 0x010203;
        lc.srcId = 0x040506;
        uint8_t bytes[9];
        lcToBytes(lc, bytes);
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(bytes), 9), QByteArray::fromHex("ff1020010203040506"));
        const DMRLC back = lcFromBytes(bytes);
        QVERIFY(back.PF && back.R && back.FLCO == 0x3F && back.FID == 0x10 && back.options == 0x20);

        const QByteArray header = buildLcBurst(2400000, 91, 1, 1, false);
        QTest::ignoreMessage(QtWarningMsg, "Unsupported LC type - 3");
        QVERIFY(!fullLcDecode(bytesOf(header), 3));
        QByteArray untouched = header;
        QTest::ignoreMessage(QtWarningMsg, "Unsupported LC type - 6");
        fullLcEncode(DMRLC{}, reinterpret_cast<uint8_t*>(untouched.data()), 6);
        QCOMPARE(untouched, header);
    }

    // Every single-bit error among the 196 info bits; one error in each of the 13 rows, each in another
    // column; one in each of the 15 columns, spread over the 9 data rows.
    void bptcCorrectsErrors()
    {
        QByteArray zeros(33, char(0xFF));
        const uint8_t zero[12] = {};
        BPTC19696().encode(zero, reinterpret_cast<uint8_t*>(zeros.data()));
        for (int n = 0; n < 264; ++n)
            QCOMPARE(readBit(bytesOf(zeros), n), n >= 98 && n < 166);

        const QByteArray clean = buildLcBurst(2623266, 3100123, 3, 2, true);
        QList<QByteArray> damaged;
        for (int n = 0; n < 264; ++n) {
            if (n < 98 || n >= 166) {
                damaged << clean;
                flipBit(damaged.last(), n);
            }
        }
        for (int shift = 0; shift < 15; ++shift) {
            damaged << clean;
            for (int i = 0; i < 13; ++i)
                flipBit(damaged.last(), burstBitOf(i, (i + shift) % 15));
        }
        for (int shift = 0; shift < 9; ++shift) {
            damaged << clean;
            for (int i = 0; i < 15; ++i)
                flipBit(damaged.last(), burstBitOf((i + shift) % 9, i));
        }
        for (const QByteArray& burst : damaged) {
            const std::optional<DMRLC> lc = fullLcDecode(bytesOf(burst), 2);
            QVERIFY(lc && lc->srcId == 2623266U && lc->dstId == 3100123U);
        }
        // LC bytes changed before coding: the BPTC is intact, the check fails, for a change in any byte.
        const std::vector<uint8_t> good = bptcPayload(clean);
        for (int i = 0; i < 12; ++i) {
            std::vector<uint8_t> bad = good;
            bad[size_t(i)] ^= 0x21;
            QByteArray burst(33, '\0');
            BPTC19696().encode(bad.data(), reinterpret_cast<uint8_t*>(burst.data()));
            QVERIFY2(!fullLcDecode(bytesOf(burst), 2), qPrintable(QString("byte %1").arg(i)));
        }
    }

    void capturedHeaders()
    {
        for (const QByteArray& frame : captures) {
            QVERIFY(frame.size() == 53 || frame.size() == 55);
            QCOMPARE(dmrdBurst(frame).size(), 33);
            const QByteArray rebuilt = buildDmrd(*parseDmrdHeader(frame), dmrdBurst(frame));
            QCOMPARE(rebuilt, frame.left(53) + QByteArray(2, '\0'));
        }
        // The second capture, read by hand: a private CSBK on slot 1 from 2308155 to 2308195.
        const DmrdHeader header = *parseDmrdHeader(captures[1]);
        QCOMPARE(header.seq, uint8_t(2));
        QCOMPARE(header.srcId, 2308155U);
        QCOMPARE(header.dstId, 2308195U);
        QCOMPARE(header.peerId, 420111U);
        QCOMPARE(header.flags, uint8_t(0x63));
        QCOMPARE(header.streamId, 0x2E40C701U);
        QCOMPARE(header.slot(), 1);
        QVERIFY(header.privateCall() && header.isDataCallBurst());
        QCOMPARE(header.lowNibble(), DataType::Csbk);
    }

    // Slot type as the flags say, one colour code per stream, the syncs, and a preamble CSBK naming the
    // call's destination in bytes 4-6 and its source in bytes 7-9.
    void capturedBursts()
    {
        const QList<QByteArray> data = capturesWhere([](const DmrdHeader& h) { return h.isDataSync(); });
        QCOMPARE(data.size(), 4);
        QHash<uint32_t, uint8_t> colourOfStream;
        int csbks = 0;
        for (const QByteArray& frame : data) {
            const DmrdHeader header = *parseDmrdHeader(frame);
            const QByteArray burst = dmrdBurst(frame);
            const SlotType slotType = slotTypeDecode(bytesOf(burst));
            QCOMPARE(slotType.dataType, header.lowNibble());
            if (colourOfStream.contains(header.streamId))
                QCOMPARE(slotType.colorCode, colourOfStream.value(header.streamId));
            colourOfStream.insert(header.streamId, slotType.colorCode);
            const uint64_t sync = readSync(bytesOf(burst));
            QVERIFY2(sync == kBsDataSync || sync == kMsDataSync, qPrintable(QString::number(sync, 16)));
            if (header.lowNibble() != DataType::Csbk)
                continue;
            ++csbks;
            uint8_t block[12];
            BPTC19696().decode(bytesOf(burst), block);
            QCOMPARE(block[0] & 0x3F, 0x3D); // CSBKO of the preamble
            QCOMPARE(readBe(block + 4, 3), header.dstId);
            QCOMPARE(readBe(block + 7, 3), header.srcId);
        }
        QCOMPARE(csbks, 2);
        // Both masters' colour codes, read off the burst bits by hand.
        QCOMPARE(colourOfStream.value(0x2E40C701U), uint8_t(5));
        QCOMPARE(colourOfStream.value(0x2B2D896FU), uint8_t(1));
        for (const QByteArray& frame :
             capturesWhere([](const DmrdHeader& h) { return h.frameType() == kFrameVoiceSync; }))
            QCOMPARE(readSync(bytesOf(dmrdBurst(frame))), kMsVoiceSync);
    }
};

QTEST_GUILESS_MAIN(TestDmrFec)
#include "tst_dmrfec.moc"
