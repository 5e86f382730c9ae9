// The text form of settings.
//
//   # a comment
//   5 = number 100
//   ["Kernel"]
//   "Show Tips" = number 1
//
// A key in brackets holds what follows it. Settings are those of setting.h.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tools/common/text.h"
#include "tools/qnmetric/store.h"

namespace qnmetric {

std::string PrintSettings(const Settings& settings);

struct Mistake {
  int line = 0;
  qntool::Message reason;
};

// Reads what PrintSettings wrote, in its order; a byte order mark may stand in front, comments and empty
// lines between. Nothing, with what is wrong, for another text and for what could not be stored at a place.
std::optional<Settings> ReadSettings(std::string_view text, const Place& place, Mistake* mistake);

}  // namespace qnmetric
