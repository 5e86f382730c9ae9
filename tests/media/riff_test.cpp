#include "qn/media/riff.h"

#include "qn/platform/locale.h"
#include "tests/media/media_file.h"

namespace {

using namespace qntest;

// The examples of docs/formats/riff.md.
const Bytes kExample =
    Hex("'RIFF' 26 00 00 00 'WAVE' 'note' 03 00 00 00 01 02 03 00"
        "'LIST' 0E 00 00 00 'INFO' 'INAM' 02 00 00 00 'H' 00");
const Bytes kShortcut =
    Hex("'RIFF' 24 00 00 00 'CDDA' 'fmt ' 18 00 00 00 01 00 02 00 78 56 34 12 9D 4E 00 00"
        "98 3A 00 00 19 1E 04 00 00 00 00 00");

struct Riff : ::testing::Test, RiffShape {
  ~Riff() override { SetAnsiCodePage(0); }
};

TEST_F(Riff, WritesTheDocumentedBytes) {
  TestFile file;
  uint32_t written = 0, text = 0;
  WCHAR title[] = u"H";
  for (HRESULT status :
       {riff_WriteFileID(file, RiffId("WAVE"), 38),
        riff_WriteChunk(file, RiffId("note"), "\1\2\3", 3, &written),
        riff_WriteListHeader(file, RiffId("INFO"), 14), riff_WriteChunkHeader(file, RiffId("INAM"), 2),
        riff_WriteANSIString(file, title, &text)}) {
    EXPECT_EQ(status, S_OK);
  }
  EXPECT_EQ(std::tuple(written, text, file.Content()), std::tuple(12, 2, kExample));
  EXPECT_EQ(riff_SetRIFFSize(file, 48), S_OK);
  EXPECT_EQ(std::tuple(file.At(), file.Content()),
            std::tuple(46, Form(Bytes(kExample.begin() + 12, kExample.end()), 48)));
  EXPECT_EQ(riff_GetFileSize(file, &text), S_OK);
  EXPECT_EQ(std::tuple(text, file.At()), std::tuple(52, 12));
  EXPECT_EQ(riff_ValidateChunkHeader(0, -1), QN_E_CHUNK_SIZE);
  EXPECT_EQ(riff_ValidateChunkHeader(0, 0), QN_E_CHUNK_EMPTY);
}

TEST_F(Riff, SmallFormsAndLists) {
  // From the start a list's header is taken to have its type.
  uint32_t remaining;
  for (uint32_t room = 0; room <= 16; ++room) {
    TestFile file(Form({}, room));
    EXPECT_EQ(riff_FindChunkHeaderInRIFF(file, 1, nullptr, &remaining), room < 12 ? kMissing : kShort);
    EXPECT_EQ(remaining, room < 4 ? 0 : room - 4);
    EXPECT_EQ(riff_FindListChunkFromStart(file, 1, nullptr), room < 16 ? kMissing : kShort) << room;
  }
  // A list without room for its type ends a scan that has a budget.
  for (size_t stunted = 0; stunted < 4; ++stunted) {
    const Bytes first = Chunk("LIST", Bytes(stunted));
    TestFile file(first + List("cccc", {}) + Bytes(8));
    remaining = 500;
    EXPECT_EQ(riff_FindListChunk(file, RiffId("cccc"), nullptr, &remaining), kMissing);
    EXPECT_EQ(std::tuple(remaining, file.At()), std::tuple(0, first.size()));
    file.Go(0);
    EXPECT_EQ(riff_FindListChunk(file, RiffId("cccc"), nullptr, nullptr), S_OK);
  }
}

TEST_F(Riff, DeletesLists) {
  const Bytes before = List("aaaa", Chunk("gone", {1})) + Chunk("gone", {1, 2, 3}), rest = Chunk("rest", {5});
  TestFile file(Form(before + List("gone", {7, 8, 9}) + rest));
  uint32_t deleted = 0;
  EXPECT_EQ(riff_DeleteChunk(file, RiffId("gone"), &deleted, 2), S_OK);
  EXPECT_EQ(std::tuple(deleted, file.Content()), std::tuple(16, Form(before + rest)));
  // A size that overruns the file, and a sum below zero.
  TestFile lying(Form(Hex("'gone' F0 FF FF FF 01 01"), 40));
  EXPECT_EQ(riff_DeleteChunk(lying, RiffId("gone"), &deleted, 0), S_OK);
  EXPECT_EQ(std::tuple(deleted, lying.Content()), std::tuple(0xFFFFFFF8, Form({}, 48)));
}

TEST_F(Riff, SizeUpdates) {
  const Bytes chunk = Chunk("note", {1}), all = chunk + Chunk("more", Bytes(9));
  constexpr HRESULT kOutgrown = QN_E_FILE_TOO_LARGE;  // what lies behind the old end goes
  using Row = std::tuple<uint32_t, int64_t, HRESULT, Bytes>;
  for (const auto& [stored, delta, status, result] :
       {Row(100, -200, S_OK, Form(all, 0xFFFFFF9C)), Row(0xFFFFFFF0, 7, S_OK, Form(all, 0xFFFFFFF7)),
        Row(~0u, -8, S_OK, Form(all, 0xFFFFFFF7)), Row(0, INT64_MIN, S_OK, Form(all, 0)),
        Row(14, 0xFFFFFFF8 - 14, kOutgrown, Form(chunk)), Row(14, INT64_MAX, kOutgrown, Form(chunk))}) {
    TestFile file(Form(all, stored));
    file.Go(30);
    EXPECT_EQ(riff_UpdateRIFFSize(file, delta), status);
    EXPECT_EQ(std::tuple(file.At(), file.Content()), std::tuple(30, result)) << delta;
  }
}

TEST_F(Riff, TextsAreWrittenAByteACharacter) {
  // A conversion that needs more bytes is cut.
  using Row = std::tuple<UINT, std::u16string, Bytes>;
  for (auto [codePage, text, bytes] :
       {Row(1252, u"", {0, 0}), Row(1252, u"\u00E9\u20AC\u6F22", {0xE9, 0x80, '?', 0}),
        Row(CP_UTF8, u"a\u00E9b", {'a', 0xC3, 0xA9, 0}), Row(932, u"\u6F22\u5B57", {0x8A, 0xBF, 0, 0})}) {
    TestFile file;
    uint32_t written = 0;
    SetAnsiCodePage(codePage);
    EXPECT_EQ(riff_WriteANSIString(file, text.data(), &written), S_OK);
    EXPECT_EQ(std::tuple(written, file.Content()), std::tuple(bytes.size(), bytes));
  }
}

TEST_F(Riff, TextsFillAtMostTheirRoom) {
  SetAnsiCodePage(1252);
  TestFile file(Hex("09 'Caf' E9 '!' 00 09"));
  const std::tuple<uint32_t, size_t, std::u16string, uint64_t> kRows[] = {
      {6, 16, u"Caf\u00E9!", 7}, {6, 4, u"Caf", 7}, {4, 4, u"Caf", 5},
      {5, 16, u"Caf\u00E9", 7},  {6, 1, u"", 7},    {0, 16, u"", 1}};
  for (const auto& [bytes, room, expected, end] : kRows) {
    std::u16string text(18, u'#');
    uint32_t size = bytes;
    file.Go(1);
    EXPECT_EQ(riff_ReadANSIString(file, text.data(), static_cast<int32_t>(room), &size), S_OK);
    EXPECT_EQ(text.c_str(), expected);
    EXPECT_EQ(text.substr(room - 1), u'\0' + std::u16string(18 - room, u'#'));
    EXPECT_EQ(std::tuple(size, file.At()), std::tuple(bytes + 1, end)) << bytes << "/" << room;
  }
}

TEST_F(Riff, CdTracks) {
  constexpr HRESULT kOther = QN_E_FILE_FORMAT, kVersion = QN_E_FILE_VERSION, kNoRiff = QN_E_RIFF_HEADER;
  const std::tuple<size_t, uint8_t, size_t, HRESULT> kRows[] = {
      {0, 'R', 44, S_OK},    {8, 'X', 44, kOther},  {12, 'X', 44, kMissing}, {16, 23, 44, kVersion},
      {0, 'X', 44, kNoRiff}, {4, 11, 44, kMissing}, {16, 25, 44, kVersion},  {0, 'R', 43, kShort}};
  for (const auto& [place, value, length, status] : kRows) {
    Bytes bytes = kShortcut;
    bytes[place] = value;
    bytes.resize(length);
    TestFile file(bytes, GENERIC_READ);
    std::vector<uint32_t> v(5, 9), track = {2, 20125, (4 * 60 + 30) * 75 + 25, 15000, 0x12345678};
    EXPECT_EQ(riff_ReadCDAFile(file.Path(), &v[0], &v[1], &v[2], &v[3], &v[4]), status) << place;
    EXPECT_EQ(v, status == S_OK ? track : std::vector<uint32_t>(5));
    Bytes format(24, 0x77);
    EXPECT_EQ(riff_ReadRIFFCDDA(file, format.data()), status);
    EXPECT_EQ(format, status == S_OK ? Bytes(kShortcut.begin() + 20, kShortcut.end()) : Bytes(24, 0x77));
  }
}

TEST_F(Riff, SizesThatFillThirtyTwoBits) {
  constexpr uint64_t kTail = 20 + (uint64_t{1} << 32);
  TestFile file(Form(Hex("'data' FF FF FF FF"), ~0u));
  file.Put(kTail, Chunk("tail", {1, 2, 3}));
  uint32_t remaining = 100;
  EXPECT_EQ(riff_FindChunkHeaderInRIFF(file, RiffId("tail"), nullptr, &remaining), kMissing);
  EXPECT_EQ(std::tuple(remaining, file.At()), std::tuple(0, kTail));
  EXPECT_EQ(riff_SkipChunk(file, ~0u), ~0u);
}

}  // namespace
