#include "qn/media/riff.h"

#include "qn/platform/locale.h"
#include "tests/media/media_file.h"

namespace {

using namespace qntest;

// The examples of docs/formats/riff.md.
const Bytes kExample =
    Hex("'RIFF' 26 00 00 00 'WAVE'"
        "'note' 03 00 00 00 01 02 03 00"
        "'LIST' 0E 00 00 00 'INFO'"
        "'INAM' 02 00 00 00 'H' 00");
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
  EXPECT_EQ(std::tuple(written, text), std::tuple(12, 2));
  EXPECT_EQ(file.Content(), kExample);
  EXPECT_EQ(riff_WriteChunk(file, RiffId("even"), "\1\2", 2, nullptr), S_OK);
  EXPECT_EQ(riff_SetRIFFSize(file, 48), S_OK);
  EXPECT_EQ(file.At(), 56u);
  EXPECT_EQ(file.Content(), Form(Bytes(kExample.begin() + 12, kExample.end()) + Chunk("even", {1, 2})));

  EXPECT_EQ(riff_GetFileSize(file, &text), S_OK);
  EXPECT_EQ(std::tuple(text, file.At()), std::tuple(52, 12));
  for (int32_t size : {-1, 0, 1}) {
    EXPECT_EQ(riff_ValidateChunkHeader(0, size), size < 0 ? QN_E_CHUNK_SIZE : size ? S_OK : QN_E_CHUNK_EMPTY);
  }
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
    TestFile file(Form(first + List("cccc", {}) + Bytes(8)));
    remaining = 500;
    file.Go(12);
    EXPECT_EQ(riff_FindListChunk(file, RiffId("cccc"), nullptr, &remaining), kMissing);
    EXPECT_EQ(std::tuple(remaining, file.At()), std::tuple(0, 12 + first.size()));
    file.Go(12);
    EXPECT_EQ(riff_FindListChunk(file, RiffId("cccc"), nullptr, nullptr), S_OK);
    EXPECT_EQ(file.At(), 24 + first.size());
  }
}

TEST_F(Riff, DeletesLists) {
  const Bytes before = List("aaaa", Chunk("gone", {1})) + Chunk("gone", {1, 2, 3}), rest = Chunk("rest", {5});
  TestFile file(Form(before + List("gone", {7, 8, 9}) + rest));
  uint32_t deleted = 0;
  EXPECT_EQ(riff_DeleteChunk(file, RiffId("gone"), &deleted, 2), S_OK);
  EXPECT_EQ(deleted, 16u);
  EXPECT_EQ(file.Content(), Form(before + rest));
  EXPECT_EQ(riff_DeleteChunk(file, RiffId("gone"), &deleted, 1), kMissing);

  // A size that overruns the file, and a sum below zero.
  TestFile lying(Form(Hex("'gone' F0 FF FF FF 01 01"), 40));
  EXPECT_EQ(riff_DeleteChunk(lying, RiffId("gone"), &deleted, 0), S_OK);
  EXPECT_EQ(std::tuple(deleted, lying.Content()), std::tuple(0xFFFFFFF8, Form({}, 48)));
}

TEST_F(Riff, SizeUpdates) {
  const Bytes chunk = Chunk("note", {1}), all = chunk + Chunk("more", Bytes(9));
  const std::tuple<uint32_t, int64_t, HRESULT, Bytes> kRows[] = {
      {100, -200, S_OK, Form(all, 0xFFFFFF9C)},
      {0xFFFFFFF0, 7, S_OK, Form(all, 0xFFFFFFF7)},
      {~0u, -8, S_OK, Form(all, 0xFFFFFFF7)},
      {0, INT64_MIN, S_OK, Form(all, 0)},
      // Outgrown: what lies behind the old end goes.
      {14, 0xFFFFFFF8 - 14, QN_E_FILE_TOO_LARGE, Form(chunk)},
      {14, INT64_MAX, QN_E_FILE_TOO_LARGE, Form(chunk)}};
  for (const auto& [stored, delta, status, result] : kRows) {
    TestFile file(Form(all, stored));
    file.Go(30);
    EXPECT_EQ(riff_UpdateRIFFSize(file, delta), status);
    EXPECT_EQ(std::tuple(file.At(), file.Content()), std::tuple(30, result)) << delta;
  }
}

