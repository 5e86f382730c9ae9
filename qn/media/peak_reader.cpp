#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "qn/media/peak_reader_internal.h"
#include "qn/media/qnwav.h"
#include "qn/settings/qnstatus.h"

namespace qn {
namespace {

// Cuts the name where the buffer ends.
HRESULT CopyName(std::u16string_view name, WCHAR* buffer, LONG size, HRESULT done) {
  if (!buffer || size < 1) return E_INVALIDARG;
  buffer[name.copy(buffer, static_cast<size_t>(size) - 1)] = 0;
  return done;
}

// How many of the frames asked for lie between the position and the end.
int64_t FramesToRead(LONG frames, int64_t left) {
  return std::clamp<int64_t>(frames, 0, left);
}

}  // namespace

CQnAudioPeakWaveFileReader::CQnAudioPeakWaveFileReader(const WCHAR* path) : path_(path) {
  uint64_t frames = 0;
  uint64_t start = 0;
  format_.reset(QnGetFileWfx(path, &frames, &start));
  length_ = static_cast<int64_t>(frames);
  dataOffset_ = static_cast<int64_t>(start);
}

CQnAudioPeakWaveFileReader::~CQnAudioPeakWaveFileReader() {
  Close();
}

HRESULT CQnAudioPeakWaveFileReader::Open() {
  Close();
  if (!format_ || format_->wFormatTag == 0 || format_->nBlockAlign == 0) return QN_E_FILE_OPEN;
  file_ = CreateFileW(path_.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                      FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
  return file_ == INVALID_HANDLE_VALUE ? QN_E_FILE_OPEN : S_OK;
}

bool CQnAudioPeakWaveFileReader::SeekTo(int64_t position) const {
  LARGE_INTEGER to;
  if (position > (std::numeric_limits<int64_t>::max() - dataOffset_) / format_->nBlockAlign) return false;
  to.QuadPart = dataOffset_ + position * format_->nBlockAlign;
  return SetFilePointerEx(file_, to, nullptr, FILE_BEGIN);
}

HRESULT CQnAudioPeakWaveFileReader::Read(LONGLONG position, LONGLONG, void* buffer, LONG frames, DWORD* got) {
  if (!buffer || !got) return E_POINTER;
  *got = 0;
  if (file_ == INVALID_HANDLE_VALUE) return QN_E_FILE_OPEN;
  if (position < 0) return QN_E_FILE_READ;
  if (position >= length_) return S_OK;

  // The file was opened at its first byte with a cursor of 0, so a first read at 0 does not seek to the
  // samples, and the reads that follow on it do not either. Peaks that hosts keep were made so.
  if (position != cursor_) {
    if (!SeekTo(position)) return QN_E_FILE_READ;
    cursor_ = position;
  }
  const DWORD align = format_->nBlockAlign;
  const auto most = static_cast<int64_t>(std::numeric_limits<DWORD>::max() / align);
  const auto wanted = static_cast<DWORD>(std::min(FramesToRead(frames, length_ - cursor_), most));
  DWORD bytes = 0;
  if (!ReadFile(file_, buffer, wanted * align, &bytes, nullptr)) {
    cursor_ = -1;
    return QN_E_FILE_READ;
  }
  *got = bytes / align;
  cursor_ += *got;
  return S_OK;
}

HRESULT CQnAudioPeakWaveFileReader::Close() {
  if (file_ != INVALID_HANDLE_VALUE) CloseHandle(file_);
  file_ = INVALID_HANDLE_VALUE;
  cursor_ = 0;
  return S_OK;
}

HRESULT CQnAudioPeakWaveFileReader::GetName(WCHAR* buffer, LONG size, LONG) {
  return CopyName(path_, buffer, size, S_OK);
}

CQnAudioPeakWaveMemReader::CQnAudioPeakWaveMemReader(const WAVEFORMATEX* format, const void* data,
                                                     int64_t frames)
    : data_(static_cast<const uint8_t*>(data)), length_(std::max<int64_t>(frames, 0)) {
  if (!format) return;
  // Records of the plain tags may end before cbSize.
  const bool plain = format->wFormatTag == WAVE_FORMAT_PCM || format->wFormatTag == WAVE_FORMAT_IEEE_FLOAT;
  std::memcpy(&format_, format, plain ? 16 : 18);
}

HRESULT CQnAudioPeakWaveMemReader::Open() {
  return format_.Format.wFormatTag && data_ ? S_OK : QN_E_FILE_OPEN;
}

HRESULT CQnAudioPeakWaveMemReader::Read(LONGLONG position, LONGLONG, void* buffer, LONG frames, DWORD* got) {
  if (!buffer || !got) return E_POINTER;
  *got = 0;
  if (!data_) return QN_E_FILE_OPEN;
  if (position < 0) return QN_E_FILE_READ;
  // A read at the last frame delivers nothing; hosts rely on that.
  if (position >= length_ - 1) return S_OK;
  *got = static_cast<DWORD>(FramesToRead(frames, length_ - position));
  const size_t align = format_.Format.nBlockAlign;
  std::memcpy(buffer, data_ + static_cast<size_t>(position) * align, *got * align);
  return S_OK;
}

HRESULT CQnAudioPeakWaveMemReader::GetName(WCHAR* buffer, LONG size, LONG) {
  return CopyName(W("::(Memory)::"), buffer, size, S_FALSE);
}

}  // namespace qn

HRESULT QnAudio_CreateWaveFileStreamReader(CQnAudioPeakStreamReader** out, const WCHAR* name) try {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (!name) return E_INVALIDARG;
  auto reader = std::make_unique<qn::CQnAudioPeakWaveFileReader>(name);
  if (!reader->GetFormat()) return QN_E_FILE_OPEN;
  *out = reader.release();
  return S_OK;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

HRESULT QnAudio_DestroyWaveFileStreamReader(CQnAudioPeakStreamReader* reader) {
  delete reader;
  return S_OK;
}
