// Drawing, as far as text fitting needs it: device contexts, screens and the extent of a text.
//
// The backend of winuser_internal.h supplies them; until there is one each function fails.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

using HDC = struct HDC__*;
using HGDIOBJ = void*;

struct SIZE {
  LONG cx;
  LONG cy;
};

using HFONT = struct HFONT__*;
using HMONITOR = struct HMONITOR__*;

struct RECT {
  LONG left;
  LONG top;
  LONG right;
  LONG bottom;
};

constexpr int BITSPIXEL = 12;

// A property of a device; 0 on failure. Without a backend the device is the library's own surface, which has
// 32 bits a pixel.
QN_API int GetDeviceCaps(HDC dc, int index);

// A device context of a display; delete it with DeleteDC. Null on failure.
QN_API HDC CreateDCW(const WCHAR* driver, const WCHAR* device, const WCHAR* output, const void* mode);
QN_API BOOL DeleteDC(HDC dc);

struct MONITORINFOEXW {
  DWORD cbSize;
  RECT rcMonitor;
  RECT rcWork;
  DWORD dwFlags;
  WCHAR szDevice[32];
};

// Calls `procedure` for each monitor until it returns FALSE; nonzero if it never did. `dc` and `clip` are not
// used.
using MONITORENUMPROC = BOOL (*)(HMONITOR monitor, HDC dc, RECT* place, LPARAM data);
QN_API BOOL EnumDisplayMonitors(HDC dc, const RECT* clip, MONITORENUMPROC procedure, LPARAM data);
QN_API BOOL GetMonitorInfoW(HMONITOR monitor, MONITORINFOEXW* information);

// The device context of a window's client area, with null of the screen; release it. Null on failure.
QN_API HDC GetDC(HWND window);
QN_API int ReleaseDC(HWND window, HDC dc);

// Selects a font or another object; the one before, or null.
QN_API HGDIOBJ SelectObject(HDC dc, HGDIOBJ object);

// The width and height in pixels of `length` characters in the selected font. Zero on failure.
QN_API BOOL GetTextExtentPoint32W(HDC dc, const WCHAR* text, int length, SIZE* extent);

}  // namespace qnplatform
