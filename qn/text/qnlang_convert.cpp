// Short-lived conversions in a handle's ring, and the detection of code pages.
#include <algorithm>
#include <span>
#include <string>

#include "qn/text/qnlang_internal.h"

namespace {

constexpr char kNoBytes[] = "";
constexpr HRESULT kNoSureCodePage = MakeStatus(0x8004E1FD);

// Characters from a place in a handle's ring to the ring's end.
LONG RoomBehind(const tQNLANG* language, const WCHAR* place) {
  return static_cast<LONG>(language->ring + language->ringSize - place);
}

// True for a text that no place in the ring could hold.
bool IsTooLong(const tQNLANG* language, size_t length) {
  return length >= language->ringSize;
}

}  // namespace

const WCHAR* QnGetPrintFromWideString(HQNLANG language, const WCHAR* text) {
  return language && language->ring ? text : qn::kNoText;
}

const char* QnGetMultiByteFromPrintString(HQNLANG language, const WCHAR* text) {
  if (!text || !language || !language->ring) return kNoBytes;
  const size_t length = std::char_traits<WCHAR>::length(text);
  if (IsTooLong(language, length)) return kNoBytes;
  const auto units = static_cast<int>(length) + 1;
  // Two bytes a character do for the code pages of two-byte characters; UTF-8 may need more.
  const int needed = WideCharToMultiByte(CP_ACP, 0, text, units, nullptr, 0, nullptr, nullptr);
  const LONG characters = std::max(static_cast<LONG>(length), (needed + 1) / 2 - 1);
  WCHAR* const place = QnGetTempStringBuffer(language, characters);
  if (characters + 1 > RoomBehind(language, place)) return kNoBytes;
  auto* const bytes = reinterpret_cast<char*>(place);
  const int size = (characters + 1) * 2;
  return WideCharToMultiByte(CP_ACP, 0, text, units, bytes, size, nullptr, nullptr) ? bytes : kNoBytes;
}

const WCHAR* QnGetPrintFromMultiByteString(HQNLANG language, const char* text) {
  if (!text || !language || !language->ring) return qn::kNoText;
  const size_t length = std::char_traits<char>::length(text);
  if (IsTooLong(language, length)) return qn::kNoText;
  const auto units = static_cast<int>(length) + 1;
  WCHAR* const place = QnGetTempStringBuffer(language, units - 1);
  if (units > RoomBehind(language, place)) return qn::kNoText;
  return MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, text, units, place, units) ? place : qn::kNoText;
}

int QnLang_DetectMultiByteCharacters(const char* bytes, int length) {
  if (!bytes || length < 2 || _getmbcp() == 0) return 0;
  int type = _MBC_SINGLE;
  for (int i = 0; i < length && bytes[i] != 0; i++) {
    type = _mbbtype(static_cast<BYTE>(bytes[i]), type);
    if (type == _MBC_TRAIL) return 1;
  }
  return 0;
}

HRESULT QnLang_DetectPossibleCodepage(const char* bytes, int length, DWORD* codePageOut) {
  if (!codePageOut) return E_INVALIDARG;
  constexpr DWORD kDetectionFlag = 2;
  constexpr int kMostResults = 10;
  constexpr int kSure = 100;  // percent
  DetectEncodingInfo results[kMostResults];
  int count = kMostResults;
  const HRESULT status = DetectInputCodepage(kDetectionFlag, 0, bytes, &length, results, &count);
  if (FAILED(status)) return status;
  DetectEncodingInfo best = {};
  for (const DetectEncodingInfo& result : std::span(results, static_cast<size_t>(count))) {
    if (result.nDocPercent == kSure && result.nConfidence > best.nConfidence) best = result;
  }
  if (best.nConfidence < kSure) best.nCodePage = 0;
  *codePageOut = best.nCodePage;
  return best.nConfidence < kSure ? kNoSureCodePage : S_OK;
}
