// Critical sections, thread ids, processor count and the two clocks.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

// A recursive lock without allocation. All of its state is in these fields and none refers to its own
// address, so an unowned section may be copied bytewise.
struct CRITICAL_SECTION {
  void* DebugInfo;
  LONG LockCount;       // 0 free, 1 held, 2 held with waiters
  LONG RecursionCount;  // entries of the owner
  HANDLE OwningThread;  // the owner's thread id
  HANDLE LockSemaphore;
  ULONG_PTR SpinCount;
};
static_assert(sizeof(CRITICAL_SECTION) == 40 && std::is_trivially_copyable_v<CRITICAL_SECTION>);

QN_API void InitializeCriticalSection(CRITICAL_SECTION* section);
QN_API void DeleteCriticalSection(CRITICAL_SECTION* section);
QN_API void EnterCriticalSection(CRITICAL_SECTION* section);
QN_API void LeaveCriticalSection(CRITICAL_SECTION* section);

// Enters if that needs no wait; nonzero if it did.
QN_API BOOL TryEnterCriticalSection(CRITICAL_SECTION* section);

// The calling thread's id: never 0, the same for the thread's life. In a child that it forks it keeps it, and
// with it the sections that it is in; OpenThread finds it there by that id only from itself.
QN_API DWORD GetCurrentThreadId();

// Milliseconds of a monotonic clock, wrapping at 32 bits.
QN_API DWORD GetTickCount();

// A monotonic counter of 10,000,000 counts a second. Both return nonzero: they do not fail here.
QN_API BOOL QueryPerformanceCounter(LARGE_INTEGER* counter);
QN_API BOOL QueryPerformanceFrequency(LARGE_INTEGER* frequency);

// value * numerator / denominator in 64 bits, rounded to nearest, halves away from zero; -1 when the
// denominator is 0 or the result has more than 32 bits.
QN_API int MulDiv(int value, int numerator, int denominator);

}  // namespace qnplatform
