// What `qnwave convert --rate`, `stretch` and `tone` make, held against the sines that they should be.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <tuple>

#include "tests/tools/tool.h"

namespace qntest {
namespace {

using ConvertRate = ToolTest;
using Stretch = ToolTest;
using Tone = ToolTest;

constexpr double kTurn = 2 * std::numbers::pi;

std::vector<double> Channel(const Sound& sound, size_t channel) {
  std::vector<double> samples;
  for (size_t i = channel; i < sound.samples.size(); i += static_cast<size_t>(sound.channels))
    samples.push_back(sound.samples[i]);
  return samples;
}

// The sine of a frequency that comes nearest to the middle of a signal, and what is left of it.
struct Fit {
  double amplitude;
  double late;  // in frames
  double noise;
};
Fit FitSine(const std::vector<double>& signal, double frequency, double rate) {
  const size_t begin = signal.size() / 4, end = signal.size() - begin;
  const double step = kTurn * frequency / rate;
  double cc = 0, ss = 0, cs = 0, yc = 0, ys = 0, squares = 0;
  for (size_t i = begin; i < end; ++i) {
    const double c = std::cos(step * static_cast<double>(i)), s = std::sin(step * static_cast<double>(i));
    cc += c * c, ss += s * s, cs += c * s, yc += signal[i] * c, ys += signal[i] * s;
    squares += signal[i] * signal[i];
  }
  const double determinant = cc * ss - cs * cs;
  const double a = (yc * ss - ys * cs) / determinant, b = (ys * cc - yc * cs) / determinant;
  const double left = std::max(0.0, squares - a * yc - b * ys);
  return {std::hypot(a, b), -std::atan2(a, b) / step, std::sqrt(left / static_cast<double>(end - begin))};
}

TEST_F(ConvertRate, KeepsSinesWhereTheyAre) {
  // From, to, a frequency that both have, options, the most noise.
  using Row = std::tuple<uint32_t, uint32_t, double, const char*, double>;
  for (const auto& [from, to, frequency, options, noise] :
       {Row(48000, 44100, 1000, "", 1e-5), Row(44100, 48000, 1000, "--quality sinc", 1e-5),
        Row(44100, 48000, 1000, "--quality linear", 1e-3),
        Row(48000, 44100, 1000, "--quality filtered", 1e-3), Row(44100, 48000, 1000, "--quality cubic", 3e-4),
        Row(96000, 48000, 15000, "", 1e-6), Row(8000, 96001, 1000, "", 1e-4),
        Row(192000, 8000, 300, "--type s16", 3e-5),
        Row(44101, 44100, 440, "--type f32 --gain 6.0205999", 1e-5), Row(50, 50000, 5, "", 2e-3)}) {
    SCOPED_TRACE(std::to_string(from) + " " + std::to_string(to) + options);
    // Three channels, which the resampler takes two and one, of frames that give no whole number.
    const size_t frames = from + 17;
    const auto sine = [&](size_t i, size_t channel) {
      return 0.4 * (1 - static_cast<double>(channel)) *
             std::sin(kTurn * frequency / from * static_cast<double>(i));
    };
    Write("in.wav", Doubles(3, frames, sine, from));
    const Sound sound = Made("convert in.wav --rate " + std::to_string(to) + " " + options);
    EXPECT_EQ(sound.rate, static_cast<int>(to));
    ASSERT_EQ(sound.samples.size() / 3, (2 * frames * to + from) / (2 * from));
    const std::vector<double> silent = Channel(sound, 1);
    EXPECT_EQ(std::count(silent.begin(), silent.end(), 0.0), static_cast<ptrdiff_t>(silent.size()));
    const Fit fit = FitSine(Channel(sound, 0), frequency, to);
    EXPECT_NEAR(fit.amplitude, std::strstr(options, "gain") ? 0.8 : 0.4, 5e-3);
    EXPECT_LE(std::fabs(fit.late) * std::min(from, to) / to, std::strstr(options, "linear") ? 1e-4 : 0.75);
    EXPECT_LE(fit.noise, noise);
    EXPECT_NEAR(FitSine(Channel(sound, 2), frequency, to).amplitude, fit.amplitude, 1e-4);
  }
}

TEST_F(ConvertRate, LeavesNothingAtWrongFrequencies) {
  // From, to, a frequency, whether the new rate has it, the most noise.
  using Row = std::tuple<uint32_t, uint32_t, double, bool, double>;
  for (const auto& [from, to, frequency, isKept, noise] :
       {Row(48000, 44100, 22060, false, 1e-5), Row(48000, 44100, 20500, true, 1e-5),
        Row(96000, 44100, 23000, false, 1e-5), Row(96000, 44100, 20500, true, 1e-5),
        Row(48000, 8000, 4100, false, 1e-5), Row(48000, 8000, 3700, true, 1e-5),
        Row(44100, 48000, 20500, true, 1e-5), Row(96000, 96, 60, false, 1e-5)}) {
    SCOPED_TRACE(std::to_string(from) + " " + std::to_string(to) + " " + std::to_string(frequency));
    const auto sine = [&](size_t i, size_t) {
      return 0.5 * std::sin(kTurn * frequency / from * static_cast<double>(i));
    };
    Write("in.wav", Doubles(1, from, sine, from));
    const Sound sound = Made("convert in.wav --rate " + std::to_string(to));
    const Fit fit = FitSine(sound.samples, isKept ? frequency : 0.3 * to, to);
    EXPECT_NEAR(fit.amplitude, isKept ? 0.5 : 0, 1e-3);
    EXPECT_LE(fit.noise, noise);
    EXPECT_LE(isKept ? std::fabs(fit.late) : 0, 1e-3);
  }
}

TEST_F(ConvertRate, IsTheSameFromAnyPlaceOn) {
  // More than two pieces, which two threads take; behind the cut they end elsewhere.
  Make("cd " + Path("; sox -R -n -r 48000 -c 2 -b 16 a.wav synth 1300000s pinknoise gain -6"));
  Run("cut a.wav b.wav --start 160000 --quiet");
  for (const char* options : {"", "--quality linear", "--quality cubic --type f32"}) {
    const std::string end = std::string(" --rate 44100 ") + options;
    const Sound whole = Made("convert a.wav" + end), part = Made("convert b.wav" + end);
    ASSERT_EQ(whole.samples.size(), 2 * 1'194'375u);
    // The filter has to forget the noise that was cut off.
    const ptrdiff_t ahead = 2 * 147'000, settled = 2 * 5'000;
    EXPECT_TRUE(std::equal(part.samples.begin() + settled, part.samples.end(),
                           whole.samples.begin() + ahead + settled, whole.samples.end()))
        << options;
  }
}

TEST_F(ConvertRate, TellsWhatItClipsAndSilences) {
  std::vector<double> square(4800);
  for (size_t i = 0; i < square.size(); ++i) square[i] = i / 24 % 2 == 0 ? 0.99 : -0.99;
  square[100] = NAN, square[101] = HUGE_VAL;
  WriteFloats("in.wav", 1, 48000, square);
  ToolRun run = Run("convert in.wav out.wav --rate 44100 --type s16 --quiet");
  EXPECT_NE(run.err.find("infinite or no number and became silence: 2."), std::string::npos) << run.err;
  EXPECT_NE(run.err.find("clipped samples: "), std::string::npos) << run.err;
  // Just before the second piece, which reads it too.
  std::vector<double> silence(700'000);
  silence[524'000] = silence[524'400] = NAN;
  WriteFloats("long.wav", 1, 48000, silence);
  run = Run("convert long.wav out.wav --rate 44100 --force --quiet");
  EXPECT_NE(run.err.find("became silence: 2."), std::string::npos) << run.err;
  run = Run("convert in.wav out.wav --rate 44100 --force --quiet");
  EXPECT_EQ(run.err.find("clipped"), std::string::npos) << run.err;
  const Sound sound = SoundOf("out.wav");
  EXPECT_GT(*std::max_element(sound.samples.begin(), sound.samples.end()), 1.05);
  EXPECT_FALSE(std::any_of(sound.samples.begin(), sound.samples.end(), [](double x) { return !(x < 2); }));
  for (const auto& [frames, after] : {std::pair<size_t, size_t>(0, 0), {1, 1}, {2, 2}, {7, 6}}) {
    WriteFloats("few.wav", 1, 48000, std::vector<double>(frames, 0.5));
    EXPECT_EQ(Made("convert few.wav --rate 44100").samples.size(), after) << frames;
  }
}

TEST_F(ConvertRate, RefusesWhatMakesNoSense) {
  WriteFloats("in.wav", 1, 48000, {0, 0, 0});
  WriteFloats("many.wav", 257, 48000, std::vector<double>(257));
  ExpectMistakes(
      {{"convert in.wav out.wav --quality cubic", 2, "--quality goes with --rate"},
       {"convert in.wav out.wav --rate 0", 2, "bad value '0' for --rate"},
       {"convert in.wav out.wav --rate 8000 --quality best", 2, "sinc, cubic, filtered, linear"},
       {"convert in.wav out.wav --rate 47", 1, "too far apart"},
       {"convert many.wav out.wav --rate 8000", 1, "up to 256 channels"},
       {"stretch in.wav out.wav", 2, "--ratio are needed"},
       {"stretch in.wav out.wav --ratio 0", 2, "(0.1 to 10)"},
       {"stretch in.wav in.wav --ratio 2 --force", 1, "in.wav"},
       {"stretch many.wav out.wav --ratio 2", 1, "up to 256 channels"},
       {"tone out.wav --frequency 24000", 2, "below half the rate"},
       {"tone out.wav --rate 2000", 2, "bad frequency '1000' (Hz from 0.001 to below half the rate of 2000)"},
       {"tone out.wav --duration 0", 2, "--duration is 0"},
       {"tone out.wav --fade 0.6", 2, "longer than half"},
       {"tone out.wav --sweep 20", 2, "is not FROM,TO"},
       {"tone out.wav --sweep 20,20000 --frequency 5", 2, "do not go together"},
       {"tone out.wav --curve log", 2, "goes with --sweep"},
       {"tone out.wav --level 1 --level 2", 2, "2 times for 1 sine"},
       {"tone out.wav --duration 1x", 2, "bad value '1x' for --duration"},
       {"tone out.wav --channels 8 --duration 400000000", 1, "Wave64"},
       {"tone", 2, "OUT"}});
  EXPECT_EQ(Names(), (std::vector<std::string>{"in.wav", "many.wav"}));
}

TEST_F(Stretch, KeepsThePitch) {
  // The channels are an octave apart: each is spliced where it fits.
  std::vector<double> samples;
  constexpr size_t kFrames = 100'003;
  for (size_t i = 0; i < kFrames; ++i) {
    const double turns = kTurn * 500 / 44100 * static_cast<double>(i);
    samples.insert(samples.end(), {0.5 * std::sin(turns), 0.5 * std::sin(2 * turns)});
  }
  WriteFloats("in.wav", 2, 44100, samples);
  EXPECT_EQ(Made("stretch in.wav --ratio 1").samples, samples);
  for (const double ratio : {0.1, 0.5, 0.7, 0.99, 1.01, 1.5, 2.0, 10.0}) {
    const Sound sound = Made("stretch in.wav --ratio " + std::to_string(ratio));
    SCOPED_TRACE(ratio);
    ASSERT_EQ(sound.samples.size(), 2 * static_cast<size_t>(std::lround(kFrames / ratio)));
    for (const size_t channel : {0, 1}) {
      const std::vector<double> signal = Channel(sound, channel);
      size_t rises = 0;
      for (size_t i = 1; i < signal.size(); ++i) rises += signal[i - 1] < 0 && signal[i] >= 0;
      const double seconds = static_cast<double>(signal.size()) / 44100;
      EXPECT_NEAR(static_cast<double>(rises) / seconds, channel == 0 ? 500 : 1000, 4 / seconds + 2);
      // No splice cancels a period, and only the end may be silent.
      const size_t end = signal.size() - 300;
      for (size_t i = 0; i + 89 <= end; i += 89)
        ASSERT_GT(*std::max_element(&signal[i], &signal[i] + 89), 0.4) << i;
    }
  }
  for (const double ratio : {0.1, 0.6, 1.5, 10.0}) {
    WriteFloats("in.wav", 1, 44100, {0.5, 0.25, 0.125});
    EXPECT_EQ(Made("stretch in.wav --ratio " + std::to_string(ratio)).samples.size(),
              static_cast<size_t>(std::lround(3 / ratio)));
  }
}

// Files of less than two blocks too: no click, and the last of their sound comes last.
TEST_F(Stretch, KeepsTheEnd) {
  constexpr double kStep = kTurn / 45.3;
  for (const size_t frames : {1500, 1900, 3700, 7300, 24'000}) {
    for (const double ratio : {0.5, 0.9, 1.9}) {
      SCOPED_TRACE(std::to_string(frames) + " " + std::to_string(ratio));
      const auto louder = [&](size_t i, size_t) {
        const auto at = static_cast<double>(i);
        return 0.25 * (1 + at / static_cast<double>(frames)) * std::sin(kStep * at);
      };
      Write("in.wav", Doubles(1, frames, louder, 44100));
      const std::vector<double> out = Made("stretch in.wav --ratio " + std::to_string(ratio)).samples;
      ASSERT_EQ(out.size(), static_cast<size_t>(std::lround(static_cast<double>(frames) / ratio)));
      const size_t tail = std::min<size_t>(400, out.size() / 2);
      EXPECT_GT(*std::max_element(out.end() - static_cast<ptrdiff_t>(tail), out.end()), 0.42);
      for (size_t i = 1; i + 1 + tail < out.size(); ++i)
        ASSERT_LT(std::fabs(out[i + 1] - 2 * std::cos(kStep) * out[i] + out[i - 1]), 0.05) << i;
    }
  }
}

TEST_F(Tone, IsItsFormula) {
  // The options, the frames, the channels, and the value at a time in seconds.
  using Row = std::tuple<const char*, size_t, int, double (*)(double)>;
  const auto sine = [](double cycles) { return std::sin(kTurn * cycles); };
  static const auto kSine = sine;
  for (const auto& [options, frames, channels, value] :
       {Row("--level 0", 48000, 1, [](double t) { return kSine(1000 * t); }),
        Row("--rate 44100 --frequency 0.5 --duration 100001 --level -20 --channels 3", 100'001, 3,
            [](double t) { return 0.1 * kSine(0.5 * t); }),
        Row("--frequency 440 --frequency 15000.25 --level -20 --level -40", 48000, 1,
            [](double t) { return 0.1 * kSine(440 * t) + 0.01 * kSine(15000.25 * t); }),
        Row("--sweep 20,20000 --duration 2.5 --level -20", 120'000, 1,
            [](double t) { return 0.1 * kSine(20 * t + 19980 * t * t / 5); }),
        Row("--sweep 8000,80 --curve log --duration 48000 --level -20", 48000, 1,
            [](double t) { return 0.1 * kSine(8000 / std::log(0.01) * (std::pow(0.01, t) - 1)); }),
        Row("--frequency 100 --fade 0.25 --level 0", 48000, 1, [](double t) {
          return kSine(100 * t) * std::min({1.0, 4 * t, 4 * (1 - 1 / 48000.0 - t)});
        })}) {
    SCOPED_TRACE(options);
    const Sound sound = Made(std::string("tone --type f64 ") + options);
    ASSERT_EQ(sound.samples.size(), frames * static_cast<size_t>(channels));
    double worst = 0;
    for (size_t i = 0; i < sound.samples.size(); ++i) {
      const double time = static_cast<double>(i / static_cast<size_t>(channels)) / sound.rate;
      worst = std::max(worst, std::fabs(sound.samples[i] - value(time)));
    }
    EXPECT_LT(worst, 1e-8);
  }
  EXPECT_NE(Run("tone loud.wav --level 3 --quiet").err.find("clipped samples: "), std::string::npos);
}

}  // namespace
}  // namespace qntest
