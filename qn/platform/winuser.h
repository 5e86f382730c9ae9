// Windows, as far as text and message boxes need them.
//
// Until a window backend is there (see winuser_internal.h) there are no windows: each function fails with
// last error 1400, as for any handle that is no window.
#pragma once

#include "qn/platform/module.h"
#include "qn/platform/wingdi.h"

inline namespace qnplatform {

constexpr UINT WM_SYSCOLORCHANGE = 0x0015;
constexpr UINT WM_GETFONT = 0x0031;
constexpr UINT WM_DISPLAYCHANGE = 0x007E;
constexpr UINT WM_INITDIALOG = 0x0110;
constexpr UINT EM_SETSEL = 0x00B1;
constexpr UINT EM_REPLACESEL = 0x00C2;
constexpr DWORD LAYOUT_RTL = 0x00000001;

constexpr UINT MB_OK = 0;
constexpr UINT MB_OKCANCEL = 1;
constexpr UINT MB_ABORTRETRYIGNORE = 2;
constexpr UINT MB_YESNOCANCEL = 3;
constexpr UINT MB_YESNO = 4;
constexpr UINT MB_RETRYCANCEL = 5;
constexpr UINT MB_ICONHAND = 0x10;
constexpr UINT MB_ICONQUESTION = 0x20;
constexpr UINT MB_ICONEXCLAMATION = 0x30;
constexpr UINT MB_ICONASTERISK = 0x40;
constexpr UINT MB_DEFBUTTON2 = 0x100;
constexpr UINT MB_DEFBUTTON3 = 0x200;
constexpr UINT MB_SYSTEMMODAL = 0x1000;

constexpr int IDOK = 1;
constexpr int IDCANCEL = 2;
constexpr int IDABORT = 3;
constexpr int IDRETRY = 4;
constexpr int IDIGNORE = 5;
constexpr int IDYES = 6;
constexpr int IDNO = 7;

// Shows a box with a text and buttons and waits for the user: the button's id, or 0 on failure.
QN_API int MessageBoxW(HWND owner, const WCHAR* text, const WCHAR* caption, UINT flags);

// The popup of an owner that was active last, or the owner itself.
QN_API HWND GetLastActivePopup(HWND window);

// A window's class name, cut to `size`, and its length.
QN_API int GetClassNameW(HWND window, WCHAR* text, int size);

// Copies the text of a window, cut to `size`, and gives its length.
QN_API int GetWindowTextW(HWND window, WCHAR* text, int size);

// A hook that sees each message of a thread's windows after it was handled; `lParam` points at CWPRETSTRUCT.
constexpr int WH_CALLWNDPROCRET = 12;
using HHOOK = struct HHOOK__*;
using HOOKPROC = LRESULT (*)(int code, WPARAM wParam, LPARAM lParam);
struct CWPRETSTRUCT {
  LRESULT lResult;
  LPARAM lParam;
  WPARAM wParam;
  UINT message;
  HWND hwnd;
};
QN_API HHOOK SetWindowsHookExW(int kind, HOOKPROC procedure, HANDLE module, DWORD threadId);
QN_API BOOL UnhookWindowsHookEx(HHOOK hook);
QN_API LRESULT CallNextHookEx(HHOOK hook, int code, WPARAM wParam, LPARAM lParam);

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

// The place of a window's client area in pixels, from (0, 0) to its width and height; zero on failure.
QN_API BOOL GetClientRect(HWND window, RECT* place);

// The published cursors by their number, which MAKEINTRESOURCEW of module.h makes a name for LoadCursorW.
using HCURSOR = struct HCURSOR__*;
constexpr WORD IDC_ARROW = 32512;
constexpr WORD IDC_WAIT = 32514;

// A cursor of a module or, with a null module, a published one; it stays the system's. Null on failure.
QN_API HCURSOR LoadCursorW(HMODULE module, const WCHAR* name);

// Shows a cursor and returns the one before; null shows none.
QN_API HCURSOR SetCursor(HCURSOR cursor);

// The layout that new windows get: 0, or LAYOUT_RTL for languages written from the right.
QN_API BOOL SetProcessDefaultLayout(DWORD layout);
QN_API BOOL GetProcessDefaultLayout(DWORD* layout);

// What two rectangles share, which may be one of them. FALSE with an empty `*shared` if that is nothing.
QN_API BOOL IntersectRect(RECT* shared, const RECT* first, const RECT* second);

}  // namespace qnplatform
