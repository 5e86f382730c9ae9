#include "qn/platform/exception.h"

#include <fcntl.h>
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <mutex>
#include <new>
#include <utility>

#include "qn/platform/mapping_internal.h"

namespace {

// The signals that the processor's exceptions come as, and what had them before.
struct Handler {
  int signal;
  bool isInstalled = false;
  struct sigaction before = {};
};
constinit Handler handlers[] = {{SIGSEGV}, {SIGBUS}, {SIGILL}, {SIGFPE}, {SIGTRAP}};

// A call of CallWithExceptionFilter that runs.
struct Frame {
  ~Frame();
  Frame* const outer;
  const EXCEPTION_FILTER filter;
  void* const data;
  sigjmp_buf jump;
};

// What the signal handler knows of its thread. The first use of other thread-local memory may allocate, which
// a signal handler must not.
struct ThreadState {
  Frame* innermost;
  bool isFiltering;
};
__attribute__((tls_model("initial-exec"))) constinit thread_local ThreadState thread = {};

Frame::~Frame() {
  thread.innermost = outer;
}

constinit std::atomic<LPTOP_LEVEL_EXCEPTION_FILTER> processFilter = nullptr;
constinit std::atomic<CRASH_REPORTER> crashReporter = nullptr;

// From a signal to the exception's record.

struct CodeRow {
  int signal, signalCode;
  DWORD exception;
};
constexpr int kAnyCode = 0;
constexpr CodeRow kCodes[] = {
    {SIGSEGV, kAnyCode, EXCEPTION_ACCESS_VIOLATION},
    {SIGBUS, BUS_ADRALN, EXCEPTION_DATATYPE_MISALIGNMENT},
    {SIGBUS, kAnyCode, EXCEPTION_IN_PAGE_ERROR},
    {SIGILL, ILL_PRVOPC, EXCEPTION_PRIV_INSTRUCTION},
    {SIGILL, ILL_PRVREG, EXCEPTION_PRIV_INSTRUCTION},
    {SIGILL, kAnyCode, EXCEPTION_ILLEGAL_INSTRUCTION},
    {SIGFPE, FPE_INTDIV, EXCEPTION_INT_DIVIDE_BY_ZERO},
    {SIGFPE, FPE_INTOVF, EXCEPTION_INT_OVERFLOW},
    {SIGFPE, FPE_FLTDIV, EXCEPTION_FLT_DIVIDE_BY_ZERO},
    {SIGFPE, FPE_FLTOVF, EXCEPTION_FLT_OVERFLOW},
    {SIGFPE, FPE_FLTUND, EXCEPTION_FLT_UNDERFLOW},
    {SIGFPE, FPE_FLTRES, EXCEPTION_FLT_INEXACT_RESULT},
    {SIGFPE, kAnyCode, EXCEPTION_FLT_INVALID_OPERATION},
    {SIGTRAP, TRAP_TRACE, EXCEPTION_SINGLE_STEP},
    {SIGTRAP, TRAP_HWBKPT, EXCEPTION_SINGLE_STEP},
    {SIGTRAP, kAnyCode, EXCEPTION_BREAKPOINT},
};

#if defined(__x86_64__)
uintptr_t StackPointer(const ucontext_t& context) {
  return static_cast<uintptr_t>(context.uc_mcontext.gregs[REG_RSP]);
}
uintptr_t Instruction(const ucontext_t& context, const siginfo_t& info) {
  // A breakpoint instruction of one byte is done when its signal comes.
  const bool isBreakpoint = info.si_signo == SIGTRAP && info.si_code == SI_KERNEL;
  return static_cast<uintptr_t>(context.uc_mcontext.gregs[REG_RIP]) - (isBreakpoint ? 1 : 0);
}
bool IsWrite(const ucontext_t& context) {
  return (context.uc_mcontext.gregs[REG_ERR] & 2) != 0;
}
#elif defined(__aarch64__)
uintptr_t StackPointer(const ucontext_t& context) {
  return context.uc_mcontext.sp;
}
uintptr_t Instruction(const ucontext_t& context, const siginfo_t&) {
  return context.uc_mcontext.pc;
}
// Among the records behind the registers, each of a mark and a size, is the syndrome of the fault.
bool IsWrite(const ucontext_t& context) {
  constexpr uint32_t kSyndromeMark = 0x45535201, kHeader = 8;
  constexpr uint64_t kWriteBit = 1 << 6;
  const auto& records = context.uc_mcontext.__reserved;
  for (size_t place = 0; place + 16 <= sizeof(records);) {
    uint32_t header[2];
    std::memcpy(header, records + place, sizeof(header));
    if (header[0] == kSyndromeMark) {
      uint64_t syndrome;
      std::memcpy(&syndrome, records + place + kHeader, sizeof(syndrome));
      return (syndrome & kWriteBit) != 0;
    }
    if (header[1] < kHeader) break;
    place += header[1];
  }
  return false;
}
#endif

// A thread has used up its stack when its stack pointer has left what can be used, or when it failed just
// below: the next call or push would have gone there.
bool IsStackOverflow(uintptr_t address, uintptr_t stackPointer) {
  constexpr uintptr_t kReach = 64 << 10;
  return stackPointer - address <= kReach || !qn::IsUsable(stackPointer);
}

EXCEPTION_RECORD Describe(const siginfo_t& info, const ucontext_t& context) {
  EXCEPTION_RECORD record = {};
  record.ExceptionCode =
      std::find_if(std::begin(kCodes), std::end(kCodes), [&](const CodeRow& row) {
        return row.signal == info.si_signo && (row.signalCode == kAnyCode || row.signalCode == info.si_code);
      })->exception;
  record.ExceptionAddress = reinterpret_cast<void*>(Instruction(context, info));
  if (info.si_signo != SIGSEGV && info.si_signo != SIGBUS) return record;
  record.NumberParameters = 2;
  // The processor tells no address with a protection fault.
  if (info.si_code == SI_KERNEL) {
    record.ExceptionInformation[1] = UINTPTR_MAX;
    return record;
  }
  const auto address = reinterpret_cast<uintptr_t>(info.si_addr);
  record.ExceptionInformation[0] = IsWrite(context) ? 1 : 0;
  record.ExceptionInformation[1] = address;
  if (info.si_signo == SIGSEGV && IsStackOverflow(address, StackPointer(context))) {
    record.ExceptionCode = EXCEPTION_STACK_OVERFLOW;
  }
  return record;
}

// The signal handler and its ways out.

// Ends the process by the signal. It is sent again to arrive when the handler returns, so that a core shows
// the instruction and the cause.
void TakeDefault(siginfo_t* info) {
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  sigaction(info->si_signo, &action, nullptr);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, info->si_signo);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  const auto threadId = syscall(SYS_gettid);
  if (syscall(SYS_rt_tgsigqueueinfo, getpid(), threadId, info->si_signo, info) != 0) raise(info->si_signo);
}

