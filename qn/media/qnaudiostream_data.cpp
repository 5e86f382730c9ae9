// The data of audio streams: frames, single channels, copies between streams, and raw bytes.
#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

#include "qn/media/chunkio_internal.h"
#include "qn/media/qnaudiostream_internal.h"
#include "qn/platform/file.h"

namespace qn {
namespace {

// Where frames of the file's type stand between the file and the caller: nowhere when nothing has to be
// converted, else in the stream's buffer or, if it has none, in the scratch block of this object.
class Passes {
 public:
  // `type` is the resolved type of the caller.
  Passes(const QnAudioStreamRecord& stream, QNSAMPLETYPE type, bool reading) : stream_(stream) {
    frameBytes_ = FrameBytes(stream, type);
    copy_ = reading ? stream.readCopy : stream.writeCopy;
    const bool own = type != stream.clientType;
    if (own) {
      copy_ = reading ? QnAudio_GetCopyFunction2(type, stream.fileType)
                      : QnAudio_GetCopyFunction2(stream.fileType, type);
    }
    if (stream.conversionBuffer) {
      buffer_ = static_cast<uint8_t*>(stream.conversionBuffer);
    } else if (own) {
      buffer_ = scratch_;
    }
    frames_ = (buffer_ ? kStreamBufferBytes : kDirectBytes) / stream.fileFormat.nBlockAlign;
  }

  bool CanConvert() const { return copy_ && frameBytes_ != 0; }
  uint32_t Frames() const { return frames_; }  // of a pass

  // The file's frames of a pass that starts at frame `done` of the caller's buffer.
  uint8_t* Source(uint8_t* caller, uint64_t done) { return buffer_ ? buffer_ : caller + done * frameBytes_; }

  // Convert the buffer's frames to the caller's or back; nothing where the two are one.
  void Deliver(uint8_t* caller, uint64_t done, uint32_t frames) const {
    if (buffer_) copy_(caller + done * frameBytes_, buffer_, Samples(frames), 1.0f);
  }
  const uint8_t* Take(const uint8_t* caller, uint64_t done, uint32_t frames) {
    const uint8_t* const from = caller + done * frameBytes_;
    if (!buffer_) return from;
    // A client of fewer channels does not fill the frames.
    if (stream_.clientFormat.nChannels < stream_.fileFormat.nChannels) {
      std::memset(buffer_, SilenceByte(stream_.fileType), size_t{frames} * stream_.fileFormat.nBlockAlign);
    }
    copy_(buffer_, from, Samples(frames), 1.0f);
    return buffer_;
  }

 private:
  static constexpr uint32_t kDirectBytes = 0x40000000;  // what one access can count

  // Samples that both sides have.
  LONG Samples(uint32_t frames) const {
    return static_cast<LONG>(frames * std::min(stream_.clientFormat.nChannels, stream_.fileFormat.nChannels));
  }

  const QnAudioStreamRecord& stream_;
  QNCOPYFUNCTION copy_;
  uint32_t frameBytes_;
  uint32_t frames_;
  uint8_t* buffer_ = nullptr;
  alignas(16) uint8_t scratch_[kStreamBufferBytes];
};

// Copies one sample of every frame between buffers of the given strides in bytes.
void CopyStrided(uint8_t* dst, size_t dstStride, const uint8_t* src, size_t srcStride, size_t bytes,
                 DWORD frames) {
  const auto copy = [&](auto size) {
    for (; frames > 0; --frames, dst += dstStride, src += srcStride) std::memcpy(dst, src, size);
  };
  switch (bytes) {
    case 1:
      return copy(std::integral_constant<size_t, 1>());
    case 2:
      return copy(std::integral_constant<size_t, 2>());
    case 4:
      return copy(std::integral_constant<size_t, 4>());
    case 8:
      return copy(std::integral_constant<size_t, 8>());
    default:
      return copy(bytes);
  }
}

// Whole frames for the work on one channel, or why there are none.
struct ChannelBlock {
  ChannelBlock(const QnAudioStreamRecord& stream, DWORD channel, DWORD frames, QNSAMPLETYPE type)
      : frameBytes(FrameBytes(stream, type)),
        sampleBytes(stream.clientFormat.nChannels ? frameBytes / stream.clientFormat.nChannels : 0) {
    if (channel >= stream.clientFormat.nChannels) {
      status = E_INVALIDARG;
    } else if (frameBytes == 0) {
      status = E_UNEXPECTED;
    } else {
      data.reset(new (std::nothrow) uint8_t[size_t{frames} * frameBytes]);
      status = data ? S_OK : E_OUTOFMEMORY;
    }
  }

