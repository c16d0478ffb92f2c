#pragma once

namespace zl {

// Turns SIGINT and SIGTERM into a quit of the event loop, through a self-pipe.
// If the pipe cannot be made, the signals keep their default action.
void installSignalBridge();

} // namespace zl