// Does what the signal would have done without this handler.
void PassOn(siginfo_t* info, void* context) {
  const struct sigaction& before =
      std::find_if(std::begin(handlers), std::end(handlers), [&](const Handler& h) {
        return h.signal == info->si_signo;
      })->before;
  const bool isSent = info->si_code <= 0;
  if (isSent && before.sa_handler == SIG_IGN) return;
  if (before.sa_handler == SIG_DFL || before.sa_handler == SIG_IGN) return TakeDefault(info);
  if (before.sa_flags & SA_RESETHAND) {
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigaction(info->si_signo, &action, nullptr);
  }
  // Without its mask a handler that fails would be called again for ever. The return from here restores it.
  sigset_t blocked = before.sa_mask;
  if (!(before.sa_flags & SA_NODEFER)) sigaddset(&blocked, info->si_signo);
  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  if (before.sa_flags & SA_SIGINFO) {
    before.sa_sigaction(info->si_signo, info, context);
  } else {
    before.sa_handler(info->si_signo);
  }
}

// The answer of the filters, the innermost first; one of a frame that handles the exception does not return.
LONG AskFilters(EXCEPTION_POINTERS* pointers) {
  thread.isFiltering = true;
  LONG answer = EXCEPTION_CONTINUE_SEARCH;
  for (Frame* frame = thread.innermost; frame && answer == EXCEPTION_CONTINUE_SEARCH; frame = frame->outer) {
    answer = frame->filter(pointers, frame->data);
    if (answer <= 0) continue;
    thread.isFiltering = false;
    siglongjmp(frame->jump, 1);
  }
  const LPTOP_LEVEL_EXCEPTION_FILTER outermost = processFilter;
  if (answer == EXCEPTION_CONTINUE_SEARCH && outermost) answer = outermost(pointers);
  thread.isFiltering = false;
  return answer;
}

