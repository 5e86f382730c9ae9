// The copy kernels against the reference: all of the table, with every instruction set.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "tests/audio/qncopy_reference.h"

namespace qntest {
namespace {

// The vector kernels with a product in single precision. They keep to the rule for floats within full scale
// and a gain that is not extreme.
bool IsSingle(const qn::CopyKernel& pair, QNCOPYFUNCTION kernel) {
  return kernel == pair.vector && pair.dst + pair.src == 17 + 32;
}
bool IsExtreme(float scale) {
  return scale != 0 && !(std::abs(scale) > 0.1f && std::abs(scale) <= 100);
}

TEST(CopyKernels, GiveTheRuleForAllValuesAndScales) {
  std::vector<float> scales = {1.0f,   0.5f,   2.0f,   0.0f,  -0.0f,    -1.0f,        0.7079458f,
                               0.99f,  0.995f, 32.0f,  33.0f, 100.0f,   -0.99999994f, 1.0000001f,
                               -31.7f, 1e-38f, 1e-41f, 1e30f, INFINITY, -INFINITY,    NAN};
  for (int i = 0; i < 4; ++i) scales.push_back(static_cast<float>(Random()() % 100000) * 1.7e-5f - 0.4f);
  for (const qn::CopyKernel& pair : Pairs()) {
    const Bytes all = SamplesOf(pair.src), tame = TameSamplesOf(pair.src, 65536);
    for (const float scale : scales) {
      ForEachDenormalMode([&] {
        // Of two NaNs, sample and scale, either may give the result's pattern.
        const Bytes& samples = std::isnan(scale) ? tame : all;
        const Bytes expected = ConvertAll(pair.dst, pair.src, samples, scale);
        const Bytes expectedOfTame = pair.vector ? ConvertAll(pair.dst, pair.src, tame, scale) : Bytes();
        ForEachKernel(pair, [&](QNCOPYFUNCTION kernel) {
          const bool single = IsSingle(pair, kernel);
          if (single && IsExtreme(scale)) return;
          const Bytes &in = single ? tame : samples, &out = single ? expectedOfTame : expected;
          Bytes actual(out.size());
          kernel(actual.data(), in.data(), static_cast<LONG>(in.size() / BytesOf(pair.src)), scale);
          EXPECT_TRUE(actual == out) << "scale " << scale;
        });
      });
    }
  }
}

TEST(CopyKernels, StayWithinTheirBuffersAtEveryLengthAndAlignment) {
  for (const qn::CopyKernel& pair : Pairs()) {
    const Bytes samples = TameSamplesOf(pair.src, 2111);
    for (const float scale : {1.0f, 0.5f, 1e30f}) {
      const Bytes all = ConvertAll(pair.dst, pair.src, samples, scale);
      ForEachKernel(pair, [&](QNCOPYFUNCTION kernel) {
        if (IsSingle(pair, kernel) && IsExtreme(scale)) return;
        for (const LONG count : {-5, 0, 1, 2, 3, 7, 8, 9, 31, 33, 63, 64, 65, 128, 200, 1025, 2111}) {
          const size_t length = static_cast<size_t>(std::max(count, 0));
          GuardedBuffer from(length * BytesOf(pair.src), length * 3 % 19);
          GuardedBuffer to(length * BytesOf(pair.dst), length * 5 % 17);
          std::copy_n(samples.data(), length * BytesOf(pair.src), from.data());
          kernel(to.data(), from.data(), count, scale);
          const bool right = std::equal(to.data(), to.data() + length * BytesOf(pair.dst), all.data());
          EXPECT_TRUE(right && to.Intact() && from.Intact()) << count << " samples, scale " << scale;
        }
      });
    }
  }
}

// Buffers that overlap give what a loop over single samples in the pair's order gives, also when the samples
// go in pieces; at the same address that is a conversion in place. A type's own copy moves bytes.
TEST(CopyKernels, RunInTheirOrderOverOverlappingBuffers) {
  constexpr size_t kLength = 1500;
  for (const qn::CopyKernel& pair : Pairs()) {
    const size_t dstBytes = BytesOf(pair.dst), srcBytes = BytesOf(pair.src);
    Bytes before = TameSamplesOf(pair.src, kLength);
    before.insert(before.begin(), 2000, 0);
    before.resize(4000 + kLength * 8);
    for (const float scale : {1.0f, 0.5f}) {
      const bool moves = pair.dst == pair.src && scale == 1.0f;
      for (const ptrdiff_t shift : {0, 1, -1, 3, -8, 64, -64, 700, -700}) {
        Bytes expected = before;
        uint8_t *from = expected.data() + 2000, *to = from + shift;
        for (size_t i = 0; i < kLength && !moves; ++i) {
          const size_t at = RunsBackward(pair.dst, pair.src) ? kLength - 1 - i : i;
          uint8_t sample[8];
          ConvertOne(pair.dst, sample, pair.src, from + at * srcBytes, scale);
          std::copy_n(sample, dstBytes, to + at * dstBytes);
        }
        if (moves) std::memmove(to, from, kLength * srcBytes);
        ForEachKernel(pair, [&](QNCOPYFUNCTION kernel) {
          // Overlaps of another kind make garbage of floats, on which the single-precision kernel differs.
          if (shift != 0 && IsSingle(pair, kernel)) return;
          for (const LONG piece : {1 << 20, moves ? 1 << 20 : 192}) {
            Bytes actual = before;
            from = actual.data() + 2000;
            qn::CopyInPieces(pair, kernel, from + shift, from, kLength, scale, piece);
            EXPECT_TRUE(actual == expected) << "scale " << scale << ", shifted by " << shift;
          }
        });
      }
    }
  }
}

// Buffers beyond the size of the cache take another road; it meets the one of small buffers bit for bit.
TEST(CopyKernels, LargeBuffersGiveWhatSmallOnesGive) {
  for (const qn::CopyKernel& pair : Pairs()) {
    const size_t dstBytes = BytesOf(pair.dst), srcBytes = BytesOf(pair.src);
    const size_t count = qn::kStreamingBytes / (dstBytes + srcBytes) + 1001;
    const float scale = pair.dst % 2 ? 1.0f : 0.5f;
    Bytes samples(count * srcBytes), expected(count * dstBytes);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<uint8_t>(i * 2654435761u >> 13);
    qn::CopyInPieces(pair, pair.scalar, expected.data(), samples.data(), static_cast<int64_t>(count), scale,
                     4096);
    GuardedBuffer to(count * dstBytes, static_cast<size_t>(pair.src) % 7);
    pair.scalar(to.data(), samples.data(), static_cast<LONG>(count), scale);
    EXPECT_TRUE(to.Intact() && std::memcmp(to.data(), expected.data(), expected.size()) == 0)
        << qn::SampleTypeName(pair.dst) << " from " << qn::SampleTypeName(pair.src);
  }
}

}  // namespace
}  // namespace qntest
