// The print formatter: printf in wide text with a second lead character for the user's locale.
//
// In a format `%` starts a plain conversion and `$` the same one dressed for the user: digits in groups, the
// user's decimal separator. `$(name)` stands for a token's value, `$(1234.5)` for a number in the user's
// dress, and a few conversions give a separator alone. Translated texts carry this language inside them, so
// what each format means is a promise to every catalogue.
//
//   d i u x X o    an integer of 32 bits; of 64 with I64, ll, j, t or a bare I
//   f g G e E      a double
//   z              a fixed-point integer: "%.2z" of 1234 is 12.34
//   s c            a text, a character; narrow ones of the ANSI code page with h
//   * , :          the decimal, list and time separator, no argument
//   !: !. !,       the separators of timecode: whole, non-drop, drop
//   &: &.          the separators of musical time: measure and beat, beat and tick
//
//   // 44,100 Hz, 16 Bit, Stereo
//   QnCchPrintF(text, 64, nullptr, W("$d Hz$, %d Bit$, %s"), 44100, 16, W("Stereo"));
//
// Flags, width, precision and sizes stand between lead and conversion as in printf; `*` takes no argument.
// `%%` and `$%` give "%", `$$` gives "$". An argument is as in printf: int, 64-bit integer, double, pointer.
// What stands there and is no spec of C's prints nothing, but takes its argument. A spec without an end, or
// longer than 260 characters, is copied with a "%" in front.
//
// The dress: `$d`, `$u`, `$f` and `$z` get groups and the user's separators, `$g` the decimal separator;
// `$x`, `$o` and `$e` are as with `%`. "%.2z" has the user's decimal separator too. Padding in front stays in
// front; with padding behind the number, and with more than 9 decimals, the number is left out.
//
// Threads: any number may print at once, and add tokens meanwhile. The locale record has no lock: it changes
// while no other thread prints.
#pragma once

#include <cstdarg>
#include <cstddef>

#include "qn/platform/types.h"
#include "qn/text/qnlang.h"

// What a user's locale says of texts and numbers. Each length counts characters without terminator.
typedef struct QNINTERNATIONALS {
  DWORD size;  // 796
  LCID systemLcid;
  DWORD languageId;  // the locale item's leading decimal digits: 407 for "0407", 40 for "040C"
  WCHAR languageName[64];
  DWORD languageNameLength;
  WCHAR englishLanguageName[64];
  DWORD englishLanguageNameLength;
  DWORD countryCode;
  WCHAR countryName[64];
  DWORD countryNameLength;
  WCHAR englishCountryName[64];
  DWORD englishCountryNameLength;
  WCHAR negativeSign[8];
  DWORD negativeSignLength;
  WCHAR inputNegativeSign[8];
  DWORD inputNegativeSignLength;
  WCHAR thousandsSeparator[8];
  DWORD thousandsSeparatorLength;
  WCHAR decimalSeparator[8];
  DWORD decimalSeparatorLength;
  DWORD grouping;
  DWORD digits;
  DWORD leadingZero;
  WCHAR timeSeparator[8];
  DWORD timeSeparatorLength;
  WCHAR listSeparator[8];
  DWORD listSeparatorLength;
  DWORD measurement;
  WCHAR smpteWholeSeparator[8];
  DWORD smpteWholeSeparatorLength;
  WCHAR smpteNonDropSeparator[8];
  DWORD smpteNonDropSeparatorLength;
  WCHAR smpteDropSeparator[8];
  DWORD smpteDropSeparatorLength;
  WCHAR languageIdText[4];
  DWORD languageIdTextLength;
  DWORD reserved;
  WCHAR measureBeatSeparator[8];
  DWORD measureBeatSeparatorLength;
  WCHAR beatTickSeparator[8];
  DWORD beatTickSeparatorLength;
} QNINTERNATIONALS;
static_assert(sizeof(QNINTERNATIONALS) == 796);
static_assert(offsetof(QNINTERNATIONALS, countryCode) == 276 &&
              offsetof(QNINTERNATIONALS, negativeSign) == 544);
static_assert(offsetof(QNINTERNATIONALS, thousandsSeparator) == 584);
static_assert(offsetof(QNINTERNATIONALS, decimalSeparator) == 604 &&
              offsetof(QNINTERNATIONALS, grouping) == 624);
static_assert(offsetof(QNINTERNATIONALS, timeSeparator) == 636 &&
              offsetof(QNINTERNATIONALS, measurement) == 676);
static_assert(offsetof(QNINTERNATIONALS, languageIdText) == 740);
static_assert(offsetof(QNINTERNATIONALS, measureBeatSeparator) == 756);

