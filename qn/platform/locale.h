// The user's locale, number formatting, comparison, code pages and their detection, message inserts.
//
// A locale is named by an LCID: the low 10 bits of its language id are the primary language, the 6 above
// them the sublanguage (0x0407 German in Germany, 0x0807 in Switzerland). What stands behind them is the
// locale data of ICU; the C library's locale, which is the host's, plays no part and is never changed.
#pragma once

#include <cstdarg>

#include "qn/platform/types.h"

inline namespace qnplatform {

constexpr UINT CP_ACP = 0;       // the system's ANSI code page, see SetAnsiCodePage
constexpr UINT CP_UTF8 = 65001;  //
constexpr DWORD MB_PRECOMPOSED = 0x00000001;
constexpr DWORD MB_ERR_INVALID_CHARS = 0x00000008;
constexpr DWORD WC_NO_BEST_FIT_CHARS = 0x00000400;

// The code page that CP_ACP stands for: the one set, else that of the environment's locale (LC_ALL,
// LC_CTYPE, LANG), else UTF-8. The C library's own locale plays no part.
QN_API UINT GetACP();

// Sets the ANSI code page for the process, for hosts that exchange files with older systems (1252, 932,
// ...); 0 goes back to that of the environment. False, with no change, for a code page that is not known.
QN_API BOOL SetAnsiCodePage(UINT codePage);

// Converts `sourceLength` bytes (-1: up to and with the terminator) to at most `length` wide characters.
// The count written, or needed when `length` is 0; 0 on failure: last error 122 when the room is too small
// (what fits has been written), 1113 for ill-formed input with MB_ERR_INVALID_CHARS, 87 for a code page
// that is not known or a bad argument.
QN_API int MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceLength, WCHAR* text,
                               int length);

// The reverse. A character that the code page lacks becomes `*defaultChar`, or "?" when that is null;
// `*usedDefault`, when given, tells whether that happened.
QN_API int WideCharToMultiByte(UINT codePage, DWORD flags, const WCHAR* source, int sourceLength, char* text,
                               int length, const char* defaultChar, BOOL* usedDefault);

// The multibyte code page of CP_ACP: 932, 936, 949, 950 or 1361 if that has lead and trail bytes, else 0
// (also for UTF-8, whose bytes have no two-byte form).
QN_API int _getmbcp();

constexpr int _MBC_SINGLE = 0;  // one byte by itself
constexpr int _MBC_LEAD = 1;    // the first of two
constexpr int _MBC_TRAIL = 2;   // the second of two
constexpr int _MBC_ILLEGAL = -1;

// What a byte is in the code page of _getmbcp when the byte in front of it was of `previousType`: behind
// _MBC_LEAD a trail byte or illegal, otherwise single, lead or illegal. Control characters are illegal.
QN_API int _mbbtype(BYTE byte, int previousType);

// One guess of DetectInputCodepage.
struct DetectEncodingInfo {
  DWORD nLangID;    // primary language, 0 when the bytes do not tell
  DWORD nCodePage;  //
  int nDocPercent;  // percent of the bytes that are well-formed in the code page
  int nConfidence;  // 0 to 100
};

// Guesses the code page of `*length` bytes, the most confident first, in at most `*count` results; `*count`
// becomes their number and `*length` stays. `flags` and `preferred` are hints and not used. Pure ASCII is
// 20127 with full confidence. E_INVALIDARG for null or negative arguments, S_FALSE with no results when
// nothing fits, E_FAIL when there is no detector.
QN_API HRESULT DetectInputCodepage(DWORD flags, DWORD preferred, const char* bytes, int* length,
                                   DetectEncodingInfo* results, int* count);

using LCID = DWORD;
using LANGID = WORD;
using LCTYPE = DWORD;

constexpr LCID LOCALE_USER_DEFAULT = 0x0400;
constexpr LCID LOCALE_SYSTEM_DEFAULT = 0x0800;

constexpr LCTYPE LOCALE_ILANGUAGE = 0x0001;        // language id as 4 hexadecimal digits, "0407"
constexpr LCTYPE LOCALE_SLANGUAGE = 0x0002;        // "Deutsch (Deutschland)"
constexpr LCTYPE LOCALE_SABBREVLANGNAME = 0x0003;  // three letters: "DEU", "ENU", "CHS"
constexpr LCTYPE LOCALE_ICOUNTRY = 0x0005;         // the country's telephone code, "49"
constexpr LCTYPE LOCALE_SCOUNTRY = 0x0006;         // "Deutschland"
constexpr LCTYPE LOCALE_SLIST = 0x000C;            // list separator
constexpr LCTYPE LOCALE_IMEASURE = 0x000D;         // "0" metric, "1" U.S. system
constexpr LCTYPE LOCALE_SDECIMAL = 0x000E;         // decimal separator
constexpr LCTYPE LOCALE_STHOUSAND = 0x000F;        // thousands separator
constexpr LCTYPE LOCALE_SGROUPING = 0x0010;        // "3;0", Indian "3;2;0"
constexpr LCTYPE LOCALE_IDIGITS = 0x0011;          // decimals shown by default, "2"
constexpr LCTYPE LOCALE_ILZERO = 0x0012;           // "1": a 0 in front of the decimal separator
constexpr LCTYPE LOCALE_STIME = 0x001E;            // time separator
constexpr LCTYPE LOCALE_SNEGATIVESIGN = 0x0051;    // may have more than one character
constexpr LCTYPE LOCALE_SENGLANGUAGE = 0x1001;     // "German"
constexpr LCTYPE LOCALE_SENGCOUNTRY = 0x1002;      // "Germany"

