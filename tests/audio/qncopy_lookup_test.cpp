// The lookups by sample type and by format, the choice by processor masks, the two vector kernels with their
// own rounding, and the operations on whole buffers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "qn/kernel/qncpu.h"
#include "qn/kernel/qncpu_internal.h"
#include "tests/audio/qncopy_reference.h"

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

namespace qntest {
namespace {

QNCOPYFUNCTION Lookup(int dst, int src) {
  return QnAudio_GetCopyFunction2(static_cast<QNSAMPLETYPE>(dst), static_cast<QNSAMPLETYPE>(src));
}

// Withholds processor bits for the length of a scope.
class Disallow {
 public:
  explicit Disallow(DWORD bits) : bits_(bits) { QnDisallowCPUSupport(bits); }
  ~Disallow() { QnAllowCPUSupport(bits_); }
  Disallow(const Disallow&) = delete;
  Disallow& operator=(const Disallow&) = delete;

 private:
  DWORD bits_;
};

TEST(CopyLookup, KnowsAllPairsButFour) {
  const std::vector<int> types = {16, 17, 18, 19, 32, 33, 48, 49, 64, 65, 66};
  const auto isType = [&](int value) { return std::find(types.begin(), types.end(), value) != types.end(); };
  for (int dst = -1; dst < 132; ++dst) {
    for (int src = -1; src < 132; ++src) {
      const bool missing = (dst == 64 || dst == 65) && (src == 48 || src == 66);
      EXPECT_EQ(Lookup(dst, src) != nullptr, isType(dst) && isType(src) && !missing)
          << dst << " from " << src;
    }
  }
}

TEST(CopyLookup, SwapPairsShareOneKernelThatGainsInBigEndian) {
  EXPECT_EQ(Lookup(17, 64), Lookup(64, 17));
  EXPECT_EQ(Lookup(19, 66), Lookup(66, 19));
  EXPECT_NE(Lookup(18, 65), Lookup(65, 18));
  const uint8_t in[] = {0x01, 0x02, 0x7F, 0xFF}, swapped[] = {0x02, 0x01, 0xFF, 0x7F};
  const uint8_t halved16[] = {0x00, 0x81, 0x40, 0x00}, halved32[] = {0x00, 0x81, 0x40, 0x00};
  uint8_t out[4];
  Lookup(17, 64)(out, in, 2, 1.0f);
  EXPECT_EQ(std::memcmp(out, swapped, 4), 0);
  Lookup(64, 17)(out, in, 2, 0.5f);  // 0x0102 and 0x7FFF, halved; the second is a tie
  EXPECT_EQ(std::memcmp(out, halved16, 4), 0);
  Lookup(66, 19)(out, in, 1, 0.5f);  // 0x01027FFF, halved: a tie as well
  EXPECT_EQ(std::memcmp(out, halved32, 4), 0);
}

TEST(CopyLookup, MasksChooseAtTheMomentOfTheLookup) {
  for (const qn::CopyKernel& pair : qn::CopyKernels()) {
    const bool single = (pair.dst == 17 && pair.src == 32) || (pair.dst == 32 && pair.src == 17);
    const bool both = (pair.dst == 32 && pair.src == 33) || (pair.dst == 33 && pair.src == 32);
    const QNCOPYFUNCTION usual = Lookup(pair.dst, pair.src);
    for (const DWORD bits : {DWORD{0x20}, DWORD{0x40}, DWORD{0xFF0}}) {
      const Disallow disallow(bits);
      EXPECT_EQ(Lookup(pair.dst, pair.src),
                pair.scalar && ((single && (bits & 0x40)) || both) ? pair.scalar : usual);
    }
    EXPECT_EQ(Lookup(pair.dst, pair.src), usual);
#if defined(__x86_64__)
    EXPECT_EQ(usual != pair.scalar, single || both) << pair.dst << " from " << pair.src;
#endif
  }
#if defined(__x86_64__)
  const QNCOPYCHANNELSFUNCTION vector = QnAudio_GetCopyChannelsFunction2(QNST_FLOAT64, QNST_PCM16);
  const Disallow disallow(QNCPU_SSE2);
  EXPECT_NE(QnAudio_GetCopyChannelsFunction2(QNST_FLOAT64, QNST_PCM16), vector);
#endif
}

#if defined(__x86_64__)

// Samples before the first aligned source and behind the last block of four are the rule's; those in blocks
// take a product in single precision, and what does not fit 32 bits ends at the lower rail.
TEST(CopyVectorKernels, DivideTheBufferInHeadBlocksAndTail) {
  const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  ForEachTarget([&] {
    const QNCOPYFUNCTION to16 = Lookup(17, 32);
    for (const size_t offset : {0, 4, 8, 12, 2}) {
      for (size_t length = 0; length < 140; ++length) {
        GuardedBuffer from(length * 4, offset), to(length * 2, 6);
        const float values[] = {65536.5f, 1e6f, inf, -inf, nan, 0.75f, -65537.0f};
        std::vector<int16_t> expected(length);
        const size_t head = offset == 2 ? length : std::min(length, (16 - offset) % 16 / 4);
        const size_t blocks = (length - head) / 4 * 4;
        for (size_t i = 0; i < length; ++i) {
          const float x = values[i % 7];
          std::memcpy(from.data() + 4 * i, &x, 4);
          const bool inBlock = i >= head && i < head + blocks;
          expected[i] = x == 0.75f ? 24576 : x < 0 ? -32768 : inBlock ? -32768 : std::isnan(x) ? 0 : 32767;
        }
        to16(to.data(), from.data(), static_cast<LONG>(length), 1.0f);
        ASSERT_TRUE(to.Intact());
        ASSERT_TRUE(length == 0 || std::memcmp(to.data(), expected.data(), 2 * length) == 0)
            << offset << ", " << length;
      }
    }
    // Just above full scale, but within 32 bits, both roads clip.
    const std::vector<float> loud(16, 65535.0f);
    std::vector<int16_t> clipped(16);
    to16(clipped.data(), loud.data(), 16, 1.0f);
    EXPECT_EQ(clipped, std::vector<int16_t>(16, 32767));

    // A factor that underflows as a single: the rule's doubles keep what the blocks lose.
    const std::vector<int16_t> shorts(12, 16384);
    alignas(16) float floats[16] = {};
    Lookup(32, 17)(floats + 1, shorts.data(), 12, 0x1p-125f);
    for (int i = 0; i < 12; ++i) EXPECT_EQ(floats[1 + i], i < 3 || i == 11 ? 0x1p-126f : 0.0f) << i;
  });
}

TEST(CopyVectorKernels, KeepTheCallersControlWord) {
  ASSERT_TRUE(qn::DetectedDaz());
  alignas(16)
      const float ties[8] = {0.5f / 32768, 1.5f / 32768, -0.5f / 32768, -1.5f / 32768, 0, 0.25f, 1, -1};
  const int16_t nearest[8] = {0, 2, 0, -2, 0, 8192, 32767, -32768};
  const unsigned saved = _mm_getcsr();
  const QNCOPYFUNCTION to16 = Lookup(17, 32), toFloat = Lookup(32, 17);
  for (const unsigned word : {0x1F80u, 0x3F80u, 0x5F80u, 0x7F80u, 0x9FC0u}) {  // all rounding modes; flushing
    int16_t out[8];
    float back[8];
    _mm_setcsr(word);
    to16(out, ties, 8, 1.0f);
    toFloat(back, nearest, 8, 1.0f);
    const unsigned after = _mm_getcsr();
    _mm_setcsr(saved);
    EXPECT_EQ(after & 0xFFC0, word & 0xFFC0);
    EXPECT_EQ(std::memcmp(out, nearest, sizeof out), 0) << std::hex << word;
  }
  // A word of 0 is not restored: flushing stays on. (Exact samples, since all exceptions are unmasked.)
  int16_t out[4];
  alignas(16) const float exact[4] = {0.25f, 0.5f, -0.5f, 0};
  _mm_setcsr(0);
  to16(out, exact, 4, 1.0f);
  const unsigned after = _mm_getcsr();
  _mm_setcsr(saved);
  EXPECT_EQ(after, 0x8040u);
}

#endif

WAVEFORMATEX Format(QNSAMPLETYPE type, WORD channels) {
  WAVEFORMATEX format;
  QnAudio_InitWfx(&format, 48000, type, channels);
  return format;
}

_qnwaveformat Record(QNSAMPLETYPE type, WORD channels) {
  _qnwaveformat record;
  record.Init(48000, type, channels, 0, 32);
  return record;
}

TEST(CopyOperations, GoByTheSourcesChannels) {
  const WAVEFORMATEX wide = Format(QNST_FLOAT32, 1), narrow = Format(QNST_PCM16, 3);
  const _qnwaveformat wideRecord = Record(QNST_FLOAT32, 1), narrowRecord = Record(QNST_PCM16, 3);
  EXPECT_EQ(QnAudio_GetCopyFunction(&wide, &narrow), Lookup(32, 17));
  EXPECT_EQ(QnAudio_GetCopyFunction(&wideRecord, &narrow), Lookup(32, 17));
  EXPECT_EQ(QnAudio_GetCopyFunction(&wide, &narrowRecord), Lookup(32, 17));
  const int16_t in[7] = {16384, -16384, 8192, 1, 2, 3, 99};
  const std::vector<float> expected = {0.25f, -0.25f, 0.125f, 0x1p-16f, 0x1p-15f, 0x3p-16f, 7};
  const auto check = [&](auto* to, auto* from) {
    std::vector<float> out(7, 7.0f);
    EXPECT_EQ(QnAudio_Copy(to, out.data(), from, in, 2, 0.5f), 0);
    EXPECT_EQ(out, expected);
  };
  check(&wide, &narrow);
  check(&wideRecord, &narrow);
  check(&wide, &narrowRecord);
  check(&wideRecord, &narrowRecord);
}

TEST(CopyOperations, ReportAMissingKernelAndWriteNothing) {
  const WAVEFORMATEX big = Format(QNST_PCM16BE, 1), words = Format(QNST_PCM24IN32, 1),
                     plain = Format(QNST_PCM16, 1);
  const int map[1] = {0};
  int32_t in[2] = {1, 2}, out[2] = {5, 6};
  EXPECT_EQ(QnAudio_Copy(&big, out, &words, in, 2, 1.0f), E_NOTIMPL);
  EXPECT_EQ(QnAudio_CopyChannels(&big, out, &words, in, 2, nullptr), E_NOTIMPL);
  EXPECT_EQ(QnAudio_CopyChannels(&big, out, &words, in, 2, map), E_NOTIMPL);
  EXPECT_EQ(QnAudio_Copy(&big, out, &words, in, 0, 1.0f), 0);
  EXPECT_EQ(QnAudio_CopyChannels(&big, out, &words, in, 0, nullptr), 0);
  EXPECT_EQ(QnAudio_CopyChannels(&big, out, &words, in, 0, map), 0);
  EXPECT_EQ(QnAudio_Copy(&plain, out, &words, in, -3, 1.0f), 0);
  EXPECT_EQ(QnAudio_Copy(&plain, nullptr, &words, in, 2, 1.0f), E_POINTER);
  EXPECT_EQ(QnAudio_Copy(static_cast<WAVEFORMATEX*>(nullptr), out, &words, in, 2, 1.0f), E_POINTER);
  EXPECT_EQ(QnAudio_CopyChannels(&plain, out, nullptr, in, 2, map), E_POINTER);
  EXPECT_TRUE(out[0] == 5 && out[1] == 6);
}

TEST(CopyOperations, AMapSendsChannelsWhereItSays) {
  const WAVEFORMATEX to = Format(QNST_PCM8S, 3), from = Format(QNST_PCM16, 4);
  const int16_t in[8] = {0x100, 0x200, 0x300, 0x400, 0x500, 0x600, 0x700, 0x800};
  const int map[4] = {2, -1, 3, 0};  // the second and the third lead nowhere
  std::vector<int8_t> out(6, 9);
  EXPECT_EQ(QnAudio_CopyChannels(&to, out.data(), &from, in, 2, map), 0);
  EXPECT_EQ(out, (std::vector<int8_t>{4, 9, 1, 8, 9, 5}));
  // Two channels with one target: the later source wins.
  const int clash[4] = {1, 1, -1, -1};
  EXPECT_EQ(QnAudio_CopyChannels(&to, out.data(), &from, in, 2, clash), 0);
  EXPECT_EQ(out, (std::vector<int8_t>{4, 2, 1, 8, 6, 5}));
  std::vector<int8_t> whole(8);
  EXPECT_EQ(QnAudio_CopyChannels(&to, whole.data(), &from, in, 2, nullptr), 0);
  EXPECT_EQ(whole, (std::vector<int8_t>{1, 2, 3, 4, 5, 6, 7, 8}));
}

// More samples than a LONG counts go in pieces, in the pair's order where it matters: in place.
TEST(CopyOperations, PiecesMakeTheWhole) {
  for (const qn::CopyKernel& pair : qn::CopyKernels()) {
    if (pair.scalar == nullptr || (pair.dst == 66 && pair.src == 33)) continue;
    const Bytes samples = SamplesOf(pair.src, true);
    const size_t count = 1000;
    Bytes expected(count * BytesOf(pair.dst)), inPlace(count * 8);
    pair.scalar(expected.data(), samples.data(), count, 1.0f);
    std::copy_n(samples.begin(), count * BytesOf(pair.src), inPlace.begin());
    qn::CopyInPieces(pair, pair.scalar, inPlace.data(), inPlace.data(), count, 1.0f, 192);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), inPlace.begin()))
        << pair.dst << " from " << pair.src;
  }
}

}  // namespace
}  // namespace qntest
