#include "qn/kernel/qnqueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
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
struct Queue : tQNQHEAD {
  Queue() : tQNQHEAD{} { EXPECT_EQ(QnQueueInitialize(this), 1); }
  ~Queue() { QnQueueDelete(this); }
};

// Hits the elements with a number that the parameter divides; none with 0. It uses the queue as it runs.
tQNQHEAD* g_searched;
LONG Divides(tQNQELM* element, ULONGLONG divisor) {
  EXPECT_EQ(IsInQnQueue(g_searched, element), 1);
  return divisor != 0 && static_cast<ULONGLONG>(static_cast<Item*>(element)->number) % divisor == 0;
}

// What the ring should be, and if the event should be signalled.
struct Model {
  std::vector<Item*> items;
  bool signalled = false;

  tQNQELM* At(int index) const { return index < 0 ? nullptr : items[static_cast<size_t>(index)]; }
  int End(bool front) const { return front && !items.empty() ? 0 : Size() - 1; }
  int Size() const { return static_cast<int>(items.size()); }
  template <typename Hit>
  int Find(bool front, Hit hit) const {
    int found = -1;
    for (int i = 0; i < Size(); ++i) {
      if (hit(items[static_cast<size_t>(i)]) && (found < 0 || !front)) found = i;
    }
    return found;
  }
  void Insert(int index, Item* item) {
    signalled = signalled || items.empty();
    items.insert(items.begin() + index, item);
  }
  void Remove(int index) {
    if (index < 0) return;
    items.erase(items.begin() + index);
    signalled = signalled && !items.empty();
  }
  void Move(int index, bool front) {
    if (index < 0) return;
    const auto from = items.begin() + index;
    front ? std::rotate(items.begin(), from, from + 1) : std::rotate(from, from + 1, items.end());
  }
};

// Every operation at random, with the links and the event after each.
TEST(QnQueue, IsTheRingThatItSays) {
  auto& random = qntest::Random();
  Queue queue;
  g_searched = &queue;
  std::vector<Item> items(12);
  for (size_t i = 0; i < items.size(); ++i) items[i].number = static_cast<int>(i) + 1;
  Model model;
  for (int step = 0; step < 60'000; ++step) {
    Item& item = items[random() % items.size()];
    const ULONGLONG divisor = random() % 5;
    const auto divides = [=](const Item* at) {
      return divisor != 0 && at->number % static_cast<int>(divisor) == 0;
    };
    const bool front = random() % 2 == 0;
    const int own = model.Find(true, [&](const Item* at) { return at == &item; });
    const int hit = model.Find(front, divides), firstHit = model.Find(true, divides), end = model.End(front);
    const auto operation = random() % 256;
    switch (operation % 7) {
      case 0:
        if (own >= 0) break;
        (front ? QnQueueInsertHead : QnQueueInsert)(&queue, &item);
        model.Insert(front ? 0 : model.Size(), &item);
        break;
      case 1:
        (front ? QnQueueInsertEx : QnQueueInsertExRev)(&queue, Divides, divisor, own < 0 ? &item : nullptr);
        if (own < 0) model.Insert(hit < 0 ? model.Size() : hit, &item);
        break;
      case 2:
        ASSERT_EQ((front ? QnQueueRemove : QnQueueRemoveTail)(&queue, 0), model.At(end));
        model.Remove(end);
        break;
      case 3:
        ASSERT_EQ((front ? QnQueueFind : QnQueueFindRev)(&queue, Divides, divisor), model.At(hit));
        break;
      case 4:
        ASSERT_EQ((front ? QnQueueFindAndRemove : QnQueueFindAndRemoveRev)(&queue, Divides, divisor),
                  model.At(hit));
        model.Remove(hit);
        break;
      case 5:
        ASSERT_EQ((front ? QnQueueFindAndMoveToHead : QnQueueFindAndMoveToTail)(&queue, Divides, divisor),
                  model.At(firstHit));
        model.Move(firstHit, front);
        break;
      default:
        ASSERT_EQ((front ? QnQueueMoveToHead : QnQueueMoveToTail)(&queue, &item),
                  own >= 0 && own != end ? 1 : 0);
        model.Move(own, front);
    }
    if (operation == 255) {
      front ? QnQueueFlush(&queue) : static_cast<void>(QnQueueInitialize(&queue));
      for (Item* const left : model.items) {
        ASSERT_TRUE(left->next && left->prev);  // it was not told
        left->next = left->prev = nullptr;
      }
      model = {{}, front};
    }
    ASSERT_EQ(WaitForSingleObject(queue.event, 0) == WAIT_OBJECT_0, model.signalled) << operation;
    ASSERT_EQ(QnQueueWait(&queue, 0), model.items.empty() ? 0 : 1);
    tQNQELM* at = &queue;
    for (Item* const expected : model.items) {
      ASSERT_TRUE(at->next == expected && expected->prev == at) << operation;
      at = expected;
    }
    ASSERT_TRUE(at->next == &queue && queue.prev == at);
    const auto linked = [&](Item& each) { return IsInQnQueue(&queue, &each) == 1 && each.next && each.prev; };
    ASSERT_EQ(std::count_if(items.begin(), items.end(), linked), model.Size());
    ASSERT_EQ(std::count_if(items.begin(), items.end(), [](Item& each) { return each.next || each.prev; }),
              model.Size());
  }
}

