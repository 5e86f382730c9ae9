#include <algorithm>
#include <bit>
#include <cstring>

#include "qn/image/qndib.h"
#include "qn/image/qndib_internal.h"
#include "qn/image/qnyuv_internal.h"

namespace qn {
namespace {

unsigned Mask(const Component& component) {
  return QnCreateBitMask(component.first, component.bits);
}

// The first type of a compression and a bit count, or 0.
int TypeOfBits(DWORD compression, int bits) {
  for (const PixelLayout& each : kPixelLayouts) {
    if (each.compression == compression && each.bits == bits) return each.type;
  }
  return 0;
}

// The first type of 16 or 32 bits whose components have as many bits as the masks behind the header, or 0.
int TypeOfMasks(const BITMAPINFOHEADER& header) {
  if (header.biBitCount != 16 && header.biBitCount != 32) return 0;
  DWORD masks[3];
  std::memcpy(masks, reinterpret_cast<const BYTE*>(&header) + sizeof(header), sizeof(masks));
  for (const PixelLayout& each : kPixelLayouts) {
    if (each.kind == PixelKind::kColour && each.bits == header.biBitCount &&
        QnCountBits(masks[0]) == each.red.bits && QnCountBits(masks[1]) == each.green.bits &&
        QnCountBits(masks[2]) == each.blue.bits) {
      return each.type;
    }
  }
  return 0;
}

int TypeOfFourCC(DWORD fourcc) {
  const YuvLayout* const layout = YuvLayoutOf(fourcc);
  return layout ? layout->type : 0;
}

}  // namespace
}  // namespace qn

int QnCountBits(unsigned bits) {
  return std::popcount(bits);
}

unsigned QnCreateBitMask(int first, int count) {
  const int64_t from = std::clamp(first, 0, 32);
  const int64_t end = std::clamp<int64_t>(int64_t{first} + std::max(count, 0), 0, 32);
  return end > from ? static_cast<unsigned>((uint64_t{1} << end) - (uint64_t{1} << from)) : 0;
}

int QnGetPixelType(const BITMAPINFOHEADER* header) {
  if (!header) return 0;
  const DWORD compression = header->biCompression;
  switch (compression) {
    case QNBI_RGBA:
      return qn::TypeOfBits(BI_RGB, header->biBitCount);
    case BI_RGB:
    case QNBI_GRAY:
      return qn::TypeOfBits(compression, header->biBitCount);
    case QNBI_DEEP:
      return header->biBitCount == 24 ? QNPIXEL_RGB24 : qn::TypeOfBits(compression, header->biBitCount);
    case BI_BITFIELDS:
      return qn::TypeOfMasks(*header);
    case QNBI_A46B:
      return QNPIXEL_A46B;
    case QNBI_F32I:
      return QNPIXEL_F32I;
    default:
      return qn::TypeOfFourCC(compression);
  }
}

BOOL QnVideo_IsCompressed(const BITMAPINFOHEADER* header) {
  if (QnGetPixelType(header) == 0) return TRUE;
  const DWORD compression = header->biCompression;
  return compression != BI_RGB && compression != BI_BITFIELDS && compression != QNBI_DEEP &&
         compression != QNBI_GRAY;
}

int QnGetPixelBitsPerChannel(int type, BYTE* bits) {
  const qn::PixelLayout* const layout = qn::LayoutOf(type);
  if (!layout) return 0;
  if (bits) {
    // Of a gray pixel the one component counts as alpha, and so it does of a palette of two colours.
    const auto whole = static_cast<BYTE>(layout->bits);
    const BYTE single[4] = {0, 0, 0, whole};
    const BYTE palette[4] = {8, 8, 8, 0};
    const BYTE colour[4] = {layout->red.bits, layout->green.bits, layout->blue.bits, layout->alpha.bits};
    const bool isSingle = layout->kind == qn::PixelKind::kGray || layout->bits == 1;
    std::memcpy(bits, isSingle ? single : layout->kind == qn::PixelKind::kPalette ? palette : colour, 4);
  }
  return layout->bits;
}

int QnPixelTypeToBitAttribs(int type, unsigned* compression, unsigned* masks) {
  const qn::PixelLayout* const layout = qn::LayoutOf(type);
  const qn::YuvLayout* const yuv = qn::YuvLayoutOfType(type);
  if (!layout && !yuv) return 0;
  if (compression) *compression = layout ? layout->compression : yuv->fourcc;
  if (masks) {
    const bool hasMasks = layout && layout->compression == BI_BITFIELDS;
    masks[0] = hasMasks ? qn::Mask(layout->red) : 0;
    masks[1] = hasMasks ? qn::Mask(layout->green) : 0;
    masks[2] = hasMasks ? qn::Mask(layout->blue) : 0;
  }
  return layout ? layout->bits : yuv->depth;
}

int QnPixelTypeToBitsPerPixelYUV(int type) {
  const qn::YuvLayout* const yuv = qn::YuvLayoutOfType(type);
  return yuv ? yuv->storage : 0;
}
