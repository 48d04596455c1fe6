// Turns the signals that end a process into a descriptor to wait on.
#pragma once

namespace zelk_host {

/// Blocks SIGINT, SIGTERM and SIGHUP. Threads that are created from now on leave them alone, so
/// that they reach the main thread. SIGPIPE is ignored: a reader that leaves must not end the host.
void BlockSignals();

/// Lets them through to the calling thread, which must be the main one. The first of each makes the
/// result readable; a second one of the same kind ends the process at once. -1 when there is no
/// descriptor left.
int CatchSignals();

}  // namespace zelk_host
