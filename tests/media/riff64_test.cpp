#include "qn/media/riff64.h"

#include "tests/media/media_file.h"

namespace {

using namespace qntest;

struct Riff64 : ::testing::Test, Wave64Shape {};

// The example of docs/formats/wave64.md.
const Bytes kExample =
    Hex("'riff' 2E 91 CF 11 A5 D6 28 DB 04 C1 00 00 90 *7 'wave' F3 AC D3 11 8C D1 00 C0 4F 8E DB 8A"
        "'data' F3 AC D3 11 8C D1 00 C0 4F 8E DB 8A 1B *7 01 02 03 *5 "
        "'list' 2F 91 CF 11 A5 D6 28 DB 04 C1 00 00 48 *7 'note' F3 AC D3 11 8C D1 00 C0 4F 8E DB 8A"
        "'junk' F3 AC 3D 11 8C D1 00 C0 4F 8E DB 8A 20 *7 04 05 *6");

TEST_F(Riff64, WritesTheDocumentedBytes) {
  TestFile file;
  uint64_t written = 0, start = 0;
  for (HRESULT status : {riff64_WriteFileID(file, &RIFF64_GUID_WAVE, 120),
                         riff64_WriteChunk(file, &RIFF64_GUID_DATA, "\1\2\3", 3, &written),
                         riff64_PrepareList(file, GuidKey(Name("note")), &start),
                         riff64_WriteChunkToFile(file, &RIFF64_GUID_JUNK, "\4\5", 2)}) {
    EXPECT_EQ(status, S_OK);
  }
  EXPECT_EQ(std::tuple(written, start, riff64_AmountWritten(file, start)), std::tuple(32, 72, 72));
  EXPECT_EQ(riff64_CompleteChunk(file, start), S_OK);
  EXPECT_EQ(std::tuple(file.At(), file.Content()), std::tuple(144, kExample));
  EXPECT_EQ(BytesOf(RIFF64_GUID_RIFF) + BytesOf(RIFF64_GUID_LIST) + BytesOf(RIFF64_GUID_FMT),
            Bytes(kExample.begin(), kExample.begin() + 16) + ListId() + Name("fmt "));

  file.Go(50);
  EXPECT_EQ(riff64_SetRIFFSize(file, 0xFFFFFFFF00) | riff64_UpdateRIFFSize(file, INT64_MAX), S_OK);
  EXPECT_EQ(riff64_UpdateRIFFSize(file, -8), S_OK);
  EXPECT_EQ(file.At(), 50u);
  EXPECT_EQ(file.Content(), Form(Bytes(kExample.begin() + 40, kExample.end()), 0x800000FFFFFFFF0F));
}

TEST_F(Riff64, PadsFromTheStart) {
  TestFile file;
  const GuidKey id(Name("aaaa"));
  uint64_t written, start;
  file.Go(3);
  for (HRESULT status : {riff64_PrepareChunk(file, id, &start), riff64_WriteToFile(file, "\1\2\3", 3),
                         riff64_WriteData(file, "\4\5", 0x300000002, &written), riff64_CompleteChunk(file, 3),
                         riff64_WriteListHeader(file, id, 20), riff64_Pad(file, 3), riff64_Pad(file, 8)}) {
    EXPECT_EQ(status, S_OK);
  }
  EXPECT_EQ(std::tuple(start, written), std::tuple(3, 8));
  EXPECT_EQ(file.Content(), Bytes(3) + Name("aaaa") + Le(40, 8) + Hex("01 02 03 04 05 *11") + ListId() +
                                Le(44, 8) + Name("aaaa") + Bytes(5));
}

TEST_F(Riff64, OddSizes) {
  constexpr uint64_t kOne = 1;
  constexpr HRESULT kBad = QN_E_CHUNK_SIZE;
  for (uint64_t size : {kOne, kOne * 12, kOne << 35}) EXPECT_EQ(riff64_ValidateChunkHeader({}, size), kBad);
  for (uint64_t size : {kOne * 8, kOne << 34, kOne << 63}) EXPECT_EQ(riff64_ValidateChunkHeader({}, size), 0);
  // Sizes that do not hold the header: none for a chunk, and no floor for a list or a form.
  TestFile stunted(Name("aaaa") + Le(23, 8) + ListId() + Le(10, 8) + Name("bbbb") + Form({}, 10));
  GUID id;
  uint64_t size = 9;
  EXPECT_EQ(riff64_ReadChunkHeader(stunted, &id, &size), S_OK);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(riff64_ReadListHeader(stunted, &id, &size), S_OK);
  EXPECT_EQ(static_cast<int64_t>(size), 10 - 24 - 16);
  EXPECT_EQ(riff64_ReadFileID(stunted, &size, nullptr), S_OK);
  EXPECT_EQ(static_cast<int64_t>(size), -16);
  // A list without room for its type is left at its end.
  for (uint64_t stored : {0, 24}) {
    TestFile file(Form(ListId() + Le(stored, 8) + List("cccc", {})));
    int64_t remaining = 64;
    file.Go(40);
    EXPECT_EQ(riff64_FindListChunk(file, GuidKey(Name("cccc")), nullptr, &remaining), S_OK);
    EXPECT_EQ(std::tuple(remaining, file.At()), std::tuple(0, 104));
  }
}

TEST_F(Riff64, NoSizeLeadsBackwards) {
  constexpr uint64_t kTop = uint64_t{1} << 63;
  for (uint64_t stored : {~uint64_t{0}, 0 - uint64_t{24}, kTop + 24, kTop - 64}) {
    for (const Bytes& name : {Name("aaaa"), ListId()}) {
      TestFile file(Form(name + Le(stored, 8) + Chunk("bbbb", Bytes(50)), 200));
      file.Go(40);
      EXPECT_EQ(riff64_FindListChunk(file, &RIFF64_GUID_FMT, nullptr, nullptr), kShort);
      file.Go(40);
      EXPECT_EQ(riff64_SeekListEntry(file, INT32_MAX, nullptr), kShort);
      // Deleting the chunk cuts the file at its start.
      uint64_t deleted = 0;
      EXPECT_EQ(riff64_DeleteChunk(file, GuidKey(name), &deleted), S_OK);
      EXPECT_EQ(deleted, (stored - 24 + 7) / 8 * 8 + 24);
      EXPECT_EQ(file.Content(), Form({}, 200 - deleted));
    }
  }
}

}  // namespace
