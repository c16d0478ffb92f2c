// NxdnVoice with simulated AMBE chips lent by a vocoder pool, and the AMBE slots of a block.
#include "AmbeChips.h"
#include "nxdn/NxdnAmbe.h"
#include "nxdn/NxdnFrame.h"
#include "nxdn/NxdnVoice.h"

#include <QSignalSpy>
#include <QTest>

using namespace zl::nxdn;

namespace {

quint8 flagsOf(const QByteArray& d)
{
    return quint8(d.at(9));
}

} // namespace

class TestNxdnVoice : public QObject {
    Q_OBJECT

private:
    AmbeChips chips{2};
    zl::hw::Dv3000Pool* pool = chips.pool;

private slots:
    void initTestCase() { QVERIFY(chips.ready()); }

    void ambeSlotsHoldFourFramesApart()
    {
        QRandomGenerator rng(21);
        for (int round = 0; round < 50; ++round) {
            QByteArray block(33, '\x3c');
            QList<QByteArray> frames;
            for (int slot = 0; slot < 4; ++slot) {
                frames.append(AmbeChips::randomFrame(rng));
                putAmbe(block, slot, frames.last());
            }
            for (int slot = 0; slot < 4; ++slot)
                QCOMPARE(ambeAt(block, slot), frames.at(slot));
            // LICH and SACCH are not touched; the slots end at bit 98 of each half.
            QCOMPARE(block.left(5), QByteArray(5, '\x3c'));
            QCOMPARE(quint8(block.at(17)) & 0x3F, 0x3C & 0x3F);
            QCOMPARE(quint8(block.at(31)) & 0x3F, 0x3C & 0x3F);
            QCOMPARE(block.at(18), '\x3c');
            QCOMPARE(block.at(32), '\x3c');
        }
    }

    void toneGoesOutAndComesBack()
    {
        NxdnVoice tx(pool), rx(pool);
        tx.setIdentity(4321, 65000, 7);
        QList<QByteArray> frames;
        connect(&tx, &NxdnVoice::frameReady, this, [&](const QByteArray& f) { frames.append(f); });
        tx.startTx();
        QVERIFY(frames.isEmpty()); // the header waits for the first voice frame
        for (int i = 0; i < 50; ++i)
            tx.pushMicPcm(SimulatedAmbeChip::sine(8000, 1000));
        QTRY_COMPARE(frames.size(), 1 + 12);
        tx.stopTx();
        // Two frames were left: filled with silence, then the end frame.
        QCOMPARE(frames.size(), 15);
        QCOMPARE(flagsOf(frames.first()), quint8(5));
        QCOMPARE(quint8(frames.first().at(10)), kLichHeader);
        QCOMPARE(flagsOf(frames.last()), quint8(9));
        QCOMPARE(quint8(frames.last().at(15)), quint8(8)); // transmission release
        for (int i = 1; i <= 13; ++i) {
            QCOMPARE(flagsOf(frames.at(i)), quint8(1));
            QCOMPARE(quint8(frames.at(i).at(10)), kLichVoice);
            QCOMPARE(quint8(frames.at(i).at(11)) >> 6, 3 - (i - 1) % 4);
            QCOMPARE(quint8(frames.at(i).at(11)) & 0x3F, 7);
        }

        QSignalSpy starts(&rx, &NxdnVoice::talkerStart);
        QSignalSpy stops(&rx, &NxdnVoice::talkerStop);
        QByteArray heard;
        connect(&rx, &NxdnVoice::pcmReady, this, [&](const QByteArray& p) { heard += p; });
        for (const QByteArray& f : frames)
            rx.onNetworkFrame(f);
        // Header and end frames go to the chip as well: 15 blocks of four.
        QTRY_COMPARE(heard.size(), 15 * 4 * 320);
        QCOMPARE(starts.count(), 1);
        QCOMPARE(starts.first().first().toUInt(), 4321u);
        QCOMPARE(stops.count(), 1);
        const SimulatedAmbeChip::Tone tone = SimulatedAmbeChip::analyse(heard.mid(320 * 8, 320 * 20));
        QVERIFY2(qAbs(tone.frequency - 1000) <= 20, qPrintable(QString::number(tone.frequency)));
    }

    void earlyStopSendsNothing()
    {
        NxdnVoice tx(pool);
        tx.setIdentity(1, 2, 0);
        QSignalSpy frames(&tx, &NxdnVoice::frameReady);
        tx.startTx();
        for (int i = 0; i < 3; ++i)
            tx.pushMicPcm(SimulatedAmbeChip::sine(4000, 700));
        QTest::qWait(200);
        tx.stopTx();
        QCOMPARE(frames.count(), 0);
        // The chips were given back.
        QCOMPARE(pool->leasedCount(), 0);
    }

    void talkersFollowSourcesAndEndFlags()
    {
        NxdnVoice rx(pool);
        rx.setRxIdleInterval(150);
        QSignalSpy starts(&rx, &NxdnVoice::talkerStart);
        QSignalSpy stops(&rx, &NxdnVoice::talkerStop);
        const QByteArray voice(33, '\0');
        rx.onNetworkFrame(buildNxdnd(100, 65000, flags::kVoice, voice));
        rx.onNetworkFrame(buildNxdnd(100, 65000, flags::kVoice, voice));
        // A new source within the stream: a new talker, no stop first.
        rx.onNetworkFrame(buildNxdnd(200, 65000, flags::kVoice, voice));
        QCOMPARE(starts.count(), 2);
        QCOMPARE(stops.count(), 0);
        rx.onNetworkFrame(buildNxdnd(200, 65000, flags::kEnd | flags::kVoice, voice));
        QCOMPARE(stops.count(), 1);
        rx.onNetworkFrame(buildNxdnd(300, 65000, flags::kData, voice));
        QCOMPARE(starts.count(), 3);
        rx.onNetworkFrame(buildNxdnd(300, 65000, flags::kData, voice).left(42));
        QTRY_COMPARE(stops.count(), 2);
        QTRY_COMPARE(pool->leasedCount(), 0);
    }
};

QTEST_GUILESS_MAIN(TestNxdnVoice)
#include "tst_nxdnvoice.moc"
