#include "qn/dsp/qntimestretch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "tests/support/support.h"

namespace {

// The rule for one block after the other, a step at a time, in buffers without end.
struct Model {
  int channels, carry = 0, total = 0;
  std::vector<double> input = std::vector<double>(20000), output = input;

  int FindSpliceLag(int base, int reference) {
    double e = 0, best = 0;
    int found = 0;
    for (int i = 0; i < 200; i += channels) e += std::pow(output[reference + i * channels], 2);
    for (int lag = 0; lag < 200; lag += channels) {
      double score = 0;
      for (int i = 0; i < 200; i += channels) {
        const double both = input[base + (lag + i) * channels] + output[reference + i * channels];
        score += both * both;
      }
      if (score > e * 4) return lag;
      if (score > best) found = lag;
      best = std::max(best, score);
    }
    return found;
  }

  int Splice(int n, int m) {
    for (int i = 0; i < m; ++i) output[i] = i < n ? input[i] : 0;
    if (m == n || std::min(n, m) < 1000) return 0;
    const int segment = m - n + 1000;
    if (m > n && segment > n) {
      const int d = std::min(2 * n, m), a = 2 * n - d, b = d - n, w = std::min(n, 600);
      double g = 1;
      for (int i = 0; i < (a > 4 ? n : 0); ++i, g -= 1.0 / a)
        output[b + i] = i < a ? g * output[b + i] + (1 - g) * input[i] : input[i];
      if (a > 4) return 0;
      std::copy_n(output.begin(), b, output.begin() + n);
      for (int k = 0; k < w; ++k) output[n - w + k] = ((w - k) * output[n - w + k] + k * output[k]) / w;
      for (int j = 0; j < w; ++j) output[n + j] = (j * output[n + j] + (w - j) * output[w + j]) / w;
      return 0;
    }
    const int fade = std::min(n, m) - 1000, behind = m > n ? segment : 1000;
    const int lag = n >= behind + 200 ? FindSpliceLag(n - behind - 200, fade) : 200;
    double g = 1;
    for (int i = fade, s = n + lag - 200 - behind; i < m; ++i, ++s, g -= 0.001)
      output[i] = i < fade + 1000 ? g * output[i] + (1 - g) * input[s] : input[s];
    return 200 - lag;
  }

