#include <algorithm>
#include <cstring>

#include "qn/kernel/qnstream.h"
#include "qn/kernel/qnstream_internal.h"

namespace {

class CQnProtectedStream final : public qn::CountedStream<CQnProtectedStream, IQnProtectedStream> {
 public:
  static constexpr IID kOwnId = IID_IQnProtectedStream;

  ~CQnProtectedStream() { Drop(); }

  HRESULT Read(void* buffer, ULONG bytes, ULONG* got) override {
    if (got) *got = 0;
    if (!stream_) return STG_E_READFAULT;
    if (!buffer) return STG_E_INVALIDPOINTER;
    if (!windowEnabled_) return S_OK;
    const HRESULT located = Locate();
    if (FAILED(located)) return located;
    const bool strict = mode_ == QNPROTECTEDSTREAM_STRICT;
    const ULONGLONG end = End();
    if (position_ < windowOffset_ || (strict && position_ > end)) return STG_E_ACCESSDENIED;

    // How much of the request lies within the window.
    const ULONGLONG rest = position_ > end ? 0 : end - position_;
    const auto inside = static_cast<ULONG>(std::min<ULONGLONG>(bytes, rest));
    ULONG count = 0;
    const HRESULT status = stream_->Read(buffer, strict ? inside : bytes, &count);
    position_ += count;
    if (got) *got = count;
    if (!strict) std::memset(static_cast<BYTE*>(buffer) + inside, 0, bytes - inside);
    if (FAILED(status) || !strict) return status;
    return count < bytes ? S_FALSE : S_OK;
  }

  HRESULT Write(const void* buffer, ULONG bytes, ULONG* put) override {
    if (put) *put = 0;
    if (!stream_) return STG_E_WRITEFAULT;
    if (!buffer) return STG_E_INVALIDPOINTER;
    const HRESULT located = Locate();
    if (FAILED(located)) return located;
    if (guardWrites_ && position_ < windowOffset_) return STG_E_ACCESSDENIED;
    ULONG count = 0;
    const HRESULT status = stream_->Write(buffer, bytes, &count);
    position_ += count;
    if (put) *put = count;
    if (windowEnabled_ && position_ > End()) windowSize_ = position_ - windowOffset_;
    return status;
  }

  HRESULT Seek(LARGE_INTEGER offset, DWORD origin, ULARGE_INTEGER* newPosition) override {
    if (!stream_) return STG_E_INVALIDFUNCTION;
    HRESULT status = Locate();
    if (FAILED(status) && origin == STREAM_SEEK_CUR) return status;
    const bool relative = windowEnabled_ || guardWrites_;
    if (!relative || (origin == STREAM_SEEK_END && !windowEnabled_)) {
      status = Move(offset, origin);
    } else {
      LARGE_INTEGER target;
      status = FindTarget(offset.QuadPart, origin, &target.QuadPart) ? Move(target, STREAM_SEEK_SET)
                                                                     : STG_E_INVALIDFUNCTION;
    }
    if (newPosition) newPosition->QuadPart = relative ? position_ - windowOffset_ : position_;
    return status;
  }

  HRESULT Stat(STATSTG* statistics, DWORD flags) override {
    return stream_ ? stream_->Stat(statistics, flags) : STG_E_INVALIDFUNCTION;
  }

  HRESULT Clone(IStream** stream) override {
    if (!stream) return STG_E_INVALIDPOINTER;
    if (!stream_) return STG_E_INVALIDFUNCTION;
    IStream* inner = nullptr;
    HRESULT status = stream_->Clone(&inner);
    if (FAILED(status)) return status;
    if (!inner) return E_FAIL;
    IQnProtectedStream* made = nullptr;
    status = QnProtectedStream_CreateFromStream(inner, &made);
    inner->Release();
    if (SUCCEEDED(status)) *stream = made;
    return status;
  }

  HRESULT SetWindow(BOOL enabled, BOOL guardWrites, ULARGE_INTEGER offset, ULARGE_INTEGER size) override {
    windowEnabled_ = enabled;
    guardWrites_ = guardWrites;
    windowOffset_ = offset.QuadPart;
    windowSize_ = size.QuadPart;
    return S_OK;
  }

