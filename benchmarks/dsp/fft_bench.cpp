// The transforms beside their peers: FFTW with a plan that it estimates and one that it measures, FFmpeg's
// av_tx, and KISS FFT where it has the type. The rate is the customary one, 5 n log2 n operations for complex
// points and half as many for real ones.
// Names: fft/<kind>/<points>/<who>, and fft/plan_<kind>/<points>/<who> for the time of a plan.
#include <benchmark/benchmark.h>
#include <fftw3.h>
#include <kiss_fft.h>

#include <complex>
#include <random>
#include <string>
#include <vector>

#include "hwy/aligned_allocator.h"
#include "qn/dsp/qnperf.h"

extern "C" {
#include <libavutil/tx.h>
}

namespace {

constexpr int kLeastOrder = 8, kMostOrder = 20;
// Measuring takes minutes for more than 2^16 points. What was measured is kept for the next run of the same
// case; the estimated plans come first and start from nothing.
constexpr double kMeasureSeconds = 2;

template <typename T>
struct Arrays {
  explicit Arrays(size_t count) : in(hwy::AllocateAligned<T>(count)), out(hwy::AllocateAligned<T>(count)) {
    std::mt19937 random(1);
    std::uniform_real_distribution<T> values(-1, 1);
    for (size_t i = 0; i < count; ++i) in[i] = out[i] = values(random);
  }

  hwy::AlignedFreeUniquePtr<T[]> in, out;
};

// What a peer does with `count` values: prepared by its constructor, done by Run.

class OursReal {
 public:
  using Value = double;
  explicit OursReal(int order, Arrays<double>& arrays) : data_(arrays.out.get()) {
    LONG size = 0;
    QnPerfsFFTInitAlloc_R_64f(&spec_, order, QNPERF_FFT_DIV_BY_SQRTN, QNPERF_HINT_NONE);
    QnPerfsFFTGetBufSize_R_64f(spec_, &size);
    work_.resize(static_cast<size_t>(size));
  }
  ~OursReal() { QnPerfsFFTFree_R_64f(spec_); }
  void Run() { QnPerfsFFTFwd_RToPerm_64f_I(data_, spec_, work_.data()); }

 private:
  void* spec_ = nullptr;
  double* data_;
  std::vector<BYTE> work_;
};

class OursComplex {
 public:
  using Value = float;
  explicit OursComplex(int order, Arrays<float>& arrays) : arrays_(arrays) {
    LONG size = 0;
    QnPerfsFFTInitAlloc_C_32fc(&spec_, order, QNPERF_FFT_NODIV_BY_ANY, QNPERF_HINT_NONE);
    QnPerfsFFTGetBufSize_C_32fc(spec_, &size);
    work_.resize(static_cast<size_t>(size));
  }
  ~OursComplex() { QnPerfsFFTFree_C_32fc(spec_); }
  void Run() { QnPerfsFFTFwd_CToC_32fc(arrays_.in.get(), arrays_.out.get(), spec_, work_.data()); }

 private:
  void* spec_ = nullptr;
  Arrays<float>& arrays_;
  std::vector<BYTE> work_;
};

template <unsigned kFlags>
class FftwReal {
 public:
  using Value = double;
  FftwReal(int order, Arrays<double>& arrays) {
    if (kFlags == FFTW_ESTIMATE) fftw_forget_wisdom();
    fftw_set_timelimit(order > 16 ? kMeasureSeconds : FFTW_NO_TIMELIMIT);
    // The spectrum has a bin more than the values.
    spectrum_.resize((size_t{1} << order) / 2 + 1);
    plan_ = fftw_plan_dft_r2c_1d(1 << order, arrays.in.get(),
                                 reinterpret_cast<fftw_complex*>(spectrum_.data()), kFlags);
  }
  ~FftwReal() { fftw_destroy_plan(plan_); }
  void Run() { fftw_execute(plan_); }

 private:
  fftw_plan plan_;
  std::vector<std::complex<double>> spectrum_;
};

template <unsigned kFlags>
class FftwComplex {
 public:
  using Value = float;
  FftwComplex(int order, Arrays<float>& arrays) {
    if (kFlags == FFTW_ESTIMATE) fftwf_forget_wisdom();
    fftwf_set_timelimit(order > 16 ? kMeasureSeconds : FFTW_NO_TIMELIMIT);
    plan_ = fftwf_plan_dft_1d(1 << order, reinterpret_cast<fftwf_complex*>(arrays.in.get()),
                              reinterpret_cast<fftwf_complex*>(arrays.out.get()), FFTW_FORWARD, kFlags);
  }
  ~FftwComplex() { fftwf_destroy_plan(plan_); }
  void Run() { fftwf_execute(plan_); }

