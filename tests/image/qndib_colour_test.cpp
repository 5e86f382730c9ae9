// Hue, saturation and lightness, and broadcast legality, against other forms of their formulas.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "qn/image/qndib.h"

namespace {

// The components by distance on the circle of hues.
std::array<double, 3> ColourOf(const QNHSL& hsl) {
  const auto component = [&](double offset) {
    const double place = std::fmod(offset + hsl.hue * 12, 12);
    return hsl.lightness - hsl.saturation * std::min(hsl.lightness, 1 - hsl.lightness) *
                               std::max(-1.0, std::min({place - 3, 9 - place, 1.0}));
  };
  return {component(4), component(8), component(0)};
}

template <class First, class Second>
bool Same(const First& first, const Second& second) {
  return sizeof(first) == sizeof(second) && std::memcmp(&first, &second, sizeof(first)) == 0;
}

TEST(QnHsl, CubeRoundTrips) {
  for (int i = 0; i < 52 * 52 * 52; ++i) {
    const DWORD in[] = {i % 52 * 5u, i / 52 % 52 * 5u, i / 2704 * 5u};
    const QNDIBPIXEL wide = {in[0], in[1], in[2], i % 256u};
    const QNRGBA pixel = {static_cast<BYTE>(in[0]), static_cast<BYTE>(in[1]), static_cast<BYTE>(in[2]),
                          static_cast<BYTE>(i)};
    QNHSL hsl, other;
    QNRGBA_To_QNHSL(&hsl, &pixel);
    QNDIBPIXEL_To_QNHSL(&other, &wide);
    ASSERT_TRUE(Same(hsl, other) && hsl.hue >= 0 && hsl.hue <= 1 &&
                hsl.alpha == wide.alpha * 0.00392156862745098);
    QNRGBA bytes;
    QNDIBPIXEL again, bits;
    QNRGBAFLOAT floats;
    QNHSL_To_QNRGBA(&bytes, &hsl);
    QNHSL_To_QNDIBPIXEL(&again, &hsl);
    QNHSL_To_QNDIBPIXEL_Float(&bits, &hsl);
    QNHSL_To_QNRGBAFLOAT(&floats, &hsl);
    ASSERT_TRUE(Same(bits, floats) &&
                Same(again, (QNDIBPIXEL{bytes.blue, bytes.green, bytes.red, bytes.alpha})));
    const std::array<double, 3> colour = ColourOf(hsl);
    const DWORD truncated[] = {bytes.blue, bytes.green, bytes.red};
    const float out[] = {floats.blue, floats.green, floats.red};
    for (int c = 0; c < 3; ++c) {
      ASSERT_TRUE(std::abs(colour[c] * 255 - in[c]) < 1e-9 && std::abs(out[c] * 255 - in[c]) < 1e-4);
      // Truncation of a number that is whole but for its rounding.
      ASSERT_TRUE(truncated[c] == in[c] || truncated[c] == in[c] - 1);
    }
    QNRGBAFLOAT_To_QNHSL(&hsl, &floats);
    QNDIBPIXEL_To_QNHSL_Float(&other, &bits);
    ASSERT_TRUE(Same(hsl, other));
  }
}

TEST(QnHsl, Borders) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  // Hue, saturation, lightness, alpha; blue, green, red and alpha of a pixel that was 9, 9, 9, 9.
  const double rows[][8] = {{0, 1, 0.5, 1, 0, 0, 255, 255},     {1, 1, 0.5, 0.999, 0, 0, 255, 254},
                            {7.0 / 6, 1, 0.5, 1, 9, 9, 9, 255}, {-1.0 / 6, 1, 0.5, 0, 9, 9, 9, 0},
                            {-0.05, 1, 0.5, 1, 0, 0, 255, 255}, {nan, 1, 0.5, 2, 9, 9, 9, 255},
                            {1e300, 0, 0.5, -1, 9, 9, 9, 0},    {5, 1, 0, 0.5, 0, 0, 0, 127},
                            {0, 0, 1, nan, 255, 255, 255, 0},   {0, 0, 0.999999, 1, 254, 254, 254, 255},
                            {0, 0, 7, 1, 255, 255, 255, 255},   {2.0 / 3, 1, 0.25, 1, 127, 0, 0, 255}};
  for (const auto& row : rows) {
    const QNHSL hsl = {row[0], row[1], row[2], row[3]};
    QNRGBA pixel = {9, 9, 9, 9};
    QNHSL_To_QNRGBA(&pixel, &hsl);
    EXPECT_TRUE(pixel.blue == row[4] && pixel.green == row[5] && pixel.red == row[6] && pixel.alpha == row[7])
        << row[0] << " " << row[2];
  }
}

