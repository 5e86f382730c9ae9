#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <limits>

#include "qn/image/qndib.h"
#include "qn/image/qnyuv.h"

namespace qn {
namespace {

// In the order of memory.
enum class Planes { kPacked, kYUV, kYVU, kYInterleaved, kYUVA };

using Bytes = uint64_t;

// The bytes of luma and of each chroma plane, and the stride of the latter, by width and height.
struct YuvLayout {
  DWORD fourcc;
  Planes planes;
  Bytes (*luma)(Bytes width, Bytes height);
  Bytes (*chroma)(Bytes width, Bytes height);
  Bytes (*chromaStride)(Bytes width);
};

template <int bytes>
Bytes PerPixel(Bytes width, Bytes height) {
  return width * height * bytes;
}
template <int pixels>
Bytes PerGroup(Bytes width, Bytes height) {
  return width * height / pixels;
}
template <int numerator, int denominator = 1>
Bytes Stride(Bytes width) {
  return width / denominator * numerator;
}
template <int bytes>
Bytes PerPair(Bytes width, Bytes height) {
  return width / 2 * height * bytes;
}
Bytes PerQuad(Bytes width, Bytes height) {
  return (height / 2) * (width / 2) * 4;
}
Bytes V210Luma(Bytes width, Bytes height) {
  return (width + 47) / 48 * height * 128;
}

constexpr YuvLayout Packed(DWORD fourcc, Bytes (*luma)(Bytes, Bytes)) {
  return {fourcc, Planes::kPacked, luma, nullptr, nullptr};
}

constexpr YuvLayout kLayouts[] = {
    Packed(QnMakeFourCC('U', 'Y', 'V', 'Y'), PerPixel<2>),
    Packed(QnMakeFourCC('Y', 'U', 'Y', 'V'), PerPixel<2>),
    Packed(QnMakeFourCC('Y', '2', '1', '0'), PerPixel<4>),
    Packed(QnMakeFourCC('v', '2', '1', '6'), PerPixel<4>),
    Packed(QnMakeFourCC('y', '4', '1', '6'), PerPixel<8>),
    Packed(QnMakeFourCC('v', '2', '1', '0'), V210Luma),
    {QnMakeFourCC('I', '4', '2', '0'), Planes::kYUV, PerPixel<1>, PerGroup<4>, Stride<1, 2>},
    {QnMakeFourCC('I', 'Y', 'U', 'V'), Planes::kYUV, PerPixel<1>, PerGroup<4>, Stride<1, 2>},
    {QnMakeFourCC('Y', 'V', '1', '2'), Planes::kYVU, PerPixel<1>, PerGroup<4>, Stride<1, 2>},
    {QnMakeFourCC('Y', '4', '1', 'B'), Planes::kYUV, PerPixel<1>, PerGroup<4>, Stride<1, 4>},
    {QnMakeFourCC('Y', 'V', '1', '6'), Planes::kYVU, PerPixel<1>, PerPair<1>, Stride<1, 2>},
    {QnMakeFourCC('Y', 'V', '2', '4'), Planes::kYVU, PerPixel<1>, PerPixel<1>, Stride<1>},
    {QnMakeFourCC('N', 'V', '1', '2'), Planes::kYInterleaved, PerPixel<1>, PerGroup<2>, Stride<1>},
    {QnMakeFourCC('N', 'V', '1', '6'), Planes::kYInterleaved, PerPixel<1>, PerPixel<1>, Stride<1>},
    {QnMakeFourCC('P', '0', '1', '0'), Planes::kYInterleaved, PerPixel<2>, PerQuad, Stride<4, 2>},
    {QnMakeFourCC('P', 'L', '1', '0'), Planes::kYInterleaved, PerPixel<2>, PerQuad, Stride<4, 2>},
    {QnMakeFourCC('P', '0', '1', '2'), Planes::kYInterleaved, PerPixel<2>, PerQuad, Stride<4, 2>},
    {QnMakeFourCC('P', '2', '1', '0'), Planes::kYInterleaved, PerPixel<2>, PerPair<4>, Stride<4, 2>},
    {QnMakeFourCC('P', '2', '1', '2'), Planes::kYInterleaved, PerPixel<2>, PerPair<4>, Stride<4, 2>},
    {QnMakeFourCC('P', '2', '1', '6'), Planes::kYInterleaved, PerPixel<2>, PerPair<4>, Stride<4, 2>},
    {QnMakeFourCC('P', '4', '1', '0'), Planes::kYUV, PerPixel<2>, PerPixel<2>, Stride<2>},
    {QnMakeFourCC('P', '4', '1', '2'), Planes::kYUV, PerPixel<2>, PerPixel<2>, Stride<2>},
    {QnMakeFourCC('A', '4', '1', '0'), Planes::kYUVA, PerPixel<2>, PerPixel<2>, Stride<2>},
};

}  // namespace
}  // namespace qn

DWORD QnYUVImageBytesAndOffsets(const BITMAPINFOHEADER* header, tQNYUVOFFSETS* offsets) {
  if (!header || header->biWidth < 0) return 0;
  const auto* const layout =
      std::find_if(std::begin(qn::kLayouts), std::end(qn::kLayouts),
                   [header](const qn::YuvLayout& each) { return each.fourcc == header->biCompression; });
  if (layout == std::end(qn::kLayouts)) return 0;
  const auto width = static_cast<qn::Bytes>(header->biWidth);
  const auto height = static_cast<qn::Bytes>(std::abs(int64_t{header->biHeight}));
  // The product of two 31-bit numbers times 8 planes of a byte would not fit in 64 bits.
  if (width * height > std::numeric_limits<DWORD>::max()) return 0;

  const bool packed = layout->planes == qn::Planes::kPacked;
  const qn::Bytes luma = layout->luma(width, height);
  const qn::Bytes chroma = packed ? 0 : layout->chroma(width, height);
  const auto stride = static_cast<DWORD>(packed ? 0 : layout->chromaStride(width));
  const auto first = static_cast<DWORD>(packed ? 0 : luma);
  const auto second = static_cast<DWORD>(luma + chroma);
  const auto third = static_cast<DWORD>(luma + 2 * chroma);
  tQNYUVOFFSETS found = {static_cast<DWORD>(height ? luma / height : 0), first, stride, 0, 0, 0, 0};
  qn::Bytes total = luma + 2 * chroma;
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
