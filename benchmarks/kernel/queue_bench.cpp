// The message queue beside what its programmer would take instead: a mutex, a condition variable and a deque
// of pointers.
#include <benchmark/benchmark.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/support/allocations.h"
#include "qn/kernel/qnqueue.h"

namespace {

struct Item : tQNQELM {
  Item() : tQNQELM{} {}
};

class Ours {
 public:
  Ours() { QnQueueInitialize(&head_); }
  ~Ours() { QnQueueDelete(&head_); }
  void Push(Item* item) { QnQueueInsert(&head_, item); }
  Item* Pop() { return static_cast<Item*>(QnQueueRemove(&head_, INFINITE)); }

 private:
  tQNQHEAD head_ = {};
};

class Deque {
 public:
  void Push(Item* item) {
    {
      const std::lock_guard guard(mutex_);
      items_.push_back(item);
    }
    filled_.notify_one();
  }
  Item* Pop() {
    std::unique_lock guard(mutex_);
    filled_.wait(guard, [this] { return !items_.empty(); });
    Item* const item = items_.front();
    items_.pop_front();
    return item;
  }

 private:
  std::mutex mutex_;
  std::condition_variable filled_;
  std::deque<Item*> items_;
};

// Counts what `work`, which moves as many elements in each call, allocates after the time is taken.
template <typename Work>
void Measure(benchmark::State& state, size_t elements, Work work) {
  work();
  for (auto _ : state) work();
  constexpr int kRounds = 64;
  const int64_t before = qnbench::Allocations();
  for (int i = 0; i < kRounds; ++i) work();
  const auto made = static_cast<double>(qnbench::Allocations() - before);
  state.counters["allocations"] = made / static_cast<double>(kRounds * elements);
}

// A thread that gives each element that comes in at once to the next queue, until a null would follow: the
// element `last`, which it gives on too.
template <typename Queue>
struct Echo {
  Queue in, out;
  Item last;
  std::thread thread{[this] {
    for (Item* item = nullptr; item != &last;) {
      item = in.Pop();
      if (item) out.Push(item);
    }
  }};
  ~Echo() {
    in.Push(&last);
    thread.join();
  }
};

// Pushes and pops `depth` elements on one thread, in a process that has another: without one the C library's
// mutexes do not lock, and nobody needs a queue.
template <typename Queue, size_t depth>
void PushAndPop(benchmark::State& state) {
  Echo<Queue> other;
  Queue queue;
  std::vector<Item> items(depth);
  Measure(state, depth, [&] {
    for (Item& item : items) queue.Push(&item);
    for (size_t i = 0; i < depth; ++i) benchmark::DoNotOptimize(queue.Pop());
  });
}

// One element goes to another thread and comes back.
template <typename Queue>
void HandOver(benchmark::State& state) {
  Echo<Queue> echo;
  Item item;
  Measure(state, 1, [&] {
    echo.in.Push(&item);
    while (!echo.out.Pop()) continue;
  });
}

// Many elements go to another thread as fast as they can, and come back as fast.
template <typename Queue>
void Stream(benchmark::State& state) {
  constexpr size_t kElements = 4096;
  Echo<Queue> echo;
  std::vector<Item> items(kElements);
  Measure(state, kElements, [&] {
    for (Item& item : items) echo.in.Push(&item);
    for (size_t left = kElements; left > 0;) {
      if (echo.out.Pop()) --left;
    }
  });
}

[[maybe_unused]] const bool registered = [] {
  const auto add = [](const std::string& name, auto ours, auto peer) {
    benchmark::RegisterBenchmark(("queue/" + name + "/ours").c_str(), ours)->UseRealTime();
    benchmark::RegisterBenchmark(("queue/" + name + "/condition_variable").c_str(), peer)->UseRealTime();
  };
  add("push_and_pop_1", PushAndPop<Ours, 1>, PushAndPop<Deque, 1>);
  add("push_and_pop_100", PushAndPop<Ours, 100>, PushAndPop<Deque, 100>);
  add("hand_over", HandOver<Ours>, HandOver<Deque>);
  add("stream_4096", Stream<Ours>, Stream<Deque>);
  return true;
}();

}  // namespace
