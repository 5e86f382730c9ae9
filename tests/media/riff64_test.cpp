#include "qn/media/riff64.h"

#include <limits>

#include "qn/platform/memory.h"
#include "tests/media/chunk_file.h"

namespace {

using namespace qntest;

// An id that becomes a pointer where it is passed.
struct Key {
  explicit Key(const Bytes& bytes) { std::memcpy(&guid, bytes.data(), sizeof guid); }
  explicit Key(std::string_view text) : Key(Wave64Shape::Name(text)) {}
  operator const GUID*() const { return &guid; }
  GUID guid;
};

const Bytes kListId = Hex("'list' 2F 91 CF 11 A5 D6 28 DB 04 C1 00 00");

struct Riff64 : ::testing::Test, Wave64Shape {};

// The example of docs/formats/wave64.md.
const Bytes kExample =
    Hex("'riff' 2E 91 CF 11 A5 D6 28 DB 04 C1 00 00 90 00 00 00 00 00 00 00"
        "'wave' F3 AC D3 11 8C D1 00 C0 4F 8E DB 8A"
        "'data' F3 AC D3 11 8C D1 00 C0 4F 8E DB 8A 1B 00 00 00 00 00 00 00"
        "01 02 03 00 00 00 00 00"
        "'list' 2F 91 CF 11 A5 D6 28 DB 04 C1 00 00 48 00 00 00 00 00 00 00"
        "'note' F3 AC D3 11 8C D1 00 C0 4F 8E DB 8A"
        "'junk' F3 AC 3D 11 8C D1 00 C0 4F 8E DB 8A 20 00 00 00 00 00 00 00"
        "04 05 00 00 00 00 00 00");

TEST_F(Riff64, WritesTheDocumentedBytes) {
  const ChunkFile file;
  uint64_t written = 0;
  uint64_t start = 0;
  EXPECT_EQ(riff64_WriteFileID(file, &RIFF64_GUID_WAVE, 120), S_OK);
  EXPECT_EQ(riff64_WriteChunk(file, &RIFF64_GUID_DATA, "\1\2\3", 3, &written), S_OK);
  EXPECT_EQ(written, 32u);
  EXPECT_EQ(riff64_PrepareList(file, Key("note"), &start), S_OK);
  EXPECT_EQ(start, 72u);
  EXPECT_EQ(riff64_WriteChunkToFile(file, &RIFF64_GUID_JUNK, "\4\5", 2), S_OK);
  EXPECT_EQ(riff64_AmountWritten(file, start), 72u);
  EXPECT_EQ(riff64_CompleteChunk(file, start), S_OK);
  EXPECT_EQ(file.At(), 144u);
  EXPECT_EQ(file.Content(), kExample);

  // The other ids of the table.
  EXPECT_EQ(std::memcmp(&RIFF64_GUID_RIFF, kExample.data(), 16), 0);
  EXPECT_EQ(std::memcmp(&RIFF64_GUID_LIST, kExample.data() + 72, 16), 0);
  EXPECT_EQ(std::memcmp(&RIFF64_GUID_FMT, Name("fmt ").data(), 16), 0);
}

TEST_F(Riff64, WritesSizesAndPadding) {
  const ChunkFile file(Bytes(3, 9));
  uint64_t written = 0;
  uint64_t start = 0;
  file.Go(3);
  EXPECT_EQ(riff64_PrepareChunk(file, Key("aaaa"), &start), S_OK);
  EXPECT_EQ(start, 3u);
  EXPECT_EQ(riff64_WriteToFile(file, "\1\2\3", 3), S_OK);
  EXPECT_EQ(riff64_WriteData(file, "\4\5", 0x300000002, &written), S_OK);
  EXPECT_EQ(written, 8u);
  EXPECT_EQ(riff64_CompleteChunk(file, start), S_OK);
  EXPECT_EQ(file.At(), 3 + 40u);
  EXPECT_EQ(riff64_WriteChunkHeader(file, Key("bbbb"), 18), S_OK);
  EXPECT_EQ(riff64_WriteListHeader(file, Key("cccc"), 20), S_OK);
  EXPECT_EQ(riff64_Pad(file, start), S_OK);
  EXPECT_EQ(riff64_Pad(file, start + 5), S_OK);
  EXPECT_EQ(riff64_Pad(file, start + 1000 * 8), S_OK);
  EXPECT_EQ(file.Content(), Bytes(3, 9) + Name("aaaa") + Le(40, 8) + Hex("01 02 03 04 05 *6 *5") +
                                Name("bbbb") + Le(42, 8) + kListId + Le(44, 8) + Name("cccc") + Bytes(8));

  const ChunkFile form(kExample);
  form.Go(50);
  EXPECT_EQ(riff64_SetRIFFSize(form, 0xFFFFFFFF00), S_OK);
  EXPECT_EQ(riff64_UpdateRIFFSize(form, std::numeric_limits<int64_t>::max()), S_OK);
  EXPECT_EQ(riff64_UpdateRIFFSize(form, -8), S_OK);
  EXPECT_EQ(form.At(), 50u);
  EXPECT_EQ(form.Content(), Form(Bytes(kExample.begin() + 40, kExample.end()), 0x800000FFFFFFFF0F));
}

TEST_F(Riff64, ReadsTheDocumentedBytesInOrder) {
  const ChunkFile file(kExample, GENERIC_READ);
  GUID id;
  uint64_t size, location;
  EXPECT_EQ(riff64_ReadFileID(file, &size, &id), S_OK);
  EXPECT_EQ(id, RIFF64_GUID_WAVE);
  EXPECT_EQ(size, 104u);
  EXPECT_EQ(riff64_ReadChunkHeader(file, &id, &size), S_OK);
  EXPECT_EQ(id, RIFF64_GUID_DATA);
  EXPECT_EQ(size, 3u);
  EXPECT_EQ(riff64_SaveLocation(file, &location), S_OK);
  EXPECT_EQ(location, 64u);
  EXPECT_EQ(riff64_SkipChunk(file, size), 8u);
  EXPECT_EQ(riff64_ReadListHeader(file, &id, &size), S_OK);
  EXPECT_EQ(id, *Key("note"));
  EXPECT_EQ(size, 32u);
  EXPECT_EQ(file.At(), 112u);
  EXPECT_EQ(riff64_ReadListHeader(file, &id, &size), QN_E_LIST_HEADER);
  EXPECT_EQ(size, 8u);
  EXPECT_EQ(riff64_RestoreLocation(file, 64), S_OK);
  EXPECT_EQ(file.At(), 64u);
  EXPECT_EQ(riff64_SeekDataStart(file), S_OK);
  EXPECT_EQ(file.At(), 40u);
  EXPECT_EQ(riff64_getGUIDLabel(), 0);
  EXPECT_EQ(riff64_getGUIDLabelProperly(), 0);

  const struct {
    uint64_t size;
    HRESULT status;
  } kSizes[] = {{0, QN_E_CHUNK_EMPTY},     {8, S_OK},
                {12, QN_E_CHUNK_SIZE},     {9, QN_E_CHUNK_SIZE},
                {1, QN_E_CHUNK_SIZE},      {uint64_t{1} << 35, QN_E_CHUNK_SIZE},
                {uint64_t{1} << 34, S_OK}, {uint64_t{1} << 40, S_OK},
                {uint64_t{1} << 63, S_OK}};
  for (const auto& row : kSizes) EXPECT_EQ(riff64_ValidateChunkHeader(id, row.size), row.status) << row.size;
}

TEST_F(Riff64, BrokenHeaders) {
  for (ptrdiff_t length = 0; length <= 40; ++length) {
    const ChunkFile file(Bytes(kExample.begin(), kExample.begin() + length));
    const HRESULT expected = length < 24 ? QN_E_RIFF_HEADER : length < 40 ? kShort : S_OK;
    EXPECT_EQ(riff64_ReadFileID(file, nullptr, nullptr), expected) << length;
  }
  const ChunkFile tiny(Form({}, 10));
  uint64_t size = 9;
  int64_t remaining = 9;
  EXPECT_EQ(riff64_ReadFileID(tiny, &size, nullptr), S_OK);
  EXPECT_EQ(static_cast<int64_t>(size), -16);
  EXPECT_EQ(riff64_FindChunkHeaderInRIFF(tiny, Key("aaaa"), &size, &remaining), kMissing);
  EXPECT_EQ(remaining, -16);

  // Sizes that do not hold the header: none for a chunk, and no floor for a list.
  const ChunkFile stunted(Name("aaaa") + Le(23, 8) + kListId + Le(10, 8) + Name("bbbb"));
  GUID id;
  EXPECT_EQ(riff64_ReadChunkHeader(stunted, &id, &size), S_OK);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(riff64_ReadListHeader(stunted, &id, &size), S_OK);
  EXPECT_EQ(static_cast<int64_t>(size), 10 - 24 - 16);
  const Bytes other = RiffShape::Form(Bytes(60));
  const ChunkFile riff(other);
  EXPECT_EQ(riff64_FindListChunkFromStart(riff, Key("aaaa"), nullptr), QN_E_RIFF_HEADER);
  EXPECT_EQ(riff64_DeleteChunk(riff, Key("aaaa"), &size), QN_E_RIFF_HEADER);
  EXPECT_EQ(riff.Content(), other);
}

TEST_F(Riff64, DataReadersEndWhereTheirPadSays) {
  const ChunkFile file(Bytes(16, 7));
  uint8_t buffer[16];
  const struct {
    uint64_t size, end;
  } kWhole[] = {{0, 0}, {1, 8}, {8, 8}, {9, 16}, {0x700000003, 8}, {16, 16}};
  for (const auto& row : kWhole) {
    file.Go(0);
    EXPECT_EQ(riff64_ReadData(file, buffer, row.size), S_OK);
    EXPECT_EQ(file.At(), row.end) << row.size;
  }
  const struct {
    uint32_t chunk, buffer;
    uint64_t end;
  } kBounded[] = {{5, 4, 9}, {5, 3, 8}, {8, 16, 8}, {99, 2, 101}, {16, 0, 16}};
  for (const auto& row : kBounded) {
    file.Go(0);
    EXPECT_EQ(riff64_ReadDataBounded(file, buffer, row.chunk, row.buffer), S_OK);
    EXPECT_EQ(file.At(), row.end) << row.chunk << "/" << row.buffer;
  }
  for (uint32_t size : {0u, 5u, 8u, 17u, ~0u}) {
    riff_DataBlock block = {size, &block};
    file.Go(0);
    EXPECT_EQ(riff64_ReadDataAlloc(file, &block), size > 16 ? kShort : S_OK);
    EXPECT_EQ(block.data != nullptr, size == 5 || size == 8);
    EXPECT_EQ(file.At(), size > 16 ? 16u : (size + 7) / 8 * 8);
    GlobalFree(GlobalHandle(block.data));
  }
}

// A scan from offset 40: its budget, if any, and what it must leave.
struct Scan {
  const char* id;
  std::optional<int64_t> budget;
  HRESULT status;
  int64_t rest;
  uint64_t end;
};

void CheckScan(const ChunkFile& file, const Scan& scan,
               HRESULT (*find)(HANDLE, const GUID*, uint64_t*, int64_t*)) {
  int64_t remaining = scan.budget.value_or(0);
  file.Go(40);
  EXPECT_EQ(find(file, Key(scan.id), nullptr, scan.budget ? &remaining : nullptr), scan.status);
  EXPECT_EQ(file.At(), scan.end) << scan.id << " " << scan.budget.value_or(0);
  EXPECT_EQ(remaining, scan.rest) << scan.id << " " << scan.budget.value_or(0);
}

TEST_F(Riff64, SearchSpendsItsBudget) {
  const ChunkFile chunks(Form(Chunk("aaaa", {1, 2, 3}) + Chunk("bbbb", Bytes(8)) + Chunk("cccc", {})));
  const Scan kChunks[] = {
      {"aaaa", 24, kFound, 0, 64},     {"aaaa", 23, kMissing, 23, 40}, {"aaaa", -1, kMissing, -1, 40},
      {"bbbb", 88, kFound, 32, 96},    {"bbbb", 56, kFound, 0, 96},    {"bbbb", 55, kMissing, 23, 72},
      {"bbbb", 30, kMissing, -2, 72},  {"bbbb", {}, kFound, 0, 96},    {"none", 88, kMissing, 0, 128},
      {"none", 900, kShort, 900, 128}, {"none", {}, kShort, 0, 128}};
  for (const Scan& scan : kChunks) CheckScan(chunks, scan, riff64_FindChunkHeader);
  int64_t remaining = 7;
  EXPECT_EQ(riff64_SetRIFFSize(chunks, 500), S_OK);
  EXPECT_EQ(riff64_FindChunkHeaderInRIFF(chunks, Key("none"), nullptr, &remaining), kShort);
  EXPECT_EQ(remaining, 484);

  const ChunkFile lists(
      Form(List("aaaa", {}) + List("bbbb", {1, 2, 3}) + Chunk("junk", {1}) + List("cccc", {})));
  const Scan kLists[] = {{"aaaa", 40, kFound, 0, 80},     {"aaaa", 32, kFound, -8, 80},
                         {"aaaa", 31, kMissing, 7, 64},   {"bbbb", 160, kFound, 80, 120},
                         {"cccc", 160, kFound, 0, 200},   {"cccc", {}, kFound, 0, 200},
                         {"none", 160, kMissing, 0, 200}, {"none", 190, kShort, 30, 200}};
  for (const Scan& scan : kLists) CheckScan(lists, scan, riff64_FindListChunk);
  uint64_t size = 0;
  EXPECT_EQ(riff64_FindListChunkFromStart(lists, Key("bbbb"), &size), S_OK);
  EXPECT_EQ(size, 3u);

  // A list without room for its type is left at its end.
  for (uint64_t stored : {0, 24}) {
    const ChunkFile file(Form(kListId + Le(stored, 8) + List("cccc", {})));
    CheckScan(file, {"cccc", 64, kFound, 0, 104}, riff64_FindListChunk);
  }
}

TEST_F(Riff64, ListWalksEndBelowZero) {
  const ChunkFile file(Form(Chunk("aaaa", {1, 2, 3}) + Chunk("bbbb", Bytes(8)) + Chunk("cccc", {})));
  const struct {
    int64_t budget;
    uint32_t count;
    int64_t rest;
  } kCounts[] = {{88, 3, 0}, {87, 2, 23}, {60, 2, -4}, {-5, 0, -5}};
  for (const auto& row : kCounts) {
    int64_t remaining = row.budget;
    uint32_t count = 77;
    file.Go(40);
    EXPECT_EQ(riff64_GetNumListEntries(file, &count, &remaining), S_OK);
    EXPECT_EQ(count, row.count) << row.budget;
    EXPECT_EQ(remaining, row.rest) << row.budget;
    EXPECT_EQ(file.At(), 40u);
    remaining = row.budget;
    EXPECT_EQ(riff64_SeekListEntry(file, static_cast<int32_t>(row.count), &remaining), S_OK);
    EXPECT_EQ(file.At(), 40 + row.count * 32 - (row.count == 3 ? 8 : 0));
    EXPECT_EQ(riff64_SeekListEntry(file, 1, &remaining), kMissing);
  }
}

TEST_F(Riff64, NoSizeLeadsBackwards) {
  for (uint64_t stored :
       {~uint64_t{0}, 0 - uint64_t{24}, (uint64_t{1} << 63) + 24, (uint64_t{1} << 63) - 64}) {
    for (const Bytes& name : {Name("aaaa"), kListId}) {
      const ChunkFile file(Form(name + Le(stored, 8) + Chunk("bbbb", Bytes(50)), 200));
      for (const auto find : {riff64_FindChunkHeader, riff64_FindListChunk}) {
        file.Go(40);
        EXPECT_EQ(find(file, Key("cccc"), nullptr, nullptr), kShort);
      }
      uint32_t count = 0;
      file.Go(40);
      EXPECT_EQ(riff64_GetNumListEntries(file, &count, nullptr), kShort);
      EXPECT_EQ(count, 1u);
      EXPECT_EQ(riff64_SeekListEntry(file, std::numeric_limits<int32_t>::max(), nullptr), kShort);
      // Deleting the chunk cuts the file at its start.
      uint64_t deleted = 0;
      EXPECT_EQ(riff64_DeleteChunk(file, Key(name), &deleted), S_OK);
      EXPECT_EQ(deleted, (stored - 24 + 7) / 8 * 8 + 24);
      EXPECT_EQ(file.Content(), Form({}, 200 - deleted));
      EXPECT_EQ(file.At(), 40u);
    }
  }
}

TEST_F(Riff64, FailingWritesAndNullArguments) {
  const ChunkFile file(kExample, GENERIC_READ);
  const Key id("aaaa");
  GUID type;
  uint64_t value = 5;
  for (HRESULT status :
       {riff64_WriteData(file, "ab", 2, &value), riff64_WriteToFile(file, "ab", 2),
        riff64_WriteChunk(file, id, "ab", 2, &value), riff64_WriteListHeader(file, id, 4),
        riff64_WriteFileID(file, id, 4), riff64_WriteChunkToFile(file, id, "ab", 2),
        riff64_CompleteChunk(file, 0), riff64_SetRIFFSize(file, 1), riff64_UpdateRIFFSize(file, 1)}) {
    EXPECT_EQ(status, QN_E_FILE_WRITE);
  }
  for (HRESULT status : {riff64_SaveLocation(file, nullptr), riff64_ReadChunkHeader(file, nullptr, &value),
                         riff64_ReadListHeader(file, &type, nullptr), riff64_ReadData(file, nullptr, 1),
                         riff64_ReadDataAlloc(file, nullptr), riff64_WriteChunk(file, nullptr, "", 0, &value),
                         riff64_WriteListHeader(file, nullptr, 0), riff64_PrepareChunk(file, id, nullptr),
                         riff64_FindChunkHeader(file, nullptr, &value, nullptr),
                         riff64_FindListChunk(file, nullptr, &value, nullptr),
                         riff64_GetNumListEntries(file, nullptr, nullptr)}) {
    EXPECT_EQ(status, E_INVALIDARG);
  }
  EXPECT_EQ(value, 5u);
  EXPECT_EQ(file.At(), 0u);
  EXPECT_EQ(riff64_DeleteChunk(file, nullptr, &value), E_INVALIDARG);
  EXPECT_EQ(value, 0u);
}

TEST_F(Riff64, PlacesBeyondFourGigabytes) {
  constexpr uint64_t kData = 0x140000001;
  constexpr uint64_t kTail = 40 + 24 + kData + 7;
  const ChunkFile file(Form(Name("data") + Le(kData + 24, 8), kTail + 32));
  file.Put(kTail, Chunk("tail", {1, 2, 3}));
  uint64_t size, location;
  EXPECT_EQ(riff64_FindChunkHeaderInRIFF(file, Key("data"), &size, nullptr), S_OK);
  EXPECT_EQ(size, kData);
  EXPECT_EQ(riff64_FindChunkHeaderInRIFF(file, Key("tail"), &size, nullptr), S_OK);
  EXPECT_EQ(riff64_SaveLocation(file, &location), S_OK);
  EXPECT_EQ(location, kTail + 24);
  EXPECT_EQ(riff64_SetRIFFSize(file, kTail + 8), S_OK);
  EXPECT_EQ(riff64_DeleteChunk(file, Key("tail"), &size), S_OK);
  EXPECT_EQ(file.Length(), kTail);
  EXPECT_EQ(file.At(), kTail);
  EXPECT_EQ(riff64_RestoreLocation(file, location), S_OK);
  EXPECT_EQ(file.At(), location);
}

TEST_F(Riff64, WalksAFileOfAnotherProgram) {
  if (!HasProgram("ffmpeg")) GTEST_SKIP() << "no ffmpeg";
  const ScratchFolder folder;
  ASSERT_EQ(RunCommand("ffmpeg -v error -f lavfi -i sine=duration=0.01 -ac 1 -ar 44100 -c:a pcm_u8 " +
                       folder.Native("a.w64")),
            0);
  const ChunkFile file(ReadFileBytes(folder.Native("a.w64")), GENERIC_READ);
  uint64_t size = 0;
  EXPECT_EQ(riff64_FindChunkHeaderInRIFF(file, &RIFF64_GUID_FMT, &size, nullptr), S_OK);
  EXPECT_EQ(size, 16u);
  EXPECT_EQ(riff64_FindChunkHeaderInRIFF(file, &RIFF64_GUID_DATA, &size, nullptr), S_OK);
  // Whether the padding counts is the writer's affair.
  EXPECT_EQ((size + 7) / 8 * 8, 448u);
}

}  // namespace
