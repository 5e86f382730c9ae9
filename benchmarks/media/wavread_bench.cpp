// Reading a ten-minute stereo file of 16-bit samples as float: the library's road (format, blocks of bytes,
// copy kernel) beside libsndfile. The file lies in the page cache.
#include <benchmark/benchmark.h>
#include <sndfile.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "benchmarks/media/audio_file.h"
#include "qn/audio/qncopy.h"
#include "qn/media/qnwav.h"
#include "qn/platform/file.h"

namespace {

using qnbench::kChannels;

const qnbench::AudioFile& Input() {
  return qnbench::TenMinutes(QNST_PCM16);
}

void ReadByLibrary(benchmark::State& state, DWORD blockFrames) {
  const std::u16string name = Input().Name();
  std::vector<uint8_t> bytes(blockFrames * kChannels * 2);
  std::vector<float> samples(blockFrames * kChannels);
  for (auto _ : state) {
    uint64_t frames = 0;
    uint64_t dataStart = 0;
    WAVEFORMATEX* const format = QnGetFileWfx(name.c_str(), &frames, &dataStart);
    if (!format || frames != static_cast<uint64_t>(Input().Frames()))
      return state.SkipWithError("not readable");
    const auto kernel = QnAudio_GetCopyFunction2(QNST_FLOAT32, QnAudio_GetSampleType(format));
    const HANDLE file =
        CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    SetFilePointer(file, static_cast<LONG>(dataStart), nullptr, FILE_BEGIN);
    DWORD got = 0;
    while (ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &got, nullptr) && got > 0) {
      kernel(samples.data(), bytes.data(), static_cast<LONG>(got / 2), 1.0f);
      benchmark::DoNotOptimize(samples.data());
    }
    CloseHandle(file);
    std::free(format);
  }
  state.SetItemsProcessed(state.iterations() * Input().Frames() * kChannels);
}

void ReadBySndfile(benchmark::State& state, sf_count_t blockFrames) {
  std::vector<float> samples(static_cast<size_t>(blockFrames) * kChannels);
  for (auto _ : state) {
    SF_INFO info = {};
    SNDFILE* const file = sf_open(Input().Native().c_str(), SFM_READ, &info);
    if (!file || info.frames != Input().Frames()) return state.SkipWithError("not readable");
    while (sf_readf_float(file, samples.data(), blockFrames) > 0) benchmark::DoNotOptimize(samples.data());
    sf_close(file);
  }
  state.SetItemsProcessed(state.iterations() * Input().Frames() * kChannels);
}

const int registered = [] {
  for (const int blockFrames : {4096, 16384, 65536}) {
    const std::string prefix = "wavread/s16_f32_10min/" + std::to_string(blockFrames) + "/";
    benchmark::RegisterBenchmark((prefix + "ours").c_str(), ReadByLibrary, static_cast<DWORD>(blockFrames));
    benchmark::RegisterBenchmark((prefix + "sndfile").c_str(), ReadBySndfile,
                                 static_cast<sf_count_t>(blockFrames));
  }
  return 0;
}();

}  // namespace
