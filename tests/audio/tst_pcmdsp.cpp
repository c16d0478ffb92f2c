// The pure parts of the mixer: conversion to the sink's format, receive AGC, meters, jitter queue.
#include "audio/JitterQueue.h"
#include "audio/PcmDsp.h"
#include "audio/PlayoutClock.h"
#include "audio/RxAgc.h"

#include <QTest>

#include <cmath>
#include <cstring>
#include <vector>

using namespace zl::audio;

namespace {

QAudioFormat formatOf(int rate, int channels, QAudioFormat::SampleFormat type = QAudioFormat::Int16)
{
    QAudioFormat f;
    f.setSampleRate(rate);
    f.setChannelCount(channels);
    f.setSampleFormat(type);
    return f;
}

template <typename T>
std::vector<T> samplesOf(const QByteArray& bytes)
{
    std::vector<T> out(size_t(bytes.size()) / sizeof(T));
    std::memcpy(out.data(), bytes.constData(), out.size() * sizeof(T));
    return out;
}

QByteArray bytesOfValue(qsizetype frames, char marker)
{
    return QByteArray(frames * 4, marker);
}

} // namespace

class TestPcmDsp : public QObject {
    Q_OBJECT

private slots:
    void upsamplesBySixWithLinearSteps()
    {
        // 48 kHz stereo: each input sample s followed by n gives (s*6 + k*(n-s))/6 for k = 0..5,
        // the last sample held; every value on both channels.
        const qint16 in[] = {0, 600, -600};
        QByteArray out;
        convertToSink(in, 3, 1.0f, formatOf(48000, 2), out);
        const std::vector<qint16> expected = {0, 100,  200,  300,  400,  500,  600,  400,  200,
                                              0, -200, -400, -600, -600, -600, -600, -600, -600};
        const auto got = samplesOf<qint16>(out);
        QCOMPARE(got.size(), expected.size() * 2);
        for (size_t i = 0; i < expected.size(); ++i) {
            QCOMPARE(got[2 * i], expected[i]);
            QCOMPARE(got[2 * i + 1], expected[i]);
        }
    }

    void interpolationTruncatesTowardsZero()
    {
        // (1*6 + 1*(2-1))/6 = 7/6 = 1 in whole numbers; (-1*6 + 1*(-2+1))/6 = -7/6 = -1.
        const qint16 up[] = {1, 2};
        const qint16 down[] = {-1, -2};
        QByteArray out;
        convertToSink(up, 2, 1.0f, formatOf(48000, 1), out);
        QCOMPARE(samplesOf<qint16>(out)[1], qint16(1));
        QCOMPARE(samplesOf<qint16>(out)[5], qint16(1));
        convertToSink(down, 2, 1.0f, formatOf(48000, 1), out);
        QCOMPARE(samplesOf<qint16>(out)[1], qint16(-1));
    }

    void gainIsClampedBeforeInterpolation()
    {
        // 20000 * 2 clamps to 32767 before the step towards the next sample, which is 0.
        const qint16 in[] = {20000, 0};
        QByteArray out;
        convertToSink(in, 2, 2.0f, formatOf(48000, 1), out);
        const auto got = samplesOf<qint16>(out);
        QCOMPARE(got[0], qint16(32767));
        QCOMPARE(got[3], qint16((32767 * 6 - 3 * 32767) / 6));
        QCOMPARE(got[6], qint16(0));
    }

    void fallbackRates_data()
    {
        QTest::addColumn<int>("rate");
        QTest::addColumn<int>("channels");
        QTest::addColumn<int>("factor");
        QTest::newRow("8 kHz mono: gain only") << 8000 << 1 << 1;
        QTest::newRow("8 kHz stereo") << 8000 << 2 << 1;
        QTest::newRow("11025 Hz plays fast") << 11025 << 2 << 1;
        QTest::newRow("16 kHz") << 16000 << 1 << 2;
        QTest::newRow("44.1 kHz: factor 5, pitch shifts") << 44100 << 2 << 5;
        QTest::newRow("96 kHz") << 96000 << 2 << 12;
    }

    void fallbackRates()
    {
        QFETCH(int, rate);
        QFETCH(int, channels);
        QFETCH(int, factor);
        QCOMPARE(upsampleFactor(rate), factor);
        const qint16 in[] = {1000, -1000, 3000};
        QByteArray out;
        convertToSink(in, 3, 0.5f, formatOf(rate, channels), out);
        const auto got = samplesOf<qint16>(out);
        QCOMPARE(got.size(), size_t(3 * factor * channels));
        // Every frame begins with the gained input sample on all channels.
        for (int i = 0; i < 3; ++i) {
            for (int c = 0; c < channels; ++c)
                QCOMPARE(got[size_t((i * factor) * channels + c)], qint16(in[i] / 2));
        }
    }

