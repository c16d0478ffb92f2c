// GSM 06.10 work per 20 ms, a received EchoLink packet's way to PCM, and mu-law per 20 ms frame.
#include "echolink/EchoLinkPackets.h"
#include "echolink/EchoLinkQso.h"
#include "echolink/GsmCodec.h"
#include "iax/MuLaw.h"

#include <benchmark/benchmark.h>

#include <cmath>

namespace {

QByteArray tone(int samples)
{
    QByteArray pcm(samples * 2, '\0');
    auto* s = reinterpret_cast<qint16*>(pcm.data());
    for (int i = 0; i < samples; ++i)
        s[i] = qint16(8000 * std::sin(2 * M_PI * 440 * i / 8000.0));
    return pcm;
}

void gsmEncode20ms(benchmark::State& state)
{
    zl::echolink::GsmCodec codec;
    const QByteArray pcm = tone(160);
    for (auto _ : state)
        benchmark::DoNotOptimize(codec.encode(pcm));
}
BENCHMARK(gsmEncode20ms)->Unit(benchmark::kMicrosecond);

void gsmDecode20ms(benchmark::State& state)
{
    zl::echolink::GsmCodec codec;
    const QByteArray frame = codec.encode(tone(160));
    for (auto _ : state)
        benchmark::DoNotOptimize(codec.decode(frame));
}
BENCHMARK(gsmDecode20ms)->Unit(benchmark::kMicrosecond);

// One 144-byte audio packet (80 ms, four GSM frames) from the dispatcher to the PCM signal.
void echoLinkPacketToPcm(benchmark::State& state)
{
    zl::echolink::GsmCodec encoder;
    const QByteArray pcm = tone(640);
    QByteArray frames;
    for (int i = 0; i < 4; ++i)
        frames += encoder.encode(pcm.mid(i * 320, 320));
    const QByteArray packet = zl::echolink::audioPacket(1, frames);
    zl::echolink::EchoLinkQso qso;
    qsizetype bytes = 0;
    QObject::connect(&qso, &zl::echolink::EchoLinkQso::pcmReady, [&](const QByteArray& p) { bytes += p.size(); });
    for (auto _ : state)
        qso.onAudioDatagram(packet);
    benchmark::DoNotOptimize(bytes);
}
BENCHMARK(echoLinkPacketToPcm)->Unit(benchmark::kMicrosecond);

void muLawEncode20ms(benchmark::State& state)
{
    const QByteArray pcm = tone(160);
    for (auto _ : state)
        benchmark::DoNotOptimize(zl::iax::encodeMuLaw(pcm));
}
BENCHMARK(muLawEncode20ms);

void muLawDecode20ms(benchmark::State& state)
{
    const QByteArray codes = zl::iax::encodeMuLaw(tone(160));
    for (auto _ : state)
        benchmark::DoNotOptimize(zl::iax::decodeMuLaw(codes));
}
BENCHMARK(muLawDecode20ms);

} // namespace
