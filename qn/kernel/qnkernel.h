// The library in a process: its attach, the identity of its host, the version of the system.
#pragma once

#include "qn/platform/module.h"
#include "qn/platform/types.h"

namespace qn {

// How the attach of the library to this process ended: 0, or the status that the opening of its texts failed
// with. The library is then no use: each of its functions that needs texts gives empty ones or fails.
QN_API HRESULT AttachStatus();

}  // namespace qn

extern "C" {

QN_API HMODULE QnKernel_GetAppKernel();
QN_API HRESULT QnKernel_GetAppKernelPathName(WCHAR* text, DWORD size);
QN_API HRESULT _QnKernel_SetAppName(const WCHAR* name);
QN_API const WCHAR* QnKernel_GetAppName();
QN_API HWND QnKernel_GetAppHwnd();
QN_API void QnKernel_SetQnfcLegacy(DWORD value);
QN_API DWORD QnKernel_IsQnfcLegacy();
QN_API void QnKernel_UserPrefChanges(HWND window, UINT message);

QN_API BOOL QnOSVersionOK(DWORD level);
QN_API BOOL QnGetOS(WCHAR* text, int size);
QN_API BOOL QnIsOS64Bit();
QN_API HRESULT QnVersion_GetString(const WCHAR* path, const WCHAR* name, WCHAR* text, int size);
QN_API BOOL QnIsHighColor();
QN_API BOOL QnIsAllMonitorsHighColor();
}
