#include "tools/qnmetric/language.h"

#include <cstdio>

#include "qn/platform/text.h"

namespace qnmetric {
namespace {

constexpr WCHAR kValue[] = W("ULangID");

std::u16string PathOf(const Place& place) {
  return place.Root() + u"\\Lang";
}

bool Names(const std::string& name, LCID lcid) {
  return LocaleNameToLCID(qn::FromUtf8(name).c_str(), 0) == lcid;
}

}  // namespace

LSTATUS ReadLanguage(const Place& place, LCID* lcid) {
  LSTATUS error;
  Key key = OpenKey(HKEY_CURRENT_USER, PathOf(place), KEY_READ, &error);
  if (error == ERROR_FILE_NOT_FOUND) key = OpenKey(HKEY_LOCAL_MACHINE, PathOf(place), KEY_READ, &error);
  if (!key) return error;
  DWORD type = REG_NONE;
  DWORD size = sizeof(*lcid);
  error = RegQueryValueExW(key.get(), kValue, nullptr, &type, reinterpret_cast<BYTE*>(lcid), &size);
  // Applications pass over what is no number.
  const bool isOther =
      error == ERROR_MORE_DATA || (error == ERROR_SUCCESS && (type != REG_DWORD || size != sizeof(*lcid)));
  return isOther ? static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND) : error;
}

LSTATUS StoreLanguage(const Place& place, LCID lcid) {
  LSTATUS error;
  const Key key = MakeKey(PathOf(place), &error);
  const DWORD value = lcid & 0xFFFF;
  return key ? RegSetValueExW(key.get(), kValue, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                              sizeof(value))
             : error;
}

LSTATUS RemoveLanguage(const Place& place) {
  LSTATUS error;
  const Key key = OpenKey(HKEY_CURRENT_USER, PathOf(place), KEY_READ | KEY_WRITE, &error);
  if (key) error = RegDeleteValueW(key.get(), kValue);
  if (error != ERROR_SUCCESS) return error == ERROR_FILE_NOT_FOUND ? LSTATUS{} : error;
  // An empty key would keep the machine's language out.
  WCHAR name[1];
  DWORD values = 1;
  DWORD keys = 1;
  const bool isEmpty =
      RegEnumValueW(key.get(), 0, name, &values, nullptr, nullptr, nullptr, nullptr) == ERROR_NO_MORE_ITEMS &&
      RegEnumKeyExW(key.get(), 0, name, &keys, nullptr, nullptr, nullptr, nullptr) == ERROR_NO_MORE_ITEMS;
  return isEmpty ? RegDeleteTreeW(HKEY_CURRENT_USER, PathOf(place).c_str()) : LSTATUS{};
}

std::string LanguageName(LCID lcid) {
  constexpr const char* kNames[] = {"en", "ja", "de", "es", "fr",    "zh-CN", "zh-TW", "da", "fi",
                                    "it", "ko", "nl", "nb", "pt-BR", "pt-PT", "ru",    "sv", "pl"};
  for (const std::string name : kNames) {
    if (Names(name, lcid)) return name;
  }
  // One of these in another region.
  for (const std::string name : kNames) {
    const std::string language = name.substr(0, 2);
    if ((LocaleNameToLCID(qn::FromUtf8(language).c_str(), 0) & 0x3FF) != (lcid & 0x3FF)) continue;
    for (char first = 'A'; first <= 'Z'; ++first) {
      for (char second = 'A'; second <= 'Z'; ++second) {
        const std::string regional = language + "-" + first + second;
        if (Names(regional, lcid)) return regional;
      }
    }
  }
  char number[16];
  std::snprintf(number, sizeof(number), "0x%04X", static_cast<unsigned>(lcid));
  return number;
}

}  // namespace qnmetric
