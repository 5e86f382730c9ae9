// What stands behind the waits: the message side of a thread, waking, and alerts.
#pragma once

#include <memory>

#include "qn/platform/handle_internal.h"
#include "qn/platform/wait.h"

namespace qn {

// The messages of a thread, as a window layer gives them. Without one, no message ever comes.
class ThreadMessages {
 public:
  virtual ~ThreadMessages() = default;

  // A descriptor that poll finds readable when there may be something new; -1 for none.
  virtual int Descriptor() const = 0;

  // True if there are messages of the kinds in the mask: new ones, or with `seen` also those that an earlier
  // look left in the queue. It takes in all that the descriptor tells, which then is not readable any more.
  virtual bool HasInput(DWORD wakeMask, bool seen) = 0;

  // PeekMessageW.
  virtual BOOL Peek(MSG* message, HWND window, UINT first, UINT last, UINT flags) = 0;
};

// Sets the messages of the calling thread, which stay the caller's; null takes them away.
void SetThreadMessages(ThreadMessages* messages);

// Wakes whoever waits for what a slot stands for, if anybody does. The state must have changed before, by an
// atomic exchange or with a full fence in between: waiters count themselves before they look at it.
void WakeAll(HandleSlot* slot);
inline void WakeWaiters(HandleSlot* slot) {
  if (slot->waiters.load() != 0) WakeAll(slot);
}

constexpr uint64_t Signalled(uint64_t state) {
  return (state & kSlotSignalled ? state : Counted(state)) | kSlotSignalled;
}
constexpr uint64_t Unsignalled(uint64_t state) {
  return state & ~kSlotSignalled;
}

// For the owner of an event who makes all changes to it inside of a lock: a plain write, without the exchange
// that SetEvent and ResetEvent need. Gives the slot, for WakeWaiters after a full fence; null for no event.
inline HandleSlot* WriteSignal(HANDLE event, bool signalled) {
  HandleSlot* const slot = FindSlot(event);
  if (!slot) return nullptr;
  const uint64_t state = slot->state.load(std::memory_order_relaxed);
  if (!IsEventOf(state, GenerationOf(event))) return nullptr;
  slot->state.store(signalled ? Signalled(state) : Unsignalled(state), std::memory_order_release);
  return slot;
}

// The monotonic clock in nanoseconds, and the end of a wait by it: kNoDeadline for INFINITE.
constexpr int64_t kNoDeadline = -1;
int64_t MonotonicNow();
int64_t DeadlineAfter(DWORD milliseconds);

// Looks at an event for a wait on it: WAIT_OBJECT_0 if it is signalled, WAIT_TIMEOUT if not, WAIT_FAILED if
// it is closed. With `take` the signal of an auto-reset event is taken. Between two looks the signal of a
// manual-reset event may have come and gone, which releases the wait as well: it keeps what it has seen in
// `*seen`, 0 at first.
DWORD LookAtEvent(HandleSlot* slot, uint32_t generation, bool take, uint64_t* seen);

// Takes the signal that a look without `take` has found, as part of a wait for all: false if the event has
// changed since, even if it is signalled again.
bool TakeUnchanged(HandleSlot* slot, uint64_t seen);

// Wakes the waits on several objects that a slot is one of.
void WakeMultiWaits(const HandleSlot* slot);
// Wakes the alertable wait that a thread is in.
void WakeThread(DWORD threadId);

// Tells how many alerts there are for the calling thread, and runs them.
size_t CountAlerts();
void RunAlerts();
// Forgets the threads that were opened.
void ReleaseThreads();

}  // namespace qn