  const size_t frameBytes;
  const size_t sampleBytes;
  std::unique_ptr<uint8_t[]> data;
  HRESULT status;
};

HRESULT LastErrorStatus() {
  const auto error = static_cast<int32_t>(GetLastError());
  return error > 0 ? MakeStatus((static_cast<uint32_t>(error) & 0xFFFF) | 0x80070000) : error;
}

}  // namespace
}  // namespace qn

HRESULT QnAudioStream_ReadEx(HQNAUDIOSTREAM stream, void* buffer, DWORD frames, DWORD* read,
                             QNSAMPLETYPE type) {
  if (read) *read = 0;
  if (!stream) return E_INVALIDARG;
  if (qn::ForbidsReads(stream->flags)) return STG_E_ACCESSDENIED;
  if (stream->position >= stream->length || frames == 0) return S_OK;
  if (!buffer) return E_INVALIDARG;
  const auto count = static_cast<DWORD>(std::min<uint64_t>(frames, stream->length - stream->position));
  if (type == QNST_NONE) type = stream->clientType;
  if (!qn::SeekFrame(*stream, stream->position)) return qn::kSeekFault;
  qn::Passes passes(*stream, type, true);
  if (!passes.CanConvert()) return E_UNEXPECTED;

  const auto caller = static_cast<uint8_t*>(buffer);
  const DWORD align = stream->fileFormat.nBlockAlign;
  DWORD done = 0;
  for (bool full = true; full && done < count;) {
    const DWORD pass = std::min(passes.Frames(), count - done);
    DWORD got = 0;
    if (!ReadFile(stream->file, passes.Source(caller, done), pass * align, &got, nullptr)) {
      return STG_E_READFAULT;
    }
    passes.Deliver(caller, done, got / align);
    done += got / align;
    full = got == pass * align;
  }
  stream->position += done;
  if (read) *read = done;
  return S_OK;
}

HRESULT QnAudioStream_WriteEx(HQNAUDIOSTREAM stream, const void* buffer, DWORD frames, DWORD* written,
                              QNSAMPLETYPE type) {
  if (written) *written = 0;
  if (!stream) return E_FAIL;
  if (qn::ForbidsWrites(stream->flags)) return STG_E_ACCESSDENIED;
  if (frames == 0) return S_OK;
  if (!buffer) return E_INVALIDARG;
  if (type == QNST_NONE) type = stream->clientType;
  if (!qn::SeekFrame(*stream, stream->position)) return qn::kSeekFault;
  const ULONGLONG start = stream->position;
  qn::Passes passes(*stream, type, false);
  if (!passes.CanConvert()) return E_UNEXPECTED;

  const auto caller = static_cast<const uint8_t*>(buffer);
  const DWORD align = stream->fileFormat.nBlockAlign;
  HRESULT status = S_OK;
  DWORD done = 0;
  for (bool full = true; full && done < frames;) {
    const DWORD pass = std::min(passes.Frames(), frames - done);
    DWORD put = 0;
    if (!WriteFile(stream->file, passes.Take(caller, done, pass), pass * align, &put, nullptr)) {
      status = STG_E_WRITEFAULT;
    }
    done += put / align;
    stream->position = start + done;
    stream->length = std::max(stream->length, stream->position);
    full = status == S_OK && put == pass * align;
  }
  // What is in the file is told, also when a later pass failed. Peaks are of the file's channels: a buffer of
  // others would be read as what it is not.
  if (stream->peak && done > 0 && stream->clientFormat.nChannels == stream->fileFormat.nChannels) {
    stream->peak->WriteAudio(buffer, static_cast<LONGLONG>(start), done, type);
    if (stream->position != start + done) {
      stream->position = start + done;
      qn::SeekFrame(*stream, stream->position);
    }
  }
  if (written) *written = done;
  return status;
}

