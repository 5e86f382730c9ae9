// What the tool says on its error output of a failed operation: the file, what was going on, the reason and
// the status.
#pragma once

#include <string>
#include <string_view>

#include "qn/platform/types.h"
#include "tools/common/failure.h"
#include "tools/common/report.h"

namespace qnwave {

namespace messages = qntool::messages;
using qntool::Message;
using qntool::Mistaken;
using qntool::Quoted;
using qntool::ReportError;
using qntool::ReportUsage;
using qntool::ReportWarning;
using qntool::Shown;

// The status of the latest failed system operation, or `fallback` where that says no more.
HRESULT SystemStatus(HRESULT fallback);

// A failure about a file in the user's language (see tools/common/failure.h), with `details` of the tool's
// own behind the reason.
void ReportError(std::string_view file, HRESULT status, const Message& details = {},
                 ULONG_PTR context = qntool::kDuringOperation);

// A file that could not be opened or read for what it is.
void ReportOpenError(std::string_view file, HRESULT status, const Message& details = {});

}  // namespace qnwave
