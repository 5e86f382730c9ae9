#include "tests/tools/tool.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <bit>
#include <filesystem>

namespace qntest {
namespace {

std::string ShellQuoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

ToolRun Run(std::string command, const std::vector<std::string>& arguments) {
  const ScratchFolder scratch;
  for (const std::string& argument : arguments) command += " " + ShellQuoted(argument);
  ToolRun run;
  run.exit = RunCommand(command + " 2>" + scratch.Native("err"), &run.out);
  const Bytes err = ReadFileBytes(scratch.Native("err"));
  run.err.assign(err.begin(), err.end());
  return run;
}

}  // namespace

ToolRun Qnwave(const std::vector<std::string>& arguments, const std::string& before) {
  return Run(before + " " QNWAVE, arguments);
}

ToolRun Qnimage(const std::vector<std::string>& arguments, const std::string& before) {
  return Run(before + " " QNIMAGE, arguments);
}

ToolRun Qnmetric(const std::vector<std::string>& arguments, const std::string& before) {
  return Run(before + " " QNMETRIC, arguments);
}

ToolRun Qntext(const std::vector<std::string>& arguments, const std::string& before) {
  return Run(before + " " QNTEXT, arguments);
}

std::string MemoryLimit(int kilobytes) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  static_cast<void>(kilobytes);
  return "";
#else
  // Each thread of the drawing libraries may otherwise reserve 128 MiB of address space for a heap of its
  // own.
  return "export MALLOC_ARENA_MAX=1; ulimit -v " + std::to_string(kilobytes) + ";";
#endif
}

std::string Jq(const std::string& json, const std::string& filter) {
  const ScratchFolder scratch;
  WriteFileBytes(scratch.Native("json"), Bytes(json.begin(), json.end()));
  std::string result;
  const int exit = RunCommand("jq -r " + ShellQuoted(filter) + " " + scratch.Native("json"), &result);
  return exit == 0 ? result.substr(0, result.size() - 1) : "INVALID";
}

void Make(const std::string& command) {
  ASSERT_EQ(RunCommand(command), 0) << command;
}

Sound ReadSound(const std::string& path) {
  SF_INFO info = {};
  SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &info);
  EXPECT_NE(file, nullptr) << path << ": " << sf_strerror(nullptr);
  Sound sound;
  if (!file) return sound;
  sound.rate = info.samplerate;
  sound.channels = info.channels;
  sound.format = info.format;
  sound.samples.resize(static_cast<size_t>(info.frames * info.channels));
  EXPECT_EQ(sf_readf_double(file, sound.samples.data(), info.frames), info.frames) << path;
  sf_close(file);
  return sound;
}

Bytes Record(uint32_t tag, uint32_t channels, uint32_t rate, uint32_t bits) {
  const uint32_t frame = channels * (bits / 8);
  return Le(tag, 2) + Le(channels, 2) + Le(rate, 4) + Le(uint64_t{rate} * frame, 4) + Le(frame, 2) +
         Le(bits, 2);
}

Bytes WaveFile(const Bytes& record, const Bytes& samples) {
  return Wav::Form(Wav::Chunk("fmt ", record) + Wav::Chunk("data", samples));
}

Bytes Doubles(uint32_t channels, size_t frames, const std::function<double(size_t, size_t)>& sample) {
  Bytes samples(frames * channels * 8);
  for (size_t i = 0; i < frames * channels; ++i)
    Put(&samples, i * 8, std::bit_cast<uint64_t>(sample(i / channels, i % channels)), 8);
  return WaveFile(Record(3, channels, 48'000, 64), samples);
}

int Pixels::At(size_t x, size_t y) const {
  int sum = 0;
  for (size_t i = 0; i < 3; ++i) sum += static_cast<uint8_t>(rgb.at((y * width + x) * 3 + i));
  return sum;
}

size_t Pixels::Brightest(size_t x, size_t top, size_t bottom) const {
  size_t best = top;
  for (size_t y = top; y < bottom; ++y) best = At(x, y) > At(x, best) ? y : best;
  return best;
}

Pixels Decode(const std::string& png, size_t width) {
  Pixels pixels{width, {}};
  EXPECT_EQ(RunCommand("ffmpeg -loglevel error -i " + png + " -f rawvideo -pix_fmt rgb24 -", &pixels.rgb), 0);
  return pixels;
}

Bytes Noise(size_t count) {
  Bytes bytes(count);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(0x80 | Random()());
  return bytes;
}

void Put(Bytes* bytes, size_t offset, uint64_t value, int count) {
  ASSERT_LE(offset + static_cast<size_t>(count), bytes->size());
  for (int i = 0; i < count; ++i)
    (*bytes)[offset + static_cast<size_t>(i)] = static_cast<uint8_t>(value >> (8 * i));
}

uint64_t Get(const Bytes& bytes, size_t offset, int count) {
  uint64_t value = 0;
  for (int i = count; i-- > 0;) value = value << 8 | bytes.at(offset + static_cast<size_t>(i));
  return value;
}

void MakeSparse(const std::string& path, const Bytes& start, uint64_t length) {
  WriteFileBytes(path, start);
  std::filesystem::resize_file(path, length);
}

std::vector<std::string> List(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace qntest
