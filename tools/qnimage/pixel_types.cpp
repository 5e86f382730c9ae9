#include "tools/qnimage/pixel_types.h"

#include <algorithm>
#include <iterator>

#include "tools/common/option_values.h"

namespace qnimage {
namespace {

constexpr PixelTypeRow kRows[] = {
    {"palette1", QNPIXEL_PALETTE1, true},    {"palette4", QNPIXEL_PALETTE4, true},
    {"palette8", QNPIXEL_PALETTE8, true},    {"gray1", QNPIXEL_GRAY1, true},
    {"gray2", QNPIXEL_GRAY2, true},          {"gray4", QNPIXEL_GRAY4, true},
    {"gray8", QNPIXEL_GRAY8, true},          {"gray16", QNPIXEL_GRAY16, true},
    {"gray32", QNPIXEL_GRAY32, false},       {"rgb555", QNPIXEL_RGB555, false},
    {"rgb565", QNPIXEL_RGB565, false},       {"rgb24", QNPIXEL_RGB24, true},
    {"rgb32", QNPIXEL_RGB32, false},         {"rgba32", QNPIXEL_RGBA32, true},
    {"rgb30", QNPIXEL_RGB30, false},         {"rgba64", QNPIXEL_RGBA64, true},
    {"rgbafloat", QNPIXEL_RGBAFLOAT, false},
};

BYTE Byte(int value) {
  return static_cast<BYTE>(value);
}

}  // namespace

const PixelTypeRow* FindPixelType(std::string_view name) {
  return qntool::FindByName(kRows, name);
}

const PixelTypeRow* FindPixelType(int type) {
  const auto* const row = std::find_if(std::begin(kRows), std::end(kRows),
                                       [&](const PixelTypeRow& each) { return each.type == type; });
  return row == std::end(kRows) ? nullptr : row;
}

std::string PixelTypeNames() {
  return qntool::NamesOf(kRows);
}

Palette UsualPalette(int type) {
  Palette palette;
  if (type == QNPIXEL_PALETTE1) palette = {{0, 0, 0, 0}, {255, 255, 255, 0}};
  if (type == QNPIXEL_PALETTE4) {
    // Eight dark colours and the same eight in full; the two grays lie between black and white.
    for (const int level : {128, 255}) {
      for (int i = 0; i < 8; ++i)
        palette.push_back({Byte(i & 4 ? level : 0), Byte(i & 2 ? level : 0), Byte(i & 1 ? level : 0), 0});
    }
    std::fill_n(&palette[7].rgbBlue, 3, BYTE{192});
    std::fill_n(&palette[8].rgbBlue, 3, BYTE{128});
  }
  if (type == QNPIXEL_PALETTE8) {
    // A cube of 6 levels, and grays between its own.
    for (int i = 0; i < 216; ++i)
      palette.push_back({Byte(i % 6 * 51), Byte(i / 6 % 6 * 51), Byte(i / 36 * 51), 0});
    for (int i = 1; i <= 40; ++i)
      palette.push_back({Byte(i * 255 / 41), Byte(i * 255 / 41), Byte(i * 255 / 41), 0});
  }
  return palette;
}

}  // namespace qnimage
