// WAV and Wave64 files as a whole: what a file is, its format, an empty file, a header over an existing
// start, and the repair of a file whose header is lost.
//
// A file's audio is worth more than its header. All that is written here ends exactly where the samples
// begin, and nothing moves them: the room between the header and the samples becomes a JUNK chunk.
//
// What is written has a `fmt ` chunk of 18 bytes, the plain record with cbSize 0. docs/formats/wav.md has the
// layouts byte by byte. Names are paths of the library (see qn/platform/text.h). A handle is used by one
// thread for the length of a call, and its position is the same before and after each call that takes one.
//
// Statuses, where a function does not say otherwise: QN_E_MEDIA_TYPE (the format record is refused),
// QN_E_FILE_OPEN, QN_E_FILE_READ, QN_E_FILE_WRITE, QN_E_NOT_FOUND (no samples), QN_E_CHUNK_SIZE (no header
// ends at that offset), QN_E_FILE_UNSUPPORTED, E_INVALIDARG.
//
// The operations that take a format have a second form for the library's own record. Those that create a file
// or insert a header refuse a record that needs the extensible form with QN_E_MEDIA_TYPE.
#pragma once

#include <cstddef>

#include "qn/audio/qnwaveformat.h"
#include "qn/platform/types.h"

extern "C" {

// 1 when the file is a WAV ("RIFF" of the form "WAVE") or a Wave64 file with a format chunk in it, else 0.
// With `allowCompressed` 0 the format must be linear PCM or float too. A `data` chunk is not asked for.
QN_API int QnFileIsWave(const WCHAR* name, int allowCompressed);
QN_API int QnFileIsWave64(const WCHAR* name, int allowCompressed);

// 1 when the file is AIFF or AIFF-C, else 0.
QN_API int QnFileIsAiff(const WCHAR* name);

// Reads the format of a WAV, Wave64 or AIFF file of linear PCM or float samples. PCM of 20 bits in 2
// bytes is delivered as 24 with the block align to match. `*frames` becomes the frame count that the header
// states (for AIFF never more than the file holds), `*dataStart` the byte offset of the first sample; both
// may be null.
//
// Returns a record with its cbSize bytes behind it, to be released with free(), or null with both outputs as
// they were when the file cannot be opened or is none of the three.
QN_API WAVEFORMATEX* QnGetFileWfx(const WCHAR* name, uint64_t* frames, uint64_t* dataStart);

// Replaces the stored format. The record must be consistent if its tag is 1: no 20 bits, a block align of
// channels times whole bytes.
//
// On a WAV file this overwrites the first 26 bytes, the RIFF header among them, with a bare `fmt ` chunk
// ("fmt ", 18, the record): hosts that use it write the file's header again afterwards. On an AIFF file it
// overwrites the first 18 bytes of the COMM chunk's data, with the frame count that QnGetFileWfx delivers;
// the tag must be 1, else QN_E_FILE_UNSUPPORTED. Other files give the status of iff_GetAIFFWfx.
QN_API HRESULT QnSetFileWfx(const WCHAR* name, const WAVEFORMATEX* format);

// Create a file that holds a header and no samples: 46 bytes (WAV) or 112 (Wave64).
//   format       cbSize 0; for tag 1 no 20 bits, and a block align of channels times whole bytes. It is
//                checked before the file is touched.
//   disposition  CREATE_NEW, CREATE_ALWAYS, TRUNCATE_EXISTING; OPEN_EXISTING truncates and OPEN_ALWAYS
//                creates or truncates
// The sizes in the header are to be set when the samples are in; that of a Wave64 file starts as 130.
QN_API HRESULT QnInitializeWav(const WCHAR* name, const WAVEFORMATEX* format, uint32_t disposition);
QN_API HRESULT QnInitializeWav64(const WCHAR* name, const WAVEFORMATEX* format, uint32_t disposition);

// The same with a JUNK chunk that makes the header `headerSize` bytes long, rounded up to a multiple of 2
// (WAV) or 8 (Wave64). Below 54 (WAV) or 136 (Wave64) it gives E_INVALIDARG: the file has been created or
// truncated by then and stays empty.
QN_API HRESULT QnInitializeWavWithJunk(const WCHAR* name, const WAVEFORMATEX* format, uint32_t disposition,
                                       uint32_t headerSize);
QN_API HRESULT QnInitializeWav64WithJunk(const WCHAR* name, const WAVEFORMATEX* format, uint32_t disposition,
                                         int64_t headerSize);

// Writes a complete header over the first `dataOffset` bytes of an open file of at least 46 (WAV) or 112
// (Wave64) bytes; nothing else changes. The header states `dataBytes` bytes of samples at `dataOffset`.
// QN_E_CHUNK_SIZE with nothing written when the file is shorter or `dataOffset` cannot end a header: for
// WAV it is 46 or an even number from 54 on, for Wave64 112 or a multiple of 8 from 136 on. A RIFF size that
// does not fit in 32 bits is stored as 0xFFFFFFFF. A failure halfway leaves what was written.
QN_API HRESULT QnInsertWavHeader(HANDLE file, const WAVEFORMATEX* format, uint32_t dataBytes,
                                 uint32_t dataOffset);
QN_API HRESULT QnInsertW64Header(HANDLE file, const WAVEFORMATEX* format, int64_t dataBytes,
                                 int64_t dataOffset);

// Repairs an open file of at least 46 (WAV) or 112 (Wave64) bytes whatever its header holds. The format is
// taken from its usual place (offset 20, or 64), field by field where a field makes sense, else from
// `format`; null stands for 16-bit PCM, stereo, 44,100 Hz. The samples are found by the chunks that follow,
// or by the `data` tag, or are taken to start at `headerLimit`, the largest offset at which they may start.
// A new header is written over what stands before them, for all whole frames up to the end of the file; no
// sample moves. A WAV header that cannot count all frames of a file of 4 GiB and more counts as many as it
// can.
//
// The short WAV header of 44 bytes has no room for the record that is written: with a `headerLimit` of 44
// such a file is refused, with a larger one its first samples may be taken for header.
//
// QN_E_FILE_READ when the record cannot be read; QN_E_CHUNK_SIZE, with nothing written, when the samples
// start where no header ends or the file is shorter than a header; QN_E_MEDIA_TYPE when `format` gives
// defaults of no use.
QN_API HRESULT QnFixTrashedWav(HANDLE file, const WAVEFORMATEX* format, uint32_t headerLimit);
QN_API HRESULT QnFixTrashedW64(HANDLE file, const WAVEFORMATEX* format, int64_t headerLimit);
}

