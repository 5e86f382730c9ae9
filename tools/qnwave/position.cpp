#include "tools/qnwave/position.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <numeric>
#include <string>
#include <vector>

#include "qn/platform/text.h"
#include "qn/text/qnprint.h"
#include "tools/common/time_format.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

using namespace qntool;

// 30 years, so that no product below passes 64 bits.
constexpr LONGLONG kMostSeconds = 1'000'000'000;
constexpr LONGLONG kUnits = 10'000'000;  // of a second, in the library's times

bool IsDigit(char16_t c) {
  return c >= '0' && c <= '9';
}

bool HasLetter(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](unsigned char c) { return std::isalpha(c) != 0; });
}

std::optional<uint64_t> FrameOfPlain(std::string_view text, uint32_t rate) {
  if (HasLetter(text)) return std::nullopt;  // exponents
  if (const auto frame = ParseNumber<uint64_t>(text, 0, INT64_MAX)) return frame;
  const std::vector<std::string_view> fields = Split(text, ':');
  if (fields.size() > 3) return std::nullopt;
  double seconds = 0;
  for (size_t i = 0; i < fields.size(); ++i) {
    const bool isLast = i + 1 == fields.size();
    const auto field = ParseNumber<double>(fields[i], 0, static_cast<double>(kMostSeconds));
    if (!field || (i > 0 && *field >= 60) || (!isLast && *field != std::floor(*field))) return std::nullopt;
    seconds = seconds * 60 + *field;
  }
  if (seconds > static_cast<double>(kMostSeconds)) return std::nullopt;
  return static_cast<uint64_t>(std::llround(seconds * rate));
}

// What the texts of a format are made of.
struct Grammar {
  size_t mostFields;  // 1: a number
  bool hasDecimals;   // of a number
  std::u16string_view separators;
};

Grammar GrammarOf(LONG format) {
  switch (format) {
    case QNPOSFMT_SAMPLES:
    case QNPOSFMT_NANOTIME:
    case QNPOSFMT_MICROSECONDS:
      return {1, false, {}};
    case QNPOSFMT_SECONDS:
    case QNPOSFMT_FRAMES:
      return {1, true, {}};
    case QNPOSFMT_MEASURES:
    case QNPOSFMT_MEASURES_FROM_0:
      return {3, false, u":;.,"};
    case QNPOSFMT_FEET_40:
    case QNPOSFMT_FEET_16:
      return {2, false, u"+:"};
    default:
      return {4, false, u":;.,"};
  }
}

// Digits, in groups of three or two where they are grouped, the last one of three.
bool IsGrouped(std::u16string_view digits, std::u16string_view separator) {
  for (bool isFirst = true;; isFirst = false) {
    const size_t end = separator.empty() ? std::u16string_view::npos : digits.find(separator);
    const std::u16string_view group = digits.substr(0, end);
    const bool isLast = end == std::u16string_view::npos;
    if (group.empty() || !std::all_of(group.begin(), group.end(), IsDigit)) return false;
    if (!isFirst && group.size() != 3 && (isLast || group.size() != 2)) return false;
    if (isLast) return true;
    digits.remove_prefix(end + separator.size());
  }
}

// A number in the dress of the user's language.
bool IsNumber(std::u16string_view text, bool hasDecimals) {
  QNINTERNATIONALS dress;
  QnLang_GetInternationals(&dress, sizeof(dress));
  const std::u16string_view decimal(dress.decimalSeparator, dress.decimalSeparatorLength);
  const size_t point = hasDecimals && !decimal.empty() ? text.find(decimal) : std::u16string_view::npos;
  if (point != std::u16string_view::npos) {
    const std::u16string_view decimals = text.substr(point + decimal.size());
    if (decimals.empty() || !std::all_of(decimals.begin(), decimals.end(), IsDigit)) return false;
  }
  return IsGrouped(text.substr(0, point), {dress.thousandsSeparator, dress.thousandsSeparatorLength});
}

// Fields with one separator between two of them. The first or the last one may be left out: it is 0.
bool AreFields(std::u16string_view text, const Grammar& grammar) {
  size_t fields = 1;
  for (size_t i = 0; i < text.size(); ++i) {
    if (IsDigit(text[i])) continue;
    const bool isDoubled = i > 0 && !IsDigit(text[i - 1]);
    if (isDoubled || grammar.separators.find(text[i]) == std::u16string_view::npos) return false;
    ++fields;
  }
  return fields <= grammar.mostFields && std::any_of(text.begin(), text.end(), IsDigit);
}

