#include "qn/media/chunkwalk_internal.h"
#include "qn/media/riff.h"

namespace {

struct Riff {
  using Id = uint32_t;
  using Size = uint32_t;
  using Budget = uint32_t;
  static constexpr uint32_t kHeaderSize = 8;
  static constexpr uint32_t kTypeSize = 4;
  static constexpr uint32_t kLeastForType = 4;
  static constexpr uint32_t kListId = RIFF_ID_LIST;

  static bool ReadHeader(HANDLE file, uint32_t& id, uint32_t& size) {
    return qn::ReadField(file, id) && qn::ReadField(file, size);
  }
  static uint64_t Padded(uint32_t size) { return uint64_t{size} + (size & 1); }

  // A chunk that overruns the budget uses it up.
  static uint32_t Spend(uint32_t budget, uint64_t padded) {
    const uint64_t spent = kHeaderSize + padded;
    return spent < budget ? static_cast<uint32_t>(budget - spent) : 0;
  }
  // List walks wrap instead: hosts rely on it.
  static uint32_t Drain(uint32_t budget, uint64_t padded) {
    return static_cast<uint32_t>(budget - kHeaderSize - padded);
  }
  // A list that does not hold its own type is damage that a scan with a budget does not go beyond.
  static uint32_t SpendList(uint32_t budget, uint32_t size) {
    if (size < kTypeSize) return 0;
    const uint64_t rest = Padded(size) - kTypeSize;
    return rest < budget ? static_cast<uint32_t>(budget - rest) : 0;
  }
};

// Goes to the file's start and reads the budget of its form.
HRESULT EnterForm(HANDLE file, uint32_t* budget) {
  qn::Seek(file, 0);
  return riff_ReadFileID(file, budget, nullptr);
}

}  // namespace

HRESULT riff_FindChunkHeader(HANDLE file, uint32_t id, uint32_t* size, uint32_t* remaining) {
  return qn::FindChunk<Riff>(file, id, size, remaining);
}

HRESULT riff_FindChunkHeaderInRIFF(HANDLE file, uint32_t id, uint32_t* size, uint32_t* remaining) {
  uint32_t budget;
  HRESULT status = EnterForm(file, &budget);
  if (FAILED(status)) return status;
  status = qn::FindChunk<Riff>(file, id, size, &budget);
  if (remaining) *remaining = budget;
  return status;
}

HRESULT riff_FindListChunk(HANDLE file, uint32_t listType, uint32_t* size, uint32_t* remaining) {
  return qn::FindList<Riff>(file, listType, size, remaining);
}

HRESULT riff_FindListChunkFromStart(HANDLE file, uint32_t listType, uint32_t* size) {
  uint32_t budget;
  const HRESULT status = EnterForm(file, &budget);
  if (FAILED(status)) return status;
  return qn::FindList<Riff>(file, listType, size, &budget, Riff::kHeaderSize + Riff::kTypeSize);
}

HRESULT riff_GetNumListEntries(HANDLE file, uint32_t* count, uint32_t* remaining) {
  return qn::CountEntries<Riff>(file, count, remaining);
}

HRESULT riff_SeekListEntry(HANDLE file, int32_t index, uint32_t* remaining) {
  return qn::SeekEntry<Riff>(file, index, remaining);
}
