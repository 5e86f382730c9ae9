// The picture of a filter's response: gain in dB over the logarithm of the frequency.
#pragma once

#include <string>
#include <vector>

#include "tools/qnwave/canvas.h"
#include "tools/qnwave/theme.h"

namespace qnwave {

struct ResponseText {
  std::string title;
  std::string details;
};

// What a picture needs at least, in units.
constexpr double kLeastResponseWidth = 240;
constexpr double kLeastResponseHeight = 160;

// `gains` are those that MeasureResponse makes; `edges`, in hertz, are marked.
void DrawResponse(Canvas* canvas, const Theme& theme, const std::vector<double>& gains, uint32_t rate,
                  const std::vector<double>& edges, const ResponseText& text);

}  // namespace qnwave
