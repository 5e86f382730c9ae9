#include "tools/common/interrupt.h"

#include <signal.h>

#include <atomic>
#include <initializer_list>

namespace qntool {
namespace {

std::atomic<int> signalNumber = 0;
static_assert(std::atomic<int>::is_always_lock_free);

// The first signal counts: those that follow find a run that is tidying up.
void Remember(int number) {
  int none = 0;
  signalNumber.compare_exchange_strong(none, number);
}

}  // namespace

void WatchInterrupts() {
  struct sigaction action = {};
  action.sa_handler = Remember;
  action.sa_flags = SA_RESTART;
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    struct sigaction before = {};
    // A signal that the caller has switched off, as nohup does, stays off.
    if (sigaction(number, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
      sigaction(number, &action, nullptr);
    }
  }
}

int InterruptSignal() {
  return signalNumber;
}

}  // namespace qntool
