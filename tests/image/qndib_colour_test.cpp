// Hue, saturation and lightness, and broadcast legality, by round trips and against numbers of another
// program.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
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

// How many colours of a grid that goes beyond 0 and 1 are not legal, and the sums of what those become:
// worked out from the formulas by another program.
struct System {
  BOOL (*check)(const QNRGBAFLOAT*);
  BOOL (*correct)(QNRGBAFLOAT*);
  int hot;
  double blue, green, red;
};
const System kSystems[] = {
    {HotCheckNTSCYIQ, HotCheckNTSCYIQReturn, 2152, 849.1334998, 1831.8224015, 825.1986948},
    {HotCheckNTSCYUV, HotCheckNTSCYUVReturn, 2584, 1198.9113585, 2252.8071895, 929.8475926},
    {HotCheckPALYUV, HotCheckPALYUVReturn, 3178, 1469.2077668, 2833.5706394, 1162.6630728}};

TEST(HotCheck, WholeCube) {
  for (const auto& [check, correct, hot, blue, green, red] : kSystems) {
    int count = 0;
    double sums[3] = {};
    for (int i = 0; i < 41 * 41 * 41; ++i) {
      const auto component = [i](int divisor) { return static_cast<float>(i / divisor % 41) / 36 - 0.05f; };
      const QNRGBAFLOAT before = {component(1), component(41), component(1681), 7};
      QNRGBAFLOAT pixel = before;
      const BOOL found = check(&pixel);
      ASSERT_TRUE(Same(pixel, before) && correct(&pixel) == found && pixel.alpha == 7);
      ASSERT_TRUE(found || Same(pixel, before));
      count += found;
      const float now[] = {pixel.blue, pixel.green, pixel.red};
      for (int j = 0; j < 3 && found; ++j) sums[j] += now[j];
    }
    EXPECT_EQ(count, hot);
    EXPECT_NEAR(sums[0], blue, 1e-4);
    EXPECT_NEAR(sums[1], green, 1e-4);
    EXPECT_NEAR(sums[2], red, 1e-4);
  }
  QNRGBAFLOAT bad = {std::numeric_limits<float>::quiet_NaN(), 0, 0, 0};
  EXPECT_TRUE(HotCheckPALYUVReturn(&bad) == 1 && bad.red == 0);
}

}  // namespace
