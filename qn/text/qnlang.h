// Texts in all languages: multilingual records and string ids, bound to a language by a handle.
//
// Every text that a user reads is either a record that holds all its translations, `qnlang_t`, or a numeric
// string id in a module's resources. A language handle binds a module to a current language and gives the
// text for either form. The library has a handle of its own; each application and plug-in opens its own.
//
//   HQNLANG language;
//   QnLang_Open(&language, ModuleFromAddress(kMyResources), 0, 0);
//   QnLang_UpdateLCID(language, GetUserDefaultUILanguage());
//   Show(QnGetString(language, 101));       // a string id
//   Show(QnGetString(language, kMyRecord)); // a record
//
// Threads: texts may be looked up by several threads at once. A change of language frees the texts of string
// ids given out before, so it belongs to moments when no other thread reads them.
#pragma once

#include <cstddef>

#include "qn/kernel/qnlist.h"
#include "qn/platform/locale.h"
#include "qn/platform/module.h"
#include "qn/platform/sync.h"
#include "qn/platform/types.h"

constexpr WORD QNLANG_MARKER = 0xFFFE;  // never the start of a UTF-16 text
constexpr int QNLANG_COUNT = 18;        // languages of the table

// A text in all languages, as data of a module. A pointer to a record, in the form of its conversion, stands
// where a function takes a text "or record".
//
// The entries follow the table of languages: English (LCID 0x409), Japanese (411), German (407), Spanish
// (40A), French (40C), Chinese, Simplified (804) and Traditional (404), Danish (406), Finnish (40B), Italian
// (410), Korean (412), Dutch (413), Norwegian (414), Portuguese of Brazil (416) and of Portugal (816),
// Russian (419), Swedish (41D), Polish (415). A record of fewer languages shows its last one for those it
// lacks.
//
// An entry is a wide string, or below 0x10000 a string id in the module's resources that the first use
// replaces by the text found, so records live in writable memory. Such a text has to end in a terminator in
// the resource. An id is looked up in the language that FOLLOWS the active one in the table (neutral behind
// the last): hosts lay their resources out for that. If that fails the English entry takes its place.
struct alignas(8) qnlang_t {
  WORD marker;  // QNLANG_MARKER
  BYTE count;   // entries of this record; one of fewer than QNLANG_COUNT may be shorter in memory
  BYTE zero[5];
  const WCHAR* text[QNLANG_COUNT];

  operator const WCHAR* const*() const { return reinterpret_cast<const WCHAR* const*>(this); }
};
static_assert(sizeof(qnlang_t) == 8 + 8 * QNLANG_COUNT && offsetof(qnlang_t, text) == 8);

// A language handle. The order of the fields is public; hosts read `module` and `lcid`.
typedef struct tQNLANG {
  HMODULE module;
  BOOL lockInitialised;
  CRITICAL_SECTION lock;  // guards the cache and the ring
  DWORD ringSize;         // characters
  DWORD ringReserve;      // 1024
  DWORD ringPosition;     // next free character
  WCHAR* ring;            // texts of QnGetTempStringBuffer
  BOOL useLanguage;       // the language is not English
  DWORD lcid;             // 0 until set
  LONG activeIndex;       // position in the language table from 1; 0: not worked out yet
  tQNLIST* cache;         // texts by string id
} tQNLANG;
static_assert(offsetof(tQNLANG, lock) == 16 && offsetof(tQNLANG, ringSize) == 56);
static_assert(offsetof(tQNLANG, ringPosition) == 64 && offsetof(tQNLANG, ring) == 72);
static_assert(offsetof(tQNLANG, useLanguage) == 80 && offsetof(tQNLANG, lcid) == 84);
static_assert(offsetof(tQNLANG, activeIndex) == 88 && offsetof(tQNLANG, cache) == 96 &&
              sizeof(tQNLANG) == 104);
typedef tQNLANG* HQNLANG;

// Overloads: a string id, or a record.

// The text of a string id, at most 1023 characters of it, without a leading marker "^*". It is looked up in
// the handle's language, then in English, and kept: it lives until the handle's language changes or the
// handle is closed. Never null: the empty text stands for a missing one, for a null handle and when there is
// no memory.
QN_API const WCHAR* QnGetString(HQNLANG language, UINT id);

