// Bitmaps, and how a device-independent one becomes such.
#pragma once

#include <vector>

#include "qn/platform/handle_internal.h"
#include "qn/platform/wingdi.h"

namespace qn {

// The picture behind an HBITMAP, black at first.
class Bitmap : public SystemObject {
 public:
  Bitmap(uint32_t width, uint32_t height) : width_(width), height_(height), pixels_(size_t{width} * height) {}

  uint32_t Width() const { return width_; }
  uint32_t Height() const { return height_; }

  // A row, counted from the top. The bytes of a pixel are blue, green, red and 0.
  uint32_t* Row(uint32_t y) { return &pixels_[size_t{y} * width_]; }
  const uint32_t* Row(uint32_t y) const { return &pixels_[size_t{y} * width_]; }

 private:
  const uint32_t width_;
  const uint32_t height_;
  std::vector<uint32_t> pixels_;
};

// Rows of a DIB's height, whatever its sign.
constexpr uint32_t DibRows(LONG height) {
  return height < 0 ? 0u - static_cast<uint32_t>(height) : static_cast<uint32_t>(height);
}

// Bytes from one row of a DIB to the next.
constexpr uint64_t DibStride(uint32_t width, uint32_t bitCount) {
  return (uint64_t{width} * bitCount + 31) / 32 * 4;
}

// Draws a DIB into a bitmap of its size; false, with the bitmap as it was, for one of a kind that is not
// read.
bool DrawDib(const BITMAPINFO& info, const void* bits, Bitmap& bitmap);

}  // namespace qn
