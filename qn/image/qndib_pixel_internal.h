// Pixels of each type: how one is loaded from a row and stored, and how its components become a colour and
// back. Everything follows from the type's row in the table of layouts.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <type_traits>

#include "qn/image/qndib_internal.h"

namespace qn {

// Pixels of a number of bits as they stand in a row, which may start at any address. Those of less than a
// byte fill it from the highest bit down.
template <int kBits>
struct Unit {
  static constexpr int kBytes = kBits / 8;
  using Value = std::conditional_t<
      kBits <= 8, BYTE,
      std::conditional_t<kBits <= 32, uint32_t,
                         std::conditional_t<kBits <= 64, uint64_t, std::array<uint32_t, 4>>>>;

  static constexpr BYTE kMask = kBits < 8 ? (1 << kBits) - 1 : 0xFF;
  static int ShiftOf(ptrdiff_t x) { return 8 - kBits - static_cast<int>(x % (8 / kBits)) * kBits; }

  static Value Load(const BYTE* row, ptrdiff_t x) {
    if constexpr (kBits < 8) {
      return row[x / (8 / kBits)] >> ShiftOf(x) & kMask;
    } else if constexpr (kBits == 24) {
      const BYTE* const source = row + x * kBytes;
      return source[0] | static_cast<Value>(source[1]) << 8 | static_cast<Value>(source[2]) << 16;
    } else {
      Value value{};
      std::memcpy(&value, row + x * kBytes, kBytes);
      return value;
    }
  }

  static void Store(BYTE* row, ptrdiff_t x, const Value& value) {
    if constexpr (kBits < 8) {
      BYTE& target = row[x / (8 / kBits)];
      target = static_cast<BYTE>((target & ~(kMask << ShiftOf(x))) | value << ShiftOf(x));
    } else if constexpr (kBits == 24) {
      BYTE* const target = row + x * kBytes;
      for (int i = 0; i < 3; ++i) target[i] = static_cast<BYTE>(value >> 8 * i);
    } else {
      std::memcpy(row + x * kBytes, &value, kBytes);
    }
  }
};

// The largest value of a component of `bits` bits.
constexpr uint32_t MaxOf(int bits) {
  return static_cast<uint32_t>((uint64_t{1} << bits) - 1);
}

// Colours in bytes, or in numbers whose white is 1. Bytes are enough for what is converted from 1, 2, 4 and 8
// bits, since each of these values is one of the 256.
template <class Value>
struct Colour {
  Value blue;
  Value green;
  Value red;
  Value alpha;
};
using ByteColour = Colour<BYTE>;
using RealColour = Colour<double>;

template <class Value>
constexpr Value kFull = std::is_same_v<Value, BYTE> ? 255 : 1;

// A component of 0..1, or of 0..255, as the nearest one of `bits` bits. NaN is 0.
template <int kBits>
uint32_t Narrow(double value) {
  const double clipped = value > 0 ? std::min(value, 1.0) : 0;
  return static_cast<uint32_t>(static_cast<int64_t>(clipped * MaxOf(kBits) + 0.5));
}
template <int kBits>
uint32_t Narrow(BYTE value) {
  if constexpr (MaxOf(kBits) % 255 == 0) return value * (MaxOf(kBits) / 255);
  return static_cast<uint32_t>((uint64_t{value} * MaxOf(kBits) + 127) / 255);
}

template <class Value, int kBits>
Value Widen(uint32_t component) {
  if constexpr (std::is_same_v<Value, BYTE> && kBits == 8) {
    return static_cast<BYTE>(component);
  } else if constexpr (std::is_same_v<Value, BYTE>) {
    return static_cast<BYTE>((uint64_t{component} * 255 + MaxOf(kBits) / 2) / MaxOf(kBits));
  } else {
    return component * (1.0 / MaxOf(kBits));
  }
}

// The gray of a colour.
template <int kBits>
uint32_t NarrowLuma(const RealColour& colour) {
  return Narrow<kBits>(0.299 * colour.red + 0.587 * colour.green + 0.114 * colour.blue);
}
template <int kBits>
uint32_t NarrowLuma(const ByteColour& colour) {
  const uint64_t thousandths = uint64_t{299} * colour.red + 587 * colour.green + 114 * colour.blue;
  return static_cast<uint32_t>((thousandths * MaxOf(kBits) + 127500) / 255000);
}

// The colour table of a bitmap; colours beyond its end are black.
class Palette {
 public:
  // For a bitmap of a type with a palette.
  explicit Palette(const BITMAPINFOHEADER& header);

  const RGBQUAD& operator[](size_t index) const { return colours_[index]; }
  bool operator==(const Palette& other) const;

  // The index of the nearest colour, the first of several.
  BYTE Find(const ByteColour& colour);
  BYTE Find(const RealColour& colour) {
    return Find(ByteColour{Byte(colour.blue), Byte(colour.green), Byte(colour.red), 255});
  }

 private:
  static BYTE Byte(double value) { return static_cast<BYTE>(Narrow<8>(value)); }

  int count_;
  RGBQUAD colours_[256] = {};
  // The latest colours that were looked for, each at a place that it tells, and what was found.
  static constexpr uint32_t kCacheSize = 256;
  uint32_t lookedFor_[kCacheSize];
  BYTE found_[kCacheSize] = {};
};

template <int kType>
struct Pixel {
  static constexpr const PixelLayout& kLayout = kPixelLayouts[kType - kFirstLayout];
  using Bits = Unit<kLayout.bits>;
  using Value = typename Bits::Value;

