// The command line of a tool or of its sub-command: options anywhere, `--name value` or `--name=value`, `--`
// ends them. What starts with "-" and a digit is no option.
#pragma once

#include <charconv>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qntool {

// What a process returns.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

struct Option {
  const char* name;   // without the dashes
  const char* value;  // what stands for the value in the help, or null for a switch
  const char* help;
};

class Arguments;

struct Command {
  const char* name;      // empty for a tool without sub-commands
  const char* operands;  // as the usage line shows them
  const char* summary;   // one line
  const char* details;   // a paragraph for --help
  std::span<const Option> options;
  int (*run)(const Arguments& arguments);
  bool optionsFirst = false;  // the first operand ends the options
};

class Arguments {
 public:
  // Reads what follows the command's name. On a mistake reports it and returns nothing. A request for help
  // is not carried out here: it is the switch "help". Each command has "lang" too.
  static std::optional<Arguments> Parse(const Command& command, std::span<char* const> words);

  bool Has(std::string_view name) const { return values_.count(name) != 0; }
  // The value of an option that was given; the last one where it was given again.
  std::optional<std::string_view> Value(std::string_view name) const;
  // All values, in their order.
  std::vector<std::string_view> Values(std::string_view name) const;
  const std::vector<std::string>& Operands() const { return operands_; }

 private:
  std::multimap<std::string, std::string, std::less<>> values_;
  std::vector<std::string> operands_;
};

// Takes the language of --lang and runs the command, or prints its help; the exit code.
int RunCommand(const Command& command, std::span<char* const> words);

// Runs the command that the first word names, or shows all of them or the version; the exit code. --lang may
// stand in front of the command too.
int RunCommands(std::span<const Command* const> commands, const char* version, std::span<char* const> words);

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

}  // namespace qntool
