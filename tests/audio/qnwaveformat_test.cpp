#include "qn/audio/qnwaveformat.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "qn/platform/memory.h"
#include "tests/support/support.h"

namespace {

using qntest::Bytes;

Bytes Words(std::initializer_list<unsigned> words, const Bytes& more = {}) {
  Bytes bytes;
  for (unsigned word : words) bytes.insert(bytes.end(), {uint8_t(word), uint8_t(word >> 8)});
  bytes.insert(bytes.end(), more.begin(), more.end());
  return bytes;
}

// A published header of 1000 frames a second and what stands behind its 18 bytes, which by default cbSize
// counts. By default the average bytes fit the block align.
Bytes Header(unsigned tag, unsigned channels, unsigned align, unsigned bits, const Bytes& more = {},
             int extraSize = -1, int average = -1) {
  const unsigned rate = average < 0 ? align * 1000 : average;
  const unsigned counted = extraSize < 0 ? more.size() : extraSize;
  return Words({tag, channels, 1000, 0, rate, rate >> 16, align, bits, counted}, more);
}

// The 22 bytes that make a header extensible, with a sub-format that carries a tag, and more behind them.
Bytes Extension(unsigned validBits, unsigned mask, unsigned tag, const Bytes& more = {}) {
  return Words({validBits, mask, mask >> 16, tag, 0, 0, 0x10, 0x80, 0xAA00, 0x3800, 0x719B}, more);
}

// A record of 32 bytes, its count of extra bytes and these.
Bytes Fields(unsigned type, unsigned channels, unsigned align, unsigned average, unsigned mask = 0,
             unsigned flags = 0, unsigned tag = 0, unsigned bits = 0, const Bytes& more = {}) {
  const unsigned count = more.size(), high = average >> 16;
  return Words({32 + count, 0, type, 0, 1000, 0, channels, align, mask, mask >> 16, flags, 0, tag, bits,
                average, high, count},
               more);
}

// `count` bytes 1, 2, 3, ...
Bytes Counted(size_t count) {
  Bytes bytes;
  while (bytes.size() < count) bytes.push_back(static_cast<uint8_t>(bytes.size() + 1));
  return bytes;
}

Bytes PaddedTo(size_t size, Bytes bytes, uint8_t fill = 0xCD) {
  bytes.resize(size, fill);
  return bytes;
}

const Bytes kNull(22);                                                   // extension with a null sub-format
const Bytes kStrange = PaddedTo(22, PaddedTo(21, Extension(16, 3, 1)));  // with one of another base
const Bytes kPcm = Header(1, 2, 4, 16);

Bytes Adpcm(size_t extraSize) {
  return Header(2, 2, 256, 4, Counted(extraSize));
}

Bytes ForeignExtensible(unsigned mask, unsigned tag, size_t extraSize) {
  return Header(0xFFFE, 2, 256, 4, Extension(4, mask, tag, Counted(extraSize)));
}

// A format in exactly its bytes of heap, so that the address sanitizer sees any access behind them.
template <class T>
struct Exact : Bytes {
  explicit Exact(size_t size) : Bytes(size, 0xCD) {}
  explicit Exact(const Bytes& bytes) : Bytes(bytes) {}
  // Not inlined: compilers that see the size complain of a short record before anything is accessed.
  [[gnu::noinline]] T* get() const { return reinterpret_cast<T*>(const_cast<uint8_t*>(data())); }
  T* operator->() const { return get(); }
  T& operator*() const { return *get(); }
};

using Wfx = Exact<WAVEFORMATEX>;
using Wfxe = Exact<WAVEFORMATEXTENSIBLE>;
using Record = Exact<_qnwaveformat>;

Record RecordOf(const Bytes& header, unsigned size = 128) {
  Record record(std::max(size, 32u));
  record->Init(size, *Wfx(header));
  return record;
}

Record RecordOf(QNSAMPLETYPE type, unsigned channels, unsigned mask) {
  Record record(32);
  record->Init(1000, type, channels, mask, 32);
  return record;
}

// The contents of an allocated format, which is released as a caller does.
Bytes Take(WAVEFORMATEX* format) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(format);
  const Bytes contents(bytes, bytes + GlobalSize(GlobalHandle(format)));
  GlobalUnlock(GlobalHandle(format));
  GlobalFree(GlobalHandle(format));
  return contents;
}

