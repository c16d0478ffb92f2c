// The mixer on a real sound server: a private PulseAudio with null sinks and a sine source.
// What the mixer plays is recorded from the null sink's monitor with parec.
#include "LogCapture.h"
#include "PulseServer.h"
#include "TempConfigHome.h"
#include "app/Config.h"
#include "audio/AudioMixer.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <cmath>
#include <cstring>
#include <memory>

using namespace zl::audio;

namespace {

constexpr int kMonitorRate = 48000;

QVector<qint16> samplesOf(const QByteArray& bytes)
{
    QVector<qint16> s(bytes.size() / 2);
    std::memcpy(s.data(), bytes.constData(), size_t(s.size()) * 2);
    return s;
}

// Rising zero crossings per second over [from, to).
double frequencyOf(const QVector<qint16>& s, qsizetype from, qsizetype to, int rate)
{
    int crossings = 0;
    qsizetype first = -1, last = -1;
    for (qsizetype i = from + 1; i < to; ++i) {
        if (s[i - 1] < 0 && s[i] >= 0) {
            ++crossings;
            if (first < 0)
                first = i;
            last = i;
        }
    }
    return crossings > 1 ? double(crossings - 1) * rate / double(last - first) : 0.0;
}

// parec on a monitor, with the arrival time of every chunk.
struct Recording {
    QProcess* parec = nullptr;
    QByteArray data;
    QList<QPair<qint64, qsizetype>> arrivals; // ms on clock, total bytes after the chunk
    QElapsedTimer clock;

    Recording(const PulseServer& pulse, const QString& sink, QObject* parent)
    {
        clock.start();
        parec = pulse.record(sink, parent);
        QObject::connect(parec, &QProcess::readyReadStandardOutput, parent, [this] {
            data += parec->readAllStandardOutput();
            arrivals.append({clock.elapsed(), data.size()});
        });
    }
    ~Recording()
    {
        parec->kill();
        parec->waitForFinished(5000);
    }
    // When the byte at offset reached us.
    qint64 arrivalOf(qsizetype offset) const
    {
        for (const auto& a : arrivals) {
            if (a.second > offset)
                return a.first;
        }
        return -1;
    }
};

// The tones that mark the frames of a jittered stream, one per 20 ms frame.
constexpr double kMarks[] = {400, 700, 1000, 1300, 1600, 1900, 2200, 2500};
constexpr int kMarkCount = 8;

int markOf(int frame)
{
    return (frame * 5 + frame / 8) % kMarkCount;
}

// Frames of continuous phase, each carrying its frame's mark.
QList<QByteArray> markedFrames(int count)
{
    QList<QByteArray> frames;
    double phase = 0;
    for (int f = 0; f < count; ++f) {
        QByteArray pcm(320, Qt::Uninitialized);
        auto* s = reinterpret_cast<qint16*>(pcm.data());
        for (int i = 0; i < 160; ++i) {
            s[i] = qint16(std::lround(9000.0 * std::sin(phase)));
            phase += 2.0 * M_PI * kMarks[markOf(f)] / 8000.0;
        }
        frames.append(pcm);
    }
    return frames;
}

// Power at hz over s[from, to) (Goertzel).
double powerAt(const QVector<qint16>& s, qsizetype from, qsizetype to, double hz, int rate)
{
    const double k = 2.0 * std::cos(2.0 * M_PI * hz / rate);
    double a = 0, b = 0;
    for (qsizetype i = from; i < to; ++i) {
        const double c = s[i] + k * a - b;
        b = a;
        a = c;
    }
    return a * a + b * b - k * a * b;
}

// The mark heard in each 20 ms of the recording from start on: its index, or -1 for silence.
QList<int> marksHeard(const QVector<qint16>& s, qsizetype start, int frames)
{
    const qsizetype perFrame = kMonitorRate / 50;
    QList<int> heard;
    for (int f = 0; f < frames; ++f) {
        // The middle of the frame: its edges blur with the resampler's filter.
        const qsizetype from = start + f * perFrame + perFrame / 6;
        const qsizetype to = start + (f + 1) * perFrame - perFrame / 6;
        if (to > s.size()) {
            heard.append(-1);
            continue;
        }
        int best = -1;
        double bestPower = 0, energy = 0;
        for (qsizetype i = from; i < to; ++i)
            energy += double(s[i]) * s[i];
        for (int m = 0; m < kMarkCount; ++m) {
            const double p = powerAt(s, from, to, kMarks[m], kMonitorRate);
            if (p > bestPower) {
                bestPower = p;
                best = m;
            }
        }
        // A pure tone puts about half the window's energy times its length into its bin.
        heard.append(bestPower > energy * double(to - from) / 8 ? best : -1);
    }
    return heard;
}

// Arrival times of frames due every 20 ms: each late by 0 to 60 ms, and every tenth frame
// held back with the two after it so that the three come at once. Never out of order.
QList<int> jitteredArrivals(int count)
{
    QRandomGenerator random(20261124);
    QList<int> at;
    int last = 0;
    for (int f = 0; f < count; ++f) {
        int t = f * 20 + int(random.bounded(61));
        if (f % 10 == 1 || f % 10 == 2)
            t = qMax(t, (f / 10 * 10 + 2) * 20 + 60); // a burst of three, at the third's latest
        last = qMax(last, t);
        at.append(last);
    }
    return at;
}

} // namespace

