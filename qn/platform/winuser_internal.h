// What supplies windows and device contexts: the drawing layer, or a test.
#pragma once

#include "qn/platform/wingdi.h"
#include "qn/platform/winuser.h"

namespace qn {

// One operation each, with the contract of the platform function of that name.
struct WindowBackend {
  BOOL (*setWindowText)(HWND window, const WCHAR* text);
  int (*getWindowText)(HWND window, WCHAR* text, int size);
  int (*getWindowTextLength)(HWND window);
  HWND (*getDlgItem)(HWND dialog, int item);
  LRESULT (*sendMessage)(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
  HDC (*getDC)(HWND window);
  int (*releaseDC)(HWND window, HDC dc);
  HGDIOBJ (*selectObject)(HDC dc, HGDIOBJ object);
  BOOL (*getTextExtent)(HDC dc, const WCHAR* text, int length, SIZE* extent);

  // Null in a backend without: the function fails as without a backend.
  int (*messageBox)(HWND owner, const WCHAR* text, const WCHAR* caption, UINT flags);
  HWND (*getLastActivePopup)(HWND window);
  int (*getClassName)(HWND window, WCHAR* text, int size);
  HHOOK (*setHook)(int kind, HOOKPROC procedure, HANDLE module, DWORD threadId);
  BOOL (*unhook)(HHOOK hook);
  LRESULT (*callNextHook)(HHOOK hook, int code, WPARAM wParam, LPARAM lParam);
  int (*getDeviceCaps)(HDC dc, int index);
  HDC (*createDC)(const WCHAR* driver, const WCHAR* device, const WCHAR* output, const void* mode);
  BOOL (*deleteDC)(HDC dc);
  BOOL (*enumMonitors)(MONITORENUMPROC procedure, LPARAM data);
  BOOL (*getMonitorInfo)(HMONITOR monitor, MONITORINFOEXW* information);
  BOOL (*getClientRect)(HWND window, RECT* place);
  HCURSOR (*loadCursor)(HMODULE module, const WCHAR* name);
  HCURSOR (*setCursor)(HCURSOR cursor);
};

// Makes `backend` the supplier and returns the one before; null: there are no windows. The record must live
// as long as it is set. Set it before windows are used.
const WindowBackend* SetWindowBackend(const WindowBackend* backend);

}  // namespace qn
