#include "tests/support/support.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "qn/platform/text.h"

namespace qntest {

ScratchFolder::ScratchFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "qntest.XXXXXX").string();
  if (!mkdtemp(pattern.data())) std::abort();
  path_ = pattern;
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::u16string ScratchFolder::Path(const std::string& name) const {
  return qn::PathFromNative(Native(name));
}

Bytes ReadFileBytes(const std::string& nativePath) {
  std::ifstream file(nativePath, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

void WriteFileBytes(const std::string& nativePath, const Bytes& bytes) {
  std::ofstream file(nativePath, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

int RunCommand(const std::string& command, std::string* output) {
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return -1;
  char buffer[4096];
  while (size_t got = fread(buffer, 1, sizeof buffer, pipe)) {
    if (output) output->append(buffer, got);
  }
  const int status = pclose(pipe);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::mt19937_64& Random() {
  static std::mt19937_64 generator = [] {
    const char* given = std::getenv("QN_TEST_SEED");
    const uint64_t seed = given ? std::strtoull(given, nullptr, 0) : 20261121;
    std::printf("QN_TEST_SEED=%llu\n", static_cast<unsigned long long>(seed));
    return std::mt19937_64(seed);
  }();
  return generator;
}

}  // namespace qntest
