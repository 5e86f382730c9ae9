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

// SetEvent in two steps, for a caller that signals inside of a lock: who is woken should not run into that
// lock. `*found` tells if there is such an event. It is signalled at once; the slot, which may be null, goes
// to WakeWaiters outside.
HandleSlot* SignalEvent(HANDLE event, bool* found);
void WakeWaiters(HandleSlot* slot);

// Takes the signal back, as ResetEvent does.
bool UnsignalEvent(HANDLE event);

// The monotonic clock in nanoseconds, and the end of a wait by it: kNoDeadline for INFINITE.
constexpr int64_t kNoDeadline = -1;
int64_t MonotonicNow();
int64_t DeadlineAfter(DWORD milliseconds);

// Counts the threads that sleep: what they look at when they wake up must stay.
bool IsAnyThreadWaiting();
class WaitingThread {
 public:
  WaitingThread();
  ~WaitingThread();
  WaitingThread(const WaitingThread&) = delete;
  WaitingThread& operator=(const WaitingThread&) = delete;
};

// Looks at an event for a wait on it: WAIT_OBJECT_0 if it is signalled, WAIT_TIMEOUT if not, WAIT_FAILED if
// it is closed. With kLookTake the signal of an auto-reset event is taken. With kLookArm, whoever signals the
// event from now on wakes the waiters. Between two looks the signal of a manual-reset event may have come and
// gone, which releases the wait as well: it keeps what it has seen in `*armed`, 0 at first.
constexpr unsigned kLookTake = 1;
constexpr unsigned kLookArm = 2;
DWORD LookAtEvent(HandleSlot* slot, uint32_t generation, unsigned flags, uint64_t* armed);

// Wakes the waits on several objects that a slot is one of.
void WakeMultiWaits(const HandleSlot* slot);
// Wakes the alertable wait that a thread is in.
void WakeThread(DWORD threadId);

// Tells if there are alerts for the calling thread, and runs them.
bool HasAlerts();
void RunAlerts();
// Forgets the threads that were opened.
void ReleaseThreads();

}  // namespace qn
