#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <limits>

#include "qn/image/qnyuv_internal.h"

namespace qn {
namespace {

using namespace yuv;
using enum Planes;
using enum RowKind;

constexpr YuvLayout kLayouts[] = {
    {QNPIXEL_UYVY, QnMakeFourCC('U', 'Y', 'V', 'Y'), 16, 16, kPacked, PerPixel<2>, nullptr, nullptr, kUYVY, 1,
     8, 0},
    {QNPIXEL_YUYV, QnMakeFourCC('Y', 'U', 'Y', 'V'), 16, 16, kPacked, PerPixel<2>, nullptr, nullptr, kYUYV, 1,
     8, 0},
    {QNPIXEL_Y210, QnMakeFourCC('Y', '2', '1', '0'), 20, 32, kPacked, PerPixel<4>, nullptr, nullptr,
     kYUYVWords, 1, 10, 6},
    {QNPIXEL_V216, QnMakeFourCC('v', '2', '1', '6'), 32, 32, kPacked, PerPixel<4>, nullptr, nullptr, kNone, 1,
     16, 0},
    {QNPIXEL_Y416, QnMakeFourCC('y', '4', '1', '6'), 64, 64, kPacked, PerPixel<8>, nullptr, nullptr, kNone, 1,
     16, 0},
    {QNPIXEL_V210, QnMakeFourCC('v', '2', '1', '0'), 20, 20, kPacked, V210Luma, nullptr, nullptr, kV210, 1,
     10, 0},
    {QNPIXEL_I420, QnMakeFourCC('I', '4', '2', '0'), 12, 12, kYUV, PerPixel<1>, PerGroup<4>, Stride<1, 2>,
     kPairs, 2, 8, 0},
    {0, QnMakeFourCC('I', 'Y', 'U', 'V'), 0, 0, kYUV, PerPixel<1>, PerGroup<4>, Stride<1, 2>, kNone, 2, 8, 0},
    {QNPIXEL_YV12, QnMakeFourCC('Y', 'V', '1', '2'), 12, 12, kYVU, PerPixel<1>, PerGroup<4>, Stride<1, 2>,
     kPairs, 2, 8, 0},
    {QNPIXEL_Y41B, QnMakeFourCC('Y', '4', '1', 'B'), 12, 12, kYUV, PerPixel<1>, PerGroup<4>, Stride<1, 4>,
     kNone, 1, 8, 0},
    {QNPIXEL_YV16, QnMakeFourCC('Y', 'V', '1', '6'), 16, 16, kYVU, PerPixel<1>, PerPair<1>, Stride<1, 2>,
     kPairs, 1, 8, 0},
    {QNPIXEL_YV24, QnMakeFourCC('Y', 'V', '2', '4'), 24, 24, kYVU, PerPixel<1>, PerPixel<1>, Stride<1>,
     kPixels, 1, 8, 0},
    {QNPIXEL_NV12, QnMakeFourCC('N', 'V', '1', '2'), 12, 12, kYInterleaved, PerPixel<1>, PerGroup<2>,
     Stride<1>, kTurns, 2, 8, 0},
    {QNPIXEL_NV16, QnMakeFourCC('N', 'V', '1', '6'), 16, 16, kYInterleaved, PerPixel<1>, PerPixel<1>,
     Stride<1>, kNone, 1, 8, 0},
    {QNPIXEL_P010, QnMakeFourCC('P', '0', '1', '0'), 15, 24, kYInterleaved, PerPixel<2>, PerQuad,
     Stride<4, 2>, kTurnsWords, 2, 10, 6},
    {QNPIXEL_PL10, QnMakeFourCC('P', 'L', '1', '0'), 15, 24, kYInterleaved, PerPixel<2>, PerQuad,
     Stride<4, 2>, kTurnsWords, 2, 10, 0},
    {QNPIXEL_P012, QnMakeFourCC('P', '0', '1', '2'), 18, 24, kYInterleaved, PerPixel<2>, PerQuad,
     Stride<4, 2>, kTurnsWords, 2, 12, 4},
    {QNPIXEL_P210, QnMakeFourCC('P', '2', '1', '0'), 20, 32, kYInterleaved, PerPixel<2>, PerPair<4>,
     Stride<4, 2>, kTurnsWords, 1, 10, 6},
    {QNPIXEL_P212, QnMakeFourCC('P', '2', '1', '2'), 24, 32, kYInterleaved, PerPixel<2>, PerPair<4>,
     Stride<4, 2>, kTurnsWords, 1, 12, 4},
    {QNPIXEL_P216, QnMakeFourCC('P', '2', '1', '6'), 20, 32, kYInterleaved, PerPixel<2>, PerPair<4>,
     Stride<4, 2>, kTurnsWords, 1, 16, 0},
    {QNPIXEL_P410, QnMakeFourCC('P', '4', '1', '0'), 30, 48, kYUV, PerPixel<2>, PerPixel<2>, Stride<2>,
     kPixelsWords, 1, 10, 6},
    {QNPIXEL_P412, QnMakeFourCC('P', '4', '1', '2'), 36, 48, kYUV, PerPixel<2>, PerPixel<2>, Stride<2>,
     kPixelsWords, 1, 12, 4},
    {QNPIXEL_A410, QnMakeFourCC('A', '4', '1', '0'), 46, 64, kYUVA, PerPixel<2>, PerPixel<2>, Stride<2>,
     kPixelsWords, 1, 10, 6},
};

template <class Condition>
const YuvLayout* FindLayout(Condition isSought) {
  const auto* const layout = std::find_if(std::begin(kLayouts), std::end(kLayouts), isSought);
  return layout == std::end(kLayouts) ? nullptr : layout;
}

}  // namespace

const YuvLayout* YuvLayoutOf(DWORD fourcc) {
  return FindLayout([=](const YuvLayout& each) { return each.fourcc == fourcc; });
}

const YuvLayout* YuvLayoutOfType(int type) {
  return type == 0 ? nullptr : FindLayout([=](const YuvLayout& each) { return each.type == type; });
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
