// The layouts of YUV frames: the one table from which pixel types, sizes, offsets and the row kernels come.
#pragma once

#include <cstdlib>

#include "qn/image/qndib.h"
#include "qn/image/qnyuv.h"

namespace qn {

// In the order of memory.
enum class Planes { kPacked, kYUV, kYVU, kYInterleaved, kYUVA };

// How the samples of a row stand.
enum class RowKind {
  kNone,  // a layout that is described, but not converted
  kUYVY,  // bytes in one plane
  kYUYV,
  kPairs,      // bytes in three planes, those of chroma one for each pair of pixels
  kTurns,      // as before with U and V in turns
  kPixels,     // bytes in three planes, chroma for each pixel
  kUYVYWords,  // words
  kYUYVWords,
  kTurnsWords,
  kPixelsWords,
  kV210  // three samples of 10 bits in each double word, in the order of kUYVY
};

// The bytes of a pair of pixels in the planes that a kind of rows has.
struct RowShape {
  int luma;
  int u;
  int v;

  constexpr bool IsPacked() const { return u == 0; }
  constexpr bool HasFullChroma() const { return v != 0 && v == luma; }
};
constexpr RowShape ShapeOf(RowKind kind) {
  constexpr RowShape kShapes[] = {{0, 0, 0}, {4, 0, 0}, {4, 0, 0}, {2, 1, 1}, {2, 2, 0}, {2, 2, 2},
                                  {8, 0, 0}, {8, 0, 0}, {4, 4, 0}, {4, 4, 4}, {0, 0, 0}};
  return kShapes[static_cast<int>(kind)];
}

namespace yuv {

using Bytes = uint64_t;

template <int bytes>
constexpr Bytes PerPixel(Bytes width, Bytes height) {
  return width * height * bytes;
}
template <int pixels>
constexpr Bytes PerGroup(Bytes width, Bytes height) {
  return width * height / pixels;
}
template <int numerator, int denominator = 1>
constexpr Bytes Stride(Bytes width) {
  return width / denominator * numerator;
}
template <int bytes>
constexpr Bytes PerPair(Bytes width, Bytes height) {
  return width / 2 * height * bytes;
}
constexpr Bytes PerQuad(Bytes width, Bytes height) {
  return (height / 2) * (width / 2) * 4;
}
constexpr Bytes V210Luma(Bytes width, Bytes height) {
  return (width + 47) / 48 * height * 128;
}

}  // namespace yuv

// The pixel type, the bits of a pixel and those that it takes in memory; a mere second name has none. The
// bytes of luma and of each chroma plane, and the stride of the latter, by width and height; the rows, and
// how many of luma have one of chroma; the bits of a sample, and at which bit of a word the lowest is.
struct YuvLayout {
  int type;
  DWORD fourcc;
  int depth;
  int storage;
  Planes planes;
  yuv::Bytes (*luma)(yuv::Bytes width, yuv::Bytes height);
  yuv::Bytes (*chroma)(yuv::Bytes width, yuv::Bytes height);
  yuv::Bytes (*chromaStride)(yuv::Bytes width);
  RowKind rows;
  int lumaRows;
  int bits;
  int lowest;
};

// The layout of a FourCC or of a pixel type; null for others.
const YuvLayout* YuvLayoutOf(DWORD fourcc);
const YuvLayout* YuvLayoutOfType(int type);

// The rows of a plane; those of one that a frame does not have are null.
struct Plane {
  BYTE* bits = nullptr;
  ptrdiff_t stride = 0;

  BYTE* Row(size_t row) const { return bits ? bits + static_cast<ptrdiff_t>(row) * stride : nullptr; }
  // Bytes that a row may have.
  size_t Room() const { return static_cast<size_t>(std::abs(stride)); }
};
inline Plane PlaneAt(const void* bits, DWORD offset, DWORD stride) {
  return {static_cast<BYTE*>(const_cast<void*>(bits)) + offset, static_cast<LONG>(stride)};
}

}  // namespace qn