// It takes no lock, so threads that fail at once each ask their own filters.
void OnSignal(int, siginfo_t* info, void* context) noexcept {
  const int error = errno;
  const bool isException = info->si_code > 0;
  if (isException && thread.isFiltering) return TakeDefault(info);
  LONG answer = EXCEPTION_CONTINUE_SEARCH;
  if (isException && (thread.innermost || processFilter.load())) {
    EXCEPTION_RECORD record = Describe(*info, *static_cast<const ucontext_t*>(context));
    EXCEPTION_POINTERS pointers = {&record, static_cast<CONTEXT*>(context)};
    answer = AskFilters(&pointers);
  }
  if (answer > 0) TakeDefault(info);
  if (answer == EXCEPTION_CONTINUE_SEARCH) PassOn(info, context);
  errno = error;
}

// Installation, under the lock.

constinit std::mutex lock;
constinit int users = 0;  // threads inside CallWithExceptionFilter, and the filter of the process

// Puts the handlers in while they have users, and else takes them off. Where another handler lies over ours
// it stays: it may call ours, which then only passes on.
void UpdateHandlers() {
  struct sigaction ours = {};
  ours.sa_sigaction = OnSignal;
  ours.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  for (Handler& handler : handlers) {
    struct sigaction current;
    sigaction(handler.signal, nullptr, &current);
    const bool isOurs = (current.sa_flags & SA_SIGINFO) && current.sa_sigaction == OnSignal;
    const bool isHandled = current.sa_handler != SIG_DFL && current.sa_handler != SIG_IGN;
    if (users <= 0 && isOurs) {
      handler.isInstalled = false;
      sigaction(handler.signal, &handler.before, nullptr);
    }
    if (users <= 0 || isOurs || (handler.isInstalled && isHandled)) continue;
    handler.before = current;
    handler.isInstalled = true;
    sigaction(handler.signal, &ours, nullptr);
  }
}

// An alternate stack for signals, without which an overflow of the thread's own ends the process at once. Its
// record lies at its top; below is a page that nothing may use.
struct SignalStack {
  void* memory;
  size_t size;
  stack_t before;
  int users;
  bool isProcessFilters;  // SetUnhandledExceptionFilter is one of the users
};
constexpr size_t kSignalStackSize = 256 << 10;

// A key instead of a thread-local object with a destructor, which would keep the library from being unloaded.
constinit pthread_key_t stackKey = 0;
constinit bool hasStackKey = false;

void DropSignalStack(void* value) {
  const auto* const stack = static_cast<SignalStack*>(value);
  stack_t current;
  sigaltstack(nullptr, &current);
  const bool isOurs =
      !(current.ss_flags & SS_DISABLE) && current.ss_sp > stack->memory && current.ss_sp < stack;
  // It stays when a filter runs on it just now.
  if (isOurs && sigaltstack(&stack->before, nullptr) != 0) return;
  pthread_setspecific(stackKey, nullptr);
  munmap(stack->memory, stack->size);
}

SignalStack* CurrentSignalStack() {
  return hasStackKey ? static_cast<SignalStack*>(pthread_getspecific(stackKey)) : nullptr;
}

