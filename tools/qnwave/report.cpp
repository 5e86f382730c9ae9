#include "tools/qnwave/report.h"

#include "qn/settings/qnerror.h"
#include "qn/settings/qnstatus.h"

namespace qnwave {

HRESULT SystemStatus(HRESULT fallback) {
  const DWORD error = GetLastError();
  if (error == ERROR_FILE_TOO_LARGE) return QN_E_FILE_TOO_LARGE;
  const HRESULT status = QnErrorHandler_TranslateWin32Error(error);
  return status == S_OK || status == E_FAIL ? fallback : status;
}

void ReportError(std::string_view file, HRESULT status, const Message& details, ULONG_PTR context) {
  qntool::ReportFailure(file, context, status, details);
}

void ReportOpenError(std::string_view file, HRESULT status, const Message& details) {
  ReportError(file, status, details, qntool::kOpeningFiles);
}

}  // namespace qnwave
