// The record behind the process's clock and its start.
#pragma once

#include "qn/kernel/qntimer.h"
#include "qn/platform/sync.h"

namespace qn {

// Where the time comes from; tests put counters of other frequencies here.
struct TimeSource {
  DWORD (*tickCount)();
  BOOL (*counter)(LARGE_INTEGER* value);
  BOOL (*frequency)(LARGE_INTEGER* value);
};

// The readers of one source. An elapsed reader leaves `*origin` alone, a swapping one moves it to now.
struct TimeReaders {
  LONGLONG (*rawElapsed)(const LONGLONG* origin);
  LONGLONG (*elapsedMicroseconds)(const LONGLONG* origin);
  LONGLONG (*elapsedMilliseconds)(const LONGLONG* origin);
  LONGLONG (*swapRaw)(LONGLONG* origin);
  LONGLONG (*deltaMicroseconds)(LONGLONG* origin);
  LONGLONG (*deltaMilliseconds)(LONGLONG* origin);
};

// The readers before initialising.
extern const TimeReaders kTickReaders;

struct TimeBase {
  DWORD frequency = 1000;  // counts a second
  DWORD rateAdjust = 0;    // 0: a count of microseconds needs no correction
  DWORD countsPerMillisecond = 1;
  DWORD countsPerMicrosecond = 0;
  DWORD resolution = 1;  // 1000 with the high-resolution source
  DWORD initialized = 0;
  LONGLONG origin = 0;  // where the plain readers measure from
  TimeReaders readers = {};
  TimeSource source = {GetTickCount, QueryPerformanceCounter, QueryPerformanceFrequency};
};

// The process's clock. It works before it is initialised.
TimeBase& ProcessTimeBase();

// Changes over to the high-resolution counter, once: later calls do nothing. Runs at attach, before other
// threads read the clock.
void InitializeTimeBase();

}  // namespace qn
