// Numbers as text and back, short labelled forms, and two text helpers: fitting and cleaning.
//
// Dressed numbers follow the user's locale record (qnprint.h); a negative number always carries "-".
#pragma once

#include "qn/platform/types.h"
#include "qn/platform/wingdi.h"

extern "C" {

// Dressing of digit strings in C form; `size` is the room in characters. Blanks and zeros in front stay as
// they are. The length of the result. The group form writes `decimals` decimals, -1 as many as `digits` has.
QN_API int QnFormatNumber(const WCHAR* digits, WCHAR* text, int size);
QN_API int QnFormatDecimalNumber(const WCHAR* digits, WCHAR* text, int size);
QN_API int QnFormatGroupDecimalNumber(const WCHAR* digits, WCHAR* text, int size, int decimals);

// Integers to text; `grouped` dresses them. The length; the N forms give 0 for a room below 2 and for a text
// that was cut.
QN_API int QnLongToText(LONG value, WCHAR* text, BOOL grouped);
QN_API int QnLongToTextN(LONG value, WCHAR* text, int size, BOOL grouped);
QN_API int QnDWordToText(DWORD value, WCHAR* text, BOOL grouped);
QN_API int QnDWordToTextN(DWORD value, WCHAR* text, int size, BOOL grouped);
QN_API int QnLongLongToText(LONGLONG value, WCHAR* text, BOOL grouped);
QN_API int QnLongLongToTextN(LONGLONG value, WCHAR* text, int size, BOOL grouped);
QN_API int QnDWordLongToText(ULONGLONG value, WCHAR* text, BOOL grouped);
QN_API int QnDWordLongToTextN(ULONGLONG value, WCHAR* text, int size, BOOL grouped);

// Doubles to text with up to 9 decimals.
QN_API int QnDoubleToText(WCHAR* text, double value, int decimals, BOOL grouped);
QN_API int QnDoubleToTextN(WCHAR* text, int size, double value, int decimals, BOOL grouped);

// Numbers from text. `*endOut`, if given, becomes the place where reading stopped. The Ex forms give
// `defaultValue` for a text that is no number and clamp to `minimum`..`maximum`. `option` chooses for doubles
// the user's separators (nonzero) or C's (0); the others always read the user's and do not look at it.
QN_API DWORD QnTextToDWordToken(const WCHAR* text, const WCHAR** endOut, int option);
QN_API DWORD QnTextToDWordTokenEx(const WCHAR* text, DWORD defaultValue, DWORD minimum, DWORD maximum,
                                  const WCHAR** endOut);
QN_API ULONGLONG QnTextToDWordLongToken(const WCHAR* text, const WCHAR** endOut, int option);
QN_API ULONGLONG QnTextToDWordLongTokenEx(const WCHAR* text, ULONGLONG defaultValue, ULONGLONG minimum,
                                          ULONGLONG maximum, const WCHAR** endOut);
QN_API LONG QnTextToLongToken(const WCHAR* text, const WCHAR** endOut, int option);
QN_API LONG QnTextToLongTokenEx(const WCHAR* text, LONG defaultValue, LONG minimum, LONG maximum,
                                const WCHAR** endOut);
QN_API LONGLONG QnTextToLongLongToken(const WCHAR* text, const WCHAR** endOut, int option);
QN_API LONGLONG QnTextToLongLongTokenEx(const WCHAR* text, LONGLONG defaultValue, LONGLONG minimum,
                                        LONGLONG maximum, const WCHAR** endOut);
QN_API double QnTextToDoubleToken(const WCHAR* text, const WCHAR** endOut, int option);
QN_API double QnTextToDoubleTokenEx(const WCHAR* text, double defaultValue, double minimum, double maximum,
                                    const WCHAR** endOut);
QN_API DWORD QnHexToDWordToken(const WCHAR* text, const WCHAR** endOut);
QN_API DWORD QnHexToDWordTokenEx(const WCHAR* text, DWORD defaultValue, DWORD minimum, DWORD maximum,
                                 const WCHAR** endOut);
QN_API ULONGLONG QnHexToDWordLongToken(const WCHAR* text, const WCHAR** endOut);
QN_API ULONGLONG QnHexToDWordLongTokenEx(const WCHAR* text, ULONGLONG defaultValue, ULONGLONG minimum,
                                         ULONGLONG maximum, const WCHAR** endOut);

// Labelled values in the library's ring of short-lived texts: use them at once. A value at or below a nonzero
// `floorValue` shows as minus infinity.
QN_API const WCHAR* QnGetLabeledStringFixed(LONG value, int decimals, LONG floorValue, const WCHAR* label);
QN_API const WCHAR* QnGetLabeledStringFloat(float value, int decimals, float floorValue, const WCHAR* label);
QN_API const WCHAR* QnGetdBStringFixed(LONG value, int decimals, LONG floorValue, BOOL withUnit);
QN_API const WCHAR* QnGetdBStringFloat(float value, int decimals, float floorValue, BOOL withUnit);

// Sizes in bytes, short. The length of the text.
QN_API int QnGetByteSizeText(LONGLONG size, WCHAR* text);
QN_API int QnGetByteSizeText2(LONGLONG size, WCHAR* text);
QN_API int QnGetByteSizeTextWithSpace(LONGLONG size, WCHAR* text);
QN_API int QnFormatFileSize(LONGLONG size, WCHAR* text, int textSize, BOOL longUnit);

// The four characters of a code, the lowest byte first, in a text of 5; one that does not print shows as ".",
// in the CPU form as a 0 that ends the text. Returns `text`.
QN_API WCHAR* QnFourCCToString(DWORD code, WCHAR* text);
QN_API WCHAR* QnFourCCToStringCPU(DWORD code, WCHAR* text);

// Fit a text of room `size` to a width in pixels by "..." at its end or its start: 1 if the text was changed.
QN_API BOOL QnCalcStringEllipsis(HDC dc, WCHAR* text, int size, int width);
QN_API BOOL QnCalcStringEllipsisFromEnd(HDC dc, WCHAR* text, int size, int width);

// Fit a path by "..." between folder and file name: 1 if it was shortened.
QN_API BOOL QnCalcPathEllipsis(HDC dc, WCHAR* text, int size, int width);
QN_API BOOL QnCalcPathEllipsisEx(HDC dc, const WCHAR* source, WCHAR* text, int size, int width);
QN_API BOOL QnCalcPathEllipsisExCtl(HWND control, const WCHAR* source, WCHAR* text, int size, int width);

// Takes white space from both ends, in place; the new length. QnPrepareName copies so stripped and returns
// `text`, or null if nothing remains.
QN_API int QnStripWhiteSpace(WCHAR* text);
QN_API WCHAR* QnPrepareName(const WCHAR* source, WCHAR* text, int size);

// Copies with each "&" doubled, so that a menu shows it; the length.
QN_API int QnFixNameForMenu(WCHAR* text, const WCHAR* source, int size);

// Replaces each `from` by `to`; the length.
QN_API int QnStringReplaceChars(char* text, char from, char to);
QN_API int QnStringReplaceCharsW(WCHAR* text, WCHAR from, WCHAR to);
}
