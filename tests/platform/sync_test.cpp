#include "qn/platform/sync.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

namespace {

TEST(CriticalSection, ExcludesAndRecurses) {
  CRITICAL_SECTION section;
  InitializeCriticalSection(&section);
  constexpr int kThreads = 4;
  constexpr int kRounds = 20'000;
  int64_t counter = 0;  // not atomic: the section guards it
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        EnterCriticalSection(&section);
        EnterCriticalSection(&section);
        ++counter;
        LeaveCriticalSection(&section);
        ++counter;
        LeaveCriticalSection(&section);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counter, 2 * kThreads * kRounds);
  EXPECT_TRUE(TryEnterCriticalSection(&section));
  BOOL otherEntered = TRUE;
  std::thread([&] {
    otherEntered = TryEnterCriticalSection(&section);
    LeaveCriticalSection(&section);  // not the owner: must not open it
  }).join();
  EXPECT_FALSE(otherEntered);
  LeaveCriticalSection(&section);
  std::thread([&] { otherEntered = TryEnterCriticalSection(&section); }).join();
  EXPECT_TRUE(otherEntered);
  DeleteCriticalSection(&section);
}

TEST(Clocks, RunAtTheirRates) {
  LARGE_INTEGER frequency, before, after;
  ASSERT_TRUE(QueryPerformanceFrequency(&frequency));
  EXPECT_EQ(frequency.QuadPart, 10'000'000);
  QueryPerformanceCounter(&before);
  const DWORD tickBefore = GetTickCount();
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  QueryPerformanceCounter(&after);
  EXPECT_GE(after.QuadPart - before.QuadPart, 300'000);
  EXPECT_GE(GetTickCount() - tickBefore, 29u);
}

}  // namespace
