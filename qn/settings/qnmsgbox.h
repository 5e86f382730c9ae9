// Message boxes: the one way of the library and its hosts to tell the user something.
//
// Two kinds: the system's box, and the custom box with more button sets, a check box ("Do not show this
// message again."), a pane of details and a line with a link. The application says once who it is, and may
// see each box before it is shown, or answer it without showing any:
//
//   _QnMsgBoxSetAppData(instance, mainWindow, W("Recorder"));
//   if (batch) QnMsgBoxSetNoUIHook(WriteToLog);
//   ...
//   if (QnMsgBoxF(nullptr, MB_YESNO | MB_ICONQUESTION, W("Close %s?"), name) == IDYES) Close();
//
// Arguments of all functions:
//   window   the owner; null: the last active popup of the application's main window, if that is set;
//            (HWND)-1: no owner
//   flags    see below
//   texts    a wide string, or in its place a record or a string id of the library (qnlang.h), which is shown
//            in the library's language. A null message is an empty one
//   format   the message, in the language of qnprint.h; formatted, to at most 2047 characters, only if it
//            holds `%` or `$`, else shown as it is, of any length. The NoF forms take the message as it is
//
// A box gives the id of the button that closed it, or what the hook answered in its place.
//
// Threads: boxes may open on any thread. The hook runs on the thread of the box; it changes on the thread of
// _QnMsgBoxSetAppData alone.
#pragma once

#include "qn/platform/module.h"
#include "qn/platform/types.h"
#include "qn/platform/winuser.h"
#include "qn/text/qnlang.h"

// Flags, with the layout of MessageBoxW's. All but the MB_ constants are for custom boxes alone.
//   bits 0 to 3    the button set: MB_OK to MB_RETRYCANCEL (0 to 5) or one of the four below. A custom box
//                  takes any other for MB_OK
//   bits 4 to 7    the icon, MB_ICONHAND to MB_ICONASTERISK; any other value: none
//   bits 8 to 11   the index of the default button; a custom box takes its last one for a higher index
//   bit 12         QNMB_CHECK: a check box
//   bits 14, 15    QNMB_DETAILS: a button that opens the details. With one of the bits only a hook sees them
constexpr UINT QNMB_YESYESTOALLNOCANCEL = 10;         // Yes, Yes to All, No, Cancel
constexpr UINT QNMB_YESNODELETE = 11;                 // Yes, No, Delete
constexpr UINT QNMB_YESNONOTOALLCANCEL = 12;          // Yes, No, No to All, Cancel
constexpr UINT QNMB_YESYESTOALLNONOTOALLCANCEL = 13;  // Yes, Yes to All, No, No to All, Cancel
constexpr UINT QNMB_CHECK = 0x1000;
constexpr UINT QNMB_DETAILS = 0xC000;

// Results of the buttons that the system's box does not have.
constexpr int QNID_YESTOALL = 100;
constexpr int QNID_DELETE = 101;
constexpr int QNID_NOTOALL = 102;

// Sees each box before it is shown.
//   hookData  the value given to QnMsgBoxSetHook
//   window    the owner, or null
//   text      the message; with bits 14 or 15 of a custom box
//             message + "\r\n<Details>\r\n" + details + "\r\n</Details>"
//   caption   the box's, never null
//   flags     as the caller gave them
// The texts live during the call. The result of the box, or -1 to have it shown all the same. The box of
// QnErrorHandler_ExceptionFilter comes inside the signal of a thread that crashed: there the hook must not
// use the heap or take a lock, and has 64 KiB of stack.
typedef int (*QNMSGBOXHOOK)(ULONGLONG hookData, HWND window, const WCHAR* text, const WCHAR* caption,
                            UINT flags);

// Receives the text of each box that QnMsgBoxSetNoUIHook answers, as a hook would, and what it says of a box
// that it cannot answer. It lives during the call. What is said of hooks in a crash holds for this one, too.
typedef void (*QNMSGBOXTEXT)(const WCHAR* text);

