// What holds for RIFF and Wave64 files alike.
#include "qn/media/riff.h"
#include "qn/media/riff64.h"
#include "qn/platform/memory.h"
#include "tests/media/media_file.h"
#include "tests/support/chunk_calls.h"

namespace {

using namespace qntest;

// What is asked with which budget, the status, what is left of the budget, and the place reached. All begin
// at the first chunk. "+" leads the names of lists and "#" the number of an entry; "#" alone is a count,
// which is reached. Without a budget there is no bound.
using Row = std::tuple<std::string_view, std::optional<int64_t>, HRESULT, int64_t, uint64_t>;

struct Riff : RiffShape {
  using Id = uint32_t;
  using Size = uint32_t;
  using Budget = uint32_t;
  QN_CHUNK_CALLS(riff);
  static HRESULT Delete(HANDLE file, uint32_t id, uint32_t* deleted) {
    return riff_DeleteChunk(file, id, deleted, 0);
  }
  static uint32_t Key(std::string_view text) { return RiffId(text); }

  static constexpr HRESULT kNoHeader = kShort;
  // A walk over entries wraps its budget.
  static constexpr Row kRows[] = {
      {"aaaa", 8, S_OK, 0, 20},       {"aaaa", 7, kMissing, 7, 12},   {"cccc", 48, S_OK, 12, 48},
      {"cccc", 36, S_OK, 0, 48},      {"cccc", 35, kMissing, 7, 40},  {"cccc", 11, kMissing, 0, 24},
      {"none", 48, kMissing, 0, 60},  {"none", 900, kShort, 900, 60}, {"cccc", -5, S_OK, -41, 48},
      {"cccc", {}, S_OK, 0, 48},      {"none", {}, kShort, 0, 60},    {"+bbbb", 48, S_OK, 24, 36},
      {"+bbbb", 24, S_OK, 0, 36},     {"+bbbb", 23, kMissing, 3, 32}, {"+bbbb", 19, kMissing, 7, 24},
      {"+dddd", 48, S_OK, 0, 60},     {"+dddd", 47, kMissing, 3, 56}, {"+dddd", 27, kMissing, 0, 40},
      {"+none", 48, kMissing, 0, 60}, {"+none", 90, kShort, 42, 60},  {"+dddd", {}, S_OK, 0, 60},
      {"#", 48, S_OK, 0, 4},          {"#", 7, S_OK, 7, 0},           {"#", 35, S_OK, 7, 2},
      {"#", 47, kShort, -1, 4},       {"#", 11, kShort, -37, 4},      {"#0", 0, S_OK, 0, 12},
      {"#2", 48, S_OK, 20, 40},       {"#4", 47, S_OK, -1, 60},       {"#5", 48, kMissing, 0, 60},
      {"#-1", 47, kMissing, 47, 12}};
  // Sizes of data and, if they are bounded, of the buffer, and the place that reading them ends at.
  static constexpr uint64_t kReads[][2] = {{0, 0}, {1, 2}, {4, 4}, {5, 6}, {0x700000003, 4}, {16, 16}};
  static constexpr uint32_t kBounded[][3] = {{5, 4, 5}, {5, 3, 6},   {4, 5, 5},
                                             {6, 6, 6}, {16, 0, 16}, {99, 2, 99}};
  static constexpr uint64_t kBig = 0xC0000001;
};

struct Wave64 : Wave64Shape {
  using Id = GUID;
  using Size = uint64_t;
  using Budget = int64_t;
  QN_CHUNK_CALLS(riff64);
  static constexpr auto Delete = riff64_DeleteChunk;
  static GuidKey Key(std::string_view text) { return GuidKey(Name(text)); }