// The thread's stack with one more user; null when the host's own will do, or without memory.
SignalStack* AcquireSignalStack() {
  if (!hasStackKey && pthread_key_create(&stackKey, DropSignalStack) != 0) return nullptr;
  hasStackKey = true;
  SignalStack* stack = CurrentSignalStack();
  if (!stack) {
    stack_t before;
    sigaltstack(nullptr, &before);
    if (!(before.ss_flags & SS_DISABLE) && before.ss_size >= kSignalStackSize) return nullptr;
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t size = kSignalStackSize + 2 * page;
    void* const memory =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED) return nullptr;
    auto* const bytes = static_cast<uint8_t*>(memory);
    stack = new (bytes + size - sizeof(SignalStack)) SignalStack{memory, size, before, 0, false};
    stack_t own = {};
    own.ss_sp = bytes + page;
    own.ss_size = size - page - sizeof(SignalStack);
    if (mprotect(memory, page, PROT_NONE) != 0 || sigaltstack(&own, nullptr) != 0 ||
        pthread_setspecific(stackKey, stack) != 0) {
      DropSignalStack(stack);
      return nullptr;
    }
  }
  ++stack->users;
  return stack;
}

void ReleaseSignalStack(SignalStack* stack) {
  if (stack && --stack->users == 0) DropSignalStack(stack);
}

// The outermost frame of a thread holds handlers and stack for all frames, because an exception that one of
// them handles leaves those inside it without their destructors.
class OutermostFrame {
 public:
  OutermostFrame() {
    const std::lock_guard guard(lock);
    ++users;
    UpdateHandlers();
    stack_ = AcquireSignalStack();
  }
  ~OutermostFrame() {
    const std::lock_guard guard(lock);
    --users;
    UpdateHandlers();
    ReleaseSignalStack(stack_);
  }
  OutermostFrame(const OutermostFrame&) = delete;
  OutermostFrame& operator=(const OutermostFrame&) = delete;

 private:
  SignalStack* stack_ = nullptr;
};

// Nothing may lead into the library once it is unloaded.
__attribute__((destructor)) void TakeOff() {
  const std::lock_guard guard(lock);
  users = 0;
  UpdateHandlers();
  if (SignalStack* const stack = CurrentSignalStack()) DropSignalStack(stack);
  if (std::exchange(hasStackKey, false)) pthread_key_delete(stackKey);
}

BOOL CallInFrame(void (*body)(void* data), void* data, EXCEPTION_FILTER filter, void* filterData) {
  Frame frame{thread.innermost, filter, filterData, {}};
  if (sigsetjmp(frame.jump, 1) != 0) return FALSE;
  thread.innermost = &frame;
  body(data);
  return TRUE;
}

}  // namespace

inline namespace qnplatform {

LPTOP_LEVEL_EXCEPTION_FILTER SetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER filter) {
  const std::lock_guard guard(lock);
  const LPTOP_LEVEL_EXCEPTION_FILTER before = processFilter.exchange(filter);
  users = users + (filter ? 1 : 0) - (before ? 1 : 0);
  UpdateHandlers();
  SignalStack* const stack = filter ? AcquireSignalStack() : CurrentSignalStack();
  const bool wasUser = stack && std::exchange(stack->isProcessFilters, filter != nullptr);
  if (wasUser) ReleaseSignalStack(stack);
  return before;
}

BOOL CallWithExceptionFilter(void (*body)(void* data), void* data, EXCEPTION_FILTER filter,
                             void* filterData) {
  if (!body || !filter) return FALSE;
  if (thread.innermost) return CallInFrame(body, data, filter, filterData);
  const OutermostFrame outermost;
  return CallInFrame(body, data, filter, filterData);
}

BOOL IsDebuggerPresent() {
  const int file = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
  if (file < 0) return FALSE;
  // The line is among the first.
  char text[4096];
  const ssize_t got = read(file, text, sizeof(text) - 1);
  close(file);
  text[std::max<ssize_t>(got, 0)] = 0;
  constexpr char kTracer[] = "\nTracerPid:\t";
  const char* const line = std::strstr(text, kTracer);
  return line && line[sizeof(kTracer) - 1] != '0';
}

CRASH_REPORTER SetCrashReporter(CRASH_REPORTER reporter) {
  return crashReporter.exchange(reporter);
}

void ErrorReport_UnmanagedException(EXCEPTION_POINTERS* pointers) {
  const CRASH_REPORTER reporter = crashReporter;
  if (reporter && pointers) reporter(pointers);
}

}  // namespace qnplatform
