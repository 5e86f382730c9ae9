#include "tools/qnimage/image.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

namespace qnimage {
namespace {

RECT RowOf(const Image& image, uint32_t y) {
  return {0, static_cast<LONG>(y), static_cast<LONG>(image.Width()), static_cast<LONG>(y) + 1};
}

}  // namespace

uint64_t ImageBytes(int type, uint64_t width, uint64_t height) {
  const auto bits = static_cast<uint64_t>(QnGetPixelBitsPerChannel(type, nullptr));
  return (bits * width + 31) / 32 * 4 * height;
}

bool IsPossible(int type, uint64_t width, uint64_t height) {
  return width >= 1 && width <= kMostSide && height >= 1 && height <= kMostSide &&
         std::max(ImageBytes(type, width, height), ImageBytes(WorkingType(type), width, height)) <=
             kMostBytes;
}

qntool::Message TooLarge(uint64_t width, uint64_t height) {
  using qntool::Message;
  return {qntool::messages::PictureTooLarge,
          {Message(std::to_string(width) + "x" + std::to_string(height)), Message(std::to_string(kMostSide)),
           Message::Bytes(kMostBytes)}};
}

int WorkingType(int type) {
  switch (type) {
    case QNPIXEL_GRAY16:
    case QNPIXEL_RGB30:
    case QNPIXEL_RGBA64:
    case QNPIXEL_A46B:
      return QNPIXEL_RGBA64;
    case QNPIXEL_GRAY32:
    case QNPIXEL_RGBAFLOAT:
    case QNPIXEL_F32I:
      return QNPIXEL_RGBAFLOAT;
    default:
      return QNPIXEL_RGBA32;
  }
}

Image::Image(int type, LONG width, LONG height, const Palette& palette) : type_(type) {
  BITMAPINFO* dib = nullptr;
  const auto entries = static_cast<int>(palette.size());
  if (QnDibAlloc(&dib, type, width, height, palette.empty() ? nullptr : palette.data(), entries,
                 QNDIBALLOC_ZERO) != S_OK)
    throw std::bad_alloc();
  dib_.reset(dib);
  const BITMAPINFOHEADER& header = dib->bmiHeader;
  headerBytes_ = sizeof(header) + (header.biCompression == BI_BITFIELDS ? 3 * sizeof(DWORD)
                                                                        : header.biClrUsed * sizeof(RGBQUAD));
}

uint32_t Image::Height() const {
  return static_cast<uint32_t>(std::abs(dib_->bmiHeader.biHeight));
}

std::span<uint8_t> Image::HeaderBytes() const {
  return {reinterpret_cast<uint8_t*>(dib_.get()), headerBytes_};
}

std::span<uint8_t> Image::Bits() const {
  return {reinterpret_cast<uint8_t*>(dib_.get()) + headerBytes_, dib_->bmiHeader.biSizeImage};
}

uint8_t* Image::Row(uint32_t y) const {
  return Bits().data() + Bits().size() / Height() * y;
}

Image Image::ConvertedTo(int type, bool fromTop, const Palette& palette) const {
  const auto height = static_cast<LONG>(Height());
  Image other(type, static_cast<LONG>(Width()), fromTop ? -height : height, palette);
  QnDibCopy(other.Header(), nullptr, nullptr, 0, Header(), nullptr, nullptr, 0, QNDIBFILTER_NEAREST);
  return other;
}

bool Image::IsOpaque() const {
  // Alpha stands behind the three others.
  const size_t bytes = type_ == QNPIXEL_RGBA32 ? 1 : type_ == QNPIXEL_RGBA64 ? 2 : 4;
  const float one = 1;
  uint8_t opaque[4] = {0xFF, 0xFF};
  if (bytes == 4) std::memcpy(opaque, &one, sizeof(one));
  const std::span<uint8_t> bits = Bits();
  for (size_t at = 3 * bytes; at < bits.size(); at += 4 * bytes) {
    if (std::memcmp(&bits[at], opaque, bytes) != 0) return false;
  }
  return true;
}

FloatRow::FloatRow(uint32_t width) : row_(QNPIXEL_RGBAFLOAT, static_cast<LONG>(width), -1) {}

std::span<QNRGBAFLOAT> FloatRow::Pixels() const {
  return {reinterpret_cast<QNRGBAFLOAT*>(row_.Bits().data()), row_.Width()};
}

void FloatRow::Get(const Image& image, uint32_t y) const {
  const RECT rectangle = RowOf(image, y);
  QnDibCopy(row_.Header(), nullptr, nullptr, 0, image.Header(), nullptr, &rectangle, 0, QNDIBFILTER_NEAREST);
}

void FloatRow::Put(const Image& image, uint32_t y) const {
  const RECT rectangle = RowOf(image, y);
  QnDibCopy(image.Header(), nullptr, &rectangle, 0, row_.Header(), nullptr, nullptr, 0, QNDIBFILTER_NEAREST);
}

}  // namespace qnimage
