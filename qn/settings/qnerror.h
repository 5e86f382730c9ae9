// The error handler: texts of statuses, composed messages, the details log, dumps of exceptions.
#pragma once

#include "qn/platform/exception.h"
#include "qn/platform/oleauto.h"
#include "qn/platform/types.h"
#include "qn/settings/qnstatus.h"
#include "qn/text/qnlang.h"

// A row of an application's message table.
typedef struct _qnerror_table {
  HRESULT code;
  const WCHAR* text;  // a text, a record, a string id of the table's language handle, or null: no message
} _qnerror_table;
static_assert(sizeof(_qnerror_table) == 16 && offsetof(_qnerror_table, text) == 8);

// The same row for tables of string ids.
typedef struct _qnerror_table_rcid {
  HRESULT code;
  ULONGLONG textId;
} _qnerror_table_rcid;
static_assert(sizeof(_qnerror_table_rcid) == sizeof(_qnerror_table));

QN_API int QnErrorHandler_AddErrorTable(const _qnerror_table* table, DWORD count);
QN_API int QnErrorHandler_AddErrorTable(HQNLANG language, const _qnerror_table* table, DWORD count);

// A sentence in the place of a context's number.
inline ULONG_PTR QnErrorContext(const WCHAR* sentence) {
  return reinterpret_cast<ULONG_PTR>(sentence);
}

extern "C" {

QN_API const WCHAR* QnErrorHandler_GetHresultString(HRESULT status);
QN_API const WCHAR* QnErrorHandler_GetContextString(ULONG_PTR context);
QN_API const WCHAR* QnErrorHandler_GetErrorMessage(ULONG_PTR context, HRESULT status, const WCHAR* insert);
QN_API BSTR QnErrorHandler_ComposeErrorText(ULONG_PTR context, HRESULT status, const WCHAR* insert);
QN_API HRESULT QnErrorHandler_GetLastError();
QN_API int QnErrorHandler_MsgBox(HWND window, UINT flags, ULONG_PTR context, HRESULT status,
                                 const WCHAR* insert, BOOL titled);
QN_API int QnErrorHandler_MsgBoxText(HWND window, UINT flags, const WCHAR* text, BOOL titled);

QN_API HRESULT QnErrorHandler_DetailsInit();
QN_API HRESULT QnErrorHandler_DetailsAddString(HRESULT status, const WCHAR* format, ...);
QN_API const WCHAR* QnErrorHandler_DetailsInfo(HRESULT* statusOut, DWORD* countOut, DWORD* threadOut);
QN_API HRESULT QnErrorHandler_DetailsSetHyperlink(const WCHAR* target, const WCHAR* text);

// The status for a system error number, as GetLastError gives it: 0 for 0, and E_FAIL for each number that
// has no status of its own.
QN_API HRESULT QnErrorHandler_TranslateWin32Error(DWORD code);
QN_API HRESULT QnErrorHandler_TranslateCommDlgError(DWORD code);

QN_API int QnErrorHandler_DumpHex(char* text, int size, const void* bytes, int count);
QN_API int QnErrorHandler_DumpHexDWords(char* text, int size, const DWORD* words, int count);
QN_API int QnErrorHandler_DumpExceptionRecord(char* text, int size, const char* threadName,
                                              EXCEPTION_POINTERS* pointers, DWORD flags);
QN_API LONG QnErrorHandler_ExceptionFilter(EXCEPTION_POINTERS* pointers, const char* threadName);
}
