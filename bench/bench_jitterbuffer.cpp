// Cost of the receive jitter buffer: one frame inserted and played out, and one idle 10 ms tick.
#include "dmr/JitterBuffer.h"

#include <benchmark/benchmark.h>

namespace {

QByteArray frame()
{
    return QByteArray(55, 'v');
}

// Steady state of a call: every 60 ms a frame arrives and the one due is played.
void BM_InsertAndPlayOut(benchmark::State& state)
{
    qint64 played = 0;
    zl::dmr::JitterBuffer buffer([&](const QByteArray& d) { played += d.size(); });
    const QByteArray f = frame();
    qint64 now = 0;
    quint8 seq = 0;
    for (auto _ : state) {
        buffer.insert(1, seq++, f, false, now);
        buffer.tick(now, now, 120);
        now += 60;
    }
    benchmark::DoNotOptimize(played);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_InsertAndPlayOut);

// The 10 ms tick between two bursts: nothing is due yet.
void BM_IdleTick(benchmark::State& state)
{
    zl::dmr::JitterBuffer buffer([](const QByteArray&) {});
    const QByteArray f = frame();
    for (quint8 seq = 0; seq < 3; ++seq)
        buffer.insert(1, seq, f, false, 0);
    buffer.tick(120, 120, 120); // starts play-out; the next burst is due at 180
    for (auto _ : state)
        buffer.tick(150, 120, 120);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_IdleTick);

// The tick of an empty buffer between calls.
void BM_EmptyTick(benchmark::State& state)
{
    zl::dmr::JitterBuffer buffer([](const QByteArray&) {});
    for (auto _ : state)
        buffer.tick(1000, 900, 120);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_EmptyTick);

} // namespace