HRESULT QnAudioStream_Read(HQNAUDIOSTREAM stream, void* buffer, DWORD frames, DWORD* read) {
  return QnAudioStream_ReadEx(stream, buffer, frames, read, QNST_NONE);
}

HRESULT QnAudioStream_Read(HQNAUDIOSTREAM stream, void* buffer, DWORD frames, DWORD* read, LONGLONG position,
                           QNSAMPLETYPE type) {
  if (!stream) return E_INVALIDARG;
  stream->position = static_cast<ULONGLONG>(position);
  return QnAudioStream_ReadEx(stream, buffer, frames, read, type);
}

HRESULT QnAudioStream_Write(HQNAUDIOSTREAM stream, const void* buffer, DWORD frames, DWORD* written) {
  return QnAudioStream_WriteEx(stream, buffer, frames, written, stream ? stream->writeType : QNST_NONE);
}

HRESULT QnAudioStream_OpenWrite(HQNAUDIOSTREAM stream, LONGLONG start, LONGLONG, QNSAMPLETYPE type) {
  if (!stream) return E_INVALIDARG;
  stream->position = static_cast<ULONGLONG>(start);
  stream->writeType = type;
  return S_OK;
}

HRESULT QnAudioStream_CloseWrite(HQNAUDIOSTREAM stream) {
  if (!stream) return E_INVALIDARG;
  stream->writeType = QNST_NONE;
  return S_OK;
}

HRESULT QnAudioStream_ReadChannelEx(HQNAUDIOSTREAM stream, DWORD channel, void* buffer, DWORD frames,
                                    DWORD* read, QNSAMPLETYPE type) {
  if (!stream) return E_FAIL;
  if (!read) return E_INVALIDARG;
  *read = 0;
  if (frames > 0 && !buffer) return E_INVALIDARG;
  const qn::ChannelBlock block(*stream, channel, frames, type);
  if (block.status != S_OK) return block.status;
  const HRESULT status = QnAudioStream_ReadEx(stream, block.data.get(), frames, read, type);
  qn::CopyStrided(static_cast<uint8_t*>(buffer), block.sampleBytes,
                  block.data.get() + channel * block.sampleBytes, block.frameBytes, block.sampleBytes, *read);
  return status;
}

HRESULT QnAudioStream_WriteChannelEx(HQNAUDIOSTREAM stream, DWORD channel, const void* buffer, DWORD frames,
                                     DWORD* written, QNSAMPLETYPE type) {
  if (written) *written = 0;
  if (!stream) return E_FAIL;
  if (frames > 0 && !buffer) return E_INVALIDARG;
  if (type == QNST_NONE) type = stream->clientType;
  const qn::ChannelBlock block(*stream, channel, frames, type);
  if (block.status != S_OK) return block.status;
  const ULONGLONG position = stream->position;
  DWORD got;
  const HRESULT status = QnAudioStream_ReadEx(stream, block.data.get(), frames, &got, type);
  stream->position = position;
  // Silence in place of what could not be read would wipe out the other channels.
  if (status != S_OK) return status;
  std::memset(block.data.get() + got * block.frameBytes, qn::SilenceByte(type),
              (frames - got) * block.frameBytes);
  qn::CopyStrided(block.data.get() + channel * block.sampleBytes, block.frameBytes,
                  static_cast<const uint8_t*>(buffer), block.sampleBytes, block.sampleBytes, frames);
  return QnAudioStream_WriteEx(stream, block.data.get(), frames, written, type);
}

