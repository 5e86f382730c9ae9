// Reversal of the order of frames.
#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "qn/audio/qncopy_internal.h"
#include "qn/audio/qncopy_rule.h"
#include "qn/audio/qnmix.h"

namespace qn {
namespace {

template <size_t kBytes>
void ReverseFrames(uint8_t* data, size_t frames) {
  using Frame = std::array<uint8_t, kBytes>;
  Frame* const first = reinterpret_cast<Frame*>(data);
  std::reverse(first, first + frames);
}

void ReverseLargeFrames(uint8_t* data, size_t frames, size_t bytes) {
  uint8_t* last = data + frames * bytes;
  for (size_t i = 0; i < frames / 2; ++i, data += bytes) {
    last -= bytes;
    std::swap_ranges(data, data + bytes, last);
  }
}

using ReverseFunction = void (*)(uint8_t* data, size_t frames);
constexpr size_t kSmallest = 16;  // frame sizes up to here have a function of their own

// By frame size. That of 16 bytes reverses frames of 12: hosts rely on it.
template <size_t... kBytes>
constexpr std::array<ReverseFunction, kSmallest + 1> MakeFunctions(std::index_sequence<kBytes...>) {
  return {nullptr, ReverseFrames<kBytes + 1>..., ReverseFrames<12>};
}

// More samples than a LONG holds go in pieces.
void Convert(QNSAMPLETYPE dstType, void* dst, QNSAMPLETYPE srcType, const void* src, int64_t samples,
             float scale) {
  const QNCOPYFUNCTION kernel = QnAudio_GetCopyFunction2(dstType, srcType);
  if (kernel == nullptr || samples == 0) return;
  constexpr LONG kLongest = std::numeric_limits<LONG>::max() / kConvertBlock * kConvertBlock;
  const int place = SampleFormIndex(dstType) * kSampleFormCount + SampleFormIndex(srcType);
  CopyInPieces(CopyKernels()[static_cast<size_t>(place)], kernel, dst, src, samples, scale, kLongest);
}

}  // namespace
}  // namespace qn

extern "C" HRESULT QnAudio_Reverse(const WAVEFORMATEX* dstFormat, void* dst, const WAVEFORMATEX* srcFormat,
                                   const void* src, DWORD frames, float scale) {
  static constexpr auto kFunctions = qn::MakeFunctions(std::make_index_sequence<qn::kSmallest - 1>());
  if (frames == 0) return S_OK;
  if (dstFormat == nullptr || srcFormat == nullptr || dst == nullptr || src == nullptr) return E_POINTER;
  if (dstFormat->nChannels == 0) return E_FAIL;
  const QNSAMPLETYPE dstType = QnAudio_GetSampleType(dstFormat), srcType = QnAudio_GetSampleType(srcFormat);
  const size_t dstAlign = dstFormat->nBlockAlign, channels = srcFormat->nChannels;
  const size_t bytes = dstAlign / dstFormat->nChannels * channels;
  // Frames larger than the destination's own and than converted ones may run past the buffer.
  const size_t converted = channels * static_cast<size_t>(QnAudio_BytesFromSampleType(dstType));
  if (bytes > std::max(dstAlign, converted)) return E_FAIL;
  if (src != dst || scale != 1.0f || dstType != srcType) {
    qn::Convert(dstType, dst, srcType, src, int64_t{frames} * srcFormat->nChannels, scale);
  }
  uint8_t* const data = static_cast<uint8_t*>(dst);
  if (bytes > qn::kSmallest) {
    qn::ReverseLargeFrames(data, frames, bytes);
  } else if (bytes > 0) {
    kFunctions[bytes](data, frames);
  }
  return S_OK;
}
