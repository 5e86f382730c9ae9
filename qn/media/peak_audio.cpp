#include "qn/media/peak_audio_internal.h"

#include <algorithm>

#include "qn/settings/qnstatus.h"

namespace qn {
namespace {

constexpr int64_t kMostLimit = 0x10000000;
constexpr HRESULT kEndOfData = MakeStatus(0x800A0026);
constexpr DWORD kPhasePerFrame = 16384;
constexpr DWORD kMostFramesAtOnce = 0x10000;  // their phase fits 32 bits

size_t SampleBytes(QNSAMPLETYPE type) {
  return static_cast<size_t>(QnAudio_BytesFromSampleType(type));
}

}  // namespace

PeakKernel::PeakKernel(DWORD peakType, QNSAMPLETYPE source)
    : reduce(QnAudioPeak_GetMinMaxFunction(peakType, source)), type(source), convert(nullptr) {
  if (reduce) return;
  const bool isBigEndian = source == QNST_PCM16BE || source == QNST_PCM24BE || source == QNST_PCM32BE;
  type = isBigEndian ? QnAudio_GetSampleType2(WAVE_FORMAT_PCM,
                                              static_cast<unsigned>(QnAudio_BitsFromSampleType(source)))
                     : static_cast<QNSAMPLETYPE>(peakType);
  convert = QnAudio_GetCopyFunction2(type, source);
  if (convert) reduce = QnAudioPeak_GetMinMaxFunction(peakType, type);
}

PeakAudio::PeakAudio(CQnAudioPeakStreamReader* reader) : reader_(reader), status_(reader->Open()) {
  isOpen_ = SUCCEEDED(status_);
  if (!isOpen_) return;
  // Readers may know their format no sooner.
  const WAVEFORMATEX* const format = reader_->GetFormat();
  if (!format) {
    status_ = QN_E_FILE_OPEN;
    return;
  }
  type_ = QnAudio_GetSampleType(format);
  channels_ = format->nChannels;
  frameBytes_ = SampleBytes(type_) * channels_;
  if (frameBytes_ == 0 || frameBytes_ != format->nBlockAlign) status_ = E_INVALIDARG;
}

PeakAudio::~PeakAudio() {
  if (isOpen_) reader_->Close();
}

HRESULT PeakAudio::Read(int64_t position, int64_t limit, void* buffer, DWORD frames, DWORD* got) {
  *got = 0;
  const HRESULT status =
      reader_->Read(position, std::min(limit, kMostLimit), buffer, static_cast<LONG>(frames), got);
  *got = std::min(*got, frames);
  isEnd_ = status == S_FALSE || status == kEndOfData || *got == 0;
  if (SUCCEEDED(status) || status == kEndOfData) return S_OK;
  *got = 0;
  return status;
}

PeakReducer::PeakReducer(DWORD peakType, QNSAMPLETYPE type, DWORD channels)
    : kernel_(peakType, type),
      channels_(channels),
      frameBytes_(SampleBytes(type) * channels),
      state_((channels + 31) / 32) {
  const size_t widest = std::max(frameBytes_, SampleBytes(kernel_.type) * channels);
  if (kernel_.convert) converted_.emplace();
  const bool isReady = widest > 0 && (!converted_ || converted_->Bytes());
  mostFrames_ = isReady ? std::min(static_cast<DWORD>(kPeakScratchBytes / widest), kMostFramesAtOnce) : 0;
  QnAudioPeak_InitMinMaxArray(kernel_.type, channels_, state_.data());
}

void PeakReducer::Add(const void* frames, uint64_t count, void* out) {
  const auto* from = static_cast<const uint8_t*>(frames);
  do {
    const auto taken = static_cast<DWORD>(std::min<uint64_t>(count, mostFrames_));
    count -= taken;
    const void* source = from;
    if (converted_ && taken > 0) {
      kernel_.convert(converted_->Bytes(), from, static_cast<LONG>(taken * channels_), 1.0f);
      source = converted_->Bytes();
    }
    if (taken > 0) from += taken * frameBytes_;
    // A step of just these frames ends the block with the last of them.
    const bool isLast = out && count == 0;
    const DWORD step = (taken + (isLast ? 0 : 1)) * kPhasePerFrame;
    DWORD left = taken;
    DWORD phase = 0;
    kernel_.reduce(out, 0, step, &source, &left, &phase, channels_, state_.data());
  } while (count > 0);
}

int64_t PeakReducer::AddFrom(PeakAudio& audio, int64_t position, int64_t frames) {
  const PeakScratch buffer;
  if (!buffer.Bytes()) return 0;
  int64_t done = 0;
  while (done < frames) {
    DWORD got = 0;
    const auto wanted = static_cast<DWORD>(std::min<int64_t>(frames - done, mostFrames_));
    if (FAILED(audio.Read(position + done, frames - done, buffer.Bytes(), wanted, &got)) || got == 0) break;
    Add(buffer.Bytes(), got, nullptr);
    done += got;
  }
  return done;
}

void PeakReducer::Continue(const PeakReducer& other) {
  if (const QNCOPYFUNCTION convert = QnAudio_GetCopyFunction2(kernel_.type, other.kernel_.type)) {
    convert(state_.data(), other.state_.data(), static_cast<LONG>(channels_ * 2), 1.0f);
  }
}

void PeakReducer::Continue(DWORD peakType, const void* pairs) {
  QnAudioPeak_PrimeMinMaxArray(kernel_.type, channels_, state_.data(), static_cast<QNSAMPLETYPE>(peakType),
                               pairs);
}

}  // namespace qn
