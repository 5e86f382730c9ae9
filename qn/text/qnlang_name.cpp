// Facts of a language: how it is compared, its names, the directions of its texts and of a person's name.
#include <algorithm>
#include <iterator>

#include "qn/platform/winuser.h"
#include "qn/text/qnlang_internal.h"

namespace {

constexpr DWORD kChinese = 4;
constexpr DWORD kPortuguese = 22;

struct LanguageTag {
  DWORD primary;
  std::u16string_view text;
};
constexpr LanguageTag kTags[] = {{4, W("zh-CN")},  {7, W("de-DE")},  {10, W("es-ES")}, {12, W("fr-FR")},
                                 {17, W("ja-JP")}, {18, W("ko-KR")}, {21, W("pl-PL")}, {22, W("pt-BR")}};

constexpr DWORD kRightToLeft[] = {1, 13, 32, 41};  // Arabic, Hebrew, Urdu, Farsi

}  // namespace

DWORD QnLang_GetConditionedLCID(DWORD lcid) {
  const DWORD primary = qn::PrimaryLanguage(lcid);
  const DWORD sub = (lcid & 0xFFFF) >> 10;
  if (primary == kChinese) return sub == 1 || sub == 3 || sub == 5 ? 1028 : 2052;
  if (primary == kPortuguese) return lcid;  // that of Brazil and that of Portugal are two languages
  return primary | 0x400;
}

BOOL QnLang_GetLangAbbrev(HQNLANG language, WCHAR* text, int size) {
  if (!text || size < 1) return FALSE;
  const DWORD lcid = QnLang_GetConditionedLCID(QnLang_GetLCID(language));
  if (GetLocaleInfoW(lcid, LOCALE_SABBREVLANGNAME, text, size) != 0) return TRUE;
  *text = 0;
  return FALSE;
}

int QnLang_GetLangllCC(HQNLANG language, WCHAR* text, int size) {
  const DWORD primary = qn::PrimaryLanguage(QnLang_GetLCID(language));
  const auto* const found = std::find_if(std::begin(kTags), std::end(kTags),
                                         [=](const LanguageTag& tag) { return tag.primary == primary; });
  const bool known = found != std::end(kTags);
  qn::CopyText(known ? found->text : std::u16string_view(), text, size);
  return known ? 0 : 1;
}

BOOL QnLang_UseRTL(HQNLANG language) {
  const DWORD primary = qn::PrimaryLanguage(QnLang_GetLCID(language));
  return std::find(std::begin(kRightToLeft), std::end(kRightToLeft), primary) != std::end(kRightToLeft);
}

BOOL QnLang_EnableProcessMirroring() {
  return SetProcessDefaultLayout(LAYOUT_RTL);
}

BOOL QnLang_DisableProcessMirroring() {
  return SetProcessDefaultLayout(0);
}

void _QnLang_UpdateThreadLocale(HQNLANG language) {
  const DWORD lcid = QnLang_GetLCID(language);
  SetThreadLocale(lcid);
  InitMUILanguage(static_cast<LANGID>(lcid));
}

BOOL QnLang_IsLCIDEnglish(DWORD lcid) {
  return qn::PrimaryLanguage(lcid) == qn::PrimaryLanguage(qn::kEnglish);
}

BOOL QnLang_IsNameOrderReversed(HQNLANG language) {
  return QnLang_GetLCID(language) == qn::kJapanese;
}

int QnLang_LocalizeUserName(HQNLANG language, const WCHAR* first, const WCHAR* last, WCHAR* text, int size) {
  if (!first) first = qn::kNoText;
  if (!last) last = qn::kNoText;
  if (QnLang_IsNameOrderReversed(language)) std::swap(first, last);
  int length = qn::CopyText(first, text, size);
  for (const WCHAR* const part : {W(" "), last}) length += qn::CopyText(part, text + length, size - length);
  return length;
}
