#include <optional>

#include "qn/image/qndib.h"
#include "qn/image/qndib_pixel_internal.h"

namespace qn {
namespace {

constexpr size_t kMaxPixelBytes = 16;

// One pixel of the bitmap's type, as at column 0 of a row.
struct StoredPixel {
  BYTE bytes[kMaxPixelBytes] = {};
};

template <class Number>
StoredPixel Store(const BITMAPINFOHEADER& header, const PixelLayout& layout, const Colour<Number>& colour) {
  std::optional<Palette> palette;
  if (layout.kind == PixelKind::kPalette) palette.emplace(header);
  StoredPixel stored;
  ColourKernelsOf<Number>(layout).encode(stored.bytes, 0, 1, palette ? &*palette : nullptr, &colour);
  return stored;
}

ByteColour BytesOf(const QNDIBPIXEL& pixel) {
  const auto byte = [](DWORD component) { return static_cast<BYTE>(std::min<DWORD>(component, 255)); };
  return {byte(pixel.blue), byte(pixel.green), byte(pixel.red), byte(pixel.alpha)};
}

void Fill(const DibArea& target, const StoredPixel& pixel) {
  const auto fill = KernelsOf(*target.layout).fill;
  for (LONG y = target.area.top; y < target.area.bottom; ++y) {
    fill(target.Row(y), target.area.left, target.Width(), pixel.bytes);
  }
}

}  // namespace
}  // namespace qn

HRESULT QnDibSet(const BITMAPINFOHEADER* header, void* bits, const RECT* rectangle, LONG stride,
                 const QNDIBPIXEL* pixel) {
  qn::DibArea target;
  if (!pixel) return E_INVALIDARG;
  const HRESULT status = qn::FindArea(header, bits, rectangle, stride, QNPIXEL_PALETTE1, &target);
  if (FAILED(status) || target.IsEmpty()) return status;
  qn::Fill(target, qn::Store(*header, *target.layout, qn::BytesOf(*pixel)));
  return S_OK;
}

HRESULT QnDibFillRect(const BITMAPINFOHEADER* header, void* bits, const RECT* rectangle, LONG stride,
                      const QNRGBAFLOAT* pixel) {
  qn::DibArea target;
  if (!pixel) return E_INVALIDARG;
  const HRESULT status = qn::FindArea(header, bits, rectangle, stride, QNPIXEL_PALETTE1, &target);
  if (FAILED(status) || target.IsEmpty()) return status;
  const qn::RealColour colour = {pixel->blue, pixel->green, pixel->red, pixel->alpha};
  qn::Fill(target, qn::Store(*header, *target.layout, colour));
  return S_OK;
}

HRESULT QnDibGetPixel(const BITMAPINFOHEADER* header, const void* bits, const RECT* rectangle, LONG stride,
                      int x, int y, QNDIBPIXEL* pixel) {
  qn::DibArea source;
  if (!pixel) return E_INVALIDARG;
  const HRESULT status = qn::FindArea(header, bits, rectangle, stride, QNPIXEL_PALETTE1, &source);
  if (FAILED(status) || source.IsEmpty()) return status;
  if (!source.Contains(x, y)) return E_INVALIDARG;
  std::optional<qn::Palette> palette;
  if (source.layout->kind == qn::PixelKind::kPalette) palette.emplace(*header);
  qn::ByteColour colour;
  qn::KernelsOf(*source.layout).bytes.decode(source.Row(y), x, 1, palette ? &*palette : nullptr, &colour);
  *pixel = {colour.blue, colour.green, colour.red, colour.alpha};
  return S_OK;
}

HRESULT QnDibSetPixel(const BITMAPINFOHEADER* header, void* bits, const RECT* rectangle, LONG stride, int x,
                      int y, const QNDIBPIXEL* pixel) {
  qn::DibArea target;
  if (!pixel) return E_INVALIDARG;
  const HRESULT status = qn::FindArea(header, bits, rectangle, stride, QNPIXEL_PALETTE1, &target);
  if (FAILED(status) || !target.Contains(x, y)) return status;
  const qn::StoredPixel stored = qn::Store(*header, *target.layout, qn::BytesOf(*pixel));
  qn::KernelsOf(*target.layout).fill(target.Row(y), x, 1, stored.bytes);
  return S_OK;
}

HRESULT QnDibFlip(const BITMAPINFOHEADER* header, void* bits, const RECT* rectangle, LONG stride,
                  UINT flags) {
  qn::DibArea target;
  if (flags & ~(QNDIBFLIP_HORIZONTAL | QNDIBFLIP_VERTICAL)) return E_INVALIDARG;
  const HRESULT status = qn::FindArea(header, bits, rectangle, stride, QNPIXEL_PALETTE4, &target);
  if (FAILED(status) || target.IsEmpty()) return status;
  const qn::PixelKernels& kernels = qn::KernelsOf(*target.layout);
  const RECT& area = target.area;
  if (flags & QNDIBFLIP_VERTICAL) {
    for (LONG upper = area.top, lower = area.bottom - 1; upper < lower; ++upper, --lower) {
      kernels.exchange(target.Row(upper), target.Row(lower), area.left, target.Width());
    }
  }
  if (flags & QNDIBFLIP_HORIZONTAL) {
    for (LONG y = area.top; y < area.bottom; ++y) kernels.mirror(target.Row(y), area.left, target.Width());
  }
  return S_OK;
}

HRESULT QnDibSwapRB(const BITMAPINFOHEADER* header, void* bits, const RECT* rectangle, LONG stride) {
  qn::DibArea target;
  const HRESULT status = qn::FindArea(header, bits, rectangle, stride, QNPIXEL_PALETTE4, &target);
  if (FAILED(status) || target.IsEmpty()) return status;
  const auto swap = qn::KernelsOf(*target.layout).swapRedBlue;
  if (!swap) return E_NOTIMPL;
  for (LONG y = target.area.top; y < target.area.bottom; ++y) {
    swap(target.Row(y), target.area.left, target.Width());
  }
  return S_OK;
}
