// Filtered files, pictures of filters and spectrograms: `qnwave filter` and `qnwave spectrum`.
#include <cmath>
#include <filesystem>
#include <functional>
#include <numbers>

#include "tests/tools/tool.h"

namespace qntest {
namespace {

using Filter = ToolTest;
using FilterAndSpectrum = ToolTest;
using Spectrum = ToolTest;

constexpr uint32_t kRate = 48'000;
constexpr double kPi = std::numbers::pi;

// A prewarped frequency.
double Warped(double hertz) {
  return std::tan(kPi * hertz / kRate);
}

TEST_F(Filter, HasTheGainsOfTheClosedForms) {
  Write("in.wav", FiveTones());
  const double ratio = std::sqrt(2.0);
  const double low = Warped(1000 / ratio), high = Warped(1000 * ratio);
  const auto band = [&](double f) {
    const double x = (Warped(f) - low * high / Warped(f)) / (high - low);
    return 1 / std::sqrt(1 + std::pow(x, 4));
  };
  const double middle = 500 * (ratio + 1 / ratio);
  struct Row {
    const char* options;
    std::function<double(double)> gain;
  };
  const Row kRows[] = {
      {"--iir lowpass --frequency 1000",
       [](double f) { return 1 / std::sqrt(1 + std::pow(Warped(f) / Warped(1000), 8)); }},
      {"--iir highpass --frequency 1000 --order 3",
       [](double f) { return 1 / std::sqrt(1 + std::pow(Warped(1000) / Warped(f), 6)); }},
      {"--iir lowpass --design chebyshev --order 5 --frequency 2000",
       [](double f) {
         const double x = Warped(f) / Warped(2000);
         const double t = x > 1 ? std::cosh(5 * std::acosh(x)) : std::cos(5 * std::acos(x));
         return 1 / std::sqrt(1 + (std::pow(10, 0.05) - 1) * t * t);
       }},
      {"--iir bandpass --frequency 1000 --order 2", [&](double f) { return band(f) / band(middle); }},
      {"--fir lowpass --frequency 1000", [](double f) { return f < 1000   ? 1
                                                               : f > 1000 ? 0
                                                                          : 0.5; }},
      {"--fir bandstop --frequency 800 --frequency2 5000 --taps 2047 --window hamming",
       [](double f) { return f < 800 || f > 5000 ? 1 : 0; }},
  };
  for (const Row& row : kRows) {
    const auto gains = GainsOfTones(Made(std::string("filter in.wav ") + row.options, "out.wav"));
    for (size_t i = 0; i < 5; ++i)
      EXPECT_NEAR(gains[i], row.gain(kTones[i]), 0.003) << row.options << " at " << kTones[i];
  }
}

TEST_F(Filter, LetsQuietSoundThroughLowCorners) {
  Write("in.wav", Doubles(1, kRate, [](size_t, size_t) { return 0.001; }));
  EXPECT_NEAR(Made("filter in.wav --iir lowpass --order 15 --frequency 50", "out.wav").samples.back(), 0.001,
              1e-6);
}

TEST_F(Filter, KeepsItsPlaceAndItsStateAcrossBlocks) {
  constexpr size_t kChannels = 33, kFrames = 40'000, kClick = 31'770;
  Write("in.wav", Doubles(kChannels, kFrames, [](size_t frame, size_t channel) {
          return frame == kClick - 7 * channel ? 0.5 : 0.0;
        }));
  for (const size_t delay : {0u, 63u}) {
    const Sound fir =
        Made(std::string("filter in.wav --fir lowpass --frequency 6000 --taps 127 --window hann") +
                 (delay ? " --keep-delay" : ""),
             "out.wav");
    const Sound iir = Made("filter in.wav --iir highpass --frequency 50", "out.wav");
    ASSERT_EQ(fir.samples.size(), kFrames * kChannels);
    for (size_t channel = 0; channel < kChannels; ++channel) {
      const size_t click = kClick - 7 * channel;
      for (int i = -70; i <= 70; ++i) {
        const double window = std::abs(i) < 63 ? 0.5 + 0.5 * std::cos(kPi * i / 63) : 0;
        const double tap = 0.5 * window * (i == 0 ? 0.25 : std::sin(kPi * i / 4) / (kPi * i));
        const size_t at = click + delay + static_cast<size_t>(i + 70) - 70;
        EXPECT_NEAR(fir.samples[at * kChannels + channel], tap, 1e-12) << channel << " " << i;
      }
      for (size_t i = 0; i < 2000; i += 3) {
        ASSERT_EQ(iir.samples[(click + i) * kChannels + channel], iir.samples[(kClick + i) * kChannels])
            << channel << " " << i;
      }
    }
  }
}

TEST_F(Filter, WritesTheTypeThatIsAskedForAndTellsOfClipping) {
  Write("in.wav", Doubles(1, 1'000, [](size_t, size_t) { return 0.9; }));
  const auto run = [&](const std::string& options) {
    return Run("filter in.wav out.wav --force " + options);
  };
  const std::string kBoost = "--iir lowpass --order 1 --frequency 10000 --gain 6 --type ";
  ExpectRun(run(kBoost + "s16"), 0, "clipped samples: 1,000");
  EXPECT_EQ(SoundOf("out.wav").samples.back(), 32767 / 32768.0);
  EXPECT_EQ(run(kBoost + "f32").err, "");
  EXPECT_NEAR(SoundOf("out.wav").samples.back(), 0.9 * std::pow(10, 0.3), 1e-6);
  // What is no number is silence, and the filter goes on.
  Write("in.wav", Doubles(2, 1'000, [](size_t frame, size_t) {
          return frame == 10 ? NAN : frame == 20 ? -HUGE_VAL : 0.9;
        }));
  EXPECT_NE(run(kBoost + "f32").err.find("became silence: 4."), std::string::npos);
  EXPECT_NEAR(SoundOf("out.wav").samples.back(), 0.9 * std::pow(10, 0.3), 1e-6);
  Write("in.wav", Doubles(1, 0, {}));
  EXPECT_EQ(run("--fir lowpass --frequency 100").exit, 0);
  EXPECT_TRUE(SoundOf("out.wav").samples.empty());
}

// The lane of a picture 400 wide and 300 high.
constexpr size_t kLeft = 54, kColumns = 270, kTop = 56, kRows = 208;

TEST_F(Spectrum, ShowsATonesFrequencyTimeAndLevel) {
  const std::string png = Path("out.png");
  // 0 dB on the right in the second half of the time, -40 dB on the left all along.
  Write("in.wav", Doubles(2, kRate, [](size_t frame, size_t channel) {
          const double sine = std::sin(2 * kPi * 6000 * static_cast<double>(frame) / kRate);
          return channel == 0 ? sine / 100 : frame < kRate / 2 ? 0 : sine;
        }));
  const auto draw = [&](const std::string& options) {
    ExpectRun(Run("spectrum in.wav out.png --force --size 400x300 --colours grey " + options), 0, "");
    return Decode(png, 400);
  };
  const size_t early = kLeft + kColumns / 4, late = kLeft + kColumns * 3 / 4;
  int full = 0;
  for (const bool isLog : {false, true}) {
    for (const char* window : {"hann", "hamming", "blackman", "rectangular"}) {
      const Pixels pixels =
          draw(std::string(isLog ? "--scale log" : "--scale linear") + " --channels R --window " + window);
      const double place = isLog ? std::log(6000 / 20.0) / std::log(1200.0) : 0.25;
      const size_t row = pixels.Brightest(late, kTop, kTop + kRows);
      EXPECT_NEAR(static_cast<double>(row) + 0.5, kTop + kRows * (1 - place), 1.5) << window << isLog;
      full = pixels.At(late, row);
      EXPECT_GT(full, 700) << window;
      EXPECT_LT(pixels.At(early, row), 30) << window;
    }
  }
  // Half the range down is half as bright to the eye, which is less in the values of a screen.
  const size_t row = kTop + kRows * 3 / 4;
  const Pixels left = draw("--range 80 --channels L");
  EXPECT_NEAR(left.At(early, left.Brightest(early, kTop, kTop + kRows)), 3 * 113, 30);
  const Pixels mixed = draw("--mixed");
  EXPECT_GT(mixed.At(late, mixed.Brightest(late, row - 3, row + 3)), 600);
  EXPECT_LT(mixed.At(early, row + 20), 30);
  // Of many channels the few that are asked for, or their mean.
  Write("in.wav", Doubles(1001, 1000, [](size_t frame, size_t channel) {
          const double sine = std::sin(2 * kPi * 6000 * static_cast<double>(frame) / kRate);
          return channel == 1000 ? NAN : channel % 2 == 0 ? sine : sine * 0.9;
        }));
  for (const char* options : {"--channels 998,1000", "--mixed"}) {
    const Pixels many = draw(options);
    EXPECT_GT(many.At(early, many.Brightest(early, kTop, kTop + kRows)), 600) << options;
  }
  ExpectRun(Run("spectrum in.wav out.svg --start=0 --length=100 --mixed"), 0, "");
}

TEST_F(Spectrum, LeavesNoSampleOutOfLongFilesAndTakesLittleMemory) {
  const uint64_t bytes = 2ull * 1200 * kRate;
  const std::string png = Path("out.png");
  for (const uint64_t frame : {10'000'000ull, 28'900'123ull, 57'500'000ull}) {
    WriteHours("in.wav", Record(1, 1, kRate, 16), bytes);
    Patch("in.wav", 44 + frame * 2, "\xFF\x7F");
    ExpectRun(Run("spectrum in.wav out.png --peak --force --size=400x300", MemoryLimit(200000)), 0, "");
    const Pixels pixels = Decode(png, 400);
    const size_t column = kLeft + frame * kColumns / (bytes / 2);
    EXPECT_GT(pixels.At(column, kTop + 100), 60) << frame;
    EXPECT_LT(pixels.At(column - 2, kTop + 100), 30) << frame;
  }
}

TEST_F(FilterAndSpectrum, DrawResponsesAndRefuseWhatMakesNoSense) {
  const Bytes whole = Doubles(2, 4'800, [](size_t, size_t) { return 0.5; });
  Write("in.wav", whole);
  Write("damaged.wav", With(whole, 40, 0, 4));
  Write("many.wav", WaveFile(Record(1, 257, kRate, 16), Bytes(257 * 2 * 100)));
  std::filesystem::create_symlink("in.wav", Path("link.png"));
  WriteHours("hours.wav", Record(1, 1, kRate, 16), 2'000'000'000);
  ExpectMistakes(
      {{"filter in.wav out.wav", 2, "one of --iir and --fir"},
       {"filter in.wav --iir lowpass --frequency 5", 2, "FILE and --plot"},
       {"filter in.wav out.wav --iir lowpass", 2, "--frequency is needed"},
       {"filter in.wav out.wav --iir notch --frequency 5", 2, "lowpass, highpass, bandpass, bandstop"},
       {"filter in.wav out.wav --iir lowpass --frequency 24000", 1, "24000 Hz is not below"},
       {"filter in.wav out.wav --fir bandpass --frequency 5 --frequency2 3e4", 1,
        "the sample rate, 24000 Hz"},
       {"filter in.wav out.wav --fir bandpass --frequency 5", 2, "--frequency2"},
       {"filter in.wav out.wav --fir lowpass --frequency 5 --taps 128", 2, "odd"},
       {"filter in.wav out.wav --fir lowpass --frequency 0.01", 1, "no stable filter"},
       {"filter in.wav out.wav --iir lowpass --frequency 5 --taps 129", 2, "--taps is not for --iir"},
       {"filter in.wav out.wav --iir lowpass --frequency 5 --design bessel --order 11", 2, "(1 to 10)"},
       {"filter in.wav out.wav --iir lowpass --frequency 5 --design resonator", 2, "bandpass or a bandstop"},
       {"filter in.wav in.wav --iir lowpass --frequency 5 --force", 1, "the audio file itself"},
       {"filter in.wav --iir lowpass --frequency 5 --plot link.png --force", 1, "the audio file itself"},
       {"filter in.wav a.png --container wav --iir lowpass --frequency 5 --plot ./a.png", 1, "same file"},
       {"filter many.wav out.wav --fir lowpass --frequency 5", 1, "up to 256 channels"},
       {"spectrum many.wav out.png", 1, "up to 32 channels"},
       {"filter damaged.wav out.wav --iir lowpass --frequency 5", 3, "repair"},
       {"filter hours.wav out.wav --fir lowpass --frequency 5 --taps 32767", 130, "Nothing was written",
        "timeout --preserve-status -s INT 0.3"},
       {"spectrum in.wav", 2, "two files"},
       {"spectrum in.wav out.jpg", 2, "end it in .png or .svg"},
       {"spectrum in.wav out.png --fft 1000", 2, "a power of 2"},
       {"spectrum in.wav out.png --window kaiser", 2, "hann, hamming, blackman, rectangular"},
       {"spectrum in.wav out.png --overlap 100", 2, "bad value"},
       {"spectrum in.wav out.png --scale db", 2, "linear or log"},
       {"spectrum in.wav out.png --colours pink", 2, "heat, sea, grey"},
       {"spectrum in.wav out.png --channels 2", 1, "no channel 2"},
       {"spectrum in.wav out.png --start 1.0", 1, "ends after frame 4,800"},
       {"spectrum in.wav out.png --size 300x170", 2, "its lanes (2) need 250x180"},
       {"filter in.wav --iir lowpass --frequency 5 --plot a.png --size 9x9", 2, "a curve needs 240x160"},
       {"spectrum in.wav link.png --force", 1, "the audio file itself"},
       {"spectrum damaged.wav out.png", 3, "repair"},
       {"spectrum hours.wav out.png --overlap 99 --fft 262144", 130, "Nothing was written",
        "timeout --preserve-status -s INT 0.3"}});
  EXPECT_EQ(Read("in.wav"), whole);

  // The curve of a response: at full gain left of the corner, at the bottom behind it.
  ExpectRun(Run("filter in.wav --fir=lowpass --frequency=1000 --plot plot.png --theme=contrast"), 0, "");
  const Pixels pixels = Decode(Path("plot.png"), 900);
  const auto isCurve = [&](size_t x, size_t y) {
    return pixels.Colour(x, y) % 256 == 255 && pixels.At(x, y) < 3 * 200;
  };
  for (const size_t x : {60u, 300u, 480u}) EXPECT_TRUE(isCurve(x, 56 + 328 / 13)) << x;
  for (const size_t x : {700u, 800u}) EXPECT_TRUE(isCurve(x, 383)) << x;
}

}  // namespace
}  // namespace qntest