TEST(WaveFormat, SampleTypesAndTags) {
  // Type, bits, tag; what else the tag lookup knows.
  const int types[][3] = {{16, 8, 1},       {17, 16, 1},      {18, 24, 1},      {19, 32, 1},
                          {32, 32, 3},      {33, 64, 3},      {48, 32, 0xFE00}, {49, 8, 0xFE01},
                          {64, 16, 0xFE02}, {65, 24, 0xFE02}, {66, 32, 0xFE02}};
  std::map<std::pair<int, int>, int> found = {{{1, 20}, 18},      {{0xFE00, 24}, 48},  {{0xFE01, 16}, 17},
                                              {{0xFE01, 20}, 18}, {{0xFE01, 24}, 18},  {{0xFE01, 32}, 19},
                                              {{0xFE02, 8}, 16},  {{0xFE03, 16}, 128}, {{0xFE03, 24}, 129}};
  for (const auto& [value, bits, tag] : types) {
    EXPECT_EQ(QnAudio_BytesFromSampleType(QNSAMPLETYPE(value)), bits / 8);
    EXPECT_EQ(QnAudio_BitsFromSampleType(QNSAMPLETYPE(value)), bits);
    EXPECT_EQ(QnAudio_FormatTagFromSampleType(QNSAMPLETYPE(value)), tag);
    found[{tag, bits}] = value;
  }
  for (int tag : {0, 1, 2, 3, 0xFE00, 0xFE01, 0xFE02, 0xFE03, 0xFE04, 0xFFFE, 0x10001}) {
    for (int bits = 0; bits < 300; bits++) EXPECT_EQ(QnAudio_GetSampleType2(tag, bits), (found[{tag, bits}]));
  }
}

TEST(WaveFormat, RecordFromHeader) {
  const auto adpcm = [](size_t kept) { return Fields(0, 2, 256, 256000, 0, 8, 2, 4, Counted(kept)); };
  // The header, whether it counts as compressed, the short tag that it carries, a record's size and content.
  const std::tuple<Bytes, int, DWORD, unsigned, Bytes> rows[] = {
      {PaddedTo(16, Header(1, 2, 4, 20)), 0, 0, 0, Fields(18, 2, 6, 4000)},
      // Only tag 1 gets its block align computed.
      {Header(3, 2, 99, 32), 1, 0, 128, Fields(32, 2, 99, 99000)},
      {Header(1, 32769, 2, 16), 1, 0, 32, Fields(17, 32769, 2, 2000)},
      {Header(1, 2, 9, 12, {1}), 1, 0, 128, Fields(0, 2, 2, 9000, 0, 8, 1, 12)},
      {Header(0xFE03, 1, 3, 24), 1, 0, 32, Fields(129, 1, 3, 3000)},
      {Adpcm(10), 1, 0, 32, adpcm(0)},
      {Adpcm(10), 1, 0, 33, adpcm(0)},
      {Adpcm(10), 1, 0, 34, adpcm(0)},
      {Adpcm(10), 1, 0, 43, adpcm(9)},
      {Adpcm(2000), 1, 0, 2000, adpcm(1024)},
      {Header(0xFFFE, 2, 9, 16, Extension(9, 5, 1)), 0, 1, 32, Fields(17, 2, 9, 9000, 5, 16)},
      {Header(0xFFFE, 2, 8, 32, Extension(24, 3, 0xFE01)), 1, 0, 32, Fields(48, 2, 8, 8000, 3, 16)},
      {ForeignExtensible(5, 1, 3), 0, 1, 64, Fields(0, 2, 256, 256000, 5, 24, 1, 4, Counted(3))},
      {Header(0xFFFE, 2, 4, 16, kStrange), 1, 0, 64, Fields(0, 2, 4, 4000, 3, 24, 0, 16)},
      {Header(0xFFFE, 2, 4, 16, kStrange, 21), 1, 0, 64, Fields(0, 2, 4, 4000, 3, 24, 0xFFFE, 16)},
      // Null sub-formats are mended where all sizes are in bits.
      {Header(0xFFFE, 1, 8, 8, kNull, 0), 1, 0, 64, Fields(16, 1, 8, 8000, 0, 16)},
      {Header(0xFFFE, 2, 64, 32, kNull), 1, 0, 64, Fields(32, 2, 64, 64000, 0, 16)},
      {Header(0xFFFE, 2, 4, 16, kNull), 1, 0, 64, Fields(0, 2, 4, 4000, 0, 24, 0, 16)},
      {Header(0xFFFE, 1, 8, 8, kNull, 22, 1), 1, 0, 64, Fields(0, 1, 8, 1, 0, 24, 0, 8)}};
  for (const auto& [header, compressed, shortTag, size, expected] : rows) {
    const Record record = RecordOf(header, size);
    EXPECT_EQ(record, PaddedTo(record.size(), expected, 0));
    EXPECT_EQ(QnAudio_IsCompressed(Wfx(header).get()), compressed) << testing::PrintToString(header);
    DWORD tag = 0;
    QnAudio_GetFormatTagExtensible(Wfxe(PaddedTo(80, header)).get(), &tag);
    EXPECT_EQ(tag, shortTag) << testing::PrintToString(header);
  }
}

