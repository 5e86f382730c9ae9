// Removal from a queue, and the waits for it.
#include "qn/kernel/qnqueue.h"
#include "qn/kernel/qnqueue_internal.h"

#include <algorithm>

namespace {

using qn::EventOf;
using qn::QueueGuard;

constexpr DWORD kMaxHandles = 62;  // the queue's event is one more

// What is left of a wait's time.
class RemainingTime {
 public:
  explicit RemainingTime(DWORD timeout) : timeout_(timeout), start_(IsFinite() ? GetTickCount() : 0) {}
  DWORD Get() const {
    if (!IsFinite()) return timeout_;
    const DWORD elapsed = GetTickCount() - start_;
    return elapsed >= timeout_ ? 0 : timeout_ - elapsed;
  }

 private:
  bool IsFinite() const { return timeout_ != 0 && timeout_ != INFINITE; }
  const DWORD timeout_;
  const DWORD start_;
};

enum class Next { kGiveUp, kLook, kLookAndWaitAgain };

// What a wait on several objects leads to.
Next AfterWait(DWORD result, DWORD handleCount, bool pump) {
  if (result == WAIT_OBJECT_0) return Next::kLook;
  if (result <= handleCount || !pump) return Next::kGiveUp;
  if (result == WAIT_IO_COMPLETION) return Next::kLookAndWaitAgain;
  if (result != handleCount + 1) return Next::kGiveUp;
  MSG message;
  PeekMessageW(&message, nullptr, 0, 0, PM_QS_SENDMESSAGE);
  return Next::kLookAndWaitAgain;
}

// Takes the first or the last element, if there is one.
tQNQELM* TakeFrom(tQNQHEAD* head, bool front) {
  const QueueGuard guard(head);
  tQNQELM* const element = front ? qn::First(head) : qn::Last(head);
  if (element) qn::Take(head, element);
  return element;
}

// One plain wait, and another look.
tQNQELM* WaitOnceAndTake(tQNQHEAD* head, bool front, DWORD timeout, DWORD* waitResult) {
  const HANDLE event = EventOf(head);
  if (timeout == 0 || !event) return nullptr;
  const DWORD result = WaitForSingleObject(event, timeout);
  if (waitResult) *waitResult = result;
  return EventOf(head) ? TakeFrom(head, front) : nullptr;
}

inline tQNQELM* RemoveWithOneWait(tQNQHEAD* head, bool front, DWORD timeout, DWORD* waitResult) {
  tQNQELM* const element = TakeFrom(head, front);
  return element ? element : WaitOnceAndTake(head, front, timeout, waitResult);
}

}  // namespace

tQNQELM* QnQueueRemove(tQNQHEAD* head, DWORD timeout) {
  return head ? RemoveWithOneWait(head, true, timeout, nullptr) : nullptr;
}

tQNQELM* QnQueueRemoveAlertable(tQNQHEAD* head, DWORD timeout) {
  return QnQueueRemoveEx(head, nullptr, 0, QNQUEUE_PUMP | QNQUEUE_ALERTABLE, timeout, nullptr);
}

tQNQELM* QnQueueRemoveEx(tQNQHEAD* head, const HANDLE* handles, DWORD handleCount, DWORD flags, DWORD timeout,
                         DWORD* waitResult) {
  if (!head || (handles && handleCount > kMaxHandles)) return nullptr;
  const DWORD count = handles ? handleCount : 0;
  const bool pump = (flags & QNQUEUE_PUMP) != 0;
  const DWORD wakeMask = (flags & 0xFFFF) | (pump ? QS_SENDMESSAGE : 0);
  const DWORD waitFlags = ((flags & QNQUEUE_WAIT_ALL) ? MWMO_WAITALL : 0) |
                          ((flags & QNQUEUE_ALERTABLE) ? MWMO_ALERTABLE : 0) |
                          ((flags & QNQUEUE_INPUT_AVAILABLE) ? MWMO_INPUTAVAILABLE : 0);
  if (count == 0 && wakeMask == 0 && waitFlags == 0)
    return RemoveWithOneWait(head, true, timeout, waitResult);

  const RemainingTime remaining(timeout);
  HANDLE objects[1 + kMaxHandles];
  std::copy_n(handles, count, objects + 1);
  DWORD left = timeout;
  for (Next next = Next::kLookAndWaitAgain;; left = remaining.Get()) {
    if (tQNQELM* const element = TakeFrom(head, true)) return element;
    objects[0] = EventOf(head);
    if (next == Next::kLook || timeout == 0 || !objects[0]) return nullptr;
    const DWORD result = MsgWaitForMultipleObjectsEx(1 + count, objects, left, wakeMask, waitFlags);
    if (waitResult) *waitResult = result;
    next = AfterWait(result, count, pump);
    if (next == Next::kGiveUp || !EventOf(head)) return nullptr;
  }
}

tQNQELM* QnQueueRemoveTail(tQNQHEAD* head, DWORD timeout) {
  return head ? RemoveWithOneWait(head, false, timeout, nullptr) : nullptr;
}

BOOL QnQueueWait(tQNQHEAD* head, DWORD timeout) {
  if (!head) return 0;
  if (qn::First(head)) return 1;
  const HANDLE event = EventOf(head);
  if (timeout == 0 || !event) return 0;
  WaitForSingleObject(event, timeout);
  return qn::First(head) ? 1 : 0;
}