// Copies a locale's item with terminator to `text` of `size` characters and returns the characters copied;
// with `size` 0 the characters needed. 0 on failure: last error 122 too small, 87 an unknown locale or item.
// Names that are not English are in the language of the user interface. 0 stands for the user's locale, and a
// language without a sublanguage for its most likely region; separators are those of the digits 0 to 9.
QN_API int GetLocaleInfoW(LCID locale, LCTYPE item, WCHAR* text, int size);

// The user's locale: the one set, else the environment's (LC_ALL, LC_NUMERIC, LANG); "C" and "POSIX" are
// English in the United States. The user-interface language follows LC_ALL, LC_MESSAGES, LANG.
QN_API LCID GetUserDefaultLCID();
QN_API LCID GetSystemDefaultLCID();
QN_API LANGID GetUserDefaultUILanguage();

// Sets the user's locale (and with it the user-interface language) for the process by an LCID; 0 goes back to
// the environment's, whose variables are read at the first use of a locale and here. False, with no change,
// for one that is not known. A host then calls QnLang_GetInternationals(nullptr, 0), which takes the new
// values over; no other thread may be formatting.
QN_API BOOL SetUserDefaultLCID(LCID locale);

// Replaces one item of the user's locale, as a user does who wants other separators; null takes the
// replacement back. SetUserDefaultLCID takes all of them back. False for an unknown item or a text of more
// than 7 characters. No other thread may be formatting.
QN_API BOOL SetUserLocaleItem(LCTYPE item, const WCHAR* text);

// The LCID of a BCP 47 or POSIX locale name ("de", "pt-BR", "zh_TW.UTF-8"), or 0 for an unknown one. It
// always has a region: the most likely one for a language alone, and for a region without an LCID of its own.
// Null is the user's locale. `flags` is not used.
QN_API LCID LocaleNameToLCID(const WCHAR* name, DWORD flags);

// The calling thread's locale, the user's until set and after setting 0. False for an unknown one.
QN_API LCID GetThreadLocale();
QN_API BOOL SetThreadLocale(LCID locale);

// Sets the thread's user-interface language and returns the one before, the user's until set; 0 goes back to
// that.
QN_API LANGID InitMUILanguage(LANGID language);

struct NUMBERFMTW {
  UINT NumDigits;        // decimals, 0 to 9; the value is rounded to them, halves away from zero
  UINT LeadingZero;      // nonzero: a 0 in front of the decimal separator
  UINT Grouping;         // digits a group to 9, 0 for none; 32: groups of two in front of one of three
  WCHAR* lpDecimalSep;   // of any length; null is empty
  WCHAR* lpThousandSep;  //
  UINT NegativeOrder;    // 0 "(1.1)", 1 "-1.1", 2 "- 1.1", 3 "1.1-", 4 "1.1 -"
};

// Writes `value`, digits with an optional "-" in front and an optional ".", in the dress that `format` tells,
// with the negative sign of `locale`. Leading zeros of the value fall away; a minus sign stays also in front
// of zeros. `text` must not overlap `value`. Returns the characters with terminator; with `size` 0 those
// needed. 0 on failure: last error 122 too small (nothing is written), 87 a character that is no digit, no
// digit, a null format, or one out of range. `flags` must be 0. No allocation for LOCALE_USER_DEFAULT.
QN_API int GetNumberFormatW(LCID locale, DWORD flags, const WCHAR* value, const NUMBERFMTW* format,
                            WCHAR* text, int size);

// Compare by the collation of the root locale, which is the same for every user, so that sorted tables stay
// sorted: below 0, 0 or above 0. The W form tells all texts apart (but for canonically equal ones), the iW
// form ignores case. Null sorts before every text.
QN_API int lstrcmpW(const WCHAR* first, const WCHAR* second);
QN_API int lstrcmpiW(const WCHAR* first, const WCHAR* second);

constexpr DWORD FORMAT_MESSAGE_FROM_STRING = 0x00000400;

// Fills the inserts of `source`: %1 to %99 (a wide string, or as told by a printf format between "!"s behind
// it: "%1!d!"), %% %n %r %t %b %. %! and "% ", %0 ends the text; a line end becomes "\r\n". Each argument
// takes one 64-bit slot of `*arguments`, of which as many are read as the highest insert asks for. Returns
// the characters without terminator. A printf format has a type of d i u o x X c s S, flags, width, precision
// (each may be "*", which takes an insert in front of the value's) and a size of hh h l ll w I I32 I64. 0
// with an empty text on failure: last error 122 when it does not fit in `size`, 87 a bad format or argument,
// 8 no memory. `flags` must be FORMAT_MESSAGE_FROM_STRING; `messageId` and `language` are not used.
QN_API DWORD FormatMessageW(DWORD flags, const WCHAR* source, DWORD messageId, DWORD language, WCHAR* text,
                            DWORD size, va_list* arguments);

}  // namespace qnplatform
