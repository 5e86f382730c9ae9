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

// Controls beside those of ASCII, in UTF-8: U+0080 to U+009F, and those of the direction of writing, which
// would show what follows them in another order.
bool IsWideControl(std::string_view c) {
  return (c >= "\xC2\x80" && c <= "\xC2\x9F") || c == "\xD8\x9C" || c == "\xE2\x80\x8E" ||
         c == "\xE2\x80\x8F" || (c >= "\xE2\x80\xAA" && c <= "\xE2\x80\xAE") ||
         (c >= "\xE2\x81\xA6" && c <= "\xE2\x81\xA9");
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
    if (lead < 0x20 || lead == 0x7F || IsWideControl(character) || !IsUtf8(character)) {
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
