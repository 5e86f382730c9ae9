// What the application said of itself, the hooks, and the system's box.

#include "qn/settings/qnmsgbox.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>
#include <string_view>

#include "qn/kernel/qnkernel_internal.h"
#include "qn/platform/sync.h"
#include "qn/settings/qnmsgbox_internal.h"
#include "qn/text/text_internal.h"

namespace qn {
namespace {

constinit std::mutex g_lock;  // of the record
constinit MsgBoxAppData g_appData = {};

// The record's hook once more, for readers that must not wait for a lock: a thread that reports its crash. A
// change fills the pair that is not current. A reader whose pair has been changed meanwhile has seen the
// count change, and reads again.
struct HookPair {
  std::atomic<QNMSGBOXHOOK> hook;
  std::atomic<ULONGLONG> data;
};
constinit HookPair g_hookPairs[2] = {};
constinit std::atomic<DWORD> g_hookChanges = 0;

// Under the lock.
void PublishHook() {
  const DWORD next = g_hookChanges + 1;
  g_hookPairs[next % 2].hook = g_appData.hook;
  g_hookPairs[next % 2].data = g_appData.hookData;
  g_hookChanges = next;
}

std::atomic<CentreWindow> g_centreWindow = nullptr;

// Answers a box in the user's place. Its data is the callback that receives the text.
int AnswerWithoutUser(ULONGLONG hookData, HWND, const WCHAR* text, const WCHAR*, UINT flags) {
  const auto tell = reinterpret_cast<QNMSGBOXTEXT>(static_cast<uintptr_t>(hookData));
  tell(text);
  const std::span<const MsgBoxButton> buttons = MsgBoxButtons(flags);
  // Hosts rely on this answer for the numbers of no set, whatever their default button.
  if (buttons.empty()) return IDOK;
  const UINT index = MsgBoxDefaultIndex(flags);
  if (index < buttons.size()) return buttons[index].id;
  tell(W("Invalid Message Box parameter...User intervention is needed!!!!"));
  return -1;
}

// Changes the hook on behalf of the application's thread: 1, or 0 on any other.
template <typename Change>
int ChangeHook(Change change) {
  const std::lock_guard guard(g_lock);
  if (g_appData.threadId != GetCurrentThreadId()) return 0;
  change();
  PublishHook();
  return 1;
}

// Centres a box of the system as soon as it is there: the system itself puts it on the middle of the screen,
// far from a window on another. At most one in the process is live, and only the thread of its box calls it.
class CentringHook {
 public:
  explicit CentringHook(const WCHAR* caption) : caption_(caption) {
    CentringHook* none = nullptr;
    if (!g_live.compare_exchange_strong(none, this)) return;
    handle_ = SetWindowsHookExW(WH_CALLWNDPROCRET, Procedure, nullptr, GetCurrentThreadId());
    if (!handle_) g_live = nullptr;
  }
  ~CentringHook() { TakeOff(); }
  CentringHook(const CentringHook&) = delete;
  CentringHook& operator=(const CentringHook&) = delete;

 private:
  static LRESULT Procedure(int code, WPARAM wParam, LPARAM lParam) {
    CentringHook* const self = g_live;
    const HHOOK handle = self ? self->handle_ : nullptr;
    if (code >= 0 && self) self->Watch(*reinterpret_cast<const CWPRETSTRUCT*>(lParam));
    return CallNextHookEx(handle, code, wParam, lParam);
  }

  void Watch(const CWPRETSTRUCT& message) {
    if (message.message != WM_INITDIALOG || !IsBox(message.hwnd)) return;
    if (const CentreWindow centre = g_centreWindow) centre(message.hwnd);
    TakeOff();
  }

  bool IsBox(HWND window) const {
    constexpr std::u16string_view kDialogClass = W("#32770");
    WCHAR text[256];
    if (TextOf(GetClassNameW, window, text) != kDialogClass) return false;
    const std::u16string_view caption = caption_;
    return TextOf(GetWindowTextW, window, text) == caption.substr(0, std::size(text) - 1);
  }

  static std::u16string_view TextOf(int (*get)(HWND, WCHAR*, int), HWND window, WCHAR (&text)[256]) {
    const int length = get(window, text, static_cast<int>(std::size(text)));
    return {text, static_cast<size_t>(std::clamp(length, 0, static_cast<int>(std::size(text)) - 1))};
  }

  void TakeOff() {
    if (!handle_) return;
    UnhookWindowsHookEx(handle_);
    handle_ = nullptr;
    g_live = nullptr;
  }

  static inline std::atomic<CentringHook*> g_live = nullptr;

