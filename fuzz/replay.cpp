// Runs a fuzz target over the files of the folders given, without a fuzzing engine. Each input is
// copied into an allocation of its exact size, so that the address sanitizer sees a read past its end.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void Replay(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> content(std::istreambuf_iterator<char>(file), {});
  const std::unique_ptr<uint8_t[]> copy(new uint8_t[content.size()]);
  std::copy(content.begin(), content.end(), copy.get());
  LLVMFuzzerTestOneInput(copy.get(), content.size());
}

}  // namespace

int main(int argc, char** argv) {
  int runs = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      Replay(entry.path());
      ++runs;
    }
  }
  std::printf("%d inputs\n", runs);
  return runs > 0 ? 0 : 1;
}
