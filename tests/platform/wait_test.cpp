#include "qn/platform/wait.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "qn/platform/file.h"
#include "qn/platform/sync.h"
#include "qn/platform/wait_internal.h"

namespace {

struct Event {
  explicit Event(bool manual, bool signalled = false)
      : handle(CreateEventW(nullptr, manual, signalled, nullptr)) {}
  ~Event() { CloseHandle(handle); }
  operator HANDLE() const { return handle; }
  HANDLE handle;
};
DWORD WaitForMany(const std::vector<HANDLE>& handles, DWORD milliseconds, DWORD flags = 0, DWORD mask = 0) {
  return MsgWaitForMultipleObjectsEx(static_cast<DWORD>(handles.size()), handles.data(), milliseconds, mask,
                                     flags);
}
void Pause(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

TEST(Events, KeepTheirSignalOrGiveItOnce) {
  EXPECT_EQ(CreateEventW(nullptr, TRUE, TRUE, W("named")), nullptr);
  for (const bool manual : {false, true}) {
    const Event event(manual, !manual);
    EXPECT_TRUE(!manual || (SetEvent(event) && SetEvent(event) && WaitForMany({event}, 20) == WAIT_OBJECT_0));
    EXPECT_EQ(WaitForSingleObject(event, 20), WAIT_OBJECT_0);
    EXPECT_TRUE(!manual || ResetEvent(event));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(WaitForMany({event}, 20), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(event, 20), WAIT_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(40));
  }
}

TEST(Events, RefuseHandlesOfOthers) {
  const HANDLE closed = CreateEventW(nullptr, TRUE, TRUE, nullptr);
  EXPECT_TRUE(CloseHandle(closed));
  const Event live(true, true);  // in the slot of the other, unless another thread has it
  const auto value = reinterpret_cast<uintptr_t>(live.handle);
  for (const uint64_t wrong :
       {uint64_t{0}, ~uint64_t{0}, reinterpret_cast<uintptr_t>(closed), value & 0xFFFFFFFF, value + 1,
        value + (uint64_t{1} << 32), value | 0xFFFFFFFC}) {
    const auto handle = reinterpret_cast<HANDLE>(wrong);
    SetLastError(0);
    EXPECT_FALSE(SetEvent(handle) || ResetEvent(handle) || CloseHandle(handle));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(WaitForSingleObject(handle, 0), WAIT_FAILED);
    EXPECT_EQ(WaitForMany({live, handle}, 0), WAIT_FAILED);
  }
  EXPECT_EQ(WaitForMany(std::vector<HANDLE>(64, live), 0), WAIT_FAILED);
  EXPECT_EQ(MsgWaitForMultipleObjectsEx(1, nullptr, 0, 0, 0), WAIT_FAILED);
}

// A signal releases all that wait, even if it is taken back or the event ends at once; so does its end alone.
TEST(Waits, AreReleasedByPulsesAndClosing) {
  for (int round = 0; round < 60; ++round) {
    const bool signal = round % 3 != 0, reset = round % 3 == 1;
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const Event never(true);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&, i] {
        const bool many = i % 2 == 1;
        const DWORD result =
            many ? WaitForMany({never, event}, INFINITE) : WaitForSingleObject(event, INFINITE);
        EXPECT_EQ(result, !signal ? WAIT_FAILED : many ? 1 : WAIT_OBJECT_0);
      });
    }
    while (qn::FindSlot(event)->waiters < 4) Pause(1);
    if (signal) SetEvent(event);
    if (reset) ResetEvent(event);
    CloseHandle(event);
    const Event next(true, true);  // which is none of theirs
    for (std::thread& thread : threads) thread.join();
  }
}

