#include <sched.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <system_error>
#include <thread>

#include "qn/platform/rows_internal.h"

namespace qn {
namespace {

constexpr size_t kMostParts = 64;

size_t ProcessorsOfThread() {
  cpu_set_t set;
  return sched_getaffinity(0, sizeof(set), &set) == 0 ? static_cast<size_t>(CPU_COUNT(&set)) : 1;
}

}  // namespace

constinit std::atomic<size_t> g_rowParts = 0;

void ForRows(size_t rows, size_t least, RowWork work, const void* context) {
  size_t parts = g_rowParts.load(std::memory_order_relaxed);
  if (parts == 0) {
    parts = rows / std::max<size_t>(least, 1);
    if (parts > 1) parts = std::min(parts, ProcessorsOfThread());
  }
  parts = std::clamp<size_t>(parts, 1, std::min(kMostParts, std::max<size_t>(rows, 1)));
  const auto start = [=](size_t part) { return rows * part / parts; };
  if (parts == 1) return work(context, 0, rows);

  // A new thread has the signal mask of its creator.
  sigset_t all;
  sigset_t saved;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &saved);
  std::array<std::thread, kMostParts> threads;
  size_t running = 1;
  try {
    for (; running < parts; ++running) {
      threads[running] = std::thread(work, context, start(running), start(running + 1));
    }
  } catch (const std::exception&) {
  }
  pthread_sigmask(SIG_SETMASK, &saved, nullptr);

  work(context, 0, start(1));
  if (running < parts) work(context, start(running), rows);
  for (size_t part = 1; part < running; ++part) threads[part].join();
}

}  // namespace qn
