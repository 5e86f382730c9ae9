// Requests that are answered from the audio itself.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "qn/media/peak_audio_internal.h"
#include "qn/media/peak_object_internal.h"

namespace qn {
namespace {

constexpr DWORD kMostChannels = 32;

// Where a request for pixels goes.
struct PixelRequest {
  PeakAudio& audio;
  int64_t start;
  int64_t frames;
  QNSAMPLETYPE type;
  uint8_t* out;
  LONG pixels;
  DWORD* got;
};

// A pixel for each sample.
HRESULT CopyFrames(const PixelRequest& request, uint8_t* buffer) {
  PeakAudio& audio = request.audio;
  const QNCOPYFUNCTION convert = QnAudio_GetCopyFunction2(request.type, audio.Type());
  if (!convert) return E_INVALIDARG;
  const auto sampleBytes = static_cast<size_t>(QnAudio_BytesFromSampleType(request.type));
  const size_t channels = audio.Channels();
  const auto most =
      static_cast<int64_t>(kPeakScratchBytes / std::max(audio.FrameBytes(), sampleBytes * channels));
  uint8_t* to = request.out;
  for (int64_t done = 0; done < request.frames;) {
    const int64_t left = request.frames - done;
    DWORD frames = 0;
    const HRESULT status =
        audio.Read(request.start + done, left, buffer, static_cast<DWORD>(std::min(left, most)), &frames);
    if (FAILED(status)) return status;
    if (frames == 0) break;
    const size_t samples = frames * channels;
    convert(buffer, buffer, static_cast<LONG>(samples), 1.0f);
    for (size_t i = 0; i < samples; ++i, to += 2 * sampleBytes) {
      std::memcpy(to, buffer + i * sampleBytes, sampleBytes);
      std::memcpy(to + sampleBytes, buffer + i * sampleBytes, sampleBytes);
    }
    done += frames;
    *request.got += frames;
  }
  return S_OK;
}

HRESULT ReduceFrames(const PixelRequest& request, uint8_t* buffer, DWORD step) {
  PeakAudio& audio = request.audio;
  const PeakKernel kernel(static_cast<DWORD>(request.type), audio.Type());
  if (!kernel.reduce) return E_INVALIDARG;
  const DWORD channels = audio.Channels();
  const size_t widest =
      std::max(audio.FrameBytes(), static_cast<size_t>(QnAudio_BytesFromSampleType(kernel.type)) * channels);
  const auto most = static_cast<int64_t>(kPeakScratchBytes / widest);
  tQNAUDIOPEAK_SAMPLESMINMAX state;
  QnAudioPeak_InitMinMaxArray(kernel.type, channels, &state);
  const auto pixels = static_cast<DWORD>(request.pixels);
  DWORD phase = 0;
  DWORD frames = 0;
  const void* from = nullptr;
  const size_t pixelBytes = static_cast<size_t>(QnAudio_BytesFromSampleType(request.type)) * channels * 2;
  bool isBegun = false;
  const auto reduce = [&] {
    const DWORD before = frames;
    const LONG isDone = kernel.reduce(request.out + *request.got * pixelBytes, 0, step, &from, &frames,
                                      &phase, channels, &state);
    *request.got += isDone ? 1 : 0;
    isBegun = !isDone && (isBegun || frames < before);
  };

  HRESULT status = S_OK;
  int64_t done = 0;
  while (done < request.frames && *request.got < pixels) {
    const int64_t left = request.frames - done;
    status =
        audio.Read(request.start + done, left, buffer, static_cast<DWORD>(std::min(left, most)), &frames);
    if (FAILED(status) || frames == 0) break;
    done += frames;
    if (kernel.convert) kernel.convert(buffer, buffer, static_cast<LONG>(frames * channels), 1.0f);
    for (from = buffer; frames > 0 && *request.got < pixels;) reduce();
  }
  // The audio may end early: what has begun is a pixel too. And the step was rounded, so that all frames can
  // have gone into fewer pixels: those left show the last frame again.
  const bool isWhole = done == request.frames;
  while ((isBegun || isWhole) && *request.got < pixels) {
    phase = step;
    frames = 0;
    reduce();
  }
  return status;
}

}  // namespace

HRESULT CQnAudioPeak::RequestFromAudio(int64_t start, int64_t frames, QNSAMPLETYPE type, void* out,
                                       LONG pixels, DWORD* got) {
  const WAVEFORMATEX* const format = reader_->GetFormat();
  if (format && (format->nChannels < 1 || format->nChannels > kMostChannels)) return S_OK;
  const double step = std::trunc((double(pixels / 2) + double(frames) * 16384.0) / double(pixels));
  if (step >= double(0x80000000)) return E_FAIL;
  PeakAudio audio(reader_);
  if (FAILED(audio.Status())) return audio.Status();
  const PeakScratch scratch;
  if (!scratch.Bytes()) return E_OUTOFMEMORY;
  const PixelRequest request{audio, start, frames, type, static_cast<uint8_t*>(out), pixels, got};
  return frames > pixels ? ReduceFrames(request, scratch.Bytes(), static_cast<DWORD>(step))
                         : CopyFrames(request, scratch.Bytes());
}

HRESULT CQnAudioPeak::ReadSamples(LONGLONG start, DWORD type, void* out, DWORD frames, DWORD* got) {
  if (!got) return E_POINTER;
  *got = 0;
  if (!reader_) return E_FAIL;
  if (frames > 0 && !out) return E_POINTER;
  const Guard guard(*this);
  PeakAudio audio(reader_);
  if (FAILED(audio.Status())) return audio.Status();
  const PeakScratch scratch;
  if (!scratch.Bytes()) return E_OUTOFMEMORY;
  const auto wanted = type ? static_cast<QNSAMPLETYPE>(type) : audio.Type();
  const QNCOPYFUNCTION convert = QnAudio_GetCopyFunction2(wanted, audio.Type());
  if (!convert) return E_INVALIDARG;
  const size_t outBytes = static_cast<size_t>(QnAudio_BytesFromSampleType(wanted)) * audio.Channels();
  const auto most = static_cast<DWORD>(kPeakScratchBytes / audio.FrameBytes());
  if (most == 0) return E_INVALIDARG;
  while (*got < frames) {
    const int64_t done = *got;
    if (start > INT64_MAX - done) break;
    const DWORD left = frames - *got;
    DWORD read = 0;
    const HRESULT status = audio.Read(start + done, left, scratch.Bytes(), std::min(left, most), &read);
    if (FAILED(status)) return status;
    if (read == 0) break;
    convert(static_cast<uint8_t*>(out) + *got * outBytes, scratch.Bytes(),
            static_cast<LONG>(read * audio.Channels()), 1.0f);
    *got += read;
  }
  return S_OK;
}

}  // namespace qn
