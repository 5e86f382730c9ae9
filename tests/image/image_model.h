// A bitmap as a test sees it: each pixel as a number of bits, its components by where they stand.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <random>
#include <utility>
#include <vector>

#include "qn/image/qndib.h"

namespace qntest {

// A type, its bits, where blue, green, red and alpha start, and how many bits they have. Gray is all three
// colours; those of a palette have no bits.
using ModelType = std::array<int, 10>;

constexpr ModelType kModelTypes[] = {{16, 1},
                                     {17, 1, 0, 0, 0, 0, 1, 1, 1},
                                     {18, 2, 0, 0, 0, 0, 2, 2, 2},
                                     {19, 4, 0, 0, 0, 0, 4, 4, 4},
                                     {20, 8, 0, 0, 0, 0, 8, 8, 8},
                                     {21, 16, 0, 0, 0, 0, 16, 16, 16},
                                     {22, 32, 0, 0, 0, 0, 32, 32, 32},
                                     {23, 4},
                                     {24, 8},
                                     {25, 16, 0, 5, 10, 15, 5, 5, 5, 1},
                                     {26, 16, 0, 5, 11, 0, 5, 6, 5},
                                     {27, 24, 0, 8, 16, 0, 8, 8, 8},
                                     {28, 32, 0, 8, 16, 24, 8, 8, 8, 8},
                                     {29, 32, 0, 8, 16, 24, 8, 8, 8, 8},
                                     {30, 32, 0, 10, 20, 30, 10, 10, 10, 2},
                                     {31, 64, 0, 16, 32, 48, 16, 16, 16, 16},
                                     {32, 128, 0, 32, 64, 96, 32, 32, 32, 32},
                                     {33, 64, 0, 16, 32, 48, 16, 16, 16, 16},
                                     {35, 128, 0, 32, 64, 96, 32, 32, 32, 32}};

// Header, colour table and rows of exact size with random content, the rows in either direction.
struct Picture {
  int type, bits;
  std::array<int, 4> first, width;
  std::vector<BYTE> header, rows;
  LONG stride;

  Picture(const ModelType& model, LONG columns, LONG height, LONG direction, std::mt19937_64& random)
      : type(model[0]),
        bits(model[1]),
        first{model[2], model[3], model[4], model[5]},
        width{model[6], model[7], model[8], model[9]} {
    const auto byte = [&] { return static_cast<BYTE>(random()); };
    RGBQUAD palette[256];
    for (RGBQUAD& each : palette) each = {byte(), byte(), byte(), byte()};
    const int colours = IsPalette() ? 1 << bits : 0;
    header.resize(52 + 4 * static_cast<size_t>(colours));
    QnVideo_InitBitmapInfo(reinterpret_cast<BITMAPINFO*>(header.data()), type, columns, height, palette,
                           colours, nullptr);
    // With no direction rows are padded as usual. The last one ends with its last pixel.
    const LONG least = (columns * bits + 7) / 8;
    stride = direction == 0 ? (least + 3) / 4 * 4 : direction * (least + byte() % 5);
    rows.resize(static_cast<size_t>(height == 0 ? 0 : std::abs(stride) * (Height() - 1) + least));
    std::generate(rows.begin(), rows.end(), byte);
    for (LONG i = 0; IsFloat() && i < columns * Height() * 4; ++i) {
      Put(i / 4 % columns, i / 4 / columns, i % 4 * 32, 32, std::bit_cast<uint32_t>(byte() / 255.0f));
    }
  }

  const BITMAPINFOHEADER* Header() const { return reinterpret_cast<const BITMAPINFOHEADER*>(header.data()); }
  LONG Height() const { return std::abs(Header()->biHeight); }
  RECT Whole() const { return {0, 0, Header()->biWidth, Height()}; }
  bool IsFloat() const { return bits == 128; }
  bool IsPalette() const { return width[0] == 0; }
  bool IsGray() const { return type >= 17 && type <= 22; }
  RGBQUAD Entry(size_t index) const {
    return reinterpret_cast<const BITMAPINFO*>(header.data())->bmiColors[index];
  }
  BYTE* Bits() { return rows.data() + (stride < 0 && !rows.empty() ? -stride * (Height() - 1) : 0); }

  // The place of a bit of a pixel: its byte and the mask in it.
  std::pair<size_t, BYTE> Place(LONG x, LONG y, int bit) const {
    const LONG row = stride < 0 ? -stride * (Height() - 1 - y) : stride * y;
    if (bits >= 8) return {row + x * (bits / 8) + bit / 8, 1 << bit % 8};
    const int inRow = x * bits + (bits - 1 - bit);
    return {row + inRow / 8, 0x80 >> inRow % 8};
  }
  uint32_t Get(LONG x, LONG y, int start, int count) const {
    uint32_t value = 0;
    for (int bit = 0; bit < count; ++bit) {
      const auto [byte, mask] = Place(x, y, start + bit);
      value |= static_cast<uint32_t>((rows[byte] & mask) != 0) << bit;
    }
    return value;
  }
  void Put(LONG x, LONG y, int start, int count, uint32_t value) {
    for (int bit = 0; bit < count; ++bit) {
      const auto [byte, mask] = Place(x, y, start + bit);
      rows[byte] = static_cast<BYTE>(value >> bit & 1 ? rows[byte] | mask : rows[byte] & ~mask);
    }
  }
  // Takes a pixel of another picture of the type.
  void Take(LONG x, LONG y, const Picture& from, LONG fromX, LONG fromY) {
    for (int bit = 0; bit < bits; ++bit) Put(x, y, bit, 1, from.Get(fromX, fromY, bit, 1));
  }

  // Blue, green, red and alpha from 0 to 1.
  std::array<double, 4> Components(LONG x, LONG y) const {
    const RGBQUAD entry = IsPalette() ? Entry(Get(x, y, 0, bits)) : RGBQUAD{};
    std::array<double, 4> found = {entry.rgbBlue / 255.0, entry.rgbGreen / 255.0, entry.rgbRed / 255.0, 1};
    for (int i = 0; i < 4; ++i) {
      const uint32_t value = Get(x, y, first[i], width[i]);
      if (width[i] != 0)
        found[i] = IsFloat() ? std::bit_cast<float>(value) : value / (std::exp2(width[i]) - 1);
    }
    return found;
  }
};

}  // namespace qntest
