// Formatted texts of windows.

#include <string_view>

#include "qn/platform/winuser.h"
#include "qn/text/qnprint_internal.h"

namespace qn {
namespace {

constexpr int kTextRoom = 2048;
constexpr int kComparedRoom = 8192;  // a longer present text is not compared

// A text made by a format. One without any conversion is used as it is, however long.
class WindowText {
 public:
  WindowText(const WCHAR* format, va_list arguments) {
    const std::u16string_view given(format);
    const bool plain = given.find_first_of(W("%$")) == given.npos;
    text_ = plain ? format : buffer_;
    length_ = plain ? static_cast<int>(given.size()) : PrintWithin(buffer_, kTextRoom, format, arguments);
  }

  const WCHAR* Text() const { return text_; }
  int Length() const { return length_; }

 private:
  WCHAR buffer_[kTextRoom];
  const WCHAR* text_;
  int length_;
};

int SetWindow(HWND window, const WCHAR* format, va_list arguments) {
  if (!format) return 0;
  const WindowText text(format, arguments);
  return SetWindowTextW(window, text.Text()) ? text.Length() : 0;
}

int SetItem(HWND dialog, int item, const WCHAR* format, va_list arguments) {
  if (!format) return 0;
  const WindowText text(format, arguments);
  return SetDlgItemTextW(dialog, item, text.Text()) ? text.Length() : 0;
}

// Setting an equal text again would repaint the control, which flickers on timers.
int SetItemNoFlash(HWND dialog, int item, const WCHAR* format, va_list arguments) {
  if (!format) return 0;
  const WindowText text(format, arguments);
  const int presentLength = GetWindowTextLengthW(GetDlgItem(dialog, item));
  if (presentLength < kComparedRoom) {
    WCHAR present[kComparedRoom];
    present[0] = 0;
    GetDlgItemTextW(dialog, item, present, kComparedRoom);
    if (lstrcmpW(present, text.Text()) == 0) return presentLength;
  }
  return SetDlgItemTextW(dialog, item, text.Text()) ? text.Length() : 0;
}

void AppendToEdit(HWND edit, const WCHAR* text) {
  SendMessageW(edit, EM_SETSEL, static_cast<WPARAM>(-1), -1);
  SendMessageW(edit, EM_REPLACESEL, 0, reinterpret_cast<LPARAM>(text));
}

}  // namespace
}  // namespace qn

using namespace qn;

int QnSetWindowTextF(HWND window, const WCHAR* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = SetWindow(window, format, arguments);
  va_end(arguments);
  return length;
}

int QnSetWindowTextNoF(HWND window, const WCHAR* text) {
  return QnSetWindowTextF(window, W("%s"), text);
}

int QnSetWindowTextId(HQNLANG language, HWND window, UINT id, ...) {
  va_list arguments;
  va_start(arguments, id);
  const int length = SetWindow(window, QnGetString(language, id), arguments);
  va_end(arguments);
  return length;
}

int QnSetDlgItemTextF(HWND dialog, int item, const WCHAR* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = SetItem(dialog, item, format, arguments);
  va_end(arguments);
  return length;
}

int QnSetDlgItemTextNoF(HWND dialog, int item, const WCHAR* text) {
  return text ? QnSetDlgItemTextF(dialog, item, W("%s"), text) : 0;
}

int QnSetDlgItemTextId(HQNLANG language, HWND dialog, int item, UINT id, ...) {
  va_list arguments;
  va_start(arguments, id);
  const int length = SetItem(dialog, item, QnGetString(language, id), arguments);
  va_end(arguments);
  return length;
}

int QnSetDlgItemTextNoFlashF(HWND dialog, int item, const WCHAR* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = SetItemNoFlash(dialog, item, format, arguments);
  va_end(arguments);
  return length;
}

int QnSetDlgItemTextNoFlashNoF(HWND dialog, int item, const WCHAR* text) {
  return text ? QnSetDlgItemTextNoFlashF(dialog, item, W("%s"), text) : 0;
}

int QnMEditPrintF(HWND edit, const WCHAR* format, ...) {
  if (!format) {
    SetWindowTextW(edit, W(""));
    return 0;
  }
  const bool lineEnd = *format != '~';
  while (*format == '~') ++format;
  WCHAR text[kTextRoom];
  int length = 0;
  va_list arguments;
  va_start(arguments, format);
  QnNVPrintF(text, kTextRoom, &length, format, arguments);
  va_end(arguments);
  AppendToEdit(edit, text);
  if (lineEnd) AppendToEdit(edit, W("\r\n"));
  return length;
}
