// Peaks: the reduction of samples beside a plain loop at -O3 and beside only reading the memory; the build of
// a peak file beside reading the file and a plain loop, and beside only reading it; and what a waveform of
// 2,000 columns over one hour costs from each source, beside a plain loop over pairs in memory.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "benchmarks/media/audio_file.h"
#include "qn/media/peak.h"
#include "qn/platform/file.h"

namespace {

using qnbench::kChannels;

constexpr DWORD kFramesPerPeak = 256;
constexpr size_t kReadBytes = 0x18000;

template <class Sample>
constexpr QNSAMPLETYPE kType = std::is_same_v<Sample, float> ? QNST_FLOAT32 : QNST_PCM16;

// What a user would write.
template <class Sample>
void PlainReduce(const Sample* samples, size_t frames, Sample* pairs) {
  for (size_t start = 0; start < frames; start += kFramesPerPeak) {
    const size_t end = std::min<size_t>(start + kFramesPerPeak, frames);
    for (size_t channel = 0; channel < kChannels; ++channel) {
      Sample low = samples[start * kChannels + channel];
      Sample high = low;
      for (size_t i = start; i < end; ++i) {
        const Sample value = samples[i * kChannels + channel];
        low = std::min(low, value);
        high = std::max(high, value);
      }
      *pairs++ = low;
      *pairs++ = high;
    }
  }
}

template <class Sample>
std::vector<Sample> Noise(size_t frames) {
  std::vector<Sample> samples(frames * kChannels);
  uint32_t state = 1;
  for (Sample& sample : samples) {
    const auto value = static_cast<int16_t>((state = state * 1664525 + 1013904223) >> 16);
    sample = static_cast<Sample>(std::is_same_v<Sample, float> ? static_cast<float>(value) / 32768 : value);
  }
  return samples;
}

template <class Sample>
void Reduce(benchmark::State& state, size_t frames) {
  const auto samples = Noise<Sample>(frames);
  const DWORD peak = std::is_same_v<Sample, float> ? QNST_FLOAT32 : QNST_PCM16;
  const auto kernel = QnAudioPeak_GetMinMaxFunction(peak, kType<Sample>);
  std::vector<Sample> pairs((frames / kFramesPerPeak + 2) * kChannels * 2);
  for (auto _ : state) {
    tQNAUDIOPEAK_SAMPLESMINMAX running;
    QnAudioPeak_InitMinMaxArray(kType<Sample>, kChannels, &running);
    const void* from = samples.data();
    auto left = static_cast<DWORD>(frames);
    DWORD phase = 0;
    DWORD index = 0;
    while (kernel(pairs.data(), index, kFramesPerPeak << 14, &from, &left, &phase, kChannels, &running)) {
      index += kChannels * 2;
    }
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(samples.size()));
}

template <class Sample>
void ReduceByLoop(benchmark::State& state, size_t frames) {
  const auto samples = Noise<Sample>(frames);
  std::vector<Sample> pairs((frames / kFramesPerPeak + 2) * kChannels * 2);
  for (auto _ : state) {
    PlainReduce(samples.data(), frames, pairs.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(samples.size()));
}

template <class Sample>
void ReadMemory(benchmark::State& state, size_t frames) {
  const auto samples = Noise<Sample>(frames);
  const auto* const words = reinterpret_cast<const uint64_t*>(samples.data());
  const size_t count = samples.size() * sizeof(Sample) / sizeof(uint64_t);
  for (auto _ : state) {
    uint64_t sum = 0;
    for (size_t i = 0; i < count; ++i) sum |= words[i];
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(samples.size()));
}

// A peak object over a file; what it builds is removed with it.
class Peaks {
 public:
  Peaks(const qnbench::AudioFile& file, LONG memFramesPerPeak, LONG flags = QNAUDIOPEAK_ALWAYSTEMP) {
    QnAudioPeak_CreateInstance(&peak_, nullptr, file.Name().c_str(), nullptr, kFramesPerPeak,
                               static_cast<DWORD>(memFramesPerPeak), flags);
    isBuilt_ = peak_ && (flags == QNAUDIOPEAK_MEMORYONLY || SUCCEEDED(Build(0)));
  }
  ~Peaks() {
    if (peak_) peak_->Release();
  }
  Peaks(const Peaks&) = delete;
  Peaks& operator=(const Peaks&) = delete;

  bool IsBuilt() const { return isBuilt_; }
  HRESULT Build(DWORD flags) { return peak_->Build(flags, &progress_); }
  DWORD Request(int64_t frames, int16_t* pairs, LONG pixels) {
    DWORD got = 0;
    return peak_->GetPeaksEx(0, frames, QNST_PCM16, pairs, pixels, &got) == S_OK ? got : 0;
  }

 private:
  struct Progress final : IQnAudioPeakProgress {
    void Reserved() override {}
    LONG Begin(const WCHAR*, LONGLONG) override { return 1; }
    LONG Update(LONGLONG) override { return 1; }
    void End(HRESULT) override {}
  };
  Progress progress_;
  IQnAudioPeak* peak_ = nullptr;
  bool isBuilt_ = false;
};

void Build(benchmark::State& state, QNSAMPLETYPE type) {
  const qnbench::AudioFile& file = qnbench::TenMinutes(type);
  Peaks peaks(file, -1);
  if (!peaks.IsBuilt()) return state.SkipWithError("not built");
  for (auto _ : state) {
    if (FAILED(peaks.Build(QNAUDIOPEAK_BUILD_FORCE))) return state.SkipWithError("not built");
  }
  state.SetItemsProcessed(state.iterations() * file.Frames() * kChannels);
}

template <class Sample>
void BuildByLoop(benchmark::State& state) {
  const qnbench::AudioFile& file = qnbench::TenMinutes(kType<Sample>);
  std::vector<Sample> block(kReadBytes / sizeof(Sample));
  std::vector<Sample> pairs(static_cast<size_t>(file.Frames()) / kFramesPerPeak * kChannels * 2 + 100000);
  for (auto _ : state) {
    const int descriptor = open(file.Native().c_str(), O_RDONLY);
    auto at = static_cast<off_t>(file.DataStart());
    Sample* to = pairs.data();
    ssize_t got;
    while ((got = pread(descriptor, block.data(), kReadBytes, at)) > 0) {
      at += got;
      const size_t frames = static_cast<size_t>(got) / (sizeof(Sample) * kChannels);
      PlainReduce(block.data(), frames, to);
      to += (frames + kFramesPerPeak - 1) / kFramesPerPeak * kChannels * 2;
    }
    close(descriptor);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * file.Frames() * kChannels);
}

// Into one buffer that is used again, or into memory for the whole file.
void ReadFileOnly(benchmark::State& state, QNSAMPLETYPE type, bool isWhole) {
  const qnbench::AudioFile& file = qnbench::TenMinutes(type);
  for (auto _ : state) {
    const size_t room = isWhole ? file.Bytes() : kReadBytes;
    const std::unique_ptr<uint8_t[]> bytes(new uint8_t[room]);
    const int descriptor = open(file.Native().c_str(), O_RDONLY);
    auto at = static_cast<off_t>(file.DataStart());
    size_t place = 0;
    ssize_t got;
    while ((got = pread(descriptor, bytes.get() + place, std::min(kReadBytes, room - place), at)) > 0) {
      at += got;
      if (isWhole) place += static_cast<size_t>(got);
    }
    close(descriptor);
    benchmark::DoNotOptimize(bytes.get());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * file.Frames() * kChannels);
}

constexpr LONG kPixels = 2000;

const qnbench::AudioFile& OneHour() {
  static const qnbench::AudioFile file(QNST_PCM16, 3600);
  return file;
}

// From the table (resolution 2,048), the peak file, or the audio: memory alone without a table has no other
// source.
void Request(benchmark::State& state, LONG memFramesPerPeak, LONG flags) {
  Peaks peaks(OneHour(), memFramesPerPeak, flags);
  std::vector<int16_t> pairs(size_t{kPixels} * kChannels * 2);
  for (auto _ : state) {
    if (peaks.Request(OneHour().Frames(), pairs.data(), kPixels) == 0) return state.SkipWithError("no peaks");
    benchmark::ClobberMemory();
  }
}

// Merges pairs of 8 or 16 bits that lie in memory, `resolution` frames each.
template <class Value>
void MergeByLoop(benchmark::State& state, int64_t resolution) {
  const int64_t blocks = OneHour().Frames() / resolution;
  std::vector<Value> stored(static_cast<size_t>(blocks) * kChannels * 2);
  for (size_t i = 0; i < stored.size(); ++i) stored[i] = static_cast<Value>(i * 2654435761u >> 7);
  std::vector<int16_t> pairs(size_t{kPixels} * kChannels * 2);
  for (auto _ : state) {
    for (LONG pixel = 0; pixel < kPixels; ++pixel) {
      const int64_t first = blocks * pixel / kPixels;
      const int64_t end = blocks * (pixel + 1) / kPixels;
      for (int channel = 0; channel < kChannels; ++channel) {
        const Value* pair = &stored[static_cast<size_t>(first * kChannels + channel) * 2];
        Value low = pair[0];
        Value high = pair[1];
        for (int64_t i = first; i < end; ++i, pair += kChannels * 2) {
          low = std::min(low, pair[0]);
          high = std::max(high, pair[1]);
        }
        int16_t* const to = &pairs[static_cast<size_t>(pixel * kChannels + channel) * 2];
        to[0] = static_cast<int16_t>(sizeof(Value) == 1 ? low * 256 : low);
        to[1] = static_cast<int16_t>(sizeof(Value) == 1 ? high * 256 : high);
      }
    }
    benchmark::ClobberMemory();
  }
}

template <class Sample>
void RegisterSources(const std::string& name) {
  for (const auto& [length, frames] :
       {std::pair("4K", size_t{4096}), std::pair("10min", size_t{26'460'000})}) {
    const std::string prefix = "peaks/reduce_" + name + "/" + length + "/";
    benchmark::RegisterBenchmark((prefix + "ours").c_str(), Reduce<Sample>, frames);
    benchmark::RegisterBenchmark((prefix + "loop").c_str(), ReduceByLoop<Sample>, frames);
    benchmark::RegisterBenchmark((prefix + "memory").c_str(), ReadMemory<Sample>, frames);
  }
  const std::string prefix = "peaks/build_" + name + "/10min/";
  benchmark::RegisterBenchmark((prefix + "ours").c_str(), Build, kType<Sample>);
  benchmark::RegisterBenchmark((prefix + "pread_and_loop").c_str(), BuildByLoop<Sample>);
  benchmark::RegisterBenchmark((prefix + "pread").c_str(), ReadFileOnly, kType<Sample>, false);
  benchmark::RegisterBenchmark((prefix + "into_memory").c_str(), ReadFileOnly, kType<Sample>, true);
}

const int registered = [] {
  RegisterSources<int16_t>("s16");
  RegisterSources<float>("flt");
  const auto add = [](const char* source, LONG memFramesPerPeak, LONG flags) {
    const std::string name = std::string("peaks/request_") + source + "/1h/";
    benchmark::RegisterBenchmark((name + "ours").c_str(), Request, memFramesPerPeak, flags);
  };
  add("table", 2048, QNAUDIOPEAK_ALWAYSTEMP);
  add("file", -1, QNAUDIOPEAK_ALWAYSTEMP);
  add("file_unmapped", -1, QNAUDIOPEAK_ALWAYSTEMP | QNAUDIOPEAK_THREADSAFE);
  add("audio", -1, QNAUDIOPEAK_MEMORYONLY);
  benchmark::RegisterBenchmark("peaks/request_table/1h/loop", MergeByLoop<int16_t>, 2048);
  benchmark::RegisterBenchmark("peaks/request_file/1h/loop", MergeByLoop<int8_t>, kFramesPerPeak);
  return 0;
}();

}  // namespace
