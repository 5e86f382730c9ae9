// The ring of a queue and its lock, for the queue's sources.
#pragma once

#include <atomic>

#include "qn/kernel/qnqueue.h"
#include "qn/platform/sync_internal.h"
#include "qn/platform/wait_internal.h"

namespace qn {

// Links are read as hints without the lock, and `event` is taken away without it: all three are plain fields
// of a public record, accessed as atomics.
inline tQNQELM* Load(tQNQELM*& link) {
  return std::atomic_ref(link).load(std::memory_order_relaxed);
}
inline void Store(tQNQELM*& link, tQNQELM* element) {
  std::atomic_ref(link).store(element, std::memory_order_relaxed);
}
inline HANDLE EventOf(tQNQHEAD* head) {
  return std::atomic_ref(head->event).load(std::memory_order_acquire);
}

class QueueGuard {
 public:
  explicit QueueGuard(tQNQHEAD* head) : lock_(&head->lock) { Enter(lock_); }
  ~QueueGuard() { LeaveOwned(lock_); }
  QueueGuard(const QueueGuard&) = delete;
  QueueGuard& operator=(const QueueGuard&) = delete;

  // True if the thread was in the lock before, and will be after.
  bool IsNested() const { return lock_->RecursionCount > 1; }

 private:
  CRITICAL_SECTION* const lock_;
};

// The rest works on a head that is not null, with its lock held. A head of zeros has an empty ring.

inline tQNQELM* First(tQNQHEAD* head) {
  tQNQELM* const first = Load(head->next);
  return first == head ? nullptr : first;
}
inline tQNQELM* Last(tQNQHEAD* head) {
  tQNQELM* const last = Load(head->prev);
  return last == head ? nullptr : last;
}

// Counts the times that this thread took elements out of a queue that it was in already, as only predicates
// can: a walk sees by it that its element may have gone.
extern __attribute__((tls_model("initial-exec"))) constinit thread_local uint32_t t_removals;

inline void Empty(tQNQHEAD* head) {
  ++t_removals;
  Store(head->next, head);
  Store(head->prev, head);
}

// Links an element before another or, before the head, at the tail.
inline void LinkBefore(tQNQELM* place, tQNQELM* element) {
  tQNQELM* const before = Load(place->prev);
  Store(element->next, place);
  Store(element->prev, before);
  Store(before->next, element);
  Store(place->prev, element);
}

// Takes an element out of the ring, but leaves its links; true if it was the last one.
inline bool Detach(tQNQELM* element) {
  tQNQELM* const next = Load(element->next);
  tQNQELM* const before = Load(element->prev);
  Store(before->next, next);
  Store(next->prev, before);
  return next == before;
}

inline bool IsLinked(tQNQELM* element) {
  return Load(element->next) && Load(element->prev);
}

// Takes an element out and clears its links; the event is reset with the last one.
inline void Take(tQNQHEAD* head, tQNQELM* element) {
  if (head->lock.RecursionCount > 1) ++t_removals;
  const bool last = Detach(element);
  Store(element->next, nullptr);
  Store(element->prev, nullptr);
  if (last) WriteSignal(EventOf(head), false);
}

}  // namespace qn
