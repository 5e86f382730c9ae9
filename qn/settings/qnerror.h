// Translation of system errors into statuses.
#pragma once

#include "qn/platform/types.h"
#include "qn/settings/qnstatus.h"

extern "C" {

// The status for a system error number, as GetLastError gives it: 0 for 0, and E_FAIL for each number that
// has no status of its own.
QN_API HRESULT QnErrorHandler_TranslateWin32Error(DWORD code);
}
