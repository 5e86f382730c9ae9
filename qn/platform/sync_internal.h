// The road of a critical section that nobody else wants, for code that has no time for a call.
#pragma once

#include <atomic>

#include "qn/platform/sync.h"

namespace qn {

constexpr LONG kSectionFree = 0;
constexpr LONG kSectionHeld = 1;
constexpr LONG kSectionContended = 2;

// 0 until GetCurrentThreadId is called. In a signal too, where the first use of other thread-local memory
// might allocate.
extern __attribute__((tls_model("initial-exec"))) constinit thread_local DWORD t_threadId;

inline HANDLE OwnId() {
  const DWORD id = t_threadId != 0 ? t_threadId : GetCurrentThreadId();
  return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(id));
}

// Owner ids are compared by threads that do not hold the section, so they are read and written as atomics.
inline std::atomic_ref<HANDLE> OwnerOf(CRITICAL_SECTION* section) {
  return std::atomic_ref(section->OwningThread);
}
inline std::atomic_ref<LONG> StateOf(CRITICAL_SECTION* section) {
  return std::atomic_ref(section->LockCount);
}

inline bool IsOwned(CRITICAL_SECTION* section) {
  return OwnerOf(section).load(std::memory_order_relaxed) == OwnId();
}

// TryEnterCriticalSection, EnterCriticalSection and LeaveCriticalSection.
inline bool TryEnter(CRITICAL_SECTION* section) {
  const HANDLE self = OwnId();
  if (OwnerOf(section).load(std::memory_order_relaxed) == self) {
    ++section->RecursionCount;
    return true;
  }
  LONG expected = kSectionFree;
  if (!StateOf(section).compare_exchange_strong(expected, kSectionHeld, std::memory_order_acquire))
    return false;
  OwnerOf(section).store(self, std::memory_order_relaxed);
  section->RecursionCount = 1;
  return true;
}

void EnterContended(CRITICAL_SECTION* section);
inline void Enter(CRITICAL_SECTION* section) {
  if (!TryEnter(section)) EnterContended(section);
}

// For an owner: the last Leave is a full fence for what the thread does next.
inline void LeaveOwned(CRITICAL_SECTION* section) {
  if (--section->RecursionCount > 0) return;
  OwnerOf(section).store(nullptr, std::memory_order_relaxed);
  const LONG state = StateOf(section).exchange(kSectionFree);
#if !defined(__x86_64__)
  std::atomic_thread_fence(std::memory_order_seq_cst);  // elsewhere an exchange need not be one
#endif
  if (state == kSectionContended) StateOf(section).notify_one();
}
inline void Leave(CRITICAL_SECTION* section) {
  if (IsOwned(section)) LeaveOwned(section);
}

}  // namespace qn
