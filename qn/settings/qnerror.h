// The error handler: texts of statuses, composed messages, the details log, dumps of exceptions.
//
// An operation reports by a status. Whoever shows a failure says in a context what was going on, and the
// message is that sentence with the status's text behind it. On the way up a failure collects details:
//
//   QnErrorHandler_DetailsInit();
//   const HRESULT status = OpenProject(path);  // adds what it knows
//   if (FAILED(status)) QnErrorHandler_MsgBox(window, MB_ICONHAND, 5, status, path, FALSE);
//
// Texts are in the library's language. A context, or the text of an application's status, is a format with
// one text as its only argument ("%s"), and tokens as "$(AppName)" expand in it, as do conversions without an
// argument. One that asks for anything else, as "100% full" does, is shown as it stands.
//
// One block of the process holds the latest message and the log, for one failure at a time; a second failure
// overwrites the message. Nothing here takes a lock.
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

// Adds an application's table of `count` rows, which is not copied: it lives as long as the library is used.
// Tables are searched in the order of their registration, before the library's own, and the first row of a
// status decides: a row takes the place of the library's text, a null text hides it. Rows of records and
// string ids use `language`; null, and the form without it, mean the library's handle. 0, or 1 with nothing
// registered if there are 32 tables already, and for a null table with rows. For start-up: no other thread
// may use the error handler meanwhile.
QN_API int QnErrorHandler_AddErrorTable(const _qnerror_table* table, DWORD count);
QN_API int QnErrorHandler_AddErrorTable(HQNLANG language, const _qnerror_table* table, DWORD count);
inline int QnErrorHandler_AddErrorTable(HQNLANG language, const _qnerror_table_rcid* table, DWORD count) {
  return QnErrorHandler_AddErrorTable(language, reinterpret_cast<const _qnerror_table*>(table), count);
}

// A sentence, or a record, in the place of a context's number.
inline ULONG_PTR QnErrorContext(const WCHAR* sentence) {
  return reinterpret_cast<ULONG_PTR>(sentence);
}
inline ULONG_PTR QnErrorContext(const qnlang_t& record) {
  return reinterpret_cast<ULONG_PTR>(&record);
}