QN_API HRESULT QnSetFileWfx(const WCHAR* name, const _qnwaveformat* format);
QN_API HRESULT QnInitializeWav(const WCHAR* name, const _qnwaveformat* format, uint32_t disposition);
QN_API HRESULT QnInitializeWav64(const WCHAR* name, const _qnwaveformat* format, uint32_t disposition);
QN_API HRESULT QnInitializeWavWithJunk(const WCHAR* name, const _qnwaveformat* format, uint32_t disposition,
                                       uint32_t headerSize);
QN_API HRESULT QnInitializeWav64WithJunk(const WCHAR* name, const _qnwaveformat* format, uint32_t disposition,
                                         int64_t headerSize);
QN_API HRESULT QnInsertWavHeader(HANDLE file, const _qnwaveformat* format, uint32_t dataBytes,
                                 uint32_t dataOffset);
QN_API HRESULT QnInsertW64Header(HANDLE file, const _qnwaveformat* format, int64_t dataBytes,
                                 int64_t dataOffset);
QN_API HRESULT QnFixTrashedWav(HANDLE file, const _qnwaveformat* format, uint32_t headerLimit);
QN_API HRESULT QnFixTrashedW64(HANDLE file, const _qnwaveformat* format, int64_t headerLimit);

// A literal null is the default format in either form.
inline HRESULT QnFixTrashedWav(HANDLE file, std::nullptr_t, uint32_t headerLimit) {
  return QnFixTrashedWav(file, static_cast<const WAVEFORMATEX*>(nullptr), headerLimit);
}
inline HRESULT QnFixTrashedW64(HANDLE file, std::nullptr_t, int64_t headerLimit) {
  return QnFixTrashedW64(file, static_cast<const WAVEFORMATEX*>(nullptr), headerLimit);
}
