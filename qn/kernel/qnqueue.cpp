// The life of a queue, insertion and search. Removal with waits is in qnqueue_remove.cpp.
#include "qn/kernel/qnqueue.h"

#include "qn/kernel/qnqueue_internal.h"
#include "qn/platform/file.h"

namespace {

using qn::EventOf;
using qn::First;
using qn::Last;
using qn::Load;
using qn::QueueGuard;

enum class Direction { kForward, kBackward };

// The first hit of a walk, or null.
template <typename Match>
tQNQELM* Find(tQNQHEAD* head, Direction direction, Match match) {
  const bool forward = direction == Direction::kForward;
  for (tQNQELM* at = forward ? First(head) : Last(head); at && at != head;
       at = Load(forward ? at->next : at->prev)) {
    if (match(at)) return at;
  }
  return nullptr;
}
bool IsIn(tQNQHEAD* head, const tQNQELM* element, Direction direction = Direction::kForward) {
  return Find(head, direction, [=](const tQNQELM* at) { return at == element; }) != nullptr;
}

// The same for a client's predicate. It may use the queue: if it takes the element that it looks at out, the
// walk ends without a hit, as there is neither a hit nor a next element in this ring.
tQNQELM* Find(tQNQHEAD* head, Direction direction, QNQUEUEMATCH match, ULONGLONG parameter) {
  if (!match) return nullptr;
  bool gone = false;
  tQNQELM* const end = Find(head, direction, [=, &gone](tQNQELM* at) {
    const uint32_t before = qn::t_removals;
    const bool hit = match(at, parameter) != 0;
    gone = qn::t_removals != before && !IsIn(head, at);
    return hit || gone;
  });
  return gone ? nullptr : end;
}

// Links an element at one end. An element that is alone in the queue signals the event; those that wait for
// it are woken outside of the lock, which they will want at once.
template <Direction from>
void InsertAtEnd(tQNQHEAD* head, tQNQELM* element) {
  if (!head || !element) return;
  qn::HandleSlot* event = nullptr;
  {
    const QueueGuard guard(head);
    tQNQELM* const place = from == Direction::kBackward ? head : Load(head->next);
    if (!place || !Load(head->prev)) return;
    const bool alone = !First(head);
    qn::LinkBefore(place, element);
    if (!alone) return;
    if (guard.IsNested()) {  // in a predicate: the lock stays, and with it the fence that follows below
      if (const HANDLE live = EventOf(head)) SetEvent(live);
      return;
    }
    event = qn::WriteSignal(EventOf(head), true);
  }
  if (event) qn::WakeWaiters(event);  // leaving the lock was the fence
}

void InsertOrdered(tQNQHEAD* head, Direction direction, QNQUEUEMATCH match, ULONGLONG parameter,
                   tQNQELM* element) {
  if (!head) return;
  const QueueGuard guard(head);
  tQNQELM* const hit = Find(head, direction, match, parameter);
  if (!element) return;
  if (hit) {
    qn::LinkBefore(hit, element);
  } else {
    QnQueueInsert(head, element);
  }
}

tQNQELM* FindElement(tQNQHEAD* head, Direction direction, QNQUEUEMATCH match, ULONGLONG parameter) {
  if (!head) return nullptr;
  const QueueGuard guard(head);
  return Find(head, direction, match, parameter);
}

tQNQELM* FindAndRemove(tQNQHEAD* head, Direction direction, QNQUEUEMATCH match, ULONGLONG parameter) {
  if (!head) return nullptr;
  const QueueGuard guard(head);
  tQNQELM* const hit = Find(head, direction, match, parameter);
  if (hit) qn::Take(head, hit);
  return hit;
}

// Moves an element of the ring to one end, if it is not there; the event stays as it is.
bool MoveToEnd(tQNQHEAD* head, tQNQELM* element, Direction from) {
  if (element == (from == Direction::kForward ? First(head) : Last(head))) return false;
  qn::Detach(element);
  qn::LinkBefore(from == Direction::kForward ? Load(head->next) : head, element);
  return true;
}

tQNQELM* FindAndMove(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter, Direction to) {
  if (!head) return nullptr;
  const QueueGuard guard(head);
  tQNQELM* const hit = Find(head, Direction::kForward, match, parameter);
  if (hit) MoveToEnd(head, hit, to);
  return hit;
}

BOOL MoveElement(tQNQHEAD* head, tQNQELM* element, Direction end) {
  if (!head || !element) return 0;
  const QueueGuard guard(head);
  return IsIn(head, element, end) && MoveToEnd(head, element, end) ? 1 : 0;
}

}  // namespace

