// Opening and closing of audio streams, their position, formats and numbers.
#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <type_traits>

#include "qn/media/chunkio_internal.h"
#include "qn/media/qnaudiostream_internal.h"
#include "qn/media/qnwav.h"
#include "qn/platform/file.h"
#include "qn/platform/memory.h"
#include "qn/settings/qnstatus.h"

namespace qn {
namespace {

constexpr DWORD kHeaderBytes = 46;

// False for a name that a record has no room for: cut, it would be that of another file.
bool NameFits(const WCHAR* name) {
  constexpr size_t kRoom = std::extent_v<decltype(QnAudioStreamRecord::path)>;
  size_t length = 0;
  while (length < kRoom && name[length] != 0) ++length;
  return length < kRoom;
}

// Copies a name that fits, which may be the record's own.
void CopyName(QnAudioStreamRecord* stream, const WCHAR* name) {
  for (WCHAR* to = stream->path; (*to++ = *name++) != 0;) {
  }
}

bool FillStart(HANDLE file, uint64_t bytes) {
  static constexpr uint8_t kZeros[4096] = {};
  for (uint64_t left = bytes; left > 0;) {
    const uint64_t count = std::min<uint64_t>(left, sizeof kZeros);
    if (!WriteExactly(file, kZeros, count)) return false;
    left -= count;
  }
  return true;
}

// The sample type of a format if its frames are what the type says; else 0, since counts of frames and of
// samples would not agree.
QNSAMPLETYPE PlainType(const WAVEFORMATEX& format, QNSAMPLETYPE type) {
  const int frame = QnAudio_BytesFromSampleType(type) * format.nChannels;
  return frame != 0 && frame == format.nBlockAlign ? type : QNST_NONE;
}

// The file part of an opening, with the name, flags and data offset in the record.
HRESULT OpenStreamFile(QnAudioStreamRecord* stream) {
  const DWORD flags = stream->flags;
  const bool create = (flags & QNAUDIOSTREAM_CREATE) != 0;
  const bool readOnly = !create && (flags & QNAUDIOSTREAM_READ_ONLY) != 0;
  if (create && ForbidsWrites(flags)) return E_INVALIDARG;
  const DWORD access = readOnly ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE;
  const DWORD share = create || readOnly ? FILE_SHARE_READ : flags & 0xFFFF;
  const HANDLE file = CreateFileW(stream->path, access, share, nullptr,
                                  create ? CREATE_ALWAYS : OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return E_FAIL;
  stream->file = file;
  return S_OK;
}

// What follows when the file is open. The types are those of the formats, which may have been longer.
HRESULT SetUp(QnAudioStreamRecord* stream, const WAVEFORMATEX& fileFormat, QNSAMPLETYPE fileType,
              const WAVEFORMATEX& clientFormat, QNSAMPLETYPE clientType, const WAVEFORMATEX& thirdFormat) {
  if ((stream->flags & QNAUDIOSTREAM_CREATE) && !FillStart(stream->file, stream->dataOffset)) {
    return E_OUTOFMEMORY;
  }
  stream->fileFormat = fileFormat;
  stream->clientFormat = clientFormat;
  stream->thirdFormat = thirdFormat;
  stream->fileType = PlainType(fileFormat, fileType);
  stream->clientType = PlainType(clientFormat, clientType);
  stream->readCopy = QnAudio_GetCopyFunction2(stream->clientType, stream->fileType);
  stream->writeCopy = QnAudio_GetCopyFunction2(stream->fileType, stream->clientType);
  if (!stream->readCopy || !stream->writeCopy) return E_NOTIMPL;
  stream->bufferBytes = kStreamBufferBytes;
  stream->bufferFrames = kStreamBufferBytes / clientFormat.nBlockAlign;
  if (QnAudio_IsEqualFormat(&fileFormat, &clientFormat) && stream->fileType == stream->clientType)
    return S_OK;
  stream->conversionBuffer = std::calloc(1, kStreamBufferBytes);
  if (!stream->conversionBuffer) return E_OUTOFMEMORY;
  stream->conversionFrames = kStreamBufferBytes / fileFormat.nBlockAlign;
  return S_OK;
}

// Moves the file by `bytes` in the way of an origin with 0x100; the place reached, or -1.
int64_t MoveFile(const QnAudioStreamRecord& stream, int64_t bytes, LONG origin) {
  LARGE_INTEGER distance, landed;
  distance.QuadPart = bytes;
  const auto method = static_cast<DWORD>(origin) & ~0x100u;
  return SetFilePointerEx(stream.file, distance, &landed, method) ? landed.QuadPart : -1;
}

// Moves a cursor as far as that is arithmetic.
void MoveCursor(ULONGLONG* cursor, LONGLONG offset, LONG origin, ULONGLONG end) {
  const auto distance = static_cast<ULONGLONG>(offset);
  if (origin == 0) *cursor = distance;
  if (origin == 1) *cursor += distance;
  if (origin == 2) *cursor = end + distance;
}

HRESULT SeekResult(LONGLONG value, LONGLONG* newPosition, HRESULT status) {
  if (newPosition) *newPosition = value;
  return status;
}

}  // namespace

bool CloseStreamFile(QnAudioStreamRecord* stream) {
  if (!stream->file) return false;
  CloseHandle(stream->file);
  stream->file = nullptr;
  std::free(stream->conversionBuffer);
  return true;
}

bool SeekFrame(const QnAudioStreamRecord& stream, uint64_t frame) {
  const uint64_t align = stream.fileFormat.nBlockAlign;
  constexpr uint64_t kEnd = std::numeric_limits<int64_t>::max();
  if (align == 0 || stream.dataOffset > kEnd || frame > (kEnd - stream.dataOffset) / align) return false;
  return Seek(stream.file, stream.dataOffset + frame * align);
}

}  // namespace qn

HRESULT QnAudioStream_Allocate(HQNAUDIOSTREAM* out) {
  if (!out) return E_INVALIDARG;
  *out = static_cast<HQNAUDIOSTREAM>(GlobalAlloc(GPTR, sizeof(QnAudioStreamRecord)));
  return *out ? S_OK : E_OUTOFMEMORY;
}

HRESULT QnAudioStream_OpenFile(HQNAUDIOSTREAM* out, const WCHAR* name, DWORD dataOffset, ULONGLONG length,
                               WAVEFORMATEX* fileFormat, WAVEFORMATEX* clientFormat,
                               WAVEFORMATEX* thirdFormat, DWORD flags) {
  if (!out) return E_INVALIDARG;
  *out = nullptr;
  if (!name || !fileFormat) return E_INVALIDARG;
  if (!qn::NameFits(name)) return E_FAIL;
  if (!clientFormat) clientFormat = fileFormat;
  HQNAUDIOSTREAM stream;
  HRESULT status = QnAudioStream_Allocate(&stream);
  if (status != S_OK) return status;
  qn::CopyName(stream, name);
  stream->flags = flags;
  stream->dataOffset = dataOffset;
  stream->length = length;
  status = qn::OpenStreamFile(stream);
  if (status == S_OK) {
    status = qn::SetUp(stream, *fileFormat, QnAudio_GetSampleType(fileFormat), *clientFormat,
                       QnAudio_GetSampleType(clientFormat), thirdFormat ? *thirdFormat : *fileFormat);
  }
  if (status != S_OK) {
    QnAudioStream_Free(stream);
    return status;
  }
  *out = stream;
  return S_OK;
}

HRESULT QnAudioStream_Initialize(HQNAUDIOSTREAM stream, WAVEFORMATEX* format, const WCHAR* name,
                                 DWORD flags) {
  if (!stream || !format || !name) return E_INVALIDARG;
  if (!qn::NameFits(name)) return E_FAIL;
  qn::CloseStreamFile(stream);
  uint64_t frames = 0;
  uint64_t dataOffset = qn::kHeaderBytes;
  const std::unique_ptr<WAVEFORMATEX, decltype(&std::free)> found(QnGetFileWfx(name, &frames, &dataOffset),
                                                                  &std::free);
  if (found) {
    if (QnAudio_IsCompressed(found.get())) return QN_E_FILE_UNSUPPORTED;
    const WORD tag = QnAudio_GetWaveFormatTag(found.get());
    QnAudio_InitWfxFlex(format, tag, found->nSamplesPerSec, found->wBitsPerSample, found->nChannels, 0,
                        sizeof(*format));
  } else if (!(flags & QNAUDIOSTREAM_CREATE)) {
    return QN_E_FILE_OPEN;
  }
  // Of 24 valid bits in 32 the caller's format says only 32: hosts rely on it, but the samples are not that.
  const QNSAMPLETYPE type = QnAudio_GetSampleType(found ? found.get() : format);
  qn::CopyName(stream, name);
  stream->flags = flags;
  stream->dataOffset = dataOffset;
  stream->length = frames;
  stream->position = 0;
  stream->conversionFrames = 0;
  stream->conversionBuffer = nullptr;
  HRESULT status = qn::OpenStreamFile(stream);
  if (status != S_OK) return status;
  status = qn::SetUp(stream, *format, type, *format, type, *format);
  // The caller's record goes too; hosts rely on it and forget the stream.
  if (status != S_OK) QnAudioStream_Free(stream);
  return status;
}

HRESULT QnAudioStream_ReopenFiles(HQNAUDIOSTREAM stream) {
  if (!stream) return E_INVALIDARG;
  WAVEFORMATEXTENSIBLE format{};  // as long as its tag may say
  format.Format = stream->fileFormat;
  return QnAudioStream_Initialize(stream, &format.Format, stream->path, stream->flags);
}

HRESULT QnAudioStream_CloseFiles(HQNAUDIOSTREAM stream) {
  if (!stream) return E_FAIL;
  if (qn::CloseStreamFile(stream) && (stream->flags & QNAUDIOSTREAM_DELETE_ON_CLOSE)) {
    DeleteFileW(stream->path);
  }
  return S_OK;
}

HRESULT QnAudioStream_Free(HQNAUDIOSTREAM stream) {
  if (!stream) return E_FAIL;
  for (void* buffer : stream->buffers) QnAudioStream_FreeBuffer(stream, buffer);
  QnAudioStream_CloseFiles(stream);
  GlobalFree(stream);
  return S_OK;
}

HRESULT QnAudioStream_Close(HQNAUDIOSTREAM stream) {
  return QnAudioStream_Free(stream);
}

HRESULT QnAudioStream_Seek(HQNAUDIOSTREAM stream, LONGLONG offset, LONG origin, LONGLONG* newPosition) {
  if (!stream) return E_INVALIDARG;
  if (origin & 0x100) {
    const int64_t align = stream->fileFormat.nBlockAlign;
    const int64_t start = origin == 0x100 ? static_cast<int64_t>(stream->dataOffset) : 0;
    // No file is longer than half of the signed range.
    constexpr int64_t kEnd = std::numeric_limits<int64_t>::max() / 2;
    const bool inRange = align > 0 && offset <= kEnd / align && offset >= -kEnd / align && start <= kEnd;
    const int64_t landed = inRange ? qn::MoveFile(*stream, offset * align + start, origin) : -1;
    if (landed < 0) return qn::SeekResult(-1, newPosition, qn::kSeekFault);
    // Of the other origins the place is that in the whole file; hosts rely on it.
    stream->position = static_cast<ULONGLONG>((landed - start) / align);
  } else {
    qn::MoveCursor(&stream->position, offset, origin, stream->length);
  }
  return qn::SeekResult(static_cast<LONGLONG>(stream->position), newPosition, S_OK);
}

HRESULT QnAudioStream_AbsSeek(HQNAUDIOSTREAM stream, LONGLONG offset, LONG origin, LONGLONG* newPosition) {
  if (!stream) return E_INVALIDARG;
  if (origin & 0x100) {
    const int64_t landed = qn::MoveFile(*stream, offset, origin);
    if (landed < 0) return qn::SeekResult(-1, newPosition, qn::kSeekFault);
    stream->absPosition = static_cast<ULONGLONG>(landed);
  } else {
    qn::MoveCursor(&stream->absPosition, offset, origin,
                   stream->dataOffset + stream->length * stream->fileFormat.nBlockAlign);
  }
  return qn::SeekResult(static_cast<LONGLONG>(stream->absPosition), newPosition, S_OK);
}

HRESULT QnAudioStream_GetLength(HQNAUDIOSTREAM stream, ULONGLONG* length) {
  if (!stream || !length) return E_INVALIDARG;
  *length = stream->length;
  return S_OK;
}

HRESULT QnAudioStream_SetLength(HQNAUDIOSTREAM stream, ULONGLONG length, ULONGLONG* result) {
  if (!stream) return E_INVALIDARG;
  stream->length = length;
  if (result) *result = length;
  return S_OK;
}

HRESULT QnAudioStream_GetWfx(HQNAUDIOSTREAM stream, WAVEFORMATEX* out, DWORD which) {
  if (!stream || !out) return E_INVALIDARG;
  *out = which == 0 ? stream->fileFormat : which == 2 ? stream->thirdFormat : stream->clientFormat;
  return S_OK;
}

HRESULT QnAudioStream_GetWfx(HQNAUDIOSTREAM stream, WAVEFORMATEX* out, QNSAMPLETYPE type) {
  if (!stream || !out) return E_INVALIDARG;
  const WAVEFORMATEX& file = stream->fileFormat;
  if (type == QNST_NONE) {
    *out = file;
  } else {
    QnAudio_InitWfx(out, file.nSamplesPerSec, type, file.nChannels);
  }
  return S_OK;
}

DWORD QnAudioStream_GetMetric(HQNAUDIOSTREAM stream, DWORD which) {
  if (!stream) return 0;
  const WAVEFORMATEX& format = which > 20 ? stream->clientFormat : stream->fileFormat;
  switch (which) {
    case 1:
      return stream->clientFormat.nBlockAlign;
    case 2:
      return stream->bufferFrames;
    case 11:
    case 21:
      return format.nSamplesPerSec;
    case 12:
    case 22:
      return format.wBitsPerSample;
    case 13:
    case 23:
      return format.nChannels;
    default:
      return 0;
  }
}

HRESULT QnAudioStream_SetPeak(HQNAUDIOSTREAM stream, IQnAudioPeak* peak) {
  if (stream) stream->peak = peak;
  return S_FALSE;
}

HRESULT QnAudioStream_Undo(HQNAUDIOSTREAM) {
  return E_NOTIMPL;
}
