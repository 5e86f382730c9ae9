// Peaks. Vectors find the highest magnitude of each channel and block; only the block that holds a peak, and
// those with samples at full scale, are walked sample by sample.
#include <array>
#include <limits>
#include <utility>

#include "qn/audio/qnlevel_scan.h"
#include "qn/audio/qnmix.h"

namespace qn {
namespace {

// Samples of at least this magnitude are clipped ones.
template <int kType>
constexpr uint64_t kFullMagnitude = kType == QNST_FLOAT64 ? std::bit_cast<uint64_t>(1.0)
                                                          : static_cast<uint64_t>(HighRail(kForm<kType>));

constexpr size_t kFound = std::numeric_limits<size_t>::max();

// The walk through one channel.
struct Walk {
  uint64_t best = 0;
  size_t position = 0;
  size_t run = 0;         // clipped samples one after the other, up to here
  size_t block = kFound;  // first frame of the block in which the best one is still to be found
  size_t blockEnd = 0;
  bool stopped = false;
};

// Of equal magnitudes the last wins, but a run of clipped samples is known by its first.
template <int kType>
void WalkFrames(const uint8_t* channel, size_t stride, size_t first, size_t end, size_t clipRun, Walk& walk) {
  for (size_t frame = first; frame < end; ++frame) {
    const uint64_t magnitude = Magnitude<kType>(LoadSample<kType>(channel + frame * stride));
    if (magnitude >= walk.best) {
      walk.best = magnitude;
      walk.position = frame - walk.run;
      walk.block = kFound;
    }
    if (magnitude < kFullMagnitude<kType>) {
      walk.run = 0;
    } else if (++walk.run >= clipRun) {
      walk.stopped = true;
      return;
    }
  }
}

// Finds the last frame of the best magnitude in the block that is known to hold it.
template <int kType>
void Locate(const uint8_t* src, size_t channels, size_t channel, Walk& walk) {
  constexpr size_t kBytes = kForm<kType>.bytes;
  const size_t stride = channels * kBytes, row = ScanRow(channels);
  constexpr size_t kFewFrames = 256;  // no more work one by one than for a scan
  size_t first = walk.block, end = walk.blockEnd;
  while (end - first > std::max(row, kFewFrames)) {
    const size_t middle = first + (end - first) / row / 2 * row;
    uint64_t highest[kMostScanChannels] = {};
    ScanHighest(kType, src + middle * stride, end - middle, channels, highest);
    (highest[channel] == walk.best ? first : end) = middle;
  }
  const auto at = [&](size_t frame) { return src + frame * stride + channel * kBytes; };
  do {
    --end;
  } while (end > first && Magnitude<kType>(LoadSample<kType>(at(end))) != walk.best);
  walk.position = end;
}

template <int kType>
QNPEAKRESULT ResultOf(const Walk& walk) {
  double peak = static_cast<double>(walk.best) / FullScale(kForm<kType>);
  if (kType == QNST_FLOAT64) peak = std::bit_cast<double>(walk.best);
  const bool clipped = walk.stopped || (kType == QNST_PCM8U && walk.best == kFullMagnitude<kType>);
  return {static_cast<float>(peak), static_cast<DWORD>(walk.position), clipped};
}

template <int kType>
void FindPeaks(size_t channels, size_t clipRun, const uint8_t* src, size_t frames, QNPEAKRESULT* out) {
  constexpr size_t kBytes = kForm<kType>.bytes;
  const size_t stride = channels * kBytes;
  Walk walks[kMostScanChannels];
  const size_t covered = ForEachScanBlock(channels, kBytes, frames, [&](size_t first, size_t count) {
    uint64_t highest[kMostScanChannels] = {};
    ScanHighest(kType, src + first * stride, count, channels, highest);
    bool walking = false;
    for (size_t channel = 0; channel < channels; ++channel) {
      Walk& walk = walks[channel];
      if (walk.stopped) continue;
      if (highest[channel] >= kFullMagnitude<kType>) {
        WalkFrames<kType>(src + channel * kBytes, stride, first, first + count, clipRun, walk);
      } else {
        walk.run = 0;
        if (highest[channel] >= walk.best) {
          walk.best = highest[channel];
          walk.block = first;
          walk.blockEnd = first + count;
        }
      }
      walking |= !walk.stopped;
    }
    return walking;
  });
  for (size_t channel = 0; channel < channels; ++channel) {
    Walk alone;
    Walk& walk = channel < kMostScanChannels ? walks[channel] : alone;
    const uint8_t* const from = src + channel * kBytes;
    if (!walk.stopped) WalkFrames<kType>(from, stride, covered, frames, clipRun, walk);
    if (walk.block != kFound) Locate<kType>(src, channels, channel, walk);
    out[channel] = ResultOf<kType>(walk);
  }
}

// Hosts know the position of floats to be the number of frames, and the run to play no part.
template <>
void FindPeaks<QNST_FLOAT32>(size_t channels, size_t, const uint8_t* src, size_t frames, QNPEAKRESULT* out) {
  constexpr size_t kBytes = sizeof(float);
  uint64_t highest[kMostScanChannels] = {};
  const size_t covered = ForEachScanBlock(channels, kBytes, frames, [&](size_t first, size_t count) {
    ScanHighest(QNST_FLOAT32, src + first * channels * kBytes, count, channels, highest);
    return true;
  });
  for (size_t channel = 0; channel < channels; ++channel) {
    uint64_t best = channel < kMostScanChannels ? highest[channel] : 0;
    for (size_t frame = covered; frame < frames; ++frame) {
      const uint8_t* const from = src + (frame * channels + channel) * kBytes;
      best = std::max(best, Magnitude<QNST_FLOAT32>(LoadSample<QNST_FLOAT32>(from)));
    }
    const float peak = std::bit_cast<float>(static_cast<uint32_t>(best));
    out[channel] = {peak, static_cast<DWORD>(frames), best > std::bit_cast<uint32_t>(1.0f)};
  }
}

// A run below 0 is one that no channel reaches.
template <int kType>
void PeakKernelOf(int channels, int clipRun, const void* src, int frames, QNPEAKRESULT* out) {
  FindPeaks<kType>(static_cast<size_t>(std::max(channels, 0)), static_cast<DWORD>(clipRun),
                   static_cast<const uint8_t*>(src), static_cast<size_t>(std::max(frames, 0)), out);
}

// The kernel, and what it calls for as many frames as an operation may have.
struct PeakFunctions {
  QNFINDPEAKSFUNCTION kernel;
  void (*find)(size_t channels, size_t clipRun, const uint8_t* src, size_t frames, QNPEAKRESULT* out);
};

template <size_t... kPlace>
constexpr std::array<PeakFunctions, kLevelForms> MakeFunctions(std::index_sequence<kPlace...>) {
  return {{{PeakKernelOf<kSampleForms[kPlace].type>, FindPeaks<kSampleForms[kPlace].type>}...}};
}

const PeakFunctions* FindFunctions(const WAVEFORMATEX* format) {
  static constexpr auto kFunctions = MakeFunctions(std::make_index_sequence<kLevelForms>());
  const int index = SampleFormIndex(QnAudio_GetSampleType(format));
  return index < 0 || index >= kLevelForms ? nullptr : &kFunctions[static_cast<size_t>(index)];
}

}  // namespace
}  // namespace qn

extern "C" {

QNFINDPEAKSFUNCTION QnAudio_GetFindPeaksFunction(const WAVEFORMATEX* format) {
  const qn::PeakFunctions* const functions = qn::FindFunctions(format);
  return functions == nullptr ? nullptr : functions->kernel;
}

HRESULT QnAudio_FindPeaks(const WAVEFORMATEX* format, DWORD clipRun, const void* src, DWORD frames,
                          QNPEAKRESULT* out) {
  if (frames == 0) return S_OK;
  if (format == nullptr) return E_POINTER;
  const qn::PeakFunctions* const functions = qn::FindFunctions(format);
  if (functions == nullptr) return E_NOTIMPL;
  if (src == nullptr || out == nullptr) return E_POINTER;
  functions->find(format->nChannels, clipRun, static_cast<const uint8_t*>(src), frames, out);
  return S_OK;
}
}
