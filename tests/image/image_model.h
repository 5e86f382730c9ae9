// A bitmap as a test sees it: each pixel as a number of bits, its components by where they stand.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <utility>
#include <vector>

#include "qn/image/qndib.h"

namespace qntest {

// Where blue, green, red and alpha of a type start, and their bits.
struct ModelType {
  int type;
  int bits;
  std::array<int, 4> first;
  std::array<int, 4> width;
};

inline const ModelType kModelTypes[] = {
    {16, 1, {}, {}},
    {17, 1, {}, {1, 1, 1, 0}},
    {18, 2, {}, {2, 2, 2, 0}},
    {19, 4, {}, {4, 4, 4, 0}},
    {20, 8, {}, {8, 8, 8, 0}},
    {21, 16, {}, {16, 16, 16, 0}},
    {22, 32, {}, {32, 32, 32, 0}},
    {23, 4, {}, {}},
    {24, 8, {}, {}},
    {25, 16, {0, 5, 10, 15}, {5, 5, 5, 1}},
    {26, 16, {0, 5, 11, 0}, {5, 6, 5, 0}},
    {27, 24, {0, 8, 16, 0}, {8, 8, 8, 0}},
    {28, 32, {0, 8, 16, 24}, {8, 8, 8, 8}},
    {29, 32, {0, 8, 16, 24}, {8, 8, 8, 8}},
    {30, 32, {0, 10, 20, 30}, {10, 10, 10, 2}},
    {31, 64, {0, 16, 32, 48}, {16, 16, 16, 16}},
    {32, 128, {0, 32, 64, 96}, {32, 32, 32, 32}},
    {33, 64, {0, 16, 32, 48}, {16, 16, 16, 16}},
    {35, 128, {0, 32, 64, 96}, {32, 32, 32, 32}},
};

// Header, colour table and rows of exact size, with random content. Rows may lie backwards.
struct Picture {
  ModelType model;
  std::vector<BYTE> header;
  std::vector<BYTE> rows;
  LONG stride;

  // A stride of 0 stands for rows padded to 4 bytes, +-1 for rows of random length.
  template <class Random>
  Picture(const ModelType& type, LONG width, LONG height, LONG strideKind, Random& random) : model(type) {
    RGBQUAD palette[256];
    std::generate_n(reinterpret_cast<BYTE*>(palette), sizeof(palette),
                    [&] { return static_cast<BYTE>(random()); });
    const int colours = type.width[0] == 0 ? 1 << type.bits : 0;
    header.resize(52 + 4 * static_cast<size_t>(colours));
    QnVideo_InitBitmapInfo(reinterpret_cast<BITMAPINFO*>(header.data()), type.type, width, height, palette,
                           colours, nullptr);
    const LONG least = (width * type.bits + 7) / 8;
    const LONG padded = (least + 3) / 4 * 4;
    const LONG length = strideKind == 0 ? padded : least + static_cast<LONG>(random() % 5);
    stride = strideKind == 0 ? padded : length * strideKind;
    // The last row ends with its last pixel.
    rows.resize(static_cast<size_t>(std::max(length * (std::abs(height) - 1) + least, 0)));
    for (BYTE& each : rows) each = static_cast<BYTE>(random());
    if (IsFloat()) FillFloats(random);
  }

  const BITMAPINFOHEADER* Header() const { return reinterpret_cast<const BITMAPINFOHEADER*>(header.data()); }
  LONG Width() const { return Header()->biWidth; }
  LONG Height() const { return std::abs(Header()->biHeight); }
  bool IsFloat() const { return model.bits == 128; }
  bool IsPalette() const { return model.width[0] == 0; }
  bool IsGray() const { return model.type >= 17 && model.type <= 22; }
  bool HasAlpha() const { return model.type == 29 || model.type > 30; }
  RGBQUAD Colour(size_t index) const {
    return reinterpret_cast<const BITMAPINFO*>(header.data())->bmiColors[index];
  }

  BYTE* Bits() { return rows.data() + (stride < 0 && !rows.empty() ? -stride * (Height() - 1) : 0); }

  // The place of a bit of a pixel: its byte and the mask in it.
  std::pair<size_t, BYTE> Place(LONG x, LONG y, int bit) const {
    const LONG row = stride < 0 ? -stride * (Height() - 1 - y) : stride * y;
    if (model.bits >= 8) return {row + x * (model.bits / 8) + bit / 8, 1 << bit % 8};
    const int inRow = x * model.bits + (model.bits - 1 - bit);
    return {row + inRow / 8, 0x80 >> inRow % 8};
  }
  uint32_t Get(LONG x, LONG y, int first, int count) const {
    uint32_t value = 0;
    for (int bit = 0; bit < count; ++bit) {
      const auto [byte, mask] = Place(x, y, first + bit);
      if (rows[byte] & mask) value |= 1u << bit;
    }
    return value;
  }
  void Put(LONG x, LONG y, int first, int count, uint32_t value) {
    for (int bit = 0; bit < count; ++bit) {
      const auto [byte, mask] = Place(x, y, first + bit);
      rows[byte] = static_cast<BYTE>(value >> bit & 1 ? rows[byte] | mask : rows[byte] & ~mask);
    }
  }
  // Takes a pixel of another picture of the type.
  void Take(LONG x, LONG y, const Picture& from, LONG fromX, LONG fromY) {
    for (int bit = 0; bit < model.bits; ++bit) Put(x, y, bit, 1, from.Get(fromX, fromY, bit, 1));
  }

  // Blue, green, red and alpha from 0 to 1.
  std::array<double, 4> Components(LONG x, LONG y) const {
    if (IsPalette()) {
      const RGBQUAD colour = Colour(Get(x, y, 0, model.bits));
      return {colour.rgbBlue / 255.0, colour.rgbGreen / 255.0, colour.rgbRed / 255.0, 1};
    }
    std::array<double, 4> found;
    for (int i = 0; i < 4; ++i) {
      const uint32_t value = Get(x, y, model.first[i], model.width[i]);
      found[i] = model.width[i] == 0 ? 1
                 : IsFloat()         ? std::bit_cast<float>(value)
                                     : value / (std::exp2(model.width[i]) - 1);
    }
    return found;
  }

 private:
  template <class Random>
  void FillFloats(Random& random) {
    for (LONG y = 0; y < Height(); ++y) {
      for (LONG x = 0; x < Width(); ++x) {
        for (int i = 0; i < 4; ++i)
          Put(x, y, 32 * i, 32, std::bit_cast<uint32_t>(static_cast<float>(random() % 1001) / 1000));
      }
    }
  }
};

}  // namespace qntest