class TestAudioMixerPulse : public QObject {
    Q_OBJECT

private:
    TempConfigHome home;
    std::unique_ptr<PulseServer> pulse;

private slots:
    void initTestCase()
    {
        pulse = std::make_unique<PulseServer>();
        if (!pulse->isRunning())
            QSKIP(qPrintable("no PulseAudio server could be started: " + pulse->failure()));
    }

    void cleanupTestCase() { pulse.reset(); }

    // A stream whose frames arrive with network jitter plays whole, one buffer depth late, from a
    // jitter buffer deeper than the jitter: no gap is concealed, every frame is heard in order, with
    // no dropout. A buffer shallower than the jitter has to fill gaps, and says so.
    void jitteredStreamPlaysFrameForFrame_data()
    {
        QTest::addColumn<int>("depthMs");
        QTest::addColumn<bool>("gapsExpected");
        QTest::newRow("200 ms buffer, up to 60 ms late") << 200 << false;
        QTest::newRow("20 ms buffer, up to 60 ms late") << 20 << true;
    }

    void jitteredStreamPlaysFrameForFrame()
    {
        QFETCH(int, depthMs);
        QFETCH(bool, gapsExpected);
        zl::Config::instance().setSection("audio", QJsonObject{{"rx_jitter_ms", depthMs}});
        AudioMixer mixer;
        QCOMPARE(mixer.rxJitterDepthMs(), depthMs);
        LogCapture log;
        Recording rec(*pulse, QStringLiteral("zl_null"), this);
        QTRY_VERIFY_WITH_TIMEOUT(rec.data.size() > kMonitorRate / 10 * 2, 10000); // the monitor runs

        constexpr int kFrames = 60;
        const QList<QByteArray> frames = markedFrames(kFrames);
        const QList<int> arrivals = jitteredArrivals(kFrames);
        int pushed = 0;
        qsizetype firstPushOffset = -1;
        qint64 firstPushMs = 0;
        QElapsedTimer clock;
        QTimer pacer;
        pacer.setTimerType(Qt::PreciseTimer);
        connect(&pacer, &QTimer::timeout, this, [&] {
            if (firstPushOffset < 0) {
                firstPushOffset = rec.data.size();
                firstPushMs = rec.clock.elapsed();
                clock.start();
            }
            while (pushed < kFrames && clock.elapsed() >= arrivals.at(pushed))
                mixer.pushPcm(QStringLiteral("dmr"), frames.at(pushed++), QStringLiteral("peer"));
        });
        pacer.start(1);
        QTRY_COMPARE_WITH_TIMEOUT(pushed, kFrames, 10000);
        pacer.stop();
        QTRY_COMPARE_WITH_TIMEOUT(mixer.nowPlayingMode(), QString(), 10000);
        const qsizetype wanted = rec.data.size() + kMonitorRate / 5 * 2;
        QTRY_VERIFY_WITH_TIMEOUT(rec.data.size() > wanted, 10000);

        const QStringList gaps = log.linesStartingWith("AudioMixer: jitter buffer — gaps concealed with silence:");
        QCOMPARE(!gaps.isEmpty(), gapsExpected);
        if (gapsExpected)
            return;
        const QVector<qint16> s = samplesOf(rec.data);
        qsizetype start = firstPushOffset / 2;
        while (start < s.size() && qAbs(s[start]) < 1500)
            ++start;
        QVERIFY2(start < s.size(), "no stream on the monitor");
        // The first sample above the threshold lies a little after the true start of the tone.
        start = qMax<qsizetype>(0, start - kMonitorRate / 4000);
        QList<int> expected;
        for (int f = 0; f < kFrames; ++f)
            expected.append(markOf(f));
        QCOMPARE(marksHeard(s, start, kFrames), expected);
        const qint64 delay = rec.arrivalOf(start * 2) - firstPushMs;
        QVERIFY2(delay >= 150 && delay <= 500, qPrintable(QString::number(delay)));
    }

