// Audio streams: the frames of one PCM wave file, read and written in the sample type that the caller works
// in.
//
// A stream knows where the first sample stands and how many frames there are, and touches nothing before
// that; the file's header is the caller's to mend after writing. The length is what the stream says, not what
// the file holds: shrinking never cuts the file, and a read stops at the length even where the file goes on.
// A read that meets the end of the file delivers fewer frames, which is no failure.
//
// Positions and counts are in frames; `type` 0 stands for the type of the client format, and a caller's frame
// has the channels of the client format. A position that no file can have gives 0x80030019 where the file is
// to be moved to it. A stream is used by one thread at a time; a peak object is told on the writer's.
//
// Statuses, where a function does not say otherwise: 0; STG_E_ACCESSDENIED when the stream's mode forbids it;
// 0x80030019 when a seek failed, STG_E_READFAULT, STG_E_WRITEFAULT; E_UNEXPECTED when no copy function leads
// between the file's type and the one asked for; E_OUTOFMEMORY; E_INVALIDARG for a null stream or a null
// argument that is needed.
#pragma once

#include "qn/audio/qnwaveformat.h"
#include "qn/media/peak.h"
#include "qn/platform/types.h"

struct QnAudioStreamRecord;
using HQNAUDIOSTREAM = QnAudioStreamRecord*;

// The low 16 bits of the flags are the share mode of the file; of those, a low nibble of 1 forbids writes and
// one of 2 forbids reads.
constexpr DWORD QNAUDIOSTREAM_CREATE = 0x10000;           // create the file anew, shared for reading
constexpr DWORD QNAUDIOSTREAM_DELETE_ON_CLOSE = 0x20000;  // delete the file when it is closed
constexpr DWORD QNAUDIOSTREAM_READ_ONLY = 0x40000;        // open it for reading only, shared for reading

