#include "qn/platform/wait.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "qn/platform/file.h"
#include "qn/platform/sync.h"
#include "qn/platform/wait_internal.h"

namespace {

HANDLE ManualEvent(BOOL signalled = FALSE) {
  return CreateEventW(nullptr, TRUE, signalled, nullptr);
}
HANDLE AutoEvent(BOOL signalled = FALSE) {
  return CreateEventW(nullptr, FALSE, signalled, nullptr);
}
DWORD WaitForMany(const std::vector<HANDLE>& handles, DWORD milliseconds, DWORD flags = 0, DWORD mask = 0) {
  return MsgWaitForMultipleObjectsEx(static_cast<DWORD>(handles.size()), handles.data(), milliseconds, mask,
                                     flags);
}
void Pause(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

TEST(Events, KeepTheirSignalOrGiveItOnce) {
  EXPECT_EQ(CreateEventW(nullptr, TRUE, TRUE, W("named")), nullptr);
  for (const bool many : {false, true}) {
    const auto wait = [many](HANDLE event) {
      return many ? WaitForMany({event}, 0) : WaitForSingleObject(event, 0);
    };
    const HANDLE manual = ManualEvent();
    const HANDLE automatic = AutoEvent(TRUE);
    EXPECT_EQ(wait(manual), WAIT_TIMEOUT);
    EXPECT_TRUE(SetEvent(manual) && SetEvent(manual) && SetEvent(automatic));
    for (const DWORD again : {WAIT_OBJECT_0, WAIT_TIMEOUT}) {
      EXPECT_EQ(wait(manual), WAIT_OBJECT_0);
      EXPECT_EQ(wait(automatic), again);
    }
    EXPECT_TRUE(ResetEvent(manual));
    EXPECT_EQ(wait(manual), WAIT_TIMEOUT);
    CloseHandle(manual);
    CloseHandle(automatic);
  }
}

TEST(Events, RefuseHandlesOfOthers) {
  const HANDLE closed = ManualEvent(TRUE);
  EXPECT_TRUE(CloseHandle(closed));
  const HANDLE live = ManualEvent(TRUE);  // most likely in the slot of the other
  const auto value = reinterpret_cast<uintptr_t>(live);
  std::vector<HANDLE> refused = {nullptr, closed};
  for (const uint64_t wrong :
       {~uint64_t{0}, value & 0xFFFFFFFF, value + 1, value + (uint64_t{1} << 32), value | 0xFFFFFFFC})
    refused.push_back(reinterpret_cast<HANDLE>(wrong));
  for (const HANDLE handle : refused) {
    SetLastError(0);
    EXPECT_FALSE(SetEvent(handle) || ResetEvent(handle) || CloseHandle(handle));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(WaitForSingleObject(handle, 0), WAIT_FAILED);
    EXPECT_EQ(WaitForMany({live, handle}, 0), WAIT_FAILED);
  }
  const std::vector<HANDLE> many(64, live);
  EXPECT_EQ(WaitForMany(many, 0), WAIT_FAILED);
  EXPECT_EQ(MsgWaitForMultipleObjectsEx(1, nullptr, 0, 0, 0), WAIT_FAILED);
  EXPECT_EQ(WaitForSingleObject(live, 0), WAIT_OBJECT_0);
  CloseHandle(live);
}

TEST(Waits, EndAtTheirTimeAndNotBefore) {
  const HANDLE event = ManualEvent();
  for (const bool many : {false, true}) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(many ? WaitForMany({event, event}, 30) : WaitForSingleObject(event, 30), WAIT_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
  }
  CloseHandle(event);
}

// A signal releases all that wait, even if it is taken back at once; so does the end of the event.
TEST(Waits, AreReleasedByPulsesAndClosing) {
  for (const bool close : {false, true}) {
    for (int round = 0; round < 20; ++round) {
      const HANDLE event = ManualEvent();
      const HANDLE never = ManualEvent();
      std::atomic<int> results[4] = {-1, -1, -1, -1};
      std::vector<std::thread> threads;
      for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
          const DWORD result =
              i % 2 == 0 ? WaitForSingleObject(event, INFINITE) : WaitForMany({never, event}, INFINITE);
          results[i] = static_cast<int>(result);
        });
      }
      Pause(5);  // most of them sleep by now; those that do not are released by the next pulse
      while (!close && (results[0] < 0 || results[1] < 0 || results[2] < 0 || results[3] < 0)) {
        SetEvent(event);
        ResetEvent(event);
        std::this_thread::yield();
      }
      CloseHandle(event);
      for (std::thread& thread : threads) thread.join();
      for (int i = 0; i < 4; ++i) EXPECT_EQ(results[i], close ? -1 : i % 2) << i;
      CloseHandle(never);
    }
  }
}

