// Every copy kernel beside its peers: memcpy of as many bytes as the kernel reads and writes, libswresample
// where it has the pair, and a plain loop such as a program would have without a library.
// Names: copy/<destination>_from_<source>/<samples>/<gain>/<who>.
#include <benchmark/benchmark.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <type_traits>

#include "qn/audio/qncopy_internal.h"
#include "qn/audio/qncopy_rule.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace {

constexpr size_t kCounts[] = {4096, 16777216};
constexpr float kGains[] = {1.0f, 0.5f};

// ---------------------------------------------------------------- buffers

uint8_t* Buffer() {
  constexpr size_t kBytes = 16777216 * sizeof(double);
  void* const memory = std::aligned_alloc(4096, kBytes);
  std::memset(memory, 0, kBytes);
  return static_cast<uint8_t*>(memory);
}

uint8_t* Destination() {
  static uint8_t* const buffer = Buffer();
  return buffer;
}

// Noise of the type, a little above full scale for floats. It is made again when the type changes.
const uint8_t* SourceOf(QNSAMPLETYPE type) {
  static uint8_t* const buffer = Buffer();
  static QNSAMPLETYPE made = QNST_NONE;
  if (made == type) return buffer;
  made = type;
  constexpr size_t kNoise = 1 << 20;
  std::mt19937_64 random(1);
  for (size_t i = 0; i < kNoise; ++i) {
    const double x = static_cast<double>(static_cast<int64_t>(random())) * 0x1.1p-63;
    const float single = static_cast<float>(x);
    const uint64_t bits = random();
    if (type == QNST_FLOAT32) {
      std::memcpy(buffer + 4 * i, &single, 4);
    } else if (type == QNST_FLOAT64) {
      std::memcpy(buffer + 8 * i, &x, 8);
    } else {
      std::memcpy(buffer + 8 * i, &bits, 8);
    }
    if (type == QNST_PCM24IN32) {
      const int32_t words[2] = {static_cast<int32_t>(bits) >> 8, static_cast<int32_t>(bits >> 32) >> 8};
      std::memcpy(buffer + 8 * i, words, 8);
    }
  }
  const size_t bytes = kNoise * static_cast<size_t>(qn::kSampleForms[qn::SampleFormIndex(type)].bytes);
  for (size_t at = bytes; at < bytes * 16; at += bytes) std::memcpy(buffer + at, buffer, bytes);
  return buffer;
}

// ---------------------------------------------------------------- the plain loop

template <int kType>
auto ReadPlain(const uint8_t* from) {
  if constexpr (kType == QNST_PCM8U) {
    return static_cast<int32_t>(*from) - 128;
  } else if constexpr (kType == QNST_PCM8S) {
    return static_cast<int32_t>(static_cast<int8_t>(*from));
  } else if constexpr (kType == QNST_PCM16) {
    return static_cast<int32_t>(qn::LoadAs<int16_t>(from));
  } else if constexpr (kType == QNST_PCM16BE) {
    return static_cast<int32_t>(static_cast<int16_t>(__builtin_bswap16(qn::LoadAs<uint16_t>(from))));
  } else if constexpr (kType == QNST_PCM24) {
    return static_cast<int32_t>(from[0] << 8 | from[1] << 16 | static_cast<uint32_t>(from[2]) << 24) >> 8;
  } else if constexpr (kType == QNST_PCM24BE) {
    return static_cast<int32_t>(from[2] << 8 | from[1] << 16 | static_cast<uint32_t>(from[0]) << 24) >> 8;
  } else if constexpr (kType == QNST_PCM32BE) {
    return static_cast<int32_t>(__builtin_bswap32(qn::LoadAs<uint32_t>(from)));
  } else if constexpr (kType == QNST_FLOAT32) {
    return qn::LoadAs<float>(from);
  } else if constexpr (kType == QNST_FLOAT64) {
    return qn::LoadAs<double>(from);
  } else {
    return qn::LoadAs<int32_t>(from);
  }
}

