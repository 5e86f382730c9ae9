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

// Reports a bad value of an option and what would be a good one. Always false.
inline bool ReportBadValue(const char* command, const char* option, std::string_view value,
                           const std::string& good) {
  return Mistaken(command, "bad value " + Quoted(value) + " for --" + option + " (" + good + ")");
}

// The row of an option's value; null with the mistake reported. `others` are good values besides, such as
// "0 to 9, or ".
template <class Row, size_t count>
const Row* FindRow(const char* command, const Row (&rows)[count], const char* option, std::string_view name,
                   const std::string& others = {}) {
  const Row* const row = FindByName(rows, name);
  if (!row) ReportBadValue(command, option, name, others + "one of " + NamesOf(rows));
  return row;
}

// "0.5 to 16"
inline std::string LimitsText(double lowest, double highest) {
  char limits[80];
  std::snprintf(limits, sizeof limits, "%.10g to %.10g", lowest, highest);
  return limits;
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
  return ReportBadValue(command, option, *text,
                        LimitsText(static_cast<double>(lowest), static_cast<double>(highest)));
}

}  // namespace qntool
