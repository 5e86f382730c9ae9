#include "qn/dsp/qntimestretch.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <set>
#include <string>
#include <vector>

#include "tests/support/support.h"

namespace {

// The rule for one block after the other, a step at a time, in buffers without end. Tells the ways it went.
struct Model {
  static constexpr int kRoom = 400000;
  int channels, carry = 0, total = 0;
  std::vector<double> input = std::vector<double>(kRoom), output = std::vector<double>(kRoom);
  std::set<std::string> ways = {};

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
      if (score > e * 4) return ways.insert("early"), lag;
      if (score > best) found = lag;
      best = std::max(best, score);
    }
    return found;
  }

  int Splice(int n, int m) {
    const double r = static_cast<double>(m) / n;
    const int l = static_cast<int>(std::floor(n * r + 0.5)), shorter = std::min(n, m);
    const auto way = [&](const char* name) { return ways.insert(name).second; };
    if (r == 1 || shorter < 1000) {
      way(r == 1 ? "same" : "short");
      for (int i = 0; i < (r == 1 ? n : shorter); ++i) output[i] = input[i];
      return 0;
    }
    if (l <= n) {
      for (int i = 0; i < l; ++i) output[i] = input[i];
      const int lag = n >= 1200 && l >= 1000 ? FindSpliceLag(n - 1200, l - 1000) : 200;
      way(lag == 200 ? "cut" : "shorten");
      double g = 1;
      for (int i = l - 1000, s = n + lag - 1200; i < l; ++i, ++s, g -= 0.001)
        output[i] = g * output[i] + (1 - g) * input[s];
      return 200 - lag;
    }
    for (int i = 0; i < l; ++i) output[i] = i < n ? input[i] : 0;
    int count = 1, segment = l - n + 1000;
    while (segment > n) segment = (l - n) / ++count + 1000;
    if (count > 1) {
      const int d = std::min(2 * n, l), a = 2 * n - d, b = d - n;
      if (a > 4) {
        way("overlap");
        double g = 1;
        for (int i = 0; i < n; ++i, g -= 1.0 / a)
          output[b + i] = i < a ? g * output[b + i] + (1 - g) * input[i] : input[i];
        return 0;
      }
      way("ramps");
      for (int i = 0; i < b; ++i) output[n + i] = output[i];
      const int w = std::min(n, 600);
      for (int k = 0; k < w; ++k) output[n - w + k] = ((w - k) * output[n - w + k] + k * output[k]) / w;
      for (int j = 0; j < w; ++j) output[n + j] = (j * output[n + j] + (w - j) * output[w + j]) / w;
      return 0;
    }
    int lag = 200;
    if (n >= 1200 && n >= segment + 200) lag = FindSpliceLag(n - segment - 200, n - 1000);
    way(lag == 200 ? "extend" : "lengthen");
    double g = 1;
    for (int i = n - 1000, s = n + lag - 200 - segment; i < l; ++i, ++s, g -= 0.001)
      output[i] = i < n ? g * output[i] + (1 - g) * input[s] : input[s];
    return 200 - lag;
  }

  // The output frames, which lie in `output`.
  int Block(const double* in, int frames, double ratio) {
    for (int i = 0; i < carry * channels; ++i) input[i] = input[(total - carry) * channels + i];
    for (int i = 0; i < frames * channels; ++i) input[carry * channels + i] = in[i];
    const int made = static_cast<int>(std::floor(frames / ratio));
    total = carry + frames;
    if (made > 0) carry = Splice(total * channels, made * channels) / channels;
    return made;
  }
};

HQNTIME* Create(double ratio, DWORD channels, int frames) {
  HQNTIME* time = nullptr;
  _time_props props = {ratio};
  EXPECT_TRUE(QnTimeInit(&time, 1, &props, 48000, channels) == 0 && QnTimeBufAlloc(time, frames) == 0);
  return time;
}

template <class T>
void ExpectModel(int channels, std::set<std::string>& ways) {
  const double kRatios[] = {1, 1.25, 1, 0.8, 0.5, 0.499, 0.4, 0.55, 1.001, 3, 0.9, 2, 0.99, 1, 1};
  HQNTIME* time = Create(1, static_cast<DWORD>(channels), 20000);
  Model model{channels};
  std::uniform_real_distribution<T> noise(-1, 1);
  for (int block = 0; block < 150; ++block) {
    const int kFrames[] = {4000, 1500, 500, 0, 300, 1100, 1001};
    const int frames = kFrames[qntest::Random()() % 7];
    _time_props props = {kRatios[block % 15]};
    QnTimeInit(&time, 0, &props, 48000, static_cast<DWORD>(channels));
    std::vector<T> in(static_cast<size_t>(frames * channels)), out(20000 * channels, T(9));
    for (size_t i = 0; i < in.size() && block % 4; ++i)  // silence, noise, and a tone that matches itself
      in[i] = block % 4 == 1 ? noise(qntest::Random()) : T((i / channels % 40 < 20) - .5);
    const std::vector<double> wide(in.begin(), in.end());
    const int expected = model.Block(wide.data(), frames, props.ratio);
    DWORD made = 77;
    QnTimeProcess(time, out.data(), in.data(), &made, static_cast<DWORD>(frames));
    ASSERT_TRUE(static_cast<int>(made) == expected && time->carryFrames == model.carry &&
                time->totalFrames == model.total)
        << block << ' ' << time->carryFrames << ' ' << model.carry;
    for (size_t i = 0; i < out.size(); ++i) {
      const T wanted = i < made * static_cast<size_t>(channels) ? static_cast<T>(model.output[i]) : T(9);
      ASSERT_EQ(out[i], wanted) << block << ' ' << i;
    }
  }
  QnTimeClose(time);
  ways.merge(model.ways);
}

TEST(TimeStretch, IsTheRuleBlockByBlock) {
  std::set<std::string> ways;
  for (const int channels : {1, 2, 3, 7}) {
    ExpectModel<float>(channels, ways);
    ExpectModel<double>(channels, ways);
  }
  EXPECT_EQ(ways.size(), 9u);  // all that there are
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
