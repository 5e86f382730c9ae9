#include "qn/platform/process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <thread>
#include <vector>

#include "qn/platform/file.h"
#include "qn/platform/mapping_object_internal.h"
#include "qn/platform/wait.h"

namespace {

HANDLE MakeShared(DWORD bytes) {
  return CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, bytes, nullptr);
}

// A copy of this process that works and then waits to be killed.
class Child {
 public:
  explicit Child(const std::function<uint64_t()>& work = [] { return uint64_t{0}; }) {
    int result[2];
    if (pipe2(result, O_CLOEXEC) != 0) std::abort();
    id = fork();
    if (id == 0) {
      value = work();
      if (write(result[1], &value, sizeof value) < 0) _exit(1);
      for (;;) pause();
    }
    close(result[1]);
    if (read(result[0], &value, sizeof value) != sizeof value) std::abort();
    close(result[0]);
  }
  ~Child() { Kill(); }
  void Kill() {
    kill(id, SIGKILL);
    waitpid(id, nullptr, 0);
  }

  pid_t id;
  uint64_t value = 0;
};

TEST(Process, MemoryComesWholeOrWithItsCount) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  auto* const memory =
      static_cast<char*>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  mprotect(memory + page, page, PROT_NONE);
  std::memcpy(memory + page - 4, "abcd", 4);
  Child child;
  const HANDLE other = OpenProcess(PROCESS_VM_READ, FALSE, static_cast<DWORD>(child.id));
  ASSERT_TRUE(other);
  for (const HANDLE process : {other, GetCurrentProcess()}) {
    char bytes[16] = {};
    SIZE_T moved = 99;
    EXPECT_TRUE(ReadProcessMemory(process, memory + page - 4, bytes, 4, &moved) && moved == 4);
    EXPECT_STREQ(bytes, "abcd");
    EXPECT_FALSE(ReadProcessMemory(process, memory + page - 4, bytes, 8, &moved));
    EXPECT_TRUE(GetLastError() == ERROR_PARTIAL_COPY && moved == 4);
    EXPECT_TRUE(WriteProcessMemory(process, memory, "xy", 2, nullptr));
    EXPECT_TRUE(ReadProcessMemory(process, memory, bytes, 2, &moved) && bytes[0] == 'x');
    EXPECT_FALSE(WriteProcessMemory(process, memory + page - 1, "xy", 2, &moved));
    EXPECT_TRUE(GetLastError() == ERROR_PARTIAL_COPY && moved == 1);
    EXPECT_FALSE(ReadProcessMemory(process, reinterpret_cast<void*>(UINTPTR_MAX - 1), bytes, 16, &moved));
    EXPECT_TRUE(GetLastError() == ERROR_PARTIAL_COPY && moved == 0);
  }
  EXPECT_EQ(memory[page - 1], 'x') << "the own process's";
  EXPECT_EQ(WaitForSingleObject(other, 0), WAIT_TIMEOUT);
  child.Kill();
  EXPECT_EQ(WaitForSingleObject(other, 1000), WAIT_OBJECT_0);
  char byte;
  EXPECT_FALSE(ReadProcessMemory(other, memory, &byte, 1, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_PARTIAL_COPY);
  for (const DWORD id : {DWORD{0}, static_cast<DWORD>(child.id), DWORD{0x7FFFFFFF}, DWORD{0xFFFFFFFF}}) {
    EXPECT_EQ(OpenProcess(PROCESS_VM_READ, FALSE, id), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  }
  EXPECT_TRUE(CloseHandle(other));
  EXPECT_FALSE(ReadProcessMemory(other, memory, &byte, 1, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  munmap(memory, 2 * page);
}

TEST(Process, MappingsAreDuplicatedWithinAProcessAndFromForks) {
  EXPECT_EQ(MakeShared(0), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  const HANDLE first = MakeShared(5000), self = GetCurrentProcess();
  const HANDLE owner = OpenProcess(PROCESS_DUP_HANDLE, FALSE, GetCurrentProcessId());
  EXPECT_EQ(MapViewOfFile(first, FILE_MAP_READ, 0, 0, 5001), nullptr);
  EXPECT_EQ(MapViewOfFile(first, 1, 0, 0, 0), nullptr);
  auto* const view = static_cast<char*>(MapViewOfFile(first, FILE_MAP_WRITE, 0, 0, 0));
  ASSERT_TRUE(view);
  HANDLE second = nullptr, third = nullptr, unset = nullptr;
  EXPECT_FALSE(DuplicateHandle(self, first, self, &unset, 0, FALSE, 0));
  ASSERT_TRUE(DuplicateHandle(self, first, self, &second, 0, FALSE, DUPLICATE_SAME_ACCESS));
  CloseHandle(first);
  for (const auto allowed : {qn::ProcessAccess::kFull, qn::ProcessAccess::kSocket}) {
    qn::SetProcessAccess(allowed);
    for (const HANDLE process : {self, owner}) {
      EXPECT_FALSE(DuplicateHandle(process, first, self, &unset, 0, FALSE, DUPLICATE_SAME_ACCESS));
      EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
      ASSERT_TRUE(DuplicateHandle(process, second, self, &third, 0, FALSE, DUPLICATE_SAME_ACCESS));
      auto* const other = static_cast<char*>(MapViewOfFile(third, FILE_MAP_READ, 0, 0, 0));
      CloseHandle(third);
      view[4999] += 5;
      EXPECT_EQ(other[4999], view[4999]);
      UnmapViewOfFile(other);
    }
#ifdef __SANITIZE_THREAD__
    continue;  // it lets no fork start a thread
#endif
    // A fork has the handles of before, and answers for what it makes itself.
    const Child child([&] {
      const HANDLE made = MakeShared(10);
      static_cast<char*>(MapViewOfFile(made, FILE_MAP_WRITE, 0, 0, 0))[0] = 7;
      return reinterpret_cast<uintptr_t>(made);
    });
    const HANDLE process = OpenProcess(PROCESS_DUP_HANDLE, FALSE, static_cast<DWORD>(child.id));
    const auto made = reinterpret_cast<HANDLE>(child.value);
    ASSERT_TRUE(DuplicateHandle(process, made, self, &third, 0, FALSE, DUPLICATE_SAME_ACCESS));
    auto* const other = static_cast<char*>(MapViewOfFile(third, FILE_MAP_READ, 0, 0, 10));
    EXPECT_EQ(other[0], 7);
    UnmapViewOfFile(other);
    CloseHandle(third);
    CloseHandle(process);
  }
  qn::SetProcessAccess(qn::ProcessAccess::kFull);
  // What only looks like the mapping of a handle: memory that its owner may cut.
  const HANDLE guess = reinterpret_cast<HANDLE>(uintptr_t{0x12345678} << 8);
  const int bait = memfd_create("qnkernel-mapping", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  EXPECT_EQ(ftruncate(bait, 5000), 0);
  lseek(bait, qn::MarkOf(guess), SEEK_SET);
  EXPECT_FALSE(DuplicateHandle(owner, guess, self, &unset, 0, FALSE, DUPLICATE_SAME_ACCESS));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  close(bait);
  EXPECT_EQ(unset, nullptr);
  CloseHandle(owner);
  CloseHandle(second);
  UnmapViewOfFile(view);
}

TEST(Process, TheServingThreadComesAndGoesWithMappings) {
  const auto count = [](const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
  };
  const auto threads = count("/proc/self/task"), descriptors = count("/proc/self/fd");
  const HANDLE process = OpenProcess(PROCESS_DUP_HANDLE, FALSE, GetCurrentProcessId());
  const HANDLE first = MakeShared(1), second = MakeShared(1);
  EXPECT_EQ(count("/proc/self/task"), threads + 1);
  CloseHandle(first);
  EXPECT_EQ(count("/proc/self/task"), threads + 1);
  CloseHandle(second);
  EXPECT_EQ(count("/proc/self/task"), threads);
  // Handles that end while they are asked for.
  qn::SetProcessAccess(qn::ProcessAccess::kSocket);
  std::vector<std::thread> workers;
  for (int i = 0; i < 4; ++i) {
    workers.emplace_back([&] {
      for (int round = 0; round < 100; ++round) {
        const HANDLE made = MakeShared(100);
        std::thread closer([=] { CloseHandle(made); });
        HANDLE taken = nullptr;
        if (DuplicateHandle(process, made, GetCurrentProcess(), &taken, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
          CloseHandle(taken);
        }
        closer.join();
      }
    });
  }
  for (std::thread& worker : workers) worker.join();
  qn::SetProcessAccess(qn::ProcessAccess::kFull);
  CloseHandle(MakeShared(1));
  CloseHandle(process);
  EXPECT_EQ(count("/proc/self/task"), threads);
  EXPECT_EQ(count("/proc/self/fd"), descriptors);
}

}  // namespace
