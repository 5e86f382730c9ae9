// What the stream objects have in common, and the way to the memory behind a memory stream.
#pragma once

#include <atomic>
#include <new>

#include "qn/platform/com.h"
#include "qn/platform/memory.h"

namespace qn {

// The first byte of the memory that a stream of QnCreateStreamFromMemory keeps, and how many of its bytes are
// used; null for any other stream.
const void* StreamMemory(IStream* stream, ULONGLONG* used);

// Counts the references of a stream object, which is one zeroed block. `Self::kOwnId` is the id that it hands
// itself out under, beside those of every stream.
template <typename Self, typename Interface>
class CountedStream : public Interface {
 public:
  // With one reference; null when there is no memory.
  static Self* New() {
    void* const block = GlobalAlloc(GPTR, sizeof(Self));
    return block ? new (block) Self() : nullptr;
  }

  HRESULT QueryInterface(const IID& id, void** object) override {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (id != IID_IUnknown && id != IID_IStream && id != Self::kOwnId) return E_NOINTERFACE;
    AddRef();
    *object = static_cast<Self*>(this);
    return S_OK;
  }

  ULONG AddRef() override { return ++references_; }

  ULONG Release() override {
    const ULONG left = --references_;
    if (left == 0) {
      Self* const self = static_cast<Self*>(this);
      self->~Self();
      GlobalFree(self);
    }
    return left;
  }

  HRESULT SetSize(ULARGE_INTEGER) override { return E_NOTIMPL; }
  HRESULT CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*) override { return E_NOTIMPL; }
  HRESULT Commit(DWORD) override { return E_NOTIMPL; }
  HRESULT Revert() override { return E_NOTIMPL; }
  HRESULT LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
  HRESULT UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }

 protected:
  ~CountedStream() = default;

 private:
  std::atomic<ULONG> references_ = 1;
};

}  // namespace qn
