#include "qn/platform/sync.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "qn/platform/sync_internal.h"

namespace qn {

constinit thread_local DWORD t_threadId = 0;

void EnterContended(CRITICAL_SECTION* section) {
  // Whoever had to wait leaves the state contended: that costs one wake-up too many at worst.
  while (StateOf(section).exchange(kSectionContended, std::memory_order_acquire) != kSectionFree) {
    StateOf(section).wait(kSectionContended, std::memory_order_relaxed);
  }
  OwnerOf(section).store(OwnId(), std::memory_order_relaxed);
  section->RecursionCount = 1;
}

}  // namespace qn

namespace {

constexpr int64_t kCounterFrequency = 10'000'000;

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
  return qn::TryEnter(section) ? TRUE : FALSE;
}
void EnterCriticalSection(CRITICAL_SECTION* section) {
  qn::Enter(section);
}
void LeaveCriticalSection(CRITICAL_SECTION* section) {
  qn::Leave(section);
}

DWORD GetCurrentThreadId() {
  if (qn::t_threadId == 0) qn::t_threadId = static_cast<DWORD>(syscall(SYS_gettid));
  return qn::t_threadId;
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
