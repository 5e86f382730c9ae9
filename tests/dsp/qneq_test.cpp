#include "qn/dsp/qneq.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <limits>
#include <memory>
#include <numbers>
#include <utility>
#include <vector>

#include "qn/dsp/qneq_vector.h"
#include "tests/support/support.h"

namespace {

constexpr double kPi = std::numbers::pi;
constexpr DWORD kRate = 48000;
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

DWORD Process(HQNEQ eq, float* out, const float* in, DWORD frames) {
  return QnEq_ProcessFloat(eq, out, in, frames);
}
DWORD Process(HQNEQ eq, double* out, const double* in, DWORD frames) {
  return QnEq_ProcessDouble(eq, out, in, frames);
}

using Equaliser = std::unique_ptr<tQNEQ, decltype(&QnEq_Close)>;
using Bands = std::vector<tQNEQ_BAND>;

Equaliser Make(const Bands& bands, WORD channels, bool fade, WORD bits = 32) {
  const WAVEFORMATEX format{WAVE_FORMAT_IEEE_FLOAT, channels, kRate, 0, 0, bits, 0};
  HQNEQ made = nullptr;
  EXPECT_EQ(QnEq_Init(&made, &format, bands.data(), DWORD(bands.size()), fade), S_OK);
  return {made, QnEq_Close};
}

template <class T>
std::vector<T> Noise(size_t samples) {
  std::normal_distribution<T> normal(0, 1);
  std::vector<T> noise(samples);
  for (T& x : noise) x = normal(qntest::Random());
  return noise;
}

// A second of silence after a one.
std::vector<double> Impulse(HQNEQ eq) {
  std::vector<double> audio(kRate);
  audio[0] = 1;
  Process(eq, audio.data(), audio.data(), kRate);
  return audio;
}

std::complex<double> Response(const std::vector<double>& impulse, double f) {
  std::complex<double> sum = 0;
  for (size_t i = 0; i < impulse.size(); ++i) sum += impulse[i] * std::polar(1.0, -2 * kPi * f * double(i));
  return sum;
}

TEST(Equaliser, BandsHaveTheirGainWhereTheyActAndNoneElsewhere) {
  for (const double gainDb : {-100.0, -120.0, -12.0, 6.0, 40.0})
    for (const double frequency : {300.0, 5000.0, 23000.0})
      for (int type = QNEQ_LOWSHELF; type <= QNEQ_HIGHSHELF; ++type) {
        SCOPED_TRACE(testing::Message() << gainDb << " " << frequency << " " << type);
        const auto impulse = Impulse(Make({{gainDb, 1, frequency, type, 1}}, 1, false, 64).get());
        const double gain = gainDb > -100 ? std::pow(10, std::min(gainDb, 25.0) / 20) : 0;
        const double r = std::sqrt(2.0), f1 = frequency / kRate / r, f2 = std::min(f1 * r * r, 0.49);
        const double places[] = {0, (f1 + f2) / 2, 0.5};
        EXPECT_NEAR(std::abs(Response(impulse, places[type]) - 1.0), std::abs(gain - 1), 1e-6);
        // The gain of a peak is real at the warped centre, which is near that place where the band is whole.
        const double centre = std::atan(std::sqrt(std::tan(kPi * f1) * std::tan(kPi * f2))) / kPi;
        const auto middle = Response(impulse, type == QNEQ_PEAK ? centre : places[type]);
        EXPECT_TRUE(f2 == 0.49 || std::abs(middle - gain) < 0.05 * std::max(1.0, gain)) << middle;
        EXPECT_TRUE(type == QNEQ_LOWSHELF || std::abs(Response(impulse, 0) - 1.0) < 1e-6);
        EXPECT_TRUE(type == QNEQ_HIGHSHELF || std::abs(Response(impulse, 0.5) - 1.0) < 1e-6);
      }
}

double Plainly(qn::EqFilter& f, LONG type, double x) {
  const double t = type == QNEQ_PEAK ? x * f.gain + f.s1 * f.a1 + f.s2 * f.a2 : x * f.gain + f.s1 * f.a1;
  const double y = type == QNEQ_LOWSHELF ? x + t + f.s1 : x + t - (type == QNEQ_PEAK ? f.s2 : f.s1);
  if (type == QNEQ_PEAK) f.s2 = f.s1;
  f.s1 = t;
  return y;
}

// Block after block of any length, with the bits of band after band and sample after sample.
template <class T>
void ExpectPlain() {
  for (const size_t channels : {1, 2, 3})
    for (size_t count = 1; count <= 20; ++count) {
      SCOPED_TRACE(testing::Message() << channels << " " << count);
      const std::vector<double> random = Noise<double>(2 * count);
      Bands bands(2 * count);
      std::vector<DWORD> active;
      std::vector<qn::EqFilter> filters(bands.size() * channels);
      for (size_t i = 0; i < filters.size(); ++i) {
        const double level = random[i % random.size()], pole = std::exp(-level * level);
        bands[i % bands.size()].type = LONG(i % bands.size() % 5 % 3);
        filters[i] = {1.2 * pole, -0.5 * pole, level, -level, 0.1 * level};
      }
      for (size_t i = 0; i < count; ++i) active.push_back(DWORD(2 * i + i % 2));
      std::vector<T> in = Noise<T>(4000 * channels);
      in[20 * channels] = -0.0;
      for (size_t i = 0; i < channels; ++i) in[3980 * channels + i] = static_cast<T>(i ? kNan : HUGE_VAL);
      std::vector<T> out(in.size() + 1, 7), expected = in;
      std::vector<qn::EqFilter> models = filters;
      const qn::EqChain chain{bands.data(), bands.size(), active.data(), count, filters.data(), channels};
      for (size_t at = 0, part = 0; at < 4000; at += part, part = std::min(part * 3 + 1, 4000 - at))
        qn::RunChain(chain, &out[at * channels], &in[at * channels], part);
      for (const DWORD band : active)
        for (size_t i = 0; i < in.size(); ++i)
          expected[i] = static_cast<T>(
              Plainly(models[i % channels * bands.size() + band], bands[band].type, expected[i]));
      EXPECT_EQ(out.back(), 7);
      const auto same = [](double a, double b) {
        return std::isnan(a) ? std::isnan(b) : a == b && std::signbit(a) == std::signbit(b);
      };
      for (size_t i = 0; i < in.size(); ++i) ASSERT_TRUE(same(out[i], expected[i])) << i;
      for (size_t i = 0; i < filters.size(); ++i)
        EXPECT_TRUE(same(filters[i].s1, models[i].s1) && same(filters[i].s2, models[i].s2)) << i;
    }
}

TEST(Equaliser, ProcessesBandAfterBandWithTheBitsOfPlainLoops) {
  ExpectPlain<double>();
  ExpectPlain<float>();
}

TEST(Equaliser, ClampsTheCallersBandsAndRefusesFormats) {
  Bands bands = {
      {-200, 0, 0.5, -7, 1}, {99, 100, 1e9, 12, 1}, {3, 1, kRate / 2.0, 1, 1}, {kNan, kNan, 7, 1, 1}};
  const auto eq = Make(bands, 2, false);
  QnEq_Reset(eq.get(), bands.data(), 0);
  const tQNEQ_BAND expected[] = {
      {-100, 0.10000000149011612, 1, 0, 1}, {25, 5, kRate / 2 - 1, 2, 1}, {3, 1, kRate / 2 - 1, 1, 1}};
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(std::memcmp(&bands[i], &expected[i], sizeof(tQNEQ_BAND)), 0) << i;
  EXPECT_TRUE(std::isnan(bands[3].gainDb) && std::isnan(bands[3].width));
  // What is not a number does harm until settings without it clear the state.
  float audio[64] = {1};
  Process(eq.get(), audio, audio, 32);
  EXPECT_TRUE(std::isnan(audio[0]));
  bands[3].gainDb = 0;
  QnEq_Reset(eq.get(), bands.data(), 1);
  audio[0] = 1;
  Process(eq.get(), audio, audio, 1);
  EXPECT_TRUE(std::isfinite(audio[0]));
  // State that has decayed below 2 to the power of -32 goes before a block, and not within it.
  for (const DWORD cut : {1, 2}) {
    const auto shelf = Make({{6, 1, 9000, QNEQ_LOWSHELF, 1}}, 1, false);
    double decayed[3] = {1e-10, 0, 0};
    Process(shelf.get(), decayed, decayed, cut);
    Process(shelf.get(), decayed + cut, decayed + cut, 3 - cut);
    EXPECT_TRUE((decayed[1] != 0) == (cut == 2) && decayed[2] == 0);
  }
  EXPECT_EQ(Process(eq.get(), audio, static_cast<float*>(nullptr), 9), 2u);
  EXPECT_EQ(Process(nullptr, audio, audio, 1), 0u);
  const std::pair<WAVEFORMATEX, HRESULT> kFormats[] = {{{3, 2, kRate, 0, 0, 24, 0}, E_NOTIMPL},
                                                       {{1, 2, kRate, 0, 0, 32, 0}, E_NOTIMPL},
                                                       {{3, 2, kRate, 0, 0, 64, 0}, S_OK}};
  for (const auto& [format, status] : kFormats) {
    HQNEQ made = nullptr;
    EXPECT_EQ(QnEq_Init(&made, &format, bands.data(), 2, 1), status) << format.wBitsPerSample;
    EXPECT_EQ(made != nullptr, status == S_OK);
    QnEq_Close(made);
  }
}

template <class T>
void ExpectFade(double tolerance) {
  const Bands before = {{6, 1, 100, QNEQ_LOWSHELF, 1}, {-9, 2, 1000, QNEQ_PEAK, 1}};
  Bands after = before;
  after[0].gainDb = -12;
  after[1].frequency = 3000;
  const auto fading = Make(before, 2, true, 8 * sizeof(T)), hard = Make(before, 2, false, 8 * sizeof(T));
  const auto old = Make(before, 2, false, 8 * sizeof(T));
  std::vector<T> in = Noise<T>(2 * 400), dry = in, faded = in, now = in, was = in;
  const auto run = [&](size_t at, DWORD frames) {
    for (const auto& [eq, audio] : {std::pair(&fading, &faded), {&hard, &now}, {&old, &was}})
      Process(eq->get(), &(*audio)[2 * at], &(*audio)[2 * at], frames);
  };
  const auto expectBlend = [&](size_t at, size_t end, const std::vector<T>& from) {
    for (size_t i = 2 * at; i < 2 * end; ++i) {
      const double part = std::min(double(i / 2 - at) / 32, 1.0);
      ASSERT_NEAR(faded[i], (1 - part) * from[i] + part * now[i], part < 1 ? tolerance : 0) << i;
    }
  };
  // The first fade starts from the dry signal; short blocks wait and go through the new filters alone.
  run(0, 31);
  run(31, 169);
  EXPECT_TRUE(std::equal(now.begin(), now.begin() + 62, faded.begin()));
  expectBlend(31, 200, dry);
  for (const auto& eq : {&fading, &hard}) QnEq_Reset(eq->get(), after.data(), 0);
  run(200, 200);
  expectBlend(200, 400, was);
}

TEST(Equaliser, FadesFromTheOldSettingsInAStraightBlend) {
  ExpectFade<float>(1e-6);
  ExpectFade<double>(1e-5);  // the old filters run in single precision
}

}  // namespace