// Each signal of an auto-reset event goes to one wait, whatever its form.
TEST(Waits, ShareSignalsOfAutoResetEvents) {
  constexpr int kRounds = 5'000;
  const HANDLE token = AutoEvent(TRUE);
  const HANDLE open = ManualEvent(TRUE);
  int counter = 0;  // not atomic: the token guards it
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < kRounds; ++round) {
        if (i == 0) {
          ASSERT_EQ(WaitForSingleObject(token, INFINITE), WAIT_OBJECT_0);
        } else {
          ASSERT_EQ(WaitForMany({token, open}, INFINITE, MWMO_WAITALL), WAIT_OBJECT_0);
        }
        ++counter;
        SetEvent(token);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counter, 3 * kRounds);
  ResetEvent(open);
  EXPECT_EQ(WaitForMany({token, open}, 10, MWMO_WAITALL), WAIT_TIMEOUT);
  EXPECT_EQ(WaitForSingleObject(token, 0), WAIT_OBJECT_0);  // it was not taken for nothing
  CloseHandle(token);
  CloseHandle(open);
}

struct Readable final : qn::SystemObject {
  Readable() { EXPECT_EQ(pipe(ends), 0); }
  ~Readable() override {
    for (const int end : ends) close(end);
  }
  int WaitDescriptor() const override { return ends[0]; }
  int ends[2];
};

struct FakeMessages final : qn::ThreadMessages {
  FakeMessages() { qn::SetThreadMessages(this); }
  ~FakeMessages() override { qn::SetThreadMessages(nullptr); }
  int Descriptor() const override { return signal.ends[0]; }
  bool HasInput(DWORD wakeMask, bool seenToo) override {
    char kind;
    while (unread > 0 && read(signal.ends[0], &kind, 1) == 1) {
      --unread;
      fresh |= static_cast<DWORD>(kind);
    }
    const DWORD found = (fresh | (seenToo ? seen : 0)) & wakeMask;
    seen |= std::exchange(fresh, 0);
    return found != 0;
  }
  BOOL Peek(MSG*, HWND, UINT, UINT, UINT) override { return FALSE; }
  void Post(char kind) {
    ++unread;
    EXPECT_EQ(write(signal.ends[1], &kind, 1), 1);
  }
  Readable signal;
  std::atomic<int> unread = 0;
  DWORD fresh = 0;
  DWORD seen = 0;
};

