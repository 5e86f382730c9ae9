// The names of compressed formats, as a registry of codecs has them: by format tag, and as a line that
// describes a format.
//
// The registry is a module of its own, qnkernel/codec-names.so in the library's folder, which the first
// question loads and which stays loaded. Without it no format is known.
#pragma once

#include "qn/platform/mmreg.h"
#include "qn/platform/types.h"

inline namespace qnplatform {

using MMRESULT = UINT;
using HACMDRIVER = struct HACMDRIVER__*;

constexpr int ACMFORMATTAGDETAILS_FORMATTAG_CHARS = 48;
constexpr int ACMFORMATDETAILS_FORMAT_CHARS = 128;

#pragma pack(push, 1)

typedef struct tACMFORMATTAGDETAILSW {
  DWORD cbStruct;  // the caller sets it
  DWORD dwFormatTagIndex;
  DWORD dwFormatTag;
  DWORD cbFormatSize;
  DWORD fdwSupport;
  DWORD cStandardFormats;
  WCHAR szFormatTag[ACMFORMATTAGDETAILS_FORMATTAG_CHARS];
} ACMFORMATTAGDETAILSW;

typedef struct tACMFORMATDETAILSW {
  DWORD cbStruct;  // the caller sets it
  DWORD dwFormatIndex;
  DWORD dwFormatTag;
  DWORD fdwSupport;
  WAVEFORMATEX* pwfx;  // only read
  DWORD cbwfx;         // the bytes that pwfx owns
  WCHAR szFormat[ACMFORMATDETAILS_FORMAT_CHARS];
} ACMFORMATDETAILSW;

#pragma pack(pop)

static_assert(sizeof(ACMFORMATTAGDETAILSW) == 120 && offsetof(ACMFORMATTAGDETAILSW, szFormatTag) == 24);
static_assert(sizeof(ACMFORMATDETAILSW) == 284 && offsetof(ACMFORMATDETAILSW, szFormat) == 28);

constexpr DWORD ACM_FORMATTAGDETAILSF_FORMATTAG = 1;
constexpr DWORD ACM_FORMATDETAILSF_FORMAT = 1;

constexpr MMRESULT MMSYSERR_NOERROR = 0;
constexpr MMRESULT MMSYSERR_NOMEM = 7;
constexpr MMRESULT MMSYSERR_INVALFLAG = 10;
constexpr MMRESULT MMSYSERR_INVALPARAM = 11;
constexpr MMRESULT ACMERR_NOTPOSSIBLE = 512;

// The codec of dwFormatTag: its name, English and cut to its room, goes to szFormatTag. The other fields
// become 0. The driver is not used; the only question is the one of the flag above.
// 0; MMSYSERR_INVALFLAG for other flags, MMSYSERR_INVALPARAM for a null or too small record, MMSYSERR_NOMEM,
// or ACMERR_NOTPOSSIBLE for a tag that no codec has, linear samples and the extensible tag among them; then
// the record is as it was.
QN_API MMRESULT acmFormatTagDetailsW(HACMDRIVER driver, ACMFORMATTAGDETAILSW* details, DWORD flags);

// The format at pwfx: a line of its rate, bit rate and channels in the language of the library's texts goes
// to szFormat. The codec of an extensible format is that of the tag that its sub-format carries. The other
// output fields become 0. Results as above; MMSYSERR_INVALPARAM also for a dwFormatTag that is not the
// format's, and for a cbwfx below 16.
QN_API MMRESULT acmFormatDetailsW(HACMDRIVER driver, ACMFORMATDETAILSW* details, DWORD flags);

}  // namespace qnplatform
