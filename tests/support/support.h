// What tests of several folders share: scratch folders, whole-file access, random numbers with a seed that
// is printed and can be given.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace qntest {

using Bytes = std::vector<uint8_t>;

// A new empty folder for one test, removed with all in it at the end.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  // The native path of a name in the folder, and its form at the library's interface.
  std::string Native(const std::string& name) const { return path_ + "/" + name; }
  std::u16string Path(const std::string& name) const;

 private:
  std::string path_;
};

Bytes ReadFileBytes(const std::string& nativePath);
void WriteFileBytes(const std::string& nativePath, const Bytes& bytes);

// Runs a shell command and returns its exit code; its standard output goes to `*output` when given.
int RunCommand(const std::string& command, std::string* output = nullptr);

// A generator seeded from the environment variable QN_TEST_SEED, else with a fixed value; the seed is
// printed once.
std::mt19937_64& Random();

}  // namespace qntest
