#include "tools/qnwave/colour_map.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "tools/common/option_values.h"

namespace qnwave {
namespace {

// Paths through the Oklab colour space (Ottosson, A perceptual color space for image processing, 2020), in
// which the lightness grows evenly while the hue turns.
struct Path {
  const char* name;
  double firstHue;  // degrees
  double lastHue;
  double chroma;
};

constexpr Path kPaths[] = {{"heat", 270, 465, 0.21}, {"sea", 290, 110, 0.16}, {"grey", 0, 0, 0}};
constexpr double kDarkest = 0.1;
constexpr double kBrightest = 0.97;

using Colour = std::array<double, 3>;

// Linear red, green and blue of a colour of the space; outside 0 to 1 no screen shows it.
Colour ToLinear(double lightness, double chroma, double hue) {
  const double a = chroma * std::cos(hue);
  const double b = chroma * std::sin(hue);
  const double l = std::pow(lightness + 0.3963377774 * a + 0.2158037573 * b, 3);
  const double m = std::pow(lightness - 0.1055613458 * a - 0.0638541728 * b, 3);
  const double s = std::pow(lightness - 0.0894841775 * a - 1.2914855480 * b, 3);
  return {4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s,
          -1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s,
          -0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s};
}

bool IsShown(const Colour& colour) {
  for (const double part : colour) {
    if (part < 0 || part > 1) return false;
  }
  return true;
}

uint32_t ColourAt(const Path& path, double place) {
  const double lightness = kDarkest + (kBrightest - kDarkest) * place;
  const double hue = (path.firstHue + (path.lastHue - path.firstHue) * place) * std::numbers::pi / 180;
  // As strong a colour as screens have at this lightness, weaker towards black and white.
  double chroma = path.chroma * std::pow(std::sin(std::numbers::pi * (0.06 + 0.84 * place)), 0.5);
  while (chroma > 0 && !IsShown(ToLinear(lightness, chroma, hue))) chroma = std::max(chroma - 0.002, 0.0);
  uint32_t packed = 0;
  for (const double part : ToLinear(lightness, chroma, hue)) {
    const double shown = part <= 0.0031308 ? 12.92 * part : 1.055 * std::pow(part, 1 / 2.4) - 0.055;
    packed = packed << 8 | static_cast<uint32_t>(std::lround(std::clamp(shown, 0.0, 1.0) * 255));
  }
  return packed;
}

}  // namespace

std::optional<ColourMap> MakeColourMap(std::string_view name) {
  const Path* const path = qntool::FindByName(kPaths, name);
  if (!path) return std::nullopt;
  ColourMap map;
  for (uint32_t i = 0; i < kColours; ++i) map[i] = ColourAt(*path, static_cast<double>(i) / (kColours - 1));
  return map;
}

std::string ColourMapNames() {
  return qntool::NamesOf(kPaths);
}

}  // namespace qnwave
