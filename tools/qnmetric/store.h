// The settings of an application in a version: a key of the registry with the keys below it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "qn/platform/registry.h"
#include "tools/qnmetric/setting.h"

namespace qnmetric {

// The path of a company's key under the user's hive.
std::u16string RootOf(const std::u16string& company);

// Whose settings.
struct Place {
  std::u16string company;
  std::u16string application = {};
  DWORD version = 0;           // packed; major 0: without a version
  std::u16string subKey = {};  // under the application's settings; may be empty

  // The paths of the version's key and of that of the settings under the user's hive.
  std::u16string Root() const;
  std::u16string Path() const;

  // The place of a key below.
  Place Below(const std::u16string& key) const;
};

// "2026.0", or "none". Nothing for another text.
std::optional<DWORD> ReadVersion(std::string_view text);

// Two paths, or a path and a name, with a backslash between them if neither is empty.
std::u16string Joined(const std::u16string& path, const std::u16string& below);

struct CloseKey {
  void operator()(HKEY key) const { RegCloseKey(key); }
};
using Key = std::unique_ptr<std::remove_pointer_t<HKEY>, CloseKey>;

// A key that exists, or nothing with the error.
Key OpenKey(HKEY hive, const std::u16string& path, REGSAM access, LSTATUS* error);

// Makes a key if it is missing.
Key MakeKey(const std::u16string& path, LSTATUS* error);

// A setting by the path of its key under a place and its name.
struct NamedSetting {
  std::u16string key;
  std::u16string name;
  Setting setting;
};
using Settings = std::vector<NamedSetting>;

// All settings of a place; `*error` says why when there are none to be had.
std::optional<Settings> ReadAll(const Place& place, LSTATUS* error);

// One setting; nothing with the error.
std::optional<Setting> ReadOne(const Place& place, const std::u16string& name, LSTATUS* error);

// The type of a setting, nothing if there is none: an error number.
LSTATUS ReadType(const Place& place, const std::u16string& name, std::optional<DWORD>* type);

// Stores a setting, in a key that is made if it is missing, and removes one: an error number.
LSTATUS Write(const Place& place, const std::u16string& name, const Setting& setting);
LSTATUS Delete(const Place& place, const std::u16string& name);

// What stands directly below a key of the user's hive.
std::optional<std::vector<std::u16string>> SubKeys(const std::u16string& path, LSTATUS* error);

}  // namespace qnmetric
