#include "qn/platform/exception.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cfenv>
#include <cfloat>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <vector>

#include "qn/platform/module.h"

namespace {

void* Map(int protection) {
  return mmap(nullptr, 4096, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
}
const auto noRights = static_cast<volatile uint8_t*>(Map(PROT_NONE));
const auto readOnly = static_cast<volatile uint8_t*>(Map(PROT_READ));

void Fail(void* = nullptr) {
  readOnly[16] = 1;
}

__attribute__((noinline)) int Overflow(volatile int* outer) {
  volatile int room[100];
  room[0] = outer ? *outer + 1 : 0;
  return room[0] < 0 ? 0 : Overflow(room) + room[0];
}

template <int kException>
void FailInFloat(void*) {
  [[maybe_unused]] volatile double one = 1, zero = 0, big = DBL_MAX, tiny = DBL_MIN, result;
  feenableexcept(kException);
  if (kException == FE_DIVBYZERO) result = one / zero;
  if (kException == FE_INVALID) result = zero / zero;
  if (kException == FE_OVERFLOW) result = big * big;
  if (kException == FE_UNDERFLOW) result = tiny * tiny;
  if (kException == FE_INEXACT) result = one / (one + one + one);
}

LONG Store(EXCEPTION_POINTERS* pointers, void* record) {
  *static_cast<EXCEPTION_RECORD*>(record) = *pointers->ExceptionRecord;
  return EXCEPTION_EXECUTE_HANDLER;
}

struct Actions {
  struct sigaction rows[5];
  Actions() {
    int i = 0;
    for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP})
      sigaction(signal, nullptr, &rows[i++]);
  }
  bool operator==(const Actions& other) const {
    // The system marks flags that were set once.
    return std::equal(rows, rows + 5, other.rows,
                      [](const auto& a, const auto& b) { return a.sa_handler == b.sa_handler; });
  }
};

TEST(Exception, IsDescribedAndHandledWhereItFails) {
  const auto address = [](const volatile uint8_t* byte) { return reinterpret_cast<uintptr_t>(byte); };
  constexpr uintptr_t kAny = 1;
  const struct {
    void (*body)(void*);
    DWORD code, parameters;
    uintptr_t isWrite, address;
  } kRows[] = {
    {[](void*) { (void)noRights[8]; }, EXCEPTION_ACCESS_VIOLATION, 2, 0, address(noRights + 8)},
    {Fail, EXCEPTION_ACCESS_VIOLATION, 2, 1, address(readOnly + 16)},
    {[](void*) {
       FILE* const file = tmpfile();
       (void)*static_cast<volatile char*>(mmap(nullptr, 1, PROT_READ, MAP_SHARED, fileno(file), 0));
     },
     EXCEPTION_IN_PAGE_ERROR, 2, 0, kAny},
    {[](void*) { Overflow(nullptr); }, EXCEPTION_STACK_OVERFLOW, 2, 1, kAny},
#if defined(__x86_64__)
    {[](void*) { asm("hlt"); }, EXCEPTION_ACCESS_VIOLATION, 2, 0, UINTPTR_MAX},
    {[](void*) { asm("ud2"); }, EXCEPTION_ILLEGAL_INSTRUCTION, 0, 0, 0},
    {[](void*) { asm("int3"); }, EXCEPTION_BREAKPOINT, 0, 0, 0},
    {[](void*) { asm("pushfq; orl $256, (%rsp); popfq; nop"); }, EXCEPTION_SINGLE_STEP, 0, 0, 0},
    {[](void*) {
       asm volatile("xorl %%ecx, %%ecx; divl %%ecx" ::: "eax", "ecx", "edx");
     },
     EXCEPTION_INT_DIVIDE_BY_ZERO, 0, 0, 0},
    {FailInFloat<FE_DIVBYZERO>, EXCEPTION_FLT_DIVIDE_BY_ZERO, 0, 0, 0},
    {FailInFloat<FE_INVALID>, EXCEPTION_FLT_INVALID_OPERATION, 0, 0, 0},
    {FailInFloat<FE_OVERFLOW>, EXCEPTION_FLT_OVERFLOW, 0, 0, 0},
    {FailInFloat<FE_UNDERFLOW>, EXCEPTION_FLT_UNDERFLOW, 0, 0, 0},
    {FailInFloat<FE_INEXACT>, EXCEPTION_FLT_INEXACT_RESULT, 0, 0, 0},
#endif
  };
  const Actions before;
  stack_t stackBefore, stackAfter;
  sigaltstack(nullptr, &stackBefore);
  for (const auto& row : kRows) {
    SCOPED_TRACE(&row - kRows);
    EXCEPTION_RECORD record = {};
    EXPECT_FALSE(CallWithExceptionFilter(row.body, nullptr, Store, &record));
    feclearexcept(FE_ALL_EXCEPT);
    fedisableexcept(FE_ALL_EXCEPT);
    EXPECT_EQ(record.ExceptionCode, row.code);
    EXPECT_EQ(record.NumberParameters, row.parameters);
    EXPECT_EQ(record.ExceptionInformation[0], row.isWrite);
    EXPECT_TRUE(row.address == kAny || record.ExceptionInformation[1] == row.address);
    EXPECT_EQ(ModuleFromAddress(record.ExceptionAddress), GetModuleHandleW(nullptr));
    const auto instruction = *static_cast<const uint8_t*>(record.ExceptionAddress);
    EXPECT_TRUE(row.code != EXCEPTION_BREAKPOINT || instruction == 0xCC);
  }
  EXPECT_TRUE(Actions() == before);
  sigaltstack(nullptr, &stackAfter);
  EXPECT_EQ(stackAfter.ss_sp, stackBefore.ss_sp);
}

