// Time as text and back, and the timecode arithmetic beneath it.
//
// A time is a 64-bit count of units of 100 nanoseconds, 10,000,000 to the second, in spite of the name
// "nanotime" that all interfaces keep. A position format tells how the user wants to see it: as samples,
// clock time, frames, timecode, feet of film, measures and beats.
//
//   _qnposfmt format = {QNPOSFMT_SMPTE_DROP, 48000, 30000.0 / 1001, 120, 0, 4, 4, 960};
//   WCHAR text[32];
//   QnNanoTimeToTextN(text, 32, &format, 600600000, FALSE);         // "00:01:00;02"
//   QnTextToNanoTimeToken(W("1:00:02"), &format, FALSE, nullptr);   // 600600000
//
// Nothing here fails: values that a result cannot hold become its nearest one, what is no number reads as 0.
// The clock formats, measures and absolute frames carry small tolerances, so that a time that was rounded
// down to whole units still shows the frame that it came from.
#pragma once

#include <cstddef>

#include "qn/platform/types.h"

// The timecodes; the numbers are stored in client data. Any other type counts 30 frames to the second, takes
// its fields from a frame count as drop-frame does, and gives a frame count of 0.
enum QNSMPTE_TYPE {
  QNSMPTE_30 = 1,            // 30 frames a second
  QNSMPTE_2997_DROP = 2,     // 30000/1001: labels ;00 and ;01 are left out of 9 minutes in 10
  QNSMPTE_25 = 3,            //
  QNSMPTE_24 = 4,            //
  QNSMPTE_2997_NONDROP = 5,  // 30000/1001, 30 counted
  QNSMPTE_23976 = 6,         // 24000/1001, 24 counted
};

typedef struct _smpteval {
  LONG type;  // QNSMPTE_TYPE, set by the caller for every function
  LONG hours;
  LONG minutes;
  LONG seconds;
  LONG frames;
  LONG reserved;  // cleared by QNSMPTE_TextToSMPTE, otherwise not touched
} _smpteval;
static_assert(sizeof(_smpteval) == 24 && offsetof(_smpteval, frames) == 16);

// The rows of _qnposfmt::format; the numbers are stored in client data.
enum QNPOSFMT {
  QNPOSFMT_SAMPLES = 0,
  QNPOSFMT_TIME = 1,              // hours, minutes, seconds, milliseconds; with days from 86399.9 seconds on
  QNPOSFMT_SECONDS = 2,           //
  QNPOSFMT_TIME_FRAMES = 3,       // hours, minutes, seconds, frames
  QNPOSFMT_FRAMES = 4,            // absolute frames
  QNPOSFMT_MEASURES = 5,          // measures and beats, counted from 1
  QNPOSFMT_SMPTE_NONDROP = 6,     // QNSMPTE_2997_NONDROP
  QNPOSFMT_SMPTE_30 = 7,          //
  QNPOSFMT_SMPTE_DROP = 8,        // QNSMPTE_2997_DROP
  QNPOSFMT_SMPTE_25 = 9,          //
  QNPOSFMT_SMPTE_24 = 10,         //
  QNPOSFMT_NANOTIME = 11,         // units of 100 nanoseconds
  QNPOSFMT_MICROSECONDS = 12,     //
  QNPOSFMT_MEASURES_FROM_0 = 13,  // measures and beats, counted from 0
  QNPOSFMT_BEATS = 14,            // written only: reads as 0
  QNPOSFMT_FEET_40 = 15,          // feet and frames, 40 frames to the foot
  QNPOSFMT_FEET_16 = 16,          // feet and frames, 16 frames to the foot
  QNPOSFMT_CD = 17,               // hours, minutes, seconds, 75 frames to the second
  QNPOSFMT_SMPTE_23976 = 18,      //
  QNPOSFMT_COMPACT = 19,          // the shortest clock time; written only: reads as 0
};

// How to show a position. A tempo, frame rate, beat value or any other number of 0 where it divides is the
// caller's to prevent; what is shown then has no meaning.
typedef struct _qnposfmt {
  LONG format;           // QNPOSFMT; any other number shows units of 100 nanoseconds and reads as 0
  DWORD sampleRate;      // samples a second
  double frameRate;      // frames a second
  double tempo;          // beats a minute
  LONGLONG offset;       // nanotime shown as the origin
  WORD beatValue;        // denominator of the time signature
  WORD beatsPerMeasure;  //
  DWORD ticksPerBeat;    // ticks a quarter note in QnMeasuresAndTicksToText, whatever the beat value
} _qnposfmt;
static_assert(sizeof(_qnposfmt) == 40 && offsetof(_qnposfmt, frameRate) == 8);
static_assert(offsetof(_qnposfmt, offset) == 24 && offsetof(_qnposfmt, beatValue) == 32);
static_assert(offsetof(_qnposfmt, beatsPerMeasure) == 34 && offsetof(_qnposfmt, ticksPerBeat) == 36);