template <typename T>
void Put(uint8_t* to, T value) {
  std::memcpy(to, &value, sizeof value);
}

template <int kType, typename T>
void WritePlain(uint8_t* to, T value) {
  if constexpr (kType == QNST_PCM8U) {
    *to = static_cast<uint8_t>(value + 128);
  } else if constexpr (kType == QNST_PCM8S) {
    *to = static_cast<uint8_t>(value);
  } else if constexpr (kType == QNST_PCM16) {
    Put(to, static_cast<int16_t>(value));
  } else if constexpr (kType == QNST_PCM16BE) {
    Put(to, __builtin_bswap16(static_cast<uint16_t>(value)));
  } else if constexpr (kType == QNST_PCM24) {
    to[0] = static_cast<uint8_t>(value);
    to[1] = static_cast<uint8_t>(value >> 8);
    to[2] = static_cast<uint8_t>(value >> 16);
  } else if constexpr (kType == QNST_PCM24BE) {
    to[0] = static_cast<uint8_t>(value >> 16);
    to[1] = static_cast<uint8_t>(value >> 8);
    to[2] = static_cast<uint8_t>(value);
  } else if constexpr (kType == QNST_PCM32BE) {
    Put(to, __builtin_bswap32(static_cast<uint32_t>(value)));
  } else if constexpr (kType == QNST_FLOAT32) {
    Put(to, static_cast<float>(value));
  } else if constexpr (kType == QNST_FLOAT64) {
    Put(to, static_cast<double>(value));
  } else {
    Put(to, static_cast<int32_t>(value));
  }
}

// What one would write without thought for the last bit: shifts between integers, float arithmetic up to 24
// bits, double beyond.
template <int kDst, int kSrc>
void PlainLoop(uint8_t* dst, const uint8_t* src, size_t samples, float gain) {
  constexpr qn::SampleForm to = qn::kForm<kDst>, from = qn::kForm<kSrc>;
  constexpr bool kDouble = kDst == QNST_FLOAT64 || kSrc == QNST_FLOAT64 || (!to.isFloat && to.bits == 32) ||
                           (!from.isFloat && from.bits == 32);
  using Real = std::conditional_t<kDouble, double, float>;
  if (!to.isFloat && !from.isFloat && gain == 1.0f) {
    for (size_t i = 0; i < samples; ++i, dst += to.bytes, src += from.bytes) {
      const int32_t x = static_cast<int32_t>(ReadPlain<kSrc>(src));
      constexpr int kUp = to.bits > from.bits ? to.bits - from.bits : 0;
      constexpr int kDown = from.bits > to.bits ? from.bits - to.bits : 0;
      WritePlain<kDst>(dst, static_cast<int32_t>(static_cast<uint32_t>(x) << kUp) >> kDown);
    }
    return;
  }
  const Real factor = static_cast<Real>(gain * (qn::FullScale(to) / qn::FullScale(from)));
  for (size_t i = 0; i < samples; ++i, dst += to.bytes, src += from.bytes) {
    Real x = static_cast<Real>(ReadPlain<kSrc>(src)) * factor;
    if constexpr (to.isFloat) {
      WritePlain<kDst>(dst, x);
    } else {
      constexpr Real kLow = static_cast<Real>(qn::LowRail(to)), kHigh = static_cast<Real>(qn::HighRail(to));
      x = x < kLow ? kLow : x;
      x = x > kHigh ? kHigh : x;
      WritePlain<kDst>(dst, std::lrint(x));
    }
  }
}

using PlainFunction = void (*)(uint8_t*, const uint8_t*, size_t, float);
template <size_t... kPlace>
constexpr std::array<PlainFunction, sizeof...(kPlace)> PlainLoops(std::index_sequence<kPlace...>) {
  return {PlainLoop<qn::kSampleForms[kPlace / qn::kSampleFormCount].type,
                    qn::kSampleForms[kPlace % qn::kSampleFormCount].type>...};
}

// ---------------------------------------------------------------- libswresample

