// Message boxes: the one way of the library and its hosts to tell the user something.
#pragma once

#include "qn/platform/module.h"
#include "qn/platform/types.h"
#include "qn/platform/winuser.h"
#include "qn/text/qnlang.h"

// Sees each box before it is shown: the result of the box, or -1 to have it shown all the same.
typedef int (*QNMSGBOXHOOK)(ULONGLONG hookData, HWND window, const WCHAR* text, const WCHAR* caption,
                            UINT flags);

// Receives the text of each box that QnMsgBoxSetNoUIHook answers.
typedef void (*QNMSGBOXTEXT)(const WCHAR* text);

constexpr UINT QNMB_YESYESTOALLNOCANCEL = 10;
constexpr UINT QNMB_YESNODELETE = 11;
constexpr UINT QNMB_YESNONOTOALLCANCEL = 12;
constexpr UINT QNMB_YESYESTOALLNONOTOALLCANCEL = 13;
constexpr UINT QNMB_CHECK = 0x1000;
constexpr UINT QNMB_DETAILS = 0xC000;

constexpr int QNID_YESTOALL = 100;
constexpr int QNID_DELETE = 101;
constexpr int QNID_NOTOALL = 102;

extern "C" {

QN_API int _QnMsgBoxSetAppData(HINSTANCE instance, HWND mainWindow, const WCHAR* appName);
QN_API int QnMsgBoxSetHook(QNMSGBOXHOOK hook, ULONGLONG hookData);
QN_API int QnMsgBoxSetNoUIHook(QNMSGBOXTEXT result);

QN_API int QnMessageBox(HWND window, const WCHAR* text, const WCHAR* caption, UINT flags);
QN_API int QnMsgBoxF(HWND window, UINT flags, const WCHAR* format, ...);
QN_API int QnMsgBoxNoF(HWND window, UINT flags, const WCHAR* text);
QN_API int QnMsgBoxId(HQNLANG language, HWND window, UINT flags, UINT id, ...);
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
