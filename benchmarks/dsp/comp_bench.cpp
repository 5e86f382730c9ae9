// The compressor over stereo audio with swells of the level, beside the same arithmetic frame by frame.
// Names: effects/comp_stereo_<samples>_<dc or plain>/<size>/<who>.
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "qn/dsp/qncomp.h"

namespace {

constexpr size_t kChannels = 2;

template <class T>
std::vector<T> Swells(size_t samples) {
  std::vector<T> audio(samples);
  std::mt19937 random(1);
  std::normal_distribution<T> distribution(0, static_cast<T>(0.2));
  for (size_t i = 0; i < samples; ++i)
    audio[i] = distribution(random) * static_cast<T>(0.5 + 0.5 * std::sin(static_cast<double>(i) * 3e-4));
  return audio;
}

HQNCOMPDC Settings(bool removeDc) {
  HQNCOMPDC* made = nullptr;
  if (QnCompDCInit(&made, 1, -20, 4, 0, 48000, removeDc) != S_OK) return {};
  const HQNCOMPDC settings = *made;
  QnCompDCClose(made);
  return settings;
}

template <class T>
void Ours(HQNCOMPDC& record, T* out, const T* in, size_t frames) {
  QnCompDC(&record, out, in, static_cast<DWORD>(frames), kChannels);
}

template <class T>
void Loop(HQNCOMPDC& record, T* out, const T* in, size_t frames) {
  HQNCOMPDC s = record;
  for (size_t i = 0; i < frames * kChannels; i += kChannels) {
    s.blockPeak = 0;
    for (size_t c = 0; c < kChannels; ++c) {
      double x = in[i + c];
      if (s.removeDC) {
        const double z = x * 0.99964393716757 + s.dcState[c] * 0.99928787433514;
        x = z - s.dcState[c];
        s.dcState[c] = z;
      }
      if (std::abs(x) > s.envelope) s.blockPeak = std::abs(x);
      out[i + c] = static_cast<T>(x);
    }
    s.envelope *= 0.999;
    if (s.blockPeak > s.envelope) s.envelope = s.blockPeak;
    double target = 1;
    if (s.threshold < s.envelope) target = (s.threshold / s.envelope - 1) * s.slope + 1;
    target *= s.makeup;
    s.coefficient = s.gain > target ? s.attack : s.release;
    s.gain = (1 - s.coefficient) * target + s.coefficient * s.gain;
    for (size_t c = 0; c < kChannels; ++c) out[i + c] *= static_cast<T>(s.gain);
  }
  record = s;
}

template <class T, void (*kRun)(HQNCOMPDC&, T*, const T*, size_t)>
void Measure(benchmark::State& state, size_t samples, bool removeDc) {
  const std::vector<T> in = Swells<T>(samples);
  std::vector<T> out(samples);
  HQNCOMPDC record = Settings(removeDc);
  for (auto _ : state) {
    kRun(record, out.data(), in.data(), samples / kChannels);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(samples));
}

const bool registered = [] {
  const std::pair<const char*, size_t> kSizes[] = {{"64K", 65536}, {"1M", 1048576}};
  const struct {
    const char* type;
    const char* who;
    void (*run)(benchmark::State&, size_t, bool);
  } kRuns[] = {{"flt", "ours", Measure<float, Ours<float>>},
               {"flt", "loop", Measure<float, Loop<float>>},
               {"dbl", "ours", Measure<double, Ours<double>>},
               {"dbl", "loop", Measure<double, Loop<double>>}};
  for (const auto& [size, samples] : kSizes)
    for (const auto& [type, who, run] : kRuns)
      for (const bool removeDc : {false, true}) {
        const std::string name = std::string("effects/comp_stereo_") + type + (removeDc ? "_dc" : "_plain");
        benchmark::RegisterBenchmark((name + "/" + size + "/" + who).c_str(), run, samples, removeDc);
      }
  return true;
}();

}  // namespace
