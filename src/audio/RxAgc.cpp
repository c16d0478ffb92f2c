#include "RxAgc.h"

#include "PcmDsp.h"

namespace zl::audio {

void RxAgc::process(qint16* samples, qsizetype count)
{
    const double peak = peakOf(samples, count) / 32768.0;
    if (peak < 0.01)
        return;
    const double wanted = qBound(minGain, target / peak, maxGain);
    gain += (wanted - gain) * (gain > wanted ? fall : rise);
    applyGain(samples, count, float(gain));
    const auto limit = qint16(ceiling * 32767.0);
    for (qsizetype i = 0; i < count; ++i)
        samples[i] = qBound(qint16(-limit), samples[i], limit);
}

} // namespace zl::audio
