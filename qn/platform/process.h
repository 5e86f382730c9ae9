// Other processes: their ids, their memory, and the mappings that they share.
//
// Reaching into another process needs what a debugger of it needs: the same user or the rights of root, and
// what the system's policy asks beyond that. A shared mapping (CreateFileMappingW on no file) also comes over
// where that is refused, as long as the owner runs, both have the same user, and the owner has got a socket
// to answer with: it tries to with its first mapping, and every half second as long as it has none.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

constexpr DWORD PROCESS_VM_OPERATION = 0x0008;
constexpr DWORD PROCESS_VM_READ = 0x0010;
constexpr DWORD PROCESS_VM_WRITE = 0x0020;
constexpr DWORD PROCESS_DUP_HANDLE = 0x0040;

constexpr DWORD DUPLICATE_SAME_ACCESS = 2;

// The calling process: a constant that needs no closing, and its id, which is a fork's own in a fork.
QN_API HANDLE GetCurrentProcess();
QN_API DWORD GetCurrentProcessId();

// A handle of the process with an id, to be closed with CloseHandle. It stands for that process alone, also
// when another one has got the id since, and is signalled once the process has ended. `access` (PROCESS_*) is
// what the caller means to do: whether it may is found out when it does. `inherit` is not used, FALSE. Null
// with last error 87 when no such process is running.
QN_API HANDLE OpenProcess(DWORD access, BOOL inherit, DWORD id);

// A handle in this process for what `source` is a handle of in `sourceProcess`, to be closed with
// CloseHandle. From this process that is any handle but an event's, from another one that of a shared
// mapping. `targetProcess` is this process and `options` DUPLICATE_SAME_ACCESS (else last error 87); `access`
// and `inherit` are not used. Zero with `*target` as it was and the last error: 6 the handle is none of that
// kind there or its process has ended, 5 every way to it is refused, or the only way left is to ask and its
// process has no mapping open, 170 its process does not answer within a second, 4 no descriptor is left.
QN_API BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE* target,
                            DWORD access, BOOL inherit, DWORD options);

// Copies `bytes` bytes from or to the memory of a process, this one included. Nonzero when all were copied.
// Otherwise the last error is 299 when the memory ends, is not there or may not be so used, or the process
// has ended, with the bytes that were copied in `*got` or `*put` (may be null), which is what both get on
// success too; 5 when the access is refused, 6 for a bad handle.
QN_API BOOL ReadProcessMemory(HANDLE process, const void* address, void* buffer, SIZE_T bytes, SIZE_T* got);
QN_API BOOL WriteProcessMemory(HANDLE process, void* address, const void* buffer, SIZE_T bytes, SIZE_T* put);

}  // namespace qnplatform
