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
#include "qn/platform/memory.h"
#include "qn/platform/unload_internal.h"

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

// An exception on its way through the filters.
struct Inquiry {
  const siginfo_t& info;
  ucontext_t& context;
  LONG answer = EXCEPTION_CONTINUE_SEARCH;
  Frame* handling = nullptr;  // the frame whose filter handles it
};

// What the signal handler knows of its thread. The first use of other thread-local memory may allocate, which
// a signal handler must not.
struct ThreadState {
  Frame* innermost;
  Inquiry* inquiry;         // while the filters are asked
  const siginfo_t* signal;  // what the filters are asked about, or the process ends by
};
__attribute__((tls_model("initial-exec"))) constinit thread_local ThreadState thread = {};

Frame::~Frame() {
  thread.innermost = outer;
}

constinit std::atomic<LPTOP_LEVEL_EXCEPTION_FILTER> processFilter = nullptr;
constinit std::atomic<CRASH_REPORTER> crashReporter = nullptr;

// A stack of our own, above a page that nothing may use. This record lies at its top.
struct MappedStack {
  stack_t Usable() {
    stack_t usable = {};
    usable.ss_sp = bottom;
    usable.ss_size = static_cast<size_t>(reinterpret_cast<uint8_t*>(this) - bottom);
    return usable;
  }

  void* memory;
  size_t size;
  uint8_t* bottom;
};
constexpr size_t kStackSize = 256 << 10;

template <typename Stack>
Stack* MapStack() {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t size = kStackSize + 2 * page;
  void* const memory =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  if (mprotect(memory, page, PROT_NONE) != 0) {
    munmap(memory, size);
    return nullptr;
  }
  auto* const bytes = static_cast<uint8_t*>(memory);
  return new (bytes + size - sizeof(Stack)) Stack{{memory, size, bytes + page}};
}

// The stack for filters where a signal has come on one that is too small for them. The two states are here,
// for they are too large for a small stack, too.
struct FilterStack : MappedStack {
  ucontext_t handler = {};
  ucontext_t filters = {};
};
constinit std::atomic<FilterStack*> idleFilterStack = nullptr;

// Filters that show a message need half of it.
constexpr size_t kFilterRoom = 160 << 10;

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
  const auto address = reinterpret_cast<uintptr_t>(info.si_addr);
  // The processor tells no address with a protection fault, and some tell none with an alignment fault.
  const bool isMisaligned = record.ExceptionCode == EXCEPTION_DATATYPE_MISALIGNMENT;
  if (info.si_code == SI_KERNEL || (isMisaligned && address == 0)) {
    record.ExceptionInformation[1] = UINTPTR_MAX;
    return record;
  }
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
void TakeDefault(const siginfo_t* info, ucontext_t* context) {
  thread.signal = info;
  // An exception whose signal is blocked ends the process at once: nothing gets here a second time.
  sigset_t set;
  sigemptyset(&set);
  for (const Handler& handler : handlers) sigaddset(&set, handler.signal);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  for (const Handler& handler : handlers) sigaction(handler.signal, &action, nullptr);
  // A filter that failed may have blocked it.
  sigdelset(&context->uc_sigmask, info->si_signo);
  const auto threadId = syscall(SYS_gettid);
  if (syscall(SYS_rt_tgsigqueueinfo, getpid(), threadId, info->si_signo, info) != 0) raise(info->si_signo);
}

