#include <cmath>

#include "hwy/targets.h"
#include "qn/media/peak_reader_internal.h"
#include "qn/media/peak_scan_internal.h"
#include "tests/media/media_file.h"

namespace {

using namespace qntest;
using Values = std::vector<double>;

size_t Width(int type) {
  return type == 33 ? 8 : type == 19 || type == 32 ? 4 : type == 18 ? 3 : type == 17 ? 2 : 1;
}

// A stored value in its own units, without the offset of unsigned samples.
double Decode(int type, const uint8_t* from) {
  uint64_t word = 0;
  std::memcpy(&word, from, Width(type));
  if (type == 33) return std::bit_cast<double>(word);
  if (type == 32) return std::bit_cast<float>(static_cast<uint32_t>(word));
  const auto unused = 64 - 8 * Width(type);
  return static_cast<double>(static_cast<int64_t>((type == 16 ? word ^ 0x80 : word) << unused) >> unused);
}

double Convert(int peak, int source, double value) {
  const double from = source / 2 == 16 ? 1 : std::exp2(8.0 * double(Width(source)) - 1);
  if (peak == 32) return static_cast<float>(value / from);
  const double to = peak == 49 ? 128 : 32768, scaled = value / from * to;
  if (source == 18 || source == 19) return std::floor(scaled);
  return std::nearbyint(std::clamp(scaled, -to, to - 1));
}

// Random samples; those of floats go beyond full scale, and some are infinite or no numbers.
Bytes MakeSamples(int type, size_t count) {
  Bytes samples(count * Width(type));
  for (auto& byte : samples) byte = static_cast<uint8_t>(Random()());
  for (size_t i = 0; type / 2 == 16 && i < count; ++i) {
    const double some = double(Random()() % 999) / 450 - 1.1;
    const double wide = Random()() % 20 ? some : Random()() % 2 ? NAN : some * INFINITY;
    const auto single = static_cast<float>(wide);
    std::memcpy(&samples[i * Width(type)], type == 33 ? (const void*)&wide : &single, Width(type));
  }
  return samples;
}

// The rule, one frame after the other: a block starts with the last frame of the one before.
Values ReduceSlowly(int peak, int source, const Bytes& samples, size_t channels, DWORD step, uint64_t phase) {
  Values out;
  for (size_t start = 0, end = 0;; phase -= step, start = end) {
    for (; phase < step && end < samples.size() / Width(source) / channels; phase += 16384) ++end;
    if (phase < step) return out;
    for (size_t c = 0; c < channels; ++c) {
      tQNAUDIOPEAK_SAMPLESMINMAX empty;
      QnAudioPeak_InitMinMaxArray(QNSAMPLETYPE(source), 1, &empty);
      double low = Decode(source, empty.values), high = Decode(source, empty.values + Width(source));
      for (size_t frame = start ? start - 1 : 0; frame < end; ++frame) {
        const double value = Decode(source, &samples[(frame * channels + c) * Width(source)]);
        if (frame + 1 == start && !std::isnan(value)) low = high = value;
        low = value < low ? value : low;
        high = value > high ? value : high;
      }
      out.insert(out.end(), {Convert(peak, source, low), Convert(peak, source, high)});
    }
  }
}

// The kernel, from an odd address and in random calls.
Values Reduce(int peak, int source, const Bytes& samples, DWORD channels, DWORD step, DWORD phase) {
  tQNAUDIOPEAK_SAMPLESMINMAX state;
  QnAudioPeak_InitMinMaxArray(QNSAMPLETYPE(source), channels, &state);
  const Bytes unaligned = Bytes(1) + samples;
  const void* from = unaligned.data() + 1;
  DWORD left = static_cast<DWORD>(samples.size() / Width(source) / channels);
  Bytes out;
  Values values;
  for (LONG done = 1; done || left;) {
    const DWORD given = Random()() % 8 ? static_cast<DWORD>(Random()() % (left + 1)) : left;
    DWORD rest = given;
    const auto index = static_cast<DWORD>(values.size());
    out.resize(Width(peak) * (index + 2 * channels));
    done = QnAudioPeak_CalcMinMax(QNSAMPLETYPE(source), DWORD(peak % 17 ? peak : 0), out.data(), index, step,
                                  &from, &rest, &phase, channels, &state);
    left -= given - rest;
    for (size_t i = index; done && i < index + 2 * channels; ++i) {
      values.push_back(Decode(peak, &out[i * Width(peak)]));
    }
  }
  return values;
}

TEST(PeakKernel, ReducesLikeTheRule) {
  for (int source : {16, 17, 18, 19, 32, 33, 49}) {
    for (int turn = 0; turn < 90; ++turn) {
      const int peak = std::array{17, 49, 32}[turn % 3];
      const DWORD channels = std::array{1u, 2u, 5u}[turn / 3 % 3];
      const DWORD step = turn < 18 ? 6000 : 16384 + static_cast<DWORD>(Random()() % (turn * 80000));
      const auto phase = static_cast<DWORD>(Random()() % (step + step / 8));
      const Bytes samples = MakeSamples(source, channels * (Random()() % 1200));
      EXPECT_EQ(Reduce(peak, source, samples, channels, step, phase),
                ReduceSlowly(peak, source, samples, channels, step, phase))
          << source << " to " << peak << ", " << channels << " channels, step " << step;
    }
  }
  EXPECT_EQ(QnAudioPeak_CalcMinMax(QNST_PCM24IN32, 17, {}, 0, 0, {}, {}, {}, 1, {}), 1);
  EXPECT_EQ(QnAudioPeak_GetMinMaxFunction(QNST_PCM8U, QNST_PCM16), nullptr);
}

// The scan of every instruction set, from odd addresses and up to the end of a buffer, one value at a time.
TEST(PeakKernel, ScansLikeTheRule) {
  const int64_t supported = hwy::SupportedTargets() | HWY_STATIC_TARGET;
  for (const int64_t target : {HWY_AVX3_DL, HWY_AVX2, HWY_STATIC_TARGET}) {
    if (!(supported & target)) continue;
    hwy::SetSupportedTargetsForTest(target);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    for (int source : {16, 17, 18, 19, 32, 33, 49}) {
      const size_t width = Width(source);
      for (size_t channels = 0; channels < 70; channels += channels < 34 ? 1 : 9) {
        for (size_t turn = 0; turn < 6; ++turn) {
          const size_t frames = Random()() % (turn % 2 ? 600 : 20);
          Bytes samples = Bytes(1) + MakeSamples(source, frames * channels);
          samples.shrink_to_fit();
          Bytes pairs = MakeSamples(source, channels * 2), expected = pairs;
          // Turns 1 and 3: nothing but a bound of the first channel, an infinity now and then.
          for (size_t i = 1; turn % 2 && turn < 5 && i < samples.size(); ++i) {
            samples[i] = pairs[turn / 3 * width + (i - 1) % width];
          }
          for (size_t i = 0; i < frames * channels * 2; ++i) {
            const uint8_t* const value = &samples[1 + i / 2 * width];
            uint8_t* const bound = &expected[i % (channels * 2) * width];
            const double found = Decode(source, value), kept = Decode(source, bound);
            if (i % 2 ? found > kept : found < kept) std::copy_n(value, width, bound);
          }
          qn::ScanFrames(source, samples.data() + 1, frames, channels, pairs.data());
          ASSERT_EQ(pairs, expected) << hwy::TargetName(target) << ": " << frames << " frames of " << source
                                     << ", " << channels << " channels";
        }
      }
    }
  }
  hwy::SetSupportedTargetsForTest(0);
  hwy::GetChosenTarget().Update(hwy::SupportedTargets());
}

TEST(PeakKernel, State) {
  const Bytes stored = Hex("81 7F 00 40");
  const std::tuple<int, int, HRESULT, std::string> kRows[] = {
      {16, 0, S_OK, "FF 00 FF 00"},
      {18, 0, S_OK, "FF FF 7F 00 00 80 FF FF 7F 00 00 80"},
      {48, 0, E_INVALIDARG, ""},
      {64, 0, S_OK, "FF 7F 00 80 FF 7F 00 80"},
      {49, 49, S_FALSE, "81 7F 00 40"},
      {17, 16, E_INVALIDARG, ""},
      {18, 49, S_OK, "00 00 81 00 00 7F 00 00 00 00 00 40"},
      {5, 49, E_FAIL, ""}};
  for (const auto& [type, from, status, text] : kRows) {
    tQNAUDIOPEAK_SAMPLESMINMAX state;
    const auto to = QNSAMPLETYPE(type), old = QNSAMPLETYPE(from);
    EXPECT_EQ(from ? QnAudioPeak_PrimeMinMaxArray(to, 2, &state, old, stored.data())
                   : QnAudioPeak_InitMinMaxArray(to, 2, &state),
              status);
    const Bytes pairs = Hex(text);
    EXPECT_EQ(Bytes(state.values, state.values + pairs.size()), pairs) << type << " from " << from;
  }
}

// Merges eight blocks of two channels, one that widens and one that narrows; `lasts` are the blocks that end
// an output pair.
template <class T>
void ExpectMerged(DWORD type, LONG src, LONG dst, DWORD phase, std::vector<int> lasts) {
  std::vector<T> pairs, expected;
  for (int i = 0; i < 8; ++i) pairs.insert(pairs.end(), {T(-i), T(i), T(i), T(-i)});
  for (int first = 0; int last : lasts) {
    expected.insert(expected.end(), {T(-last), T(last), T(first), T(-first)});
    first = last + 1;
  }
  EXPECT_EQ(QnAudioPeak_Resample(type, pairs.data(), src, dst, phase, pairs.data(), 8, 2), S_OK);
  pairs.resize(expected.size());
  EXPECT_EQ(pairs, expected) << src << " to " << dst << " from " << phase;
}

TEST(PeakKernel, Resamples) {
  ExpectMerged<int16_t>(0, 4, 2, 0, {2, 4, 6, 7});
  ExpectMerged<int8_t>(49, 4, 4, 0, {1, 2, 3, 4, 5, 6, 7});
  ExpectMerged<int32_t>(19, 10, 3, 0, {3, 6, 7});
  ExpectMerged<float>(32, 10, 3, 9, {0, 3, 7});
  EXPECT_EQ(QnAudioPeak_Resample(17, nullptr, 3, 5, 0, nullptr, 0, 1), E_UNEXPECTED);
  EXPECT_EQ(QnAudioPeak_GetPeakResampleFunction(17, 1), nullptr);
}

TEST(PeakReader, Reads) {
  const WAVEFORMATEX format = MakeFormat(1, 2, 44100, 16);
  TestFile file(MakeSamples(17, 43));
  CQnAudioPeakStreamReader* wave = nullptr;
  EXPECT_EQ(QnAudio_CreateWaveFileStreamReader(&wave, file.Path()), QN_E_FILE_OPEN);
  QnInsertWavHeader(file, &format, 40, 46);
  file.Close();
  ASSERT_EQ(QnAudio_CreateWaveFileStreamReader(&wave, file.Path()), S_OK);
  const Bytes bytes = file.Content();
  qn::CQnAudioPeakWaveMemReader memory(&format, bytes.data() + 46, 10), none(&format, nullptr, 10);
  EXPECT_EQ(std::tuple(wave->Open(), memory.Open(), none.Open()), std::tuple(S_OK, S_OK, QN_E_FILE_OPEN));
  const std::tuple<CQnAudioPeakStreamReader*, LONGLONG, LONG, HRESULT, DWORD, ptrdiff_t> kRows[] = {
      {wave, 0, 4, S_OK, 4, 0},  // no seek: the file's first bytes, and on from there
      {wave, 4, 3, S_OK, 3, 16},          {wave, 2, 3, S_OK, 3, 54},   {wave, 0, 1, S_OK, 1, 46},
      {wave, 9, 5, S_OK, 1, 82},          {wave, 10, 1, S_OK, 0, 0},   {wave, -1, 1, QN_E_FILE_READ, 0, 0},
      {&memory, 8, 9, S_OK, 2, 78},       {&memory, 9, 1, S_OK, 0, 0}, {&memory, -1, 1, QN_E_FILE_READ, 0, 0},
      {&none, 0, 1, QN_E_FILE_OPEN, 0, 0}};
  for (const auto& [reader, position, frames, status, delivered, place] : kRows) {
    Bytes buffer(40);
    DWORD got = 77;
    EXPECT_EQ(reader->Read(position, frames, buffer.data(), frames, &got), status) << position;
    ASSERT_EQ(got, delivered) << position;
    EXPECT_TRUE(std::equal(buffer.begin(), buffer.begin() + 4 * got, bytes.begin() + place)) << position;
  }
  QnAudio_DestroyWaveFileStreamReader(wave);
}

}  // namespace
