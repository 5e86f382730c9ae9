// Runs the tools, makes wave files byte by byte, and reads files with other programs.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/chunks.h"

namespace qntest {

struct ToolRun {
  int exit = -1;
  std::string out;
  std::string err;
};

// Run a tool with arguments that are passed as they are. `before` is put in front of the command line in the
// shell, such as "ulimit -f 100;".
ToolRun Qnwave(const std::vector<std::string>& arguments, const std::string& before = "");
ToolRun Qnimage(const std::vector<std::string>& arguments, const std::string& before = "");
ToolRun Qnmetric(const std::vector<std::string>& arguments, const std::string& before = "");
ToolRun Qntext(const std::vector<std::string>& arguments, const std::string& before = "");

// What limits a tool's memory in front of its command line. Nothing in a build of a sanitizer, which takes
// more address space than any limit.
std::string MemoryLimit(int kilobytes);

// What jq makes of a JSON text, without the line end; "INVALID" when it is none.
std::string Jq(const std::string& json, const std::string& filter);

// Runs a program that makes a file; fails the test when it does.
void Make(const std::string& command);

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

// A format record of 16 bytes.
Bytes Record(uint32_t tag, uint32_t channels, uint32_t rate, uint32_t bits);

// A file of a format chunk and samples.
Bytes WaveFile(const Bytes& record, const Bytes& samples);

// A file of doubles at 48,000 Hz.
Bytes Doubles(uint32_t channels, size_t frames, const std::function<double(size_t, size_t)>& sample);

// The pixels of a picture.
struct Pixels {
  size_t width = 0;
  std::string rgb;

  int Red(size_t x, size_t y) const { return static_cast<uint8_t>(rgb.at((y * width + x) * 3)); }
  // The brightness.
  int At(size_t x, size_t y) const;
  // The brightest row of a column.
  size_t Brightest(size_t x, size_t top, size_t bottom) const;
};
Pixels Decode(const std::string& png, size_t width);

// Noise that is no chunk: every byte has its high bit set.
Bytes Noise(size_t count);

void Put(Bytes* bytes, size_t offset, uint64_t value, int count);
uint64_t Get(const Bytes& bytes, size_t offset, int count);

// A file of a length without the disk space.
void MakeSparse(const std::string& path, const Bytes& start, uint64_t length);

// The names of a folder, sorted.
std::vector<std::string> List(const std::string& folder);

}  // namespace qntest
