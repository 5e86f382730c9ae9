// Linear interpolation. Output n lies at the time t = step * n + position, counted in frames of the buffer;
// frame -1 is the last one of the buffer before.
#include <algorithm>
#include <cmath>
#include <functional>

#include "qn/audio/qncopy_rule.h"
#include "qn/audio/qnresample_internal.h"
#include "qn/audio/qnresample_vector.h"

namespace {

using Instance = tQNRESAMPLEINSTANCE;

struct Job {
  Instance& instance;
  uint8_t* dst;
  const uint8_t* src;
  int64_t frames;    // of the source
  int64_t consumed;  // of these; one less where the last is only looked at
  int64_t outputs;
};

double TimeOf(const Instance& instance, int64_t output) {
  return instance.step * static_cast<double>(output) + instance.position;
}

double Between(double from, double to, double factor) {
  return factor == 0 ? from : from + (to - from) * factor;
}

template <int kType>
void StoreValue(uint8_t* to, double x) {
  if constexpr (kType == QNST_FLOAT64) {
    std::memcpy(to, &x, sizeof x);
  } else if constexpr (kType == QNST_FLOAT32) {
    const auto narrow = static_cast<float>(x);
    std::memcpy(to, &narrow, sizeof narrow);
  } else {
    qn::StoreWord<kType>(to, qn::ClipAndRound<kType>(x));
  }
}

// The samples of one channel.
template <int kType>
class Channel {
 public:
  static constexpr size_t kBytes = qn::kForm<kType>.bytes;

  Channel(const Job& job, size_t channel)
      : job_(job),
        dst_(job.dst + channel * kBytes),
        src_(job.src + channel * kBytes),
        stride_(static_cast<size_t>(job.instance.channels) * kBytes) {}

  double Frame(int64_t frame) const {
    return static_cast<double>(qn::LoadSample<kType>(src_ + static_cast<size_t>(frame) * stride_));
  }

  // Makes one output. `before` is frame -1; a `kept` frame is read from `keptValue`.
  void Make(int64_t output, double before, int64_t kept, double keptValue) const {
    const double t = TimeOf(job_.instance, output);
    const auto get = [&](int64_t frame) { return frame == kept ? keptValue : Frame(frame); };
    double x;
    if (t < 0) {
      x = Between(before, get(0), t + 1.0);
    } else {
      const double whole = std::floor(t);
      const int64_t frame = std::min(static_cast<int64_t>(whole), job_.frames - 1);
      x = Between(get(frame), get(std::min(frame + 1, job_.frames - 1)), t - whole);
    }
    StoreValue<kType>(dst_ + static_cast<size_t>(output) * stride_, x);
  }

  // From the last output to the first, an output in place never meets a frame that is still to be read.
  void MakeBackward(int64_t first, int64_t last, double before) const {
    for (int64_t n = last; n-- > first;) Make(n, before, -1, 0);
  }

  void MakeForward(int64_t first, int64_t last, double before) const {
    for (int64_t n = first; n < last; ++n) Make(n, before, -1, 0);
  }

  // From the first to the last, an output in place can meet the frame that the next output begins with: it is
  // kept aside.
  void MakeInPlace(double before) const {
    double kept = 0;
    for (int64_t n = 0; n < job_.outputs; ++n) {
      const double next = Frame(n);
      Make(n, before, n - 1, kept);
      kept = next;
    }
  }

