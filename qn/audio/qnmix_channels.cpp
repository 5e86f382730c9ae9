// Mix-channels kernels: one channel of interleaved audio added to one channel of another buffer. They pick
// the samples of both channels up, mix them with the mix kernels' code and put them down again.
#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "qn/audio/qnmix_internal.h"

namespace qn {
namespace {

constexpr size_t kChunk = 256;  // samples that are mixed at a time

// The samples of one channel.
template <typename Byte>
struct Channel {
  Byte* first;
  size_t stride;  // bytes from one sample to the next

  Byte* At(size_t frame) const { return first + frame * stride; }
};
using Source = Channel<const uint8_t>;
using Target = Channel<uint8_t>;

template <size_t kBytes, typename Byte>
void PickUp(uint8_t* to, Channel<Byte> from, size_t frames) {
  for (size_t i = 0; i < frames; ++i) std::memcpy(to + i * kBytes, from.At(i), kBytes);
}

template <size_t kBytes>
void PutDown(Target to, const uint8_t* from, size_t frames) {
  for (size_t i = 0; i < frames; ++i) std::memcpy(to.At(i), from + i * kBytes, kBytes);
}

// True when a frame's result can lie on the source of another frame.
bool AreTangled(Target to, size_t toBytes, Source from, size_t fromBytes, size_t frames) {
  const uintptr_t dst = reinterpret_cast<uintptr_t>(to.first), src = reinterpret_cast<uintptr_t>(from.first);
  const bool apart =
      dst >= src + (frames - 1) * from.stride + fromBytes || src >= dst + (frames - 1) * to.stride + toBytes;
  const size_t span = dst < src ? src - dst + fromBytes : dst - src + toBytes;
  return !apart && (to.stride != from.stride || std::max({span, toBytes, fromBytes}) > to.stride);
}

// The unsigned sum of two stored bytes of type 16, with 127 for its limit: hosts know it so.
uint8_t AddBytes(uint8_t a, uint8_t b) {
  return static_cast<uint8_t>(std::min(a + b, 127));
}

template <int kDst, int kSrc>
void MixChannel(Target to, Source from, size_t frames, double gain) {
  constexpr size_t kDstBytes = kForm<kDst>.bytes, kSrcBytes = kForm<kSrc>.bytes;
  constexpr const MixPair& kPair = kMixPair<kDst, kSrc, ProductOf(kDst, kSrc)>;
  constexpr bool kByteSum = kDst == QNST_PCM8U;
  constexpr uint8_t kSilence = 0x80;
  if (!kByteSum && to.stride == kDstBytes && from.stride == kSrcBytes) {
    return MixSamples(kPair, to.first, from.first, frames, &gain, 1);
  }
  const size_t chunk = AreTangled(to, kDstBytes, from, kSrcBytes, frames) ? 1 : kChunk;
  alignas(64) uint8_t in[kChunk * kSrcBytes], out[kChunk * kDstBytes];
  for (size_t done = 0; done < frames;) {
    const size_t count = std::min(frames - done, chunk);
    const Target target{to.At(done), to.stride};
    PickUp<kSrcBytes>(in, Source{from.At(done), from.stride}, count);
    if constexpr (kByteSum) {
      std::fill_n(out, count, kSilence);
      MixSamples(kPair, out, in, count, &gain, 1);
      for (size_t i = 0; i < count; ++i) *target.At(i) = AddBytes(*target.At(i), out[i]);
    } else {
      PickUp<kDstBytes>(out, target, count);
      MixSamples(kPair, out, in, count, &gain, 1);
      PutDown<kDstBytes>(target, out, count);
    }
    done += count;
  }
}

// The pairs whose kernel has no gain add the source as it is.
constexpr bool HasGain(int dst, int src) {
  if (dst == QNST_FLOAT64 && src == QNST_FLOAT64) return false;
  return dst == QNST_PCM24 || dst == QNST_PCM32 || dst == QNST_FLOAT32 || dst == QNST_FLOAT64 ||
         src == QNST_FLOAT32 || src == QNST_FLOAT64;
}

template <int kDst, int kSrc>
void MixChannelsKernelOf(void* dst, DWORD dstChannels, DWORD dstChannel, const void* src, DWORD srcChannels,
                         DWORD srcChannel, LONG frames, double gain) {
  if (frames <= 0) return;
  constexpr size_t kDstBytes = kForm<kDst>.bytes, kSrcBytes = kForm<kSrc>.bytes;
  MixChannel<kDst, kSrc>({static_cast<uint8_t*>(dst) + dstChannel * kDstBytes, dstChannels * kDstBytes},
                         {static_cast<const uint8_t*>(src) + srcChannel * kSrcBytes, srcChannels * kSrcBytes},
                         static_cast<size_t>(frames), HasGain(kDst, kSrc) ? gain : 1.0);
}

constexpr size_t kPairCount = kMixForms * kMixForms;

template <size_t kPlace>
constexpr QNMIXCHANNELSFUNCTION MakeKernel() {
  constexpr int kDst = kSampleForms[kPlace / kMixForms].type, kSrc = kSampleForms[kPlace % kMixForms].type;
  // Double from type 16 takes the bytes as signed here too.
  constexpr int kReadAs = kDst == QNST_FLOAT64 && kSrc == QNST_PCM8U ? int{QNST_PCM8S} : kSrc;
  return MixChannelsKernelOf<kDst, kReadAs>;
}

template <size_t... kPlace>
constexpr std::array<QNMIXCHANNELSFUNCTION, kPairCount> MakeKernels(std::index_sequence<kPlace...>) {
  return {MakeKernel<kPlace>()...};
}
constexpr auto kKernels = MakeKernels(std::make_index_sequence<kPairCount>());

}  // namespace
}  // namespace qn

