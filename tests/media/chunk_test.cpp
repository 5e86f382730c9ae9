// What holds for RIFF and Wave64 files alike.
#include <vector>

#include "qn/media/riff.h"
#include "qn/media/riff64.h"
#include "tests/media/chunk_file.h"

namespace {

using namespace qntest;

// The calls of the two families under one name each.
struct Riff : RiffShape {
  using Size = uint32_t;
  using Budget = uint32_t;
  static constexpr auto Find = riff_FindChunkHeaderInRIFF;
  static constexpr auto FindList = riff_FindListChunkFromStart;
  static constexpr auto Count = riff_GetNumListEntries;
  static constexpr auto Seek = riff_SeekListEntry;
  static uint32_t Key(std::string_view text) {
    uint32_t id;
    std::memcpy(&id, text.data(), sizeof id);
    return id;
  }
  static HRESULT Delete(HANDLE file, uint32_t id, uint32_t* deleted) {
    return riff_DeleteChunk(file, id, deleted, 0);
  }
};

struct Wave64 : Wave64Shape {
  using Size = uint64_t;
  using Budget = int64_t;
  static constexpr auto Find = riff64_FindChunkHeaderInRIFF;
  static constexpr auto FindList = riff64_FindListChunkFromStart;
  static constexpr auto Count = riff64_GetNumListEntries;
  static constexpr auto Seek = riff64_SeekListEntry;
  static constexpr auto Delete = riff64_DeleteChunk;
  // An id that becomes a pointer where it is passed.
  struct KeyGuid {
    GUID guid;
    operator const GUID*() const { return &guid; }
  };
  static KeyGuid Key(std::string_view text) {
    KeyGuid key;
    std::memcpy(&key.guid, Name(text).data(), sizeof key.guid);
    return key;
  }
};

template <class Family>
class Chunks : public ::testing::Test {};
using Families = ::testing::Types<Riff, Wave64>;
TYPED_TEST_SUITE(Chunks, Families);

constexpr std::string_view kNames[] = {"aaaa", "bbbb", "cccc", "dddd"};

size_t UpTo(uint64_t most) {
  return static_cast<size_t>(Random()() % (most + 1));
}

TYPED_TEST(Chunks, RandomFormsAgainstAModel) {
  using F = TypeParam;
  struct Node {
    std::string_view name;
    bool isList;
    Bytes bytes;
  };
  for (int round = 0; round < 40; ++round) {
    std::vector<Node> nodes(UpTo(8));
    for (Node& node : nodes) {
      node = {kNames[UpTo(3)], UpTo(2) == 0, {}};
      Bytes body(node.isList || UpTo(7) > 0 ? UpTo(20) : UpTo(9000), 0x55);
      if (node.isList) {
        for (size_t i = UpTo(4); i > 0; --i) body = F::Chunk(kNames[UpTo(3)], Bytes(UpTo(9))) + body;
      }
      node.bytes = node.isList ? F::List(node.name, body) : F::Chunk(node.name, body);
    }
    const auto write = [&](const Node* without) {
      Bytes all;
      for (const Node& node : nodes) all = all + (&node == without ? Bytes() : node.bytes);
      return F::Form(all);
    };
    const Bytes whole = write(nullptr);
    for (const std::string_view name : kNames) {
      for (const bool isList : {false, true}) {
        uint64_t offset = F::kForm;
        const Node* wanted = nullptr;
        for (size_t i = 0; i < nodes.size() && !wanted; ++i) {
          if (nodes[i].name == name && nodes[i].isList == isList) {
            wanted = &nodes[i];
          } else {
            offset += nodes[i].bytes.size();
          }
        }
        const ChunkFile file(whole);
        const HRESULT expected = wanted ? kFound : kMissing;
        const size_t header = F::kHeader + (isList ? F::kType : 0);
        typename F::Size size = 0;
        typename F::Budget remaining = 0;
        if (isList) {
          ASSERT_EQ(F::FindList(file, F::Key(name), &size), expected);
        } else {
          ASSERT_EQ(F::Find(file, F::Key(name), &size, &remaining), expected);
          EXPECT_EQ(static_cast<uint64_t>(remaining), wanted ? whole.size() - offset - F::kHeader : 0);
        }
        if (wanted) {
          EXPECT_EQ(file.At(), offset + header);
          EXPECT_EQ((size + F::kAlign - 1) / F::kAlign * F::kAlign, wanted->bytes.size() - header);
        }
        if (isList) continue;
        EXPECT_EQ(F::Delete(file, F::Key(name), &size), expected);
        EXPECT_EQ(size, wanted ? wanted->bytes.size() : 0);
        EXPECT_EQ(file.Content(), write(wanted));
        EXPECT_EQ(file.At(), file.Length());
      }
    }
    const ChunkFile file(whole);
    auto remaining = static_cast<typename F::Budget>(whole.size() - F::kForm);
    uint32_t count = 0;
    file.Go(F::kForm);
    EXPECT_EQ(F::Count(file, &count, &remaining), S_OK);
    EXPECT_EQ(count, nodes.size());
    EXPECT_EQ(remaining, 0);
    EXPECT_EQ(F::Seek(file, static_cast<int32_t>(count), nullptr), S_OK);
    EXPECT_EQ(file.At(), whole.size());
  }
}

TYPED_TEST(Chunks, DeletionMovesTailsOfEveryLength) {
  using F = TypeParam;
  const Bytes gone = F::Chunk("gone", Bytes(5));
  for (size_t length : {0, 1, 4095, 4096, 4097, 8192, 12345}) {
    Bytes tail(length);
    for (size_t i = 0; i < length; ++i) tail[i] = static_cast<uint8_t>(i * 7 + i / 256);
    const ChunkFile file(F::Form(gone, 1000) + tail);
    typename F::Size deleted = 0;
    EXPECT_EQ(F::Delete(file, F::Key("gone"), &deleted), S_OK);
    EXPECT_EQ(deleted, gone.size());
    EXPECT_EQ(file.At(), F::kForm + length);
    EXPECT_EQ(file.Content(), F::Form({}, 1000 - gone.size()) + tail);
  }
  const Bytes whole = F::Form(gone + F::Chunk("kept", Bytes(5)));
  const ChunkFile readOnly(whole, GENERIC_READ);
  typename F::Size deleted = 9;
  EXPECT_EQ(F::Delete(readOnly, F::Key("gone"), &deleted), QN_E_FILE_WRITE);
  EXPECT_EQ(deleted, 0u);
  EXPECT_EQ(readOnly.Content(), whole);
}

TYPED_TEST(Chunks, ManyEmptyChunksTakeLinearTime) {
  using F = TypeParam;
  constexpr uint32_t kCount = 200'000;
  const Bytes one = F::Chunk("none", {});
  Bytes chunks;
  for (uint32_t i = 0; i < kCount; ++i) chunks.insert(chunks.end(), one.begin(), one.end());
  const ChunkFile file(F::Form(chunks));
  uint32_t count = 0;
  file.Go(F::kForm);
  EXPECT_EQ(F::Count(file, &count, nullptr), kShort);
  EXPECT_EQ(count, kCount);
  EXPECT_EQ(file.At(), F::kForm);
  EXPECT_EQ(F::FindList(file, F::Key("INFO"), nullptr), kMissing);
}

}  // namespace
