// Ctrl-C and its kin: a run is told to stop and tidies up after itself.
#pragma once

namespace qnwave {

// From now on SIGINT, SIGTERM and SIGHUP set a mark; a second one ends the process at once.
void WatchInterrupts();

// The number of the signal that came, or 0.
int InterruptSignal();

}  // namespace qnwave
