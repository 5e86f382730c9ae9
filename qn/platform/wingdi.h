// Drawing, as far as text fitting and pictures need it: device contexts, screens, the extent of a text, and
// bitmaps.
//
// The backend of winuser_internal.h supplies device contexts, screens and texts; until there is one each of
// their functions fails. Bitmaps live in memory and need none.
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

// --- Bitmaps ----------------------------------------------------------------------------------------------

using HBITMAP = struct HBITMAP__*;

// A device-independent bitmap is a header, for BI_BITFIELDS the masks of red, green and blue (at byte 40,
// which lies within a header of 52 bytes or more), the colour table, and apart from these the bits: rows
// padded to 4 bytes, the bottom one first unless the height is negative.
struct BITMAPINFOHEADER {
  DWORD biSize;  // 40, or more with fields that are not looked at
  LONG biWidth;
  LONG biHeight;
  WORD biPlanes;  // 1
  WORD biBitCount;
  DWORD biCompression;
  DWORD biSizeImage;  // bytes of the bits: needed for BI_RLE8 and BI_RLE4
  LONG biXPelsPerMeter;
  LONG biYPelsPerMeter;
  DWORD biClrUsed;  // colours in the table; 0 for as many as the bits can tell, none beyond 8 bits
  DWORD biClrImportant;
};
static_assert(sizeof(BITMAPINFOHEADER) == 40);

struct RGBQUAD {
  BYTE rgbBlue;
  BYTE rgbGreen;
  BYTE rgbRed;
  BYTE rgbReserved;
};
static_assert(sizeof(RGBQUAD) == 4);

// A colour of a palette, in the other order.
struct PALETTEENTRY {
  BYTE peRed;
  BYTE peGreen;
  BYTE peBlue;
  BYTE peFlags;
};
static_assert(sizeof(PALETTEENTRY) == 4);

struct BITMAPINFO {
  BITMAPINFOHEADER bmiHeader;
  RGBQUAD bmiColors[1];
};
static_assert(sizeof(BITMAPINFO) == 44);

struct BITMAP {
  LONG bmType;
  LONG bmWidth;
  LONG bmHeight;
  LONG bmWidthBytes;
  WORD bmPlanes;
  WORD bmBitsPixel;
  void* bmBits;
};
static_assert(offsetof(BITMAP, bmBits) == 24 && sizeof(BITMAP) == 32);

constexpr DWORD BI_RGB = 0;
constexpr DWORD BI_RLE8 = 1;
constexpr DWORD BI_RLE4 = 2;
constexpr DWORD BI_BITFIELDS = 3;
constexpr DWORD CBM_INIT = 4;
constexpr UINT DIB_RGB_COLORS = 0;

// A new bitmap of the size in `header`, the sign of its height aside; delete it with DeleteObject. It has 32
// bits a pixel whatever the device: `dc` is not used and may be null. It is black, or with CBM_INIT in
// `flags` shows the DIB of `info` and `bits`, which must be of the same size: 1, 4, 8, 16, 24 or 32 bits as
// BI_RGB, 16 or 32 as BI_BITFIELDS with masks of adjacent bits, and, bottom row first, 4 bits as BI_RLE4 and
// 8 as BI_RLE8. Colours beyond the table and pixels that a compressed DIB leaves out are black. `usage` is
// DIB_RGB_COLORS. Null on failure: last error 87 for a bad argument, a DIB of another kind, and more than
// 2^26 pixels; 8 when there is no memory.
QN_API HBITMAP CreateDIBitmap(HDC dc, const BITMAPINFOHEADER* header, DWORD flags, const void* bits,
                              const BITMAPINFO* info, UINT usage);

// Copies up to `lines` rows of a bitmap, from row `start` of the DIB on, and returns how many. `info` tells
// the form: the bitmap's own width and height, the latter negative for the top row first, 24 or 32 bits,
// BI_RGB. The fourth byte of 32 is 0. Without `bits` nothing is copied: biSizeImage is set, with a biBitCount
// of 0 the whole header to the 32-bit form, and the result is nonzero. `dc` is not used. Zero on failure,
// last error 6 for a handle that is no bitmap and 87 for another form.
QN_API int GetDIBits(HDC dc, HBITMAP bitmap, UINT start, UINT lines, void* bits, BITMAPINFO* info,
                     UINT usage);

// Describes a bitmap in the BITMAP at `information`, which has room for `size` bytes. Returns the bytes
// stored, with null `information` the bytes needed, and 0 on failure.
QN_API int GetObjectW(HANDLE object, int size, void* information);

// Ends a bitmap. Zero for a handle that is none.
QN_API BOOL DeleteObject(HGDIOBJ object);

}  // namespace qnplatform
