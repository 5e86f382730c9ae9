// Ctrl-C and its kin: a run is told to stop and tidies up after itself.
#pragma once

namespace qntool {

// From now on SIGINT, SIGTERM, SIGHUP and SIGQUIT set a mark. Further ones change nothing, so that a run can
// tidy up; only SIGKILL ends it at once.
void WatchInterrupts();

// The number of the signal that came, or 0.
int InterruptSignal();

}  // namespace qntool