extern "C" {

// Printing. The length of the result in characters, without terminator. The caller provides the room. One
// text conversion gives at most 1024 characters. With a null buffer, or format, nothing is printed: 0.
QN_API int QnVPrintF(WCHAR* buffer, const WCHAR* format, va_list arguments);
QN_API int QnPrintF(WCHAR* buffer, const WCHAR* format, ...);

// Printing into a room of `size` characters with the terminator, which is always there. `*lengthOut`, if
// given, receives the length. What does not fit is cut, a number in part or whole left out.
//   0             all of it fits
//   0x8004E03C    something did not fit
//   0x8007007A    a text or character conversion did not fit in the room that was left, if there was any
//   E_INVALIDARG  no format (an empty text), no buffer or no room for the terminator (nothing is written)
QN_API HRESULT QnNVPrintF(WCHAR* buffer, int size, int* lengthOut, const WCHAR* format, va_list arguments);
QN_API HRESULT QnCchPrintF(WCHAR* buffer, int size, int* lengthOut, const WCHAR* format, ...);

// Fills the inserts %1, %2, ... of a text, each a wide string unless a printf format follows it between "!"s.
// This is the one path on which %1 means an insert; it knows no `$`. Returns the length; 0, with an empty
// text, if it does not fit in `size` characters with the terminator, and for null arguments.
QN_API int QnComposeStr(WCHAR* buffer, int size, const WCHAR* format, ...);

// Adds a token, or gives it another value; both texts are copied. A name is any text without ")", compared
// without regard to case; a format finds it if it has at most 260 characters. A value is copied as it is: its
// `%` and `$` mean nothing. Nonzero on success, 0 for a null name and when there is no memory.
QN_API BOOL QnPrintF_AddToken(const WCHAR* name, const WCHAR* value);

// Removes a token; nonzero if it was there.
QN_API BOOL QnPrintF_DeleteToken(const WCHAR* name);

// Copies the locale record, at most `size` bytes of it, and stores that count in the copy's first field: 0,
// or E_INVALIDARG for a size below that field's. With null the record is read anew from the user's locale,
// which empties the language id text, and the default tokens are set from it: 0. The tokens are SMPTE.Whole,
// SMPTE.NonDrop, SMPTE.Drop, m.b and b.t, the separators, and SMPTE.Label.NonDrop, SMPTE.Label.Drop,
// MusicTime.Label, each also with .Full behind it, the names of the fields in the library's language.
QN_API HRESULT QnLang_GetInternationals(QNINTERNATIONALS* record, DWORD size);

// Stores the language's abbreviation, up to 3 characters ("ENU" for a null or empty text), in the locale
// record. 0, or 0x8007007A when it was cut to them.
QN_API HRESULT QnSetLangID(const WCHAR* text);

// One value of the locale record: 0 system LCID, 1 language id, 4 country code as results; 2 and 3 language
// name, 24 decimal, 40 list, 60 time separator, 100 to 102 SMPTE whole, non-drop, drop separator, 120 measure
// and beat, 121 beat and tick separator as texts of which the length is returned. Any other index gives an
// empty text and 0. `text` has room for 64 characters, and may be null for the numbers; the N form copies at
// most `size` characters with the terminator.
QN_API int QnGetInat(int index, WCHAR* text);
QN_API int QnGetInatN(int index, WCHAR* text, int size);

// Window texts. Each makes its text by a format, sets it and returns its length, or 0 if that failed and for
// a null format or item text. The text has at most 2047 characters, but a format without `%` and `$` is set
// as it is, however long. The NoF forms take a text in which nothing is a format, at most 1024 characters,
// the Id forms a string id of `language`. The NoFlash forms set nothing when an equal text of less than 8192
// characters is there already.
QN_API int QnSetWindowTextF(HWND window, const WCHAR* format, ...);
QN_API int QnSetWindowTextNoF(HWND window, const WCHAR* text);
QN_API int QnSetWindowTextId(HQNLANG language, HWND window, UINT id, ...);
QN_API int QnSetDlgItemTextF(HWND dialog, int item, const WCHAR* format, ...);
QN_API int QnSetDlgItemTextNoF(HWND dialog, int item, const WCHAR* text);
QN_API int QnSetDlgItemTextId(HQNLANG language, HWND dialog, int item, UINT id, ...);
QN_API int QnSetDlgItemTextNoFlashF(HWND dialog, int item, const WCHAR* format, ...);
QN_API int QnSetDlgItemTextNoFlashNoF(HWND dialog, int item, const WCHAR* text);

// Adds a line of at most 2047 characters to the end of a multi-line edit control that shows a log, and
// returns its length without the line end. Leading "~" are dropped and keep the line end away. A null format
// empties the control: 0.
QN_API int QnMEditPrintF(HWND edit, const WCHAR* format, ...);
}
