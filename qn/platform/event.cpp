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
  uint64_t seen = 0;
  DWORD result = LookAtEvent(slot, generation, true, &seen);
  if (result != WAIT_TIMEOUT || milliseconds == 0) return result;
  const int64_t deadline = DeadlineAfter(milliseconds);
  slot->waiters.fetch_add(1);
  for (;;) {
    result = LookAtEvent(slot, generation, true, &seen);
    if (result != WAIT_TIMEOUT || (deadline != kNoDeadline && MonotonicNow() >= deadline)) break;
    Sleep(slot, seen, deadline);
  }
  slot->waiters.fetch_sub(1);
  return result;
}

// Changes the state of an event that is open; false if there is none.
template <typename Change>
bool ChangeEvent(HANDLE event, Change change) {
  HandleSlot* const slot = FindSlot(event);
  if (!slot) return FailWith(ERROR_INVALID_HANDLE);
  uint64_t state = slot->state.load(std::memory_order_relaxed);
  do {
    if (!IsEventOf(state, GenerationOf(event))) return FailWith(ERROR_INVALID_HANDLE);
  } while (!slot->state.compare_exchange_weak(state, change(state)));
  WakeWaiters(slot);
  return true;
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

DWORD LookAtEvent(HandleSlot* slot, uint32_t generation, bool take, uint64_t* seen) {
  for (;;) {
    uint64_t state = slot->state.load();
    const bool open = IsEventOf(state, generation);
    // A closed event's count is there until its slot is in use again.
    const bool closed = GenerationOf(state) == NextGeneration(generation) && (state & kSlotOpen) == 0;
    if (*seen != 0 && (*seen & kSlotAutoReset) == 0 && (open || closed)) {
      // A signal releases all waiters of the moment, even if it was taken back since, or the event was
      // closed, which counts too.
      const uint64_t counts = ((state & kSlotCount) - (*seen & kSlotCount)) & kSlotCount;
      if (counts > (open ? 0 : kSlotCountOne)) return WAIT_OBJECT_0;
    }
    if (!open) {
      SetLastError(ERROR_INVALID_HANDLE);
      return WAIT_FAILED;
    }
    *seen = state;
    if ((state & kSlotSignalled) == 0) return WAIT_TIMEOUT;
    if ((state & kSlotAutoReset) == 0 || !take) return WAIT_OBJECT_0;
    if (slot->state.compare_exchange_weak(state, Unsignalled(state))) return WAIT_OBJECT_0;
  }
}

bool TakeUnchanged(HandleSlot* slot, uint64_t seen) {
  if ((seen & kSlotAutoReset) == 0) return slot->state.load() == seen;
  return slot->state.compare_exchange_strong(seen, Unsignalled(seen));
}

void WakeAll(HandleSlot* slot) {
  syscall(SYS_futex, FutexOf(slot), FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
  WakeMultiWaits(slot);
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
  return qn::ChangeEvent(event, qn::Signalled) ? TRUE : FALSE;
}

BOOL ResetEvent(HANDLE event) {
  return qn::ChangeEvent(event, qn::Unsignalled) ? TRUE : FALSE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  qn::HandleSlot* const slot = qn::FindSlot(handle);
  if (!slot || !qn::IsEventOf(slot->state.load(std::memory_order_relaxed), qn::GenerationOf(handle))) {
    return MsgWaitForMultipleObjectsEx(1, &handle, milliseconds, 0, 0);
  }
  return qn::WaitForEvent(slot, qn::GenerationOf(handle), milliseconds);
}

}  // namespace qnplatform