  // `made` output frames, which lie in `output`.
  void Block(const double* in, int frames, int made) {
    std::copy_n(&input[(total - carry) * channels], carry * channels, input.begin());
    std::copy_n(in, frames * channels, &input[carry * channels]);
    total = carry + frames;
    if (made > 0) carry = Splice(total * channels, made * channels) / channels;
  }
};

HQNTIME* Create(double ratio, DWORD channels, int frames) {
  HQNTIME* time = nullptr;
  _time_props props = {ratio};
  EXPECT_TRUE(QnTimeInit(&time, 1, &props, 48000, channels) == 0 && QnTimeBufAlloc(time, frames) == 0);
  return time;
}

// Around all lengths at which another way is taken; the second block starts with what the first one carries.
template <class T>
void ExpectModel(int channels) {
  std::uniform_real_distribution<T> noise(-1, 1);
  for (const int samples : {500, 1000, 1001, 1199, 1200, 1201, 1700})
    for (int way = 0; way < 20 * 3; ++way) {
      HQNTIME* time = Create(1, static_cast<DWORD>(channels), 5000);
      Model model{channels};
      const int frames = (samples + channels - 1) / channels;
      std::vector<T> in(static_cast<size_t>(frames * channels)), out(15000 * channels);
      for (int block = 0; block < 2; ++block) {
        const int n = (model.carry + frames) * channels;
        const int kLengths[] = {
            0,         999,          1000,         1001,         n - 1,        n,           n + 1,
            n + 199,   2 * n - 1201, 2 * n - 1200, 2 * n - 1199, 2 * n - 1000, 2 * n - 999, 2 * n - 6,
            2 * n - 5, 2 * n - 4,    2 * n,        2 * n + 2,    5 * n / 2,    1200};
        const int expected = std::max(0, kLengths[(way / 3 + 16 * block) % 20]) / channels;
        _time_props props = {frames / (expected + 0.5)};
        QnTimeInit(&time, 0, &props, 48000, static_cast<DWORD>(channels));
        for (size_t i = 0; i < in.size() && way % 3; ++i) {  // silence, noise, and a growing tone
          const size_t at = i / channels;
          in[i] = way % 3 == 1 ? noise(qntest::Random()) : T(at % 40 < 20 ? 1 : -1) * T(1 + at / 250);
        }
        const std::vector<double> wide(in.begin(), in.end());
        model.Block(wide.data(), frames, expected);
        std::fill(out.begin(), out.end(), T(9));
        std::vector<T> wanted = out;
        DWORD made = 77;
        QnTimeProcess(time, out.data(), in.data(), &made, static_cast<DWORD>(frames));
        for (size_t i = 0; i < made * static_cast<size_t>(channels); ++i) wanted[i] = T(model.output[i]);
        ASSERT_TRUE(static_cast<int>(made) == expected && out == wanted && time->carryFrames == model.carry &&
                    time->totalFrames == model.total)
            << samples << ' ' << way << ' ' << block << ' ' << time->carryFrames << ' ' << model.carry;
      }
      QnTimeClose(time);
    }
}

TEST(TimeStretch, IsTheRuleBlockByBlock) {
  for (const int channels : {1, 2, 3, 7}) ExpectModel<float>(channels);
  ExpectModel<double>(1);
}

TEST(TimeStretch, ChangesTheLengthAndNotThePitch) {
  for (const double ratio : {0.7, 0.8, 1.0, 1.25, 1.5}) {
    HQNTIME* time = Create(ratio, 1, 8192);
    const int frames = ccQnTimeGetInBufSize(time, 4000);
    EXPECT_EQ(frames, static_cast<int>(4000 * ratio));
    std::vector<float> in(static_cast<size_t>(frames)), sound;
    for (int block = 0, at = 0; block < 20; ++block) {
      for (float& x : in) x = static_cast<float>(std::sin(2 * std::numbers::pi * 0.01234 * at++));
      std::vector<float> out(8192);
      DWORD made = 0;
      QnTimeProcess(time, out.data(), in.data(), &made, static_cast<DWORD>(frames));
      sound.insert(sound.end(), out.begin(), out.begin() + made);
    }
    EXPECT_NEAR(static_cast<double>(sound.size()), 80000, 20);
    int crossings = 0;
    for (size_t i = 1; i < sound.size(); ++i) crossings += sound[i - 1] < 0 && sound[i] >= 0;
    EXPECT_NEAR(crossings, 0.01234 * 80000, 12) << ratio;
    QnTimeClose(time);
  }
}

TEST(TimeStretch, InterpolatesAtRatesOfItsRecord) {
  for (const DWORD channels : {1u, 2u, 3u}) {
    HQNTIME* time = Create(1, channels, 1000);
    std::vector<double> in(300 * channels), out(in.size());
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<double>(i / channels);
    for (const double from : {1.0, 0.5}) {
      time->rate = 0.5;
      DWORD made = 0;
      QnTimeProcess(time, out.data(), in.data(), &made, 300);
      double position = from;
      for (size_t i = 1; i + 1 < 300; ++i) {
        EXPECT_NEAR(out[i * channels], position, 1e-9) << i;
        EXPECT_TRUE(channels == 1 || out[i * channels + 1] == (channels == 2 ? out[2 * i] : 0));
        position += from + (0.5 - from) / 300 * static_cast<double>(i - 1);
      }
      EXPECT_TRUE(made == 300 && out[0] == 0 && out.back() == (from == 1 ? 224 : 149));
    }
    _time_props props = {1};
    EXPECT_TRUE(QnTimeInit(&time, 0, &props, 1, 1) == 0 && time->rate == 1);
    QnTimeClose(time);
  }
}

TEST(TimeStretch, StaysInItsBuffersWhateverTheHostAsks) {
  HQNTIME* time = nullptr;
  _time_props props = {1};
  EXPECT_EQ(QnTimeInit(&time, 1, &props, 48000, 0), E_INVALIDARG);
  EXPECT_EQ(QnTimeInit(&time, 0, &props, 48000, 1), E_POINTER);
  ASSERT_EQ(QnTimeInit(&time, 1, &props, 48000, 2), 0);
  std::vector<double> in(40000, 1.0), out(80000);
  DWORD made = 5;
  QnTimeProcess(time, out.data(), in.data(), &made, 10);  // no buffers
  EXPECT_TRUE(made == 0 && QnTimeBufAlloc(time, -1) == E_INVALIDARG && QnTimeBufAlloc(time, 100) == 0);
  for (const double ratio : {1.0, 0.5, 0.01, 1.2, 1e9, 1e-300, 0.0, -2.0, HUGE_VAL, -HUGE_VAL, double{NAN}}) {
    props.ratio = time->ratio = ratio;
    EXPECT_EQ(QnTimeInit(&time, 0, &props, 1, 2), ratio > 0 && ratio < HUGE_VAL ? S_OK : E_INVALIDARG);
    const double wanted = ratio > 0 ? std::min(10 * ratio, 2147483647.0) : 0;
    EXPECT_TRUE(ccQnTimeGetInBufSize(time, 0) == 0 && ccQnTimeGetInBufSize(time, 10) == std::floor(wanted));
    QnTimeProcess(time, out.data(), in.data(), &made, 20000);
    EXPECT_LE(made, 1200u);
    QnTimeProcess(time, out.data(), in.data(), nullptr, 0);
    QnTimeProcess(time, static_cast<double*>(nullptr), in.data(), &made, 3);
    EXPECT_EQ(made, 0u);
  }
  // Smaller buffers, with frames to carry from beyond them; and more channels than a window has samples.
  time->ratio = 1.25;
  EXPECT_EQ(QnTimeBufAlloc(time, 9000), 0);
  QnTimeProcess(time, out.data(), in.data(), &made, 9000);
  EXPECT_TRUE(time->carryFrames > 0 && QnTimeBufAlloc(time, 0) == 0);
  QnTimeProcess(time, out.data(), in.data(), &made, 9);
  HQNTIME* wide = Create(1.1, 5000, 10);
  QnTimeProcess(wide, out.data(), in.data(), &made, 8);
  EXPECT_TRUE(QnTimeBufAlloc(time, 0x7FFFFFFF) == E_OUTOFMEMORY || time->bufferSamples > 1u << 31);
  QnTimeProcess(nullptr, out.data(), in.data(), &made, 3);
  for (HQNTIME* each : {wide, time, static_cast<HQNTIME*>(nullptr)}) QnTimeClose(each);
}

}  // namespace
