// A Wave64 file of any bytes through every function that reads, searches, walks, deletes or updates.
#include "qn/media/riff64.h"

#include <cstring>
#include <vector>

#include "fuzz/fuzz_file.h"
#include "qn/platform/memory.h"

namespace {

using qnfuzz::Check;

uint64_t Position(HANDLE file) {
  uint64_t position = 0;
  riff64_SaveLocation(file, &position);
  return position;
}

uint64_t Length(HANDLE file) {
  LARGE_INTEGER size = {};
  GetFileSizeEx(file, &size);
  return static_cast<uint64_t>(size.QuadPart);
}

void ReadEverything(HANDLE file, uint64_t size) {
  std::vector<uint8_t> buffer(64);
  const uint64_t location = Position(file);
  riff_DataBlock block = {static_cast<uint32_t>(size), nullptr};
  if (SUCCEEDED(riff64_ReadDataAlloc(file, &block)) && block.data) {
    Check(block.size <= Length(file), "a block larger than the file");
    GlobalUnlock(GlobalHandle(block.data));
    Check(!GlobalFree(GlobalHandle(block.data)), "a block that is not freed");
  }
  riff64_RestoreLocation(file, location);
  riff64_ReadDataBounded(file, buffer.data(), static_cast<uint32_t>(size), 61);
  riff64_RestoreLocation(file, location);
  riff64_ReadData(file, buffer.data(), size % buffer.size());
}

void SearchEverything(HANDLE file, const GUID& id) {
  uint64_t size = 0;
  for (int64_t budget : {int64_t{-1}, int64_t{23}, int64_t{60}, int64_t{4000}, INT64_MAX}) {
    for (const auto find : {riff64_FindChunkHeader, riff64_FindListChunk}) {
      int64_t remaining = budget;
      riff64_SeekDataStart(file);
      if (SUCCEEDED(find(file, &id, &size, &remaining)))
        Check(Position(file) <= Length(file), "a find beyond the end");
    }
    uint32_t count = 0;
    int64_t remaining = budget;
    riff64_SeekDataStart(file);
    riff64_GetNumListEntries(file, &count, &remaining);
    Check(Position(file) == 40, "a count that moves");
    Check(uint64_t{count} * 24 <= Length(file), "more entries than headers");
    riff64_SeekListEntry(file, static_cast<int32_t>(count / 2), nullptr);
    riff64_SeekListEntry(file, 0x7FFFFFFF, &remaining);
  }
  riff64_SeekDataStart(file);
  riff64_FindListChunk(file, &id, &size, nullptr);
  riff64_FindListChunkFromStart(file, &id, &size);
  if (SUCCEEDED(riff64_FindChunkHeaderInRIFF(file, &id, &size, nullptr))) ReadEverything(file, size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const qnfuzz::FuzzFile input(data, size);
  const HANDLE file = input.Open();
  GUID id;
  uint64_t value;
  riff64_ReadFileID(file, &value, &id);
  riff64_ReadListHeader(file, &id, &value);

  // A host's own walk, and the ids that it meets.
  std::vector<GUID> ids = {RIFF64_GUID_FMT, RIFF64_GUID_LIST};
  riff64_SeekDataStart(file);
  for (uint64_t place = 0; SUCCEEDED(riff64_ReadChunkHeader(file, &id, &value)); place = Position(file)) {
    Check(Position(file) > place, "a walk that goes back");
    if (ids.size() < 8) ids.push_back(id);
    riff64_ValidateChunkHeader(id, value);
    riff64_SkipChunk(file, value);
  }
  for (const GUID& wanted : ids) SearchEverything(file, wanted);
  for (const GUID& wanted : ids) {
    uint64_t before = Length(file);
    while (SUCCEEDED(riff64_DeleteChunk(file, &wanted, &value))) {
      Check(Length(file) < before, "a deletion that removes nothing");
      Check(Position(file) == Length(file), "a deletion that ends elsewhere");
      before = Length(file);
    }
  }
  riff64_UpdateRIFFSize(file, 16);
  CloseHandle(file);
  return 0;
}