    void otherSampleTypes()
    {
        const qint16 in[] = {16384, -32768};
        QByteArray out;
        convertToSink(in, 2, 1.0f, formatOf(8000, 1, QAudioFormat::Float), out);
        const auto f = samplesOf<float>(out);
        QCOMPARE(f.size(), size_t(2));
        QCOMPARE(f[0], 0.5f);
        QCOMPARE(f[1], -1.0f);
        convertToSink(in, 2, 1.0f, formatOf(8000, 1, QAudioFormat::Int32), out);
        QCOMPARE(samplesOf<qint32>(out)[0], qint32(16384) * 65536);
        convertToSink(in, 2, 1.0f, formatOf(8000, 1, QAudioFormat::UInt8), out);
        QCOMPARE(quint8(out[0]), quint8(192));
        QCOMPARE(quint8(out[1]), quint8(0));
    }

    void applyGainSaturates()
    {
        qint16 s[] = {100, 30000, -30000, 0};
        applyGain(s, 4, 2.0f);
        QCOMPARE(s[0], qint16(200));
        QCOMPARE(s[1], qint16(32767));
        QCOMPARE(s[2], qint16(-32768));
        QCOMPARE(s[3], qint16(0));
    }

    void meterFallsByFourPerFrame()
    {
        const qint16 loud[] = {0, -16384, 100};
        QCOMPARE(peakOf(loud, 3), 16384);
        QCOMPARE(meterPercent(16384, 0), 50);
        QCOMPARE(meterPercent(3277, 50), 46); // 10 % is below the shown 50: decay instead
        QCOMPARE(meterPercent(0, 3), 0);      // never below 0
        QCOMPARE(meterPercent(32768, 0), 100);
        QCOMPARE(meterPercent(29490, 60), 89);
    }

    void agcSilenceLeavesGainAndSamples()
    {
        RxAgc agc;
        agc.gain = 1.7;
        qint16 quiet[] = {300, -327, 12}; // peak 327/32768 < 0.01
        agc.process(quiet, 3);
        QCOMPARE(agc.gain, 1.7);
        QCOMPARE(quiet[0], qint16(300));
        QCOMPARE(quiet[1], qint16(-327));
    }

    void agcFallsFastRisesSlowlyAndLimits()
    {
        RxAgc agc;
        qint16 loud[] = {29491, -100}; // peak 0.9: wanted 1/3, gain falls by 30 % of the way
        agc.process(loud, 2);
        QVERIFY(qAbs(agc.gain - (1.0 + (0.3 / (29491 / 32768.0) - 1.0) * 0.3)) < 1e-9);
        QCOMPARE(loud[0], qint16(29491 * float(agc.gain)));

        agc.gain = 1.0;
        qint16 soft[] = {1638, 0}; // peak 0.05: wanted 6, clamped to 4; rises 1 % of the way
        agc.process(soft, 2);
        QVERIFY(qAbs(agc.gain - 1.03) < 1e-9);

        agc.gain = 3.0;
        qint16 mid[] = {16384, -16384}; // wanted 0.6: falls to 2.28; 16384 * 2.28 hits the limiter
        agc.process(mid, 2);
        QCOMPARE(mid[0], qint16(0.9 * 32767));
        QCOMPARE(mid[1], qint16(-0.9 * 32767));
    }

    void agcGainStaysWithinBounds()
    {
        RxAgc agc;
        qint16 frame[160];
        for (int i = 0; i < 2000; ++i) {
            std::fill(std::begin(frame), std::end(frame), qint16(400)); // very quiet speech
            agc.process(frame, 160);
        }
        QVERIFY(agc.gain <= 4.0 + 1e-9);
        QVERIFY(agc.gain > 3.9);
        for (int i = 0; i < 50; ++i) {
            std::fill(std::begin(frame), std::end(frame), qint16(32767));
            agc.process(frame, 160);
        }
        QVERIFY(agc.gain >= 0.1);
        QVERIFY(agc.gain < 0.35);
    }

