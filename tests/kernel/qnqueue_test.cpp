#include "qn/kernel/qnqueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <list>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "qn/platform/file.h"
#include "qn/platform/wait_internal.h"
#include "tests/support/support.h"

namespace {

struct Item : tQNQELM {
  Item() : tQNQELM{} {}
  int number = 0;
  std::atomic<int> taken = 0;
};
Item* ItemOf(tQNQELM* element) {
  return static_cast<Item*>(element);
}

struct Queue : tQNQHEAD {
  Queue() : tQNQHEAD{} { EXPECT_EQ(QnQueueInitialize(this), 1); }
  ~Queue() { QnQueueDelete(this); }
};

bool IsSignalled(HANDLE event) {
  return WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
}
void Pause(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// Hits the elements with a number that the parameter divides; none with 0. It uses the queue as it runs.
Queue* g_searched;
LONG Divides(tQNQELM* element, ULONGLONG divisor) {
  EXPECT_EQ(IsInQnQueue(g_searched, element), 1);
  return divisor != 0 && static_cast<ULONGLONG>(ItemOf(element)->number) % divisor == 0;
}

// Every operation against a list, with the links and the event after each.
TEST(QnQueue, IsTheListThatItSays) {
  using List = std::list<Item*>;
  auto& random = qntest::Random();
  Queue queue;
  g_searched = &queue;
  std::vector<Item> items(12);
  for (size_t i = 0; i < items.size(); ++i) items[i].number = static_cast<int>(i) + 1;
  List model;
  bool signalled = false;
  const auto erase = [&](List::iterator place) {
    model.erase(place);
    signalled = signalled && !model.empty();
  };
  for (int step = 0; step < 100'000; ++step) {
    Item& item = items[random() % items.size()];
    const auto place = std::find(model.begin(), model.end(), &item);
    const bool in = place != model.end();
    const ULONGLONG divisor = random() % 5;
    const auto hits = [divisor](const Item* at) {
      return divisor != 0 && static_cast<ULONGLONG>(at->number) % divisor == 0;
    };
    const auto hit = std::find_if(model.begin(), model.end(), hits);
    const auto last = std::find_if(model.rbegin(), model.rend(), hits);
    const auto hitRev = last == model.rend() ? model.end() : std::prev(last.base());
    const auto elementAt = [&](List::iterator at) -> tQNQELM* { return at == model.end() ? nullptr : *at; };
    const auto insert = [&](List::iterator at) {
      signalled = signalled || model.empty();
      model.insert(at, &item);
    };
    const unsigned operation = random() % 17;
    if (in && operation < 4) continue;
    switch (operation) {
      case 0:
        QnQueueInsert(&queue, &item), insert(model.end());
        break;
      case 1:
        QnQueueInsertHead(&queue, &item), insert(model.begin());
        break;
      case 2:
        QnQueueInsertEx(&queue, Divides, divisor, &item), insert(hit);
        break;
      case 3:
        QnQueueInsertExRev(&queue, Divides, divisor, &item), insert(hitRev);
        break;
      case 4:
      case 5:
      case 6: {
        tQNQELM* const first = model.empty() ? nullptr : operation == 5 ? model.back() : model.front();
        ASSERT_EQ(operation == 4   ? QnQueueRemove(&queue, 0)
                  : operation == 5 ? QnQueueRemoveTail(&queue, 0)
                                   : QnQueueRemoveAlertable(&queue, 0),
                  first);
        if (first) erase(operation == 5 ? std::prev(model.end()) : model.begin());
        break;
      }
      case 7:
        ASSERT_EQ(QnQueueFind(&queue, Divides, divisor), elementAt(hit));
        break;
      case 8:
        ASSERT_EQ(QnQueueFindRev(&queue, Divides, divisor), elementAt(hitRev));
        break;
      case 9:
        ASSERT_EQ(QnQueueFindAndRemove(&queue, Divides, divisor), elementAt(hit));
        if (hit != model.end()) erase(hit);
        break;
      case 10:
        ASSERT_EQ(QnQueueFindAndRemoveRev(&queue, Divides, divisor), elementAt(hitRev));
        if (hitRev != model.end()) erase(hitRev);
        break;
      case 11:
      case 12: {
        const bool front = operation == 11;
        ASSERT_EQ((front ? QnQueueFindAndMoveToHead : QnQueueFindAndMoveToTail)(&queue, Divides, divisor),
                  elementAt(hit));
        if (hit != model.end()) model.splice(front ? model.begin() : model.end(), model, hit);
        break;
      }
      case 13:
      case 14: {
        const bool front = operation == 13;
        const bool moves = in && (front ? model.front() : model.back()) != &item;
        ASSERT_EQ((front ? QnQueueMoveToHead : QnQueueMoveToTail)(&queue, &item), moves ? 1 : 0);
        if (moves) model.splice(front ? model.begin() : model.end(), model, place);
        break;
      }
      case 15:
        QnQueueInsertEx(&queue, Divides, divisor, nullptr);
        break;
      default:
        if (random() % 40 != 0) break;
        if (random() % 2 == 0) {
          QnQueueFlush(&queue), signalled = true;
        } else {
          ASSERT_EQ(QnQueueInitialize(&queue), 1);
          signalled = false;
        }
        for (Item* const left : model) {
          ASSERT_TRUE(left->next && left->prev);  // it was not told
          left->next = left->prev = nullptr;
        }
        model.clear();
    }
    ASSERT_EQ(IsSignalled(queue.event), signalled) << operation;
    ASSERT_EQ(QnQueueWait(&queue, 0), model.empty() ? 0 : 1);
    tQNQELM* at = &queue;
    for (Item* const expected : model) {
      ASSERT_EQ(at->next, expected);
      ASSERT_EQ(expected->prev, at);
      at = expected;
    }
    ASSERT_TRUE(at->next == &queue && queue.prev == at);
    for (Item& each : items) {
      const int present = std::count(model.begin(), model.end(), &each) != 0 ? 1 : 0;
      ASSERT_EQ(IsInQnQueue(&queue, &each), present);
      ASSERT_EQ(each.next != nullptr && each.prev != nullptr, present != 0);
    }
  }
}

TEST(QnQueue, RefusesMisuse) {
  tQNQHEAD never = {};
  Item item;
  for (tQNQHEAD* const head : {static_cast<tQNQHEAD*>(nullptr), &never}) {
    QnQueueInsert(head, &item);
    QnQueueInsertHead(head, &item);
    QnQueueInsertEx(head, nullptr, 0, &item);
    QnQueueInsertExRev(head, Divides, 1, nullptr);
    EXPECT_TRUE(!item.next && !item.prev);
    for (const DWORD timeout : {0u, 5u, INFINITE}) {
      EXPECT_EQ(QnQueueRemove(head, timeout), nullptr);
      EXPECT_EQ(QnQueueRemoveTail(head, timeout), nullptr);
      EXPECT_EQ(QnQueueRemoveAlertable(head, timeout), nullptr);
      EXPECT_EQ(QnQueueWait(head, timeout), 0);
    }
    EXPECT_EQ(QnQueueFind(head, Divides, 1), nullptr);
    EXPECT_EQ(QnQueueFindAndRemoveRev(head, nullptr, 1), nullptr);
    EXPECT_EQ(QnQueueFindAndMoveToTail(head, Divides, 1), nullptr);
    EXPECT_EQ(QnQueueMoveToHead(head, &item) | IsInQnQueue(head, &item), 0);
    QnQueueDelete(head);
  }
  EXPECT_EQ(QnQueueInitialize(nullptr), 0);
  QnQueueFlush(nullptr);
  Queue queue;
  QnQueueInsert(&queue, nullptr);
  EXPECT_EQ(QnQueueMoveToTail(&queue, nullptr) | IsInQnQueue(&queue, nullptr) | QnQueueWait(&queue, 0), 0);
}

// A million elements in all, each of which arrives once; those of one producer in their order at one
// consumer.
void LoseNothing(tQNQELM* (*take)(tQNQHEAD* head), bool keepsOrder) {
  constexpr int kProducers = 2, kConsumers = 2, kEach = 125'000;
  Queue queue;
  std::vector<Item> items(kProducers * kEach);
  std::atomic<int> left = kProducers * kEach;
  std::atomic<bool> ordered = true;
  std::vector<std::thread> threads;
  for (int p = 0; p < kProducers; ++p) {
    threads.emplace_back([&, p] {
      for (int i = 0; i < kEach; ++i) {
        items[p * kEach + i].number = p * kEach + i;
        QnQueueInsert(&queue, &items[p * kEach + i]);
        if (i % 1000 == 0) std::this_thread::yield();
      }
    });
  }
  for (int c = 0; c < kConsumers; ++c) {
    threads.emplace_back([&] {
      int latest[kProducers] = {-1, -1};
      while (left > 0) {
        Item* const item = ItemOf(take(&queue));
        if (!item) continue;
        const int before = std::exchange(latest[item->number / kEach], item->number);
        if (item->number <= before) ordered = false;
        ++item->taken;
        --left;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(ordered || !keepsOrder);
  EXPECT_TRUE(std::all_of(items.begin(), items.end(),
                          [](const Item& item) { return item.taken == 1 && !item.next; }));
  EXPECT_FALSE(IsSignalled(queue.event));
}

TEST(QnQueue, LosesNothingBetweenThreads) {
  LoseNothing([](tQNQHEAD* head) { return QnQueueRemove(head, 20); }, true);
  LoseNothing([](tQNQHEAD* head) { return QnQueueRemoveTail(head, 20); }, false);
  LoseNothing([](tQNQHEAD* head) { return QnQueueRemoveAlertable(head, 20); }, true);
  LoseNothing([](tQNQHEAD* head) { return QnQueueWait(head, 20) ? QnQueueRemove(head, 0) : nullptr; }, true);
}

// Waits that do not end by themselves return null when the queue is deleted, whenever that is.
TEST(QnQueue, DeletionReleasesEveryWait) {
  constexpr int kRounds = 10'000;
  const auto queue = std::make_unique<tQNQHEAD>();
  std::atomic<int> round = 0, returned = 0;
  std::vector<std::thread> threads;
  for (int kind = 0; kind < 3; ++kind) {
    threads.emplace_back([&, kind] {
      for (int mine = 1; mine <= kRounds; ++mine) {
        while (round < mine) std::this_thread::yield();
        tQNQHEAD* const head = queue.get();
        EXPECT_EQ(kind == 0   ? QnQueueRemove(head, INFINITE)
                  : kind == 1 ? QnQueueRemoveAlertable(head, INFINITE)
                              : QnQueueRemoveTail(head, INFINITE),
                  nullptr);
        ++returned;
      }
    });
  }
  for (int i = 1; i <= kRounds; ++i) {
    ASSERT_EQ(QnQueueInitialize(queue.get()), 1);
    round = i;
    if (i % 64 == 0) Pause(1);
    if (i % 3 == 0) std::this_thread::yield();
    QnQueueDelete(queue.get());
    EXPECT_EQ(queue->event, nullptr);
    while (returned < 3 * i) std::this_thread::yield();
  }
  for (std::thread& thread : threads) thread.join();
}

struct FakeMessages final : qn::ThreadMessages {
  FakeMessages() { qn::SetThreadMessages(this); }
  ~FakeMessages() override { qn::SetThreadMessages(nullptr); }
  int Descriptor() const override { return -1; }
  bool HasInput(DWORD wakeMask, bool) override { return (waiting & wakeMask) != 0; }
  BOOL Peek(MSG* message, HWND window, UINT first, UINT last, UINT flags) override {
    EXPECT_TRUE(message && !window && first == 0 && last == 0 && flags == 0x400000);
    ++peeks;
    waiting &= ~QS_SENDMESSAGE;
    return FALSE;
  }
  DWORD waiting = 0;
  int peeks = 0;
};

// What ends a wait, and what it says.
TEST(QnQueue, WaitsForOtherThingsToo) {
  Queue queue;
  Item item;
  const HANDLE never = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  const HANDLE fired = CreateEventW(nullptr, TRUE, TRUE, nullptr);
  const HANDLE handles[63] = {never, fired};
  static int alerts;
  alerts = 0;
  const HANDLE self = OpenThread(0, FALSE, GetCurrentThreadId());
  constexpr DWORD kUntouched = 77, kPump = 0x80000, kAlertable = 0x20000, kAll = 0x10000;
  struct Row {
    DWORD count, flags, timeout, messages, alerts;
    DWORD result;
    int peeks;
  };
  for (const Row& row : {
           Row{0, 0, 0, 0, 0, kUntouched, 0},
           Row{0, 0, 5, 0, 0, WAIT_TIMEOUT, 0},
           Row{1, 0, 5, 0, 0, WAIT_TIMEOUT, 0},
           Row{2, 0, INFINITE, 0, 0, 2, 0},
           Row{2, kPump, INFINITE, 0, 0, 2, 0},
           Row{2, kAll, 5, 0, 0, WAIT_TIMEOUT, 0},
           Row{63, 0, INFINITE, 0, 0, kUntouched, 0},
           Row{3, 0, INFINITE, 0, 0, WAIT_FAILED, 0},  // a null handle among them
           Row{1, QS_KEY, INFINITE, QS_KEY, 0, 2, 0},
           Row{1, QS_KEY, 5, QS_TIMER, 0, WAIT_TIMEOUT, 0},
           Row{1, QS_SENDMESSAGE, INFINITE, QS_SENDMESSAGE, 0, 2, 0},
           Row{1, kPump, 5, QS_SENDMESSAGE, 0, WAIT_TIMEOUT, 1},
           Row{1, kAlertable, INFINITE, 0, 1, WAIT_IO_COMPLETION, 0},
           Row{0, kPump, 5, 0, 1, WAIT_TIMEOUT, 0},
           Row{0, kPump | kAlertable, 5, QS_SENDMESSAGE, 1, WAIT_TIMEOUT, 1},
       }) {
    FakeMessages messages;
    messages.waiting = row.messages;
    for (DWORD i = 0; i < row.alerts; ++i) QueueUserAPC([](ULONG_PTR) { ++alerts; }, self, 0);
    DWORD result = kUntouched;
    EXPECT_EQ(
        QnQueueRemoveEx(&queue, row.count ? handles : nullptr, row.count, row.flags, row.timeout, &result),
        nullptr);
    EXPECT_EQ(result, row.result) << row.count << " handles, flags " << row.flags;
    EXPECT_EQ(messages.peeks, row.peeks) << row.flags;
  }
  // The alert that nobody asked for ran in the wait after it.
  EXPECT_EQ(alerts, 3);

  DWORD result = kUntouched;
  QnQueueInsert(&queue, &item);
  EXPECT_EQ(QnQueueRemoveEx(&queue, handles, 63, 0, 0, &result), nullptr);
  EXPECT_EQ(IsInQnQueue(&queue, &item), 1);
  EXPECT_EQ(QnQueueRemoveEx(&queue, nullptr, 1000, 0, 0, &result), &item);
  EXPECT_EQ(result, kUntouched);
  QnQueueFlush(&queue);
  EXPECT_EQ(QnQueueRemoveEx(&queue, nullptr, 0, kPump, INFINITE, &result), nullptr);
  EXPECT_EQ(QnQueueRemove(&queue, INFINITE), nullptr);
  EXPECT_EQ(QnQueueRemoveTail(&queue, INFINITE), nullptr);
  EXPECT_EQ(QnQueueWait(&queue, INFINITE), 0);
  EXPECT_EQ(result, WAIT_OBJECT_0);
  QnQueueInitialize(&queue);

  // An element that comes during the wait.
  for (const DWORD flags : {0u, kPump | kAlertable, kAll}) {
    std::thread producer([&] {
      Pause(5);
      QnQueueInsert(&queue, &item);
    });
    EXPECT_EQ(QnQueueRemoveEx(&queue, flags == kAll ? &fired : nullptr, 1, flags, INFINITE, &result), &item);
    EXPECT_EQ(result, WAIT_OBJECT_0);
    producer.join();
  }
  for (const HANDLE handle : {never, fired, self}) CloseHandle(handle);
}

}  // namespace