  static constexpr HRESULT kNoHeader = QN_E_RIFF_HEADER;
  // A list's type is asked for 8 bytes of budget, and takes 16; a walk over entries ends below zero.
  static constexpr Row kRows[] = {
      {"aaaa", 24, S_OK, 0, 64},        {"aaaa", 23, kMissing, 23, 40},  {"aaaa", -1, kMissing, -1, 40},
      {"cccc", 144, S_OK, 40, 144},     {"cccc", 104, S_OK, 0, 144},     {"cccc", 103, kMissing, 23, 120},
      {"cccc", 30, kMissing, -2, 72},   {"none", 144, kMissing, 0, 184}, {"none", 900, kShort, 900, 184},
      {"cccc", {}, S_OK, 0, 144},       {"none", {}, kShort, 0, 184},    {"+bbbb", 144, S_OK, 72, 112},
      {"+bbbb", 64, S_OK, -8, 112},     {"+bbbb", 63, kMissing, 7, 96},  {"+dddd", 144, S_OK, 0, 184},
      {"+none", 144, kMissing, 0, 184}, {"+none", 190, kShort, 46, 184}, {"+dddd", {}, S_OK, 0, 184},
      {"#", 144, S_OK, 0, 4},           {"#", 143, S_OK, -1, 4},         {"#", 60, S_OK, -20, 2},
      {"#", 23, S_OK, 23, 0},           {"#", -5, S_OK, -5, 0},          {"#2", 144, S_OK, 64, 120},
      {"#4", 143, S_OK, -1, 184},       {"#5", 144, kMissing, 0, 184},   {"#-1", 9, kMissing, 9, 40}};
  static constexpr uint64_t kReads[][2] = {{0, 0}, {1, 8}, {8, 8}, {9, 16}, {0x700000003, 8}, {16, 16}};
  static constexpr uint32_t kBounded[][3] = {{5, 4, 9}, {5, 3, 8}, {8, 16, 8}, {16, 0, 16}, {99, 2, 101}};
  static constexpr uint64_t kBig = 0x140000001;
};

template <class Family>
struct Chunks : ::testing::Test, Family {
  static uint64_t Padded(uint64_t size) { return size + -size % Family::kAlign; }
};
using Families = ::testing::Types<Riff, Wave64>;
TYPED_TEST_SUITE(Chunks, Families);

TYPED_TEST(Chunks, ReadsHeadersInOrder) {
  using F = TestFixture;
  const Bytes whole = F::Form(F::Chunk("note", {1, 2, 3}) + F::List("INFO", F::Chunk("INAM", {4, 5})));
  TestFile file(whole);
  typename F::Id id;
  typename F::Size size;
  F::Restore(file, F::kForm);
  EXPECT_EQ(F::ReadHeader(file, &id, &size), S_OK);
  EXPECT_EQ(std::tuple(BytesOf(id), size), std::tuple(F::Name("note"), 3));
  EXPECT_EQ(F::Skip(file, size), F::Padded(3));
  EXPECT_EQ(F::ReadListHeader(file, &id, &size), S_OK);
  EXPECT_EQ(std::tuple(BytesOf(id), size), std::tuple(F::Name("INFO"), whole.size() - file.At()));
  EXPECT_EQ(F::ReadListHeader(file, &id, &size), QN_E_LIST_HEADER);
  EXPECT_EQ(size, 2u);

  for (ptrdiff_t length = 0; length <= ptrdiff_t{F::kForm}; ++length) {
    TestFile cut(Bytes(whole.begin(), whole.begin() + length));
    const bool hasSize = length >= ptrdiff_t{F::kHeader}, hasType = length == ptrdiff_t{F::kForm};
    EXPECT_EQ(F::ReadFileID(cut, &size, nullptr), hasType ? S_OK : hasSize ? kShort : F::kNoHeader) << length;
    EXPECT_EQ(size, hasSize ? whole.size() - F::kForm : 0) << length;
  }
  file.Put(3, {'X'});
  EXPECT_EQ(F::FindListInForm(file, F::Key("INFO"), &size), QN_E_RIFF_HEADER);
  EXPECT_EQ(F::Delete(file, F::Key("note"), &size), QN_E_RIFF_HEADER);
}

TYPED_TEST(Chunks, DataReadersEndWhereTheirPadSays) {
  using F = TestFixture;
  const Bytes data = Hex("01 02 03 04 05 06 07 08 09 *7");
  TestFile file(data);
  uint8_t buffer[16];
  for (const auto& [size, end] : F::kReads) {
    file.Go(0);
    EXPECT_EQ(F::ReadData(file, buffer, size), S_OK);
    EXPECT_EQ(file.At(), end) << size;
  }
  EXPECT_EQ(F::ReadData(file, buffer, 1), kShort);
  for (const auto& [chunk, room, end] : F::kBounded) {
    file.Go(0);
    EXPECT_EQ(F::ReadBounded(file, buffer, chunk, room), S_OK);
    EXPECT_EQ(file.At(), end) << chunk << "/" << room;
  }
  for (uint32_t size : {0u, 5u, 16u, 17u, ~0u}) {
    riff_DataBlock block = {size, &block};
    file.Go(0);
    EXPECT_EQ(F::ReadAlloc(file, &block), size > 16 ? kShort : S_OK);
    EXPECT_EQ(file.At(), size > 16 ? 16 : F::Padded(size));
    ASSERT_EQ(block.data != nullptr, size == 5 || size == 16);
    EXPECT_EQ(block.data ? std::memcmp(block.data, data.data(), size) : 0, 0);
    GlobalUnlock(GlobalHandle(block.data));
    GlobalFree(GlobalHandle(block.data));
  }
}

TYPED_TEST(Chunks, SearchesAndWalksSpendTheirBudget) {
  using F = TestFixture;
  TestFile file(F::Form(F::Chunk("aaaa", {1, 2, 3}) + F::List("bbbb", {1, 2, 3}) + F::Chunk("cccc", {}) +
                        F::List("dddd", {})));
  for (const auto& [what, budget, status, rest, reached] : F::kRows) {
    SCOPED_TRACE(std::string(what) + " " + std::to_string(budget.value_or(0)));
    auto remaining = static_cast<typename F::Budget>(budget.value_or(0));
    uint32_t count = 77;
    HRESULT got;
    F::Start(file);
    if (what == "#") {
      got = F::Count(file, &count, &remaining);
      EXPECT_EQ(file.At(), F::kForm);
    } else if (what[0] == '#') {
      got = F::Seek(file, std::stoi(std::string(what.substr(1))), &remaining);
    } else {
      const auto key = F::Key(what.substr(what.size() - 4));
      const bool isList = what[0] == '+';
      if (budget) {
        // In the form its stored size is the budget, and `remaining` only comes out.
        F::SetSize(file, static_cast<typename F::Size>(*budget + int64_t{F::kType}));
        typename F::Budget left = 7;
        got = isList ? F::FindListInForm(file, key, nullptr) : F::FindInForm(file, key, nullptr, &left);
        EXPECT_EQ(std::tuple(got, left),
                  std::tuple(status, isList ? 7 : static_cast<typename F::Budget>(rest)));
        F::Start(file);
      }
      got = (isList ? F::FindList : F::Find)(file, key, nullptr, budget ? &remaining : nullptr);
    }
    EXPECT_EQ(std::tuple(got, remaining), std::tuple(status, static_cast<typename F::Budget>(rest)));
    EXPECT_EQ(what == "#" ? count : file.At(), reached);
  }
}

TYPED_TEST(Chunks, Deletions) {
  using F = TestFixture;
  const Bytes gone = F::Chunk("gone", Bytes(5)), kept = F::List("gone", gone) + F::Chunk("kept", {1, 2, 3});
  typename F::Size deleted = 0;
  for (size_t length : {0, 1, 4095, 4096, 4097, 8192, 12345}) {
    Bytes tail(length);
    for (size_t i = 0; i < length; ++i) tail[i] = static_cast<uint8_t>(i * 7 + i / 256);
    TestFile file(F::Form(kept + gone + tail, 9000));
    EXPECT_EQ(F::Delete(file, F::Key("gone"), &deleted), S_OK);
    EXPECT_EQ(std::tuple(deleted, file.At()), std::tuple(gone.size(), file.Length()));
    EXPECT_EQ(file.Content(), F::Form(kept + tail, 9000 - gone.size()));
  }
  TestFile readOnly(F::Form(gone + gone), GENERIC_READ);
  EXPECT_EQ(F::Delete(readOnly, F::Key("gone"), &deleted), QN_E_FILE_WRITE);
  EXPECT_EQ(F::Update(readOnly, 1), QN_E_FILE_WRITE);
}

// Beyond 2 GiB, and where the family can beyond 4.
TYPED_TEST(Chunks, FarPlaces) {
  using F = TestFixture;
  const uint64_t tail = F::kForm + F::kHeader + F::Padded(F::kBig);
  TestFile file(F::Form(F::Header(F::Name("data"), F::kBig)));
  file.Put(tail, F::Chunk("tail", {1, 2, 3}));
  F::SetSize(file, static_cast<typename F::Size>(file.Length() - F::kHeader));
  typename F::Size size, location;
  EXPECT_EQ(F::FindInForm(file, F::Key("tail"), &size, nullptr), S_OK);
  F::Save(file, &location);
  EXPECT_EQ(location, tail + F::kHeader);
  EXPECT_EQ(F::Delete(file, F::Key("tail"), &size), S_OK);
  EXPECT_EQ(std::tuple(file.Length(), file.At()), std::tuple(tail, tail));
}

}  // namespace
