// Four stages of a recursive filter over stereo audio, beside the loops that a program would have without a
// library: frame by frame through all stages, in the precision of the samples.
// Names: iir/4biquads_stereo/<samples>/<who>, ours with the type of the samples.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "qn/dsp/qniir.h"

namespace {

constexpr size_t kStages = 4;
constexpr DWORD kChannels = 2;

const CQnIIR& Filter() {
  static const CQnIIR designed = [] {
    CQnIIR filter;
    filter.Design(QNIIR_LOWPASS, QNIIR_BUTTERWORTH, 2 * kStages, 0.1, 1, 0, kChannels, 0);
    return filter;
  }();
  return designed;
}

template <class T>
std::vector<T> Noise(size_t samples) {
  std::vector<T> noise(samples);
  std::mt19937 random(1);
  std::uniform_real_distribution<T> distribution(-1, 1);
  for (T& x : noise) x = distribution(random);
  return noise;
}

template <class T>
struct Cascade {
  T gain;
  struct {
    T b0, b1, b2, a1, a2, d1[kChannels], d2[kChannels];
  } stages[kStages];
};

template <class T>
Cascade<T> PlainCascade() {
  Cascade<T> cascade{static_cast<T>(Filter().getGain()), {}};
  for (DWORD i = 0; i < kStages; ++i) {
    const tQNIIR_BIQUAD& from = *Filter().getBiquad(i);
    cascade.stages[i] = {static_cast<T>(from.b0),
                         static_cast<T>(from.b1),
                         static_cast<T>(from.b2),
                         static_cast<T>(from.a1),
                         static_cast<T>(from.a2),
                         {},
                         {}};
  }
  return cascade;
}

template <class T>
void LoopFrame(benchmark::State& state, size_t samples) {
  const std::vector<T> in = Noise<T>(samples);
  std::vector<T> out(samples);
  Cascade<T> cascade = PlainCascade<T>();
  for (auto _ : state) {
    for (size_t i = 0; i < samples; i += kChannels) {
      for (DWORD c = 0; c < kChannels; ++c) {
        T v = in[i + c] * cascade.gain;
        for (auto& [b0, b1, b2, a1, a2, d1, d2] : cascade.stages) {
          const T w = v + a1 * d1[c] + a2 * d2[c];
          v = b0 * w + b1 * d1[c] + b2 * d2[c];
          d2[c] = d1[c];
          d1[c] = w;
        }
        out[i + c] = v;
      }
    }
    benchmark::ClobberMemory();
  }
}

template <class T>
void Ours(benchmark::State& state, size_t samples) {
  const std::vector<T> in = Noise<T>(samples);
  std::vector<T> out(samples);
  CQnIIR filter = Filter();
  for (auto _ : state) {
    const auto frames = static_cast<DWORD>(samples / kChannels);
    if constexpr (std::is_same_v<T, float>) {
      filter.ProcessFloat(out.data(), in.data(), frames, 0);
    } else {
      filter.ProcessDouble(out.data(), in.data(), frames, 0);
    }
    benchmark::ClobberMemory();
  }
}

const bool registered = [] {
  const std::pair<const char*, size_t> kSizes[] = {{"4K", 4096}, {"8M", 8388608}};
  const struct {
    const char* type;
    const char* who;
    void (*run)(benchmark::State&, size_t);
  } kRuns[] = {{"flt", "ours", Ours<float>},
               {"flt", "loop", LoopFrame<float>},
               {"dbl", "ours", Ours<double>},
               {"dbl", "loop", LoopFrame<double>}};
  for (const auto& [size, samples] : kSizes) {
    for (const auto& [type, who, run] : kRuns) {
      const std::string name = std::string("iir/4biquads_stereo_") + type + "/" + size + "/" + who;
      benchmark::RegisterBenchmark(name.c_str(), [=, run = run, samples = samples](benchmark::State& state) {
        run(state, samples);
        state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(samples));
      });
    }
  }
  return true;
}();

}  // namespace
