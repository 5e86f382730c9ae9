// A RIFF file of any bytes through every function that reads, searches, walks, deletes or updates.
#include "qn/media/riff.h"

#include <set>
#include <vector>

#include "fuzz/fuzz_file.h"
#include "qn/platform/memory.h"

namespace {

using qnfuzz::Check;

uint64_t Position(HANDLE file) {
  LARGE_INTEGER none = {};
  LARGE_INTEGER position = {};
  SetFilePointerEx(file, none, &position, FILE_CURRENT);
  return static_cast<uint64_t>(position.QuadPart);
}

uint64_t Length(HANDLE file) {
  LARGE_INTEGER size = {};
  GetFileSizeEx(file, &size);
  return static_cast<uint64_t>(size.QuadPart);
}

// Reads the data at the position in every way, each ending at a later place or where it began.
void ReadEverything(HANDLE file, uint32_t size) {
  std::vector<uint8_t> buffer(64);
  uint32_t location;
  riff_SaveLocation(file, &location);
  riff_DataBlock block = {size, nullptr};
  if (SUCCEEDED(riff_ReadDataAlloc(file, &block)) && block.data) {
    Check(size <= Length(file), "a block larger than the file");
    GlobalUnlock(GlobalHandle(block.data));
    Check(!GlobalFree(GlobalHandle(block.data)), "a block that is not freed");
  }
  riff_RestoreLocation(file, location);
  riff_ReadDataBounded(file, buffer.data(), size, static_cast<uint32_t>(buffer.size()) - size % 2);
  riff_RestoreLocation(file, location);
  riff_ReadData(file, buffer.data(), size % buffer.size());
  for (int32_t length : {-1, 0, 1, 16, 64}) {
    std::vector<char16_t> text(64, u'#');
    uint32_t textSize = size;
    riff_RestoreLocation(file, location);
    if (FAILED(riff_ReadANSIString(file, text.data(), length, &textSize))) continue;
    Check(textSize == size + 1, "the size of a text");
    Check(length <= 0 || text[static_cast<size_t>(length) - 1] == 0, "a text without an end");
    Check(length >= 64 || text[length > 0 ? static_cast<size_t>(length) : 0] == u'#',
          "a text beyond its room");
  }
  riff_RestoreLocation(file, location);
}

void SearchEverything(HANDLE file, uint32_t id) {
  uint32_t size = 0;
  for (uint32_t budget : {0u, 7u, 20u, 1000u, 0xFFFFFFFFu}) {
    for (const auto find : {riff_FindChunkHeader, riff_FindListChunk}) {
      uint32_t remaining = budget;
      riff_SeekDataStart(file);
      if (SUCCEEDED(find(file, id, &size, &remaining)))
        Check(Position(file) <= Length(file), "a find beyond the end");
      Check(remaining <= budget, "a search that gains budget");
    }
    uint32_t count = 0;
    uint32_t remaining = budget;
    riff_SeekDataStart(file);
    riff_GetNumListEntries(file, &count, &remaining);
    Check(Position(file) == 12, "a count that moves");
    Check(uint64_t{count} * 8 <= Length(file), "more entries than headers");
    riff_SeekListEntry(file, static_cast<int32_t>(count / 2), nullptr);
    riff_SeekListEntry(file, 0x7FFFFFFF, &remaining);
  }
  riff_SeekDataStart(file);
  riff_FindListChunk(file, id, &size, nullptr);
  riff_FindListChunkFromStart(file, id, &size);
  if (SUCCEEDED(riff_FindChunkHeaderInRIFF(file, id, &size, nullptr))) ReadEverything(file, size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const qnfuzz::FuzzFile input(data, size);
  const HANDLE file = input.Open();
  uint32_t form, value, id;
  uint8_t format[24];
  riff_ReadFileID(file, &value, &form);
  riff_GetFileSize(file, &value);
  riff_ReadCDAFile(input.Path(), &value, &value, &value, &value, &value);
  riff_RestoreLocation(file, 0);
  riff_ReadRIFFCDDA(file, format);
  riff_SeekDataStart(file);
  riff_ReadListHeader(file, &id, &value);

  // A host's own walk, and the ids that it meets.
  std::set<uint32_t> ids = {RIFF_ID_FMT, RIFF_ID_LIST};
  riff_SeekDataStart(file);
  for (uint64_t place = 0; SUCCEEDED(riff_ReadChunkHeader(file, &id, &value)); place = Position(file)) {
    Check(Position(file) > place, "a walk that goes back");
    if (ids.size() < 8) ids.insert(id);
    riff_ValidateChunkHeader(id, static_cast<int32_t>(value));
    riff_SkipChunk(file, value);
  }
  for (uint32_t wanted : ids) SearchEverything(file, wanted);
  for (uint32_t wanted : ids) {
    for (int32_t isList : {1, 0}) {
      uint64_t before = Length(file);
      while (SUCCEEDED(riff_DeleteChunk(file, wanted, &value, isList))) {
        Check(Length(file) < before, "a deletion that removes nothing");
        Check(Position(file) == Length(file), "a deletion that ends elsewhere");
        before = Length(file);
      }
    }
  }
  // The updated size can ask for a file of 4 GiB, which costs nothing: it is a hole.
  riff_UpdateRIFFSize(file, 16);
  riff_SetRIFFSize(file, 16);
  CloseHandle(file);
  return 0;
}
