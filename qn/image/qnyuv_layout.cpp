#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <limits>

#include "qn/image/qnyuv_internal.h"

namespace qn {
namespace {

using namespace yuv;

constexpr YuvLayout kLayouts[] = {
    {QnMakeFourCC('U', 'Y', 'V', 'Y'), Planes::kPacked, PerPixel<2>, nullptr, nullptr, RowKind::kUYVY, 1, 8,
     0},
    {QnMakeFourCC('Y', 'U', 'Y', 'V'), Planes::kPacked, PerPixel<2>, nullptr, nullptr, RowKind::kYUYV, 1, 8,
     0},
    {QnMakeFourCC('Y', '2', '1', '0'), Planes::kPacked, PerPixel<4>, nullptr, nullptr, RowKind::kYUYVWords, 1,
     10, 6},
    {QnMakeFourCC('v', '2', '1', '6'), Planes::kPacked, PerPixel<4>, nullptr, nullptr, RowKind::kNone, 1, 16,
     0},
    {QnMakeFourCC('y', '4', '1', '6'), Planes::kPacked, PerPixel<8>, nullptr, nullptr, RowKind::kNone, 1, 16,
     0},
    {QnMakeFourCC('v', '2', '1', '0'), Planes::kPacked, V210Luma, nullptr, nullptr, RowKind::kV210, 1, 10, 0},
    {QnMakeFourCC('I', '4', '2', '0'), Planes::kYUV, PerPixel<1>, PerGroup<4>, Stride<1, 2>, RowKind::kPairs,
     2, 8, 0},
    {QnMakeFourCC('I', 'Y', 'U', 'V'), Planes::kYUV, PerPixel<1>, PerGroup<4>, Stride<1, 2>, RowKind::kNone,
     2, 8, 0},
    {QnMakeFourCC('Y', 'V', '1', '2'), Planes::kYVU, PerPixel<1>, PerGroup<4>, Stride<1, 2>, RowKind::kPairs,
     2, 8, 0},
    {QnMakeFourCC('Y', '4', '1', 'B'), Planes::kYUV, PerPixel<1>, PerGroup<4>, Stride<1, 4>, RowKind::kNone,
     1, 8, 0},
    {QnMakeFourCC('Y', 'V', '1', '6'), Planes::kYVU, PerPixel<1>, PerPair<1>, Stride<1, 2>, RowKind::kPairs,
     1, 8, 0},
    {QnMakeFourCC('Y', 'V', '2', '4'), Planes::kYVU, PerPixel<1>, PerPixel<1>, Stride<1>, RowKind::kPixels, 1,
     8, 0},
    {QnMakeFourCC('N', 'V', '1', '2'), Planes::kYInterleaved, PerPixel<1>, PerGroup<2>, Stride<1>,
     RowKind::kTurns, 2, 8, 0},
    {QnMakeFourCC('N', 'V', '1', '6'), Planes::kYInterleaved, PerPixel<1>, PerPixel<1>, Stride<1>,
     RowKind::kNone, 1, 8, 0},
    {QnMakeFourCC('P', '0', '1', '0'), Planes::kYInterleaved, PerPixel<2>, PerQuad, Stride<4, 2>,
     RowKind::kTurnsWords, 2, 10, 6},
    {QnMakeFourCC('P', 'L', '1', '0'), Planes::kYInterleaved, PerPixel<2>, PerQuad, Stride<4, 2>,
     RowKind::kTurnsWords, 2, 10, 0},
    {QnMakeFourCC('P', '0', '1', '2'), Planes::kYInterleaved, PerPixel<2>, PerQuad, Stride<4, 2>,
     RowKind::kTurnsWords, 2, 12, 4},
    {QnMakeFourCC('P', '2', '1', '0'), Planes::kYInterleaved, PerPixel<2>, PerPair<4>, Stride<4, 2>,
     RowKind::kTurnsWords, 1, 10, 6},
    {QnMakeFourCC('P', '2', '1', '2'), Planes::kYInterleaved, PerPixel<2>, PerPair<4>, Stride<4, 2>,
     RowKind::kTurnsWords, 1, 12, 4},
    {QnMakeFourCC('P', '2', '1', '6'), Planes::kYInterleaved, PerPixel<2>, PerPair<4>, Stride<4, 2>,
     RowKind::kTurnsWords, 1, 16, 0},
    {QnMakeFourCC('P', '4', '1', '0'), Planes::kYUV, PerPixel<2>, PerPixel<2>, Stride<2>,
     RowKind::kPixelsWords, 1, 10, 6},
    {QnMakeFourCC('P', '4', '1', '2'), Planes::kYUV, PerPixel<2>, PerPixel<2>, Stride<2>,
     RowKind::kPixelsWords, 1, 12, 4},
    {QnMakeFourCC('A', '4', '1', '0'), Planes::kYUVA, PerPixel<2>, PerPixel<2>, Stride<2>,
     RowKind::kPixelsWords, 1, 10, 6},
};

}  // namespace

const YuvLayout* YuvLayoutOf(DWORD fourcc) {
  const auto* const layout = std::find_if(std::begin(kLayouts), std::end(kLayouts),
                                          [=](const YuvLayout& each) { return each.fourcc == fourcc; });
  return layout == std::end(kLayouts) ? nullptr : layout;
}

}  // namespace qn

DWORD QnYUVImageBytesAndOffsets(const BITMAPINFOHEADER* header, tQNYUVOFFSETS* offsets) {
  if (!header || header->biWidth < 0) return 0;
  const qn::YuvLayout* const layout = qn::YuvLayoutOf(header->biCompression);
  if (!layout) return 0;
  const auto width = static_cast<qn::yuv::Bytes>(header->biWidth);
  const auto height = static_cast<qn::yuv::Bytes>(std::abs(int64_t{header->biHeight}));
  // The product of two 31-bit numbers times 8 planes of a byte would not fit in 64 bits.
  if (width * height > std::numeric_limits<DWORD>::max()) return 0;

  const bool packed = layout->planes == qn::Planes::kPacked;
  const qn::yuv::Bytes luma = layout->luma(width, height);
  const qn::yuv::Bytes chroma = packed ? 0 : layout->chroma(width, height);
  const auto stride = static_cast<DWORD>(packed ? 0 : layout->chromaStride(width));
  const auto first = static_cast<DWORD>(packed ? 0 : luma);
  const auto second = static_cast<DWORD>(luma + chroma);
  const auto third = static_cast<DWORD>(luma + 2 * chroma);
  tQNYUVOFFSETS found = {static_cast<DWORD>(height ? luma / height : 0), first, stride, 0, 0, 0, 0};
  qn::yuv::Bytes total = luma + 2 * chroma;
  switch (layout->planes) {
    case qn::Planes::kPacked:
      break;
    case qn::Planes::kYInterleaved:
      total = luma + chroma;
      break;
    case qn::Planes::kYVU:
      found.uOffset = second;
      found.vOffset = first;
      found.vStride = stride;
      break;
    case qn::Planes::kYUVA:
      found.alphaOffset = third;
      found.alphaStride = stride;
      total += chroma;
      [[fallthrough]];
    case qn::Planes::kYUV:
      found.vOffset = second;
      found.vStride = stride;
      break;
  }
  if (total > std::numeric_limits<DWORD>::max()) return 0;
  if (offsets) *offsets = found;
  return static_cast<DWORD>(total);
}