 private:
  fftwf_plan plan_;
};

template <typename T, AVTXType kType, bool kReal>
class AvTx {
 public:
  using Value = T;
  AvTx(int order, Arrays<T>& arrays) : arrays_(arrays) {
    const T scale = 1;
    if (av_tx_init(&context_, &run_, kType, 0, 1 << order, &scale, 0) < 0) run_ = nullptr;
    if (kReal) spectrum_ = hwy::AllocateAligned<T>((size_t{1} << order) + 16);
  }
  ~AvTx() { av_tx_uninit(&context_); }
  bool IsMade() const { return run_ != nullptr; }
  void Run() {
    run_(context_, kReal ? spectrum_.get() : arrays_.out.get(), arrays_.in.get(),
         kReal ? sizeof(T) : 2 * sizeof(T));
  }

 private:
  AVTXContext* context_ = nullptr;
  av_tx_fn run_ = nullptr;
  Arrays<T>& arrays_;
  hwy::AlignedFreeUniquePtr<T[]> spectrum_;
};

class Kiss {
 public:
  using Value = float;
  Kiss(int order, Arrays<float>& arrays)
      : arrays_(arrays), config_(kiss_fft_alloc(1 << order, 0, nullptr, nullptr)) {}
  ~Kiss() { kiss_fft_free(config_); }
  void Run() {
    kiss_fft(config_, reinterpret_cast<kiss_fft_cpx*>(arrays_.in.get()),
             reinterpret_cast<kiss_fft_cpx*>(arrays_.out.get()));
  }

 private:
  Arrays<float>& arrays_;
  kiss_fft_cfg config_;
};

template <class Peer>
void RunTransform(benchmark::State& state, int order, bool real) {
  const double points = static_cast<double>(size_t{1} << order);
  Arrays<typename Peer::Value> arrays((size_t{1} << order) * (real ? 1 : 2));
  Peer peer(order, arrays);
  if constexpr (requires { peer.IsMade(); }) {
    if (!peer.IsMade()) return state.SkipWithError("has no such transform");
  }
  for (auto _ : state) {
    peer.Run();
    benchmark::ClobberMemory();
  }
  state.counters["flops"] =
      benchmark::Counter(points * order * (real ? 2.5 : 5.0), benchmark::Counter::kIsIterationInvariantRate);
}

template <class Peer>
void RunPlan(benchmark::State& state, int order, bool real) {
  Arrays<typename Peer::Value> arrays((size_t{1} << order) * (real ? 1 : 2));
  for (auto _ : state) Peer peer(order, arrays);
}

template <class Peer>
void Register(const char* who, bool real, bool plans) {
  for (int order = kLeastOrder; order <= kMostOrder; ++order) {
    const std::string rest =
        std::string(real ? "real_f64/" : "complex_f32/") + std::to_string(1 << order) + "/" + who;
    benchmark::RegisterBenchmark(("fft/" + rest).c_str(),
                                 [=](benchmark::State& state) { RunTransform<Peer>(state, order, real); });
    if (plans && order % 2 == 0)
      benchmark::RegisterBenchmark(("fft/plan_" + rest).c_str(),
                                   [=](benchmark::State& state) { RunPlan<Peer>(state, order, real); });
  }
}

const bool registered = [] {
  Register<OursReal>("ours", true, true);
  Register<FftwReal<FFTW_ESTIMATE>>("fftw_estimate", true, true);
  Register<FftwReal<FFTW_MEASURE>>("fftw_measure", true, false);
  Register<AvTx<double, AV_TX_DOUBLE_RDFT, true>>("avutil_tx", true, false);
  Register<OursComplex>("ours", false, true);
  Register<FftwComplex<FFTW_ESTIMATE>>("fftw_estimate", false, true);
  Register<FftwComplex<FFTW_MEASURE>>("fftw_measure", false, false);
  Register<AvTx<float, AV_TX_FLOAT_FFT, false>>("avutil_tx", false, false);
  Register<Kiss>("kissfft", false, false);
  return true;
}();

}  // namespace
