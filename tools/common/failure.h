// Failures in the user's language: a tool is a host without windows whose message boxes go to its error
// output.
#pragma once

#include <string_view>

#include "qn/platform/types.h"
#include "qn/settings/qnerror.h"
#include "tools/common/text.h"

namespace qntool {

// Contexts of the library's table that tools use: what was going on.
constexpr ULONG_PTR kDuringOperation = 0;
constexpr ULONG_PTR kOpeningFiles = 22;
constexpr ULONG_PTR kSavingFiles = 23;
constexpr ULONG_PTR kWritingFile = 29;

// Makes the library know the tool as its host. Once, before anything is reported.
void BecomeHost();

// "TOOL: subject: What was going on. The reason. The details. (0x8004E007)" in one line. The subject is put
// into a context that names a file; subject and details may be empty.
void ReportFailure(std::string_view subject, ULONG_PTR context, HRESULT status, const Message& details = {});

// The status of the system's latest error, in errno, or `fallback` where that says no more.
HRESULT StatusFromErrno(HRESULT fallback);

}  // namespace qntool
