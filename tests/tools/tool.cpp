#include "tests/tools/tool.h"

#include <fcntl.h>
#include <signal.h>
#include <sndfile.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <complex>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numbers>
#include <sstream>
#include <thread>

namespace qntest {
namespace {

std::string ShellQuoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

}  // namespace

ToolRun Tool::operator()(const std::vector<std::string>& arguments, const std::string& before) const {
  std::string command = before + " " + path;
  const ScratchFolder scratch;
  for (const std::string& argument : arguments) command += " " + ShellQuoted(argument);
  ToolRun run;
  run.command = command;
  run.exit = RunCommand(command + " 2>" + scratch.Native("err"), &run.out);
  const Bytes err = ReadFileBytes(scratch.Native("err"));
  run.err.assign(err.begin(), err.end());
  return run;
}

std::string SvgSize(const std::string& path) {
  std::string size;
  RunCommand(
      "python3 -c 'import sys, xml.etree.ElementTree as e; r = e.parse(sys.argv[1]).getroot(); "
      "print(r.get(\"width\"), r.get(\"height\"))' " +
          path,
      &size);
  return size;
}

void ExpectRun(const ToolRun& run, int exit, const std::string& said, int line) {
  EXPECT_TRUE(run.exit == exit && run.err.find(said) != std::string::npos)
      << "From line " << line << ": " << run.command << "\n"
      << run.exit << ": " << run.out << run.err << "\nnot " << exit << ": " << said;
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

void Make(std::string command, const std::string& in, const std::string& out) {
  for (const auto& [sign, name] : {std::pair("%i", in), {"%o", out}}) {
    if (const size_t at = command.find(sign); at != command.npos) command.replace(at, 2, name);
  }
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

Bytes Doubles(uint32_t channels, size_t frames, const std::function<double(size_t, size_t)>& sample,
              uint32_t rate) {
  Bytes samples(frames * channels * 8);
  for (size_t i = 0; i < frames * channels; ++i)
    Put(&samples, i * 8, std::bit_cast<uint64_t>(sample(i / channels, i % channels)), 8);
  return WaveFile(Record(3, channels, rate, 64), samples);
}

Bytes FiveTones() {
  return Doubles(5, 48'000, [](size_t frame, size_t channel) {
    return 0.25 * std::sin(2 * std::numbers::pi * kTones[channel] * static_cast<double>(frame) / 48'000);
  });
}

std::vector<double> GainsOfTones(const Sound& sound) {
  EXPECT_EQ(sound.samples.size(), 48'000 * 5u);
  constexpr size_t kSettled = 48'000 / 4, kEnd = 48'000 * 3 / 4;
  std::vector<double> gains;
  for (size_t channel = 0; channel < 5; ++channel) {
    std::complex<double> sum;
    for (size_t i = kSettled; i < kEnd; ++i)
      sum += std::polar(sound.samples.at(i * 5 + channel),
                        2 * std::numbers::pi * kTones[channel] * static_cast<double>(i) / 48'000);
    gains.push_back(std::abs(sum) / (0.125 * (kEnd - kSettled)));
  }
  return gains;
}

uint32_t Pixels::Colour(size_t x, size_t y) const {
  const auto part = [&](size_t i) { return uint32_t{static_cast<uint8_t>(rgb.at((y * width + x) * 3 + i))}; };
  return part(0) << 16 | part(1) << 8 | part(2);
}

int Pixels::At(size_t x, size_t y) const {
  const auto colour = static_cast<int>(Colour(x, y));
  return colour % 256 + colour / 256 % 256 + colour / 65536;
}

size_t Pixels::Brightest(size_t x, size_t top, size_t bottom) const {
  size_t best = top;
  for (size_t y = top; y < bottom; ++y) best = At(x, y) > At(x, best) ? y : best;
  return best;
}

std::string PixelsOf(const std::string& name, const std::string& form) {
  std::string pixels;
  EXPECT_EQ(RunCommand("ffmpeg -v error -i " + name + " -f rawvideo -pix_fmt " + form + " -", &pixels), 0);
  return pixels;
}

Pixels Decode(const std::string& png, size_t width) {
  return {width, PixelsOf(png, "rgb24")};
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

Bytes With(Bytes bytes, size_t offset, uint64_t value, int count) {
  Put(&bytes, offset, value, count);
  return bytes;
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

int Interrupted(std::vector<std::string> words, int signal, bool isHeld, const std::string& folder,
                size_t files) {
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t process = 0;
  const int failure = posix_spawn(&process, pointers[0], &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  EXPECT_EQ(failure, 0) << words[0];
  int status = -1;
  if (failure != 0) return status;
  const auto pause = [] { std::this_thread::sleep_for(std::chrono::milliseconds(1)); };
  while (List(folder).size() < files && waitpid(process, &status, WNOHANG) == 0) pause();
  do {
    kill(process, signal);
    pause();
  } while (waitpid(process, &status, isHeld ? WNOHANG : 0) == 0);
  return status;
}

void ToolTest::WriteFloats(const std::string& name, uint32_t channels, uint32_t rate,
                           const std::vector<double>& samples) const {
  Bytes bytes(samples.size() * sizeof(double));
  if (!samples.empty()) std::memcpy(bytes.data(), samples.data(), bytes.size());
  Write(name, WaveFile(Record(3, channels, rate, 64), bytes));
}

void ToolTest::WriteHours(const std::string& name, const Bytes& record, uint64_t bytes) const {
  const Bytes start = With(WaveFile(record, {}), 4, bytes + 36, 4);
  MakeSparse(Path(name), With(start, 40, bytes, 4), 44 + bytes);
}

void ToolTest::Patch(const std::string& name, uint64_t offset, const std::string& bytes) const {
  std::fstream(Path(name), std::ios::in | std::ios::out | std::ios::binary)
      .seekp(static_cast<std::streamoff>(offset))
      .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

ToolRun ToolTest::Run(const std::string& line, const std::string& before) const {
  std::istringstream words(line);
  return Qnwave({std::istream_iterator<std::string>(words), {}}, "cd " + Path("; ") + before);
}

ToolRun ToolTest::Succeed(const std::string& line) const {
  const ToolRun run = Run(line + " --force --quiet");
  EXPECT_EQ(run.exit, 0) << line << "\n" << run.err;
  EXPECT_EQ(run.out, "") << line;
  return run;
}

Sound ToolTest::Made(const std::string& line, const std::string& out) const {
  Succeed(line + " " + out);
  return SoundOf(out);
}

void ToolTest::ExpectMistakes(std::initializer_list<Mistake> mistakes) const {
  for (const auto& [line, exit, said, before] : mistakes) {
    const std::vector<std::string> names = Names();
    ExpectRun(Run(line, before), exit, said);
    EXPECT_TRUE(exit == 0 || Names() == names) << line;
  }
}

}  // namespace qntest
