#include "qn/image/qndib_pixel_internal.h"

#include <cstdlib>
#include <limits>
#include <utility>

#include "qn/platform/winuser.h"

namespace qn {
namespace {

// A key that no colour has.
constexpr uint32_t kNoColour = 0xFFFFFFFF;

// Some compressions leave the bit count of the header open: that of the type counts.
DWORD ColoursOf(const BITMAPINFOHEADER& header, int bits) {
  return header.biClrUsed == 0 && bits <= 8 ? 1u << bits : header.biClrUsed;
}

const BYTE* BehindHeader(const BITMAPINFOHEADER& header) {
  return reinterpret_cast<const BYTE*>(&header) + std::max<size_t>(header.biSize, sizeof(header));
}

const BYTE* BitsBehind(const BITMAPINFOHEADER& header, const PixelLayout& layout) {
  if (header.biCompression == BI_BITFIELDS) {
    return reinterpret_cast<const BYTE*>(&header) + sizeof(header) + 3 * sizeof(DWORD);
  }
  return BehindHeader(header) + sizeof(RGBQUAD) * size_t{ColoursOf(header, layout.bits)};
}

}  // namespace

Palette::Palette(const BITMAPINFOHEADER& header)
    : count_(static_cast<int>(std::min(ColoursOf(header, header.biBitCount), 1u << header.biBitCount))) {
  std::memcpy(colours_, BehindHeader(header), sizeof(RGBQUAD) * static_cast<size_t>(count_));
  std::fill(std::begin(lookedFor_), std::end(lookedFor_), kNoColour);
}

bool Palette::operator==(const Palette& other) const {
  return std::memcmp(colours_, other.colours_, sizeof(colours_)) == 0;
}

BYTE Palette::Find(const ByteColour& colour) {
  const uint32_t key =
      colour.blue | static_cast<uint32_t>(colour.green) << 8 | static_cast<uint32_t>(colour.red) << 16;
  const uint32_t place = (key * 0x9E3779B1u) >> 24;
  static_assert(kCacheSize == 1 << 8);
  if (lookedFor_[place] == key) return found_[place];
  int least = std::numeric_limits<int>::max();
  int found = 0;
  for (int i = 0; i < count_; ++i) {
    const int blue = colours_[i].rgbBlue - colour.blue;
    const int green = colours_[i].rgbGreen - colour.green;
    const int red = colours_[i].rgbRed - colour.red;
    const int distance = blue * blue + green * green + red * red;
    if (distance < least) {
      least = distance;
      found = i;
    }
  }
  lookedFor_[place] = key;
  return found_[place] = static_cast<BYTE>(found);
}

HRESULT FindArea(const BITMAPINFOHEADER* header, const void* bits, const RECT* rectangle, LONG stride,
                 int firstType, DibArea* found) {
  if (!header) return E_INVALIDARG;
  const int type = QnGetPixelType(header);
  found->layout = LayoutOf(type);
  if (!found->layout || type < firstType) return E_NOTIMPL;

  const int64_t height =
      std::min<int64_t>(std::abs(int64_t{header->biHeight}), std::numeric_limits<LONG>::max());
  const RECT whole = {0, 0, header->biWidth, static_cast<LONG>(height)};
  IntersectRect(&found->area, &whole, rectangle ? rectangle : &whole);
  if (found->IsEmpty()) return S_OK;

  found->stride =
      stride != 0 ? stride : static_cast<ptrdiff_t>(RowBytes(found->layout->bits, header->biWidth));
  found->bits = static_cast<BYTE*>(const_cast<void*>(bits));
  if (!bits) {
    found->bits = const_cast<BYTE*>(BitsBehind(*header, *found->layout));
    if (stride < 0) found->bits -= found->stride * (height - 1);
  }
  return S_OK;
}

namespace {

template <int kType, class Number>
void DecodeRow(const BYTE* row, ptrdiff_t x, size_t count, const Palette* palette, Colour<Number>* colours) {
  for (size_t i = 0; i < count; ++i) {
    const auto pixel = Pixel<kType>::Bits::Load(row, x + static_cast<ptrdiff_t>(i));
    colours[i] = Pixel<kType>::template Decode<Number>(pixel, palette);
  }
}

template <int kType, class Number>
void EncodeRow(BYTE* row, ptrdiff_t x, size_t count, Palette* palette, const Colour<Number>* colours) {
  for (size_t i = 0; i < count; ++i) {
    const auto pixel = Pixel<kType>::template Encode<Number>(colours[i], palette);
    Pixel<kType>::Bits::Store(row, x + static_cast<ptrdiff_t>(i), pixel);
  }
}

template <int kType>
void SwapRow(BYTE* row, ptrdiff_t x, size_t count) {
  using Bits = typename Pixel<kType>::Bits;
  for (const ptrdiff_t end = x + static_cast<ptrdiff_t>(count); x < end; ++x) {
    Bits::Store(row, x, Pixel<kType>::SwapRedBlue(Bits::Load(row, x)));
  }
}

template <int kBits>
void FillRow(BYTE* row, ptrdiff_t x, size_t count, const BYTE* pixel) {
  if constexpr (kBits < 8) {
    constexpr ptrdiff_t kPerByte = 8 / kBits;
    const BYTE value = Unit<kBits>::Load(pixel, 0);
    const ptrdiff_t end = x + static_cast<ptrdiff_t>(count);
    for (; x < end && x % kPerByte != 0; ++x) Unit<kBits>::Store(row, x, value);
    if (const ptrdiff_t bytes = (end - x) / kPerByte; bytes > 0) {
      std::memset(row + x / kPerByte, value * (0xFF / Unit<kBits>::kMask), static_cast<size_t>(bytes));
      x += bytes * kPerByte;
    }
    for (; x < end; ++x) Unit<kBits>::Store(row, x, value);
  } else {
    BYTE* const target = row + x * Unit<kBits>::kBytes;
    const size_t bytes = count * Unit<kBits>::kBytes;
    std::memcpy(target, pixel, Unit<kBits>::kBytes);
    for (size_t filled = Unit<kBits>::kBytes; filled < bytes; filled *= 2) {
      std::memcpy(target + filled, target, std::min(filled, bytes - filled));
    }
  }
}

template <int kBits>
void ExchangePixels(BYTE* row, ptrdiff_t x, BYTE* otherRow, ptrdiff_t otherX) {
  const auto value = Unit<kBits>::Load(row, x);
  Unit<kBits>::Store(row, x, Unit<kBits>::Load(otherRow, otherX));
  Unit<kBits>::Store(otherRow, otherX, value);
}

template <int kBits>
void MirrorRow(BYTE* row, ptrdiff_t x, size_t count) {
  for (ptrdiff_t last = x + static_cast<ptrdiff_t>(count) - 1; x < last; ++x, --last) {
    ExchangePixels<kBits>(row, x, row, last);
  }
}

template <int kBits>
void ExchangeRow(BYTE* row, BYTE* other, ptrdiff_t x, size_t count) {
  for (const ptrdiff_t end = x + static_cast<ptrdiff_t>(count); x < end; ++x) {
    ExchangePixels<kBits>(row, x, other, x);
  }
}

template <int kBits>
void GatherRow(BYTE* row, ptrdiff_t x, size_t count, const BYTE* source, const LONG* from) {
  for (size_t i = 0; i < count; ++i) {
    Unit<kBits>::Store(row, x + static_cast<ptrdiff_t>(i), Unit<kBits>::Load(source, from[i]));
  }
}

template <int kType>
constexpr PixelKernels MakeKernels() {
  constexpr const PixelLayout& kLayout = Pixel<kType>::kLayout;
  constexpr int kBits = kLayout.bits;
  PixelKernels kernels = {{DecodeRow<kType, BYTE>, EncodeRow<kType, BYTE>},
                          {DecodeRow<kType, double>, EncodeRow<kType, double>},
                          nullptr,
                          FillRow<kBits>,
                          MirrorRow<kBits>,
                          ExchangeRow<kBits>,
                          GatherRow<kBits>};
  if constexpr (kLayout.red.bits != 0) kernels.swapRedBlue = SwapRow<kType>;
  return kernels;
}

template <int... kIndices>
constexpr std::array<PixelKernels, sizeof...(kIndices)> MakeAll(std::integer_sequence<int, kIndices...>) {
  return {MakeKernels<kFirstLayout + kIndices>()...};
}

constexpr auto kKernels = MakeAll(std::make_integer_sequence<int, kLayoutCount>());

}  // namespace

const PixelKernels& KernelsOf(const PixelLayout& layout) {
  return kKernels[static_cast<size_t>(layout.type - kFirstLayout)];
}

}  // namespace qn
