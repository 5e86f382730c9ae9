// Silence and constant samples.
#include <algorithm>
#include <cstring>

#include "qn/audio/qncopy.h"
#include "qn/audio/qnmix.h"

namespace qn {
namespace {

constexpr uint8_t kOffsetSilence = 0x80;

HRESULT Fill(void* dst, uint8_t value, size_t blockAlign, size_t frames) {
  if (dst == nullptr) return E_POINTER;
  std::memset(dst, value, blockAlign * frames);
  return S_OK;
}

template <size_t kBytes>
void FillEvery(uint8_t* to, size_t stride, uint8_t value, size_t frames) {
  for (size_t i = 0; i < frames; ++i, to += stride) std::memset(to, value, kBytes);
}

// The bytes of a sample by tag and bits, as silence by channels knows them; 0 for what it does not handle.
size_t SampleBytes(WORD tag, WORD bits) {
  switch (tag) {
    case WAVE_FORMAT_IEEE_FLOAT:
      return bits == 32 || bits == 64 ? bits / 8 : 0;
    case WAVE_FORMAT_PCM:
    case QNWAVETAG_UNPACKED:
    case QNWAVETAG_SIGNED8:
    case QNWAVETAG_BIGENDIAN:
      return bits == 8 || bits == 16 || bits == 24 || bits == 32 ? bits / 8 : 0;
    default:
      return 0;
  }
}

// Fills `total` bytes with the frame at `frame` over and over, with blocks that grow to what the nearest
// cache holds.
void Repeat(uint8_t* dst, const void* frame, size_t bytes, size_t total) {
  constexpr size_t kBlock = 16384;
  if (bytes == 0) return;
  bytes = std::min(bytes, total);
  std::memmove(dst, frame, bytes);
  size_t block = bytes;
  for (size_t done = bytes; done < total;) {
    if (block < kBlock) block = done;
    const size_t count = std::min(block, total - done);
    std::memcpy(dst + done, dst, count);
    done += count;
  }
}

bool FillsConverted(QNSAMPLETYPE type) {
  return (type >= QNST_PCM16 && type <= QNST_PCM32) || type == QNST_FLOAT32 || type == QNST_FLOAT64 ||
         type == QNST_PCM24IN32;
}

}  // namespace
}  // namespace qn

HRESULT QnAudio_FillSilence(const WAVEFORMATEX* format, void* dst, DWORD frames) {
  if (frames == 0) return S_OK;
  if (format == nullptr) return E_POINTER;
  WORD tag = format->wFormatTag;
  if (tag == WAVE_FORMAT_EXTENSIBLE) {
    WAVEFORMATEXTENSIBLE extensible;
    std::memcpy(&extensible, format, sizeof extensible);
    const GUID subFormat = extensible.SubFormat;
    if (subFormat == KSDATAFORMAT_SUBTYPE_PCM) {
      tag = WAVE_FORMAT_PCM;
    } else if (subFormat == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT) {
      tag = WAVE_FORMAT_IEEE_FLOAT;
    } else {
      return S_OK;
    }
  }
  switch (tag) {
    case WAVE_FORMAT_PCM:
    case QNWAVETAG_BIGENDIAN:
      return qn::Fill(dst, format->wBitsPerSample == 8 ? qn::kOffsetSilence : 0, format->nBlockAlign, frames);
    case WAVE_FORMAT_IEEE_FLOAT:
    case QNWAVETAG_UNPACKED:
    case QNWAVETAG_SIGNED8:
      return qn::Fill(dst, 0, format->nBlockAlign, frames);
    default:
      return E_FAIL;
  }
}

HRESULT QnAudio_FillSilence(const _qnwaveformat* format, void* dst, DWORD frames) {
  if (frames == 0) return S_OK;
  if (format == nullptr) return E_POINTER;
  if (QnAudio_BytesFromSampleType(format->sampleType) == 0) return E_FAIL;
  const uint8_t value = format->sampleType == QNST_PCM8U ? qn::kOffsetSilence : 0;
  return qn::Fill(dst, value, format->nBlockAlign, frames);
}

extern "C" {

HRESULT QnAudio_FillSilenceChannel(const WAVEFORMATEX* format, void* dst, DWORD channel, DWORD frames) {
  if (frames == 0) return S_OK;
  if (format == nullptr) return E_POINTER;
  const DWORD channels = format->nChannels;
  if (channel >= channels) return E_FAIL;
  if (channels < 2) return QnAudio_FillSilence(format, dst, frames);
  const WORD tag = format->wFormatTag, bits = format->wBitsPerSample;
  size_t bytes = qn::SampleBytes(tag, bits);
  // A block align that leaves no room for the samples may be that of the caller's buffer.
  if (bytes == 0 || format->nBlockAlign < channels * bytes) return E_FAIL;
  // 24 bits in words: the block align tells them from packed ones.
  if (tag == QNWAVETAG_UNPACKED && bits == 24 && format->nBlockAlign == channels * 4) bytes = 4;
  if (dst == nullptr) return E_POINTER;
  const uint8_t value = bits == 8 && tag != QNWAVETAG_SIGNED8 ? qn::kOffsetSilence : 0;
  const auto fill = bytes == 1   ? qn::FillEvery<1>
                    : bytes == 2 ? qn::FillEvery<2>
                    : bytes == 3 ? qn::FillEvery<3>
                    : bytes == 4 ? qn::FillEvery<4>
                                 : qn::FillEvery<8>;
  fill(static_cast<uint8_t*>(dst) + channel * bytes, channels * bytes, value, frames);
  return S_OK;
}

HRESULT QnAudio_FillWithSample(const WAVEFORMATEX* dstFormat, void* dst, const WAVEFORMATEX* srcFormat,
                               const void* sample, DWORD frames) {
  if (frames == 0) return S_OK;
  if (dstFormat == nullptr || srcFormat == nullptr || dst == nullptr || sample == nullptr) return E_POINTER;
  uint8_t* const to = static_cast<uint8_t*>(dst);
  const QNSAMPLETYPE dstType = QnAudio_GetSampleType(dstFormat), srcType = QnAudio_GetSampleType(srcFormat);
  const size_t dstAlign = dstFormat->nBlockAlign, srcAlign = srcFormat->nBlockAlign;
  if (dstType == srcType) {
    qn::Repeat(to, sample, std::min(srcAlign, dstAlign), dstAlign * frames);
    return S_OK;
  }
  if (!qn::FillsConverted(dstType) || !qn::FillsConverted(srcType)) {
    QnAudio_FillSilence(dstFormat, dst, frames);
    return S_OK;
  }
  // Both sides count as stereo, whatever their channels. Where a mono format has no room for that, its one
  // sample stands for both.
  const auto dstBytes = static_cast<size_t>(QnAudio_BytesFromSampleType(dstType));
  const auto srcBytes = static_cast<size_t>(QnAudio_BytesFromSampleType(srcType));
  if (dstAlign < dstBytes || srcAlign < srcBytes) return S_OK;
  const bool isMono = srcAlign < 2 * srcBytes || dstAlign < 2 * dstBytes;
  uint8_t converted[2 * sizeof(double)];
  QnAudio_GetCopyFunction2(dstType, srcType)(converted, sample, isMono ? 1 : 2, 1.0f);
  qn::Repeat(to, converted, isMono ? dstBytes : 2 * dstBytes, std::min(dstAlign, 2 * dstBytes) * frames);
  return S_OK;
}
}
