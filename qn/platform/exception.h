// Exceptions of the processor as filters see them, made from signals.
//
// A crash in a thread reaches the innermost filter around it: that of CallWithExceptionFilter, then the one
// of SetUnhandledExceptionFilter. Filters run on the thread that failed, inside the signal: they allocate
// nothing and take no lock that the thread may hold. A second failure inside a filter ends the process at
// once.
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
  DWORD ExceptionFlags;
  EXCEPTION_RECORD* ExceptionRecord;
  void* ExceptionAddress;  // the instruction
  DWORD NumberParameters;  // for an access violation 2: 0 read or 1 write, and the address
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
// filter outwards, EXCEPTION_CONTINUE_EXECUTION tries the instruction again.
using LPTOP_LEVEL_EXCEPTION_FILTER = LONG (*)(EXCEPTION_POINTERS* pointers);
using EXCEPTION_FILTER = LONG (*)(EXCEPTION_POINTERS* pointers, void* data);

// Makes `filter` the outermost one of the process and returns the one before; null takes it off, and with it
// the signal handlers. EXECUTE_HANDLER ends the process with the signal; CONTINUE_SEARCH gives the signal to
// the handler that was there before. The library installs nothing by itself.
QN_API LPTOP_LEVEL_EXCEPTION_FILTER SetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER filter);

// Calls `body` and returns TRUE; FALSE when an exception ended it because `filter` said EXECUTE_HANDLER. The
// stack of `body` is then left without its destructors. C++ exceptions pass through.
QN_API BOOL CallWithExceptionFilter(void (*body)(void* data), void* data, EXCEPTION_FILTER filter,
                                    void* filterData);

// Nonzero while a debugger traces the process.
QN_API BOOL IsDebuggerPresent();

// The mapping that an address lies in.
struct MEMORY_BASIC_INFORMATION {
  void* BaseAddress;
  void* AllocationBase;  // where the module, if it is one, is loaded
  SIZE_T RegionSize;
};

// Bytes filled of `information`, 0 for an address without a mapping. Safe in a filter.
QN_API SIZE_T VirtualQuery(const void* address, MEMORY_BASIC_INFORMATION* information, SIZE_T size);

// A program that collects crash reports: it gets each exception before the library describes it. Null takes
// it off. Returns the one before.
using CRASH_REPORTER = void (*)(EXCEPTION_POINTERS* pointers);
QN_API CRASH_REPORTER SetCrashReporter(CRASH_REPORTER reporter);

// Hands an exception to the crash reporter, if there is one.
QN_API void ErrorReport_UnmanagedException(EXCEPTION_POINTERS* pointers);

}  // namespace qnplatform
