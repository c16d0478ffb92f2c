// The pure parts of the mixer: conversion to the sink's format, receive AGC, meters, jitter queue.
#include "audio/JitterQueue.h"
#include "audio/PcmDsp.h"
#include "audio/PlayoutClock.h"
#include "audio/RxAgc.h"

#include <QTest>

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
QByteArray raw(std::initializer_list<T> values, int copies = 1)
{
    QByteArray out;
    for (T v : values) {
        for (int c = 0; c < copies; ++c)
            out.append(reinterpret_cast<const char*>(&v), sizeof v);
    }
    return out;
}

template <typename T>
std::vector<T> samplesOf(const QByteArray& bytes)
{
    std::vector<T> out(size_t(bytes.size()) / sizeof(T));
    std::memcpy(out.data(), bytes.constData(), out.size() * sizeof(T));
    return out;
}

} // namespace

class TestPcmDsp : public QObject {
    Q_OBJECT

private slots:
    // At 48 kHz each input sample s followed by n gives (s*6 + k*(n-s))/6 for k = 0..5 in whole numbers,
    // the last sample held; gain is clamped before the step; other sample types scale the 16-bit value.
    void convertToSink_data()
    {
        QTest::addColumn<QList<int>>("in");
        QTest::addColumn<float>("gain");
        QTest::addColumn<QAudioFormat>("format");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("48 kHz stereo") << QList<int>{0, 600, -600} << 1.0f << formatOf(48000, 2)
                                       << raw<qint16>({0, 100, 200, 300, 400, 500, 600, 400, 200, 0, -200, -400, -600,
                                                       -600, -600, -600, -600, -600},
                                                      2);
        QTest::newRow("truncates up") << QList<int>{1, 2} << 1.0f << formatOf(48000, 1)
                                      << raw<qint16>({1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2, 2});
        QTest::newRow("truncates down") << QList<int>{-1, -2} << 1.0f << formatOf(48000, 1)
                                        << raw<qint16>({-1, -1, -1, -1, -1, -1, -2, -2, -2, -2, -2, -2});
        QTest::newRow("clamp first") << QList<int>{20000, 0} << 2.0f << formatOf(48000, 1)
                                     << raw<qint16>({32767, 27305, 21844, 16383, 10922, 5461, 0, 0, 0, 0, 0, 0});
        QTest::newRow("float") << QList<int>{16384, -32768} << 1.0f << formatOf(8000, 1, QAudioFormat::Float)
                               << raw<float>({0.5f, -1.0f});
        QTest::newRow("int32") << QList<int>{16384, -32768} << 1.0f << formatOf(8000, 1, QAudioFormat::Int32)
                               << raw<qint32>({16384 * 65536, -32768 * 65536});
        QTest::newRow("uint8") << QList<int>{16384, -32768} << 1.0f << formatOf(8000, 1, QAudioFormat::UInt8)
                               << raw<quint8>({192, 0});
    }

    void convertToSink()
    {
        QFETCH(QList<int>, in);
        QFETCH(float, gain);
        QFETCH(QAudioFormat, format);
        std::vector<qint16> samples(in.begin(), in.end());
        QByteArray out;
        zl::audio::convertToSink(samples.data(), qsizetype(samples.size()), gain, format, out);
        QTEST(out, "expected");
    }

    void fallbackRates_data()
    {
        QTest::addColumn<int>("rate");
        QTest::addColumn<int>("channels");
        QTest::addColumn<int>("factor");
        QTest::newRow("8 kHz mono: gain only") << 8000 << 1 << 1;
        QTest::newRow("11025 Hz plays fast") << 11025 << 2 << 1;
        QTest::newRow("16 kHz") << 16000 << 1 << 2;
        QTest::newRow("44.1 kHz: factor 5, pitch shifts") << 44100 << 2 << 5;
        QTest::newRow("96 kHz") << 96000 << 2 << 12;
    }

    // Every frame begins with the gained input sample on all channels.
    void fallbackRates()
    {
        QFETCH(int, rate);
        QFETCH(int, channels);
        QFETCH(int, factor);
        QCOMPARE(upsampleFactor(rate), factor);
        const qint16 in[] = {1000, -1000, 3000};
        QByteArray out;
        zl::audio::convertToSink(in, 3, 0.5f, formatOf(rate, channels), out);
        const auto got = samplesOf<qint16>(out);
        QCOMPARE(got.size(), size_t(3 * factor * channels));
        for (int i = 0; i < 3; ++i) {
            for (int c = 0; c < channels; ++c)
                QCOMPARE(got[size_t((i * factor) * channels + c)], qint16(in[i] / 2));
        }
    }

    void gainAndMeter()
    {
        qint16 s[] = {100, 30000, -30000, 0};
        applyGain(s, 4, 2.0f);
        QCOMPARE(raw<qint16>({s[0], s[1], s[2], s[3]}), raw<qint16>({200, 32767, -32768, 0}));
        const qint16 loud[] = {0, -16384, 100};
        QCOMPARE(peakOf(loud, 3), 16384);
        QCOMPARE(meterPercent(16384, 0), 50);
        QCOMPARE(meterPercent(3277, 50), 46); // 10 % is below the shown 50: falls by four instead
        QCOMPARE(meterPercent(0, 3), 0);
        QCOMPARE(meterPercent(32768, 0), 100);
        QCOMPARE(meterPercent(29490, 60), 89);
        // Comfort noise: 1600 draws over -16..16 reach both ends in practice (miss chance ~ 1e-21).
        const auto noise = samplesOf<qint16>(comfortNoise(3200));
        QCOMPARE(noise.size(), size_t(1600));
        QCOMPARE(*std::min_element(noise.begin(), noise.end()), qint16(-16));
        QCOMPARE(*std::max_element(noise.begin(), noise.end()), qint16(16));
        QCOMPARE(comfortNoise(5).size(), 5);
    }

