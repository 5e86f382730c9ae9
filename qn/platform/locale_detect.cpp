// What bytes of unknown origin are: lead and trail bytes of the ANSI code page, and guesses of a code page.

#include <unicode/ucnv.h>
#include <unicode/ucnv_err.h>
#include <unicode/ucsdet.h>
#include <unicode/uloc.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>

#include "qn/platform/locale.h"

namespace {

struct ByteRange {
  BYTE first;
  BYTE last;

  constexpr bool Has(BYTE byte) const { return byte >= first && byte <= last; }
};

// Unused ranges are those of 0 alone, which is neither lead nor trail anywhere.
struct DoubleByteCodePage {
  int codePage;
  ByteRange lead[3];
  ByteRange trail[3];
  ByteRange single;  // beside ASCII
};

constexpr DoubleByteCodePage kDoubleByteCodePages[] = {
    {932, {{0x81, 0x9F}, {0xE0, 0xFC}}, {{0x40, 0x7E}, {0x80, 0xFC}}, {0xA1, 0xDF}},
    {936, {{0x81, 0xFE}}, {{0x40, 0x7E}, {0x80, 0xFE}}, {}},
    {949, {{0x81, 0xFE}}, {{0x41, 0x5A}, {0x61, 0x7A}, {0x81, 0xFE}}, {}},
    {950, {{0x81, 0xFE}}, {{0x40, 0x7E}, {0xA1, 0xFE}}, {}},
    {1361, {{0x84, 0xD3}, {0xD8, 0xDE}, {0xE0, 0xF9}}, {{0x31, 0x7E}, {0x81, 0xFE}}, {}},
};

const DoubleByteCodePage* AnsiDoubleByte() {
  const auto codePage = static_cast<int>(GetACP());
  const auto* const found =
      std::find_if(std::begin(kDoubleByteCodePages), std::end(kDoubleByteCodePages),
                   [codePage](const DoubleByteCodePage& row) { return row.codePage == codePage; });
  return found == std::end(kDoubleByteCodePages) ? nullptr : found;
}

bool HasByte(const ByteRange (&ranges)[3], BYTE byte) {
  return byte != 0 && std::any_of(std::begin(ranges), std::end(ranges),
                                  [byte](const ByteRange& r) { return r.Has(byte); });
}

struct DetectedCharset {
  const char* name;
  DWORD codePage;
};

constexpr DetectedCharset kCharsets[] = {
    {"UTF-8", CP_UTF8},     {"UTF-16LE", 1200},     {"UTF-16BE", 1201},     {"UTF-32LE", 12000},
    {"UTF-32BE", 12001},    {"Shift_JIS", 932},     {"GB18030", 54936},     {"EUC-JP", 51932},
    {"EUC-KR", 51949},      {"Big5", 950},          {"ISO-2022-JP", 50220}, {"ISO-2022-KR", 50225},
    {"ISO-2022-CN", 50227}, {"ISO-8859-1", 28591},  {"ISO-8859-2", 28592},  {"ISO-8859-5", 28595},
    {"ISO-8859-6", 28596},  {"ISO-8859-7", 28597},  {"ISO-8859-8", 28598},  {"ISO-8859-8-I", 38598},
    {"ISO-8859-9", 28599},  {"windows-1250", 1250}, {"windows-1251", 1251}, {"windows-1252", 1252},
    {"windows-1253", 1253}, {"windows-1254", 1254}, {"windows-1255", 1255}, {"windows-1256", 1256},
    {"KOI8-R", 20866},
};

// Seven-bit text without the controls by which other codes shift; a terminator at the end may count.
bool IsAscii(const char* bytes, int length) {
  if (bytes[length - 1] == 0) --length;
  return length > 0 && std::all_of(bytes, bytes + length, [](char c) { return c > 0 && c != 0x1B; });
}

void CountIllFormed(const void* context, UConverterToUnicodeArgs*, const char*, int32_t length,
                    UConverterCallbackReason reason, UErrorCode* error) {
  if (reason > UCNV_IRREGULAR) return;
  *static_cast<int64_t*>(const_cast<void*>(context)) += length;
  *error = U_ZERO_ERROR;
}

// The percentage of bytes that are well-formed in a charset, rounded down.
int WellFormedPercent(const char* charset, const char* bytes, int length) {
  UErrorCode error = U_ZERO_ERROR;
  const std::unique_ptr<UConverter, decltype(&ucnv_close)> converter(ucnv_open(charset, &error), ucnv_close);
  int64_t illFormed = 0;
  ucnv_setToUCallBack(converter.get(), CountIllFormed, &illFormed, nullptr, nullptr, &error);
  WCHAR text[512];
  for (const char* rest = bytes; U_SUCCESS(error);) {
    WCHAR* end = text;
    ucnv_toUnicode(converter.get(), &end, std::end(text), &rest, bytes + length, nullptr, true, &error);
    if (error != U_BUFFER_OVERFLOW_ERROR) break;
    error = U_ZERO_ERROR;
  }
  return U_SUCCESS(error) ? static_cast<int>((length - illFormed) * 100 / length) : 0;
}

// Fills `info` from a guess; false when its charset has no code page.
bool Describe(const UCharsetMatch* match, const char* bytes, int length, DetectEncodingInfo* info) {
  UErrorCode error = U_ZERO_ERROR;
  const char* const name = ucsdet_getName(match, &error);
  const char* const language = ucsdet_getLanguage(match, &error);
  const int32_t confidence = ucsdet_getConfidence(match, &error);
  if (U_FAILURE(error)) return false;
  const auto* const row =
      std::find_if(std::begin(kCharsets), std::end(kCharsets),
                   [name](const DetectedCharset& r) { return !std::strcmp(r.name, name); });
  if (row == std::end(kCharsets)) return false;
  *info = {uloc_getLCID(language) & 0x3FF, row->codePage, WellFormedPercent(name, bytes, length), confidence};
  return true;
}

}  // namespace