// Does what the signal would have done without this handler.
void PassOn(siginfo_t* info, ucontext_t* context) {
  const struct sigaction& before =
      std::find_if(std::begin(handlers), std::end(handlers), [&](const Handler& h) {
        return h.signal == info->si_signo;
      })->before;
  const bool isSent = info->si_code <= 0;
  if (isSent && before.sa_handler == SIG_IGN) return;
  if (before.sa_handler == SIG_DFL || before.sa_handler == SIG_IGN) return TakeDefault(info, context);
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

// What is left of the stack in use. A mapping that grows by itself counts as it is.
size_t StackRoom() {
  const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  stack_t alternate;
  sigaltstack(nullptr, &alternate);
  if (alternate.ss_flags & SS_ONSTACK) return here - reinterpret_cast<uintptr_t>(alternate.ss_sp);
  // To read the mappings needs some of it.
  constexpr uintptr_t kReading = 12 << 10;
  if (IsBadReadPtr(reinterpret_cast<const void*>(here - kReading), kReading)) return 0;
  MEMORY_BASIC_INFORMATION own;
  if (!VirtualQuery(reinterpret_cast<const void*>(here), &own, sizeof(own))) return 0;
  return here - reinterpret_cast<uintptr_t>(own.BaseAddress);
}

// Asks the filters of the thread's inquiry, the innermost first.
void AskFilters() {
  Inquiry& inquiry = *thread.inquiry;
  LONG& answer = inquiry.answer;
  EXCEPTION_RECORD record = Describe(inquiry.info, inquiry.context);
  EXCEPTION_POINTERS pointers = {&record, reinterpret_cast<CONTEXT*>(&inquiry.context)};
  for (Frame* frame = thread.innermost; frame && answer == EXCEPTION_CONTINUE_SEARCH; frame = frame->outer) {
    answer = frame->filter(&pointers, frame->data);
    if (answer > 0) inquiry.handling = frame;
  }
  const LPTOP_LEVEL_EXCEPTION_FILTER outermost = processFilter;
  if (answer == EXCEPTION_CONTINUE_SEARCH && outermost) answer = outermost(&pointers);
}

// The small stack has no signals meanwhile: they would begin it anew, over the handler that waits on it.
void AskOnFilterStack() {
  stack_t none = {}, small;
  none.ss_flags = SS_DISABLE;
  sigaltstack(&none, &small);
  AskFilters();
  sigaltstack(&small, nullptr);
}

// Nobody is asked if another thread has the stack.
void SwitchAndAskFilters() {
  FilterStack* const stack = idleFilterStack.exchange(nullptr);
  if (!stack) return;
  getcontext(&stack->filters);
  stack->filters.uc_stack = stack->Usable();
  stack->filters.uc_link = &stack->handler;
  makecontext(&stack->filters, AskOnFilterStack, 0);
  swapcontext(&stack->handler, &stack->filters);
  idleFilterStack = stack;
}

// It takes no lock, so threads that fail at once each ask their own filters. Its own needs are small: it may
// find itself on a stack of a few kilobytes.
__attribute__((noinline)) void HandleSignal(siginfo_t* info, ucontext_t* context) {
  const bool isSent = info->si_code <= 0;
  if (isSent) return PassOn(info, context);
  if (thread.signal) return TakeDefault(thread.signal, context);
  thread.signal = info;
  Inquiry inquiry = {*info, *context};
  if (thread.innermost || processFilter.load()) {
    const int error = errno;
    const DWORD lastError = GetLastError();
    thread.inquiry = &inquiry;
    if (StackRoom() >= kFilterRoom) {
      AskFilters();
    } else {
      SwitchAndAskFilters();
    }
    thread.inquiry = nullptr;
    errno = error;
    SetLastError(lastError);
  }
  if (!inquiry.handling && inquiry.answer > 0) return TakeDefault(info, context);
  thread.signal = nullptr;
  if (inquiry.handling) siglongjmp(inquiry.handling->jump, 1);
  if (inquiry.answer == EXCEPTION_CONTINUE_SEARCH) PassOn(info, context);
}

// The kernel leaves the alignment check of what failed on. Code of ours and of others would fail by it in
// turn, so it goes before anything else is done; going on from the context brings it back.
void OnSignal(int, siginfo_t* info, void* context) noexcept {
#if defined(__x86_64__)
  constexpr auto kAlignmentCheck = 1ULL << 18;
  __builtin_ia32_writeeflags_u64(__builtin_ia32_readeflags_u64() & ~kAlignmentCheck);
#endif
  HandleSignal(info, static_cast<ucontext_t*>(context));
}

// Installation, under the lock.

constinit std::mutex lock;
constinit int users = 0;  // threads inside CallWithExceptionFilter, and the filter of the process
constinit bool hasFilterStack = false;

// Where filters run just now the stack stays, until the next change.
void UpdateFilterStack() {
  if (users > 0 && !hasFilterStack) {
    FilterStack* const stack = MapStack<FilterStack>();
    hasFilterStack = stack != nullptr;
    idleFilterStack = stack;
  } else if (users <= 0) {
    FilterStack* const stack = idleFilterStack.exchange(nullptr);
    if (!stack) return;
    hasFilterStack = false;
    munmap(stack->memory, stack->size);
  }
}

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
  UpdateFilterStack();
  qn::KeepMappings(users > 0);
}

// An alternate stack for signals, without which an overflow of the thread's own ends the process at once.
struct SignalStack : MappedStack {
  stack_t before = {};
  int users = 0;
  bool isProcessFilters = false;  // SetUnhandledExceptionFilter is one of the users
};

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
    if (!(before.ss_flags & SS_DISABLE) && before.ss_size >= kStackSize) return nullptr;
    stack = MapStack<SignalStack>();
    if (!stack) return nullptr;
    stack->before = before;
    const stack_t own = stack->Usable();
    if (sigaltstack(&own, nullptr) != 0 || pthread_setspecific(stackKey, stack) != 0) {
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
  std::unique_lock guard(lock, std::defer_lock);
  // A fork has this thread alone; another may have held the lock in the moment of the fork.
  if (qn::IsForkedCopy()) {
    static_cast<void>(guard.try_lock());
  } else {
    guard.lock();
  }
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
