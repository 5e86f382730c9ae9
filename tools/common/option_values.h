// Values of options: the names of a table's rows, and numbers within limits.
#pragma once

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>

#include "tools/common/options.h"
#include "tools/common/report.h"

namespace qntool {

// The row of a name; null for an unknown one.
template <class Row, size_t count>
const Row* FindByName(const Row (&rows)[count], std::string_view name) {
  const Row* const row =
      std::find_if(rows, rows + count, [&](const Row& candidate) { return name == candidate.name; });
  return row == rows + count ? nullptr : row;
}

// All names, for messages: "hann, hamming".
template <class Row, size_t count>
std::string NamesOf(const Row (&rows)[count]) {
  std::string names;
  for (const Row& row : rows) names += (names.empty() ? "" : ", ") + std::string(row.name);
  return names;
}

// Takes the number of an option, if that is given; false with the mistake reported.
template <class Number>
bool ReadNumber(const char* command, const Arguments& arguments, const char* option, Number lowest,
                Number highest, Number* value) {
  const auto text = arguments.Value(option);
  if (!text) return true;
  const auto number = ParseNumber<Number>(*text, lowest, highest);
  if (number) {
    *value = *number;
    return true;
  }
  char limits[80];
  std::snprintf(limits, sizeof limits, " (%.10g to %.10g)", static_cast<double>(lowest),
                static_cast<double>(highest));
  ReportUsage(command, "bad value " + Quoted(*text) + " for --" + option + limits);
  return false;
}

}  // namespace qntool
