#include "qn/dsp/qndither.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "tests/support/support.h"

namespace {

// The rule, sample by sample, from a dither that has just begun.
struct Model {
  uint32_t Draw() {
    const uint32_t word = random.x[random.i] ^= random.x[(random.i + 103) % 250];
    random.i = (random.i + 1) % 250;
    return word;
  }
  double Noise() {
    const double a = (d.ditherType == 2 ? 1.0 : 0.5) / (d.noiseShape ? 1 : d.scale);
    if (d.ditherType == 0) return 0;
    if (d.ditherType == 5) {
      for (;;) {
        const double u1 = 2 * (Draw() & 0xFFFF) / 65535.0 - 1, u2 = 2 * (Draw() & 0xFFFF) / 65535.0 - 1;
        const double s = u1 * u1 + u2 * u2;
        if (s > 0 && s < 1) return u2 * a * std::sqrt(-2 * std::log(s) / s);
      }
    }
    const auto uniform = [&] { return static_cast<int32_t>(Draw()) * 4.656612873077393e-10; };
    const double r = uniform();
    if (d.ditherType == 3) return (r + uniform()) * a;
    return (d.ditherType == 4 ? r - 0.99 * std::exchange(previous, r) : r) * a;
  }
  static double Round(double v) {
    return static_cast<int32_t>(std::bit_cast<uint64_t>(v + 6755399441055744.0) & 0xFFFFFFFF);
  }
  double One(double x, double& e1, double& e2) {
    const double n = Noise();
    if (d.noiseShape == 0) return Round((x + n) * d.scale) * (1 / d.scale);
    double v = x * d.scale - e1;
    if (d.noiseShape >= 2) {
      v += e2;
      e2 = e1 * (d.noiseShape == 2 ? 0.75 : 0.5);
    }
    const double q = Round(v + n);
    e1 = q - v;
    return q * (1 / d.scale);
  }
  template <class T>
  void Process(std::vector<T>& samples, size_t channels) {
    std::fill(error + 6, error + 8, std::array<double, 2>{});
    for (size_t c = 0; c < channels; ++c) {
      for (size_t i = c; i < samples.size(); i += channels)
        samples[i] = static_cast<T>(One(samples[i], error[c][0], error[c][1]));
      for (double& e : error[c])
        if ((std::bit_cast<uint64_t>(e) >> 32 & 0x7FF00000) < 0x3DF00000) e = 0;
    }
  }

