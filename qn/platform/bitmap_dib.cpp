#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "qn/platform/bitmap_internal.h"

namespace qn {
namespace {

static_assert(std::endian::native == std::endian::little, "pixels are copied as they lie in a file");

// The colours of a table. Those that it does not have are black.
using Colours = std::array<uint32_t, 256>;

Colours ReadColours(const BITMAPINFO& info) {
  Colours colours = {};
  const BITMAPINFOHEADER& header = info.bmiHeader;
  const uint32_t most = 1u << header.biBitCount;
  const uint32_t count = header.biClrUsed == 0 ? most : std::min<uint32_t>(header.biClrUsed, most);
  const uint8_t* const table = reinterpret_cast<const uint8_t*>(&info) + header.biSize;
  for (uint32_t i = 0; i < count; ++i) std::memcpy(&colours[i], table + i * sizeof(RGBQUAD), 3);
  return colours;
}

// One of the colours in a pixel.
struct Channel {
  uint32_t mask;
  uint32_t shift;
  uint32_t bits;

  explicit Channel(uint32_t channelMask)
      : mask(channelMask),
        shift(mask ? static_cast<uint32_t>(std::countr_zero(mask)) : 0),
        bits(static_cast<uint32_t>(std::popcount(mask))) {}

  bool IsAdjacent() const {
    const uint32_t low = mask >> shift;
    return (low & (low + 1)) == 0;
  }

  // The value in 8 bits: the highest ones, or the few there are repeated, so that the largest becomes 255.
  uint32_t Get(uint32_t pixel) const {
    const uint32_t value = (pixel & mask) >> shift;
    if (bits >= 8) return value >> (bits - 8);
    uint32_t repeated = value << (8 - bits);
    for (uint32_t have = bits; have > 0 && have < 8; have *= 2) repeated |= repeated >> have;
    return repeated;
  }
};

struct Masks {
  Channel red;
  Channel green;
  Channel blue;

  uint32_t Get(uint32_t pixel) const {
    return red.Get(pixel) << 16 | green.Get(pixel) << 8 | blue.Get(pixel);
  }
};

Masks ReadMasks(const BITMAPINFO& info) {
  uint32_t masks[3];
  if (info.bmiHeader.biCompression == BI_BITFIELDS) {
    std::memcpy(masks, reinterpret_cast<const uint8_t*>(&info) + sizeof(BITMAPINFOHEADER), sizeof masks);
    return {Channel(masks[0]), Channel(masks[1]), Channel(masks[2])};
  }
  if (info.bmiHeader.biBitCount == 16) return {Channel(0x7C00), Channel(0x03E0), Channel(0x001F)};
  return {Channel(0xFF0000), Channel(0x00FF00), Channel(0x0000FF)};
}

// Calls `draw(row, bits)` for each row of an uncompressed DIB.
template <class Draw>
void DrawRows(const BITMAPINFOHEADER& header, const void* bits, Bitmap& bitmap, Draw draw) {
  const uint64_t stride = DibStride(bitmap.Width(), header.biBitCount);
  for (uint32_t scan = 0; scan < bitmap.Height(); ++scan) {
    const uint32_t y = header.biHeight < 0 ? scan : bitmap.Height() - 1 - scan;
    draw(bitmap.Row(y), static_cast<const uint8_t*>(bits) + scan * stride);
  }
}

void DrawIndexed(const BITMAPINFO& info, const void* bits, Bitmap& bitmap) {
  const Colours colours = ReadColours(info);
  const uint32_t bitCount = info.bmiHeader.biBitCount;
  const uint32_t mask = (1u << bitCount) - 1;
  DrawRows(info.bmiHeader, bits, bitmap, [&](uint32_t* row, const uint8_t* from) {
    for (uint32_t x = 0; x < bitmap.Width(); ++x) {
      const uint32_t bit = x * bitCount;
      row[x] = colours[(from[bit / 8] >> (8 - bitCount - bit % 8)) & mask];
    }
  });
}

bool DrawDirect(const BITMAPINFO& info, const void* bits, Bitmap& bitmap) {
  const Masks masks = ReadMasks(info);
  for (const Channel& channel : {masks.red, masks.green, masks.blue}) {
    if (!channel.IsAdjacent()) return false;
  }
  const uint32_t pixelBytes = info.bmiHeader.biBitCount / 8u;
  DrawRows(info.bmiHeader, bits, bitmap, [&](uint32_t* row, const uint8_t* from) {
    for (uint32_t x = 0; x < bitmap.Width(); ++x, from += pixelBytes) {
      uint32_t pixel = 0;
      std::memcpy(&pixel, from, pixelBytes);
      row[x] = masks.Get(pixel);
    }
  });
  return true;
}

// A compressed DIB: pairs of bytes that each draw a run, or move the place. What falls outside of the bitmap
// is not drawn, and a stream that ends early leaves the rest black.
class RunReader {
 public:
  RunReader(const BITMAPINFO& info, const void* bits, Bitmap& bitmap)
      : colours_(ReadColours(info)),
        wide_(info.bmiHeader.biCompression == BI_RLE8),
        next_(static_cast<const uint8_t*>(bits)),
        left_(info.bmiHeader.biSizeImage),
        bitmap_(bitmap) {}