constinit thread_local uint32_t qn::t_removals = 0;

BOOL QnQueueInitialize(tQNQHEAD* head) {
  if (!head) return 0;
  if (const HANDLE live = EventOf(head)) {
    const QueueGuard guard(head);
    qn::Empty(head);
    ResetEvent(live);
    return 1;
  }
  const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (!event) return 0;
  if (!qn::IsOwned(&head->lock)) InitializeCriticalSection(&head->lock);  // a predicate keeps its walk's
  qn::Empty(head);
  std::atomic_ref(head->event).store(event, std::memory_order_release);
  return 1;
}

void QnQueueDelete(tQNQHEAD* head) {
  if (!head) return;
  const HANDLE event = std::atomic_ref(head->event).exchange(nullptr, std::memory_order_acq_rel);
  if (!event) return;
  SetEvent(event);
  {
    const QueueGuard guard(head);  // waits for those that are inside, who may be writing the event's signal
    CloseHandle(event);
    qn::Empty(head);
  }
  DeleteCriticalSection(&head->lock);
}

void QnQueueFlush(tQNQHEAD* head) {
  if (!head) return;
  const QueueGuard guard(head);
  if (!Load(head->next)) return;
  qn::Empty(head);
  // Hosts rely on this: whoever waits wakes up and finds nothing.
  if (const HANDLE event = EventOf(head)) SetEvent(event);
}

void QnQueueInsert(tQNQHEAD* head, tQNQELM* element) {
  InsertAtEnd<Direction::kBackward>(head, element);
}
void QnQueueInsertHead(tQNQHEAD* head, tQNQELM* element) {
  InsertAtEnd<Direction::kForward>(head, element);
}

void QnQueueInsertEx(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter, tQNQELM* element) {
  InsertOrdered(head, Direction::kForward, match, parameter, element);
}
void QnQueueInsertExRev(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter, tQNQELM* element) {
  InsertOrdered(head, Direction::kBackward, match, parameter, element);
}

tQNQELM* QnQueueFind(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter) {
  return FindElement(head, Direction::kForward, match, parameter);
}
tQNQELM* QnQueueFindRev(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter) {
  return FindElement(head, Direction::kBackward, match, parameter);
}

tQNQELM* QnQueueFindAndRemove(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter) {
  return FindAndRemove(head, Direction::kForward, match, parameter);
}
tQNQELM* QnQueueFindAndRemoveRev(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter) {
  return FindAndRemove(head, Direction::kBackward, match, parameter);
}

tQNQELM* QnQueueFindAndMoveToHead(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter) {
  return FindAndMove(head, match, parameter, Direction::kForward);
}
tQNQELM* QnQueueFindAndMoveToTail(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter) {
  return FindAndMove(head, match, parameter, Direction::kBackward);
}

BOOL QnQueueMoveToHead(tQNQHEAD* head, tQNQELM* element) {
  return MoveElement(head, element, Direction::kForward);
}
BOOL QnQueueMoveToTail(tQNQHEAD* head, tQNQELM* element) {
  return MoveElement(head, element, Direction::kBackward);
}

BOOL IsInQnQueue(tQNQHEAD* head, tQNQELM* element) {
  if (!head || !element || !qn::IsLinked(element)) return 0;
  const QueueGuard guard(head);
  return IsIn(head, element) ? 1 : 0;
}
