// Any text as the output of `pactl list cards`: reading the profiles to offer never crashes.
#include "audio/AudioDevice.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    for (const zl::CardProfile& p : zl::AudioDevice::parseCardProfiles(text)) {
        if (p.card.isEmpty() || !p.profile.startsWith(QLatin1String("output:")))
            __builtin_trap();
    }
    return 0;
}
