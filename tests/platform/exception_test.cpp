#include "qn/platform/exception.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cfenv>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <vector>

#include "qn/platform/memory.h"
#include "qn/platform/module.h"
#include "qn/platform/text.h"

namespace {

volatile uint8_t* Map(int protection, int flags = MAP_PRIVATE | MAP_ANONYMOUS, int file = -1) {
  return static_cast<volatile uint8_t*>(mmap(nullptr, 4096, protection, flags, file, 0));
}
const auto noRights = Map(PROT_NONE), readOnly = Map(PROT_READ);
const auto emptyFile = Map(PROT_READ, MAP_SHARED, fileno(tmpfile()));

uintptr_t AddressOf(const volatile void* place) {
  return reinterpret_cast<uintptr_t>(place);
}
void Fail(void* = nullptr) {
  readOnly[16] = 1;
}
__attribute__((noinline)) int Overflow(volatile int* outer) {
  volatile int room[100];
  room[0] = outer ? *outer + 1 : 0;
  return room[0] < 0 ? 0 : Overflow(room) + room[0];
}
#if defined(__x86_64__)
void FailMisaligned(void*) {
  asm volatile("pushfq; orl $0x40000, (%%rsp); popfq; movl (%0), %%eax" ::"r"(readOnly + 1)
               : "eax", "memory");
}
#endif
template <int kException>
void FailInFloat(void*) {
  feenableexcept(kException);
  feraiseexcept(kException);
}

LONG Store(EXCEPTION_POINTERS* pointers, void* record) {
  *static_cast<EXCEPTION_RECORD*>(record) = *pointers->ExceptionRecord;
  return EXCEPTION_EXECUTE_HANDLER;
}

TEST(Exception, IsDescribedAndHandledWhereItFails) {
  constexpr uintptr_t kAny = 1;
  const struct {
    DWORD code;
    uintptr_t isWrite, address;
    void (*body)(void*);
  } kRows[] = {
    {EXCEPTION_ACCESS_VIOLATION, 0, AddressOf(noRights + 8), [](void*) { (void)noRights[8]; }},
    {EXCEPTION_ACCESS_VIOLATION, 1, AddressOf(readOnly + 16), Fail},
    {EXCEPTION_IN_PAGE_ERROR, 0, AddressOf(emptyFile), [](void*) { (void)*emptyFile; }},
    {EXCEPTION_STACK_OVERFLOW, 1, kAny, [](void*) { Overflow(nullptr); }},
#if defined(__x86_64__)
    {EXCEPTION_ACCESS_VIOLATION, 0, UINTPTR_MAX, [](void*) { asm("hlt"); }},
    {EXCEPTION_DATATYPE_MISALIGNMENT, 0, UINTPTR_MAX, FailMisaligned},
    {EXCEPTION_ILLEGAL_INSTRUCTION, 0, 0, [](void*) { asm("ud2"); }},
    {EXCEPTION_BREAKPOINT, 0, 0, [](void*) { asm("int3"); }},
    {EXCEPTION_SINGLE_STEP, 0, 0, [](void*) { asm("pushfq; orl $256, (%rsp); popfq; nop"); }},
    {EXCEPTION_INT_DIVIDE_BY_ZERO, 0, 0,
     [](void*) {
       asm("xorl %%eax, %%eax; divl %%eax" ::: "eax", "edx");
     }},
    {EXCEPTION_FLT_DIVIDE_BY_ZERO, 0, 0, FailInFloat<FE_DIVBYZERO>},
    {EXCEPTION_FLT_INVALID_OPERATION, 0, 0, FailInFloat<FE_INVALID>},
    {EXCEPTION_FLT_OVERFLOW, 0, 0, FailInFloat<FE_OVERFLOW>},
    {EXCEPTION_FLT_UNDERFLOW, 0, 0, FailInFloat<FE_UNDERFLOW>},
    {EXCEPTION_FLT_INEXACT_RESULT, 0, 0, FailInFloat<FE_INEXACT>},
#endif
  };
  struct sigaction before, after;
  stack_t stackBefore, stackAfter;
  sigaction(SIGSEGV, nullptr, &before);
  sigaltstack(nullptr, &stackBefore);
  for (const auto& row : kRows) {
    SCOPED_TRACE(&row - kRows);
    EXCEPTION_RECORD record = {};
    EXPECT_FALSE(CallWithExceptionFilter(row.body, nullptr, Store, &record));
    fesetenv(FE_DFL_ENV);
    EXPECT_EQ(record.ExceptionCode, row.code);
    EXPECT_EQ(record.NumberParameters, row.address ? 2u : 0u);
    EXPECT_EQ(record.ExceptionInformation[0], row.isWrite);
    EXPECT_TRUE(row.address == kAny || record.ExceptionInformation[1] == row.address);
    const auto instruction = *static_cast<const uint8_t*>(record.ExceptionAddress);
    EXPECT_TRUE(row.code != EXCEPTION_BREAKPOINT || instruction == 0xCC);
  }
  sigaction(SIGSEGV, nullptr, &after);
  EXPECT_EQ(after.sa_handler, before.sa_handler);
  sigaltstack(nullptr, &stackAfter);
  EXPECT_EQ(stackAfter.ss_sp, stackBefore.ss_sp);
  EXPECT_THROW(CallWithExceptionFilter([](void*) { throw 1; }, nullptr, Store, nullptr), int);
  EXPECT_FALSE(CallWithExceptionFilter(nullptr, nullptr, Store, nullptr));
  EXPECT_FALSE(CallWithExceptionFilter(Fail, nullptr, nullptr, nullptr));
}

// A child process tells each event by a letter: a filter by its answer (s, e; c: it makes the page writable;
// f: it fails), that of the process by a capital, an overflow by O before, a handler of the host's by h, and
// a good end by a full stop.
int toParent;
void Tell(char letter) {
  (void)!write(toParent, &letter, 1);
}
LONG Answer(EXCEPTION_POINTERS*, void* data) {
  const char letter = *static_cast<const char*>(data);
  Tell(letter);
  errno = EBUSY, SetLastError(ERROR_BUSY);
  if (letter == 'f') Fail();
  if (letter == 'c') mprotect(const_cast<uint8_t*>(readOnly), 4096, PROT_READ | PROT_WRITE);
  return letter == 'e' ? EXCEPTION_EXECUTE_HANDLER : letter == 'c' ? EXCEPTION_CONTINUE_EXECUTION : 0;
}
template <LONG kAnswer>
LONG AnswerLast(EXCEPTION_POINTERS* pointers) {
  volatile char room[128 << 10];  // which a filter has
  room[0] = kAnswer ? 'E' : 'S';
  if (pointers->ExceptionRecord->ExceptionCode == EXCEPTION_STACK_OVERFLOW) Tell('O');
  Tell(room[0]);
  return kAnswer;
}

struct Scenario {
  char handler;         // one from before: h returns, r resets itself, f fails
  const char* filters;  // from the outermost inwards, the process's capital
  void (*body)(void*);
  int end;  // minus the signal, or the exit code
  const char* told;
};

void Nest(void* data) {
  Scenario inner = *static_cast<Scenario*>(data);
  char letter = *inner.filters++;
  if (letter == 0) return inner.body(nullptr);
  if (letter >= 'a') return (void)CallWithExceptionFilter(Nest, &inner, Answer, &letter);
  SetUnhandledExceptionFilter(letter == 'E' ? AnswerLast<1> : AnswerLast<0>);
  Nest(&inner);
}

void RunScenario(Scenario scenario) {
  const rlimit noCore = {0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  alarm(60);
  for (const int number : {SIGSEGV, SIGTRAP}) signal(number, SIG_DFL);
  struct sigaction action = {};
  action.sa_handler = [](int) { Tell('h'); };
  if (scenario.handler == 'f') action.sa_handler = [](int) { Tell('h'), Fail(); };
  if (scenario.handler == 'r') action.sa_flags = static_cast<int>(SA_RESETHAND);
  if (scenario.handler) sigaction(SIGSEGV, &action, nullptr);
  Nest(&scenario);
  Tell('.');
  _exit(0);
}

void FailWithoutFilter(void*) {
  SetUnhandledExceptionFilter(nullptr);
  Fail();
}

LONG Locate(EXCEPTION_POINTERS* pointers, void* page) {
  MEMORY_BASIC_INFORMATION own, code;
  char path[4096];
  const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
  const bool isFound = VirtualQuery(page, &own, sizeof(own)) &&
                       VirtualQuery(record.ExceptionAddress, &code, sizeof(code)) &&
                       GetModuleFileNameA(static_cast<HMODULE>(code.AllocationBase), path, sizeof(path));
  close(toParent);  // a sanitizer needs a descriptor to end
  _exit(isFound ? static_cast<uint8_t>(record.ExceptionCode) : 0);
}

// Without a descriptor, in a fork and then here, each with memory that the other has not.
void FailWithoutDescriptors(void*) {
  const rlimit few = {64, 64};
  setrlimit(RLIMIT_NOFILE, &few);
  while (dup(toParent) >= 0) continue;
  int status = 5 << 8;
  if (const pid_t child = fork(); child != 0) waitpid(child, &status, 0);
  void* const page = const_cast<uint8_t*>(Map(PROT_READ, MAP_SHARED | MAP_ANONYMOUS));
  if (status == 5 << 8) CallWithExceptionFilter(Fail, nullptr, Locate, page);
}

void BeTraced(void*) {
  if (!IsDebuggerPresent() && ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0)
    _exit(3 + IsDebuggerPresent());
}

// Fails where a signal finds no more than 8 KiB, above a page that nothing may use.
template <auto kFail>
void OnSmallStack(void*) {
  auto* const memory = static_cast<uint8_t*>(
      mmap(nullptr, 3 * 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  mprotect(memory, 4096, PROT_NONE);
  stack_t small = {};
  small.ss_sp = memory + 4096;
  small.ss_size = 2 * 4096;
  sigaltstack(&small, nullptr);
  kFail(nullptr);
}

void FailInSmallThread(void*) {
  pthread_attr_t small;
  pthread_t thread;
  pthread_attr_init(&small);
  pthread_attr_setstacksize(&small, 24 << 10);
  pthread_create(
      &thread, &small, [](void*) -> void* { return Fail(), nullptr; }, nullptr);
  pthread_join(thread, nullptr);
}

// In a sandbox that refuses the way by which memory is asked for first.
void ReadInSandbox(void*) {
  sock_filter rules[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                         BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_process_vm_readv, 0, 1),
                         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
                         BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog program = {4, rules};
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
  const auto isBad = [](volatile uint8_t* at, SIZE_T size) { return IsBadReadPtr((const void*)at, size); };
  _exit(isBad(noRights, 1) && !isBad(readOnly, 4096) && isBad(readOnly, SIZE_T{1} << 46) ? 5 : 6);
}

TEST(Exception, GoesOutwardsAndThenToWhatWasThereBefore) {
  const Scenario kRows[] = {
    {0, "es", Fail, 0, "se."},
    {0, "ess", Fail, 0, "sse."},
    {0, "ee", Fail, 0, "e."},
    {0, "ecs", Fail, 0, "sc."},
    {0, "ss", Fail, -SIGSEGV, "ss"},
    {0, "Ess", Fail, -SIGSEGV, "ssE"},
    {0, "ef", Fail, -SIGSEGV, "f"},
    {'r', "S", Fail, -SIGSEGV, "Sh"},
    {'f', "Ss", Fail, -SIGSEGV, "sSh"},
    {'h', "Ee", [](void*) { raise(SIGSEGV); }, 0, "h."},
    {0, "Ee", [](void*) { raise(SIGTRAP); }, -SIGTRAP, ""},
    {0, "E", [](void*) { std::thread(Fail, nullptr).join(); }, -SIGSEGV, "E"},
    {0, "E", [](void*) { Overflow(nullptr); }, -SIGSEGV, "OE"},
    {0, "E", FailWithoutFilter, -SIGSEGV, ""},
    {0, "", BeTraced, 4, ""},
    {0, "E", OnSmallStack<Fail>, -SIGSEGV, "E"},
    {0, "E", OnSmallStack<Overflow>, -SIGSEGV, "OE"},
    {0, "ees", OnSmallStack<Fail>, 0, "se."},
    {0, "E", FailInSmallThread, -SIGSEGV, "E"},
    {0, "", ReadInSandbox, 5, ""},
    {0, "ec", [](void*) { errno = 1, SetLastError(4), Fail(), _exit(errno + (int)GetLastError()); }, 5, "c"},
    {0, "E", FailWithoutDescriptors, 5, ""},
#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__)  // which blocks all signals in a handler
    {0, "S", [](void*) { asm("int3"); }, -SIGTRAP, "S"},
    {0, "E", FailMisaligned, -SIGBUS, "E"},
    {0, "f", FailMisaligned, -SIGBUS, "f"},
#endif
  };
  for (const Scenario& row : kRows) {
    SCOPED_TRACE(&row - kRows);
    int ends[2], status;
    ASSERT_EQ(pipe(ends), 0);
    toParent = ends[1];
    const pid_t child = fork();
    if (child == 0) RunScenario(row);
    close(ends[1]);
    std::string told;
    for (char letter; read(ends[0], &letter, 1) == 1;) told += letter;
    close(ends[0]);
    waitpid(child, &status, 0);
    EXPECT_EQ(WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status), row.end);
    EXPECT_EQ(told, row.told);
  }
}

TEST(Exception, AddressesLeadToTheirModule) {
  MEMORY_BASIC_INFORMATION information;
  WCHAR wide[4096];
  char path[4096];
  for (const uintptr_t address :
       {reinterpret_cast<uintptr_t>(&Fail), reinterpret_cast<uintptr_t>(&std::exit)}) {
    const HMODULE module = ModuleFromAddress(reinterpret_cast<const void*>(address));
    ASSERT_EQ(VirtualQuery(reinterpret_cast<const void*>(address), &information, sizeof(information)),
              sizeof(information));
    EXPECT_LT(address - AddressOf(information.BaseAddress), information.RegionSize);
    EXPECT_EQ(information.AllocationBase, module);
    const DWORD length = GetModuleFileNameA(module, path, sizeof(path));
    const std::string whole(path);
    EXPECT_EQ(whole.size(), length);
    GetModuleFileNameW(module, wide, 4096);
    EXPECT_TRUE(std::filesystem::equivalent(qn::PathToNative(qn::FromUtf8(whole)), qn::PathToNative(wide)));
    EXPECT_EQ(GetModuleFileNameA(module, path, length), length);
    EXPECT_EQ(whole.substr(0, length - 1), path);
  }
  EXPECT_EQ(VirtualQuery(nullptr, &information, sizeof(information)), 0u);
  EXPECT_EQ(VirtualQuery(path, &information, sizeof(information) - 1), 0u);
  EXPECT_EQ(GetModuleFileNameA(reinterpret_cast<HMODULE>(path), path, 8), 0u);
  EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
}

TEST(Exception, TextsAreEncodedIntoTheRoomThereIs) {
  constexpr std::u16string_view kText = W("aä🎵");
  const std::string whole = qn::ToUtf8(kText);
  constexpr size_t kLengths[] = {0, 0, 1, 1, 3, 3, 3, 3, 7, 7};
  for (size_t size = 0; size < std::size(kLengths); ++size) {
    std::string room(12, '#');
    EXPECT_EQ(qn::ToUtf8(kText, room.data(), size), kLengths[size]);
    EXPECT_EQ(room.substr(size), std::string(12 - size, '#'));
    EXPECT_EQ(room.substr(0, kLengths[size]), whole.substr(0, kLengths[size]));
  }
}

}  // namespace
