// Reading ten minutes of stereo from the page cache through an audio stream: in the file's own type beside
// pread, and converted beside pread and the copy kernel.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "benchmarks/media/audio_file.h"
#include "qn/audio/qncopy.h"
#include "qn/media/qnaudiostream.h"

namespace {

using qnbench::kChannels;

void CountFrames(benchmark::State& state, const qnbench::AudioFile& file) {
  state.SetItemsProcessed(state.iterations() * file.Frames() * kChannels);
}

// `type` as the reader wants it.
void ReadByStream(benchmark::State& state, QNSAMPLETYPE stored, QNSAMPLETYPE type, DWORD blockFrames) {
  const qnbench::AudioFile& file = qnbench::TenMinutes(stored);
  std::vector<uint8_t> samples(size_t{blockFrames} * kChannels * 8);
  HQNAUDIOSTREAM stream;
  WAVEFORMATEX format = file.Format();
  if (QnAudioStream_OpenFile(&stream, file.Name().c_str(), static_cast<DWORD>(file.DataStart()),
                             static_cast<ULONGLONG>(file.Frames()), &format, nullptr, nullptr,
                             QNAUDIOSTREAM_READ_ONLY) != S_OK) {
    return state.SkipWithError("not readable");
  }
  for (auto _ : state) {
    QnAudioStream_Seek(stream, 0, 0, nullptr);
    DWORD got = 0;
    while (QnAudioStream_ReadEx(stream, samples.data(), blockFrames, &got, type) == S_OK && got > 0) {
      benchmark::DoNotOptimize(samples.data());
      benchmark::ClobberMemory();
    }
  }
  QnAudioStream_Close(stream);
  CountFrames(state, file);
}

void ReadByPread(benchmark::State& state, QNSAMPLETYPE stored, QNSAMPLETYPE type, DWORD blockFrames) {
  const qnbench::AudioFile& file = qnbench::TenMinutes(stored);
  const size_t blockBytes = size_t{blockFrames} * file.Format().nBlockAlign;
  std::vector<uint8_t> bytes(blockBytes);
  std::vector<uint8_t> samples(size_t{blockFrames} * kChannels * 8);
  const auto kernel = QnAudio_GetCopyFunction2(type, stored);
  const int descriptor = open(file.Native().c_str(), O_RDONLY);
  for (auto _ : state) {
    auto at = static_cast<off_t>(file.DataStart());
    ssize_t got;
    while ((got = pread(descriptor, bytes.data(), blockBytes, at)) > 0) {
      at += got;
      const auto count = got / (file.Format().nBlockAlign / kChannels);
      if (type != stored) kernel(samples.data(), bytes.data(), static_cast<LONG>(count), 1.0f);
      benchmark::DoNotOptimize(samples.data());
      benchmark::ClobberMemory();
    }
  }
  close(descriptor);
  CountFrames(state, file);
}

const int registered = [] {
  for (const DWORD blockFrames : {4096u, 65536u}) {
    const auto add = [blockFrames](const char* name, QNSAMPLETYPE stored, QNSAMPLETYPE type) {
      const std::string prefix = std::string("stream/") + name + "/" + std::to_string(blockFrames) + "/";
      benchmark::RegisterBenchmark((prefix + "ours").c_str(), ReadByStream, stored, type, blockFrames);
      const char* const peer = stored == type ? "pread" : "pread_and_copy";
      benchmark::RegisterBenchmark((prefix + peer).c_str(), ReadByPread, stored, type, blockFrames);
    };
    add("s16", QNST_PCM16, QNST_PCM16);
    add("flt", QNST_FLOAT32, QNST_FLOAT32);
    add("flt_from_s16", QNST_PCM16, QNST_FLOAT32);
    add("s16_from_flt", QNST_FLOAT32, QNST_PCM16);
    add("dbl_from_s16", QNST_PCM16, QNST_FLOAT64);
  }
  return 0;
}();

}  // namespace
