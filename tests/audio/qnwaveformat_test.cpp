#include "qn/audio/qnwaveformat.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>

#include "qn/platform/memory.h"
#include "tests/support/support.h"

namespace {

using qntest::Bytes;

// A published header, as fields in the order in which they are stored.
struct Header {
  unsigned tag = 1, channels = 2, rate = 1000, average = 4000, align = 4, bits = 16, extraSize = 0;
  Bytes more = {};  // what stands behind the 18 bytes

  Bytes Stored() const {
    Bytes bytes;
    const auto put = [&bytes](unsigned value, int count) {
      for (int i = 0; i < count; i++) bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    };
    put(tag, 2), put(channels, 2), put(rate, 4), put(average, 4), put(align, 2), put(bits, 2);
    put(extraSize, 2);
    bytes.insert(bytes.end(), more.begin(), more.end());
    return bytes;
  }
};

Bytes Filled(size_t count, uint8_t first = 1) {
  Bytes bytes(count);
  for (size_t i = 0; i < count; i++) bytes[i] = static_cast<uint8_t>(first + i);
  return bytes;
}

// The 22 bytes behind an extensible header whose sub-format carries a tag, and more behind them.
Bytes Extension(unsigned validBits, unsigned mask, unsigned tag, const Bytes& more = {}) {
  const auto byte = [](unsigned value, int i) { return static_cast<uint8_t>(value >> (8 * i)); };
  Bytes bytes = {byte(validBits, 0),
                 byte(validBits, 1),
                 byte(mask, 0),
                 byte(mask, 1),
                 byte(mask, 2),
                 byte(mask, 3),
                 byte(tag, 0),
                 byte(tag, 1),
                 0,
                 0,
                 0,
                 0,
                 0x10,
                 0,
                 0x80,
                 0,
                 0,
                 0xAA,
                 0,
                 0x38,
                 0x9B,
                 0x71};
  bytes.insert(bytes.end(), more.begin(), more.end());
  return bytes;
}

const Bytes kNullExtension = [] {
  Bytes bytes = Extension(0, 0, 0);
  std::fill(bytes.begin() + 6, bytes.end(), uint8_t{0});
  return bytes;
}();

const Bytes kStrangeExtension = [] {
  Bytes bytes = Extension(16, 3, 1);
  bytes.back()++;
  return bytes;
}();

const Bytes kHighTagExtension = [] {
  Bytes bytes = Extension(16, 3, 1);
  bytes[8] = 1;  // bit 16 of Data1
  return bytes;
}();

// Exactly `size` bytes of heap, so that the address sanitizer sees any access behind them.
template <class T>
class Exact {
 public:
  explicit Exact(size_t size) : size_(size), bytes_(new uint8_t[size]) {
    std::memset(bytes_.get(), 0xCD, size);
  }
  explicit Exact(const Bytes& bytes) : Exact(bytes.size()) {
    std::copy(bytes.begin(), bytes.end(), bytes_.get());
  }
  T* get() const { return reinterpret_cast<T*>(bytes_.get()); }
  T* operator->() const { return get(); }
  T& operator*() const { return *get(); }
  uint8_t* data() const { return bytes_.get(); }
  Bytes Contents() const { return Bytes(bytes_.get(), bytes_.get() + size_); }