AVSampleFormat SwrFormat(QNSAMPLETYPE type) {
  switch (type) {
    case QNST_PCM8U:
      return AV_SAMPLE_FMT_U8;
    case QNST_PCM16:
      return AV_SAMPLE_FMT_S16;
    case QNST_PCM32:
      return AV_SAMPLE_FMT_S32;
    case QNST_FLOAT32:
      return AV_SAMPLE_FMT_FLT;
    case QNST_FLOAT64:
      return AV_SAMPLE_FMT_DBL;
    default:
      return AV_SAMPLE_FMT_NONE;
  }
}

void RunSwresample(benchmark::State& state, QNSAMPLETYPE dst, QNSAMPLETYPE src, size_t samples, float gain) {
  SwrContext* swr = nullptr;
  AVChannelLayout mono;
  av_channel_layout_default(&mono, 1);
  swr_alloc_set_opts2(&swr, &mono, SwrFormat(dst), 48000, &mono, SwrFormat(src), 48000, 0, nullptr);
  av_opt_set_double(swr, "rematrix_volume", gain, 0);
  if (swr_init(swr) < 0) return state.SkipWithError("swr_init");
  const uint8_t* in = SourceOf(src);
  uint8_t* out = Destination();
  const int count = static_cast<int>(samples);
  for (auto _ : state) {
    swr_convert(swr, &out, count, &in, count);
    benchmark::ClobberMemory();
  }
  swr_free(&swr);
}

// ---------------------------------------------------------------- registration

template <typename Run>
void Register(const std::string& name, size_t samples, Run run) {
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    run(state);
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(samples));
  });
}

void RegisterPair(const qn::CopyKernel& pair, PlainFunction plain, size_t samples, float gain) {
  const qn::CopyPair& sizes = qn::FindCopyPair(qn::SampleFormIndex(pair.dst), qn::SampleFormIndex(pair.src));
  const QNSAMPLETYPE dst = pair.dst, src = pair.src;
  const size_t bytes = samples * (sizes.dstBytes + sizes.srcBytes) / 2;
  const std::string name = std::string("copy/") + qn::SampleTypeName(dst) + "_from_" +
                           qn::SampleTypeName(src) + "/" + std::to_string(samples) + "/" +
                           (gain == 1.0f ? "1.0" : "0.5") + "/";
  Register(name + "ours", samples, [=](benchmark::State& state) {
    const QNCOPYFUNCTION kernel = QnAudio_GetCopyFunction2(dst, src);
    const uint8_t* const from = SourceOf(src);
    uint8_t* const to = Destination();
    for (auto _ : state) {
      kernel(to, from, static_cast<LONG>(samples), gain);
      benchmark::ClobberMemory();
    }
  });
  Register(name + "memcpy", samples, [=](benchmark::State& state) {
    const uint8_t* const from = SourceOf(src);
    uint8_t* const to = Destination();
    for (auto _ : state) {
      std::memcpy(to, from, bytes);
      benchmark::ClobberMemory();
    }
  });
  Register(name + "loop", samples, [=](benchmark::State& state) {
    const uint8_t* const from = SourceOf(src);
    uint8_t* const to = Destination();
    for (auto _ : state) {
      plain(to, from, samples, gain);
      benchmark::ClobberMemory();
    }
  });
  if (SwrFormat(dst) == AV_SAMPLE_FMT_NONE || SwrFormat(src) == AV_SAMPLE_FMT_NONE) return;
  Register(name + "swresample", samples,
           [=](benchmark::State& state) { RunSwresample(state, dst, src, samples, gain); });
}

const bool registered = [] {
  static constexpr auto kPlain =
      PlainLoops(std::make_index_sequence<qn::kSampleFormCount * qn::kSampleFormCount>());
  const std::span<const qn::CopyKernel> kernels = qn::CopyKernels();
  for (size_t i = 0; i < kernels.size(); ++i) {
    if (kernels[i].scalar == nullptr) continue;
    for (const size_t samples : kCounts) {
      for (const float gain : kGains) RegisterPair(kernels[i], kPlain[i], samples, gain);
    }
  }
  return true;
}();

}  // namespace