TEST(Exception, FiltersOfNestedCallsAreAskedOutwards) {
  const auto decline = [](EXCEPTION_POINTERS*, void*) -> LONG { return EXCEPTION_CONTINUE_SEARCH; };
  const auto repair = [](EXCEPTION_POINTERS* pointers, void* page) -> LONG {
    EXPECT_NE(pointers->ContextRecord, nullptr);
    mprotect(page, 4096, PROT_READ | PROT_WRITE);
    return EXCEPTION_CONTINUE_EXECUTION;
  };
  const Actions before;
  sigset_t mask, empty;
  for (int i = 0; i < 3; ++i) {
    // The inner call ends with the body of the one that handles, and the next in that body is whole again.
    EXCEPTION_RECORD inner = {}, outer = {};
    std::pair<decltype(inner)*, EXCEPTION_FILTER> data(&inner, decline);
    const auto body = [](void* argument) {
      const auto& [record, filter] = *static_cast<decltype(data)*>(argument);
      EXPECT_FALSE(CallWithExceptionFilter(Fail, nullptr, Store, record));
      CallWithExceptionFilter(Fail, nullptr, filter, nullptr);
      ADD_FAILURE();
    };
    EXPECT_FALSE(CallWithExceptionFilter(body, &data, Store, &outer));
    EXPECT_EQ(inner.ExceptionAddress, outer.ExceptionAddress);
    EXPECT_TRUE(Actions() == before);
  }
  EXPECT_THROW(CallWithExceptionFilter([](void*) { throw 1; }, nullptr, decline, nullptr), int);
  EXPECT_FALSE(CallWithExceptionFilter(nullptr, nullptr, decline, nullptr));
  EXPECT_FALSE(CallWithExceptionFilter(Fail, nullptr, nullptr, nullptr));
  void* const page = Map(PROT_READ);
  const auto writeTo = [](void* byte) { *static_cast<volatile uint8_t*>(byte) = 9; };
  EXPECT_TRUE(CallWithExceptionFilter(writeTo, page, repair, page));
  EXPECT_EQ(*static_cast<uint8_t*>(page), 9);
  EXPECT_TRUE(Actions() == before);
  sigemptyset(&empty);
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  EXPECT_EQ(sigismember(&mask, SIGSEGV), 0);
}

TEST(Exception, ThreadsFailAtOnce) {
  std::vector<std::thread> threads;
  std::atomic<int> handled = 0;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int j = 0; j < 200; ++j) {
        EXCEPTION_RECORD record = {};
        handled += !CallWithExceptionFilter(Fail, nullptr, Store, &record);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(handled, 800);
}

// In a child process: what it tells, a letter an event.
int toParent;
void Tell(char letter) {
  (void)!write(toParent, &letter, 1);
}
template <LONG kAnswer>
LONG Tell(EXCEPTION_POINTERS*, void* letter) {
  Tell(*static_cast<const char*>(letter));
  return kAnswer;
}
template <LONG kAnswer>
LONG TellOfProcess(EXCEPTION_POINTERS* pointers) {
  Tell(pointers->ExceptionRecord->ExceptionCode == EXCEPTION_STACK_OVERFLOW ? 'O' : 'P');
  return kAnswer;
}
char letterA[] = "a", letterB[] = "b";

// Returns minus the signal that ended the child, or its exit code.
int RunChild(void (*body)(), std::string* told) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) {
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    for (const int number : {SIGSEGV, SIGTRAP}) ::signal(number, SIG_DFL);
    alarm(60);
    toParent = ends[1];
    body();
    _exit(0);
  }
  close(ends[1]);
  for (char letter; read(ends[0], &letter, 1) == 1;) *told += letter;
  close(ends[0]);
  int status;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

