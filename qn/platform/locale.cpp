#include "qn/platform/locale.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/ucnv_err.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "qn/platform/error_internal.h"

namespace {

struct CodePageName {
  UINT codePage;
  const char* name;
};

// Code pages whose converter has a name that does not follow from the number.
constexpr CodePageName kCodePages[] = {
    {932, "windows-31j"},  {936, "GBK"},           {949, "windows-949"},   {950, "windows-950"},
    {1361, "ibm-1363"},    {20127, "US-ASCII"},    {20866, "KOI8-R"},      {21866, "KOI8-U"},
    {28591, "ISO-8859-1"}, {28592, "ISO-8859-2"},  {28593, "ISO-8859-3"},  {28594, "ISO-8859-4"},
    {28595, "ISO-8859-5"}, {28596, "ISO-8859-6"},  {28597, "ISO-8859-7"},  {28598, "ISO-8859-8"},
    {28599, "ISO-8859-9"}, {28603, "ISO-8859-13"}, {28605, "ISO-8859-15"}, {51932, "EUC-JP"},
    {51949, "EUC-KR"},     {54936, "gb18030"},     {65000, "UTF-7"},       {CP_UTF8, "UTF-8"},
};

std::atomic<UINT> chosenCodePage = 0;

struct CloseConverter {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, CloseConverter>;

Converter OpenByName(const char* name) {
  UErrorCode error = U_ZERO_ERROR;
  Converter converter(ucnv_open(name, &error));
  return U_SUCCESS(error) ? std::move(converter) : nullptr;
}

Converter OpenCodePage(UINT codePage) {
  for (const CodePageName& row : kCodePages) {
    if (row.codePage == codePage) return OpenByName(row.name);
  }
  if (codePage >= 1250 && codePage <= 1258) {
    return OpenByName(("windows-" + std::to_string(codePage)).c_str());
  }
  if (codePage >= 437 && codePage <= 1149) {
    return OpenByName(("ibm-" + std::to_string(codePage)).c_str());
  }
  return nullptr;
}

// The code set of the environment's locale, as in "de_DE.ISO-8859-1@euro"; empty when there is none.
std::string EnvironmentCodeSet() {
  for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* const value = std::getenv(variable);
    if (!value || !*value) continue;
    const std::string_view locale = value;
    const size_t dot = locale.find('.');
    if (dot == std::string_view::npos) return {};
    return std::string(locale.substr(dot + 1, locale.find('@') - dot - 1));
  }
  return {};
}

// Other names that environments have for code pages.
constexpr CodePageName kCodeSets[] = {{932, "SJIS"},  {932, "CP932"}, {936, "GB2312"},
                                      {936, "CP936"}, {949, "CP949"}, {949, "UHC"},
                                      {950, "BIG5"},  {950, "CP950"}, {1361, "JOHAB"}};

UINT EnvironmentCodePage() {
  const std::string codeSet = EnvironmentCodeSet();
  if (codeSet.empty()) return CP_UTF8;
  for (const CodePageName& row : kCodePages) {
    if (ucnv_compareNames(row.name, codeSet.c_str()) == 0) return row.codePage;
  }
  for (const CodePageName& row : kCodeSets) {
    if (ucnv_compareNames(row.name, codeSet.c_str()) == 0) return row.codePage;
  }
  for (UINT codePage = 1250; codePage <= 1258; ++codePage) {
    const std::string number = std::to_string(codePage);
    if (ucnv_compareNames(("CP" + number).c_str(), codeSet.c_str()) == 0) return codePage;
  }
  return CP_UTF8;
}

Converter OpenFor(UINT codePage) {
  return OpenCodePage(codePage == CP_ACP ? GetACP() : codePage);
}

int Fail(DWORD error) {
  SetLastError(error);
  return 0;
}

// The count to report for a conversion that ended with `error` after `count` units, and the last error.
int Finish(UErrorCode error, int count, bool measuring) {
  if (error == U_BUFFER_OVERFLOW_ERROR) return measuring ? count : Fail(ERROR_INSUFFICIENT_BUFFER);
  if (U_FAILURE(error)) return Fail(ERROR_NO_UNICODE_TRANSLATION);
  return count;
}

// Substitution that uses the caller's character and remembers that it did.
struct Substitution {
  char character;
  bool used;
};

void Substitute(const void* context, UConverterFromUnicodeArgs* arguments, const UChar*, int32_t, UChar32,
                UConverterCallbackReason reason, UErrorCode* error) {
  if (reason > UCNV_IRREGULAR) return;
  auto* const substitution = static_cast<Substitution*>(const_cast<void*>(context));
  substitution->used = true;
  *error = U_ZERO_ERROR;
  ucnv_cbFromUWriteBytes(arguments, &substitution->character, 1, 0, error);
}

}  // namespace

inline namespace qnplatform {

UINT GetACP() {
  const UINT chosen = chosenCodePage.load(std::memory_order_relaxed);
  return chosen ? chosen : EnvironmentCodePage();
}

BOOL SetAnsiCodePage(UINT codePage) {
  if (codePage != 0 && !OpenCodePage(codePage)) return qn::FailWith(ERROR_INVALID_PARAMETER);
  chosenCodePage.store(codePage, std::memory_order_relaxed);
  return TRUE;
}

int MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceLength, WCHAR* text,
                        int length) {
  if (!source || sourceLength == 0 || sourceLength < -1 || length < 0 || (length > 0 && !text)) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  const Converter converter = OpenFor(codePage);
  if (!converter) return Fail(ERROR_INVALID_PARAMETER);
  UErrorCode error = U_ZERO_ERROR;
  if (flags & MB_ERR_INVALID_CHARS) {
    ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
  }
  const auto bytes = sourceLength < 0 ? static_cast<int32_t>(std::strlen(source) + 1) : sourceLength;
  const int32_t count = ucnv_toUChars(converter.get(), text, length, source, bytes, &error);
  return Finish(error, count, length == 0);
}

int WideCharToMultiByte(UINT codePage, DWORD, const WCHAR* source, int sourceLength, char* text, int length,
                        const char* defaultChar, BOOL* usedDefault) {
  if (!source || sourceLength == 0 || sourceLength < -1 || length < 0 || (length > 0 && !text)) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  const Converter converter = OpenFor(codePage);
  if (!converter) return Fail(ERROR_INVALID_PARAMETER);
  UErrorCode error = U_ZERO_ERROR;
  Substitution substitution = {defaultChar ? *defaultChar : '?', false};
  // UTF-8 holds every character; a lone surrogate becomes U+FFFD there, as the converter does by itself.
  if (ucnv_getType(converter.get()) != UCNV_UTF8) {
    ucnv_setFromUCallBack(converter.get(), Substitute, &substitution, nullptr, nullptr, &error);
  }
  const auto units =
      sourceLength < 0 ? static_cast<int32_t>(std::char_traits<char16_t>::length(source) + 1) : sourceLength;
  const int32_t count = ucnv_fromUChars(converter.get(), text, length, source, units, &error);
  if (usedDefault) *usedDefault = substitution.used;
  return Finish(error, count, length == 0);
}

}  // namespace qnplatform
