// The first resampler: linear interpolation over a large buffer beside memcpy of as many bytes as it reads
// and writes, and over blocks of 4,096 frames with each quality. Items are frames out. Names:
// resample/<source rate>_<destination rate>/<mono or stereo>/first_<case>_<type>/<who>.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "qn/audio/qncopy.h"
#include "qn/audio/qnresample.h"

namespace {

constexpr size_t kBlock = 4096, kLarge = 1 << 24;

std::vector<uint8_t> Noise(QNSAMPLETYPE type, size_t samples) {
  std::vector<float> noise(samples);
  std::mt19937 random(1);
  std::uniform_real_distribution<float> distribution(-.5f, .5f);
  for (float& x : noise) x = distribution(random);
  std::vector<uint8_t> bytes(samples * static_cast<size_t>(QnAudio_BytesFromSampleType(type)));
  QnAudio_GetCopyFunction2(type, QNST_FLOAT32)(bytes.data(), noise.data(), static_cast<LONG>(samples), 1.0f);
  return bytes;
}

struct Case {
  const char* name;
  QNSAMPLETYPE type;
  DWORD flags;
  size_t frames;
};

void Register(const Case& test, int src, int dst, int channels) {
  const std::string name = "resample/" + std::to_string(src) + "_" + std::to_string(dst) +
                           (channels == 1 ? "/mono/" : "/stereo/") + test.name;
  const size_t frameBytes = static_cast<size_t>(channels * QnAudio_BytesFromSampleType(test.type));
  const size_t room = test.frames * static_cast<size_t>(dst) / static_cast<size_t>(src) + 2;
  benchmark::RegisterBenchmark((name + "/ours").c_str(), [=](benchmark::State& state) {
    std::vector<uint8_t> in = Noise(test.type, test.frames * static_cast<size_t>(channels));
    std::vector<uint8_t> out(room * frameBytes);
    tQNRESAMPLEINSTANCE* instance = nullptr;
    QnAudio_ResampleOpen(&instance, test.type, src, dst, channels, test.flags);
    for (auto _ : state) {
      QnAudio_ResampleEx(instance, out.data(), in.data(), static_cast<LONG>(test.frames));
      benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(QnAudio_ResampleGetDstPos(instance));
    QnAudio_ResampleClose(instance);
  });
  if (test.frames != kLarge) return;
  benchmark::RegisterBenchmark((name + "/memcpy").c_str(), [=](benchmark::State& state) {
    const size_t bytes = (test.frames + room) / 2 * frameBytes;
    const std::vector<uint8_t> in(bytes, 1);
    std::vector<uint8_t> out(bytes, 2);
    for (auto _ : state) {
      std::memcpy(out.data(), in.data(), bytes);
      benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<int64_t>(room) * static_cast<int64_t>(state.iterations()));
  });
}

const bool registered = [] {
  constexpr Case kCases[] = {
      {"first_linear_large_float", QNST_FLOAT32, QNRESAMPLE_LINEAR, kLarge},
      {"first_linear_large_16", QNST_PCM16, QNRESAMPLE_LINEAR, kLarge},
      {"first_linear_float", QNST_FLOAT32, QNRESAMPLE_LINEAR, kBlock},
      {"first_filtered_float", QNST_FLOAT32, QNRESAMPLE_FILTERED | QNRESAMPLE_LOWPASS_4TH, kBlock},
      {"first_sinc_float", QNST_FLOAT32, QNRESAMPLE_SINC, kBlock},
  };
  for (const Case& test : kCases) {
    for (const int channels : {1, 2}) {
      Register(test, 44100, 48000, channels);
      Register(test, 48000, 44100, channels);
    }
  }
  return true;
}();

}  // namespace
