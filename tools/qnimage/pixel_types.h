// Pixel types by the names that the command line has for them.
#pragma once

#include <string>
#include <string_view>

#include "tools/qnimage/image.h"

namespace qnimage {

struct PixelTypeRow {
  const char* name;
  int type;
  bool isInPng;
};

// Null for one that has no name.
const PixelTypeRow* FindPixelType(std::string_view name);
const PixelTypeRow* FindPixelType(int type);
std::string PixelTypeNames();

// The colours of a type with a palette, for pictures that have none themselves; empty for other types.
Palette UsualPalette(int type);

}  // namespace qnimage
