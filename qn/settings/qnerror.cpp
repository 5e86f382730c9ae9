// The texts of statuses, composed messages and the message boxes that show them.
#include "qn/settings/qnerror.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <new>
#include <span>
#include <string_view>

#include "qn/settings/qnerror_internal.h"
#include "qn/settings/qnmsgbox_internal.h"
#include "qn/text/messages_internal.h"
#include "qn/text/qnlang_internal.h"
#include "qn/text/qnprint_internal.h"
#include "qn/text/text_internal.h"

using namespace qn;

namespace {

constexpr DWORD kMostTables = 32;

// A reason is appended only to a context that leaves this much room for it.
constexpr int kLongestContext = kMessageSize - 100;

struct RegisteredTable {
  const _qnerror_table* rows;
  DWORD count;
  HQNLANG language;  // null: the library's
};

// Written at start-up and read without a lock.
RegisteredTable g_tables[kMostTables];
DWORD g_tableCount = 0;

// A text of at most kMessageSize - 1 characters that is put together.
struct Message {
  WCHAR text[kMessageSize];
  int length = 0;

  // A format that asks for more than `insert` is shown as it stands. Formats come from tables of applications
  // and from sentences that callers pass, where "100% full" is no conversion of a number that nobody gave.
  void Append(const WCHAR* format, const WCHAR* insert) {
    const bool isFormat = FormatTakes(format, 0, 0, 1);
    int added = 0;
    QnCchPrintF(text + length, kMessageSize - length, &added, isFormat ? format : W("%s"),
                isFormat ? insert : format);
    length += added;
  }
};

// The text of a box. A copy where it lies in the block or gets a prefix: on the stack, for the handler of an
// exception cannot count on the heap; a longer one is not. Without memory for that it is cut.
class ShownText {
 public:
  ShownText(const WCHAR* text, bool titled) : text_(text) {
    const auto place = reinterpret_cast<uintptr_t>(text) - reinterpret_cast<uintptr_t>(&g_errorBlock);
    if (!titled && place >= sizeof g_errorBlock) return;
    const std::u16string_view whole = text;
    if (whole.size() >= kDetailsSize) large_.reset(new (std::nothrow) WCHAR[kPrefixSize + whole.size() + 1]);
    WCHAR* const copy = large_ ? large_.get() : small_;
    text_ = copy;
    int length = 0;
    if (titled) length = QnLoadString(KernelLanguage(), messages::WarningPrefix, copy, kPrefixSize);
    const size_t shown = whole.copy(copy + length, large_ ? whole.npos : kDetailsSize - 1);
    copy[static_cast<size_t>(length) + shown] = 0;
  }

  const WCHAR* Text() const { return text_; }

 private:
  static constexpr int kPrefixSize = 50;

  const WCHAR* text_;
  std::unique_ptr<WCHAR[]> large_;
  WCHAR small_[kPrefixSize + kDetailsSize];
};

}  // namespace

int QnErrorHandler_AddErrorTable(const _qnerror_table* table, DWORD count) {
  return QnErrorHandler_AddErrorTable(nullptr, table, count);
}

int QnErrorHandler_AddErrorTable(HQNLANG language, const _qnerror_table* table, DWORD count) {
  if (g_tableCount == kMostTables || (!table && count > 0)) return 1;
  g_tables[g_tableCount++] = {table, count, language};
  return 0;
}

const WCHAR* QnErrorHandler_GetHresultString(HRESULT status) {
  for (DWORD i = 0; i < g_tableCount; ++i) {
    const RegisteredTable& table = g_tables[i];
    const _qnerror_table* const end = table.rows + table.count;
    const _qnerror_table* const row =
        std::find_if(table.rows, end, [=](const _qnerror_table& other) { return other.code == status; });
    if (row != end) return QnGetStringSmart(table.language ? table.language : KernelLanguage(), row->text);
  }
  const qnlang_t* const record = FindStatusRecord(status);
  return record ? QnGetString(KernelLanguage(), *record) : nullptr;
}

const WCHAR* QnErrorHandler_GetContextString(ULONG_PTR context) {
  if (!IS_INTRESOURCE(reinterpret_cast<const void*>(context))) {
    return QnGetStringSmart(KernelLanguage(), reinterpret_cast<const WCHAR*>(context));
  }
  return QnGetString(KernelLanguage(), *ContextRecord(context));
}

// Any of the texts may be the message that stands in the block, so the new one is made apart.
const WCHAR* QnErrorHandler_GetErrorMessage(ULONG_PTR context, HRESULT status, const WCHAR* insert) {
  insert = MsgBoxPlainText(insert);
  Message message;
  message.Append(QnErrorHandler_GetContextString(context), insert);
  if (message.length < kLongestContext) {
    WCHAR missing[100];
    const WCHAR* reason = QnErrorHandler_GetHresultString(status);
    if (!reason) {
      QnCchPrintF(missing, std::size(missing), nullptr,
                  QnGetString(KernelLanguage(), messages::MessageMissing), status);
      reason = missing;
    }
    message.Append(reason, insert);
  }
  std::copy_n(message.text, message.length + 1, g_errorBlock.message);
  return g_errorBlock.message;
}

BSTR QnErrorHandler_ComposeErrorText(ULONG_PTR context, HRESULT status, const WCHAR* insert) {
  const std::u16string_view message = QnErrorHandler_GetErrorMessage(context, status, insert);
  std::u16string_view parts[] = {message, W("\r\n<Details>\r\n"), g_errorBlock.details, W("\r\n</Details>")};
  const auto used = std::span(parts).first(HasDetails() ? std::size(parts) : 1);
  size_t length = 0;
  for (const std::u16string_view part : used) length += part.size();
  const BSTR text = SysAllocStringLen(nullptr, static_cast<UINT>(length));
  if (!text) return nullptr;
  WCHAR* end = text;
  for (const std::u16string_view part : used) end = std::copy(part.begin(), part.end(), end);
  *end = 0;
  return text;
}

int QnErrorHandler_MsgBox(HWND window, UINT flags, ULONG_PTR context, HRESULT status, const WCHAR* insert,
                          BOOL titled) {
  if (status == QN_E_CANCELLED) return 1;
  return QnErrorHandler_MsgBoxText(window, flags, QnErrorHandler_GetErrorMessage(context, status, insert),
                                   titled);
}

// What the block holds is shown from a copy: it is empty by the time the box opens, so that a failure
// meanwhile starts clean, and the text itself is most often the block's message.
int QnErrorHandler_MsgBoxText(HWND window, UINT flags, const WCHAR* text, BOOL titled) {
  ShownText shown(MsgBoxPlainText(text), titled);
  WCHAR details[kDetailsSize];
  WCHAR target[kLinkTargetSize];
  WCHAR linkText[kLinkTextSize];
  CopyText(g_errorBlock.details, details, kDetailsSize);
  CopyText(g_errorBlock.hyperlinkTarget, target, kLinkTargetSize);
  CopyText(g_errorBlock.hyperlinkText, linkText, kLinkTextSize);
  const bool hasDetails = HasDetails();
  QnErrorHandler_DetailsInit();

  MsgBoxRequest request = {};
  request.flags = (flags & ~QNMB_DETAILS) | (hasDetails ? QNMB_DETAILS : 0);
  request.text = shown.Text();
  request.details = hasDetails ? details : nullptr;
  request.linkTarget = *target ? target : nullptr;
  request.linkText = *linkText ? linkText : nullptr;
  return ShowCustomBox(window, &request);
}
