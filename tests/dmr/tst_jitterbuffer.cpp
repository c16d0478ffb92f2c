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
    // Arrivals as (seq, ms) pairs, the play-outs as (seq, ms) pairs, ms -1 where the time does not matter.
    void playsInOrderAt60MsSteps_data()
    {
        QTest::addColumn<QList<int>>("arrivals");
        QTest::addColumn<QList<int>>("played");
        QTest::addColumn<QString>("message");
        QTest::newRow("out of order, held for the delay")
            << QList<int>{2, 1000, 0, 1000, 1, 1000} << QList<int>{0, 1120, 1, 1180, 2, 1240} << QString();
        QTest::newRow("early frame waits its turn")
            << QList<int>{0, 1000, 3, 1130, 1, 1130, 2, 1130} << QList<int>{0, -1, 1, -1, 2, -1, 3, 1300} << QString();
        QTest::newRow("wrap sorts after 255") << QList<int>{255, 1000, 254, 1000, 1, 1000, 0, 1000}
                                              << QList<int>{254, -1, 255, -1, 0, -1, 1, -1} << QString();
        QTest::newRow("from before the wrap")
            << QList<int>{0, 1000, 1, 1000, 255, 1000} << QList<int>{255, -1, 0, -1, 1, -1} << QString();
        QTest::newRow("late frame dropped")
            << QList<int>{0, 1000, 1, 1000, 0, 1190, 2, 1190} << QList<int>{0, -1, 1, -1, 2, -1}
            << "DmrPeerClient Net jitter: frame seq 0 arrived too late, dropped";
        // The slot of 2 passes empty; the buffer empties after 1500 ms without frames and reports the loss.
        QTest::newRow("lost frame skipped")
            << QList<int>{0, 1000, 1, 1000, 3, 1000, 4, 1000} << QList<int>{0, -1, 1, -1, 3, 1300, 4, 1360}
            << "DmrPeerClient Net jitter: stream 2a done, skipped (lost) bursts: 1";
    }

    void playsInOrderAt60MsSteps()
    {
        QFETCH(QList<int>, arrivals);
        QFETCH(QList<int>, played);
        QFETCH(QString, message);
        if (!message.isEmpty())
            QTest::ignoreMessage(QtInfoMsg, qPrintable(message));
        Harness h;
        for (qsizetype i = 0; i < arrivals.size(); i += 2) {
            h.runUntil(arrivals.at(i + 1));
            h.insert(quint8(arrivals.at(i)));
        }
        h.runUntil(3000);
        QVERIFY(!h.buffer.needsTicks());
        QCOMPARE(h.played.size(), played.size() / 2);
        for (qsizetype i = 0; i < played.size(); i += 2) {
            QCOMPARE(h.played.at(i / 2).first, played.at(i));
            if (played.at(i + 1) >= 0)
                QCOMPARE(h.played.at(i / 2).second, qint64(played.at(i + 1)));
        }
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
