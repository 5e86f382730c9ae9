// An image of resources of any bytes: walked, searched, and as a file with a version text, an ELF file too.
#include "fuzz/resource_use.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qnfuzz::UseResources(data, size);
  qnfuzz::UseVersion(data, size);
  qnfuzz::UseVersionFile(data, size);
  return 0;
}
