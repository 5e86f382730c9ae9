#include "qn/audio/qnwaveformat.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <memory>

#include "qn/platform/memory.h"
#include "tests/support/support.h"

namespace {

using qntest::Bytes;

void Put(Bytes* bytes, unsigned value, int count) {
  for (int i = 0; i < count; i++) bytes->push_back(static_cast<uint8_t>(value >> (8 * i)));
}

void Append(Bytes* bytes, const Bytes& more) {
  bytes->insert(bytes->end(), more.begin(), more.end());
}

constexpr unsigned kFitting = ~0u;

// A published header of 1000 frames a second, field for field, and what stands behind its 18 bytes. By
// default the average bytes fit the block align and cbSize what stands behind.
Bytes Header(unsigned tag, unsigned channels, unsigned align, unsigned bits, const Bytes& more = {},
             unsigned extraSize = kFitting, unsigned average = kFitting) {
  Bytes bytes;
  Put(&bytes, tag, 2), Put(&bytes, channels, 2), Put(&bytes, 1000, 4);
  Put(&bytes, average == kFitting ? align * 1000 : average, 4);
  Put(&bytes, align, 2), Put(&bytes, bits, 2);
  Put(&bytes, extraSize == kFitting ? static_cast<unsigned>(more.size()) : extraSize, 2);
  Append(&bytes, more);
  return bytes;
}

// `count` bytes 1, 2, 3, ...
Bytes Counted(size_t count) {
  Bytes bytes;
  for (size_t i = 1; i <= count; i++) Put(&bytes, static_cast<unsigned>(i), 1);
  return bytes;
}

// The 22 bytes that make a header extensible, with a sub-format that carries a tag, and more behind them.
Bytes Extension(unsigned validBits, unsigned mask, unsigned tag, const Bytes& more = {}) {
  Bytes bytes;
  Put(&bytes, validBits, 2), Put(&bytes, mask, 4), Put(&bytes, tag, 2);
  Append(&bytes, {0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71});
  Append(&bytes, more);
  return bytes;
}

Bytes Changed(Bytes bytes, size_t place) {
  bytes[place]++;
  return bytes;
}

const Bytes kNull(22);                                    // extension with a null sub-format
const Bytes kStrange = Changed(Extension(16, 3, 1), 21);  // with one of another base
const Bytes kWideTag = Changed(Extension(16, 3, 1), 8);   // with a tag above 16 bits
const Bytes kPcm = Header(1, 2, 4, 16);

Bytes Adpcm(size_t extraSize) {
  return Header(2, 2, 256, 4, Counted(extraSize));
}

Bytes ForeignExtensible(unsigned mask, unsigned tag, size_t extraSize) {
  return Header(0xFFFE, 2, 256, 4, Extension(4, mask, tag, Counted(extraSize)));
}

// Exactly `size` bytes of heap, so that the address sanitizer sees any access behind them.
template <class T>
class Exact {
 public:
  explicit Exact(size_t size) : Exact(Bytes(size, 0xCD)) {}
  explicit Exact(const Bytes& bytes) : size_(bytes.size()), bytes_(Allocate(size_)) {
    std::copy(bytes.begin(), bytes.end(), bytes_.get());
  }
  T* get() const { return reinterpret_cast<T*>(bytes_.get()); }
  T* operator->() const { return get(); }
  T& operator*() const { return *get(); }
  Bytes Contents() const { return Bytes(bytes_.get(), bytes_.get() + size_); }

 private:
  // Not inlined: compilers that see the size complain of a short record before anything is accessed.
  [[gnu::noinline]] static uint8_t* Allocate(size_t size) { return new uint8_t[size]; }

