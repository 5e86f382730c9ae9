// Numbers as text and back, short labelled forms, and two text helpers: fitting and cleaning.
//
// Numbers are dressed for the user by the locale record (qnprint.h): QnLang_GetInternationals(nullptr, 0)
// takes a change of locale over. A negative number always carries "-", in every locale.
//
//   WCHAR text[64];
//   QnLongToText(-1234567, text, TRUE);                          // "-1,234,567" for a user in England
//   QnTextToLongTokenEx(text, 0, -2000000, 2000000, nullptr);    // and back
//
// Sizes and rooms count characters (UTF-16 units), the terminator included; lengths do not count it. A
// function with a size never writes beyond it and ends what it writes with a terminator; below 1, and for a
// null text, it does nothing and gives 0. Nothing here reports an error or looks at the C
// library's locale.
#pragma once

#include "qn/platform/types.h"
#include "qn/platform/wingdi.h"

extern "C" {

// Dressing. `digits` is a number in C form: "-1234.5". All in front of the first "-", "." or significant
// digit, the blanks and zeros of a padded number, stays as it is and in front ("  0012" has the significant
// digits 12); a 0 in front of "." is significant. The rest gets the locale's dress:
//   QnFormatNumber              groups, rounded to no decimals
//   QnFormatDecimalNumber       the locale's decimal separator, the decimals that `digits` has
//   QnFormatGroupDecimalNumber  both, rounded to `decimals`, 0 to 9; -1: the decimals that `digits` has
// They give the length. What cannot be dressed is left out, so that only the part in front stays: a rest that
// is no number, more than 9 decimals, and one that does not fit, with the locale's own negative sign in the
// place of "-". `digits` and `text` do not overlap.
QN_API int QnFormatNumber(const WCHAR* digits, WCHAR* text, int size);
QN_API int QnFormatDecimalNumber(const WCHAR* digits, WCHAR* text, int size);
QN_API int QnFormatGroupDecimalNumber(const WCHAR* digits, WCHAR* text, int size, int decimals);

// Integers to text; nonzero `grouped` dresses them as QnFormatNumber does. They give the length. Without a
// size the text needs a room of 21 characters, or 64 if grouped. The N forms give 0 for a room of 0 or 1 and
// when the text does not fit: it is then cut to the room, or empty if grouped.
QN_API int QnLongToText(LONG value, WCHAR* text, BOOL grouped);
QN_API int QnLongToTextN(LONG value, WCHAR* text, int size, BOOL grouped);
QN_API int QnDWordToText(DWORD value, WCHAR* text, BOOL grouped);
QN_API int QnDWordToTextN(DWORD value, WCHAR* text, int size, BOOL grouped);
QN_API int QnLongLongToText(LONGLONG value, WCHAR* text, BOOL grouped);
QN_API int QnLongLongToTextN(LONGLONG value, WCHAR* text, int size, BOOL grouped);
QN_API int QnDWordLongToText(ULONGLONG value, WCHAR* text, BOOL grouped);
QN_API int QnDWordLongToTextN(ULONGLONG value, WCHAR* text, int size, BOOL grouped);

// Doubles to text with `decimals` decimals: 9 at most, and none below 0. Halves of the last place are rounded
// away from 0, and no sign stands in front of zeros. Nonzero `grouped` dresses the number as
// QnFormatGroupDecimalNumber does. Infinities, and magnitudes of 2 to the 64 or more, show as
// 18446744073709551615 with zeros behind the point; NaN shows as 0. The length is
// as for integers; without a size the text needs a room of 32 characters, or 64 if grouped.
QN_API int QnDoubleToText(WCHAR* text, double value, int decimals, BOOL grouped);
QN_API int QnDoubleToTextN(WCHAR* text, int size, double value, int decimals, BOOL grouped);

// Numbers from text, as a user of the locale types them. White space in front is skipped. Then may come the
// sign "-", digits, the locale's thousands separators, which are skipped wherever they stand, and its decimal
// separator; anything else ends the number, and so does the 64th character of it in C form.
//   endOut   if not null, receives the place in `text` where reading stopped
//   option   for doubles: nonzero reads the locale's separators, 0 the plain ones, "," and "."; the others
//            always read the locale's and do not look at it
// The value is that of the first number in what was read, and 0 if there is none:
//   DWord, DWordLong   digits alone, so 0 for a number with a sign; too large a number wraps
//   Long, LongLong     the integer in front of the decimal separator; too large a number is the type's limit
//   Double             the nearest double
//   Hex                hexadecimal digits of either case behind an optional "0x"; too large a number wraps.
//                      Separators and signs are no part of it.
// The Ex forms, which read doubles by the locale's separators, take `defaultValue` for a 0 where reading
// stopped at something that is neither the end nor white space, so for "abc" and for "0abc", but not for ""
// or "0 abc". Then the value, the default too, is raised to `minimum` and after that lowered to `maximum`. A
// null text reads as an empty one.
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

// Labelled values, as a meter shows them. The text, at most 23 characters of it, stands in the library's own
// ring of short-lived texts, is overwritten in time, and is used at once.
//   value       for Fixed with decimals an integer in units of the last decimal: -125 with 1 is "-12.5"
//   decimals    1 to 9, a larger value counts as 9; below 1 there are none, and a float is truncated, to the
//               nearest 32-bit integer when it is beyond them
//   floorValue  unless 0, a value at or below it shows as minus infinity, without label
//   label       text behind the number, or null
// The dB forms take " dB" for a label if `withUnit` is nonzero. Before attach and after detach, without a
// ring, a short text of failure comes instead.
QN_API const WCHAR* QnGetLabeledStringFixed(LONG value, int decimals, LONG floorValue, const WCHAR* label);
QN_API const WCHAR* QnGetLabeledStringFloat(float value, int decimals, float floorValue, const WCHAR* label);
QN_API const WCHAR* QnGetdBStringFixed(LONG value, int decimals, LONG floorValue, BOOL withUnit);
QN_API const WCHAR* QnGetdBStringFloat(float value, int decimals, float floorValue, BOOL withUnit);

// A size in bytes in a text with room for 64 characters, in the locale's dress: "512", "1.50KB", "20.00MB",
// "1,234.00GB". The second form writes "512 bytes" and "1.50 KB", the third "512" and "1.50 KB". A kilobyte
// has 1024 bytes, a megabyte 1000 kilobytes, a gigabyte 1000 megabytes. They give the length.
QN_API int QnGetByteSizeText(LONGLONG size, WCHAR* text);
QN_API int QnGetByteSizeText2(LONGLONG size, WCHAR* text);
QN_API int QnGetByteSizeTextWithSpace(LONGLONG size, WCHAR* text);

// A file's size in the user's language, three digits and a binary unit up to exabytes: "998 B", or "998
// bytes" if `longUnit` is nonzero, "0.97 KB", "12.3 MB". A negative size is 0. It gives the length, or 0 with
// an empty text when that does not fit in `textSize`.
QN_API int QnFormatFileSize(LONGLONG size, WCHAR* text, int textSize, BOOL longUnit);

// The four characters of a code, the lowest byte first, in a text of room 5. One outside 32 to 126 shows as
// ".", in the CPU form as a 0 that ends the text early. They return `text`.
QN_API WCHAR* QnFourCCToString(DWORD code, WCHAR* text);
QN_API WCHAR* QnFourCCToStringCPU(DWORD code, WCHAR* text);

// Fit a text, in a buffer of `size` characters, to `width` pixels less 2 in the font of `dc`: characters are
// taken from its end (FromEnd: from its start) until "..." fits in their place. 1 if the text was changed. 0
// if it fits as it is, if no character would be left, and if it cannot be measured; it then stays as it was.
QN_API BOOL QnCalcStringEllipsis(HDC dc, WCHAR* text, int size, int width);
QN_API BOOL QnCalcStringEllipsisFromEnd(HDC dc, WCHAR* text, int size, int width);

// Fit a path to `width` pixels: characters are taken from the end of the folder part until "..." fits in
// their place, in front of the file name with its separator (`\` or `/`). 1 if the path was shortened. A path
// that is narrower than `width`, whose file name would not fit with the dots, or that cannot be measured is
// copied as it is, cut to `size`, and gives 0. The Ex form reads `source`, which may be `text` itself; the
// ExCtl form takes device context and font from a window.
QN_API BOOL QnCalcPathEllipsis(HDC dc, WCHAR* text, int size, int width);
QN_API BOOL QnCalcPathEllipsisEx(HDC dc, const WCHAR* source, WCHAR* text, int size, int width);
QN_API BOOL QnCalcPathEllipsisExCtl(HWND control, const WCHAR* source, WCHAR* text, int size, int width);

// Takes white space from both ends, in place; the new length.
QN_API int QnStripWhiteSpace(WCHAR* text);

// Copies a text without white space at its ends, cut to `size`. `text`, or null if nothing remains.
QN_API WCHAR* QnPrepareName(const WCHAR* source, WCHAR* text, int size);

// Copies with each "&" doubled, so that a menu shows it, and stops in front of what does not fit; the length.
QN_API int QnFixNameForMenu(WCHAR* text, const WCHAR* source, int size);

// Replaces each `from` by `to`; the length of the text as it came.
QN_API int QnStringReplaceChars(char* text, char from, char to);
QN_API int QnStringReplaceCharsW(WCHAR* text, WCHAR from, WCHAR to);
}
