// Custom boxes: requests, button sets, the texts for hooks, commands.

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>
#include <string_view>

#include "qn/settings/qnmsgbox_internal.h"
#include "qn/text/messages_internal.h"
#include "qn/text/text_internal.h"

namespace qn {
namespace {

constexpr MsgBoxButton kOk = {IDOK, &messages::ButtonOk};
constexpr MsgBoxButton kCancel = {IDCANCEL, &messages::ButtonCancel};
constexpr MsgBoxButton kAbort = {IDABORT, &messages::ButtonAbort};
constexpr MsgBoxButton kRetry = {IDRETRY, &messages::ButtonRetry};
constexpr MsgBoxButton kIgnore = {IDIGNORE, &messages::ButtonIgnore};
constexpr MsgBoxButton kYes = {IDYES, &messages::ButtonYes};
constexpr MsgBoxButton kNo = {IDNO, &messages::ButtonNo};
constexpr MsgBoxButton kYesToAll = {QNID_YESTOALL, &messages::ButtonYesToAll};
constexpr MsgBoxButton kDelete = {QNID_DELETE, &messages::ButtonDelete};
constexpr MsgBoxButton kNoToAll = {QNID_NOTOALL, &messages::ButtonNoToAll};

constexpr MsgBoxButton kSet0[] = {kOk};
constexpr MsgBoxButton kSet1[] = {kOk, kCancel};
constexpr MsgBoxButton kSet2[] = {kAbort, kRetry, kIgnore};
constexpr MsgBoxButton kSet3[] = {kYes, kNo, kCancel};
constexpr MsgBoxButton kSet4[] = {kYes, kNo};
constexpr MsgBoxButton kSet5[] = {kRetry, kCancel};
constexpr MsgBoxButton kSet10[] = {kYes, kYesToAll, kNo, kCancel};
constexpr MsgBoxButton kSet11[] = {kYes, kNo, kDelete};
constexpr MsgBoxButton kSet12[] = {kYes, kNo, kNoToAll, kCancel};
constexpr MsgBoxButton kSet13[] = {kYes, kYesToAll, kNo, kNoToAll, kCancel};

constexpr std::span<const MsgBoxButton> kSets[16] = {kSet0, kSet1, kSet2,  kSet3,  kSet4,  kSet5,  {}, {},
                                                     {},    {},    kSet10, kSet11, kSet12, kSet13, {}, {}};

std::atomic<OpenMsgBox> g_openBox = nullptr;

bool HasItsArguments(const MsgBoxRequest& request) {
  return (!(request.flags & QNMB_CHECK) || request.checkValue) &&
         (!(request.flags & QNMB_DETAILS) || request.details);
}

// The text that a hook is given: the message and, if the flags say so, the details. It stands on the stack,
// for the handler of an exception comes this way and cannot count on the heap; a longer one does not. Without
// memory for that one the texts are cut and the tags stand.
class HookText {
 public:
  explicit HookText(const MsgBoxRequest& request) : text_(request.text) {
    if (!(request.flags & QNMB_DETAILS)) return;
    constexpr std::u16string_view kOpen = W("\r\n<Details>\r\n"), kClose = W("\r\n</Details>");
    constexpr size_t kTags = kOpen.size() + kClose.size() + 1;
    const std::u16string_view message = request.text, details = request.details;
    const size_t needed = message.size() + details.size() + kTags;
    if (needed > std::size(small_)) large_.reset(new (std::nothrow) WCHAR[needed]);
    WCHAR* at = large_ ? large_.get() : small_;
    text_ = at;
    const size_t room = (large_ ? needed : std::size(small_)) - kTags;
    const size_t shown = message.copy(at, room);
    at += shown;
    at += kOpen.copy(at, kOpen.size());
    at += details.copy(at, room - shown);
    at += kClose.copy(at, kClose.size());
    *at = 0;
  }

  const WCHAR* Text() const { return text_; }

