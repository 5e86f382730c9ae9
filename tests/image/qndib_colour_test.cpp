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

TEST(QnHsl, AllCubeRoundTrips) {
  for (int i = 0; i < 52 * 52 * 52; ++i) {
    const QNRGBA pixel = {static_cast<BYTE>(i % 52 * 5), static_cast<BYTE>(i / 52 % 52 * 5),
                          static_cast<BYTE>(i / 2704 * 5), static_cast<BYTE>(i)};
    QNHSL hsl, other;
    QNRGBA_To_QNHSL(&hsl, &pixel);
    const QNDIBPIXEL wide = {pixel.blue, pixel.green, pixel.red, pixel.alpha};
    QNDIBPIXEL_To_QNHSL(&other, &wide);
    const std::array<double, 3> colour = ColourOf(hsl);
    QNRGBAFLOAT back;
    QNHSL_To_QNRGBAFLOAT(&back, &hsl);
    QNDIBPIXEL bits;
    QNHSL_To_QNDIBPIXEL_Float(&bits, &hsl);
    QNRGBA bytes;
    QNHSL_To_QNRGBA(&bytes, &hsl);
    QNDIBPIXEL again;
    QNHSL_To_QNDIBPIXEL(&again, &hsl);
    const double in[] = {pixel.blue / 255.0, pixel.green / 255.0, pixel.red / 255.0};
    const float out[] = {back.blue, back.green, back.red};
    const DWORD truncated[] = {bytes.blue, bytes.green, bytes.red};
    for (int c = 0; c < 3; ++c) {
      ASSERT_NEAR(colour[c], in[c], 1e-12);
      ASSERT_NEAR(out[c], in[c], 1e-7);
      // Truncation of a number that is whole but for its rounding.
      ASSERT_TRUE(truncated[c] == std::lround(in[c] * 255) || truncated[c] + 1 == std::lround(in[c] * 255));
    }
    ASSERT_TRUE(hsl.hue >= 0 && hsl.hue <= 1 && hsl.alpha == pixel.alpha * 0.00392156862745098);
    ASSERT_EQ(std::memcmp(&hsl, &other, sizeof(hsl)), 0);
    ASSERT_EQ(std::memcmp(&bits, &back, sizeof(back)), 0);
    ASSERT_TRUE(again.blue == bytes.blue && again.green == bytes.green && again.red == bytes.red &&
                again.alpha == bytes.alpha);
    QNHSL fromFloat, fromBits;
    QNRGBAFLOAT_To_QNHSL(&fromFloat, &back);
    QNDIBPIXEL_To_QNHSL_Float(&fromBits, &bits);
    ASSERT_EQ(std::memcmp(&fromFloat, &fromBits, sizeof(fromBits)), 0);
  }
}

TEST(QnHsl, Borders) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  // Hue, saturation, lightness, alpha; blue, green, red, alpha of a pixel that was 9, 9, 9, 9.
  const std::pair<QNHSL, QNRGBA> rows[] = {
      {{0, 1, 0.5, 1}, {0, 0, 255, 255}},     {{1, 1, 0.5, 0.999}, {0, 0, 255, 254}},
      {{7.0 / 6, 1, 0.5, 1}, {9, 9, 9, 255}}, {{-1.0 / 6, 1, 0.5, 0}, {9, 9, 9, 0}},
      {{-0.05, 1, 0.5, 1}, {0, 0, 255, 255}}, {{nan, 1, 0.5, 2}, {9, 9, 9, 255}},
      {{1e300, 0, 0.5, -1}, {9, 9, 9, 0}},    {{5, 1, 0, 0.5}, {0, 0, 0, 127}},
      {{0, 0, 1, nan}, {255, 255, 255, 0}},   {{0, 0, 0.999999, 1}, {254, 254, 254, 255}},
      {{0, 0, 7, 1}, {255, 255, 255, 255}},   {{2.0 / 3, 1, 0.25, 1}, {127, 0, 0, 255}}};
  for (const auto& [hsl, expected] : rows) {
    QNRGBA pixel = {9, 9, 9, 9};
    QNHSL_To_QNRGBA(&pixel, &hsl);
    EXPECT_EQ(std::memcmp(&pixel, &expected, 4), 0)
        << hsl.hue << " " << hsl.lightness << ": " << int{pixel.blue} << " " << int{pixel.green} << " "
        << int{pixel.red} << " " << int{pixel.alpha};
  }
}

