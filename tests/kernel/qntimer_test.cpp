#include "qn/kernel/qntimer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "qn/kernel/qntimer_internal.h"

namespace {

DWORD g_ticks;
LONGLONG g_counter;
LONGLONG g_frequency;

// A clock as it is before initialising, on counters that the test sets.
class Clock : public testing::Test {
 protected:
  Clock() : saved_(qn::ProcessTimeBase()) {
    const auto tickCount = [] { return g_ticks; };
    const auto counter = [](LARGE_INTEGER* value) {
      value->QuadPart = g_counter;
      return TRUE;
    };
    const auto frequency = [](LARGE_INTEGER* value) {
      value->QuadPart = g_frequency;
      return g_frequency != 0 ? TRUE : FALSE;
    };
    Use({tickCount, counter, frequency});
  }
  ~Clock() override { qn::ProcessTimeBase() = saved_; }

  static void Use(const qn::TimeSource& source) {
    qn::ProcessTimeBase() = {.readers = qn::kTickReaders, .source = source};
  }

  static void Start(LONGLONG frequency, LONGLONG counter) {
    Use(qn::ProcessTimeBase().source);
    g_frequency = frequency;
    g_counter = counter;
    qn::InitializeTimeBase();
  }

 private:
  qn::TimeBase saved_;
};

TEST_F(Clock, TicksBeforeInitialisingWrapAt32Bits) {
  g_ticks = 3'000'000;
  EXPECT_EQ(QnGetMillisec(), 3'000'000);
  EXPECT_EQ(QnGetMicrosec(), 3'000'000'000);
  g_ticks = 5'000'000;
  EXPECT_EQ(QnGetMicrosec(), 5'000'000'000 - 0x100000000);

  LONGLONG origin = 0;
  g_ticks = 0xFFFFFF00;
  QnDeltaMillisecEx(&origin);
  EXPECT_EQ(origin, 0xFFFFFF00);
  g_ticks = 0x100;
  EXPECT_EQ(QnGetMillisecEx(&origin), 0x200);
  EXPECT_EQ(QnGetMicrosecEx(&origin), 0x200 * 1000);
  EXPECT_EQ(origin, 0xFFFFFF00);
  EXPECT_EQ(QnDeltaMicrosecEx(&origin), 0x200 * 1000);
  EXPECT_EQ(origin, 0x100);
}

TEST_F(Clock, ScalesAnyFrequency) {
  const LONGLONG cases[][3] = {{10'000'000, 10, 0},     {3'579'545, 3, 1193181}, {1'000'000, 1, 0},
                               {32'768, 1, 32'768},     {500, 1, 500},           {24'500'000, 24, 1020833},
                               {4'000'000'000, 4000, 0}};
  for (const auto& [frequency, perMicrosecond, rateAdjust] : cases) {
    SCOPED_TRACE(frequency);
    Start(frequency, 123'456'789'000);
    EXPECT_EQ(qn::ProcessTimeBase().countsPerMicrosecond, perMicrosecond);
    EXPECT_EQ(qn::ProcessTimeBase().rateAdjust, rateAdjust);
    LONGLONG origin = g_counter + frequency;
    for (int seconds : {1, 7, 900}) {
      g_counter = origin + frequency * seconds;
      EXPECT_NEAR(static_cast<double>(QnGetMicrosecEx(&origin)), seconds * 1e6, 1 + seconds);
      EXPECT_NEAR(static_cast<double>(QnGetMicrosec()), (seconds + 1) * 1e6, 2 + seconds);
      if (frequency < 1'000'000) continue;
      EXPECT_NEAR(static_cast<double>(QnGetMillisecEx(&origin)), seconds * 1e3, seconds);
    }
    EXPECT_GT(QnDeltaMillisecEx(&origin), 0);
    EXPECT_EQ(origin, g_counter);
    EXPECT_EQ(QnDeltaMicrosecEx(&origin), 0);
  }
  // 1,000,000 counts: 333,333 periods of 3 counts, each 1,000,000 / 1,193,181 microseconds.
  Start(3'579'545, 0);
  g_counter = 1'000'000;
  EXPECT_EQ(QnGetMicrosec(), 279'365);
  // Without a correction results go beyond 32 bits.
  Start(10'000'000, 0);
  g_counter = 1'000'000'000'000;
  EXPECT_EQ(QnGetMicrosec(), 100'000'000'000);
  EXPECT_EQ(QnGetMillisec(), 100'000'000);
}

TEST_F(Clock, InitialisesOnceAndOnlyWithAFrequency) {
  for (LONGLONG unusable : {LONGLONG{0}, LONGLONG{1} << 32}) {
    Start(unusable, 400);
    g_ticks = 1000;
    EXPECT_EQ(qn::ProcessTimeBase().initialized, 0u);
    EXPECT_EQ(QnGetMillisec(), 600);  // still ticks, from the counter's origin
  }
  Use(qn::ProcessTimeBase().source);
  qn::ProcessTimeBase().readers.swapRaw = [](LONGLONG* origin) { return *origin = 77; };
  g_frequency = 0;
  qn::InitializeTimeBase();
  EXPECT_EQ(qn::ProcessTimeBase().origin, 77);

  Start(1'000'000, 5000);
  EXPECT_EQ(qn::ProcessTimeBase().resolution, 1000u);
  g_counter = 9000;
  g_frequency = 2'000'000;
  qn::InitializeTimeBase();
  QnTimer_LateInitialize();
  EXPECT_EQ(QnGetMicrosec(), 4000);
  EXPECT_EQ(QnGetMicrosecEx(nullptr) + QnDeltaMillisecEx(nullptr), 0);
}

TEST_F(Clock, SpansOfTheRealClockAddUp) {
  Use({GetTickCount, QueryPerformanceCounter, QueryPerformanceFrequency});
  qn::InitializeTimeBase();
  LONGLONG origin = 0;
  QnDeltaMicrosecEx(&origin);
  const LONGLONG first = origin;
  LONGLONG sum = 0;
  for (int i = 0; i < 20; i++) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const LONGLONG span = QnDeltaMicrosecEx(&origin);
    EXPECT_GE(span, 999);
    sum += span;
  }
  EXPECT_LE(std::abs(sum - (origin - first) / 10), 20);
  EXPECT_GE(QnGetMillisec(), 19);
}

}  // namespace