extern "C" {

// The application introduces itself, once, before it opens boxes: its module, the main window that owns boxes
// without another owner, and its name, the caption of boxes without another one. The name is copied, at most
// 127 characters of it (null: an empty name); module and window are only remembered. The calling thread is
// from now on the one that may set hooks; a hook set before is gone. Always 1.
QN_API int _QnMsgBoxSetAppData(HINSTANCE instance, HWND mainWindow, const WCHAR* appName);

// Sets the hook in the place of any before it; null removes it. 1, or 0 with no change on any thread but that
// of _QnMsgBoxSetAppData.
QN_API int QnMsgBoxSetHook(QNMSGBOXHOOK hook, ULONGLONG hookData);

// Sets a hook of the library that shows nothing, in the place of any before it: it hands the text to
// `callback` and answers what the default button of the box would give. Numbers of no button set are
// answered 1. A default button beyond its set needs the user: `callback` is told so in a second text and the
// box is shown. Null removes this hook; one of the application's stays. 1, or 0 with no change on any thread
// but that of _QnMsgBoxSetAppData.
QN_API int QnMsgBoxSetNoUIHook(QNMSGBOXTEXT callback);

// The system's box, with the results of MessageBoxW: 0 if it cannot be shown. It is centred by the library,
// except with flags of exactly MB_SYSTEMMODAL | MB_ICONHAND and while another box is about to be. A null
// caption is the application's name, which the other three always take. QnMsgBoxId's format is a string id of
// `language`; a missing one, or no handle, is an empty message.
QN_API int QnMessageBox(HWND window, const WCHAR* text, const WCHAR* caption, UINT flags);
QN_API int QnMsgBoxF(HWND window, UINT flags, const WCHAR* format, ...);
QN_API int QnMsgBoxNoF(HWND window, UINT flags, const WCHAR* text);
QN_API int QnMsgBoxId(HQNLANG language, HWND window, UINT flags, UINT id, ...);

// The custom box. Esc answers with Cancel, in a box of "OK" alone with 1; sets without Cancel ignore it.
//   details     with bits 14 or 15; null allowed without
//   caption     null: the application's name, as in the forms without
//   checkText   null: "Do not show this message again."
//   checkValue  with QNMB_CHECK: whether the box is checked, on entry and, as 0 or 1, when it is closed. A
//               hook that answers leaves it as it was
//   linkTarget  where a click on the link leads; null or empty: nowhere
//   linkText    the text of the link; null: the target. With both null there is no link
// 0, with nothing shown and no hook asked, for QNMB_CHECK without `checkValue` and for bits 14 or 15 without
// `details`; -1 if the box cannot be made, which is so wherever no hook answers until the window layer is
// there.
QN_API int QnMsgBox_CustomF(HWND window, UINT flags, const WCHAR* details, const WCHAR* format, ...);
QN_API int QnMsgBox_CustomNoF(HWND window, UINT flags, const WCHAR* details, const WCHAR* text);
QN_API int QnMsgBox_TitledF(HWND window, UINT flags, const WCHAR* details, const WCHAR* caption,
                            const WCHAR* format, ...);
QN_API int QnMsgBox_TitledNoF(HWND window, UINT flags, const WCHAR* details, const WCHAR* caption,
                              const WCHAR* text);
QN_API int QnMsgBox_CustomExF(HWND window, UINT flags, const WCHAR* details, const WCHAR* checkText,
                              DWORD* checkValue, const WCHAR* format, ...);
QN_API int QnMsgBox_CustomExNoF(HWND window, UINT flags, const WCHAR* details, const WCHAR* checkText,
                                DWORD* checkValue, const WCHAR* text);
QN_API int QnMsgBox_CustomExLinkF(HWND window, UINT flags, const WCHAR* details, const WCHAR* checkText,
                                  DWORD* checkValue, const WCHAR* linkTarget, const WCHAR* linkText,
                                  const WCHAR* format, ...);
}
