#include "tools/qnwave/position.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <string>

#include "qn/platform/text.h"
#include "tools/common/time_format.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

using namespace qntool;

// 30 years, so that no product below passes 64 bits.
constexpr LONGLONG kMostSeconds = 1'000'000'000;
constexpr LONGLONG kUnits = 10'000'000;  // of a second, in the library's times

std::optional<uint64_t> FrameOfPlain(std::string_view text, uint32_t rate) {
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

std::optional<uint64_t> FrameOfTime(std::string_view text, const _qnposfmt& format, bool isLength) {
  // The library takes a text without a digit for 0, and reads some formats past anything.
  const auto isLetter = [](unsigned char c) { return std::isalpha(c) != 0; };
  const auto isDigit = [](unsigned char c) { return std::isdigit(c) != 0; };
  if (std::any_of(text.begin(), text.end(), isLetter) || std::none_of(text.begin(), text.end(), isDigit))
    return std::nullopt;
  const std::u16string wide = qn::FromUtf8(std::string(text));
  const WCHAR* end = wide.c_str();
  const DWORD flags = QNTIMETEXT_CLAMP | (isLength ? QNTIMETEXT_ABSOLUTE : 0);
  const LONGLONG time =
      QnTextToNanoTimeToken2(wide.c_str(), &format, -1, -1, kMostSeconds * kUnits, flags, &end);
  if (time < 0 || *end != 0) return std::nullopt;
  // A time is cut down to whole units, which is less than half a frame at any rate that files have.
  const auto whole = static_cast<uint64_t>(time / kUnits);
  const auto rest = static_cast<uint64_t>(time % kUnits);
  return whole * format.sampleRate + (rest * format.sampleRate + kUnits / 2) / kUnits;
}

}  // namespace

bool ReadPosition(const char* command, const Arguments& arguments, const char* option, bool isLength,
                  uint32_t rate, std::optional<uint64_t>* frame) {
  const auto text = arguments.Value(option);
  if (!text) return true;
  const auto name = arguments.Value(kFormatOption.name);
  if (!name) {
    *frame = FrameOfPlain(*text, rate);
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
    *frame = FrameOfTime(*text, *format, isLength);
  }
  if (!*frame) ReportUsage(command, "bad value " + Quoted(*text) + " for --" + option);
  return frame->has_value();
}

}  // namespace qnwave
