// The streaming resampler: opening and changing instances, counting frames, positions.
#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <new>

#include "qn/audio/qncopy_rule.h"
#include "qn/audio/qnresample_internal.h"

namespace {

using Instance = tQNRESAMPLEINSTANCE;
constexpr LONG kMaxFrames = std::numeric_limits<LONG>::max();
constexpr DWORD kQualityBits = 0xF, kFilterBits = 0xF0, kHighBits = 0xF00;

// So much below a half that a whole number stays as it is: with it, rounding goes up.
constexpr double kNearlyHalf = 0.499999985;

template <class T>
bool Allocate(std::unique_ptr<T[]>& block, size_t count) {
  block.reset(new (std::nothrow) T[count]());
  return block != nullptr;
}

// Blocks whose size goes with the channels.
bool AllocateHistory(Instance& instance) {
  const auto channels = static_cast<size_t>(instance.channels);
  return Allocate(instance.prevFrame, 2 * qn::PrevFrameSize(instance)) &&
         (instance.quality != QNRESAMPLE_SINC || Allocate(instance.ring, channels * qn::kSincTaps));
}

void SetRatio(Instance& instance, double ratio) {
  instance.ratio = ratio;
  instance.step = 1.0 / ratio;
}

void DesignFilter(Instance& instance) {
  if (!instance.iir) return;
  const DWORD order = qn::FilterOrder(instance);
  *instance.iir = CQnIIR();
  if (order == 0) return;
  const double cutoff = instance.ratio < 1.0 ? instance.ratio * 0.5 : 0.5 / instance.ratio;
  instance.iir->Design(QNIIR_LOWPASS, QNIIR_CHEBYSHEV, order, cutoff, 1.0, 0,
                       static_cast<DWORD>(instance.channels), 0);
}

// The history of a stream that has not begun; nothing is known of its filter.
void ClearHistory(Instance& instance) {
  const auto channels = static_cast<size_t>(instance.channels);
  if (instance.ring) std::fill_n(instance.ring.get(), channels * qn::kSincTaps, 0.0);
  std::fill_n(instance.prevFrame.get(), qn::PrevFrameSize(instance), 0.0);
  instance.needsPrime = true;
  instance.ringFill = 0;
  instance.position = 0;
  instance.srcPos = instance.dstPos = instance.srcOffset = instance.dstOffset = 0;
}

// Reset after the new rates or ratio are in place.
HRESULT ChangeStream(Instance& instance, QNSAMPLETYPE type, LONG channels, bool isNewRatio, bool clear) {
  if (type != QNST_NONE) instance.sampleType = type;
  const CQnIIR running(instance.iir.get());
  if (channels > 0 && channels != instance.channels) {
    instance.channels = channels;
    if (!AllocateHistory(instance)) {
      QnAudio_ResampleClose(&instance);
      return E_OUTOFMEMORY;
    }
    // The sinc primes its new rings, and its positions go on; any other quality starts again.
    clear = clear || instance.quality != QNRESAMPLE_SINC;
    instance.needsPrime = true;
    instance.ringFill = 0;
  }
  if (isNewRatio) instance.srcPos = instance.dstPos = 0;
  DesignFilter(instance);
  if (clear) {
    ClearHistory(instance);
  } else if (instance.iir) {
    instance.iir->SetDelayElementsFrom(&running);
    instance.iir->lastChannelMask = running.lastChannelMask;
  }
  return S_OK;
}

// Positions and offsets are the host's own numbers, so sums go round.
int64_t Sum(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

void Advance(Instance& instance, LONG consumed, LONG produced) {
  instance.srcPos = Sum(instance.srcPos, consumed);
  instance.dstPos = Sum(instance.dstPos, produced);
}

// A double as a count, without what a LONG does not hold. NaN is none.
LONG ToCount(double frames) {
  if (!(frames > 0)) return 0;
  return frames < kMaxFrames ? static_cast<LONG>(frames) : kMaxFrames;
}

double TimeOf(const Instance& instance, double output) {
  return output * instance.step + instance.position;
}

// The outputs that `srcFrames` frames allow. Upsampling, the last one lies at the last frame or before it.
// Downsampling, the first one that is left over does not lie before the last frame. A rough count is brought
// near the answer first, so that the steps to it are few at any ratio.
LONG CountOutputs(const Instance& instance, LONG srcFrames) {
  const double last = srcFrames - 1.0;
  const double near = std::floor((last - instance.position) / instance.step);
  double count = std::trunc(srcFrames * instance.ratio - instance.position);
  if (near > kMaxFrames && count > kMaxFrames) return kMaxFrames;
  if (instance.step <= 1.0) {
    count = std::min(count, near + 3);
    while (count > 0 && TimeOf(instance, count - 1) > last) --count;
  } else {
    count = std::max({count, near - 2, -1.0});
    while (count < kMaxFrames && std::trunc(TimeOf(instance, count)) < last) ++count;
  }
  return ToCount(count);
}

int64_t CountSources(const Instance& instance, double dstFrames) {
  return int64_t{qn::RoundByMagic(TimeOf(instance, dstFrames) + kNearlyHalf)} + (instance.step < 1.0);
}

LONG Convert(Instance& instance, void* dst, LONG dstFrames, const void* src, LONG srcFrames, LONG consumed) {
  switch (instance.quality) {
    case 0:
    case QNRESAMPLE_LINEAR:
    case QNRESAMPLE_FILTERED:
      return qn::ResampleLinear(instance, dst, dstFrames, src, srcFrames);
    case QNRESAMPLE_SINC: {
      if (!instance.IsFloat()) return qn::ResampleLinear(instance, dst, dstFrames, src, srcFrames);
      const LONG produced = QnAudio_Resample_Sinc(instance.sampleType, instance.channels, dst, dstFrames, src,
                                                  srcFrames, &instance);
      // Without this each call would count from a whole frame, and streams of small buffers come out short.
      if (dst != src) instance.position = TimeOf(instance, dstFrames) - consumed;
      return produced;
    }
    default:
      return 0;
  }
}

}  // namespace

namespace qn {

DWORD FilterOrder(const Instance& instance) {
  if (!instance.IsFloat()) return 0;
  const bool isKnown = instance.filterOrder == QNRESAMPLE_LOWPASS_2ND ||
                       instance.filterOrder == QNRESAMPLE_LOWPASS_4TH ||
                       instance.filterOrder == QNRESAMPLE_LOWPASS_6TH;
  return isKnown ? instance.filterOrder >> 3 : 0;
}

void FilterFrames(Instance& instance, QNSAMPLETYPE type, void* out, const void* in, LONG frames) {
  const auto count = static_cast<DWORD>(frames);
  if (type == QNST_FLOAT32) {
    instance.iir->ProcessFloat(static_cast<float*>(out), static_cast<const float*>(in), count, 0);
  } else {
    instance.iir->ProcessDouble(static_cast<double*>(out), static_cast<const double*>(in), count, 0);
  }
}

int32_t RoundByMagic(double value) {
  return static_cast<int32_t>(static_cast<uint32_t>(std::bit_cast<uint64_t>(value + kRoundingMagic)));
}

}  // namespace qn

HRESULT QnAudio_ResampleOpen(tQNRESAMPLEINSTANCE** instance, QNSAMPLETYPE type, LONG srcRate, LONG dstRate,
                             LONG channels, DWORD flags) {
  if (!instance) return E_POINTER;
  *instance = nullptr;
  if (srcRate < 1 || dstRate < 1 || channels < 1 || channels > 0xFFFF) return E_INVALIDARG;
  std::unique_ptr<Instance> made(new (std::nothrow) Instance());
  if (!made) return E_OUTOFMEMORY;
  made->sampleType = type;
  made->channels = channels;
  made->srcRate = srcRate;
  made->dstRate = dstRate;
  SetRatio(*made, static_cast<double>(dstRate) / srcRate);
  made->keepSource = (flags & QNRESAMPLE_KEEP_SOURCE) != 0;
  made->countIsDst = (flags & QNRESAMPLE_COUNT_IS_DST) != 0;
  made->flagsHigh = flags & kHighBits;
  made->filterOrder = flags & kFilterBits;
  made->quality = flags & kQualityBits;
  if (!made->IsFloat() && (made->quality == QNRESAMPLE_SINC || made->filterOrder != 0)) {
    made->quality = QNRESAMPLE_FILTERED;
    made->filterOrder = 0;
  }
  if (made->quality <= QNRESAMPLE_LINEAR) made->filterOrder = 0;
  made->needsPrime = true;
  made->tableScale = static_cast<double>(qn::kSincPoints) / qn::kSincPrime;
  for (int i = 0; i < 27; ++i) made->wrap[i] = (i + qn::kSincTaps - 1) % qn::kSincTaps;
  if (!AllocateHistory(*made)) return E_OUTOFMEMORY;
  if (made->quality == QNRESAMPLE_SINC && !qn::MakeSincTable()) return E_OUTOFMEMORY;
  if (made->IsFloat()) made->iir.reset(new (std::nothrow) CQnIIR);
  DesignFilter(*made);
  *instance = made.release();
  return S_OK;
}

HRESULT QnAudio_ResampleOpenEx(tQNRESAMPLEINSTANCE** instance, QNSAMPLETYPE type, LONG channels, double ratio,
                               DWORD flags) {
  const HRESULT opened = QnAudio_ResampleOpen(instance, type, 1, 1, channels, flags);
  if (FAILED(opened)) return opened;
  const HRESULT status = QnAudio_ResampleResetEx(*instance, QNST_NONE, ratio, 0, 1);
  if (FAILED(status)) *instance = nullptr;
  return status;
}

HRESULT QnAudio_ResampleReset(tQNRESAMPLEINSTANCE* instance, QNSAMPLETYPE type, LONG srcRate, LONG dstRate,
                              LONG channels, LONG clear) {
  if (!instance) return E_POINTER;
  const bool isNewRatio = srcRate > 0 && dstRate > 0;
  if (isNewRatio) {
    instance->srcRate = srcRate;
    instance->dstRate = dstRate;
    SetRatio(*instance, static_cast<double>(dstRate) / srcRate);
  }
  return ChangeStream(*instance, type, channels, isNewRatio, clear != 0);
}

HRESULT QnAudio_ResampleResetEx(tQNRESAMPLEINSTANCE* instance, QNSAMPLETYPE type, double ratio, LONG channels,
                                LONG clear) {
  if (!instance) return E_POINTER;
  // The inverse has to be a number as well.
  const bool isNewRatio = ratio > 0 && std::isfinite(ratio) && std::isfinite(1.0 / ratio);
  if (isNewRatio) SetRatio(*instance, ratio);
  if (type != QNST_NONE && type != QNST_FLOAT32 && type != QNST_FLOAT64) instance->filterOrder = 0;
  return ChangeStream(*instance, type, channels, isNewRatio, clear != 0);
}

HRESULT QnAudio_ResampleClose(tQNRESAMPLEINSTANCE* instance) {
  delete instance;
  if (instance) qn::ReleaseSincTable();
  return S_OK;
}

LONG QnAudio_ResampleEx(tQNRESAMPLEINSTANCE* instance, void* dst, const void* src, LONG count) {
  if (!instance || !dst || !src || count <= 0) return 0;
  if (instance->ratio == 1.0) {
    const size_t bytes = static_cast<size_t>(QnAudio_BytesFromSampleType(instance->sampleType)) *
                         static_cast<size_t>(instance->channels) * static_cast<size_t>(count);
    if (dst != src) std::memmove(dst, src, bytes);
    Advance(*instance, count, count);
    return count;
  }
  LONG dstFrames = count, srcFrames = count;
  if (instance->countIsDst) {
    srcFrames = ToCount(static_cast<double>(CountSources(*instance, count)));
  } else {
    dstFrames = CountOutputs(*instance, count);
  }
  const bool looksAhead = instance->countIsDst && instance->step < 1.0 && srcFrames > 0;
  const LONG consumed = srcFrames - looksAhead;
  const LONG produced = Convert(*instance, dst, dstFrames, src, srcFrames, consumed);
  Advance(*instance, consumed, produced);
  return produced;
}

HRESULT QnAudio_Resample(const WAVEFORMATEX* format, void* dst, LONG dstFrames, const void* src,
                         LONG srcFrames) {
  constexpr DWORD kFlags = QNRESAMPLE_FILTERED | QNRESAMPLE_LOWPASS_4TH | 0x200;
  if (!format || srcFrames <= 0) return S_OK;
  const double dstRate = static_cast<double>(dstFrames) / srcFrames * format->nSamplesPerSec;
  Instance* instance = nullptr;
  if (SUCCEEDED(QnAudio_ResampleOpen(&instance, QnAudio_GetSampleType(format),
                                     ToCount(format->nSamplesPerSec), ToCount(dstRate), format->nChannels,
                                     kFlags))) {
    QnAudio_ResampleEx(instance, dst, src, srcFrames);
    QnAudio_ResampleClose(instance);
  }
  return S_OK;
}

int64_t QnAudio_ResampleGetSrcFromDst(tQNRESAMPLEINSTANCE* instance, int64_t dstFrames) {
  return instance ? CountSources(*instance, static_cast<double>(dstFrames)) : 0;
}

int64_t QnAudio_ResampleGetDstFromSrc(tQNRESAMPLEINSTANCE* instance, int64_t srcFrames) {
  if (!instance) return 0;
  const double frames = static_cast<double>(srcFrames) * instance->ratio - instance->position;
  constexpr double kLimit = 0x1p63;
  if (frames >= kLimit) return std::numeric_limits<int64_t>::max();
  return frames > -kLimit ? static_cast<int64_t>(frames) : std::numeric_limits<int64_t>::min();
}

int64_t QnAudio_ResampleGetSrcPos(tQNRESAMPLEINSTANCE* instance) {
  return instance ? Sum(instance->srcPos, instance->srcOffset) : 0;
}

int64_t QnAudio_ResampleGetDstPos(tQNRESAMPLEINSTANCE* instance) {
  return instance ? Sum(instance->dstPos, instance->dstOffset) : 0;
}

void QnAudio_ResampleSetSrcPos(tQNRESAMPLEINSTANCE* instance, int64_t position) {
  if (instance) instance->srcPos = position;
}

void QnAudio_ResampleSetDstPos(tQNRESAMPLEINSTANCE* instance, int64_t position) {
  if (instance) instance->dstPos = position;
}

void QnAudio_ResampleSetSrcOffset(tQNRESAMPLEINSTANCE* instance, int64_t offset) {
  if (instance) instance->srcOffset = offset;
}

void QnAudio_ResampleSetDstOffset(tQNRESAMPLEINSTANCE* instance, int64_t offset) {
  if (instance) instance->dstOffset = offset;
}

void QnAudio_ResampleStuffPrevSample(tQNRESAMPLEINSTANCE* instance, double left, double right) {
  if (!instance) return;
  instance->prevFrame[0] = left;
  instance->prevFrame[1] = right;
}
