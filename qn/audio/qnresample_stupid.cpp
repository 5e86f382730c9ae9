// Interpolation from one frame count to another. Output m lies at the time (m + 1) * S / D - 1, so that the
// last output is the last frame of the source, and frame -1 is the last one of the call before.
#include <cmath>
#include <new>

#include "qn/audio/qncopy_rule.h"
#include "qn/audio/qnresample_internal.h"

namespace {

using Instance = tQNRESAMPLEINSTANCE;

struct Job {
  Instance& instance;
  uint8_t* dst;
  const uint8_t* src;
  int64_t dstFrames;
  int64_t srcFrames;
};

template <int kType>
void StoreTruncated(uint8_t* to, double x) {
  if constexpr (kType == QNST_FLOAT64) {
    std::memcpy(to, &x, sizeof x);
  } else if constexpr (kType == QNST_FLOAT32) {
    const auto narrow = static_cast<float>(x);
    std::memcpy(to, &narrow, sizeof narrow);
  } else {
    // Truncated, as hosts know it, and inside the type's rails unless frame -1 came from elsewhere.
    qn::StoreWord<kType>(to, qn::ClipAndRound<kType>(std::trunc(x)));
  }
}

// The frame behind output m, and how far the output lies behind the frame before that, in parts of D.
struct Place {
  int64_t frame;
  int64_t part;  // 1 to D
};
Place PlaceOf(const Job& job, int64_t output) {
  const int64_t time = (output + 1) * job.srcFrames;
  const int64_t frame = (time - 1) / job.dstFrames;
  return {frame, time - frame * job.dstFrames};
}

template <int kType>
void FitChannel(const Job& job, size_t channel) {
  constexpr size_t kBytes = qn::kForm<kType>.bytes;
  const size_t stride = static_cast<size_t>(job.instance.channels) * kBytes;
  uint8_t* const dst = job.dst + channel * kBytes;
  const uint8_t* const src = job.src + channel * kBytes;
  const auto get = [&](int64_t frame) {
    return static_cast<double>(qn::LoadSample<kType>(src + static_cast<size_t>(frame) * stride));
  };
  double& before = job.instance.prevFrame[channel];
  const double last = get(job.srcFrames - 1);
  const auto make = [&](int64_t output) {
    const Place place = PlaceOf(job, output);
    const double from = place.frame > 0 ? get(place.frame - 1) : before;
    const double x = from + (get(place.frame) - from) * static_cast<double>(place.part) /
                                static_cast<double>(job.dstFrames);
    StoreTruncated<kType>(dst + static_cast<size_t>(output) * stride, x);
  };
  // In place, either direction reads a frame before an output takes its room.
  if (job.srcFrames < job.dstFrames) {
    for (int64_t m = job.dstFrames; m-- > 0;) make(m);
  } else {
    for (int64_t m = 0; m < job.dstFrames; ++m) make(m);
  }
  before = last;
}

using FitFunction = void (*)(const Job&, size_t);

FitFunction FindFit(QNSAMPLETYPE type) {
  switch (type) {
    case QNST_PCM8U:
      return FitChannel<QNST_PCM8U>;
    case QNST_PCM16:
      return FitChannel<QNST_PCM16>;
    case QNST_PCM24:
      return FitChannel<QNST_PCM24>;
    case QNST_PCM32:
    case QNST_PCM24IN32:
      return FitChannel<QNST_PCM32>;
    case QNST_FLOAT32:
      return FitChannel<QNST_FLOAT32>;
    case QNST_FLOAT64:
      return FitChannel<QNST_FLOAT64>;
    default:
      return nullptr;
  }
}

}  // namespace

LONG QnAudio_ResampleStupid(tQNRESAMPLEINSTANCE* instance, void* dst, LONG dstFrames, const void* src,
                            LONG srcFrames) {
  if (!instance || !dst || !src || dstFrames <= 0 || srcFrames <= 0) return 0;
  const size_t frameBytes = static_cast<size_t>(QnAudio_BytesFromSampleType(instance->sampleType)) *
                            static_cast<size_t>(instance->channels);
  if (srcFrames == dstFrames && frameBytes != 0) {
    if (dst != src) std::memmove(dst, src, frameBytes * static_cast<size_t>(dstFrames));
    return dstFrames;
  }
  const FitFunction fit = FindFit(instance->sampleType);
  if (!fit) return -1;
  instance->ratio = static_cast<double>(dstFrames) / srcFrames;
  instance->step = static_cast<double>(srcFrames) / dstFrames;
  Job job{*instance, static_cast<uint8_t*>(dst), static_cast<const uint8_t*>(src), dstFrames, srcFrames};
  // The filtered copy is longer than the destination, so it needs a room of its own.
  std::unique_ptr<uint8_t[]> filtered;
  const bool isReducing = srcFrames > dstFrames;
  if (isReducing && instance->IsFiltering()) {
    const size_t bytes = frameBytes * static_cast<size_t>(srcFrames);
    filtered.reset(new (std::nothrow) uint8_t[bytes]);
    if (!filtered) return 0;
    std::memcpy(filtered.get(), src, bytes);
    qn::FilterFrames(*instance, instance->sampleType, filtered.get(), filtered.get(), srcFrames);
    job.src = filtered.get();
  }
  for (size_t channel = 0; channel < static_cast<size_t>(instance->channels); ++channel) fit(job, channel);
  if (!isReducing && instance->IsFiltering())
    qn::FilterFrames(*instance, instance->sampleType, dst, dst, dstFrames);
  return dstFrames;
}
