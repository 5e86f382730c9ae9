// The second resampler's instance: open, reset, and the road of a call through conversion, low-pass and
// kernel.
#include "qn/audio/qnresample2.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <numeric>
#include <utility>

#include "qn/audio/qnresample.h"
#include "qn/audio/qnresample2_internal.h"

namespace {

using Instance = tQNRESAMPLE2INSTANCE;
using qn::kSincTaps;

constexpr DWORD kModeBits = 0xF, kFilterBits = 0x70;
constexpr int kOpenLimit = 0x100000, kResetLimit = 22;  // of the search for a fraction
constexpr double kLargestRatio = 1073741824.0;          // so that whole steps are 32-bit numbers
constexpr LONG kMostChannels = 65535;

DWORD FilterOrder(const Instance& instance) {
  switch (instance.filter) {
    case QNRESAMPLE2_LOWPASS_4TH:
      return 4;
    case QNRESAMPLE2_LOWPASS_8TH:
      return 8;
    case QNRESAMPLE2_LOWPASS_11TH:
      return 11;
    default:
      return 0;
  }
}

bool IsWholeStep(const Instance& instance) {
  return instance.ratio < 1.0 && instance.clock.step == std::floor(instance.clock.step);
}

// Whole-number decimation needs no interpolation.
DWORD ModeOfCall(const Instance& instance) {
  return IsWholeStep(instance) ? QNRESAMPLE2_LINEAR : instance.mode;
}

// ---------------------------------------------------------------- the parts of an instance

void SetFlags(Instance& instance, DWORD flags) {
  instance.mode = flags & kModeBits;
  instance.filter = flags & kFilterBits;
  instance.filterFlag = flags & QNRESAMPLE2_NO_SIMD;
}

void SetRational(Instance& instance, LONG srcUnits, LONG dstUnits) {
  qn::ResampleClock& clock = instance.clock;
  if (clock.srcUnits == srcUnits && clock.dstUnits == dstUnits) return;
  const double fraction = clock.dstUnits != 0 ? clock.Fraction() : 0;
  clock.rational = true;
  clock.srcUnits = srcUnits;
  clock.dstUnits = dstUnits;
  clock.wholeStep = srcUnits / dstUnits;
  clock.stepUnits = srcUnits % dstUnits;
  // The time goes on from the same fraction of a frame, on the grid of the new phases.
  const LONG grid = std::gcd(srcUnits, dstUnits);
  clock.phase =
      std::clamp<LONG>(static_cast<LONG>(fraction * (dstUnits / grid)), 0, dstUnits / grid - 1) * grid;
  instance.ratio = static_cast<double>(dstUnits) / srcUnits;
  clock.step = static_cast<double>(srcUnits) / dstUnits;
}

bool IsRatio(double ratio) {
  return ratio > 1 / kLargestRatio && ratio < kLargestRatio;
}

void SetRatio(Instance& instance, double ratio, int limit) {
  int numerator = 0, denominator = 0;
  double error = 0;
  if (QnRatApprox(ratio, limit, 1, &numerator, &denominator, &error) && std::fabs(error) < 1e-20 &&
      numerator > 0 && denominator > 0)
    return SetRational(instance, denominator, numerator);
  qn::ResampleClock& clock = instance.clock;
  if (clock.rational) clock.position = clock.Fraction();
  clock.rational = false;
  clock.srcUnits = clock.dstUnits = -1;
  instance.ratio = ratio;
  clock.step = 1 / ratio;
}

HRESULT SetChannels(Instance& instance, LONG channels) {
  const size_t values = static_cast<size_t>(channels) * kSincTaps;
  if (!instance.history || channels > instance.channels) {
    std::unique_ptr<double[]> history(new (std::nothrow) double[values]());
    if (!history) return E_OUTOFMEMORY;
    if (instance.history) std::copy_n(instance.history.get(), instance.Channels() * kSincTaps, history.get());
    instance.history = std::move(history);
  }
  instance.channels = channels;
  return 0;
}

HRESULT MakeTable(Instance& instance) {
  if (instance.mode != QNRESAMPLE2_SINC || instance.table) return 0;
  std::unique_ptr<double[]> table(new (std::nothrow) double[qn::kSincPoints + 1]);
  if (!table) return E_OUTOFMEMORY;
  constexpr double kLobes = qn::kSincDelay;
  constexpr size_t kLast = qn::kSincPoints - 1;
  table[0] = 1.0;
  for (size_t i = 1; i < kLast; ++i) {
    const double x = kLobes * static_cast<double>(i) / 4000.0 * std::numbers::pi;
    const double y = x / kLobes + std::numbers::pi;
    table[i] = (0.35875 - 0.48829 * std::cos(y) + 0.14128 * std::cos(2 * y) - 0.01168 * std::cos(3 * y)) *
               (std::sin(x) / x);
  }
  table[kLast] = table[kLast + 1] = table[kLast - 1];
  instance.table = std::move(table);
  return 0;
}

HRESULT MakeFilter(Instance& instance) {
  const DWORD order = FilterOrder(instance);
  if (order == 0) {
    instance.iir.reset();
    return 0;
  }
  std::unique_ptr<CQnIIR> filter(new (std::nothrow) CQnIIR);
  if (!filter) return E_OUTOFMEMORY;
  const double cutoff = 0.95 * (instance.ratio < 1.0 ? instance.ratio * 0.5 : 0.5 / instance.ratio);
  const HRESULT status =
      filter->Design(QNIIR_LOWPASS, QNIIR_BUTTERWORTH, order, cutoff, 1.0, 0,
                     static_cast<DWORD>(instance.channels), instance.filterFlag ? QNIIR_NO_SIMD : 0);
  if (status < 0) return status;
  filter->SetDelayElementsFrom(instance.iir.get());
  instance.iir = std::move(filter);
  return 0;
}

// The type that the kernels work in, and the conversions to and from it.
HRESULT SetWorkType(Instance& instance) {
  const QNSAMPLETYPE type = instance.sampleType;
  const bool isFloat = type == QNST_FLOAT32 || type == QNST_FLOAT64;
  QNSAMPLETYPE work = type;
  QNCOPYFUNCTION to = nullptr, from = nullptr;
  if (isFloat) {
    // The low-pass before a decimation works in place, on a copy of the caller's frames.
    if (instance.iir && instance.ratio < 1.0) to = QnAudio_GetCopyFunction2(type, type);
  } else if (instance.mode != QNRESAMPLE2_LINEAR || instance.iir) {
    work = type == QNST_PCM32 || type == QNST_PCM32BE ? QNST_FLOAT64 : QNST_FLOAT32;
    to = QnAudio_GetCopyFunction2(work, type);
    from = QnAudio_GetCopyFunction2(type, work);
    if (!to || !from) return E_NOTIMPL;
  }
  // Floats have their history in the same units, integers that are not converted each in their own.
  const auto isRaw = [](QNSAMPLETYPE t) { return t != QNST_FLOAT32 && t != QNST_FLOAT64; };
  if (work != instance.workType && (isRaw(work) || isRaw(instance.workType))) instance.primedMode = 0;
  instance.workType = work;
  instance.workFrameBytes = instance.Channels() * static_cast<size_t>(QnAudio_BytesFromSampleType(work));
  instance.toWork = to;
  instance.fromWork = from;
  return 0;
}

void Clear(Instance& instance) {
  instance.primedMode = 0;
  instance.clock.phase = 0;
  instance.clock.position = 0;
  instance.srcPos = instance.dstPos = 0;
  if (instance.iir) instance.iir->ResetAll();
}

// Takes over a type and a channel count, and makes anew what hangs on them, on the flags and on the ratio.
HRESULT Apply(Instance& instance, QNSAMPLETYPE type, LONG channels) {
  instance.sampleType = type;
  if (const HRESULT status = SetChannels(instance, channels); status < 0) return status;
  if (const HRESULT status = MakeTable(instance); status < 0) return status;
  if (const HRESULT status = MakeFilter(instance); status < 0) return status;
  return SetWorkType(instance);
}

bool IsChannelCount(LONG channels) {
  return channels >= 1 && channels <= kMostChannels;
}

// With rates, `ratio` plays no part.
HRESULT Open(Instance** out, QNSAMPLETYPE type, LONG channels, double ratio, LONG srcRate, LONG dstRate,
             DWORD flags) {
  std::unique_ptr<Instance> instance(new (std::nothrow) Instance());
  if (!instance) return E_OUTOFMEMORY;
  if (type < QNST_PCM8U || type > QNST_PCM32BE || !IsChannelCount(channels) || !IsRatio(ratio))
    return E_INVALIDARG;
  SetFlags(*instance, flags);
  if (srcRate > 0) {
    SetRational(*instance, srcRate, dstRate);
  } else {
    SetRatio(*instance, ratio, kOpenLimit);
  }
  if (const HRESULT status = Apply(*instance, type, channels); status < 0) return status;
  *out = instance.release();
  return 0;
}

// A ratio of 0 keeps; with a source rate, it plays no part.
HRESULT Reset(Instance& instance, QNSAMPLETYPE type, LONG channels, double ratio, LONG srcRate, LONG dstRate,
              DWORD flags, LONG clear) {
  // Fewer types than at open: hosts know that the big-endian ones are refused here.
  if (type == QNST_NONE) {
    type = instance.sampleType;
  } else if (type < QNST_PCM8U || type > QNST_PCM24IN32) {
    return E_INVALIDARG;
  }
  if (channels == 0) channels = instance.channels;
  if (!IsChannelCount(channels)) return E_INVALIDARG;
  if (flags != 0) SetFlags(instance, flags);
  if (srcRate > 0) {
    SetRational(instance, srcRate, dstRate);
  } else if (ratio != 0) {
    if (!IsRatio(ratio)) return E_INVALIDARG;
    SetRatio(instance, ratio, kResetLimit);
  }
  if (const HRESULT status = Apply(instance, type, channels); status < 0) return status;
  if (clear) Clear(instance);
  return 0;
}

// The handle is dead after a failed reset.
HRESULT CloseOnFailure(Instance* instance, HRESULT status) {
  if (status < 0) QnAudio_Resample2Close(instance);
  return status;
}

// ---------------------------------------------------------------- a call

bool HasKernel(DWORD mode, QNSAMPLETYPE work) {
  const bool isFloat = work == QNST_FLOAT32 || work == QNST_FLOAT64;
  if (mode == QNRESAMPLE2_CUBIC || mode == QNRESAMPLE2_SINC) return isFloat;
  return mode == QNRESAMPLE2_LINEAR && (isFloat || work == QNST_PCM8U || work == QNST_PCM16 ||
                                        work == QNST_PCM32 || work == QNST_PCM24IN32);
}

int DelayOf(DWORD mode) {
  return mode == QNRESAMPLE2_SINC ? qn::kSincDelay : mode == QNRESAMPLE2_CUBIC ? qn::kCubicDelay : 0;
}

// The frames to take before the next output, at the beginning too.
int64_t LoadOf(const Instance& instance, DWORD mode) {
  if (instance.primedMode == mode) return instance.clock.load;
  return mode == QNRESAMPLE2_LINEAR ? 1 : DelayOf(mode);
}

void Prime(Instance& instance, DWORD mode) {
  if (instance.primedMode == mode) return;
  instance.clock.load = LoadOf(instance, mode);
  instance.flushLeft = DelayOf(mode);
  std::fill_n(instance.history.get(), instance.Channels() * kSincTaps, 0.0);
  instance.primedMode = mode;
}

// The source frames behind `load` that the next `outputs`, 1 or more, reach.
uint64_t FramesBehind(const qn::ResampleClock& clock, DWORD outputs, bool linear) {
  const int64_t steps = static_cast<int64_t>(outputs) - 1;
  if (clock.rational) {
    const int64_t units = steps * clock.srcUnits + clock.phase;
    return static_cast<uint64_t>(units / clock.dstUnits + (linear && units % clock.dstUnits != 0));
  }
  const double time = static_cast<double>(steps) * clock.step + clock.position;
  constexpr double kMost = 9e18;  // holds steps of any ratio
  const int64_t whole = static_cast<int64_t>(std::min(time, kMost));
  return static_cast<uint64_t>(whole + (linear && time != static_cast<double>(whole)));
}

// Makes room for `bytes`; what was in the block is lost.
bool Grow(std::unique_ptr<uint8_t[]>& block, size_t& size, size_t bytes) {
  if (bytes <= size) return true;
  block.reset();
  size = 0;
  block.reset(new (std::nothrow) uint8_t[bytes]);
  if (!block) return false;
  size = bytes;
  return true;
}

// One call of a copy kernel, unless the samples are more than it can count.
void Convert(QNCOPYFUNCTION copy, void* dst, size_t dstBytes, const void* src, size_t srcBytes,
             uint64_t samples) {
  constexpr uint64_t kMost = 1 << 30;
  for (uint64_t done = 0; done < samples;) {
    const uint64_t part = std::min(samples - done, kMost);
    copy(static_cast<uint8_t*>(dst) + done * dstBytes, static_cast<const uint8_t*>(src) + done * srcBytes,
         static_cast<LONG>(part), 1.0f);
    done += part;
  }
}

void Filter(Instance& instance, void* audio, uint64_t frames) {
  const DWORD count = static_cast<DWORD>(frames);
  if (instance.workType == QNST_FLOAT32) {
    instance.iir->ProcessFloat(static_cast<float*>(audio), static_cast<float*>(audio), count, 0);
  } else {
    instance.iir->ProcessDouble(static_cast<double*>(audio), static_cast<double*>(audio), count, 0);
  }
}

bool Overlap(const void* first, uint64_t firstBytes, const void* second, uint64_t secondBytes) {
  const auto a = reinterpret_cast<uintptr_t>(first), b = reinterpret_cast<uintptr_t>(second);
  return a < b + secondBytes && b < a + firstBytes;
}

// The input in the work type where it may be written to, or the caller's own; null without memory.
const void* TakeInput(Instance& instance, const qn::ResampleCall& call, const void* src) {
  const size_t bytes = static_cast<size_t>(QnAudio_BytesFromSampleType(instance.sampleType));
  const size_t workBytes = instance.workFrameBytes / instance.Channels();
  QNCOPYFUNCTION to = instance.toWork;
  if (!to &&
      Overlap(call.dst, call.room * instance.workFrameBytes, src, call.supply * instance.workFrameBytes))
    to = QnAudio_GetCopyFunction2(instance.workType, instance.workType);
  if (!to || call.supply == 0) return src;
  if (!Grow(instance.inBuffer, instance.inBytes, call.supply * instance.workFrameBytes)) return nullptr;
  Convert(to, instance.inBuffer.get(), workBytes, src, bytes, call.supply * instance.Channels());
  return instance.inBuffer.get();
}

// A stream of ratio 1.0.
void CopyFrames(const Instance& instance, qn::ResampleCall& call) {
  if (call.dst == call.src) {
    call.produced = call.room;
    call.consumed = call.supply;
    return;
  }
  call.produced = call.consumed = std::min(call.room, call.supply);
  const size_t frameBytes =
      instance.Channels() * static_cast<size_t>(QnAudio_BytesFromSampleType(instance.sampleType));
  if (call.produced > 0) std::memmove(call.dst, call.src, call.produced * frameBytes);
}

HRESULT Run(Instance& instance, qn::ResampleCall& call) {
  if (instance.ratio == 1.0) {
    CopyFrames(instance, call);
    return 0;
  }
  const DWORD mode = ModeOfCall(instance);
  if (!HasKernel(mode, instance.workType)) return E_NOTIMPL;
  Prime(instance, mode);
  qn::ResampleClock& clock = instance.clock;
  const bool linear = mode == QNRESAMPLE2_LINEAR, decimates = instance.ratio < 1.0;

  // Nothing beyond what the room needs is converted or filtered. A real clock may count a frame more when it
  // gets there.
  const DWORD room = static_cast<DWORD>(call.room);
  const uint64_t needed =
      room == 0 ? 0 : static_cast<uint64_t>(clock.load) + FramesBehind(clock, room, linear) + !decimates;
  call.supply = std::min(call.supply, needed);
  // Nor is there room for more than the supply can give.
  const double most = static_cast<double>(call.supply + 2 * qn::kSincDelay) * instance.ratio + 2;
  if (most < static_cast<double>(call.room)) call.room = static_cast<uint64_t>(most);

  void* const dst = call.dst;
  if (!(call.src = TakeInput(instance, call, call.src)) && call.supply > 0) return E_OUTOFMEMORY;
  if (instance.fromWork) {
    if (!Grow(instance.outBuffer, instance.outBytes, call.room * instance.workFrameBytes))
      return E_OUTOFMEMORY;
    call.dst = instance.outBuffer.get();
  }
  // A decimation has its own copy here.
  if (instance.iir && decimates && call.supply > 0) Filter(instance, instance.inBuffer.get(), call.supply);
  switch (mode) {
    case QNRESAMPLE2_LINEAR:
      qn::ResampleLinear(instance, call);
      break;
    case QNRESAMPLE2_CUBIC:
      qn::ResampleCubic(instance, call);
      break;
    default:
      qn::ResampleSinc(instance, call);
      break;
  }
  if (instance.iir && !decimates && call.produced > 0) Filter(instance, call.dst, call.produced);
  if (instance.fromWork) {
    Convert(instance.fromWork, dst, static_cast<size_t>(QnAudio_BytesFromSampleType(instance.sampleType)),
            call.dst, instance.workFrameBytes / instance.Channels(), call.produced * instance.Channels());
  }
  return 0;
}

}  // namespace

