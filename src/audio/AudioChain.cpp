#include "AudioChain.h"

#include "LadspaHost.h"
#include "PcmDsp.h"

#include <QDebug>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace zl::audio {

namespace {

constexpr double kRate = 8000.0;
constexpr float kPauseRms = 200.0f;
constexpr float kFullScale = 32767.0f;

enum class BandKind { LowShelf, Peaking, HighShelf };

struct BandDesign {
    double hz;
    BandKind kind;
    double q;
};

// Shelves at both ends of the voice band, five peaks between them.
constexpr std::array<BandDesign, AudioChainConfig::kBands> kBandDesign{{
    {250, BandKind::LowShelf, 0.707},
    {500, BandKind::Peaking, 1.1},
    {900, BandKind::Peaking, 1.1},
    {1400, BandKind::Peaking, 1.1},
    {2000, BandKind::Peaking, 1.1},
    {2800, BandKind::Peaking, 1.1},
    {3300, BandKind::HighShelf, 0.707},
}};

// b0, b1, b2, a0, a1, a2 of one band at gainDb.
std::array<double, 6> coefficients(const BandDesign& band, double gainDb)
{
    const double a = std::pow(10.0, gainDb / 40.0);
    const double w = 2.0 * std::numbers::pi * band.hz / kRate;
    const double c = std::cos(w);
    const double s = std::sin(w);
    switch (band.kind) {
    case BandKind::Peaking: {
        const double alpha = s / (2.0 * band.q);
        return {1 + alpha * a, -2 * c, 1 - alpha * a, 1 + alpha / a, -2 * c, 1 - alpha / a};
    }
    case BandKind::LowShelf: {
        const double r = 2.0 * std::sqrt(a) * s / (2.0 * band.q);
        return {a * ((a + 1) - (a - 1) * c + r), 2 * a * ((a - 1) - (a + 1) * c), a * ((a + 1) - (a - 1) * c - r),
                (a + 1) + (a - 1) * c + r,       -2 * ((a - 1) + (a + 1) * c),    (a + 1) + (a - 1) * c - r};
    }
    case BandKind::HighShelf: {
        const double r = 2.0 * std::sqrt(a) * s / (2.0 * band.q);
        return {a * ((a + 1) + (a - 1) * c + r), -2 * a * ((a - 1) + (a + 1) * c), a * ((a + 1) + (a - 1) * c - r),
                (a + 1) - (a - 1) * c + r,       2 * ((a - 1) - (a + 1) * c),      (a + 1) - (a - 1) * c - r};
    }
    }
    return {1, 0, 0, 1, 0, 0};
}

} // namespace

void AudioChain::runEqualiser(float* x, int count)
{
    // Transposed direct form II: with unity coefficients the states stay exactly zero, so a
    // flat equaliser leaves every sample as it was. Sample by sample through all bands: one
    // band's recursion is a chain of dependent steps, seven side by side keep the processor
    // busy. The states live in locals, as the samples might alias the members as far as the
    // compiler knows.
    std::array<Biquad, AudioChainConfig::kBands> b = bands;
    for (int i = 0; i < count; ++i) {
        float v = x[i];
        for (Biquad& band : b) {
            const float out = band.b0 * v + band.z1;
            band.z1 = band.b1 * v - band.a1 * out + band.z2;
            band.z2 = band.b2 * v - band.a2 * out;
            v = out;
        }
        x[i] = v;
    }
    bands = b;
}

void AudioChain::configure(const AudioChainConfig& config)
{
    plugins.clear();
    enabled = config.enabled;
    gain = float(std::pow(10.0, double(config.gainDb) / 20.0));
    agcOn = config.agc;
    agcTarget = config.agcTarget > 0.0f ? config.agcTarget : 8000.0f;
    // In whole sample units, so that rounding the output cannot step past it.
    limCeil = std::min(kFullScale, float(std::floor(std::pow(10.0, double(config.limCeilDb) / 20.0) * kFullScale)));
    eqOn = config.eqOn;
    for (size_t i = 0; i < bands.size(); ++i) {
        const std::array<double, 6> k = coefficients(kBandDesign[i], double(config.eq[i]));
        bands[i] =
            Biquad{float(k[0] / k[3]), float(k[1] / k[3]), float(k[2] / k[3]), float(k[4] / k[3]), float(k[5] / k[3])};
    }
    if (enabled) {
        for (const ChainPluginConfig& entry : config.ladspa) {
            if (!entry.on)
                continue;
            if (std::unique_ptr<LadspaInstance> plugin = LadspaHost::createInstance(entry.label, entry.ctl))
                plugins.push_back(std::move(plugin));
        }
    }
    reset();
}

void AudioChain::reset()
{
    for (Biquad& band : bands)
        band.z1 = band.z2 = 0.0f;
    agcGain = 1.0f;
    limGain = 1.0f;
}

template <typename SampleAt>
void AudioChain::levelAndStore(SampleAt sampleAt, qint16* out, int count)
{
    if (agcOn) {
        double sum = 0.0;
        for (int i = 0; i < count; ++i)
            sum += double(sampleAt(i)) * double(sampleAt(i));
        const float rms = float(std::sqrt(sum / count));
        // A pause keeps the gain where it was, so that the next word does not start too loud.
        if (rms > kPauseRms) {
            const float wanted = std::clamp(agcTarget / rms, 0.1f, agcMaxGain);
            agcGain += (wanted - agcGain) * (agcGain > wanted ? 0.3f : 0.02f);
        }
    }
    // A ceiling at full scale leaves the limiting to the clamp below, so that a neutral chain
    // passes even -32768 through unchanged.
    if (limCeil < kFullScale) {
        float peak = 0.0f;
        for (int i = 0; i < count; ++i)
            peak = std::max(peak, std::fabs(sampleAt(i) * agcGain));
        const float need = peak > limCeil ? limCeil / peak : 1.0f;
        if (limGain > need)
            limGain = need;
        else
            limGain += (need - limGain) * 0.05f;
    }
    const float total = agcGain * limGain;
    for (int i = 0; i < count; ++i) {
        // A plug-in may hand back NaN; that sample is silenced rather than converted.
        const float v = std::nearbyint(sampleAt(i) * total);
        out[i] = v == v ? clamp16(v) : qint16(0);
    }
}

void AudioChain::process(qint16* samples, int count)
{
    if (!enabled || count <= 0)
        return;
    if (count > kMaxBlock) {
        levelAndStore([samples, g = gain](int i) { return float(samples[i]) * g; }, samples, count);
        return;
    }
    float work[kMaxBlock];
    for (int i = 0; i < count; ++i)
        work[i] = float(samples[i]) * gain;
    if (eqOn)
        runEqualiser(work, count);
    for (const std::unique_ptr<LadspaInstance>& plugin : plugins)
        plugin->run(work, count);
    levelAndStore([&work](int i) { return work[i]; }, samples, count);
}

} // namespace zl::audio
