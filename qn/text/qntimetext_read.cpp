#include <algorithm>
#include <string>

#include "qn/text/qnnumber.h"
#include "qn/text/qnnumber_internal.h"
#include "qn/text/qntimetext_internal.h"

namespace {

using qn::Truncate;

// The limits of typed times in seconds: whole for seconds and frames, exact for samples.
constexpr double kMinSeconds = -461168601842.0, kMaxSeconds = 230584300921.0;
constexpr double kMinSampleSeconds = -0x1p62 / 1e7, kMaxSampleSeconds = 0x1p61 / 1e7;

void SetEnd(const WCHAR** endOut, const WCHAR* end) {
  if (endOut) *endOut = end;
}

double Clamp(double value, double minimum, double maximum) {
  return std::min(std::max(value, minimum), maximum);
}

double SecondsOf(LONGLONG hours, LONGLONG minutes, LONGLONG seconds) {
  return static_cast<double>(hours) * 3600 + static_cast<double>(minutes) * 60 + static_cast<double>(seconds);
}

LONGLONG ReadSamples(const WCHAR* text, DWORD sampleRate, const WCHAR** end) {
  const double number = static_cast<double>(QnTextToLongLongToken(text, end, 1));
  if (sampleRate == 0) return 0;
  const double samples = Clamp(number, kMinSampleSeconds * sampleRate, kMaxSampleSeconds * sampleRate);
  return Truncate(samples / sampleRate * 1e7 + 0.5);
}

LONGLONG ReadSeconds(const WCHAR* text, const WCHAR** end) {
  return Truncate(Clamp(QnTextToDoubleToken(text, end, 1), kMinSeconds, kMaxSeconds) * 1e7);
}

LONGLONG ReadFrames(const WCHAR* text, double frameRate, const WCHAR** end) {
  const double frames = QnTextToDoubleToken(text, end, 1);
  return Truncate(Clamp(frames, kMinSeconds * frameRate, kMaxSeconds * frameRate) / frameRate * 1e7 + 0.5);
}

LONGLONG ReadTimecode(const WCHAR* text, LONG type) {
  _smpteval smpte = {type, 0, 0, 0, 0, 0};
  QNSMPTE_TextToSMPTE(text, &smpte);
  return QNSMPTE_SMPTEToNanos(&smpte);
}

LONGLONG ReadCdTime(const WCHAR* text) {
  _smpteval smpte = {};
  QNSMPTE_TextToSMPTE(text, &smpte);
  return Truncate((SecondsOf(smpte.hours, smpte.minutes, smpte.seconds) + smpte.frames / 75.0) * 1e7);
}

// A time without sign and offset; formats that are only written read as 0.
LONGLONG ReadMagnitude(const WCHAR* text, const _qnposfmt& format, DWORD flags, const WCHAR** end) {
  const BOOL shortForm = flags & QNTIMETEXT_SHORT ? TRUE : FALSE;
  const LONG timecode = qn::TimecodeOf(format.format);
  if (timecode) return ReadTimecode(text, timecode);
  switch (format.format) {
    case QNPOSFMT_SAMPLES:
      return ReadSamples(text, format.sampleRate, end);
    case QNPOSFMT_TIME:
      return qn::MultiplySaturated(QnTextToTimeToken(text, &format, shortForm, end), 10000);
    case QNPOSFMT_SECONDS:
      return ReadSeconds(text, end);
    case QNPOSFMT_TIME_FRAMES:
      return QnTextToHMSFToken(text, &format, shortForm, end);
    case QNPOSFMT_FRAMES:
      return ReadFrames(text, format.frameRate, end);
    case QNPOSFMT_MEASURES:
    case QNPOSFMT_MEASURES_FROM_0:
      return QnTextToMusicTimeToken(text, &format, flags, end);
    case QNPOSFMT_NANOTIME:
      return QnTextToLongLongToken(text, end, 1);
    case QNPOSFMT_MICROSECONDS:
      return qn::MultiplySaturated(QnTextToLongLongToken(text, end, 1), 10);
    case QNPOSFMT_FEET_40:
    case QNPOSFMT_FEET_16:
      return QnTextToFeetAndFramesToken(text, &format, format.format == QNPOSFMT_FEET_40);
    case QNPOSFMT_CD:
      return ReadCdTime(text);
    default:
      return 0;
  }
}

struct MusicFields {
  double measure, beat, tick;
  const WCHAR* end;
};

MusicFields ReadMusic(const WCHAR* text, bool withTicks) {
  const auto fields = qn::ReadFields(text, withTicks ? 3 : 2, false);
  const LONGLONG* const first = fields.values + (withTicks ? 1 : 2);
  return {static_cast<double>(first[0]), static_cast<double>(first[1]),
          withTicks ? static_cast<double>(first[2]) : 0, fields.end};
}

LONG ToLong(double value) {
  return static_cast<LONG>(Clamp(value, -0x1p31, 0x1p31 - 1));
}

}  // namespace

