#include "qn/platform/sync.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

namespace {

constexpr LONG kFree = 0;
constexpr LONG kHeld = 1;
constexpr LONG kContended = 2;

constexpr int64_t kCounterFrequency = 10'000'000;

// Owner ids are compared by threads that do not hold the section, so they are read and written as atomics.
std::atomic_ref<HANDLE> Owner(CRITICAL_SECTION* section) {
  return std::atomic_ref(section->OwningThread);
}
std::atomic_ref<LONG> State(CRITICAL_SECTION* section) {
  return std::atomic_ref(section->LockCount);
}

HANDLE OwnId() {
  return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(GetCurrentThreadId()));
}

void TakeOwnership(CRITICAL_SECTION* section, HANDLE self) {
  Owner(section).store(self, std::memory_order_relaxed);
  section->RecursionCount = 1;
}

bool EnterAgain(CRITICAL_SECTION* section, HANDLE self) {
  if (Owner(section).load(std::memory_order_relaxed) != self) return false;
  ++section->RecursionCount;
  return true;
}

timespec Now() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now;
}

}  // namespace

inline namespace qnplatform {

void InitializeCriticalSection(CRITICAL_SECTION* section) {
  *section = {};
}

// There is nothing to give back, and nothing may be written: a thread that comes late to a lock that is being
// deleted still passes it in order.
void DeleteCriticalSection(CRITICAL_SECTION*) {}

BOOL TryEnterCriticalSection(CRITICAL_SECTION* section) {
  const HANDLE self = OwnId();
  if (EnterAgain(section, self)) return TRUE;
  LONG expected = kFree;
  if (!State(section).compare_exchange_strong(expected, kHeld, std::memory_order_acquire)) return FALSE;
  TakeOwnership(section, self);
  return TRUE;
}

void EnterCriticalSection(CRITICAL_SECTION* section) {
  const HANDLE self = OwnId();
  if (EnterAgain(section, self)) return;
  LONG expected = kFree;
  if (!State(section).compare_exchange_strong(expected, kHeld, std::memory_order_acquire)) {
    // Whoever had to wait leaves the state contended: that costs one wake-up too many at worst.
    while (State(section).exchange(kContended, std::memory_order_acquire) != kFree) {
      State(section).wait(kContended, std::memory_order_relaxed);
    }
  }
  TakeOwnership(section, self);
}

void LeaveCriticalSection(CRITICAL_SECTION* section) {
  if (Owner(section).load(std::memory_order_relaxed) != OwnId()) return;
  if (--section->RecursionCount > 0) return;
  Owner(section).store(nullptr, std::memory_order_relaxed);
  if (State(section).exchange(kFree, std::memory_order_release) == kContended) State(section).notify_one();
}

DWORD GetCurrentThreadId() {
  // In a signal too, where the first use of other thread-local memory might allocate.
  __attribute__((tls_model("initial-exec"))) constinit static thread_local DWORD id = 0;
  if (id == 0) id = static_cast<DWORD>(syscall(SYS_gettid));
  return id;
}

DWORD GetTickCount() {
  const timespec now = Now();
  return static_cast<DWORD>(static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000);
}

BOOL QueryPerformanceCounter(LARGE_INTEGER* counter) {
  const timespec now = Now();
  counter->QuadPart = static_cast<int64_t>(now.tv_sec) * kCounterFrequency + now.tv_nsec / 100;
  return TRUE;
}

BOOL QueryPerformanceFrequency(LARGE_INTEGER* frequency) {
  frequency->QuadPart = kCounterFrequency;
  return TRUE;
}

int MulDiv(int value, int numerator, int denominator) {
  if (denominator == 0) return -1;
  const int64_t product = static_cast<int64_t>(value) * numerator;
  const int64_t divisor = denominator;
  const int64_t half = (divisor < 0 ? -divisor : divisor) / 2;
  const int64_t result = (product < 0 ? product - half : product + half) / divisor;
  return result < INT32_MIN || result > INT32_MAX ? -1 : static_cast<int>(result);
}

}  // namespace qnplatform
