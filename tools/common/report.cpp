#include "tools/common/report.h"

#include <cstdio>

#include "qn/platform/text.h"
#include "tools/common/options.h"

namespace qntool {
namespace {

void PrintLine(const std::string& kind, std::string_view subject, std::string_view text) {
  std::string line = std::string(kProgram) + ": ";
  if (!subject.empty()) line += Shown(subject) + ": ";
  line += kind;
  line += text;
  line += '\n';
  // One call, so that lines of several processes do not mix.
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace

std::string ProgramAnd(std::string_view command) {
  return std::string(kProgram) + (command.empty() ? "" : " ") + std::string(command);
}

std::string Shown(std::string_view text) {
  std::string result;
  const auto escape = [&](unsigned char c) {
    char hex[8];
    std::snprintf(hex, sizeof(hex), "\\x%02X", c);
    result += hex;
  };
  for (size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    const std::string_view character = text.substr(i, length);
    // U+0080 to U+009F are controls too.
    const bool control =
        lead < 0x20 || lead == 0x7F ||
        (lead == 0xC2 && character.size() == 2 && static_cast<unsigned char>(character[1]) < 0xA0);
    if (control || !IsUtf8(character)) {
      escape(lead);
      ++i;
    } else {
      result += character;
      i += length;
    }
  }
  return result;
}

std::string Quoted(std::string_view text) {
  return "'" + Shown(text) + "'";
}

void ReportError(std::string_view subject, const Message& sentence) {
  PrintLine("", subject, sentence.Shown());
}

void ReportWarning(std::string_view subject, const Message& sentence) {
  PrintLine(Message(messages::WarningPrefix).Shown(), subject, sentence.Shown());
}

void ReportUsage(std::string_view command, std::string_view mistake) {
  PrintLine("", command, mistake);
  std::fprintf(stderr, "Try '%s --help'.\n", ProgramAnd(command).c_str());
}

}  // namespace qntool
