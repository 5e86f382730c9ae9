// What `qnwave cut`, `join` and `split` write, held against the samples that libsndfile reads.
#include <sndfile.h>

#include <filesystem>
#include <tuple>

#include "tests/tools/tool.h"

namespace qntest {
namespace {

class Edit : public ToolTest {
 protected:
  void Succeed(const std::string& line) const { EXPECT_EQ(ToolTest::Succeed(line).err, "") << line; }
  void ExpectFrames(const Sound& whole, size_t first, size_t frames, const std::string& name) const {
    const Sound part = SoundOf(name);
    EXPECT_EQ(std::tuple(part.rate, part.channels, part.format & SF_FORMAT_SUBMASK),
              std::tuple(whole.rate, whole.channels, whole.format & SF_FORMAT_SUBMASK));
    const auto channels = static_cast<size_t>(whole.channels);
    const auto start = whole.samples.begin() + static_cast<ptrdiff_t>(first * channels);
    const std::vector<double> samples(start, start + static_cast<ptrdiff_t>(frames * channels));
    EXPECT_TRUE(part.samples == samples) << name << " " << part.samples.size() << " " << samples.size();
  }
};

TEST_F(Edit, MovesNoSample) {
  constexpr size_t kFrames = 50'001;  // of many channels several blocks
  using Input = std::pair<std::string, std::string>;
  for (const auto& [name, options] :
       {Input("u8.wav", "-b 8 -e unsigned -c 1"), Input("s16.wav", "-b 16 -c 2"),
        Input("s24.wav", "-b 24 -c 1"), Input("s24.w64", "-b 24 -c 12"),
        Input("f32.wav", "-b 32 -e float -c 6"), Input("f64.w64", "-b 64 -e float -c 2"),
        Input("s16.aiff", "-b 16 -c 3"), Input("s24.aiff", "-b 24 -c 2")}) {
    SCOPED_TRACE(name);
    Make("sox -r 8000 -n " + options + " " + Path(name) + " synth 50001s pinknoise");
    const Sound whole = SoundOf(name);
    Succeed("cut " + name + " a.wav --end 1");
    Succeed("cut " + name + " b.w64 --start 1 --length 49999");
    Succeed("cut " + name + " c.wav --start 50000");
    ExpectFrames(whole, 1, kFrames - 2, "b.w64");
    Succeed("join a.wav b.w64 c.wav joined.w64");
    ExpectFrames(whole, 0, kFrames, "joined.w64");

    Succeed("split --channels --output c{}.wav " + name);
    const auto channels = static_cast<size_t>(whole.channels);
    for (size_t i = 0; i < channels; ++i) {
      const std::string number = (channels > 9 && i < 9 ? "0" : "") + std::to_string(i + 1);
      const Sound mono = SoundOf("c" + number + ".wav");
      ASSERT_EQ(mono.samples.size(), kFrames);
      for (size_t k = 0; k < kFrames; ++k) ASSERT_EQ(mono.samples[k], whole.samples[k * channels + i]);
    }
  }
}

TEST_F(Edit, ReadsPositions) {
  constexpr size_t kFrames = 44'100 * 12;
  Bytes ramp;
  for (size_t i = 0; i < kFrames; ++i) ramp = std::move(ramp) + Le(i, 4);
  Write("in.wav", WaveFile(Record(1, 1, 44'100, 32), ramp));
  const Sound whole = SoundOf("in.wav");
  using Row = std::tuple<const char*, size_t, size_t>;
  for (const auto& [words, first, frames] :
       {Row("--start 0.00015 --end 9", 7, 2), Row("--start 0.5 --end 0:01.0", 22'050, 22'050),
        Row("--start 0:0:10.25 --length 0:1 --lang de", 452'025, 44'100),
        Row("--start 40001 --length 3 --format samples", 40'001, 3),
        Row("--start 0:10 --length 5 --format smpte-25", 17'640, 8'820),
        Row("--start 2.1.0 --length 1.0.0 --format measures", 88'200, 88'200),
        Row("--start 2,5 --end 3 --format seconds --lang de", 110'250, 22'050)}) {
    SCOPED_TRACE(words);
    Succeed(std::string("cut in.wav out.wav ") + words);
    ExpectFrames(whole, first, frames, "out.wav");
  }
}

TEST_F(Edit, JoinsWhatGoesTogether) {
  // The third has 24 bits in the low ones of words, from where no way leads to s16be.
  for (const auto& [name, record, samples] :
       {std::tuple("s16.wav", Record(1, 1, 8000, 16), "00 40 01 00"),
        std::tuple("f32.wav", Record(3, 1, 8000, 32), "*2 00 3F *4"),
        std::tuple("low.wav", Record(0xFE00, 1, 8000, 32), "00 00 40 00")})
    Write(name, WaveFile(record, Hex(samples)));
  const auto samples = [&](const std::string& words) {
    Succeed("join " + words);
    return SoundOf("out.wav").samples;
  };
  const double unit = 1 / 32768.0;
  EXPECT_EQ(samples("s16.wav f32.wav s16.wav out.wav"), (std::vector{0.5, unit, 0.5, 0.0, 0.5, unit}));
  EXPECT_EQ(samples("low.wav s16.wav --output out.wav --type f64"), (std::vector{0.5, 0.5, unit}));
  EXPECT_EQ(Run("join low.wav s16.wav be.wav --type s16be").exit, 0);
  EXPECT_EQ(Get(Read("be.wav"), 46, 6), 0x010000400040u);
  // A source may be the target.
  EXPECT_EQ(samples("out.wav s16.wav out.wav").size(), 5u);
}

TEST_F(Edit, RefusesAndWarns) {
  for (const auto& [name, channels, rate] :
       {std::tuple("in.wav", 1u, 8000u), std::tuple("rate.wav", 1u, 8001u), std::tuple("two.wav", 2u, 8000u)})
    Write(name, WaveFile(Record(1, channels, rate, 16), Noise(80)));
  Write("bad.wav", WaveFile(Record(1, 1, 8000, 16), {}) + Noise(80));
  ExpectMistakes(
      {{"cut in.wav a.wav --start 0.004 --length 1:00", 0, "warning: the file ends with 40 frames"},
       {"cut in.wav b.wav --start 40", 1, "from frame 40 to frame 40 is empty; the file ends at frame 40"},
       {"cut in.wav b.wav --start 9 --end 8", 1, "from frame 9 to frame 8 is empty"},
       {"cut in.wav b.wav --end 1 --length 1", 2, "do not go together"},
       {"cut in.wav b.wav", 2, "--start, --end"},
       {"cut in.wav b.wav --end 1:60", 2, "bad value '1:60' for --end"},
       {"split --channels bad.wav", 3, "repair"},
       {"cut bad.wav a.wav --end 5 --to-end --force", 0, ""},
       {"join in.wav b.wav", 2, "two or more"},
       {"join in.wav rate.wav b.wav", 1, "qnwave: rate.wav: An error"},
       {"join in.wav two.wav b.wav", 1, "Its channels: stereo; those of 'in.wav': mono."},
       {"split in.wav", 2, "told by --channels"},
       {"split --channels in.wav --output b.wav", 2, "has no {}"}});
  for (const char* end :
       {"x", "-5", "nan", "1e2", "1:2:3:4", "1.5:2", "1x --format smpte-25", ": --format smpte-25",
        "1 --format beats", "1:2:3:4:5 --format time", "1::2 --format time", "5% --format time",
        "1/2 --format measures", "...5 --format time", "0.5.6.7 --format seconds",
        "2.5 --format seconds --lang de", "1.5 --format samples", "1 --tempo 100"})
    EXPECT_EQ(Run(std::string("cut in.wav b.wav --end ") + end).exit, 2) << end;
  EXPECT_EQ(Names(), (std::vector<std::string>{"a.wav", "bad.wav", "in.wav", "rate.wav", "two.wav"}));
}

TEST_F(Edit, ReachesLongPathsAndManyFiles) {
  const std::string deep = std::string(200, 'd') + "/" + std::string(200, 'e') + "/";
  std::filesystem::create_directories(Path(deep));
  Write(deep + "in.wav", WaveFile(Record(1, 64, 8000, 8), Noise(640)));
  Succeed("cut " + deep + "in.wav " + deep + "part.wav --end 3");
  EXPECT_EQ(Run("split --channels " + deep + "part.wav", "ulimit -Sn 40;").exit, 0);
  EXPECT_EQ(List(Path(deep)).size(), 66u);
  const ToolRun run = Run("split --channels --force " + deep + "part.wav", "ulimit -n 40;");
  EXPECT_NE(run.err.find("(0x8004E026)"), std::string::npos) << run.err;
}

TEST_F(Edit, WritesNoTwoChannelsToOneFile) {
  Write("in.wav", WaveFile(Record(1, 2, 8000, 16), Noise(80)));
  std::filesystem::create_symlink("one.wav", Path("in-1.wav"));
  std::filesystem::create_symlink("./one.wav", Path("in-2.wav"));
  ExpectRun(Run("split --channels in.wav --force"), 1, "same file as 'in-1.wav'");
  EXPECT_EQ(Names(), (std::vector<std::string>{"in-1.wav", "in-2.wav", "in.wav"}));
}

TEST_F(Edit, LeavesNothingOnAFullDisk) {
  Make("sox -r 8000 -n -c 3 " + Path("in.wav") + " synth 1 sine");
  Write("in-2.wav", {'o', 'l', 'd'});
  // One target that exists stops the others.
  for (const auto& [words, limit] :
       {std::pair("cut in.wav out.wav --start 1", "ulimit -f 4;"), std::pair("split --channels in.wav", ""),
        std::pair("join in.wav in.wav out.wav", "ulimit -f 4;"),
        std::pair("split --channels in.wav --force", "ulimit -f 4;")}) {
    EXPECT_EQ(Run(words, limit).exit, 1);
    EXPECT_EQ(Names(), (std::vector<std::string>{"in-2.wav", "in.wav"})) << words;
  }
}

TEST_F(Edit, HandlesHoursInLittleMemory) {
  const uint64_t frames = 3'000'000'000;  // 52 hours, 6 GB
  const Bytes start =
      Wave64Shape::Form(Wave64Shape::Chunk("fmt ", Record(1, 1, 16'000, 16)), 128 + 2 * frames) +
      Wave64Shape::Header(Wave64Shape::Name("data"), 2 * frames);
  MakeSparse(Path("in.w64"), start, start.size() + 2 * frames);
  Patch("in.w64", start.size() + 2 * frames - 4, "\x01\x02\x03\x04");
  const std::string limit = qntest::MemoryLimit(100000);
  EXPECT_EQ(Run("cut in.w64 hours.wav --length 2:00:00", limit).exit, 0);
  EXPECT_EQ(std::filesystem::file_size(Path("hours.wav")), 46 + 2 * 7200 * 16'000u);
  for (const char* line :
       {"levels hours.wav", "mix hours.wav hours.wav sum.wav", "cut in.w64 out.wav --start 2999999998"})
    EXPECT_EQ(Run(line, limit).exit, 0) << line;
  EXPECT_EQ(Get(Read("out.wav"), 46, 4), 0x04030201u);
  ExpectRun(Run("join in.w64 out.wav large.wav"), 1, "--container w64");
}

}  // namespace
}  // namespace qntest
