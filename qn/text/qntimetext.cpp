#include <algorithm>
#include <limits>
#include <string_view>

#include "qn/text/qnprint.h"
#include "qn/text/qnprint_internal.h"
#include "qn/text/qntimetext_internal.h"

namespace {

using qn::TolerantFloor;
using qn::Truncate;

// How a position format is printed, and what its format texts take.
struct Row {
  const WCHAR* longText;
  const WCHAR* shortText;
  int integers;  // 0: one double
};

constexpr Row kRaw = {W("$I64d"), W("$I64d"), 1};
constexpr Row kNonDrop = {W("%02u:%02u:%02u:%02u"), W("%02u:%02u:%02u:%02u"), 4};
constexpr Row kDecimals = {W("$.3f"), W("$.0f"), 0};
constexpr Row kMusic = {W("$u$&:%u$&.%03u"), W("$u$&:%u"), 3};
constexpr Row kFeet = {W("$I64d+$I64d"), W("$I64d+$I64d"), 2};
constexpr Row kRows[] = {
    kRaw,                                                     // QNPOSFMT_SAMPLES
    {W("%02u$:%02u$:%02u$*%03u"), W("%02u$:%02u$:%02u"), 4},  // QNPOSFMT_TIME
    kDecimals,                                                // QNPOSFMT_SECONDS
    {W("%02u$:%02u$:%02u$*%02u"), W("%02u$:%02u$:%02u"), 4},  // QNPOSFMT_TIME_FRAMES
    kDecimals,                                                // QNPOSFMT_FRAMES
    kMusic,                                                   // QNPOSFMT_MEASURES
    kNonDrop,                                                 // QNPOSFMT_SMPTE_NONDROP
    kNonDrop,                                                 // QNPOSFMT_SMPTE_30
    {W("%02u:%02u:%02u;%02u"), W("%02u:%02u:%02u;%02u"), 4},  // QNPOSFMT_SMPTE_DROP
    kNonDrop,                                                 // QNPOSFMT_SMPTE_25
    kNonDrop,                                                 // QNPOSFMT_SMPTE_24
    kRaw,                                                     // QNPOSFMT_NANOTIME
    kRaw,                                                     // QNPOSFMT_MICROSECONDS
    kMusic,                                                   // QNPOSFMT_MEASURES_FROM_0
    kDecimals,                                                // QNPOSFMT_BEATS
    kFeet,                                                    // QNPOSFMT_FEET_40
    kFeet,                                                    // QNPOSFMT_FEET_16
    {kNonDrop.longText, W("%02u$:%02u$:%02u"), 4},            // QNPOSFMT_CD
    kNonDrop,                                                 // QNPOSFMT_SMPTE_23976
    {W("%02u$:%02u$:%02u"), W("%02u$:%02u$:%02u"), 3},        // QNPOSFMT_COMPACT
};

constexpr LONGLONG kFirstWithDays = 863999000001;  // 86399.9 seconds

const Row& RowOf(LONG format) {
  return format >= 0 && format <= QNPOSFMT_COMPACT ? kRows[format] : kRaw;
}

bool IsWholeDouble(const WCHAR* text) {
  return std::u16string_view(text) == W("$.0f");
}

// A text being written; without a room the caller has provided one that is large enough.
struct Output {
  WCHAR* text;
  int room;

  template <class... Arguments>
  int Print(const WCHAR* format, Arguments... arguments) const {
    if (room == kNoLimit) return QnPrintF(text, format, arguments...);
    int length = 0;
    QnCchPrintF(text, room, &length, format, arguments...);
    return length;
  }

