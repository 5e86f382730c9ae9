// The merging of stored pairs into fewer.
#include <cstring>

#include "qn/media/peak.h"

namespace qn {
namespace {

template <class T>
void ResamplePairs(void* out, LONG srcCount, LONG dstCount, DWORD phase, const void* in, DWORD blocks,
                   DWORD channels) {
  const size_t blockBytes = size_t{channels} * 2 * sizeof(T);
  auto* to = static_cast<uint8_t*>(out);
  const auto* from = static_cast<const uint8_t*>(in);
  int64_t counter = int64_t{srcCount} - phase;
  bool begun = false;
  for (DWORD block = 0; block < blocks; ++block, from += blockBytes) {
    if (!begun) std::memmove(to, from, blockBytes);
    for (size_t at = 0; begun && at < blockBytes; at += 2 * sizeof(T)) {
      T pair[2];
      T other[2];
      std::memcpy(pair, to + at, sizeof pair);
      std::memcpy(other, from + at, sizeof other);
      pair[0] = other[0] < pair[0] ? other[0] : pair[0];
      pair[1] = other[1] > pair[1] ? other[1] : pair[1];
      std::memcpy(to + at, pair, sizeof pair);
    }
    counter -= dstCount;
    begun = counter >= 0;
    if (!begun) {
      counter += srcCount;
      to += blockBytes;
    }
  }
}

}  // namespace
}  // namespace qn

QNAUDIOPEAKRESAMPLEFUNCTION QnAudioPeak_GetPeakResampleFunction(DWORD type, LONG reserved) {
  if (reserved) return nullptr;
  switch (type) {
    case QNST_NONE:
    case QNST_PCM16:
      return qn::ResamplePairs<int16_t>;
    case QNST_PCM8S:
      return qn::ResamplePairs<int8_t>;
    case QNST_PCM32:
      return qn::ResamplePairs<int32_t>;
    case QNST_FLOAT32:
      return qn::ResamplePairs<float>;
    default:
      return nullptr;
  }
}

HRESULT QnAudioPeak_Resample(DWORD type, void* out, LONG srcCount, LONG dstCount, DWORD phase, const void* in,
                             DWORD blocks, DWORD channels) {
  const QNAUDIOPEAKRESAMPLEFUNCTION kernel = QnAudioPeak_GetPeakResampleFunction(type, 0);
  if (!kernel || srcCount < dstCount) return E_UNEXPECTED;
  kernel(out, srcCount, dstCount, phase, in, blocks, channels);
  return S_OK;
}
