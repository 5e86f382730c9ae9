#include "qn/dsp/qncomp.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "qn/dsp/qnsine.h"
#include "tests/support/support.h"

namespace {

using Handle = std::unique_ptr<HQNCOMPDC, decltype(&QnCompDCClose)>;

Handle Make(double threshold, double ratio, double gain, LONG rate, bool removeDc) {
  HQNCOMPDC* made = nullptr;
  EXPECT_EQ(QnCompDCInit(&made, 1, threshold, ratio, gain, rate, removeDc), S_OK);
  return {made, QnCompDCClose};
}

// The compressor frame by frame.
template <class T>
void Plainly(HQNCOMPDC& s, std::vector<T>& audio, size_t channels) {
  for (size_t i = 0; i < audio.size(); i += channels) {
    s.blockPeak = 0;
    for (size_t c = 0; c < channels; ++c) {
      double x = audio[i + c];
      if (s.removeDC && c < 2) {
        const double z = x * 0.99964393716757 + s.dcState[c] * 0.99928787433514;
        x = z - s.dcState[c];
        s.dcState[c] = z;
      }
      audio[i + c] = static_cast<T>(x);
      if (std::abs(x) > s.envelope) s.blockPeak = std::abs(x);
    }
    s.envelope *= 0.999;
    if (s.blockPeak > s.envelope) s.envelope = s.blockPeak;
    double target = s.threshold < s.envelope ? (s.threshold / s.envelope - 1) * s.slope + 1 : 1.0;
    target *= s.makeup;
    s.coefficient = s.gain > target ? s.attack : s.release;
    s.gain = (1 - s.coefficient) * target + s.coefficient * s.gain;
    for (size_t c = 0; c < channels; ++c) audio[i + c] *= static_cast<T>(s.gain);
  }
}

template <class T>
void ExpectPlain() {
  std::normal_distribution<T> normal(static_cast<T>(0.1), static_cast<T>(0.3));
  for (const DWORD channels : {1, 2, 3, 5})
    for (const bool removeDc : {false, true}) {
      SCOPED_TRACE(testing::Message() << channels << " " << removeDc);
      std::vector<T> in(48000 * channels);
      for (size_t i = 0; i < in.size(); ++i)
        in[i] = normal(qntest::Random()) * static_cast<T>(std::sin(double(i) * 1e-3));
      if (!removeDc) in[in.size() - 3000] = std::numeric_limits<T>::infinity();
      std::vector<T> expected = in, out(in.size(), 7), place = in;
      const Handle whole = Make(-20, 4, 3, 48000, removeDc);
      HQNCOMPDC model = *whole, cut = *whole;
      Plainly(model, expected, channels);
      QnCompDC(whole.get(), out.data(), in.data(), 48000, channels);
      for (DWORD at = 0, part = 0; at < 48000; at += part, part = part * 2 + 1)
        QnCompDC(&cut, &place[at * channels], &place[at * channels], std::min(part, 48000 - at), channels);
      for (size_t i = 0; i < in.size(); ++i)
        ASSERT_TRUE(out[i] == expected[i] && place[i] == out[i]) << i << " " << out[i] << " " << expected[i];
      EXPECT_EQ(std::memcmp(whole.get(), &model, sizeof(model)), 0);
    }
}

TEST(Compressor, WorksFrameByFrameHoweverTheStreamIsCut) {
  ExpectPlain<float>();
  ExpectPlain<double>();
}

TEST(Compressor, SettingsFollowTheStaticCurve) {
  const Handle c = Make(-20, 4, 3, 48000, false);
  EXPECT_DOUBLE_EQ(c->threshold, 0.1);
  EXPECT_DOUBLE_EQ(c->knee, std::pow(10, -0.75));
  EXPECT_DOUBLE_EQ(c->slope, (1 - c->knee) / 0.9);
  EXPECT_DOUBLE_EQ(c->makeup, std::pow(10, 3 / 20.0 + 0.7));
  EXPECT_NEAR(std::pow(c->attack, 96), 0.1, 1e-12);
  EXPECT_NEAR(std::pow(c->release, 1440), 0.1, 1e-12);
  EXPECT_TRUE(c->ratio == 4 && c->gain == c->makeup && c->coefficient == c->attack);
  for (const double level : {0.01, 0.1, 0.3, 1.0}) {
    std::vector<double> audio(48000, level);
    QnCompDC(c.get(), audio.data(), audio.data(), 48000, 1);
    const double curve = level > 0.1 ? (0.1 / level - 1) * c->slope + 1 : 1;
    EXPECT_NEAR(audio.back(), level * curve * c->makeup, 1e-3) << level;
  }
  // A slow rate has no attack, 0 dB no slope to work out, and settings go on from the gain that is there.
  const double gain = c->gain;
  HQNCOMPDC* again = c.get();
  EXPECT_EQ(QnCompDCInit(&again, 0, 0, 2, 0, 499, 1), S_OK);
  EXPECT_TRUE(c->attack == 0 && c->release > 0 && c->slope == 1 && c->envelope == 0 && c->gain == gain);
  // DC goes; a quieter channel takes the place of a louder one; nothing is written for null.
  std::vector<float> dc(96000, 0.5f);
  QnCompDC(c.get(), dc.data(), dc.data(), 48000, 2);
  EXPECT_LT(std::abs(dc.back()), 1e-6);
  c->removeDC = 0;
  c->envelope = 0.1;
  double frame[2] = {0.8, 0.4};
  QnCompDC(c.get(), frame, frame, 1, 2);
  EXPECT_TRUE(c->blockPeak == 0.4 && c->envelope == 0.4);
  QnCompDC(c.get(), frame, nullptr, 1, 2);
  QnCompDC(c.get(), frame, frame, 0xFFFFFFFF, 0);
  HQNCOMPDC* none = nullptr;
  EXPECT_EQ(QnCompDCInit(&none, 0, 0, 2, 0, 48000, 0), E_POINTER);
}

TEST(Sine, FollowsTheSineOverLongRunsAndJumps) {
  constexpr double kStep = 0.0123456, kPhase = 0.7;
  CSineOscillator oscillator(kStep, kPhase, 5, 0);
  double worst = 0;
  for (LONG i = 5; i < 1000000; ++i)
    worst = std::max(worst, std::abs(oscillator.FindNthSine(i) - std::sin(i * kStep + kPhase)));
  EXPECT_LT(worst, 1e-7);
  for (const LONG i : {3, -100000, INT32_MAX, INT32_MIN, INT32_MIN + 1})
    EXPECT_NEAR(oscillator.FindNthSine(i), std::sin(i * kStep + kPhase), 1e-8) << i;
  // The count may reach the limit; the step behind it seeds.
  for (const auto& [limit, held] : {std::pair(3, 3), {0, 0x40000}, {0x40001, 0x40000}, {-1, -1}}) {
    oscillator = CSineOscillator(1, 0, 0, limit);
    oscillator.Init(kStep, kPhase, 0);
    EXPECT_TRUE(oscillator.limit == held && oscillator.next == 0 && oscillator.sinceSeed == 0);
    for (LONG i = 0; i < 9; ++i) {
      oscillator.FindNthSine(i);
      EXPECT_EQ(oscillator.sinceSeed, held < 0 ? 1 : i % (held + 1) + 1) << i;
    }
  }
}

}  // namespace