struct System {
  BOOL (*check)(const QNRGBAFLOAT*);
  BOOL (*correct)(QNRGBAFLOAT*);
  double lumaBlue, limit, black;  // black: what the luma counts in the composite signal
  const double (&chroma)[6];
  const double (&back)[6];
};

constexpr double kYiq[] = {-0.321746, -0.274133, 0.595879, 0.311878, -0.523083, 0.211205};
constexpr double kYuv[] = {0.436798, -0.289391, -0.147407, -0.099978, -0.514799, 0.614777};
constexpr double kYiqBack[] = {-1.104744, 1.701157, -0.272558, -0.646709, 0.956295, 0.621025};
constexpr double kYuvBack[] = {2.028398, 0, -0.393931, -0.580809, 0, 1.140251};
const System kSystems[] = {{HotCheckNTSCYIQ, HotCheckNTSCYIQReturn, 0.114, 1.2162162, 0.075, kYiq, kYiqBack},
                           {HotCheckNTSCYUV, HotCheckNTSCYUVReturn, 0.144, 1.2162162, 0.075, kYuv, kYuvBack},
                           {HotCheckPALYUV, HotCheckPALYUVReturn, 0.144, 1.2, 0, kYuv, kYuvBack}};

TEST(HotCheck, WholeCube) {
  for (int i = 0; i < 3 * 41 * 41 * 41; ++i) {
    const System& system = kSystems[i / (41 * 41 * 41)];
    const auto component = [i](int divisor) { return static_cast<float>(i / divisor % 41) / 36 - 0.05f; };
    const QNRGBAFLOAT before = {component(1), component(41), component(1681), 7};
    double signal[3] = {before.blue, before.green, before.red};
    for (double& c : signal) c = c < 0.018 ? c * 4.5 : std::exp(std::log(c) * 0.45) * 1.099 - 0.099;
    const double luma = system.lumaBlue * signal[0] + 0.587 * signal[1] + 0.299 * signal[2];
    double chroma[2] = {};
    for (int j = 0; j < 6; ++j) chroma[j / 3] += system.chroma[j] * signal[j % 3];
    const double amplitude = std::hypot(chroma[0], chroma[1]), room = std::abs(system.limit - luma);
    QNRGBAFLOAT pixel = before;
    const BOOL hot = system.check(&pixel);
    ASSERT_TRUE((hot == (room < amplitude) || std::abs(room - amplitude) < 1e-9) && Same(pixel, before));
    ASSERT_TRUE(system.correct(&pixel) == hot && (hot || Same(pixel, before)));
    // The term c - (luma part + c - 1.15) is what 1.15 leaves beside the luma.
    const double left = 1.15 - system.black - luma * (system.black == 0 ? 1 : 0.925);
    const double factor = std::min(1.0, left / (amplitude * 0.925));
    const float found[3] = {pixel.blue, pixel.green, pixel.red};
    for (int j = 0; j < 3 && hot; ++j) {
      const double value =
          luma + factor * (system.back[2 * j] * chroma[0] + system.back[2 * j + 1] * chroma[1]);
      const double light = value < 0.081 ? value / 4.5 : std::exp(std::log((value + 0.099) / 1.099) / 0.45);
      ASSERT_NEAR(found[j], std::clamp(light, 0.0, 1.0), 1e-6);
    }
    ASSERT_EQ(pixel.alpha, 7);
  }
  QNRGBAFLOAT bad = {std::numeric_limits<float>::quiet_NaN(), 0, 0, 0};
  EXPECT_TRUE(HotCheckPALYUVReturn(&bad) == 1 && bad.red == 0);
}

}  // namespace