HRESULT QnAudio_Resample2OpenEx(tQNRESAMPLE2INSTANCE** instance, QNSAMPLETYPE type, LONG channels,
                                double ratio, DWORD flags) {
  if (!instance) return E_POINTER;
  *instance = nullptr;
  return Open(instance, type, channels, ratio, 0, 0, flags);
}

HRESULT QnAudio_Resample2Open(tQNRESAMPLE2INSTANCE** instance, QNSAMPLETYPE type, LONG channels, LONG srcRate,
                              LONG dstRate, DWORD flags) {
  if (!instance) return E_POINTER;
  *instance = nullptr;
  if (srcRate < 1 || dstRate < 1) return E_INVALIDARG;
  return Open(instance, type, channels, 1.0, srcRate, dstRate, flags);
}

HRESULT QnAudio_Resample2ResetEx(tQNRESAMPLE2INSTANCE* instance, QNSAMPLETYPE type, LONG channels,
                                 double ratio, DWORD flags, LONG clear) {
  if (!instance) return E_POINTER;
  return CloseOnFailure(instance,
                        Reset(*instance, type, channels, ratio <= 0 ? 0.0 : ratio, 0, 0, flags, clear));
}

HRESULT QnAudio_Resample2Reset(tQNRESAMPLE2INSTANCE* instance, QNSAMPLETYPE type, LONG channels, LONG srcRate,
                               LONG dstRate, DWORD flags, LONG clear) {
  if (!instance) return E_POINTER;
  if (srcRate != 0 || dstRate != 0) {
    // A rate that is kept is that of the fraction in use; without one there is none to keep.
    if (srcRate == 0) srcRate = static_cast<LONG>(instance->clock.srcUnits);
    if (dstRate == 0) dstRate = static_cast<LONG>(instance->clock.dstUnits);
    if (srcRate < 1 || dstRate < 1) return CloseOnFailure(instance, E_INVALIDARG);
  }
  return CloseOnFailure(instance, Reset(*instance, type, channels, 0, srcRate, dstRate, flags, clear));
}

