// Peak files and pictures of waveforms: `qnwave peaks` and `qnwave draw`.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <functional>

#include "tests/tools/tool.h"

namespace qntest {
namespace {

using Peaks = ToolTest;

namespace fs = std::filesystem;

// Two channels of 16 bits.
Bytes Stereo(size_t frames, const std::function<int(size_t)>& left, const std::function<int(size_t)>& right) {
  Bytes samples;
  for (size_t i = 0; i < frames; ++i) {
    for (const int value : {left(i), right(i)}) {
      samples.push_back(static_cast<uint8_t>(value));
      samples.push_back(static_cast<uint8_t>(value >> 8));
    }
  }
  return WaveFile(Record(1, 2, 48'000, 16), samples);
}

int Ramp(size_t i) {
  return static_cast<int>(i % 30'000);
}

// A lone sample shows whether peaks are where they should be.
int Click(size_t i) {
  return i == 2559 ? 20'000 : i == 5120 ? -20'000 : 0;
}

// All that a peak file says behind its header.
std::vector<int> Blocks(const Bytes& file) {
  std::vector<int> values;
  for (size_t i = 64; i + 1 < file.size(); i += 2) values.push_back(static_cast<int16_t>(Get(file, i, 2)));
  return values;
}

TEST_F(Peaks, AreExactAndBuiltOnlyWhenTheyAreNotValid) {
  const std::string wav = Path("take.wav");
  const std::string peaks = Path("take.qnk");
  WriteFileBytes(wav, Stereo(10'240, Ramp, Click));
  const auto run = [&](const std::vector<std::string>& options, const std::string& outcome) {
    std::vector<std::string> words = {"peaks", wav};
    words.insert(words.end(), options.begin(), options.end());
    const ToolRun result = Qnwave(words);
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(result.out, wav + ": peaks " + outcome + " frames a peak\n");
  };
  run({}, "built: " + peaks + ", 16 bits, 256");
  std::vector<int> expected;
  for (size_t block = 0; block < 40; ++block) {
    for (const auto& sample : {Ramp, Click}) {
      // A block takes in the last frame of the one before it.
      const size_t start = block * 256 - (block ? 1 : 0);
      int low = sample(start);
      int high = low;
      for (size_t i = start; i < (block + 1) * 256; ++i) {
        low = std::min(low, sample(i));
        high = std::max(high, sample(i));
      }
      expected.insert(expected.end(), {low, high});
    }
  }
  const Bytes built = ReadFileBytes(peaks);
  EXPECT_EQ(Blocks(built), expected);

  run({}, "valid: " + peaks + ", 16 bits, 256");
  EXPECT_EQ(ReadFileBytes(peaks), built);
  run({"--bits=8"}, "built again: " + peaks + ", 8 bits, 256");
  EXPECT_EQ(fs::file_size(peaks), 64u + 40 * 4);
  run({}, "valid: " + peaks + ", 8 bits, 256");
  run({"--frames-per-peak=64"}, "built again: " + peaks + ", 16 bits, 64");
  run({"--force"}, "built again: " + peaks + ", 16 bits, 256");
  fs::last_write_time(wav, fs::last_write_time(wav) - std::chrono::hours(1));
  run({}, "built again: " + peaks + ", 16 bits, 256");
  EXPECT_EQ(Blocks(ReadFileBytes(peaks)), expected);
}

TEST_F(Peaks, SayWhatCannotBeBuiltAndLeaveOtherFilesAlone) {
  const Bytes whole = Stereo(500, Ramp, Click);
  Write("damaged.wav", With(whole, 40, 0, 4));
  // The name of its peak file is longer than names may be; the temporary file in its stead is no use.
  std::string longest;
  while (longest.size() < 252) longest += "\u00E4";
  for (const char* name : {"good.wav", "other.wav", "pipe.wav", "dir.wav", "far.wav", "self.wav", "gone.wav"})
    WriteFileBytes(Path(name), whole);
  WriteFileBytes(Path(longest), whole);
  const Bytes notes = {'m', 'i', 'n', 'e'};
  for (const char* name : {"other.qnk", "notes"}) WriteFileBytes(Path(name), notes);
  ASSERT_EQ(mkfifo(Path("pipe.qnk").c_str(), 0600), 0);
  fs::create_directory(Path("dir.qnk"));
  fs::create_symlink("notes", Path("far.qnk"));
  fs::create_symlink("nothing", Path("gone.qnk"));
  fs::create_hard_link(Path("self.wav"), Path("self.qnk"));
  fs::create_directory(Path("tmp"));
  struct Row {
    std::string name;
    int exit;
    const char* said;
    bool withForce = true;
  };
  const Row kRows[] = {
      {"damaged.wav", 3, "qnwave repair '"},
      {"none.wav", 1, "0x8004E007"},
      {"other.wav", 1, "--force replaces it", false},
      {longest, 1, "beside the audio file"},
      {"pipe.wav", 1, "no regular file"},
      {"dir.wav", 1, "no regular file"},
      {"far.wav", 1, "not to a peak file"},
      {"gone.wav", 1, "not to a peak file"},
      {"self.wav", 1, "not to a peak file"},
  };
  for (const Row& row : kRows) {
    std::vector<std::string> words = {"peaks", Path(row.name), Path("good.wav")};
    if (row.withForce) words.push_back("--force");
    const ToolRun run = Qnwave(words, "TMPDIR=" + Path("tmp") + " timeout 20");
    ExpectRun(run, row.exit, row.said);
    EXPECT_NE(run.out.find("good.wav: peaks "), std::string::npos) << "the others are built";
  }
  for (const char* name : {"other.qnk", "notes"}) EXPECT_EQ(ReadFileBytes(Path(name)), notes);
  EXPECT_EQ(ReadFileBytes(Path("self.wav")), whole);
  EXPECT_FALSE(fs::exists(Path("nothing")));
  EXPECT_EQ(List(Path("tmp")), std::vector<std::string>());
  EXPECT_EQ(Run("draw pipe.wav pipe.png", "timeout 20").exit, 0);
  EXPECT_EQ(Run("peaks other.wav --force").exit, 0);
  for (const char* mistake : {"--bits=12", "--frames-per-peak=131072"})
    EXPECT_EQ(Run(std::string("peaks good.wav ") + mistake).exit, 2);
  // A scan of coarser blocks would fail; a length of whole blocks makes its step the largest.
  WriteHours("long.wav", Record(1, 1, 48'000, 8), 131'071 * 50);
  EXPECT_EQ(Run("peaks long.wav --frames-per-peak=131071").exit, 0);
}

// Runs the tool on hours of silence and stops it as soon as there is another file than that.
TEST_F(Peaks, AndPicturesLeaveNothingWhenInterrupted) {
  for (const bool draws : {false, true}) {
    WriteHours("in.wav", Record(1, 1, 48'000, 8), 3'000u << 20);
    std::vector<std::string> words = {QNWAVE, draws ? "draw" : "peaks", Path("in.wav")};
    if (draws) words.push_back(Path("out.png"));
    const int status = Interrupted(words, SIGINT, false, Path(""), 2);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 128 + SIGINT) << status;
    EXPECT_EQ(Names(), std::vector<std::string>{"in.wav"});
  }
}

constexpr uint32_t kWave = 0x1F6DB5, kRms = 0x8FC4EC, kClip = 0xD9202E;  // of the theme "light"

// A picture as another program decodes it.
struct Picture {
  int width = 0;
  int height = 0;
  Pixels pixels;
  std::string told;  // by the tool

  uint32_t At(int x, int y) const { return pixels.Colour(static_cast<size_t>(x), static_cast<size_t>(y)); }
  // The first and the last row of a colour between two rows of a column, or {-1, -1}.
  std::pair<int, int> Run(int x, uint32_t colour, int top, int bottom) const {
    std::pair<int, int> run = {-1, -1};
    for (int y = top; y < bottom; ++y) {
      if (At(x, y) == colour) run = {run.first < 0 ? y : run.first, y};
    }
    return run;
  }
};

class Draw : public ToolTest {
 protected:
  Picture Drawn(const std::string& name, std::vector<std::string> options, const std::string& before = "") {
    const std::string png = Path("picture.png");
    options.insert(options.begin(), {"draw", Path(name), png, "--force"});
    const ToolRun run = Qnwave(options, before);
    EXPECT_EQ(run.exit, 0) << run.err;
    Picture picture;
    picture.told = run.out;
    std::string size;
    RunCommand("ffprobe -v error -show_entries stream=width,height -of csv=p=0 " + png, &size);
    EXPECT_EQ(std::sscanf(size.c_str(), "%d,%d", &picture.width, &picture.height), 2) << size;
    picture.pixels = Decode(png, static_cast<size_t>(picture.width));
    EXPECT_EQ(picture.pixels.rgb.size(), static_cast<size_t>(picture.width * picture.height * 3));
    return picture;
  }
};

// The lanes of a picture of 472x500 with two channels: 400 columns from kLeft on, 200 rows each.
constexpr int kLeft = 54, kLaneHeight = 200, kTops[] = {56, 264};
const char kSize[] = "--size=472x500";

// The middle of a lane is row 100 of it. Rows of full colour: those that are covered in part are not.
void ExpectColumn(const Picture& picture, int column, int lane, double low, double high) {
  const auto [first, last] = picture.Run(kLeft + column, kWave, kTops[lane], kTops[lane] + kLaneHeight);
  EXPECT_NEAR(first - kTops[lane], 100 - 100 * high, 1.51) << lane << ", " << column;
  EXPECT_NEAR(last + 1 - kTops[lane], 100 - 100 * low, 1.51) << lane << ", " << column;
}

TEST_F(Draw, ShowsEachChannelWhereItsSamplesAre) {
  constexpr size_t kFrames = 400 * 512;
  // A square wave, softer in the second half, and a ramp over all of the file.
  const auto square = [](size_t i) { return (i / 20 % 2 ? -1 : 1) * (i < kFrames / 2 ? 0x4000 : 0x1000); };
  const auto ramp = [](size_t i) { return static_cast<int>(i * 32'000 / kFrames); };
  Write("in.wav", Stereo(kFrames, square, ramp));
  for (const bool withPeaks : {false, true}) {
    if (withPeaks) {
      ASSERT_EQ(Run("peaks in.wav").exit, 0);
    }
    const Picture whole = Drawn("in.wav", {kSize});
    ASSERT_EQ(std::pair(whole.width, whole.height), std::pair(472, 500));
    for (const int column : {0, 1, 77, 198, 201, 398, 399}) {
      const double level = column < 200 ? 0.5 : 0.125;
      ExpectColumn(whole, column, 0, -level, level);
      const double high = ramp(static_cast<size_t>(column + 1) * 512) / 32768.0;
      const auto [first, last] = whole.Run(kLeft + column, kWave, kTops[1], kTops[1] + kLaneHeight);
      EXPECT_NEAR(first - kTops[1], 100 - 100 * high, 1.51) << column;
      EXPECT_LE(last - first, 2);
    }
    // -6.02 dB of 60 on the scale.
    const Picture decibels = Drawn("in.wav", {kSize, "--scale=db"});
    ExpectColumn(decibels, 30, 0, -(60 - 6.02) / 60, (60 - 6.02) / 60);
    // A part, the channels the other way round: the file's column 200 is in the middle.
    const Picture part = Drawn("in.wav", {kSize, "--channels=R,L", "--start=51200", "--length=102400"});
    ExpectColumn(part, 198, 1, -0.5, 0.5);
    ExpectColumn(part, 201, 1, -0.125, 0.125);
  }
  // A range past the end is cut there, and the peaks of another file are not used.
  const ToolRun run = Run("draw in.wav x.png --start=4.0");
  EXPECT_NE(run.out.find(" 12,800 frames from the audio"), std::string::npos) << run.out << run.err;
}

TEST_F(Draw, ZoomsToSamplesAndMarksWhatClips) {
  const auto steps = [](size_t i) { return static_cast<int>(i % 4) * 8'192; };
  Write("steps.wav", Stereo(4'000, steps, [&](size_t i) { return -steps(i); }));
  const Picture zoomed = Drawn("steps.wav", {kSize, "--start=2000", "--length=8"});
  for (int i = 1; i < 8; ++i) {
    for (const int lane : {0, 1}) {
      const int y = kTops[lane] + 100 + (lane ? 25 : -25) * (i % 4);
      EXPECT_EQ(zoomed.At(kLeft + 50 * i, y), kWave) << i;
      EXPECT_NE(zoomed.At(kLeft + 50 * i, y + (lane ? 12 : -12)), kWave) << i;
    }
  }
  // Full scale of integers is clipped, that of floats is not, unless all that is known is a peak file.
  const auto clips = [](size_t i) { return i == 2'005 ? 32'767 : i == 100 * 40 + 3 ? -32'768 : 32'766; };
  Write("int.wav", Stereo(16'000, clips, [](size_t) { return -32'767; }));
  Bytes floats;
  for (size_t i = 0; i < 400 * 600; ++i) {
    const float value = i == 600 * 50 + 9 ? 1.0f : i == 600 * 100 + 9 ? -1.25f : 0.25f;
    floats = std::move(floats) + BytesOf(value) + BytesOf(value / 2);
  }
  Write("float.wav", WaveFile(Record(3, 2, 48'000, 32), floats));
  const auto marked = [&](const std::string& name) {
    const Picture picture = Drawn(name, {kSize});
    std::vector<int> columns;
    for (int column = 0; column < 400; ++column) {
      if (picture.Run(kLeft + column, kClip, 57, 56 + 2 * kLaneHeight).first < 0) continue;
      // The mark is a column wider on each side.
      if (columns.empty() || column > columns.back() + 3) columns.push_back(column);
    }
    return columns;
  };
  const auto expectNear = [](const std::vector<int>& columns, const std::vector<int>& expected) {
    ASSERT_EQ(columns.size(), expected.size());
    for (size_t i = 0; i < columns.size(); ++i) EXPECT_NEAR(columns[i], expected[i], 1);
  };
  expectNear(marked("int.wav"), {50, 100});
  expectNear(marked("float.wav"), {100});
  ASSERT_EQ(Run("peaks float.wav").exit, 0);
  expectNear(marked("float.wav"), {50, 100});
}

TEST_F(Draw, DrawsTheEffectiveLevelInsideThePeaks) {
  const auto sine = [](size_t i) {
    return static_cast<int>(26'214 * std::sin(0.1 * static_cast<double>(i)));
  };
  Write("in.wav", Stereo(400 * 700, sine, [](size_t) { return 0x4000; }));
  for (const bool withPeaks : {false, true}) {
    if (withPeaks) {
      ASSERT_EQ(Run("peaks in.wav").exit, 0);
    }
    const Picture picture = Drawn("in.wav", {kSize, "--rms"});
    const auto [first, last] = picture.Run(kLeft + 111, kRms, 56, 256);
    EXPECT_NEAR(first, 156 - 80 * std::sqrt(0.5), 1.5);
    EXPECT_NEAR(last + 1, 156 + 80 * std::sqrt(0.5), 1.5);
    ExpectColumn(picture, 111, 0, -0.8, 0.8);
    EXPECT_EQ(picture.Run(kLeft + 111, kRms, 264, 464).first, -1) << "a constant has nothing inside";
  }
}

TEST_F(Draw, WritesSvgAndScalesForScreensOfHighDensity) {
  Write("<a>&.wav", Stereo(5'000, Ramp, Click));
  for (const char* theme : {"light", "dark", "contrast"}) {
    const std::string line = "draw <a>&.wav out.svg --force --size=800x300 --format=smpte-drop --theme ";
    ExpectRun(Run(line + theme), 0, "");
    const std::string size = SvgSize(Path("out.svg"));
    EXPECT_TRUE(size == "800px 300px\n" || size == "800 300\n") << size;
  }
  const Picture dense = Drawn("<a>&.wav", {"--size=300.0x150@2"});
  EXPECT_EQ(std::pair(dense.width, dense.height), std::pair(600, 300));
}

TEST_F(Draw, RefusesWhatItCannotDraw) {
  const Bytes recording = Stereo(4'800, Ramp, Click);
  Write("in.wav", recording);
  fs::create_symlink("in.wav", Path("symbolic"));
  fs::create_hard_link(Path("in.wav"), Path("hard.svg"));
  Write("empty.wav", Stereo(0, Ramp, Click));
  Write("many.wav", WaveFile(Record(1, 33, 48'000, 8), Bytes(3'300)));
  Write("there.png", {});
  ExpectMistakes({{"draw in.wav out.jpg", 2, "end it in .png or .svg"},
                  {"draw in.wav there.png", 1, "0x8004E032"},
                  {"draw in.wav out.png --size=40000x100", 2, "32767 pixels"},
                  {"draw in.wav out.png --size=20000x100@3x", 2, "bad size"},
                  {"draw in.wav out.png --size=1200x100", 2, "its lanes (2) need 192x132"},
                  {"draw in.wav out.png --start=0.1", 1, "ends after frame 4,800"},
                  {"draw in.wav out.png --length=0", 1, "in.wav: The range holds no samples"},
                  {"draw in.wav out.png --start=-1", 2, "bad value"},
                  {"draw in.wav out.png --start=1 --format=later", 2, "unknown time format"},
                  {"draw in.wav out.png --length=1x", 2, "bad value"},
                  {"draw in.wav out.png --format=beats --start=1", 2, "for display alone"},
                  {"draw in.wav out.png --channels=2", 1, "no channel 2"},
                  {"draw in.wav out.png --channels=-", 2, "0, L or R)"},
                  {"draw in.wav in.wav --svg --force", 1, "the audio file itself"},
                  {"draw in.wav symbolic --svg --force", 1, "the audio file itself"},
                  {"draw symbolic hard.svg --force", 1, "the audio file itself"},
                  {"draw in.wav out.png --theme=pink", 2, "light, dark, contrast"},
                  {"draw in.wav out.png --scale=log", 2, "linear or db"},
                  {"draw empty.wav out.png", 1, "after frame 0"},
                  {"draw many.wav out.png", 1, "up to 32 channels"}});
  EXPECT_EQ(Names().size(), 6u);
  EXPECT_EQ(Read("in.wav"), recording);
  // A full disk.
  EXPECT_EQ(Run("draw in.wav out.png", "ulimit -f 1;").exit, 1);
  EXPECT_EQ(Names().size(), 6u);
}

TEST_F(Draw, TakesLittleMemoryForHours) {
  const uint64_t bytes = 2ull * 7200 * 48'000;
  WriteHours("in.wav", Record(1, 1, 48'000, 16), bytes);
  Patch("in.wav", 44 + bytes / 2, "\xFF\x3F");
  const std::string limit = qntest::MemoryLimit(200000);
  for (const char* from : {"the audio", "in.qnk"}) {
    const Picture picture = Drawn("in.wav", {kSize}, limit);
    EXPECT_NE(picture.told.find(from), std::string::npos) << picture.told;
    EXPECT_NEAR(picture.Run(kLeft + 200, kWave, 56, 463).first, 158, 1);
    EXPECT_EQ(picture.Run(kLeft + 197, kWave, 56, 463), std::pair(260, 260)) << "silence is a line";
    EXPECT_EQ(Run("peaks in.wav", limit).exit, 0);
  }
}

}  // namespace
}  // namespace qntest
