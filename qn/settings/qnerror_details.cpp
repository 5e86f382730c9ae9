// The block of the latest failure and the log in it.
#include <algorithm>
#include <cstdarg>
#include <iterator>
#include <string_view>

#include "qn/platform/sync.h"
#include "qn/settings/qnerror_internal.h"
#include "qn/settings/qnmsgbox_internal.h"
#include "qn/text/qnlang_internal.h"
#include "qn/text/qnprint_internal.h"
#include "qn/text/text_internal.h"

namespace qn {

ErrorBlock g_errorBlock;

namespace {

// One log belongs to one failure: to the thread that wrote first, and to those that pass its status on.
bool OwnLog(HRESULT status) {
  const DWORD thread = GetCurrentThreadId();
  if (g_errorBlock.detailsThread == 0) g_errorBlock.detailsThread = thread;
  return g_errorBlock.detailsThread == thread || g_errorBlock.lastError == status;
}

HRESULT AppendLine(HRESULT status, std::u16string_view text) {
  const size_t length = std::u16string_view(g_errorBlock.details).size();
  if ((length + text.size()) * 2 + 4 >= sizeof g_errorBlock.details) return E_FAIL;
  WCHAR* const end = g_errorBlock.details + length;
  constexpr WCHAR kLineEnd[] = W("\r\n");
  std::copy(std::begin(kLineEnd), std::end(kLineEnd), std::copy(text.begin(), text.end(), end));
  ++g_errorBlock.detailsCount;
  g_errorBlock.lastError = status;
  return S_OK;
}

}  // namespace

HRESULT AddDetailsText(HRESULT status, const WCHAR* text) {
  return OwnLog(status) ? AppendLine(status, text) : E_FAIL;
}

}  // namespace qn

using namespace qn;

HRESULT QnErrorHandler_GetLastError() {
  return g_errorBlock.lastError;
}

HRESULT QnErrorHandler_DetailsInit() {
  g_errorBlock = {};
  return S_OK;
}

HRESULT QnErrorHandler_DetailsAddString(HRESULT status, const WCHAR* format, ...) {
  if (!OwnLog(status)) return E_FAIL;
  if (!format) return E_POINTER;
  const std::u16string_view plain = MsgBoxPlainText(format);
  if (plain.find_first_of(W("%$")) == plain.npos) return AppendLine(status, plain);
  // A number that does not fit would be left out of a text that is then short enough for the log. None is
  // longer than the second half.
  WCHAR text[2 * kDetailsSize];
  va_list arguments;
  va_start(arguments, format);
  const int length = PrintWithin(text, 2 * kDetailsSize, plain.data(), arguments);
  va_end(arguments);
  return AppendLine(status, {text, static_cast<size_t>(length)});
}

const WCHAR* QnErrorHandler_DetailsInfo(HRESULT* statusOut, DWORD* countOut, DWORD* threadOut) {
  if (statusOut) *statusOut = g_errorBlock.lastError;
  if (countOut) *countOut = g_errorBlock.detailsCount;
  if (threadOut) *threadOut = g_errorBlock.detailsThread;
  return g_errorBlock.detailsCount > 0 ? g_errorBlock.details : nullptr;
}

HRESULT QnErrorHandler_DetailsSetHyperlink(const WCHAR* target, const WCHAR* text) {
  if (!target || !text) return E_POINTER;
  CopyText(MsgBoxPlainText(target), g_errorBlock.hyperlinkTarget, kLinkTargetSize);
  CopyText(MsgBoxPlainText(text), g_errorBlock.hyperlinkText, kLinkTextSize);
  return S_OK;
}
