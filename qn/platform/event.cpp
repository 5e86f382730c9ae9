// Events: a state in a slot of the handle table, and a futex on its lower half for whoever waits.
#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <bit>
#include <climits>

#include "qn/platform/error_internal.h"
#include "qn/platform/wait_internal.h"

namespace qn {
namespace {

constinit std::atomic<int> g_waiting = 0;

uint32_t* FutexOf(HandleSlot* slot) {
  static_assert(std::endian::native == std::endian::little && std::atomic<uint64_t>::is_always_lock_free);
  return reinterpret_cast<uint32_t*>(&slot->state);
}

// Sleeps while the lower half of the state is as given, until woken or until the deadline.
void Sleep(HandleSlot* slot, uint64_t state, int64_t deadline) {
  const timespec until = {deadline / 1'000'000'000, deadline % 1'000'000'000};
  syscall(SYS_futex, FutexOf(slot), FUTEX_WAIT_BITSET_PRIVATE, static_cast<uint32_t>(state),
          deadline == kNoDeadline ? nullptr : &until, nullptr, FUTEX_BITSET_MATCH_ANY);
}

DWORD WaitForEvent(HandleSlot* slot, uint32_t generation, DWORD milliseconds) {
  uint64_t armed = 0;
  DWORD result = LookAtEvent(slot, generation, kLookTake, &armed);
  if (result != WAIT_TIMEOUT || milliseconds == 0) return result;
  const int64_t deadline = DeadlineAfter(milliseconds);
  const WaitingThread waiting;
  for (;;) {
    result = LookAtEvent(slot, generation, kLookTake | kLookArm, &armed);
    if (result != WAIT_TIMEOUT || (deadline != kNoDeadline && MonotonicNow() >= deadline)) return result;
    Sleep(slot, armed, deadline);
  }
}

}  // namespace

int64_t MonotonicNow() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

int64_t DeadlineAfter(DWORD milliseconds) {
  return milliseconds == INFINITE ? kNoDeadline : MonotonicNow() + int64_t{milliseconds} * 1'000'000;
}

WaitingThread::WaitingThread() {
  g_waiting.fetch_add(1, std::memory_order_seq_cst);
}
WaitingThread::~WaitingThread() {
  g_waiting.fetch_sub(1, std::memory_order_release);
}
bool IsAnyThreadWaiting() {
  return g_waiting.load(std::memory_order_seq_cst) != 0;
}

DWORD LookAtEvent(HandleSlot* slot, uint32_t generation, unsigned flags, uint64_t* armed) {
  uint64_t state = slot->state.load(std::memory_order_acquire);
  for (;;) {
    const bool open = IsEventOf(state, generation);
    if (*armed != 0 && (*armed & kSlotAutoReset) == 0) {
      // A signal releases all waiters of the moment, even if it was taken back since, or the event was
      // closed, which counts too.
      const uint64_t counts = (state & kSlotCount) - (*armed & kSlotCount);
      if ((counts & kSlotCount) > (open ? 0 : kSlotCountOne)) return WAIT_OBJECT_0;
    }
    if (!open) {
      SetLastError(ERROR_INVALID_HANDLE);
      return WAIT_FAILED;
    }
    uint64_t next = state;
    if (state & kSlotSignalled) {
      if ((state & kSlotAutoReset) == 0 || (flags & kLookTake) == 0) return WAIT_OBJECT_0;
      next = state & ~kSlotSignalled;
    } else {
      if ((flags & kLookArm) == 0) return WAIT_TIMEOUT;
      next = state | kSlotWaiters;
    }
    if (next == state || slot->state.compare_exchange_weak(state, next, std::memory_order_acq_rel,
                                                           std::memory_order_acquire)) {
      if (state & kSlotSignalled) return WAIT_OBJECT_0;
      *armed = next;
      return WAIT_TIMEOUT;
    }
  }
}

HandleSlot* SignalEvent(HANDLE event, bool* found) {
  HandleSlot* const slot = FindSlot(event);
  *found = false;
  if (!slot) return nullptr;
  uint64_t state = slot->state.load(std::memory_order_relaxed);
  uint64_t next;
  do {
    if (!IsEventOf(state, GenerationOf(event))) return nullptr;
    next = ((state & kSlotSignalled ? state : Counted(state)) | kSlotSignalled) & ~kSlotWaiters;
  } while (
      !slot->state.compare_exchange_weak(state, next, std::memory_order_acq_rel, std::memory_order_relaxed));
  *found = true;
  return state & kSlotWaiters ? slot : nullptr;
}

void WakeWaiters(HandleSlot* slot) {
  if (!slot) return;
  syscall(SYS_futex, FutexOf(slot), FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
  WakeMultiWaits(slot);
}

bool UnsignalEvent(HANDLE event) {
  HandleSlot* const slot = FindSlot(event);
  if (!slot) return false;
  uint64_t state = slot->state.load(std::memory_order_relaxed);
  do {
    if (!IsEventOf(state, GenerationOf(event))) return false;
  } while (!slot->state.compare_exchange_weak(state, state & ~kSlotSignalled, std::memory_order_acq_rel,
                                              std::memory_order_relaxed));
  return true;
}

}  // namespace qn

inline namespace qnplatform {

HANDLE CreateEventW(void*, BOOL manualReset, BOOL initialState, const WCHAR* name) {
  if (name) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  const HANDLE event =
      qn::AddEvent((manualReset ? 0 : qn::kSlotAutoReset) | (initialState ? qn::kSlotSignalled : 0));
  if (!event) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return event;
}

BOOL SetEvent(HANDLE event) {
  bool found;
  qn::WakeWaiters(qn::SignalEvent(event, &found));
  return found ? TRUE : qn::FailWith(ERROR_INVALID_HANDLE);
}

BOOL ResetEvent(HANDLE event) {
  return qn::UnsignalEvent(event) ? TRUE : qn::FailWith(ERROR_INVALID_HANDLE);
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  qn::HandleSlot* const slot = qn::FindSlot(handle);
  if (!slot || !qn::IsEventOf(slot->state.load(std::memory_order_relaxed), qn::GenerationOf(handle))) {
    return MsgWaitForMultipleObjectsEx(1, &handle, milliseconds, 0, 0);
  }
  return qn::WaitForEvent(slot, qn::GenerationOf(handle), milliseconds);
}

}  // namespace qnplatform
