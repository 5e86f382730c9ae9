// Events, waits for them and for the other things that a thread can be waiting for: messages and alerts.
//
// A wait works on handles of events and of whatever else this layer calls waitable. Until a window layer is
// there (see wait_internal.h) no thread ever has a message.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

// Results of waits.
constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_IO_COMPLETION = 0xC0;  // alerts ran
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;

// Kinds of messages, for a wake mask.
constexpr DWORD QS_KEY = 0x0001;
constexpr DWORD QS_MOUSEMOVE = 0x0002;
constexpr DWORD QS_MOUSEBUTTON = 0x0004;
constexpr DWORD QS_POSTMESSAGE = 0x0008;
constexpr DWORD QS_TIMER = 0x0010;
constexpr DWORD QS_PAINT = 0x0020;
constexpr DWORD QS_SENDMESSAGE = 0x0040;

// Flags of MsgWaitForMultipleObjectsEx.
constexpr DWORD MWMO_WAITALL = 0x0001;
constexpr DWORD MWMO_ALERTABLE = 0x0002;
constexpr DWORD MWMO_INPUTAVAILABLE = 0x0004;

// Flags of PeekMessageW.
constexpr UINT PM_NOREMOVE = 0;
constexpr UINT PM_REMOVE = 1;
constexpr UINT PM_QS_SENDMESSAGE = QS_SENDMESSAGE << 16;  // no kind of message but those that were sent

struct MSG {
  HWND hwnd;
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
  DWORD time;
  LONG x;  // of the cursor, on the screen
  LONG y;
};

// A new event, to be closed with CloseHandle. A manual-reset event that is signalled stays so until it is
// reset; another releases one wait and is unsignalled again. `attributes` are not used and `name` must be
// null: events are not shared between processes. Null on failure.
QN_API HANDLE CreateEventW(void* attributes, BOOL manualReset, BOOL initialState, const WCHAR* name);

// Signal an event, or take its signal back; without a lock, and without a system call unless a thread waits.
// Signalling a manual-reset event releases all that wait for it at that moment, even if it is reset at once.
// FALSE with error 6 for a handle that is no open event.
QN_API BOOL SetEvent(HANDLE event);
QN_API BOOL ResetEvent(HANDLE event);

// Waits until the handle is signalled, for at most `milliseconds` (INFINITE: without end): WAIT_OBJECT_0,
// WAIT_TIMEOUT, or WAIT_FAILED with error 6 for a handle that nobody can wait for. The end of an event ends
// the waits for it: with WAIT_OBJECT_0 if it was signalled during the wait, else with WAIT_FAILED. Waits for
// other objects go on when the handle is closed.
QN_API DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);

// Waits for one of `count` handles, at most 63, or for input.
//   wakeMask  QS_* of the messages that end the wait: WAIT_OBJECT_0 + count
//   flags     MWMO_ALERTABLE: alerts of this thread run and end the wait with WAIT_IO_COMPLETION
//             MWMO_INPUTAVAILABLE: messages count that an earlier look left in the queue
//             MWMO_WAITALL: all handles, and input if there is a mask, at the same time: WAIT_OBJECT_0
// Otherwise WAIT_OBJECT_0 + the number of the first handle that is signalled, WAIT_TIMEOUT, or WAIT_FAILED as
// above. A handle comes before input, and both before alerts. WAIT_FAILED too with error 87 for more handles,
// or for MWMO_WAITALL with a handle twice, and with error 4 if it would sleep and no descriptor is left.
QN_API DWORD MsgWaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, DWORD milliseconds,
                                         DWORD wakeMask, DWORD flags);

// Looks for a message of this thread: nonzero if there is one, in `*message`. Messages that other threads
// have sent reach their windows in here.
QN_API BOOL PeekMessageW(MSG* message, HWND window, UINT first, UINT last, UINT flags);

// A handle of a thread of this process by its id, to alert it; close it with CloseHandle. `access` and
// `inherit` are not used. Null with error 87 if there is no such thread, 4 if no descriptor is left to look.
QN_API HANDLE OpenThread(DWORD access, BOOL inherit, DWORD threadId);

// Has a thread call `alert(parameter)` in its next alertable wait, or in the one that it is in. Nonzero on
// success; 0 with error 31 if the thread has ended. A wait runs the alerts that are there when it ends, in
// their order; one that waits in turn lets in those that follow it. A fork's child has none of its parent's.
using PAPCFUNC = void (*)(ULONG_PTR parameter);
QN_API DWORD QueueUserAPC(PAPCFUNC alert, HANDLE thread, ULONG_PTR parameter);

}  // namespace qnplatform
