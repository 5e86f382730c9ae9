// Resources of a handle's module in its language.
#include <initializer_list>

#include "qn/text/qnlang_internal.h"
#include "qn/text/qnprint.h"

namespace {

WORD LanguageId(DWORD lcid) {
  return static_cast<WORD>(lcid);
}

// The languages of a version text, as far as their names fit.
struct LanguageNames {
  static constexpr int kSize = 260;
  WCHAR text[kSize] = {};
};

BOOL AddLanguageName(HMODULE, const WCHAR*, const WCHAR*, WORD language, intptr_t parameter) {
  LanguageNames& names = *reinterpret_cast<LanguageNames*>(parameter);
  constexpr int kNameSize = 16;
  WCHAR name[kNameSize];
  if (!GetLocaleInfoW(language, LOCALE_SABBREVLANGNAME, name, kNameSize)) return TRUE;
  LanguageNames longer;
  const HRESULT status =
      QnCchPrintF(longer.text, LanguageNames::kSize, nullptr, W("%s,%s"), names.text, name);
  if (FAILED(status)) return FALSE;
  names = longer;
  return TRUE;
}

}  // namespace

// Strings stand in blocks of 16, each with its length in front.
std::u16string_view qn::FindStringResource(HMODULE module, UINT id, DWORD lcid) {
  const UINT block = (id >> 4) + 1;
  if (block > 0xFFFF) return {};
  const HRSRC resource =
      FindResourceExW(module, RT_STRING, MAKEINTRESOURCEW(static_cast<WORD>(block)), LanguageId(lcid));
  if (!resource) return {};
  const void* const data = LockResource(LoadResource(module, resource));
  if (!data || reinterpret_cast<uintptr_t>(data) % alignof(WCHAR) != 0) return {};
  std::u16string_view rest(static_cast<const WCHAR*>(data), SizeofResource(module, resource) / sizeof(WCHAR));
  for (UINT skipped = 0; !rest.empty(); skipped++) {
    const size_t length = rest.front();
    rest.remove_prefix(1);
    if (length > rest.size()) break;
    if (skipped == (id & 15)) return rest.substr(0, length);
    rest.remove_prefix(length);
  }
  return {};
}

HRSRC QnFindResource(HQNLANG language, const WCHAR* name, const WCHAR* type) {
  return QnFindResourceMulti(language, name, &type, 1, nullptr);
}

HRSRC QnFindResourceMulti(HQNLANG language, const WCHAR* name, const WCHAR* const* types, int typeCount,
                          int* foundIndex) {
  if (!language || !types) return nullptr;
  for (const bool inLanguage : {true, false}) {
    if (inLanguage && !language->useLanguage) continue;
    for (int i = 0; i < typeCount; i++) {
      const HRSRC found = inLanguage
                              ? FindResourceExW(language->module, types[i], name, LanguageId(language->lcid))
                              : FindResourceW(language->module, name, types[i]);
      if (!found) continue;
      if (foundIndex) *foundIndex = i;
      return found;
    }
  }
  return nullptr;
}

int QnEnumResourceLanguages(HQNLANG language, UINT id, WCHAR* text, int size) {
  LanguageNames names;
  if (language && language->useLanguage && id <= 0xFFFF) {
    EnumResourceLanguagesW(language->module, RT_VERSION, MAKEINTRESOURCEW(static_cast<WORD>(id)),
                           AddLanguageName, reinterpret_cast<intptr_t>(&names));
  }
  return qn::CopyText(names.text, text, size);
}
