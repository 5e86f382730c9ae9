// The table of copy kernels, and the lookups and operations that go through it.
#include "qn/audio/qncopy.h"

#include <array>
#include <limits>
#include <utility>

#include "qn/audio/qncopy_internal.h"
#include "qn/audio/qncopy_rule.h"
#include "qn/kernel/qncpu.h"

namespace qn {
namespace {

constexpr LONG kLongest = std::numeric_limits<LONG>::max() / 64 * 64;

template <int kDst, int kSrc>
constexpr CopyPair kPair = {SampleFormIndex(kDst), SampleFormIndex(kSrc),    kForm<kDst>.bytes,
                            kForm<kSrc>.bytes,     RunsBackward(kDst, kSrc), ConvertInOrder<kDst, kSrc>};

// kVariant tells apart the scalar and the vector kernel of a pair where both give the same results.
enum Variant { kScalar, kVector };

template <int kDst, int kSrc, Variant kVariant>
void CopyKernelOf(void* dst, const void* src, LONG samples, float scale) {
  if (samples > 0) CopySamples(kPair<kDst, kSrc>, dst, src, static_cast<size_t>(samples), scale);
}

// One kernel for both directions of a byte swap. A gain is applied in big-endian on both sides: hosts rely
// on that.
template <int kBig, int kLittle>
void SwapKernelOf(void* dst, const void* src, LONG samples, float scale) {
  const CopyPair& pair = scale == 1.0f ? kPair<kBig, kLittle> : kPair<kBig, kBig>;
  if (samples > 0) CopySamples(pair, dst, src, static_cast<size_t>(samples), scale);
}

constexpr bool IsPairOf(int dst, int src, int one, int other) {
  return (dst == one && src == other) || (dst == other && src == one);
}

template <int kDst, int kSrc>
constexpr QNCOPYFUNCTION ScalarKernelOf() {
  if constexpr (!HasCopyKernel(kDst, kSrc)) {
    return nullptr;
  } else if constexpr (IsPairOf(kDst, kSrc, QNST_PCM16BE, QNST_PCM16)) {
    return SwapKernelOf<QNST_PCM16BE, QNST_PCM16>;
  } else if constexpr (IsPairOf(kDst, kSrc, QNST_PCM32BE, QNST_PCM32)) {
    return SwapKernelOf<QNST_PCM32BE, QNST_PCM32>;
  } else {
    return CopyKernelOf<kDst, kSrc, kScalar>;
  }
}

template <int kDst, int kSrc>
CopyKernel MakeKernel() {
  CopyKernel made{static_cast<QNSAMPLETYPE>(kDst), static_cast<QNSAMPLETYPE>(kSrc),
                  ScalarKernelOf<kDst, kSrc>(), nullptr, 0};
  if constexpr (IsPairOf(kDst, kSrc, QNST_PCM16, QNST_FLOAT32)) {
    made.vector = SteppedKernel(made.dst);
    made.vectorMask = QNCPU_SSE2;
  } else if constexpr (IsPairOf(kDst, kSrc, QNST_FLOAT32, QNST_FLOAT64)) {
    made.vector = CopyKernelOf<kDst, kSrc, kVector>;
    made.vectorMask = QNCPU_SSE | QNCPU_SSE2;
  }
  return made;
}

constexpr size_t kPairCount = kSampleFormCount * kSampleFormCount;
constexpr int DstOf(size_t place) {
  return kSampleForms[place / kSampleFormCount].type;
}
constexpr int SrcOf(size_t place) {
  return kSampleForms[place % kSampleFormCount].type;
}

template <size_t... kPlace>
std::array<CopyKernel, kPairCount> MakeKernels(std::index_sequence<kPlace...>) {
  return {MakeKernel<DstOf(kPlace), SrcOf(kPlace)>()...};
}

template <size_t... kPlace>
constexpr std::array<CopyPair, kPairCount> MakePairs(std::index_sequence<kPlace...>) {
  return {kPair<DstOf(kPlace), SrcOf(kPlace)>...};
}

QNCOPYFUNCTION Choose(const CopyKernel& pair) {
  const bool vector = pair.vector != nullptr && (QnGetCPUSupport(0) & pair.vectorMask) == pair.vectorMask;
  return vector ? pair.vector : pair.scalar;
}

const CopyKernel* Find(QNSAMPLETYPE dst, QNSAMPLETYPE src) {
  const int dstIndex = SampleFormIndex(dst), srcIndex = SampleFormIndex(src);
  if (dstIndex < 0 || srcIndex < 0) return nullptr;
  return &CopyKernels()[static_cast<size_t>(dstIndex * kSampleFormCount + srcIndex)];
}

QNSAMPLETYPE TypeOf(const WAVEFORMATEX* format) {
  return QnAudio_GetSampleType(format);
}
QNSAMPLETYPE TypeOf(const _qnwaveformat* format) {
  return format == nullptr ? QNST_NONE : format->sampleType;
}

// `frames` has the range of both the signed and the unsigned counts of the interface.
template <typename Dst, typename Src>
HRESULT Copy(const Dst* dstFormat, void* dst, const Src* srcFormat, const void* src, int64_t frames,
             float scale) {
  if (frames == 0) return S_OK;
  if (dstFormat == nullptr || srcFormat == nullptr) return E_POINTER;
  const CopyKernel* const pair = Find(TypeOf(dstFormat), TypeOf(srcFormat));
  const QNCOPYFUNCTION kernel = pair == nullptr ? nullptr : Choose(*pair);
  if (kernel == nullptr) return E_NOTIMPL;
  const int64_t samples = frames * srcFormat->nChannels;
  if (samples <= 0) return S_OK;
  if (dst == nullptr || src == nullptr) return E_POINTER;
  CopyInPieces(*pair, kernel, dst, src, samples, scale, kLongest);
  return S_OK;
}

}  // namespace

std::span<const CopyKernel> CopyKernels() {
  static const std::array<CopyKernel, kPairCount> kernels =
      MakeKernels(std::make_index_sequence<kPairCount>());
  return kernels;
}

const CopyPair& FindCopyPair(int dstIndex, int srcIndex) {
  static constexpr std::array<CopyPair, kPairCount> kPairs =
      MakePairs(std::make_index_sequence<kPairCount>());
  return kPairs[static_cast<size_t>(dstIndex * kSampleFormCount + srcIndex)];
}

const char* SampleTypeName(QNSAMPLETYPE type) {
  static constexpr const char* kNames[kSampleFormCount] = {"u8",      "s16", "s24",   "s32",   "flt",  "dbl",
                                                           "s24in32", "s8",  "s16be", "s24be", "s32be"};
  const int index = SampleFormIndex(type);
  return index < 0 ? "?" : kNames[index];
}

}  // namespace qn

