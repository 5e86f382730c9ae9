#include "tools/qnmetric/store.h"

#include <set>

#include "qn/platform/text.h"
#include "tools/common/options.h"

namespace qnmetric {
namespace {

constexpr DWORD kLongestName = 16384;

Key OpenForReading(const std::u16string& path, LSTATUS* error) {
  return OpenKey(HKEY_CURRENT_USER, path, KEY_READ, error);
}

std::optional<Setting> Read(HKEY key, const std::u16string& name, LSTATUS* error) {
  Setting setting;
  DWORD size = 0;
  // Another process may make it longer in between.
  do {
    setting.data.resize(size);
    *error = RegQueryValueExW(key, name.c_str(), nullptr, &setting.type, setting.data.data(), &size);
  } while (*error == ERROR_MORE_DATA || (*error == ERROR_SUCCESS && size > setting.data.size()));
  if (*error != ERROR_SUCCESS) return std::nullopt;
  setting.data.resize(size);
  return setting;
}

using Names = std::vector<std::u16string>;

// The names that an enumeration gives, in its order.
template <class Enumerate>
Names ReadNames(const Enumerate& enumerate, LSTATUS* error) {
  Names names;
  std::u16string name(kLongestName, u'\0');
  for (DWORD i = 0;; ++i) {
    DWORD length = kLongestName;
    *error = enumerate(i, name.data(), &length);
    if (*error != ERROR_SUCCESS) break;
    names.push_back(name.substr(0, length));
  }
  if (*error == ERROR_NO_MORE_ITEMS) *error = ERROR_SUCCESS;
  return names;
}

// Names go by their position, so one that another process removes meanwhile hides its neighbour: they are
// read until two readings agree, and beside a writer without rest what any of them found counts.
template <class Enumerate>
Names NamesOf(const Enumerate& enumerate, LSTATUS* error) {
  constexpr int kReadings = 10;
  Names last = ReadNames(enumerate, error);
  std::set<std::u16string> all(last.begin(), last.end());
  for (int i = 1; i < kReadings && *error == ERROR_SUCCESS; ++i) {
    Names names = ReadNames(enumerate, error);
    if (names == last) return names;
    all.insert(names.begin(), names.end());
    last = std::move(names);
  }
  return {all.begin(), all.end()};
}

Names SubKeysOf(HKEY key, LSTATUS* error) {
  return NamesOf(
      [&](DWORD i, WCHAR* name, DWORD* length) {
        return RegEnumKeyExW(key, i, name, length, nullptr, nullptr, nullptr, nullptr);
      },
      error);
}

LSTATUS AddSettings(HKEY key, const std::u16string& below, Settings* settings) {
  LSTATUS error;
  const Names names = NamesOf(
      [&](DWORD i, WCHAR* name, DWORD* length) {
        return RegEnumValueW(key, i, name, length, nullptr, nullptr, nullptr, nullptr);
      },
      &error);
  if (error != ERROR_SUCCESS) return error;
  for (const std::u16string& name : names) {
    auto setting = Read(key, name, &error);
    if (setting) settings->push_back({below, name, std::move(*setting)});
    // One that was removed in between is no failure.
    else if (error != ERROR_FILE_NOT_FOUND)
      return error;
  }
  const Names subKeys = SubKeysOf(key, &error);
  if (error != ERROR_SUCCESS) return error;
  for (const std::u16string& subKey : subKeys) {
    const Key opened = OpenKey(key, subKey, KEY_READ, &error);
    if (opened) error = AddSettings(opened.get(), Joined(below, subKey), settings);
    if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND && error != ERROR_KEY_DELETED) return error;
  }
  return ERROR_SUCCESS;
}

}  // namespace

std::u16string RootOf(const std::u16string& company) {
  return u"Software\\" + company;
}

std::u16string Place::Root() const {
  std::u16string path = RootOf(company) + u"\\" + application;
  if (version >> 20 != 0) {
    path += qn::FromUtf8("\\" + std::to_string(version >> 20) + "." + std::to_string(version >> 16 & 15));
  }
  return path;
}

std::u16string Place::Path() const {
  return Joined(Root() + u"\\Metrics", subKey);
}

Place Place::Below(const std::u16string& key) const {
  return {company, application, version, Joined(subKey, key)};
}

std::optional<DWORD> ReadVersion(std::string_view text) {
  if (text == "none") return 0;
  const auto numbers = qntool::Split(text, '.');
  if (numbers.size() != 2) return std::nullopt;
  const auto major = qntool::ParseNumber<DWORD>(numbers[0], 1, 0xFFF);
  const auto minor = qntool::ParseNumber<DWORD>(numbers[1], 0, 15);
  // "01" would be another key than the one that applications open.
  if (!major || !minor || std::to_string(*major) + "." + std::to_string(*minor) != text) return std::nullopt;
  return *major << 20 | *minor << 16;
}

std::u16string Joined(const std::u16string& path, const std::u16string& below) {
  return path.empty() || below.empty() ? path + below : path + u"\\" + below;
}

Key OpenKey(HKEY hive, const std::u16string& path, REGSAM access, LSTATUS* error) {
  HKEY key = nullptr;
  *error = RegOpenKeyExW(hive, path.c_str(), 0, access, &key);
  return Key(*error == ERROR_SUCCESS ? key : nullptr);
}

Key MakeKey(const std::u16string& path, LSTATUS* error) {
  HKEY key = nullptr;
  *error = RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr);
  return Key(*error == ERROR_SUCCESS ? key : nullptr);
}

std::optional<Settings> ReadAll(const Place& place, LSTATUS* error) {
  Settings settings;
  const Key key = OpenForReading(place.Path(), error);
  if (key) *error = AddSettings(key.get(), std::u16string(), &settings);
  if (*error != ERROR_SUCCESS) return std::nullopt;
  return settings;
}

std::optional<Setting> ReadOne(const Place& place, const std::u16string& name, LSTATUS* error) {
  const Key key = OpenForReading(place.Path(), error);
  if (!key) return std::nullopt;
  return Read(key.get(), name, error);
}

LSTATUS ReadType(const Place& place, const std::u16string& name, std::optional<DWORD>* type) {
  type->reset();
  LSTATUS error;
  DWORD found = REG_NONE;
  const Key key = OpenForReading(place.Path(), &error);
  if (key) error = RegQueryValueExW(key.get(), name.c_str(), nullptr, &found, nullptr, nullptr);
  if (error == ERROR_SUCCESS) *type = found;
  return error == ERROR_FILE_NOT_FOUND ? LSTATUS{} : error;
}

LSTATUS Write(const Place& place, const std::u16string& name, const Setting& setting) {
  LSTATUS error;
  const Key key = MakeKey(place.Path(), &error);
  if (!key) return error;
  return RegSetValueExW(key.get(), name.c_str(), 0, setting.type, setting.data.data(),
                        static_cast<DWORD>(setting.data.size()));
}

LSTATUS Delete(const Place& place, const std::u16string& name) {
  LSTATUS error;
  const Key key = OpenKey(HKEY_CURRENT_USER, place.Path(), KEY_WRITE, &error);
  return key ? RegDeleteValueW(key.get(), name.c_str()) : error;
}

std::optional<std::vector<std::u16string>> SubKeys(const std::u16string& path, LSTATUS* error) {
  const Key key = OpenForReading(path, error);
  if (!key) return std::nullopt;
  auto names = SubKeysOf(key.get(), error);
  if (*error != ERROR_SUCCESS) return std::nullopt;
  return names;
}

}  // namespace qnmetric
