#pragma once

namespace zl {

// How many times faster than real time the protocol clocks run: 1 in use. Tests of the whole
// program set ZL_TIME_SCALE so that outages of a minute and the waits after them pass in
// seconds. Read once.
int timeScale();

} // namespace zl
