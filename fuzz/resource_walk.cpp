// An image of resources of any bytes: walked, searched, and as a file with a version text.
#include <vector>

#include "fuzz/fuzz_file.h"
#include "fuzz/resource_use.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qnfuzz::UseResources(data, size);
  qnfuzz::UseVersion(data, size);
  qnfuzz::FuzzFile file(data, size);
  DWORD handle;
  const DWORD bytes = GetFileVersionInfoSizeW(file.Path(), &handle);
  qnfuzz::Check(bytes <= size, "a version text larger than its file");
  std::vector<uint8_t> block(bytes);
  if (bytes == 0) return 0;
  qnfuzz::Check(GetFileVersionInfoW(file.Path(), 0, bytes, block.data()),
                "a version text that cannot be read");
  qnfuzz::UseVersion(block.data(), block.size());
  return 0;
}
