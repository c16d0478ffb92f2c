// One 20 ms block (160 samples at 8 kHz) through a full chain: preamp, seven-band equaliser,
// one LADSPA plug-in from Debian's swh-plugins, automatic gain and limiter. The counter
// "core_pct_10rx" is the share of one core that ten receive chains take in real time; the
// target is below 1 %.
#include "audio/AudioChain.h"

#include <benchmark/benchmark.h>

#include <QJsonArray>
#include <QJsonObject>

#include <cmath>
#include <vector>

namespace {

void chainBlock(benchmark::State& state, const char* label, QJsonArray ctl)
{
    zl::audio::AudioChain chain;
    chain.configure(zl::audio::parseChain({{"enabled", true},
                                           {"gain_db", 6},
                                           {"eq_on", true},
                                           {"eq", QJsonArray{3, -2, 4, 0, 2, -3, 5}},
                                           {"agc", true},
                                           {"lim_ceil_db", -1},
                                           {"ladspa", QJsonArray{QJsonObject{{"label", label}, {"ctl", ctl}}}}}));
    if (chain.pluginCount() != 1) {
        state.SkipWithError("plug-in not installed (swh-plugins)");
        return;
    }
    // Speech-like: a few tones at a talking level.
    std::vector<qint16> speech(8000);
    for (size_t i = 0; i < speech.size(); ++i)
        speech[i] = qint16(3000 * std::sin(0.13 * double(i)) + 1500 * std::sin(0.71 * double(i)));
    std::vector<qint16> block(160);
    size_t at = 0;
    for (auto _ : state) {
        std::copy_n(speech.begin() + long(at), 160, block.begin());
        at = (at + 160) % speech.size();
        chain.process(block.data(), 160);
        benchmark::DoNotOptimize(block.data());
    }
    // CPU seconds per block x 10 chains / 20 ms x 100 %, from the processor time measured.
    state.counters["core_pct_10rx"] = benchmark::Counter(double(state.iterations()) / (10 / 0.020 * 100),
                                                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

} // namespace

BENCHMARK_CAPTURE(chainBlock, swh_amp, "amp", QJsonArray{-3});
BENCHMARK_CAPTURE(chainBlock, swh_sc4m_compressor, "sc4m", QJsonArray{});