    void speakerIsChosenByDescription()
    {
        AudioMixer mixer;
        const int second = pulse->sinkIndex(QStringLiteral("zl_other"));
        const int fallback = pulse->sinkIndex(QStringLiteral("zl_null"));
        QVERIFY(second >= 0 && fallback >= 0);
        mixer.setSpkDevice(QStringLiteral("zl-second"));
        QVERIFY(mixer.hasSink());
        QTRY_COMPARE_WITH_TIMEOUT(pulse->sinkInputSinks(), QList<int>{second}, 10000);
        // No device of that description: the system default.
        mixer.setSpkDevice(QStringLiteral("no such speaker"));
        QVERIFY(mixer.hasSink());
        QTRY_COMPARE_WITH_TIMEOUT(pulse->sinkInputSinks(), QList<int>{fallback}, 10000);
        mixer.shutdown();
        QVERIFY(!mixer.hasSink());
        QTRY_COMPARE_WITH_TIMEOUT(pulse->sinkInputSinks(), QList<int>{}, 10000);
        mixer.pushPcm(QStringLiteral("dmr"), QByteArray(320, 1));
        QVERIFY(!mixer.hasSink());
    }

    void microphoneDeliversEightKilohertz()
    {
        AudioMixer mixer;
        QSignalSpy blocks(&mixer, &AudioMixer::micPcmReady);
        QSignalSpy level(&mixer, &AudioMixer::micLevelChanged);
        // A description that matches nothing takes the default source, the sine generator.
        mixer.setMicDevice(QStringLiteral("no such microphone"));
        QVERIFY(mixer.hasSource());
        QTRY_VERIFY_WITH_TIMEOUT(!blocks.isEmpty(), 10000);
        blocks.clear();
        QElapsedTimer clock;
        clock.start();
        QByteArray pcm;
        QTRY_VERIFY_WITH_TIMEOUT((pcm =
                                      [&] {
                                          QByteArray all;
                                          for (const auto& b : blocks)
                                              all += b.first().toByteArray();
                                          return all;
                                      }())
                                         .size() >= 8000 * 2,
                                 15000);
        const qint64 elapsed = clock.elapsed();
        // Blocks come as the device delivers them: small, whole samples.
        for (const auto& b : blocks) {
            const qsizetype size = b.first().toByteArray().size();
            QVERIFY(size % 2 == 0);
            QVERIFY2(size <= 8000 / 5 * 2, qPrintable(QString::number(size)));
        }
        const QVector<qint16> s = samplesOf(pcm);
        // The tone's pitch read at 8 kHz proves the rate of the samples; their count the pace.
        const double hz = frequencyOf(s, 0, s.size(), 8000);
        QVERIFY2(qAbs(hz - PulseServer::kToneHz) < PulseServer::kToneHz * 0.01, qPrintable(QString::number(hz)));
        const double rate = double(s.size()) * 1000.0 / double(elapsed);
        QVERIFY2(rate > 6000 && rate < 11000, qPrintable(QString::number(rate)));
        QVERIFY(
            std::any_of(level.begin(), level.end(), [](const QList<QVariant>& a) { return a.first().toInt() > 5; }));

        mixer.shutdown();
        QVERIFY(!mixer.hasSource());
    }
};

QTEST_GUILESS_MAIN(TestAudioMixerPulse)
#include "tst_audiomixer_pulse.moc"
