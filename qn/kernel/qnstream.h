// Streams over an open file, over a block of memory, and a guard that confines another stream.
//
// Each is one of the published stream objects: a new one has one reference, which is its creator's, and
// QueryInterface hands out IUnknown, IStream and, from a guard, IQnProtectedStream. References may be taken
// and given back on any thread; everything else is for one thread at a time.
//
// SetSize, CopyTo, Commit, Revert, LockRegion and UnlockRegion are E_NOTIMPL everywhere. The position that
// Seek stores is the one after it, and after a refusal, STG_E_INVALIDFUNCTION, that of before.
#pragma once

#include "qn/platform/com.h"
#include "qn/platform/types.h"

// A guard: it shows a window of another stream, the inner one, and keeps writes out of what lies before it.
// Without an inner stream Read gives 0x8003001E, Write 0x8003001D; Seek, Stat and Clone
// STG_E_INVALIDFUNCTION.
//
// A new guard has no window. Reads give nothing then, with the result 0, until one is switched on; writes
// pass. Read cuts or zeroes at the window's end, as its mode says, and gives STG_E_ACCESSDENIED before the
// window and, in the strict mode, behind its end. Write passes to the inner stream; what it writes behind the
// end of a window that is switched on makes the window longer.
//
// Seek counts from the start of the window as soon as the window is switched on or writes are guarded. It
// refuses targets before the window and, in the strict mode and from STREAM_SEEK_END, behind its end. With
// the window switched off, STREAM_SEEK_END is the end of the inner stream, which judges the target alone.
//
// Clone gives a guard in its first state on a clone of the inner stream; E_FAIL if that stream gives none.
struct IQnProtectedStream : IStream {
  // The window is `size` bytes from `offset` on, in bytes of the inner stream. With `enabled` 0 it is off;
  // with `guardWrites` nonzero a write that begins before `offset` gives STG_E_ACCESSDENIED. Always 0.
  virtual HRESULT SetWindow(BOOL enabled, BOOL guardWrites, ULARGE_INTEGER offset, ULARGE_INTEGER size) = 0;

  // One of QNPROTECTEDSTREAM_*; E_INVALIDARG for any other mode.
  virtual HRESULT SetMode(DWORD mode) = 0;

  // Takes another inner stream, of which a reference is held, and asks for its position. If that fails, with
  // the status of that stream, or E_INVALIDARG for null, the guard has no inner stream. `inner` must not lead
  // back to the guard.
  virtual HRESULT Attach(IStream* inner) = 0;

 protected:
  ~IQnProtectedStream() = default;
};

constexpr IID IID_IQnProtectedStream = {
    0xFA000DBA, 0xCEDB, 0x4D01, {0xB9, 0x23, 0xBB, 0x72, 0x2D, 0x68, 0x7E, 0xF2}};

constexpr DWORD QNPROTECTEDSTREAM_STRICT = 1;    // a read ends at the window's end; the mode of a new guard
constexpr DWORD QNPROTECTEDSTREAM_ZEROFILL = 2;  // a read goes on behind it and gives zeros

extern "C" {

// A stream over an open file with a position of its own, so that several can share the handle. The handle
// stays the caller's and is not closed. Failures of the file come as the status of the system's error. Seek
// may lead behind the end. Stat is E_NOTIMPL. Clone gives nothing, though its result is 0: it sets the
// stream's own position to 0 and asks for the size of the file again; hosts rely on it.
// E_INVALIDARG if an argument is null; `*stream` is null after every failure, here and below.
QN_API HRESULT QnCreateStreamFromFile(HANDLE file, IStream** stream);

// Guards over a stream, of which they hold a reference, and over what the functions above and below make a
// stream of. E_INVALIDARG as there, and for a null `inner`; the status of a stream that cannot tell its
// position.
QN_API HRESULT QnProtectedStream_CreateFromStream(IStream* inner, IQnProtectedStream** stream);
QN_API HRESULT QnProtectedStream_CreateFromFile(HANDLE file, IQnProtectedStream** stream);

// The Read of a stream, for who does not have the interface's declaration: reads up to `size` bytes and gives
// its result. E_INVALIDARG for a null stream.
QN_API HRESULT QnReadIStream(IStream* stream, void* buffer, DWORD size);
}

// A stream over `capacity` bytes of memory, of which the first `used` hold data (at most `capacity` count).
// With `copy` nonzero the stream has a copy of them, otherwise it reads and writes the caller's, which must
// outlive it. Read gives S_FALSE with nothing from the end of the data on. Write is cut at `capacity`, gives
// S_FALSE with nothing from there on, and fills a gap behind the data with zeros. Seek refuses targets behind
// `capacity`; STREAM_SEEK_END is the end of the data, which Stat gives as the size. Clone gives nothing,
// though its result is 0; hosts rely on it.
// E_INVALIDARG if data, capacity or `stream` is null or 0, E_OUTOFMEMORY.
QN_API HRESULT QnCreateStreamFromMemory(void* data, DWORD capacity, DWORD used, IStream** stream, BOOL copy);
QN_API HRESULT QnCreateStreamFromMemory(void* data, ULARGE_INTEGER capacity, ULARGE_INTEGER used,
                                        IStream** stream, BOOL copy);

// Guards over the caller's memory.
QN_API HRESULT QnProtectedStream_CreateFromMemory(void* data, DWORD capacity, DWORD used,
                                                  IQnProtectedStream** stream);
QN_API HRESULT QnProtectedStream_CreateFromMemory(void* data, ULARGE_INTEGER capacity, ULARGE_INTEGER used,
                                                  IQnProtectedStream** stream);
