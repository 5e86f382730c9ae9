#include "qn/dsp/qnreverb.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <numbers>
#include <vector>

#include "tests/support/support.h"

namespace {

constexpr LONG kRate = 44100;

// Rows of the table of rooms, in milliseconds.
const std::map<int, std::vector<double>> kRooms = {
    {1, {23.161, 18.481, 20.611, 16.035, 26.45, 29.281, 12.957, 33.46}},
    {7, {25.037, 34.831, 29.502, 37.527, 32.139, 22.731, 40.532, 43.812, 47.07}},
    {17, {3.101, 18.37, 12.86, 11.063, 5.027, 15.513, 6.544, 9.539, 21.734, 7.924}}};

double Flushed(double v) {
  return std::fabs(v) < std::ldexp(1.0, -32) ? 0.0 : v;
}

// The rule sample by sample. Lines are histories of all that was written, read so many frames behind.
struct Model {
  struct Comb {
    size_t length;
    double gain, state;
    bool flushes;
    std::vector<double> written;
    double Run(double s, double a, double b) {
      const double v = written.size() < length ? 0 : written[written.size() - length];
      state = v * b + state * a;
      if (flushes) state = Flushed(state);
      written.push_back((state + s) * gain);
      return v;
    }
  };
  Model(_reverb_props p, LONG sampleRate, size_t channelCount) : rate(sampleRate), channels(channelCount) {
    std::vector<double> delays = kRooms.at(p.room);
    own = delays.size();
    if (channels == 2) delays.insert(delays.end(), {delays[0] * 0.93, delays[1] * 1.06});
    for (size_t i = 0; i < delays.size(); ++i) {
      const auto length = static_cast<size_t>(std::floor(rate * (delays[i] / 1000) + 0.5));
      combs.push_back({std::max<size_t>(length, 1), 0, 0, channels == 2 && (i < 2 || i >= own), {}});
    }
    lowCut = p.lowCutOn;
    preDelay = std::max<size_t>(1, static_cast<size_t>(p.preDelay * rate / 1000));
    const double kTaps[][3] = {{16.011 + .051, 79, 64}, {30.058 + .151, -80, -100}, {55.013 + .078, 40, -26}};
    for (size_t i = 0; i < 3; ++i) {
      const auto& [time, gain, pan] = kTaps[i];
      taps[i] = std::max<size_t>(1, static_cast<size_t>(time * rate / 1000));
      tapGains[1][i] = gain * ((pan + 100) / 200);
      tapGains[0][i] = channels == 1 ? gain : gain * (1 - (pan + 100) / 200);
    }
    Update(p);
  }
  void Update(_reverb_props p) {
    dry = std::pow(10, p.dryGain / 10. / 20);
    wet = std::pow(10, p.reverbGain / 10. / 20);
    early = std::pow(10, p.earlyGain / 200.) / 100;
    a = p.highCutOn && p.highCutHz < rate ? std::exp(-4 * std::numbers::pi * p.highCutHz / rate) : 0;
    b = 1 - a;
    const double f = p.lowCutHz / static_cast<double>(rate), pi = std::numbers::pi;
    const double g = std::min(std::max(f < 0.011337868480725623 ? f / 2.2 : f / 3.3, .0004), .49);
    lp = std::exp(-pi * g / 0.1) * (2 * std::cos(2 * pi * g));
    lq = std::exp(-2 * pi * g / 0.1);
    lr = 1 - lp + lq;
    const std::vector<double>& delays = kRooms.at(p.room);
    for (size_t i = 0; i < combs.size(); ++i) {
      if (i < own && i >= delays.size()) continue;  // keeps its gain
      const double ms = i < own ? delays[i] : delays[i - own] * (i == own ? 0.93 : 1.06);
      combs[i].gain = std::pow(10, -3 * (ms / 1000) / (p.decay / 10.));
    }
  }
  void Run(const double* x, double* out) {
    double s = h = Flushed((channels == 2 ? (x[0] + x[1]) * 0.5 : x[0]) * b + h * a);
    if (lowCut) {
      const double y = Flushed(s * lr + y1 * lp - y2 * lq);
      y2 = y1;
      y1 = y;
      s = s - static_cast<double>(static_cast<float>(y));
    }
    double left = 0;
    for (size_t i = channels == 2 ? 2 : 0; i < own; ++i) left += combs[i].Run(s, a, b);
    double right = left;
    for (size_t i = 0; i < 2 && channels == 2; ++i) {
      left += combs[i].Run(s, a, b);
      right += combs[own + i].Run(s, a, b);
    }
    const auto behind = [](const std::vector<double>& line, size_t frames) {
      return line.size() < frames ? 0 : line[line.size() - frames];
    };
    for (size_t c = 0; c < channels; ++c) {
      sums[c].push_back(c ? right : left);
      double taken[3];
      for (size_t i = 0; i < 3; ++i) {
        taken[i] = behind(inputs[0], taps[i]);
        if (channels == 2) taken[i] += behind(inputs[1], taps[i]);
      }
      const auto& g = tapGains[c];
      out[c] = (taken[0] * g[0] + taken[1] * g[1] + taken[2] * g[2]) * early +
               behind(sums[c], preDelay) * wet + x[c] * dry;
    }
    for (size_t c = 0; c < channels; ++c) inputs[c].push_back(x[c]);
  }
  LONG rate;
  size_t channels, own, preDelay, taps[3];
  bool lowCut;
  std::vector<Comb> combs;
  std::vector<double> sums[2], inputs[2];
  double tapGains[2][3], dry, wet, early, a, b, lp, lq, lr, h = 0, y1 = 0, y2 = 0;
};

HQNREVERB* Create(_reverb_props props, LONG rate, DWORD channels) {
  HQNREVERB* reverb = nullptr;
  EXPECT_EQ(QnReverbInit(&reverb, 1, &props, rate, channels, 0), 0);
  return reverb;
}

// Noise that falls silent until nothing is left, cut into calls of any length, and again after an update.
template <class T>
void ExpectModel(_reverb_props props, _reverb_props update, LONG rate, DWORD channels) {
  HQNREVERB* reverb = Create(props, rate, channels);
  Model model(props, rate, channels);
  std::vector<T> in(static_cast<size_t>(rate) * channels), out;
  std::uniform_real_distribution<T> noise(-1, 1);
  for (size_t i = 0; i < in.size(); ++i)
    if (8 * i / in.size() % 4 == 0) in[i] = noise(qntest::Random());
  out = in;
  const auto frames = static_cast<DWORD>(rate);
  for (DWORD done = 0, part; done < frames; done += part) {
    part = std::min<DWORD>((done < frames / 2 ? frames / 2 : frames) - done, qntest::Random()() % 700);
    QnReverbProcess(reverb, out.data() + done * channels, out.data() + done * channels, part);
    if (part > 0 && done + part == frames / 2) {
      EXPECT_EQ(QnReverbInit(&reverb, 0, &update, rate, 3 - channels, 0), 0);
    }
  }
  for (size_t i = 0; i < in.size(); i += channels) {
    if (i / channels == frames / 2) model.Update(update);
    double x[2] = {in[i], in[i + channels - 1]}, y[2];
    model.Run(x, y);
    for (size_t c = 0; c < channels; ++c) ASSERT_EQ(out[i + c], static_cast<T>(y[c])) << i << ' ' << c;
  }
  QnReverbInit(&reverb, 0, &props, rate, channels, 1);  // clears
  const std::vector<T> silence(in.size());
  QnReverbProcess(reverb, out.data(), silence.data(), frames);
  EXPECT_EQ(out, silence);
  QnReverbClose(reverb);
}

TEST(Reverb, IsTheRuleSampleBySample) {
  //   dry reverb early room early-row decay pre-delay low-cut high-cut
  const _reverb_props kProps[] = {{0, -30, -60, 1, 3, 15, 0, 0, 300, 0, 0},
                                  {-60, 0, 0, 17, 3, 9, 20, 1, 300, 1, 5000},
                                  {-8, -9, -7, 7, 3, 20, 1, 1, 1000, 1, kRate},
                                  {1, 2, 3, 17, 3, 1, 7, 0, 0, 1, 9000}};
  for (const LONG rate : {kRate, 8000, 90}) {
    for (size_t i = 0; i < 4; ++i) {
      _reverb_props update = kProps[(i + 1) % 4];
      update.early = 9;
      ExpectModel<float>(kProps[i], update, rate, 1);
      ExpectModel<float>(kProps[i], update, rate, 2);
      if (rate == kRate) ExpectModel<double>(kProps[i], update, rate, 2);
    }
  }
}

TEST(Reverb, FallsBySixtyDecibelsInTheDecayTime) {
  for (LONG room = 0; room < 19; ++room) {
    HQNREVERB* reverb = Create({-8000, 0, -800, room, 0, 10, 0, 0, 0, 0, 0}, kRate, 1);
    std::vector<double> sound(3 * kRate);
    std::uniform_real_distribution<double> noise(-1, 1);
    for (size_t i = 0; i < kRate / 2; ++i) sound[i] = noise(qntest::Random());
    QnReverbProcess(reverb, sound.data(), sound.data(), 3 * kRate);
    const auto level = [&](size_t from) {
      double sum = 0;
      for (size_t i = from; i < from + kRate / 2; ++i) sum += sound[i] * sound[i];
      return 10 * std::log10(sum);
    };
    EXPECT_NEAR(level(kRate * 3 / 4) - level(kRate * 7 / 4), 60, room == 6 ? 3 : 1) << room;
    QnReverbClose(reverb);
  }
}

TEST(Reverb, LevelsHaveTrueZeros) {
  const double kRows[][3] = {{0, 0, 1e-2},  // in tenths of a dB; of dry and wet in bels; early
                             {-8000, -HUGE_VAL, 1e-42},
                             {-7999, -39.995, std::pow(10, -41.995)},
                             {-800, -4, 0},
                             {-801, -4.005, std::pow(10, -6.005)}};
  for (const auto& [tenths, bels, early] : kRows) {
    const auto gain = static_cast<LONG>(tenths);
    HQNREVERB* reverb = Create({gain, gain, gain, 0, 0, 25, 0, 0, 0, 0, 0}, kRate, 2);
    EXPECT_DOUBLE_EQ(reverb->dryLevel, std::pow(10, bels)) << gain;
    EXPECT_TRUE(reverb->reverbLevel == reverb->dryLevel && reverb->tailFrames == 2 * kRate);
    EXPECT_DOUBLE_EQ(reverb->earlyLevel, early);
    QnReverbClose(reverb);
  }
}

// A wrong digit in any row changes these sums.
TEST(Reverb, RowsOfItsTables) {
  constexpr LONG kExact = 1000000;  // frames of a microsecond
  int64_t rooms = 0, taps = 0;
  for (LONG row = 0; row < 19; ++row) {
    HQNREVERB* reverb = Create({0, 0, 0, row, row % 10, 1, 0, 0, 0, 0, 0}, kExact, 2);
    for (DWORD i = 0; i < reverb->combCount; ++i) rooms += reverb->combs[i].length * (row * 10 + i + 1);
    for (int i = 0; i < 6 && row < 10; ++i) {
      const auto& [start, tap, end] = reverb->taps[i / 3];
      const auto gain = static_cast<int64_t>(std::round(reverb->tapGains[i / 3][i % 3] * 1000));
      taps += (end - tap[i % 3] + gain) * (row * 6 + i + 1);
    }
    QnReverbClose(reverb);
  }
  EXPECT_EQ(rooms, 876114195);
  EXPECT_EQ(taps, 72648781);
}

TEST(Reverb, RefusesWhatItCannotDo) {
  HQNREVERB* reverb = Create({0, 0, 0, 18, 9, 0, -100, 1, 99, 1, 99}, 1, 2);  // one-frame rings
  HQNREVERB* none = nullptr;
  _reverb_props props = {};
  EXPECT_TRUE(QnReverbInit(&none, 0, &props, 9, 2, 0) == E_POINTER &&
              QnReverbInit(nullptr, 1, &props, 9, 2, 0) == E_POINTER &&
              QnReverbInit(&reverb, 0, nullptr, 9, 2, 0) == E_POINTER);
  const LONG kBad[][4] = {{19, 0, 1, 1}, {-1, 0, 1, 1}, {0, 10, 1, 1}, {0, 0, -1, 1}, {0, 0, 1, 0}};
  for (const auto& [room, early, decay, rate] : kBad) {
    props = {-50, 0, 0, room, early, decay, 0, 1, 99, 1, 99};
    EXPECT_EQ(QnReverbInit(&none, 1, &props, rate, 2, 0), E_INVALIDARG);
    EXPECT_EQ(QnReverbInit(&reverb, 0, &props, rate, 2, 0), E_INVALIDARG);
  }
  props = {0, 0, 0, 0, 0, 1, 0x7FFFFFFF, 0, 0, 0, 0};
  EXPECT_EQ(QnReverbInit(&none, 1, &props, 0x7FFFFFFF, 2, 0), E_OUTOFMEMORY);
  EXPECT_EQ(none, nullptr);
  std::vector<double> sound(64, 1.0), before = sound, wild = {NAN, HUGE_VAL, 0, -1};
  QnReverbProcess(reverb, wild.data(), wild.data(), 2);
  QnReverbProcess(reverb, static_cast<float*>(nullptr), nullptr, 3);
  QnReverbProcess(nullptr, sound.data(), sound.data(), 3);
  QnReverbClose(reverb);
  for (const DWORD channels : {0u, 3u, 0xFFFFFFFFu}) {
    reverb = Create({0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0}, kRate, channels);
    QnReverbProcess(reverb, sound.data(), sound.data(), 20);
    EXPECT_EQ(sound, before);
    QnReverbClose(reverb);
  }
  QnReverbClose(nullptr);
}

}  // namespace
