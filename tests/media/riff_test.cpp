#include "qn/media/riff.h"

#include <limits>
#include <vector>

#include "qn/platform/locale.h"
#include "qn/platform/memory.h"
#include "tests/media/chunk_file.h"

namespace {

using namespace qntest;

constexpr uint32_t Id(const char (&text)[5]) {
  uint32_t id = 0;
  for (int i = 3; i >= 0; --i) id = id << 8 | static_cast<uint8_t>(text[i]);
  return id;
}

struct Riff : ::testing::Test, RiffShape {};

// The examples of docs/formats/riff.md.
const Bytes kExample =
    Hex("'RIFF' 26 00 00 00 'WAVE'"
        "'note' 03 00 00 00 01 02 03 00"
        "'LIST' 0E 00 00 00 'INFO'"
        "'INAM' 02 00 00 00 'H' 00");
const Bytes kShortcut =
    Hex("'RIFF' 24 00 00 00 'CDDA' 'fmt ' 18 00 00 00 01 00 02 00 78 56 34 12 9D 4E 00 00"
        "98 3A 00 00 19 1E 04 00 00 00 00 00");

TEST_F(Riff, WritesTheDocumentedBytes) {
  const ChunkFile file;
  uint32_t written = 0;
  WCHAR title[] = u"H";
  EXPECT_EQ(riff_WriteFileID(file, Id("WAVE"), 38), S_OK);
  EXPECT_EQ(riff_WriteChunk(file, Id("note"), "\1\2\3", 3, &written), S_OK);
  EXPECT_EQ(written, 12u);
  EXPECT_EQ(riff_WriteListHeader(file, Id("INFO"), 14), S_OK);
  EXPECT_EQ(riff_WriteChunkHeader(file, Id("INAM"), 2), S_OK);
  EXPECT_EQ(riff_WriteANSIString(file, title, &written), S_OK);
  EXPECT_EQ(written, 2u);
  EXPECT_EQ(file.Content(), kExample);

  EXPECT_EQ(riff_WriteChunk(file, Id("even"), "\1\2", 2, nullptr), S_OK);
  EXPECT_EQ(riff_SetRIFFSize(file, 48), S_OK);
  EXPECT_EQ(file.At(), 56u);
  EXPECT_EQ(file.Content(), Form(Bytes(kExample.begin() + 12, kExample.end()) + Chunk("even", {1, 2})));
}

TEST_F(Riff, ReadsTheDocumentedBytesInOrder) {
  const ChunkFile file(kExample, GENERIC_READ);
  uint32_t id, size, location;
  EXPECT_EQ(riff_ReadFileID(file, &size, &id), S_OK);
  EXPECT_EQ(id, Id("WAVE"));
  EXPECT_EQ(size, 34u);
  EXPECT_EQ(riff_ReadChunkHeader(file, &id, &size), S_OK);
  EXPECT_EQ(id, Id("note"));
  EXPECT_EQ(size, 3u);
  EXPECT_EQ(riff_SaveLocation(file, &location), S_OK);
  EXPECT_EQ(location, 20u);
  EXPECT_EQ(riff_SkipChunk(file, size), 4u);
  EXPECT_EQ(riff_ReadListHeader(file, &id, &size), S_OK);
  EXPECT_EQ(id, Id("INFO"));
  EXPECT_EQ(size, 10u);
  EXPECT_EQ(file.At(), 36u);

  EXPECT_EQ(riff_RestoreLocation(file, 12), S_OK);
  EXPECT_EQ(riff_ReadListHeader(file, &id, &size), QN_E_LIST_HEADER);
  EXPECT_EQ(riff_GetFileSize(file, &size), S_OK);
  EXPECT_EQ(size, 42u);
  EXPECT_EQ(file.At(), 12u);
  file.Go(3);
  EXPECT_EQ(riff_SeekDataStart(file), S_OK);
  EXPECT_EQ(file.At(), 12u);

  EXPECT_EQ(riff_ValidateChunkHeader(0, -1), QN_E_CHUNK_SIZE);
  EXPECT_EQ(riff_ValidateChunkHeader(Id("note"), 0), QN_E_CHUNK_EMPTY);
  EXPECT_EQ(riff_ValidateChunkHeader(0, 0x7FFFFFFF), S_OK);
}

TEST_F(Riff, BrokenFileHeaders) {
  uint32_t remaining = 98;
  for (ptrdiff_t length = 0; length <= 12; ++length) {
    const ChunkFile file(Bytes(kExample.begin(), kExample.begin() + length));
    uint32_t size = 99;
    EXPECT_EQ(riff_ReadFileID(file, &size, nullptr), length < 12 ? kShort : S_OK) << length;
    EXPECT_EQ(size, length < 8 ? 0u : 34u) << length;
    EXPECT_EQ(riff_GetFileSize(file, nullptr), length < 12 ? kShort : S_OK) << length;
  }
  Bytes other = kExample;
  other[3] = 'X';
  const ChunkFile file(other);
  uint32_t size = 99;
  EXPECT_EQ(riff_ReadFileID(file, &size, nullptr), QN_E_RIFF_HEADER);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(riff_GetFileSize(file, &size), QN_E_RIFF_HEADER);
  EXPECT_EQ(riff_FindChunkHeaderInRIFF(file, Id("note"), &size, &remaining), QN_E_RIFF_HEADER);
  EXPECT_EQ(remaining, 98u);
  EXPECT_EQ(riff_FindListChunkFromStart(file, Id("INFO"), &size), QN_E_RIFF_HEADER);
  EXPECT_EQ(riff_DeleteChunk(file, Id("note"), &size, 0), QN_E_RIFF_HEADER);
  EXPECT_EQ(file.Content(), other);

  for (uint32_t tiny = 0; tiny <= 4; ++tiny) {
    const ChunkFile unfinished(Form(Chunk("note", {1}), tiny));
    EXPECT_EQ(riff_FindChunkHeaderInRIFF(unfinished, Id("note"), nullptr, &remaining), kMissing);
    EXPECT_EQ(remaining, 0u);
  }
}

TEST_F(Riff, DataReadersEndWhereTheirPadSays) {
  const ChunkFile file(Hex("01 02 03 04 05 06 07 08"));
  uint8_t buffer[8];
  const struct { uint64_t size, end; } kWhole[] = {{0, 0}, {1, 2}, {4, 4}, {5, 6}, {0x700000003, 4}, {8, 8}};
  for (const auto& row : kWhole) {
    file.Go(0);
    EXPECT_EQ(riff_ReadData(file, buffer, row.size), S_OK);
    EXPECT_EQ(file.At(), row.end) << row.size;
  }
  EXPECT_EQ(riff_ReadData(file, buffer, 1), kShort);

  const struct {
    uint32_t chunk, buffer;
    uint64_t end;
  } kBounded[] = {{5, 4, 5}, {5, 3, 6}, {4, 5, 5}, {5, 8, 5}, {6, 6, 6}, {8, 0, 8}, {99, 2, 99}};
  for (const auto& row : kBounded) {
    file.Go(0);
    EXPECT_EQ(riff_ReadDataBounded(file, buffer, row.chunk, row.buffer), S_OK);
    EXPECT_EQ(file.At(), row.end) << row.chunk << "/" << row.buffer;
  }

  file.Go(1);
  riff_DataBlock block = {5, &block};
  ASSERT_EQ(riff_ReadDataAlloc(file, &block), S_OK);
  EXPECT_EQ(file.At(), 7u);
  EXPECT_EQ(std::memcmp(block.data, "\2\3\4\5\6", 5), 0);
  EXPECT_EQ(GlobalUnlock(GlobalHandle(block.data)), 0);
  EXPECT_EQ(GlobalFree(GlobalHandle(block.data)), nullptr);
  for (uint32_t size : {0u, 8u, 0xFFFFFFFFu}) {
    file.Go(1);
    block = {size, &block};
    EXPECT_EQ(riff_ReadDataAlloc(file, &block), size == 0 ? S_OK : kShort);
    EXPECT_EQ(block.data, nullptr);
  }
}

// A scan from offset 12: its budget, if any, and what it must leave.
struct Scan {
  const char (&id)[5];
  std::optional<uint32_t> budget;
  HRESULT status;
  uint32_t rest;
  uint64_t end;
};

void CheckScan(const ChunkFile& file, const Scan& scan,
               HRESULT (*find)(HANDLE, uint32_t, uint32_t*, uint32_t*)) {
  uint32_t remaining = scan.budget.value_or(0);
  file.Go(12);
  EXPECT_EQ(find(file, Id(scan.id), nullptr, scan.budget ? &remaining : nullptr), scan.status);
  EXPECT_EQ(file.At(), scan.end) << scan.id << " " << scan.budget.value_or(0);
  EXPECT_EQ(remaining, scan.rest) << scan.id << " " << scan.budget.value_or(0);
}

TEST_F(Riff, ChunkSearchSpendsItsBudget) {
  const ChunkFile file(Form(Chunk("aaaa", {1, 2, 3}) + Chunk("bbbb", {1, 2, 3, 4}) + Chunk("cccc", {})));
  const Scan kScans[] = {{"aaaa", 8, kFound, 0, 20},     {"aaaa", 7, kMissing, 7, 12},
                         {"bbbb", 32, kFound, 12, 32},   {"bbbb", 20, kFound, 0, 32},
                         {"bbbb", 19, kMissing, 7, 24},  {"bbbb", 11, kMissing, 0, 24},
                         {"bbbb", {}, kFound, 0, 32},    {"none", 32, kMissing, 0, 44},
                         {"none", 900, kShort, 900, 44}, {"none", {}, kShort, 0, 44}};
  for (const Scan& scan : kScans) CheckScan(file, scan, riff_FindChunkHeader);

  // In the form its stored size is the budget, and `remaining` only comes out.
  const struct {
    uint32_t riffSize;
    const char (&id)[5];
    HRESULT status;
    uint32_t rest;
  } kForms[] = {{36, "bbbb", kFound, 12},
                {36, "none", kMissing, 0},
                {23, "bbbb", kMissing, 7},
                {99, "none", kShort, 95},
                {~0u, "bbbb", kFound, ~0u - 24}};
  for (const auto& row : kForms) {
    uint32_t remaining = 7;
    uint32_t size = 7;
    riff_SetRIFFSize(file, row.riffSize);
    EXPECT_EQ(riff_FindChunkHeaderInRIFF(file, Id(row.id), &size, &remaining), row.status);
    EXPECT_EQ(remaining, row.rest) << row.riffSize;
    EXPECT_EQ(size, row.status == kFound ? 4u : 7u);
  }
}

TEST_F(Riff, ListSearchSpendsItsBudget) {
  const ChunkFile file(
      Form(List("aaaa", {}) + List("bbbb", {1, 2, 3}) + Chunk("junk", {1}) + List("cccc", {})));
  const Scan kScans[] = {
      {"aaaa", 12, kFound, 0, 24},   {"aaaa", 11, kMissing, 3, 20}, {"aaaa", 7, kMissing, 7, 12},
      {"bbbb", 50, kFound, 26, 36},  {"cccc", 50, kFound, 0, 62},   {"cccc", 49, kMissing, 3, 58},
      {"cccc", 37, kMissing, 0, 50}, {"cccc", 25, kMissing, 0, 40}, {"cccc", {}, kFound, 0, 62},
      {"none", 50, kMissing, 0, 62}, {"none", 90, kShort, 40, 62}};
  for (const Scan& scan : kScans) CheckScan(file, scan, riff_FindListChunk);

  uint32_t size = 0;
  EXPECT_EQ(riff_FindListChunkFromStart(file, Id("bbbb"), &size), S_OK);
  EXPECT_EQ(size, 3u);
  for (uint32_t budget = 7; budget <= 12; ++budget) {
    riff_SetRIFFSize(file, budget + 4);
    EXPECT_EQ(riff_FindListChunkFromStart(file, Id("aaaa"), &size), budget < 12 ? kMissing : kFound);
  }
  EXPECT_EQ(riff_FindListChunkFromStart(ChunkFile(Form({}, 4 + 11)), Id("aaaa"), &size), kMissing);
}

TEST_F(Riff, ListsWithoutRoomForTheirType) {
  for (size_t stunted = 0; stunted < 4; ++stunted) {
    const Bytes first = Chunk("LIST", Bytes(stunted));
    const ChunkFile file(Form(first + List("cccc", {}) + Bytes(8)));
    CheckScan(file, {"cccc", 500, kMissing, 0, 12 + first.size()}, riff_FindListChunk);
    CheckScan(file, {"cccc", {}, kFound, 0, 24 + first.size()}, riff_FindListChunk);
  }
}

TEST_F(Riff, ListWalksWrapTheirBudget) {
  const ChunkFile file(Form(Chunk("aaaa", {1, 2, 3}) + Chunk("bbbb", {}) + Chunk("cccc", {1, 2, 3, 4, 5})));
  const struct {
    uint32_t budget;
    HRESULT status;
    uint32_t count, rest;
  } kCounts[] = {
      {34, S_OK, 3, 0}, {7, S_OK, 0, 7}, {27, S_OK, 2, 7}, {33, kShort, 3, ~0u}, {11, kShort, 3, ~0u - 22}};
  for (const auto& row : kCounts) {
    uint32_t remaining = row.budget;
    uint32_t count = 77;
    file.Go(12);
    EXPECT_EQ(riff_GetNumListEntries(file, &count, &remaining), row.status);
    EXPECT_EQ(count, row.count) << row.budget;
    EXPECT_EQ(remaining, row.rest) << row.budget;
    EXPECT_EQ(file.At(), 12u);
  }
  const struct {
    int32_t index;
    uint32_t budget;
    HRESULT status;
    uint32_t rest;
    uint64_t end;
  } kSeeks[] = {{0, 0, S_OK, 0, 12},
                {2, 34, S_OK, 14, 32},
                {3, 33, S_OK, ~0u, 46},
                {4, 34, kMissing, 0, 46},
                {-1, 33, kMissing, 33, 12}};
  for (const auto& row : kSeeks) {
    uint32_t remaining = row.budget;
    file.Go(12);
    EXPECT_EQ(riff_SeekListEntry(file, row.index, &remaining), row.status) << row.index;
    EXPECT_EQ(remaining, row.rest) << row.index;
    EXPECT_EQ(file.At(), row.end) << row.index;
  }
  file.Go(12);
  EXPECT_EQ(riff_SeekListEntry(file, std::numeric_limits<int32_t>::max(), nullptr), kShort);
}

TEST_F(Riff, DeletesLists) {
  const Bytes before = List("aaaa", Chunk("gone", {1})) + Chunk("gone", {1, 2, 3});
  const ChunkFile file(Form(before + List("gone", {7, 8, 9}) + Chunk("rest", {5})));
  uint32_t deleted = 0;
  EXPECT_EQ(riff_DeleteChunk(file, Id("gone"), &deleted, 2), S_OK);
  EXPECT_EQ(deleted, 16u);
  EXPECT_EQ(file.Content(), Form(before + Chunk("rest", {5})));
  EXPECT_EQ(riff_DeleteChunk(file, Id("gone"), &deleted, 1), kMissing);
  EXPECT_EQ(deleted, 0u);

  // A size that overruns the file, and a sum below zero.
  const ChunkFile lying(Form(Hex("'gone' F0 FF FF FF 01 01"), 40));
  EXPECT_EQ(riff_DeleteChunk(lying, Id("gone"), &deleted, 0), S_OK);
  EXPECT_EQ(deleted, 0xFFFFFFF8);
  EXPECT_EQ(lying.Content(), Form({}, 48));
}

TEST_F(Riff, SizeUpdate) {
  constexpr int64_t kLeast = std::numeric_limits<int64_t>::min();
  const struct {
    uint32_t stored;
    int64_t delta;
    uint32_t sum;
  } kSums[] = {{100, 12, 112},
               {100, -200, 0xFFFFFF9C},
               {0xFFFFFFF0, 7, 0xFFFFFFF7},
               {~0u, -8, 0xFFFFFFF7},
               {0, kLeast, 0}};
  for (const auto& row : kSums) {
    const ChunkFile file(Form(Chunk("note", {1}), row.stored));
    file.Go(17);
    EXPECT_EQ(riff_UpdateRIFFSize(file, row.delta), S_OK);
    EXPECT_EQ(file.At(), 17u);
    EXPECT_EQ(file.Content(), Form(Chunk("note", {1}), row.sum));
  }
  // Outgrown: what lies behind the old end goes.
  for (int64_t delta : {int64_t{0xFFFFFFF8 - 14}, std::numeric_limits<int64_t>::max()}) {
    const ChunkFile file(Form(Chunk("note", {1}) + Chunk("more", Bytes(9)), 14));
    file.Go(30);
    EXPECT_EQ(riff_UpdateRIFFSize(file, delta), QN_E_FILE_TOO_LARGE);
    EXPECT_EQ(file.At(), 30u);
    EXPECT_EQ(file.Content(), Form(Chunk("note", {1})));
  }
  const ChunkFile tooShort(Hex("'RIFF' 01"));
  tooShort.Go(2);
  EXPECT_EQ(riff_UpdateRIFFSize(tooShort, 0), kShort);
  EXPECT_EQ(tooShort.At(), 2u);
}

TEST_F(Riff, FailingWritesAndNullArguments) {
  const ChunkFile file(kExample, GENERIC_READ);
  uint32_t value = 5;
  WCHAR text[] = u"x";
  for (HRESULT status : {riff_WriteChunk(file, 1, "ab", 2, &value), riff_WriteListHeader(file, 1, 4),
                         riff_WriteFileID(file, 1, 4), riff_WriteANSIString(file, text, &value),
                         riff_SetRIFFSize(file, 1), riff_UpdateRIFFSize(file, 1)}) {
    EXPECT_EQ(status, QN_E_FILE_WRITE);
  }
  for (HRESULT status :
       {riff_SaveLocation(file, nullptr), riff_ReadChunkHeader(file, nullptr, &value),
        riff_ReadListHeader(file, &value, nullptr), riff_ReadData(file, nullptr, 1),
        riff_ReadDataBounded(file, nullptr, 1, 1), riff_ReadDataAlloc(file, nullptr),
        riff_ReadANSIString(file, nullptr, 4, &value), riff_ReadANSIString(file, text, 2, nullptr),
        riff_WriteChunk(file, 1, nullptr, 1, &value), riff_WriteANSIString(file, nullptr, &value),
        riff_GetNumListEntries(file, nullptr, &value), riff_ReadRIFFCDDA(file, nullptr)}) {
    EXPECT_EQ(status, E_INVALIDARG);
  }
  EXPECT_EQ(value, 5u);
  EXPECT_EQ(file.At(), 0u);
  EXPECT_EQ(file.Content(), kExample);
  EXPECT_EQ(riff_ReadChunkHeader(INVALID_HANDLE_VALUE, &value, &value), kShort);
}

class RiffText : public Riff {
 protected:
  ~RiffText() override { SetAnsiCodePage(0); }
};

TEST_F(RiffText, WritesAByteACharacter) {
  const struct {
    UINT codePage;
    std::u16string text;
    Bytes bytes;
  } kRows[] = {{1252, u"", {0, 0}},
               {1252, u"ab", {'a', 'b', 0, 0}},
               {1252, u"\u00E9\u20AC!", {0xE9, 0x80, '!', 0}},
               {1252, u"\u6F22", {'?', 0}},
               // A conversion that needs more bytes is cut.
               {CP_UTF8, u"a\u00E9b", {'a', 0xC3, 0xA9, 0}},
               {932, u"\u6F22\u5B57", {0x8A, 0xBF, 0, 0}}};
  for (const auto& row : kRows) {
    const ChunkFile file;
    std::u16string text = row.text;
    uint32_t written = 0;
    SetAnsiCodePage(row.codePage);
    EXPECT_EQ(riff_WriteANSIString(file, text.data(), &written), S_OK);
    EXPECT_EQ(written, row.bytes.size());
    EXPECT_EQ(file.Content(), row.bytes);
  }
}

TEST_F(RiffText, ReadsAtMostItsRoom) {
  SetAnsiCodePage(1252);
  const ChunkFile file(Hex("09 'Caf' E9 '!' 00 09"));
  const struct {
    uint32_t size;
    int32_t room;
    std::u16string text;
    uint64_t end;
  } kRows[] = {{6, 16, u"Caf\u00E9!", 7}, {6, 4, u"Caf", 7}, {4, 4, u"Caf", 5}, {5, 16, u"Caf\u00E9", 7},
               {3, 16, u"Ca", 5},         {6, 1, u"", 7},    {0, 16, u"", 1}};
  for (const auto& row : kRows) {
    std::u16string text(18, u'#');
    const auto room = static_cast<size_t>(row.room);
    uint32_t size = row.size;
    file.Go(1);
    EXPECT_EQ(riff_ReadANSIString(file, text.data(), row.room, &size), S_OK);
    EXPECT_EQ(text.c_str(), row.text);
    EXPECT_EQ(text[room - 1], 0);
    EXPECT_EQ(text.substr(room), std::u16string(18 - room, u'#'));
    EXPECT_EQ(size, row.size + 1);
    EXPECT_EQ(file.At(), row.end) << row.size << "/" << row.room;
  }
  WCHAR untouched = u'#';
  uint32_t size = ~0u;
  file.Go(1);
  for (const int32_t room : {0, -1, std::numeric_limits<int32_t>::min()}) {
    EXPECT_EQ(riff_ReadANSIString(file, &untouched, room, &size), E_INVALIDARG);
    EXPECT_EQ(file.At(), 1u);
  }
  EXPECT_EQ(riff_ReadANSIString(file, &untouched, std::numeric_limits<int32_t>::max(), &size), kShort);
  EXPECT_EQ(untouched, u'#');
  EXPECT_EQ(size, ~0u);
}

TEST_F(Riff, ReadsATrack) {
  const ChunkFile file(kShortcut, GENERIC_READ);
  std::vector<uint32_t> values(5, 9);
  const auto read = [&](const std::u16string& path) {
    return riff_ReadCDAFile(path.c_str(), &values[0], &values[1], &values[2], &values[3], &values[4]);
  };
  EXPECT_EQ(read(file.Path()), S_OK);
  EXPECT_EQ(values, (std::vector<uint32_t>{2, 20125, (4 * 60 + 30) * 75 + 25, 15000, 0x12345678}));
  EXPECT_EQ(read(file.Path() + u".none"), QN_E_FILE_OPEN);
  EXPECT_EQ(values, std::vector<uint32_t>(5));
  EXPECT_EQ(riff_ReadCDAFile(file.Path().c_str(), nullptr, nullptr, nullptr, nullptr, nullptr), S_OK);

  Bytes format(24);
  EXPECT_EQ(riff_ReadRIFFCDDA(file, format.data()), S_OK);
  EXPECT_EQ(format, Bytes(kShortcut.begin() + 20, kShortcut.end()));
}

TEST_F(Riff, RefusesOtherFiles) {
  const struct {
    size_t offset;
    uint8_t value;
    size_t length;
    HRESULT status;
  } kRows[] = {{8, 'X', 44, QN_E_FILE_FORMAT}, {12, 'X', 44, kMissing}, {16, 23, 44, QN_E_FILE_VERSION},
               {0, 'X', 44, QN_E_RIFF_HEADER}, {4, 11, 44, kMissing},   {16, 25, 44, QN_E_FILE_VERSION},
               {0, 'R', 43, kShort},           {0, 'R', 19, kShort}};
  for (const auto& row : kRows) {
    Bytes bytes = kShortcut;
    bytes[row.offset] = row.value;
    bytes.resize(row.length);
    const ChunkFile file(bytes, GENERIC_READ);
    uint32_t track = 9;
    Bytes format(24, 0x77);
    EXPECT_EQ(riff_ReadCDAFile(file.Path().c_str(), &track, nullptr, nullptr, nullptr, nullptr), row.status);
    EXPECT_EQ(track, 0u);
    EXPECT_EQ(riff_ReadRIFFCDDA(file, format.data()), row.status) << row.offset << " " << row.length;
    EXPECT_EQ(format, Bytes(24, 0x77));
  }
}

TEST_F(Riff, PlacesFromTwoGigabytesOn) {
  constexpr uint32_t kBig = 0xC0000001;
  constexpr uint64_t kTail = 12 + 8 + uint64_t{kBig} + 1;
  const ChunkFile file(Form(Hex("'data'") + Le(kBig, 4), kTail + 12 - 8));
  file.Put(kTail, Chunk("tail", {1, 2, 3}));
  uint32_t size, location, count;
  EXPECT_EQ(riff_FindChunkHeaderInRIFF(file, Id("tail"), &size, nullptr), S_OK);
  EXPECT_EQ(file.At(), kTail + 8);
  EXPECT_EQ(riff_SaveLocation(file, &location), S_OK);
  file.Go(12);
  EXPECT_EQ(riff_GetNumListEntries(file, &count, nullptr), kShort);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(riff_RestoreLocation(file, location), S_OK);
  EXPECT_EQ(riff_UpdateRIFFSize(file, 0), S_OK);
  EXPECT_EQ(file.At(), kTail + 8);
  EXPECT_EQ(riff_DeleteChunk(file, Id("tail"), nullptr, 0), S_OK);
  EXPECT_EQ(file.Length(), kTail);
  EXPECT_EQ(file.At(), kTail);

  // The last size that the format holds, and one byte more.
  constexpr uint64_t kMost = 0xFFFFFFF7;
  riff_SetRIFFSize(file, kMost - 1);
  file.Put(kMost + 8, {1});
  EXPECT_EQ(riff_UpdateRIFFSize(file, 1), S_OK);
  EXPECT_EQ(riff_UpdateRIFFSize(file, 1), QN_E_FILE_TOO_LARGE);
  EXPECT_EQ(file.Length(), kMost + 8);
  EXPECT_EQ(file.At(), kMost + 9);
  riff_SetRIFFSize(file, ~0u);
  EXPECT_EQ(riff_UpdateRIFFSize(file, 0), QN_E_FILE_TOO_LARGE);
  EXPECT_EQ(file.Length(), uint64_t{0xFFFFFFFF} + 8);
}

TEST_F(Riff, SizesThatFillThirtyTwoBits) {
  constexpr uint64_t kTail = 20 + (uint64_t{1} << 32);
  const ChunkFile file(Form(Hex("'data' FF FF FF FF"), ~0u));
  uint32_t remaining = 100;
  EXPECT_EQ(riff_FindChunkHeaderInRIFF(file, Id("tail"), nullptr, &remaining), kMissing);
  EXPECT_EQ(remaining, 0u);
  file.Put(kTail, Chunk("tail", {1, 2, 3}));
  file.Go(12);
  EXPECT_EQ(riff_FindChunkHeader(file, Id("tail"), nullptr, nullptr), S_OK);
  EXPECT_EQ(file.At(), kTail + 8);
  EXPECT_EQ(riff_GetNumListEntries(file, &remaining, nullptr), kShort);
  EXPECT_EQ(file.At(), kTail + 8);
  file.Go(20);
  EXPECT_EQ(riff_SkipChunk(file, ~0u), ~0u);
  EXPECT_EQ(file.At(), kTail);
}

TEST_F(Riff, WalksAFileOfAnotherProgram) {
  if (!HasProgram("ffmpeg")) GTEST_SKIP() << "no ffmpeg";
  const ScratchFolder folder;
  ASSERT_EQ(RunCommand("ffmpeg -v error -f lavfi -i sine=duration=0.01 -ac 1 -ar 44100 -c:a pcm_u8 "
                       "-metadata title=Tune -metadata artist=Anna " +
                       folder.Native("a.wav")),
            0);
  const ChunkFile file(ReadFileBytes(folder.Native("a.wav")), GENERIC_READ);
  uint32_t size, count;
  EXPECT_EQ(riff_FindChunkHeaderInRIFF(file, RIFF_ID_FMT, &size, nullptr), S_OK);
  EXPECT_EQ(size, 16u);
  EXPECT_EQ(riff_FindChunkHeaderInRIFF(file, Id("data"), &size, nullptr), S_OK);
  EXPECT_EQ(size, 441u);
  ASSERT_EQ(riff_FindListChunkFromStart(file, Id("INFO"), &size), S_OK);
  uint32_t budget = size;
  EXPECT_EQ(riff_GetNumListEntries(file, &count, &budget), S_OK);
  EXPECT_EQ(budget, 0u);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(riff_FindChunkHeader(file, Id("INAM"), &size, nullptr), S_OK);
  WCHAR title[16];
  EXPECT_EQ(riff_ReadANSIString(file, title, 16, &size), S_OK);
  EXPECT_EQ(std::u16string(title), u"Tune");
}

}  // namespace
