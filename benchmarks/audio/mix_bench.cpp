// Every mix kernel beside its peers: a loop that moves the same bytes and computes next to nothing, a plain
// loop such as a program would have without a library, and where they have the pair, libavutil's float_dsp
// and the matrix of libswresample.
// Names: mix/<destination>_from_<source>/<samples>/<gain>/<who>.
#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <utility>

#include "qn/audio/qncopy_internal.h"
#include "qn/audio/qnmix_internal.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>

// libavutil exports it without a header: the second and the third member add src * mul to dst.
struct AVFloatDSPContext {
  void (*vectorFmul)(float* dst, const float* src0, const float* src1, int len);
  void (*vectorFmacScalar)(float* dst, const float* src, float mul, int len);
  void (*vectorDmacScalar)(double* dst, const double* src, double mul, int len);
};
AVFloatDSPContext* avpriv_float_dsp_alloc(int strict);
}

namespace {

constexpr size_t kCounts[] = {4096, 16777216};
constexpr double kGains[] = {1.0, 0.7};
constexpr size_t kLongest = 16777216;

uint8_t* Buffer() {
  void* const memory = std::aligned_alloc(4096, kLongest * sizeof(double));
  std::memset(memory, 0, kLongest * sizeof(double));
  return static_cast<uint8_t*>(memory);
}
uint8_t* Destination() {
  static uint8_t* const buffer = Buffer();
  return buffer;
}

// Quiet noise of the type, converted from doubles.
const uint8_t* SourceOf(QNSAMPLETYPE type) {
  static uint8_t* const buffer = Buffer();
  static QNSAMPLETYPE made = QNST_NONE;
  if (made == type) return buffer;
  made = type;
  constexpr size_t kNoise = 1 << 16;
  static const std::array<double, kNoise> noise = [] {
    std::array<double, kNoise> values;
    std::mt19937_64 random(1);
    for (double& x : values) x = static_cast<double>(static_cast<int64_t>(random())) * 0x1p-64;
    return values;
  }();
  const size_t bytes = kNoise * static_cast<size_t>(qn::kSampleForms[qn::SampleFormIndex(type)].bytes);
  QnAudio_GetCopyFunction2(type, QNST_FLOAT64)(buffer, noise.data(), kNoise, 1.0f);
  for (size_t at = bytes; at < bytes * (kLongest / kNoise); at += bytes) {
    std::memcpy(buffer + at, buffer, bytes);
  }
  return buffer;
}

// Reads both buffers and writes the one.
__attribute__((target_clones("avx512f", "avx2", "default"))) void MoveBytes(uint64_t* __restrict dst,
                                                                            const uint64_t* __restrict src,
                                                                            size_t dstWords,
                                                                            size_t srcWords) {
  const size_t common = dstWords < srcWords ? dstWords : srcWords;
  for (size_t i = 0; i < common; ++i) dst[i] ^= src[i];
  for (size_t i = common; i < dstWords; ++i) dst[i] ^= 1;
  uint64_t all = 0;
  for (size_t i = common; i < srcWords; ++i) all |= src[i];
  benchmark::DoNotOptimize(all);
}

// What one would write without thought for the last bit: float arithmetic up to 24 bits, double beyond.
template <int kDst, int kSrc>
void PlainLoop(uint8_t* __restrict dst, const uint8_t* __restrict src, size_t samples, double gain) {
  constexpr qn::SampleForm to = qn::kForm<kDst>, from = qn::kForm<kSrc>;
  constexpr bool kDouble = kDst == QNST_FLOAT64 || kSrc == QNST_FLOAT64 || kDst == QNST_PCM32;
  using Real = std::conditional_t<kDouble, double, float>;
  const Real factor = static_cast<Real>(gain * (qn::FullScale(to) / qn::FullScale(from)));
  for (size_t i = 0; i < samples; ++i, dst += to.bytes, src += from.bytes) {
    Real x =
        static_cast<Real>(qn::LoadSample<kDst>(dst)) + static_cast<Real>(qn::LoadSample<kSrc>(src)) * factor;
    if constexpr (to.isFloat) {
      using T = std::conditional_t<kDst == QNST_FLOAT32, float, double>;
      const T sum = static_cast<T>(x);
      std::memcpy(dst, &sum, sizeof sum);
    } else {
      constexpr Real kLow = static_cast<Real>(qn::LowRail(to)), kHigh = static_cast<Real>(qn::HighRail(to));
      x = x < kLow ? kLow : x;
      x = x > kHigh ? kHigh : x;
      qn::StoreWord<kDst>(dst, static_cast<uint32_t>(std::lrint(x)));
    }
  }
}

using PlainFunction = void (*)(uint8_t*, const uint8_t*, size_t, double);
template <size_t... kPlace>
constexpr std::array<PlainFunction, sizeof...(kPlace)> PlainLoops(std::index_sequence<kPlace...>) {
  return {PlainLoop<qn::kSampleForms[kPlace / qn::kMixForms].type,
                    qn::kSampleForms[kPlace % qn::kMixForms].type>...};
}

// Two planar channels to one, in the blocks that a program would have.
void RunMatrix(benchmark::State& state, size_t samples, double gain) {
  SwrContext* swr = nullptr;
  AVChannelLayout mono, stereo;
  av_channel_layout_default(&mono, 1);
  av_channel_layout_default(&stereo, 2);
  swr_alloc_set_opts2(&swr, &mono, AV_SAMPLE_FMT_S16, 48000, &stereo, AV_SAMPLE_FMT_S16P, 48000, 0, nullptr);
  const double matrix[2] = {1.0, gain};
  swr_set_matrix(swr, matrix, 2);
  if (swr_init(swr) < 0) return state.SkipWithError("swr_init");
  uint8_t* const to = Destination();
  const uint8_t* const from = SourceOf(QNST_PCM16);
  constexpr size_t kBlock = 4096;  // for more it allocates
  for (auto _ : state) {
    for (size_t at = 0; at < samples * 2; at += kBlock * 2) {
      uint8_t* out = to + at;
      const uint8_t* in[2] = {to + samples * 2 + at, from + at};
      swr_convert(swr, &out, kBlock, in, kBlock);
    }
    benchmark::ClobberMemory();
  }
  swr_free(&swr);
}

template <typename Run>
void Register(const std::string& name, size_t samples, Run run) {
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    run(state);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(samples));
  });
}

