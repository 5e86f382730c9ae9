// Changes of an audio stream as a whole: its size, removal of frames, its channels, and a copy of a range.
#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "qn/kernel/qnkernel.h"
#include "qn/kernel/qnpath.h"
#include "qn/media/chunkio_internal.h"
#include "qn/media/qnaudiostream_internal.h"
#include "qn/platform/file.h"

namespace qn {
namespace {

using Block = std::unique_ptr<uint8_t[]>;

Block NewBlock(uint64_t bytes) {
  return Block(new (std::nothrow) uint8_t[bytes]);
}

// False where a frame in the file's type is not as it stands in the file, so that none can be moved: the
// client has other channels, or there are no formats.
bool HasFileFrames(const QnAudioStreamRecord& stream) {
  return stream.fileFormat.nChannels == stream.clientFormat.nChannels &&
         FrameBytes(stream, stream.fileType) != 0;
}

HRESULT Grow(QnAudioStreamRecord* stream, uint64_t frames) {
  void* const buffer = QnAudioStream_GetBuffer(stream, stream->bufferFrames);
  if (!buffer) return E_OUTOFMEMORY;
  // Silence of the type that is written, of which a buffer may hold fewer frames.
  std::memset(buffer, SilenceByte(stream->writeType ? stream->writeType : stream->clientType),
              stream->bufferBytes);
  const uint32_t frameBytes = FrameBytes(*stream, stream->writeType);
  const uint32_t most = frameBytes ? std::min(stream->bufferFrames, stream->bufferBytes / frameBytes) : 0;
  // A length that no file can have is not to fill the disk first.
  HRESULT status = !SeekFrame(*stream, frames) ? kSeekFault : most == 0 ? E_UNEXPECTED : S_OK;

  const ULONGLONG position = std::exchange(stream->position, stream->length);
  for (bool full = status == S_OK; full && stream->position < frames;) {
    const auto count = static_cast<DWORD>(std::min<uint64_t>(most, frames - stream->position));
    DWORD written;
    status = QnAudioStream_Write(stream, buffer, count, &written);
    full = status == S_OK && written == count;
  }
  stream->position = position;
  QnAudioStream_ReleaseBuffer(stream, buffer);
  return status;
}

HRESULT Shrink(QnAudioStreamRecord* stream, uint64_t frames) {
  stream->position = frames;
  stream->length = frames;
  if (!stream->peak) return S_OK;
  stream->peak->Truncate(static_cast<LONGLONG>(frames));
  if (frames == 0) return S_OK;

  uint32_t header[16] = {};
  stream->peak->GetHeader(header, sizeof header);
  constexpr size_t kFramesPerPeak = 6;  // its field in the header of a peak file
  const auto count = static_cast<DWORD>(std::min<uint64_t>(header[kFramesPerPeak], frames));
  if (count == 0) return S_OK;
  // Writing the end once more builds the last block of the peaks anew, which covers fewer frames now. It goes
  // in the file's type, which leaves the file as it is.
  if (!HasFileFrames(*stream)) return E_NOTIMPL;
  const Block block = NewBlock(uint64_t{count} * stream->fileFormat.nBlockAlign);
  if (!block) return E_OUTOFMEMORY;
  stream->position = frames - count;
  DWORD got;
  HRESULT status = QnAudioStream_ReadEx(stream, block.get(), count, &got, stream->fileType);
  if (status == S_OK) {
    stream->position = frames - count;
    status = QnAudioStream_WriteEx(stream, block.get(), got, nullptr, stream->fileType);
  }
  stream->position = frames;
  return status;
}

// False for a format that no frame of `channels` channels fits.
bool ChangeChannels(WAVEFORMATEX* format, DWORD channels) {
  if (format->nChannels == 0) return false;
  const uint64_t align = uint64_t{channels} * (format->nBlockAlign / format->nChannels);
  if (align == 0 || align > 0xFFFF) return false;
  format->nChannels = static_cast<WORD>(channels);
  format->nBlockAlign = static_cast<WORD>(align);
  format->nAvgBytesPerSec = static_cast<DWORD>(align * format->nSamplesPerSec);
  format->cbSize = 0;
  return true;
}

bool WriteHeader(HANDLE file, const WAVEFORMATEX& format, uint32_t dataBytes) {
#pragma pack(push, 1)
  const struct {
    char riff[4] = {'R', 'I', 'F', 'F'};
    uint32_t riffBytes = 38;  // not mended when the samples are in; readers go by the data's size
    char form[8] = {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '};
    uint32_t formatBytes = sizeof(WAVEFORMATEX);
    WAVEFORMATEX format;
    char data[4] = {'d', 'a', 't', 'a'};
    uint32_t dataBytes;
  } header{.format = format, .dataBytes = dataBytes};
#pragma pack(pop)
  static_assert(sizeof header == 46);
  return Seek(file, 0) && WriteExactly(file, &header, sizeof header);
}

HRESULT MakeTempFile(WCHAR* name, int size) {
  WCHAR module[260];
  WCHAR path[260];
  WCHAR folder[260];
  const auto fits = [](int length) { return length > 0 && length < 260; };
  if (!fits(QnGetModuleFileName(QnKernel_GetAppKernel(), module, 260)) ||
      !fits(QnGetLongPathName(module, path, 260)) || !fits(QnGetPathNameFromFilePath(path, folder, 260))) {
    return E_FAIL;
  }
  return QnCreateTempFileAndNameEx(folder, nullptr, W(".TMP"), nullptr, name, size);
}

// Copies `dataBytes` bytes of frames from `start` on to `file`; how many came.
uint32_t CopyRange(QnAudioStreamRecord* source, HANDLE file, uint64_t start, uint32_t dataBytes,
                   uint8_t* block, uint32_t blockFrames) {
  const uint32_t frameBytes = FrameBytes(*source, source->fileType);
  uint32_t done = 0;
  for (uint64_t frame = start; done < dataBytes;) {
    DWORD got;
    DWORD put = 0;
    const uint32_t want = std::min(blockFrames, (dataBytes - done + frameBytes - 1) / frameBytes);
    source->position = frame;
    if (QnAudioStream_ReadEx(source, block, want, &got, source->fileType) != S_OK || got == 0) break;
    const uint32_t bytes = std::min(dataBytes - done, got * frameBytes);
    const BOOL written = WriteFile(file, block, bytes, &put, nullptr);
    done += put;
    frame += got;
    if (!written || put != bytes) break;
  }
  return done;
}

}  // namespace
}  // namespace qn

HRESULT QnAudioStream_SetSize(HQNAUDIOSTREAM stream, ULONGLONG frames) {
  if (!stream) return E_INVALIDARG;
  if (qn::ForbidsWrites(stream->flags)) return STG_E_ACCESSDENIED;
  if (frames == stream->length) return S_OK;
  return frames > stream->length ? qn::Grow(stream, frames) : qn::Shrink(stream, frames);
}

HRESULT QnAudioStream_Delete(HQNAUDIOSTREAM stream, LONGLONG start, LONGLONG count) {
  if (!stream) return E_INVALIDARG;
  auto to = static_cast<uint64_t>(start);
  auto removed = static_cast<uint64_t>(count);
  if (count < 0) {
    to += removed;
    removed = 0 - removed;
  }
  if (to > stream->length) return S_FALSE;
  if (!qn::HasFileFrames(*stream)) return E_NOTIMPL;
  const qn::Block block = qn::NewBlock(qn::kStreamBufferBytes);
  if (!block) return E_OUTOFMEMORY;
  const uint32_t most = qn::kStreamBufferBytes / stream->fileFormat.nBlockAlign;

  for (uint64_t from = to + std::min(removed, stream->length - to); from < stream->length;) {
    DWORD got;
    stream->position = from;
    HRESULT status = QnAudioStream_ReadEx(stream, block.get(), most, &got, stream->fileType);
    stream->position = to;
    if (status == S_OK) status = QnAudioStream_WriteEx(stream, block.get(), got, nullptr, stream->fileType);
    if (status != S_OK) return status;
    if (got == 0) break;
    from += got;
    to += got;
  }
  stream->length = to + 1;  // one frame more than is left; hosts rely on it
  return S_OK;
}

HRESULT QnAudioStream_PrestoChangoChannels(HQNAUDIOSTREAM stream, DWORD channels) {
  if (!stream) return E_INVALIDARG;
  if (qn::ForbidsWrites(stream->flags)) return STG_E_ACCESSDENIED;
  if (stream->fileFormat.nChannels == channels) return S_OK;
  WAVEFORMATEX file = stream->fileFormat;
  WAVEFORMATEX client = stream->clientFormat;
  if (!qn::ChangeChannels(&file, channels) || !qn::ChangeChannels(&client, channels)) return E_INVALIDARG;
  stream->fileFormat = file;
  stream->clientFormat = client;
  if (stream->conversionBuffer) stream->conversionFrames = stream->bufferBytes / file.nBlockAlign;
  stream->bufferFrames = stream->bufferBytes / client.nBlockAlign;
  stream->peak = nullptr;
  // Whatever the old count was; hosts rely on it.
  stream->length = channels == 2 ? stream->length / 2 : stream->length * 2;
  stream->position = 0;
  return S_OK;
}

HRESULT QnAudioStream_Clone(HQNAUDIOSTREAM source, HQNAUDIOSTREAM target, WAVEFORMATEX* format,
                            LONGLONG start, LONGLONG frames) {
  if (!source || !target || !format || source == target) return E_INVALIDARG;
  *format = source->fileFormat;
  QnAudio_FixBadWfx(format);
  // The format of a stream opened by name does not say this type, and the header has to.
  if (source->fileType == QNST_PCM24IN32) format->wFormatTag = QNWAVETAG_UNPACKED;
  const uint32_t frameBytes = qn::FrameBytes(*source, source->fileType);
  if (frameBytes == 0 || format->nBlockAlign == 0) return E_INVALIDARG;

  qn::CloseStreamFile(target);
  HRESULT status = qn::MakeTempFile(target->path, static_cast<int>(std::size(target->path)));
  if (status != S_OK) return status;
  target->flags = source->flags;
  target->dataOffset = 46;
  target->position = 0;
  // What an earlier file has left does not fit this one, and must not be read with.
  target->length = 0;
  target->clientFormat = {};
  target->thirdFormat = {};
  target->fileType = QNST_NONE;
  target->clientType = QNST_NONE;
  target->readCopy = nullptr;
  target->writeCopy = nullptr;
  target->bufferBytes = 0;
  target->bufferFrames = 0;
  target->conversionFrames = 0;
  target->conversionBuffer = nullptr;
  if (qn::ForbidsWrites(target->flags)) {
    DeleteFileW(target->path);
    return E_INVALIDARG;
  }
  const HANDLE file = CreateFileW(target->path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                  CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return E_FAIL;
  target->file = file;

  constexpr uint64_t kMost = 0x10000000;  // hosts rely on the limit
  const uint64_t wanted = frames > 0 ? static_cast<uint64_t>(frames) : 0;
  const auto dataBytes =
      static_cast<uint32_t>(std::min(std::min(wanted, kMost) * format->nBlockAlign, kMost));
  if (!qn::WriteHeader(file, *format, dataBytes)) return E_OUTOFMEMORY;
  if (dataBytes == 0) return S_OK;
  constexpr uint32_t kBlockFrames = 65536;
  const qn::Block block = qn::NewBlock(uint64_t{kBlockFrames} * frameBytes);
  if (!block) return E_OUTOFMEMORY;
  const uint32_t done =
      qn::CopyRange(source, file, static_cast<uint64_t>(start), dataBytes, block.get(), kBlockFrames);
  if (done < dataBytes) qn::WriteHeader(file, *format, done);
  target->fileFormat = *format;
  return S_OK;
}
