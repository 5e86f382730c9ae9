// What the tool says on its error output: one line each, with the file, the reason in words and the status.
#pragma once

#include <string>
#include <string_view>

#include "qn/platform/types.h"

namespace qnwave {

// A text made fit for a terminal and a log: control characters and ill-formed UTF-8 become \xNN.
std::string Shown(std::string_view text);

// The same between single quotes.
std::string Quoted(std::string_view text);

// The sentence for a status.
const char* StatusText(HRESULT status);

// The status of the latest failed system operation, or `fallback` where that says no more.
HRESULT SystemStatus(HRESULT fallback);

// "qnwave: FILE: Sentence. (0x8004E008)"; the sentence is the status's own unless one is given.
void ReportError(std::string_view file, HRESULT status, std::string_view sentence = {});

// "qnwave: FILE: sentence", for what has no status.
void ReportError(std::string_view file, std::string_view sentence);
void ReportWarning(std::string_view file, std::string_view sentence);

// A mistake on the command line, with the way to the help. `command` may be empty.
void ReportUsage(std::string_view command, std::string_view mistake);

// A file that could not be opened, from the latest system error.
void ReportOpenError(std::string_view file);

}  // namespace qnwave
