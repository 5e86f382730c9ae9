// Equalised, reverberated and compressed files and their pictures: `qnwave eq`, `reverb` and `compress`.
#include <unistd.h>

#include <cmath>
#include <complex>
#include <functional>
#include <numbers>
#include <sstream>

#include "tests/tools/tool.h"

namespace qntest {
namespace {

constexpr uint32_t kRate = 48'000;
constexpr double kPi = std::numbers::pi;

class Effects : public ToolTest {
 protected:
  Sound Made(const std::string& line) { return ToolTest::Made(line + " in.wav", "out.wav"); }
  void WriteDoubles(uint32_t channels, size_t frames, const std::function<double(size_t, size_t)>& sample) {
    Write("in.wav", Doubles(channels, frames, sample));
  }
  // The names that a mistake about an option lists.
  std::vector<std::string> NamesOf(const std::string& line) {
    const std::string said = Run(line).err;
    const size_t first = said.find("one of ") + 7;
    std::istringstream names(said.substr(first, said.find(')', first) - first));
    std::vector<std::string> list;
    for (std::string name; std::getline(names >> std::ws, name, ',');) list.push_back(name);
    return list;
  }
};

double Factor(double decibels) {
  return std::pow(10, decibels / 20);
}

TEST_F(Effects, EqualiserHasTheGainsOfTheClosedForms) {
  using Complex = std::complex<double>;
  Write("in.wav", FiveTones());
  const auto warped = [](double hertz) { return std::tan(kPi * hertz / kRate); };
  const auto low = [&](double f, double corner, double dB) {
    return 1.0 + (Factor(dB) - 1) / Complex(1, warped(f) / warped(corner));
  };
  const auto high = [&](double f, double corner, double dB) {
    return 1.0 + (Factor(dB) - 1) / Complex(1, -warped(corner) / warped(f));
  };
  const auto peak = [&](double f, double centre, double dB, double octaves) {
    const double ratio = std::sqrt(std::exp2(octaves));
    const double w1 = warped(centre / ratio), w2 = warped(centre * ratio);
    const auto band = [&](double w) { return 1.0 / Complex(1, (w - w1 * w2 / w) / (w2 - w1)); };
    return 1.0 +
           (Factor(dB) - 1) * band(warped(f)) / std::abs(band(warped(centre * (ratio + 1 / ratio) / 2)));
  };
  struct Row {
    const char* options;
    std::function<Complex(double)> gain;
  };
  const Row kRows[] = {
      {"--low-shelf 1000,6", [&](double f) { return low(f, 1000, 6); }},
      {"--high-shelf 500,-100", [&](double f) { return high(f, 500, -2000); }},
      {"--peak 1000,-12,2", [&](double f) { return peak(f, 1000, -12, 2); }},
      {"--peak 3000,9 --gain -3 --high-shelf 8000,-5 --peak=400,-3,0.5 --preset bass-boost",
       [&](double f) {
         return Factor(-3) * peak(f, 3000, 9, 1) * peak(f, 400, -3, 0.5) * high(f, 8000, -5) * low(f, 150, 8);
       }},
  };
  for (const Row& row : kRows) {
    const std::vector<double> gains = GainsOfTones(Made(std::string("eq ") + row.options));
    for (size_t i = 0; i < 5; ++i)
      EXPECT_NEAR(gains[i], std::abs(row.gain(kTones[i])), 2e-4) << row.options << " at " << kTones[i];
  }
  const auto presets = NamesOf("eq in.wav out.wav --preset ?");
  EXPECT_EQ(presets.size(), 11u);
  for (const std::string& preset : presets) {
    EXPECT_NE(Made("eq --preset " + preset).samples, SoundOf("in.wav").samples) << preset;
    EXPECT_NE(Run("eq --help").out.find(preset), std::string::npos);
  }
}

TEST_F(Effects, ReverbHasTheEchoesTheDecayAndTheTail) {
  constexpr size_t kFrames = 1000, kClick = 100;
  WriteDoubles(1, kFrames, [](size_t frame, size_t) { return frame == kClick ? 0.5 : 0; });
  const Sound echoes =
      Made("reverb --wet none --dry -6 --early near --early-level 0 --decay 0.1 --pre-delay 0");
  ASSERT_EQ(echoes.samples.size(), kFrames + kRate / 10);
  const std::pair<double, double> kEchoes[] = {
      {0, Factor(-6)}, {6.164, 0.46}, {17.192, -0.60}, {29.309, 0.21}};
  double energy = 0;
  for (const double sample : echoes.samples) energy += sample * sample;
  for (const auto& [milliseconds, gain] : kEchoes) {
    const double sample = echoes.samples[kClick + static_cast<size_t>(milliseconds * kRate / 1000)];
    EXPECT_NEAR(sample, 0.5 * gain, 1e-9) << milliseconds;
    energy -= sample * sample;
  }
  EXPECT_NEAR(energy, 0, 1e-9);
  // Without damping each room decays as it is told, by its name as by its number.
  const auto rooms = NamesOf("reverb in.wav out.wav --room ?");
  ASSERT_EQ(rooms.size(), 19u);
  for (size_t room = 0; room < rooms.size(); ++room) {
    const std::string kBare =
        "reverb --dry none --early none --high-cut none --low-cut none --decay 0.9 --room ";
    const Sound sound = Made(kBare + rooms[room]);
    EXPECT_EQ(sound, Made(kBare + std::to_string(room)));
    ASSERT_EQ(sound.samples.size(), kFrames + kRate * 91 / 100);
    double early = 0, late = 0;
    for (size_t i = 0; i < kRate / 5; ++i) {
      early += std::pow(sound.samples[kRate / 5 + i], 2);
      late += std::pow(sound.samples[kRate / 2 + i], 2);
    }
    EXPECT_NEAR(10 * std::log10(early / late), 20, 1) << rooms[room];
  }
  EXPECT_EQ(Made("reverb --tail none").samples.size(), kFrames);
  EXPECT_EQ(Made("reverb --tail 0.5").samples.size(), kFrames + kRate / 2);
  WriteDoubles(2, kFrames, [](size_t frame, size_t channel) { return frame == 0 && channel == 0 ? 1 : 0; });
  const Sound stereo = Made("reverb");
  ASSERT_EQ(stereo.channels, 2);
  EXPECT_NEAR(stereo.samples[0], Factor(-3), 1e-9);
  double right = 0;
  for (size_t i = 1; i < stereo.samples.size(); i += 2) right = std::max(right, std::fabs(stereo.samples[i]));
  EXPECT_GT(right, 0.01);
  WriteDoubles(2, 0, {});
  EXPECT_TRUE(Made("reverb").samples.empty());
  EXPECT_EQ(Made("reverb --tail 0.5").samples.size(), kRate);
}

TEST_F(Effects, CompressorHasItsCurveAndOneGainForAllChannels) {
  struct Row {
    const char* options;
    double in, out;  // dB
  };
  const Row kRows[] = {
      {"", -40, -40},
      {"", 0, -15},
      {"--output-gain 0", -40, -26},
      {"--threshold -30 --ratio 10 --output-gain -3", -31, -13},
      {"--threshold -30 --ratio 10 --output-gain -3", 0, -9},
      {"--threshold 0 --ratio 100", -1, -1},
      {"--ratio 1", -3, -3},
  };
  for (const Row& row : kRows) {
    WriteDoubles(3, kRate,
                 [&](size_t, size_t channel) { return Factor(row.in) / static_cast<double>(channel + 1); });
    const Sound sound = Made(std::string("compress ") + row.options);
    for (size_t channel = 0; channel < 3; ++channel) {
      const double last =
          sound.samples[sound.samples.size() - 3 + channel] * static_cast<double>(channel + 1);
      EXPECT_NEAR(20 * std::log10(last), row.out, 0.02) << row.options << " " << row.in;
    }
  }
  WriteDoubles(2, kRate, [](size_t, size_t channel) { return channel == 0 ? 0.05 : -0.02; });
  const Sound sound = Made("compress --remove-dc");
  for (size_t i = sound.samples.size() - 2; i < sound.samples.size(); ++i)
    EXPECT_NEAR(sound.samples[i], 0, 1e-9);
}

TEST_F(Effects, DrawTheirCurves) {
  WriteDoubles(2, 10, [](size_t, size_t) { return 0.5; });
  constexpr size_t kLeft = 54, kColumns = 820, kTop = 56, kBottom = 384;
  const auto draw = [&](const std::string& line) {
    const ToolRun run = Run(line + " in.wav --plot out.png --force");
    EXPECT_EQ(run.exit, 0) << run.err;
    EXPECT_NE(run.out.find("out.png: 900x420 pixels"), std::string::npos);
    const Pixels pixels = Decode(Path("out.png"), 900);
    // The height of the curve, from 1 at the top to 0, at a place of the axis.
    return [=](double place) {
      size_t y = kTop;
      while (y < kBottom && pixels.Red(kLeft + static_cast<size_t>(place * kColumns), y) >= 0x60) ++y;
      return static_cast<double>(kBottom - 1 - y) / (kBottom - kTop);
    };
  };
  const auto compress = draw("compress --output-gain 0");  // -50 to 10 dB over -60 to 0
  for (const auto& [in, out] : {std::pair(-50, -36), {-30, -16}, {-20, -6}, {-1, -1}})
    EXPECT_NEAR(compress((in + 60) / 60.0), (out + 50) / 60.0, 0.02) << in;
  const auto reverb = draw("reverb --dry none --early none --high-cut none --low-cut none --decay 3");
  const double early = reverb(0.25) - reverb(0.5), late = reverb(0.5) - reverb(0.75);
  EXPECT_NEAR(early, late, 0.02);
  EXPECT_GT(early, 0.15);
  const auto eq = draw("eq --peak 1000,20");  // 1 kHz lies at 0.55, 20 kHz at 0.97
  EXPECT_GT(eq(0.552), eq(0.45) + 0.2);
  EXPECT_NEAR(eq(0.02), eq(0.97), 0.02);
  const auto low = draw("eq --low-shelf 4,20");  // the axis begins at 1 Hz
  EXPECT_GT(low(0.02), low(0.5) + 0.2);
  for (const char* line : {"eq --preset hum-50", "reverb --room 6", "compress --threshold -80"}) {
    const std::string options = " in.wav out.wav --plot out.svg --theme dark --size 300x200 --force";
    EXPECT_EQ(Run(line + options).exit, 0);
    EXPECT_NE(SvgSize(Path("out.svg")), "") << line;
  }
}

TEST_F(Effects, RefuseWhatMakesNoSense) {
  WriteDoubles(1, 480, [](size_t, size_t) { return 0.9; });
  Write("damaged.wav", With(Read("in.wav"), 40, 0, 4));
  Write("six.wav", WaveFile(Record(1, 6, kRate, 16), Bytes(1200)));
  Write("slow.wav", WaveFile(Record(1, 1, 8000, 16), Bytes(1200)));
  WriteHours("hours.wav", Record(1, 1, kRate, 16), 2'000'000'000);
  ASSERT_EQ(symlink("new.png", Path("link.png").c_str()), 0);
  ExpectMistakes(
      {{"eq in.wav out.wav", 2, "a band or a --preset is needed"},
       {"eq in.wav out.wav --peak 1000", 2, "bad band '1000' for --peak"},
       {"eq in.wav out.wav --low-shelf 100,6,1", 2, "bad band"},
       {"eq in.wav out.wav --high-shelf 24000,6", 1, "24000 Hz is not below"},
       {"eq in.wav in.wav --preset warm --force", 1, "the audio file itself"},
       {"eq in.wav link.png --container wav --preset warm --plot new.png --force", 1, "the same file as"},
       {"eq in.wav out.wav --preset warm --plot new.png --size 1800x900", 1, "new.png", "ulimit -f 8;"},
       {"eq in.wav --preset warm --plot a.png --type s16", 2, "--type is not for a picture alone"},
       {"eq slow.wav out.wav --preset presence", 1, "below half the sample rate, 4000 Hz"},
       {"reverb in.wav out.wav --room 19", 2, "0 to 18"},
       {"reverb in.wav out.wav --wet loud", 2, "(-100 to 20 in steps of 0.1, or none)"},
       {"reverb in.wav out.wav --wet -20.25", 2, "bad value '-20.25' for --wet"},
       {"reverb in.wav out.wav --early 99", 2, "(0 to 9, none, or one of near,"},
       {"reverb in.wav out.wav --early none --early-level 3", 2, "--early-level is not for --early none"},
       {"reverb in.wav out.wav --low-cut 24000", 1, "24000 Hz is not below"},
       {"reverb six.wav out.wav", 1, "reverb is for files of up to 2 channels"},
       {"reverb six.wav out.wav --lang de", 1, "reverb ist nur bei Dateien mit bis zu 2"},
       {"reverb hours.wav out.wav", 130, "Nothing was written", "timeout --preserve-status -s INT 0.3"},
       {"compress six.wav out.wav --remove-dc", 1, "--remove-dc is for files of up to 2 channels"},
       {"compress in.wav out.wav --ratio 0.5", 2, "(1 to 1000)"},
       {"compress in.wav out.wav --size 300x200", 2, "--size is not for compress without --plot"},
       {"compress damaged.wav out.wav", 3, "repair"}});
  EXPECT_NE(Run("eq slow.wav out.wav --preset presence --preset warm").err.find("left out: 2"),
            std::string::npos);
  const ToolRun run = Run("eq in.wav out.wav --low-shelf 20000,20 --type s16 --dither triangular --force");
  EXPECT_NE(run.err.find("clipped samples"), std::string::npos) << run.err;
  EXPECT_EQ(SoundOf("out.wav").samples.back(), 32767 / 32768.0);
}

TEST_F(Effects, SilenceWhatOverflowsAndClipWhatIsFarTooLoud) {
  constexpr double kLoud[] = {0.25, 1e307, -1e307, 65536, -65536, 1e9, -1e30, 0.25};
  WriteDoubles(1, 8, [&](size_t frame, size_t) { return kLoud[frame]; });
  const auto written = [&](const std::string& line, const char* silenced) {
    ExpectRun(Run(line + " --force"), 0, std::string("became silence: ") + silenced);
    return SoundOf("out.wav").samples;
  };
  for (const double sample : written("eq in.wav out.wav --peak 10000,1 --gain 60", ""))
    EXPECT_TRUE(std::isfinite(sample));
  EXPECT_EQ(written("mix in.wav out.wav --type f32", "2.")[1], 0);
  EXPECT_EQ(Run("convert in.wav in32.wav --type f32").exit, 0);
  for (const auto& [line, silenced] : {std::pair("convert in32.wav out.wav --type s16", "2."),
                                       {"join in32.wav in32.wav out.wav --type s16", "4."}}) {
    std::vector<double> samples = written(line, silenced);
    samples.resize(8);
    EXPECT_EQ(samples, std::vector<double>({0.25, 0, 0, 32767 / 32768.0, -1, 32767 / 32768.0, -1, 0.25}));
  }
}

}  // namespace
}  // namespace qntest