TEST_F(Riff, TextsAreWrittenAByteACharacter) {
  // A conversion that needs more bytes is cut.
  const std::tuple<UINT, std::u16string, Bytes> kRows[] = {{1252, u"", {0, 0}},
                                                           {1252, u"\u00E9\u20AC!", {0xE9, 0x80, '!', 0}},
                                                           {1252, u"\u6F22", {'?', 0}},
                                                           {CP_UTF8, u"a\u00E9b", {'a', 0xC3, 0xA9, 0}},
                                                           {932, u"\u6F22\u5B57", {0x8A, 0xBF, 0, 0}}};
  for (auto [codePage, text, bytes] : kRows) {
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
  uint32_t size;
  for (const auto& [bytes, room, expected, end] : kRows) {
    std::u16string text(18, u'#');
    size = bytes;
    file.Go(1);
    EXPECT_EQ(riff_ReadANSIString(file, text.data(), static_cast<int32_t>(room), &size), S_OK);
    EXPECT_EQ(text.c_str(), expected);
    EXPECT_EQ(text.substr(room - 1), u'\0' + std::u16string(18 - room, u'#'));
    EXPECT_EQ(std::tuple(size, file.At()), std::tuple(bytes + 1, end)) << bytes << "/" << room;
  }
  WCHAR untouched = u'#';
  size = ~0u;
  for (const int32_t room : {0, -1, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(riff_ReadANSIString(file, &untouched, room, &size), room > 0 ? kShort : E_INVALIDARG);
    EXPECT_EQ(std::tuple(untouched, size), std::tuple(u'#', ~0u));
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
    std::vector<uint32_t> values(5, 9), track = {2, 20125, (4 * 60 + 30) * 75 + 25, 15000, 0x12345678};
    uint32_t* const v = values.data();
    EXPECT_EQ(riff_ReadCDAFile(file.Path(), v, v + 1, v + 2, v + 3, v + 4), status) << place;
    EXPECT_EQ(values, status == S_OK ? track : std::vector<uint32_t>(5));
    Bytes format(24, 0x77);
    EXPECT_EQ(riff_ReadRIFFCDDA(file, format.data()), status);
    EXPECT_EQ(format, status == S_OK ? Bytes(kShortcut.begin() + 20, kShortcut.end()) : Bytes(24, 0x77));
  }
  EXPECT_EQ(riff_ReadCDAFile(u"/no/such/file", nullptr, nullptr, nullptr, nullptr, nullptr), QN_E_FILE_OPEN);
}

TEST_F(Riff, SizesThatFillThirtyTwoBits) {
  // The last size that the format holds, and one byte more.
  constexpr uint64_t kEnd = 0xFFFFFFFF, kTail = 20 + (uint64_t{1} << 32);
  TestFile outgrown(Form({}, kEnd - 9));
  outgrown.Put(kEnd, {1});
  EXPECT_EQ(riff_UpdateRIFFSize(outgrown, 1), S_OK);
  EXPECT_EQ(riff_UpdateRIFFSize(outgrown, 1), QN_E_FILE_TOO_LARGE);
  EXPECT_EQ(std::tuple(outgrown.Length(), outgrown.At()), std::tuple(kEnd, kEnd + 1));

  TestFile file(Form(Hex("'data' FF FF FF FF"), ~0u));
  file.Put(kTail, Chunk("tail", {1, 2, 3}));
  uint32_t remaining = 100;
  EXPECT_EQ(riff_FindChunkHeaderInRIFF(file, RiffId("tail"), nullptr, &remaining), kMissing);
  EXPECT_EQ(std::tuple(remaining, file.At()), std::tuple(0, kTail));
  file.Go(12);
  EXPECT_EQ(riff_FindChunkHeader(file, RiffId("tail"), nullptr, nullptr), S_OK);
  EXPECT_EQ(file.At(), kTail + 8);
  EXPECT_EQ(riff_GetNumListEntries(file, &remaining, nullptr), kShort);
  EXPECT_EQ(file.At(), kTail + 8);
  EXPECT_EQ(riff_SkipChunk(file, ~0u), ~0u);
}

}  // namespace
