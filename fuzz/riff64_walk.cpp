// A Wave64 file of any bytes through every function that reads, searches, walks, deletes or updates.
#include "qn/media/riff64.h"

#include "fuzz/chunk_walk.h"

namespace {

struct Wave64 {
  using Id = GUID;
  using Size = uint64_t;
  using Budget = int64_t;
  static constexpr bool kGainsBudget = true;  // from sizes beyond the signed range
  QN_CHUNK_CALLS(riff64);
  static const GUID* Key(const GUID& id) { return &id; }
  static HRESULT Delete(HANDLE file, const GUID& id, Size* deleted, bool) {
    return riff64_DeleteChunk(file, &id, deleted);
  }
  static void ReadTexts(HANDLE, Size, Size) {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qnfuzz::FuzzFile file(data, size);
  GUID id;
  uint64_t value;
  riff64_ReadFileID(file, &value, &id);
  riff64_ReadListHeader(file, &id, &value);
  qnfuzz::WalkEverything<Wave64>(file, {RIFF64_GUID_FMT, RIFF64_GUID_LIST});
  return 0;
}