 private:
  size_t size_;
  std::unique_ptr<uint8_t[]> bytes_;
};

using Wfx = Exact<WAVEFORMATEX>;
using Wfxe = Exact<WAVEFORMATEXTENSIBLE>;
using Record = Exact<_qnwaveformat>;

Wfx Stored(const Header& header) {
  return Wfx(header.Stored());
}

Record RecordOf(const Header& header, unsigned size = 128) {
  Record record(std::max(size, 32u));
  record->Init(size, *Stored(header));
  return record;
}

Record RecordOf(QNSAMPLETYPE type, unsigned channels, unsigned mask, unsigned flags = 0) {
  Record record(32);
  record->Init(1000, type, channels, mask, 32);
  record->dwFlags |= flags;
  return record;
}

// A header behind `bytes` up to the size of an output that was filled with 0xCD before.
Bytes PaddedTo(Bytes bytes, size_t size) {
  bytes.resize(size, 0xCD);
  return bytes;
}

Header Adpcm(size_t extraSize) {
  return {2, 2, 1000, 1100, 256, 4, static_cast<unsigned>(extraSize), Filled(extraSize)};
}

Header ForeignExtensible(unsigned mask, unsigned tag, size_t extraSize) {
  return {0xFFFE,
          2,
          1000,
          1100,
          256,
          4,
          static_cast<unsigned>(22 + extraSize),
          Extension(4, mask, tag, Filled(extraSize))};
}

TEST(WaveFormat, SampleTypesHaveTheirSizesAndTags) {
  struct Row {
    int bytes, bits, tag;
  };
  const std::map<int, Row> rows = {{16, {1, 8, 1}},       {17, {2, 16, 1}},     {18, {3, 24, 1}},
                                   {19, {4, 32, 1}},      {32, {4, 32, 3}},     {33, {8, 64, 3}},
                                   {48, {4, 32, 0xFE00}}, {49, {1, 8, 0xFE01}}, {64, {2, 16, 0xFE02}},
                                   {65, {3, 24, 0xFE02}}, {66, {4, 32, 0xFE02}}};
  for (int value = -1; value < 300; value++) {
    const auto type = static_cast<QNSAMPLETYPE>(value);
    const auto row = rows.find(value);
    const Row expected = row != rows.end() ? row->second : Row{0, 0, 0};
    EXPECT_EQ(QnAudio_BytesFromSampleType(type), expected.bytes) << value;
    EXPECT_EQ(QnAudio_BitsFromSampleType(type), expected.bits) << value;
    EXPECT_EQ(QnAudio_FormatTagFromSampleType(type), expected.tag) << value;
  }
}

TEST(WaveFormat, TagAndBitsGiveTheSampleType) {
  const std::map<std::pair<unsigned, unsigned>, int> types = {
      {{1, 8}, 16},       {{1, 16}, 17},      {{1, 20}, 18},      {{1, 24}, 18},       {{1, 32}, 19},
      {{3, 32}, 32},      {{3, 64}, 33},      {{0xFE00, 24}, 48}, {{0xFE00, 32}, 48},  {{0xFE01, 8}, 49},
      {{0xFE01, 16}, 17}, {{0xFE01, 20}, 18}, {{0xFE01, 24}, 18}, {{0xFE01, 32}, 19},  {{0xFE02, 8}, 16},
      {{0xFE02, 16}, 64}, {{0xFE02, 24}, 65}, {{0xFE02, 32}, 66}, {{0xFE03, 16}, 128}, {{0xFE03, 24}, 129}};
  for (unsigned tag : {0u, 1u, 2u, 3u, 0xFE00u, 0xFE01u, 0xFE02u, 0xFE03u, 0xFE04u, 0xFFFEu, 0x10001u}) {
    for (unsigned bits = 0; bits < 300; bits++) {
      const auto row = types.find({tag, bits});
      EXPECT_EQ(QnAudio_GetSampleType2(tag, bits), row != types.end() ? row->second : 0)
          << tag << ' ' << bits;
    }
  }
}

TEST(WaveFormat, HeadersAreRecognised) {
  struct Row {
    const char* name;
    Header header;
    int type, tag, compressed;
    int extensibleTag = 0;  // 0: not given
  };
  const Row rows[] = {
      {"16-bit", {}, 17, 1, 0},
      {"wrong block align", {1, 2, 1000, 4000, 5, 16}, 17, 1, 1},
      {"block align beyond 16 bits", {1, 32769, 1000, 0, 2, 16}, 17, 1, 1},
      {"20-bit, 2 bytes", {1, 2, 1000, 4000, 4, 20}, 18, 1, 0},
      {"float", {3, 1, 1000, 4000, 4, 32}, 32, 3, 0},
      {"unpacked", {0xFE00, 1, 1000, 4000, 4, 32}, 48, 0xFE00, 0},
      {"signed", {0xFE01, 1, 1000, 1000, 1, 8}, 49, 0xFE01, 0},
      {"big-endian", {0xFE02, 1, 1000, 3000, 3, 24}, 65, 0xFE02, 0},
      {"only looked up", {0xFE03, 1, 1000, 3000, 3, 24}, 129, 0xFE03, 1},
      {"compressed", Adpcm(32), 0, 2, 1},
      {"extensible", {0xFFFE, 2, 1000, 4000, 4, 16, 22, Extension(16, 3, 1)}, 17, 1, 0, 1},
      {"extensible float", {0xFFFE, 2, 1000, 8000, 8, 32, 22, Extension(32, 3, 3)}, 32, 3, 0, 3},
      {"24 of 32", {0xFFFE, 2, 1000, 8000, 8, 32, 22, Extension(24, 3, 1)}, 48, 1, 0, 1},
      {"24 of 32 signed", {0xFFFE, 2, 1000, 8000, 8, 32, 22, Extension(24, 3, 0xFE01)}, 48, 0xFE01, 1},
      {"24 of 32 float", {0xFFFE, 2, 1000, 8000, 8, 32, 22, Extension(24, 3, 3)}, 32, 3, 0, 3},
      {"cbSize 21", {0xFFFE, 2, 1000, 4000, 4, 16, 21, Extension(16, 3, 1)}, 17, 0xFFFE, 1},
      {"other sub-format", {0xFFFE, 2, 1000, 4000, 4, 16, 22, kStrangeExtension}, 0, 0, 1},
      {"tag above 16 bits", {0xFFFE, 2, 1000, 4000, 4, 16, 22, kHighTagExtension}, 0, 0, 1},
      {"null sub-format", {0xFFFE, 2, 1000, 4000, 4, 16, 22, kNullExtension}, 0, 0, 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Bytes bytes = row.header.Stored();
    if (row.header.tag == 1 || row.header.tag == 3) bytes.resize(16);
    const Wfx format(bytes);
    EXPECT_EQ(QnAudio_GetSampleType(format.get()), row.type);
    EXPECT_EQ(QnAudio_GetWaveFormatTag(format.get()), row.tag);
    EXPECT_EQ(QnAudio_IsCompressed(format.get()), row.compressed);
    bytes.resize(std::max<size_t>(bytes.size(), 40));
    const Wfxe extensible(bytes);
    DWORD tag = 77;
    EXPECT_EQ(QnAudio_GetFormatTagExtensible(extensible.get(), &tag) != 0, row.extensibleTag != 0);
    EXPECT_EQ(tag, row.extensibleTag != 0 ? static_cast<DWORD>(row.extensibleTag) : 77u);
    if (row.header.tag == 0xFFFE) {
      EXPECT_EQ(QnAudio_IsCompressedExtensible(extensible.get()), row.compressed);
    }
  }
  EXPECT_EQ(QnAudio_GetWaveFormatTag(nullptr), 0);
}

TEST(WaveFormat, RecordFromHeader) {
  struct Row {
    const char* name;
    Header header;
    unsigned size, cbRecord;
    int type;
    unsigned align, mask, flags, tag, bits;
    size_t extra;  // bytes 1, 2, ... of the header's extra bytes
  };
  const Row rows[] = {
      {"20 bits are 24", {1, 2, 1000, 77, 99, 20}, 0, 32, 18, 6, 0, 0, 0, 0, 0},
      {"pcm recomputes, others keep", {3, 2, 1000, 77, 99, 32}, 128, 32, 32, 99, 0, 0, 0, 0, 0},
      {"block align is cut", {1, 32769, 1000, 77, 99, 16}, 32, 32, 17, 2, 0, 0, 0, 0, 0},
      {"foreign pcm", {1, 2, 1000, 77, 99, 12}, 128, 32, 0, 2, 0, 8, 1, 12, 0},
      {"typed tags have no extra", {0xFE00, 1, 1000, 77, 4, 32, 3, Filled(3)}, 128, 32, 48, 4, 0, 0, 0, 0, 0},
      {"no room", Adpcm(10), 32, 32, 0, 256, 0, 8, 2, 4, 0},
      {"no room for the count", Adpcm(10), 33, 32, 0, 256, 0, 8, 2, 4, 0},
      {"room for the count", Adpcm(10), 34, 32, 0, 256, 0, 8, 2, 4, 0},
      {"room for 9", Adpcm(10), 43, 41, 0, 256, 0, 8, 2, 4, 9},
      {"room for all", Adpcm(10), 44, 42, 0, 256, 0, 8, 2, 4, 10},
      {"at most 1024", Adpcm(2000), 2000, 1056, 0, 256, 0, 8, 2, 4, 1024},
      {"extensible", {0xFFFE, 2, 1000, 77, 99, 16, 22, Extension(16, 5, 1)}, 32, 32, 17, 99, 5, 16, 0, 0, 0},
      {"foreign extensible", ForeignExtensible(5, 0x55, 3), 128, 35, 0, 256, 5, 24, 0x55, 4, 3},
      {"carried tag 1 may have extra", ForeignExtensible(5, 1, 3), 128, 35, 0, 256, 5, 24, 1, 4, 3},
      {"no carried tag", {0xFFFE, 2, 1000, 77, 4, 16, 22, kStrangeExtension}, 128, 32, 0, 4, 3, 24, 0, 16, 0},
      {"short extension keeps the tag",
       {0xFFFE, 2, 1000, 77, 4, 4, 21, kStrangeExtension},
       128,
       32,
       0,
       4,
       3,
       24,
       0xFFFE,
       4,
       0},
      {"sizes in bits", {0xFFFE, 2, 1000, 32000, 32, 16, 22, kNullExtension}, 64, 32, 17, 32, 0, 16, 0, 0, 0},
      {"8 bits", {0xFFFE, 1, 1000, 8000, 8, 8, 0, kNullExtension}, 64, 32, 16, 8, 0, 16, 0, 0, 0},
      {"24 bits", {0xFFFE, 1, 1000, 24000, 24, 24, 0, kNullExtension}, 64, 32, 18, 24, 0, 16, 0, 0, 0},
      {"32 bits", {0xFFFE, 1, 1000, 32000, 32, 32, 0, kNullExtension}, 64, 32, 32, 32, 0, 16, 0, 0, 0},
      {"64 bits", {0xFFFE, 1, 1000, 64000, 64, 64, 0, kNullExtension}, 64, 32, 33, 64, 0, 16, 0, 0, 0},
      {"20 bits", {0xFFFE, 1, 1000, 20000, 20, 20, 0, kNullExtension}, 64, 32, 0, 20, 0, 24, 0xFFFE, 20, 0},
      {"sizes in bytes", {0xFFFE, 2, 1000, 4000, 4, 16, 22, kNullExtension}, 64, 32, 0, 4, 0, 24, 0, 16, 0},
      {"cbSize 1", {0xFFFE, 2, 1000, 32000, 32, 16, 1, kNullExtension}, 64, 32, 0, 32, 0, 24, 0xFFFE, 16, 0},
      {"other rate",
       {0xFFFE, 2, 1001, 32000, 32, 16, 0, kNullExtension},
       64,
       32,
       0,
       32,
       0,
       24,
       0xFFFE,
       16,
       0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const Record record = RecordOf(row.header, row.size);
    EXPECT_EQ(record->cbRecord, row.cbRecord);
    EXPECT_EQ(record->sampleType, row.type);
    EXPECT_EQ(record->nSamplesPerSec, row.header.rate);
    EXPECT_EQ(record->nChannels, row.header.channels);
    EXPECT_EQ(record->nBlockAlign, row.align);
    EXPECT_EQ(record->dwChannelMask, row.mask);
    EXPECT_EQ(record->dwFlags, row.flags);
    EXPECT_EQ(record->wFormatTag, row.tag);
    EXPECT_EQ(record->wBitsPerSample, row.bits);
    EXPECT_EQ(record->nAvgBytesPerSec, row.header.average);
    if (row.size < 34) continue;
    Bytes tail = {static_cast<uint8_t>(row.extra), static_cast<uint8_t>(row.extra >> 8)};
    const Bytes extra = Filled(row.extra);
    tail.insert(tail.end(), extra.begin(), extra.end());
    tail.resize(row.size - 32);
    const Bytes whole = record.Contents();
    EXPECT_EQ(Bytes(whole.begin() + 32, whole.end()), tail);
  }
}

TEST(WaveFormat, RecordFromNumbers) {
  Record small(32);
  small->Init(44100, QNST_PCM24, 6, 0x3F, 0);
  EXPECT_EQ(small.Contents(),
            (Bytes{32,   0, 0, 0, 18, 0, 0, 0, 0x44, 0xAC, 0,    0,    6,    0,    18,   0,
                   0x3F, 0, 0, 0, 0,  0, 0, 0, 0xCD, 0xCD, 0xCD, 0xCD, 0xC8, 0x1C, 0x0C, 0}));
  small->InitAsWfx(1, 1000, 20, 2, 3, 32);
  EXPECT_EQ(small.Contents(), (Bytes{32, 0, 0, 0, 18, 0, 0, 0, 0xE8, 3, 0, 0, 2,    0,    6, 0,
                                     3,  0, 0, 0, 0,  0, 0, 0, 0,    0, 0, 0, 0x70, 0x17, 0, 0}));

  Record large(100);
  large->Init(1000, QNST_FLOAT64, 8193, 0, 100);  // 65544 bytes a frame
  EXPECT_EQ(large->cbRecord, 100u);
  EXPECT_EQ(large->nBlockAlign, 8);
  EXPECT_EQ(large->nAvgBytesPerSec, 8000u);
  EXPECT_EQ(large->FormatTag(), 3);
  EXPECT_EQ(large->BitsPerSample(), 64);
  EXPECT_EQ(large->BytesPerSample(), 8);
  EXPECT_FALSE(large->IsCompressed());
  large->nChannels = 3;
  large->nSamplesPerSec = 10;
  EXPECT_EQ(large->UpdateBlockAlign(), 24u);
  EXPECT_EQ(large->nAvgBytesPerSec, 240u);

  large->InitAsWfx(2, 1000, 4, 3, 0, 100);  // 12 bits a frame are one byte
  EXPECT_EQ(large->sampleType, QNST_NONE);
  EXPECT_EQ(large->dwFlags, 8u);
  EXPECT_EQ(large->FormatTag(), 2);
  EXPECT_EQ(large->BitsPerSample(), 4);
  EXPECT_EQ(large->BytesPerSample(), 0);
  EXPECT_TRUE(large->IsCompressed());
  EXPECT_EQ(large->nBlockAlign, 1);
  EXPECT_EQ(large->nAvgBytesPerSec, 1000u);
  large->nBlockAlign = 99;
  EXPECT_EQ(large->UpdateBlockAlign(), 99u);
  const Bytes contents = large.Contents();
  EXPECT_EQ(std::count(contents.begin() + 32, contents.end(), 0), 68);
}

TEST(WaveFormat, RecordToHeader) {
  enum { Auto, Plain, NoMask, Multi, Always };
  const Header pcm = {1, 2, 1000, 4000, 4, 16, 0};
  const Header unpacked6 = {0xFFFE, 6, 1000, 24000, 24, 32, 22, Extension(32, 0x3F, 0xFE00)};
  const auto pcmExtensible = [](unsigned mask) {
    return Header{0xFFFE, 2, 1000, 4000, 4, 16, 22, Extension(16, mask, 1)};
  };
  const auto adpcm = [](size_t kept) {
    Header header = Adpcm(kept);
    header.tag = 0x55;
    return header;
  };
  struct Row {
    const char* name;
    Record record;
    unsigned size;
    int dest;
    Header expected;
  };
  const Row rows[] = {
      {"plain", RecordOf(QNST_PCM16, 2, 0), 40, Auto, pcm},
      {"full stereo mask", RecordOf(QNST_PCM16, 2, 3), 40, Auto, pcm},
      {"other mask", RecordOf(QNST_PCM16, 2, 5), 40, Auto, pcmExtensible(5)},
      {"one byte short", RecordOf(QNST_PCM16, 2, 5), 39, Auto, pcm},
      {"from extensible", RecordOf(QNST_PCM16, 2, 0, 16), 40, Auto, pcmExtensible(3)},
      {"not forced, mask", RecordOf(QNST_PCM16, 2, 5, 16), 40, Plain, pcmExtensible(5)},
      {"not forced, too many bits", RecordOf(QNST_PCM16, 2, 7), 40, Plain, pcmExtensible(3)},
      {"forced, too many bits", RecordOf(QNST_PCM16, 2, 7), 40, Auto, pcmExtensible(7)},
      {"not forced, full mask", RecordOf(QNST_PCM16, 2, 3, 16), 40, Plain, pcm},
      {"full mask of 6", RecordOf(QNST_PCM24IN32, 6, 0x3F), 40, Plain, unpacked6},
      {"mask dropped", RecordOf(QNST_PCM16, 2, 5, 16), 40, NoMask, pcm},
      {"stereo is not multi", RecordOf(QNST_PCM16, 2, 0), 40, Multi, pcm},
      {"6 channels", RecordOf(QNST_PCM24IN32, 6, 0), 41, Multi, unpacked6},
      {"always", RecordOf(QNST_PCM16, 2, 0), 40, Always, pcmExtensible(3)},
      {"always, but no room", RecordOf(QNST_PCM16, 2, 0), 18, Always, pcm},
      {"no type", RecordOf(QNST_TAGFE03_24, 2, 0), 40, Auto, {0, 2, 1000, 0, 0, 0, 0}},

      {"foreign", RecordOf(adpcm(10)), 60, Auto, adpcm(10)},
      {"foreign, cut", RecordOf(adpcm(10)), 23, Auto, adpcm(5)},
      {"foreign, no room", RecordOf(adpcm(10)), 18, Auto, adpcm(0)},
      {"foreign extensible", RecordOf(ForeignExtensible(5, 0x55, 4)), 60, Auto,
       ForeignExtensible(5, 0x55, 4)},
      {"forced, cut", RecordOf(ForeignExtensible(5, 0x55, 4)), 42, Auto, ForeignExtensible(5, 0x55, 2)},
      {"forced, mask 0 stays", RecordOf(adpcm(1)), 60, Always, ForeignExtensible(0, 0x55, 0)},
      {"mask, all fits", RecordOf(ForeignExtensible(5, 0x55, 4)), 44, Plain, ForeignExtensible(5, 0x55, 4)},
      {"mask, one short", RecordOf(ForeignExtensible(5, 0x55, 4)), 43, Plain, adpcm(4)},
      {"mask is full", RecordOf(ForeignExtensible(3, 0x55, 4)), 44, Plain, adpcm(4)},
      {"mask is dropped", RecordOf(ForeignExtensible(5, 0x55, 4)), 44, NoMask, adpcm(4)},
      {"tag 1 in an extension", RecordOf(ForeignExtensible(5, 1, 4)), 44, Always, ForeignExtensible(5, 1, 4)},
      // Extra bytes 1 to 4 from byte 16 on.
      {"tag 1 overlaps",
       RecordOf(ForeignExtensible(5, 1, 4)),
       22,
       NoMask,
       {1, 2, 1000, 1100, 256, 4, 0x0201, {3, 4}}},
      {"tag 3 overlaps",
       RecordOf(ForeignExtensible(5, 3, 4)),
       21,
       NoMask,
       {3, 2, 1000, 1100, 256, 4, 0x0201, {3}}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const Wfx output(row.size);
    EXPECT_EQ(row.record->ToWfx(output.get(), row.size, static_cast<QNWAVEFORMAT_COPY_DEST>(row.dest)),
              output.get());
    EXPECT_EQ(output.Contents(), PaddedTo(row.expected.Stored(), row.size));
  }
}

TEST(WaveFormat, HeaderFromNumbers) {
  struct Row {
    unsigned tag, bits, channels, mask, size;
    Header expected;
  };
  const Row rows[] = {
      {1, 16, 2, 0, 40, {}},
      {1, 16, 2, 3, 40, {}},
      {1, 16, 2, 4, 39, {}},
      {1, 20, 2, 0, 18, {1, 2, 1000, 4000, 4, 20}},
      {1, 16, 2, 7, 40, {0xFFFE, 2, 1000, 4000, 4, 16, 22, Extension(16, 3, 1)}},
      {0xFE02, 24, 3, 7, 44, {0xFFFE, 3, 1000, 9000, 9, 24, 22, Extension(24, 7, 0xFE02)}},
      {3, 32, 40, 0x80000000, 40, {0xFFFE, 40, 1000, 160000, 160, 32, 22, Extension(32, 0x80000000, 3)}},
      {1, 16, 0, 1, 40, {0xFFFE, 0, 1000, 0, 0, 16, 22, Extension(16, 0, 1)}},
      {1, 16, 32769, 0, 40, {1, 32769, 1000, 2000, 2, 16}},
  };
  for (const Row& row : rows) {
    const Wfx output(row.size);
    QnAudio_InitWfxFlex(output.get(), row.tag, 1000, row.bits, row.channels, row.mask, row.size);
    EXPECT_EQ(output.Contents(), PaddedTo(row.expected.Stored(), row.size))
        << row.channels << ' ' << row.mask;
  }
  const Wfx output(18);
  QnAudio_InitWfx(output.get(), 1000, QNST_PCM24IN32, 6);
  EXPECT_EQ(output.Contents(), (Header{0xFE00, 6, 1000, 24000, 24, 32}.Stored()));
}

// The contents of a block, which is freed as a caller does.
Bytes TakeBlock(WAVEFORMATEX* block) {
  const HGLOBAL handle = GlobalHandle(block);
  const auto* bytes = reinterpret_cast<const uint8_t*>(block);
  Bytes contents(bytes, bytes + GlobalSize(handle));
  GlobalUnlock(handle);
  EXPECT_EQ(GlobalFree(handle), nullptr);
  return contents;
}

TEST(WaveFormat, AllocatedCopiesHaveTheSizeOfTheirForm) {
  // The sizes under the five forms, of a record and, without the mask and flag of the first rows, a header.
  struct Row {
    Record record;
    size_t sizes[5];
  };
  const Row rows[] = {
      {RecordOf(QNST_PCM16, 2, 3), {18, 18, 18, 18, 40}},
      {RecordOf(QNST_PCM16, 2, 3, 16), {40, 18, 18, 18, 40}},
      {RecordOf(QNST_PCM16, 2, 5), {40, 40, 18, 18, 40}},
      {RecordOf(QNST_PCM16, 3, 7), {18, 18, 18, 40, 40}},
      {RecordOf(Adpcm(32)), {50, 50, 50, 50, 72}},
      {RecordOf(ForeignExtensible(3, 0x55, 8)), {48, 26, 26, 26, 48}},
  };
  for (const Row& row : rows) {
    for (int dest = 0; dest < 5; dest++) {
      const auto form = static_cast<QNWAVEFORMAT_COPY_DEST>(dest);
      const Bytes block = TakeBlock(QnAudio_AllocAndCopyWfx(*row.record, form));
      EXPECT_EQ(block.size(), row.sizes[dest]) << row.record->nChannels << ' ' << dest;
      EXPECT_EQ(TakeBlock(QnAudio_AllocAndCopyWfx(row.record.get(), form)), block);
      const Wfx expected(Bytes(row.sizes[dest], 0));
      row.record->ToWfx(expected.get(), static_cast<unsigned>(row.sizes[dest]), form);
      EXPECT_EQ(block, expected.Contents());
    }
  }

  const auto copied = [](const Header& header, QNWAVEFORMAT_COPY_DEST dest) {
    return TakeBlock(QnAudio_AllocAndCopyWfx(static_cast<const WAVEFORMATEX*>(Stored(header).get()), dest));
  };
  // A wrong block align and 200 extra bytes show what was duplicated and what went through a record.
  const Header broken = {1, 2, 1000, 77, 99, 16, 2, {1, 2}};
  const Header brokenExtensible = {0xFFFE, 2, 1000, 77, 99, 16, 22, Extension(16, 3, 1)};
  for (auto dest : {QNWFCD_AUTO, QNWFCD_WFX, QNWFCD_WFX_NOMASK}) {
    EXPECT_EQ(copied(broken, dest), broken.Stored());
    EXPECT_EQ(copied(Adpcm(200), dest), Adpcm(200).Stored());
  }
  EXPECT_EQ(copied(broken, QNWFCD_EXT_MULTICHANNEL), Header{}.Stored());
  EXPECT_EQ(copied(Adpcm(200), QNWFCD_EXT_MULTICHANNEL), Adpcm(94).Stored());
  for (auto dest : {QNWFCD_AUTO, QNWFCD_EXTENSIBLE}) {
    EXPECT_EQ(copied(brokenExtensible, dest), brokenExtensible.Stored());
  }
  for (auto dest : {QNWFCD_WFX, QNWFCD_WFX_NOMASK, QNWFCD_EXT_MULTICHANNEL}) {
    EXPECT_EQ(copied(brokenExtensible, dest), Header{}.Stored());
  }
  EXPECT_EQ(QnAudio_AllocAndCopyWfx(static_cast<const _qnwaveformat*>(nullptr), QNWFCD_AUTO), nullptr);
  EXPECT_EQ(QnAudio_AllocAndCopyWfx(static_cast<const WAVEFORMATEX*>(nullptr), QNWFCD_AUTO), nullptr);
}

TEST(WaveFormat, HeaderToHeader) {
  const Header pcm;
  const Header extensible = {0xFFFE, 2, 1000, 4000, 4, 16, 22, Extension(16, 3, 1)};
  const Bytes untouched(40, 0xCD);

  const Wfx plain(20);
  QnAudio_CopyWfx(plain.get(), 20, Stored(extensible).get(), QNWFCD_AUTO);
  EXPECT_EQ(plain.Contents(), PaddedTo(pcm.Stored(), 20));
  const Wfx aliased(Adpcm(200).Stored());
  QnAudio_CopyWfx(aliased.get(), 218, aliased.get(), QNWFCD_AUTO);
  EXPECT_EQ(Bytes(aliased.data(), aliased.data() + 112), Adpcm(94).Stored());
  const Wfxe whole(40);
  QnAudio_CopyWfExt(whole.get(), Stored(pcm).get(), QNWFCD_EXTENSIBLE);
  EXPECT_EQ(whole.Contents(), extensible.Stored());

  for (size_t extraSize : {0, 5, 22, 30}) {
    const Wfxe output(40);
    QnAudio_CopyWfxToWfExt(Stored(Adpcm(extraSize)).get(), output.get());
    EXPECT_EQ(output.Contents(), PaddedTo(Adpcm(extraSize).Stored(), 40));
  }

  const auto shortened = [](const Header& header) {
    Bytes bytes = header.Stored();
    bytes.resize(40);
    const Wfx output(18);
    QnAudio_CopyWfExtToWfx(Wfxe(bytes).get(), output.get());
    return output.Contents();
  };
  EXPECT_EQ(shortened(extensible), pcm.Stored());
  EXPECT_EQ(shortened({0xFFFE, 1, 1000, 77, 9, 32, 22, Extension(32, 3, 3)}),
            (Header{3, 1, 1000, 77, 9, 32}.Stored()));
  EXPECT_EQ(shortened({0xFFFE, 2, 1000, 4000, 4, 16, 22, Extension(16, 3, 0xFE02)}), Bytes(18, 0xCD));
  EXPECT_EQ(shortened(Adpcm(5)), (Header{2, 2, 1000, 1100, 256, 4, 5}.Stored()));

  const _qnwaveformat_wfxcopyhelper helper(*RecordOf(extensible));
  EXPECT_EQ(std::memcmp(&helper, pcm.Stored().data(), 18), 0);
  const _qnwaveformat_wfxecopyhelper helperExtensible(*RecordOf(extensible));
  EXPECT_EQ(std::memcmp(&helperExtensible, extensible.Stored().data(), 40), 0);
  _qnwaveformat_wfxplus plus;
  plus.Init(Stored(Adpcm(94)).get(), QNWFCD_WFX);
  EXPECT_EQ(std::memcmp(&plus, Adpcm(94).Stored().data(), 112), 0);
}

TEST(WaveFormat, RecordToRecord) {
  const Record source = RecordOf(Adpcm(10));
  // Size of the output, as given and as it is; the extra bytes counted and copied.
  struct Row {
    unsigned size, owned;
    uint8_t counted;
    size_t copied;
  };
  for (const Row& row :
       {Row{0, 32, 0, 0}, Row{32, 32, 0, 0}, Row{33, 33, 0, 0}, Row{34, 34, 10, 0}, Row{43, 43, 0, 8},
        Row{44, 44, 10, 8}, Row{1058, 1058, 10, 8}, Row{1059, 1059, 10, 8}}) {
    const Record output(row.owned);
    EXPECT_EQ(QnAudio_GeneralCopyQnWaveFormat(output.get(), row.size, *source, QNWFCD_AUTO), output.get());
    Bytes expected = source.Contents();
    expected.resize(34 + row.copied);
    expected.resize(row.owned);
    expected[0] = static_cast<uint8_t>(32 + row.counted);
    if (row.owned >= 34) expected[32] = row.counted;
    if (row.owned == 33) expected[32] = 10;
    EXPECT_EQ(output.Contents(), expected) << row.size;
  }

  // Sources of 32 bytes alone, with the size and with none.
  const Record small = RecordOf(QNST_PCM16, 2, 3);
  for (unsigned cbRecord : {32u, 0u}) {
    small->cbRecord = cbRecord;
    const Record output(50);
    QnAudio_GeneralCopyQnWaveFormat(output.get(), 50, *small, QNWFCD_EXTENSIBLE);
    Bytes expected = small.Contents();
    expected[0] = 32;
    expected.resize(50);
    EXPECT_EQ(output.Contents(), expected);
  }

  // A count that lies is held to the bytes that the record owns.
  Record liar(34);
  liar->Init(1000, QNST_NONE, 2, 0, 34);
  liar->dwFlags = QNWF_FOREIGN;
  liar->cbExtra = 0xFFFF;
  const Record output(1058);
  QnAudio_GeneralCopyQnWaveFormat(output.get(), 1058, *liar, QNWFCD_AUTO);
  EXPECT_LE(output->cbExtra, 2);
}

TEST(WaveFormat, Comparison) {
  const auto equal = [](const Record& first, const Record& second) {
    EXPECT_EQ(*first == *second, *second == *first);
    return *first == *second;
  };
  const Record pcm = RecordOf(QNST_PCM16, 2, 0);
  EXPECT_TRUE(equal(pcm, RecordOf(QNST_PCM16, 2, 3, 16)));
  EXPECT_FALSE(equal(pcm, RecordOf(QNST_PCM16, 2, 5)));
  EXPECT_FALSE(equal(pcm, RecordOf(QNST_PCM16BE, 2, 0)));
  EXPECT_FALSE(equal(pcm, RecordOf(QNST_PCM16, 1, 3)));
  EXPECT_FALSE(equal(pcm, RecordOf(QNST_PCM16, 2, 0, 8)));
  const Record other = RecordOf({1, 2, 1001, 4000, 4, 16}, 32);
  EXPECT_FALSE(equal(pcm, other));
  other->nSamplesPerSec = 1000;
  other->nBlockAlign = 99;
  other->nAvgBytesPerSec = 99;
  EXPECT_TRUE(equal(pcm, other));

  const Header base = Adpcm(10);
  const Record foreign = RecordOf(base);
  EXPECT_TRUE(equal(foreign, RecordOf(base, 44)));
  EXPECT_FALSE(equal(foreign, RecordOf(base, 43)));
  EXPECT_TRUE(*foreign == *Stored(base));
  Header changed[6];
  std::fill(std::begin(changed), std::end(changed), base);
  changed[0].tag++, changed[1].average++, changed[2].bits++, changed[3].more[9]++, changed[4].extraSize--;
  changed[5].channels++;
  for (const Header& header : changed) {
    EXPECT_FALSE(equal(foreign, RecordOf(header)));
    EXPECT_FALSE(*foreign == *Stored(header));
  }
  changed[0] = base;
  changed[0].align++;
  EXPECT_TRUE(*foreign == *Stored(changed[0]));

  // A foreign extensible header counts by the tag it carries, its extra bytes stand at byte 40.
  const Header extensible = ForeignExtensible(3, 2, 10);
  EXPECT_TRUE(*foreign == *Stored(extensible));
  EXPECT_FALSE(*foreign == *Stored(ForeignExtensible(5, 2, 10)));
  EXPECT_FALSE(*foreign == *Stored(ForeignExtensible(3, 2, 9)));
  EXPECT_FALSE(*foreign == *Stored(ForeignExtensible(3, 0x55, 10)));
  EXPECT_TRUE(*RecordOf(extensible) == *Stored(base));

  // Typed records go by the header's type and mask; a header of 16 bytes will do.
  Bytes sixteen = Header{1, 2, 1000, 77, 99, 16}.Stored();
  sixteen.resize(16);
  EXPECT_TRUE(*pcm == *Wfx(sixteen));
  EXPECT_FALSE(*RecordOf(QNST_PCM16, 2, 5) == *Wfx(sixteen));
  EXPECT_TRUE(*pcm == *Stored({0xFFFE, 2, 1000, 77, 99, 16, 22, Extension(16, 0, 1)}));
  EXPECT_FALSE(*pcm == *Stored({0xFFFE, 2, 1000, 77, 99, 16, 22, Extension(16, 5, 1)}));

  const Header headers[] = {base,
                            {},
                            {1, 2, 1000, 5, 4, 16},
                            {1, 2, 1001, 4000, 4, 16},
                            {1, 1, 1000, 4000, 4, 16},
                            {1, 2, 1000, 4000, 4, 24},
                            {3, 2, 1000, 4000, 4, 16}};
  for (size_t i = 1; i < std::size(headers); i++) {
    EXPECT_EQ(QnAudio_IsEqualFormat(Stored(Header{}).get(), Stored(headers[i]).get()), i < 3) << i;
  }
}

TEST(WaveFormat, MendsPcmAlone) {
  struct Row {
    Header header;
    int changed;
    unsigned align, bits;
  };
  for (const Row& row : {Row{{1, 2, 1000, 77, 6, 20}, 1, 6, 24}, Row{{1, 2, 1000, 77, 5, 24}, 1, 6, 24},
                         Row{{1, 2, 1000, 77, 6, 24}, 0, 6, 24}, Row{{3, 2, 1000, 77, 5, 20}, 0, 5, 20},
                         Row{{1, 32769, 1000, 77, 2, 16}, 0, 2, 16}}) {
    Bytes bytes = row.header.Stored();
    bytes.resize(16);
    const Wfx format(bytes);
    EXPECT_EQ(QnAudio_FixBadWfx(format.get()), row.changed);
    EXPECT_EQ(format->nBlockAlign, row.align);
    EXPECT_EQ(format->wBitsPerSample, row.bits);
    EXPECT_EQ(format->nAvgBytesPerSec, 77u);
  }
}

TEST(WaveFormat, NormalizeFactors) {
  const std::map<unsigned, double> factors = {{8, 128.0}, {16, 32768.0}, {24, 8388608.0}, {32, 2147483648.0}};
  for (unsigned bits = 0; bits < 70; bits++) {
    const auto factor = factors.find(bits);
    EXPECT_EQ(QnAudio_GetNormalizeFactor(bits), factor != factors.end() ? factor->second : 1.0) << bits;
  }
}

// Headers of random fields in buffers of the size that they declare: no access goes beyond a buffer, a record
// that kept everything equals its source, and so does what it is written to.
TEST(WaveFormat, RandomHeadersSurviveTheRoundTrip) {
  auto& random = qntest::Random();
  const auto pick = [&random](std::initializer_list<unsigned> values) {
    return values.begin()[random() % values.size()];
  };
  for (int i = 0; i < 20000; i++) {
    Header header;
    header.tag = pick({1, 2, 3, 0x55, 0xFE00, 0xFE01, 0xFE02, 0xFE03, 0xFFFE, 0xFFFE, 0xFFFE});
    header.channels = pick({0, 1, 2, 3, 6, 32, 33, 64, 65535});
    header.rate = pick({0, 1, 44100, 0xFFFFFFFF});
    header.bits = pick({0, 8, 12, 16, 20, 24, 32, 64, 65535});
    header.align = pick({4, header.channels * header.bits, 0xFFFF}) & 0xFFFF;
    header.average = pick({0, header.align * header.rate});
    header.extraSize = pick({0, 2, 21, 22, 23, 60, 1400});
    if (header.tag == 0xFFFE) {
      header.more = pick({0, 1}) ? kNullExtension
                                 : Extension(pick({24, 32}), pick({0, 1, 3, 0x3F, 0xFFFFFFFF}),
                                             pick({0, 1, 2, 3, 0xFE00, 0xFE03, 0xFFFE}));
    }
    while (header.more.size() < header.extraSize) header.more.push_back(static_cast<uint8_t>(random()));
    const Wfx source = Stored(header);
    const unsigned recordSize = pick({32, 33, 34, 40, 128, 1058, 2000});
    const Record record = RecordOf(header, recordSize);
    ASSERT_LE(record->cbRecord, std::max(recordSize, 32u));
    if (recordSize == 2000 && header.extraSize < 1024 && record->cbRecord != 33 &&
        (record->IsCompressed() || record->sampleType == QnAudio_GetSampleType(source.get()))) {
      EXPECT_TRUE(*record == *source) << i;
    }

    const unsigned copySize = pick({0, 32, 33, 40, 128, 1058, 1100});
    const Record copy(std::max(copySize, 32u));
    QnAudio_GeneralCopyQnWaveFormat(copy.get(), copySize, *record, QNWFCD_AUTO);
    if (!record->IsCompressed()) {
      EXPECT_TRUE(*copy == *record);
    }

    const auto dest = static_cast<QNWAVEFORMAT_COPY_DEST>(random() % 5);
    const unsigned size = pick({0, 7, 16, 17, 18, 19, 39, 40, 41, 61, 62, 100, 1500});
    const Wfx output(size);
    record->ToWfx(output.get(), size, dest);
    QnAudio_CopyWfx(output.get(), size, source.get(), dest);
    TakeBlock(QnAudio_AllocAndCopyWfx(*copy, dest));
    TakeBlock(QnAudio_AllocAndCopyWfx(source.get(), dest));

    const Bytes whole = TakeBlock(QnAudio_AllocAndCopyWfx(*record, QNWFCD_EXTENSIBLE));
    if (record->FormatTag() != 0 && record->sampleType < QNST_TAGFE03_16 && header.tag != 0xFFFE) {
      Record again(2000);
      again->Init(2000, *Wfx(whole));
      EXPECT_TRUE(*again == *record) << i;
    }
  }
}

}  // namespace