  static constexpr int kNoLimit = -1;
};

struct ClockTime {
  LONGLONG hours, minutes, seconds, units;
};

// Clock time with a last field of `unitsPerSecond`.
template <LONGLONG (*ToUnits)(double)>
ClockTime ToClock(double seconds, double unitsPerSecond) {
  const LONGLONG whole = Truncate(seconds);
  const LONGLONG units = ToUnits((seconds - static_cast<double>(whole)) * unitsPerSecond);
  return {whole / 3600, whole / 60 % 60, whole % 60, units};
}

LONG ToLong(LONGLONG value) {
  using Limits = std::numeric_limits<LONG>;
  return static_cast<LONG>(std::clamp<LONGLONG>(value, Limits::min(), Limits::max()));
}

double ToSeconds(LONGLONG nanotime) {
  return static_cast<double>(nanotime) / 1e7;
}

ClockTime ToFrames(LONGLONG nanotime, double frameRate) {
  const double halfFrame = frameRate > 0.01 ? 0.5 / frameRate : 0;
  return ToClock<Truncate>(ToSeconds(nanotime) + halfFrame, frameRate);
}

struct MusicTime {
  LONGLONG measure, beat, tick;
};

MusicTime ToMusic(LONGLONG nanotime, const _qnposfmt& format) {
  const double measures = static_cast<double>(nanotime) * format.tempo / format.beatsPerMeasure / 6e8 + 5e-5;
  const LONGLONG measure = Truncate(measures);
  const double beats = (measures - static_cast<double>(measure)) * format.beatsPerMeasure;
  const LONGLONG beat = Truncate(beats);
  return {measure, beat, Truncate((beats - static_cast<double>(beat)) * format.ticksPerBeat)};
}

int PrintDouble(const Output& output, const WCHAR* text, double value, LONGLONG whole) {
  return IsWholeDouble(text) ? output.Print(W("$I64d"), whole) : output.Print(text, value);
}

int PrintFeet(const Output& output, const WCHAR* text, double frames, int framesPerFoot) {
  const LONGLONG whole = TolerantFloor(frames + 1e-5);
  return output.Print(text, whole / framesPerFoot, whole % framesPerFoot);
}

int PrintCompact(const Output& output, LONGLONG hours, LONGLONG minutes, LONGLONG seconds) {
  if (hours >= 1) return output.Print(W("%u$:%02u$:%02u"), hours, minutes, seconds);
  return output.Print(minutes < 10 ? W("%u$:%02u") : W("%02u$:%02u"), minutes, seconds);
}

// A time that is not negative, by a format text that fits its row. The printer takes each argument from a
// slot of 64 bits, so that integers have that size also where the rows' own texts show 32.
int PrintMagnitude(const Output& output, const _qnposfmt& format, LONGLONG value, const WCHAR* text,
                   DWORD flags) {
  const double seconds = ToSeconds(value);
  const LONG timecode = qn::TimecodeOf(format.format);
  if (timecode) {
    _smpteval smpte = {timecode, 0, 0, 0, 0, 0};
    QNSMPTE_NanoToSMPTE(value, &smpte);
    return output.Print(text, LONGLONG{smpte.hours}, LONGLONG{smpte.minutes}, LONGLONG{smpte.seconds},
                        LONGLONG{smpte.frames});
  }
  switch (format.format) {
    case QNPOSFMT_SAMPLES:
      return output.Print(text, Truncate(seconds * format.sampleRate + 0.5));
    case QNPOSFMT_TIME: {
      const auto [hours, minutes, second, units] = ToClock<TolerantFloor>(seconds + 0.0005, 1000);
      if (value >= kFirstWithDays) {
        return output.Print(W("%02u$:%02u$:%02u$:%02u"), hours / 24, hours % 24, minutes, second);
      }
      return output.Print(text, hours % 24, minutes, second, units);
    }
    case QNPOSFMT_TIME_FRAMES: {
      const auto [hours, minutes, second, units] = ToFrames(value, format.frameRate);
      return output.Print(text, hours % 24, minutes, second, units);
    }
    case QNPOSFMT_CD: {
      const auto [hours, minutes, second, units] = ToClock<TolerantFloor>(seconds + 1.0 / 150, 75);
      return output.Print(text, hours % 24, minutes, second, units);
    }
    case QNPOSFMT_COMPACT: {
      const auto [hours, minutes, second, units] = ToClock<Truncate>(seconds + 0.0005, 0);
      return PrintCompact(output, hours % 24, minutes, second);
    }
    case QNPOSFMT_SECONDS:
      return PrintDouble(output, text, seconds, Truncate(seconds));
    case QNPOSFMT_FRAMES: {
      const double frames = seconds * format.frameRate + 1e-5;
      return PrintDouble(output, text, frames, TolerantFloor(frames));
    }
    case QNPOSFMT_BEATS: {
      const double beats = static_cast<double>(value) * format.tempo / 60 * 1e-7;
      return PrintDouble(output, text, beats, Truncate(beats));
    }
    case QNPOSFMT_MEASURES:
    case QNPOSFMT_MEASURES_FROM_0: {
      const auto [measure, beat, tick] = ToMusic(value, format);
      const int base = format.format == QNPOSFMT_MEASURES && !(flags & QNTIMETEXT_ABSOLUTE) ? 1 : 0;
      return output.Print(text, qn::AddSaturated(measure, base), qn::AddSaturated(beat, base), tick);
    }
    case QNPOSFMT_MICROSECONDS:
      return output.Print(text, qn::AddSaturated(value, 5) / 10);
    case QNPOSFMT_FEET_40:
      return PrintFeet(output, text, seconds * format.frameRate, 40);
    case QNPOSFMT_FEET_16:
      return PrintFeet(output, text, seconds * format.frameRate, 16);
    default:
      return output.Print(text, value);
  }
}

// True if a position format prints a magnitude by a text of its own, whatever the caller's is.
bool HasOwnText(const _qnposfmt& format, LONGLONG magnitude) {
  return format.format == QNPOSFMT_COMPACT || (format.format == QNPOSFMT_TIME && magnitude >= kFirstWithDays);
}

int PrintTime(Output output, const _qnposfmt* format, LONGLONG nanotime, const WCHAR* text, DWORD flags) {
  if (!output.text || output.room == 0 || output.room < Output::kNoLimit) return 0;
  *output.text = 0;
  if (!format || !text) return 0;
  const LONGLONG value =
      flags & QNTIMETEXT_ABSOLUTE ? nanotime : qn::SubtractSaturated(nanotime, format->offset);
  const LONGLONG magnitude = value < 0 ? qn::SubtractSaturated(0, value) : value;
  const Row& row = RowOf(format->format);
  const bool isOurs = text == row.longText || text == row.shortText || HasOwnText(*format, magnitude);
  // Another text may be anybody's, and the printer believes it.
  if (!isOurs && !qn::FormatTakes(text, row.integers, row.integers == 0)) return 0;
  if (value >= 0) return PrintMagnitude(output, *format, magnitude, text, flags);
  if (output.room == 1) return 0;
  *output.text++ = '-';
  if (output.room != Output::kNoLimit) --output.room;
  return 1 + PrintMagnitude(output, *format, magnitude, text, flags);
}

int PrintTimeByRow(const Output& output, const _qnposfmt* format, LONGLONG nanotime, DWORD flags) {
  const Row& row = RowOf(format ? format->format : 0);
  return PrintTime(output, format, nanotime, flags & QNTIMETEXT_SHORT ? row.shortText : row.longText, flags);
}

// A negative room is no room: the limit's absence is not for callers to ask for.
Output Bounded(WCHAR* text, int size) {
  return {text, size > 0 ? size : 0};
}

DWORD FormFlag(BOOL shortForm) {
  return shortForm ? QNTIMETEXT_SHORT : 0;
}

LONGLONG Quotient(LONGLONG dividend, LONGLONG divisor) {
  return divisor ? dividend / divisor : 0;
}

LONGLONG Remainder(LONGLONG dividend, LONGLONG divisor) {
  return divisor ? dividend % divisor : 0;
}

int PrintMeasures(WCHAR* text, const _qnposfmt& format, LONGLONG measures, LONGLONG ticks, int base,
                  BOOL shortForm, LONG tickDivisor) {
  const LONGLONG ticksPerBeat = Quotient(format.ticksPerBeat * LONGLONG{4}, format.beatValue);
  if (ticks < 0) {
    ticks += format.beatsPerMeasure * ticksPerBeat;
    --measures;
  }
  LONGLONG beat = Remainder(Quotient(ticks, ticksPerBeat), format.beatsPerMeasure);
  const LONGLONG tick = Quotient(Remainder(ticks, ticksPerBeat), tickDivisor);
  if (base == 1) {
    ++beat;
    if (measures >= 0) ++measures;  // measure 1 follows measure -1
  }
  if (shortForm) return QnPrintF(text, W("%d$&:%1u"), measures, beat);
  return QnPrintF(text, W("%d$&:%u$&.%03u"), measures, beat, tick);
}

}  // namespace

