// The channel kernels: all of their table, and the types that they alone know.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <tuple>

#include "tests/audio/qncopy_reference.h"

namespace qntest {
namespace {

QNCOPYCHANNELSFUNCTION Lookup(int dst, int src) {
  return QnAudio_GetCopyChannelsFunction2(static_cast<QNSAMPLETYPE>(dst), static_cast<QNSAMPLETYPE>(src));
}

TEST(ChannelKernels, ConvertOneChannelAndTouchNoOther) {
  const struct {
    DWORD dstChannels, dstChannel, srcChannels, srcChannel, frames;
  } layouts[] = {{1, 0, 1, 0, 700}, {2, 1, 2, 0, 600}, {1, 0, 3, 2, 513}, {5, 4, 1, 0, 100},
                 {2, 0, 7, 3, 5},   {3, 1, 2, 1, 256}, {2, 1, 2, 1, 0},   {4, 0, 2, 0, 1}};
  for (const qn::ChannelKernel& pair : qn::ChannelKernels()) {
    if (pair.scalar == nullptr || pair.dst >= 128 || pair.src >= 128) continue;
    const size_t dstBytes = BytesOf(pair.dst), srcBytes = BytesOf(pair.src);
    const Bytes samples = TameSamplesOf(pair.src, 4000);
    for (const auto& [dstChannels, dstChannel, srcChannels, srcChannel, frames] : layouts) {
      // Exactly the bytes up to the channel's last sample.
      const size_t last = frames == 0 ? 0 : frames - 1, any = frames > 0;
      GuardedBuffer from((last * srcChannels + srcChannel + 1) * srcBytes * any, 3);
      GuardedBuffer to((last * dstChannels + dstChannel + 1) * dstBytes * any, 5);
      std::copy_n(samples.data(), from.Content().size(), from.data());
      Bytes expected = to.Content();
      for (size_t i = 0; i < frames; ++i) {
        ConvertOne(pair.dst, expected.data() + (i * dstChannels + dstChannel) * dstBytes, pair.src,
                   from.data() + (i * srcChannels + srcChannel) * srcBytes, 1.0f);
      }
      for (const QNCOPYCHANNELSFUNCTION kernel : {pair.scalar, pair.vector ? pair.vector : pair.scalar}) {
        kernel(to.data(), dstChannels, dstChannel, from.data(), srcChannels, srcChannel,
               static_cast<LONG>(frames));
        ASSERT_TRUE(to.Intact() && to.Content() == expected)
            << pair.dst << " from " << pair.src << ", " << frames << " frames";
      }
    }
  }
}

// A channel that is widened or spread in place comes out whole, also when it goes in pieces; the movers of 1,
// 2 and 3 bytes leave one alone that would be spread.
TEST(ChannelKernels, SpreadInPlace) {
  constexpr size_t kFrames = 600;
  for (const auto& [dst, src] :
       {std::pair{33, 17}, {32, 32}, {19, 19}, {66, 64}, {17, 17}, {18, 18}, {49, 49}}) {
    const size_t bytes = BytesOf(dst);
    const Bytes samples = TameSamplesOf(src, kFrames), converted = ConvertAll(dst, src, samples, 1.0f);
    for (const LONG piece : {1000, 70}) {
      Bytes buffer = samples;
      buffer.resize(2 * converted.size());
      qn::CopyChannelInPieces(Lookup(dst, src), static_cast<QNSAMPLETYPE>(dst), buffer.data(), 2, 0,
                              static_cast<QNSAMPLETYPE>(src), buffer.data(), 1, 0, kFrames, piece);
      const size_t step = dst == src && bytes < 4 ? bytes : 2 * bytes;
      for (size_t i = 0; i < kFrames; ++i) {
        ASSERT_EQ(std::memcmp(&buffer[i * step], &converted[i * bytes], bytes), 0) << dst << ", " << src;
      }
    }
  }
}

// The types 128 and 129: 16 bits in the low half of a word, and 24 bits in its low three bytes.
TEST(ChannelKernels, Words) {
  constexpr uint32_t kWord16 = 0xABCD8001, kWord24 = 0xAB000180;  // -32767 and 384
  const auto flt = [](float x) { return uint64_t{std::bit_cast<uint32_t>(x)}; };
  const auto dbl = [](double x) { return std::bit_cast<uint64_t>(x); };
  using Row = std::tuple<int, int, uint64_t, uint64_t>;
  for (const auto& [dst, src, out, in] :
       {Row(17, 128, 0x8001, kWord16), Row(19, 128, 0x80010000, kWord16), Row(48, 128, 0xCD800100, kWord16),
        Row(32, 128, flt(-32767.0f / 32768), kWord16), Row(128, 17, 0xFFFFFFFE, 0xFFFE),
        Row(128, 18, 0xFFFF8000, 0x8000FF),  // cut off, not rounded
        Row(128, 32, 2, flt(1.5f / 32768)), Row(128, 32, 0, flt(std::nanf(""))),
        Row(18, 129, 0x000180, kWord24), Row(33, 129, dbl(-256.0 / 8388608), 0x00FFFFFF),
        Row(32, 129, flt(384.0f * 256 / 8388608), kWord24),  // 256 times full scale
        Row(17, 129, 32767, 0x00010000), Row(129, 17, 0xFFFFFE00, 0xFFFE), Row(129, 18, 0xFF800001, 0x800001),
        Row(129, 32, 32767, flt(1.0f)),  // 8388607, shifted down
        Row(129, 32, 0xFFFFFFFF, flt(-1.5f / 8388608))}) {
    uint64_t result = 0;
    Lookup(dst, src)(&result, 1, 0, &in, 1, 0, 1);
    EXPECT_EQ(result, out) << dst << " from " << src;
  }
}

}  // namespace
}  // namespace qntest
