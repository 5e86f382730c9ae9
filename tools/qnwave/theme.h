// The colours of a picture.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qnwave {

struct Theme {
  const char* name;
  // 0xRRGGBB
  uint32_t paper;
  uint32_t lane;
  uint32_t grid;
  uint32_t centre;  // the line of silence, and full scale where there is more
  uint32_t text;
  uint32_t dimText;
  uint32_t wave;
  uint32_t rms;
  uint32_t clip;
};

// Null for an unknown name.
const Theme* FindTheme(std::string_view name);

// All names, for messages: "light, dark, ...".
std::string ThemeNames();

}  // namespace qnwave
