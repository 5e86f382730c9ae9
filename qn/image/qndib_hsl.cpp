#include <algorithm>
#include <bit>

#include "qn/image/qndib.h"

namespace qn {
namespace {

constexpr double kPerByte = 0.00392156862745098;
constexpr double kSixth = 1.0 / 6.0;

struct Rgba {
  double red;
  double green;
  double blue;
  double alpha;
};

QNHSL ToHsl(const Rgba& colour) {
  const auto [red, green, blue, alpha] = colour;
  const double max = std::max({red, green, blue});
  const double min = std::min({red, green, blue});
  const double delta = max - min;
  QNHSL hsl = {0, 0, (max + min) * 0.5, alpha};
  if (hsl.lightness <= 0 || delta == 0) return hsl;
  hsl.saturation = delta / (hsl.lightness <= 0.5 ? max + min : 2.0 - max - min);
  if (red == max) {
    hsl.hue = green == min ? (max - blue) / delta + 5 : 1 - (max - green) / delta;
  } else if (green == max) {
    hsl.hue = blue == min ? (max - red) / delta + 1 : 3 - (max - blue) / delta;
  } else {
    hsl.hue = red == min ? (max - green) / delta + 3 : 5 - (max - red) / delta;
  }
  hsl.hue *= kSixth;
  return hsl;
}

// False for a hue without colour: red, green and blue of `*colour` stay then.
bool FromHsl(const QNHSL& hsl, Rgba* colour) {
  const double l = hsl.lightness;
  const double s = hsl.saturation;
  const double v = l <= 0.5 ? (s + 1) * l : s + l - s * l;
  *colour = {0, 0, 0, hsl.alpha};
  if (v <= 0) return true;
  const double turn = hsl.hue * 6;
  if (!(turn > -1 && turn < 7)) return false;
  const int sextant = static_cast<int>(turn);
  const double m = 2 * l - v;
  const double w = (v - m) / v * v * (turn - sextant);
  const double rising = m + w;
  const double falling = v - w;
  const double colours[6][3] = {{v, rising, m},  {falling, v, m}, {m, v, rising},
                                {m, falling, v}, {rising, m, v},  {v, m, falling}};
  const auto& [red, green, blue] = colours[sextant % 6];
  *colour = {red, green, blue, hsl.alpha};
  return true;
}

// Bytes, and components that hold one.
struct ByteScale {
  static double Read(DWORD component) { return component * kPerByte; }

  // NaN is 0.
  template <class Component>
  static void Write(Component* component, double value) {
    const double scaled = value * 255;
    *component = static_cast<Component>(scaled > 0 ? std::min(scaled, 255.0) : 0);
  }
};

// Floats, and components that hold the bits of one.
struct FloatScale {
  static double Read(float component) { return component; }
  static double Read(DWORD component) { return std::bit_cast<float>(component); }
  static void Write(float* component, double value) { *component = static_cast<float>(value); }
  static void Write(DWORD* component, double value) {
    *component = std::bit_cast<DWORD>(static_cast<float>(value));
  }
};

template <class Scale, class Pixel>
void PixelToHsl(QNHSL* hsl, const Pixel* pixel) {
  if (!hsl || !pixel) return;
  *hsl = ToHsl({Scale::Read(pixel->red), Scale::Read(pixel->green), Scale::Read(pixel->blue),
                Scale::Read(pixel->alpha)});
}

template <class Scale, class Pixel>
void HslToPixel(Pixel* pixel, const QNHSL* hsl) {
  if (!hsl || !pixel) return;
  Rgba colour;
  if (FromHsl(*hsl, &colour)) {
    Scale::Write(&pixel->blue, colour.blue);
    Scale::Write(&pixel->green, colour.green);
    Scale::Write(&pixel->red, colour.red);
  }
  Scale::Write(&pixel->alpha, colour.alpha);
}

}  // namespace
}  // namespace qn

void QNRGBA_To_QNHSL(QNHSL* hsl, const QNRGBA* pixel) {
  qn::PixelToHsl<qn::ByteScale>(hsl, pixel);
}

void QNDIBPIXEL_To_QNHSL(QNHSL* hsl, const QNDIBPIXEL* pixel) {
  qn::PixelToHsl<qn::ByteScale>(hsl, pixel);
}

void QNDIBPIXEL_To_QNHSL_Float(QNHSL* hsl, const QNDIBPIXEL* pixel) {
  qn::PixelToHsl<qn::FloatScale>(hsl, pixel);
}

void QNRGBAFLOAT_To_QNHSL(QNHSL* hsl, const QNRGBAFLOAT* pixel) {
  qn::PixelToHsl<qn::FloatScale>(hsl, pixel);
}

void QNHSL_To_QNRGBA(QNRGBA* pixel, const QNHSL* hsl) {
  qn::HslToPixel<qn::ByteScale>(pixel, hsl);
}

void QNHSL_To_QNDIBPIXEL(QNDIBPIXEL* pixel, const QNHSL* hsl) {
  qn::HslToPixel<qn::ByteScale>(pixel, hsl);
}

void QNHSL_To_QNDIBPIXEL_Float(QNDIBPIXEL* pixel, const QNHSL* hsl) {
  qn::HslToPixel<qn::FloatScale>(pixel, hsl);
}

void QNHSL_To_QNRGBAFLOAT(QNRGBAFLOAT* pixel, const QNHSL* hsl) {
  qn::HslToPixel<qn::FloatScale>(pixel, hsl);
}
