#include "qn/kernel/qntimer.h"

#include <gtest/gtest.h>

#include "qn/kernel/qntimer_internal.h"

namespace {

DWORD g_ticks;
LONGLONG g_counter, g_frequency;

// A clock that has just been initialised, on counters that the test sets. Without a frequency it stays on
// ticks.
void Restart(LONGLONG frequency, LONGLONG counter) {
  g_frequency = frequency;
  g_counter = counter;
  const auto read = [](LARGE_INTEGER* value) { return value->QuadPart = g_counter, TRUE; };
  const auto ask = [](LARGE_INTEGER* value) { return (value->QuadPart = g_frequency) != 0 ? TRUE : FALSE; };
  qn::ProcessTimeBase() = {.readers = qn::kTickReaders, .source = {[] { return g_ticks; }, read, ask}};
  qn::InitializeTimeBase();
}

TEST(Clock, TicksWrapAt32Bits) {
  Restart(0, 0);
  g_ticks = 5'000'000;
  EXPECT_EQ(QnGetMicrosec(), 5'000'000'000 - 0x100000000);
  LONGLONG origin = 0;
  g_ticks = 0xFFFFFF00;
  EXPECT_EQ(QnDeltaMillisecEx(&origin), 0xFFFFFF00);
  g_ticks = 0x100;
  EXPECT_EQ(QnGetMillisecEx(&origin), 0x200);
  EXPECT_EQ(QnDeltaMicrosecEx(&origin), 0x200 * 1000);
}

TEST(Clock, ScalesAnyFrequency) {
  constexpr LONGLONG kFrequencies[] = {4000000000, 24500000, 10000000, 3579545, 1000000, 32768, 500};
  for (LONGLONG frequency : kFrequencies) {
    SCOPED_TRACE(frequency);
    Restart(frequency, 123'456'789'000);
    LONGLONG origin = g_counter + frequency;
    for (int seconds : {1, 7, 900}) {
      g_counter = origin + frequency * seconds;
      EXPECT_NEAR(static_cast<double>(QnGetMicrosecEx(&origin)), seconds * 1e6, 1 + seconds);
      EXPECT_NEAR(static_cast<double>(QnGetMicrosec()), (seconds + 1) * 1e6, 2 + seconds);
      if (frequency < 1'000'000) continue;
      EXPECT_NEAR(static_cast<double>(QnGetMillisecEx(&origin)), seconds * 1e3, seconds);
    }
    QnDeltaMillisecEx(&origin);
    EXPECT_EQ(QnDeltaMicrosecEx(&origin), 0);
  }
}

TEST(Clock, InitialisesOnceAndOnlyWithAFrequency) {
  g_ticks = 1000;
  Restart(LONGLONG{1} << 32, 400);
  EXPECT_EQ(QnGetMillisec(), 600);  // still ticks, from the counter's origin
  qn::ProcessTimeBase().readers.swapRaw = [](LONGLONG* origin) { return *origin = 77; };
  qn::InitializeTimeBase();
  EXPECT_EQ(QnGetMillisec(), 923);
  // 1,000,000 counts: 333,333 periods of 3 counts, each 1,000,000 / 1,193,181 microseconds.
  Restart(3'579'545, 0);
  g_counter = 1'000'000;
  g_frequency = 2'000'000;
  qn::InitializeTimeBase();
  EXPECT_EQ(QnGetMicrosec(), 279'365);
  // Without a correction results go beyond 32 bits.
  Restart(10'000'000, 0);
  g_counter = 1'000'000'000'000;
  EXPECT_EQ(QnGetMicrosec(), 100'000'000'000);
}

}  // namespace
