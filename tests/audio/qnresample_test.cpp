// The sample-rate converter against direct evaluations of its formulas.
#include "qn/audio/qnresample.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <numbers>

#include "qn/audio/qncopy_rule.h"
#include "qn/dsp/qniir.h"
#include "tests/audio/qncopy_reference.h"
#include "tests/support/support.h"

namespace qntest {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSlow = true;
#else
constexpr bool kIsSlow = false;
#endif

struct Closer {
  void operator()(tQNRESAMPLEINSTANCE* instance) const { QnAudio_ResampleClose(instance); }
};
using Stream = std::unique_ptr<tQNRESAMPLEINSTANCE, Closer>;

Stream Open(int type, int channels, double ratio, DWORD flags) {
  tQNRESAMPLEINSTANCE* instance = nullptr;
  EXPECT_EQ(QnAudio_ResampleOpenEx(&instance, static_cast<QNSAMPLETYPE>(type), channels, ratio, flags), 0);
  return Stream(instance);
}

// Runs a stream in buffers of at most `most` frames, or in one, that hold no more than they must.
Bytes RunStream(const Stream& stream, const Bytes& source, size_t frameBytes, double ratio, size_t most,
                bool isInPlace = false) {
  Bytes output;
  for (size_t at = 0; at < source.size();) {
    const size_t left = (source.size() - at) / frameBytes;
    const size_t frames = most == 0 ? left : std::min(left, 1 + Random()() % most);
    const size_t room = static_cast<size_t>(std::ceil(static_cast<double>(frames) * ratio + 1)) * frameBytes;
    Bytes src(&source[at], &source[at] + frames * frameBytes), dst(room);
    if (isInPlace) src.resize(std::max(src.size(), room));
    Bytes& result = isInPlace ? src : dst;
    const LONG made = QnAudio_ResampleEx(stream.get(), result.data(), src.data(), static_cast<LONG>(frames));
    output.insert(output.end(), result.begin(), result.begin() + made * static_cast<LONG>(frameBytes));
    at += frames * frameBytes;
  }
  return output;
}

TEST(ResampleLinear, GivesTheFormulaHoweverTheStreamIsCut) {
  const double ratios[] = {48000.0 / 44100, 44100.0 / 48000, 2, 0.5, 256, 1 / 256.0, 0.999, 1.3, 7.7, 0.3};
  for (const int type : {16, 17, 18, 19, 48, 32, 33}) {
    for (const size_t channels : {1, 2, 3, 40}) {
      for (const double ratio : ratios) {
        const size_t frames = (ratio > 2 ? 300 : 2400) / (channels > 3 ? 6 : 1),
                     bytes = channels * BytesOf(type);
        const Bytes source = Noise(type, frames * channels);
        const std::vector<double> in = Decode(type, source);
        const double unit = type == 32   ? 1e-6
                            : type == 33 ? 1e-9
                                         : 1.001 / qn::FullScale(qn::kSampleForms[qn::SampleFormIndex(type)]);
        for (const size_t most : {size_t{1}, size_t{7}, size_t{1000}, size_t{0}}) {
          const Stream stream = Open(type, static_cast<int>(channels), ratio, QNRESAMPLE_LINEAR);
          const Bytes out = RunStream(stream, source, bytes, ratio, most, most == 7 || Random()() % 2);
          const std::vector<double> got = Decode(type, out);
          const double last = static_cast<double>(frames - 1);
          const size_t count = static_cast<size_t>(ratio > 1 ? std::floor(last * ratio + 1e-7) + 1
                                                             : std::ceil(last * ratio - 1e-7));
          ASSERT_EQ(got.size(), count * channels) << type << " " << ratio << " " << most;
          EXPECT_EQ(QnAudio_ResampleGetSrcPos(stream.get()), static_cast<int64_t>(frames));
          EXPECT_EQ(QnAudio_ResampleGetDstPos(stream.get()), static_cast<int64_t>(count));
          for (size_t i = 0; i < got.size(); ++i) {
            const double t = static_cast<double>(i / channels) / ratio;
            const size_t frame = static_cast<size_t>(t), next = std::min(frame + 1, frames - 1);
            const double from = in[frame * channels + i % channels], to = in[next * channels + i % channels];
            ASSERT_NEAR(got[i], from + (to - from) * (t - std::floor(t)), unit)
                << type << " " << channels << " " << ratio << " " << most << " at " << i;
          }
        }
      }
    }
  }
}

TEST(ResampleLinear, TakesWhatACountOfOutputsNeeds) {
  for (const double ratio : {48000.0 / 44100, 44100.0 / 48000, 3.1, 0.21}) {
    const Stream stream = Open(33, 1, ratio, QNRESAMPLE_LINEAR | QNRESAMPLE_COUNT_IS_DST);
    int64_t made = 0;
    for (int i = 0; i < 500; ++i) {
      const LONG wanted = 1 + static_cast<LONG>(Random()() % 50);
      const int64_t at = QnAudio_ResampleGetSrcPos(stream.get());
      const int64_t needed = QnAudio_ResampleGetSrcFromDst(stream.get(), wanted);
      std::vector<double> src(static_cast<size_t>(needed)), dst(static_cast<size_t>(wanted));
      for (size_t n = 0; n < src.size(); ++n) src[n] = static_cast<double>(at) + static_cast<double>(n);
      ASSERT_EQ(QnAudio_ResampleEx(stream.get(), dst.data(), src.data(), wanted), wanted);
      for (const double time : dst) ASSERT_NEAR(time, static_cast<double>(made++) / ratio, 1e-6) << ratio;
      ASSERT_EQ(QnAudio_ResampleGetSrcPos(stream.get()), at + needed - (ratio > 1));
    }
  }
}

TEST(ResampleLinear, CountsExactlyForHours) {
  const Stream stream = Open(17, 1, 44100.0 / 48000, 0);
  constexpr int64_t kFrames = int64_t{48000} * 3600 / (kIsSlow ? 10 : 1);
  std::vector<int16_t> src(9600), dst(9600);
  for (int64_t left = kFrames, size = 0; left > 0; left -= size) {
    size = std::min<int64_t>(left, static_cast<int64_t>(Random()() % src.size()));
    QnAudio_ResampleEx(stream.get(), dst.data(), src.data(), static_cast<LONG>(size));
  }
  EXPECT_EQ(QnAudio_ResampleGetSrcPos(stream.get()), kFrames);
  EXPECT_EQ(QnAudio_ResampleGetDstPos(stream.get()), kFrames / 160 * 147);
}

// The window and the sinc of it, at a distance in frames, between the points of a table.
double Tap(double distance) {
  const double pi = std::numbers::pi, at = std::fabs(distance) * 1000 / 13;
  const auto point = [&](double i) {
    const double x = 13 * i / 1000 * pi, y = x / 13 + pi;
    const double window = 0.35875 - 0.48829 * cos(y) + 0.14128 * cos(2 * y) - 0.01168 * cos(3 * y);
    return i == 0 ? 1 : window * sin(x) / x;
  };
  const double i = std::min(std::floor(at), 998.0);
  return point(i) + (point(i + 1) - point(i)) * (at - i);
}

TEST(ResampleSinc, GivesTheFormulaHoweverTheStreamIsCut) {
  const struct {
    size_t source, output;
  } ratios[] = {{1, 2}, {2, 1}, {147, 160}, {160, 147}, {90, 1}, {1, 30}};
  for (const int type : {32, 33}) {
    for (const size_t channels : {1, 2, 5, 40}) {
      for (const auto& [source, output] : ratios) {
        const double hop = static_cast<double>(source) / static_cast<double>(output);
        const size_t frames = source * (1 + 600 / std::max(source, output)), sample = BytesOf(type);
        const Bytes bytes = Noise(type, frames * channels);
        const std::vector<double> in = Decode(type, bytes);
        const Stream stream = Open(type, static_cast<int>(channels), 1 / hop, QNRESAMPLE_SINC);
        Bytes out;
        const auto run = [&](const Bytes& src, LONG size, LONG wanted) {
          Bytes dst(static_cast<size_t>(wanted) * channels * sample);
          const LONG made =
              QnAudio_Resample_Sinc(static_cast<QNSAMPLETYPE>(type), static_cast<LONG>(channels), dst.data(),
                                    wanted, src.data(), size, stream.get());
          out.insert(out.end(), dst.begin(), dst.begin() + static_cast<LONG>(channels * sample) * made);
        };
        for (size_t at = 0; at < frames;) {
          const size_t size = std::min(frames - at, source * (1 + Random()() % 9));
          run(Bytes(&bytes[at * channels * sample], &bytes[0] + (at + size) * channels * sample),
              static_cast<LONG>(size), static_cast<LONG>(size / source * output));
          at += size;
        }
        // Outputs wait for the 12 frames behind them; the flush knows zeros there, and the frame at the end.
        const auto isNear = [&](size_t times) {
          const double count = std::ceil(static_cast<double>(times) / hop);
          return std::fabs(count - static_cast<double>(out.size() / sample / channels)) <= 1;
        };
        ASSERT_TRUE(isNear(frames - 12));
        run({}, 0, 5000);
        run({}, 0, 5000);
        ASSERT_TRUE(isNear(frames + 1));
        const std::vector<double> got = Decode(type, out);
        for (size_t n = 0; n < got.size(); ++n) {
          const double time = static_cast<double>(n / channels) * hop;
          const double middle = std::floor(time + 1e-9);
          double sum = 0;
          for (double frame = middle + 12; frame >= middle - 12; --frame) {
            const size_t at = static_cast<size_t>(frame) * channels + n % channels;
            if (frame >= 0 && at < in.size()) sum += Tap(time - frame) * in[at];
          }
          ASSERT_NEAR(got[n], sum, type == 32 ? 1e-6 : 1e-8) << hop << " " << channels << " at " << n;
        }
      }
    }
  }
}

TEST(ResampleSinc, KeepsTimeInBuffersOfAnySize) {
  for (const double ratio : {48000.0 / 44100, 44100.0 / 48000, 2.0, 1 / 256.0}) {
    const Stream stream = Open(32, 1, ratio, QNRESAMPLE_SINC);
    const Bytes source = Noise(32, 60000);
    RunStream(stream, source, 4, ratio, 700);
    EXPECT_NEAR(static_cast<double>(QnAudio_ResampleGetDstPos(stream.get())), 60000 * ratio, 14 * ratio + 1);
  }
}

TEST(Resample, GivesTheSameBitsWithEveryInstructionSet) {
  for (const int type : {17, 18, 19, 48, 32, 33}) {
    for (const int channels : {1, 2}) {
      for (const double ratio : {1.09, 0.92, 0.52, 0.3, 5.0}) {
        for (const DWORD quality : {QNRESAMPLE_LINEAR, QNRESAMPLE_SINC}) {
          const size_t frameBytes = BytesOf(type) * static_cast<size_t>(channels);
          const Bytes source = Noise(type, 800 * static_cast<size_t>(channels));
          Bytes first;
          ForEachTarget([&] {
            const Bytes out = RunStream(Open(type, channels, ratio, quality), source, frameBytes, ratio, 0);
            if (first.empty()) first = out;
            EXPECT_EQ(out, first) << type << " " << channels << " " << ratio << " " << quality;
          });
        }
      }
    }
  }
}

TEST(ResampleFilter, RunsOnTheSourceOrTheOutput) {
  constexpr size_t kFrames = 3000;
  for (const int type : {32, 33}) {
    for (const double ratio : {0.7, 1.6}) {
      for (const DWORD quality : {QNRESAMPLE_FILTERED, QNRESAMPLE_SINC, QNRESAMPLE_LINEAR}) {
        const bool isOnSource = (quality == QNRESAMPLE_FILTERED) == (ratio < 1);
        const auto filter = [&](Bytes& audio) {
          CQnIIR iir;
          iir.Design(QNIIR_LOWPASS, QNIIR_CHEBYSHEV, 4, std::min(ratio, 1 / ratio) * 0.5, 1, 0, 2, 0);
          const auto frames = static_cast<DWORD>(audio.size() / 2 / BytesOf(type));
          if (type == 32)
            iir.ProcessFloat(reinterpret_cast<float*>(&audio[0]), reinterpret_cast<float*>(&audio[0]), frames,
                             3);
          if (type == 33)
            iir.ProcessDouble(reinterpret_cast<double*>(&audio[0]), reinterpret_cast<double*>(&audio[0]),
                              frames, 3);
        };
        const auto run = [&](Bytes& src, DWORD flags) {
          Bytes dst(2 * src.size());
          const Stream stream = Open(type, 2, ratio, quality | flags);
          const LONG made = QnAudio_ResampleEx(stream.get(), dst.data(), src.data(), kFrames);
          dst.resize(static_cast<size_t>(made) * 2 * BytesOf(type));
          return dst;
        };
        Bytes src = Noise(type, 2 * kFrames), filtered = src, kept = src, plain = src;
        const Bytes unfiltered = run(plain, 0);
        Bytes expected = unfiltered;
        filter(filtered);
        if (quality == QNRESAMPLE_LINEAR) filtered = src;
        if (isOnSource && quality != QNRESAMPLE_LINEAR) {
          expected = run(filtered, 0);
        } else if (quality != QNRESAMPLE_LINEAR) {
          filter(expected);
          filtered = src;
        }
        EXPECT_EQ(run(src, QNRESAMPLE_LOWPASS_4TH), expected) << ratio << " " << quality;
        EXPECT_EQ(src, filtered) << ratio << " " << quality;
        const Bytes keeping = run(kept, QNRESAMPLE_LOWPASS_4TH | QNRESAMPLE_KEEP_SOURCE);
        EXPECT_EQ(keeping, quality == QNRESAMPLE_FILTERED && ratio < 1 ? unfiltered : expected);
      }
    }
  }
}

TEST(ResampleStupid, FitsBlocksOneAfterTheOther) {
  for (const int type : {16, 17, 18, 19, 48, 32, 33}) {
    const Stream stream = Open(type, 2, 1, 0);
    double last[2] = {0, 0};
    for (const auto& [from, to] : {std::pair{7, 19}, {19, 7}, {5, 5}, {1, 100}, {1000, 1}, {64, 63}}) {
      const Bytes source = Noise(type, static_cast<size_t>(2 * from));
      const std::vector<double> in = Decode(type, source);
      Bytes src = source, dst(static_cast<size_t>(2 * to) * BytesOf(type));
      ASSERT_EQ(QnAudio_ResampleStupid(stream.get(), dst.data(), to, src.data(), from), to);
      const std::vector<double> got = Decode(type, dst);
      const bool isFloat = type == 32 || type == 33;
      const double unit = isFloat ? 1e-6 : 1 / qn::FullScale(qn::kSampleForms[qn::SampleFormIndex(type)]);
      for (int n = 0; n < 2 * to && from != to; ++n) {
        const double time = (n / 2 + 1.0) * from / to, whole = std::ceil(time - 1e-9) - 1;
        const auto at = static_cast<size_t>(whole) * 2 + static_cast<size_t>(n % 2);
        const double before = whole < 1 ? last[n % 2] : in[at - 2];
        const double x = before + (in[at] - before) * (time - whole);
        const double cut = std::fabs(x) - std::fabs(got[static_cast<size_t>(n)]);
        ASSERT_TRUE(cut > (isFloat ? -unit : -1e-3 * unit) && cut < unit) << type << " " << to << " at " << n;
      }
      if (from != to) std::copy(in.end() - 2, in.end(), last);
    }
  }
}

TEST(Resample, KnowsItsEdges) {
  int16_t in[16] = {1, 2, 3, 4, 5, 6, 7, 8}, out[64] = {};
  tQNRESAMPLEINSTANCE* instance = nullptr;
  EXPECT_EQ(QnAudio_ResampleOpen(nullptr, QNST_PCM16, 1, 1, 1, 0), E_POINTER);
  for (const LONG bad : {0, -1}) {
    EXPECT_EQ(QnAudio_ResampleOpen(&instance, QNST_PCM16, bad, 1, 1, 0), E_INVALIDARG);
    EXPECT_EQ(QnAudio_ResampleOpen(&instance, QNST_PCM16, 1, bad, 1, 0), E_INVALIDARG);
    EXPECT_EQ(QnAudio_ResampleOpen(&instance, QNST_PCM16, 1, 1, bad, 3), E_INVALIDARG);
  }
  EXPECT_EQ(QnAudio_ResampleClose(nullptr), 0);
  EXPECT_EQ(QnAudio_ResampleEx(nullptr, out, in, 4), 0);

  // A ratio of 1 copies, integers know no sinc, and other qualities only count.
  const Stream copy = Open(17, 1, 1, 0), sinc = Open(17, 1, 2, 3 | 0x20), other = Open(17, 1, 2, 7);
  EXPECT_EQ(QnAudio_ResampleEx(copy.get(), out, in, 8), 8);
  EXPECT_EQ(std::memcmp(in, out, sizeof in), 0);
  EXPECT_EQ(QnAudio_ResampleEx(copy.get(), in, in, 8), 8);
  EXPECT_EQ(QnAudio_ResampleGetDstPos(copy.get()), 16);
  EXPECT_EQ(QnAudio_ResampleEx(sinc.get(), out, in, 8), 15);
  EXPECT_EQ(out[1], 2);  // 1.5, to even
  EXPECT_EQ(QnAudio_ResampleEx(other.get(), out, in, 8), 0);
  EXPECT_EQ(QnAudio_ResampleGetSrcPos(other.get()), 8);
  EXPECT_EQ(QnAudio_ResampleGetDstPos(other.get()), 0);
  EXPECT_EQ(QnAudio_Resample_Sinc(QNST_PCM16, 1, out, 8, in, 4, sinc.get()), 0);
  for (const int type : {0, 49, 64, 128}) {
    EXPECT_EQ(QnAudio_ResampleStupid(Open(type, 1, 2, 0).get(), out, 4, in, 3), -1) << type;
  }

  // Positions, with offsets, and what a reset leaves.
  tQNRESAMPLEINSTANCE* const stream = sinc.get();
  QnAudio_ResampleSetSrcOffset(stream, 100);
  QnAudio_ResampleSetDstOffset(stream, -5);
  EXPECT_EQ(QnAudio_ResampleGetSrcPos(stream), 108);
  EXPECT_EQ(QnAudio_ResampleGetDstPos(stream), 10);
  EXPECT_EQ(QnAudio_ResampleGetSrcFromDst(stream, 10), 6);
  EXPECT_EQ(QnAudio_ResampleGetDstFromSrc(stream, 10), 20);
  EXPECT_EQ(QnAudio_ResampleReset(stream, QNST_NONE, 1, 4, 0, 0), 0);
  EXPECT_EQ(QnAudio_ResampleGetSrcPos(stream), 100);
  EXPECT_EQ(QnAudio_ResampleResetEx(stream, QNST_FLOAT32, 0.25, 40, 1), 0);
  EXPECT_EQ(QnAudio_ResampleGetSrcPos(stream), 0);
  EXPECT_EQ(QnAudio_ResampleGetSrcFromDst(stream, int64_t{1} << 40), 0);  // 32 bits of it
  EXPECT_EQ(QnAudio_ResampleGetSrcFromDst(stream, int64_t{1} << 29), -2147483648LL);

  // A frame put before the first: the output at -0.5 lies midway.
  const Stream stuffed = Open(17, 1, 2, 0);
  EXPECT_EQ(QnAudio_ResampleEx(stuffed.get(), out, in, 1), 1);
  QnAudio_ResampleStuffPrevSample(stuffed.get(), 101, 0);
  EXPECT_EQ(QnAudio_ResampleEx(stuffed.get(), out, in, 1), 2);
  EXPECT_EQ(out[0], 51);

  // A table goes with any instance; the next call makes it again. An unprimed stream flushes what it has.
  const Stream other32 = Open(32, 1, 2, QNRESAMPLE_SINC);
  float few[6] = {1, 0, 0, 0, 0, 0}, tail[64] = {};
  Open(32, 1, 2, QNRESAMPLE_SINC).reset();
  EXPECT_EQ(QnAudio_Resample_Sinc(QNST_FLOAT32, 1, tail, 64, nullptr, 0, other32.get()), 0);
  EXPECT_EQ(QnAudio_Resample_Sinc(QNST_FLOAT32, 1, tail, 0, few, 2, other32.get()), 0);
  EXPECT_EQ(QnAudio_Resample_Sinc(QNST_FLOAT32, 1, few, 2, few, 2, other32.get()), 0);
  EXPECT_EQ(QnAudio_Resample_Sinc(QNST_FLOAT32, 1, tail, 64, nullptr, 0, other32.get()), 6);

  // Calls of a frame each keep the time of what comes while the history is gathered, and huge counts end.
  const Stream single = Open(32, 1, 0.25, QNRESAMPLE_SINC);
  size_t made = 0;
  for (int i = 0; i < 60; ++i) {
    const float frame = i == 20;
    made += static_cast<size_t>(QnAudio_ResampleEx(single.get(), tail + made, &frame, 1));
  }
  EXPECT_EQ(made, 12u);
  EXPECT_EQ(std::max_element(tail, tail + made) - tail, 5);
  EXPECT_EQ(QnAudio_ResampleResetEx(other.get(), QNST_NONE, 1e16, 0, 1), 0);
  EXPECT_EQ(QnAudio_ResampleEx(other.get(), out, in, 3), 0);

  WAVEFORMATEX format;
  QnAudio_InitWfx(&format, 44100, QNST_PCM16, 1);
  EXPECT_EQ(QnAudio_Resample(&format, out, 16, in, 8), 0);
  EXPECT_EQ(out[2], 2);
  EXPECT_EQ(QnAudio_Resample(&format, out, 0, in, 8), 0);
  EXPECT_EQ(QnAudio_Resample(nullptr, nullptr, 1, nullptr, 0), 0);
}

TEST(RatApprox, GivesFractionsWithinTheLimit) {
  const double pi = 3.14159265358979323846, inf = std::numeric_limits<double>::infinity();
  const struct {
    double value;
    int limit, table, result, numerator, denominator;
  } rows[] = {{48000.0 / 44100, 0, 1, 1, 48000, 44100},  // the first match in the table
              {48000.0 / 44100, 0, 0, 1, 160, 147},
              {2, 0, 1, 1, 16000, 8000},
              {0, 0, 1, 0, 0, 1},
              {pi, 1000, 0, 1, 355, 113},
              {-pi, 400, 1, 1, -355, 113},
              {1 / pi, 1000, 1, 1, 113, 355},
              {0.75, 0, 0, 1, 3, 4},
              {0.7, -5, 0, 1, 1, 1},        // the limit is 1 at least
              {1000.4, 10, 0, 1, 1000, 1},  // and the whole part of the value
              {3e9, 0, 0, 1, 2147483647, 1},
              {1e-12, 0, 0, 1, 0, 1},
              {1e10, 0, 0, 0, 7, 7},  // no fraction is near to these
              {1e300, 5, 0, 0, 7, 7},
              {1e-300, 5, 0, 0, 7, 7},
              {inf, 5, 1, 0, 7, 7},
              {NAN, 0, 1, 0, 7, 7}};
  for (const auto& row : rows) {
    int numerator = 7, denominator = 7;
    double error = 7;
    EXPECT_EQ(QnRatApprox(row.value, row.limit, row.table, &numerator, &denominator, &error), row.result)
        << row.value;
    EXPECT_EQ(numerator, row.numerator) << row.value;
    EXPECT_EQ(denominator, row.denominator) << row.value;
    EXPECT_EQ(error, row.result ? row.value - 1.0 * row.numerator / row.denominator : 0) << row.value;
  }
}

TEST(RatApprox, IsTheBestFractionOfItsDenominators) {
  for (int i = 0; i < 3000; ++i) {
    const double value = std::ldexp(static_cast<double>(Random()() >> 11), -53);
    const int limit = 1 + static_cast<int>(Random()() % 200);
    int numerator = 0, denominator = 0;
    double error = 0, best = 1;
    ASSERT_EQ(QnRatApprox(value, limit, 0, &numerator, &denominator, &error), 1);
    for (int d = 1; d <= limit; ++d) best = std::min(best, std::fabs(value - std::rint(value * d) / d));
    ASSERT_LE(denominator, limit);
    ASSERT_NEAR(std::fabs(error), best, 1e-15) << value << " within " << limit;
  }
}

}  // namespace
}  // namespace qntest
