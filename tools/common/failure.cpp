#include "tools/common/failure.h"

#include <cerrno>
#include <cstdio>
#include <string>

#include "qn/platform/module.h"
#include "qn/platform/text.h"
#include "qn/settings/qnmsgbox.h"
#include "qn/settings/qnstatus.h"
#include "qn/text/qnprint.h"
#include "tools/common/report.h"

namespace qntool {
namespace {

// What the box is about; the boxes of a tool come one at a time.
std::string boxSubject;
HRESULT boxStatus = S_OK;

// The text of a box as one line, without the marks around its details.
std::string OneLine(std::string text) {
  for (const std::string_view mark : {"<Details>", "</Details>"}) {
    if (const size_t at = text.find(mark); at != std::string::npos) text.erase(at, mark.size());
  }
  std::string line;
  for (const char c : text) {
    if (c != '\n' && c != '\r') {
      line += c;
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

void ShowBox(const WCHAR* text) {
  char code[16];
  std::snprintf(code, sizeof(code), " (0x%08X)", static_cast<unsigned>(boxStatus));
  ReportError(boxSubject, Message(Shown(OneLine(qn::ToUtf8(text))) + code));
}

}  // namespace

void BecomeHost() {
  const std::u16string name = qn::FromUtf8(kProgram);
  _QnMsgBoxSetAppData(GetModuleHandleW(nullptr), nullptr, name.c_str());
  QnMsgBoxSetNoUIHook(ShowBox);
  QnPrintF_AddToken(W("AppName"), name.c_str());
}

void ReportFailure(std::string_view subject, ULONG_PTR context, HRESULT status, const Message& details) {
  boxSubject = subject;
  boxStatus = status;
  QnErrorHandler_DetailsInit();
  const std::u16string line = qn::FromUtf8(details.Shown());
  if (!line.empty()) QnErrorHandler_DetailsAddString(status, W("%s"), line.c_str());
  const std::u16string insert = qn::FromUtf8(subject);
  const WCHAR* const message = QnErrorHandler_GetErrorMessage(context, status, insert.c_str());
  // Not QnErrorHandler_MsgBox: it keeps silent about what the user cancelled, and a tool says that it
  // stopped.
  QnErrorHandler_MsgBoxText(nullptr, MB_ICONHAND, message, FALSE);
}

HRESULT StatusFromErrno(HRESULT fallback) {
  switch (errno) {
    case ENOSPC:
    case EDQUOT:
      return QN_E_DISK_FULL;
    case EFBIG:
      return QN_E_FILE_TOO_LARGE;
    case EACCES:
    case EPERM:
    case EROFS:
      return E_ACCESSDENIED;
    case EEXIST:
      return QN_E_FILE_EXISTS;
    case EMFILE:
    case ENFILE:
      return QN_E_TOO_MANY_FILES;
    case ENAMETOOLONG:
      return QN_E_FILE_NAME;
    default:
      return fallback;
  }
}

}  // namespace qntool