  HRESULT SetMode(DWORD mode) override {
    if (mode != QNPROTECTEDSTREAM_STRICT && mode != QNPROTECTEDSTREAM_ZEROFILL) return E_INVALIDARG;
    mode_ = mode;
    return S_OK;
  }

  HRESULT Attach(IStream* inner) override {
    // First, for it may be the one that is attached.
    if (inner) inner->AddRef();
    Drop();
    if (!inner) return E_INVALIDARG;
    stream_ = inner;
    const HRESULT status = Locate();
    if (FAILED(status)) Drop();
    return status;
  }

 private:
  ULONGLONG End() const {
    ULONGLONG end;
    return __builtin_add_overflow(windowOffset_, windowSize_, &end) ? UINT64_MAX : end;
  }

  // Asks for the inner position: its other users move it too, and the window would be passed by.
  HRESULT Locate() { return Move({}, STREAM_SEEK_CUR); }

  HRESULT Move(LARGE_INTEGER offset, DWORD origin) {
    ULARGE_INTEGER position = {.QuadPart = position_};
    const HRESULT status = stream_->Seek(offset, origin, &position);
    if (SUCCEEDED(status)) position_ = position.QuadPart;
    return status;
  }

  // Where a seek by the window leads in the inner stream; false when it is refused.
  bool FindTarget(LONGLONG offset, DWORD origin, LONGLONG* target) const {
    if (origin > STREAM_SEEK_END) return false;
    const ULONGLONG end = End();
    const ULONGLONG bases[] = {windowOffset_, position_, end};
    ULONGLONG sum;
    if (__builtin_add_overflow(bases[origin], offset, &sum) || sum > INT64_MAX) return false;
    *target = static_cast<LONGLONG>(sum);
    const bool ends = origin == STREAM_SEEK_END || (windowEnabled_ && mode_ == QNPROTECTEDSTREAM_STRICT);
    return sum >= windowOffset_ && (!ends || sum <= end);
  }

  void Drop() {
    if (stream_) stream_->Release();
    stream_ = nullptr;
  }

  IStream* stream_ = nullptr;
  ULONGLONG position_ = 0;
  ULONGLONG windowOffset_ = 0;
  ULONGLONG windowSize_ = 0;
  BOOL windowEnabled_ = FALSE;
  BOOL guardWrites_ = FALSE;
  DWORD mode_ = QNPROTECTEDSTREAM_STRICT;
};

// `create` makes the inner stream, whose one reference goes over to the guard.
template <typename CreateInner>
HRESULT CreateOn(IQnProtectedStream** stream, CreateInner create) {
  if (!stream) return E_INVALIDARG;
  *stream = nullptr;
  IStream* inner = nullptr;
  HRESULT status = create(&inner);
  if (FAILED(status)) return status;
  status = QnProtectedStream_CreateFromStream(inner, stream);
  inner->Release();
  return status;
}

}  // namespace

HRESULT QnProtectedStream_CreateFromStream(IStream* inner, IQnProtectedStream** stream) {
  if (!stream) return E_INVALIDARG;
  *stream = nullptr;
  if (!inner) return E_INVALIDARG;
  CQnProtectedStream* const made = CQnProtectedStream::New();
  if (!made) return E_OUTOFMEMORY;
  const HRESULT status = made->Attach(inner);
  if (SUCCEEDED(status)) {
    *stream = made;
  } else {
    made->Release();
  }
  return status;
}

HRESULT QnProtectedStream_CreateFromFile(HANDLE file, IQnProtectedStream** stream) {
  return CreateOn(stream, [&](IStream** inner) { return QnCreateStreamFromFile(file, inner); });
}

HRESULT QnProtectedStream_CreateFromMemory(void* data, DWORD capacity, DWORD used,
                                           IQnProtectedStream** stream) {
  return QnProtectedStream_CreateFromMemory(data, ULARGE_INTEGER{.QuadPart = capacity},
                                            ULARGE_INTEGER{.QuadPart = used}, stream);
}

HRESULT QnProtectedStream_CreateFromMemory(void* data, ULARGE_INTEGER capacity, ULARGE_INTEGER used,
                                           IQnProtectedStream** stream) {
  return CreateOn(
      stream, [&](IStream** inner) { return QnCreateStreamFromMemory(data, capacity, used, inner, FALSE); });
}