extern "C" {

// A zeroed stream in `*out`, null on failure (E_OUTOFMEMORY).
QN_API HRESULT QnAudioStream_Allocate(HQNAUDIOSTREAM* out);

// Opens an allocated stream on a file by its name. `*format` receives the file's format, which is also the
// client's. With QNAUDIOSTREAM_CREATE and no file of that name `*format` is given, the length is 0 and the
// first frame stands behind a header of 46 bytes. The flag empties any file of that name, also one without a
// format that can be read; on a wave file the stream keeps the old format, length and first frame, though the
// frames are gone. A file that the stream has open is closed first.
//   QN_E_FILE_UNSUPPORTED  the file is compressed
//   QN_E_FILE_OPEN         there is no file with a format
//   others                 as QnAudioStream_OpenFile. After a failure behind the opening of the file the
//                          stream is freed and must not be used again; hosts rely on it. E_INVALIDARG and
//                          E_FAIL come before that and leave it the caller's
QN_API HRESULT QnAudioStream_Initialize(HQNAUDIOSTREAM stream, WAVEFORMATEX* format, const WCHAR* name,
                                        DWORD flags);

// A new stream in `*out`, null on failure. `dataOffset` is the byte offset of the first frame, `length` the
// frames; null client and third formats are the file's. A file that is created gets `dataOffset` zero bytes.
//   E_INVALIDARG   a file to be created with a low nibble of 1
//   E_FAIL         the file could not be opened, or the name is longer than 259 characters
//   E_NOTIMPL      no copy function leads between the formats, or a format's block align is not that of its
//                  channels and sample type
//   E_OUTOFMEMORY  no memory, or the zero bytes could not be written
QN_API HRESULT QnAudioStream_OpenFile(HQNAUDIOSTREAM* out, const WCHAR* name, DWORD dataOffset,
                                      ULONGLONG length, WAVEFORMATEX* fileFormat, WAVEFORMATEX* clientFormat,
                                      WAVEFORMATEX* thirdFormat, DWORD flags);

// Close and free a stream with its pool of buffers; the two are one. E_FAIL for null.
QN_API HRESULT QnAudioStream_Close(HQNAUDIOSTREAM stream);
QN_API HRESULT QnAudioStream_Free(HQNAUDIOSTREAM stream);

// Closes the file (and deletes it, if that is its flag) but keeps the stream. E_FAIL for null.
QN_API HRESULT QnAudioStream_CloseFiles(HQNAUDIOSTREAM stream);

// QnAudioStream_Initialize with the stored name and flags. With QNAUDIOSTREAM_CREATE among them the file is
// made anew, and what was in it is lost.
QN_API HRESULT QnAudioStream_ReopenFiles(HQNAUDIOSTREAM stream);

// Makes a temporary WAV file in the library's folder of `frames` frames of `source` from `start` on, of at
// most 256 MiB, in the allocated stream `target`, which takes the source's flags. `*format` receives the
// file's format. The position of `source` is left behind the range. What cannot be read is left out of the
// file without a failure. The target has no length and no formats to work with until its owner opens it
// again.
//   E_INVALIDARG   a low nibble of 1
//   E_FAIL         the file could not be created
//   E_OUTOFMEMORY  no memory, or the header could not be written
//   others         those of QnCreateTempFileAndNameEx
QN_API HRESULT QnAudioStream_Clone(HQNAUDIOSTREAM source, HQNAUDIOSTREAM target, WAVEFORMATEX* format,
                                   LONGLONG start, LONGLONG frames);

// Moves the position: origin 0 to `offset`, 1 by `offset`, 2 to the length plus `offset`; others leave it.
// With 0x100 in the origin the file is moved at once, and the position is where it landed; only with an
// origin of exactly 0x100 is that counted from the first frame, else from the start of the file.
// `*newPosition` (may be null) becomes the position, or -1 when the file cannot be moved, 0x80030019.
QN_API HRESULT QnAudioStream_Seek(HQNAUDIOSTREAM stream, LONGLONG offset, LONG origin, LONGLONG* newPosition);

QN_API HRESULT QnAudioStream_GetLength(HQNAUDIOSTREAM stream, ULONGLONG* length);

// Sets the length and nothing else. `*result` (may be null) becomes the new length.
QN_API HRESULT QnAudioStream_SetLength(HQNAUDIOSTREAM stream, ULONGLONG length, ULONGLONG* result);

// Appends silence up to `frames` frames, position kept; or shrinks the length, with the position at the new
// end, and has the peak object cut its peaks and take the end of the audio again, in the file's type. The
// bytes in the file stay as they are. E_NOTIMPL when that end is due and the file has other channels than the
// client.
QN_API HRESULT QnAudioStream_SetSize(HQNAUDIOSTREAM stream, ULONGLONG frames);

// Removes `count` frames from `start` on, or -count frames before `start`, and moves the rest down. The
// length is one frame more than what is left; hosts rely on it. The position is not kept. 1 with nothing done
// for a start beyond the length; E_NOTIMPL, also with nothing done, when the file has other channels than the
// client; a failure halfway leaves the length.
QN_API HRESULT QnAudioStream_Delete(HQNAUDIOSTREAM stream, LONGLONG start, LONGLONG count);

// Reads up to `frames` frames at the position and moves it on. `*read` (may be null) becomes how many came.
// After STG_E_READFAULT what was read before stays in the buffer but is not counted.
QN_API HRESULT QnAudioStream_ReadEx(HQNAUDIOSTREAM stream, void* buffer, DWORD frames, DWORD* read,
                                    QNSAMPLETYPE type);

// Writes `frames` frames at the position, moves it on, lets the length grow with it, and tells the peak
// object. `*written` (may be null) becomes the whole frames in the file. E_FAIL for a null stream.
QN_API HRESULT QnAudioStream_WriteEx(HQNAUDIOSTREAM stream, const void* buffer, DWORD frames, DWORD* written,
                                     QNSAMPLETYPE type);

// QnAudioStream_WriteEx with the type of QnAudioStream_OpenWrite, which also sets the position. CloseWrite
// makes it the client's type again.
QN_API HRESULT QnAudioStream_Write(HQNAUDIOSTREAM stream, const void* buffer, DWORD frames, DWORD* written);
QN_API HRESULT QnAudioStream_OpenWrite(HQNAUDIOSTREAM stream, LONGLONG start, LONGLONG unused,
                                       QNSAMPLETYPE type);
QN_API HRESULT QnAudioStream_CloseWrite(HQNAUDIOSTREAM stream);

// Read and write one channel, numbered from 0, with `buffer` holding the samples of that channel alone. The
// other channels stay as they are, and are silent behind the length. They are read and written in `type` too:
// one narrower than the file's cuts them to its bits. `read` is needed, `written` may be null.
// E_FAIL for a null stream, E_INVALIDARG for a channel that the client format has not.
QN_API HRESULT QnAudioStream_ReadChannelEx(HQNAUDIOSTREAM stream, DWORD channel, void* buffer, DWORD frames,
                                           DWORD* read, QNSAMPLETYPE type);
QN_API HRESULT QnAudioStream_WriteChannelEx(HQNAUDIOSTREAM stream, DWORD channel, const void* buffer,
                                            DWORD frames, DWORD* written, QNSAMPLETYPE type);

// Copies frames from the position of one stream to that of another, converting the sample type. `read` is
// needed, `written` may be null. E_NOTIMPL when the client channels differ, or when the target's type of
// QnAudioStream_OpenWrite is wider than its client type.
QN_API HRESULT QnAudioStream_CopyTo(HQNAUDIOSTREAM source, HQNAUDIOSTREAM target, DWORD frames, DWORD* read,
                                    DWORD* written);

// Raw access to the file at a byte cursor of its own, which counts from the start of the file. A failed
// access gives the status of the system's error. A write behind the last frame makes the length grow. Seek is
// QnAudioStream_Seek in bytes; its end is that of the last frame.
QN_API HRESULT QnAudioStream_AbsRead(HQNAUDIOSTREAM stream, void* buffer, DWORD bytes, DWORD* read);
QN_API HRESULT QnAudioStream_AbsWrite(HQNAUDIOSTREAM stream, const void* buffer, DWORD bytes, DWORD* written);
QN_API HRESULT QnAudioStream_AbsSeek(HQNAUDIOSTREAM stream, LONGLONG offset, LONG origin,
                                     LONGLONG* newPosition);

// The client (1) or file (11 to 13) numbers: 1 client block align; 2 frames of a buffer; 11, 21 rate; 12, 22
// bits per sample; 13, 23 channels, from 21 on the client's. 0 for any other value and for a null stream.
QN_API DWORD QnAudioStream_GetMetric(HQNAUDIOSTREAM stream, DWORD which);

// Attaches the peak object that is told of writes; null detaches. It stays the caller's. Always 1.
QN_API HRESULT QnAudioStream_SetPeak(HQNAUDIOSTREAM stream, IQnAudioPeak* peak);

// Takes the same bytes for frames of another channel count. The peak object is detached and the position 0.
// The length is halved for 2 channels and doubled for any other count, whatever the old one was; hosts rely
// on it. The same count does nothing. E_INVALIDARG for a count that no format can have.
QN_API HRESULT QnAudioStream_PrestoChangoChannels(HQNAUDIOSTREAM stream, DWORD channels);

// Does nothing: E_NOTIMPL. Hosts rely on it.
QN_API HRESULT QnAudioStream_Undo(HQNAUDIOSTREAM stream);

// A locked block for `frames` frames of the client format, or null; Free releases it, also one from the pool,
// and gives null.
QN_API void* QnAudioStream_AllocBuffer(HQNAUDIOSTREAM stream, DWORD frames);
QN_API void* QnAudioStream_FreeBuffer(HQNAUDIOSTREAM stream, void* buffer);

// The same from a pool of 8 that is freed with the stream; null when it has no more. Release gives a block
// that is not from the pool back as it is, not freed.
QN_API void* QnAudioStream_GetBuffer(HQNAUDIOSTREAM stream, DWORD frames);
QN_API void* QnAudioStream_ReleaseBuffer(HQNAUDIOSTREAM stream, void* buffer);

// Several blocks from the pool at once. On failure, E_OUTOFMEMORY, those that were got stay in the pool and
// in `out`, and the next entry is null. `type` is not used. Release gives 1 when an entry is null, else 0.
QN_API HRESULT QnAudioStream_GetBuffers(HQNAUDIOSTREAM stream, void** out, DWORD count, DWORD frames,
                                        QNSAMPLETYPE type);
QN_API HRESULT QnAudioStream_ReleaseBuffers(HQNAUDIOSTREAM stream, void** buffers, DWORD count);
}

// Reads in the client's type; or in a given one from a given position.
QN_API HRESULT QnAudioStream_Read(HQNAUDIOSTREAM stream, void* buffer, DWORD frames, DWORD* read);
QN_API HRESULT QnAudioStream_Read(HQNAUDIOSTREAM stream, void* buffer, DWORD frames, DWORD* read,
                                  LONGLONG position, QNSAMPLETYPE type);

// 18 bytes of a format: 0 the file's, 2 the third, any other the client's; or the file's with another sample
// type (0: the file's as it is).
QN_API HRESULT QnAudioStream_GetWfx(HQNAUDIOSTREAM stream, WAVEFORMATEX* out, DWORD which);
QN_API HRESULT QnAudioStream_GetWfx(HQNAUDIOSTREAM stream, WAVEFORMATEX* out, QNSAMPLETYPE type);
