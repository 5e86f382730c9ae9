#include "tools/qnmetric/store.h"

#include <memory>
#include <type_traits>

#include "qn/platform/text.h"
#include "qn/settings/qnmetric.h"
#include "tools/common/options.h"

namespace qnmetric {
namespace {

constexpr DWORD kLongestName = 16384;

struct CloseKey {
  void operator()(HKEY key) const { RegCloseKey(key); }
};
using Key = std::unique_ptr<std::remove_pointer_t<HKEY>, CloseKey>;

Key OpenForReading(const std::u16string& path, LSTATUS* error) {
  HKEY key = nullptr;
  *error = RegOpenKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, KEY_READ, &key);
  return Key(*error == ERROR_SUCCESS ? key : nullptr);
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

// The names that an enumeration gives, in its order.
template <class Enumerate>
std::vector<std::u16string> NamesOf(Enumerate enumerate, LSTATUS* error) {
  std::vector<std::u16string> names;
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

std::vector<std::u16string> SubKeysOf(HKEY key, LSTATUS* error) {
  return NamesOf(
      [&](DWORD i, WCHAR* name, DWORD* length) {
        return RegEnumKeyExW(key, i, name, length, nullptr, nullptr, nullptr, nullptr);
      },
      error);
}

LSTATUS AddSettings(const std::u16string& root, const std::u16string& below, Tree* tree) {
  LSTATUS error;
  const Key key = OpenForReading(below.empty() ? root : root + u'\\' + below, &error);
  if (!key) return error;
  const auto names = NamesOf(
      [&](DWORD i, WCHAR* name, DWORD* length) {
        return RegEnumValueW(key.get(), i, name, length, nullptr, nullptr, nullptr, nullptr);
      },
      &error);
  if (error != ERROR_SUCCESS) return error;
  for (const std::u16string& name : names) {
    const auto setting = Read(key.get(), name, &error);
    if (setting) (*tree)[below][name] = *setting;
    // One that was removed in between is no failure.
    else if (error != ERROR_FILE_NOT_FOUND)
      return error;
  }
  const auto subKeys = SubKeysOf(key.get(), &error);
  for (const std::u16string& subKey : subKeys) {
    if (error == ERROR_SUCCESS)
      error = AddSettings(root, below.empty() ? subKey : below + u'\\' + subKey, tree);
  }
  return error;
}

class Metrics {
 public:
  explicit Metrics(const Place& place)
      : status_(QnMetric_OpenRegHiveAndVersion(&handle_, place.application.c_str(), place.version,
                                               place.company.c_str(), place.subKey.c_str())) {}
  ~Metrics() { QnMetric_Close(handle_); }
  Metrics(const Metrics&) = delete;
  Metrics& operator=(const Metrics&) = delete;

  HKEY Key() const { return handle_ ? handle_->key : nullptr; }
  // The registry's error number behind the status.
  LSTATUS Error() const { return status_ == E_OUTOFMEMORY ? ERROR_NOT_ENOUGH_MEMORY : status_ & 0xFFFF; }

 private:
  HQNMETRIC handle_ = nullptr;
  HRESULT status_;
};

}  // namespace

std::u16string Place::Path() const {
  std::u16string path = u"Software\\" + company + u"\\" + application;
  if (version >> 20 != 0) {
    path += qn::FromUtf8("\\" + std::to_string(version >> 20) + "." + std::to_string(version >> 16 & 15));
  }
  path += u"\\Metrics";
  return subKey.empty() ? path : path + u"\\" + subKey;
}

std::optional<DWORD> ReadVersion(std::string_view text) {
  if (text == "none") return 0;
  const auto numbers = qntool::Split(text, '.');
  if (numbers.size() != 2) return std::nullopt;
  const auto major = qntool::ParseNumber<DWORD>(numbers[0], 1, 0xFFF);
  const auto minor = qntool::ParseNumber<DWORD>(numbers[1], 0, 15);
  if (!major || !minor) return std::nullopt;
  return *major << 20 | *minor << 16;
}

std::optional<Tree> ReadTree(const Place& place, LSTATUS* error) {
  Tree tree;
  *error = AddSettings(place.Path(), std::u16string(), &tree);
  if (*error != ERROR_SUCCESS) return std::nullopt;
  return tree;
}

std::optional<Setting> ReadOne(const Place& place, const std::u16string& name, LSTATUS* error) {
  const Key key = OpenForReading(place.Path(), error);
  if (!key) return std::nullopt;
  return Read(key.get(), name, error);
}

LSTATUS Write(const Place& place, const std::u16string& name, const Setting& setting) {
  const Metrics metrics(place);
  if (!metrics.Key()) return metrics.Error();
  return RegSetValueExW(metrics.Key(), name.c_str(), 0, setting.type, setting.data.data(),
                        static_cast<DWORD>(setting.data.size()));
}

LSTATUS Delete(const Place& place, const std::u16string& name) {
  LSTATUS error;
  if (!ReadOne(place, name, &error)) return error;
  const Metrics metrics(place);
  return metrics.Key() ? RegDeleteValueW(metrics.Key(), name.c_str()) : metrics.Error();
}

std::optional<std::vector<std::u16string>> SubKeys(const std::u16string& path, LSTATUS* error) {
  const Key key = OpenForReading(path, error);
  if (!key) return std::nullopt;
  auto names = SubKeysOf(key.get(), error);
  if (*error != ERROR_SUCCESS) return std::nullopt;
  return names;
}

}  // namespace qnmetric
