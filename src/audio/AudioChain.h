#pragma once

#include "AudioChainConfig.h"
#include "LadspaInstance.h"

#include <QtGlobal>

#include <array>
#include <memory>
#include <vector>

namespace zl::audio {

// One direction's signal path on 8 kHz mono 16-bit blocks: preamp, seven-band equaliser,
// LADSPA plug-ins, automatic gain and a peak limiter. The mixer keeps one for the microphone
// and one per (mode, peer) on receive. Main thread only; nothing is allocated per block.
class AudioChain {
public:
    // Largest block with working space; longer ones get only gain, AGC and limiter.
    static constexpr int kMaxBlock = 2048;

    AudioChain() = default;
    AudioChain(const AudioChain&) = delete;
    AudioChain& operator=(const AudioChain&) = delete;

    // Takes new settings: coefficients are computed and the plug-ins loaded afresh, so no
    // plug-in state outlives a settings change.
    void configure(const AudioChainConfig& config);
    // Back to silence between streams; plug-ins keep running.
    void reset();
    void process(qint16* samples, int count);

    bool isEnabled() const { return enabled; }
    int pluginCount() const { return int(plugins.size()); }
    float agcGainNow() const { return agcGain; }

private:
    struct Biquad {
        float b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
        float z1 = 0, z2 = 0;
    };

    void runEqualiser(float* x, int count);

    // Steps after the equaliser and the plug-ins, on sample i as sampleAt(i) gives it.
    template <typename SampleAt>
    void levelAndStore(SampleAt sampleAt, qint16* out, int count);

    bool enabled = false;
    float gain = 1.0f;
    bool agcOn = false;
    float agcTarget = 8000.0f;
    float agcMaxGain = 8.0f;
    float agcGain = 1.0f;
    float limCeil = 32767.0f;
    float limGain = 1.0f;
    bool eqOn = false;
    std::array<Biquad, AudioChainConfig::kBands> bands;
    std::vector<std::unique_ptr<LadspaInstance>> plugins;
};

} // namespace zl::audio
