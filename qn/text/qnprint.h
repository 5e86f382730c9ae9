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
//   s c            a text, a character
//   * , :          the decimal, list and time separator, no argument
//   !: !. !,       the separators of timecode: whole, non-drop, drop
//   &: &.          the separators of musical time: measure and beat, beat and tick
//
//   QnCchPrintF(text, 64, nullptr, W("$d Hz$, %d Bit$, %s"), 44100, 16, W("Stereo"));  // 44,100 Hz, 16 Bit,
//   ...
//
// Flags, width, precision and sizes stand between lead and conversion as in printf. `%%` and `$%` give "%",
// `$$` gives "$". An argument is as in printf: int, 64-bit integer, double, pointer.
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

// Printing. The unbounded forms return the length of the result; the caller provides the room. The bounded
// forms write at most `size` characters with the terminator, which is always there, and give 0, or 0x8004E03C
// when something did not fit; `*lengthOut`, if given, receives the length.
QN_API int QnVPrintF(WCHAR* buffer, const WCHAR* format, va_list arguments);
QN_API int QnPrintF(WCHAR* buffer, const WCHAR* format, ...);
QN_API HRESULT QnNVPrintF(WCHAR* buffer, int size, int* lengthOut, const WCHAR* format, va_list arguments);
QN_API HRESULT QnCchPrintF(WCHAR* buffer, int size, int* lengthOut, const WCHAR* format, ...);

// Fills the inserts %1, %2, ... of a text, each a wide string unless a printf format follows it between "!"s.
// This is the one path on which %1 means an insert; it knows no `$`. Returns the length, 0 on failure.
QN_API int QnComposeStr(WCHAR* buffer, int size, const WCHAR* format, ...);

// Adds a token, or gives it another value; its name is compared without regard to case. Nonzero on success, 0
// for a null name and when there is no memory.
QN_API BOOL QnPrintF_AddToken(const WCHAR* name, const WCHAR* value);

// Removes a token; nonzero if it was there.
QN_API BOOL QnPrintF_DeleteToken(const WCHAR* name);

// Copies the locale record, at most `size` bytes of it, and stores that count in the copy's first field. With
// null it is read anew from the user's locale, with the default tokens, while no other thread formats. 0.
QN_API HRESULT QnLang_GetInternationals(QNINTERNATIONALS* record, DWORD size);

// Stores the language's abbreviation, up to 3 characters ("ENU" for a null or empty text), in the locale
// record. 0, or the status of a cut copy.
QN_API HRESULT QnSetLangID(const WCHAR* text);

// One value of the locale record: 0 system LCID, 1 language id, 4 country code as results; 2 and 3 language
// name, 24 decimal, 40 list, 60 time separator, 100 to 102 SMPTE whole, non-drop, drop separator, 120 measure
// and beat, 121 beat and tick separator as texts of which the length is returned. Any other index gives an
// empty text and 0. The N form copies at most `size` characters with the terminator.
QN_API int QnGetInat(int index, WCHAR* text);
QN_API int QnGetInatN(int index, WCHAR* text, int size);

// Window texts. Each makes its text by a format (the NoF forms take the text as it is, the Id forms a string
// id of `language`), sets it and returns its length, or 0 if that failed. The NoFlash forms set nothing when
// the text is there already.
QN_API int QnSetWindowTextF(HWND window, const WCHAR* format, ...);
QN_API int QnSetWindowTextNoF(HWND window, const WCHAR* text);
QN_API int QnSetWindowTextId(HQNLANG language, HWND window, UINT id, ...);
QN_API int QnSetDlgItemTextF(HWND dialog, int item, const WCHAR* format, ...);
QN_API int QnSetDlgItemTextNoF(HWND dialog, int item, const WCHAR* text);
QN_API int QnSetDlgItemTextId(HQNLANG language, HWND dialog, int item, UINT id, ...);
QN_API int QnSetDlgItemTextNoFlashF(HWND dialog, int item, const WCHAR* format, ...);
QN_API int QnSetDlgItemTextNoFlashNoF(HWND dialog, int item, const WCHAR* text);

// Adds a line to a multi-line edit control that shows a log, and returns its length. Leading "~" are dropped
// and keep the line end away. A null format empties the control.
QN_API int QnMEditPrintF(HWND edit, const WCHAR* format, ...);
}
