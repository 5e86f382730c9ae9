// Message boxes apart from any drawing: the request of a custom box, its buttons, commands and layout.
//
// The window layer draws custom boxes. It gives its function to SetOpenMsgBox; the function makes a dialog
// from its template, calls LayOutMsgBox for what to put where, and asks MsgBoxCommand what each command of
// the dialog means.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <span>
#include <string_view>

#include "qn/platform/wingdi.h"
#include "qn/settings/qnmsgbox.h"

namespace qn {

// What the application said of itself; zeros before it did.
struct MsgBoxAppData {
  DWORD threadId = 0;
  HINSTANCE instance = nullptr;
  HWND mainWindow = nullptr;
  QNMSGBOXHOOK hook = nullptr;
  ULONGLONG hookData = 0;
  WCHAR appName[128] = {};
};
static_assert(offsetof(MsgBoxAppData, mainWindow) == 16 && offsetof(MsgBoxAppData, hookData) == 32 &&
              offsetof(MsgBoxAppData, appName) == 40);

// A custom box, one per call; the order of the fields is public. All texts are plain: no records, no formats.
struct MsgBoxRequest {
  DWORD flags = 0;
  const WCHAR* text = nullptr;
  const WCHAR* details = nullptr;     // null: none
  DWORD detailsOpen = 0;              // nonzero while the details are in view
  DWORD detailsExtra = 0;             // by which the box grows for them; set by LayOutMsgBox
  DWORD noCancel = 0;                 // the set has no Cancel button; set by LayOutMsgBox
  const WCHAR* checkText = nullptr;   // null: the standard text
  DWORD* checkValue = nullptr;        // state of the check box, in and out
  const WCHAR* caption = nullptr;     // null: the application's name
  const WCHAR* linkTarget = nullptr;  // null: none; without both the box has no link line
  const WCHAR* linkText = nullptr;
};
static_assert(sizeof(MsgBoxRequest) == 80 && offsetof(MsgBoxRequest, detailsOpen) == 24 &&
              offsetof(MsgBoxRequest, checkText) == 40 && offsetof(MsgBoxRequest, linkText) == 72);

// Controls of the template, and those that are made.
constexpr int kMsgBoxIcon = 1001;
constexpr int kMsgBoxSampleButton = 1002;
constexpr int kMsgBoxMessage = 1003;
constexpr int kMsgBoxDetailsButton = 200;
constexpr int kMsgBoxDetails = 201;
constexpr int kMsgBoxCheck = 300;
constexpr int kMsgBoxLink = 310;

// The application's name as the default caption; never null, empty before it is set.
const WCHAR* MsgBoxAppName();

// The owner that a window argument stands for: null means the last active popup of the main window, if there
// is one, and -1 no owner.
HWND MsgBoxOwner(HWND window);

// The hook of the moment, with its data.
struct MsgBoxHook {
  QNMSGBOXHOOK hook;
  ULONGLONG data;

