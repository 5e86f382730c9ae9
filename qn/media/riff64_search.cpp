#include "qn/media/chunkwalk_internal.h"
#include "qn/media/riff64.h"
#include "qn/media/riff64_internal.h"

namespace {

struct Wave64 {
  using Id = GUID;
  using Size = uint64_t;
  using Budget = int64_t;
  static constexpr Budget kHeaderSize = qn::kWave64HeaderSize;
  static constexpr uint32_t kTypeSize = qn::kWave64TypeSize;
  // The threshold of the 32-bit family, which hosts rely on here too.
  static constexpr Budget kLeastForType = 8;
  static constexpr GUID kListId = RIFF64_GUID_LIST;

  static bool ReadHeader(HANDLE file, GUID& id, uint64_t& size) {
    return qn::ReadWave64Header(file, id, size);
  }
  static uint64_t Padded(uint64_t size) { return qn::Wave64Padded(size); }

  static int64_t Spend(int64_t budget, uint64_t padded) { return Less(budget, kHeaderSize + padded); }
  static int64_t Drain(int64_t budget, uint64_t padded) { return Spend(budget, padded); }
  static int64_t SpendList(int64_t budget, uint64_t size) { return Less(budget, Padded(size) - kTypeSize); }

 private:
  // Without a floor: a budget that has gone negative ends a scan.
  static int64_t Less(int64_t budget, uint64_t bytes) {
    return static_cast<int64_t>(static_cast<uint64_t>(budget) - bytes);
  }
};

// Goes to the file's start and reads the budget of its form.
HRESULT EnterForm(HANDLE file, int64_t* budget) {
  qn::Seek(file, 0);
  uint64_t size;
  const HRESULT status = riff64_ReadFileID(file, &size, nullptr);
  *budget = static_cast<int64_t>(size);
  return status;
}

}  // namespace

HRESULT riff64_FindChunkHeader(HANDLE file, const GUID* id, uint64_t* size, int64_t* remaining) {
  if (!id) return E_INVALIDARG;
  return qn::FindChunk<Wave64>(file, *id, size, remaining);
}

HRESULT riff64_FindChunkHeaderInRIFF(HANDLE file, const GUID* id, uint64_t* size, int64_t* remaining) {
  if (!id) return E_INVALIDARG;
  int64_t budget;
  HRESULT status = EnterForm(file, &budget);
  if (FAILED(status)) return status;
  status = qn::FindChunk<Wave64>(file, *id, size, &budget);
  if (remaining) *remaining = budget;
  return status;
}

HRESULT riff64_FindListChunk(HANDLE file, const GUID* listType, uint64_t* size, int64_t* remaining) {
  if (!listType) return E_INVALIDARG;
  return qn::FindList<Wave64>(file, *listType, size, remaining);
}

HRESULT riff64_FindListChunkFromStart(HANDLE file, const GUID* listType, uint64_t* size) {
  if (!listType) return E_INVALIDARG;
  int64_t budget;
  const HRESULT status = EnterForm(file, &budget);
  if (FAILED(status)) return status;
  return qn::FindList<Wave64>(file, *listType, size, &budget);
}

HRESULT riff64_GetNumListEntries(HANDLE file, uint32_t* count, int64_t* remaining) {
  return qn::CountEntries<Wave64>(file, count, remaining);
}

HRESULT riff64_SeekListEntry(HANDLE file, int32_t index, int64_t* remaining) {
  return qn::SeekEntry<Wave64>(file, index, remaining);
}
