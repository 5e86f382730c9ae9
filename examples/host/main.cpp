// A host from its start to its end: it tells the library who it is, in which language it speaks and where
// messages go, keeps a setting of its own, and reports a file that cannot be opened.
//
//   example_host LCID FILE        LCID: 0x409 English, 0x407 German, 0x411 Japanese, ...
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>

#include "qn/kernel/qnkernel.h"
#include "qn/media/qnwav.h"
#include "qn/platform/exception.h"
#include "qn/platform/file.h"
#include "qn/platform/text.h"
#include "qn/settings/qnerror.h"
#include "qn/settings/qnmetric.h"
#include "qn/settings/qnmsgbox.h"
#include "qn/text/qnlang.h"
#include "qn/text/qnprint.h"

namespace {

constexpr const WCHAR* kName = W("Example Host");
constexpr DWORD kVersion = 1 << 20;  // 1.0
constexpr LONG kStartCount = 1;      // the id of a setting
constexpr ULONG_PTR kOpeningMedia =
    4;  // the library's sentence "An error occurred accessing project media %s."

// Statuses of this host, with their texts. The table is not copied.
constexpr HRESULT kNoSound = MakeStatus(0x8004F001);
constexpr _qnerror_table kErrors[] = {{kNoSound, W("\n\n$(AppName) hears no sound in that file.")}};

// Takes the place of each message box, and answers with the default button. The report of a crash comes here,
// too, while the thread that crashed may hold any lock: so nothing but the stack is used.
void ShowBox(const WCHAR* text) {
  char bytes[16'384];
  size_t count = qn::ToUtf8(text, bytes, sizeof bytes);
  bytes[count++] = '\n';
  if (write(STDERR_FILENO, bytes, count) < 0) return;  // there is nobody else to tell
}

// Writes a report of a crash, then lets the process end as it would have ended.
LONG ReportCrash(EXCEPTION_POINTERS* pointers) {
  QnErrorHandler_ExceptionFilter(pointers, "main");
  return EXCEPTION_CONTINUE_SEARCH;
}

// Opens a file and prints what it holds.
HRESULT ShowFile(const std::u16string& path) {
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return QnErrorHandler_TranslateWin32Error(GetLastError());
  CloseHandle(file);
  uint64_t frames = 0;
  WAVEFORMATEX* const format = QnGetFileWfx(path.c_str(), &frames, nullptr);
  if (!format) {
    QnErrorHandler_DetailsAddString(kNoSound, W("File: %s"), path.c_str());
    return kNoSound;
  }
  WCHAR text[128];
  QnCchPrintF(text, 128, nullptr, W("$(AppName): $d Hz, $I64d frames\n"), format->nSamplesPerSec, frames);
  std::fputs(qn::ToUtf8(text).c_str(), stdout);
  std::free(format);
  return S_OK;
}

}  // namespace

int main(int count, char** words) {
  if (count != 3) {
    std::fprintf(stderr, "usage: %s LCID FILE\n", words[0]);
    return 2;
  }
  // The library has attached itself before main. This host does not go on without its texts.
  if (qn::AttachStatus() != S_OK) return 1;

  const HMODULE self = GetModuleHandleW(nullptr);
  _QnKernel_SetAppName(kName);
  _QnMsgBoxSetAppData(self, nullptr, kName);
  QnMsgBoxSetNoUIHook(ShowBox);
  QnErrorHandler_AddErrorTable(kErrors, std::size(kErrors));
  SetUnhandledExceptionFilter(ReportCrash);

  // The host's texts and the library's own in one language, then the regional settings and the host's tokens.
  HQNLANG language = nullptr;
  const DWORD lcid = static_cast<DWORD>(std::strtoul(words[1], nullptr, 0));
  if (FAILED(QnLang_Open(&language, self, lcid, 0))) return 1;
  _QnLang_UpdateKernelLCID(language, lcid);
  _QnLang_UpdateThreadLocale(language);
  QnLang_GetInternationals(nullptr, 0);
  QnPrintF_AddToken(W("AppName"), kName);

  // A metric handle is there even when its key is not; readers then give their defaults.
  HQNMETRIC metrics = nullptr;
  QnMetric_Open(&metrics, kName, kVersion, nullptr);
  const LONG starts = QnGetMetricEx(metrics, kStartCount, 0, 1'000'000, 0) + 1;
  QnSetMetric(metrics, kStartCount, starts);
  std::printf("start %d\n", starts);

  const std::u16string path = qn::PathFromNative(words[2]);
  const HRESULT status = ShowFile(path);
  if (FAILED(status)) {
    QnErrorHandler_MsgBox(nullptr, MB_OK | MB_ICONHAND, kOpeningMedia, status, path.c_str(), FALSE);
  }

  QnMetric_Close(metrics);
  QnLang_Close(language);
  SetUnhandledExceptionFilter(nullptr);
  return FAILED(status);
}
