// Runs the tools, builds wave files byte by byte, and reads files with other programs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/support.h"

namespace qntest {

struct ToolRun {
  int exit = -1;
  std::string out;
  std::string err;
};

// Run a tool with arguments that are passed as they are. `before` is put in front of the command line in the
// shell, such as "ulimit -f 100;".
ToolRun Qnwave(const std::vector<std::string>& arguments, const std::string& before = "");
ToolRun Qntext(const std::vector<std::string>& arguments, const std::string& before = "");

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
};
Sound ReadSound(const std::string& path);

// Little-endian bytes of a file under construction.
class Builder {
 public:
  Builder& Text(const std::string& text);
  Builder& U16(uint32_t value) { return Number(value, 2); }
  Builder& U32(uint64_t value) { return Number(value, 4); }
  Builder& U64(uint64_t value) { return Number(value, 8); }
  Builder& Zeros(size_t count);
  Builder& Add(const Bytes& bytes);

  // A chunk with its pad byte.
  Builder& Chunk(const std::string& id, const Bytes& data);

  // "RIFF", a right size and "WAVE" in front of all.
  Bytes Wave() const;
  const Bytes& Get() const { return bytes_; }

 private:
  Builder& Number(uint64_t value, int count);
  Bytes bytes_;
};

// A format record of 16 bytes.
Bytes Record(uint32_t tag, uint32_t channels, uint32_t rate, uint32_t bits);

// Noise that is no chunk: every byte has its high bit set.
Bytes Noise(size_t count);

void Put(Bytes* bytes, size_t offset, uint64_t value, int count);
uint64_t Get(const Bytes& bytes, size_t offset, int count);

// A file of a length without the disk space.
void MakeSparse(const std::string& path, const Bytes& start, uint64_t length);

// The names of a folder, sorted.
std::vector<std::string> List(const std::string& folder);

}  // namespace qntest