// The text of a record in the handle's language, English if that is not in the table of languages. A handle
// without language takes the user-interface language of the user. The text is the record's own and stays.
// Never null: English for a null handle, the empty text for what is no record or has no text at all.
QN_API const WCHAR* QnGetString(HQNLANG language, const WCHAR* const* record);

// The same, without a leading marker "^*", copied to `text` of `size` characters and cut to it; returns the
// length stored. A string id's text of any length is read anew each time.
QN_API int QnLoadString(HQNLANG language, UINT id, WCHAR* text, int size);
QN_API int QnLoadString(HQNLANG language, const WCHAR* const* record, WCHAR* text, int size);

extern "C" {

// Opens a handle for a module's texts.
//   languageOut  receives the handle and stays as it was on failure; close it with QnLang_Close
//   module       whose resources hold the texts of string ids; null: the executable
//   lcid         the language of records; 0 leaves it open. String ids are English until QnLang_UpdateLCID
//   ringSize     characters of the ring for short-lived texts; 0: 8192; at least 2048
// 0, E_OUTOFMEMORY, or E_INVALIDARG for a null `languageOut`.
QN_API HRESULT QnLang_Open(HQNLANG* languageOut, HMODULE module, DWORD lcid, LONG ringSize);

// Closes a handle and frees all of its texts; null is allowed. 0.
QN_API HRESULT QnLang_Close(HQNLANG language);

// `text` itself when it is null or a plain text, else the text of the string id (below 0x10000) or record
// that stands in its place.
QN_API const WCHAR* QnGetStringSmart(HQNLANG language, const WCHAR* text);

// Nonzero if `text` is a record: neither null nor a string id, aligned to 4 bytes, starting with the marker.
// The handle is not used.
QN_API BOOL IsQNLANGSTRINGID(HQNLANG language, const WCHAR* text);

// The handle's module and language; null and 0 for a null handle.
QN_API HMODULE QnLang_InstFromLang(HQNLANG language);
QN_API DWORD QnLang_GetLCID(HQNLANG language);

// The LCID by which languages are compared: Chinese as Traditional, 1028 (sublanguages 1, 3, 5), or
// Simplified, 2052; Portuguese as it is; any other language with its first sublanguage.
QN_API DWORD QnLang_GetConditionedLCID(DWORD lcid);

// The three-letter name of the conditioned LCID ("DEU"); that of the user's locale for a handle without
// language and for null. 1, or 0 with an empty text, also when `size` is too small.
QN_API BOOL QnLang_GetLangAbbrev(HQNLANG language, WCHAR* text, int size);

// The tag of the language for eight of them ("zh-CN", "de-DE", "es-ES", "fr-FR", "ja-JP", "ko-KR", "pl-PL",
// "pt-BR"), told apart by the primary language and cut to `size`. Hosts rely on the result, which is no
// boolean of success: 0 for a known language, 1 with an empty text for all others, English too.
QN_API int QnLang_GetLangllCC(HQNLANG language, WCHAR* text, int size);

// Nonzero for Arabic, Hebrew, Urdu and Farsi.
QN_API BOOL QnLang_UseRTL(HQNLANG language);

// Makes new windows of the process right-to-left, or left-to-right again. Nonzero on success.
QN_API BOOL QnLang_EnableProcessMirroring();
QN_API BOOL QnLang_DisableProcessMirroring();

// Changes the language; 0 means 1033. Frees the texts of string ids given out before, if the LCID is another
// one. From now on string ids are looked up in the language too. 1, or 0 for a null handle.
QN_API BOOL QnLang_UpdateLCID(HQNLANG language, DWORD lcid);

// Changes the language of a handle and of the library's own; 0, with no change, if either is missing.
QN_API BOOL _QnLang_UpdateKernelLCID(HQNLANG language, DWORD lcid);

// Changes the language of the library's own handle, and the process layout to suit it: right-to-left exactly
// for the languages of QnLang_UseRTL. 1, or 0 with no change if there is no such handle.
QN_API BOOL _QnLang_UpdateKernelOnlyLCID(DWORD lcid);

// Makes the handle's language the thread's locale and user-interface language; 0 for a null handle.
QN_API void _QnLang_UpdateThreadLocale(HQNLANG language);

// Nonzero for English of any country.
QN_API BOOL QnLang_IsLCIDEnglish(DWORD lcid);

// Nonzero for the LCID 1041, Japanese, where the family name comes first.
QN_API BOOL QnLang_IsNameOrderReversed(HQNLANG language);

// A user's name in the order of the language, the two names divided by a blank, cut to `size`; the length
// stored. A null name is an empty one.
QN_API int QnLang_LocalizeUserName(HQNLANG language, const WCHAR* first, const WCHAR* last, WCHAR* text,
                                   int size);

// The language that a user has chosen for an application, the REG_DWORD value "ULangID" of the registry key
// Software\<company>\<application>\<major>.<minor>\Lang. `version` has the major version from bit 20 up and
// the minor one in bits 16 to 19; with `anyVersion`, or major 0, the key has no version. The AppReg forms
// take the company, the others use the library's.
//
// Reading takes the user's key, and the machine's if the user has none: 1, or 0 with `*lcidOut` as it was.
// Writing makes the user's key and stores the low 16 bits: 1, or 0 if that failed.
QN_API BOOL QnLang_LoadUserLCIDMetric(const WCHAR* application, DWORD version, DWORD* lcidOut,
                                      BOOL anyVersion);
QN_API BOOL QnLang_LoadUserLCIDMetricAppReg(const WCHAR* application, DWORD version, DWORD* lcidOut,
                                            const WCHAR* company);
QN_API BOOL QnLang_SaveUserLCIDMetric(const WCHAR* application, DWORD version, DWORD lcid, BOOL anyVersion);
QN_API BOOL QnLang_SaveUserLCIDMetricAppReg(const WCHAR* application, DWORD version, DWORD lcid,
                                            const WCHAR* company);

// A resource of the handle's module in its language (unless that is English or not set), then as without a
// language. Of several types the first that is there in the language, then the first without; its index goes
// to `*foundIndex`, if given, which stays as it was otherwise. Null when there is none, for a null handle,
// and for a `typeCount` below 1.
QN_API HRSRC QnFindResource(HQNLANG language, const WCHAR* name, const WCHAR* type);
QN_API HRSRC QnFindResourceMulti(HQNLANG language, const WCHAR* name, const WCHAR* const* types,
                                 int typeCount, int* foundIndex);

// The three-letter names of the languages that the module's version text of number `id` comes in, each with a
// comma in front, also the first: ",DEU,FRA". As many as fit in 259 characters, cut to `size`; the length
// stored. Empty while the handle's language is English or not set.
QN_API int QnEnumResourceLanguages(HQNLANG language, UINT id, WCHAR* text, int size);

// A place for a short-lived text of `characters` characters and a terminator in the handle's ring,
// overwritten in time. It has room for ringReserve characters at least, whatever `characters` says, and a
// caller must not use more; with 0 an empty text stands there. Null for a null handle and without a ring.
QN_API WCHAR* QnGetTempStringBuffer(HQNLANG language, LONG characters);

// Conversions of short-lived texts: the text as it is (null too); and in the ring to and from the ANSI code
// page. An empty text without a ring, and from the latter two for null, on failure, and when the result does
// not fit between its place and the ring's end; a text within the reserve always does, one of UTF-8 if its
// bytes do.
QN_API const WCHAR* QnGetPrintFromWideString(HQNLANG language, const WCHAR* text);
QN_API const char* QnGetMultiByteFromPrintString(HQNLANG language, const WCHAR* text);
QN_API const WCHAR* QnGetPrintFromMultiByteString(HQNLANG language, const char* text);

// 1 if bytes, up to `length` or a zero byte, hold a two-byte character of the process's multibyte code page;
// 0 for null, fewer than 2 bytes, and when the code page has no such characters.
QN_API int QnLang_DetectMultiByteCharacters(const char* bytes, int length);

// The code page that bytes are surely in. 0, or 0x8004E1FD with `*codePageOut` 0 when none is sure. A failure
// of the detection itself comes back as it is, E_INVALIDARG for a null argument, with `*codePageOut` as it
// was.
QN_API HRESULT QnLang_DetectPossibleCodepage(const char* bytes, int length, DWORD* codePageOut);
}