TEST(QnQueue, RefusesHeadsThatAreNone) {
  tQNQHEAD never = {};
  Item item;
  for (tQNQHEAD* const head : {static_cast<tQNQHEAD*>(nullptr), &never}) {
    for (const auto nothing : {QnQueueFlush, QnQueueDelete}) nothing(head);
    for (const auto insert : {QnQueueInsert, QnQueueInsertHead}) insert(head, &item);
    for (const auto insert : {QnQueueInsertEx, QnQueueInsertExRev}) insert(head, nullptr, 0, &item);
    EXPECT_FALSE(QnQueueRemove(head, INFINITE) || QnQueueRemoveAlertable(head, INFINITE));
    EXPECT_FALSE(QnQueueFindAndRemove(head, Divides, 1) || QnQueueFindAndMoveToTail(head, Divides, 1));
    EXPECT_EQ(QnQueueMoveToHead(head, &item) | IsInQnQueue(head, &item) | QnQueueWait(head, INFINITE), 0);
  }
  EXPECT_TRUE(!item.next && !item.prev && !never.next && QnQueueInitialize(nullptr) == 0);
}

// Two million elements in all, each of which arrives once; those of one producer in their order at one
// consumer.
void LoseNothing(tQNQELM* (*take)(tQNQHEAD* head), bool keepsOrder) {
  constexpr int kThreads = 2, kEach = 250'000;
  Queue queue;
  std::vector<Item> items(kThreads * kEach);
  std::atomic<int> left = kThreads * kEach;
  std::atomic<bool> ordered = true;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = thread * kEach; i < (thread + 1) * kEach; ++i) {
        items[static_cast<size_t>(i)].number = i;
        QnQueueInsert(&queue, &items[static_cast<size_t>(i)]);
      }
    });
    threads.emplace_back([&] {
      int latest[kThreads] = {-1, -1};
      while (left > 0) {
        auto* const item = static_cast<Item*>(take(&queue));
        if (!item) continue;
        if (std::exchange(latest[item->number / kEach], item->number) >= item->number) ordered = false;
        ++item->taken;
        --left;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(ordered || !keepsOrder);
  EXPECT_TRUE(std::all_of(items.begin(), items.end(),
                          [](const Item& item) { return item.taken == 1 && !item.next; }));
}

TEST(QnQueue, LosesNothingBetweenThreads) {
  LoseNothing([](tQNQHEAD* head) { return QnQueueRemove(head, 20); }, true);
  LoseNothing([](tQNQHEAD* head) { return QnQueueRemoveTail(head, 20); }, false);
  LoseNothing([](tQNQHEAD* head) { return QnQueueRemoveAlertable(head, 20); }, true);
  LoseNothing([](tQNQHEAD* head) { return QnQueueWait(head, 20) ? QnQueueRemove(head, 0) : nullptr; }, true);
}

// A walk whose predicate took its element away ends without a hit, and touches neither the ring that there is
// now nor the element.
TEST(QnQueue, BearsWhatPredicatesDo) {
  static Queue *from, *to;
  const auto meddle = [](tQNQELM* element, ULONGLONG how) -> LONG {
    if (how < 2) QnQueueFlush(from);
    if (how / 2 == 1) QnQueueDelete(from), QnQueueInitialize(from);
    if (how >= 4) QnQueueMoveToHead(from, element), QnQueueRemove(from, 0);
    QnQueueInsert(to, element);
    return how % 2;
  };
  for (const auto find : {QnQueueFind, QnQueueFindRev, QnQueueFindAndRemove, QnQueueFindAndRemoveRev,
                          QnQueueFindAndMoveToHead, QnQueueFindAndMoveToTail}) {
    for (ULONGLONG how = 0; how < 6; ++how) {
      Queue one, two;
      Item items[3], late;
      from = &one, to = &two;
      for (Item& item : items) QnQueueInsert(&one, &item);
      EXPECT_EQ(find(&one, meddle, how), nullptr);
      QnQueueInsert(&one, &late);
      EXPECT_EQ(QnQueueRemoveTail(&one, 0), &late);
      EXPECT_TRUE(one.prev->next == &one && two.next != &two && two.next == two.prev) << how;
    }
  }
}

// Waits that do not end by themselves return null when the queue is deleted, whenever that is; those that
// sleep by then because of its event.
TEST(QnQueue, DeletionReleasesEveryWait) {
  constexpr int kRounds = 10'000, kForms = 4;
  const HANDLE never = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  tQNQHEAD queue = {};
  std::atomic<int> round = 0, returned = 0;
  std::vector<std::thread> threads;
  for (int form = 0; form < kForms; ++form) {
    threads.emplace_back([&, form] {
      for (int mine = 1; mine <= kRounds; ++mine) {
        while (round < mine) std::this_thread::yield();
        DWORD result = WAIT_OBJECT_0;
        EXPECT_FALSE(form == 0 ? QnQueueWait(&queue, INFINITE) != 0
                               : QnQueueRemoveEx(&queue, form == 1 ? nullptr : &never, 1,
                                                 form == 2 ? 0xA0000 : 0, INFINITE, &result) != nullptr);
        EXPECT_TRUE(result == WAIT_OBJECT_0 || mine % 64 != 0);
        ++returned;
      }
    });
  }
  for (int i = 1; i <= kRounds; ++i) {
    EXPECT_EQ(QnQueueInitialize(&queue), 1);
    round = i;
    while (i % 64 == 0 && qn::FindSlot(queue.event)->waiters < kForms) std::this_thread::yield();
    QnQueueDelete(&queue);
    while (returned < kForms * i) std::this_thread::yield();
  }
  for (std::thread& thread : threads) thread.join();
  CloseHandle(never);
}

struct FakeMessages final : qn::ThreadMessages {
  explicit FakeMessages(DWORD wanted) : wanted_(wanted) { qn::SetThreadMessages(this); }
  ~FakeMessages() override { qn::SetThreadMessages(nullptr); }
  int Descriptor() const override { return -1; }
  bool HasInput(DWORD wakeMask, bool seen) override {
    EXPECT_EQ(wakeMask, (wanted_ & 0xFFFF) | (wanted_ & QNQUEUE_PUMP ? QS_SENDMESSAGE : 0));
    EXPECT_EQ(seen, (wanted_ & QNQUEUE_INPUT_AVAILABLE) != 0);
    return (waiting & wakeMask) != 0;
  }
  BOOL Peek(MSG* message, HWND window, UINT first, UINT last, UINT flags) override {
    EXPECT_TRUE(message && !window && first == 0 && last == 0 && flags == 0x400000);
    ++peeks;
    waiting &= ~QS_SENDMESSAGE;
    return FALSE;
  }
  DWORD waiting = 0;
  int peeks = 0;

 private:
  const DWORD wanted_;
};

// What ends a wait, and what it says.
TEST(QnQueue, WaitsForOtherThingsToo) {
  Queue queue;
  Item item;
  const HANDLE never = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  const HANDLE fired = CreateEventW(nullptr, TRUE, TRUE, nullptr);
  const HANDLE self = OpenThread(0, FALSE, GetCurrentThreadId());
  const HANDLE handles[63] = {never, fired};
  std::vector<HANDLE> many(62, never);
  many.back() = fired;
  static int alerts;
  alerts = 0;
  constexpr DWORD kUntouched = 77, kPump = 0x80000, kAlertable = 0x20000, kAll = 0x10000;
  struct Row {
    DWORD count, flags, timeout, messages;
    int alerts;
    DWORD result;
    int peeks;
  };
  for (const Row& row : {
           Row{0, 0, 5, 0, 0, WAIT_TIMEOUT, 0},
           Row{2, kPump, INFINITE, 0, 0, 2, 0},
           Row{2, kAll, 5, 0, 0, WAIT_TIMEOUT, 0},
           Row{3, 0, INFINITE, 0, 0, WAIT_FAILED, 0},  // a null handle among them
           Row{1, QS_KEY, INFINITE, QS_KEY, 0, 2, 0},
           Row{0, QNQUEUE_INPUT_AVAILABLE | 0x8000, 1000, 0x8000, 0, 1, 0},
           Row{1, kPump, 5, QS_SENDMESSAGE, 0, WAIT_TIMEOUT, 1},
           Row{1, kAlertable, INFINITE, 0, 1, WAIT_IO_COMPLETION, 0},
           Row{0, kPump, 5, 0, 1, WAIT_TIMEOUT, 0},  // its alert runs in the wait after it
           Row{0, kPump | kAlertable, 5, QS_SENDMESSAGE, 1, WAIT_TIMEOUT, 1},
       }) {
    FakeMessages messages(row.flags);
    messages.waiting = row.messages;
    if (row.alerts != 0) QueueUserAPC([](ULONG_PTR) { ++alerts; }, self, 0);
    DWORD result = kUntouched;
    EXPECT_EQ(
        QnQueueRemoveEx(&queue, row.count ? handles : nullptr, row.count, row.flags, row.timeout, &result),
        nullptr);
    EXPECT_EQ(result, row.result) << row.count << " handles, flags " << row.flags;
    EXPECT_EQ(messages.peeks, row.peeks) << row.flags;
  }
  EXPECT_EQ(alerts, 3);

  DWORD result = kUntouched;
  QnQueueInsert(&queue, &item);
  EXPECT_EQ(QnQueueRemoveEx(&queue, handles, 63, 0, 0, &result), nullptr);
  EXPECT_EQ(QnQueueRemoveEx(&queue, nullptr, 1000, 0, 0, &result), &item);
  EXPECT_EQ(result, kUntouched);
  QnQueueFlush(&queue);  // which waits take for an element that somebody else has
  EXPECT_EQ(QnQueueRemoveEx(&queue, nullptr, 0, kPump, INFINITE, &result), nullptr);
  EXPECT_EQ(QnQueueRemove(&queue, INFINITE), nullptr);
  QnQueueInitialize(&queue);
  EXPECT_TRUE(!QnQueueRemoveEx(&queue, many.data(), 62, 0, INFINITE, &result) && result == 62);
  for (const DWORD flags : {0u, kPump | kAlertable, kAll}) {  // an element that comes during the wait
    std::thread producer([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      QnQueueInsert(&queue, &item);
    });
    EXPECT_EQ(QnQueueRemoveEx(&queue, flags == kAll ? &fired : nullptr, 1, flags, INFINITE, &result), &item);
    EXPECT_EQ(result, WAIT_OBJECT_0);
    producer.join();
  }
  // Alerts that keep coming neither end a wait nor make it longer: it ends before they do.
  std::atomic<int> left = 1000;
  std::thread sender([&] {
    for (; left > 0; --left) {
      QueueUserAPC([](ULONG_PTR) { ++alerts; }, self, 0);
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  });
  for (const auto wait : {QnQueueRemove, QnQueueRemoveTail, QnQueueRemoveAlertable}) {
    EXPECT_EQ(alerts, 3);
    const DWORD start = GetTickCount();
    EXPECT_TRUE(!wait(&queue, 30) && !QnQueueWait(&queue, 30));
    EXPECT_GE(GetTickCount() - start, 60u);
  }
  EXPECT_TRUE(alerts > 3 && left.exchange(0) > 0);
  sender.join();
  for (const HANDLE handle : {never, fired, self}) CloseHandle(handle);
}

}  // namespace
