// pushPcm of one 20 ms frame with conversion to 48 kHz stereo and metering, against a sink
// that takes everything; and the delay from pushPcm to the sound on a PulseAudio null sink's
// monitor, with a private server (skipped where none can be started).
#include "PulseServer.h"
#include "audio/AudioMixer.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimer>

#include <cmath>
#include <cstring>

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
