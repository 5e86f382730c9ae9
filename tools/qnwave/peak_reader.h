// The audio of a file for the library's peak objects.
#pragma once

#include <memory>
#include <string>

#include "qn/media/peak.h"
#include "tools/qnwave/audio_input.h"

namespace qnwave {

// Reads from the first sample on, at every position. The library's own reader of wave files starts a scan at
// the file's first byte, which shifts peaks by the length of the header, and takes a data size at its word.
// The file is open as long as the reader is there, and a signal to stop ends its reads.
class PeakReader final : public CQnAudioPeakStreamReader {
 public:
  // False, with the reason reported, when the file cannot be opened.
  bool Start(const AudioSource& source);

  // The first failed read, or S_OK: not every operation of a peak object passes that on.
  HRESULT Failure() const { return failure_; }

  const std::u16string& Path() const { return path_; }

  HRESULT Open() override { return S_OK; }
  HRESULT Read(LONGLONG position, LONGLONG limit, void* buffer, LONG frames, DWORD* got) override;
  HRESULT ReadConverted(LONGLONG, LONGLONG, void*, LONG, DWORD*, const WAVEFORMATEX*) override {
    return E_NOTIMPL;
  }
  HRESULT Close() override { return S_OK; }
  const WAVEFORMATEX* GetFormat() override { return &format_; }
  LONG GetStreamNumber() override { return -1; }
  LONGLONG GetLength() override { return static_cast<LONGLONG>(source_.frames); }
  HRESULT GetName(WCHAR* buffer, LONG size, LONG full) override;

 private:
  AudioSource source_;
  std::u16string path_;
  WAVEFORMATEX format_ = {};
  AudioReader reader_;
  HRESULT failure_ = S_OK;
};

struct ReleasePeaks {
  void operator()(IQnAudioPeak* peaks) const { peaks->Release(); }
};
using Peaks = std::unique_ptr<IQnAudioPeak, ReleasePeaks>;

// The peak object of a reader, for the flags and the resolution of QnAudioPeak_CreateInstance and without a
// table in memory; its result.
HRESULT CreatePeaks(PeakReader* reader, DWORD framesPerPeak, LONG flags, Peaks* peaks);

// The native name of an object's peak file, empty if it has none.
std::string PeakFileName(IQnAudioPeak* peaks);

}  // namespace qnwave
