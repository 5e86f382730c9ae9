// The channel kernels: all of their table, and the types that they alone know.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "tests/audio/qncopy_reference.h"

namespace qntest {
namespace {

QNCOPYCHANNELSFUNCTION Lookup(int dst, int src) {
  return QnAudio_GetCopyChannelsFunction2(static_cast<QNSAMPLETYPE>(dst), static_cast<QNSAMPLETYPE>(src));
}

TEST(ChannelKernels, ConvertOneChannelAndTouchNoOther) {
  const struct {
    size_t dstChannels, dstChannel, srcChannels, srcChannel, frames;
  } layouts[] = {{1, 0, 1, 0, 700}, {2, 1, 2, 0, 600}, {1, 0, 3, 2, 513}, {5, 4, 1, 0, 100},
                 {2, 0, 7, 3, 5},   {3, 1, 2, 1, 256}, {2, 1, 2, 1, 0},   {4, 0, 2, 0, 1}};
  for (const qn::ChannelKernel& pair : qn::ChannelKernels()) {
    if (pair.scalar == nullptr || pair.dst >= 128 || pair.src >= 128) continue;
    const size_t dstBytes = BytesOf(pair.dst), srcBytes = BytesOf(pair.src);
    const Bytes samples = SamplesOf(pair.src, true);
    for (const auto& [dstChannels, dstChannel, srcChannels, srcChannel, frames] : layouts) {
      // Exactly the bytes up to the channel's last sample.
      const auto extent = [n = frames](size_t stride, size_t channel, size_t bytes) {
        return n == 0 ? 0 : ((n - 1) * stride + channel + 1) * bytes;
      };
      GuardedBuffer from(extent(srcChannels, srcChannel, srcBytes), 3);
      GuardedBuffer to(extent(dstChannels, dstChannel, dstBytes), 5);
      for (size_t i = 0; i < extent(srcChannels, srcChannel, srcBytes); ++i)
        from.data()[i] = samples[i % samples.size()];
      Bytes expected = to.Content();
      for (size_t i = 0; i < frames; ++i) {
        ConvertOne(pair.dst, expected.data() + (i * dstChannels + dstChannel) * dstBytes, pair.src,
                   from.data() + (i * srcChannels + srcChannel) * srcBytes, 1.0f);
      }
      for (const QNCOPYCHANNELSFUNCTION kernel : {pair.scalar, pair.vector}) {
        if (kernel == nullptr) continue;
        kernel(to.data(), static_cast<DWORD>(dstChannels), static_cast<DWORD>(dstChannel), from.data(),
               static_cast<DWORD>(srcChannels), static_cast<DWORD>(srcChannel), static_cast<LONG>(frames));
        ASSERT_TRUE(to.Intact());
        ASSERT_TRUE(to.Content() == expected)
            << pair.dst << " from " << pair.src << ", " << frames << " frames";
        kernel(to.data(), 1, 0, from.data(), 1, 0, -1);
      }
      ASSERT_TRUE(to.Content() == expected);
    }
  }
}

TEST(ChannelKernels, ExistForTheCopyPairsAndSomeWordTypes) {
  const std::vector<std::pair<int, int>> words = {
      {17, 128}, {18, 128}, {19, 128}, {48, 128}, {32, 128}, {33, 128}, {128, 17}, {128, 18},
      {128, 32}, {17, 129}, {18, 129}, {32, 129}, {33, 129}, {129, 17}, {129, 18}, {129, 32}};
  for (int dst = -1; dst < 135; ++dst) {
    for (int src = -1; src < 135; ++src) {
      const bool word = std::find(words.begin(), words.end(), std::pair{dst, src}) != words.end();
      const bool copy =
          QnAudio_GetCopyFunction2(static_cast<QNSAMPLETYPE>(dst), static_cast<QNSAMPLETYPE>(src));
      EXPECT_EQ(Lookup(dst, src) != nullptr, word || copy) << dst << " from " << src;
    }
  }
  const auto unknown = static_cast<QNSAMPLETYPE>(-100000);
  EXPECT_EQ(QnAudio_GetCopyChannelsFunction2(unknown, QNST_PCM16), nullptr);
}

// A channel that is widened or spread in place comes out whole; the movers of 1, 2 and 3 bytes leave one
// alone that would be spread.
TEST(ChannelKernels, SpreadInPlace) {
  constexpr size_t kFrames = 600;
  for (const auto& [dst, src] :
       {std::pair{33, 17}, {32, 32}, {19, 19}, {66, 64}, {17, 17}, {18, 18}, {49, 49}}) {
    const Bytes samples = SamplesOf(src, true);
    Bytes buffer = samples;
    buffer.resize(kFrames * 16);
    const Bytes before = buffer, converted = ConvertAll(dst, src, samples, 1.0f);
    Lookup(dst, src)(buffer.data(), 2, 0, buffer.data(), 1, 0, kFrames);
    const size_t bytes = BytesOf(dst);
    if (dst == src && bytes < 4) {
      EXPECT_TRUE(buffer == before) << dst;
      continue;
    }
    for (size_t i = 0; i < kFrames; ++i) {
      ASSERT_EQ(std::memcmp(&buffer[2 * i * bytes], &converted[i * bytes], bytes), 0)
          << dst << " from " << src;
    }
  }
}

template <typename Dst, typename Src>
Dst One(int dst, int src, Src sample) {
  Dst result;
  std::memset(static_cast<void*>(&result), 0x55, sizeof result);
  Lookup(dst, src)(&result, 1, 0, &sample, 1, 0, 1);
  return result;
}

struct Packed24 {
  uint8_t bytes[3];
  bool operator==(const Packed24&) const = default;
};

TEST(ChannelKernels, WordsOf16Bits) {
  const uint32_t word = 0xABCD8001;  // -32767 in the low half
  EXPECT_EQ((One<int16_t>(17, 128, word)), -32767);
  EXPECT_EQ((One<Packed24>(18, 128, word)), (Packed24{{0x00, 0x01, 0x80}}));
  EXPECT_EQ((One<uint32_t>(19, 128, word)), 0x80010000u);
  EXPECT_EQ((One<uint32_t>(48, 128, word)), 0xCD800100u);
  EXPECT_EQ((One<float>(32, 128, word)), -32767.0f / 32768);
  EXPECT_EQ((One<double>(33, 128, word)), -32767.0 / 32768);
  EXPECT_EQ((One<int32_t>(128, 17, int16_t{-2})), -2);
  EXPECT_EQ((One<int32_t>(128, 18, Packed24{{0xFF, 0x00, 0x80}})), -32768);  // cut off, not rounded
  EXPECT_EQ((One<int32_t>(128, 18, Packed24{{0xFF, 0xFF, 0xFF}})), -1);
  EXPECT_EQ((One<int32_t>(128, 32, 1.5f / 32768)), 2);
  EXPECT_EQ((One<int32_t>(128, 32, -3.0f)), -32768);
  EXPECT_EQ((One<int32_t>(128, 32, std::nanf(""))), 0);
}

TEST(ChannelKernels, WordsOf24Bits) {
  const uint32_t word = 0xAB000180;  // 384 in the low three bytes
  EXPECT_EQ((One<Packed24>(18, 129, word)), (Packed24{{0x80, 0x01, 0x00}}));
  EXPECT_EQ((One<float>(32, 129, word)), 384.0f * 256 / 8388608);  // 256 times full scale
  EXPECT_EQ((One<double>(33, 129, uint32_t{0x00FFFFFF})), -256.0 / 8388608);
  EXPECT_EQ((One<int16_t>(17, 129, word)), 384);
  EXPECT_EQ((One<int16_t>(17, 129, uint32_t{0x00010000})), 32767);
  EXPECT_EQ((One<int32_t>(129, 17, int16_t{-2})), -512);
  EXPECT_EQ((One<int32_t>(129, 18, Packed24{{0x01, 0x00, 0x80}})), -8388607);
  EXPECT_EQ((One<int32_t>(129, 32, 1.0f)), 32767);  // 8388607, shifted down
  EXPECT_EQ((One<int32_t>(129, 32, -1.5f / 8388608)), -1);
}

TEST(ChannelKernels, PiecesMakeTheWhole) {
  const Bytes samples = SamplesOf(17, true);
  Bytes expected(1000 * 8), inPlace(1000 * 8);
  const QNCOPYCHANNELSFUNCTION kernel = Lookup(32, 17);
  kernel(expected.data(), 2, 0, samples.data(), 2, 0, 900);
  std::copy_n(samples.begin(), 900 * 4, inPlace.begin());
  qn::CopyChannelInPieces(kernel, QNST_FLOAT32, inPlace.data(), 2, 0, QNST_PCM16, inPlace.data(), 2, 0, 900,
                          70);
  for (size_t i = 0; i < 900; ++i) ASSERT_EQ(std::memcmp(&inPlace[8 * i], &expected[8 * i], 4), 0) << i;
  // A channel that a mover leaves alone stays alone in every piece.
  Bytes alone = samples;
  qn::CopyChannelInPieces(Lookup(17, 17), QNST_PCM16, alone.data(), 2, 0, QNST_PCM16, alone.data(), 1, 0, 900,
                          70);
  EXPECT_TRUE(alone == samples);
}

}  // namespace
}  // namespace qntest