extern "C" {

// The text of a status, or null if there is none. Most begin with two line ends, which part them from the
// context. It is the table's own and is not formatted.
QN_API const WCHAR* QnErrorHandler_GetHresultString(HRESULT status);

// The sentence of a context, not formatted: a number from 0 to 57, an unknown one counts as 0, or from
// 0x10000 on the address of a sentence or record. Never null.
QN_API const WCHAR* QnErrorHandler_GetContextString(ULONG_PTR context);

// Composes the message of a failure in the process's one message, cut to 2047 characters, and returns that.
// `insert`, a text or a record (null is the empty text), is what "%s" stands for in the context and in the
// status's text. A context of 1948 characters or more loses the status's text. A status without text is shown
// as "Error 0x8004ffff (message missing)" behind two line ends.
QN_API const WCHAR* QnErrorHandler_GetErrorMessage(ULONG_PTR context, HRESULT status, const WCHAR* insert);

// The same as a new string for the caller to free with SysFreeString. With a details log it ends in
// "\r\n<Details>\r\n", the log and "\r\n</Details>". Null when there is no memory.
QN_API BSTR QnErrorHandler_ComposeErrorText(ULONG_PTR context, HRESULT status, const WCHAR* insert);

// The status of the latest details; 0 when the log is empty.
QN_API HRESULT QnErrorHandler_GetLastError();

// Shows the message of a failure in a box as MsgBoxText does. A status of QN_E_CANCELLED is no news to the
// user: no box, 1.
QN_API int QnErrorHandler_MsgBox(HWND window, UINT flags, ULONG_PTR context, HRESULT status,
                                 const WCHAR* insert, BOOL titled);

// Shows a text, or the text of a record, in a custom box, with the details log, if there is one, behind its
// Details button and the log's hyperlink on its link line. Both are cleared before the box opens.
//   window  the owner; null: the last popup of the main window, -1: none
//   flags   those of qnmsgbox.h; the bits of QNMB_DETAILS are the log's to set. Not QNMB_CHECK, which is
//           MB_SYSTEMMODAL too: such a box needs a value that there is none for, so nothing is shown
//   titled  nonzero puts "Warning: " in front
// The box's result; -1 when it cannot be made. Takes up to 96 KiB of the thread's stack, composing and adding
// details up to 48 KiB.
QN_API int QnErrorHandler_MsgBoxText(HWND window, UINT flags, const WCHAR* text, BOOL titled);

// Clears the log, its hyperlink, the last error and the message. 0.
QN_API HRESULT QnErrorHandler_DetailsInit();

// Adds a line to the log of a failure, printed as by QnPrintF if it holds "%" or "$" (at
// most 1024 characters of each text in it), and makes `status` the
// last error. The first thread that comes here owns the log, even if its call fails; from others only lines
// with the last error's status are taken, so that two failures do not mix. 0; E_FAIL for a line that is not
// taken or for which the log, of 8191 characters with all line ends, has no room; E_POINTER for a null
// format. A failing call leaves the log as it was.
QN_API HRESULT QnErrorHandler_DetailsAddString(HRESULT status, const WCHAR* format, ...);

// The log, or null while it is empty. The last error, the number of lines and the owner's thread id go to
// what is not null, with an empty log too. The log stays the library's and changes with it.
QN_API const WCHAR* QnErrorHandler_DetailsInfo(HRESULT* statusOut, DWORD* countOut, DWORD* threadOut);

// The link line of the box that will show the log: the address, cut to 2082 characters, and its text, cut to
// 2047, or the texts of records. 0, or E_POINTER if either is null.
QN_API HRESULT QnErrorHandler_DetailsSetHyperlink(const WCHAR* target, const WCHAR* text);

// The status for a system error number, as GetLastError gives it: 0 for 0, and E_FAIL for each number that
// has no status of its own.
QN_API HRESULT QnErrorHandler_TranslateWin32Error(DWORD code);

// The same for the failure of a common dialog.
QN_API HRESULT QnErrorHandler_TranslateCommDlgError(DWORD code);

// Dumps `count` bytes as narrow text in a room of `size` characters with the terminator. A line is a blank,
// the address in 16 digits, ": ", 8 bytes as "41 " each, ".. " for one that cannot be read, blanks behind the
// last; the same 8 as characters; "\r\n". Lines are written whole and while 50 characters of room are left.
// The number of characters written.
QN_API int QnErrorHandler_DumpHex(char* text, int size, const void* bytes, int count);

// The same for words of 32 bits, at any address: 4 a line as "0000ABCD ", "........ " for one that cannot be
// read, no characters. `count` counts words.
QN_API int QnErrorHandler_DumpHexDWords(char* text, int size, const DWORD* words, int count);

// Hands an exception to the crash reporter, then describes it in narrow text: `flags` 1 the exception, 2 the
// module in which it happened, 32 the thread with `threadName` (null: no name), 0 all of them. Each line ends
// in "\r\n" and is written whole, the next only while 50 characters of room are left. The number of
// characters written, 0 without a record. Allocates nothing.
QN_API int QnErrorHandler_DumpExceptionRecord(char* text, int size, const char* threadName,
                                              EXCEPTION_POINTERS* pointers, DWORD flags);

// An exception filter that shows the exception in a message box, its description and the application's name
// in the details; bytes of `threadName` that are not UTF-8 stand for the characters of their numbers. 1,
// execute the handler; 0, continue the search, for an EXCEPTION_DATATYPE_MISALIGNMENT, with a debugger
// attached, and without a record. Threads that fail at once may mix their reports. Allocates nothing and
// takes no lock before the box opens, unless a table of the application has for QN_E_EXCEPTION a text with
// tokens or a string id.
QN_API LONG QnErrorHandler_ExceptionFilter(EXCEPTION_POINTERS* pointers, const char* threadName);
}
