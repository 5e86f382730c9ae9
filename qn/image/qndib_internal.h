// The layouts of pixels in memory: the one table from which sizes, masks and the row kernels come.
#pragma once

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

}  // namespace qn
