// Hue, saturation and lightness by round trips, and broadcast legality against its formulas.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <utility>

#include "qn/image/qndib.h"

namespace {

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
    const DWORD truncated[] = {bytes.blue, bytes.green, bytes.red};
    const float out[] = {floats.blue, floats.green, floats.red};
    for (int c = 0; c < 3; ++c) {
      // Truncation of a number that is whole but for its rounding.
      ASSERT_TRUE((truncated[c] == in[c] || truncated[c] == in[c] - 1) &&
                  std::abs(out[c] * 255 - in[c]) < 1e-4);
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

double ToLight(double signal) {
  return signal < 0.081 ? signal / 4.5 : std::pow((signal + 0.099) / 1.099, 1 / 0.45);
}

// What a pixel becomes, in blue, green and red; nothing for a legal one.
std::optional<std::array<double, 3>> Correct(const float (&pixel)[3], size_t system) {
  const bool isYiq = system == 0, isPal = system == 2;
  double c[3];
  for (int i = 0; i < 3; ++i)
    c[i] = pixel[i] < 0.018 ? pixel[i] * 4.5 : 1.099 * std::pow(double{pixel[i]}, 0.45) - 0.099;
  const auto sum = [&](double blue, double green, double red) {
    return blue * c[0] + green * c[1] + red * c[2];
  };
  const double y = sum(isYiq ? 0.114 : 0.144, 0.587, 0.299), room = (isPal ? 1.2 : 1.2162162) - y;
  const double u = isYiq ? sum(-0.321746, -0.274133, 0.595879) : sum(0.436798, -0.289391, -0.147407);
  const double v = isYiq ? sum(0.311878, -0.523083, 0.211205) : sum(-0.099978, -0.514799, 0.614777);
  if (room * room >= u * u + v * v) return std::nullopt;
  const double chroma = 0.925 * std::hypot(u, v), signal = (isPal ? y : 0.925 * y + 0.075) + chroma;
  const double by = std::min(1.0, (chroma - (signal - 1.15)) / chroma);
  const auto add = [=](double byU, double byV) { return ToLight(y + by * (byU * u + byV * v)); };
  if (!isYiq) return {{add(2.028398, 0), add(-0.393931, -0.580809), add(0, 1.140251)}};
  return {{add(-1.104744, 1.701157), add(-0.272558, -0.646709), add(0.956295, 0.621025)}};
}

// A grid that goes beyond 0 and 1.
TEST(HotCheck, WholeCube) {
  constexpr std::array kChecks = {HotCheckNTSCYIQ, HotCheckNTSCYUV, HotCheckPALYUV};
  constexpr std::array kCorrections = {HotCheckNTSCYIQReturn, HotCheckNTSCYUVReturn, HotCheckPALYUVReturn};
  for (size_t system = 0; system < 3; ++system) {
    for (int i = 0; i < 41 * 41 * 41; ++i) {
      const auto component = [i](int divisor) { return static_cast<float>(i / divisor % 41) / 36 - 0.05f; };
      const float in[] = {component(1), component(41), component(1681)};
      const QNRGBAFLOAT before = {in[0], in[1], in[2], 7};
      QNRGBAFLOAT pixel = before;
      const auto wanted = Correct(in, system);
      ASSERT_EQ(kChecks[system](&pixel), wanted.has_value()) << i;
      ASSERT_TRUE(Same(pixel, before) && kCorrections[system](&pixel) == wanted.has_value() &&
                  pixel.alpha == 7);
      ASSERT_TRUE(wanted || Same(pixel, before));
      const float now[] = {pixel.blue, pixel.green, pixel.red};
      for (size_t j = 0; j < 3 && wanted; ++j) ASSERT_NEAR(now[j], std::clamp((*wanted)[j], 0.0, 1.0), 1e-6);
    }
  }
  QNRGBAFLOAT bad = {std::numeric_limits<float>::quiet_NaN(), 0, 0, 0};
  EXPECT_TRUE(HotCheckPALYUVReturn(&bad) == 1 && bad.red == 0);
}

}  // namespace
