#include "qn/media/riff.h"

#include <limits>
#include <optional>
#include <vector>

#include "qn/platform/locale.h"
#include "qn/platform/memory.h"
#include "tests/media/chunk_file.h"

namespace {

using qntest::ByteBuilder;
using qntest::Bytes;
using qntest::ChunkFile;

constexpr uint32_t FourCC(const char (&text)[5]) {
  return static_cast<uint32_t>(text[0]) | static_cast<uint32_t>(text[1]) << 8 |
         static_cast<uint32_t>(text[2]) << 16 | static_cast<uint32_t>(text[3]) << 24;
}

Bytes Chunk(std::string_view id, const Bytes& data) {
  return ByteBuilder().Text(id).Number(data.size(), 4).Add(data).Fill(data.size() % 2, 0);
}
Bytes Chunk(std::string_view id, size_t size) {
  return Chunk(id, Bytes(size, 0x55));
}

Bytes Form(const Bytes& chunks, std::optional<uint32_t> riffSize = {}) {
  return ByteBuilder()
      .Text("RIFF")
      .Number(riffSize.value_or(static_cast<uint32_t>(chunks.size() + 4)), 4)
      .Text("WAVE")
      .Add(chunks);
}

// The example of docs/formats/riff.md.
const Bytes kExample = {
    'R', 'I', 'F', 'F', 38, 0, 0, 0, 'W', 'A', 'V', 'E',  // 0
    'n', 'o', 't', 'e', 3,  0, 0, 0, 1,   2,   3,   0,    // 12
    'L', 'I', 'S', 'T', 14, 0, 0, 0, 'I', 'N', 'F', 'O',  // 24
    'I', 'N', 'A', 'M', 2,  0, 0, 0, 'H', 0,              // 36
};

TEST(Riff, WritesTheDocumentedBytes) {
  ChunkFile file;
  uint32_t written = 0;
  WCHAR title[] = u"H";
  EXPECT_EQ(riff_WriteFileID(file, FourCC("WAVE"), 38), S_OK);
  EXPECT_EQ(riff_WriteChunk(file, FourCC("note"), "\1\2\3", 3, &written), S_OK);
  EXPECT_EQ(written, 12u);
  EXPECT_EQ(riff_WriteListHeader(file, FourCC("INFO"), 14), S_OK);
  EXPECT_EQ(riff_WriteChunkHeader(file, FourCC("INAM"), 2), S_OK);
  EXPECT_EQ(riff_WriteANSIString(file, title, &written), S_OK);
  EXPECT_EQ(written, 2u);
  EXPECT_EQ(file.Content(), kExample);

  EXPECT_EQ(riff_WriteChunk(file, FourCC("even"), "\1\2", 2, nullptr), S_OK);
  EXPECT_EQ(riff_SetRIFFSize(file, 48), S_OK);
  EXPECT_EQ(file.At(), 56u);
  EXPECT_EQ(
      file.Content(),
      Form(ByteBuilder().Add(Bytes(kExample.begin() + 12, kExample.end())).Add(Chunk("even", Bytes{1, 2}))));
}

TEST(Riff, ReadsTheDocumentedBytesInOrder) {
  ChunkFile file(kExample, GENERIC_READ);
  uint32_t id, size, budget, location;
  EXPECT_EQ(riff_ReadFileID(file, &budget, &id), S_OK);
  EXPECT_EQ(id, FourCC("WAVE"));
  EXPECT_EQ(budget, 34u);
  EXPECT_EQ(riff_ReadChunkHeader(file, &id, &size), S_OK);
  EXPECT_EQ(id, FourCC("note"));
  EXPECT_EQ(size, 3u);
  EXPECT_EQ(file.At(), 20u);
  EXPECT_EQ(riff_SaveLocation(file, &location), S_OK);
  EXPECT_EQ(location, 20u);
  EXPECT_EQ(riff_SkipChunk(file, size), 4u);
  EXPECT_EQ(riff_ReadListHeader(file, &id, &size), S_OK);
  EXPECT_EQ(id, FourCC("INFO"));
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

  const int32_t kBadSizes[] = {-1, std::numeric_limits<int32_t>::min()};
  for (int32_t bad : kBadSizes) EXPECT_EQ(riff_ValidateChunkHeader(0, bad), QN_E_CHUNK_SIZE);
  EXPECT_EQ(riff_ValidateChunkHeader(FourCC("note"), 0), QN_E_CHUNK_EMPTY);
  EXPECT_EQ(riff_ValidateChunkHeader(0, 1), S_OK);
}

TEST(Riff, BrokenFileHeaders) {
  for (size_t length = 0; length <= 12; ++length) {
    const ChunkFile file(Bytes(kExample.begin(), kExample.begin() + static_cast<ptrdiff_t>(length)));
    const HRESULT expected = length < 12 ? QN_E_FILE_READ : S_OK;
    uint32_t size = 99;
    EXPECT_EQ(riff_ReadFileID(file, &size, nullptr), expected) << length;
    EXPECT_EQ(size, length < 8 ? 0u : 34u) << length;
    EXPECT_EQ(riff_GetFileSize(file, nullptr), expected) << length;
  }
  Bytes other = kExample;
  other[3] = 'X';
  ChunkFile file(other);
  uint32_t size = 99;
  uint32_t remaining = 98;
  EXPECT_EQ(riff_ReadFileID(file, &size, nullptr), QN_E_RIFF_HEADER);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(riff_GetFileSize(file, &size), QN_E_RIFF_HEADER);
  EXPECT_EQ(riff_FindChunkHeaderInRIFF(file, FourCC("note"), &size, &remaining), QN_E_RIFF_HEADER);
  EXPECT_EQ(remaining, 98u);
  EXPECT_EQ(riff_FindListChunkFromStart(file, FourCC("INFO"), &size), QN_E_RIFF_HEADER);
  EXPECT_EQ(riff_DeleteChunk(file, FourCC("note"), &size, 0), QN_E_RIFF_HEADER);
  file.Go(0);
  EXPECT_EQ(riff_ReadRIFFCDDA(file, other.data()), QN_E_RIFF_HEADER);
  EXPECT_EQ(file.Content(), other);

  for (uint32_t tiny = 0; tiny <= 4; ++tiny) {
    const ChunkFile unfinished(Form(Chunk("note", 3), tiny));
    EXPECT_EQ(riff_FindChunkHeaderInRIFF(unfinished, FourCC("note"), nullptr, &remaining), QN_E_NOT_FOUND);
    EXPECT_EQ(remaining, 0u);
  }
}

TEST(Riff, DataReadersEndWhereTheirPadSays) {
  Bytes bytes(16);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i + 1);
  ChunkFile file(bytes);
  uint8_t buffer[16];
  const struct {
    uint64_t size, end;
  } kWhole[] = {{0, 0}, {1, 2}, {4, 4}, {5, 6}, {0x700000003, 4}, {16, 16}};
  for (const auto& row : kWhole) {
    file.Go(0);
    EXPECT_EQ(riff_ReadData(file, buffer, row.size), S_OK);
    EXPECT_EQ(file.At(), row.end) << row.size;
  }
  EXPECT_EQ(riff_ReadData(file, buffer, 1), QN_E_FILE_READ);
  EXPECT_EQ(riff_ReadData(file, nullptr, 0), S_OK);

