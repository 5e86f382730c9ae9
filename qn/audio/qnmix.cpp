// The table of mix kernels, the driver that they share, and the lookups and operations that go through them.
#include "qn/audio/qnmix.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "qn/audio/qncopy_internal.h"
#include "qn/audio/qnmix_internal.h"
#include "qn/kernel/qncpu.h"

namespace qn {
namespace {

constexpr size_t kFewSamples = 8;    // up to here single samples are quicker than a padded block
constexpr size_t kMostPeriods = 64;  // channels whose gains are laid out once for all blocks

// The size of the largest gain. Infinite when one is so large or small that the order of multiplications
// could matter.
double Loudest(const double* gains, size_t count) {
  double loudest = 0;
  bool moderate = true;
  for (size_t i = 0; i < count; ++i) {
    const double size = std::fabs(gains[i]);
    moderate &= size == 0 || (size >= 0x1p-900 && size <= 0x1p900);
    loudest = loudest < size ? size : loudest;
  }
  return moderate ? loudest : std::numeric_limits<double>::infinity();
}

// The one gain of all channels, if a float holds it; else a NaN.
float CommonGain(const double* gains, size_t count) {
  const float gain = static_cast<float>(gains[0]);
  const bool common =
      std::all_of(gains, gains + count, [&](double x) { return x == static_cast<double>(gain); });
  return common ? gain : std::numeric_limits<float>::quiet_NaN();
}

bool Overlap(const MixPair& pair, const uint8_t* dst, const uint8_t* src, size_t samples) {
  const uintptr_t dstAt = reinterpret_cast<uintptr_t>(dst), srcAt = reinterpret_cast<uintptr_t>(src);
  return dstAt < srcAt + samples * pair.srcBytes && srcAt < dstAt + samples * pair.dstBytes;
}

// A mixer on any number of samples: what is left of a block is mixed on the stack.
void MixBlocks(const MixPair& pair, MixFunction mix, uint8_t* dst, const uint8_t* src, size_t samples,
               const double* pattern, size_t period) {
  const size_t whole = samples / kConvertBlock * kConvertBlock, rest = samples - whole;
  if (whole > 0) mix(dst, src, whole, pattern, period);
  if (rest == 0) return;
  alignas(64) uint8_t in[kConvertBlock * 8] = {}, out[kConvertBlock * 8] = {};
  std::memcpy(in, src + whole * pair.srcBytes, rest * pair.srcBytes);
  std::memcpy(out, dst + whole * pair.dstBytes, rest * pair.dstBytes);
  mix(out, in, kConvertBlock, pattern + whole % period, period);
  std::memcpy(dst + whole * pair.dstBytes, out, rest * pair.dstBytes);
}

// True where a copy with this gain makes just what is to be added. From floats a copy multiplies in single
// precision; and it takes 24-bit words among themselves as they are.
bool IsCopyAndAdd(const MixPair& pair, float gain) {
  constexpr int kWord24 = SampleFormIndex(QNST_PCM24IN32);
  if (std::isnan(gain)) return false;
  return gain == 1.0f ? pair.dst != kWord24 || pair.src != kWord24 : !kSampleForms[pair.src].isFloat;
}

// What is added may be the source itself.
bool IsPlainAdd(const MixPair& pair, float gain) {
  return pair.dst == pair.src && gain == 1.0f;
}

// False for buffers beyond the cache whose samples are large: memory is slower than any mixer then, and wants
// to be walked evenly.
bool IsWorthAStage(const MixPair& pair, size_t samples) {
  const size_t bytes = pair.dstBytes + pair.srcBytes;
  return bytes <= 4 || samples * bytes < kStreamingBytes;
}

// Buffers that do not overlap.
void CopyAndAdd(const MixPair& pair, AddFunction add, uint8_t* dst, const uint8_t* src, size_t samples,
                float gain) {
  constexpr size_t kChunk = 1024;
  const CopyPair& copy = FindCopyPair(pair.dst, pair.src);
  alignas(64) uint8_t words[kChunk * 4];
  size_t done = IsPlainAdd(pair, gain) ? samples / kConvertBlock * kConvertBlock : 0;
  if (done > 0) add(dst, src, done);
  while (done < samples) {
    const size_t count = std::min(samples - done, kChunk), whole = count / kConvertBlock * kConvertBlock;
    uint8_t* const to = dst + done * pair.dstBytes;
    CopySamples(copy, words, src + done * pair.srcBytes, count, gain);
    add(to, words, whole);
    if (whole < count) {
      const size_t ours = (count - whole) * pair.dstBytes;
      alignas(64) uint8_t addend[kConvertBlock * 4] = {}, sum[kConvertBlock * 4] = {};
      std::memcpy(addend, words + whole * pair.dstBytes, ours);
      std::memcpy(sum, to + whole * pair.dstBytes, ours);
      add(sum, addend, kConvertBlock);
      std::memcpy(to + whole * pair.dstBytes, sum, ours);
    }
    done += count;
  }
}

template <int kDst, int kSrc, Product kProduct>
void MixKernelOf(void* dst, const void* src, LONG samples, DWORD channels, const double* gains) {
  constexpr bool kSame = kDst == kSrc, kWide = kDst == QNST_PCM24 || kDst == QNST_PCM32;
  constexpr bool kFirstGainOnly =
      kSame && (kDst == QNST_PCM8U || kDst == QNST_PCM16 || kDst == QNST_PCM24IN32);
  if (samples <= 0 || (kSame && !kWide && dst == src)) return;
  const size_t period = kFirstGainOnly || channels == 0 ? 1 : channels;
  MixSamples(kMixPair<kDst, kSrc, kProduct>, dst, src, static_cast<size_t>(samples), gains, period);
}

bool IsAligned(const void* address) {
  return reinterpret_cast<uintptr_t>(address) % 16 == 0;
}

// Float from float in single precision.
void MixAligned(void* dst, const void* src, LONG samples, DWORD channels, const double* gains) {
  constexpr auto kSingle = MixKernelOf<QNST_FLOAT32, QNST_FLOAT32, Product::kSingle>;
  constexpr auto kScalar = MixKernelOf<QNST_FLOAT32, QNST_FLOAT32, Product::kPlain>;
  const auto kernel = IsAligned(dst) && IsAligned(src) ? kSingle : kScalar;
  kernel(dst, src, samples, channels, gains);
}

constexpr size_t kPairCount = kMixForms * kMixForms;

template <size_t kPlace>
constexpr MixKernel MakeKernel() {
  constexpr int kDst = kSampleForms[kPlace / kMixForms].type, kSrc = kSampleForms[kPlace % kMixForms].type;
  // Double from type 16 takes the bytes as signed: hosts rely on it.
  constexpr int kReadAs = kDst == QNST_FLOAT64 && kSrc == QNST_PCM8U ? int{QNST_PCM8S} : kSrc;
  constexpr bool kFloats = kDst == QNST_FLOAT32 && kSrc == QNST_FLOAT32;
  return {static_cast<QNSAMPLETYPE>(kDst), static_cast<QNSAMPLETYPE>(kSrc),
          MixKernelOf<kDst, kReadAs, ProductOf(kDst, kReadAs)>, kFloats ? MixAligned : nullptr, QNCPU_SSE2};
}

template <size_t... kPlace>
constexpr std::array<MixKernel, kPairCount> MakeKernels(std::index_sequence<kPlace...>) {
  return {MakeKernel<kPlace>()...};
}

// Calls a kernel for more samples than a LONG holds, in pieces of whole frames.
void MixInPieces(QNMIXFUNCTION kernel, QNSAMPLETYPE dstType, void* dst, QNSAMPLETYPE srcType, const void* src,
                 int64_t samples, DWORD channels, const double* gains) {
  constexpr int64_t kLongest = std::numeric_limits<LONG>::max();
  const size_t dstBytes = kSampleForms[SampleFormIndex(dstType)].bytes;
  const size_t srcBytes = kSampleForms[SampleFormIndex(srcType)].bytes;
  for (int64_t done = 0; done < samples;) {
    const int64_t count = std::min(samples - done, kLongest - kLongest % channels);
    const size_t at = static_cast<size_t>(done);
    kernel(static_cast<uint8_t*>(dst) + at * dstBytes, static_cast<const uint8_t*>(src) + at * srcBytes,
           static_cast<LONG>(count), channels, gains);
    done += count;
  }
}

}  // namespace

const Mixer& FindMixer(int dstIndex, int srcIndex) {
  const SampleForm& to = kSampleForms[dstIndex];
  if (to.isFloat) return FindMixerToFloat(dstIndex, srcIndex);
  return to.bits <= 16 ? FindMixerTo8And16(dstIndex, srcIndex) : FindMixerTo24And32(dstIndex, srcIndex);
}

void MixSamples(const MixPair& pair, void* dstBuffer, const void* srcBuffer, size_t samples,
                const double* gains, size_t channels) {
  uint8_t* const dst = static_cast<uint8_t*>(dstBuffer);
  const uint8_t* const src = static_cast<const uint8_t*>(srcBuffer);
  const size_t gainCount = std::min(channels, samples);
  const Mixer& mixer = FindMixer(pair.dst, pair.src);
  if (mixer.wide == nullptr || samples <= kFewSamples || Overlap(pair, dst, src, samples)) {
    return pair.inOrder(dst, src, samples, gains, channels);
  }
  if (mixer.add != nullptr) {
    const float common = CommonGain(gains, gainCount);
    if (IsCopyAndAdd(pair, common) && (IsPlainAdd(pair, common) || IsWorthAStage(pair, samples))) {
      return CopyAndAdd(pair, mixer.add, dst, src, samples, common);
    }
  }
  const double loudest = Loudest(gains, gainCount);
  if (std::isinf(loudest)) return pair.inOrder(dst, src, samples, gains, channels);
  const MixFunction mix = pair.product == Product::kSingle                   ? mixer.single
                          : loudest <= kSoftestGain && mixer.soft != nullptr ? mixer.soft
                                                                             : mixer.wide;
  double pattern[kMostPeriods + kConvertBlock];
  size_t channel = 0;
  const auto fill = [&](size_t count) {
    for (size_t i = 0; i < count; ++i) {
      pattern[i] = gains[channel] * pair.factor;
      if (++channel == channels) channel = 0;
    }
  };
  if (channels <= kMostPeriods) {
    fill(channels + kConvertBlock);
    return MixBlocks(pair, mix, dst, src, samples, pattern, channels);
  }
  for (size_t done = 0; done < samples; done += kConvertBlock) {
    fill(kConvertBlock);
    MixBlocks(pair, mix, dst + done * pair.dstBytes, src + done * pair.srcBytes,
              std::min(samples - done, kConvertBlock), pattern, kConvertBlock);
  }
}

void MixLaidOut(const MixPair& pair, uint8_t* dst, const uint8_t* src, size_t samples, double* gains) {
  const MixFunction mix = FindMixer(pair.dst, pair.src).wide;
  if (mix != nullptr && samples > kFewSamples && !Overlap(pair, dst, src, samples)) {
    return MixBlocks(pair, mix, dst, src, samples, gains, samples);
  }
  for (size_t i = 0; i < samples; ++i) gains[i] /= pair.factor;  // a power of two
  pair.inOrder(dst, src, samples, gains, samples);
}

void MixAtUnity(QNMIXFUNCTION kernel, QNSAMPLETYPE dstType, void* dst, QNSAMPLETYPE srcType, const void* src,
                int64_t samples) {
  constexpr double kUnity = 1.0;
  MixInPieces(kernel, dstType, dst, srcType, src, samples, 1, &kUnity);
}

std::span<const MixKernel> MixKernels() {
  static constexpr auto kKernels = MakeKernels(std::make_index_sequence<kPairCount>());
  return kKernels;
}

}  // namespace qn