namespace qn {

Fields ReadFields(const WCHAR* text, int maximum, bool inPairs) {
  constexpr int kMaxDigits = 31;
  static constexpr WCHAR kZero[] = W("0");
  Fields fields;
  fields.end = text;
  const auto add = [&fields](const WCHAR* digits, int count, const WCHAR* end) {
    LONGLONG value = 0;
    for (int i = 0; i < count; ++i) value = AddSaturated(MultiplySaturated(value, 10), digits[i] - '0');
    std::copy(fields.values + 1, fields.values + 4, fields.values);
    fields.values[3] = value;
    ++fields.count;
    fields.last = digits;
    fields.lastDigits = count;
    fields.end = end;
  };
  const WCHAR* next = text;
  while (fields.count < maximum) {
    const WCHAR* begin = next;
    while (*begin && !IsDigit(*begin)) ++begin;
    if (!*begin) break;
    const WCHAR* runEnd = begin;
    while (IsDigit(*runEnd)) ++runEnd;
    if (fields.count == 0) fields.isFirstBehindText = begin != text;
    const ptrdiff_t longest = !inPairs ? kMaxDigits : (runEnd - begin) % 2 ? 1 : 2;
    const int digits = static_cast<int>(std::min(runEnd - begin, longest));
    next = begin + digits;
    add(begin, digits, next);
  }
  if (fields.count == 0 || fields.count == maximum) return fields;
  next = SkipWhiteSpace(next);
  if (*next) add(kZero, 1, next + 1);
  return fields;
}

}  // namespace qn

