// Drawing, as far as text fitting needs it: device contexts and the extent of a text.
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

// The device context of a window's client area; release it. Null on failure.
QN_API HDC GetDC(HWND window);
QN_API int ReleaseDC(HWND window, HDC dc);

// Selects a font or another object; the one before, or null.
QN_API HGDIOBJ SelectObject(HDC dc, HGDIOBJ object);

// The width and height in pixels of `length` characters in the selected font. Zero on failure.
QN_API BOOL GetTextExtentPoint32W(HDC dc, const WCHAR* text, int length, SIZE* extent);

}  // namespace qnplatform
