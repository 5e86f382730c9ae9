#include "qn/dsp/qnfir.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numbers>
#include <tuple>
#include <vector>

#include "qn/platform/memory.h"
#include "tests/support/support.h"

namespace {

constexpr long double kPi = std::numbers::pi_v<long double>;

std::vector<float> Noise(size_t samples) {
  std::uniform_real_distribution<float> distribution(-1, 1);
  std::vector<float> noise(samples);
  for (float& x : noise) x = distribution(qntest::Random());
  return noise;
}

HRESULT DesignBy(CQnFIR& filter, int type, int window, DWORD taps, double f1, double f2, DWORD channels) {
  return filter.Design(static_cast<QNFIR_TYPE>(type), static_cast<QNFIR_WINDOW>(window), taps, f1, f2,
                       channels, 0);
}

std::vector<float> Filtered(CQnFIR& filter, const std::vector<float>& in, DWORD mask) {
  std::vector<float> out(in.size(), 9.0f);
  filter.ProcessFloat(out.data(), in.data(), static_cast<DWORD>(in.size() / filter.channels), mask);
  return out;
}

TEST(Fir, RefusesWhatIsOutsideTheLimitsAndStaysAsItWas) {
  const std::tuple<int, int, DWORD, double, double, DWORD> kBad[] = {
      {4, 0, 127, .1, .2, 2},  {-1, 0, 127, .1, .2, 2},     {0, 6, 127, .1, .2, 2},   {0, -1, 127, .1, .2, 2},
      {0, 0, 126, .1, .2, 2},  {0, 0, 32768, .1, .2, 2},    {0, 0, 127, 9e-7, .2, 2}, {0, 0, 127, .1, 0, 2},
      {0, 0, 127, .51, .2, 2}, {0, 0, 127, .1, .500001, 2}, {0, 0, 127, NAN, .2, 2},  {0, 0, 127, .1, NAN, 2},
      {0, 0, 127, .1, .2, 0},  {0, 0, 127, .1, .2, 33}};
  CQnFIR filter;
  for (const auto& [taps, size] : {std::pair{127u, 256u}, {32767u, 65536u}}) {
    ASSERT_EQ(DesignBy(filter, 3, 5, taps, 1e-6, .5, 32), 0);
    EXPECT_TRUE(filter.fftSize == size && GlobalSize(GlobalHandle(filter.overlap[31])) == taps * 8);
  }
  unsigned char before[sizeof(CQnFIR)];
  std::memcpy(before, static_cast<void*>(&filter), sizeof(before));
  for (const auto& [type, window, taps, f1, f2, channels] : kBad) {
    EXPECT_EQ(DesignBy(filter, type, window, taps, f1, f2, channels), E_INVALIDARG);
    EXPECT_EQ(std::memcmp(before, static_cast<void*>(&filter), sizeof(before)), 0);
  }
}

long double WindowOf(int window, long double i, long double n) {
  const long double x = 2 * kPi * i / n, y = 2 * kPi * i / (n - 1);
  const long double values[] = {
      1,
      1 - std::fabs(2 * i / (n - 1) - 1),
      .54L - .46L * std::cos(y),
      .5L - .5L * std::cos(y),
      .42L - .5L * std::cos(x) + .08L * std::cos(2 * x),
      .35875L - .48829L * std::cos(x) + .14128L * std::cos(2 * x) - .01168L * std::cos(3 * x)};
  return values[window];
}

// The ideal low-pass; the other types are sums of it and the signal.
long double Sinc(long double f, long double i) {
  return i == 0 ? 2 * f : std::sin(2 * kPi * f * i) / (kPi * i);
}

TEST(Fir, DesignsTheWindowedSincOfEachType) {
  for (const DWORD taps : {127u, 128u, 1000u, 1023u}) {
    for (int kind = 0; kind < 24; ++kind) {
      CQnFIR filter;
      DesignBy(filter, kind / 6, kind % 6, taps, .07, .31, 1);
      for (DWORD k = 0; k < taps; ++k) {
        const long double i = k - static_cast<long double>(taps / 2), one = i == 0;
        const long double low = Sinc(.07, i), band = Sinc(.31, i) - low;
        const long double ideal[] = {low, one - low, band, one - band};
        ASSERT_NEAR(filter.h[k], ideal[kind / 6] * WindowOf(kind % 6, k, taps), 1e-15) << kind << ' ' << k;
      }
    }
  }
}

// Cut into calls of any length, in place and not, by each road, with each stride.
TEST(Fir, ConvolvesAsTheSumDoes) {
  for (const auto& [taps, flags, direct] :
       {std::tuple{127u, 0u, false}, {127u, 0u, true}, {131u, QNFIR_NO_FAST_FFT, false}, {300u, 0u, false}}) {
    for (const DWORD channels : {1u, 2u, 3u}) {
      CQnFIR narrow, wide;
      narrow.Design(QNFIR_HIGHPASS, QNFIR_RECTANGULAR, taps, .3, .3, channels, flags);
      wide = narrow;
      if (direct) narrow.fftSize = wide.fftSize = 128;
      const std::vector<float> in = Noise(2000 * channels);
      std::vector<float> out(in.size());
      std::vector<double> outWide(in.begin(), in.end());
      for (DWORD done = 0, part; done < 2000; done += part) {
        part = std::min(2000 - done, static_cast<DWORD>(qntest::Random()() % (2 * taps + 30)));
        const size_t at = done * channels;
        narrow.ProcessFloat(out.data() + at, in.data() + at, part, 7);
        wide.ProcessDouble(outWide.data() + at, outWide.data() + at, part, 7);
      }
      for (size_t i = 0; i < out.size(); ++i) {
        long double sum = 0;
        for (size_t k = 0; k < taps && k <= i / channels; ++k) sum += narrow.h[k] * in[i - k * channels];
        ASSERT_NEAR(out[i], sum, 2e-7) << taps << ' ' << channels << ' ' << i;
        ASSERT_NEAR(outWide[i], sum, 2e-14) << taps << ' ' << channels << ' ' << i;
      }
    }
  }
}

TEST(Fir, KeepsStateByChannel) {
  CQnFIR filter, fewer, longer, empty;
  DesignBy(filter, 0, 2, 127, .1, .1, 3);
  DesignBy(fewer, 0, 2, 127, .1, .1, 2);
  DesignBy(longer, 0, 2, 129, .1, .1, 3);
  const std::vector<float> in = Noise(3 * 200), silence(3 * 200);
  const std::vector<float> first = Filtered(filter, in, 0), second = Filtered(filter, in, 2),
                           third = Filtered(filter, in, 3);
  for (size_t i = 0; i < in.size(); i += 3) {
    EXPECT_TRUE(first[i] != 9 && first[i + 1] != 9 && first[i + 2] == 9);
    EXPECT_TRUE(second[i] == 9 && second[i + 1] != 9 && second[i + 2] == 9);
    EXPECT_EQ(third[i], first[i]);  // off in between, so it starts again
  }
  EXPECT_TRUE(second[1] != first[1] && third[1] == second[1]);
  // Copies start anew; state is taken over by filters of as many taps.
  CQnFIR copies[] = {CQnFIR(&filter), CQnFIR(filter), CQnFIR(static_cast<CQnFIR*>(nullptr))};
  copies[2] = filter;
  for (CQnFIR& copy : copies) EXPECT_EQ(Filtered(copy, in, 0), first);
  for (CQnFIR* other : {&fewer, &longer, &empty}) other->SetDelayElementsFrom(&filter);
  const std::vector<float> tail = Filtered(filter, silence, 0), taken = Filtered(fewer, silence, 0);
  for (size_t i = 0; i < 200; ++i) EXPECT_TRUE(taken[2 * i] == tail[3 * i] && taken[0] != 0);
  EXPECT_EQ(Filtered(longer, silence, 7), silence);
  empty.ProcessFloat(nullptr, in.data(), 1, 0);
}

}  // namespace
