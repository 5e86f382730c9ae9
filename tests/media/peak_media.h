// A media of peaks, which a host's reader reads.
#pragma once

#include "qn/media/peak.h"
#include "tests/media/media_file.h"

namespace qntest {

// Delivers less than asked for. The samples may end before the length.
struct PeakMedia : CQnAudioPeakStreamReader {
  PeakMedia() { WriteFileBytes(folder.Native("m.wav"), {1}); }

  HRESULT Open() override { return opens; }
  HRESULT Read(LONGLONG position, LONGLONG, void* buffer, LONG frames, DWORD* got) override {
    const LONGLONG align = format.nBlockAlign, left = std::ssize(samples) / align - position;
    *got = static_cast<DWORD>(std::clamp<LONGLONG>(left, 0, std::min(frames, most)));
    if (*got) std::memcpy(buffer, &samples[size_t(position * align)], size_t(*got * align));
    return *got ? S_OK : ended;
  }
  HRESULT ReadConverted(LONGLONG, LONGLONG, void*, LONG, DWORD*, const WAVEFORMATEX*) override { return -1; }
  HRESULT Close() override { return S_OK; }
  const WAVEFORMATEX* GetFormat() override { return &format; }
  LONG GetStreamNumber() override { return stream; }
  HRESULT GetName(WCHAR* buffer, LONG size, LONG) override {
    return buffer[name.copy(buffer, static_cast<size_t>(size) - 1)] = 0, S_OK;
  }

  ScratchFolder folder;
  std::u16string name = folder.Path("m.wav");
  WAVEFORMATEX format = MakeFormat(1, 1, 48000, 16);
  Bytes samples;
  LONG most = 30000, stream = -1;
  HRESULT opens = S_OK, ended = S_FALSE;
  IQnAudioPeak* peak = nullptr;
};

}  // namespace qntest
