// The lookups by sample type and by format, the choice by processor masks, the two vector kernels with their
// own rounding, and the operations on whole buffers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>

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

// All copy pairs but four, which the channel lookup lacks too; that one knows some pairs with words.
TEST(CopyLookup, KnowsItsPairsAndSharesTheSwapKernels) {
  const std::set<int> types = {16, 17, 18, 19, 32, 33, 48, 49, 64, 65, 66};
  const std::set<int> from16 = {17, 18, 19, 48, 32, 33}, from24 = {17, 18, 32, 33}, toWords = {17, 18, 32};
  for (int dst = -1; dst < 135; ++dst) {
    for (int src = -1; src < 135; ++src) {
      const bool missing = (dst == 64 || dst == 65) && (src == 48 || src == 66);
      const bool copy = types.count(dst) && types.count(src) && !missing;
      const bool word = (src == 128 && from16.count(dst)) || (src == 129 && from24.count(dst)) ||
                        (dst / 2 == 64 && toWords.count(src));
      const auto dstType = static_cast<QNSAMPLETYPE>(dst), srcType = static_cast<QNSAMPLETYPE>(src);
      EXPECT_EQ(QnAudio_GetCopyFunction2(dstType, srcType) != nullptr, copy) << dst << ", " << src;
      EXPECT_EQ(QnAudio_GetCopyChannelsFunction2(dstType, srcType) != nullptr, copy || word)
          << dst << ", " << src;
    }
  }
  EXPECT_TRUE(Lookup(17, 64) == Lookup(64, 17) && Lookup(19, 66) == Lookup(66, 19));
  EXPECT_NE(Lookup(18, 65), Lookup(65, 18));
}

#if defined(__x86_64__)

TEST(CopyLookup, MasksChooseAtTheMomentOfTheLookup) {
  const QNCOPYCHANNELSFUNCTION channels = QnAudio_GetCopyChannelsFunction2(QNST_FLOAT64, QNST_PCM16);
  for (const DWORD bit : {QNCPU_SSE, QNCPU_SSE2}) {
    for (const qn::CopyKernel& pair : Pairs()) {
      const bool single = std::set<int>{pair.dst, pair.src} == std::set<int>{17, 32};
      const bool both = std::set<int>{pair.dst, pair.src} == std::set<int>{32, 33};
      EXPECT_EQ(Lookup(pair.dst, pair.src) != pair.scalar, single || both) << pair.dst << ", " << pair.src;
      QnDisallowCPUSupport(bit);
      EXPECT_EQ(Lookup(pair.dst, pair.src) != pair.scalar, single && bit == QNCPU_SSE);
      EXPECT_EQ(QnAudio_GetCopyChannelsFunction2(QNST_FLOAT64, QNST_PCM16) == channels, bit == QNCPU_SSE);
      QnAllowCPUSupport(bit);
    }
  }
}

// Samples before the first aligned source and behind the last block of four are the rule's; those in blocks
// take a product in single precision, and what does not fit 32 bits ends at the lower rail.
TEST(CopyVectorKernels, DivideTheBufferInHeadBlocksAndTail) {
  ForEachTarget([&] {
    const QNCOPYFUNCTION to16 = Lookup(17, 32);
    for (const size_t offset : {0, 4, 8, 12, 2}) {
      for (size_t length = 0; length < 140; ++length) {
        GuardedBuffer from(length * 4, offset), to(length * 2, 6);
        const float values[] = {65536.5f, 1e6f, INFINITY, -INFINITY, NAN, 0.75f, -65537.0f};
        std::vector<int16_t> expected(length);
        const size_t head = offset == 2 ? length : std::min(length, (16 - offset) % 16 / 4);
        const size_t tail = head + (length - head) / 4 * 4;
        for (size_t i = 0; i < length; ++i) {
          const float x = values[i % 7];
          std::memcpy(from.data() + 4 * i, &x, 4);
          const bool low = x < 0 || (i >= head && i < tail);
          expected[i] = x == 0.75f ? 24576 : low ? -32768 : std::isnan(x) ? 0 : 32767;
        }
        to16(to.data(), from.data(), static_cast<LONG>(length), 1.0f);
        const int16_t* const actual = reinterpret_cast<const int16_t*>(to.data());
        ASSERT_TRUE(to.Intact() && std::equal(expected.begin(), expected.end(), actual)) << length;
      }
    }
    // A factor that underflows as a single: the rule's doubles keep what the blocks lose.
    const std::vector<int16_t> shorts(12, 16384);
    alignas(16) float floats[16] = {};
    Lookup(32, 17)(floats + 1, shorts.data(), 12, 0x1p-125f);
    for (int i = 0; i < 12; ++i) EXPECT_EQ(floats[1 + i], i < 3 || i == 11 ? 0x1p-126f : 0.0f) << i;
  });
}