// The library reads on past anything between digits: what no one means as a position stops here.
bool IsPosition(std::u16string_view text, LONG format) {
  const Grammar grammar = GrammarOf(format);
  if (text.starts_with(u'-')) text.remove_prefix(1);
  return grammar.mostFields == 1 ? IsNumber(text, grammar.hasDecimals) : AreFields(text, grammar);
}

// The seconds of a timecode as it is written, in fields or in pairs of digits, without its frames.
double SecondsOfTimecode(std::u16string_view text) {
  std::vector<double> fields(1);
  for (const char16_t c : text) {
    if (IsDigit(c))
      fields.back() = fields.back() * 10 + (c - u'0');
    else
      fields.push_back(0);
  }
  if (fields.size() == 1) {
    const double digits = fields[0];
    fields = {std::floor(digits / 1e6), std::fmod(std::floor(digits / 1e4), 100),
              std::fmod(std::floor(digits / 100), 100), 0};
  }
  fields.pop_back();
  return std::accumulate(fields.begin(), fields.end(), 0.0,
                         [](double seconds, double field) { return seconds * 60 + field; });
}

// Timecode starts again after a day, and the library takes what is left without a word. A second of timecode
// and a real one are not quite the same.
bool IsBeyondDay(std::u16string_view text, LONG format, LONGLONG time) {
  const Grammar grammar = GrammarOf(format);
  const bool isTimecode =
      grammar.mostFields == 4 && format != QNPOSFMT_TIME && format != QNPOSFMT_TIME_FRAMES;
  const double seconds = isTimecode ? SecondsOfTimecode(text) : 0;
  return static_cast<double>(time) / kUnits < seconds * 0.99 - 1;
}

std::optional<uint64_t> FrameOfTime(std::string_view text, const _qnposfmt& format, bool isLength) {
  const std::u16string wide = qn::FromUtf8(std::string(text));
  if (!IsPosition(wide, format.format)) return std::nullopt;
  const WCHAR* end = wide.c_str();
  const DWORD flags = QNTIMETEXT_CLAMP | (isLength ? QNTIMETEXT_ABSOLUTE : 0);
  const LONGLONG time =
      QnTextToNanoTimeToken2(wide.c_str(), &format, -1, -1, kMostSeconds * kUnits, flags, &end);
  if (time < 0 || *end != 0 || IsBeyondDay(wide, format.format, time)) return std::nullopt;
  // A time is cut down to whole units, which is less than half a frame at any rate that files have.
  const auto whole = static_cast<uint64_t>(time / kUnits);
  const auto rest = static_cast<uint64_t>(time % kUnits);
  return whole * format.sampleRate + (rest * format.sampleRate + kUnits / 2) / kUnits;
}

}  // namespace

bool ReadPosition(const char* command, const Arguments& arguments, const char* option, bool isLength,
                  uint32_t rate, std::optional<uint64_t>* frame) {
  const auto text = arguments.Value(option);
  return !text || ParsePosition(command, arguments, option, *text, isLength, rate, frame);
}

bool ParsePosition(const char* command, const Arguments& arguments, const char* option, std::string_view text,
                   bool isLength, uint32_t rate, std::optional<uint64_t>* frame) {
  const auto name = arguments.Value(kFormatOption.name);
  if (!name) {
    *frame = FrameOfPlain(text, rate);
  } else {
    std::string mistake;
    auto format = ReadTimeFormat(arguments, *name, &mistake);
    if (format && (format->format == QNPOSFMT_BEATS || format->format == QNPOSFMT_COMPACT))
      mistake = "the time format " + Quoted(*name) + " is for display alone";
    if (!mistake.empty()) {
      ReportUsage(command, mistake);
      return false;
    }
    format->sampleRate = rate;
    *frame = FrameOfTime(text, *format, isLength);
  }
  if (!*frame) ReportUsage(command, "bad value " + Quoted(text) + " for --" + option);
  return frame->has_value();
}

bool HasFormatForItsOptions(const char* command, const Arguments& arguments) {
  for (const Option& option : {kFrameRateOption, kTempoOption, kBeatsOption, kTicksOption}) {
    if (!arguments.Has(option.name) || arguments.Has(kFormatOption.name)) continue;
    ReportUsage(command, "--" + std::string(option.name) + " goes with --format");
    return false;
  }
  return true;
}

}  // namespace qnwave
