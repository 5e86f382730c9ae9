// Mixing: all kernels against a plain model, what hosts know to be odd, and envelopes.
#include "qn/audio/qnmix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "qn/audio/qnmix_internal.h"
#include "qn/kernel/qncpu.h"
#include "tests/audio/qncopy_reference.h"

namespace qntest {
namespace {

// Gains of practice, and from kExtreme on those that no multiplication in another order would stand.
constexpr size_t kExtreme = 7;
constexpr double kGains[] = {1.0, 0.5, -0.7, 0.0, 1.5, -1.0, 33.3, 1e-310, 0x1p960, INFINITY, 0x1p-1000};

QNSAMPLETYPE Type(int type) {
  return static_cast<QNSAMPLETYPE>(type);
}

double Decode(int type, const uint8_t* from) {
  double x;
  ConvertOne(33, reinterpret_cast<uint8_t*>(&x), type, from, 1.0f);
  return x;
}

template <typename T>
void AddTo(uint8_t* to, T x) {
  const T sum = qn::LoadAs<T>(to) + x;
  std::memcpy(to, &sum, sizeof sum);
}

// Adds a product at full scale 1.0. An integer is what a copy would store; of type 48 it has 24 bits.
void AddOne(int dst, uint8_t* to, double x) {
  if (dst == 32) return AddTo(to, static_cast<float>(x));
  if (dst == 33) return AddTo(to, x);
  const int stored = dst == 48 ? 18 : dst;
  const double unit = 1 / qn::FullScale(qn::kSampleForms[qn::SampleFormIndex(dst)]);
  uint8_t word[4];
  ConvertOne(stored, word, 33, reinterpret_cast<const uint8_t*>(&x), 1.0f);
  const double sum = std::clamp(Decode(dst, to) + Decode(stored, word), -1.0, 1.0 - unit);
  ConvertOne(dst, to, 33, reinterpret_cast<const uint8_t*>(&sum), 1.0f);
}

void MixOne(int dst, uint8_t* to, int src, const uint8_t* from, double gain, bool single = false) {
  const double x = Decode(dst == 33 && src == 16 ? 49 : src, from);
  single |= dst == 32 && src == 33;
  AddOne(dst, to, single ? double{static_cast<float>(x) * static_cast<float>(gain)} : x * gain);
}

// The same bits, but for the patterns of NaNs that floats can have.
bool Same(int type, const Bytes& a, const Bytes& b) {
  if (type != 32 && type != 33) return a == b;
  for (size_t i = 0; i < a.size(); i += BytesOf(type)) {
    const double x = Decode(type, &a[i]), y = Decode(type, &b[i]);
    if (std::isnan(x) ? !std::isnan(y) : std::memcmp(&x, &y, sizeof x) != 0) return false;
  }
  return a.size() == b.size();
}

TEST(MixKernels, GiveTheModelForAllValuesGainsAndChannels) {
  const struct {
    size_t samples, channels, firstGain, dstOffset, srcOffset;
  } cases[] = {{66000, 3, 0, 0, 0}, {3001, 2, 2, 1, 0}, {700, 1, 2, 0, 16}, {1500, 70, 0, 16, 0},
               {0, 2, 0, 0, 0},     {7, 3, 1, 4, 4},    {1109, 3, 1, 0, 0}, {191, 5, 0, 8, 3},
               {130, 8, 0, 0, 8},   {640, 4, 6, 0, 0},  {1337, 1, 0, 0, 3}, {301, 65, 3, 5, 5},
               {2100, 1, 4, 0, 1},  {3000, 1, 5, 0, 0}, {90, 1, 7, 0, 0},   {1000, 2, 8, 16, 32},
               {90, 1, 9, 0, 0},    {200, 1, 10, 0, 0}};
  for (const qn::MixKernel& pair : qn::MixKernels()) {
    const Bytes from = SamplesOf(pair.src), onto = SamplesOf(pair.dst);
    const bool firstGainOnly = pair.dst == pair.src && (pair.dst <= 17 || pair.dst == 48);
    for (const auto& c : cases) {
      SCOPED_TRACE(testing::Message() << pair.dst << " from " << pair.src << ", " << c.samples << " samples, "
                                      << c.channels << " channels");
      std::vector<double> gains(c.channels);
      for (size_t i = 0; i < c.channels; ++i)
        gains[i] = kGains[c.firstGain < kExtreme ? (c.firstGain + i) % kExtreme : c.firstGain];
      Bytes in(c.samples * BytesOf(pair.src)), before(c.samples * BytesOf(pair.dst));
      for (size_t i = 0; i < in.size(); ++i) in[i] = from[i % from.size()];
      for (size_t i = 0; i < before.size(); ++i) before[i] = onto[(i + 24 * c.samples) % onto.size()];
      for (const QNMIXFUNCTION kernel : {pair.scalar, pair.vector}) {
        if (kernel == nullptr) continue;
        const bool single = kernel == pair.vector && c.dstOffset % 16 == 0 && c.srcOffset % 16 == 0;
        Bytes expected = before;
        for (size_t i = 0; i < c.samples; ++i) {
          MixOne(pair.dst, &expected[i * BytesOf(pair.dst)], pair.src, &in[i * BytesOf(pair.src)],
                 gains[firstGainOnly ? 0 : i % c.channels], single);
        }
        ForEachTarget([&] {
          GuardedBuffer src(in.size(), c.srcOffset), dst(before.size(), c.dstOffset);
          std::copy(in.begin(), in.end(), src.data());
          std::copy(before.begin(), before.end(), dst.data());
          kernel(dst.data(), src.data(), static_cast<LONG>(c.samples), static_cast<DWORD>(c.channels),
                 gains.data());
          ASSERT_TRUE(dst.Intact() && Same(pair.dst, dst.Content(), expected));
        });
        if (testing::Test::HasFatalFailure()) return;
      }
    }
  }
}

// Strides, another channel of the same buffer, one buffer onto itself, and the pairs without a gain.
TEST(MixChannelsKernels, GiveTheModel) {
  const struct {
    DWORD dstChannels, dstChannel, srcChannels, srcChannel, frames, inPlace;
  } cases[] = {{1, 0, 1, 0, 700, 0}, {2, 1, 3, 2, 600, 0}, {5, 4, 1, 0, 70, 0}, {2, 1, 2, 0, 600, 1},
               {2, 2, 2, 0, 300, 1}, {3, 1, 3, 1, 300, 1}, {1, 0, 3, 1, 300, 1}};
  for (const auto& [dst, src, scalar, vector, mask] : qn::MixKernels()) {
    const QNMIXCHANNELSFUNCTION kernel = QnAudio_GetMixChannelsFunction2(dst, src);
    const bool hasGain =
        !(dst == 33 && src == 33) && (dst == 18 || dst == 19 || dst / 2 == 16 || src / 2 == 16);
    for (const auto& c : cases) {
      if (c.inPlace && dst != src) continue;
      for (const double gain : {1.0, -0.7}) {
        Bytes onto = TameSamplesOf(dst, 3000), from = TameSamplesOf(src, 2999), expected = onto;
        std::reverse(from.begin(), from.end());
        for (size_t i = 0; i < c.frames; ++i) {
          uint8_t* const to = &expected[(i * c.dstChannels + c.dstChannel) * BytesOf(dst)];
          const Bytes& source = c.inPlace ? expected : from;
          uint8_t byte = 0x80;  // silence, so that the sum is the encoded source
          MixOne(dst, dst == 16 ? &byte : to, src, &source[(i * c.srcChannels + c.srcChannel) * BytesOf(src)],
                 hasGain ? gain : 1.0);
          if (dst == 16) *to = static_cast<uint8_t>(std::min(*to + byte, 127));
        }
        kernel(onto.data(), c.dstChannels, c.dstChannel, c.inPlace ? onto.data() : from.data(), c.srcChannels,
               c.srcChannel, static_cast<LONG>(c.frames), gain);
        ASSERT_TRUE(Same(dst, onto, expected)) << dst << " from " << src << ", " << c.frames << " frames";
      }
    }
  }
}

TEST(Mix, KeepsWhatHostsRelyOn) {
  const int16_t loud[4] = {30000, -30000, 1000, -1000};
  const double gains[2] = {0.5, 1.0};
  std::vector<int16_t> full = {30000, -30000, 1, 1}, zeros(4);
  const WAVEFORMATEX mono = Format(17, 1), stereo = Format(17, 2);
  EXPECT_EQ(QnAudio_Mix(&mono, full.data(), &mono, loud, 4, &gains[1]), 0);
  EXPECT_EQ(full, (std::vector<int16_t>{32767, -32768, 1001, -999}));
  EXPECT_EQ(QnAudio_Mix(&stereo, zeros.data(), &stereo, loud, 2, gains), 0);
  EXPECT_EQ(zeros, (std::vector<int16_t>{15000, -15000, 500, -500}));
  // Onto itself, a buffer stays as it was, but for two types.
  for (const int type : kTypes) {
    Bytes buffer = TameSamplesOf(type, 100), before = buffer;
    QnAudio_GetMixFunction2(Type(type), Type(type))(buffer.data(), buffer.data(), 100, 1, &gains[1]);
    EXPECT_EQ(buffer == before, type != 18 && type != 19) << type;
  }
}

TEST(Mix, LooksKernelsUpAndReportsMissingOnes) {
  for (int dst = 0; dst < 135; ++dst) {
    for (int src = 0; src < 135; ++src) {
      const bool has = std::count(kTypes, std::end(kTypes), dst) && std::count(kTypes, std::end(kTypes), src);
      EXPECT_EQ(QnAudio_GetMixFunction2(Type(dst), Type(src)) != nullptr, has) << dst << ", " << src;
      EXPECT_EQ(QnAudio_GetMixChannelsFunction2(Type(dst), Type(src)) != nullptr, has) << dst << ", " << src;
    }
  }
  const qn::MixKernel& floats = qn::MixKernels()[4 * qn::kMixForms + 4];
  for (const DWORD bits : {QNCPU_SSE2, DWORD{0}}) {
    QnDisallowCPUSupport(QNCPU_SSE2 & ~bits);
    const bool vector = (QnGetCPUSupport(0) & QNCPU_SSE2) != 0;
    EXPECT_EQ(QnAudio_GetMixFunction2(QNST_FLOAT32, QNST_FLOAT32), vector ? floats.vector : floats.scalar);
  }
  QnAllowCPUSupport(QNCPU_SSE2);
  const WAVEFORMATEX plain = Format(17, 2), big = Format(64, 2), wide = Format(32, 4);
  const int map[4] = {1, -1, 0, 2};
  const double gains[4] = {0.5, 1, 2, 1};
  const int16_t from[4] = {10, 20, 30, 40};
  const float quiet[8] = {0x1p-10f, 0, 0x1p-9f, 0, 0x1p-8f, 0, 0x1p-7f, 0};
  std::vector<int16_t> dst = {1, 2, 3, 4};
  int16_t* const to = dst.data();
  EXPECT_EQ(QnAudio_Mix(&plain, to, &big, from, 2, gains), E_NOTIMPL);
  EXPECT_EQ(QnAudio_MixChannels(&big, to, &plain, from, 2, map, gains), E_NOTIMPL);
  EXPECT_EQ(QnAudio_MixEx(&big, to, &plain, from, 2, nullptr), E_NOTIMPL);
  EXPECT_EQ(QnAudio_Mix(nullptr, nullptr, nullptr, nullptr, 0, nullptr), 0);
  EXPECT_EQ(QnAudio_MixChannels(&big, to, &plain, from, 0, map, gains), 0);
  EXPECT_EQ(QnAudio_Mix(&plain, to, &plain, from, 2, nullptr), E_POINTER);
  EXPECT_EQ(QnAudio_MixChannels(&plain, to, &wide, quiet, 2, map, gains), 0);
  EXPECT_EQ(dst, (std::vector<int16_t>{129, 18, 515, 68}));
  EXPECT_EQ(QnAudio_MixChannels(&plain, to, &plain, from, 2, nullptr, gains), 0);
  EXPECT_EQ(dst, (std::vector<int16_t>{134, 28, 530, 88}));
}

// An envelope at 1000 Hz: 100 frames of attack, 50 of sustain and 30 of release.
tQNASRCOOKED Cooked(int type, int attackCurve, int releaseCurve, int64_t start = 0, int64_t frames = 180,
                    double gain = 1.0) {
  const WAVEFORMATEX format = Format(type, 2, 1000);
  const tQNASR envelope = {0.75f, 1000000, 300000, attackCurve, 0.25f, releaseCurve, -0.5f};
  tQNASRCOOKED cooked;
  QnAudio_ASRCook(&format, &envelope, &cooked, start, frames * 10000, gain);
  return cooked;
}

double Curve(int curve, double from, double to, double place) {
  if (curve > 1) return from + (to - from) * place * place;
  if (curve < -1) return to - (to - from) * (1 - place) * (1 - place);
  return from + (to - from) * place;
}

TEST(Envelope, FollowsItsCurvesFromAnyPosition) {
  for (const int curve : {-7, -2, -1, 0, 1, 2, INT32_MAX, INT32_MIN}) {
    const int release = -(curve / 2);
    tQNASRCOOKED running = {};
    for (int64_t i = 0; i < 300; ++i) {
      const double x = static_cast<double>(i);
      const auto [expected, left] = i < 100   ? std::pair(Curve(curve, 0.25, 0.75, x / 100), 100 - i)
                                    : i < 150 ? std::pair(0.75, 150 - i)
                                    : i < 180 ? std::pair(Curve(release, 0.75, -0.5, (x - 150) / 30), 180 - i)
                                              : std::pair(-0.5, INT64_MAX);
      const tQNASRCOOKED jump = Cooked(32, curve, release, i);
      if (i == 0 || i == 100 || i == 150 || i == 180) running = jump;
      EXPECT_TRUE(std::abs(jump.gain - expected) < 1e-12 && jump.framesLeft == left) << curve << ", " << i;
      EXPECT_NEAR(running.gain, expected, 1e-12) << curve << ", frame " << i;
      running.gain += running.gainStep;
      running.gainStep += running.gainStep2;
    }
  }
  // Too short for both, with an odd total; times out of all range; the factors of the types.
  const tQNASRCOOKED odd = Cooked(32, 0, 0, 0, 21);
  EXPECT_TRUE(odd.attackFrames == 11 && odd.sustainFrames == 0 && odd.releaseFrames == 10);
  const tQNASR far = {1, INT64_MAX, -10000000, 0, 0, 0, 0};
  const WAVEFORMATEX format = Format(17, 1);
  tQNASRCOOKED cooked;
  QnAudio_ASRCook(&format, &far, &cooked, INT64_MAX, INT64_MAX, 1.0);
  EXPECT_TRUE(cooked.attackFrames == INT32_MAX && cooked.releaseFrames == 0 && cooked.gain == 0);
  for (const int type : kTypes) {
    const double factor = type == 16 ? 0x1p-7 : type == 17 ? 0x1p-15 : type == 18 ? 0x1p-23 : 1;
    EXPECT_EQ(Cooked(type, 0, 0, 120, 180, 2.0).level, 1.5 * (type == 19 ? 0x1p-31 : factor)) << type;
  }
}

double Raw(int type, const uint8_t* from) {
  const int read = type == 48 ? 19 : type;
  return Decode(read, from) * qn::FullScale(qn::kSampleForms[qn::SampleFormIndex(read)]);
}

TEST(Envelope, MixesFrameByFrame) {
  for (const auto& [dst, src, scalar, vector, mask] : qn::MixKernels()) {
    for (const WORD channels : {1, 2, 3, 8}) {
      for (const int curve : {0, 5, -5}) {
        if (dst / 2 != 16) continue;
        const size_t frames = 1000, perFrame = channels == 1 ? 2 : channels;
        const WAVEFORMATEX to = Format(dst, channels), from = Format(src, static_cast<WORD>(perFrame));
        const Bytes samples = TameSamplesOf(src, frames * perFrame);
        Bytes buffer = TameSamplesOf(dst, frames * channels), expected = buffer;
        tQNASRCOOKED walk = Cooked(src, curve, curve), envelope = walk;
        for (size_t f = 0; f < frames; ++f) {
          if (f == 100 || f == 150 || f == 180) QnAudio_ASRReCook(&walk, static_cast<int64_t>(f));
          for (size_t c = 0; c < channels; ++c) {
            const uint8_t* const at = &samples[(f * perFrame + c) * BytesOf(src)];
            const double x = Raw(src, at) + (channels == 1 ? Raw(src, at + BytesOf(src)) : 0);
            AddOne(dst, &expected[(f * channels + c) * BytesOf(dst)], x * walk.gain);
          }
          walk.gain += walk.gainStep;
          walk.gainStep += walk.gainStep2;
        }
        // A call that ends with a segment, and one that goes on from there.
        EXPECT_EQ(QnAudio_MixEx(&to, buffer.data(), &from, samples.data(), 100, &envelope), 0);
        EXPECT_TRUE(envelope.position == 100 && envelope.framesLeft == 0);
        QnAudio_MixEx(&to, &buffer[100 * to.nBlockAlign], &from, &samples[100 * from.nBlockAlign], 900,
                      &envelope);
        ASSERT_TRUE(envelope.position == 1000 && Same(dst, buffer, expected))
            << dst << " from " << src << ", " << channels;
      }
    }
  }
}

TEST(Envelope, StaysAtTheLastReCookAndTellsWhereItWasNotApplied) {
  const WAVEFORMATEX floats = Format(32, 2, 1000), shorts = Format(17, 2, 1000), five = Format(32, 5);
  tQNASRCOOKED envelope = Cooked(32, 0, 0);
  const float ones[20] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
  float out[20] = {};
  EXPECT_EQ(QnAudio_MixEx(&floats, out, &floats, ones, 10, &envelope), 0);
  EXPECT_TRUE(envelope.position == 10 && envelope.framesLeft == 90 && envelope.gain == 0.25);
  EXPECT_TRUE(out[1] == 0.25f && out[19] == static_cast<float>(0.25 + 9 * envelope.gainStep));
  int16_t words[4] = {-1, -1, -1, -1};
  EXPECT_EQ(QnAudio_MixEx(&shorts, words, &floats, ones, 1, &envelope), 1);
  EXPECT_TRUE(words[0] == 32766 && words[1] == 32766 && words[2] == -1 && envelope.position == 10);
  EXPECT_EQ(QnAudio_MixEx(&five, out, &five, ones, 2, nullptr), 0);
  EXPECT_TRUE(out[0] == 1.25f && out[9] > 1.25f && out[10] < 1.0f);

  const WAVEFORMATEX mono = Format(33, 1), big = Format(64, 1);
  EXPECT_EQ(QnAudio_GetMixExFunction(&shorts, &floats), nullptr);
  EXPECT_EQ(QnAudio_GetMixExFunction(&floats, &big), nullptr);
  const auto narrow = reinterpret_cast<QNMIXEXNARROWFUNCTION>(
      reinterpret_cast<void (*)()>(QnAudio_GetMixExFunction(&mono, &floats)));
  double sum = 1;
  narrow(&sum, ones, 1, &envelope);
  EXPECT_EQ(sum, 1.5);
}

}  // namespace
}  // namespace qntest
