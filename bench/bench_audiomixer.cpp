// pushPcm of one 20 ms frame with conversion to 48 kHz stereo and metering, against a sink
// that takes everything; the delay from pushPcm to the sound on a PulseAudio null sink's
// monitor, with a private server (skipped where none can be started); and mouth to ear
// through the loopback M17 reflector.
#include "M17Reflector.h"
#include "PulseServer.h"
#include "audio/AudioMixer.h"
#include "m17/M17Client.h"
#include "m17/M17Voice.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimer>

#include <cmath>
#include <cstring>
#include <functional>

namespace {

class NullSink : public zl::audio::SinkPort {
public:
    QAudioFormat format() const override
    {
        QAudioFormat f;
        f.setSampleRate(48000);
        f.setChannelCount(2);
        f.setSampleFormat(QAudioFormat::Int16);
        return f;
    }
    qsizetype bufferSize() const override { return 38400; }
    qsizetype bytesFree() const override { return 38400; }
    qint64 write(const char*, qint64 size) override { return size; }
    void resumeIfSuspended() override {}
};

class BenchMixer : public zl::audio::AudioMixer {
public:
    using AudioMixer::onJitterTimer;

protected:
    std::unique_ptr<zl::audio::SinkPort> openSink(const QString&) override { return std::make_unique<NullSink>(); }
};

QByteArray speechLikeFrame()
{
    QByteArray pcm(320, Qt::Uninitialized);
    auto* s = reinterpret_cast<qint16*>(pcm.data());
    for (int i = 0; i < 160; ++i)
        s[i] = qint16(8000.0 * std::sin(i * 0.37) + 3000.0 * std::sin(i * 1.9));
    return pcm;
}

void BM_PushPcmUnbuffered(benchmark::State& state)
{
    BenchMixer mixer;
    mixer.setRxJitterMs(0);
    mixer.setRxAgc(state.range(0) != 0);
    const QByteArray frame = speechLikeFrame();
    for (auto _ : state)
        mixer.pushPcm(QStringLiteral("dmr"), frame, QStringLiteral("peer"));
    mixer.shutdown();
}
BENCHMARK(BM_PushPcmUnbuffered)->ArgName("agc")->Arg(0)->Arg(1);

// Into the jitter buffer and out to the sink with one timer beat, as in steady playback.
void BM_PushPcmBuffered(benchmark::State& state)
{
    BenchMixer mixer;
    const QByteArray frame = speechLikeFrame();
    for (auto _ : state) {
        mixer.pushPcm(QStringLiteral("dmr"), frame, QStringLiteral("peer"));
        mixer.onJitterTimer();
    }
    mixer.shutdown();
}
BENCHMARK(BM_PushPcmBuffered);

// Time from the first pushPcm of a stream (frames paced at 20 ms) to its first sound on the
// monitor, at the default settings; reported as the iteration time.
void BM_PlayoutDelay(benchmark::State& state)
{
    PulseServer pulse;
    if (!pulse.isRunning()) {
        state.SkipWithError(qPrintable("no PulseAudio server: " + pulse.failure()));
        return;
    }
    QObject context;
    zl::audio::AudioMixer mixer;
    QProcess* parec = pulse.record(QStringLiteral("zl_null"), &context);
    QByteArray recorded;
    QElapsedTimer clock;
    clock.start();
    qint64 heardAt = -1;
    QObject::connect(parec, &QProcess::readyReadStandardOutput, &context, [&] {
        const QByteArray chunk = parec->readAllStandardOutput();
        const auto* s = reinterpret_cast<const qint16*>(chunk.constData());
        for (qsizetype i = 0; heardAt < 0 && i < chunk.size() / 2; ++i) {
            if (qAbs(s[i]) > 2000)
                heardAt = clock.elapsed();
        }
        recorded += chunk;
    });
    while (recorded.size() < 9600 && clock.elapsed() < 10000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    const QByteArray frame = speechLikeFrame();
    for (auto _ : state) {
        heardAt = -1;
        const qint64 start = clock.elapsed();
        int pushed = 0;
        while (heardAt < 0 && clock.elapsed() - start < 5000) {
            while (pushed < 25 && clock.elapsed() - start >= pushed * 20) {
                mixer.pushPcm(QStringLiteral("dmr"), frame, QStringLiteral("peer"));
                ++pushed;
            }
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        }
        state.SetIterationTime(double(heardAt - start) / 1000.0);
        // Let the stream end before the next one.
        while (!mixer.nowPlayingMode().isEmpty() || pushed < 25) {
            while (pushed < 25 && clock.elapsed() - start >= pushed * 20) {
                mixer.pushPcm(QStringLiteral("dmr"), frame, QStringLiteral("peer"));
                ++pushed;
            }
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        }
    }
    mixer.shutdown();
    parec->kill();
    parec->waitForFinished(5000);
}
BENCHMARK(BM_PlayoutDelay)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

// Mouth-to-ear delay through M17: microphone PCM into Codec2 and a stream to the loopback
// reflector, back from it to a second client, decoded, through the mixer's jitter buffer at
// its default depth and out of the private PulseAudio server, where the sink's monitor hears it.
// Reported as the iteration time: from the first microphone frame to its first sound.
QByteArray speechLikeFrame(int index)
{
    QByteArray pcm(320, Qt::Uninitialized);
    auto* s = reinterpret_cast<qint16*>(pcm.data());
    for (int i = 0; i < 160; ++i) {
        const double t = index * 160 + i;
        s[i] = qint16(9000.0 * std::sin(t * 2 * M_PI * 220 / 8000) + 4000.0 * std::sin(t * 2 * M_PI * 660 / 8000));
    }
    return pcm;
}

bool waitFor(const std::function<bool()>& done, int ms)
{
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    return done();
}

void BM_MouthToEarM17(benchmark::State& state)
{
    PulseServer pulse;
    if (!pulse.isRunning()) {
        state.SkipWithError(qPrintable("no PulseAudio server: " + pulse.failure()));
        return;
    }
    QObject context;
    M17Reflector reflector;
    zl::m17::M17Client talker;
    zl::m17::M17Client listener;
    zl::m17::M17Voice mouth;
    zl::m17::M17Voice ear;
    zl::audio::AudioMixer mixer;
    QObject::connect(&mouth, &zl::m17::M17Voice::frameReady, &talker, &zl::m17::M17Client::sendFrame);
    QObject::connect(&listener, &zl::m17::M17Client::voiceFrameRx, &ear, &zl::m17::M17Voice::onVoiceFrame);
    QObject::connect(&ear, &zl::m17::M17Voice::rxPcm, &context, [&mixer](const QByteArray& pcm) {
        mixer.pushPcm(QStringLiteral("m17"), pcm, QStringLiteral("A"));
    });
    talker.linkTo(QStringLiteral("127.0.0.1"), reflector.port(), QStringLiteral("XX0ABC"), 'A');
    listener.linkTo(QStringLiteral("127.0.0.1"), reflector.port(), QStringLiteral("XX0ABD"), 'A');
    if (!waitFor(
            [&] {
                return talker.state() == zl::m17::M17Client::State::Linked &&
                       listener.state() == zl::m17::M17Client::State::Linked;
            },
            10000)) {
        state.SkipWithError("the loopback reflector did not link both clients");
        return;
    }

    QProcess* parec = pulse.record(QStringLiteral("zl_null"), &context);
    QElapsedTimer clock;
    clock.start();
    qint64 heardAt = -1;
    qsizetype recorded = 0;
    QObject::connect(parec, &QProcess::readyReadStandardOutput, &context, [&] {
        const QByteArray chunk = parec->readAllStandardOutput();
        const auto* s = reinterpret_cast<const qint16*>(chunk.constData());
        for (qsizetype i = 0; heardAt < 0 && i < chunk.size() / 2; ++i) {
            if (qAbs(s[i]) > 1500)
                heardAt = clock.elapsed();
        }
        recorded += chunk.size();
    });
    waitFor([&] { return recorded >= 9600; }, 10000);
    constexpr int kFrames = 50; // one second of speech
    for (auto _ : state) {
        heardAt = -1;
        mouth.startTx(QStringLiteral("XX0ABC"));
        const qint64 start = clock.elapsed();
        int pushed = 0;
        // The microphone's pace: a 20 ms frame when it is due.
        while (pushed < kFrames || (heardAt < 0 && clock.elapsed() - start < 5000)) {
            while (pushed < kFrames && clock.elapsed() - start >= pushed * 20) {
                mouth.pushMicPcm(speechLikeFrame(pushed));
                ++pushed;
            }
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        }
        mouth.stopTx();
        state.SetIterationTime(heardAt < 0 ? 5.0 : double(heardAt - start) / 1000.0);
        waitFor([&] { return mixer.nowPlayingMode().isEmpty(); }, 5000);
        waitFor([] { return false; }, 300);
    }
    mixer.shutdown();
    parec->kill();
    parec->waitForFinished(5000);
}
BENCHMARK(BM_MouthToEarM17)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

} // namespace

int main(int argc, char** argv)
{
    QTemporaryDir home;
    qputenv("XDG_CONFIG_HOME", home.filePath(QStringLiteral("config")).toLocal8Bit());
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