inline namespace qnplatform {

int _getmbcp() {
  const DoubleByteCodePage* const page = AnsiDoubleByte();
  return page ? page->codePage : 0;
}

int _mbbtype(BYTE byte, int previousType) {
  const DoubleByteCodePage* const page = AnsiDoubleByte();
  if (previousType == _MBC_LEAD) return page && HasByte(page->trail, byte) ? _MBC_TRAIL : _MBC_ILLEGAL;
  if (byte >= 0x20 && byte < 0x7F) return _MBC_SINGLE;
  if (!page) return byte > 0x7F ? _MBC_SINGLE : _MBC_ILLEGAL;
  if (HasByte(page->lead, byte)) return _MBC_LEAD;
  return byte > 0x7F && page->single.Has(byte) ? _MBC_SINGLE : _MBC_ILLEGAL;
}

HRESULT DetectInputCodepage(DWORD, DWORD, const char* bytes, int* length, DetectEncodingInfo* results,
                            int* count) {
  if (!bytes || !length || !results || !count || *length < 0 || *count < 0) return E_INVALIDARG;
  const int room = *count;
  *count = 0;
  if (*length == 0 || room == 0) return S_FALSE;
  if (IsAscii(bytes, *length)) {
    results[(*count)++] = {0, 20127, 100, 100};
    return S_OK;
  }
  UErrorCode error = U_ZERO_ERROR;
  const std::unique_ptr<UCharsetDetector, decltype(&ucsdet_close)> detector(ucsdet_open(&error),
                                                                            ucsdet_close);
  ucsdet_setText(detector.get(), bytes, *length, &error);
  int32_t found = 0;
  const UCharsetMatch** const matches = ucsdet_detectAll(detector.get(), &found, &error);
  if (U_FAILURE(error)) return E_FAIL;
  for (int32_t i = 0; i < found && *count < room; ++i) {
    if (Describe(matches[i], bytes, *length, &results[*count])) ++*count;
  }
  return *count > 0 ? S_OK : S_FALSE;
}

}  // namespace qnplatform
