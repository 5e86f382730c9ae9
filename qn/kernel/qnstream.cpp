#include "qn/kernel/qnstream.h"

#include <algorithm>
#include <cstring>

#include "qn/kernel/qnstream_internal.h"
#include "qn/platform/file.h"
#include "qn/settings/qnerror.h"

namespace {

HRESULT LastStatus() {
  return QnErrorHandler_TranslateWin32Error(GetLastError());
}

// Moves `*position`, unless the seek is refused, and stores it.
HRESULT SeekWithin(LARGE_INTEGER offset, DWORD origin, ULONGLONG end, ULONGLONG limit, ULONGLONG* position,
                   ULARGE_INTEGER* newPosition) {
  const bool allowed = (origin == STREAM_SEEK_SET && offset.QuadPart >= 0) || origin == STREAM_SEEK_CUR ||
                       (origin == STREAM_SEEK_END && offset.QuadPart <= 0);
  const ULONGLONG base = origin == STREAM_SEEK_SET ? 0 : origin == STREAM_SEEK_CUR ? *position : end;
  ULONGLONG target;
  const bool wraps = __builtin_add_overflow(base, offset.QuadPart, &target);
  const bool moves = allowed && !wraps && target <= limit;
  if (moves) *position = target;
  if (newPosition) newPosition->QuadPart = *position;
  return moves ? S_OK : STG_E_INVALIDFUNCTION;
}

class CQnFileStream final : public qn::CountedStream<CQnFileStream, IStream> {
 public:
  static constexpr IID kOwnId = IID_IStream;

  HRESULT Init(HANDLE file) {
    file_ = file;
    position_ = 0;
    DWORD high = 0;
    const DWORD low = GetFileSize(file, &high);
    if (low == INVALID_FILE_SIZE && GetLastError() != ERROR_SUCCESS) return LastStatus();
    size_ = ULONGLONG{high} << 32 | low;
    return S_OK;
  }

  HRESULT Read(void* buffer, ULONG bytes, ULONG* got) override {
    return Transfer(got, [&](DWORD* done) { return ReadFile(file_, buffer, bytes, done, nullptr); });
  }

  HRESULT Write(const void* buffer, ULONG bytes, ULONG* put) override {
    const HRESULT status =
        Transfer(put, [&](DWORD* done) { return WriteFile(file_, buffer, bytes, done, nullptr); });
    if (SUCCEEDED(status)) size_ = std::max(size_, position_);
    return status;
  }

  HRESULT Seek(LARGE_INTEGER offset, DWORD origin, ULARGE_INTEGER* newPosition) override {
    return SeekWithin(offset, origin, size_, INT64_MAX, &position_, newPosition);
  }

  HRESULT Stat(STATSTG*, DWORD) override { return E_NOTIMPL; }

  // Hosts rely on what this does to the stream itself; the clone that was made without a file was never of
  // use to anybody.
  HRESULT Clone(IStream**) override {
    Init(file_);
    return S_OK;
  }

 private:
  template <typename Call>
  HRESULT Transfer(ULONG* count, Call call) {
    DWORD done = 0;
    if (count) *count = 0;
    auto high = static_cast<LONG>(position_ >> 32);
    if (SetFilePointer(file_, static_cast<LONG>(position_), &high, FILE_BEGIN) == INVALID_SET_FILE_POINTER &&
        GetLastError() != ERROR_SUCCESS) {
      return LastStatus();
    }
    const HRESULT status = call(&done) ? S_OK : LastStatus();
    if (count) *count = done;
    if (SUCCEEDED(status)) position_ += done;
    return status;
  }

  HANDLE file_ = nullptr;
  ULONGLONG position_ = 0;
  ULONGLONG size_ = 0;
};

class CQnMemStream final : public qn::CountedStream<CQnMemStream, IStream> {
 public:
  // Known to the library alone: whoever answers to it is one of these objects.
  static constexpr IID kOwnId = {
      0x3D6AF0C1, 0x52B7, 0x4E9E, {0x9A, 0x4C, 0x71, 0x0E, 0xD8, 0x26, 0xB5, 0x93}};

  ~CQnMemStream() {
    if (ownsData_) GlobalFree(data_);
  }