extern "C" {

int QnNanoTimeToText(WCHAR* text, const _qnposfmt* format, LONGLONG nanotime, BOOL shortForm) {
  return QnNanoTimeToTextEx(text, format, nanotime, FormFlag(shortForm));
}

int QnNanoTimeToTextN(WCHAR* text, int size, const _qnposfmt* format, LONGLONG nanotime, BOOL shortForm) {
  return QnNanoTimeToTextExN(text, size, format, nanotime, FormFlag(shortForm));
}

int QnNanoTimeToTextEx(WCHAR* text, const _qnposfmt* format, LONGLONG nanotime, DWORD flags) {
  return PrintTimeByRow({text, Output::kNoLimit}, format, nanotime, flags);
}

int QnNanoTimeToTextExN(WCHAR* text, int size, const _qnposfmt* format, LONGLONG nanotime, DWORD flags) {
  return PrintTimeByRow(Bounded(text, size), format, nanotime, flags);
}

int QnNanoTimeToTextFormat(WCHAR* text, const _qnposfmt* format, LONGLONG nanotime, const WCHAR* formatText,
                           DWORD flags) {
  return PrintTime({text, Output::kNoLimit}, format, nanotime, formatText, flags);
}

int QnNanoTimeToTextFormatN(WCHAR* text, int size, const _qnposfmt* format, LONGLONG nanotime,
                            const WCHAR* formatText, DWORD flags) {
  return PrintTime(Bounded(text, size), format, nanotime, formatText, flags);
}

void QnNanoTimeToHMSF(LONGLONG nanotime, _smpteval* smpte, double frameRate, BOOL keepAllHours) {
  if (qn::IsTimecode(smpte->type)) return QNSMPTE_NanoToSMPTE(nanotime, smpte);
  const auto [hours, minutes, seconds, frames] = ToFrames(nanotime, frameRate);
  smpte->hours = ToLong(keepAllHours ? hours : hours % 24);
  smpte->minutes = static_cast<LONG>(minutes);
  smpte->seconds = static_cast<LONG>(seconds);
  smpte->frames = ToLong(frames);
}

LONGLONG QnHMSFToNanoTime(const _smpteval* smpte, double frameRate) {
  if (qn::IsTimecode(smpte->type)) return QNSMPTE_SMPTEToNanos(smpte);
  return Truncate(
      (smpte->hours * 3600.0 + smpte->minutes * 60.0 + smpte->seconds + smpte->frames / frameRate) * 1e7 +
      0.5);
}

void QnNanoTimeToMeasures(LONGLONG nanotime, const _qnposfmt* format, LONG* measureOut, LONG* beatOut,
                          LONG* tickOut) {
  const auto [measure, beat, tick] = ToMusic(nanotime, *format);
  if (measureOut) *measureOut = ToLong(measure);
  if (beatOut) *beatOut = ToLong(beat);
  if (tickOut) *tickOut = ToLong(tick);
}

int QnMeasuresAndTicksToText(WCHAR* text, const _qnposfmt* format, LONG measures, LONG ticks, int base,
                             BOOL shortForm, LONG tickDivisor) {
  return PrintMeasures(text, *format, measures, ticks, base, shortForm, tickDivisor);
}

int QnTicksToText(WCHAR* text, const _qnposfmt* format, LONG ticks, int base, BOOL shortForm,
                  LONG tickDivisor) {
  const LONGLONG ticksPerMeasure = LONGLONG{format->beatsPerMeasure} * format->ticksPerBeat;
  LONGLONG measures = Quotient(ticks, ticksPerMeasure), rest = Remainder(ticks, ticksPerMeasure);
  if (rest < 0) {
    rest += ticksPerMeasure;
    --measures;
  }
  return PrintMeasures(text, *format, measures, rest, base, shortForm, tickDivisor);
}
}