 private:
  const Job& job_;
  uint8_t* dst_;
  const uint8_t* src_;
  size_t stride_;
};

qn::LinearFrame FrameOf(const Instance& instance) {
  using enum qn::LinearFrame;
  const bool isStereo = instance.channels == 2;
  if (instance.channels > 2) return kNone;
  if (instance.sampleType == QNST_PCM16) return isStereo ? kStereo16 : kMono16;
  if (instance.sampleType == QNST_FLOAT32) return isStereo ? kStereoFloat : kMonoFloat;
  return kNone;
}

// The first output from `low` on whose time is not below `time`.
int64_t FirstAt(const Instance& instance, double time, int64_t low, int64_t high) {
  const double near = std::floor((time - instance.position) / instance.step) - 2;
  int64_t n =
      near > static_cast<double>(low) ? std::min(static_cast<int64_t>(std::min(near, 0x1p62)), high) : low;
  while (n < high && TimeOf(instance, n) < time) ++n;
  return n;
}

// The outputs that vectors can make: from the first whose time is not negative on, with all that vectors read
// inside the buffer.
qn::LinearRun VectorRun(const Job& job, bool backward) {
  const bool isServed = job.instance.channels <= 2 && job.frames > qn::kLinearReach;
  const int64_t first = isServed ? FirstAt(job.instance, 0, 0, job.outputs) : job.outputs;
  const int64_t last =
      FirstAt(job.instance, static_cast<double>(job.frames - qn::kLinearReach), first, job.outputs);
  return {job.dst, job.src, job.instance.step, job.instance.position, first, last, backward};
}

// Makes the outputs of all channels. Types without a kernel of their own take the first frame for the one
// before it.
template <int kType>
void MakeOutputs(const Job& job, bool backward) {
  constexpr bool kKnowsBefore = qn::kForm<kType>.type != QNST_PCM8S && !qn::kForm<kType>.isBigEndian;
  const auto channels = static_cast<size_t>(job.instance.channels);
  const auto forEachChannel = [&](auto&& make) {
    for (size_t i = 0; i < channels; ++i) {
      const Channel<kType> channel(job, i);
      make(channel, kKnowsBefore ? job.instance.prevFrame[i] : channel.Frame(0));
    }
  };
  if (!backward && job.dst == job.src) {
    forEachChannel([](const auto& channel, double before) { channel.MakeInPlace(before); });
    return;
  }
  qn::LinearRun run = VectorRun(job, backward);
  const auto interpolate = [&] {
    qn::InterpolateNear(job.instance.sampleType, job.instance.channels, run);
    qn::InterpolateFrames(FrameOf(job.instance), run);
  };
  const int64_t first = run.first, last = run.last;
  if (backward) {
    forEachChannel([&](const auto& c, double before) { c.MakeBackward(last, job.outputs, before); });
    interpolate();
    forEachChannel([&](const auto& c, double before) { c.MakeBackward(0, run.last, before); });
  } else {
    forEachChannel([&](const auto& c, double before) { c.MakeForward(0, first, before); });
    interpolate();
    forEachChannel([&](const auto& c, double before) { c.MakeForward(run.first, job.outputs, before); });
  }
}

template <int kType>
void Run(const Job& job, bool backward) {
  // The outputs may lie over the source, so its last frame is kept aside while frame -1 is in use.
  const auto channels = static_cast<size_t>(job.instance.channels);
  double* const prevFrame = job.instance.prevFrame.get();
  double* const lastFrame = prevFrame + qn::PrevFrameSize(job.instance);
  std::copy_n(prevFrame, channels, lastFrame);
  for (size_t i = 0; i < channels && job.consumed > 0; ++i)
    lastFrame[i] = Channel<kType>(job, i).Frame(job.consumed - 1);
  MakeOutputs<kType>(job, backward);
  std::copy_n(lastFrame, channels, prevFrame);
}

size_t FrameBytes(const Instance& instance) {
  return static_cast<size_t>(QnAudio_BytesFromSampleType(instance.sampleType)) *
         static_cast<size_t>(instance.channels);
}

// False for what is no sample type.
bool RunType(const Job& job, bool backward) {
  switch (job.instance.sampleType) {
    case QNST_PCM8U:
      Run<QNST_PCM8U>(job, backward);
      return true;
    case QNST_PCM16:
      Run<QNST_PCM16>(job, backward);
      return true;
    case QNST_PCM24:
      Run<QNST_PCM24>(job, backward);
      return true;
    case QNST_PCM32:
    case QNST_PCM24IN32:  // the words as they are
      Run<QNST_PCM32>(job, backward);
      return true;
    case QNST_FLOAT32:
      Run<QNST_FLOAT32>(job, backward);
      return true;
    case QNST_FLOAT64:
      Run<QNST_FLOAT64>(job, backward);
      return true;
    case QNST_PCM8S:
      Run<QNST_PCM8S>(job, backward);
      return true;
    case QNST_PCM16BE:
      Run<QNST_PCM16BE>(job, backward);
      return true;
    case QNST_PCM24BE:
      Run<QNST_PCM24BE>(job, backward);
      return true;
    case QNST_PCM32BE:
      Run<QNST_PCM32BE>(job, backward);
      return true;
    default:
      return false;
  }
}

}  // namespace

LONG qn::ResampleLinear(tQNRESAMPLEINSTANCE& instance, void* dst, LONG dstFrames, const void* src,
                        LONG srcFrames) {
  if (srcFrames <= 0) return 0;
  const bool isUpward = instance.step < 1.0;
  int64_t outputs = dstFrames;
  if (!isUpward) {
    // The planned count, which is rounded toward 0, can miss an output between the last frame and this one.
    const int64_t most = instance.countIsDst ? dstFrames : int64_t{dstFrames} + 1;
    outputs = FirstAt(instance, srcFrames - 1.0, 0, most);
    // The low-pass goes before a reduction. Hosts know that it works on their buffer, or not at all.
    if (instance.IsFiltering() && !(instance.keepSource && dst != src))
      FilterFrames(instance, instance.sampleType, const_cast<void*>(src), src, srcFrames);
  }
  const int64_t consumed = srcFrames - (isUpward && instance.countIsDst);
  const Job job{instance, static_cast<uint8_t*>(dst), static_cast<const uint8_t*>(src), srcFrames, consumed,
                outputs};
  // From its end, a buffer can grow in place.
  const auto* const end = job.src + FrameBytes(instance) * static_cast<size_t>(srcFrames);
  const auto* const dstEnd = job.dst + FrameBytes(instance) * static_cast<size_t>(outputs);
  const bool isOverlaid = std::less<>()(job.dst, end) && std::less<>()(job.src, dstEnd);
  if (!RunType(job, isUpward && isOverlaid)) return 0;
  instance.position = TimeOf(instance, outputs) - static_cast<double>(consumed);
  if (isUpward && instance.IsFiltering())
    FilterFrames(instance, instance.sampleType, dst, dst, static_cast<LONG>(outputs));
  return static_cast<LONG>(outputs);
}