TEST(WaveFormat, RecordToHeader) {
  const auto masked = [](unsigned mask, unsigned channels = 2) {
    return Header(0xFFFE, channels, channels, 8, Extension(8, mask, 1));
  };
  const Bytes stereo = Header(1, 2, 2, 8);
  const Record special = RecordOf(ForeignExtensible(5, 2, 4)), tag1 = RecordOf(ForeignExtensible(5, 1, 4));
  // The record, the form, the size of an allocated copy, an output's size and content.
  const std::tuple<Record, QNWAVEFORMAT_COPY_DEST, size_t, unsigned, Bytes> rows[] = {
      {RecordOf(QNST_PCM8U, 2, 3), QNWFCD_AUTO, 18, 40, stereo},
      {RecordOf(QNST_PCM8U, 2, 5), QNWFCD_AUTO, 40, 40, masked(5)},
      {RecordOf(QNST_PCM8U, 2, 5), QNWFCD_AUTO, 40, 39, stereo},
      {RecordOf(masked(0)), QNWFCD_AUTO, 40, 40, masked(3)},
      {RecordOf(QNST_PCM8U, 2, 7), QNWFCD_AUTO, 40, 40, masked(7)},  // too many bits stay in a forced form
      {RecordOf(QNST_PCM8U, 2, 7), QNWFCD_WFX, 40, 40, masked(3)},
      {RecordOf(QNST_PCM8U, 6, 63), QNWFCD_WFX, 18, 40, masked(63, 6)},  // full, of more than 2 channels
      {RecordOf(masked(5)), QNWFCD_WFX_NOMASK, 18, 40, stereo},
      {RecordOf(QNST_PCM8U, 2, 0), QNWFCD_EXT_MULTICHANNEL, 18, 40, stereo},
      {RecordOf(QNST_PCM8U, 63, 0), QNWFCD_EXT_MULTICHANNEL, 40, 40, masked(~0u, 63)},
      {RecordOf(QNST_PCM8U, 66, 0), QNWFCD_EXTENSIBLE, 40, 40, masked(3, 66)},
      {RecordOf(QNST_TAGFE03_24, 2, 0), QNWFCD_AUTO, 18, 40, Header(0, 2, 0, 0)},
      {RecordOf(Adpcm(10)), QNWFCD_AUTO, 28, 23, Adpcm(5)},
      {RecordOf(Adpcm(0)), QNWFCD_EXTENSIBLE, 40, 60, ForeignExtensible(0, 2, 0)},
      {special, QNWFCD_AUTO, 44, 42, ForeignExtensible(5, 2, 2)},
      {special, QNWFCD_WFX, 44, 44, ForeignExtensible(5, 2, 4)},
      {special, QNWFCD_WFX, 44, 43, Adpcm(4)},  // the mask goes before an extra byte does
      {tag1, QNWFCD_EXTENSIBLE, 44, 44, ForeignExtensible(5, 1, 4)},
      {tag1, QNWFCD_WFX_NOMASK, 22, 22, Header(1, 2, 256, 4, {3, 4}, 0x0201)},  // extra bytes from byte 16 on
  };
  for (const auto& [record, dest, allocated, size, expected] : rows) {
    const Wfx output(size);
    record->ToWfx(output.get(), size, dest);
    EXPECT_EQ(output, PaddedTo(size, expected));
    EXPECT_EQ(Take(QnAudio_AllocAndCopyWfx(*record, dest)).size(), allocated) << output.size();
  }
}

