// Peaks, root mean squares and sums of stereo samples beside a plain loop at -O3 and beside only reading the
// memory.
// Names: level/<measure>_<type>/<samples>/<who>.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "qn/audio/qncopy_internal.h"
#include "qn/audio/qncopy_rule.h"
#include "qn/audio/qnmix.h"

namespace {

constexpr size_t kCounts[] = {4096, 16777216};
constexpr DWORD kChannels = 2;
constexpr DWORD kClipRun = 3;

// Noise of a type at half of full scale, made once a type.
const std::vector<uint8_t>& NoiseOf(QNSAMPLETYPE type) {
  static std::vector<uint8_t> noise;
  static QNSAMPLETYPE made = QNST_NONE;
  if (made == type) return noise;
  made = type;
  constexpr size_t kOnce = 1 << 20;
  std::vector<double> once(kOnce);
  std::mt19937_64 random(1);
  for (double& x : once) x = static_cast<double>(static_cast<int64_t>(random())) * 0x1p-64;
  const size_t bytes = kOnce * static_cast<size_t>(QnAudio_BytesFromSampleType(type));
  noise.resize(bytes * 16);
  QnAudio_GetCopyFunction2(type, QNST_FLOAT64)(noise.data(), once.data(), kOnce, 1.0f);
  for (size_t at = bytes; at < noise.size(); at += bytes) std::copy_n(noise.data(), bytes, &noise[at]);
  return noise;
}

// ---------------------------------------------------------------- the plain loops

template <int kType>
auto Load(const uint8_t* from) {
  if constexpr (kType == QNST_PCM16) {
    return static_cast<int32_t>(qn::LoadAs<int16_t>(from));
  } else if constexpr (kType == QNST_PCM32 || kType == QNST_PCM24IN32) {
    return qn::LoadAs<int32_t>(from);
  } else {
    return qn::LoadSample<kType>(from);
  }
}

// The highest magnitude of each channel, the last frame that has it and the longest run at full scale; of
// floats, as of ours, the magnitude alone.
template <int kType>
double PlainPeak(const uint8_t* src, size_t frames) {
  using Sample = decltype(Load<kType>(src));
  const auto full = static_cast<Sample>(qn::kForm<kType>.isFloat ? 1.0 : qn::HighRail(qn::kForm<kType>));
  struct {
    Sample highest;
    size_t frame, run, longest;
  } channels[kChannels] = {};
  for (size_t i = 0; i < frames; ++i) {
    for (auto& channel : channels) {
      const Sample size = static_cast<Sample>(std::abs(Load<kType>(src)));
      src += qn::kForm<kType>.bytes;
      if constexpr (kType == QNST_FLOAT32) {
        channel.highest = std::max(channel.highest, size);
        continue;
      }
      if (size >= channel.highest) {
        channel.highest = size;
        channel.frame = i;
      }
      channel.run = size >= full ? channel.run + 1 : 0;
      channel.longest = std::max(channel.longest, channel.run);
    }
  }
  double all = 0;
  for (const auto& channel : channels) {
    all += static_cast<double>(channel.highest) + static_cast<double>(channel.frame + channel.longest);
  }
  return all;
}

template <int kType, bool kMagnitudes>
double PlainSum(const uint8_t* src, size_t frames) {
  using Sample = decltype(Load<kType>(src));
  std::conditional_t<std::is_integral_v<Sample>, int64_t, double> sums[kChannels] = {};
  for (size_t i = 0; i < frames; ++i) {
    for (auto& sum : sums) {
      const auto sample = static_cast<std::remove_reference_t<decltype(sum)>>(Load<kType>(src));
      sum += kMagnitudes ? std::abs(sample) : sample * sample;
      src += qn::kForm<kType>.bytes;
    }
  }
  return static_cast<double>(sums[0]) + static_cast<double>(sums[1]);
}

double ReadMemory(const uint8_t* src, size_t bytes) {
  uint64_t all = 0;
  for (size_t i = 0; i < bytes / 8; ++i) all |= reinterpret_cast<const uint64_t*>(src)[i];
  return static_cast<double>(all);
}

// ---------------------------------------------------------------- registration

template <class Run>
void Register(const std::string& name, QNSAMPLETYPE type, size_t samples, Run run) {
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    const uint8_t* const src = NoiseOf(type).data();
    for (auto _ : state) {
      auto result = run(src, samples / kChannels);
      benchmark::DoNotOptimize(result);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(samples));
  });
}

template <int kType, class Ours, class Loop>
void RegisterMeasure(const char* measure, Ours ours, Loop loop) {
  const QNSAMPLETYPE type = static_cast<QNSAMPLETYPE>(kType);
  for (const size_t samples : kCounts) {
    const std::string name = std::string("level/") + measure + "_" + qn::SampleTypeName(type) + "/" +
                             std::to_string(samples) + "/";
    Register(name + "ours", type, samples, [=](const uint8_t* src, size_t frames) {
      WAVEFORMATEX format;
      QnAudio_InitWfx(&format, 48000, type, kChannels);
      return ours(&format, src, static_cast<DWORD>(frames));
    });
    Register(name + "loop", type, samples, loop);
    Register(name + "memory", type, samples, [=](const uint8_t* src, size_t frames) {
      return ReadMemory(src, frames * kChannels * qn::kForm<kType>.bytes);
    });
  }
}

template <int kType>
void RegisterType() {
  RegisterMeasure<kType>(
      "peaks",
      [](const WAVEFORMATEX* format, const uint8_t* src, DWORD frames) {
        QNPEAKRESULT peaks[kChannels];
        QnAudio_FindPeaks(format, kClipRun, src, frames, peaks);
        return peaks[0].peak + peaks[1].peak;
      },
      PlainPeak<kType>);
  RegisterMeasure<kType>(
      "rms",
      [](const WAVEFORMATEX* format, const uint8_t* src, DWORD frames) {
        float levels[kChannels];
        QnAudio_CalcRMS(format, src, frames, levels);
        return levels[0] + levels[1];
      },
      PlainSum<kType, false>);
  if constexpr (qn::kForm<kType>.isFloat) {
    RegisterMeasure<kType>(
        "sums",
        [](const WAVEFORMATEX* format, const uint8_t* src, DWORD frames) {
          float sums[kChannels];
          QnAudio_CalcPreRMS(format, src, frames, sums, 0);
          return sums[0] + sums[1];
        },
        PlainSum<kType, true>);
  }
}

const bool registered = [] {
  RegisterType<QNST_PCM8U>();
  RegisterType<QNST_PCM8S>();
  RegisterType<QNST_PCM16>();
  RegisterType<QNST_PCM24>();
  RegisterType<QNST_PCM24IN32>();
  RegisterType<QNST_PCM32>();
  RegisterType<QNST_FLOAT32>();
  RegisterType<QNST_FLOAT64>();
  return true;
}();

}  // namespace