extern "C" {

QNCOPYFUNCTION QnAudio_GetCopyFunction2(QNSAMPLETYPE dstType, QNSAMPLETYPE srcType) {
  const qn::CopyKernel* const pair = qn::Find(dstType, srcType);
  return pair == nullptr ? nullptr : qn::Choose(*pair);
}

HRESULT QnAudio_CopyChannels(const WAVEFORMATEX* dstFormat, void* dst, const WAVEFORMATEX* srcFormat,
                             const void* src, DWORD frames, const int* map) {
  if (map == nullptr) return qn::Copy(dstFormat, dst, srcFormat, src, frames, 1.0f);
  if (frames == 0) return S_OK;
  if (dstFormat == nullptr || srcFormat == nullptr) return E_POINTER;
  const QNSAMPLETYPE dstType = QnAudio_GetSampleType(dstFormat), srcType = QnAudio_GetSampleType(srcFormat);
  const QNCOPYCHANNELSFUNCTION kernel = QnAudio_GetCopyChannelsFunction2(dstType, srcType);
  if (kernel == nullptr) return E_NOTIMPL;
  if (dst == nullptr || src == nullptr) return E_POINTER;
  for (int channel = 0; channel < srcFormat->nChannels; ++channel) {
    if (map[channel] < 0 || map[channel] >= dstFormat->nChannels) continue;
    qn::CopyChannelInPieces(kernel, dstType, dst, dstFormat->nChannels, static_cast<DWORD>(map[channel]),
                            srcType, src, srcFormat->nChannels, static_cast<DWORD>(channel), frames,
                            qn::kLongest);
  }
  return S_OK;
}
}

QNCOPYFUNCTION QnAudio_GetCopyFunction(const WAVEFORMATEX* dstFormat, const WAVEFORMATEX* srcFormat) {
  return QnAudio_GetCopyFunction2(qn::TypeOf(dstFormat), qn::TypeOf(srcFormat));
}
QNCOPYFUNCTION QnAudio_GetCopyFunction(const WAVEFORMATEX* dstFormat, const _qnwaveformat* srcFormat) {
  return QnAudio_GetCopyFunction2(qn::TypeOf(dstFormat), qn::TypeOf(srcFormat));
}
QNCOPYFUNCTION QnAudio_GetCopyFunction(const _qnwaveformat* dstFormat, const WAVEFORMATEX* srcFormat) {
  return QnAudio_GetCopyFunction2(qn::TypeOf(dstFormat), qn::TypeOf(srcFormat));
}

QNCOPYCHANNELSFUNCTION QnAudio_GetCopyChannelsFunction(const WAVEFORMATEX* dstFormat,
                                                       const WAVEFORMATEX* srcFormat) {
  return QnAudio_GetCopyChannelsFunction2(qn::TypeOf(dstFormat), qn::TypeOf(srcFormat));
}
QNCOPYCHANNELSFUNCTION QnAudio_GetCopyChannelsFunction(const WAVEFORMATEX* dstFormat,
                                                       const _qnwaveformat* srcFormat) {
  return QnAudio_GetCopyChannelsFunction2(qn::TypeOf(dstFormat), qn::TypeOf(srcFormat));
}
QNCOPYCHANNELSFUNCTION QnAudio_GetCopyChannelsFunction(const _qnwaveformat* dstFormat,
                                                       const WAVEFORMATEX* srcFormat) {
  return QnAudio_GetCopyChannelsFunction2(qn::TypeOf(dstFormat), qn::TypeOf(srcFormat));
}

HRESULT QnAudio_Copy(const WAVEFORMATEX* dstFormat, void* dst, const WAVEFORMATEX* srcFormat, const void* src,
                     LONG frames, float scale) {
  return qn::Copy(dstFormat, dst, srcFormat, src, frames, scale);
}
HRESULT QnAudio_Copy(const WAVEFORMATEX* dstFormat, void* dst, const _qnwaveformat* srcFormat,
                     const void* src, LONG frames, float scale) {
  return qn::Copy(dstFormat, dst, srcFormat, src, frames, scale);
}
HRESULT QnAudio_Copy(const _qnwaveformat* dstFormat, void* dst, const WAVEFORMATEX* srcFormat,
                     const void* src, LONG frames, float scale) {
  return qn::Copy(dstFormat, dst, srcFormat, src, frames, scale);
}
HRESULT QnAudio_Copy(const _qnwaveformat* dstFormat, void* dst, const _qnwaveformat* srcFormat,
                     const void* src, LONG frames, float scale) {
  return qn::Copy(dstFormat, dst, srcFormat, src, frames, scale);
}
