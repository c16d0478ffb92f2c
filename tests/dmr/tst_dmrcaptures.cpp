// DMRD datagrams captured from live Homebrew masters: what the library reads from them must be what the
// equipment that sent them meant.
#include "dmr/AmbeBurst.h"
#include "dmr/BPTC19696.h"
#include "dmr/DmrdFrame.h"
#include "dmr/SlotType.h"
#include "dmr/Sync.h"

#include <QFile>
#include <QHash>
#include <QTest>

#include <array>

using namespace zl::dmr;

namespace {

const uint8_t* bytesOf(const QByteArray& bytes)
{
    return reinterpret_cast<const uint8_t*>(bytes.constData());
}

uint32_t readBe(const uint8_t* bytes, int width)
{
    uint32_t value = 0;
    for (int i = 0; i < width; ++i)
        value = (value << 8) | bytes[i];
    return value;
}

} // namespace

class TestDmrCaptures : public QObject {
    Q_OBJECT

private:
    QList<QByteArray> frames;

    QList<QByteArray> framesWhere(bool (*wanted)(const DmrdHeader&)) const
    {
        QList<QByteArray> result;
        for (const QByteArray& frame : frames) {
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
        while (!file.atEnd()) {
            const QByteArray line = file.readLine().trimmed();
            if (!line.isEmpty())
                frames << QByteArray::fromHex(line);
        }
        QCOMPARE(frames.size(), 18);
    }

    void headersParse()
    {
        for (const QByteArray& frame : frames) {
            QVERIFY(frame.size() == 53 || frame.size() == 55);
            QVERIFY(parseDmrdHeader(frame));
            QCOMPARE(dmrdBurst(frame).size(), 33);
        }
        // The second capture, read by hand: a private CSBK on slot 1 from 2308155 to 2308195.
        const DmrdHeader header = *parseDmrdHeader(frames[1]);
        QCOMPARE(header.seq, uint8_t(2));
        QCOMPARE(header.srcId, 2308155U);
        QCOMPARE(header.dstId, 2308195U);
        QCOMPARE(header.peerId, 420111U);
        QCOMPARE(header.flags, uint8_t(0x63));
        QCOMPARE(header.streamId, 0x2E40C701U);
        QCOMPARE(header.slot(), 1);
        QVERIFY(header.privateCall());
        QVERIFY(header.isDataCallBurst());
        QCOMPARE(header.lowNibble(), DataType::Csbk);
    }

    void headerAndBurstRebuildTheFrame()
    {
        for (const QByteArray& frame : frames) {
            const QByteArray rebuilt = buildDmrd(*parseDmrdHeader(frame), dmrdBurst(frame));
            QCOMPARE(rebuilt.size(), 55);
            QCOMPARE(rebuilt.left(53), frame.left(53));
            QCOMPARE(rebuilt.right(2), QByteArray(2, '\0'));
        }
    }

    void slotTypeMatchesTheFlagsAndOneColourCodePerStream()
    {
        const QList<QByteArray> data = framesWhere([](const DmrdHeader& h) { return h.isDataSync(); });
        QCOMPARE(data.size(), 4);
        QHash<uint32_t, uint8_t> colourOfStream;
        for (const QByteArray& frame : data) {
            const DmrdHeader header = *parseDmrdHeader(frame);
            const SlotType slotType = slotTypeDecode(bytesOf(dmrdBurst(frame)));
            QCOMPARE(slotType.dataType, header.lowNibble());
            if (colourOfStream.contains(header.streamId))
                QCOMPARE(slotType.colorCode, colourOfStream.value(header.streamId));
            colourOfStream.insert(header.streamId, slotType.colorCode);
            QVERIFY(slotType.colorCode <= 15);
        }
        // Both masters' colour codes, read off the burst bits by hand.
        QCOMPARE(colourOfStream.value(0x2E40C701U), uint8_t(5));
        QCOMPARE(colourOfStream.value(0x2B2D896FU), uint8_t(1));
    }

    void dataBurstsCarryDataSync()
    {
        for (const QByteArray& frame : framesWhere([](const DmrdHeader& h) { return h.isDataSync(); })) {
            const uint64_t sync = readSync(bytesOf(dmrdBurst(frame)));
            QVERIFY2(sync == kBsDataSync || sync == kMsDataSync, qPrintable(QString::number(sync, 16)));
        }
        for (const QByteArray& frame :
             framesWhere([](const DmrdHeader& h) { return h.frameType() == kFrameVoiceSync; }))
            QCOMPARE(readSync(bytesOf(dmrdBurst(frame))), kMsVoiceSync);
    }

    // A preamble CSBK names the call's destination in bytes 4-6 and its source in bytes 7-9.
    void preambleCsbksDecodeToTheirHeadersAddresses()
    {
        const QList<QByteArray> csbks =
            framesWhere([](const DmrdHeader& h) { return h.isDataSync() && h.lowNibble() == DataType::Csbk; });
        QCOMPARE(csbks.size(), 2);
        for (const QByteArray& frame : csbks) {
            const DmrdHeader header = *parseDmrdHeader(frame);
            uint8_t block[12];
            BPTC19696().decode(bytesOf(dmrdBurst(frame)), block);
            QCOMPARE(block[0] & 0x3F, 0x3D); // CSBKO of the preamble
            QCOMPARE(readBe(block + 4, 3), header.dstId);
            QCOMPARE(readBe(block + 7, 3), header.srcId);
        }
    }

    void voiceBurstsRoundTripThroughAmbe()
    {
        const QList<QByteArray> voice = framesWhere([](const DmrdHeader& h) { return !h.isDataSync(); });
        QCOMPARE(voice.size(), 14);
        for (const QByteArray& frame : voice) {
            const QByteArray burst = dmrdBurst(frame);
            uint8_t ambe[27];
            extractAmbe(bytesOf(burst), ambe);
            // The middle 48 bits, sync or embedded signalling, go back in as sync7.
            const QByteArray sync7 = burst.mid(13, 7);
            QByteArray rebuilt(33, '\0');
            insertAmbe(ambe, ambe + 9, ambe + 18, bytesOf(sync7), reinterpret_cast<uint8_t*>(rebuilt.data()));
            QCOMPARE(rebuilt, burst);
        }
    }
};

QTEST_GUILESS_MAIN(TestDmrCaptures)
#include "tst_dmrcaptures.moc"
