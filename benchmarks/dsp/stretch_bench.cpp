// Stretching blocks of audio beside the search for the splice as a plain loop, which is what takes the time.
// Names: effects/stretch_<samples>_<channels>/<ratio>/<who>
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "qn/dsp/qntimestretch.h"

namespace {

constexpr size_t kFrames = 8192;
constexpr size_t kWindow = 200, kFade = 1000;

size_t FindLag(const double* base, const double* reference, size_t channels) {
  double energy = 0, best = 0;
  size_t bestLag = 0;
  for (size_t i = 0; i < kWindow; i += channels) energy += reference[i * channels] * reference[i * channels];
  energy *= 4;
  for (size_t lag = 0; lag < kWindow; lag += channels) {
    double score = 0;
    for (size_t i = 0; i < kWindow; i += channels) {
      const double both = base[(i + lag) * channels] + reference[i * channels];
      score += both * both;
    }
    if (score > energy) return lag;
    if (score > best) {
      best = score;
      bestLag = lag;
    }
  }
  return bestLag;
}

// One splice each block, as both of our roads of these ratios make.
struct Plain {
  explicit Plain(size_t channelCount)
      : channels(channelCount), in(4 * kFrames * channels), stretched(4 * kFrames * channels) {}

  template <class T>
  void Run(T* out, const T* from, double ratio) {
    std::memmove(in.data(), in.data() + total - carry, carry * sizeof(double));
    for (size_t i = 0; i < kFrames * channels; ++i) in[carry + i] = from[i];
    const size_t n = total = carry + kFrames * channels;
    const auto length = static_cast<size_t>(kFrames / ratio) * channels;
    const size_t end = length <= n ? length : n, segment = length <= n ? kFade : length - n + kFade;
    std::memcpy(stretched.data(), in.data(), end * sizeof(double));
    const size_t lag = FindLag(in.data() + n - segment - kWindow, stretched.data() + end - kFade, channels);
    const double* const source = in.data() + n + lag - kWindow - segment;
    double gain = 1;
    for (size_t i = 0; i < kFade; ++i) {
      double& v = stretched[end - kFade + i];
      v = gain * v + (1 - gain) * source[i];
      gain -= 0.001;
    }
    for (size_t i = end; i < length; ++i) stretched[i] = source[i - end + kFade];
    for (size_t i = 0; i < length; ++i) out[i] = static_cast<T>(stretched[i]);
    carry = (kWindow - lag) / channels * channels;
  }

  size_t channels, total = 0, carry = 0;
  std::vector<double> in, stretched;
};

template <class T>
void Stretch(benchmark::State& state, DWORD channels, double ratio, bool ours) {
  std::vector<T> in(kFrames * channels), out(2 * kFrames * channels);
  std::mt19937 random(1);
  std::uniform_real_distribution<T> noise(-1, 1);
  for (T& x : in) x = noise(random);
  HQNTIME* time = nullptr;
  _time_props props = {ratio};
  if (QnTimeInit(&time, 1, &props, 44100, channels) != 0 || QnTimeBufAlloc(time, 2 * kFrames) != 0)
    return state.SkipWithError("no stretcher");
  Plain plain(channels);
  for (auto _ : state) {
    DWORD frames = 0;
    if (ours) {
      QnTimeProcess(time, out.data(), in.data(), &frames, kFrames);
    } else {
      plain.Run(out.data(), in.data(), ratio);
    }
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kFrames));
  QnTimeClose(time);
}

const bool registered = [] {
  const struct {
    const char* name;
    DWORD channels;
    void (*run)(benchmark::State&, DWORD, double, bool);
  } kKinds[] = {
      {"flt_mono", 1, Stretch<float>}, {"flt_stereo", 2, Stretch<float>}, {"dbl_stereo", 2, Stretch<double>}};
  for (const auto& [kind, channels, run] : kKinds) {
    for (const auto& [text, ratio] : {std::pair{"shorter", 1.25}, {"longer", 0.8}}) {
      for (const bool ours : {true, false}) {
        const std::string name =
            std::string("effects/stretch_") + kind + "/" + text + (ours ? "/ours" : "/loop");
        benchmark::RegisterBenchmark(
            name.c_str(), [=, run = run, channels = channels, ratio = ratio](benchmark::State& state) {
              run(state, channels, ratio, ours);
            });
      }
    }
  }
  return true;
}();

}  // namespace
