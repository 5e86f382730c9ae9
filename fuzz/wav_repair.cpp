// Repair of a file of any content. The first 21 bytes choose the container, the limit and the defaults. A
// repair that fails writes nothing; one that succeeds leaves a header that ends where the samples start,
// moves none of them, and finds nothing to do when it runs again.
#include <algorithm>
#include <cstring>
#include <fstream>
#include <vector>

#include "fuzz/fuzz_file.h"
#include "qn/media/qnwav.h"

using qnfuzz::Check;

namespace {

std::vector<uint8_t> Content(const qnfuzz::FuzzFile& file) {
  std::ifstream stream(file.Native(), std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(stream), {});
}

// Where the header at the start of a repaired file ends.
size_t HeaderEnd(const std::vector<uint8_t>& bytes, bool wave64) {
  uint32_t junk;
  std::memcpy(&junk, &bytes[wave64 ? 104 : 42], sizeof(junk));
  if (wave64) return std::memcmp(&bytes[88], "junk", 4) == 0 ? 112 + junk : 112;
  return std::memcmp(&bytes[38], "JUNK", 4) == 0 ? 54 + junk : 46;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t kParameters = 3 + sizeof(WAVEFORMATEX);
  if (size < kParameters) return 0;
  const bool wave64 = data[0] & 1;
  const uint32_t limit = data[1] | data[2] << 8;
  WAVEFORMATEX given;
  std::memcpy(&given, data + 3, sizeof(given));
  const WAVEFORMATEX* const defaults = data[0] & 2 ? &given : nullptr;
  const std::vector<uint8_t> before(data + kParameters, data + size);

  qnfuzz::FuzzFile file(before.data(), before.size());
  const auto repair = [&] {
    return wave64 ? QnFixTrashedW64(file, defaults, limit) : QnFixTrashedWav(file, defaults, limit);
  };
  const HRESULT status = repair();
  const std::vector<uint8_t> after = Content(file);
  if (status != S_OK) {
    Check(after == before, "a failed repair writes nothing");
  } else {
    const size_t start = HeaderEnd(after, wave64);
    Check(after.size() == std::max(start, before.size()), "the file keeps its length");
    if (start < before.size()) {
      Check(std::equal(before.begin() + start, before.end(), after.begin() + start), "no sample moves");
    }
    Check(repair() == S_OK && Content(file) == after, "a second repair changes nothing");
  }
  return 0;
}
