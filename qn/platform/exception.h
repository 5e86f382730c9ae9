// Exceptions of the processor as filters see them, made from signals.
//
// A failing instruction asks the filters, the innermost first: those of CallWithExceptionFilter in its
// thread, then the one of SetUnhandledExceptionFilter. They run on the thread that failed, inside the signal,
// so they may use only what is safe there: the functions of this header but for the two that install filters,
// and GetModuleFileNameA, allocate nothing and take no lock. Threads that fail at once each ask their own
// filters. A filter that fails itself ends the process at once, by the signal of what it was asked about.
// They leave errno and the last error as they were. In them x86 checks no alignment (EFLAGS.AC); what goes on
// has its check again.
//
// Filters find 128 KiB of stack at least. They run on the stack that the signal came on - the thread's
// alternate one, or its own if it has no other - where that has the room. Where it has not, as the small one
// of a language runtime, they run on one that the library keeps for the whole process. While another thread
// has that, no filter is asked: the signal goes to the handler that was there before, or has its default
// effect.
//
// A filter may describe an exception that came because the process has no descriptor left: as long as any
// filter is there, the library keeps one of its own for VirtualQuery and GetModuleFileNameA.
//
// The signals are SIGSEGV, SIGBUS, SIGILL, SIGFPE and SIGTRAP. The library installs handlers for them only
// while a filter is there: from SetUnhandledExceptionFilter until it is called with null, and as long as any
// thread is in CallWithExceptionFilter. Then each signal gets back what it had before, unless the host put a
// handler of its own over the library's, which it keeps. A signal that a process sent (kill, raise) asks no
// filter: it goes to the handler that was there before, or has its default effect.
//
// An overflow of the stack can be told only on another one. A thread has one (256 KiB) once it called
// SetUnhandledExceptionFilter, until it ends or takes the filter off, and while it is in
// CallWithExceptionFilter; one of the host's that is as large is left in its place. A thread that did neither
// and has no alternate stack of the host's has none to tell its overflow on, which ends the process without a
// filter. Other exceptions there need a little of what is left of its own: what the kernel writes there
// (sysconf(_SC_MINSIGSTKSZ), 4 to 12 KiB) and 2 KiB. With less they ask no filter either, and the process
// ends by SIGSEGV whatever their own signal is.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

constexpr DWORD EXCEPTION_GUARD_PAGE = 0x80000001;
constexpr DWORD EXCEPTION_DATATYPE_MISALIGNMENT = 0x80000002;
constexpr DWORD EXCEPTION_BREAKPOINT = 0x80000003;
constexpr DWORD EXCEPTION_SINGLE_STEP = 0x80000004;
constexpr DWORD EXCEPTION_ACCESS_VIOLATION = 0xC0000005;
constexpr DWORD EXCEPTION_IN_PAGE_ERROR = 0xC0000006;
constexpr DWORD EXCEPTION_ILLEGAL_INSTRUCTION = 0xC000001D;
constexpr DWORD EXCEPTION_FLT_DIVIDE_BY_ZERO = 0xC000008E;
constexpr DWORD EXCEPTION_FLT_INEXACT_RESULT = 0xC000008F;
constexpr DWORD EXCEPTION_FLT_INVALID_OPERATION = 0xC0000090;
constexpr DWORD EXCEPTION_FLT_OVERFLOW = 0xC0000091;
constexpr DWORD EXCEPTION_FLT_UNDERFLOW = 0xC0000093;
constexpr DWORD EXCEPTION_INT_DIVIDE_BY_ZERO = 0xC0000094;
constexpr DWORD EXCEPTION_INT_OVERFLOW = 0xC0000095;
constexpr DWORD EXCEPTION_PRIV_INSTRUCTION = 0xC0000096;
constexpr DWORD EXCEPTION_STACK_OVERFLOW = 0xC00000FD;

constexpr LONG EXCEPTION_EXECUTE_HANDLER = 1;
constexpr LONG EXCEPTION_CONTINUE_SEARCH = 0;
constexpr LONG EXCEPTION_CONTINUE_EXECUTION = -1;

struct EXCEPTION_RECORD {
  DWORD ExceptionCode;
  DWORD ExceptionFlags;               // 0
  EXCEPTION_RECORD* ExceptionRecord;  // null
  void* ExceptionAddress;             // the instruction
  // 2 when memory failed (ACCESS_VIOLATION, STACK_OVERFLOW, IN_PAGE_ERROR, DATATYPE_MISALIGNMENT), else 0: 0
  // for a read or 1 for a write, and the address; all ones where the processor does not tell it.
  DWORD NumberParameters;
  ULONG_PTR ExceptionInformation[15];
};
static_assert(sizeof(EXCEPTION_RECORD) == 152);

// The processor's state, as the signal gives it (a `ucontext_t`).
struct CONTEXT;

struct EXCEPTION_POINTERS {
  EXCEPTION_RECORD* ExceptionRecord;
  CONTEXT* ContextRecord;
};

// A filter decides: EXCEPTION_EXECUTE_HANDLER ends what failed, EXCEPTION_CONTINUE_SEARCH asks the next
// filter outwards, EXCEPTION_CONTINUE_EXECUTION goes on from the state in ContextRecord: the instruction is
// tried again, or for a breakpoint of x86 the next one. Filters return; they neither throw nor jump away.
using LPTOP_LEVEL_EXCEPTION_FILTER = LONG (*)(EXCEPTION_POINTERS* pointers);
using EXCEPTION_FILTER = LONG (*)(EXCEPTION_POINTERS* pointers, void* data);

// Makes `filter` the outermost one of the process and returns the one before; null takes it off. Its
// EXECUTE_HANDLER ends the process by the signal, with a core where the system writes them; CONTINUE_SEARCH
// gives the signal to the handler that was there before, or without one ends the process likewise.
QN_API LPTOP_LEVEL_EXCEPTION_FILTER SetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER filter);

// Calls `body` with `data` and returns TRUE; FALSE when an exception ended it because `filter`, called with
// `filterData`, said EXECUTE_HANDLER. The stack of `body` is then left without its destructors, its locks
// stay held, and the thread's signal mask is that of before. Calls nest. C++ exceptions pass through. FALSE
// at once when `body` or `filter` is null.
QN_API BOOL CallWithExceptionFilter(void (*body)(void* data), void* data, EXCEPTION_FILTER filter,
                                    void* filterData);

// Nonzero while a debugger traces the process.
QN_API BOOL IsDebuggerPresent();

// The mapping that an address lies in.
struct MEMORY_BASIC_INFORMATION {
  void* BaseAddress;
  void* AllocationBase;  // of a file: where the first of its mappings begins, for a module its handle
  SIZE_T RegionSize;     // from BaseAddress on, in bytes
};

// Fills in the mapping; `size` is that of `information`. The size, or 0 for an address without a mapping,
// null or too small a size.
QN_API SIZE_T VirtualQuery(const void* address, MEMORY_BASIC_INFORMATION* information, SIZE_T size);

// A program that collects crash reports: it gets each exception before the library describes it, inside the
// signal like a filter. Null takes it off. Returns the one before.
using CRASH_REPORTER = void (*)(EXCEPTION_POINTERS* pointers);
QN_API CRASH_REPORTER SetCrashReporter(CRASH_REPORTER reporter);

// Hands an exception to the crash reporter; nothing happens without one, or for null.
QN_API void ErrorReport_UnmanagedException(EXCEPTION_POINTERS* pointers);

}  // namespace qnplatform