  const struct {
    uint32_t chunk, buffer;
    uint64_t end;
  } kBounded[] = {{5, 4, 5}, {5, 3, 6}, {4, 5, 5}, {5, 8, 5}, {6, 6, 6}, {16, 0, 16}, {99, 2, 99}};
  for (const auto& row : kBounded) {
    file.Go(0);
    EXPECT_EQ(riff_ReadDataBounded(file, buffer, row.chunk, row.buffer), S_OK);
    EXPECT_EQ(file.At(), row.end) << row.chunk << "/" << row.buffer;
  }

  file.Go(1);
  riff_DataBlock block = {5, &block};
  ASSERT_EQ(riff_ReadDataAlloc(file, &block), S_OK);
  EXPECT_EQ(file.At(), 7u);
  EXPECT_EQ(Bytes(static_cast<uint8_t*>(block.data), static_cast<uint8_t*>(block.data) + 5),
            (Bytes{2, 3, 4, 5, 6}));
  EXPECT_EQ(GlobalUnlock(GlobalHandle(block.data)), 0);
  EXPECT_EQ(GlobalFree(GlobalHandle(block.data)), nullptr);
  for (uint32_t size : {0u, 10u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    file.Go(7);
    block = {size, &block};
    EXPECT_EQ(riff_ReadDataAlloc(file, &block), size == 0 ? S_OK : QN_E_FILE_READ);
    EXPECT_EQ(block.data, nullptr);
  }
}

// A scan from offset 12: what it is given and what it must leave.
struct Scan {
  const char (&id)[5];
  std::optional<uint32_t> budget;
  HRESULT status;
  uint32_t rest;
  uint64_t end;
};

void CheckScan(ChunkFile& file, const Scan& scan, HRESULT (*find)(HANDLE, uint32_t, uint32_t*, uint32_t*)) {
  uint32_t remaining = scan.budget.value_or(0);
  file.Go(12);
  EXPECT_EQ(find(file, FourCC(scan.id), nullptr, scan.budget ? &remaining : nullptr), scan.status);
  EXPECT_EQ(file.At(), scan.end) << scan.id << " " << scan.budget.value_or(0);
  EXPECT_EQ(remaining, scan.rest) << scan.id << " " << scan.budget.value_or(0);
}

TEST(Riff, ChunkSearchSpendsItsBudget) {
  const Bytes chunks =
      ByteBuilder().Add(Chunk("aaaa", 3)).Add(Chunk("bbbb", 4)).Add(Chunk("cccc", size_t{0}));
  ChunkFile file(Form(chunks));
  const Scan kScans[] = {
      {"aaaa", 8, S_OK, 0, 20},
      {"aaaa", 7, QN_E_NOT_FOUND, 7, 12},
      {"bbbb", 32, S_OK, 12, 32},
      {"bbbb", 20, S_OK, 0, 32},
      {"bbbb", 19, QN_E_NOT_FOUND, 7, 24},
      {"bbbb", 11, QN_E_NOT_FOUND, 0, 24},
      {"bbbb", {}, S_OK, 0, 32},
      {"none", 32, QN_E_NOT_FOUND, 0, 44},
      {"none", 900, QN_E_FILE_READ, 900, 44},
      {"none", {}, QN_E_FILE_READ, 0, 44},
  };
  for (const Scan& scan : kScans) CheckScan(file, scan, riff_FindChunkHeader);

  // The size in the header is the budget, and all that comes back.
  const struct {
    uint32_t riffSize;
    const char (&id)[5];
    HRESULT status;
    uint32_t rest;
  } kForms[] = {{36, "bbbb", S_OK, 12},
                {36, "none", QN_E_NOT_FOUND, 0},
                {23, "bbbb", QN_E_NOT_FOUND, 7},
                {100, "none", QN_E_FILE_READ, 96},
                {0xFFFFFFFF, "bbbb", S_OK, 0xFFFFFFFF - 4 - 12 - 8}};
  for (const auto& row : kForms) {
    uint32_t remaining = 7;
    uint32_t size = 7;
    ASSERT_EQ(riff_SetRIFFSize(file, row.riffSize), S_OK);
    EXPECT_EQ(riff_FindChunkHeaderInRIFF(file, FourCC(row.id), &size, &remaining), row.status);
    EXPECT_EQ(remaining, row.rest) << row.riffSize;
    EXPECT_EQ(size, row.status == S_OK ? 4u : 7u);
  }
}

TEST(Riff, ListSearchSpendsItsBudget) {
  const Bytes chunks = ByteBuilder()
                           .Add(Chunk("LIST", {'a', 'a', 'a', 'a'}))           // 12
                           .Add(Chunk("LIST", {'b', 'b', 'b', 'b', 1, 2, 3}))  // 24
                           .Add(Chunk("junk", 1))                              // 40
                           .Add(Chunk("LIST", {'c', 'c', 'c', 'c'}));          // 50
  ChunkFile file(Form(chunks));
  const Scan kScans[] = {
      {"aaaa", 12, S_OK, 0, 24},           {"aaaa", 11, QN_E_NOT_FOUND, 3, 20},
      {"aaaa", 7, QN_E_NOT_FOUND, 7, 12},  {"bbbb", 50, S_OK, 26, 36},
      {"cccc", 50, S_OK, 0, 62},           {"cccc", 49, QN_E_NOT_FOUND, 3, 58},
      {"cccc", 37, QN_E_NOT_FOUND, 0, 50}, {"cccc", {}, S_OK, 0, 62},
      {"none", 50, QN_E_NOT_FOUND, 0, 62}, {"none", 90, QN_E_FILE_READ, 40, 62},
  };
  for (const Scan& scan : kScans) CheckScan(file, scan, riff_FindListChunk);

  uint32_t size = 0;
  EXPECT_EQ(riff_FindListChunkFromStart(file, FourCC("bbbb"), &size), S_OK);
  EXPECT_EQ(size, 3u);
  EXPECT_EQ(file.At(), 36u);
  EXPECT_EQ(riff_FindListChunkFromStart(file, FourCC("none"), &size), QN_E_NOT_FOUND);
  for (uint32_t budget = 7; budget <= 12; ++budget) {
    ASSERT_EQ(riff_SetRIFFSize(file, budget + 4), S_OK);
    EXPECT_EQ(riff_FindListChunkFromStart(file, FourCC("aaaa"), &size), budget < 12 ? QN_E_NOT_FOUND : S_OK);
  }
}

TEST(Riff, ListsWithoutRoomForTheirType) {
  for (size_t stunted = 0; stunted < 4; ++stunted) {
    const Bytes chunks =
        ByteBuilder().Add(Chunk("LIST", stunted)).Add(Chunk("LIST", {'c', 'c', 'c', 'c'})).Fill(8, 0);
    ChunkFile file(Form(chunks));
    const uint64_t behind = 12 + 8 + (stunted + 1) / 2 * 2 + 12;
    uint32_t remaining = 500;
    file.Go(12);
    EXPECT_EQ(riff_FindListChunk(file, FourCC("cccc"), nullptr, &remaining), QN_E_NOT_FOUND) << stunted;
    EXPECT_EQ(remaining, 0u);
    file.Go(12);
    EXPECT_EQ(riff_FindListChunk(file, FourCC("cccc"), nullptr, nullptr), S_OK);
    EXPECT_EQ(file.At(), behind);
  }
}

TEST(Riff, ListWalks) {
  const Bytes chunks =
      ByteBuilder().Add(Chunk("aaaa", 3)).Add(Chunk("bbbb", size_t{0})).Add(Chunk("cccc", 5));
  ChunkFile file(Form(chunks));
  const struct {
    std::optional<uint32_t> budget;
    HRESULT status;
    uint32_t count, rest;
  } kCounts[] = {{34, S_OK, 3, 0},
                 {7, S_OK, 0, 7},
                 {27, S_OK, 2, 7},
                 {33, QN_E_FILE_READ, 3, 0xFFFFFFFF},
                 {11, QN_E_FILE_READ, 3, 0xFFFFFFFF - 22},
                 {{}, QN_E_FILE_READ, 3, 0}};
  for (const auto& row : kCounts) {
    uint32_t remaining = row.budget.value_or(0);
    uint32_t count = 77;
    file.Go(12);
    EXPECT_EQ(riff_GetNumListEntries(file, &count, row.budget ? &remaining : nullptr), row.status);
    EXPECT_EQ(count, row.count) << row.budget.value_or(0);
    EXPECT_EQ(remaining, row.rest) << row.budget.value_or(0);
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
                {3, 33, S_OK, 0xFFFFFFFF, 46},
                {4, 34, QN_E_NOT_FOUND, 0, 46},
                {0x7FFFFFFF, 33, QN_E_FILE_READ, 0xFFFFFFFF, 46},
                {-1, 34, QN_E_NOT_FOUND, 34, 12}};
  for (const auto& row : kSeeks) {
    uint32_t remaining = row.budget;
    file.Go(12);
    EXPECT_EQ(riff_SeekListEntry(file, row.index, &remaining), row.status) << row.index;
    EXPECT_EQ(remaining, row.rest) << row.index;
    EXPECT_EQ(file.At(), row.end) << row.index;
  }
}

TEST(Riff, RandomFormsAgainstAModel) {
  auto& random = qntest::Random();
  const auto upTo = [&](uint64_t most) { return static_cast<size_t>(random() % (most + 1)); };
  constexpr const char* kNames[] = {"aaaa", "bbbb", "cccc", "dddd"};
  constexpr uint32_t kIds[] = {FourCC("aaaa"), FourCC("bbbb"), FourCC("cccc"), FourCC("dddd")};
  for (int round = 0; round < 60; ++round) {
    struct Node {
      size_t name;
      bool isList;
      Bytes bytes;
    };
    std::vector<Node> nodes(upTo(8));
    for (Node& node : nodes) {
      node = {upTo(3), upTo(2) == 0, {}};
      if (!node.isList) {
        node.bytes = Chunk(kNames[node.name], upTo(7) == 0 ? upTo(9000) : upTo(20));
        continue;
      }
      ByteBuilder body;
      body.Text(kNames[node.name]);
      for (size_t i = upTo(4); i > 0; --i) body.Add(Chunk(kNames[upTo(3)], upTo(9)));
      node.bytes = Chunk("LIST", body);
    }
    const auto write = [&](const Node* without) {
      ByteBuilder all;
      for (const Node& node : nodes) {
        if (&node != without) all.Add(node.bytes);
      }
      return Form(all);
    };
    const Bytes whole = write(nullptr);
    for (size_t name = 0; name < 4; ++name) {
      for (const bool isList : {false, true}) {
        uint64_t offset = 12;
        const Node* wanted = nullptr;
        for (const Node& node : nodes) {
          if (node.name == name && node.isList == isList) {
            wanted = &node;
            break;
          }
          offset += node.bytes.size();
        }
        const ChunkFile file(whole);
        uint32_t size = 0;
        uint32_t deleted = 99;
        const HRESULT expected = wanted ? S_OK : QN_E_NOT_FOUND;
        if (isList) {
          EXPECT_EQ(riff_FindListChunkFromStart(file, kIds[name], &size), expected);
        } else {
          uint32_t remaining = 0;
          EXPECT_EQ(riff_FindChunkHeaderInRIFF(file, kIds[name], &size, &remaining), expected);
          EXPECT_EQ(remaining, wanted ? whole.size() - offset - 8 : 0);
        }
        if (wanted) {
          EXPECT_EQ(file.At(), offset + (isList ? 12 : 8));
          EXPECT_EQ((size + 1) / 2 * 2, wanted->bytes.size() - (isList ? 12 : 8));
        }
        EXPECT_EQ(riff_DeleteChunk(file, kIds[name], &deleted, isList), expected);
        EXPECT_EQ(deleted, wanted ? wanted->bytes.size() : 0);
        EXPECT_EQ(file.Content(), write(wanted));
        if (wanted) {
          EXPECT_EQ(file.At(), file.Length());
        }
      }
    }
    ChunkFile file(whole);
    auto budget = static_cast<uint32_t>(whole.size() - 12);
    uint32_t count = 0;
    file.Go(12);
    EXPECT_EQ(riff_GetNumListEntries(file, &count, &budget), S_OK);
    EXPECT_EQ(count, nodes.size());
    EXPECT_EQ(budget, 0u);
    EXPECT_EQ(riff_SeekListEntry(file, static_cast<int32_t>(count), nullptr), S_OK);
    EXPECT_EQ(file.At(), whole.size());
  }
}

TEST(Riff, DeletionMovesTailsOfEveryLength) {
  for (size_t length : {0, 1, 4095, 4096, 4097, 8192, 12345}) {
    Bytes tail(length);
    for (size_t i = 0; i < length; ++i) tail[i] = static_cast<uint8_t>(i * 7 + i / 256);
    const ChunkFile file(ByteBuilder().Add(Form(Chunk("gone", 5), 1000)).Add(tail));
    uint32_t deleted = 0;
    EXPECT_EQ(riff_DeleteChunk(file, FourCC("gone"), &deleted, 0), S_OK);
    EXPECT_EQ(deleted, 14u);
    EXPECT_EQ(file.At(), 12 + length);
    EXPECT_EQ(file.Content(), Bytes(ByteBuilder().Add(Form({}, 1000 - 14)).Add(tail)));
  }
  // A size that overruns the file, and sums below zero.
  const ChunkFile lying(ByteBuilder().Add(Form({}, 40)).Text("gone").Number(0xFFFFFFF0, 4).Fill(5, 1));
  uint32_t deleted = 0;
  EXPECT_EQ(riff_DeleteChunk(lying, FourCC("gone"), &deleted, 0), S_OK);
  EXPECT_EQ(deleted, 0xFFFFFFF8);
  EXPECT_EQ(lying.Content(), Form({}, 48));

  const Bytes whole = Form(Chunk("gone", 5));
  const ChunkFile readOnly(whole, GENERIC_READ);
  EXPECT_EQ(riff_DeleteChunk(readOnly, FourCC("gone"), &deleted, 0), QN_E_FILE_WRITE);
  EXPECT_EQ(deleted, 0u);
  EXPECT_EQ(readOnly.Content(), whole);
}

TEST(Riff, SizeUpdate) {
  const struct {
    uint32_t stored;
    int64_t delta;
    uint32_t sum;
  } kSums[] = {{100, 12, 112},
               {100, -200, 0xFFFFFF9C},
               {0xFFFFFFF0, 7, 0xFFFFFFF7},
               {0xFFFFFFFF, -8, 0xFFFFFFF7},
               {0, std::numeric_limits<int64_t>::min(), 0},
               {0, 0xFFFFFFF7, 0xFFFFFFF7}};
  for (const auto& row : kSums) {
    ChunkFile file(Form(Chunk("note", 3), row.stored));
    file.Go(17);
    EXPECT_EQ(riff_UpdateRIFFSize(file, row.delta), S_OK);
    EXPECT_EQ(file.At(), 17u);
    EXPECT_EQ(file.Content(), Form(Chunk("note", 3), row.sum));
  }
  // Outgrown: what lies behind the old end goes.
  for (int64_t delta : {int64_t{0xFFFFFFF8 - 16}, std::numeric_limits<int64_t>::max()}) {
    ChunkFile file(Form(ByteBuilder().Add(Chunk("note", 3)).Add(Chunk("more", 9)), 16));
    file.Go(30);
    EXPECT_EQ(riff_UpdateRIFFSize(file, delta), QN_E_FILE_TOO_LARGE);
    EXPECT_EQ(file.At(), 30u);
    EXPECT_EQ(file.Content(), Form(Chunk("note", 3)));
  }
  ChunkFile tooShort({'R', 'I', 'F', 'F', 1});
  tooShort.Go(2);
  EXPECT_EQ(riff_UpdateRIFFSize(tooShort, 0), QN_E_FILE_READ);
  EXPECT_EQ(tooShort.At(), 2u);
}

TEST(Riff, FailingWrites) {
  ChunkFile file(kExample, GENERIC_READ);
  uint32_t written = 5;
  WCHAR text[] = u"x";
  EXPECT_EQ(riff_WriteChunkHeader(file, 1, 0), QN_E_FILE_WRITE);
  EXPECT_EQ(riff_WriteChunk(file, 1, "ab", 2, &written), QN_E_FILE_WRITE);
  EXPECT_EQ(riff_WriteListHeader(file, 1, 4), QN_E_FILE_WRITE);
  EXPECT_EQ(riff_WriteFileID(file, 1, 4), QN_E_FILE_WRITE);
  EXPECT_EQ(riff_WriteANSIString(file, text, &written), QN_E_FILE_WRITE);
  EXPECT_EQ(written, 5u);
  file.Go(9);
  EXPECT_EQ(riff_SetRIFFSize(file, 1), QN_E_FILE_WRITE);
  EXPECT_EQ(riff_UpdateRIFFSize(file, 1), QN_E_FILE_WRITE);
  EXPECT_EQ(file.At(), 9u);
  EXPECT_EQ(file.Content(), kExample);
}

TEST(Riff, NullArguments) {
  const ChunkFile file(kExample);
  uint32_t value = 1;
  WCHAR text[4] = u"abc";
  const HRESULT statuses[] = {riff_SaveLocation(file, nullptr),
                              riff_ReadChunkHeader(file, nullptr, &value),
                              riff_ReadChunkHeader(file, &value, nullptr),
                              riff_ReadListHeader(file, nullptr, &value),
                              riff_ReadListHeader(file, &value, nullptr),
                              riff_ReadData(file, nullptr, 1),
                              riff_ReadDataBounded(file, nullptr, 1, 1),
                              riff_ReadDataAlloc(file, nullptr),
                              riff_ReadANSIString(file, nullptr, 4, &value),
                              riff_ReadANSIString(file, text, 4, nullptr),
                              riff_WriteChunk(file, 1, nullptr, 1, &value),
                              riff_WriteANSIString(file, nullptr, &value),
                              riff_WriteANSIString(file, text, nullptr),
                              riff_GetNumListEntries(file, nullptr, &value),
                              riff_ReadRIFFCDDA(file, nullptr),
                              riff_ReadCDAFile(nullptr, &value, nullptr, nullptr, nullptr, nullptr)};
  for (HRESULT status : statuses) EXPECT_EQ(status, E_INVALIDARG);
  EXPECT_EQ(file.At(), 0u);
  EXPECT_EQ(file.Content(), kExample);
  EXPECT_EQ(riff_ReadChunkHeader(INVALID_HANDLE_VALUE, &value, &value), QN_E_FILE_READ);
}

class RiffText : public ::testing::Test {
 protected:
  ~RiffText() override { SetAnsiCodePage(0); }

