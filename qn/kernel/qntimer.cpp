#include "qn/kernel/qntimer.h"

#include <algorithm>

#include "qn/kernel/qntimer_internal.h"

namespace {

constexpr DWORD kMicrosecondsPerSecond = 1'000'000;

LONGLONG TickElapsed(const LONGLONG* origin);
LONGLONG TickElapsedMicroseconds(const LONGLONG* origin);
LONGLONG TickSwap(LONGLONG* origin);
LONGLONG TickDeltaMicroseconds(LONGLONG* origin);

}  // namespace

constexpr qn::TimeReaders qn::kTickReaders = {TickElapsed, TickElapsedMicroseconds, TickElapsed,
                                              TickSwap,    TickDeltaMicroseconds,   TickSwap};

namespace {

constinit qn::TimeBase g_timeBase = {.readers = qn::kTickReaders};

// Origins are the caller's, so differences wrap instead of overflowing.
LONGLONG Difference(LONGLONG now, LONGLONG origin) {
  return static_cast<LONGLONG>(static_cast<ULONGLONG>(now) - static_cast<ULONGLONG>(origin));
}

// Tick source: 32 bits throughout.

LONGLONG TickElapsed(const LONGLONG* origin) {
  return g_timeBase.source.tickCount() - static_cast<DWORD>(*origin);
}

LONGLONG TickSwap(LONGLONG* origin) {
  const DWORD now = g_timeBase.source.tickCount();
  const DWORD elapsed = now - static_cast<DWORD>(*origin);
  *origin = now;
  return elapsed;
}

DWORD TicksToMicroseconds(LONGLONG ticks) {
  return static_cast<DWORD>(ticks) * 1000;
}

LONGLONG TickElapsedMicroseconds(const LONGLONG* origin) {
  return TicksToMicroseconds(TickElapsed(origin));
}

LONGLONG TickDeltaMicroseconds(LONGLONG* origin) {
  return TicksToMicroseconds(TickSwap(origin));
}

// High-resolution source.

LONGLONG ReadCounter() {
  LARGE_INTEGER now{};
  g_timeBase.source.counter(&now);
  return now.QuadPart;
}

LONGLONG CounterElapsed(const LONGLONG* origin) {
  return Difference(ReadCounter(), *origin);
}

LONGLONG CounterSwap(LONGLONG* origin) {
  const LONGLONG now = ReadCounter();
  const LONGLONG elapsed = Difference(now, *origin);
  *origin = now;
  return elapsed;
}

LONGLONG CountsToMilliseconds(LONGLONG counts) {
  return counts / g_timeBase.countsPerMillisecond;
}

LONGLONG CountsToMicroseconds(LONGLONG counts) {
  const LONGLONG microseconds = counts / g_timeBase.countsPerMicrosecond;
  if (g_timeBase.rateAdjust == 0) return microseconds;
  // The correction has 32 bits.
  return MulDiv(static_cast<int>(microseconds), kMicrosecondsPerSecond,
                static_cast<int>(g_timeBase.rateAdjust));
}

LONGLONG CounterElapsedMilliseconds(const LONGLONG* origin) {
  return CountsToMilliseconds(CounterElapsed(origin));
}

LONGLONG CounterElapsedMicroseconds(const LONGLONG* origin) {
  return CountsToMicroseconds(CounterElapsed(origin));
}

LONGLONG CounterDeltaMilliseconds(LONGLONG* origin) {
  return CountsToMilliseconds(CounterSwap(origin));
}

LONGLONG CounterDeltaMicroseconds(LONGLONG* origin) {
  return CountsToMicroseconds(CounterSwap(origin));
}

constexpr qn::TimeReaders kCounterReaders = {
    CounterElapsed, CounterElapsedMicroseconds, CounterElapsedMilliseconds,
    CounterSwap,    CounterDeltaMicroseconds,   CounterDeltaMilliseconds};

}  // namespace

namespace qn {

TimeBase& ProcessTimeBase() {
  return g_timeBase;
}

void InitializeTimeBase() {
  TimeBase& base = g_timeBase;
  if (base.initialized) return;
  LARGE_INTEGER frequency{};
  if (!base.source.frequency(&frequency) || frequency.u.LowPart == 0) {
    // Readers stay on ticks; whoever has replaced the swapping one says what an origin is.
    if (base.readers.swapRaw != kTickReaders.swapRaw) {
      base.readers.swapRaw(&base.origin);
    } else {
      base.origin = ReadCounter();
    }
    return;
  }
  base.frequency = frequency.u.LowPart;
  // At least 1 each, since readers divide by them.
  base.countsPerMillisecond = std::max<DWORD>(base.frequency / 1000, 1);
  base.countsPerMicrosecond = std::max<DWORD>(base.frequency / kMicrosecondsPerSecond, 1);
  base.rateAdjust = base.frequency / base.countsPerMicrosecond;
  if (base.rateAdjust == kMicrosecondsPerSecond) base.rateAdjust = 0;
  base.resolution = 1000;
  base.readers = kCounterReaders;
  base.initialized = 1;
  base.origin = ReadCounter();
}

}  // namespace qn

LONGLONG QnGetMillisec() {
  return g_timeBase.readers.elapsedMilliseconds(&g_timeBase.origin);
}

LONGLONG QnGetMicrosec() {
  return g_timeBase.readers.elapsedMicroseconds(&g_timeBase.origin);
}

LONGLONG QnGetMillisecEx(const LONGLONG* origin) {
  return origin ? g_timeBase.readers.elapsedMilliseconds(origin) : 0;
}

LONGLONG QnGetMicrosecEx(const LONGLONG* origin) {
  return origin ? g_timeBase.readers.elapsedMicroseconds(origin) : 0;
}

LONGLONG QnDeltaMillisecEx(LONGLONG* origin) {
  return origin ? g_timeBase.readers.deltaMilliseconds(origin) : 0;
}

LONGLONG QnDeltaMicrosecEx(LONGLONG* origin) {
  return origin ? g_timeBase.readers.deltaMicroseconds(origin) : 0;
}

void QnTimer_LateInitialize() {}
