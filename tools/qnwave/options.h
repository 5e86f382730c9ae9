// The command line of a sub-command: options anywhere, `--name value` or `--name=value`, `--` ends them.
#pragma once

#include <charconv>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/qnwave/command.h"

namespace qnwave {

class Arguments {
 public:
  // Reads what follows the command's name. On a mistake reports it and returns nothing. A request for help
  // is not carried out here: it is the switch "help".
  static std::optional<Arguments> Parse(const Command& command, std::span<char* const> words);

  bool Has(std::string_view name) const { return values_.count(name) != 0; }
  std::optional<std::string_view> Value(std::string_view name) const;
  const std::vector<std::string>& Files() const { return files_; }

 private:
  std::map<std::string, std::string, std::less<>> values_;
  std::vector<std::string> files_;
};

void PrintHelp(const Command& command);

// The number that a whole text spells, if it lies within the limits.
template <class Number>
std::optional<Number> ParseNumber(std::string_view text, Number lowest, Number highest) {
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool whole = error == std::errc() && end == text.data() + text.size();
  // Written so that a NaN is refused too.
  if (!whole || !(number >= lowest && number <= highest)) return std::nullopt;
  return number;
}

// The pieces of a text between separators; an empty text is one empty piece.
std::vector<std::string_view> Split(std::string_view text, char separator);

}  // namespace qnwave
