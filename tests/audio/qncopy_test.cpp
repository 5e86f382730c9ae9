// The copy kernels against the reference: all of the table, with every instruction set.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "tests/audio/qncopy_reference.h"

namespace qntest {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
const std::vector<float> kScales = {1.0f,   0.5f,   2.0f,   0.0f,  -0.0f,  -1.0f,        0.7079458f,
                                    0.99f,  0.995f, 32.0f,  33.0f, 100.0f, -0.99999994f, 1.0000001f,
                                    -31.7f, 1e-38f, 1e-41f, 1e30f, kInf,   -kInf,        kNan};

// A shared swap kernel reads and writes big-endian on both sides when there is a gain.
int TypeWithGain(const qn::CopyKernel& pair, int type, float scale) {
  const auto [little, big] = std::minmax<int>({pair.dst, pair.src});
  const bool swap = (little == 17 && big == 64) || (little == 19 && big == 66);
  return swap && scale != 1.0f ? big : type;
}

Bytes Expected(const qn::CopyKernel& pair, const Bytes& samples, float scale) {
  return ConvertAll(TypeWithGain(pair, pair.dst, scale), TypeWithGain(pair, pair.src, scale), samples, scale);
}

bool IsVectorWithOwnRounding(const qn::CopyKernel& pair, QNCOPYFUNCTION kernel) {
  return kernel == pair.vector && pair.dst + pair.src == 17 + 32;
}

TEST(CopyKernels, GiveTheRuleForAllValuesAndScales) {
  std::vector<float> scales = kScales;
  for (int i = 0; i < 4; ++i) scales.push_back(static_cast<float>(Random()() % 100000) * 1.7e-5f - 0.4f);
  for (const qn::CopyKernel& pair : qn::CopyKernels()) {
    if (pair.scalar == nullptr) continue;
    const Bytes samples = SamplesOf(pair.src);
    ForEachDenormalMode([&] {
      for (const float scale : scales) {
        // Of two NaNs, sample and gain, either may give the result.
        if (std::isnan(scale) && (pair.src == 32 || pair.src == 33)) continue;
        const Bytes expected = Expected(pair, samples, scale);
        ForEachTarget([&] {
          for (const QNCOPYFUNCTION kernel : KernelsOf(pair)) {
            if (IsVectorWithOwnRounding(pair, kernel)) continue;
            Bytes actual(expected.size());
            kernel(actual.data(), samples.data(), static_cast<LONG>(samples.size() / BytesOf(pair.src)),
                   scale);
            ASSERT_TRUE(actual == expected) << Describe(pair, scale);
          }
        });
      }
    });
  }
}

// Full-scale audio, ties included, through the kernels with a product in single precision.
TEST(CopyKernels, VectorKernelsGiveTheRuleWithinFullScale) {
  std::vector<float> floats;
  for (int i = -65536; i < 65536; ++i) floats.push_back(static_cast<float>(i) / 65536.0f);
  const uint8_t* const bytes = reinterpret_cast<const uint8_t*>(floats.data());
  for (const qn::CopyKernel& pair : qn::CopyKernels()) {
    if (pair.vector == nullptr) continue;
    const Bytes samples = pair.src == 32 ? Bytes(bytes, bytes + 4 * floats.size()) : SamplesOf(pair.src);
    for (const float scale : {1.0f, 0.5f, -0.25f, 0.7079458f, 0.0f}) {
      const Bytes expected = Expected(pair, samples, scale);
      ForEachTarget([&] {
        Bytes actual(expected.size());
        pair.vector(actual.data(), samples.data(), static_cast<LONG>(samples.size() / BytesOf(pair.src)),
                    scale);
        EXPECT_TRUE(actual == expected) << Describe(pair, scale);
      });
    }
  }
}

TEST(CopyKernels, StayWithinTheirBuffersAtEveryLengthAndAlignment) {
  const size_t lengths[] = {0, 1, 2, 3, 7, 8, 9, 15, 31, 33, 63, 64, 65, 127, 128, 129, 191, 200, 1025, 2111};
  for (const qn::CopyKernel& pair : qn::CopyKernels()) {
    if (pair.scalar == nullptr) continue;
    const Bytes samples = SamplesOf(pair.src, true);
    for (const float scale : {1.0f, 0.5f, 1e30f}) {
      const Bytes all = Expected(pair, samples, scale);
      ForEachTarget([&] {
        for (const QNCOPYFUNCTION kernel : KernelsOf(pair)) {
          if (IsVectorWithOwnRounding(pair, kernel) && scale > 1) continue;
          for (const size_t length : lengths) {
            const size_t dstOffset = length * 5 % 17, srcOffset = length * 3 % 19;
            GuardedBuffer from(length * BytesOf(pair.src), srcOffset),
                to(length * BytesOf(pair.dst), dstOffset);
            std::copy_n(samples.data(), length * BytesOf(pair.src), from.data());
            kernel(to.data(), from.data(), static_cast<LONG>(length), scale);
            const Bytes actual = to.Content();
            const Bytes expected(all.begin(), all.begin() + static_cast<ptrdiff_t>(actual.size()));
            ASSERT_TRUE(to.Intact() && from.Intact()) << Describe(pair, scale) << ", " << length;
            if (IsVectorWithOwnRounding(pair, kernel) && pair.src == 32) continue;  // not full-scale audio
            ASSERT_TRUE(actual == expected) << Describe(pair, scale) << ", " << length << " samples";
          }
        }
      });
    }
    Bytes untouched(16, 7);
    pair.scalar(untouched.data(), samples.data(), -5, 1.0f);
    EXPECT_EQ(untouched, Bytes(16, 7));
  }
}

// Buffers that overlap give what a loop over single samples in the pair's order gives; at the same address
// that is a conversion in place, for all pairs but one. A copy of one type moves.
TEST(CopyKernels, RunInTheirOrderOverOverlappingBuffers) {
  constexpr size_t kLength = 1500;
  for (const qn::CopyKernel& pair : qn::CopyKernels()) {
    if (pair.scalar == nullptr) continue;
    const size_t dstBytes = BytesOf(pair.dst), srcBytes = BytesOf(pair.src);
    Bytes samples(kLength * srcBytes);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<uint8_t>(Random()());
    for (size_t i = 3; pair.src == 32 && i < samples.size(); i += 4)
      samples[i] = samples[i] % 2 ? 0x3D : 0xBD;
    for (size_t i = 7; pair.src == 33 && i < samples.size(); i += 8)
      samples[i] = samples[i] % 2 ? 0x3F : 0xBF;
    for (const float scale : {1.0f, 0.5f}) {
      const int dst = TypeWithGain(pair, pair.dst, scale), src = TypeWithGain(pair, pair.src, scale);
      for (const ptrdiff_t shift : {0, 1, -1, 3, -8, 64, -64, 700, -700}) {
        Bytes expected(4000 + kLength * 8), actual;
        uint8_t *from = expected.data() + 2000, *to = from + shift;
        std::copy(samples.begin(), samples.end(), from);
        actual = expected;
        if (dst == src && scale == 1.0f) std::memmove(to, from, samples.size());
        for (size_t i = 0; i < kLength && (dst != src || scale != 1.0f); ++i) {
          const size_t at = RunsBackward(pair.dst, pair.src) ? kLength - 1 - i : i;
          uint8_t sample[8];
          ConvertOne(dst, sample, src, from + at * srcBytes, scale);
          std::copy_n(sample, dstBytes, to + at * dstBytes);
        }
        if (shift == 0 && !(pair.dst == 66 && pair.src == 33)) {
          const Bytes apart = ConvertAll(dst, src, samples, scale);
          ASSERT_TRUE(std::equal(apart.begin(), apart.end(), to))
              << "the reference itself, " << Describe(pair, scale);
        }
        const Bytes before = actual;
        ForEachTarget([&] {
          for (const QNCOPYFUNCTION kernel : KernelsOf(pair)) {
            actual = before;
            kernel(actual.data() + 2000 + shift, actual.data() + 2000, kLength, scale);
            // Overlaps of another kind make garbage of floats, on which the single-precision kernel differs.
            if (shift != 0 && IsVectorWithOwnRounding(pair, kernel)) continue;
            ASSERT_TRUE(actual == expected) << Describe(pair, scale) << ", shifted by " << shift;
          }
        });
      }
    }
  }
}

// Buffers beyond the size of the cache take another road; it meets the one of small buffers bit for bit.
TEST(CopyKernels, LargeBuffersGiveWhatSmallOnesGive) {
  constexpr size_t kPiece = 4096;
  for (const qn::CopyKernel& pair : qn::CopyKernels()) {
    if (pair.scalar == nullptr) continue;
    const size_t dstBytes = BytesOf(pair.dst), srcBytes = BytesOf(pair.src);
    const size_t count = qn::kStreamingBytes / (dstBytes + srcBytes) + 1001;
    const float scale = pair.dst % 2 ? 1.0f : 0.5f;
    Bytes samples(count * srcBytes), expected(count * dstBytes);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<uint8_t>(i * 2654435761u >> 13);
    for (size_t at = 0; at < count; at += kPiece) {
      const LONG piece = static_cast<LONG>(std::min(count - at, kPiece));
      pair.scalar(expected.data() + at * dstBytes, samples.data() + at * srcBytes, piece, scale);
    }
    GuardedBuffer to(count * dstBytes, static_cast<size_t>(pair.src) % 7);
    pair.scalar(to.data(), samples.data(), static_cast<LONG>(count), scale);
    EXPECT_TRUE(to.Intact());
    EXPECT_EQ(std::memcmp(to.data(), expected.data(), expected.size()), 0) << Describe(pair, scale);
  }
}

template <typename Dst, typename Src>
std::vector<Dst> Convert(int dst, int src, std::vector<Src> samples, float scale = 1.0f) {
  std::vector<Dst> result(samples.size());
  QnAudio_GetCopyFunction2(static_cast<QNSAMPLETYPE>(dst), static_cast<QNSAMPLETYPE>(src))(
      result.data(), samples.data(), static_cast<LONG>(samples.size()), scale);
  return result;
}

TEST(CopyKernels, LiteralValues) {
  using S16 = std::vector<int16_t>;
  using U8 = std::vector<uint8_t>;
  EXPECT_EQ((Convert<int16_t, float>(17, 32, {1.0f, -1.0f, 1.5f, 0.5f / 32768, 1.5f / 32768, 2.5f / 32768})),
            (S16{32767, -32768, 32767, 0, 2, 2}));
  EXPECT_EQ((Convert<int16_t, int32_t>(17, 19, {INT32_MAX, INT32_MIN})), (S16{32767, -32768}));
  EXPECT_EQ((Convert<uint8_t, int16_t>(16, 17, {1, 127, 128, 129, 384, 32767, -32768})),
            (U8{0x80, 0x80, 0x80, 0x81, 0x82, 0xFF, 0x00}));
  EXPECT_EQ((Convert<int16_t, uint8_t>(17, 16, {0x00, 0x80, 0xFF})), (S16{-32768, 0, 32512}));
  EXPECT_EQ((Convert<int16_t, int16_t>(17, 17, {20000, -20000, 3}, 2.0f)), (S16{32767, -32768, 6}));
  EXPECT_EQ((Convert<int16_t, int16_t>(17, 17, {1, 3, 5, -1, -3}, 0.5f)), (S16{0, 2, 2, 0, -2}));
  EXPECT_EQ((Convert<uint8_t, int16_t>(16, 17, {20000, -7}, 0.0f)), (U8{0x80, 0x80}));
  EXPECT_EQ((Convert<uint8_t, double>(16, 33, {std::numeric_limits<double>::quiet_NaN()})), (U8{0x80}));
  // A 24-in-32 word beyond 24 bits is clipped, but by a copy of its own type.
  EXPECT_EQ((Convert<int32_t, int32_t>(19, 48, {0x1000000, -0x1000000, 1})),
            (std::vector<int32_t>{INT32_MAX, INT32_MIN, 256}));
  EXPECT_EQ((Convert<int32_t, int32_t>(48, 48, {0x1000000})), (std::vector<int32_t>{0x1000000}));
  EXPECT_EQ((Convert<int32_t, int32_t>(48, 48, {0x1000000}, 0.75f)), (std::vector<int32_t>{0x7FFFFF}));
  // The gain of float from 32-bit is rounded to single before it meets the sample; big-endian has no such
  // step.
  const float scale = 0.1f;
  EXPECT_EQ((Convert<float, int32_t>(32, 19, {INT32_MAX}, scale)),
            (std::vector<float>{2147483648.0f * static_cast<float>(static_cast<double>(scale) * 0x1p-31)}));
  EXPECT_EQ((Convert<float, int32_t>(32, 66, {static_cast<int32_t>(0xFFFFFF7F)}, scale)),
            (std::vector<float>{static_cast<float>(2147483647.0 * 0x1p-31 * static_cast<double>(scale))}));
}

}  // namespace
}  // namespace qntest