extern "C" {

QNMIXFUNCTION QnAudio_GetMixFunction2(QNSAMPLETYPE dstType, QNSAMPLETYPE srcType) {
  const int dst = qn::SampleFormIndex(dstType), src = qn::SampleFormIndex(srcType);
  if (dst < 0 || src < 0 || dst >= qn::kMixForms || src >= qn::kMixForms) return nullptr;
  const qn::MixKernel& pair = qn::MixKernels()[static_cast<size_t>(dst * qn::kMixForms + src)];
  return pair.vector != nullptr && (QnGetCPUSupport(0) & pair.vectorMask) != 0 ? pair.vector : pair.scalar;
}

QNMIXFUNCTION QnAudio_GetMixFunction(const WAVEFORMATEX* dstFormat, const WAVEFORMATEX* srcFormat) {
  return QnAudio_GetMixFunction2(QnAudio_GetSampleType(dstFormat), QnAudio_GetSampleType(srcFormat));
}

HRESULT QnAudio_Mix(const WAVEFORMATEX* dstFormat, void* dst, const WAVEFORMATEX* srcFormat, const void* src,
                    DWORD frames, const double* gains) {
  if (frames == 0) return S_OK;
  if (dstFormat == nullptr || srcFormat == nullptr) return E_POINTER;
  const QNMIXFUNCTION kernel = QnAudio_GetMixFunction(dstFormat, srcFormat);
  if (kernel == nullptr) return E_NOTIMPL;
  if (srcFormat->nChannels == 0) return S_OK;
  if (dst == nullptr || src == nullptr || gains == nullptr) return E_POINTER;
  qn::MixInPieces(kernel, QnAudio_GetSampleType(dstFormat), dst, QnAudio_GetSampleType(srcFormat), src,
                  int64_t{frames} * srcFormat->nChannels, srcFormat->nChannels, gains);
  return S_OK;
}
}
