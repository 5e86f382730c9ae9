#include "tools/common/options.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "tools/common/language.h"
#include "tools/common/report.h"

namespace qntool {
namespace {

constexpr Option kLanguage = {"lang", "LANG",
                              "the language, such as de, pt-BR or zh_TW (default: the one that is saved, or "
                              "that of the environment)"};
constexpr Option kHelp = {"help", nullptr, "show this help and exit"};

const Option* FindOption(const Command& command, std::string_view name) {
  for (const Option* const common : {&kLanguage, &kHelp}) {
    if (name == common->name) return common;
  }
  const auto found = std::find_if(command.options.begin(), command.options.end(),
                                  [&](const Option& o) { return name == o.name; });
  return found == command.options.end() ? nullptr : &*found;
}

constexpr size_t kHelpWidth = 79;

// Prints words from a column on, with the lines broken at the width of a usual terminal.
void PrintWrapped(std::string_view text, size_t column, size_t indent) {
  for (const std::string_view word : Split(text, ' ')) {
    if (column > indent && column + 1 + word.size() > kHelpWidth) {
      std::printf("\n%*s", static_cast<int>(indent), "");
      column = indent;
    } else if (column > indent) {
      std::putchar(' ');
      ++column;
    }
    std::printf("%.*s", static_cast<int>(word.size()), word.data());
    column += word.size();
  }
  std::putchar('\n');
}

void PrintOption(const Option& option) {
  constexpr size_t kColumn = 24;
  std::string left = "  --" + std::string(option.name);
  if (option.value) left += std::string(" ") + option.value;
  // A long name has its line to itself.
  if (left.size() + 2 > kColumn) {
    std::printf("%s\n", left.c_str());
    left.clear();
  }
  std::printf("%-*s", static_cast<int>(kColumn), left.c_str());
  PrintWrapped(option.help, kColumn, kColumn);
}

void PrintHelp(const Command& command) {
  std::printf("Usage: %s [OPTIONS] %s\n\n", ProgramAnd(command.name).c_str(), command.operands);
  PrintWrapped(command.summary, 0, 0);
  std::putchar('\n');
  PrintWrapped(command.details, 0, 0);
  std::printf("\nOptions:\n");
  for (const Option& option : command.options) PrintOption(option);
  PrintOption(kLanguage);
  PrintOption(kHelp);
}

void PrintOverview(std::span<const Command* const> commands) {
  std::printf("Usage: %s COMMAND [OPTIONS] FILE...\n\nCommands:\n", kProgram);
  for (const Command* const command : commands) std::printf("  %-10s%s\n", command->name, command->summary);
  std::printf("\n'%s COMMAND --help' tells more, '%s --version' the version, 'man %s' all.\n", kProgram,
              kProgram, kProgram);
}

// False, and that is reported, for an unknown one.
bool TakeLanguage(const Command& command, const Arguments& arguments) {
  const auto language = arguments.Value(kLanguage.name);
  return !language || UseLanguage(*language) ||
         Mistaken(command.name, "unknown language " + Quoted(*language));
}

}  // namespace

std::optional<Arguments> Arguments::Parse(const Command& command, std::span<char* const> words) {
  Arguments arguments;
  bool optionsEnded = false;
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string_view word = words[i];
    const bool isNegative = word.size() > 1 && (word[1] == '.' || (word[1] >= '0' && word[1] <= '9'));
    if (optionsEnded || word.substr(0, 1) != "-" || word == "-" || isNegative) {
      arguments.operands_.emplace_back(word);
      optionsEnded |= command.optionsFirst;
      continue;
    }
    if (word == "--") {
      optionsEnded = true;
      continue;
    }
    const size_t equals = word.find('=');
    const bool dashes = word.substr(0, 2) == "--";
    const std::string_view name = word == "-h" ? "help"
                                  : dashes     ? word.substr(2, equals - 2)
                                               : std::string_view();
    const Option* const option = FindOption(command, name);
    if (!option) {
      ReportUsage(command.name, "unknown option " + Quoted(word.substr(0, equals)));
      return std::nullopt;
    }
    std::string value;
    if (option->value) {
      if (equals != std::string_view::npos) {
        value = word.substr(equals + 1);
      } else if (i + 1 < words.size()) {
        value = words[++i];
      } else {
        ReportUsage(command.name, "option --" + std::string(name) + " needs a value (" + option->value + ")");
        return std::nullopt;
      }
    } else if (equals != std::string_view::npos) {
      ReportUsage(command.name, "option --" + std::string(name) + " takes no value");
      return std::nullopt;
    }
    arguments.values_.emplace(option->name, value);
  }
  return arguments;
}

std::optional<std::string_view> Arguments::Value(std::string_view name) const {
  const auto values = Values(name);
  if (values.empty()) return std::nullopt;
  return values.back();
}

std::vector<std::string_view> Arguments::Values(std::string_view name) const {
  std::vector<std::string_view> values;
  const auto [begin, end] = values_.equal_range(name);
  for (auto at = begin; at != end; ++at) values.push_back(at->second);
  return values;
}

int RunCommand(const Command& command, std::span<char* const> words) {
  const auto arguments = Arguments::Parse(command, words);
  if (!arguments || !TakeLanguage(command, *arguments)) return kExitUsage;
  if (!arguments->Has("help")) return command.run(*arguments);
  PrintHelp(command);
  return kExitOk;
}

int RunCommands(std::span<const Command* const> commands, const char* version, std::span<char* const> words) {
  constexpr Option kVersion = {"version", nullptr, ""};
  const Command self = {"", "", "", "", {&kVersion, 1}, nullptr, true};
  const auto arguments = Arguments::Parse(self, words);
  if (!arguments || !TakeLanguage(self, *arguments)) return kExitUsage;
  const auto& operands = arguments->Operands();
  const std::string first = operands.empty() ? "" : operands[0];
  if (arguments->Has("help") || first == "help") {
    PrintOverview(commands);
    return kExitOk;
  }
  if (arguments->Has("version")) {
    std::printf("%s %s\n", kProgram, version);
    return kExitOk;
  }
  for (const Command* const command : commands) {
    if (first == command->name) return RunCommand(*command, words.last(operands.size() - 1));
  }
  ReportUsage("", operands.empty() ? "no command is given" : "unknown command " + Quoted(first));
  return kExitUsage;
}

std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  for (;;) {
    const size_t end = text.find(separator);
    pieces.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

}  // namespace qntool
