// Mouth-to-ear delay through M17: microphone PCM into Codec2 and a stream to the loopback
// reflector, back from it to a second client, decoded, through the mixer's jitter buffer at
// its default depth and out of a private PulseAudio server, where the sink's monitor hears it.
// Reported as the iteration time: from the first microphone frame to its first sound.
#include "M17Reflector.h"
#include "PulseServer.h"
#include "audio/AudioMixer.h"
#include "m17/M17Client.h"
#include "m17/M17Voice.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <cmath>

namespace {

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