  void Draw() {
    while (y_ < bitmap_.Height() && left_ >= 2) {
      const uint8_t* const pair = Take(2);
      if (pair[0] > 0) {
        DrawRun(pair[0], [value = pair + 1](uint32_t) { return value; });
      } else if (!Escape(pair[1])) {
        return;
      }
    }
  }

 private:
  enum : uint8_t { kEndOfRow = 0, kEnd = 1, kMove = 2 };  // larger ones count pixels that follow

  const uint8_t* Take(uint32_t bytes) {
    const uint8_t* const taken = next_;
    next_ += bytes;
    left_ -= bytes;
    return taken;
  }

  // False at the end.
  bool Escape(uint8_t code) {
    if (code == kEnd) return false;
    if (code == kEndOfRow) {
      x_ = 0;
      ++y_;
    } else if (code == kMove) {
      if (left_ < 2) return false;
      const uint8_t* const distance = Take(2);
      x_ += distance[0];
      y_ += distance[1];
    } else {
      const uint32_t bytes = wide_ ? code : (code + 1u) / 2;
      if (left_ < bytes) return false;
      const uint8_t* const pixels = Take(bytes);
      DrawRun(code, [&](uint32_t i) { return pixels + (wide_ ? i : i / 2); });
      Take(std::min(bytes % 2, left_));
    }
    return true;
  }

  // Draws `count` pixels; `source` tells where the byte of one is. A byte of 4-bit pixels has two, which take
  // turns, the upper one first.
  template <class Source>
  void DrawRun(uint32_t count, Source source) {
    for (uint32_t i = 0; i < count && x_ < bitmap_.Width(); ++i, ++x_) {
      const uint8_t byte = *source(i);
      const uint32_t index = wide_ ? byte : i % 2 ? byte & 15u : byte >> 4u;
      bitmap_.Row(bitmap_.Height() - 1 - y_)[x_] = colours_[index];
    }
  }

  const Colours colours_;
  const bool wide_;
  const uint8_t* next_;
  uint32_t left_;
  Bitmap& bitmap_;
  uint64_t x_ = 0;
  uint32_t y_ = 0;  // from the bottom
};

}  // namespace

bool DrawDib(const BITMAPINFO& info, const void* bits, Bitmap& bitmap) {
  const BITMAPINFOHEADER& header = info.bmiHeader;
  const uint32_t bitCount = header.biBitCount;
  if (header.biSize < sizeof header || header.biPlanes != 1) return false;
  switch (header.biCompression) {
    case BI_RGB:
      if (bitCount == 1 || bitCount == 4 || bitCount == 8) {
        DrawIndexed(info, bits, bitmap);
        return true;
      }
      return (bitCount == 16 || bitCount == 24 || bitCount == 32) && DrawDirect(info, bits, bitmap);
    case BI_BITFIELDS:
      return (bitCount == 16 || bitCount == 32) && DrawDirect(info, bits, bitmap);
    case BI_RLE8:
    case BI_RLE4:
      if (header.biHeight < 0 || bitCount != (header.biCompression == BI_RLE8 ? 8 : 4)) return false;
      RunReader(info, bits, bitmap).Draw();
      return true;
    default:
      return false;
  }
}

}  // namespace qn
