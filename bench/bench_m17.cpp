// Codec2 3200 work per 40 ms M17 frame, and a received frame's way to PCM.
#include "m17/M17StreamFrame.h"
#include "m17/M17Voice.h"

#include <benchmark/benchmark.h>

#include <cmath>

namespace {

QByteArray tone40ms()
{
    QByteArray pcm(640, '\0');
    auto* s = reinterpret_cast<qint16*>(pcm.data());
    for (int i = 0; i < 320; ++i)
        s[i] = qint16(8000 * std::sin(2 * M_PI * 440 * i / 8000.0));
    return pcm;
}

void encodeFrame(benchmark::State& state)
{
    zl::m17::M17Voice voice;
    QByteArray last;
    QObject::connect(&voice, &zl::m17::M17Voice::frameReady, [&](const QByteArray& f) { last = f; });
    voice.startTx(QStringLiteral("XX0ABC"));
    const QByteArray pcm = tone40ms();
    for (auto _ : state) {
        voice.pushMicPcm(pcm);
        benchmark::DoNotOptimize(last);
    }
}
BENCHMARK(encodeFrame)->Unit(benchmark::kMicrosecond);

// From a frame handed over by the client to both 20 ms PCM blocks emitted.
void receiveFrameToPcm(benchmark::State& state)
{
    zl::m17::M17Voice voice;
    qsizetype bytes = 0;
    QObject::connect(&voice, &zl::m17::M17Voice::rxPcm, [&](const QByteArray& p) { bytes += p.size(); });
    const QByteArray c2 = QByteArray::fromHex("0123456789abcdef");
    const QByteArray frame = zl::m17::buildStreamFrame("XX0ABC", "ALL", 7, 1, false, c2, c2);
    for (auto _ : state)
        voice.onVoiceFrame(frame);
    benchmark::DoNotOptimize(bytes);
}
BENCHMARK(receiveFrameToPcm)->Unit(benchmark::kMicrosecond);

} // namespace
