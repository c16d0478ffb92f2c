#include "ReferenceMath.h"

#include "dmr/BPTC19696.h"
#include "dmr/Bits.h"
#include "dmr/DMRLC.h"
#include "dmr/SlotType.h"

#include <QTest>

#include <vector>

using namespace zl::dmr;

namespace {

const uint8_t* bytesOf(const QByteArray& burst)
{
    return reinterpret_cast<const uint8_t*>(burst.constData());
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

class TestDmrLc : public QObject {
    Q_OBJECT

private slots:
    void groupCallLcBytesAreTheHandDerivedOnes()
    {
        // 2400000 = 0x249F00, TG 91 = 0x00005B; FLCO 0 for a group call; FID and options 0.
        const QByteArray burst = buildLcBurst(2400000, 91, 1, 1, false);
        const std::vector<uint8_t> payload = bptcPayload(burst);
        const std::vector<uint8_t> lc(payload.begin(), payload.begin() + 9);
        QCOMPARE(lc, (std::vector<uint8_t>{0x00, 0x00, 0x00, 0x00, 0x00, 0x5B, 0x24, 0x9F, 0x00}));

        // Unmasked with 0x96, bytes 9 to 11 complete a Reed-Solomon code word: zero at alpha..alpha^3.
        std::vector<uint8_t> word = payload;
        for (int i = 9; i < 12; ++i)
            word[size_t(i)] ^= 0x96;
        QVERIFY(reference::hasRsRoots(word));
        QVERIFY(!reference::hasRsRoots(payload));
    }

    void terminatorParityIsMaskedWith0x99()
    {
        std::vector<uint8_t> word = bptcPayload(buildLcBurst(2400000, 91, 1, 2, false));
        for (int i = 9; i < 12; ++i)
            word[size_t(i)] ^= 0x99;
        QVERIFY(reference::hasRsRoots(word));
    }

    void privateCallSetsFlco3()
    {
        const std::vector<uint8_t> payload = bptcPayload(buildLcBurst(3100123, 2623266, 7, 1, true));
        QCOMPARE(payload[0], uint8_t(0x03));
        QCOMPARE(payload[1], uint8_t(0x00));
        QCOMPARE(payload[2], uint8_t(0x00));
        // 2623266 = 0x280722, 3100123 = 0x2F4DDB
        QCOMPARE(payload[3], uint8_t(0x28));
        QCOMPARE(payload[4], uint8_t(0x07));
        QCOMPARE(payload[5], uint8_t(0x22));
        QCOMPARE(payload[6], uint8_t(0x2F));
        QCOMPARE(payload[7], uint8_t(0x4D));
        QCOMPARE(payload[8], uint8_t(0xDB));
    }

    void lcBurstCarriesSlotTypeAndDataSync()
    {
        const QByteArray burst = buildLcBurst(2400000, 91, 12, 2, false);
        const uint8_t* b = bytesOf(burst);
        QCOMPARE(b[13] & 0x0F, 0x0D);
        QCOMPARE(burst.mid(14, 5), QByteArray::fromHex("ff57d75df5"));
        QCOMPARE(b[19] >> 4, 0x0D);
        const SlotType slotType = slotTypeDecode(b);
        QCOMPARE(slotType.colorCode, uint8_t(12));
        QCOMPARE(slotType.dataType, uint8_t(2));
    }

    void roundTrip_data()
    {
        QTest::addColumn<uint>("src");
        QTest::addColumn<uint>("dst");
        QTest::addColumn<int>("dataType");
        QTest::addColumn<bool>("privateCall");
        QTest::newRow("group header") << 2400000U << 91U << 1 << false;
        QTest::newRow("group terminator") << 2400000U << 91U << 2 << false;
        QTest::newRow("private header") << 2623266U << 3100123U << 1 << true;
        QTest::newRow("largest ids") << 0xFFFFFFU << 0xFFFFFFU << 2 << true;
        QTest::newRow("zero ids") << 0U << 0U << 1 << false;
    }

    void roundTrip()
    {
        QFETCH(uint, src);
        QFETCH(uint, dst);
        QFETCH(int, dataType);
        QFETCH(bool, privateCall);
        const QByteArray burst = buildLcBurst(src, dst, 1, uint8_t(dataType), privateCall);
        QCOMPARE(burst.size(), 33);
        const std::optional<DMRLC> lc = fullLcDecode(bytesOf(burst), uint8_t(dataType));
        QVERIFY(lc);
        QCOMPARE(lc->srcId, src);
        QCOMPARE(lc->dstId, dst);
        QCOMPARE(lc->FLCO, uint8_t(privateCall ? 3 : 0));
        QCOMPARE(lc->FID, uint8_t(0));
        QCOMPARE(lc->options, uint8_t(0));
        QVERIFY(!lc->PF);
        QVERIFY(!lc->R);
    }

    void headerReadAsTerminatorFailsAndTheOtherWayRound()
    {
        const QByteArray header = buildLcBurst(2400000, 91, 1, 1, false);
        const QByteArray terminator = buildLcBurst(2400000, 91, 1, 2, false);
        QVERIFY(fullLcDecode(bytesOf(header), 1));
        QVERIFY(!fullLcDecode(bytesOf(header), 2));
        QVERIFY(fullLcDecode(bytesOf(terminator), 2));
        QVERIFY(!fullLcDecode(bytesOf(terminator), 1));
    }

    void unsupportedTypeLogsAndYieldsNothing()
    {
        const QByteArray header = buildLcBurst(2400000, 91, 1, 1, false);
        QTest::ignoreMessage(QtWarningMsg, "Unsupported LC type - 3");
        QVERIFY(!fullLcDecode(bytesOf(header), 3));

        QByteArray untouched = header;
        QTest::ignoreMessage(QtWarningMsg, "Unsupported LC type - 6");
        fullLcEncode(DMRLC{}, reinterpret_cast<uint8_t*>(untouched.data()), 6);
        QCOMPARE(untouched, header);
    }

    void lcFieldsPackAsTheTableGives()
    {
        DMRLC lc;
        lc.PF = true;
        lc.R = true;
        lc.FLCO = 0x3F;
        lc.FID = 0x10;
        lc.options = 0x20;
        lc.dstId = 0x010203;
        lc.srcId = 0x040506;
        uint8_t bytes[9];
        lcToBytes(lc, bytes);
        const std::vector<uint8_t> packed(bytes, bytes + 9);
        QCOMPARE(packed, (std::vector<uint8_t>{0xFF, 0x10, 0x20, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06}));
        const DMRLC back = lcFromBytes(bytes);
        QVERIFY(back.PF && back.R);
        QCOMPARE(back.FLCO, uint8_t(0x3F));
        QCOMPARE(back.FID, uint8_t(0x10));
        QCOMPARE(back.options, uint8_t(0x20));
        QCOMPARE(back.dstId, 0x010203U);
        QCOMPARE(back.srcId, 0x040506U);
    }

    // Every single-bit error among the 196 info bits, that is one error in one row and one column.
    void singleErrorInEveryInfoBitIsCorrected()
    {
        const QByteArray clean = buildLcBurst(2400000, 91, 1, 1, false);
        for (int n = 0; n < 264; ++n) {
            if (n >= 98 && n < 166)
                continue;
            QByteArray burst = clean;
            flipBit(burst, n);
            const std::optional<DMRLC> lc = fullLcDecode(bytesOf(burst), 1);
            QVERIFY2(lc, qPrintable(QString("bit %1").arg(n)));
            QCOMPARE(lc->srcId, 2400000U);
            QCOMPARE(lc->dstId, 91U);
        }
    }

    // One error in each of the 13 rows, each in a different column: the column pass repairs all of them.
    void oneErrorInEveryRowIsCorrected()
    {
        const QByteArray clean = buildLcBurst(2623266, 3100123, 3, 2, true);
        for (int shift = 0; shift < 15; ++shift) {
            QByteArray burst = clean;
            for (int row = 0; row < 13; ++row)
                flipBit(burst, burstBitOf(row, (row + shift) % 15));
            const std::optional<DMRLC> lc = fullLcDecode(bytesOf(burst), 2);
            QVERIFY2(lc, qPrintable(QString("shift %1").arg(shift)));
            QCOMPARE(lc->srcId, 2623266U);
            QCOMPARE(lc->dstId, 3100123U);
        }
    }

    // One error in each of the 15 columns, spread over the 9 data rows: rows and columns together repair them.
    void oneErrorInEveryColumnIsCorrected()
    {
        const QByteArray clean = buildLcBurst(2623266, 3100123, 3, 1, false);
        for (int shift = 0; shift < 9; ++shift) {
            QByteArray burst = clean;
            for (int column = 0; column < 15; ++column)
                flipBit(burst, burstBitOf((column + shift) % 9, column));
            const std::optional<DMRLC> lc = fullLcDecode(bytesOf(burst), 1);
            QVERIFY2(lc, qPrintable(QString("shift %1").arg(shift)));
            QCOMPARE(lc->srcId, 2623266U);
        }
    }

    // A burst whose BPTC is intact but whose LC bytes were changed before coding fails the check, for a
    // change in any byte.
    void corruptedLcByteFailsTheCheck()
    {
        const std::vector<uint8_t> good = bptcPayload(buildLcBurst(2400000, 91, 1, 1, false));
        for (int i = 0; i < 12; ++i) {
            std::vector<uint8_t> bad = good;
            bad[size_t(i)] ^= 0x21;
            QByteArray burst(33, '\0');
            BPTC19696().encode(bad.data(), reinterpret_cast<uint8_t*>(burst.data()));
            QVERIFY2(!fullLcDecode(bytesOf(burst), 1), qPrintable(QString("byte %1").arg(i)));
        }
    }
};

QTEST_GUILESS_MAIN(TestDmrLc)
#include "tst_dmrlc.moc"
