// Runs the tools, makes wave files byte by byte, and reads files with other programs.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/support/chunks.h"

namespace qntest {

struct ToolRun {
  int exit = -1;
  std::string out;
  std::string err;
  std::string command;
};

// A tool, which runs with arguments that are passed as they are. `before` is put in front of the command line
// in the shell, such as "ulimit -f 100;".
struct Tool {
  const char* path;
  ToolRun operator()(const std::vector<std::string>& arguments, const std::string& before = "") const;
};
inline constexpr Tool Qnwave{QNWAVE}, Qnimage{QNIMAGE}, Qnmetric{QNMETRIC}, Qntext{QNTEXT};

// The size of a picture that is well-formed XML, such as "800 300".
std::string SvgSize(const std::string& path);

// The exit code of a run, and a part of what it says of failures.
void ExpectRun(const ToolRun& run, int exit, const std::string& said, int line = __builtin_LINE());

// What limits a tool's memory in front of its command line. Nothing in a build of a sanitizer, which takes
// more address space than any limit.
std::string MemoryLimit(int kilobytes);

// What jq makes of a JSON text, without the line end; "INVALID" when it is none.
std::string Jq(const std::string& json, const std::string& filter);

// Runs a program that makes a file; fails the test when it does. "%i" in the command is an input, and "%o"
// the output.
void Make(std::string command, const std::string& in = "", const std::string& out = "");

// A file as libsndfile reads it.
struct Sound {
  int rate = 0;
  int channels = 0;
  int format = 0;
  std::vector<double> samples;  // full scale is 1.0

  bool operator==(const Sound&) const = default;
};
Sound ReadSound(const std::string& path);

using Wav = RiffShape;

inline constexpr char kRecording[] = "/usr/share/sounds/alsa/Front_Center.wav";

// A format record of 16 bytes.
Bytes Record(uint32_t tag, uint32_t channels, uint32_t rate, uint32_t bits);

// A file of a format chunk and samples.
Bytes WaveFile(const Bytes& record, const Bytes& samples);

// A tone of each of five frequencies, a channel each, for a second at 48,000 Hz, and the gains that they have
// in what became of that.
inline constexpr double kTones[] = {100, 500, 1000, 3000, 12000};
Bytes FiveTones();
std::vector<double> GainsOfTones(const Sound& sound);

// A file of doubles.
Bytes Doubles(uint32_t channels, size_t frames, const std::function<double(size_t, size_t)>& sample,
              uint32_t rate = 48'000);

// The pixels of a picture in a form of ffmpeg, such as rgb24.
std::string PixelsOf(const std::string& name, const std::string& form);

// Those of a picture of a known width.
struct Pixels {
  size_t width = 0;
  std::string rgb;

  uint32_t Colour(size_t x, size_t y) const;
  int Red(size_t x, size_t y) const { return static_cast<int>(Colour(x, y) >> 16); }
  // The brightness.
  int At(size_t x, size_t y) const;
  // The brightest row of a column.
  size_t Brightest(size_t x, size_t top, size_t bottom) const;
};
Pixels Decode(const std::string& png, size_t width);

// Noise that is no chunk: every byte has its high bit set.
Bytes Noise(size_t count);

// Puts a number into bytes, or into a copy of them.
void Put(Bytes* bytes, size_t offset, uint64_t value, int count);
Bytes With(Bytes bytes, size_t offset, uint64_t value, int count);
uint64_t Get(const Bytes& bytes, size_t offset, int count);

// A file of a length without the disk space.
void MakeSparse(const std::string& path, const Bytes& start, uint64_t length);

// The names of a folder, sorted.
std::vector<std::string> List(const std::string& folder);

// Starts a program and sends it a signal when its folder holds a number of files, or signals up to its end,
// as of a key that is held down. Returns how the process ended.
int Interrupted(std::vector<std::string> words, int signal, bool isHeld, const std::string& folder,
                size_t files);

// A mistake: the words of a line, the exit code, a part of what is said, and what stands in front.
struct Mistake {
  const char* line;
  int exit;
  const char* said;
  const char* before = "";
};

// A test with a folder of its own, in which qnwave runs and makes files.
class ToolTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder.Native(name); }
  void Write(const std::string& name, const Bytes& bytes) const { WriteFileBytes(Path(name), bytes); }
  Bytes Read(const std::string& name) const { return ReadFileBytes(Path(name)); }
  Sound SoundOf(const std::string& name) const { return ReadSound(Path(name)); }
  std::vector<std::string> Names() const { return List(Path("")); }
  // A file of doubles, one channel after the other in each frame.
  void WriteFloats(const std::string& name, uint32_t channels, uint32_t rate,
                   const std::vector<double>& samples) const;
  // A file of silence that takes no room on the disk.
  void WriteHours(const std::string& name, const Bytes& record, uint64_t bytes) const;

  // Writes over a part of a file.
  void Patch(const std::string& name, uint64_t offset, const std::string& bytes) const;

  ToolRun Run(const std::string& line, const std::string& before = "") const;
  // Runs a line that succeeds and tells nothing but warnings.
  ToolRun Succeed(const std::string& line) const;
  // What such a line makes, with the file that it makes at its end.
  Sound Made(const std::string& line, const std::string& out = "out.w64") const;
  // What fails leaves the files that there were.
  void ExpectMistakes(std::initializer_list<Mistake> mistakes) const;

  const ScratchFolder folder;
};

}  // namespace qntest