// The destination starts from silence, and one call an iteration does not bring it to the rails often enough
// to matter: no kernel's speed depends on the values.
template <typename Mix>
void RegisterMix(const std::string& name, QNSAMPLETYPE src, size_t samples, Mix mix) {
  Register(name, samples, [=](benchmark::State& state) {
    const uint8_t* const from = SourceOf(src);
    uint8_t* const to = Destination();
    std::memset(to, 0, kLongest * sizeof(double));
    for (auto _ : state) {
      mix(to, from);
      benchmark::ClobberMemory();
    }
  });
}

void RegisterPair(const qn::MixKernel& pair, PlainFunction plain, size_t samples, double gain) {
  const QNSAMPLETYPE dst = pair.dst, src = pair.src;
  const std::string name = std::string("mix/") + qn::SampleTypeName(dst) + "_from_" +
                           qn::SampleTypeName(src) + "/" + std::to_string(samples) + "/" +
                           (gain == 1.0 ? "1.0" : "0.7") + "/";
  const auto words = [samples](QNSAMPLETYPE type) {
    return samples * static_cast<size_t>(qn::kSampleForms[qn::SampleFormIndex(type)].bytes) / 8;
  };
  RegisterMix(name + "ours", src, samples, [=](uint8_t* to, const uint8_t* from) {
    QnAudio_GetMixFunction2(dst, src)(to, from, static_cast<LONG>(samples), 1, &gain);
  });
  RegisterMix(name + "memory", src, samples, [=](uint8_t* to, const uint8_t* from) {
    MoveBytes(reinterpret_cast<uint64_t*>(to), reinterpret_cast<const uint64_t*>(from), words(dst),
              words(src));
  });
  RegisterMix(name + "loop", src, samples,
              [=](uint8_t* to, const uint8_t* from) { plain(to, from, samples, gain); });
  const int count = static_cast<int>(samples);
  static AVFloatDSPContext* const dsp = avpriv_float_dsp_alloc(0);
  if (dst == QNST_FLOAT32 && src == QNST_FLOAT32) {
    RegisterMix(name + "float_dsp", src, samples, [=](uint8_t* to, const uint8_t* from) {
      dsp->vectorFmacScalar(reinterpret_cast<float*>(to), reinterpret_cast<const float*>(from),
                            static_cast<float>(gain), count);
    });
  } else if (dst == QNST_FLOAT64 && src == QNST_FLOAT64) {
    RegisterMix(name + "float_dsp", src, samples, [=](uint8_t* to, const uint8_t* from) {
      dsp->vectorDmacScalar(reinterpret_cast<double*>(to), reinterpret_cast<const double*>(from), gain,
                            count);
    });
  } else if (dst == QNST_PCM16 && src == QNST_PCM16) {
    Register(name + "swresample", samples, [=](benchmark::State& state) { RunMatrix(state, samples, gain); });
  }
}

const bool registered = [] {
  static constexpr auto kPlain = PlainLoops(std::make_index_sequence<qn::kMixForms * qn::kMixForms>());
  const std::span<const qn::MixKernel> kernels = qn::MixKernels();
  for (size_t i = 0; i < kernels.size(); ++i) {
    for (const size_t samples : kCounts) {
      for (const double gain : kGains) RegisterPair(kernels[i], kPlain[i], samples, gain);
    }
  }
  return true;
}();

}  // namespace
