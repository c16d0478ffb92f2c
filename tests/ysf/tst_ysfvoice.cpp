// YsfVoice with simulated AMBE chips lent by a vocoder pool: speech both ways, talkers, counters.
#include "AmbeChips.h"
#include "ysf/YsfFich.h"
#include "ysf/YsfFrame.h"
#include "ysf/YsfPayload.h"
#include "ysf/YsfVoice.h"

#include <QSignalSpy>
#include <QTest>

using namespace zl::ysf;

namespace {

Fich fichOf(const QByteArray& ysfd)
{
    Ysfd f;
    if (!parseYsfd(ysfd, f))
        return {};
    return decodeFich(f.payload.mid(kFichOffset, 25)).value_or(Fich{});
}

QByteArray frame(int fi, int fn, const QString& source, quint8 dgId, const QList<QByteArray>& block = {})
{
    return buildYsfd("GW", source, "ALL", 0, fi == 2, buildPayload(fi, fn, {source, "ALL", dgId}, block));
}

} // namespace

class TestYsfVoice : public QObject {
    Q_OBJECT

private:
    AmbeChips chips{2};
    zl::hw::Dv3000Pool* pool = chips.pool;
    qint64 now = 1'000'000;

private slots:
    void initTestCase() { QVERIFY(chips.ready()); }

    void toneGoesOutAndComesBack()
    {
        YsfVoice tx(pool), rx(pool);
        tx.setIdentity("gw1", "xx0abc", "", 3);
        QList<QByteArray> frames;
        connect(&tx, &YsfVoice::frameReady, this, [&](const QByteArray& f) { frames.append(f); });
        tx.startTx();
        QCOMPARE(frames.size(), 1);
        QCOMPARE(fichOf(frames.first()).fi, quint8(0));
        QCOMPARE(frames.first().mid(4, 30), QByteArray("GW1       XX0ABC    ALL       "));
        // One second of a 1 kHz tone: fifty 20 ms frames, ten YSF frames of five AMBE frames.
        for (int i = 0; i < 50; ++i)
            tx.pushMicPcm(SimulatedAmbeChip::sine(8000, 1000));
        QTRY_COMPARE(frames.size(), 11);
        tx.stopTx();
        QCOMPARE(frames.size(), 12);
        QVERIFY(frames.last().at(34) & 1);
        for (int i = 1; i <= 10; ++i) {
            const Fich f = fichOf(frames.at(i));
            QCOMPARE(f.fi, quint8(1));
            QCOMPARE(f.fn, quint8((i - 1) % 7));
            QCOMPARE(f.sq, quint8(3));
            QCOMPARE(quint8(frames.at(i).at(34)) >> 1, i);
        }
        QCOMPARE(fichOf(frames.last()).fi, quint8(2));

        QSignalSpy starts(&rx, &YsfVoice::talkerStart);
        QSignalSpy stops(&rx, &YsfVoice::talkerStop);
        QByteArray heard;
        connect(&rx, &YsfVoice::pcmReady, this, [&](const QByteArray& p) { heard += p; });
        for (const QByteArray& f : frames)
            rx.onNetworkFrame(f);
        QTRY_COMPARE(heard.size(), 50 * 320);
        QCOMPARE(starts.count(), 1);
        QCOMPARE(starts.first().first().toString(), QStringLiteral("XX0ABC"));
        QCOMPARE(stops.count(), 1);
        const SimulatedAmbeChip::Tone tone = SimulatedAmbeChip::analyse(heard.mid(320 * 10, 320 * 10));
        QVERIFY2(qAbs(tone.frequency - 1000) <= 20, qPrintable(QString::number(tone.frequency)));
        QVERIFY(tone.level > 6000);
    }

