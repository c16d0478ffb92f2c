#include "PlayoutClock.h"

namespace zl::audio {

void PlayoutClock::wrote(qint64 bytes, qint64 nowUs)
{
    if (bytes <= 0)
        return;
    drainsAtUs = qMax(drainsAtUs, nowUs) + bytes * 1000000 / rate;
}

qint64 PlayoutClock::queuedBytes(qint64 nowUs) const
{
    const qint64 leftUs = drainsAtUs - nowUs;
    return leftUs > 0 ? leftUs * rate / 1000000 : 0;
}

} // namespace zl::audio
