// The library in a process: its attach, the identity of its host, the version of the system.
//
// The library attaches itself when it is loaded, by linking or by dlopen, and detaches when it is unloaded; a
// host calls nothing for it. What a host says of itself here is stored without a lock: it says it once, at
// its start, before it has other threads.
#pragma once

#include "qn/platform/module.h"
#include "qn/platform/types.h"

namespace qn {

// How the attach of the library to this process ended: 0; the status that the opening of its texts failed
// with; 1 (S_FALSE) before attach and after detach. A loader on Linux cannot be told to reject a library, so
// a host asks here. After a failure the library's own texts are English, its regional settings empty, and
// whatever needs its language handle, its default metrics or a control class fails or gives its default.
QN_API HRESULT AttachStatus();

}  // namespace qn

extern "C" {

// The library's own module, from attach to detach; else null.
QN_API HMODULE QnKernel_GetAppKernel();

// Copies the path of the library's file, in its own form of paths, into `size` characters with the
// terminator. 0; otherwise the buffer stays as it was and the status is that of the system error
// (QnErrorHandler_TranslateWin32Error), which is E_FAIL for a buffer that is null or too small, and when the
// library is not attached.
QN_API HRESULT QnKernel_GetAppKernelPathName(WCHAR* text, DWORD size);

// Stores the name of the host application, cut at 127 characters: 0, or 0x8007007A when it was cut.
// E_INVALIDARG for null, with the name as it was. It is no token by itself: the texts of failures name the
// application by `$(AppName)`, which a host adds with QnPrintF_AddToken.
QN_API HRESULT _QnKernel_SetAppName(const WCHAR* name);

// That name, in the library's memory; empty until it is set.
QN_API const WCHAR* QnKernel_GetAppName();

// The host's main window, as _QnMsgBoxSetAppData was told it; null until then.
QN_API HWND QnKernel_GetAppHwnd();

// A number that the library keeps for its host and does not look at; 0 at first.
QN_API void QnKernel_SetQnfcLegacy(DWORD value);
QN_API DWORD QnKernel_IsQnfcLegacy();

// A host hands on what the user changes in the system: with WM_SYSCOLORCHANGE (21) the library asks for the
// depth of the screens again and drops its cached colours, brushes and fonts; with WM_DISPLAYCHANGE (126) it
// asks for the depth alone. Other messages do nothing. `window` is not used.
QN_API void QnKernel_UserPrefChanges(HWND window, UINT message);

// The version of the system here is that of the published interface that the library follows, which is at
// least each level below; of Linux itself `uname` tells. So a host that asks for an older system than the one
// at hand gets yes.

// Nonzero if the system is at least of that level: 6 is 5.1, 7 is 6.0, 8 is 6.1, 9 is 6.2, 10 is 10.0, 11 is
// 10.0 with build 22000. Zero for any other level, 5 and 12 too.
QN_API BOOL QnOSVersionOK(DWORD level);

// The name of the system with its width, "Windows 11.0 (64-bit)", cut to `size` characters with the
// terminator; nothing is written for a size below 1 and for a null buffer. 1, or 0 for a system older than
// all names, whose text has no width.
QN_API BOOL QnGetOS(WCHAR* text, int size);

// Always 1: the library is built for 64 bits alone.
QN_API BOOL QnIsOS64Bit();

// Copies a value of a file's version text, such as "ProductVersion", in the first language that it comes in,
// cut to `size` characters with the terminator. A file is a program, a library or a `.res` image, see
// GetFileVersionInfoSizeW. With a size below 1 nothing is copied. 0, also for a value that is empty;
// 0x8004E00A, with the buffer as it was, on every failure.
QN_API HRESULT QnVersion_GetString(const WCHAR* path, const WCHAR* name, WCHAR* text, int size);

// Nonzero if the primary screen, or each of the screens, has at least 16 bits a pixel. Asked once and kept
// until QnKernel_UserPrefChanges. A screen that cannot be asked does not count; without a display the library
// draws on surfaces of its own, of 32 bits.
QN_API BOOL QnIsHighColor();
QN_API BOOL QnIsAllMonitorsHighColor();
}
