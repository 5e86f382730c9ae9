// The settings of an application in a version: a key of the registry with the keys below it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qn/platform/registry.h"
#include "tools/qnmetric/setting.h"

namespace qnmetric {

// Whose settings.
struct Place {
  std::u16string company;
  std::u16string application;
  DWORD version = 0;      // packed; major 0: without a version
  std::u16string subKey;  // under the application's settings; may be empty

  // The key's path under the user's hive.
  std::u16string Path() const;
};

// "2026.0", or "none"; and back. Nothing for another text.
std::optional<DWORD> ReadVersion(std::string_view text);

// Settings by the path of their key under the place and by name, as a user may see them.
using Names = std::map<std::u16string, Setting>;
using Tree = std::map<std::u16string, Names>;

// All settings of a place; `*error` says why when there are none to be had.
std::optional<Tree> ReadTree(const Place& place, LSTATUS* error);

// One setting; nothing with the error.
std::optional<Setting> ReadOne(const Place& place, const std::u16string& name, LSTATUS* error);

// Stores and removes one setting, in a key under the place that is made if it is missing: an error number.
LSTATUS Write(const Place& place, const std::u16string& name, const Setting& setting);
LSTATUS Delete(const Place& place, const std::u16string& name);

// What stands directly below a key of the user's hive.
std::optional<std::vector<std::u16string>> SubKeys(const std::u16string& path, LSTATUS* error);

}  // namespace qnmetric
