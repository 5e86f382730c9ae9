#include "qn/dsp/qniir.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <numbers>
#include <utility>
#include <vector>

#include "qn/kernel/qncpu.h"
#include "tests/support/support.h"

namespace {

using Complex = std::complex<double>;
constexpr double kPi = std::numbers::pi;
const Complex kJ(0, 1);

template <class Stage>
Complex StageResponse(const Stage& s, double f) {
  const Complex delay = std::polar(1.0, -2 * kPi * f);
  return (s.b0 + delay * (s.b1 + delay * s.b2)) / (1.0 - delay * (s.a1 + delay * s.a2));
}

Complex Response(const CQnIIR& filter, double f) {
  Complex h = filter.getGain();
  for (DWORD i = 0; i < filter.getNumBiquads(); ++i) h *= StageResponse(*filter.getBiquad(i), f);
  return h + filter.getDry();
}

// The magnitude of an analogue low-pass of the frequency `w`, its corner being 1.
double Prototype(QNIIR_DESIGN design, int order, double w) {
  if (design == QNIIR_BUTTERWORTH) return 1 / std::sqrt(1 + std::pow(w, 2 * order));
  if (design == QNIIR_CHEBYSHEV) {
    const Complex t = std::cosh(static_cast<double>(order) * std::acosh(Complex(std::abs(w))));
    return 1 / std::sqrt(1 + (std::pow(10, 0.05) - 1) * std::norm(t));
  }
  // The reverse Bessel polynomial by its recursion, scaled so that the product of its roots is 1 in size.
  double zero = 1;
  for (int k = 1; k <= order; ++k) zero *= 2 * k - 1;
  const Complex s = kJ * w * std::pow(zero, 1.0 / order);
  Complex before = 1, sum = 1.0 + s;
  for (int k = 2; k <= order; ++k) before = std::exchange(sum, (2 * k - 1.0) * sum + s * s * before);
  return zero / std::abs(sum);
}

TEST(Iir, EveryDesignHasTheResponseOfItsPrototype) {
  const double octaves = 1.5, ratio = std::exp2(octaves / 2);
  for (int row = 0; row < 3 * 4 * 15 * 4; ++row) {
    const auto design = static_cast<QNIIR_DESIGN>(row % 3);
    const auto type = static_cast<QNIIR_TYPE>(row / 3 % 4);
    const int order = row / 12 % 15 + 1;
    const double frequency = std::vector{0.05, 0.1, 0.22, type == QNIIR_BANDSTOP ? 0.28 : 0.4}[row / 180];
    SCOPED_TRACE(testing::Message() << design << " " << type << " " << order << " " << frequency);
    CQnIIR filter;
    const HRESULT status = filter.Design(type, design, DWORD(order), frequency, octaves, 0, 2, 0);
    ASSERT_EQ(status, design == QNIIR_BESSEL && order > 10 ? E_INVALIDARG : S_OK);
    if (status != S_OK) continue;
    ASSERT_EQ(filter.getNumBiquads(), DWORD(type >= QNIIR_BANDSTOP ? order : (order + 1) / 2));
    const double lower = frequency / ratio, upper = std::min(frequency * ratio, 0.5);
    for (const tQNIIR_BIQUAD& s : filter.biquads)
      EXPECT_TRUE(upper == 0.5 || (std::abs(s.a2) < 1 && std::abs(s.a1) < 1 - s.a2));
    const double corner = std::tan(kPi * frequency), w1 = std::tan(kPi * lower), w2 = std::tan(kPi * upper);
    const auto expected = [&](double f) {
      const double w = std::tan(kPi * f), inBand = (w - w1 * w2 / w) / (w2 - w1);
      const double moved[] = {w / corner, corner / w, 1 / inBand, inBand};
      return Prototype(design, order, moved[type]);
    };
    const double place = type == QNIIR_BANDPASS ? expected((lower + upper) / 2) : Prototype(design, order, 0);
    const double allowed = design == QNIIR_BESSEL ? 3e-4 : 1e-7;  // the poles of the table have 7 digits
    for (const double f : {0.001, lower, frequency, 0.17, upper * 0.99, 0.495})
      EXPECT_NEAR(std::abs(Response(filter, f)), expected(f) / place, allowed) << f;
  }
}

TEST(Iir, ResonatorsHavePeakOrZeroAtTheirFrequency) {
  for (const double frequency : {0.01, 0.1, 0.25, 0.3, 0.45})
    for (const double q : {2.0, 10.0, 100.0}) {
      SCOPED_TRACE(testing::Message() << frequency << " " << q);
      const double w = 2 * kPi * frequency, r = std::exp(-kPi * frequency / q);
      const double angle = std::acos(std::cos(w) * (1 + r * r) / (2 * r));  // NaN where there is none
      CQnIIR filter;
      const HRESULT status = filter.Design(QNIIR_BANDPASS, QNIIR_RESONATOR, 0, frequency, q, 0, 1, 0);
      ASSERT_EQ(status, std::abs(angle - w) < 1 / q ? S_OK : E_FAIL);
      EXPECT_TRUE(status != S_OK || std::abs(Response(filter, frequency) - 1.0) < 1e-9);
      EXPECT_TRUE(status != S_OK || std::abs(filter.biquads[0].a1 - 2 * r * std::cos(angle)) < 1e-9);
      ASSERT_EQ(filter.Design(QNIIR_BANDSTOP, QNIIR_RESONATOR, 99, frequency, q, 0, 1, 0), S_OK);
      EXPECT_LT(std::abs(Response(filter, frequency)), 1e-9);
    }
}

TEST(Iir, DesignTestsItsArguments) {
  const struct {
    int type, design, order;
    double frequency;
    HRESULT status;
  } kRows[] = {
      {0, QNIIR_BUTTERWORTH, 3, 0.5, S_OK},         {0, QNIIR_BUTTERWORTH, 3, 0.500001, E_INVALIDARG},
      {0, QNIIR_CHEBYSHEV, 0, 0.1, E_INVALIDARG},   {3, QNIIR_BUTTERWORTH, 16, 0.1, E_INVALIDARG},
      {4, QNIIR_BUTTERWORTH, 3, 0.1, E_INVALIDARG}, {3, 4, 3, 0.1, E_INVALIDARG},
      {1, QNIIR_RESONATOR, 3, 0.1, E_INVALIDARG},   {3, QNIIR_RESONATOR, 3, 0, E_FAIL}};
  for (const auto& [type, design, order, frequency, status] : kRows) {
    CQnIIR filter;
    ASSERT_EQ(filter.Design(QNIIR_LOWPASS, QNIIR_BUTTERWORTH, 3, 0.1, 1, 0, 2, 0), S_OK);
    EXPECT_EQ(filter.Design(QNIIR_TYPE(type), QNIIR_DESIGN(design), DWORD(order), frequency, 1, 0, 1, 0),
              status);
    // A bad frequency leaves the filter, another failure an empty one that writes nothing.
    EXPECT_EQ(filter.getChannels(), frequency > 0.5 ? 2u : status == S_OK ? 1u : 0u);
    EXPECT_EQ(filter.getNumBiquads(), filter.getChannels() == 0 ? 0u : 2u);
    float sample[2] = {7, 7};
    filter.ProcessFloat(sample, sample, 1, 0);
    EXPECT_TRUE(sample[0] == 7 || filter.getChannels() != 0);
  }
}

TEST(Iir, AGainMixesTheBandWithTheDrySignal) {
  CQnIIR band, bell;
  ASSERT_EQ(band.Design(QNIIR_BANDPASS, QNIIR_BUTTERWORTH, 2, 0.1, 1, 0, 2, 0), S_OK);
  ASSERT_EQ(bell.Design(QNIIR_BANDSTOP, QNIIR_BUTTERWORTH, 2, 0.1, 1, 6, 2, QNIIR_NO_SIMD), S_OK);
  EXPECT_EQ(band.useSIMD, QnGetCPUSupport(0) & QNCPU_SSE2);
  EXPECT_TRUE(band.getLastChannelMask() == 3 && band.getDry() == 0 && bell.getDry() == 1 && !bell.useSIMD);
  EXPECT_DOUBLE_EQ(bell.getGain(), (std::pow(10, -6 / 20.0) - 1) * band.getGain());
  EXPECT_EQ(bell.getBiquad(1)->a1, band.getBiquad(1)->a1);
  // A resonator stays what it is.
  ASSERT_EQ(bell.Design(QNIIR_BANDSTOP, QNIIR_RESONATOR, 1, 0.1, 5, 6, 2, 0), S_OK);
  EXPECT_LT(std::abs(Response(bell, 0.1) - 1.0), 1e-9);
  EXPECT_TRUE(band.getPolynomial(1)->count == 0 && !band.getPolynomial(2) && !band.getBiquad(2));
}

// A cascade written out, sample by sample.
template <class T>
void ProcessPlainly(CQnIIR& filter, T* out, const T* in, DWORD frames, DWORD mask) {
  if (mask == 0) mask = 3;
  for (DWORD c = 0; c < std::min(filter.channels, 2u); ++c) {
    for (tQNIIR_BIQUAD& stage : filter.biquads)
      if (mask & ~filter.lastChannelMask & (1 << c)) stage.d1[c] = stage.d2[c] = 0;
    for (DWORD i = c; (mask >> c & 1) && i < frames * filter.channels; i += filter.channels) {
      double v = in[i] * filter.gain;
      for (DWORD s = 0; s < filter.numBiquads; ++s) {
        auto& [b0, b1, b2, a1, a2, d1, d2] = filter.biquads[s];
        const double w = v + a1 * d1[c] + a2 * d2[c];
        v = b0 * w + b1 * d1[c] + b2 * d2[c];
        d2[c] = std::abs(d1[c]) < 1e-34 ? 0 : d1[c];
        d1[c] = std::abs(w) < 1e-34 ? 0 : w;
      }
      out[i] = static_cast<T>(in[i] * filter.dry + v);
    }
  }
  filter.lastChannelMask = mask;
}

// Noise, then silence in which the state decays, broken by tiny samples, or a constant, at which that of the
// later stages alone decays; in blocks of any size, with any masks.
template <class T>
void CheckProcessing(void (CQnIIR::*process)(T*, const T*, DWORD, DWORD), DWORD order, DWORD channels,
                     DWORD flags) {
  SCOPED_TRACE(testing::Message() << sizeof(T) << " " << order << " " << channels << " " << flags);
  constexpr DWORD kFrames = 4000;
  auto& random = qntest::Random();
  std::vector<T> in(kFrames * channels);
  for (size_t i = 0; i < in.size(); ++i) {
    const bool noise = i < in.size() / 2, tiny = random() % 50 == 0;
    if (noise || tiny) in[i] = static_cast<T>(std::ldexp(static_cast<int64_t>(random()), noise ? -63 : -175));
    if (!noise && order % 3 == 0) in[i] = 0.25;
  }
  const bool inPlace = order % 2 == 0;
  std::vector<T> out = inPlace ? in : std::vector<T>(in.size(), 7), expected = out;
  CQnIIR filter;
  ASSERT_EQ(filter.Design(QNIIR_BANDPASS, QNIIR_BUTTERWORTH, order, 0.1, 2, 3, channels, flags), S_OK);
  filter.biquads[order - 1].d1[0] = 1e-35;
  CQnIIR plain(&filter);
  for (DWORD done = 0, frames = 0; done < kFrames; done += frames) {
    frames = std::min(kFrames - done, static_cast<DWORD>(random() % (random() % 4 ? 80 : 1500)));
    const DWORD mask = random() % 3 ? 0 : random() % 8;
    const size_t at = done * channels;
    ProcessPlainly(plain, &expected[at], &in[at], frames, mask);
    (filter.*process)(&out[at], inPlace ? &out[at] : &in[at], frames, mask);
    ASSERT_EQ(filter.lastChannelMask, plain.lastChannelMask);
    ASSERT_EQ(std::memcmp(filter.biquads, plain.biquads, sizeof(plain.biquads)), 0) << done;
    // A copy goes on with the state that it is given.
    CQnIIR next(nullptr);
    next = filter;
    next.ResetAll();
    ASSERT_EQ(next.biquads[0].d1[0], 0);
    next.SetDelayElementsFrom(&filter);
    filter = next;
  }
  EXPECT_EQ(std::memcmp(out.data(), expected.data(), out.size() * sizeof(T)), 0);
}

TEST(Iir, EveryRoadGivesTheBitsOfThePlainLoop) {
  for (DWORD row = 0; row < 15 * 3 * 2; ++row) {
    CheckProcessing(&CQnIIR::ProcessFloat, row % 15 + 1, row / 15 % 3 + 1, row / 45);
    CheckProcessing(&CQnIIR::ProcessDouble, row % 15 + 1, row / 15 % 3 + 1, row / 45);
  }
}

// The analogue filter that a biquad is made from, at `s` of the corner frequency.
Complex AnalogueBiquad(const tQNBIQUAD_PARAMETERS& p, Complex s) {
  const double w = 2 * kPi * p.frequency / p.sampleRate;
  const double A = std::pow(10, p.gain / 40);
  double k = 2 * std::sinh(std::log(2) / 2 * p.bandwidth * w / std::sin(w));  // 1 / Q
  if (p.type < 2) k = std::sqrt(2);
  if (p.type > 4) k = std::sqrt((A + 1 / A) * (1 / p.slope - 1) + 2);
  const Complex band = s * s + k * s + 1.0;
  const Complex low = s * s + std::sqrt(A) * k * s + A, high = A * s * s + std::sqrt(A) * k * s + 1.0;
  const Complex top[] = {1, s * s, k * s, s * s + 1.0, s * s + k * A * s + 1.0, A * low, A * high};
  const Complex bottom = p.type < 4 ? band : p.type == 4 ? s * s + k / A * s + 1.0 : p.type == 5 ? high : low;
  return top[p.type] / bottom;
}

TEST(Biquad, EveryTypeHasTheResponseOfItsAnalogueFilter) {
  tQNBIQUAD k{};
  for (uint32_t type = 0; type < 7; ++type) {
    // Parameters given, and those within the limits.
    const tQNBIQUAD_PARAMETERS kRows[][2] = {
        {{44100, 9000, -20, 3, 0.7, type}, {44100, 9000, -20, 3, 0.7, type}},
        {{1000, -5, -200, 0, 0, type}, {1000, 0.1, -100, 0.1f, 0.1f, type}},
        {{1000, 300, 90, 9, 5, type}, {1000, 300, 25, 5, 1, type}}};
    for (const auto& [given, limited] : kRows) {
      ASSERT_EQ(QnMakeBiquad(&given, &k.b0), S_OK);
      for (const double f : {0.001, 0.02, 0.1, 0.3, 0.49}) {
        const Complex s = kJ * std::tan(kPi * f) / std::tan(kPi * limited.frequency / limited.sampleRate);
        EXPECT_LT(std::abs(StageResponse(k, f) - AnalogueBiquad(limited, s)), 1e-6) << type << " " << f;
      }
    }
  }
  const tQNBIQUAD_PARAMETERS unknown{48000, 1000, 12, 1, 1, 7}, above{48000, 25000, 12, 1, 1, 2};
  EXPECT_EQ(QnMakeBiquad(&above, &k.b0), S_OK);
  EXPECT_NEAR(k.a1, 0, 1e-9);
  EXPECT_EQ(QnMakeBiquad(&unknown, &k.b0), E_NOTIMPL);
  EXPECT_EQ((std::vector{k.b0, k.b1, k.b2, k.a1, k.a2}), (std::vector<double>{1, 0, 0, 0, 0}));
}

TEST(Biquad, RunsBothWaysOverStridesAndFlushesItsState) {
  constexpr DWORD kFrames = 801, kStride = 2;
  const tQNBIQUAD_PARAMETERS p{48000, 3000, 0, 1, 1, 2};
  tQNBIQUAD fresh{};
  ASSERT_EQ(QnMakeBiquad(&p, &fresh.b0), S_OK);
  std::vector<float> data(kFrames * kStride, 0);
  data[kFrames / 2 * kStride] = 1;
  for (const LONG forward : {0, 1}) {
    tQNBIQUAD k = fresh;
    QnBiquadFloatEx(data.data(), data.data(), kFrames, kStride, &k, forward);
  }
  for (DWORD i = 0; i < kFrames; ++i)
    EXPECT_NEAR(data[i * kStride], data[(kFrames - 1 - i) * kStride] + data[i * kStride + 1], 1e-7) << i;
  for (const double state : {0x1p-32, 0x1.fffp-33, -0x1.fffp-33}) {
    tQNBIQUAD one = fresh, run = fresh;
    one.d1 = run.d1 = 3;
    one.d2 = run.d2 = state;
    double x = 0.5, y;
    QnBiquadDoubleEx(&y, &x, 1, 1, &run, 1);
    QnBiquadSampleDouble(&x, &one);
    EXPECT_TRUE(x == y && one.d2 == 3 && one.d1 == run.d1);
    EXPECT_EQ(one.d1, 0.5 + fresh.a1 * 3 + fresh.a2 * (state == 0x1p-32 ? state : 0));
  }
}

TEST(EqualiserSection, EachHasItsFrequencyLevelAndCorrection) {
  enum { kLowCut, kLowBoost, kHiCut, kHiBoost, kBand };
  constexpr double kStep = 0.022675736961451247;
  const auto level = [](double db) { return std::pow(10, db / 40); };
  const struct {
    int section;
    double frequency, gain, q, used, d, wet, dryGain;
  } kRows[] = {
      {kLowCut, 0.011, -20, 0.8, 0.011 / 2.2, 0, level(-20), 1 - level(-20)},
      {kLowCut, 0.011337868480725623, -60, 0.8, 0.011337868480725623 / 3.3, 0, 0, 1},
      {kLowBoost, 0.15, 12, 0.8, 0.1, 0, 1, level(12) - 1},
      {kHiCut, 0.1, -20, 0.8, 0.04, -0.1 / kStep, 1, level(-20) - 1},
      {kHiCut, 0.225, -61, 0.8, 0.126, 1 - 0.225 / kStep, 1, -1},
      {kHiBoost, 14.25 * kStep, 8, 0.8, 14.25 * kStep, -12.25, 1, level(8) - 1},
      {kHiBoost, 0.6, 8, 0.8, 0.49, -13, 1, level(8) - 1},
      // In the nodes of the table, outside it, and halfway between two of its rows.
      {kBand, 0.1473922902494331, 6, 1, 0.11337868480725624, 0, 1, 0.85 * (level(12) - 1)},
      {kBand, 0.001179138321995465, 6, 1.5, 0.0011337868480725624, 0, 1, 0.65 / 1.5 * (level(12) - 1)},
      {kBand, 0.34, 6, 0.5, 0.17, 0, 1, 1.3 * (level(12) - 1)},
      {kBand, 0.56, 6, 50, 0.49, 0, 1, 0.85 / 50 * (level(12) - 1)},
      {kBand, 0.00001, 6, 2, 0.0003, 0, 1, 0.65 / 2 * (level(12) - 1)},
      {kBand, 0.2, 6, 1.25, 0.15610868654741458, 0, 1, 0.85 / 1.25 * (level(12) - 1)}};
  for (const auto& [which, frequency, gain, q, used, d, wet, dryGain] : kRows) {
    SCOPED_TRACE(testing::Message() << which << " " << frequency);
    const double parameters[] = {frequency, gain, q};
    tQNSIG_SECTION s{1, 2, 0, 0, 0, 0, 0, 0};
    if (which == kLowCut) QnSig_FindLowShelfCutCoeffs(&s, parameters, -60, 0);
    if (which == kLowBoost) QnSig_FindLowShelfBoostCoeffs(&s, parameters, 0);
    if (which == kHiCut) QnSig_FindHiShelfCutCoeffs(&s, parameters, -60, 1);
    if (which == kHiBoost) QnSig_FindHiShelfBoostCoeffs(&s, parameters, 1);
    if (which == kBand) QnSig_FindBandPassCoeffs(&s, parameters, 1);
    const double e = std::exp(-kPi * used / q), a = 2 * e * std::cos(2 * kPi * used);
    const double y = which < kHiCut ? 1 : 0, full = 1 - a + e * e;
    const double c = which == kHiBoost ? 1 : which == kBand ? std::sqrt(full) * std::cos(kPi * used) : full;
    const double values[] = {s.a, s.b, s.c, 20 * std::log10(s.d), s.wet, s.dryGain, s.y1, s.y2};
    const double expected[] = {a, e * e, c, d, wet, dryGain, y, 2 * y};
    for (int i = 0; i < 8; ++i) EXPECT_NEAR(values[i], expected[i], 1e-9) << i;
  }
}

}  // namespace
