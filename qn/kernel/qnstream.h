// Streams over an open file, over a block of memory, and a guard that confines another stream.
#pragma once

#include "qn/platform/com.h"
#include "qn/platform/types.h"

// A stream that shows a window of another one.
struct IQnProtectedStream : IStream {
  virtual HRESULT SetWindow(BOOL enabled, BOOL guardWrites, ULARGE_INTEGER offset, ULARGE_INTEGER size) = 0;
  virtual HRESULT SetMode(DWORD mode) = 0;
  virtual HRESULT Attach(IStream* inner) = 0;

 protected:
  ~IQnProtectedStream() = default;
};

const IID IID_IQnProtectedStream = {
    0xFA000DBA, 0xCEDB, 0x4D01, {0xB9, 0x23, 0xBB, 0x72, 0x2D, 0x68, 0x7E, 0xF2}};

constexpr DWORD QNPROTECTEDSTREAM_STRICT = 1;
constexpr DWORD QNPROTECTEDSTREAM_ZEROFILL = 2;

extern "C" {
QN_API HRESULT QnCreateStreamFromFile(HANDLE file, IStream** stream);
QN_API HRESULT QnProtectedStream_CreateFromStream(IStream* inner, IQnProtectedStream** stream);
QN_API HRESULT QnProtectedStream_CreateFromFile(HANDLE file, IQnProtectedStream** stream);
QN_API HRESULT QnReadIStream(IStream* stream, void* buffer, DWORD size);
}

QN_API HRESULT QnCreateStreamFromMemory(void* data, DWORD capacity, DWORD used, IStream** stream, BOOL copy);
QN_API HRESULT QnCreateStreamFromMemory(void* data, ULARGE_INTEGER capacity, ULARGE_INTEGER used,
                                        IStream** stream, BOOL copy);
QN_API HRESULT QnProtectedStream_CreateFromMemory(void* data, DWORD capacity, DWORD used,
                                                  IQnProtectedStream** stream);
QN_API HRESULT QnProtectedStream_CreateFromMemory(void* data, ULARGE_INTEGER capacity, ULARGE_INTEGER used,
                                                  IQnProtectedStream** stream);