TEST(WaveFormat, HeaderToHeader) {
  // A wrong block align and 200 extra bytes tell what was duplicated from what went through a record.
  const Bytes wrong = Header(1, 2, 99, 16, {1, 2}), right = Header(0xFFFE, 2, 4, 16, Extension(16, 3, 1));
  const Bytes wide = Header(0xFFFE, 2, 99, 16, Extension(16, 3, 1));
  const Bytes rows[][5] = {{wrong, wrong, wrong, kPcm, right}, {wide, kPcm, kPcm, kPcm, wide}};
  for (int i = 0; i < 10; i++) {
    const auto dest = static_cast<QNWAVEFORMAT_COPY_DEST>(i % 5);
    EXPECT_EQ(Take(QnAudio_AllocAndCopyWfx(Wfx(rows[i / 5][0]).get(), dest)), rows[i / 5][i % 5]) << i;
  }
  const Wfx itself(Adpcm(200)), bad(PaddedTo(16, Header(1, 2, 5, 20)));
  QnAudio_CopyWfx(itself.get(), 218, itself.get(), QNWFCD_AUTO);
  EXPECT_EQ(PaddedTo(112, itself), Adpcm(94));
  for (int changed : {1, 0}) EXPECT_EQ(QnAudio_FixBadWfx(bad.get()), changed);
  EXPECT_EQ(bad, PaddedTo(16, Header(1, 2, 6, 24, {}, 0, 5000)));
  const std::pair<Bytes, Bytes> shortened[] = {
      {Header(0xFFFE, 1, 9, 32, Extension(32, 3, 3)), Header(3, 1, 9, 32)},
      {Header(0xFFFE, 2, 4, 16, Extension(16, 3, 0xFE02)), Bytes(18, 0xCD)},
      {Adpcm(5), PaddedTo(18, Adpcm(5))},
      {Adpcm(30), PaddedTo(18, Adpcm(30))}};
  for (const auto& [source, expected] : shortened) {
    const Wfx output(18);
    QnAudio_CopyWfExtToWfx(Wfxe(PaddedTo(40, source)).get(), output.get());
    EXPECT_EQ(output, expected);
    const Wfxe whole(40);
    QnAudio_CopyWfxToWfExt(Wfx(source).get(), whole.get());
    EXPECT_EQ(whole, PaddedTo(40, source));
  }
}

TEST(WaveFormat, RecordFromNumbersAndRecords) {
  const Record record(32);
  record->Init(1000, QNST_FLOAT64, 8193, 7, 32);  // 65544 bytes a frame
  EXPECT_EQ(PaddedTo(24, record), PaddedTo(24, Fields(33, 8193, 8, 8000, 7)));
  record->InitAsWfx(1, 1000, 20, 2, 3, 32);
  EXPECT_EQ(record, PaddedTo(32, Fields(18, 2, 6, 6000, 3)));
  record->InitAsWfx(2, 1000, 20, 3, 0, 32);  // 60 bits a frame
  EXPECT_EQ(record->UpdateBlockAlign(), 7u);
  EXPECT_EQ(record, PaddedTo(32, Fields(0, 3, 7, 7000, 0, 8, 2, 20)));
  const Record source = RecordOf(Adpcm(10)), copy(1058);
  for (unsigned size : {0, 33, 34, 43, 44, 1059}) {
    const Record output(std::max(size, 32u));
    QnAudio_GeneralCopyQnWaveFormat(output.get(), size, *source, QNWFCD_AUTO);
    Bytes expected = PaddedTo(output.size(), PaddedTo(std::min<size_t>(42, output.size()), source), 0);
    expected[0] = size == 34 || size > 43 ? 42 : 32;
    if (size == 43) expected[32] = 0;
    EXPECT_EQ(output, expected);
  }
  // Counts that say less or more than the record owns.
  const Record small = RecordOf(QNST_PCM16, 2, 3), liar = RecordOf(Adpcm(2), 36);
  small->cbRecord = 0;
  QnAudio_GeneralCopyQnWaveFormat(copy.get(), 50, *small, QNWFCD_EXTENSIBLE);
  EXPECT_TRUE(*copy == *small);
  liar->cbExtra = 0xFFFF;
  QnAudio_GeneralCopyQnWaveFormat(copy.get(), 1058, *liar, QNWFCD_AUTO);
  EXPECT_EQ(copy->cbExtra, 2);
}

