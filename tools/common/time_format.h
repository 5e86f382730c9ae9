// Position formats on the command line: a row of the library's table by name or number, and what it needs.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "qn/text/qntimetext.h"
#include "tools/common/options.h"

namespace qntool {

constexpr Option kFrameRateOption = {"frame-rate", "FPS",
                                     "frames a second, such as 25 or 30000/1001 (default 25)"};
constexpr Option kTempoOption = {"tempo", "BPM", "beats a minute (default 120)"};
constexpr Option kBeatsOption = {"beats", "N", "beats a measure (default 4)"};
constexpr Option kTicksOption = {"ticks", "N", "ticks a beat (default 960)"};
constexpr Option kRateOption = {"rate", "HZ", "samples a second (default 48000)"};
constexpr Option kOffsetOption = {"offset", "NANOTIME", "the time that is shown as the origin (default 0)"};

// All names, for messages: "samples, time, ...".
std::string TimeFormatNames();

// The format of a name or a number, with the options above as far as they are given. Nothing, with the reason
// in `*mistake`, when one of them makes no sense.
std::optional<_qnposfmt> ReadTimeFormat(const Arguments& arguments, std::string_view name,
                                        std::string* mistake);

}  // namespace qntool
