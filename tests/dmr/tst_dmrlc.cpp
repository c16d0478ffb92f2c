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
    // The LC bytes derived by hand (FLCO 0 group, 3 private; FID and options 0; destination, then source,
    // 24 bits each), the Reed-Solomon parity masked with 0x96 in headers and 0x99 in terminators, and the
    // decoder reading back what went in.
    void lcBurstsCarryTheHandDerivedBytes_data()
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
        QTest::newRow("zero ids") << 0U << 0U << 1 << false << QByteArray(9, '\0');
    }

    void lcBurstsCarryTheHandDerivedBytes()
    {
        QFETCH(uint, src);
        QFETCH(uint, dst);
        QFETCH(int, dataType);
        QFETCH(bool, privateCall);
        QFETCH(QByteArray, lc);
        const QByteArray burst = buildLcBurst(src, dst, 1, uint8_t(dataType), privateCall);
        QCOMPARE(burst.size(), 33);
        std::vector<uint8_t> word = bptcPayload(burst);
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(word.data()), 9), lc);
        QVERIFY(!reference::hasRsRoots(word));
        for (int i = 9; i < 12; ++i)
            word[size_t(i)] ^= dataType == 1 ? 0x96 : 0x99;
        QVERIFY(reference::hasRsRoots(word));

        const std::optional<DMRLC> decoded = fullLcDecode(bytesOf(burst), uint8_t(dataType));
        QVERIFY(decoded);
        QCOMPARE(decoded->srcId, src);
        QCOMPARE(decoded->dstId, dst);
        QCOMPARE(decoded->FLCO, uint8_t(privateCall ? 3 : 0));
        QVERIFY(!decoded->PF && !decoded->R && !decoded->FID && !decoded->options);
        // Read as the other type, the mask is wrong and the check fails.
        QVERIFY(!fullLcDecode(bytesOf(burst), uint8_t(3 - dataType)));
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

    // One error in each of the 13 rows, each in another column (the column pass repairs them), or one in
    // each of the 15 columns, spread over the 9 data rows (rows and columns together repair them).
    void oneErrorInEveryRowOrColumnIsCorrected_data()
    {
        QTest::addColumn<bool>("rows");
        QTest::newRow("rows") << true;
        QTest::newRow("columns") << false;
    }

    void oneErrorInEveryRowOrColumnIsCorrected()
    {
        QFETCH(bool, rows);
        const QByteArray clean = buildLcBurst(2623266, 3100123, 3, 2, true);
        for (int shift = 0; shift < (rows ? 15 : 9); ++shift) {
            QByteArray burst = clean;
            for (int i = 0; i < (rows ? 13 : 15); ++i)
                flipBit(burst, rows ? burstBitOf(i, (i + shift) % 15) : burstBitOf((i + shift) % 9, i));
            const std::optional<DMRLC> lc = fullLcDecode(bytesOf(burst), 2);
            QVERIFY2(lc, qPrintable(QString("shift %1").arg(shift)));
            QCOMPARE(lc->srcId, 2623266U);
            QCOMPARE(lc->dstId, 3100123U);
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
