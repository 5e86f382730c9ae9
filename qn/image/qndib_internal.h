// The layouts of pixels in memory: the one table from which sizes, masks and the row kernels come.
#pragma once

#include <atomic>

#include "qn/image/qndib.h"

namespace qn {

enum class PixelKind { kPalette, kGray, kColour, kFloat };

// Bits of a pixel, counted from the lowest of its first byte; no bits for a component that it does not have.
struct Component {
  BYTE first;
  BYTE bits;
};

struct PixelLayout {
  int type;
  PixelKind kind;
  DWORD compression;
  int bits;
  Component blue;
  Component green;
  Component red;
  Component alpha;
};

// Pixels of a palette and gray ones are one number.
constexpr PixelLayout kPixelLayouts[] = {
    {QNPIXEL_PALETTE1, PixelKind::kPalette, BI_RGB, 1, {}, {}, {}, {}},
    {QNPIXEL_GRAY1, PixelKind::kGray, QNBI_GRAY, 1, {}, {}, {}, {}},
    {QNPIXEL_GRAY2, PixelKind::kGray, QNBI_GRAY, 2, {}, {}, {}, {}},
    {QNPIXEL_GRAY4, PixelKind::kGray, QNBI_GRAY, 4, {}, {}, {}, {}},
    {QNPIXEL_GRAY8, PixelKind::kGray, QNBI_GRAY, 8, {}, {}, {}, {}},
    {QNPIXEL_GRAY16, PixelKind::kGray, QNBI_GRAY, 16, {}, {}, {}, {}},
    {QNPIXEL_GRAY32, PixelKind::kGray, QNBI_GRAY, 32, {}, {}, {}, {}},
    {QNPIXEL_PALETTE4, PixelKind::kPalette, BI_RGB, 4, {}, {}, {}, {}},
    {QNPIXEL_PALETTE8, PixelKind::kPalette, BI_RGB, 8, {}, {}, {}, {}},
    {QNPIXEL_RGB555, PixelKind::kColour, BI_RGB, 16, {0, 5}, {5, 5}, {10, 5}, {15, 1}},
    {QNPIXEL_RGB565, PixelKind::kColour, BI_BITFIELDS, 16, {0, 5}, {5, 6}, {11, 5}, {}},
    {QNPIXEL_RGB24, PixelKind::kColour, BI_RGB, 24, {0, 8}, {8, 8}, {16, 8}, {}},
    {QNPIXEL_RGB32, PixelKind::kColour, BI_RGB, 32, {0, 8}, {8, 8}, {16, 8}, {24, 8}},
    {QNPIXEL_RGBA32, PixelKind::kColour, QNBI_DEEP, 32, {0, 8}, {8, 8}, {16, 8}, {24, 8}},
    {QNPIXEL_RGB30, PixelKind::kColour, BI_BITFIELDS, 32, {0, 10}, {10, 10}, {20, 10}, {30, 2}},
    {QNPIXEL_RGBA64, PixelKind::kColour, QNBI_DEEP, 64, {0, 16}, {16, 16}, {32, 16}, {48, 16}},
    {QNPIXEL_RGBAFLOAT, PixelKind::kFloat, QNBI_DEEP, 128, {0, 32}, {32, 32}, {64, 32}, {96, 32}},
    {QNPIXEL_A46B, PixelKind::kColour, QNBI_A46B, 64, {0, 16}, {16, 16}, {32, 16}, {48, 16}},
    {QNPIXEL_RGB30_REVERSED, PixelKind::kColour, BI_RGB, 32, {20, 10}, {10, 10}, {0, 10}, {30, 2}},
    {QNPIXEL_F32I, PixelKind::kFloat, QNBI_F32I, 128, {0, 32}, {32, 32}, {64, 32}, {96, 32}},
};
constexpr int kFirstLayout = QNPIXEL_PALETTE1;
constexpr int kLayoutCount = sizeof(kPixelLayouts) / sizeof(kPixelLayouts[0]);
static_assert(kLayoutCount == QNPIXEL_F32I - kFirstLayout + 1);

// The row of a type from 16 to 35; null for others.
constexpr const PixelLayout* LayoutOf(int type) {
  return type >= kFirstLayout && type < kFirstLayout + kLayoutCount ? &kPixelLayouts[type - kFirstLayout]
                                                                    : nullptr;
}

// The bytes of a row padded to 4 bytes.
constexpr uint64_t RowBytes(int bits, LONG width) {
  return (static_cast<uint64_t>(bits) * static_cast<uint64_t>(width) + 31) / 32 * 4;
}

// The bitmaps of QnDibAlloc that are alive, and the bytes of their bits: for a debugger.
struct DibCounters {
  std::atomic<int64_t> bitmaps;
  std::atomic<int64_t> bytes;
};
extern DibCounters g_dibs;

// The tag of the thread's latest allocation, for one who looks through a memory dump for a leak.
constexpr int kDibTagRoom = 16;
extern thread_local char t_dibTag[kDibTagRoom];

// What an operation on pixels works on: the rows of the bitmap from the first one in memory, and the area
// left of the rectangle.
struct DibArea {
  const PixelLayout* layout;
  BYTE* bits;
  ptrdiff_t stride;
  RECT area;

  BYTE* Row(LONG y) const { return bits + y * stride; }
  size_t Width() const { return static_cast<size_t>(area.right - area.left); }
  bool IsEmpty() const { return area.left >= area.right || area.top >= area.bottom; }
  bool Contains(LONG x, LONG y) const {
    return x >= area.left && x < area.right && y >= area.top && y < area.bottom;
  }
};

// Finds them for a bitmap of a type from `firstType` to 35. E_INVALIDARG for null, E_NOTIMPL for other types.
HRESULT FindArea(const BITMAPINFOHEADER* header, const void* bits, const RECT* rectangle, LONG stride,
                 int firstType, DibArea* found);

}  // namespace qn