TEST(CopyVectorKernels, KeepTheCallersControlWord) {
  ASSERT_TRUE((QnGetCPUSupport(QNCPU_DAZ) & QNCPU_DAZ) != 0 && qn::DetectedDaz());
  constexpr float kHalf = 0.5f / 32768;
  alignas(16) const float ties[8] = {kHalf, 3 * kHalf, -kHalf, -3 * kHalf, 0, 0.25f, 1, -1}, exact[8] = {};
  const int16_t nearest[8] = {0, 2, 0, -2, 0, 8192, 32767, -32768};
  const QNCOPYFUNCTION to16 = Lookup(17, 32), toFloat = Lookup(32, 17);
  // All rounding modes, flushing, and a word of 0, which is not restored: flushing stays on. (That word
  // unmasks all exceptions, so its samples are exact.)
  for (const unsigned word : {0x1F80u, 0x3F80u, 0x5F80u, 0x7F80u, 0x9FC0u, 0u}) {
    int16_t out[8];
    float back[8];
    const unsigned saved = _mm_getcsr();
    _mm_setcsr(word);
    to16(out, word == 0 ? exact : ties, 8, 1.0f);
    if (word != 0) toFloat(back, nearest, 8, 1.0f);
    const unsigned after = _mm_getcsr() & 0xFFC0;
    _mm_setcsr(saved);
    EXPECT_EQ(after, word == 0 ? 0x8040 : word & 0xFFC0);
    EXPECT_TRUE(word == 0 || std::memcmp(out, nearest, sizeof out) == 0) << std::hex << word;
  }
}

#endif

TEST(CopyOperations, GoByTheSourcesChannels) {
  const WAVEFORMATEX wide = Format(QNST_FLOAT32, 1), narrow = Format(QNST_PCM16, 3);
  _qnwaveformat wideRecord, narrowRecord;
  wideRecord.Init(48000, QNST_FLOAT32, 1, 0, 32);
  narrowRecord.Init(48000, QNST_PCM16, 3, 0, 32);
  EXPECT_EQ(QnAudio_GetCopyFunction(&wide, &narrow), Lookup(32, 17));
  EXPECT_EQ(QnAudio_GetCopyFunction(&wideRecord, &narrow), Lookup(32, 17));
  EXPECT_EQ(QnAudio_GetCopyFunction(&wide, &narrowRecord), Lookup(32, 17));
  const int16_t in[7] = {16384, -16384, 8192, 1, 2, 3, 99};
  const auto check = [&](auto* to, auto* from) {
    std::vector<float> out(7, 7.0f);
    EXPECT_EQ(QnAudio_Copy(to, out.data(), from, in, 2, 0.5f), 0);
    EXPECT_EQ(out, (std::vector<float>{0.25f, -0.25f, 0.125f, 0x1p-16f, 0x1p-15f, 0x3p-16f, 7}));
  };
  check(&wide, &narrow);
  check(&wideRecord, &narrow);
  check(&wide, &narrowRecord);
  check(&wideRecord, &narrowRecord);
}

TEST(CopyOperations, ReportAMissingKernelAndWriteNothing) {
  const WAVEFORMATEX big = Format(QNST_PCM16BE, 1), words = Format(QNST_PCM24IN32, 1);
  const int map[1] = {0};
  int32_t in[2] = {1, 2}, out[2] = {5, 6};
  EXPECT_EQ(QnAudio_Copy(&big, out, &words, in, 2, 1.0f), E_NOTIMPL);
  EXPECT_EQ(QnAudio_CopyChannels(&big, out, &words, in, 2, map), E_NOTIMPL);
  EXPECT_EQ(QnAudio_Copy(&big, out, &words, in, 0, 1.0f), 0);
  EXPECT_EQ(QnAudio_CopyChannels(&big, out, &words, in, 0, map), 0);
  EXPECT_EQ(QnAudio_Copy(&words, out, &words, in, -3, 1.0f), 0);
  EXPECT_EQ(QnAudio_Copy(&words, nullptr, &words, in, 2, 1.0f), E_POINTER);
  EXPECT_TRUE(out[0] == 5 && out[1] == 6);
}

TEST(CopyOperations, AMapSendsChannelsWhereItSays) {
  const WAVEFORMATEX to = Format(QNST_PCM8S, 3), from = Format(QNST_PCM16, 4);
  const int16_t in[8] = {0x100, 0x200, 0x300, 0x400, 0x500, 0x600, 0x700, 0x800};
  const auto check = [&](const int* map, const std::vector<int8_t>& expected) {
    std::vector<int8_t> out(8, 9);
    EXPECT_EQ(QnAudio_CopyChannels(&to, out.data(), &from, in, 2, map), 0);
    EXPECT_EQ(out, expected);
  };
  // Channels that lead nowhere; two with one target, where the later wins; no map, a copy of all.
  const int map[4] = {2, -1, 3, 0}, clash[4] = {1, 1, -1, -1};
  check(map, {4, 9, 1, 8, 9, 5, 9, 9});
  check(clash, {9, 2, 9, 9, 6, 9, 9, 9});
  check(nullptr, {1, 2, 3, 4, 5, 6, 7, 8});
}

}  // namespace
}  // namespace qntest