TEST(Waits, TakeObjectsAndMessagesInOrder) {
  const auto object = std::make_shared<Readable>();
  const std::vector<HANDLE> both = {ManualEvent(), qn::AddHandle(object)};
  FakeMessages messages;
  EXPECT_EQ(WaitForMany(both, 5, 0, QS_KEY), WAIT_TIMEOUT);
  messages.Post(QS_TIMER);
  EXPECT_EQ(WaitForMany(both, 5, 0, QS_KEY), WAIT_TIMEOUT);
  std::thread writer([&] {
    Pause(5);
    messages.Post(QS_KEY);
  });
  EXPECT_EQ(WaitForMany(both, INFINITE, 0, QS_KEY), 2u);
  writer.join();
  EXPECT_EQ(WaitForMany(both, 5, 0, QS_KEY), WAIT_TIMEOUT);  // it was seen before
  EXPECT_EQ(WaitForMany(both, 5, MWMO_INPUTAVAILABLE, QS_KEY), 2u);
  EXPECT_EQ(WaitForSingleObject(both[1], 5), WAIT_TIMEOUT);
  EXPECT_EQ(write(object->ends[1], "x", 1), 1);
  EXPECT_EQ(WaitForSingleObject(both[1], INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForMany(both, INFINITE), 1u);
  constexpr DWORD kAll = MWMO_WAITALL | MWMO_INPUTAVAILABLE;
  EXPECT_EQ(WaitForMany(both, 5, kAll), WAIT_TIMEOUT);
  SetEvent(both[0]);
  EXPECT_EQ(WaitForMany(both, INFINITE), 0u);
  EXPECT_EQ(WaitForMany(both, 5, kAll, QS_PAINT), WAIT_TIMEOUT);
  EXPECT_EQ(WaitForMany(both, INFINITE, kAll, QS_PAINT | QS_KEY), 0u);
  for (const HANDLE handle : both) CloseHandle(handle);
}

TEST(Alerts, RunInTheThreadThatWaits) {
  static std::atomic<DWORD> ranIn = 0;
  static std::atomic<ULONG_PTR> order = 0;
  const auto note = [](ULONG_PTR digit) {
    ranIn = GetCurrentThreadId();
    order = order * 10 + digit;
  };
  EXPECT_EQ(OpenThread(0, FALSE, 1), nullptr);
  std::atomic<DWORD> id = 0;
  std::atomic<bool> waited = false;
  std::thread waiter([&] {
    const HANDLE never = ManualEvent();
    id = GetCurrentThreadId();
    EXPECT_EQ(WaitForMany({never}, INFINITE, MWMO_ALERTABLE), WAIT_IO_COMPLETION);
    waited = true;
    while (order < 12) Pause(1);  // queued while nobody waits
    EXPECT_EQ(WaitForMany({never}, 0), WAIT_TIMEOUT);
    CloseHandle(never);
  });
  while (id == 0) Pause(1);
  const HANDLE thread = OpenThread(0, FALSE, id);
  const HANDLE self = OpenThread(0, FALSE, GetCurrentThreadId());
  Pause(5);
  EXPECT_TRUE(QueueUserAPC(note, thread, 1));
  while (!waited) Pause(1);
  EXPECT_EQ(ranIn, id);
  EXPECT_TRUE(QueueUserAPC(note, self, 2) && QueueUserAPC(note, self, 3));
  EXPECT_EQ(WaitForMany({}, 0), WAIT_TIMEOUT);  // not alertable
  EXPECT_EQ(order, 1u);
  EXPECT_EQ(WaitForMany({}, 0, MWMO_ALERTABLE), WAIT_IO_COMPLETION);
  EXPECT_EQ(order, 123u);
  EXPECT_EQ(ranIn, GetCurrentThreadId());
  EXPECT_EQ(WaitForMany({}, 0, MWMO_ALERTABLE), WAIT_TIMEOUT);
  waiter.join();
  EXPECT_FALSE(QueueUserAPC(note, thread, 4));
  EXPECT_EQ(GetLastError(), ERROR_GEN_FAILURE);
  EXPECT_FALSE(QueueUserAPC(note, nullptr, 4) || QueueUserAPC(nullptr, self, 4));
  CloseHandle(thread);
  CloseHandle(self);
}

// A child has the events as they were, and signals none of its parent's.
TEST(Waits, AreNotAForkedChilds) {
  const HANDLE event = ManualEvent();
  std::atomic<bool> released = false;
  std::thread waiter([&] {
    EXPECT_EQ(WaitForMany({event, event}, INFINITE), WAIT_OBJECT_0);
    released = true;
  });
  Pause(10);
  const pid_t child = fork();
  if (child == 0) {
    const bool right =
        WaitForMany({event}, 5) == WAIT_TIMEOUT && SetEvent(event) && WaitForSingleObject(event, 0) == 0;
    _exit(right ? 0 : 1);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(released);
  SetEvent(event);
  waiter.join();
  CloseHandle(event);
}

}  // namespace