struct System {
  BOOL (*check)(const QNRGBAFLOAT*);
  BOOL (*correct)(QNRGBAFLOAT*);
  double lumaBlue, limit, black;  // black: what the luma counts in the composite signal
  double chroma[2][3];
  double back[3][2];
};

constexpr double kU[] = {0.436798, -0.289391, -0.147407}, kV[] = {-0.099978, -0.514799, 0.614777};
const System kSystems[] = {
    {HotCheckNTSCYIQ,
     HotCheckNTSCYIQReturn,
     0.114,
     1.2162162,
     0.075,
     {{-0.321746, -0.274133, 0.595879}, {0.311878, -0.523083, 0.211205}},
     {{-1.104744, 1.701157}, {-0.272558, -0.646709}, {0.956295, 0.621025}}},
    {HotCheckNTSCYUV,
     HotCheckNTSCYUVReturn,
     0.144,
     1.2162162,
     0.075,
     {{kU[0], kU[1], kU[2]}, {kV[0], kV[1], kV[2]}},
     {{2.028398, 0}, {-0.393931, -0.580809}, {0, 1.140251}}},
    {HotCheckPALYUV,
     HotCheckPALYUVReturn,
     0.144,
     1.2,
     0,
     {{kU[0], kU[1], kU[2]}, {kV[0], kV[1], kV[2]}},
     {{2.028398, 0}, {-0.393931, -0.580809}, {0, 1.140251}}},
};

TEST(HotCheck, WholeCube) {
  for (const System& system : kSystems) {
    int illegal = 0;
    for (int i = 0; i < 41 * 41 * 41; ++i) {
      const float c[3] = {static_cast<float>(i % 41) / 36 - 0.05f,
                          static_cast<float>(i / 41 % 41) / 36 - 0.05f,
                          static_cast<float>(i / 1681) / 36 - 0.05f};
      double signal[3];
      for (int j = 0; j < 3; ++j)
        signal[j] = c[j] < 0.018 ? c[j] * 4.5 : std::exp(std::log(c[j]) * 0.45) * 1.099 - 0.099;
      const double luma = system.lumaBlue * signal[0] + 0.587 * signal[1] + 0.299 * signal[2];
      double chroma[2] = {};
      for (int j = 0; j < 6; ++j) chroma[j / 3] += system.chroma[j / 3][j % 3] * signal[j % 3];
      const double amplitude = std::hypot(chroma[0], chroma[1]), room = std::abs(system.limit - luma);
      QNRGBAFLOAT pixel = {c[0], c[1], c[2], 7};
      const QNRGBAFLOAT before = pixel;
      const BOOL hot = system.check(&pixel);
      ASSERT_TRUE(hot == (room < amplitude) || std::abs(room - amplitude) < 1e-9);
      ASSERT_EQ(std::memcmp(&pixel, &before, sizeof(pixel)), 0);
      ASSERT_EQ(system.correct(&pixel), hot);
      if (!hot) {
        ASSERT_EQ(std::memcmp(&pixel, &before, sizeof(pixel)), 0);
        continue;
      }
      ++illegal;
      // The term c - (luma part + c - 1.15) is what 1.15 leaves beside the luma.
      const double left = 1.15 - system.black - luma * (system.black == 0 ? 1 : 0.925);
      const double factor = std::min(1.0, left / (amplitude * 0.925));
      const float found[3] = {pixel.blue, pixel.green, pixel.red};
      for (int j = 0; j < 3; ++j) {
        const double value = luma + factor * (system.back[j][0] * chroma[0] + system.back[j][1] * chroma[1]);
        const double light = value < 0.081 ? value / 4.5 : std::exp(std::log((value + 0.099) / 1.099) / 0.45);
        ASSERT_NEAR(found[j], std::clamp(light, 0.0, 1.0), 1e-6);
      }
      ASSERT_EQ(pixel.alpha, 7);
    }
    EXPECT_GT(illegal, 1000);
    QNRGBAFLOAT bad = {std::numeric_limits<float>::quiet_NaN(), 0, 0, 0};
    EXPECT_EQ(system.correct(&bad), 1);
    EXPECT_EQ(bad.red, 0);
  }
}

}  // namespace
