// Wave formats in words: the name of a format's tag, and a line of its attributes, in the language of the
// library's texts.
//
//   PCM (float)
//   44,100 Hz, 32 Bit (IEEE Float), Stereo
//
// The names of compressed formats come from the platform's registry of codecs (qn/platform/msacm.h).
//
// `size` counts characters with the terminator. A text that does not fit is cut, and the status that of
// QnCchPrintF. A null buffer, or a size below 1, is simply not written: the status stays.
#pragma once

#include "qn/audio/qnwaveformat.h"
#include "qn/platform/types.h"

// Writes the line of a format: rate, bits and channels. Of 6 and 8 channels only an extensible format with
// the speakers of such a set says "5.1" or "7.1", and of extensible formats only those of 6 and 8 channels
// say that their samples are in floating point: hosts show these lines beside ones that they have kept.
// The line of a compressed format is the platform's. 0, or 0x80004005 with "Unknown" for a compressed format
// that the platform does not know and for null.
QN_API HRESULT QnAudio_GetAttribsText(const WAVEFORMATEX* format, WCHAR* text, int size);

// The same of a record, by way of a published format of at most 80 bytes.
QN_API HRESULT QnAudio_GetAttribsText(const _qnwaveformat* format, WCHAR* text, int size);

extern "C" {

// Writes the name of a format tag; of an extensible format give the tag that QnAudio_GetWaveFormatTag finds.
// 0, or 0x80004005 with "Unknown" for a tag that neither the library nor the
// platform knows.
QN_API HRESULT QnAudio_GetTagText(unsigned int tag, WCHAR* text, int size);
}
