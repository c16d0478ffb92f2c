#pragma once

#include <QString>

namespace zl {

// The waits between attempts to bring back a link that was lost (not refused): 2, 4, 8, 16
// and 32 s, then a minute for as long as the link stays wanted. A server that restarts is
// found again within seconds; one that is down for long is not hammered.
class ReconnectBackoff {
public:
    // The wait before the next attempt; each call moves one step further.
    int nextDelayMs();
    // After a successful login the next loss starts again at 2 s.
    void reset() { step = 0; }

    // What a row shows while it waits: "reconnecting in N s".
    static QString countdownText(int remainingMs);

private:
    int step = 0;
};

} // namespace zl
