// Peaks, levels, silence and reversal against models written out by hand.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>

#include "qn/audio/qnmix.h"
#include "tests/audio/qncopy_reference.h"

namespace qntest {
namespace {

constexpr bool IsFloat(int type) {
  return type == 32 || type == 33;
}
double FullScaleOf(int type) {
  return IsFloat(type) ? 1 : std::ldexp(1, type == 48 ? 23 : static_cast<int>(8 * BytesOf(type)) - 1);
}

// Stored samples, and their values in units of the type.
struct Samples {
  Bytes bytes;
  std::vector<double> values;

  Samples(int type, const Bytes& stored) : bytes(stored), values(Decode(type, stored)) {
    for (double& value : values) value = IsFloat(type) ? value : value * FullScaleOf(type);
  }
};

constexpr size_t kCount = 50000;

// All the special values; half of full scale, in which nothing clips; that with bursts at full scale;
// silence.
std::vector<Samples> MakeSamples(int type) {
  const size_t size = BytesOf(type);
  Bytes loud = SamplesOf(type), quiet = TameSamplesOf(type, kCount), bursts = quiet;
  for (size_t i = 0; loud.size() < kCount * size; ++i) loud.push_back(loud[i]);
  loud.resize(kCount * size);
  quiet = ConvertAll(type, type, quiet, 0.5f);
  bursts = ConvertAll(type, type, quiet, 0.99f);
  for (size_t i = 9; i + 40 < kCount; i += 20 + Random()() % 9000) {
    const float full[] = {1.0f, -1.0f};
    for (size_t end = i + Random()() % 40; i < end; ++i) {
      ConvertOne(type, &bursts[i * size], 32, reinterpret_cast<const uint8_t*>(&full[Random()() % 2]), 1.0f);
    }
  }
  return {{type, loud}, {type, quiet}, {type, bursts}, {type, ConvertAll(type, type, quiet, 0.0f)}};
}

QNPEAKRESULT ModelPeak(int type, const std::vector<double>& values, DWORD clipRun) {
  QNPEAKRESULT result = {};
  const double highest = FullScaleOf(type) - (IsFloat(type) ? 0 : 1);
  uint64_t best = 0;  // doubles that are not negative compare as their bits do
  DWORD run = 0;
  for (size_t frame = 0; frame < values.size() && !(result.clipped && type != 32); ++frame) {
    double size = std::abs(values[frame]);
    if (size > highest && !IsFloat(type)) size = highest;
    if (highest == 127 && values[frame] == -127) size = 126;
    const bool full = !(size < highest);
    if (std::bit_cast<uint64_t>(size) >= best) {
      best = std::bit_cast<uint64_t>(size);
      result.position = static_cast<DWORD>(type == 32 ? values.size() : frame - run);
    }
    run = full ? run + 1 : 0;
    result.clipped |= type == 32 ? !(size <= 1) : full && run >= clipRun;
  }
  const double peak = std::bit_cast<double>(best);
  if (type == 16 && peak == 127) result.clipped = 1;
  result.peak = static_cast<float>(peak / FullScaleOf(type));
  return result;
}

float ModelRms(int type, const std::vector<double>& values) {
  double sum = 0;
  uint64_t whole = 0;
  for (size_t i = values.size(); i-- > 0;) {
    sum += values[i] * values[i];
    if (!IsFloat(type)) whole += static_cast<uint64_t>(int64_t(values[i]) * int64_t(values[i]));
  }
  const double frames = static_cast<double>(std::max<size_t>(values.size(), 1));
  if (IsFloat(type)) return static_cast<float>(std::sqrt(sum / frames));
  const double root = std::floor(std::sqrt(static_cast<double>(whole) / frames + 0.5));
  return static_cast<float>(std::min(root, FullScaleOf(type) - 1) / FullScaleOf(type));
}

float ModelPreRms(int type, const std::vector<double>& values, bool squared) {
  double sum = 0;
  for (size_t i = values.size(); i-- > 0;) {
    const float single = static_cast<float>(values[i]);
    sum += !squared ? std::abs(values[i]) : type == 32 ? single * single : values[i] * values[i];
  }
  return static_cast<float>(sum);
}

bool Same(float a, float b) {
  return a == b || (std::isnan(a) && std::isnan(b));
}

// The three measures of some frames of all channels by each instruction set against the models.
void Check(int type, const Samples& samples, size_t channels, size_t frames, DWORD clipRun) {
  const WAVEFORMATEX format = Format(type, channels);
  const int width = static_cast<int>(channels), length = static_cast<int>(frames);
  GuardedBuffer in(frames * format.nBlockAlign, frames % 5);
  std::copy_n(samples.bytes.data(), frames * format.nBlockAlign, in.data());
  std::vector<std::vector<double>> values(channels);
  for (size_t i = 0; i < channels * frames; ++i) values[i % channels].push_back(samples.values[i]);
  ForEachTarget([&] {
    std::vector<QNPEAKRESULT> peaks(channels);
    std::vector<float> rms(channels), sums(channels), squares(channels);
    QnAudio_GetFindPeaksFunction (&format)(width, static_cast<int>(clipRun), in.data(), length, peaks.data());
    QnAudio_GetCalcRMSFunction (&format)(width, in.data(), length, rms.data());
    const auto preRms = QnAudio_GetCalcPreRMSFunction(&format);
    ASSERT_EQ(preRms != nullptr, IsFloat(type));
    if (preRms) preRms(width, in.data(), static_cast<DWORD>(frames), sums.data(), 0);
    if (preRms) preRms(width, in.data(), static_cast<DWORD>(frames), squares.data(), 7);
    for (size_t i = 0; i < channels; ++i) {
      const QNPEAKRESULT &peak = peaks[i], expected = ModelPeak(type, values[i], clipRun);
      EXPECT_TRUE(Same(peak.peak, expected.peak) && peak.position == expected.position &&
                  peak.clipped == expected.clipped)
          << peak.peak << " at " << peak.position << ", not " << expected.peak << " at " << expected.position;
      EXPECT_TRUE(Same(rms[i], ModelRms(type, values[i]))) << rms[i];
      EXPECT_TRUE(!preRms || Same(sums[i], ModelPreRms(type, values[i], false))) << sums[i];
      EXPECT_TRUE(!preRms || Same(squares[i], ModelPreRms(type, values[i], true))) << squares[i];
    }
  });
}

TEST(Levels, GiveTheModelsOfAllTypesChannelsAndLengths) {
  constexpr DWORD kClipRuns[] = {0, 1, 3, 30, 0xFFFFFFFF};
  for (const int type : kTypes) {
    for (const Samples& samples : MakeSamples(type)) {
      for (const size_t channels : {1, 2, 3, 4, 5, 6, 7, 8, 63, 64, 66}) {
        for (const size_t length : {0, 1, 2, 63, 64, 129, 1999, 49999}) {
          const size_t frames = std::min(length, kCount / channels);
          const DWORD clipRun = kClipRuns[Random()() % 5];
          SCOPED_TRACE(testing::Message() << "type " << type << ", " << channels << " channels, " << frames
                                          << " frames, run " << clipRun);
          Check(type, samples, channels, frames, clipRun);
        }
      }
    }
  }
}

// Half a unit of a float, and ones that change it only when they are added before it.
TEST(Levels, AddFromTheLastFrameWhereTheOrderShows) {
  std::vector<double> samples(1000, 1.0);
  samples.back() = 0x1p53 + 0x1p29;
  const WAVEFORMATEX format = Format(33, 1);
  float sum = 0;
  EXPECT_EQ(QnAudio_CalcPreRMS(&format, samples.data(), 1000, &sum, 0), 0);
  EXPECT_EQ(sum, 0x1p53f);
}

// Wherever the blocks end that are scanned as a whole.
TEST(Levels, RunsAreOfFramesThatFollowEachOther) {
  const WAVEFORMATEX format = Format(17, 1);
  for (const DWORD first : {0, 32767, 65535, 65536}) {
    for (const DWORD gap : {1, 2, 32768, 65536, 65537, 98305}) {
      std::vector<int16_t> samples(200000, -5);
      samples[first] = samples[first + gap] = gap % 2 ? 32767 : -32768;
      QNPEAKRESULT peak{};
      EXPECT_EQ(QnAudio_FindPeaks(&format, 2, samples.data(), 200000, &peak), 0);
      EXPECT_TRUE(peak.clipped == (gap == 1) && peak.position == (gap == 1 ? first : first + gap)) << gap;
    }
  }
}

TEST(Levels, OperationsFailInTheirOrder) {
  const WAVEFORMATEX known = Format(17, 1), bigEndian = Format(64, 1);
  EXPECT_EQ(QnAudio_CalcRMS(&bigEndian, nullptr, 0, nullptr), 0);
  for (const WAVEFORMATEX* const format : {&known, &bigEndian}) {
    const HRESULT expected = format == &known ? E_POINTER : E_NOTIMPL;
    EXPECT_EQ(QnAudio_FindPeaks(format, 3, nullptr, 5, nullptr), expected);
    EXPECT_EQ(QnAudio_CalcRMS(format, nullptr, 5, nullptr), expected);
    EXPECT_EQ(QnAudio_CalcPreRMS(format, nullptr, 5, nullptr, 0), E_NOTIMPL);
  }
}

// The byte of silence by tag and bits, for a frame and for one channel of several.
constexpr int kFails = -1, kNothing = -2;
int SilenceByte(int tag, int bits) {
  if (tag == 3 || tag == 0xFE00 || tag == 0xFE01) return 0;
  return tag != 1 && tag != 0xFE02 ? kFails : bits == 8 ? 0x80 : 0;
}
int ChannelSilenceByte(int tag, int bits) {
  if (tag == 3) return bits == 32 || bits == 64 ? 0 : kFails;
  if (tag != 1 && (tag < 0xFE00 || tag > 0xFE02)) return kFails;
  return bits % 8 != 0 || bits == 0 || bits > 32 ? kFails : bits == 8 && tag != 0xFE01 ? 0x80 : 0;
}

void CheckSilence(WORD tag, DWORD carried, WORD bits, WORD channels) {
  const WORD size = tag == 0xFE00 && bits == 24 ? 4 : bits / 8, align = static_cast<WORD>(size * channels);
  WAVEFORMATEXTENSIBLE format{{tag, channels, 48000, 0, align, bits, 22}, {}, 0, KSDATAFORMAT_SUBTYPE_PCM};
  format.SubFormat.Data1 = carried;
  const auto* const plain = reinterpret_cast<const WAVEFORMATEX*>(&format);
  const int carriedByte =
      carried == 1 || carried == 3 ? SilenceByte(static_cast<int>(carried), bits) : kNothing;
  const int whole = tag == 0xFFFE ? carriedByte : SilenceByte(tag, bits);
  for (DWORD channel = 0; channel <= channels + 1u; ++channel) {
    SCOPED_TRACE(testing::Message() << tag << " " << carried << " " << bits << " " << channel);
    const bool frame = channel > channels, all = frame || channels == 1;  // the last round is of whole frames
    const int value = channel == channels ? kFails : all ? whole : ChannelSilenceByte(tag, bits);
    Bytes actual(align * 5 + 8, 0x55), expected = actual;
    for (size_t i = 0; value >= 0 && i < align * 5u; ++i) {
      if (all || i % align / size == channel) expected[i] = static_cast<uint8_t>(value);
    }
    EXPECT_EQ(frame ? QnAudio_FillSilence(plain, actual.data(), 5)
                    : QnAudio_FillSilenceChannel(plain, actual.data(), channel, 5),
              value == kFails ? E_FAIL : S_OK);
    EXPECT_EQ(actual, expected);
  }
}

TEST(Silence, FollowsItsTables) {
  for (const WORD tag : {1, 3, 0xFE00, 0xFE01, 0xFE02, 0xFE03, 2, 0, 0xFFFE}) {
    for (const DWORD carried : {1, 3, 0xFE00, 2}) {
      for (const WORD bits : {8, 16, 20, 24, 32, 64, 0}) {
        for (const WORD channels : {1, 2, 3}) CheckSilence(tag, carried, bits, channels);
      }
    }
  }
  for (int type = 0; type < 140; ++type) {
    _qnwaveformat format{};
    format.sampleType = static_cast<QNSAMPLETYPE>(type);
    format.nBlockAlign = 3;
    Bytes data(16, 0x55), expected = data;
    const bool known = std::count(std::begin(kTypes), std::end(kTypes), type) || (type >= 64 && type <= 66);
    if (known) std::fill_n(expected.begin(), 12, type == 16 ? 0x80 : 0);
    EXPECT_EQ(QnAudio_FillSilence(&format, data.data(), 4), known ? S_OK : E_FAIL) << type;
    EXPECT_EQ(data, expected) << type;
  }
}

TEST(FillWithSample, CopiesConvertsOrFillsSilence) {
  constexpr DWORD kFrames = 12345;
  const auto converts = [](int type) { return type != 16 && type != 49 && type != 64; };
  for (const int dst : {16, 17, 18, 19, 32, 33, 48, 49, 64}) {
    for (const int src : {16, 17, 18, 19, 32, 33, 48, 49, 64}) {
      for (const size_t channels : {1, 2}) {
        const WAVEFORMATEX to = Format(dst, channels), from = Format(src, channels);
        const bool converted = dst != src && converts(dst) && converts(src);
        const Bytes frame = TameSamplesOf(src, channels);
        Bytes one(to.nBlockAlign, dst == 16 ? 0x80 : 0), data(to.nBlockAlign * kFrames, 0x55);
        if (dst == src || converted) one = ConvertAll(dst, src, frame, 1.0f);
        EXPECT_EQ(QnAudio_FillWithSample(&to, data.data(), &from, frame.data(), kFrames), 0);
        const auto second = data.begin() + to.nBlockAlign;
        EXPECT_TRUE(Bytes(data.begin(), second) == one && std::equal(second, data.end(), data.begin()))
            << dst << " from " << src << ", " << channels << " channels";
      }
    }
  }
}

TEST(Reverse, SwapsFramesAndCountsSixteenBytesAsTwelve) {
  for (WORD size = 1; size <= 40; ++size) {
    for (const DWORD frames : {0, 1, 2, 5, 64}) {
      Bytes data(size * size_t{frames});
      for (uint8_t& byte : data) byte = static_cast<uint8_t>(Random()());
      Bytes expected = data;
      const size_t used = size == 16 ? 12 : size;
      for (size_t i = 0; i < used * frames; ++i) {
        expected[i] = data[(frames - 1 - i / used) * used + i % used];
      }
      const WAVEFORMATEX format = {1, 1, 48000, 0, size, 0, 0};
      EXPECT_EQ(QnAudio_Reverse(&format, data.data(), &format, data.data(), frames, 1.0f), 0);
      EXPECT_EQ(data, expected) << size;
    }
  }
  const WAVEFORMATEX to = Format(17, 2), from = Format(49, 2), none = {2, 2, 48000, 0, 4, 16, 0};
  const WAVEFORMATEX empty = Format(17, 0);
  const int8_t source[] = {1, 2, 3, 4, 5, 6};
  std::vector<int16_t> data(6);
  EXPECT_EQ(QnAudio_Reverse(&to, data.data(), &from, source, 3, 2.0f), 0);
  EXPECT_EQ(data, std::vector<int16_t>({2560, 3072, 1536, 2048, 512, 1024}));
  EXPECT_EQ(QnAudio_Reverse(&to, data.data(), &none, source, 3, 2.0f), 0);
  EXPECT_EQ(data, std::vector<int16_t>({512, 1024, 1536, 2048, 2560, 3072}));
  EXPECT_EQ(QnAudio_Reverse(&empty, data.data(), &from, source, 3, 1.0f), E_FAIL);
}

}  // namespace
}  // namespace qntest