extern "C" {

LONGLONG QnTextToNanoTimeToken(const WCHAR* text, const _qnposfmt* format, BOOL shortForm,
                               const WCHAR** endOut) {
  return QnTextToNanoTimeToken2(text, format, 0, 0, 0, shortForm ? QNTIMETEXT_SHORT : 0, endOut);
}

LONGLONG QnTextToNanoTimeTokenEx(const WCHAR* text, const _qnposfmt* format, BOOL shortForm,
                                 LONGLONG defaultValue, LONGLONG minimum, LONGLONG maximum,
                                 const WCHAR** endOut) {
  const DWORD flags = QNTIMETEXT_CLAMP | (shortForm ? QNTIMETEXT_SHORT : 0);
  return QnTextToNanoTimeToken2(text, format, defaultValue, minimum, maximum, flags, endOut);
}

LONGLONG QnTextToNanoTimeToken2(const WCHAR* text, const _qnposfmt* format, LONGLONG defaultValue,
                                LONGLONG minimum, LONGLONG maximum, DWORD flags, const WCHAR** endOut) {
  SetEnd(endOut, text);
  if (!text || !format) return defaultValue;
  text = qn::SkipWhiteSpace(text);
  const bool isNegative = *text == '-';
  if (isNegative) ++text;
  const WCHAR* end = text + std::char_traits<WCHAR>::length(text);
  SetEnd(endOut, end);
  if (!*text) return defaultValue;
  LONGLONG result = ReadMagnitude(text, *format, flags, &end);
  SetEnd(endOut, end);
  if (isNegative) result = qn::SubtractSaturated(0, result);
  if (!(flags & QNTIMETEXT_ABSOLUTE)) result = qn::AddSaturated(result, format->offset);
  if (!(flags & QNTIMETEXT_CLAMP)) return result;
  if (result == 0 && *end && !qn::IsWhiteSpace(*end)) result = defaultValue;
  return std::min(std::max(result, minimum), maximum);
}

LONGLONG QnTextToTimeToken(const WCHAR* text, const _qnposfmt* /*format*/, BOOL shortForm,
                           const WCHAR** endOut) {
  const auto fields = qn::ReadFields(text, shortForm ? 3 : 4, false);
  SetEnd(endOut, fields.end);
  const auto [first, second, third, last] = fields.values;
  if (shortForm) return Truncate(SecondsOf(second, third, last) * 1000);
  if (fields.count == 1 && !fields.isFirstBehindText) return qn::MultiplySaturated(last, 1000);
  int milliseconds = 0;  // the first three digits behind the decimal separator
  for (int i = 0; i < 3; ++i) {
    milliseconds = milliseconds * 10 + (i < fields.lastDigits ? fields.last[i] - '0' : 0);
  }
  return Truncate(SecondsOf(first, second, third) * 1000 + milliseconds);
}

LONGLONG QnTextToHMSFToken(const WCHAR* text, const _qnposfmt* format, BOOL shortForm, const WCHAR** endOut) {
  const auto fields = qn::ReadFields(text, shortForm ? 3 : 4, false);
  SetEnd(endOut, fields.end);
  const auto [first, second, third, last] = fields.values;
  const double seconds =
      shortForm ? SecondsOf(second, third, last)
                : SecondsOf(first, second, third) + static_cast<double>(last) / format->frameRate;
  return Truncate(seconds * 1e7 + 0.5);
}

LONGLONG QnTextToFeetAndFramesToken(const WCHAR* text, const _qnposfmt* format, BOOL forty) {
  const auto fields = qn::ReadFields(text, 2, false);
  const double frames =
      (forty ? 40.0 : 16.0) * static_cast<double>(fields.values[2]) + static_cast<double>(fields.values[3]);
  const double tolerance = format->frameRate > 200 ? 1.5e-8 : 1e-5;
  return qn::TolerantFloor(frames * 1e7 / format->frameRate + tolerance);
}

LONGLONG QnTextToMusicTimeToken(const WCHAR* text, const _qnposfmt* format, DWORD flags,
                                const WCHAR** endOut) {
  auto [measure, beat, tick, end] = ReadMusic(text, !(flags & QNTIMETEXT_SHORT));
  SetEnd(endOut, end);
  if (format->format == QNPOSFMT_MEASURES && !(flags & QNTIMETEXT_ABSOLUTE)) {
    if (measure > 0) --measure;
    if (beat > 0) --beat;
  }
  const double beats = tick / format->ticksPerBeat + format->beatsPerMeasure * measure + beat;
  return Truncate(beats / format->tempo * 6e8);
}

LONG QnTextToTicks(const WCHAR* text, const _qnposfmt* format, int base, BOOL shortForm) {
  return QnTextToMeasuresBeatsTicks(text, format, base, shortForm, nullptr, nullptr, nullptr);
}

LONG QnTextToMeasuresBeatsTicks(const WCHAR* text, const _qnposfmt* format, int base, BOOL shortForm,
                                LONG* measureOut, LONG* beatOut, LONG* tickOut) {
  auto [measure, beat, tick, end] = ReadMusic(text, !shortForm);
  if (base == 1 && measure > 0) --measure;
  if (base == 1 && beat > 0) --beat;
  if (measureOut) *measureOut = ToLong(measure);
  if (beatOut) *beatOut = ToLong(beat);
  if (tickOut) *tickOut = ToLong(tick);
  return ToLong((format->beatsPerMeasure * measure + beat) * format->ticksPerBeat + tick);
}

LONG QnTextToBeatsTicks(const WCHAR* text, const _qnposfmt* format, BOOL /*shortForm*/, LONG* beatOut,
                        LONG* tickOut) {
  const auto fields = qn::ReadFields(text, 2, false);
  const double beat = static_cast<double>(fields.values[2]), tick = static_cast<double>(fields.values[3]);
  if (beatOut) *beatOut = ToLong(beat);
  if (tickOut) *tickOut = ToLong(tick);
  return ToLong(format->ticksPerBeat * beat + tick);
}
}
