#pragma once

#include <QtGlobal>

namespace zl::svx {

// Anti-replay for the reflector's sealed datagrams: a sliding window of the last 64
// counters, as IPsec keeps it. A counter is accepted once, and only if it is newer than
// the window's oldest; the caller checks the seal first, so forged counters never move it.
class SvxReplayWindow {
public:
    static constexpr quint32 kSize = 64;

    // True for a counter not seen before and not too old; it is then marked as seen.
    bool accept(quint32 counter);
    void reset() { *this = SvxReplayWindow(); }

private:
    quint32 highest = 0;
    quint64 seen = 0; // bit i: counter highest - i arrived
    bool any = false;
};

} // namespace zl::svx
