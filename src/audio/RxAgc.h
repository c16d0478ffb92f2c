#pragma once

#include <QtGlobal>

namespace zl::audio {

// Automatic gain on received speech, frame by frame: brings the peak towards target, falling
// fast and rising slowly, then limits hard below full scale. Pauses leave the gain alone.
struct RxAgc {
    double target = 0.3;
    double rise = 0.01;
    double fall = 0.3;
    double maxGain = 4.0;
    double minGain = 0.1;
    double ceiling = 0.9;
    double gain = 1.0;

    void process(qint16* samples, qsizetype count);
};

} // namespace zl::audio