namespace {

// The copy with the target's buffer at hand.
HRESULT CopyThrough(HQNAUDIOSTREAM source, HQNAUDIOSTREAM target, void* buffer, DWORD frames, DWORD* read,
                    DWORD* written) {
  if (source->clientType == target->clientType &&
      QnAudio_IsEqualFormat(&source->clientFormat, &target->clientFormat)) {
    const HRESULT status = QnAudioStream_ReadEx(source, buffer, frames, read, QNST_NONE);
    return status == S_OK ? QnAudioStream_Write(target, buffer, *read, written) : status;
  }
  void* const from = QnAudioStream_GetBuffer(source, frames);
  if (!from) return E_OUTOFMEMORY;
  HRESULT status = QnAudioStream_ReadEx(source, from, frames, read, QNST_NONE);
  if (status == S_OK) {
    const QNCOPYFUNCTION copy = QnAudio_GetCopyFunction2(target->clientType, source->clientType);
    // The write goes on without a copy; hosts rely on it.
    if (!copy) std::memset(buffer, 0, size_t{*read} * target->clientFormat.nBlockAlign);
    constexpr DWORD kStep = 0x4000;  // frames of which the samples can be counted
    for (DWORD done = 0; copy && done < *read; done += std::min(kStep, *read - done)) {
      copy(static_cast<uint8_t*>(buffer) + size_t{done} * target->clientFormat.nBlockAlign,
           static_cast<const uint8_t*>(from) + size_t{done} * source->clientFormat.nBlockAlign,
           static_cast<LONG>(std::min(kStep, *read - done) * source->clientFormat.nChannels), 1.0f);
    }
    status = QnAudioStream_Write(target, buffer, *read, written);
  }
  QnAudioStream_ReleaseBuffer(source, from);
  return status;
}

}  // namespace

HRESULT QnAudioStream_CopyTo(HQNAUDIOSTREAM source, HQNAUDIOSTREAM target, DWORD frames, DWORD* read,
                             DWORD* written) {
  if (read) *read = 0;
  if (written) *written = 0;
  if (!source || !target || !read) return E_INVALIDARG;
  if (source->clientFormat.nChannels != target->clientFormat.nChannels) return E_NOTIMPL;
  // The target's buffer holds frames of its client type: no wider ones can be written from it.
  if (qn::FrameBytes(*target, target->writeType) > target->clientFormat.nBlockAlign) return E_NOTIMPL;
  if (frames == 0) return S_OK;
  void* const buffer = QnAudioStream_GetBuffer(target, frames);
  if (!buffer) return E_OUTOFMEMORY;
  const HRESULT status = CopyThrough(source, target, buffer, frames, read, written);
  QnAudioStream_ReleaseBuffer(target, buffer);
  return status;
}

HRESULT QnAudioStream_AbsRead(HQNAUDIOSTREAM stream, void* buffer, DWORD bytes, DWORD* read) {
  if (read) *read = 0;
  if (!stream) return E_INVALIDARG;
  if (bytes == 0) return S_OK;
  if (!buffer) return E_INVALIDARG;
  if (!qn::Seek(stream->file, stream->absPosition)) return qn::kSeekFault;
  DWORD got = 0;
  if (!ReadFile(stream->file, buffer, bytes, &got, nullptr)) return qn::LastErrorStatus();
  stream->absPosition += got;
  if (read) *read = got;
  return S_OK;
}

HRESULT QnAudioStream_AbsWrite(HQNAUDIOSTREAM stream, const void* buffer, DWORD bytes, DWORD* written) {
  if (written) *written = 0;
  if (!stream) return E_INVALIDARG;
  if (qn::ForbidsWrites(stream->flags)) return STG_E_ACCESSDENIED;
  if (bytes == 0) return S_OK;
  if (!buffer) return E_INVALIDARG;
  if (!qn::Seek(stream->file, stream->absPosition)) return qn::kSeekFault;
  DWORD put = 0;
  const HRESULT status = WriteFile(stream->file, buffer, bytes, &put, nullptr) ? S_OK : qn::LastErrorStatus();
  stream->absPosition += put;
  const DWORD align = stream->fileFormat.nBlockAlign;
  if (put > 0 && align != 0 && stream->absPosition > stream->dataOffset) {
    stream->length = std::max(stream->length, (stream->absPosition - stream->dataOffset) / align);
  }
  if (written) *written = put;
  return status;
}