TEST(Exception, EndsTheProcessWhenNoFilterHandlesIt) {
  const struct {
    void (*body)();
    int end;
    const char* told;
  } kRows[] = {
    {[] { CallWithExceptionFilter(Fail, nullptr, Tell<0>, letterA); }, -SIGSEGV, "a"},
    {[] {
       SetUnhandledExceptionFilter(TellOfProcess<1>);
       const auto inner = [](void*) { CallWithExceptionFilter(Fail, nullptr, Tell<0>, letterA); };
       CallWithExceptionFilter(inner, nullptr, Tell<0>, letterB);
     },
     -SIGSEGV, "abP"},
    {[] {
       // What the filter of the process hands on goes to the handler before, once.
       struct sigaction action = {};
       action.sa_handler = [](int) { Tell('h'); };
       action.sa_flags = static_cast<int>(SA_RESETHAND);
       sigaction(SIGSEGV, &action, nullptr);
       SetUnhandledExceptionFilter(TellOfProcess<0>);
       Fail();
     },
     -SIGSEGV, "Ph"},
    {[] {
       ::signal(SIGSEGV, [](int) {
         Tell('h');
         readOnly[0] = 1;
       });
       SetUnhandledExceptionFilter(TellOfProcess<0>);
       Fail();
     },
     -SIGSEGV, "Ph"},
    {[] {
       ::signal(SIGSEGV, [](int) { Tell('h'); });
       CallWithExceptionFilter([](void*) { raise(SIGSEGV); }, nullptr, Tell<1>, letterA);
     },
     0, "h"},
    {[] { CallWithExceptionFilter([](void*) { raise(SIGTRAP); }, nullptr, Tell<1>, letterA); }, -SIGTRAP, ""},
    {[] {
       CallWithExceptionFilter([](void*) { __builtin_trap(); }, nullptr,
                               [](EXCEPTION_POINTERS*, void*) -> LONG {
                                 Tell('f');
                                 Fail();
                                 return 1;
                               },
                               nullptr);
     },
     -SIGSEGV, "f"},
#if defined(__x86_64__)
    {[] {
       SetUnhandledExceptionFilter(TellOfProcess<0>);
       asm("int3");
     },
     -SIGTRAP, "P"},
#endif
    {[] {
       SetUnhandledExceptionFilter(TellOfProcess<1>);
       std::thread([] { Fail(); }).join();
     },
     -SIGSEGV, "P"},
    {[] {
       SetUnhandledExceptionFilter(TellOfProcess<1>);
       Overflow(nullptr);
     },
     -SIGSEGV, "O"},
    {[] {
       std::thread([] { SetUnhandledExceptionFilter(TellOfProcess<1>); }).join();
       if (SetUnhandledExceptionFilter(nullptr) == TellOfProcess<1>) Tell('n');
       Fail();
     },
     -SIGSEGV, "n"},
    {[] {
       // A handler put over ours stays when the filter goes, and ours passes on.
       static struct sigaction ours, over = {};
       SetUnhandledExceptionFilter(TellOfProcess<1>);
       over.sa_sigaction = [](int signal, siginfo_t* info, void* context) {
         Tell('o');
         ours.sa_sigaction(signal, info, context);
       };
       over.sa_flags = SA_SIGINFO;
       sigaction(SIGSEGV, &over, &ours);
       SetUnhandledExceptionFilter(nullptr);
       CallWithExceptionFilter(Fail, nullptr, Tell<1>, letterA);
       Fail();
     },
     -SIGSEGV, "oao"},
    {[] {
       if (!IsDebuggerPresent() && ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0)
         _exit(3 + IsDebuggerPresent());
     },
     4, ""},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(&row - kRows);
    std::string told;
    EXPECT_EQ(RunChild(row.body, &told), row.end);
    EXPECT_EQ(told, row.told);
  }
}

TEST(Exception, AddressesLeadToTheirModule) {
  for (const void* const address :
       {reinterpret_cast<const void*>(&RunChild), static_cast<const void*>(letterA),
        reinterpret_cast<const void*>(&std::quick_exit)}) {
    MEMORY_BASIC_INFORMATION information;
    ASSERT_EQ(VirtualQuery(address, &information, sizeof(information)), sizeof(information));
    const auto place = static_cast<SIZE_T>(static_cast<const char*>(address) -
                                           static_cast<const char*>(information.BaseAddress));
    EXPECT_LT(place, information.RegionSize);
    const HMODULE module = ModuleFromAddress(address);
    EXPECT_EQ(information.AllocationBase, module);
    char path[4096], cut[10];
    const DWORD length = GetModuleFileNameA(module, path, sizeof(path));
    std::string native(path);
    ASSERT_EQ(native.size(), length);
    EXPECT_EQ(native[0], '\\');
    EXPECT_EQ(GetModuleFileNameA(module, cut, sizeof(cut)), sizeof(cut));
    EXPECT_EQ(native.substr(0, 9), cut);
    std::replace(native.begin(), native.end(), '\\', '/');
    WCHAR wide[4096];
    GetModuleFileNameW(module, wide, 4096);
    EXPECT_EQ(GetModuleHandleW(wide), module);
    std::string other = std::filesystem::path(wide).string();
    std::replace(other.begin(), other.end(), '\\', '/');
    EXPECT_TRUE(std::filesystem::equivalent(native, other)) << native << " " << other;
  }
  MEMORY_BASIC_INFORMATION information;
  EXPECT_EQ(VirtualQuery(nullptr, &information, sizeof(information)), 0u);
  EXPECT_EQ(VirtualQuery(letterA, &information, sizeof(information) - 1), 0u);
  char path[8];
  EXPECT_EQ(GetModuleFileNameA(reinterpret_cast<HMODULE>(letterA), path, 8), 0u);
  EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
}

}  // namespace
