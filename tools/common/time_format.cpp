#include "tools/common/time_format.h"

#include <algorithm>
#include <iterator>

#include "tools/common/report.h"

namespace qntool {
namespace {

// By the number of the row.
constexpr const char* kNames[] = {"samples",  "time",        "seconds",      "time-frames",     "frames",
                                  "measures", "smpte-29.97", "smpte-30",     "smpte-drop",      "smpte-25",
                                  "smpte-24", "nanotime",    "microseconds", "measures-from-0", "beats",
                                  "feet-40",  "feet-16",     "cd",           "smpte-23.976",    "compact"};

// A number, or a fraction of two.
std::optional<double> ParseRatio(std::string_view text, double lowest, double highest) {
  const std::vector<std::string_view> pieces = Split(text, '/');
  const auto above = ParseNumber<double>(pieces[0], 0, 1e12);
  const auto below = pieces.size() == 2 ? ParseNumber<double>(pieces[1], 1, 1e12) : std::optional(1.0);
  if (!above || !below || pieces.size() > 2) return std::nullopt;
  const double ratio = *above / *below;
  if (ratio < lowest || ratio > highest) return std::nullopt;
  return ratio;
}

// Reads the options one after the other and remembers the first mistake.
class FieldReader {
 public:
  FieldReader(const Arguments& arguments, std::string* mistake) : arguments_(arguments), mistake_(mistake) {}

  template <class Field, class Number, class Parse>
  void Read(const Option& option, Field* field, Number lowest, Number highest, Parse parse) {
    const auto text = arguments_.Value(option.name);
    if (!text) return;
    const auto number = parse(*text, lowest, highest);
    if (number) {
      *field = static_cast<Field>(*number);
    } else if (mistake_->empty()) {
      *mistake_ = "bad value " + Quoted(*text) + " for --" + option.name;
    }
  }

 private:
  const Arguments& arguments_;
  std::string* const mistake_;
};

}  // namespace

std::string TimeFormatNames() {
  std::string names;
  for (const char* name : kNames) names += (names.empty() ? "" : ", ") + std::string(name);
  return names;
}

std::optional<_qnposfmt> ReadTimeFormat(const Arguments& arguments, std::string_view name,
                                        std::string* mistake) {
  const LONG count = static_cast<LONG>(std::size(kNames));
  auto row = ParseNumber<LONG>(name, 0, count - 1);
  if (!row)
    row = static_cast<LONG>(std::find(std::begin(kNames), std::end(kNames), name) - std::begin(kNames));
  if (*row == count) {
    *mistake = "unknown time format " + Quoted(name) + " (0 to 19 or one of " + TimeFormatNames() + ")";
    return std::nullopt;
  }
  _qnposfmt format = {*row, 48000, 25, 120, 0, 4, 4, 960};
  mistake->clear();
  FieldReader reader(arguments, mistake);
  reader.Read(kRateOption, &format.sampleRate, 1u, 0x7FFFFFFFu, ParseNumber<DWORD>);
  reader.Read(kFrameRateOption, &format.frameRate, 0.1, 1e6, ParseRatio);
  reader.Read(kTempoOption, &format.tempo, 1.0, 1e5, ParseRatio);
  reader.Read(kBeatsOption, &format.beatsPerMeasure, 1, 0xFFFF, ParseNumber<int>);
  reader.Read(kTicksOption, &format.ticksPerBeat, 1u, 1000000u, ParseNumber<DWORD>);
  reader.Read(kOffsetOption, &format.offset, LONGLONG{-INT64_MAX}, LONGLONG{INT64_MAX},
              ParseNumber<LONGLONG>);
  if (!mistake->empty()) return std::nullopt;
  return format;
}

}  // namespace qntool
