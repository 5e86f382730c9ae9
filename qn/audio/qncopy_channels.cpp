// Channel kernels: one channel of interleaved audio into one channel of another buffer. They pick the
// channel's samples up, convert them with the copy kernels' code and put them down again.
#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "qn/audio/qncopy_internal.h"
#include "qn/audio/qncopy_rule.h"
#include "qn/kernel/qncpu.h"

namespace qn {
namespace {

constexpr size_t kChunk = 256;  // samples that are converted at a time

// The samples of one channel.
template <typename Byte>
struct Channel {
  Byte* first;
  size_t stride;  // bytes from one sample to the next

  Byte* At(size_t frame) const { return first + frame * stride; }
};
using Source = Channel<const uint8_t>;
using Target = Channel<uint8_t>;

template <size_t kBytes>
void Move(Target to, Source from, size_t frames) {
  for (size_t i = 0; i < frames; ++i) std::memcpy(to.At(i), from.At(i), kBytes);
}

template <size_t kBytes>
void MoveBackward(Target to, Source from, size_t frames) {
  while (frames-- > 0) std::memcpy(to.At(frames), from.At(frames), kBytes);
}

// A channel that is widened in place, in bytes a frame, has to start from its end.
bool RunsFromEnd(Target to, Source from) {
  return to.stride > from.stride;
}

// Channels of the same type are moved as they are.
template <size_t kBytes>
void MoveChannel(Target to, Source from, size_t frames) {
  RunsFromEnd(to, from) ? MoveBackward<kBytes>(to, from, frames) : Move<kBytes>(to, from, frames);
}

template <int kDst, int kSrc>
void ConvertChannel(Target to, Source from, size_t frames) {
  constexpr size_t kDstBytes = kForm<kDst>.bytes, kSrcBytes = kForm<kSrc>.bytes;
  const CopyPair& pair = FindCopyPair(SampleFormIndex(kDst), SampleFormIndex(kSrc));
  if (to.stride == kDstBytes && from.stride == kSrcBytes) {
    return CopySamples(pair, to.first, from.first, frames, 1.0f);
  }
  alignas(64) uint8_t in[kChunk * kSrcBytes], out[kChunk * kDstBytes];
  for (size_t done = 0; done < frames;) {
    const size_t count = std::min(frames - done, kChunk);
    const size_t at = RunsFromEnd(to, from) ? frames - done - count : done;
    Move<kSrcBytes>({in, kSrcBytes}, {from.At(at), from.stride}, count);
    CopySamples(pair, out, in, count, 1.0f);
    Move<kDstBytes>({to.At(at), to.stride}, {out, kDstBytes}, count);
    done += count;
  }
}

// One sample of the types that only the channel lookup knows: 32-bit words with 16 bits in the low half
// (128), or with 24 bits in the low three bytes (129).
constexpr bool IsWordType(int type) {
  return type == QNST_TAGFE03_16 || type == QNST_TAGFE03_24;
}
constexpr size_t BytesOf(int type) {
  return IsWordType(type) ? 4 : static_cast<size_t>(kSampleForms[SampleFormIndex(type)].bytes);
}

constexpr int32_t SignExtend(uint32_t word, int bits) {
  return static_cast<int32_t>(word << (32 - bits)) >> (32 - bits);
}

template <int kDst>
void StoreFloating(uint8_t* to, double x) {
  using T = std::conditional_t<kDst == QNST_FLOAT32, float, double>;
  const T value = static_cast<T>(x);
  std::memcpy(to, &value, sizeof value);
}

// The pairs with such a type that have a kernel.
constexpr bool HasWordKernel(int dst, int src) {
  switch (src) {
    case QNST_TAGFE03_16:
      return dst == QNST_PCM16 || dst == QNST_PCM24 || dst == QNST_PCM32 || dst == QNST_PCM24IN32 ||
             dst == QNST_FLOAT32 || dst == QNST_FLOAT64;
    case QNST_TAGFE03_24:
      return dst == QNST_PCM16 || dst == QNST_PCM24 || dst == QNST_FLOAT32 || dst == QNST_FLOAT64;
    default:
      return IsWordType(dst) && (src == QNST_PCM16 || src == QNST_PCM24 || src == QNST_FLOAT32);
  }
}

template <int kDst>
void FromWord16(uint8_t* to, uint32_t word) {
  if constexpr (kDst == QNST_FLOAT32 || kDst == QNST_FLOAT64) {
    StoreFloating<kDst>(to, SignExtend(word, 16) * 0x1p-15);
  } else {
    StoreWord<kDst>(to, word << (kForm<kDst>.bits - 16));
  }
}

// The factor does not match the shift, so floats come out 256 times too large. Hosts that use the type expect
// that.
template <int kDst>
void FromWord24(uint8_t* to, uint32_t word) {
  const double x = static_cast<int32_t>(word << 8) * 0x1p-23;
  if constexpr (kDst == QNST_PCM24) {
    StoreWord<kDst>(to, word);
  } else if constexpr (kDst == QNST_PCM16) {
    StoreWord<kDst>(to, ClipAndRound<kDst>(x * FullScale(kForm<kDst>)));
  } else {
    StoreFloating<kDst>(to, x);
  }
}

// Both types keep 16 bits of a 24-bit source for the one, and of a float for the other: the low byte is cut
// off, not rounded.
template <int kDst, int kSrc>
int32_t ToWord(const uint8_t* from) {
  constexpr bool kIs16 = kDst == QNST_TAGFE03_16;
  const auto sample = LoadSample<kSrc>(from);
  if constexpr (kSrc == QNST_PCM16) {
    return kIs16 ? sample : sample * 256;
  } else if constexpr (kSrc == QNST_PCM24) {
    return kIs16 ? sample >> 8 : sample;
  } else {
    const double x = static_cast<double>(sample);
    return kIs16 ? SignExtend(ClipAndRound<QNST_PCM16>(x * 0x1p15), 16)
                 : SignExtend(ClipAndRound<QNST_PCM24>(x * 0x1p23), 24) >> 8;
  }
}

template <int kDst, int kSrc>
void ConvertWord(uint8_t* to, const uint8_t* from) {
  if constexpr (kSrc == QNST_TAGFE03_16) {
    FromWord16<kDst>(to, LoadAs<uint32_t>(from));
  } else if constexpr (kSrc == QNST_TAGFE03_24) {
    FromWord24<kDst>(to, LoadAs<uint32_t>(from));
  } else {
    const int32_t word = ToWord<kDst, kSrc>(from);
    std::memcpy(to, &word, sizeof word);
  }
}

// The movers of 1, 2 and 3 bytes leave a channel that would be spread in place as it is.
bool IsLeftAlone(int dstType, int srcType, const uint8_t* dstFirst, DWORD dstChannels,
                 const uint8_t* srcFirst, DWORD srcChannels) {
  return dstType == srcType && BytesOf(dstType) < 4 && dstFirst == srcFirst && dstChannels > srcChannels;
}

// kVariant tells apart the scalar and the vector kernel of a pair.
enum Variant { kScalar, kVector };

template <int kDst, int kSrc, Variant kVariant>
void ChannelKernelOf(void* dst, DWORD dstChannels, DWORD dstChannel, const void* src, DWORD srcChannels,
                     DWORD srcChannel, LONG count) {
  if (count <= 0) return;
  constexpr size_t kDstBytes = BytesOf(kDst), kSrcBytes = BytesOf(kSrc);
  const size_t frames = static_cast<size_t>(count);
  const Target to{static_cast<uint8_t*>(dst) + dstChannel * kDstBytes, dstChannels * kDstBytes};
  const Source from{static_cast<const uint8_t*>(src) + srcChannel * kSrcBytes, srcChannels * kSrcBytes};
  if (IsLeftAlone(kDst, kSrc, to.first, dstChannels, from.first, srcChannels)) return;
  if constexpr (IsWordType(kDst) || IsWordType(kSrc)) {
    for (size_t i = 0; i < frames; ++i) {
      const size_t at = RunsFromEnd(to, from) ? frames - 1 - i : i;
      ConvertWord<kDst, kSrc>(to.At(at), from.At(at));
    }
  } else if constexpr (kDst == kSrc) {
    MoveChannel<kDstBytes>(to, from, frames);
  } else {
    ConvertChannel<kDst, kSrc>(to, from, frames);
  }
}

constexpr int kTypeCount = kSampleFormCount + 2;
constexpr size_t kPairCount = kTypeCount * kTypeCount;
constexpr int TypeAt(size_t index) {
  if (index < kSampleFormCount) return kSampleForms[index].type;
  return index == kSampleFormCount ? QNST_TAGFE03_16 : QNST_TAGFE03_24;
}

template <size_t kPlace>
constexpr ChannelKernel MakeKernel() {
  constexpr int kDst = TypeAt(kPlace / kTypeCount), kSrc = TypeAt(kPlace % kTypeCount);
  constexpr bool kWord = IsWordType(kDst) || IsWordType(kSrc);
  ChannelKernel made{static_cast<QNSAMPLETYPE>(kDst), static_cast<QNSAMPLETYPE>(kSrc), nullptr, nullptr, 0};
  if constexpr (kWord ? HasWordKernel(kDst, kSrc) : HasCopyKernel(kDst, kSrc)) {
    made.scalar = ChannelKernelOf<kDst, kSrc, kScalar>;
  }
  if constexpr (kDst == QNST_FLOAT64 && kSrc == QNST_PCM16) {
    made.vector = ChannelKernelOf<kDst, kSrc, kVector>;
    made.vectorMask = QNCPU_SSE2;
  }
  return made;
}

template <size_t... kPlace>
constexpr std::array<ChannelKernel, kPairCount> MakeKernels(std::index_sequence<kPlace...>) {
  return {MakeKernel<kPlace>()...};
}

int ChannelTypeIndex(int type) {
  for (size_t i = 0; i < kTypeCount; ++i) {
    if (TypeAt(i) == type) return static_cast<int>(i);
  }
  return -1;
}

}  // namespace

std::span<const ChannelKernel> ChannelKernels() {
  static constexpr auto kKernels = MakeKernels(std::make_index_sequence<kPairCount>());
  return kKernels;
}

void CopyChannelInPieces(QNCOPYCHANNELSFUNCTION kernel, QNSAMPLETYPE dstType, void* dst, DWORD dstChannels,
                         DWORD dstChannel, QNSAMPLETYPE srcType, const void* src, DWORD srcChannels,
                         DWORD srcChannel, DWORD frames, LONG limit) {
  const size_t dstBytes = BytesOf(dstType), srcBytes = BytesOf(srcType);
  const size_t dstFrame = dstChannels * dstBytes, srcFrame = srcChannels * srcBytes;
  if (IsLeftAlone(dstType, srcType, static_cast<uint8_t*>(dst) + dstChannel * dstBytes, dstChannels,
                  static_cast<const uint8_t*>(src) + srcChannel * srcBytes, srcChannels)) {
    return;
  }
  for (DWORD done = 0; done < frames;) {
    const DWORD count = std::min(frames - done, static_cast<DWORD>(limit));
    const size_t at = dstFrame > srcFrame ? frames - done - count : done;
    kernel(static_cast<uint8_t*>(dst) + at * dstFrame, dstChannels, dstChannel,
           static_cast<const uint8_t*>(src) + at * srcFrame, srcChannels, srcChannel,
           static_cast<LONG>(count));
    done += count;
  }
}

}  // namespace qn

extern "C" QNCOPYCHANNELSFUNCTION QnAudio_GetCopyChannelsFunction2(QNSAMPLETYPE dstType,
                                                                   QNSAMPLETYPE srcType) {
  const int dstIndex = qn::ChannelTypeIndex(dstType), srcIndex = qn::ChannelTypeIndex(srcType);
  if (dstIndex < 0 || srcIndex < 0) return nullptr;
  const qn::ChannelKernel& pair =
      qn::ChannelKernels()[static_cast<size_t>(dstIndex * qn::kTypeCount + srcIndex)];
  const bool vector = pair.vector != nullptr && (QnGetCPUSupport(0) & pair.vectorMask) == pair.vectorMask;
  return vector ? pair.vector : pair.scalar;
}