    void agc()
    {
        RxAgc agc;
        agc.gain = 1.7;
        qint16 quiet[] = {300, -327, 12}; // peak 327/32768 < 0.01: a pause leaves gain and samples
        agc.process(quiet, 3);
        QCOMPARE(agc.gain, 1.7);
        QCOMPARE(quiet[1], qint16(-327));

        agc.gain = 1.0;
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

    void jitterQueueKeepsTheNewestTwoSeconds()
    {
        JitterQueue q;
        q.setFormat(48000, 4);
        for (int i = 0; i < 150; ++i)
            q.push(QByteArray(960 * 4, char(i)), i * 20, 1000);
        QCOMPARE(q.data().size(), q.bytesFor(2000));
        QCOMPARE(int(quint8(q.data().front())), 50);
        QCOMPARE(int(quint8(q.data().back())), 149);
    }

    // A burst shorter than the preroll plays once it has gone one depth without a successor.
    void jitterQueuePrerolls()
    {
        JitterQueue q;
        q.setFormat(48000, 4);
        QVERIFY(!q.push(QByteArray(3840 * 3, 1), 40, 200));
        QCOMPARE(q.step(239, 200, 38400, 38400).kind, JitterQueue::Step::Wait);
        QVERIFY(!q.isPlaying());
        QCOMPARE(q.step(240, 200, 38400, 38400).kind, JitterQueue::Step::Write);
        QVERIFY(q.isPlaying());
        // Ten frames complete the preroll at once.
        JitterQueue full;
        full.setFormat(48000, 4);
        for (int i = 0; i < 9; ++i)
            QVERIFY(!full.push(QByteArray(3840, 1), i * 20, 200));
        QVERIFY(full.push(QByteArray(3840, 1), 180, 200));
    }

    void jitterQueueFeedsTheSinkAtMost100msAhead()
    {
        JitterQueue q;
        q.setFormat(48000, 4);
        q.push(QByteArray(192000, 1), 0, 200); // a second at once
        // Sink of 200 ms, empty: room is 100 ms.
        JitterQueue::Step s = q.step(0, 200, 38400, 38400);
        QCOMPARE(s.kind, JitterQueue::Step::Write);
        QCOMPARE(s.bytes, 19200);
        // A sink that took an odd byte count: the buffer drops whole frames only.
        q.consume(19203);
        QCOMPARE(q.data().size(), 192000 - 19200);
        QCOMPARE(q.step(10, 200, 38400, 19200).kind, JitterQueue::Step::Wait);
        // A sink with a queue smaller than 100 ms: the cap is its buffer.
        QCOMPARE(q.step(10, 200, 8000, 8000).bytes, 8000);
    }

    void jitterQueueBridgesGapsAndEnds()
    {
        JitterQueue q;
        q.setFormat(48000, 4);
        q.push(QByteArray(38400, 1), 0, 200);
        QCOMPARE(q.step(0, 200, 38400, 38400).kind, JitterQueue::Step::Write);
        q.consume(38400);
        // Empty buffer, 50 ms still queued in the sink: wait.
        QCOMPARE(q.step(10, 200, 38400, 38400 - 9600).kind, JitterQueue::Step::Wait);
        // Under 40 ms queued: 20 ms of silence.
        const JitterQueue::Step silence = q.step(20, 200, 38400, 38400 - 3840);
        QCOMPARE(silence.kind, JitterQueue::Step::Silence);
        QCOMPARE(silence.bytes, 3840);
        q.countGap();
        // Audio after the silence: it was a gap.
        q.push(QByteArray(3840, 1), 30, 200);
        QCOMPARE(q.step(30, 200, 38400, 38400).kind, JitterQueue::Step::Write);
        q.consume(q.data().size());
        // The silence that bridges to the end of the stream conceals nothing.
        QCOMPARE(q.step(329, 200, 38400, 38400).kind, JitterQueue::Step::Silence);
        q.countGap();
        const JitterQueue::Step end = q.step(330, 200, 38400, 38400);
        QCOMPARE(end.kind, JitterQueue::Step::Ended);
        QCOMPARE(end.gapFrames, 1);
        QVERIFY(!q.isPlaying());
    }

    void playoutClockCountsWhatTheCardHasNotPlayed()
    {
        PlayoutClock clock(192000); // 48 kHz stereo 16-bit: 192 bytes a millisecond
        clock.wrote(3840, 0);
        clock.wrote(3840, 5000);
        QCOMPARE(clock.queuedBytes(5000), 7680 - 960);
        QCOMPARE(clock.queuedBytes(40000), 0);
        // After running dry, playback starts again with the next write.
        clock.wrote(1920, 100000);
        QCOMPARE(clock.queuedBytes(100000), 1920);
        QCOMPARE(clock.queuedBytes(105000), 960);
    }
};

QTEST_GUILESS_MAIN(TestPcmDsp)
#include "tst_pcmdsp.moc"
