#include "svx/SvxReplayWindow.h"

namespace zl::svx {

bool SvxReplayWindow::accept(quint32 counter)
{
    if (!any) {
        any = true;
        highest = counter;
        seen = 1;
        return true;
    }
    if (counter > highest) {
        const quint32 ahead = counter - highest;
        seen = ahead >= kSize ? 1 : (seen << ahead) | 1;
        highest = counter;
        return true;
    }
    const quint32 behind = highest - counter;
    if (behind >= kSize)
        return false;
    const quint64 bit = quint64(1) << behind;
    if (seen & bit)
        return false;
    seen |= bit;
    return true;
}

} // namespace zl::svx
