// What the tool says on its error output of a failed operation: the file, the reason in words and the status.
#pragma once

#include <string>
#include <string_view>

#include "qn/platform/types.h"
#include "tools/common/report.h"

namespace qnwave {

using qntool::Quoted;
using qntool::ReportError;
using qntool::ReportUsage;
using qntool::ReportWarning;
using qntool::Shown;

// The sentence for a status.
const char* StatusText(HRESULT status);

// The status of the latest failed system operation, or `fallback` where that says no more.
HRESULT SystemStatus(HRESULT fallback);

// "qnwave: FILE: Sentence. (0x8004E008)"; the sentence is the status's own unless one is given.
void ReportError(std::string_view file, HRESULT status, std::string_view sentence = {});

// A file that could not be opened, from the latest system error.
void ReportOpenError(std::string_view file);

}  // namespace qnwave
