// The interfaces of counted objects and streams, as they are published.
#pragma once

#include "qn/platform/filetime.h"
#include "qn/platform/types.h"

inline namespace qnplatform {

using IID = GUID;
using CLSID = GUID;

// What ULARGE_INTEGER and LARGE_INTEGER are to the published interfaces: 64 bits by value.
union ULARGE_INTEGER {
  struct {
    DWORD LowPart;
    DWORD HighPart;
  } u;
  ULONGLONG QuadPart;
};
static_assert(sizeof(ULARGE_INTEGER) == 8);

constexpr IID IID_IUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
constexpr IID IID_ISequentialStream = {
    0x0C733A30, 0x2A1C, 0x11CE, {0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77, 0x3D}};
constexpr IID IID_IStream = {0x0000000C, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

constexpr DWORD STREAM_SEEK_SET = 0;
constexpr DWORD STREAM_SEEK_CUR = 1;
constexpr DWORD STREAM_SEEK_END = 2;

constexpr DWORD STATFLAG_DEFAULT = 0;
constexpr DWORD STATFLAG_NONAME = 1;
constexpr DWORD STGTY_STREAM = 2;

constexpr HRESULT STG_E_INVALIDFUNCTION = MakeStatus(0x80030001);
constexpr HRESULT STG_E_ACCESSDENIED = MakeStatus(0x80030005);
constexpr HRESULT STG_E_INVALIDPOINTER = MakeStatus(0x80030009);
constexpr HRESULT STG_E_WRITEFAULT = MakeStatus(0x8003001D);
constexpr HRESULT STG_E_READFAULT = MakeStatus(0x8003001E);

struct STATSTG {
  WCHAR* pwcsName;
  DWORD type;
  ULARGE_INTEGER cbSize;
  FILETIME mtime;
  FILETIME ctime;
  FILETIME atime;
  DWORD grfMode;
  DWORD grfLocksSupported;
  CLSID clsid;
  DWORD grfStateBits;
  DWORD reserved;
};
static_assert(sizeof(STATSTG) == 80);

// No virtual destructors: the order of the table is published. Release ends an object.
struct IUnknown {
  virtual HRESULT QueryInterface(const IID& id, void** object) = 0;
  virtual ULONG AddRef() = 0;
  virtual ULONG Release() = 0;

 protected:
  ~IUnknown() = default;
};

struct ISequentialStream : IUnknown {
  virtual HRESULT Read(void* buffer, ULONG bytes, ULONG* got) = 0;
  virtual HRESULT Write(const void* buffer, ULONG bytes, ULONG* put) = 0;

 protected:
  ~ISequentialStream() = default;
};

struct IStream : ISequentialStream {
  virtual HRESULT Seek(LARGE_INTEGER offset, DWORD origin, ULARGE_INTEGER* newPosition) = 0;
  virtual HRESULT SetSize(ULARGE_INTEGER size) = 0;
  virtual HRESULT CopyTo(IStream* target, ULARGE_INTEGER bytes, ULARGE_INTEGER* got, ULARGE_INTEGER* put) = 0;
  virtual HRESULT Commit(DWORD flags) = 0;
  virtual HRESULT Revert() = 0;
  virtual HRESULT LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER bytes, DWORD type) = 0;
  virtual HRESULT UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER bytes, DWORD type) = 0;
  virtual HRESULT Stat(STATSTG* statistics, DWORD flags) = 0;
  virtual HRESULT Clone(IStream** stream) = 0;

 protected:
  ~IStream() = default;
};

}  // namespace qnplatform
