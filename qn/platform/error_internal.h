// Mapping of the system's errno to the published error numbers.
#pragma once

#include "qn/platform/types.h"

namespace qn {

// The published number for an errno value; 31 (general failure) for one without a counterpart.
DWORD ErrorFromErrno(int error);

// Sets the last error from errno and returns FALSE, so that a failing call is one line.
BOOL FailWithErrno();

// Sets the last error and returns FALSE.
BOOL FailWith(DWORD error);

}  // namespace qn
