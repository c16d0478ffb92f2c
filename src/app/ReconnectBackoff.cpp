#include "ReconnectBackoff.h"

#include <QtGlobal>

namespace zl {

namespace {
constexpr int kFirstDelayMs = 2000;
constexpr int kLongestDelayMs = 60000;
} // namespace

int ReconnectBackoff::nextDelayMs()
{
    const int delay = step >= 5 ? kLongestDelayMs : kFirstDelayMs << step;
    if (step < 5)
        ++step;
    return delay;
}

QString ReconnectBackoff::countdownText(int remainingMs)
{
    return QStringLiteral("reconnecting in %1 s").arg(qMax(1, (remainingMs + 999) / 1000));
}

} // namespace zl
