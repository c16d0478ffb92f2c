// SvxLink audio per 20 ms frame: Opus at 16 kHz with the 8 kHz conversion, and the
// AES-128-GCM sealing of version 3 per datagram.
#include "svx/SvxAudio.h"
#include "svx/SvxUdpCipher.h"
#include "svx/SvxWire.h"

#include <benchmark/benchmark.h>

#include <opus.h>

#include <cmath>

using namespace zl::svx;

namespace {

QByteArray tone8k(int index)
{
    QByteArray pcm(320, '\0');
    auto* s = reinterpret_cast<qint16*>(pcm.data());
    for (int i = 0; i < 160; ++i)
        s[i] = qint16(8000 * std::sin(2 * M_PI * 440 * (index * 160 + i) / 8000.0));
    return pcm;
}

// Fifty packets of a steady tone, as a second of received speech.
QList<QByteArray> packets()
{
    OpusEncoderPtr enc = makeOpusEncoder();
    qint16 prev = 0;
    QList<QByteArray> out;
    for (int i = 0; i < 50; ++i) {
        const QByteArray up = upsampleTo16k(tone8k(i), prev);
        out.append(encodeFrame16k(enc.get(), reinterpret_cast<const qint16*>(up.constData())));
    }
    return out;
}

SvxUdpCipher cipher()
{
    SvxUdpCipher c;
    c.generate();
    c.setClientId(7);
    return c;
}

// What the reflector sends: counter, tag, ciphertext under client id 0.
QByteArray sealedFromReflector(const SvxUdpCipher& c, quint32 counter, const QByteArray& inner)
{
    const QByteArray head = WireWriter().u32(counter).data();
    QByteArray tag;
    const QByteArray body = gcmSeal(c.keyBytes(), c.ivRandBytes() + QByteArray(2, 0) + head, head, inner, tag);
    return head + tag + body;
}

void opusDecodeOnly(benchmark::State& state)
{
    const QList<QByteArray> p = packets();
    OpusDecoderPtr dec = makeOpusDecoder();
    qint16 pcm[kOpusDecodeCapacity];
    int i = 0;
    for (auto _ : state) {
        const QByteArray& packet = p.at(i++ % p.size());
        benchmark::DoNotOptimize(opus_decode(dec.get(), reinterpret_cast<const unsigned char*>(packet.constData()),
                                             opus_int32(packet.size()), pcm, kOpusDecodeCapacity, 0));
    }
}
BENCHMARK(opusDecodeOnly)->Unit(benchmark::kMicrosecond);

void decodeAndConvert(benchmark::State& state)
{
    const QList<QByteArray> p = packets();
    OpusDecoderPtr dec = makeOpusDecoder();
    int i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(decodeTo8k(dec.get(), p.at(i++ % p.size())));
}
BENCHMARK(decodeAndConvert)->Unit(benchmark::kMicrosecond);

// A sealed datagram to 160 samples: open, parse, decode, convert.
void receivePathV3(benchmark::State& state)
{
    const SvxUdpCipher c = cipher();
    QList<QByteArray> datagrams;
    quint32 counter = 1;
    for (const QByteArray& packet : packets())
        datagrams.append(sealedFromReflector(c, counter++, WireWriter().u16(udp::Audio).data() + audioPayload(packet)));
    OpusDecoderPtr dec = makeOpusDecoder();
    int i = 0;
    for (auto _ : state) {
        const std::optional<QByteArray> inner = c.open(datagrams.at(i++ % datagrams.size()));
        benchmark::DoNotOptimize(decodeTo8k(dec.get(), audioOfV3Message(*inner)));
    }
}
BENCHMARK(receivePathV3)->Unit(benchmark::kMicrosecond);

void encodeFrame(benchmark::State& state)
{
    OpusEncoderPtr enc = makeOpusEncoder();
    QList<QByteArray> frames;
    for (int i = 0; i < 50; ++i)
        frames.append(tone8k(i));
    qint16 prev = 0;
    int i = 0;
    for (auto _ : state) {
        const QByteArray up = upsampleTo16k(frames.at(i++ % frames.size()), prev);
        benchmark::DoNotOptimize(encodeFrame16k(enc.get(), reinterpret_cast<const qint16*>(up.constData())));
    }
}
BENCHMARK(encodeFrame)->Unit(benchmark::kMicrosecond);

void sealDatagram(benchmark::State& state)
{
    const SvxUdpCipher c = cipher();
    const QByteArray inner = WireWriter().u16(udp::Audio).data() + audioPayload(QByteArray(40, 'x'));
    quint32 counter = 1;
    for (auto _ : state)
        benchmark::DoNotOptimize(c.seal(counter++, inner, false));
}
BENCHMARK(sealDatagram)->Unit(benchmark::kMicrosecond);

void openDatagram(benchmark::State& state)
{
    const SvxUdpCipher c = cipher();
    const QByteArray datagram =
        sealedFromReflector(c, 5, WireWriter().u16(udp::Audio).data() + audioPayload(QByteArray(40, 'x')));
    for (auto _ : state)
        benchmark::DoNotOptimize(c.open(datagram));
}
BENCHMARK(openDatagram)->Unit(benchmark::kMicrosecond);

} // namespace
