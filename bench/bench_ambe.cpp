// AMBE backends: the 72/49-bit frame conversion, the emulator's cost per firmware call
// (with the stand-in firmware of the tests, so the figure is the emulator's own overhead),
// and one frame's round trip through a simulated chip served over loopback UDP.
#include "SimulatedAmbeChip.h"
#include "hw/AmbeFrame.h"
#include "hw/Dv3000.h"
#include "hw/Md380Vocoder.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QLoggingCategory>
#include <QTimer>

#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>

static void BM_Ambe72To49And49To72(benchmark::State& state)
{
    std::array<uint8_t, 9> air = {0xB9, 0xE8, 0x81, 0x52, 0x61, 0x73, 0x00, 0x2A, 0x6B};
    std::array<uint8_t, 7> params{};
    for (auto _ : state) {
        zl::hw::ambe72To49(air.data(), params.data());
        zl::hw::ambe49To72(params.data(), air.data());
        benchmark::DoNotOptimize(air);
    }
}
BENCHMARK(BM_Ambe72To49And49To72);

// One decode is two emulated firmware calls.
static void BM_Md380DecodeTwoCalls(benchmark::State& state)
{
    QFile file(QStringLiteral(ZL_TEST_FIRMWARE));
    if (!file.open(QIODevice::ReadOnly)) {
        state.SkipWithError("stand-in firmware missing");
        return;
    }
    const QByteArray fw = file.readAll();
    const QByteArray ram(0x20000, '\0');
    zl::hw::Md380Vocoder vocoder;
    if (!vocoder.init(reinterpret_cast<const uint8_t*>(fw.constData()), fw.size(),
                      reinterpret_cast<const uint8_t*>(ram.constData()), ram.size())) {
        state.SkipWithError("unicorn init failed");
        return;
    }
    const uint8_t frame[7] = {0xA5, 0x0F, 0xC3, 0x81, 0x7E, 0x24, 0x80};
    uint8_t pcm[320];
    for (auto _ : state) {
        vocoder.decode(frame, pcm);
        benchmark::DoNotOptimize(pcm);
    }
}
BENCHMARK(BM_Md380DecodeTwoCalls);

static void BM_UdpChipRoundTrip(benchmark::State& state)
{
    SimulatedAmbeChip chip;
    zl::hw::Dv3000 dv;
    QEventLoop loop;
    QObject::connect(&dv, &zl::hw::Dv3000::detected, &loop, &QEventLoop::quit);
    QTimer::singleShot(3000, &loop, &QEventLoop::quit);
    if (!dv.openUdp(QStringLiteral("127.0.0.1"), chip.listenUdp()) || (loop.exec(), dv.productId().isEmpty())) {
        state.SkipWithError("simulated chip not detected");
        return;
    }
    const QByteArray tone = SimulatedAmbeChip::sine(8000, 1000);
    const QByteArray frame = SimulatedAmbeChip::encodeFrame(reinterpret_cast<const qint16*>(tone.constData()));
    QObject::connect(&dv, &zl::hw::Dv3000::pcmFrameReady, &loop, &QEventLoop::quit);
    for (auto _ : state) {
        dv.postChannel(frame, 72);
        loop.exec();
    }
}
BENCHMARK(BM_UdpChipRoundTrip)->UseRealTime();

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // The per-frame debug lines would be timed along with the frames.
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false"));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
