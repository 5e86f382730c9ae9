// The readers that peaks have of their own: one of a wave file, one of samples in memory.
#pragma once

#include <cstdlib>
#include <memory>
#include <string>

#include "qn/media/peak.h"
#include "qn/platform/file.h"

namespace qn {

class CQnAudioPeakWaveFileReader final : public CQnAudioPeakStreamReader {
 public:
  // Looks at the file, as QnGetFileWfx does. GetFormat gives null when it has no readable format. May throw
  // std::bad_alloc.
  explicit CQnAudioPeakWaveFileReader(const WCHAR* path);
  ~CQnAudioPeakWaveFileReader() override;
  CQnAudioPeakWaveFileReader(const CQnAudioPeakWaveFileReader&) = delete;
  CQnAudioPeakWaveFileReader& operator=(const CQnAudioPeakWaveFileReader&) = delete;

  HRESULT Open() override;
  HRESULT Read(LONGLONG position, LONGLONG limit, void* buffer, LONG frames, DWORD* got) override;
  HRESULT ReadConverted(LONGLONG, LONGLONG, void*, LONG, DWORD*, const WAVEFORMATEX*) override {
    return E_NOTIMPL;
  }
  HRESULT Close() override;
  const WAVEFORMATEX* GetFormat() override { return format_.get(); }
  LONG GetStreamNumber() override { return -1; }
  LONGLONG GetLength() override { return length_; }
  HRESULT GetName(WCHAR* buffer, LONG size, LONG full) override;

 private:
  bool SeekTo(int64_t position) const;

  const std::u16string path_;
  std::unique_ptr<WAVEFORMATEX, decltype(&std::free)> format_{nullptr, &std::free};
  int64_t length_ = 0;
  int64_t dataOffset_ = 0;
  HANDLE file_ = INVALID_HANDLE_VALUE;
  int64_t cursor_ = 0;
};

class CQnAudioPeakWaveMemReader final : public CQnAudioPeakStreamReader {
 public:
  // `data` holds `frames` frames and stays the caller's; it has to live as long as the reader.
  CQnAudioPeakWaveMemReader(const WAVEFORMATEX* format, const void* data, int64_t frames);

  HRESULT Open() override;
  HRESULT Read(LONGLONG position, LONGLONG limit, void* buffer, LONG frames, DWORD* got) override;
  HRESULT ReadConverted(LONGLONG, LONGLONG, void*, LONG, DWORD*, const WAVEFORMATEX*) override {
    return E_NOTIMPL;
  }
  HRESULT Close() override { return S_OK; }
  const WAVEFORMATEX* GetFormat() override { return &format_.Format; }
  LONG GetStreamNumber() override { return -1; }
  LONGLONG GetLength() override { return length_; }
  // Gives S_FALSE with a stand-in for the name.
  HRESULT GetName(WCHAR* buffer, LONG size, LONG full) override;

 private:
  // Of an extensible format only the first 18 bytes are taken; who reads on finds zeros.
  WAVEFORMATEXTENSIBLE format_{};
  const uint8_t* data_;
  int64_t length_;
};

}  // namespace qn
