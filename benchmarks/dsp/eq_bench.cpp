// An equaliser of eight peaks and shelves over stereo audio, beside the loops that a program would have
// without a library, in the precision of ours: band after band over all frames, and frame by frame through
// all bands.
// Names: effects/eq_8bands_stereo_<samples>/<size>/<who>.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "qn/dsp/qneq.h"

namespace {

constexpr size_t kBands = 8, kChannels = 2;

template <class T>
std::vector<T> Noise(size_t samples) {
  std::vector<T> noise(samples);
  std::mt19937 random(1);
  std::uniform_real_distribution<T> distribution(-1, 1);
  for (T& x : noise) x = distribution(random);
  return noise;
}

// Poles of about the right places; the speed does not depend on them.
struct Band {
  int type;
  double gain, a1, a2, s1[kChannels], s2[kChannels];
};

std::vector<Band> PlainBands() {
  std::vector<Band> bands(kBands, Band{1, 0.1, 1.7, -0.8, {}, {}});
  bands.front() = {0, 0.1, 0.9, 0, {}, {}};
  bands.back() = {2, 0.1, 0.5, 0, {}, {}};
  return bands;
}

inline double Step(Band& band, size_t c, double x) {
  double t = x * band.gain + band.s1[c] * band.a1;
  double y;
  if (band.type == 0) {
    y = x + t + band.s1[c];
  } else if (band.type == 2) {
    y = x + t - band.s1[c];
  } else {
    t += band.s2[c] * band.a2;
    y = x + t - band.s2[c];
    band.s2[c] = band.s1[c];
  }
  band.s1[c] = t;
  return y;
}

template <class T>
class LoopBands {
 public:
  void Run(T* out, const T* in, size_t frames) {
    std::copy_n(in, frames * kChannels, out);
    for (Band& stored : bands_) {
      Band band = stored;
      for (size_t c = 0; c < kChannels; ++c)
        for (size_t i = c; i < frames * kChannels; i += kChannels)
          out[i] = static_cast<T>(Step(band, c, out[i]));
      stored = band;
    }
  }

 private:
  std::vector<Band> bands_ = PlainBands();
};

template <class T>
class LoopFrames {
 public:
  void Run(T* out, const T* in, size_t frames) {
    for (size_t i = 0; i < frames * kChannels; i += kChannels)
      for (size_t c = 0; c < kChannels; ++c) {
        T x = in[i + c];
        for (Band& band : bands_) x = static_cast<T>(Step(band, c, x));
        out[i + c] = x;
      }
  }

 private:
  std::vector<Band> bands_ = PlainBands();
};

template <class T>
class Ours {
 public:
  Ours() {
    WAVEFORMATEX format{};
    format.wFormatTag = WAVE_FORMAT_IEEE_FLOAT;
    format.nChannels = kChannels;
    format.nSamplesPerSec = 48000;
    format.wBitsPerSample = 8 * sizeof(T);
    tQNEQ_BAND bands[kBands];
    for (size_t i = 0; i < kBands; ++i) bands[i] = {6, 1, 50.0 * (1 << i), QNEQ_PEAK, 1};
    bands[0].type = QNEQ_LOWSHELF;
    bands[kBands - 1].type = QNEQ_HIGHSHELF;
    QnEq_Init(&equaliser_, &format, bands, kBands, 0);
  }
  ~Ours() { QnEq_Close(equaliser_); }
  Ours(const Ours&) = delete;
  Ours& operator=(const Ours&) = delete;
  void Run(T* out, const T* in, size_t frames) {
    if constexpr (std::is_same_v<T, float>)
      QnEq_ProcessFloat(equaliser_, out, in, static_cast<DWORD>(frames));
    else
      QnEq_ProcessDouble(equaliser_, out, in, static_cast<DWORD>(frames));
  }

 private:
  HQNEQ equaliser_ = nullptr;
};

template <class T, template <class> class Equaliser>
void Measure(benchmark::State& state, size_t samples) {
  const std::vector<T> in = Noise<T>(samples);
  std::vector<T> out(samples);
  Equaliser<T> equaliser;
  for (auto _ : state) {
    equaliser.Run(out.data(), in.data(), samples / kChannels);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(samples));
}

const bool registered = [] {
  const std::pair<const char*, size_t> kSizes[] = {{"4K", 4096}, {"1M", 1048576}};
  const struct {
    const char* type;
    const char* who;
    void (*run)(benchmark::State&, size_t);
  } kRuns[] = {{"flt", "ours", Measure<float, Ours>},
               {"flt", "loop_bands", Measure<float, LoopBands>},
               {"flt", "loop_frames", Measure<float, LoopFrames>},
               {"dbl", "ours", Measure<double, Ours>},
               {"dbl", "loop_bands", Measure<double, LoopBands>},
               {"dbl", "loop_frames", Measure<double, LoopFrames>}};
  for (const auto& [size, samples] : kSizes)
    for (const auto& [type, who, run] : kRuns) {
      const std::string name = std::string("effects/eq_8bands_stereo_") + type + "/" + size + "/" + who;
      benchmark::RegisterBenchmark(name.c_str(), run, samples);
    }
  return true;
}();

}  // namespace
