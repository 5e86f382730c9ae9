#include <sched.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <exception>
#include <thread>

#include "qn/platform/rows_internal.h"

namespace qn {
namespace {

constexpr size_t kMostThreads = 64;

size_t ProcessorsOfThread() {
  cpu_set_t set;
  return sched_getaffinity(0, sizeof(set), &set) == 0 ? static_cast<size_t>(CPU_COUNT(&set)) : 1;
}

}  // namespace

constinit std::atomic<size_t> g_rowThreads = 0;

void ForRows(size_t rows, size_t least, RowWork work, const void* context) {
  size_t count = g_rowThreads.load(std::memory_order_relaxed);
  if (count == 0) {
    count = rows / std::max<size_t>(least, 1);
    if (count > 1) count = std::min(count, ProcessorsOfThread());
  }
  count = std::clamp<size_t>(count, 1, std::min(kMostThreads, std::max<size_t>(rows, 1)));
  if (count == 1) return work(context, 0, rows);

  // Whoever is done with some rows takes the next ones, few at a time, so that a thread which starts late
  // costs little and all end together.
  std::atomic<size_t> next = 0;
  const size_t some = std::max<size_t>(rows / (count * 32), 1);
  const auto takeRows = [&, rows, some] {
    for (size_t first; (first = next.fetch_add(some, std::memory_order_relaxed)) < rows;) {
      work(context, first, std::min(first + some, rows));
    }
  };

  // A new thread has the signal mask of its creator.
  sigset_t all;
  sigset_t saved;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &saved);
  std::array<std::thread, kMostThreads> threads;
  try {
    for (size_t i = 1; i < count; ++i) threads[i] = std::thread(takeRows);
  } catch (const std::exception&) {
  }
  pthread_sigmask(SIG_SETMASK, &saved, nullptr);

  takeRows();
  for (std::thread& thread : threads) {
    if (thread.joinable()) thread.join();
  }
}

}  // namespace qn