extern "C" {

QNMIXCHANNELSFUNCTION QnAudio_GetMixChannelsFunction2(QNSAMPLETYPE dstType, QNSAMPLETYPE srcType) {
  const int dst = qn::SampleFormIndex(dstType), src = qn::SampleFormIndex(srcType);
  if (dst < 0 || src < 0 || dst >= qn::kMixForms || src >= qn::kMixForms) return nullptr;
  return qn::kKernels[static_cast<size_t>(dst * qn::kMixForms + src)];
}

QNMIXCHANNELSFUNCTION QnAudio_GetMixChannelsFunction(const WAVEFORMATEX* dstFormat,
                                                     const WAVEFORMATEX* srcFormat) {
  return QnAudio_GetMixChannelsFunction2(QnAudio_GetSampleType(dstFormat), QnAudio_GetSampleType(srcFormat));
}

HRESULT QnAudio_MixChannels(const WAVEFORMATEX* dstFormat, void* dst, const WAVEFORMATEX* srcFormat,
                            const void* src, DWORD frames, const int* map, const double* gains) {
  if (map == nullptr) return QnAudio_Mix(dstFormat, dst, srcFormat, src, frames, gains);
  if (frames == 0) return S_OK;
  if (dstFormat == nullptr || srcFormat == nullptr) return E_POINTER;
  const QNMIXCHANNELSFUNCTION kernel = QnAudio_GetMixChannelsFunction(dstFormat, srcFormat);
  if (kernel == nullptr) return E_NOTIMPL;
  if (dst == nullptr || src == nullptr || gains == nullptr) return E_POINTER;
  const auto bytesOf = [](const WAVEFORMATEX* format) {
    const int index = qn::SampleFormIndex(QnAudio_GetSampleType(format));
    return static_cast<size_t>(qn::kSampleForms[index].bytes) * format->nChannels;
  };
  constexpr DWORD kLongest = std::numeric_limits<LONG>::max();
  for (int channel = 0; channel < srcFormat->nChannels; ++channel) {
    if (map[channel] < 0 || map[channel] >= dstFormat->nChannels) continue;
    for (DWORD done = 0; done < frames;) {
      const DWORD count = std::min(frames - done, kLongest);
      kernel(static_cast<uint8_t*>(dst) + done * bytesOf(dstFormat), dstFormat->nChannels,
             static_cast<DWORD>(map[channel]), static_cast<const uint8_t*>(src) + done * bytesOf(srcFormat),
             srcFormat->nChannels, static_cast<DWORD>(channel), static_cast<LONG>(count), gains[channel]);
      done += count;
    }
  }
  return S_OK;
}
}