  const CQnDither& d;
  QnRand random = *d.random;
  double previous = 0;
  std::array<double, 2> error[8] = {};
};

template <class T>
void AgreesWithTheModel(CQnDither& dither, double level, DWORD channels,
                        void (CQnDither::*process)(T*, DWORD, DWORD)) {
  Model model{dither};
  std::uniform_real_distribution<T> distribution(static_cast<T>(-level), static_cast<T>(level));
  for (const DWORD frames : {1u, 7u, 1000u, 259u, 2100u}) {
    std::vector<T> samples(size_t{frames} * channels);
    for (T& x : samples) x = distribution(qntest::Random());
    std::vector<T> expected = samples;
    model.Process(expected, channels);
    (dither.*process)(samples.data(), frames, channels);
    ASSERT_EQ(std::memcmp(samples.data(), expected.data(), samples.size() * sizeof(T)), 0)
        << dither.type << ' ' << dither.ditherType << ' ' << dither.noiseShape << ' ' << channels;
    for (size_t c = 0; c < 6; ++c)
      ASSERT_TRUE(dither.error1[c] == model.error[c][0] && dither.error2[c] == model.error[c][1]);
  }
}

TEST(Dither, AgreesWithTheRule) {
  const std::pair<int, double> kScales[] = {{16, 128},      {49, 128},      {17, 32768},    {64, 32768},
                                            {18, 0x800000}, {32, 0x800000}, {48, 0x800000}, {65, 0x800000},
                                            {19, -0x1p31},  {66, -0x1p31},  {128, 32768},   {0, 32768}};
  for (const auto& [type, scale] : kScales) {
    for (int kind = 0; kind < 6 * 4 * 4; ++kind) {
      const DWORD channels = std::array{1u, 2u, 3u, 8u}[kind % 4];
      CQnDither dither(static_cast<QNSAMPLETYPE>(type), static_cast<eQNDITHER_DITHERTYPE>(kind / 16),
                       static_cast<eQNDITHER_NOISESHAPE>(kind / 4 % 4));
      ASSERT_TRUE(dither.type == static_cast<uint32_t>(type) && dither.scale == scale);
      // Also what wraps around.
      const double level = channels == 3 ? 0x1.8p31 / std::fabs(scale) : 1.1;
      AgreesWithTheModel(dither, level, channels, &CQnDither::ProcessFloat);
      dither.Reset(static_cast<QNSAMPLETYPE>(type), static_cast<eQNDITHER_DITHERTYPE>(kind / 16),
                   static_cast<eQNDITHER_NOISESHAPE>(kind / 4 % 4));
      AgreesWithTheModel(dither, level, channels, &CQnDither::ProcessDouble);
    }
  }
  for (const auto& [bits, scale] : {std::pair{8u, 128.0}, {24u, 0x1p23}, {32u, -0x1p31}})
    EXPECT_EQ(CQnDither(bits, eQNDITHER_NONE, eQNDITHER_SHAPE_FIRST).scale, scale);
}

TEST(Dither, SeedsTheGeneratorFromTheLibrary) {
  QnRand* const state = QnRand_Create(77);
  std::srand(77);
  for (uint32_t k = 250; k-- > 0;) {
    const uint32_t a = static_cast<uint32_t>(std::rand()), b = static_cast<uint32_t>(std::rand());
    uint32_t word = a * 4 + b * 131072 + static_cast<uint32_t>(std::rand());
    if (k % 7 == 3 && k < 224) word = (word & (0xFFFFFFFFu >> k / 7)) | 1u << (31 - k / 7);
    ASSERT_TRUE(state->x[k] == word && state->next[k] == (k + 1) % 250) << k;
  }
  QnRand_Free(state);
  // Assignment shares the generator.
  CQnDither one(QNST_PCM16, eQNDITHER_TRIANGULAR, eQNDITHER_SHAPE_NONE);
  CQnDither two(8u, eQNDITHER_NONE, eQNDITHER_SHAPE_FIRST);
  QnRand* const own = two.random;
  two = one;
  EXPECT_TRUE(two.random == one.random && two.noise == one.noise && two.scale == 32768);
  two.random = own;
}

TEST(Dither, NoiseHasTheDistributionOfItsType) {
  constexpr size_t kCount = 1 << 18;
  const double variances[] = {1, 1 / 12.0, 1 / 3.0, 1 / 6.0, (1 + .99 * .99) / 12, 1 / 4.0};
  for (int type = 1; type < 6; ++type) {
    CQnDither dither(16u, static_cast<eQNDITHER_DITHERTYPE>(type), eQNDITHER_SHAPE_FIRST);
    QnRand_Seed(dither.random, 5);
    std::vector<double> noise(kCount);
    dither.noise(dither.random, &dither.previous, dither.amplitude, noise.data(), kCount);
    double sum = 0, squares = 0, chi = 0;
    std::array<double, 64> bins{};
    for (const double x : noise) {
      sum += x;
      squares += x * x;
      ++bins[static_cast<size_t>(std::clamp(x / dither.amplitude * 32 + 32, 0.0, 63.0))];
    }
    for (const double bin : bins) chi += (bin - kCount / 64.0) * (bin - kCount / 64.0) / (kCount / 64.0);
    EXPECT_NEAR(sum / kCount, 0, 0.004);
    EXPECT_NEAR(squares / kCount, variances[type], 0.01 * variances[type]);
    EXPECT_TRUE(type > 2 || chi < 63 + 4 * std::sqrt(2 * 63.0)) << chi;
  }
}

// The error is white noise filtered by 1 - z^-1 + c z^-2, so the ratio of the powers of low and of high
// frequencies, of the sums of neighbours and of their differences, is known.
TEST(Dither, ShapesMoveTheErrorUpwards) {
  const double ratios[] = {1, 2 / 6.0, 1.625 / 8.625, 1.5 / 7.5};
  for (int shape = 0; shape < 4; ++shape) {
    CQnDither dither(8u, eQNDITHER_TRIANGULAR, static_cast<eQNDITHER_NOISESHAPE>(shape));
    QnRand_Seed(dither.random, 9);
    std::vector<double> samples(1 << 18), before;
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = 0.4 * std::sin(0.01 * static_cast<double>(i));
    before = samples;
    dither.ProcessDouble(samples.data(), static_cast<DWORD>(samples.size()), 1);
    double sum = 0, last = 0, low = 0, high = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
      const double error = (samples[i] - before[i]) * 128;
      sum += error;
      ASSERT_TRUE(shape != 1 || std::fabs(sum) < 2) << i;
      low += (error + last) * (error + last);
      high += (error - last) * (error - last);
      last = error;
    }
    EXPECT_NEAR(low / high, ratios[shape], 0.02 * ratios[shape]);
  }
}

TEST(Dither, FlushesErrorsThatHaveDiedOut) {
  CQnDither dither(QNST_PCM16, eQNDITHER_NONE, eQNDITHER_SHAPE_FIRST);
  for (const auto& [offset, left] : {std::pair{0x1p-33, 0.0}, {0x1p-32, -0x1p-32}}) {
    double x = (5 + offset) / 32768;
    dither.ProcessDouble(&x, 1, 1);
    EXPECT_EQ(dither.error1[0], left);
  }
}

}  // namespace
