// What `qnwave levels`, `mix` and `convert --dither` make of samples, held against those that libsndfile
// reads.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <sstream>
#include <tuple>

#include "tests/tools/tool.h"

namespace qntest {
namespace {

using Dither = ToolTest;
using Levels = ToolTest;
using Mix = ToolTest;
using Samples = ToolTest;

// What one channel of a whole file comes to: peak, position, clipped samples and runs, RMS.
using Level = std::tuple<double, uint64_t, uint64_t, uint64_t, double>;
Level LevelOf(const Sound& sound, size_t channel, size_t clipRun, int bits) {
  const double full = bits != 0 ? 1 - std::ldexp(1.0, 1 - bits) : std::nextafter(1.0, 2.0);
  double peak = 0, squares = 0;
  size_t position = 0, run = 0, samples = 0, runs = 0, frames = 0;
  for (size_t i = channel; i < sound.samples.size(); i += static_cast<size_t>(sound.channels), ++frames) {
    squares += sound.samples[i] * sound.samples[i];
    const double size = std::min(std::fabs(sound.samples[i]), bits != 0 ? full : HUGE_VAL);
    if (size >= peak && (bits == 0 || runs == 0)) position = frames - (bits == 0 ? 0 : run);
    peak = std::max(peak, size);
    run = size >= full ? run + 1 : 0;
    samples += run != 0;
    runs += run == clipRun;
  }
  return {peak, position, samples, runs, std::sqrt(squares / static_cast<double>(frames))};
}

TEST_F(Levels, CountWhatThereIs) {
  // A run of full scale over the border of a block, and a lower one before it.
  Bytes border(2 * 70'000);
  for (const size_t frame : {9, 65534, 65535, 65536, 65537, 65538}) Put(&border, 2 * frame, 0x7FFF, 2);
  Write("border.wav", WaveFile(Record(1, 1, 8000, 16), border));
  for (const char* name : {"8 -c 2 u8.wav", "16 -c 3 s16.aiff", "24 -c 2 s24.wav", "32 -c 7 s32.w64"})
    Make("cd " + Path("; sox -D -R -r 8000 -n -b ") + name + " synth 150001s pinknoise gain 22 2>&-");
  for (const char* type : {"f32", "f64"})
    Run(std::string("convert s24.wav ") + type + ".w64 --gain 3 --type " + type);
  using Row = std::pair<const char*, int>;
  for (const auto& [name, bits] :
       {Row("border.wav", 16), Row("u8.wav", 8), Row("s16.aiff", 16), Row("s24.wav", 24), Row("s32.w64", 32),
        Row("f32.w64", 0), Row("f64.w64", 0)}) {
    const Sound sound = SoundOf(name);
    for (const size_t clipRun : {1, 3, 1000}) {
      SCOPED_TRACE(name + std::string(" ") + std::to_string(clipRun));
      const ToolRun run = Run("levels --json --clip-run " + std::to_string(clipRun) + " " + name);
      std::istringstream text(
          Jq(run.out, ".[0].channels[] | .peak, .position, .clippedSamples, .clippedRuns, .rms"));
      for (size_t channel = 0; channel < static_cast<size_t>(sound.channels); ++channel) {
        Level level;
        auto& [peak, position, samples, runs, rms] = level;
        text >> peak >> position >> samples >> runs >> rms;
        Level expected = LevelOf(sound, channel, clipRun, bits);
        EXPECT_NEAR(rms, std::get<4>(expected), 1e-7 * rms);
        rms = std::get<4>(expected);
        EXPECT_EQ(level, expected) << channel;
      }
    }
  }
}

TEST_F(Levels, HaveNoneOfSilence) {
  WriteFloats("f.wav", 2, 8000, {0, 0, 0, HUGE_VAL, 0, -0.5, 0, NAN});
  Write("none.wav", WaveFile(Record(1, 1, 8000, 16), {}));
  WriteFloats("huge.wav", 1, 8000, {1e308});
  EXPECT_NE(Run("levels huge.wav").out.find("0   6160.00 1.0000e+308 "), std::string::npos);
  const ToolRun run = Run("levels --json f.wav none.wav");
  EXPECT_EQ(Jq(run.out, "[.[].channels[] | .peak, .peakDb, .position, .rmsDb, .notNumbers] | tojson"),
            "[0,null,null,null,0,0.5,-6.020599913279624,2,-12.041199826559248,2,0,null,null,null,0]");
  const std::string table = Run("levels f.wav --format samples").out;
  EXPECT_NE(table.find("-inf    0.000000      -inf           0           0  -\n"), std::string::npos)
      << table;
  EXPECT_NE(table.find("0.500000    -12.04           0           0  2\n"), std::string::npos) << table;
}

// How far a fade is, by the first letter of its curve.
double Faded(char curve, size_t frame, size_t length) {
  const double t = static_cast<double>(frame) / static_cast<double>(length);
  return curve == 'l' ? t : curve == 's' ? t * t : 1 - (1 - t) * (1 - t);
}

TEST_F(Mix, IsThePlainSum) {
  // The options of sox, the gain, where the file starts, the lengths of its fades, their curve, its channels'
  // ways.
  using Part =
      std::tuple<std::string, double, size_t, size_t, size_t, char, std::vector<std::pair<size_t, size_t>>>;
  std::vector<double> sum(2 * 220'001);
  for (const auto& [file, decibels, offset, in, out, curve, routes] :
       {Part("-b 16 -c 2 s16.wav", -3, 0, 50'000, 90'000, 'l', {{0, 1}, {1, 0}}),
        Part("-b 32 -e float -c 1 f32.wav", 2.5, 70'001, 1, 0, 's', {{0, 0}, {0, 1}}),
        Part("-b 24 -c 4 s24.aiff", 0, 1000, 75'000, 75'000, 'f', {{0, 0}, {2, 0}, {3, 1}})}) {
    Make("cd " + Path("; sox -D -R -r 8000 -n ") + file + " synth 150000s pinknoise");
    const Sound sound = SoundOf(file.substr(file.rfind(' ') + 1));
    const size_t channels = static_cast<size_t>(sound.channels), frames = sound.samples.size() / channels;
    for (size_t frame = 0; frame < frames; ++frame) {
      double gain = std::pow(10, decibels / 20);
      // A fade out is that of its curve from the level down.
      const size_t ending = frame + out - std::min(frames, frame + out);
      if (frame < in) gain *= Faded(curve, frame, in);
      if (ending > 0) gain *= 1 - Faded(curve, ending, out);
      for (const auto& [from, to] : routes)
        sum[2 * (frame + offset) + to] += gain * sound.samples[frame * channels + from];
    }
  }
  const std::string line =
      "mix s16.wav f32.wav s24.aiff --gain -3 --gain 2.5 --gain 0 --offset 0 --offset 70001 --offset 1000"
      " --fade-in 6.25 --fade-in 1 --fade-in 200000 --fade-out 90000 --fade-out 0 --fade-out 200000"
      " --curve linear --curve slow --curve fast --map R,L --map 0+1 --map 0,-,0,1 --type ";
  const Sound exact = Made(line + "f64");
  ASSERT_EQ(exact.samples.size(), sum.size());
  for (size_t i = 0; i < sum.size(); ++i) ASSERT_NEAR(exact.samples[i], sum[i], 1e-9) << i;
}

TEST_F(Mix, PlacesChannelsAndCountsWhatClips) {
  WriteFloats("one.wav", 1, 8000, {0.5, -0.75});
  WriteFloats("two.wav", 2, 8000, {0.5, 0.125, -0.25, 0.125, 0.25, 0});
  EXPECT_EQ(Made("mix two.wav one.wav").samples, (std::vector{1.0, 0.625, -1.0, -0.625, 0.25, 0.0}));
  EXPECT_EQ(Made("mix two.wav --map 0,0 --offset 1").samples, (std::vector{0.0, 0.625, -0.125, 0.25}));
  const ToolRun run = Run("mix one.wav one.wav two.wav clipped.wav --type s16");
  EXPECT_NE(run.err.find("clipped samples: 4;"), std::string::npos) << run.err;
  EXPECT_EQ(SoundOf("clipped.wav").samples,
            (std::vector{32767 / 32768.0, 32767 / 32768.0, -1.0, -1.0, 0.25, 0.0}));
}

TEST_F(Dither, HasTheStatisticsOfItsType) {
  constexpr size_t kFrames = 300'000;
  const std::string make = "cd " + Path("; sox -D -r 8000 -n -b ");
  Make(make + "64 -e float -c 1 sine.wav synth 300000s sine 997 gain -6");
  Make(make + "16 -c 2 silence.wav trim 0 300000s");
  const Sound sine = SoundOf("sine.wav");
  // The noise's variance, in steps.
  using Row = std::pair<const char*, double>;
  for (const auto& [type, variance] :
       {Row("none", 0), Row("rectangular-half", 1 / 12.0), Row("rectangular", 1 / 3.0),
        Row("triangular", 1 / 6.0), Row("highpass", 1.9801 / 12), Row("gaussian", 0.25)}) {
    for (const int shape : {0, 1, 2, 3}) {
      SCOPED_TRACE(type + std::to_string(shape));
      const std::string line =
          std::string("wav --type s16 --dither ") + type + " --shape " + std::to_string(shape);
      const Sound out = Made("convert sine." + line);
      double squares = 0, slow = 0;
      for (size_t i = 0; i < kFrames; i += 50) {
        double part = 0;
        for (size_t k = i; k < i + 50; ++k) {
          const double error = (out.samples[k] - sine.samples[k]) * 32768;
          squares += error * error;
          part += error;
        }
        slow += part * part;
      }
      const double expected = variance + 1 / 12.0;
      EXPECT_NEAR(squares / kFrames, expected, (shape == 0 ? 0.02 : 4) * expected);
      // The share of low frequencies in the noise: shaping takes it away, and so does the high pass.
      EXPECT_LT(slow / squares, shape != 0 ? 0.35 : 1.3);
      EXPECT_GT(slow / squares, shape == 0 && variance > 0.17 ? 0.7 : 0);
      // Half a step is none after rounding.
      EXPECT_EQ(Made("convert silence." + line).samples == std::vector<double>(2 * kFrames), variance < 0.1);
    }
  }
}

TEST_F(Dither, KeepsFullScale) {
  const std::vector<double> samples = {1, -1, -1, 1, 1e30, -1e30, NAN, 0.5, 1, -1, -0.5, 0.5};
  WriteFloats("in.wav", 2, 8000, samples);
  for (const char* type : {"u8", "s16", "s24", "s32"}) {
    const Sound out = Made(std::string("convert in.wav --dither gaussian --shape 2 --type ") + type);
    for (size_t i = 0; i < samples.size(); ++i) {
      const double x = std::isnan(samples[i]) ? 0 : std::clamp(samples[i], -1.0, 1.0);
      EXPECT_NEAR(out.samples[i], x, *type == 'u' ? 0.08 : 1e-3) << type << i;
    }
  }
}

TEST_F(Samples, ThatAreNoNumbersAreSilence) {
  WriteFloats("f64.wav", 2, 8000, {NAN, 0.5, 0.5, -HUGE_VAL, HUGE_VAL, 0.25});
  Write("none.wav", WaveFile(Record(3, 2, 8000, 64), {}));
  Run("convert f64.wav f32.wav --type f32");
  for (const std::string in : {" f32.wav", " f64.wav"}) {
    for (const char* words : {"convert --type s16", "convert --type u8 --gain 0", "mix --type f64",
                              "convert --type s24 --shape 1", "mix --type s16", "join --type s32 none.wav"}) {
      const ToolRun run = Run(words + in + " out.w64 --force");
      EXPECT_NE(run.err.find("became silence: 3."), std::string::npos) << words << in << run.err;
      EXPECT_EQ(SoundOf("out.w64").samples, (std::vector{0.0, 0.5, 0.5, 0.0, 0.0, 0.25})) << words;
    }
  }
  // Floats that only move stay what they are, and channels that are left out do not count.
  EXPECT_EQ(Made("convert f32.wav --channels L").samples[2], HUGE_VAL);
  EXPECT_NE(Run("convert f64.wav --channels R --type u8 r.wav").err.find("silence: 1."), std::string::npos);
}

TEST_F(Mix, RefusesAndLeavesNothing) {
  Write("in.wav", WaveFile(Record(1, 1, 8000, 16), Noise(14 * 1000)));
  Write("seven.wav", WaveFile(Record(1, 7, 8001, 16), Noise(14 * 1000)));
  Write("bad.wav", WaveFile(Record(1, 1, 8000, 16), {}) + Noise(80));
  std::filesystem::create_symlink("in.wav", Path("link.wav"));
  ExpectMistakes(
      {{"mix in.wav bad.wav b.wav", 3, "repair"},
       {"levels bad.wav", 3, "repair"},
       {"mix in.wav seven.wav b.wav", 1, "8,001 Hz"},
       {"mix in.wav link.wav --force", 1, "audio file itself"},
       {"mix in.wav b.wav --offset 2000000000 --type s32", 1, "--container w64"},
       {"mix in.wav b.w64 --offset 9223372036854775807", 1, "more than 1,152,921,504,606,846,976 bytes"},
       {"mix in.wav b.wav --offset 9223372036854775000", 1, "more than 1,152,921,504,606,846,976 bytes"},
       {"mix in.wav b.wav --format smpte-25 --offset 24:00:00:00", 2, "bad value '24:"},
       {"mix in.wav b.wav --format cd --offset 235959:99", 2, "bad value '235959"},
       {"mix in.wav b.wav --format smpte-drop --offset 25000000", 2, "bad value '25000000"},
       {"mix in.wav b.wav --map 8191 --type u8", 1, "up to 8,191 channels"},
       {"mix in.wav in.wav b.wav --map 0,1", 2, "channel 1 of 'in.wav', which has 1 channel,"},
       {"mix in.wav in.wav in.wav b.wav --gain 1 --gain 2", 2, "2 times for 3 files"},
       {"convert in.wav b.wav --type f64 --dither none", 2, "type f64"},
       {"convert seven.wav b.wav --shape 1", 1, "6 channels"},
       {"mix in.wav b.wav --type f64", 1, "", "ulimit -f 8;"}});
}

}  // namespace
}  // namespace qntest