  // The hook's result, -1 without one.
  int Ask(HWND owner, const WCHAR* text, const WCHAR* caption, UINT flags) const {
    return hook ? hook(data, owner, text, caption, flags) : -1;
  }
};
MsgBoxHook CurrentMsgBoxHook();

// A text or the text of the record in its place, in the library's language; null is the empty text.
const WCHAR* MsgBoxPlainText(const WCHAR* text);

// The plain text of a format: formatted in `buffer` only if it holds `%` or `$`, else as it is, however long.
constexpr int kMsgBoxTextRoom = 2048;
const WCHAR* FormatMsgBoxText(const WCHAR* format, va_list* arguments, WCHAR (&buffer)[kMsgBoxTextRoom]);

// Asks the hook and, unless that answers, shows a custom box. The flags and texts of `request` are the
// caller's; a null `text` is the empty one. `window` is as in the public functions: null for the main
// window's last popup, -1 for no owner. 0 for a check box without value or details flags without details; -1
// when the box cannot be made. Allocates nothing for a message and details of together up to 10,240
// characters, so that the handler of an exception may call it.
int ShowCustomBox(HWND window, MsgBoxRequest* request);

// What the window layer gives; until then there is nothing, a custom box results in -1 and no box of the
// system is centred. Set these before boxes open.
using OpenMsgBox = int (*)(HWND owner, MsgBoxRequest* request);  // its result, or -1 if it cannot be made
void SetOpenMsgBox(OpenMsgBox open);
using CentreWindow = void (*)(HWND window);
void SetMsgBoxCentring(CentreWindow centre);

// The buttons of a set, from the left.
struct MsgBoxButton {
  int id;  // which is its result
  const qnlang_t* text;
};

// The set that the flags name; empty for a number that is none.
constexpr DWORD kMsgBoxSetBits = 0xF;
std::span<const MsgBoxButton> MsgBoxButtons(DWORD flags);

// The index of the default button as the flags name it, which may be beyond the set.
constexpr UINT MsgBoxDefaultIndex(DWORD flags) {
  return (flags >> 8) & 0xF;
}

// The caption of a box; never null.
inline const WCHAR* MsgBoxCaption(const MsgBoxRequest& request) {
  return request.caption ? request.caption : MsgBoxAppName();
}

// Details flags other than 0xC000 show them to hooks only.
inline bool HasDetailsButton(const MsgBoxRequest& request) {
  return (request.flags & QNMB_DETAILS) == QNMB_DETAILS;
}
const WCHAR* DetailsButtonText(bool open);

// The first step of LayOutMsgBox: an unknown button set becomes set 0, and `noCancel` is set.
void PrepareMsgBox(MsgBoxRequest* request);

// What a command of the dialog asks of it.
struct MsgBoxAction {
  enum Kind { kNone, kEnd, kToggleDetails, kBrowse };

  Kind kind = kNone;
  int result = 0;                     // kEnd: of the dialog
  int growth = 0;                     // kToggleDetails: add it to the window's height
  const WCHAR* buttonText = nullptr;  // kToggleDetails: the new text of the Details button
};

// The meaning of the command (or click of the link line) with the id of a control; `checked` is the present
// state of the check box. Stores that state in the request's value when the dialog ends and keeps
// `detailsOpen`. For kBrowse the target is `linkTarget`, which then is not empty.
MsgBoxAction MsgBoxCommand(MsgBoxRequest* request, int id, bool checked);

// The window system's view of a layout, in pixels.
struct MsgBoxMetrics {
  SIZE screen;           // the largest client area that a window can have
  SIZE icon;             // control 1001
  SIZE button;           // control 1002, the smallest button
  int averageCharWidth;  // of the dialog's font
  int lineHeight;
  int margin;     // around the controls and between the rows
  int buttonGap;  // between two buttons of the row
};

class TextMeasurer {
 public:
  // The width in the dialog's font of a text without line ends. A `&` before a character marks a short cut,
  // if `mnemonics`, and has no width.
  virtual int Width(std::u16string_view text, bool mnemonics) const = 0;

 protected:
  ~TextMeasurer() = default;
};

// Where all goes, in client coordinates. What the box does not have is null, 0 or an empty rectangle.
struct MsgBoxLayout {
  struct Button {
    int id;
    const WCHAR* text;
    RECT place;
  };

  const WCHAR* caption;
  SIZE client;  // at first, with the details out of view
  int iconId;   // 32513 to 32516, IDI_HAND and so on; 0: hide the control
  RECT icon;
  RECT message;
  const WCHAR* linkText;
  RECT link;
  const WCHAR* checkText;
  RECT check;
  int buttonCount;    // with the Details button, which then is the last
  Button buttons[6];  // from the left
  int defaultButton;  // index of the one that gets BS_DEFPUSHBUTTON and the focus
  RECT details;       // below the client area's first size
};

// Prepares a request for its box - an unknown button set becomes set 0, `noCancel` and `detailsExtra` are set
// - and lays the box out. Nothing overlaps on a screen with room for one line of each text and the buttons;
// on a smaller one things are cut, and nothing is ever outside.
MsgBoxLayout LayOutMsgBox(MsgBoxRequest* request, const MsgBoxMetrics& metrics, const TextMeasurer& measurer);

}  // namespace qn
