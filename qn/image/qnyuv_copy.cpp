#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "qn/image/qnyuv_internal.h"

namespace qn {
namespace {

// How many of so many bytes a row has room for; what takes none always fits.
size_t RoomFor(const Plane& plane, int bytes) {
  return bytes ? plane.Room() / static_cast<size_t>(bytes) : SIZE_MAX;
}

struct Frame {
  RowShape shape;
  Plane luma;
  Plane u;
  Plane v;

  // From a place on; `x` is even where pairs are packed.
  Frame(RowKind kind, const void* bits, const tQNYUVOFFSETS& at, size_t x, size_t y, size_t lumaRows)
      : shape(ShapeOf(kind)) {
    const auto plane = [&](DWORD offset, DWORD stride, size_t bytes, size_t row) {
      const Plane whole = PlaneAt(bits, offset, stride);
      return Plane{whole.Row(row) + bytes, whole.stride};
    };
    const auto bytes = [](size_t count, int each) { return count * static_cast<size_t>(each); };
    luma = plane(0, at.yStride, shape.IsPacked() ? bytes(x / 2, shape.luma) : bytes(x, shape.luma / 2), y);
    u = plane(at.uOffset, at.uStride, bytes(x / 2, shape.u), y / lumaRows);
    v = plane(at.vOffset, at.vStride, bytes(x / 2, shape.v), y / lumaRows);
  }

  size_t LumaRoom() const {
    return shape.IsPacked() ? RoomFor(luma, shape.luma) * 2 : RoomFor(luma, shape.luma / 2);
  }
  size_t PairRoom() const { return std::min({LumaRoom() / 2, RoomFor(u, shape.u), RoomFor(v, shape.v)}); }
};

struct Arguments {
  const BITMAPINFOHEADER* toHeader;
  void* to;
  const tQNYUVOFFSETS* toOffsets;
  const BITMAPINFOHEADER* fromHeader;
  const void* from;
  const tQNYUVOFFSETS* fromOffsets;
  LONG x, y, width, height;
};

// The chroma of a row, or all of it where pairs are packed.
template <RowKind kFrom, RowKind kTo>
void CopyPairs(const Frame& from, const Frame& to, size_t row, size_t lumaRow, size_t pairs) {
  const BYTE* const u = from.u.Row(row);
  const BYTE* const v = from.v.Row(row);
  if constexpr (kFrom == kTo) {
    if (from.shape.IsPacked()) {
      std::memmove(to.luma.Row(lumaRow), from.luma.Row(lumaRow),
                   pairs * static_cast<size_t>(from.shape.luma));
    } else {
      std::memmove(to.u.Row(row), u, pairs * static_cast<size_t>(from.shape.u));
      if (from.shape.v) std::memmove(to.v.Row(row), v, pairs * static_cast<size_t>(from.shape.v));
    }
  } else if constexpr (kTo == RowKind::kPairs) {
    static_assert(kFrom == RowKind::kTurns);
    BYTE* const toU = to.u.Row(row);
    BYTE* const toV = to.v.Row(row);
    for (size_t i = 0; i < pairs; ++i) {
      toU[i] = u[2 * i];
      toV[i] = u[2 * i + 1];
    }
  } else if constexpr (kTo == RowKind::kTurns) {
    static_assert(kFrom == RowKind::kPairs);
    BYTE* const turns = to.u.Row(row);
    for (size_t i = 0; i < pairs; ++i) {
      turns[2 * i] = u[i];
      turns[2 * i + 1] = v[i];
    }
  } else {
    static_assert(kFrom == RowKind::kPairs && kTo == RowKind::kYUYV);
    const BYTE* const luma = from.luma.Row(lumaRow);
    BYTE* const packed = to.luma.Row(lumaRow);
    for (size_t i = 0; i < pairs; ++i) {
      packed[4 * i] = luma[2 * i];
      packed[4 * i + 1] = u[i];
      packed[4 * i + 2] = luma[2 * i + 1];
      packed[4 * i + 3] = v[i];
    }
  }
}

// `kLumaRows` rows of luma have one of chroma.
template <RowKind kFrom, RowKind kTo, size_t kLumaRows>
HRESULT CopyPlanes(const Arguments& a) {
  if (!a.toHeader || !a.to || !a.toOffsets || !a.fromHeader || !a.from || !a.fromOffsets) return E_POINTER;
  const LONG frameWidth = a.fromHeader->biWidth;
  if (a.x < 0 || a.y < 0 || a.width < 0 || a.height < 0 || a.x > frameWidth ||
      int64_t{a.y} + a.height > std::abs(int64_t{a.fromHeader->biHeight})) {
    return E_INVALIDARG;
  }
  constexpr bool kPacks = ShapeOf(kTo).IsPacked();
  const auto x = static_cast<size_t>(kPacks ? a.x & ~1 : a.x);
  const auto y = static_cast<size_t>(a.y);
  const auto height = static_cast<size_t>(a.height);
  const Frame from(kFrom, a.from, *a.fromOffsets, x, y, kLumaRows);
  const Frame to(kTo, a.to, *a.toOffsets, 0, 0, kLumaRows);
  const auto whole = static_cast<size_t>(frameWidth);
  if (from.LumaRoom() < (from.shape.IsPacked() ? whole & ~size_t{1} : whole) || from.PairRoom() < whole / 2) {
    return E_INVALIDARG;
  }
  const size_t room = std::min(whole - x, to.LumaRoom());
  const size_t width = a.width == 0 ? room : std::min(room, static_cast<size_t>(a.width));
  const size_t pairs = std::min(width / 2, to.PairRoom());
  if constexpr (!kPacks) {
    const size_t bytes = width * static_cast<size_t>(from.shape.luma / 2);
    for (size_t row = 0; row < height; ++row) std::memmove(to.luma.Row(row), from.luma.Row(row), bytes);
  }
  for (size_t row = 0; row < height / kLumaRows; ++row) {
    CopyPairs<kFrom, kTo>(from, to, row, row * kLumaRows, pairs);
  }
  return S_OK;
}

}  // namespace
}  // namespace qn