  HRESULT Read(void* buffer, ULONG bytes, ULONG* got) override {
    if (got) *got = 0;
    if (!buffer) return STG_E_INVALIDPOINTER;
    if (position_ >= used_) return S_FALSE;
    const auto count = static_cast<ULONG>(std::min<ULONGLONG>(bytes, used_ - position_));
    std::memcpy(buffer, data_ + position_, count);
    position_ += count;
    if (got) *got = count;
    return S_OK;
  }

  HRESULT Write(const void* buffer, ULONG bytes, ULONG* put) override {
    if (put) *put = 0;
    if (!buffer) return STG_E_INVALIDPOINTER;
    if (position_ >= capacity_) return S_FALSE;
    const auto count = static_cast<ULONG>(std::min<ULONGLONG>(bytes, capacity_ - position_));
    if (position_ > used_) std::memset(data_ + used_, 0, position_ - used_);
    std::memmove(data_ + position_, buffer, count);
    position_ += count;
    used_ = std::max(used_, position_);
    if (put) *put = count;
    return S_OK;
  }

  HRESULT Seek(LARGE_INTEGER offset, DWORD origin, ULARGE_INTEGER* newPosition) override {
    return SeekWithin(offset, origin, used_, capacity_, &position_, newPosition);
  }

  HRESULT Stat(STATSTG* statistics, DWORD) override {
    if (!statistics) return STG_E_INVALIDPOINTER;
    *statistics = {};
    statistics->cbSize.QuadPart = used_;
    return S_OK;
  }

  // Hosts rely on getting nothing. The memory stays with the stream that owns it.
  HRESULT Clone(IStream**) override { return S_OK; }

  virtual HRESULT Init(void* data, ULONGLONG capacity, ULONGLONG used, BOOL copy) {
    data_ = static_cast<BYTE*>(data);
    if (copy) {
      data_ = static_cast<BYTE*>(GlobalAlloc(GMEM_FIXED, capacity));
      if (!data_) return E_OUTOFMEMORY;
      std::memcpy(data_, data, capacity);
    }
    ownsData_ = copy;
    capacity_ = capacity;
    used_ = std::min(used, capacity);
    return S_OK;
  }

  const void* Memory(ULONGLONG* used) const {
    *used = used_;
    return data_;
  }

 private:
  BYTE* data_ = nullptr;
  BOOL ownsData_ = FALSE;
  ULONGLONG position_ = 0;
  ULONGLONG capacity_ = 0;
  ULONGLONG used_ = 0;
};

template <typename Stream, typename... Arguments>
HRESULT Create(IStream** stream, Arguments... arguments) {
  Stream* const made = Stream::New();
  if (!made) return E_OUTOFMEMORY;
  const HRESULT status = made->Init(arguments...);
  if (SUCCEEDED(status)) {
    *stream = made;
  } else {
    made->Release();
  }
  return status;
}

}  // namespace

namespace qn {

const void* StreamMemory(IStream* stream, ULONGLONG* used) {
  void* found = nullptr;
  if (stream->QueryInterface(CQnMemStream::kOwnId, &found) != S_OK || !found) return nullptr;
  auto* const memory = static_cast<CQnMemStream*>(found);
  const void* const data = memory->Memory(used);
  memory->Release();
  return data;
}

}  // namespace qn

HRESULT QnCreateStreamFromFile(HANDLE file, IStream** stream) {
  if (!stream) return E_INVALIDARG;
  *stream = nullptr;
  return file ? Create<CQnFileStream>(stream, file) : E_INVALIDARG;
}

HRESULT QnCreateStreamFromMemory(void* data, ULARGE_INTEGER capacity, ULARGE_INTEGER used, IStream** stream,
                                 BOOL copy) {
  if (!stream) return E_INVALIDARG;
  *stream = nullptr;
  if (!data || capacity.QuadPart == 0) return E_INVALIDARG;
  return Create<CQnMemStream>(stream, data, capacity.QuadPart, used.QuadPart, copy);
}

HRESULT QnCreateStreamFromMemory(void* data, DWORD capacity, DWORD used, IStream** stream, BOOL copy) {
  return QnCreateStreamFromMemory(data, ULARGE_INTEGER{.QuadPart = capacity},
                                  ULARGE_INTEGER{.QuadPart = used}, stream, copy);
}

HRESULT QnReadIStream(IStream* stream, void* buffer, DWORD size) {
  return stream ? stream->Read(buffer, size, nullptr) : E_INVALIDARG;
}