void QnAudio_Resample2Close(tQNRESAMPLE2INSTANCE* instance) {
  delete instance;
}

HRESULT QnAudio_Resample2Process(tQNRESAMPLE2INSTANCE* instance, void* dst, DWORD dstFrames, DWORD* produced,
                                 const void* src, DWORD srcFrames, DWORD* consumed) {
  qn::ResampleCall call = {dst, dstFrames, src, srcFrames, srcFrames == 0, 0, 0};
  HRESULT status = E_POINTER;
  if (instance && (dst || dstFrames == 0) && (src || srcFrames == 0)) status = Run(*instance, call);
  if (status == 0) {
    instance->srcPos += static_cast<int64_t>(call.consumed);
    instance->dstPos += static_cast<int64_t>(call.produced);
  }
  if (produced) *produced = static_cast<DWORD>(call.produced);
  if (consumed) *consumed = static_cast<DWORD>(call.consumed);
  return status;
}

DWORD QnAudio_Resample2GetSrcFromDst(tQNRESAMPLE2INSTANCE* instance, DWORD dstFrames) {
  if (!instance || dstFrames == 0) return 0;
  const DWORD mode = ModeOfCall(*instance);
  const bool linear = mode == QNRESAMPLE2_LINEAR;
  if (!linear && mode != QNRESAMPLE2_CUBIC && mode != QNRESAMPLE2_SINC) return 0;
  // The linear mode counts the frame before the next output as one to be supplied, though a call may have
  // taken it already.
  const int64_t load = std::max<int64_t>(LoadOf(*instance, mode), linear ? 1 : 0);
  const uint64_t frames = static_cast<uint64_t>(load) + FramesBehind(instance->clock, dstFrames, linear);
  return static_cast<DWORD>(std::min<uint64_t>(frames, 0xFFFFFFFF));
}

int64_t QnAudio_Resample2GetSrcPos(tQNRESAMPLE2INSTANCE* instance) {
  return instance ? instance->srcPos : 0;
}

int64_t QnAudio_Resample2GetDstPos(tQNRESAMPLE2INSTANCE* instance) {
  return instance ? instance->dstPos : 0;
}
