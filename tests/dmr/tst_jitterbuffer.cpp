#include "dmr/JitterBuffer.h"

#include <QTest>

using zl::dmr::JitterBuffer;

namespace {

// A voice frame whose burst is filled with a marker, so that the output can be identified.
QByteArray frame(quint8 seq, char marker = 'v')
{
    QByteArray d("DMRD");
    d.append(char(seq));
    d.append(48, marker);
    d.resize(55, '\0');
    return d;
}

// Drives a buffer with the 10 ms tick the client runs it with, at explicit times.
struct Harness {
    JitterBuffer buffer{[this](const QByteArray& d) { played.append({quint8(d.at(4)), now}); }};
    QList<QPair<int, qint64>> played;
    qint64 now = 1000;
    qint64 lastFrameMs = 1000;
    int jitterMs = 120;

    Harness() { buffer.setName(QStringLiteral("Net")); }
    void insert(quint8 seq, bool terminator = false, quint32 stream = 0x2a)
    {
        lastFrameMs = now;
        buffer.insert(stream, seq, frame(seq), terminator, now);
    }
    void runUntil(qint64 until)
    {
        while (now < until) {
            now += 10;
            if (buffer.needsTicks())
                buffer.tick(now, lastFrameMs, jitterMs);
        }
    }
    QList<int> seqs() const
    {
        QList<int> out;
        for (const auto& p : played)
            out.append(p.first);
        return out;
    }
};

} // namespace

class TestJitterBuffer : public QObject {
    Q_OBJECT

private slots:
    void outOfOrderPlaysInOrderAt60MsSteps()
    {
        Harness h;
        h.insert(2);
        h.insert(0);
        h.insert(1);
        QVERIFY(h.buffer.needsTicks());
        h.runUntil(1110);
        QVERIFY(h.played.isEmpty()); // held for the jitter delay
        h.runUntil(1400);
        QCOMPARE(h.seqs(), (QList<int>{0, 1, 2}));
        QCOMPARE(h.played.at(0).second, 1120);
        QCOMPARE(h.played.at(1).second, 1180);
        QCOMPARE(h.played.at(2).second, 1240);
    }

    void earlyFrameIsHeldUntilItsTurn()
    {
        Harness h;
        h.insert(0);
        h.runUntil(1130);
        h.insert(3); // two ahead of the play-out position
        h.insert(1);
        h.insert(2);
        h.runUntil(1400);
        QCOMPARE(h.seqs(), (QList<int>{0, 1, 2, 3}));
        QCOMPARE(h.played.at(3).second, 1300);
    }

    void arrivalOrderIsUndone_data()
    {
        QTest::addColumn<QList<int>>("arrived");
        QTest::addColumn<QList<int>>("played");
        QTest::newRow("wrap sorts after 255") << QList<int>{255, 254, 1, 0} << QList<int>{254, 255, 0, 1};
        QTest::newRow("from before the wrap") << QList<int>{0, 1, 255} << QList<int>{255, 0, 1};
    }

    void arrivalOrderIsUndone()
    {
        QFETCH(QList<int>, arrived);
        QFETCH(QList<int>, played);
        Harness h;
        for (int seq : arrived)
            h.insert(quint8(seq));
        h.runUntil(1500);
        QCOMPARE(h.seqs(), played);
    }

    void lateFrameIsDropped()
    {
        Harness h;
        h.insert(0);
        h.insert(1);
        h.runUntil(1190);
        QCOMPARE(h.seqs(), (QList<int>{0, 1}));
        QTest::ignoreMessage(QtInfoMsg, "DmrPeerClient Net jitter: frame seq 0 arrived too late, dropped");
        h.insert(0);
        h.insert(2);
        h.runUntil(1400);
        QCOMPARE(h.seqs(), (QList<int>{0, 1, 2}));
    }

    void lostFrameIsSkippedAndTimingKept()
    {
        Harness h;
        for (quint8 s : {0, 1, 3, 4})
            h.insert(s);
        h.runUntil(1400);
        QCOMPARE(h.seqs(), (QList<int>{0, 1, 3, 4}));
        QCOMPARE(h.played.at(2).second, 1300); // slot of 2 passes empty
        QCOMPARE(h.played.at(3).second, 1360);
        // Stream over: the buffer empties after 1500 ms without frames and reports the loss.
        QTest::ignoreMessage(QtInfoMsg, "DmrPeerClient Net jitter: stream 2a done, skipped (lost) bursts: 1");
        h.runUntil(2600);
        QVERIFY(!h.buffer.needsTicks());
    }

    void terminatorFlushesAtOnce()
    {
        Harness h;
        h.insert(0);
        h.insert(2);
        h.now += 10;
        h.insert(1, true);
        QCOMPARE(h.seqs(), (QList<int>{0, 1, 2}));
        for (const auto& p : h.played)
            QCOMPARE(p.second, 1010);
        QVERIFY(!h.buffer.needsTicks());
    }

    void newStreamFlushesTheOldOne()
    {
        Harness h;
        h.insert(7, false, 1);
        h.insert(8, false, 1);
        h.insert(0, false, 2);
        QCOMPARE(h.seqs(), (QList<int>{7, 8}));
        h.runUntil(1300);
        QCOMPARE(h.seqs(), (QList<int>{7, 8, 0}));
        QCOMPARE(h.played.at(2).second, 1120);
    }

    void duplicateReplacesEarlierCopy()
    {
        QByteArray last;
        JitterBuffer b([&](const QByteArray& d) { last = d; });
        b.insert(1, 5, frame(5, 'a'), false, 0);
        b.insert(1, 5, frame(5, 'b'), false, 0);
        b.flush();
        QCOMPARE(last, frame(5, 'b'));
    }
};

QTEST_GUILESS_MAIN(TestJitterBuffer)
#include "tst_jitterbuffer.moc"
