#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cfenv>
#include <chrono>
#include <mutex>
#include <thread>
#include <utility>

#include "qn/platform/rows_internal.h"
#include "qn/platform/thread_internal.h"
#include "qn/platform/unload_internal.h"

namespace qn {
namespace {

constexpr size_t kMostThreads = 64;
// About what it takes to wake a thread: who stays awake in vain loses no more than who sleeps too soon.
constexpr std::chrono::microseconds kAwake(50);

size_t ProcessorsOfThread() {
  cpu_set_t set;
  return sched_getaffinity(0, sizeof(set), &set) == 0 ? static_cast<size_t>(CPU_COUNT(&set))
                                                      : std::thread::hardware_concurrency();
}

using Clock = std::chrono::steady_clock;

// Sleeps if nothing changes before `awakeUntil`; true if it did.
bool WaitForChange(const std::atomic<uint32_t>& value, uint32_t seen, Clock::time_point awakeUntil) {
  while (value == seen) {
    if (Clock::now() > awakeUntil) {
      value.wait(seen);
      return true;
    }
    std::this_thread::yield();
  }
  return false;
}

// The rows of one image.
struct Job {
  size_t rows;
  size_t some;
  RowWork work;
  const void* context;
  size_t wanted;       // threads that may still come to help
  size_t helpers = 0;  // those that have not left yet
  Job* next = nullptr;
  std::fenv_t modes = {};
  std::atomic<size_t> taken = 0;

  // Whoever is done with some rows takes the next ones, few at a time, so that a thread which comes late
  // costs little and all end together.
  void TakeRows() {
    for (size_t first; (first = taken.fetch_add(some, std::memory_order_relaxed)) < rows;) {
      work(context, first, std::min(first + some, rows));
    }
  }
};

constinit std::mutex g_mutex;
// All under the lock, as are the places in the list and the counts of the jobs; the two counters are waited
// for without it.
constinit Job* g_jobs = nullptr;
constinit pthread_t g_threads[kMostThreads - 1] = {};
constinit size_t g_threadCount = 0;
constinit std::atomic<pid_t> g_process = 0;  // whose threads they are
constinit bool g_isEnding = false;
constinit std::atomic<uint32_t> g_begun = 0;
constinit std::atomic<uint32_t> g_left = 0;

// Stays awake for a while after each image, since they tend to come one after the other, and after having
// been woken: that happens on the processor of the one who wakes, which is busy, and takes a move to another.
void* Help(void*) {
  TakeFaults();
  Clock::time_point awakeUntil;
  std::unique_lock lock(g_mutex);
  while (!g_isEnding) {
    Job* job = g_jobs;
    while (job && job->wanted == 0) job = job->next;
    bool isLively = job;
    if (job) {
      --job->wanted;
      ++job->helpers;
      lock.unlock();
      std::fesetenv(&job->modes);
      job->TakeRows();
      lock.lock();
      --job->helpers;
      ++g_left;
      g_left.notify_all();
    } else {
      const uint32_t seen = g_begun;
      lock.unlock();
      isLively = WaitForChange(g_begun, seen, awakeUntil);
      lock.lock();
    }
    if (isLively) awakeUntil = Clock::now() + kAwake;
  }
  return nullptr;
}

void StartThreads(size_t wanted) {
  // A child that no handler told of its fork has none of the threads either.
  if (g_process.exchange(getpid()) != getpid()) {
    g_threadCount = 0;
    g_jobs = nullptr;
  }
  while (g_threadCount < wanted && !g_isEnding && StartThread(&g_threads[g_threadCount], Help, nullptr)) {
    ++g_threadCount;
  }
}

void Share(Job* job) {
  const size_t helpers = job->wanted;
  std::unique_lock lock(g_mutex);
  StartThreads(helpers);
  job->next = std::exchange(g_jobs, job);
  ++g_begun;
  lock.unlock();
  for (size_t i = 0; i < helpers; ++i) g_begun.notify_one();
  job->TakeRows();
  lock.lock();
  Job** link = &g_jobs;
  while (*link != job) link = &(*link)->next;
  *link = job->next;
  while (job->helpers != 0) {
    const uint32_t seen = g_left;
    lock.unlock();
    WaitForChange(g_left, seen, Clock::now() + kAwake);
    lock.lock();
  }
}

// A fork's child has none of the threads, nor the images of others.
void ForgetThreads() {
  g_threadCount = 0;
  g_jobs = nullptr;
  g_mutex.unlock();
}
[[maybe_unused]] const int g_forkHandlers =
    pthread_atfork([] { g_mutex.lock(); }, [] { g_mutex.unlock(); }, ForgetThreads);

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
  Job job = {rows, std::max<size_t>(rows / (count * 32), 1), work, context, count - 1};
  std::fegetenv(&job.modes);
  Share(&job);
}

void EndRowThreads() {
  if (g_process != getpid()) return;
  {
    const std::lock_guard guard(g_mutex);
    g_isEnding = true;
    ++g_begun;
  }
  g_begun.notify_all();
  for (size_t i = 0; i < g_threadCount; ++i) pthread_join(g_threads[i], nullptr);
}

}  // namespace qn