  const WCHAR* const caption_;
  HHOOK handle_ = nullptr;
};

// `text` and `caption` are plain; null: the application's name.
int ShowSystemBox(HWND window, const WCHAR* text, const WCHAR* caption, UINT flags) {
  const HWND owner = MsgBoxOwner(window);
  if (!caption) caption = MsgBoxAppName();
  const int answer = CurrentMsgBoxHook().Ask(owner, text, caption, flags);
  if (answer != -1) return answer;
  std::optional<CentringHook> centring;
  // A box of these very flags reports that the system is failing; nothing of ours is to run within it.
  if (flags != (MB_SYSTEMMODAL | MB_ICONHAND)) centring.emplace(caption);
  return MessageBoxW(owner, text, caption, flags);
}

int ShowFormatted(HWND window, UINT flags, const WCHAR* format, va_list* arguments) {
  WCHAR buffer[kMsgBoxTextRoom];
  return ShowSystemBox(window, FormatMsgBoxText(format, arguments, buffer), nullptr, flags);
}

}  // namespace

const WCHAR* MsgBoxAppName() {
  return g_appData.appName;
}

HWND MsgBoxOwner(HWND window) {
  if (reinterpret_cast<intptr_t>(window) == -1) return nullptr;
  if (window) return window;
  HWND mainWindow;
  {
    const std::lock_guard guard(g_lock);
    mainWindow = g_appData.mainWindow;
  }
  const HWND popup = mainWindow ? GetLastActivePopup(mainWindow) : nullptr;
  // A main window of another toolkit, without a backend here, is still what a hook needs for a parent.
  return popup ? popup : mainWindow;
}

MsgBoxHook CurrentMsgBoxHook() {
  for (;;) {
    const DWORD changes = g_hookChanges;
    const HookPair& pair = g_hookPairs[changes % 2];
    const MsgBoxHook hook = {pair.hook, pair.data};
    if (changes == g_hookChanges) return hook;
  }
}

const WCHAR* MsgBoxPlainText(const WCHAR* text) {
  const WCHAR* const plain = QnGetStringSmart(KernelLanguage(), text);
  return plain ? plain : W("");
}

const WCHAR* FormatMsgBoxText(const WCHAR* format, va_list* arguments, WCHAR (&buffer)[kMsgBoxTextRoom]) {
  const WCHAR* const text = MsgBoxPlainText(format);
  if (std::u16string_view(text).find_first_of(W("%$")) == std::u16string_view::npos) return text;
  QnNVPrintF(buffer, kMsgBoxTextRoom, nullptr, text, *arguments);
  return buffer;
}

void SetMsgBoxCentring(CentreWindow centre) {
  g_centreWindow = centre;
}

}  // namespace qn

using namespace qn;

int _QnMsgBoxSetAppData(HINSTANCE instance, HWND mainWindow, const WCHAR* appName) {
  MsgBoxAppData data = {.threadId = GetCurrentThreadId(), .instance = instance, .mainWindow = mainWindow};
  // The last character stays the terminator.
  std::u16string_view(MsgBoxPlainText(appName)).copy(data.appName, std::size(data.appName) - 1);
  const std::lock_guard guard(g_lock);
  g_appData = data;
  PublishHook();
  g_AppHwnd = mainWindow;
  return 1;
}

int QnMsgBoxSetHook(QNMSGBOXHOOK hook, ULONGLONG hookData) {
  return ChangeHook([&] {
    g_appData.hook = hook;
    g_appData.hookData = hookData;
  });
}

int QnMsgBoxSetNoUIHook(QNMSGBOXTEXT result) {
  return ChangeHook([&] {
    if (!result && g_appData.hook != AnswerWithoutUser) return;  // the application's own stays
    g_appData.hook = result ? AnswerWithoutUser : nullptr;
    g_appData.hookData = reinterpret_cast<uintptr_t>(result);
  });
}

int QnMessageBox(HWND window, const WCHAR* text, const WCHAR* caption, UINT flags) {
  return ShowSystemBox(window, MsgBoxPlainText(text), caption ? MsgBoxPlainText(caption) : nullptr, flags);
}

int QnMsgBoxF(HWND window, UINT flags, const WCHAR* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = ShowFormatted(window, flags, format, &arguments);
  va_end(arguments);
  return result;
}

int QnMsgBoxNoF(HWND window, UINT flags, const WCHAR* text) {
  return QnMessageBox(window, text, nullptr, flags);
}

int QnMsgBoxId(HQNLANG language, HWND window, UINT flags, UINT id, ...) {
  va_list arguments;
  va_start(arguments, id);
  const int result = ShowFormatted(window, flags, QnGetString(language, id), &arguments);
  va_end(arguments);
  return result;
}