    void jitterQueueKeepsTheNewestTwoSeconds()
    {
        JitterQueue q;
        q.setFormat(48000, 4);
        for (int i = 0; i < 150; ++i)
            q.push(bytesOfValue(960, char(i)), i * 20, 1000);
        QCOMPARE(q.data().size(), q.bytesFor(2000));
        QCOMPARE(int(quint8(q.data().front())), 50);
        QCOMPARE(int(quint8(q.data().back())), 149);
    }

    void jitterQueueFeedsTheSinkAtMost100msAhead()
    {
        JitterQueue q;
        q.setFormat(48000, 4);
        q.push(bytesOfValue(48000, 1), 0, 200); // a second at once
        // Sink of 200 ms, empty: room is 100 ms.
        JitterQueue::Step s = q.step(0, 200, 38400, 38400);
        QCOMPARE(s.kind, JitterQueue::Step::Write);
        QCOMPARE(s.bytes, 19200);
        // A sink that took an odd byte count: the buffer drops whole frames only.
        q.consume(19203);
        QCOMPARE(q.data().size(), 192000 - 19200);
        // 100 ms already queued: no room.
        QCOMPARE(q.step(10, 200, 38400, 19200).kind, JitterQueue::Step::Wait);
        // A sink with a queue smaller than 100 ms: the cap is its buffer.
        QCOMPARE(q.step(10, 200, 8000, 8000).bytes, 8000);
    }

    void jitterQueueBridgesGapsAndEnds()
    {
        JitterQueue q;
        q.setFormat(48000, 4);
        q.push(bytesOfValue(9600, 1), 0, 200);
        QCOMPARE(q.step(0, 200, 38400, 38400).kind, JitterQueue::Step::Write);
        q.consume(19200);
        QCOMPARE(q.step(5, 200, 38400, 38400).kind, JitterQueue::Step::Write);
        q.consume(19200);
        // Empty buffer, 50 ms still queued in the sink: wait.
        QCOMPARE(q.step(10, 200, 38400, 38400 - 9600).kind, JitterQueue::Step::Wait);
        // Under 40 ms queued: 20 ms of silence.
        const JitterQueue::Step silence = q.step(20, 200, 38400, 38400 - 3840);
        QCOMPARE(silence.kind, JitterQueue::Step::Silence);
        QCOMPARE(silence.bytes, 3840);
        q.countGap();
        // Audio after the silence: it was a gap.
        q.push(bytesOfValue(960, 1), 30, 200);
        QCOMPARE(q.step(30, 200, 38400, 38400).kind, JitterQueue::Step::Write);
        q.consume(q.data().size());
        // The silence that bridges to the end of the stream conceals nothing.
        QCOMPARE(q.step(329, 200, 38400, 38400).kind, JitterQueue::Step::Silence);
        q.countGap();
        const JitterQueue::Step end = q.step(330, 200, 38400, 38400);
        QCOMPARE(end.kind, JitterQueue::Step::Ended);
        QCOMPARE(end.gapFrames, 1);
        QVERIFY(!q.isPlaying());
        QCOMPARE(q.gapFrames(), 0);
    }

    void playoutClockCountsWhatTheCardHasNotPlayed()
    {
        PlayoutClock clock(192000); // 48 kHz stereo 16-bit: 192 bytes a millisecond
        clock.wrote(3840, 0);
        clock.wrote(3840, 5000);
        QCOMPARE(clock.queuedBytes(5000), 7680 - 960);
        QCOMPARE(clock.queuedBytes(40000), 0);
        QCOMPARE(clock.queuedBytes(60000), 0);
        // After running dry, playback starts again with the next write.
        clock.wrote(1920, 100000);
        QCOMPARE(clock.queuedBytes(100000), 1920);
        QCOMPARE(clock.queuedBytes(105000), 960);
    }

    void comfortNoiseIsSmallAndRandom()
    {
        const QByteArray block = comfortNoise(3200);
        QCOMPARE(block.size(), 3200);
        const auto s = samplesOf<qint16>(block);
        int lowest = 0, highest = 0;
        for (qint16 v : s) {
            lowest = qMin(lowest, int(v));
            highest = qMax(highest, int(v));
        }
        QVERIFY(lowest >= -16 && highest <= 16);
        // 1600 draws over 33 values reach both ends in practice (miss chance ~ 1e-21).
        QCOMPARE(lowest, -16);
        QCOMPARE(highest, 16);
        QCOMPARE(comfortNoise(5).size(), 5);
    }
};

QTEST_GUILESS_MAIN(TestPcmDsp)
#include "tst_pcmdsp.moc"