// All have one list of arguments.
#define QN_YUV_COPY(name, from, to, lumaRows)                                                            \
  HRESULT name(const BITMAPINFOHEADER* toHeader, void* target, const tQNYUVOFFSETS* toOffsets,           \
               const BITMAPINFOHEADER* fromHeader, const void* source, const tQNYUVOFFSETS* fromOffsets, \
               LONG x, LONG y, LONG width, LONG height) {                                                \
    return qn::CopyPlanes<qn::RowKind::from, qn::RowKind::to, lumaRows>(                                 \
        {toHeader, target, toOffsets, fromHeader, source, fromOffsets, x, y, width, height});            \
  }
QN_YUV_COPY(QnYUV_I420_To_I420_SubRect, kPairs, kPairs, 2)
QN_YUV_COPY(QnYUV_YV12_To_I420, kPairs, kPairs, 2)
QN_YUV_COPY(QnYUV_NV12_To_I420, kTurns, kPairs, 2)
QN_YUV_COPY(QnYUV_NV12_To_I420_SubRect, kTurns, kPairs, 2)
QN_YUV_COPY(QnYUV_I420_To_NV12, kPairs, kTurns, 2)
QN_YUV_COPY(QnYUV_YV16_To_YUYV_SubRect, kPairs, kYUYV, 1)
QN_YUV_COPY(QnYUV_P010_To_P010_SubRect, kTurnsWords, kTurnsWords, 2)
QN_YUV_COPY(QnYUV_P216_To_P216_SubRect, kTurnsWords, kTurnsWords, 1)
QN_YUV_COPY(QnYUV_Y210_To_Y210_SubRect, kYUYVWords, kYUYVWords, 1)