  // The component at `kFirst` of a pixel.
  template <int kFirst, int kBits>
  static uint32_t Get(const Value& pixel) {
    if constexpr (kLayout.bits == 128) {
      return pixel[kFirst / 32];
    } else {
      return static_cast<uint32_t>(pixel >> kFirst) & MaxOf(kBits);
    }
  }

  template <int kFirst, int kBits>
  static void Put(Value* pixel, uint32_t component) {
    if constexpr (kLayout.bits == 128) {
      (*pixel)[kFirst / 32] = component;
    } else {
      *pixel |= static_cast<Value>(component) << kFirst;
    }
  }

  template <class Number, int kFirst, int kBits>
  static Number Read(const Value& pixel) {
    if constexpr (kBits == 0) {
      return kFull<Number>;
    } else if constexpr (kLayout.kind != PixelKind::kFloat) {
      return Widen<Number, kBits>(Get<kFirst, kBits>(pixel));
    } else if constexpr (std::is_same_v<Number, BYTE>) {
      return static_cast<BYTE>(Narrow<8>(double{std::bit_cast<float>(Get<kFirst, kBits>(pixel))}));
    } else {
      return std::bit_cast<float>(Get<kFirst, kBits>(pixel));
    }
  }

  template <int kFirst, int kBits, class Number>
  static void Write(Value* pixel, Number component) {
    if constexpr (kLayout.kind == PixelKind::kFloat) {
      const auto value = static_cast<float>(component * (1.0 / kFull<Number>));
      Put<kFirst, kBits>(pixel, std::bit_cast<uint32_t>(value));
    } else if constexpr (kBits != 0) {
      Put<kFirst, kBits>(pixel, Narrow<kBits>(component));
    }
  }

  // `palette` may be null for a type without one.
  template <class Number>
  static Colour<Number> Decode(const Value& pixel, const Palette* palette) {
    if constexpr (kLayout.kind == PixelKind::kPalette) {
      const RGBQUAD& entry = (*palette)[pixel];
      return {Widen<Number, 8>(entry.rgbBlue), Widen<Number, 8>(entry.rgbGreen),
              Widen<Number, 8>(entry.rgbRed), kFull<Number>};
    } else if constexpr (kLayout.kind == PixelKind::kGray) {
      const Number gray = Widen<Number, kLayout.bits>(pixel);
      return {gray, gray, gray, kFull<Number>};
    } else {
      return {Read<Number, kLayout.blue.first, kLayout.blue.bits>(pixel),
              Read<Number, kLayout.green.first, kLayout.green.bits>(pixel),
              Read<Number, kLayout.red.first, kLayout.red.bits>(pixel),
              Read<Number, kLayout.alpha.first, kLayout.alpha.bits>(pixel)};
    }
  }

  template <class Number>
  static Value Encode(const Colour<Number>& colour, Palette* palette) {
    if constexpr (kLayout.kind == PixelKind::kPalette) {
      return palette->Find(colour);
    } else if constexpr (kLayout.kind == PixelKind::kGray) {
      return static_cast<Value>(NarrowLuma<kLayout.bits>(colour));
    } else {
      Value pixel{};
      Write<kLayout.blue.first, kLayout.blue.bits>(&pixel, colour.blue);
      Write<kLayout.green.first, kLayout.green.bits>(&pixel, colour.green);
      Write<kLayout.red.first, kLayout.red.bits>(&pixel, colour.red);
      Write<kLayout.alpha.first, kLayout.alpha.bits>(&pixel, colour.alpha);
      return pixel;
    }
  }

  static Value SwapRedBlue(const Value& pixel) {
    constexpr Component kRed = kLayout.red;
    constexpr Component kBlue = kLayout.blue;
    static_assert(kRed.bits == kBlue.bits);
    Value swapped = pixel;
    if constexpr (kLayout.bits == 128) {
      std::swap(swapped[kRed.first / 32], swapped[kBlue.first / 32]);
    } else {
      constexpr Value kMask = MaxOf(kRed.bits);
      constexpr Value kOthers = ~(kMask << kRed.first | kMask << kBlue.first);
      swapped = (pixel & kOthers) | (pixel >> kRed.first & kMask) << kBlue.first |
                (pixel >> kBlue.first & kMask) << kRed.first;
    }
    return swapped;
  }
};

// What is done with `count` pixels of a row from column `x` on, by type.
template <class Number>
struct ColourKernels {
  void (*decode)(const BYTE* row, ptrdiff_t x, size_t count, const Palette* palette, Colour<Number>* colours);
  void (*encode)(BYTE* row, ptrdiff_t x, size_t count, Palette* palette, const Colour<Number>* colours);
};

struct PixelKernels {
  ColourKernels<BYTE> bytes;
  ColourKernels<double> reals;
  void (*swapRedBlue)(BYTE* row, ptrdiff_t x, size_t count);  // null where the pixels have no red and blue
  // Pixels as they are: fills with the one at column 0 of `pixel`, mirrors, exchanges with another row, and
  // takes those of the columns in `from`.
  void (*fill)(BYTE* row, ptrdiff_t x, size_t count, const BYTE* pixel);
  void (*mirror)(BYTE* row, ptrdiff_t x, size_t count);
  void (*exchange)(BYTE* row, BYTE* other, ptrdiff_t x, size_t count);
  void (*gather)(BYTE* row, ptrdiff_t x, size_t count, const BYTE* source, const LONG* from);
};

const PixelKernels& KernelsOf(const PixelLayout& layout);

template <class Number>
const ColourKernels<Number>& ColourKernelsOf(const PixelLayout& layout) {
  if constexpr (std::is_same_v<Number, BYTE>) {
    return KernelsOf(layout).bytes;
  } else {
    return KernelsOf(layout).reals;
  }
}

}  // namespace qn
