// The samples and headers that `qnwave convert` writes, held against other programs.
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <tuple>

#include "tests/tools/tool.h"

namespace qntest {
namespace {

using Convert = ToolTest;
using Example = ToolTest;

// The value that a sample of full scale 1.0 has after a type of so many bits: rounded to nearest, ties to
// even, clipped before that.
double Quantised(double sample, int bits) {
  const double scale = std::ldexp(1.0, bits - 1);
  return std::nearbyint(std::clamp(sample * scale, -scale, scale - 1)) / scale;
}

struct Type {
  const char* name;
  int bits;  // of an integer type, else 0
  int format;
};

constexpr Type kTypes[] = {
    {"u8", 8, SF_FORMAT_PCM_U8},   {"s16", 16, SF_FORMAT_PCM_16}, {"s24", 24, SF_FORMAT_PCM_24},
    {"s32", 32, SF_FORMAT_PCM_32}, {"f32", 0, SF_FORMAT_FLOAT},   {"f64", 0, SF_FORMAT_DOUBLE},
};

TEST_F(Convert, GivesTheSamplesOfTheInput) {
  // Inputs of each kind, among them more channels than two and an odd number of odd frames.
  const std::pair<std::string, std::string> kInputs[] = {
      {"s16.wav", "-b 16"},          {"u8.wav", "-b 8 -e unsigned"}, {"s24.wav", "-b 24 -c 1"},
      {"s24.aiff", "-b 24"},         {"s32.w64", "-b 32"},           {"f32.wav", "-b 32 -e float -c 6"},
      {"f64.w64", "-b 64 -e float"}, {"s16.aifc", "-b 16 -c 3"}};
  for (const auto& [name, options] : kInputs) {
    Make("sox " + std::string(kRecording) + " " + options + " " + Path(name) + " trim 5000s 20001s");
    const Sound expected = SoundOf(name);
    for (const Type& type : kTypes) {
      for (const char* extension : {"wav", "w64"}) {
        SCOPED_TRACE(name + " to " + type.name + " " + extension);
        const Sound sound = Made("convert " + name + " --type " + type.name, std::string("out.") + extension);
        EXPECT_EQ(std::tuple(sound.rate, sound.channels), std::tuple(expected.rate, expected.channels));
        EXPECT_EQ(sound.format & SF_FORMAT_SUBMASK, type.format);
        ASSERT_EQ(sound.samples.size(), expected.samples.size());
        for (size_t i = 0; i < sound.samples.size(); ++i) {
          const double x = expected.samples[i];
          ASSERT_EQ(sound.samples[i], type.bits                        ? Quantised(x, type.bits)
                                      : type.format == SF_FORMAT_FLOAT ? double{static_cast<float>(x)}
                                                                       : x)
              << i;
        }
      }
    }
  }
}

TEST_F(Convert, WritesHeadersWhoseSizesAreRight) {
  const std::string raw = Path("in.raw");
  for (const size_t frames : {size_t{0}, size_t{1}, size_t{1001}}) {
    for (const char* channels : {"1", "2", "3", "8"}) {
      WriteFileBytes(raw, Noise(frames * 3 * static_cast<size_t>(std::stoi(channels))));
      const uint64_t data = std::filesystem::file_size(raw);
      Succeed(std::string("convert in.raw x.wav --raw-in s24,48000,") + channels);
      const Bytes wav = Read("x.wav");
      const bool extensible = *channels > '2';
      const size_t start = extensible ? 68 : 46;
      ASSERT_EQ(wav.size(), start + data + data % 2);
      EXPECT_EQ(Get(wav, 4, 4), wav.size() - 8);
      EXPECT_EQ(Get(wav, 16, 4), extensible ? 40u : 18u);
      EXPECT_EQ(Get(wav, 20, 2), extensible ? 0xFFFEu : 1u);
      EXPECT_EQ(Get(wav, start - 4, 4), data);
      EXPECT_TRUE(data % 2 == 0 || wav.back() == 0);
      Succeed(std::string("convert in.raw x.w64 --raw-in s24,48000,") + channels);
      const Bytes w64 = Read("x.w64");
      const size_t start64 = extensible ? 128 : 112;
      ASSERT_EQ(w64.size(), start64 + data);
      EXPECT_EQ(Get(w64, 16, 8), w64.size());
      EXPECT_EQ(Get(w64, start64 - 8, 8), data + 24);
      // sox takes the length from the sizes.
      for (const char* name : {"x.wav", "x.w64"}) {
        std::string length;
        EXPECT_EQ(RunCommand("soxi -s " + Path(name), &length), 0);
        EXPECT_EQ(std::stoul(length), frames);
      }
    }
  }
}

TEST_F(Convert, KeepsSpeakersAndReadsContainersOfFewerValidBits) {
  const auto extensible = [](uint32_t channels, uint32_t mask, uint32_t valid) {
    const Bytes extra = Le(22, 2) + Le(valid, 2) + Le(mask, 4) + Hex("01 *5 10 00 80 00 00 AA 00 38 9B 71");
    return WaveFile(Record(0xFFFE, channels, 48000, 32) + extra, Noise(64));
  };
  const std::pair<uint32_t, uint32_t> kMasks[] = {{4, 0x33}, {4, 0}, {2, 0x600}, {1, 4}};
  for (const auto& [channels, mask] : kMasks) {
    Write("in.wav", extensible(channels, mask, 32));
    const Sound made = Made("convert in.wav", "out.wav");
    const Bytes out = Read("out.wav");
    EXPECT_EQ(Get(out, 20, 2), 0xFFFEu);
    EXPECT_EQ(Get(out, 40, 4), mask);
    EXPECT_EQ(made.samples, SoundOf("in.wav").samples);
  }
  // The valid bits are the high ones.
  Write("in.wav", extensible(2, 3, 24));
  EXPECT_EQ(Made("convert in.wav --type f64", "out.wav").samples, SoundOf("in.wav").samples);
}

TEST_F(Convert, WritesEverySampleTypeWithoutAHeader) {
  Write("in.wav", WaveFile(Record(1, 1, 8000, 16), Hex("34 12 00 80 FF 7F")));
  using Case = std::pair<std::string, std::string>;
  for (const auto& [type, expected] :
       {Case("u8", "92 00 FF"), Case("s8", "12 80 7F"), Case("s16", "34 12 00 80 FF 7F"),
        Case("s16be", "12 34 80 00 7F FF"), Case("s24", "00 34 12 00 00 80 00 FF 7F"),
        Case("s24be", "12 34 00 80 00 00 7F FF 00"), Case("s24in32", "00 34 12 00 00 00 80 FF 00 FF 7F 00"),
        Case("s32", "*2 34 12 *3 80 *2 FF 7F"), Case("s32be", "12 34 *2 80 *3 7F FF *2")}) {
    Succeed("convert in.wav out.raw --raw-out --type " + type);
    EXPECT_EQ(Read("out.raw"), Hex(expected)) << type;
  }
  // A private format tag is told about, and the library's own reader knows it.
  ExpectRun(Run("convert in.wav p.wav --type s24be"), 0, "private");
  EXPECT_EQ(Made("convert p.wav", "q.wav").samples, SoundOf("in.wav").samples);
  // An offset leaves out what stands before it.
  Succeed("convert in.wav r.raw --raw-in s16,8000,1,46 --raw-out");
  EXPECT_EQ(Read("r.raw"), (Bytes{0x00, 0x80, 0xFF, 0x7F}));
}

TEST_F(Convert, AppliesAGainAndClips) {
  const Sound sound = ReadSound(kRecording);
  for (const double decibels : {-6.5, 3.0, 60.0}) {
    const double factor = static_cast<float>(std::pow(10, decibels / 20));
    for (const char* type : {"s16", "s16be", "s24"}) {
      // Big-endian samples go to and fro, each way with half of the gain: not through a swap that forgets it.
      Succeed(std::string("convert ") + kRecording + " a.raw --raw-out --type " + type + " --gain " +
              std::to_string(decibels));
      const Sound result =
          Made(std::string("convert a.raw --type s16 --raw-in ") + type + ",48000,1", "out.wav");
      ASSERT_EQ(result.samples.size(), sound.samples.size());
      const double unit = std::ldexp(1.0, -15);
      for (size_t i = 0; i < sound.samples.size(); ++i) {
        const double expected = Quantised(sound.samples[i] * factor, 16);
        ASSERT_NEAR(result.samples[i], expected, type[1] == '2' ? unit : 0) << type << " " << i;
      }
    }
  }
}

TEST_F(Convert, MapsChannels) {
  Bytes raw;
  for (uint32_t i = 0; i < 900; ++i) raw = raw + Le(1000 * (i % 3 + 1) + i / 3, 2);
  Write("in.raw", raw);
  // The map, and the thousands of each channel: 0 is silence.
  using Row = std::pair<std::string, std::vector<int>>;
  for (const auto& [map, channels] :
       {Row("2,1,0", {3, 2, 1}), Row("R", {2}), Row("L,-", {1, 0}), Row("-,2,2,0", {0, 3, 3, 1})}) {
    const Sound sound = Made("convert in.raw --raw-in s16,8000,3 --channels=" + map, "out.wav");
    ASSERT_EQ(sound.channels, static_cast<int>(channels.size()));
    for (size_t i = 0; i < sound.samples.size(); ++i) {
      const int channel = channels[i % channels.size()];
      const int frame = static_cast<int>(i / channels.size());
      ASSERT_EQ(sound.samples[i] * 32768, channel == 0 ? 0 : channel * 1000 + frame) << map;
    }
  }
}

TEST_F(Convert, ReadsWhatADamagedFileHolds) {
  Bytes file = WaveFile(Record(1, 2, 8000, 16), Noise(4000));
  // More stated than there is, as a program writes into a pipe: read to the end, with a word about it.
  for (const uint32_t size : {0xFFFFFFFFu, 0x7FFFF000u, 4004u}) {
    Put(&file, 40, size, 4);
    Write("in.wav", file);
    ExpectRun(Run("convert in.wav out.wav --force"), 0, "warning: ");
    EXPECT_EQ(SoundOf("out.wav").samples.size(), 2000u);
  }
  // Samples that are not counted are not left out in silence.
  Put(&file, 40, 0, 4);
  Write("in.wav", file);
  ExpectMistakes({{"convert in.wav no.wav", 3, "qnwave repair"}});
  EXPECT_EQ(Made("convert in.wav --to-end", "out.wav").samples.size(), 2000u);
}

TEST_F(Convert, RefusesWhatAWaveFileCannotCount) {
  MakeSparse(Path("in.raw"), {}, uint64_t{1} << 30);
  const ToolRun run = Run("convert in.raw out.wav --raw-in u8,48000,1 --type s32");
  ExpectRun(run, 1, "--container w64");
  EXPECT_NE(run.err.find("(0x8004E03A)"), std::string::npos) << run.err;
  EXPECT_EQ(Names(), std::vector<std::string>{"in.raw"});
}

TEST_F(Example, RecordsATonePrintsItsPeak) {
  std::string out;
  EXPECT_EQ(RunCommand(EXAMPLE_RECORD_WAVE " " + Path("tone.wav") + " 2"), 0);
  EXPECT_EQ(SoundOf("tone.wav").samples.size(), 96000u);
  EXPECT_EQ(RunCommand(EXAMPLE_CONVERT_FILE " " + Path("tone.wav"), &out), 0);
  EXPECT_NEAR(std::stod(out.substr(out.find("peak ") + 5)), 0.5, 1e-4);
}

TEST_F(Example, HelperProcessesMayDie) {
  std::string out;
  EXPECT_EQ(RunCommand(EXAMPLE_HELPER_PROCESS " --blocks 50 --die-after 20 2>&1", &out), 0);
  EXPECT_NE(out.find("has died in block 20;"), std::string::npos) << out;
  EXPECT_NE(out.find("50 blocks, peak 0.500, "), std::string::npos) << out;
}

TEST_F(Example, HostTellsAFailureInItsLanguage) {
  const std::string run = "XDG_CONFIG_HOME=" + Path("") + " " EXAMPLE_HOST " 0x407 ";
  std::string out;
  EXPECT_EQ(RunCommand(run + "/no/such.wav 2>&1", &out), 1);
  EXPECT_NE(out.find("Beim Zugriff auf die Projektmedien \\no\\such.wav"), std::string::npos) << out;
  EXPECT_EQ(RunCommand(run + "/etc/passwd 2>&1", &out), 1);
  EXPECT_NE(out.find("Example Host hears no sound"), std::string::npos) << out;
  Write("one.wav", WaveFile(Record(1, 1, 44'100, 16), Bytes(88'200)));
  EXPECT_EQ(RunCommand(run + Path("one.wav"), &out), 0);
  EXPECT_NE(out.find("start 3\nExample Host: 44"), std::string::npos) << out;
}

}  // namespace
}  // namespace qntest