  size_t size_;
  std::unique_ptr<uint8_t[]> bytes_;
};

using Wfx = Exact<WAVEFORMATEX>;
using Wfxe = Exact<WAVEFORMATEXTENSIBLE>;
using Record = Exact<_qnwaveformat>;

Record RecordOf(const Bytes& header, unsigned size = 128) {
  Record record(std::max(size, 32u));
  record->Init(size, *Wfx(header));
  return record;
}

Record RecordOf(QNSAMPLETYPE type, unsigned channels, unsigned mask, unsigned flags = 0) {
  Record record(32);
  record->Init(1000, type, channels, mask, 32);
  record->dwFlags |= flags;
  return record;
}

using Fields = std::array<unsigned, 8>;

Fields FieldsOf(const Record& record) {
  return {record->cbRecord,      static_cast<unsigned>(record->sampleType),
          record->nBlockAlign,   record->nAvgBytesPerSec,
          record->dwChannelMask, record->dwFlags,
          record->wFormatTag,    record->wBitsPerSample};
}

Bytes PaddedTo(size_t size, Bytes bytes, uint8_t fill = 0xCD) {
  bytes.resize(size, fill);
  return bytes;
}

// The contents of an allocated format, which is released as a caller does.
Bytes Take(WAVEFORMATEX* format) {
  const HGLOBAL block = GlobalHandle(format);
  const auto* bytes = reinterpret_cast<const uint8_t*>(format);
  Bytes contents(bytes, bytes + GlobalSize(block));
  GlobalUnlock(block);
  EXPECT_EQ(GlobalFree(block), nullptr);
  return contents;
}

TEST(WaveFormat, SampleTypesAndTags) {
  // Type, bytes, bits, tag; what else the tag lookup knows.
  const std::array<int, 4> types[] = {{16, 1, 8, 1},       {17, 2, 16, 1},     {18, 3, 24, 1},
                                      {19, 4, 32, 1},      {32, 4, 32, 3},     {33, 8, 64, 3},
                                      {48, 4, 32, 0xFE00}, {49, 1, 8, 0xFE01}, {64, 2, 16, 0xFE02},
                                      {65, 3, 24, 0xFE02}, {66, 4, 32, 0xFE02}};
  std::map<int, std::array<int, 4>> known;
  std::map<std::pair<int, int>, int> found = {{{1, 20}, 18},      {{0xFE00, 24}, 48},  {{0xFE01, 16}, 17},
                                              {{0xFE01, 20}, 18}, {{0xFE01, 24}, 18},  {{0xFE01, 32}, 19},
                                              {{0xFE02, 8}, 16},  {{0xFE03, 16}, 128}, {{0xFE03, 24}, 129}};
  for (const auto& row : types) known[row[0]] = row, found[{row[3], row[2]}] = row[0];
  for (int value = -1; value < 300; value++) {
    const auto type = static_cast<QNSAMPLETYPE>(value);
    const std::array columns = {known[value][0] ? value : 0, QnAudio_BytesFromSampleType(type),
                                QnAudio_BitsFromSampleType(type), QnAudio_FormatTagFromSampleType(type)};
    EXPECT_EQ(columns, known[value]) << value;
    for (int tag : {0, 1, 2, 3, 0xFE00, 0xFE01, 0xFE02, 0xFE03, 0xFE04, 0xFFFE, 0x10001}) {
      const auto bits = static_cast<unsigned>(value);
      EXPECT_EQ(QnAudio_GetSampleType2(tag, bits), (found[{tag, value}])) << tag << ' ' << value;
    }
  }
}

TEST(WaveFormat, HeadersAreRecognised) {
  struct Row {
    const char* name;
    Bytes header;
    int type, tag, compressed;
    unsigned extensibleTag = 0;  // 0: not given
  };
  const Row rows[] = {
      {"wrong block align", Header(1, 2, 5, 16), 17, 1, 1},
      {"frame beyond 16 bits", Header(1, 32769, 2, 16), 17, 1, 1},
      {"20-bit in 2 bytes", Header(1, 2, 4, 20), 18, 1, 0},
      {"float", Header(3, 1, 4, 32), 32, 3, 0},
      {"unpacked", Header(0xFE00, 1, 4, 32), 48, 0xFE00, 0},
      {"signed", Header(0xFE01, 1, 1, 8), 49, 0xFE01, 0},
      {"big-endian", Header(0xFE02, 1, 3, 24), 65, 0xFE02, 0},
      {"only looked up", Header(0xFE03, 1, 3, 24), 129, 0xFE03, 1},
      {"compressed", Adpcm(32), 0, 2, 1},
      {"extensible", Header(0xFFFE, 2, 99, 16, Extension(16, 3, 1)), 17, 1, 0, 1},
      {"24 of 32", Header(0xFFFE, 2, 8, 32, Extension(24, 3, 1)), 48, 1, 0, 1},
      {"24 of 32 signed", Header(0xFFFE, 2, 8, 32, Extension(24, 3, 0xFE01)), 48, 0xFE01, 1},
      {"cbSize 21", Header(0xFFFE, 2, 4, 16, Extension(16, 3, 1), 21), 17, 0xFFFE, 1},
      {"other base", Header(0xFFFE, 2, 4, 16, kStrange), 0, 0, 1},
      {"tag above 16 bits", Header(0xFFFE, 2, 4, 16, kWideTag), 0, 0, 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const bool isShort = row.tag == 1 || row.tag == 3;
    const Wfx format(isShort && row.extensibleTag == 0 ? PaddedTo(16, row.header) : row.header);
    EXPECT_EQ(QnAudio_GetSampleType(format.get()), row.type);
    EXPECT_EQ(QnAudio_GetWaveFormatTag(format.get()), row.tag);
    EXPECT_EQ(QnAudio_IsCompressed(format.get()), row.compressed);
    const Wfxe extensible(PaddedTo(std::max<size_t>(40, row.header.size()), row.header));
    DWORD tag = 77;
    EXPECT_EQ(QnAudio_GetFormatTagExtensible(extensible.get(), &tag) != 0, row.extensibleTag != 0);
    EXPECT_EQ(tag, row.extensibleTag != 0 ? row.extensibleTag : 77);
    if (extensible->Format.wFormatTag != 0xFFFE) continue;
    EXPECT_EQ(QnAudio_IsCompressedExtensible(extensible.get()), row.compressed);
  }
  EXPECT_EQ(QnAudio_GetWaveFormatTag(nullptr), 0);
}

TEST(WaveFormat, RecordFromHeader) {
  struct Row {
    const char* name;
    Bytes header;
    unsigned size;
    Fields fields;
    size_t extra = 0;  // how many bytes are kept
  };
  const Row rows[] = {
      {"20 bits are 24", Header(1, 2, 4, 20), 0, {32, 18, 6, 4000}},
      {"others keep their block", Header(3, 2, 99, 32), 128, {32, 32, 99, 99000}},
      {"block is cut", Header(1, 32769, 99, 16), 32, {32, 17, 2, 99000}},
      {"foreign pcm", Header(1, 2, 9, 12, {1}), 128, {32, 0, 2, 9000, 0, 8, 1, 12}},
      {"foreign float", Header(3, 2, 4, 16, {1}), 128, {32, 0, 4, 4000, 0, 8, 3, 16}},
      {"typed, with extra", Header(0xFE00, 1, 4, 32, Counted(3)), 128, {32, 48, 4, 4000}},
      {"no room", Adpcm(10), 32, {32, 0, 256, 256000, 0, 8, 2, 4}},
      {"half a count", Adpcm(10), 33, {32, 0, 256, 256000, 0, 8, 2, 4}},
      {"the count alone", Adpcm(10), 34, {32, 0, 256, 256000, 0, 8, 2, 4}},
      {"9 of 10", Adpcm(10), 43, {41, 0, 256, 256000, 0, 8, 2, 4}, 9},
      {"10 of 10", Adpcm(10), 44, {42, 0, 256, 256000, 0, 8, 2, 4}, 10},
      {"1024 of 2000", Adpcm(2000), 2000, {1056, 0, 256, 256000, 0, 8, 2, 4}, 1024},
      {"extensible", Header(0xFFFE, 2, 9, 16, Extension(9, 5, 1)), 32, {32, 17, 9, 9000, 5, 16}},
      {"foreign", ForeignExtensible(5, 0x55, 3), 64, {35, 0, 256, 256000, 5, 24, 0x55, 4}, 3},
      {"foreign, carries 1", ForeignExtensible(5, 1, 3), 64, {35, 0, 256, 256000, 5, 24, 1, 4}, 3},
      {"carries none", Header(0xFFFE, 2, 4, 16, kStrange), 64, {32, 0, 4, 4000, 3, 24, 0, 16}},
      {"cbSize 21", Header(0xFFFE, 2, 4, 16, kStrange, 21), 64, {32, 0, 4, 4000, 3, 24, 0xFFFE, 16}},
      {"null, 8", Header(0xFFFE, 1, 8, 8, kNull, 0), 64, {32, 16, 8, 8000, 0, 16}},
      {"null, 16", Header(0xFFFE, 2, 32, 16, kNull), 64, {32, 17, 32, 32000, 0, 16}},
      {"null, 24", Header(0xFFFE, 1, 24, 24, kNull), 64, {32, 18, 24, 24000, 0, 16}},
      {"null, 32", Header(0xFFFE, 1, 32, 32, kNull), 64, {32, 32, 32, 32000, 0, 16}},
      {"null, 64", Header(0xFFFE, 1, 64, 64, kNull), 64, {32, 33, 64, 64000, 0, 16}},
      {"null, 20", Header(0xFFFE, 1, 20, 20, kNull), 64, {32, 0, 20, 20000, 0, 24, 0, 20}},
      {"null, in bytes", Header(0xFFFE, 2, 4, 16, kNull), 64, {32, 0, 4, 4000, 0, 24, 0, 16}},
      {"null, cbSize 1", Header(0xFFFE, 1, 8, 8, kNull, 1), 64, {32, 0, 8, 8000, 0, 24, 0xFFFE, 8}},
      {"null, average", Header(0xFFFE, 1, 8, 8, kNull, 22, 1), 64, {32, 0, 8, 1, 0, 24, 0, 8}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const Record record = RecordOf(row.header, row.size);
    EXPECT_EQ(FieldsOf(record), row.fields);
    EXPECT_EQ(record->nSamplesPerSec, 1000u);
    EXPECT_EQ(record->nChannels, row.header[2] + 256 * row.header[3]);
    if (row.size < 34) continue;
    Bytes tail;
    Put(&tail, static_cast<unsigned>(row.extra), 2);
    Append(&tail, Counted(row.extra));
    const Bytes whole = record.Contents();
    EXPECT_EQ(Bytes(whole.begin() + 32, whole.end()), PaddedTo(row.size - 32, tail, 0));
  }
}

TEST(WaveFormat, RecordFromNumbers) {
  const Record small(32);
  small->Init(1000, QNST_PCM24, 6, 0x3F, 0);
  EXPECT_EQ(FieldsOf(small), (Fields{32, 18, 18, 18000, 0x3F, 0, 0xCDCD, 0xCDCD}));
  small->InitAsWfx(1, 1000, 20, 2, 3, 32);
  EXPECT_EQ(FieldsOf(small), (Fields{32, 18, 6, 6000, 3}));

  const Record large(100);
  large->Init(1000, QNST_FLOAT64, 8193, 0, 100);  // 65544 bytes a frame
  EXPECT_EQ(FieldsOf(large), (Fields{100, 33, 8, 8000}));
  large->nChannels = 3;
  EXPECT_EQ(large->UpdateBlockAlign(), 24u);
  EXPECT_EQ(large->nAvgBytesPerSec, 24000u);
  EXPECT_EQ((std::array{large->FormatTag(), large->BitsPerSample(), large->BytesPerSample()}),
            (std::array<uint16_t, 3>{3, 64, 8}));
  EXPECT_FALSE(large->IsCompressed());

  large->InitAsWfx(2, 1000, 12, 3, 0, 100);  // 36 bits a frame
  EXPECT_EQ(FieldsOf(large), (Fields{100, 0, 4, 4000, 0, 8, 2, 12}));
  EXPECT_EQ(large->UpdateBlockAlign(), 4u);
  EXPECT_EQ((std::array{large->FormatTag(), large->BitsPerSample(), large->BytesPerSample()}),
            (std::array<uint16_t, 3>{2, 12, 1}));
  EXPECT_TRUE(large->IsCompressed());
  EXPECT_EQ(large->cbExtra, 0);
}

TEST(WaveFormat, RecordToHeader) {
  enum { Auto, Plain, NoMask, Multi, Always };
  const auto extensible = [](unsigned mask) { return Header(0xFFFE, 2, 4, 16, Extension(16, mask, 1)); };
  const auto many = [](unsigned channels, unsigned mask) {
    return Header(0xFFFE, channels, channels, 8, Extension(8, mask, 1));
  };
  const auto foreign = [](size_t extra) { return Header(0x55, 2, 256, 4, Counted(extra)); };
  const auto foreignRecord = [](unsigned mask, unsigned tag = 0x55) {
    return RecordOf(ForeignExtensible(mask, tag, 4));
  };
  const Bytes unpacked6 = Header(0xFFFE, 6, 24, 32, Extension(32, 0x3F, 0xFE00));
  struct Row {
    const char* name;
    Record record;
    unsigned size;
    int dest;
    Bytes expected;
  };
  const Row rows[] = {
      {"no mask", RecordOf(QNST_PCM16, 2, 0), 40, Auto, kPcm},
      {"full mask", RecordOf(QNST_PCM16, 2, 3), 40, Auto, kPcm},
      {"other mask", RecordOf(QNST_PCM16, 2, 5), 40, Auto, extensible(5)},
      {"one byte short", RecordOf(QNST_PCM16, 2, 5), 39, Auto, kPcm},
      {"from extensible", RecordOf(QNST_PCM16, 2, 0, 16), 40, Auto, extensible(3)},
      {"too many bits, forced", RecordOf(QNST_PCM16, 2, 7), 40, Auto, extensible(7)},
      {"too many bits", RecordOf(QNST_PCM16, 2, 7), 40, Plain, extensible(3)},
      {"not forced, other mask", RecordOf(QNST_PCM16, 2, 5, 16), 40, Plain, extensible(5)},
      {"not forced, full mask", RecordOf(QNST_PCM16, 2, 3, 16), 40, Plain, kPcm},
      {"not forced, full of 6", RecordOf(QNST_PCM24IN32, 6, 0x3F), 40, Plain, unpacked6},
      {"mask dropped", RecordOf(QNST_PCM16, 2, 5, 16), 40, NoMask, kPcm},
      {"stereo is not multi", RecordOf(QNST_PCM16, 2, 0), 40, Multi, kPcm},
      {"6 channels", RecordOf(QNST_PCM24IN32, 6, 0), 41, Multi, unpacked6},
      {"always", RecordOf(QNST_PCM16, 2, 0), 40, Always, extensible(3)},
      {"32 channels", RecordOf(QNST_PCM8U, 32, 0), 40, Always, many(32, 0xFFFFFFFF)},
      {"63 channels", RecordOf(QNST_PCM8U, 63, 0), 40, Always, many(63, 0xFFFFFFFF)},
      {"66 channels", RecordOf(QNST_PCM8U, 66, 0), 40, Always, many(66, 3)},
      {"always, no room", RecordOf(QNST_PCM16, 2, 0), 18, Always, kPcm},
      {"no size", RecordOf(QNST_TAGFE03_24, 2, 0), 40, Auto, Header(0, 2, 0, 0)},
      {"foreign", RecordOf(foreign(10)), 60, Auto, foreign(10)},
      {"foreign, cut", RecordOf(foreign(10)), 23, Auto, foreign(5)},
      {"foreign, no extra", RecordOf(foreign(10)), 18, Auto, foreign(0)},
      {"foreign, no mask stays", RecordOf(foreign(0)), 60, Always, ForeignExtensible(0, 0x55, 0)},
      {"foreign extensible", foreignRecord(5), 60, Auto, ForeignExtensible(5, 0x55, 4)},
      {"foreign extensible, cut", foreignRecord(5), 42, Auto, ForeignExtensible(5, 0x55, 2)},
      {"foreign, mask, all fits", foreignRecord(5), 44, Plain, ForeignExtensible(5, 0x55, 4)},
      {"foreign, mask, one short", foreignRecord(5), 43, Plain, foreign(4)},
      {"foreign, full mask", foreignRecord(3), 44, Plain, foreign(4)},
      {"foreign, mask dropped", foreignRecord(5), 44, NoMask, foreign(4)},
      {"tag 1, extensible", foreignRecord(5, 1), 44, Always, ForeignExtensible(5, 1, 4)},
      {"tag 1 overlaps", foreignRecord(5, 1), 22, NoMask, Header(1, 2, 256, 4, {3, 4}, 0x0201)},
      {"tag 3 overlaps", foreignRecord(5, 3), 21, NoMask, Header(3, 2, 256, 4, {3}, 0x0201)},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const auto dest = static_cast<QNWAVEFORMAT_COPY_DEST>(row.dest);
    const Wfx output(row.size);
    EXPECT_EQ(row.record->ToWfx(output.get(), row.size, dest), output.get());
    EXPECT_EQ(output.Contents(), PaddedTo(row.size, row.expected));
  }
}

TEST(WaveFormat, HeaderFromNumbers) {
  const auto header = [](DWORD tag, DWORD bits, DWORD channels, DWORD mask) {
    const Wfx output(44);
    QnAudio_InitWfxFlex(output.get(), tag, 1000, bits, channels, mask, 44);
    return output.Contents();
  };
  EXPECT_EQ(header(1, 16, 32769, 0), PaddedTo(44, Header(1, 32769, 2, 16)));
  EXPECT_EQ(header(3, 32, 3, 7), PaddedTo(44, Header(0xFFFE, 3, 12, 32, Extension(32, 7, 3))));
  EXPECT_EQ(header(1, 16, 0, 1), PaddedTo(44, Header(0xFFFE, 0, 0, 16, Extension(16, 0, 1))));
  const Wfx output(18);
  QnAudio_InitWfx(output.get(), 1000, QNST_PCM24IN32, 6);
  EXPECT_EQ(output.Contents(), Header(0xFE00, 6, 24, 32));
}

TEST(WaveFormat, AllocatedCopies) {
  struct Row {
    Record record;
    unsigned sizes[5];  // under the five forms
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
    for (int form = 0; form < 5; form++) {
      const auto dest = static_cast<QNWAVEFORMAT_COPY_DEST>(form);
      const Wfx expected(row.sizes[form]);
      row.record->ToWfx(expected.get(), row.sizes[form], dest);
      EXPECT_EQ(Take(QnAudio_AllocAndCopyWfx(*row.record, dest)), expected.Contents()) << form;
      EXPECT_EQ(Take(QnAudio_AllocAndCopyWfx(row.record.get(), dest)), expected.Contents()) << form;
    }
  }

  // A wrong block align and 200 extra bytes tell what was duplicated from what went through a record.
  const Bytes wrong = Header(1, 2, 99, 16, {1, 2});
  const Bytes wrongExtensible = Header(0xFFFE, 2, 99, 16, Extension(16, 3, 1));
  const Bytes cutAdpcm = Header(0xFFFE, 2, 256, 4, Extension(4, 0, 2, Counted(94)));
  const struct {
    Bytes source, copies[5];
  } duplicates[] = {
      {wrong, {wrong, wrong, wrong, kPcm, Header(0xFFFE, 2, 4, 16, Extension(16, 3, 1))}},
      {wrongExtensible, {wrongExtensible, kPcm, kPcm, kPcm, wrongExtensible}},
      {Adpcm(200), {Adpcm(200), Adpcm(200), Adpcm(200), Adpcm(94), cutAdpcm}},
  };
  for (const auto& [source, copies] : duplicates) {
    for (int dest = 0; dest < 5; dest++) {
      const Wfx exact(source);
      const WAVEFORMATEX* format = exact.get();
      EXPECT_EQ(Take(QnAudio_AllocAndCopyWfx(format, static_cast<QNWAVEFORMAT_COPY_DEST>(dest))),
                copies[dest])
          << dest;
    }
  }
}

TEST(WaveFormat, HeaderToHeader) {
  const Bytes extensible = Header(0xFFFE, 2, 4, 16, Extension(16, 3, 1));
  const Wfx plain(20);
  QnAudio_CopyWfx(plain.get(), 20, Wfx(extensible).get(), QNWFCD_AUTO);
  EXPECT_EQ(plain.Contents(), PaddedTo(20, kPcm));
  const Wfx itself(Adpcm(200));
  QnAudio_CopyWfx(itself.get(), 218, itself.get(), QNWFCD_AUTO);
  EXPECT_EQ(PaddedTo(112, itself.Contents()), Adpcm(94));
  const Wfxe whole(40);
  QnAudio_CopyWfExt(whole.get(), Wfx(PaddedTo(16, kPcm)).get(), QNWFCD_EXTENSIBLE);
  EXPECT_EQ(whole.Contents(), extensible);
  for (size_t extraSize : {0, 5, 22, 30}) {
    const Wfxe output(40);
    QnAudio_CopyWfxToWfExt(Wfx(Adpcm(extraSize)).get(), output.get());
    EXPECT_EQ(output.Contents(), PaddedTo(40, Adpcm(extraSize)));
  }

  const std::pair<Bytes, Bytes> shortened[] = {
      {extensible, kPcm},
      {Header(0xFFFE, 1, 9, 32, Extension(32, 3, 3)), Header(3, 1, 9, 32)},
      {Header(0xFFFE, 2, 4, 16, Extension(16, 3, 0xFE02)), Bytes(18, 0xCD)},
      {PaddedTo(40, Adpcm(5)), PaddedTo(18, Adpcm(5))}};
  for (const auto& [source, expected] : shortened) {
    const Wfx output(18);
    QnAudio_CopyWfExtToWfx(Wfxe(source).get(), output.get());
    EXPECT_EQ(output.Contents(), expected);
  }

  const Record record = RecordOf(extensible);
  const _qnwaveformat_wfxcopyhelper helper(*record);
  EXPECT_EQ(std::memcmp(&helper, kPcm.data(), 18), 0);
  const _qnwaveformat_wfxecopyhelper extensibleHelper(*record);
  EXPECT_EQ(std::memcmp(&extensibleHelper, extensible.data(), 40), 0);
  _qnwaveformat_wfxplus plus;
  plus.Init(Wfx(Adpcm(94)).get(), QNWFCD_WFX);
  EXPECT_EQ(std::memcmp(&plus, Adpcm(94).data(), 112), 0);
}

TEST(WaveFormat, RecordToRecord) {
  const Record source = RecordOf(Adpcm(10));
  struct Row {
    unsigned size, owned, cbRecord;
    Bytes tail;  // behind the fixed 32 bytes, padded with zeros
  };
  const Bytes whole = {10, 0, 1, 2, 3, 4, 5, 6, 7, 8};
  const Row rows[] = {{0, 32, 32, {}},         {32, 32, 32, {}},
                      {33, 33, 32, {10}},      {34, 34, 42, {10, 0}},
                      {44, 44, 42, whole},     {43, 43, 32, {0, 0, 1, 2, 3, 4, 5, 6, 7, 8}},
                      {1058, 1058, 42, whole}, {1059, 1059, 42, whole}};
  for (const Row& row : rows) {
    const Record output(row.owned);
    EXPECT_EQ(QnAudio_GeneralCopyQnWaveFormat(output.get(), row.size, *source, QNWFCD_AUTO), output.get());
    Bytes expected = PaddedTo(32, source.Contents());
    expected[0] = static_cast<uint8_t>(row.cbRecord);
    Append(&expected, row.tail);
    EXPECT_EQ(output.Contents(), PaddedTo(row.owned, expected, 0)) << row.size;
  }
  // A record of 32 bytes without a size; counts that say more than the record owns.
  const Record small = RecordOf(QNST_PCM16, 2, 3);
  const Bytes expected = PaddedTo(50, small.Contents(), 0);
  small->cbRecord = 0;
  const Record output(50);
  QnAudio_GeneralCopyQnWaveFormat(output.get(), 50, *small, QNWFCD_EXTENSIBLE);
  EXPECT_EQ(output.Contents(), expected);
  const Record liar = RecordOf(Adpcm(2), 36);
  liar->cbExtra = 0xFFFF;
  const Record copy(1058);
  QnAudio_GeneralCopyQnWaveFormat(copy.get(), 1058, *liar, QNWFCD_AUTO);
  EXPECT_EQ(copy->cbExtra, 2);
  EXPECT_TRUE(*liar == *RecordOf(Adpcm(2)));
}

TEST(WaveFormat, Comparison) {
  const auto equal = [](const Record& first, const Record& second) {
    EXPECT_EQ(*first == *second, *second == *first);
    return *first == *second;
  };
  const Record pcm = RecordOf(QNST_PCM16, 2, 0);
  EXPECT_TRUE(equal(pcm, RecordOf(QNST_PCM16, 2, 3, 16)));
  EXPECT_TRUE(equal(pcm, RecordOf(Header(0xFFFE, 2, 99, 16, Extension(9, 0, 1)))));
  EXPECT_FALSE(equal(pcm, RecordOf(QNST_PCM16, 2, 5)));
  EXPECT_FALSE(equal(pcm, RecordOf(QNST_PCM16BE, 2, 0)));
  EXPECT_FALSE(equal(pcm, RecordOf(QNST_PCM16, 1, 3)));
  EXPECT_FALSE(equal(pcm, RecordOf(QNST_PCM16, 2, 0, 8)));
  EXPECT_FALSE(equal(pcm, RecordOf(Changed(kPcm, 4))));
  EXPECT_TRUE(*pcm == *Wfx(PaddedTo(16, Header(1, 2, 99, 16))));
  EXPECT_FALSE(*RecordOf(QNST_PCM16, 2, 5) == *Wfx(PaddedTo(16, kPcm)));
  EXPECT_TRUE(*pcm == *Wfx(Header(0xFFFE, 2, 99, 16, Extension(9, 0, 1))));
  EXPECT_FALSE(*pcm == *Wfx(Header(0xFFFE, 2, 4, 16, Extension(16, 5, 1))));

  // Changes of tag, channels, rate, average, bits, an extra byte; of the block align, which does not count.
  const Record foreign = RecordOf(Adpcm(10));
  for (size_t place : {0, 2, 4, 8, 14, 27, 12}) {
    const Bytes changed = Changed(Adpcm(10), place);
    EXPECT_EQ(equal(foreign, RecordOf(changed)), place == 12) << place;
    EXPECT_EQ(*foreign == *Wfx(changed), place == 12) << place;
    EXPECT_EQ(QnAudio_IsEqualFormat(Wfx(Adpcm(10)).get(), Wfx(changed).get()),
              place == 8 || place == 12 || place == 27)
        << place;
  }
  EXPECT_FALSE(equal(foreign, RecordOf(Adpcm(10), 43)));
  // An extensible header counts by the tag that it carries, and has its extra bytes at byte 40.
  EXPECT_TRUE(*foreign == *Wfx(ForeignExtensible(3, 2, 10)));
  EXPECT_TRUE(*RecordOf(ForeignExtensible(3, 2, 10)) == *Wfx(Adpcm(10)));
  EXPECT_FALSE(*foreign == *Wfx(ForeignExtensible(5, 2, 10)));
  EXPECT_FALSE(*foreign == *Wfx(ForeignExtensible(3, 2, 9)));
  EXPECT_FALSE(*foreign == *Wfx(ForeignExtensible(3, 0x55, 10)));
  EXPECT_TRUE(*RecordOf(Header(1, 2, 3, 12)) == *Wfx(PaddedTo(16, Header(1, 2, 3, 12))));
}

TEST(WaveFormat, MendsPcmAlone) {
  const auto mended = [](const Bytes& header, int changed) {
    const Wfx format(PaddedTo(16, header));
    EXPECT_EQ(QnAudio_FixBadWfx(format.get()), changed);
    return PaddedTo(18, format.Contents(), 0);
  };
  EXPECT_EQ(mended(Header(1, 2, 6, 20), 1), Header(1, 2, 6, 24));
  EXPECT_EQ(mended(Header(1, 2, 5, 24), 1), Header(1, 2, 6, 24, {}, 0, 5000));
  EXPECT_EQ(mended(Header(3, 2, 5, 20), 0), Header(3, 2, 5, 20));
  EXPECT_EQ(mended(Header(1, 32769, 2, 16), 0), Header(1, 32769, 2, 16));
}

// Headers of random fields in buffers of the size that they declare: no access goes beyond a buffer, and a
// record that kept everything equals its source and what it is written to.
TEST(WaveFormat, RandomHeaders) {
  auto& random = qntest::Random();
  const auto pick = [&random](std::initializer_list<unsigned> values) {
    return values.begin()[random() % values.size()];
  };
  for (int i = 0; i < 20000; i++) {
    const unsigned tag = pick({1, 2, 3, 0x55, 0xFE00, 0xFE01, 0xFE02, 0xFE03, 0xFFFE, 0xFFFE, 0xFFFE});
    const unsigned channels = pick({0, 1, 2, 3, 6, 32, 33, 64, 65535});
    const unsigned bits = pick({0, 8, 12, 16, 20, 24, 32, 64, 65535});
    const unsigned align = pick({4, channels * bits, 0xFFFF}) & 0xFFFF;
    const unsigned extraSize = pick({0, 2, 21, 22, 23, 60, 1000, 1400});
    const Bytes extension = Extension(pick({24, 32}), pick({0, 1, 3, 0x3F, 0xFFFFFFFF}),
                                      pick({0, 1, 2, 3, 0xFE00, 0xFE03, 0xFFFE}));
    Bytes more = tag != 0xFFFE ? Bytes() : pick({0, 1}) ? kNull : extension;
    while (more.size() < extraSize) more.push_back(static_cast<uint8_t>(random()));
    const Bytes header = Header(tag, channels, align, bits, more, extraSize);
    const Wfx source(header);

    const Record whole = RecordOf(header, 2000);
    const bool typed = whole->sampleType == QnAudio_GetSampleType(source.get());
    // One extra byte does not make a record long enough to hold a count.
    if (extraSize < 1024 && whole->cbRecord != 33 && typed) {
      EXPECT_TRUE(*whole == *source) << i;
      const Bytes written = Take(QnAudio_AllocAndCopyWfx(*whole, QNWFCD_EXTENSIBLE));
      if (whole->FormatTag() != 0 && whole->FormatTag() != 0xFFFE && align * bits * channels != 0) {
        EXPECT_TRUE(*whole == *Wfx(written)) << i;
      }
    }
    const unsigned recordSize = pick({32, 33, 34, 40, 128, 1058});
    const Record record = RecordOf(header, recordSize);
    const unsigned copySize = pick({0, 32, 33, 40, 128, 1058, 1100});
    const Record copy(std::max(copySize, 32u));
    QnAudio_GeneralCopyQnWaveFormat(copy.get(), copySize, *record, QNWFCD_AUTO);
    EXPECT_TRUE(record->IsCompressed() || *copy == *record) << i;
    const auto dest = static_cast<QNWAVEFORMAT_COPY_DEST>(random() % 5);
    const unsigned size = pick({0, 7, 16, 17, 18, 19, 39, 40, 41, 61, 62, 100, 1500});
    const Wfx output(size);
    record->ToWfx(output.get(), size, dest);
    QnAudio_CopyWfx(output.get(), size, source.get(), dest);
    Take(QnAudio_AllocAndCopyWfx(*copy, dest));
    Take(QnAudio_AllocAndCopyWfx(source.get(), dest));
  }
}

}  // namespace
