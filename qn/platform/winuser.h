// Windows, as far as text needs them: window text, messages to edit controls, the layout of a process.
//
// Until a window backend is there (see winuser_internal.h) there are no windows: each function fails with
// last error 1400, as for any handle that is no window.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

using WPARAM = uintptr_t;
using LPARAM = intptr_t;
using LRESULT = intptr_t;

constexpr UINT WM_GETFONT = 0x0031;
constexpr UINT EM_SETSEL = 0x00B1;
constexpr UINT EM_REPLACESEL = 0x00C2;
constexpr DWORD LAYOUT_RTL = 0x00000001;

// Sets the text of a window; nonzero on success.
QN_API BOOL SetWindowTextW(HWND window, const WCHAR* text);

// The length of a window's text in characters; 0 on failure.
QN_API int GetWindowTextLengthW(HWND window);

// The window of a dialog's item, or null.
QN_API HWND GetDlgItem(HWND dialog, int item);

// Sets or copies the text of a dialog's item. The copy is cut to `size` with the terminator; its length is
// returned.
QN_API BOOL SetDlgItemTextW(HWND dialog, int item, const WCHAR* text);
QN_API UINT GetDlgItemTextW(HWND dialog, int item, WCHAR* text, int size);

// Sends a message and returns what the window made of it.
QN_API LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// The layout that new windows get: 0, or LAYOUT_RTL for languages written from the right.
QN_API BOOL SetProcessDefaultLayout(DWORD layout);
QN_API BOOL GetProcessDefaultLayout(DWORD* layout);

}  // namespace qnplatform