 private:
  const WCHAR* text_;
  std::unique_ptr<WCHAR[]> large_;
  WCHAR small_[10'240 + 64];
};

int AskAndOpen(HWND window, MsgBoxRequest* request) {
  const HWND owner = MsgBoxOwner(window);
  if (const MsgBoxHook hook = CurrentMsgBoxHook(); hook.hook) {
    const HookText text(*request);
    const int answer = hook.Ask(owner, text.Text(), MsgBoxCaption(*request), request->flags);
    if (answer != -1) return answer;
  }
  const OpenMsgBox open = g_openBox;
  return open ? open(owner, request) : -1;
}

// Shows a box of texts that may be records. With arguments, the request's text is a format for them.
int ShowTexts(HWND window, MsgBoxRequest request, va_list* arguments) {
  if (!HasItsArguments(request)) return 0;
  for (const WCHAR** text :
       {&request.details, &request.checkText, &request.caption, &request.linkTarget, &request.linkText}) {
    *text = QnGetStringSmart(KernelLanguage(), *text);
  }
  WCHAR buffer[kMsgBoxTextRoom];
  request.text =
      arguments ? FormatMsgBoxText(request.text, arguments, buffer) : MsgBoxPlainText(request.text);
  return AskAndOpen(window, &request);
}

bool Contains(std::span<const MsgBoxButton> buttons, int id) {
  return std::any_of(buttons.begin(), buttons.end(), [id](const MsgBoxButton& b) { return b.id == id; });
}

}  // namespace

std::span<const MsgBoxButton> MsgBoxButtons(DWORD flags) {
  return kSets[flags & kMsgBoxSetBits];
}

void PrepareMsgBox(MsgBoxRequest* request) {
  request->detailsOpen = 0;
  if (MsgBoxButtons(request->flags).empty()) request->flags &= ~kMsgBoxSetBits;
  // "OK" alone can be cancelled: that means OK.
  request->noCancel =
      (request->flags & kMsgBoxSetBits) != MB_OK && !Contains(MsgBoxButtons(request->flags), IDCANCEL);
}

MsgBoxAction MsgBoxCommand(MsgBoxRequest* request, int id, bool checked) {
  if (id == kMsgBoxDetailsButton && HasDetailsButton(*request)) {
    request->detailsOpen = !request->detailsOpen;
    const int extra = static_cast<int>(request->detailsExtra);
    return {.kind = MsgBoxAction::kToggleDetails,
            .growth = request->detailsOpen ? extra : -extra,
            .buttonText = DetailsButtonText(request->detailsOpen)};
  }
  if (id == kMsgBoxLink) {
    return {.kind =
                request->linkTarget && *request->linkTarget ? MsgBoxAction::kBrowse : MsgBoxAction::kNone};
  }
  const bool ends = id == IDCANCEL ? !request->noCancel : Contains(MsgBoxButtons(request->flags), id);
  if (!ends) return {};
  if (request->flags & QNMB_CHECK) *request->checkValue = checked;
  const bool escaped = id == IDCANCEL && (request->flags & kMsgBoxSetBits) == MB_OK;
  return {.kind = MsgBoxAction::kEnd, .result = escaped ? IDOK : id};
}

int ShowCustomBox(HWND window, MsgBoxRequest* request) {
  if (!HasItsArguments(*request)) return 0;
  if (!request->text) request->text = W("");
  return AskAndOpen(window, request);
}

void SetOpenMsgBox(OpenMsgBox open) {
  g_openBox = open;
}

}  // namespace qn

using namespace qn;

int QnMsgBox_CustomF(HWND window, UINT flags, const WCHAR* details, const WCHAR* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = ShowTexts(window, {.flags = flags, .text = format, .details = details}, &arguments);
  va_end(arguments);
  return result;
}

int QnMsgBox_CustomNoF(HWND window, UINT flags, const WCHAR* details, const WCHAR* text) {
  return ShowTexts(window, {.flags = flags, .text = text, .details = details}, nullptr);
}

int QnMsgBox_TitledF(HWND window, UINT flags, const WCHAR* details, const WCHAR* caption, const WCHAR* format,
                     ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result =
      ShowTexts(window, {.flags = flags, .text = format, .details = details, .caption = caption}, &arguments);
  va_end(arguments);
  return result;
}

int QnMsgBox_TitledNoF(HWND window, UINT flags, const WCHAR* details, const WCHAR* caption,
                       const WCHAR* text) {
  return ShowTexts(window, {.flags = flags, .text = text, .details = details, .caption = caption}, nullptr);
}

int QnMsgBox_CustomExF(HWND window, UINT flags, const WCHAR* details, const WCHAR* checkText,
                       DWORD* checkValue, const WCHAR* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = ShowTexts(
      window,
      {.flags = flags, .text = format, .details = details, .checkText = checkText, .checkValue = checkValue},
      &arguments);
  va_end(arguments);
  return result;
}

int QnMsgBox_CustomExNoF(HWND window, UINT flags, const WCHAR* details, const WCHAR* checkText,
                         DWORD* checkValue, const WCHAR* text) {
  return ShowTexts(
      window,
      {.flags = flags, .text = text, .details = details, .checkText = checkText, .checkValue = checkValue},
      nullptr);
}

int QnMsgBox_CustomExLinkF(HWND window, UINT flags, const WCHAR* details, const WCHAR* checkText,
                           DWORD* checkValue, const WCHAR* linkTarget, const WCHAR* linkText,
                           const WCHAR* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = ShowTexts(window,
                               {.flags = flags,
                                .text = format,
                                .details = details,
                                .checkText = checkText,
                                .checkValue = checkValue,
                                .linkTarget = linkTarget,
                                .linkText = linkText},
                               &arguments);
  va_end(arguments);
  return result;
}
