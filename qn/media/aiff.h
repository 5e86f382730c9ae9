// AIFF and AIFF-C files: recognising them and reading their format.
//
// Samples are delivered as they stand in the file, so the format's tag tells their byte order: 1 for
// little-endian and unsigned 8-bit, QNWAVETAG_SIGNED8 for signed 8-bit, QNWAVETAG_BIGENDIAN for 16, 24 and
// 32 bits as AIFF has them. docs/formats/aiff.md has the layouts byte by byte.
#pragma once

#include "qn/audio/qnwaveformat.h"
#include "qn/platform/types.h"

extern "C" {

// 1 when an AIFF or AIFF-C form starts at the position of an open file, else 0. The position stays.
QN_API int iff_IsAIFFFileEx(HANDLE file);

// Reads the format of the AIFF or AIFF-C form that starts at the position of an open file.
//   format     becomes the plain record with cbSize 0. Sample sizes that are no whole bytes (12, 20 bits) are
//              those of their container (16, 24): such samples stand in its high bits.
//   frames     becomes the number of frames: what the COMM chunk states, but no more than the file holds
//   dataStart  becomes the byte offset of the first sample from the start of the file; that of the file's end
//              when the form has neither frames nor an SSND chunk
// `frames` and `dataStart` may be null. On success the position stands at the form's first chunk, behind its
// 12-byte header. On failure it is as it was, and so are the outputs: QN_E_FILE_FORMAT (no such form, or
// values that make no sense), QN_E_FILE_READ (cut within a header), QN_E_NOT_FOUND (no COMM chunk, or no SSND
// chunk though there are frames), QN_E_FILE_UNSUPPORTED (compressed samples, or float: no format tag tells
// big-endian float), E_POINTER (a null `format`).
QN_API HRESULT iff_GetAIFFWfx(HANDLE file, WAVEFORMATEX* format, uint64_t* frames, uint64_t* dataStart);
}