// Each signal of an auto-reset event goes to one wait, whatever its form.
TEST(Waits, ShareSignalsOfAutoResetEvents) {
  constexpr int kRounds = 5'000;
  const Event token(false, true), open(true, true);
  int counter = 0;  // not atomic: the token guards it
  std::vector<std::thread> threads;
  for (const bool all : {false, true, true}) {
    threads.emplace_back([&, all] {
      for (int round = 0; round < kRounds; ++round) {
        EXPECT_EQ(
            all ? WaitForMany({token, open}, INFINITE, MWMO_WAITALL) : WaitForSingleObject(token, INFINITE),
            0u);
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
  EXPECT_EQ(WaitForMany({token, token}, INFINITE, MWMO_WAITALL), WAIT_FAILED);
}

struct Pipe final : qn::SystemObject {
  Pipe() { EXPECT_EQ(pipe(ends), 0); }
  ~Pipe() override { close(ends[0]), close(ends[1]); }
  int WaitDescriptor() const override {
    char byte;
    EXPECT_TRUE(--looks != 0 || read(ends[0], &byte, 1) == 1);
    return ends[0];
  }
  void Write() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
  int ends[2];
  mutable int looks = 0;  // the last of which finds a byte gone
};

// A byte in the pipe is a key; it stays in the queue.
struct Keys final : qn::ThreadMessages {
  Keys() { qn::SetThreadMessages(this); }
  ~Keys() override { qn::SetThreadMessages(nullptr); }
  int Descriptor() const override { return bytes.ends[0]; }
  bool HasInput(DWORD wakeMask, bool seenToo) override {
    pollfd asked = {Descriptor(), POLLIN, 0};
    char byte;
    const bool fresh = poll(&asked, 1, 0) == 1 && read(Descriptor(), &byte, 1) == 1;
    seen = seen || fresh;
    return (wakeMask & QS_KEY) != 0 && (fresh || (seenToo && seen));
  }
  BOOL Peek(MSG*, HWND, UINT, UINT, UINT) override { return FALSE; }
  Pipe bytes;
  bool seen = false;
};

TEST(Waits, TakeObjectsAndMessagesInOrder) {
  const auto object = std::make_shared<Pipe>();
  const std::vector<HANDLE> both = {CreateEventW(nullptr, TRUE, FALSE, nullptr), qn::AddHandle(object)};
  Keys keys;
  constexpr DWORD kAll = MWMO_WAITALL | MWMO_INPUTAVAILABLE;
  EXPECT_EQ(WaitForMany(both, 5, 0, QS_KEY), WAIT_TIMEOUT);
  std::thread typist([&] { Pause(5), keys.bytes.Write(); });
  EXPECT_EQ(WaitForMany(both, INFINITE, 0, QS_KEY), 2u);
  typist.join();
  EXPECT_EQ(WaitForMany(both, 5, 0, QS_KEY), WAIT_TIMEOUT);  // it was seen before
  EXPECT_EQ(WaitForMany(both, 5, MWMO_INPUTAVAILABLE, QS_KEY), 2u);
  EXPECT_EQ(WaitForSingleObject(both[1], 5), WAIT_TIMEOUT);
  object->Write();
  EXPECT_EQ(WaitForSingleObject(both[1], INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForMany(both, INFINITE), 1u);
  EXPECT_EQ(WaitForMany(both, 5, kAll), WAIT_TIMEOUT);
  SetEvent(both[0]);
  EXPECT_EQ(WaitForMany(both, 5, kAll, QS_PAINT), WAIT_TIMEOUT);
  EXPECT_EQ(WaitForMany(both, INFINITE, kAll, QS_PAINT | QS_KEY), 0u);
  const Event token(false, true);  // which a wait for all gives back when another part has gone by then
  object->looks = 3;
  EXPECT_EQ(WaitForMany({token, both[1]}, 5, MWMO_WAITALL), WAIT_TIMEOUT);
  EXPECT_TRUE(object->looks < 0 && WaitForSingleObject(token, 0) == WAIT_OBJECT_0);
  for (const HANDLE handle : both) CloseHandle(handle);
}

TEST(Alerts, RunInTheThreadThatWaits) {
  static std::atomic<DWORD> ranIn = 0;
  static std::atomic<ULONG_PTR> order = 0;
  const auto note = [](ULONG_PTR digit) {
    ranIn = GetCurrentThreadId();
    order = order * 10 + digit;
  };
  std::atomic<DWORD> id = 0;
  std::thread waiter([&] {
    id = GetCurrentThreadId();
    EXPECT_EQ(WaitForMany({}, INFINITE, MWMO_ALERTABLE), WAIT_IO_COMPLETION);
  });
  while (id == 0) Pause(1);
  const HANDLE thread = OpenThread(0, FALSE, id), self = OpenThread(0, FALSE, GetCurrentThreadId());
  Pause(5);
  EXPECT_TRUE(QueueUserAPC(note, thread, 1));
  waiter.join();
  EXPECT_EQ(ranIn, id);
  while (QueueUserAPC(note, thread, 9) != 0) Pause(1);  // the system may take a moment to forget it
  EXPECT_EQ(GetLastError(), ERROR_GEN_FAILURE);
  const auto nest = [](ULONG_PTR) {
    EXPECT_EQ(WaitForMany({}, 0, MWMO_ALERTABLE), WAIT_IO_COMPLETION);
    order = order * 10 + 4;
  };
  EXPECT_TRUE(QueueUserAPC(note, self, 2) && QueueUserAPC(nest, self, 0) && QueueUserAPC(note, self, 3));
  EXPECT_EQ(WaitForMany({}, 0), WAIT_TIMEOUT);  // not alertable
  EXPECT_EQ(WaitForMany({}, 0, MWMO_ALERTABLE), WAIT_IO_COMPLETION);
  EXPECT_EQ(order, 1234u);
  EXPECT_EQ(WaitForMany({}, 0, MWMO_ALERTABLE), WAIT_TIMEOUT);
  EXPECT_FALSE(QueueUserAPC(note, nullptr, 4) || QueueUserAPC(nullptr, self, 4) || OpenThread(0, FALSE, 1));
  CloseHandle(thread);
  CloseHandle(self);
}

}  // namespace
