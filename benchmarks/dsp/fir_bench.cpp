// A linear-phase filter of 1,023 taps over a second of stereo audio, beside overlap-save by FFTW with
// measured plans of several sizes, in doubles as ours, and the direct sum in floats.
// Names: fir/1023taps/1s_stereo/<who>.
#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <algorithm>
#include <complex>
#include <random>
#include <string>
#include <vector>

#include "qn/dsp/qnfir.h"

namespace {

constexpr size_t kTaps = 1023, kChannels = 2, kFrames = 48000;

std::vector<float> Noise() {
  std::vector<float> noise(kFrames * kChannels);
  std::mt19937 random(1);
  std::uniform_real_distribution<float> distribution(-1, 1);
  for (float& x : noise) x = distribution(random);
  return noise;
}

CQnFIR Designed() {
  CQnFIR filter;
  filter.Design(QNFIR_LOWPASS, QNFIR_HAMMING, kTaps, 0.1, 0.1, kChannels, 0);
  return filter;
}

class Ours {
 public:
  explicit Ours(size_t) : filter_(Designed()) {}
  void Run(float* out, const float* in) { filter_.ProcessFloat(out, in, kFrames, 0); }

 private:
  CQnFIR filter_;
};

class OverlapSave {
 public:
  explicit OverlapSave(size_t size)
      : size_(size), values_(fftw_alloc_real(size)), bins_(fftw_alloc_complex(size / 2 + 1)) {
    const int points = static_cast<int>(size);
    forward_ = fftw_plan_dft_r2c_1d(points, values_, bins_, FFTW_MEASURE);
    inverse_ = fftw_plan_dft_c2r_1d(points, bins_, values_, FFTW_MEASURE);
    const CQnFIR filter = Designed();
    std::fill_n(values_, size, 0.0);
    for (size_t i = 0; i < kTaps; ++i) values_[i] = filter.h[i] / static_cast<double>(size);
    fftw_execute(forward_);
    spectrum_.assign(Bins(), Bins() + size / 2 + 1);
    for (auto& history : history_) history.resize(kTaps - 1);
  }
  ~OverlapSave() {
    fftw_destroy_plan(forward_);
    fftw_destroy_plan(inverse_);
    fftw_free(values_);
    fftw_free(bins_);
  }

  void Run(float* out, const float* in) {
    const size_t hop = size_ - (kTaps - 1);
    for (size_t channel = 0; channel < kChannels; ++channel) {
      std::vector<double>& history = history_[channel];
      for (size_t done = 0; done < kFrames; done += hop) {
        const size_t part = std::min(hop, kFrames - done);
        const size_t at = done * kChannels + channel;
        std::copy(history.begin(), history.end(), values_);
        double* const fresh = values_ + kTaps - 1;
        for (size_t i = 0; i < part; ++i) fresh[i] = in[at + i * kChannels];
        std::fill(fresh + part, values_ + size_, 0.0);
        std::copy_n(values_ + part, kTaps - 1, history.begin());
        fftw_execute(forward_);
        // By hand, as the product of the standard library looks for infinities.
        for (size_t i = 0; i <= size_ / 2; ++i) {
          const double re = bins_[i][0], im = bins_[i][1];
          bins_[i][0] = re * spectrum_[i].real() - im * spectrum_[i].imag();
          bins_[i][1] = re * spectrum_[i].imag() + im * spectrum_[i].real();
        }
        fftw_execute(inverse_);
        for (size_t i = 0; i < part; ++i) out[at + i * kChannels] = static_cast<float>(fresh[i]);
      }
    }
  }

 private:
  std::complex<double>* Bins() const { return reinterpret_cast<std::complex<double>*>(bins_); }

  size_t size_;
  double* values_;
  fftw_complex* bins_;
  fftw_plan forward_, inverse_;
  std::vector<std::complex<double>> spectrum_;
  std::vector<double> history_[kChannels];
};

// Each input goes to all outputs that it has a part in, which are next to each other.
class Direct {
 public:
  explicit Direct(size_t) : sums_(kFrames + kTaps) {
    const CQnFIR filter = Designed();
    taps_.assign(filter.h, filter.h + kTaps);
  }
  void Run(float* out, const float* in) {
    for (size_t channel = 0; channel < kChannels; ++channel) {
      std::fill(sums_.begin(), sums_.end(), 0.0f);
      for (size_t i = 0; i < kFrames; ++i) {
        const float x = in[i * kChannels + channel];
        for (size_t k = 0; k < kTaps; ++k) sums_[i + k] += x * taps_[k];
      }
      for (size_t i = 0; i < kFrames; ++i) out[i * kChannels + channel] = sums_[i];
    }
  }

 private:
  std::vector<float> taps_, sums_;
};

template <class Peer>
void Register(const std::string& who, size_t size) {
  benchmark::RegisterBenchmark(("fir/1023taps/1s_stereo/" + who).c_str(), [=](benchmark::State& state) {
    const std::vector<float> in = Noise();
    std::vector<float> out(in.size());
    Peer peer(size);
    for (auto _ : state) {
      peer.Run(out.data(), in.data());
      benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(in.size()));
  });
}

const bool registered = [] {
  Register<Ours>("ours", 0);
  for (const size_t size : {2048, 4096, 8192, 16384})
    Register<OverlapSave>("fftw_overlap_save_" + std::to_string(size), size);
  Register<Direct>("loop_axpy", 0);
  return true;
}();

}  // namespace
