#include "qn/platform/process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <thread>
#include <vector>

#include "qn/platform/file.h"
#include "qn/platform/mapping_object_internal.h"
#include "qn/platform/wait.h"
#include "tests/support/support.h"

namespace {

HANDLE MakeShared(DWORD bytes) {
  return CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, bytes, nullptr);
}

bool Duplicate(HANDLE process, HANDLE source, HANDLE* target) {
  return DuplicateHandle(process, source, GetCurrentProcess(), target, 0, FALSE, DUPLICATE_SAME_ACCESS);
}

// Between the test and its forks.
HANDLE* const g_shared = static_cast<HANDLE*>(
    mmap(nullptr, sizeof(HANDLE), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

// A fork that works, until `*g_shared` is set, and then waits to be killed.
template <class Work>
pid_t Fork(Work work) {
  *g_shared = nullptr;
  const pid_t id = fork();
  if (id == 0) {
    work();
    for (;;) pause();
  }
  for (auto* const value = reinterpret_cast<volatile HANDLE*>(g_shared); !*value;) usleep(100);
  return id;
}

#ifdef __SANITIZE_ADDRESS__
constexpr bool kHasAddressSanitizer = true;
#else
constexpr bool kHasAddressSanitizer = false;
#endif

// Sets how many descriptors there can be, and gives how many there could be before. Checks of types need
// some.
rlim_t AllowDescriptors(rlim_t most) {
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  if (kHasAddressSanitizer) return limit.rlim_cur;
  std::swap(limit.rlim_cur, most);
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  return most;
}

// A socket at the first address of a process, by `bind` or `connect`.
int SocketAt(pid_t process, int (*join)(int, const sockaddr*, socklen_t)) {
  sockaddr_un name = {AF_UNIX, {}};
  std::snprintf(name.sun_path + 1, sizeof name.sun_path - 1, "qnkernel-mapping/%d/0", process);
  const size_t length = offsetof(sockaddr_un, sun_path) + 1 + std::strlen(name.sun_path + 1);
  const int end = socket(AF_UNIX, SOCK_SEQPACKET, 0);
  EXPECT_EQ(join(end, reinterpret_cast<sockaddr*>(&name), static_cast<socklen_t>(length)), 0);
  return end;
}

TEST(Process, MemoryComesWholeOrWithItsCount) {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  auto* const memory =
      static_cast<char*>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  mprotect(memory + page, page, PROT_NONE);
  const pid_t child = Fork([&] { *g_shared = std::strcpy(memory + page - 4, "abc"); });
  const HANDLE other = OpenProcess(PROCESS_VM_READ, FALSE, static_cast<DWORD>(child));
  std::memcpy(memory + page - 4, "own", 4);
  char bytes[16] = {};
  for (const HANDLE process : {other, GetCurrentProcess()}) {
    SIZE_T moved = 99;
    EXPECT_TRUE(ReadProcessMemory(process, memory + page - 4, bytes, 4, &moved) && moved == 4);
    EXPECT_STREQ(bytes, process == other ? "abc" : "own");
    EXPECT_TRUE(!ReadProcessMemory(process, memory + page - 4, bytes, 8, &moved) && moved == 4);
    EXPECT_EQ(GetLastError(), ERROR_PARTIAL_COPY);
    EXPECT_TRUE(!WriteProcessMemory(process, memory + page - 1, "xy", 2, &moved) && moved == 1);
    EXPECT_TRUE(ReadProcessMemory(process, memory + page - 1, bytes, 1, nullptr) && bytes[0] == 'x');
  }
  kill(child, SIGKILL);
  EXPECT_EQ(WaitForSingleObject(other, 10'000), WAIT_OBJECT_0);
  const rlim_t before = AllowDescriptors(3);
  HANDLE none;
  EXPECT_TRUE(!Duplicate(other, other, &none) && GetLastError() == ERROR_INVALID_HANDLE);
  AllowDescriptors(before);
  EXPECT_TRUE(!ReadProcessMemory(other, memory, bytes, 1, nullptr) && GetLastError() == ERROR_PARTIAL_COPY);
  for (const DWORD id : {DWORD{0}, static_cast<DWORD>(child), DWORD{0x7FFFFFFF}, DWORD{0xFFFFFFFF}}) {
    EXPECT_TRUE(!OpenProcess(PROCESS_VM_READ, FALSE, id) && GetLastError() == ERROR_INVALID_PARAMETER);
  }
  waitpid(child, nullptr, 0);
  CloseHandle(other);
  EXPECT_TRUE(!ReadProcessMemory(other, memory, bytes, 1, nullptr) && GetLastError() == ERROR_INVALID_HANDLE);
  munmap(memory, 2 * page);
}

TEST(Process, MappingsAreDuplicatedWithinAProcessAndFromForks) {
  EXPECT_TRUE(!MakeShared(0) && GetLastError() == ERROR_INVALID_PARAMETER);
  const HANDLE first = MakeShared(5000), self = GetCurrentProcess();
  const HANDLE owner = OpenProcess(PROCESS_DUP_HANDLE, FALSE, GetCurrentProcessId());
  EXPECT_EQ(MapViewOfFile(first, FILE_MAP_READ, 0, 0, 5001), nullptr);
  auto* const view = static_cast<HANDLE*>(MapViewOfFile(first, FILE_MAP_WRITE, 0, 0, 0));
  HANDLE second = nullptr, third = nullptr;
  ASSERT_TRUE(view && Duplicate(self, first, &second));
  CloseHandle(first);
  for (const auto allowed : {qn::ProcessAccess::kFull, qn::ProcessAccess::kSocket}) {
    qn::SetProcessAccess(allowed);
    std::vector<HANDLE> processes = {self, owner};
    pid_t child = 0;
#ifndef __SANITIZE_THREAD__  // it lets no fork start a thread
    // Forks at any moment, of a host that closes what it does not know.
    std::atomic<bool> isOver = kHasAddressSanitizer;  // whose allocator does not come through all forks
    std::thread mapper([&] {
      while (!isOver) UnmapViewOfFile(MapViewOfFile(second, FILE_MAP_READ, 0, 0, 0));
    });
    for (int round = 0; round < 30 && !HasFailure(); ++round) {
      if (fork() == 0) {
        alarm(10);
        const HANDLE made = MakeShared(1);
        const void* const mapped = MapViewOfFile(made, FILE_MAP_READ, 0, 0, 0);
        for (int i = 3; i < 100; ++i) close(i);
        _exit(!mapped || !CloseHandle(made));
      }
      int status = -1;
      EXPECT_TRUE(wait(&status) > 0 && status == 0);
    }
    isOver = true;
    mapper.join();
    // A fork answers for what it makes itself, and has the handles of before.
    child = Fork([] { *g_shared = MakeShared(5000); });
    processes.push_back(OpenProcess(PROCESS_DUP_HANDLE, FALSE, static_cast<DWORD>(child)));
    // It comes over with enough descriptors here, or not at all.
    const rlim_t before = AllowDescriptors(3);
    for (rlim_t most = 4; !Duplicate(processes[2], *g_shared, &third) && most < before;
         AllowDescriptors(most++))
      EXPECT_EQ(GetLastError(), ERROR_TOO_MANY_OPEN_FILES);
    AllowDescriptors(before);
    CloseHandle(third);
    EXPECT_FALSE(Duplicate(owner, *g_shared, &third));
#endif
    for (const HANDLE process : processes) {
      EXPECT_TRUE(!Duplicate(process, first, &third) && GetLastError() == ERROR_INVALID_HANDLE);
      ASSERT_TRUE(Duplicate(process, second, &third));
      auto* const other = static_cast<HANDLE*>(MapViewOfFile(third, FILE_MAP_READ, 0, 0, 0));
      CloseHandle(third);
      *view = process;
      EXPECT_EQ(*other, process);
      UnmapViewOfFile(other);
      if (process != self && process != owner) CloseHandle(process);
    }
    if (child > 0) kill(child, SIGKILL), waitpid(child, nullptr, 0);
  }
  qn::SetProcessAccess(qn::ProcessAccess::kFull);
  // What only looks like the mapping of a handle: memory that its owner may cut.
  const HANDLE guess = reinterpret_cast<HANDLE>(uintptr_t{0x12345678} << 8);
  const int bait = memfd_create("qnkernel-mapping", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  EXPECT_TRUE(ftruncate(bait, 5000) == 0 && lseek(bait, qn::MarkOf(guess), SEEK_SET) > 0);
  EXPECT_TRUE(!Duplicate(owner, guess, &third) && GetLastError() == ERROR_INVALID_HANDLE);
  close(bait);
  for (const HANDLE handle : {owner, second}) CloseHandle(handle);
  UnmapViewOfFile(view);
}

TEST(Process, TheServingThreadComesAndGoesWithMappings) {
  const auto count = [](const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
  };
  const auto closeSockets = [] {
    struct stat info;
    for (int i = 3; i < 100; ++i) {
      if (fstat(i, &info) == 0 && S_ISSOCK(info.st_mode)) close(i);
    }
  };
  closeSockets();  // that came from outside
  // With the first thread comes one of the thread sanitizer's own. One that has ended is listed for a moment.
  ptrdiff_t threads = 0;
  std::thread([&] { threads = count("/proc/self/task") - 1; }).join();
  const auto hasEnded = [&] {
    for (int tries = 0; tries < 1000 && count("/proc/self/task") != threads; ++tries) usleep(10'000);
    return count("/proc/self/task") == threads;
  };
  EXPECT_TRUE(hasEnded());
  const auto descriptors = count("/proc/self/fd");
  const HANDLE process = OpenProcess(PROCESS_DUP_HANDLE, FALSE, GetCurrentProcessId());
  for (const HANDLE made : {MakeShared(1), MakeShared(1)}) {
    EXPECT_EQ(count("/proc/self/task"), threads + 1);
    CloseHandle(made);
  }
  EXPECT_TRUE(hasEnded());
  qn::SetProcessAccess(qn::ProcessAccess::kSocket);
  HANDLE copy = nullptr;
  // Nobody is asked who listens in the place of another process, nor another user than oneself and root.
  const pid_t child =
      Fork([owner = getpid()] { *g_shared = listen(SocketAt(owner, bind), 9) == 0 ? g_shared : nullptr; });
  EXPECT_TRUE(!Duplicate(process, process, &copy) && GetLastError() == ERROR_ACCESS_DENIED);
  kill(child, SIGKILL), waitpid(child, nullptr, 0);
  if (geteuid() == 0) {  // which can be another user
    EXPECT_EQ(seteuid(65533), 0);
    const int stranger = SocketAt(getpid(), bind);
    EXPECT_EQ(listen(stranger, 9) | seteuid(0) | seteuid(65534), 0);
    EXPECT_TRUE(!Duplicate(process, process, &copy) && GetLastError() == ERROR_ACCESS_DENIED);
    EXPECT_EQ(seteuid(0) | close(stranger), 0);
  }
  // Somebody has the first address and takes nobody in.
  const int squatter = SocketAt(getpid(), bind);
  EXPECT_EQ(listen(squatter, 0), 0);
  const int other = SocketAt(getpid(), connect);
  const HANDLE shared = MakeShared(100);
  EXPECT_TRUE(Duplicate(process, shared, &copy) && CloseHandle(copy));
  // By now the thread has all signals blocked but those of instructions that fail.
  EXPECT_EQ(qntest::RunCommand("grep -q 'SigBlk:.*fffffffe3ffbfa27' /proc/$PPID/task/*/status"), 0);
  for (const int end : {squatter, other}) close(end);
    // A host closes what it does not know: a new mapping is served at once, and that of before in time.
#ifndef __SANITIZE_THREAD__  // it takes a look at a number that may be another file by now for a race
  closeSockets();
  const HANDLE fresh = MakeShared(1);
  EXPECT_TRUE(Duplicate(process, fresh, &copy) && CloseHandle(copy) && CloseHandle(fresh));
  closeSockets();
#endif
  for (int tries = 0; !Duplicate(process, shared, &copy); usleep(10'000)) ASSERT_LT(++tries, 1000);
  EXPECT_TRUE(CloseHandle(copy) && CloseHandle(shared));
  // Handles that end while they are asked for.
  std::vector<std::thread> workers;
  for (int i = 0; i < 4; ++i) {
    workers.emplace_back([&] {
      for (int round = 0; round < 100; ++round) {
        const HANDLE made = MakeShared(100);
        std::thread closer([=] { CloseHandle(made); });
        HANDLE taken = nullptr;
        if (Duplicate(process, made, &taken)) CloseHandle(taken);
        closer.join();
      }
    });
  }
  for (std::thread& worker : workers) worker.join();
  qn::SetProcessAccess(qn::ProcessAccess::kFull);
  CloseHandle(process);
  EXPECT_TRUE(hasEnded());
  EXPECT_EQ(count("/proc/self/fd"), descriptors);
}

}  // namespace
