// Runs a fuzz target over the files of the folders and files given, without a fuzzing engine. Each input is
// copied into an allocation of its exact size, so that the address sanitizer sees a read past its end.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

int Replay(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> content(std::istreambuf_iterator<char>(file), {});
  const std::unique_ptr<uint8_t[]> copy(new uint8_t[content.size()]);
  for (size_t i = 0; i < content.size(); ++i) copy[i] = static_cast<uint8_t>(content[i]);
  LLVMFuzzerTestOneInput(copy.get(), content.size());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  int runs = 0;
  for (int i = 1; i < argc; ++i) {
    if (!std::filesystem::is_directory(argv[i])) {
      runs += Replay(argv[i]);
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      if (entry.is_regular_file()) runs += Replay(entry.path());
    }
  }
  std::printf("%d inputs\n", runs);
  return runs > 0 ? 0 : 1;
}