constexpr DWORD QNTIMETEXT_SHORT = 1;     // without milliseconds, frames, decimals or ticks
constexpr DWORD QNTIMETEXT_ABSOLUTE = 2;  // the offset plays no part, and measures count from 0
constexpr DWORD QNTIMETEXT_CLAMP = 4;     // reading: defaults and limits apply

extern "C" {

// Time to text. `flags` are QNTIMETEXT_SHORT and _ABSOLUTE, `shortForm` is a truth value. A negative time
// gets "-" in front. The result is the length without terminator. The N forms write at most `size` characters
// with the terminator, which is always there for a `size` above 0; for the others the caller provides the
// room, 64 characters for every format above, with tempos and frame rates below a million. A null argument or
// a `size` below 1 gives 0.
QN_API int QnNanoTimeToText(WCHAR* text, const _qnposfmt* format, LONGLONG nanotime, BOOL shortForm);
QN_API int QnNanoTimeToTextN(WCHAR* text, int size, const _qnposfmt* format, LONGLONG nanotime,
                             BOOL shortForm);
QN_API int QnNanoTimeToTextEx(WCHAR* text, const _qnposfmt* format, LONGLONG nanotime, DWORD flags);
QN_API int QnNanoTimeToTextExN(WCHAR* text, int size, const _qnposfmt* format, LONGLONG nanotime,
                               DWORD flags);

// The same by the caller's own format text (qnprint.h). Its conversions take the fields of the position
// format in their order: one double for seconds, frames and beats; for all others integers of 64 bits: hours,
// minutes, seconds and milliseconds or frames; measure, beat, tick; feet, frames; or one number. It may leave
// the last ones out. A text that asks for more fields, for the other kind or for a string gives an empty text
// and 0. The exact text "$.0f" shows a double's whole part with grouping. QNPOSFMT_COMPACT and times with
// days have texts of their own.
QN_API int QnNanoTimeToTextFormat(WCHAR* text, const _qnposfmt* format, LONGLONG nanotime,
                                  const WCHAR* formatText, DWORD flags);
QN_API int QnNanoTimeToTextFormatN(WCHAR* text, int size, const _qnposfmt* format, LONGLONG nanotime,
                                   const WCHAR* formatText, DWORD flags);

// Time to fields and back. A value of a type from 1 to 6 is timecode, and the frame rate plays no part; any
// other type has clock time with frames of `frameRate`, to the nearest frame, hours modulo 24 unless
// `keepAllHours`.
QN_API void QnNanoTimeToHMSF(LONGLONG nanotime, _smpteval* smpte, double frameRate, BOOL keepAllHours);
QN_API LONGLONG QnHMSFToNanoTime(const _smpteval* smpte, double frameRate);

// Time to measure, beat and tick, all counted from 0; the format's offset plays no part. Outputs may be null.
QN_API void QnNanoTimeToMeasures(LONGLONG nanotime, const _qnposfmt* format, LONG* measureOut, LONG* beatOut,
                                 LONG* tickOut);

// Musical positions to text: "measure.beat" in the short form, else "measure.beat.tick", with the tick
// divided by `tickDivisor`. `base` 1 counts from 1, and there is no measure 0: -1 is followed by 1. Ticks
// have the length that the beat value gives them; negative ticks reach at most one measure back.
// QnTicksToText splits `ticks` into measures of beatsPerMeasure * ticksPerBeat. The length of the text.
QN_API int QnMeasuresAndTicksToText(WCHAR* text, const _qnposfmt* format, LONG measures, LONG ticks, int base,
                                    BOOL shortForm, LONG tickDivisor);
QN_API int QnTicksToText(WCHAR* text, const _qnposfmt* format, LONG ticks, int base, BOOL shortForm,
                         LONG tickDivisor);

// Text to time, in the user's dress for numbers. `*endOut`, if given, becomes the place where reading
// stopped: behind the number, behind the last field, or the end of the text for timecode, CD time and feet.
// An empty text gives `defaultValue`. With QNTIMETEXT_CLAMP, which Ex always sets, so does a text that is no
// number, and the result is limited to `minimum`..`maximum`. Except with QNTIMETEXT_ABSOLUTE the offset is
// added.
QN_API LONGLONG QnTextToNanoTimeToken(const WCHAR* text, const _qnposfmt* format, BOOL shortForm,
                                      const WCHAR** endOut);
QN_API LONGLONG QnTextToNanoTimeTokenEx(const WCHAR* text, const _qnposfmt* format, BOOL shortForm,
                                        LONGLONG defaultValue, LONGLONG minimum, LONGLONG maximum,
                                        const WCHAR** endOut);
QN_API LONGLONG QnTextToNanoTimeToken2(const WCHAR* text, const _qnposfmt* format, LONGLONG defaultValue,
                                       LONGLONG minimum, LONGLONG maximum, DWORD flags, const WCHAR** endOut);

// The readers beneath, for texts of fields. Whatever is no digit separates two fields. When there are fewer
// fields than there could be, those in front are missing; what follows the last one that fits is not read. A
// separator behind the last digit stands for one more field of 0. None of them knows sign or offset.
//
// QnTextToTimeToken gives milliseconds; behind the seconds stands a decimal fraction, and a number alone is
// seconds. All others give nanotime.
QN_API LONGLONG QnTextToTimeToken(const WCHAR* text, const _qnposfmt* format, BOOL shortForm,
                                  const WCHAR** endOut);
QN_API LONGLONG QnTextToHMSFToken(const WCHAR* text, const _qnposfmt* format, BOOL shortForm,
                                  const WCHAR** endOut);
QN_API LONGLONG QnTextToFeetAndFramesToken(const WCHAR* text, const _qnposfmt* format, BOOL forty);
QN_API LONGLONG QnTextToMusicTimeToken(const WCHAR* text, const _qnposfmt* format, DWORD flags,
                                       const WCHAR** endOut);

// Musical positions from text, as ticks of ticksPerBeat to the beat. With `base` 1 a positive measure and
// beat are counted from 1. In the short form the text has no ticks. Outputs may be null. QnTextToBeatsTicks
// counts from 0 and reads beat and tick in both forms.
QN_API LONG QnTextToTicks(const WCHAR* text, const _qnposfmt* format, int base, BOOL shortForm);
QN_API LONG QnTextToMeasuresBeatsTicks(const WCHAR* text, const _qnposfmt* format, int base, BOOL shortForm,
                                       LONG* measureOut, LONG* beatOut, LONG* tickOut);
QN_API LONG QnTextToBeatsTicks(const WCHAR* text, const _qnposfmt* format, BOOL shortForm, LONG* beatOut,
                               LONG* tickOut);

// Timecode and counts of frames. Counts are reduced to one day, also negative ones (-1 is the day's last
// frame). A drop-frame label that does not exist counts as the next one that does.
QN_API void QNSMPTE_FrameCountToSMPTE(_smpteval* smpte, LONGLONG frames);
QN_API LONGLONG QNSMPTE_SMPTEToFrameCount(const _smpteval* smpte);

// `smpte` plus or minus `other`, each counted by its own type, in the type of `smpte`, wrapping at 24 hours.
QN_API void QNSMPTE_AddSMPTE(_smpteval* smpte, const _smpteval* other);
QN_API void QNSMPTE_SubtractSMPTE(_smpteval* smpte, const _smpteval* other);

// Timecode and time. QNSMPTE_SmpteLikeToNanos reads the fields at `rate` frames a second, without dropping.
QN_API void QNSMPTE_NanoToSMPTE(LONGLONG nanotime, _smpteval* smpte);
QN_API LONGLONG QNSMPTE_SMPTEToNanos(const _smpteval* smpte);
QN_API LONGLONG QNSMPTE_SmpteLikeToNanos(double rate, const _smpteval* smpte);

// Reads up to four fields from the right: "12" is 12 frames, "1:" one second, "1:2:3" is 1 minute, 2 seconds,
// 3 frames. Digits without separators are taken in pairs, "01020304" is 1:02:03:04. Too large fields carry
// over; frames do so in the types 1 to 6 alone.
QN_API void QNSMPTE_TextToSMPTE(const WCHAR* text, _smpteval* smpte);

// 1, -1 or 0 as the fields of `smpte` are above, below or equal to those of `other`; the types do not count.
QN_API int QNSMPTE_SMPTECompare(const _smpteval* smpte, const _smpteval* other);

// One label on or back. Stepping back over a minute in 29.97, drop-frame or not, gives frame 31 where the new
// minute is not a multiple of ten; hosts rely on it. `unused` is not looked at.
QN_API void QNSMPTE_IncrementByFrame(_smpteval* smpte);
QN_API void QNSMPTE_DeccrementByFrame(_smpteval* smpte, int unused);
}