    void talkersFromHeadersAndVoice()
    {
        YsfVoice rx(pool);
        QSignalSpy starts(&rx, &YsfVoice::talkerStart);
        QSignalSpy stops(&rx, &YsfVoice::talkerStop);
        rx.onNetworkFrame(frame(0, 0, "XX1AAA", 0));
        rx.onNetworkFrame(frame(0, 0, "XX1AAA", 0));
        QCOMPARE(starts.count(), 1);
        rx.onNetworkFrame(frame(2, 0, "XX1AAA", 0));
        QCOMPARE(stops.count(), 1);
        // A voice frame without a header before it starts a talker too.
        rx.onNetworkFrame(frame(1, 0, "XX2BBB", 0, QList<QByteArray>(5, QByteArray(13, '\0'))));
        QCOMPARE(starts.count(), 2);
        QCOMPARE(starts.last().first().toString(), QStringLiteral("XX2BBB"));
        // Broken frames change nothing.
        QByteArray broken = frame(2, 0, "XX2BBB", 0);
        broken.replace(40, 10, QByteArray(10, '\xff'));
        rx.onNetworkFrame(broken);
        rx.onNetworkFrame(frame(2, 0, "XX2BBB", 0).left(154));
        QCOMPARE(stops.count(), 1);
    }

    void dgIdFilterAndIdleTimer()
    {
        YsfVoice rx(pool);
        rx.setRxIdleInterval(200);
        rx.setRxDgIdFilter(5);
        QSignalSpy starts(&rx, &YsfVoice::talkerStart);
        QSignalSpy stops(&rx, &YsfVoice::talkerStop);
        rx.onNetworkFrame(frame(0, 0, "XX1AAA", 9));
        QCOMPARE(starts.count(), 0);
        rx.onNetworkFrame(frame(0, 0, "XX1AAA", 5));
        QCOMPARE(starts.count(), 1);
        // Frames of another DG-ID keep the idle timer from running out.
        for (int i = 0; i < 6; ++i) {
            QTest::qWait(80);
            rx.onNetworkFrame(frame(0, 0, "XX3CCC", 9));
        }
        QCOMPARE(stops.count(), 0);
        QTRY_COMPARE(stops.count(), 1);
    }

    void receiveIsMuteForOneSecondAfterTransmit()
    {
        YsfVoice voice(pool);
        voice.setClockForTests([this] { return now; });
        voice.setIdentity("GW", "XX0ABC", "ALL", 0);
        QSignalSpy starts(&voice, &YsfVoice::talkerStart);
        voice.startTx();
        voice.onNetworkFrame(frame(0, 0, "XX1AAA", 0));
        voice.stopTx();
        QCOMPARE(starts.count(), 0);
        now += 999;
        voice.onNetworkFrame(frame(0, 0, "XX1AAA", 0));
        QCOMPARE(starts.count(), 0);
        now += 2;
        voice.onNetworkFrame(frame(0, 0, "XX1AAA", 0));
        QCOMPARE(starts.count(), 1);
    }

    void blocksAndCounters()
    {
        // A pool that was never scanned lends nothing: the chip's output is fed by hand.
        zl::hw::Dv3000Pool empty;
        YsfVoice tx(&empty);
        tx.setIdentity("GW", "XX0ABC", "ALL", 0);
        QList<QByteArray> frames;
        connect(&tx, &YsfVoice::frameReady, this, [&](const QByteArray& f) { frames.append(f); });
        const auto feed = [&](int count) {
            for (int i = 0; i < count; ++i)
                QMetaObject::invokeMethod(&tx, "onTxAmbe",
                                          Q_ARG(QByteArray, QByteArray::fromHex("b9e881526173002a6b")));
        };
        // Three AMBE frames fill no block: header and terminator only.
        tx.startTx();
        feed(3);
        tx.stopTx();
        QCOMPARE(frames.size(), 2);

        frames.clear();
        tx.startTx();
        feed(5 * 130);
        QCOMPARE(frames.size(), 131);
        tx.stopTx();
        QCOMPARE(quint8(frames.at(127).at(34)) >> 1, 127);
        QCOMPARE(quint8(frames.at(128).at(34)) >> 1, 0);
        QCOMPARE(fichOf(frames.at(7)).fn, quint8(6));
        QCOMPARE(fichOf(frames.at(8)).fn, quint8(0));
    }
};

QTEST_GUILESS_MAIN(TestYsfVoice)
#include "tst_ysfvoice.moc"