TEST(WaveFormat, Comparison) {
  const Record pcm = RecordOf(QNST_PCM16, 2, 0), masked = RecordOf(QNST_PCM16, 2, 5);
  EXPECT_TRUE(*pcm == *RecordOf(QNST_PCM16, 2, 3) && *pcm == *Wfx(PaddedTo(16, Header(1, 2, 9, 16))));
  EXPECT_FALSE(*pcm == *masked || *pcm == *RecordOf(QNST_PCM16BE, 2, 0) || *masked == *Wfx(kPcm));
  const Wfx header(Adpcm(10));
  const Record adpcm = RecordOf(header);
  // Changes of tag, channels, rate, average, bits, an extra byte; of the block align, which does not count.
  for (size_t place : {0, 2, 4, 8, 14, 27, 12}) {
    Wfx changed = header;
    changed[place]++;
    EXPECT_EQ(*adpcm == *RecordOf(changed), place == 12) << place;
    EXPECT_EQ(*adpcm == *changed, place == 12) << place;
    EXPECT_EQ(QnAudio_IsEqualFormat(header.get(), changed.get()), place == 8 || place == 12 || place == 27);
  }
  // An extensible header counts by the tag that it carries, and has its extra bytes at byte 40.
  EXPECT_TRUE(*adpcm == *Wfx(ForeignExtensible(3, 2, 10)));
  EXPECT_FALSE(*adpcm == *Wfx(ForeignExtensible(5, 2, 10)) || *adpcm == *Wfx(ForeignExtensible(3, 2, 9)));
}

// Headers of random fields in buffers of the size that they declare: no access goes beyond a buffer, and a
// record that kept everything equals its source.
TEST(WaveFormat, RandomHeaders) {
  const auto pick = [](std::vector<unsigned> values) { return values[qntest::Random()() % values.size()]; };
  for (int i = 0; i < 20000; i++) {
    const unsigned tag = pick({1, 3, 0x55, 0xFE00, 0xFE03, 0xFFFE, 0xFFFE});
    const unsigned channels = pick({0, 1, 2, 33, 65535}), bits = pick({0, 8, 12, 20, 32, 64, 65535});
    const unsigned align = pick({4, channels * bits}), extraSize = pick({0, 2, 21, 22, 23, 60, 1000, 1400});
    Bytes more = Extension(pick({24, 32}), pick({0, 1, 3, ~0u}), pick({0, 1, 2, 3, 0xFE00, 0xFFFE}));
    more.resize(std::max(extraSize, tag == 0xFFFE ? 22 : 0u), 7);
    const Wfx source(Header(tag, channels, align, bits, more, extraSize));
    const Record record = RecordOf(source, pick({32, 33, 34, 40, 128, 1058, 2000}));
    // One extra byte does not make a record long enough to hold a count.
    EXPECT_TRUE(*record == *source || extraSize >= 1000 || record.size() < 1058 || record->cbRecord == 33);
    const Record copy(pick({32, 33, 34, 40, 128, 1058, 1100}));
    QnAudio_GeneralCopyQnWaveFormat(copy.get(), copy.size(), *record, QNWFCD_AUTO);
    EXPECT_TRUE(record->IsCompressed() || *copy == *record) << i;
    const auto dest = static_cast<QNWAVEFORMAT_COPY_DEST>(pick({0, 1, 2, 3, 4}));
    const Wfx output(pick({7, 16, 17, 18, 19, 39, 40, 41, 61, 62, 100, 1500}));
    record->ToWfx(output.get(), output.size(), dest);
    Take(QnAudio_AllocAndCopyWfx(*record, dest));
    Take(QnAudio_AllocAndCopyWfx(source.get(), dest));
  }
}

}  // namespace