  static Bytes Written(UINT codePage, std::u16string text) {
    ChunkFile file;
    uint32_t written = 0;
    SetAnsiCodePage(codePage);
    EXPECT_EQ(riff_WriteANSIString(file, text.data(), &written), S_OK);
    EXPECT_EQ(file.At(), written);
    return file.Content();
  }
};

TEST_F(RiffText, WritesAByteACharacter) {
  EXPECT_EQ(Written(1252, u""), (Bytes{0, 0}));
  EXPECT_EQ(Written(1252, u"ab"), (Bytes{'a', 'b', 0, 0}));
  EXPECT_EQ(Written(1252, u"\u00E9\u20AC!"), (Bytes{0xE9, 0x80, '!', 0}));
  EXPECT_EQ(Written(1252, u"\u6F22"), (Bytes{'?', 0}));
  // A conversion that needs more bytes is cut.
  EXPECT_EQ(Written(CP_UTF8, u"a\u00E9b"), (Bytes{'a', 0xC3, 0xA9, 0}));
  EXPECT_EQ(Written(932, u"\u6F22\u5B57"), (Bytes{0x8A, 0xBF, 0, 0}));
}

TEST_F(RiffText, ReadsAtMostItsRoom) {
  SetAnsiCodePage(1252);
  const struct {
    uint32_t size;
    int32_t room;
    std::u16string text;
    uint64_t end;
  } kRows[] = {{6, 16, u"Caf\u00E9!", 7}, {6, 4, u"Caf", 7}, {4, 4, u"Caf", 5}, {5, 16, u"Caf\u00E9", 7},
               {3, 16, u"Ca", 5},         {6, 1, u"", 7},    {0, 16, u"", 1}};
  ChunkFile file({9, 'C', 'a', 'f', 0xE9, '!', 0, 9});
  for (const auto& row : kRows) {
    std::u16string text(17, u'#');
    uint32_t size = row.size;
    file.Go(1);
    EXPECT_EQ(riff_ReadANSIString(file, text.data(), row.room, &size), S_OK);
    EXPECT_EQ(text.c_str(), row.text);
    EXPECT_EQ(text[static_cast<size_t>(row.room)], u'#');
    EXPECT_EQ(size, row.size + 1);
    EXPECT_EQ(file.At(), row.end) << row.size << "/" << row.room;
  }
  for (int32_t room : {0, -1, std::numeric_limits<int32_t>::min()}) {
    WCHAR untouched = u'#';
    uint32_t size = 6;
    file.Go(1);
    EXPECT_EQ(riff_ReadANSIString(file, &untouched, room, &size), S_OK);
    EXPECT_EQ(untouched, u'#');
    EXPECT_EQ(size, 7u);
    EXPECT_EQ(file.At(), 7u);
  }
  WCHAR untouched = u'#';
  uint32_t size = 0xFFFFFFFF;
  file.Go(1);
  EXPECT_EQ(riff_ReadANSIString(file, &untouched, 0x7FFFFFFF, &size), QN_E_FILE_READ);
  EXPECT_EQ(untouched, u'#');
  EXPECT_EQ(size, 0xFFFFFFFF);
}

// The track shortcut of docs/formats/riff.md.
const Bytes kShortcut = {
    'R',  'I',  'F', 'F', 36,   0,    0,    0,    'C',  'D',  'D', 'A',  // 0
    'f',  'm',  't', ' ', 24,   0,    0,    0,                           // 12
    1,    0,    2,   0,   0x78, 0x56, 0x34, 0x12, 0x9D, 0x4E, 0,   0,    // 20: version, track, serial, sector
    0x98, 0x3A, 0,   0,   25,   30,   4,    0,    0,    0,    0,   0,    // 32: length, start
};

TEST(RiffCda, ReadsATrack) {
  ChunkFile file(kShortcut, GENERIC_READ);
  uint32_t values[5];
  const auto read = [&] {
    for (uint32_t& value : values) value = 0xAAAAAAAA;
    return riff_ReadCDAFile(file.Path().c_str(), &values[0], &values[1], &values[2], &values[3], &values[4]);
  };
  EXPECT_EQ(read(), S_OK);
  EXPECT_EQ(std::vector<uint32_t>(values, values + 5),
            (std::vector<uint32_t>{2, 0x4E9D, (4 * 60 + 30) * 75 + 25, 15000, 0x12345678}));
  EXPECT_EQ(riff_ReadCDAFile(file.Path().c_str(), nullptr, nullptr, nullptr, nullptr, nullptr), S_OK);

  Bytes format(24);
  EXPECT_EQ(riff_ReadRIFFCDDA(file, format.data()), S_OK);
  EXPECT_EQ(format, Bytes(kShortcut.begin() + 20, kShortcut.end()));
  EXPECT_EQ(file.At(), 44u);

  EXPECT_EQ(riff_ReadCDAFile(u"\\no such file", &values[0], &values[1], &values[2], &values[3], &values[4]),
            QN_E_FILE_OPEN);
  for (uint32_t value : values) EXPECT_EQ(value, 0u);
}

TEST(RiffCda, RefusesOtherFiles) {
  const struct {
    size_t offset;
    uint8_t value;
    size_t length;
    HRESULT status;
  } kRows[] = {{8, 'X', 44, QN_E_FILE_FORMAT},  {12, 'X', 44, QN_E_NOT_FOUND},
               {16, 23, 44, QN_E_FILE_VERSION}, {16, 25, 44, QN_E_FILE_VERSION},
               {4, 11, 44, QN_E_NOT_FOUND},     {0, 'R', 43, QN_E_FILE_READ},
               {0, 'R', 19, QN_E_FILE_READ},    {0, 'X', 44, QN_E_RIFF_HEADER}};
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

TEST(RiffLarge, PlacesFromTwoGigabytesOn) {
  constexpr uint32_t kBig = 0xC0000001;
  constexpr uint64_t kTail = 12 + 8 + uint64_t{kBig} + 1;
  ChunkFile file(
      ByteBuilder().Text("RIFF").Number(kTail + 12 - 8, 4).Text("WAVE").Text("data").Number(kBig, 4));
  file.Put(kTail, Chunk("tail", 3));
  uint32_t size, location, count;
  EXPECT_EQ(riff_FindChunkHeaderInRIFF(file, FourCC("tail"), &size, nullptr), S_OK);
  EXPECT_EQ(file.At(), kTail + 8);
  EXPECT_EQ(riff_SaveLocation(file, &location), S_OK);
  riff_SeekDataStart(file);
  EXPECT_EQ(riff_GetNumListEntries(file, &count, nullptr), QN_E_FILE_READ);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(file.At(), 12u);
  EXPECT_EQ(riff_RestoreLocation(file, location), S_OK);
  EXPECT_EQ(file.At(), kTail + 8);
  EXPECT_EQ(riff_SetRIFFSize(file, kTail + 12 - 8), S_OK);
  EXPECT_EQ(file.At(), kTail + 8);
  EXPECT_EQ(riff_DeleteChunk(file, FourCC("tail"), &size, 0), S_OK);
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
  EXPECT_EQ(riff_GetFileSize(file, &size), S_OK);
  EXPECT_EQ(size, static_cast<uint32_t>(kMost + 4));
}

TEST(RiffLarge, SizesThatFillThirtyTwoBits) {
  constexpr uint64_t kTail = 20 + (uint64_t{1} << 32);
  ChunkFile file(ByteBuilder().Add(Form({}, 0xFFFFFFFF)).Text("data").Number(0xFFFFFFFF, 4));
  // Nothing behind it: the scans end.
  uint32_t remaining = 100;
  uint32_t count = 0;
  EXPECT_EQ(riff_FindChunkHeaderInRIFF(file, FourCC("tail"), nullptr, &remaining), QN_E_NOT_FOUND);
  EXPECT_EQ(remaining, 0u);
  file.Put(kTail, Chunk("tail", 3));
  file.Go(12);
  EXPECT_EQ(riff_FindChunkHeader(file, FourCC("tail"), nullptr, nullptr), S_OK);
  EXPECT_EQ(file.At(), kTail + 8);
  EXPECT_EQ(riff_GetNumListEntries(file, &count, nullptr), QN_E_FILE_READ);
  EXPECT_EQ(file.At(), kTail + 8);
  file.Go(20);
  EXPECT_EQ(riff_SkipChunk(file, 0xFFFFFFFF), 0xFFFFFFFF);
  EXPECT_EQ(file.At(), kTail);
}

TEST(RiffLarge, ManyEmptyChunks) {
  constexpr uint32_t kChunks = 300'000;
  ByteBuilder chunks;
  for (uint32_t i = 0; i < kChunks; ++i) chunks.Text("none").Number(0, 4);
  ChunkFile file(Form(chunks));
  uint32_t count = 0;
  uint32_t remaining = kChunks * 8;
  riff_SeekDataStart(file);
  EXPECT_EQ(riff_GetNumListEntries(file, &count, &remaining), S_OK);
  EXPECT_EQ(count, kChunks);
  EXPECT_EQ(riff_FindListChunkFromStart(file, FourCC("INFO"), nullptr), QN_E_NOT_FOUND);
}

TEST(RiffForeign, WalksAFileOfAnotherProgram) {
  if (!qntest::HasProgram("ffmpeg")) GTEST_SKIP() << "no ffmpeg";
  const qntest::ScratchFolder folder;
  ASSERT_EQ(qntest::RunCommand("ffmpeg -v error -f lavfi -i sine=duration=0.01 -ac 1 -ar 44100 -c:a pcm_u8 "
                               "-metadata title=Tune -metadata artist=Anna " +
                               folder.Native("a.wav")),
            0);
  ChunkFile file(qntest::ReadFileBytes(folder.Native("a.wav")), GENERIC_READ);
  uint32_t size, count, id;
  EXPECT_EQ(riff_FindChunkHeaderInRIFF(file, RIFF_ID_FMT, &size, nullptr), S_OK);
  EXPECT_EQ(size, 16u);
  EXPECT_EQ(riff_FindChunkHeaderInRIFF(file, FourCC("data"), &size, nullptr), S_OK);
  EXPECT_EQ(size, 441u);
  ASSERT_EQ(riff_FindListChunkFromStart(file, FourCC("INFO"), &size), S_OK);
  uint32_t budget = size;
  EXPECT_EQ(riff_GetNumListEntries(file, &count, &budget), S_OK);
  EXPECT_EQ(budget, 0u);
  EXPECT_EQ(count, 3u);
  budget = size;
  EXPECT_EQ(riff_FindChunkHeader(file, FourCC("INAM"), &size, &budget), S_OK);
  WCHAR title[16];
  EXPECT_EQ(riff_ReadANSIString(file, title, 16, &size), S_OK);
  EXPECT_EQ(std::u16string(title), u"Tune");
  EXPECT_EQ(riff_ReadChunkHeader(file, &id, &size), S_OK);
}

}  // namespace
