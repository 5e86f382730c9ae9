// What a tool says on its error output: one line each, "TOOL: subject: sentence".
#pragma once

#include <string>
#include <string_view>

#include "tools/common/text.h"

namespace qntool {

// The name of the tool; each tool defines it.
extern const char kProgram[];

// "qnwave info", for usage lines; the tool alone for an empty command.
std::string ProgramAnd(std::string_view command);

// A text made fit for a terminal and a log: control characters, those of the direction
// of writing too, and ill-formed UTF-8 become \xNN.
std::string Shown(std::string_view text);

// The same between single quotes.
std::string Quoted(std::string_view text);

// The subject, a file for example, may be empty.
void ReportError(std::string_view subject, const Message& sentence);
void ReportWarning(std::string_view subject, const Message& sentence);

// A mistake on the command line, in English as the options are, with the way to the help. `command` may be
// empty.
void ReportUsage(std::string_view command, std::string_view mistake);

// The same. Always false.
inline bool Mistaken(std::string_view command, std::string_view mistake) {
  ReportUsage(command, mistake);
  return false;
}

}  // namespace qntool
