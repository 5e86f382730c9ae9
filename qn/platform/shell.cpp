#include "qn/platform/shell.h"

#include <fcntl.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qn/platform/directory.h"
#include "qn/platform/error_internal.h"
#include "qn/platform/file_internal.h"
#include "qn/platform/locale.h"
#include "qn/platform/text.h"

namespace {

using qn::FailWith;

enum class Source {
  kUserDirs,     // a key of user-dirs.dirs, else a folder in the home folder
  kEnvironment,  // a variable, else a folder in the home folder
  kShared,       // the first path of a variable, else a fixed one
  kHome,
};

struct FolderRow {
  int id;
  Source source;
  const char* key;
  const char* fallback;
};

constexpr FolderRow kFolderRows[] = {
    {CSIDL_DESKTOP, Source::kUserDirs, "XDG_DESKTOP_DIR", "Desktop"},
    {CSIDL_DESKTOPDIRECTORY, Source::kUserDirs, "XDG_DESKTOP_DIR", "Desktop"},
    {CSIDL_PERSONAL, Source::kUserDirs, "XDG_DOCUMENTS_DIR", "Documents"},
    {CSIDL_MYDOCUMENTS, Source::kUserDirs, "XDG_DOCUMENTS_DIR", "Documents"},
    {CSIDL_MYMUSIC, Source::kUserDirs, "XDG_MUSIC_DIR", "Music"},
    {CSIDL_MYVIDEO, Source::kUserDirs, "XDG_VIDEOS_DIR", "Videos"},
    {CSIDL_MYPICTURES, Source::kUserDirs, "XDG_PICTURES_DIR", "Pictures"},
    {CSIDL_TEMPLATES, Source::kUserDirs, "XDG_TEMPLATES_DIR", "Templates"},
    {CSIDL_APPDATA, Source::kEnvironment, "XDG_CONFIG_HOME", ".config"},
    {CSIDL_LOCAL_APPDATA, Source::kEnvironment, "XDG_DATA_HOME", ".local/share"},
    {CSIDL_COMMON_APPDATA, Source::kShared, "XDG_DATA_DIRS", "/usr/local/share"},
    {CSIDL_PROFILE, Source::kHome, nullptr, nullptr},
};

// A variable's value if it is an absolute path: others do not count.
std::string AbsoluteVariable(const char* name) {
  const char* const value = getenv(name);
  return value && value[0] == '/' ? value : "";
}

// Empty for a user that the system does not know.
std::string HomeFolder() {
  std::string home = AbsoluteVariable("HOME");
  constexpr size_t kMostRoom = size_t{1} << 20;
  for (size_t room = 1024; home.empty() && room <= kMostRoom; room *= 4) {
    std::vector<char> buffer(room);
    passwd entry;
    passwd* found = nullptr;
    const int error = getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
    if (found && found->pw_dir) home = found->pw_dir;
    if (error != ERANGE && error != EINTR) break;
  }
  return home.starts_with('/') ? home : "";
}

std::string ConfigFolder(const std::string& home) {
  const std::string given = AbsoluteVariable("XDG_CONFIG_HOME");
  return given.empty() ? home + "/.config" : given;
}

// The text of a small file, up to a size that no sensible one has.
std::string ReadSmallFile(const std::string& path) {
  constexpr size_t kMostBytes = size_t{1} << 16;
  struct stat info;
  const qn::Descriptor file = qn::OpenRegular(AT_FDCWD, path.c_str(), true, &info);
  std::string text(file ? kMostBytes : 0, '\0');
  size_t size = 0;
  while (size < text.size()) {
    const ssize_t got = TEMP_FAILURE_RETRY(read(file.Get(), text.data() + size, text.size() - size));
    if (got <= 0) break;
    size += static_cast<size_t>(got);
  }
  text.resize(size);
  return text;
}

std::string_view SkipBlanks(std::string_view text) {
  return text.substr(std::min(text.find_first_not_of(" \t"), text.size()));
}

// The value of `"$HOME/a"` or `"/a"`, where a backslash takes the next character as it is; nothing for
// another form.
std::optional<std::string> QuotedPath(std::string_view text, const std::string& home) {
  if (!text.starts_with('"')) return std::nullopt;
  text.remove_prefix(1);
  std::string path;
  constexpr std::string_view kHome = "$HOME";
  if (text.starts_with(kHome)) {
    text.remove_prefix(kHome.size());
    if (!text.starts_with('/') && !text.starts_with('"')) return std::nullopt;
    path = home;
  } else if (!text.starts_with('/')) {
    return std::nullopt;
  }
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"') return path;
    if (text[i] == '\\' && ++i == text.size()) break;
    path.push_back(text[i]);
  }
  return std::nullopt;
}

// The value of the last line `key="..."` in the text of user-dirs.dirs, as a shell would take it; empty if
// there is none.
std::string UserFolder(std::string_view text, std::string_view key, const std::string& home) {
  std::string path;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = SkipBlanks(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!line.starts_with(key)) continue;
    line = SkipBlanks(line.substr(key.size()));
    if (!line.starts_with('=')) continue;
    if (auto value = QuotedPath(SkipBlanks(line.substr(1)), home)) path = std::move(*value);
  }
  return path;
}

// The native path of a folder, or empty.
std::string FolderPath(const FolderRow& row) {
  if (row.source == Source::kShared) {
    const std::string given = AbsoluteVariable(row.key);
    return given.empty() ? row.fallback : given.substr(0, given.find(':'));
  }
  const std::string home = HomeFolder();
  std::string path;
  if (row.source == Source::kEnvironment) {
    path = AbsoluteVariable(row.key);
  } else if (row.source == Source::kUserDirs) {
    path = UserFolder(ReadSmallFile(ConfigFolder(home) + "/user-dirs.dirs"), row.key, home);
  }
  if (!path.empty() || home.empty()) return path;
  return row.source == Source::kHome ? home : home + "/" + row.fallback;
}

// Makes the missing levels. Only the last one's being there counts: those above may forbid even the question.
bool MakeFolder(const std::string& path, mode_t mode) {
  for (size_t at = 0; at != std::string::npos;) {
    at = path.find('/', at + 1);
    mkdir(path.substr(0, at).c_str(), mode);
  }
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

constexpr bool IsDigit(char16_t c) {
  return c >= u'0' && c <= u'9';
}

// A text that compares as the name does with its numbers by value: in front of each number, without leading
// zeros, stand its digits' count in a fixed width.
std::u16string LogicalKey(std::u16string_view name) {
  constexpr size_t kCountWidth = 10;
  std::u16string key;
  for (size_t i = 0; i < name.size();) {
    if (!IsDigit(name[i])) {
      key.push_back(name[i++]);
      continue;
    }
    while (i < name.size() && name[i] == u'0') ++i;
    const size_t start = i;
    while (i < name.size() && IsDigit(name[i])) ++i;
    const std::string count = std::to_string(i - start);
    key.append(kCountWidth - count.size(), u'0').append(count.begin(), count.end());
    key.append(name.substr(start, i - start));
  }
  return key;
}

std::u16string_view TakeNumber(const WCHAR* text) {
  while (*text == u'0') ++text;
  const WCHAR* end = text;
  while (IsDigit(*end)) ++end;
  return {text, end};
}

// Most names in a folder are the same up to a number: that decides, if the texts in front of it are alike
// without a look at how they collate. 0 where it takes more than that.
int CompareByFirstNumber(const WCHAR* a, const WCHAR* b) {
  const auto isAlike = [](WCHAR x, WCHAR y) {
    const auto lower = [](WCHAR c) { return c >= u'A' && c <= u'Z' ? c + (u'a' - u'A') : c; };
    return x >= u' ' && x < 0x7F && lower(x) == lower(y);
  };
  size_t i = 0;
  while (isAlike(a[i], b[i])) ++i;
  while (i > 0 && IsDigit(a[i - 1])) --i;
  if (!IsDigit(a[i]) || !IsDigit(b[i])) return 0;
  const std::u16string_view left = TakeNumber(a + i), right = TakeNumber(b + i);
  if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
  return left.compare(right);
}

}  // namespace

inline namespace qnplatform {

BOOL SHGetSpecialFolderPathW(HWND, WCHAR* text, int folder, BOOL create) try {
  constexpr int kIdMask = 0xFF;
  if (!text) return FailWith(ERROR_INVALID_PARAMETER);
  text[0] = 0;
  const auto* const row = std::find_if(std::begin(kFolderRows), std::end(kFolderRows),
                                       [&](const FolderRow& r) { return r.id == (folder & kIdMask); });
  if (row == std::end(kFolderRows)) return FailWith(ERROR_PATH_NOT_FOUND);
  std::string native = FolderPath(*row);
  if (native.empty()) return FailWith(ERROR_PATH_NOT_FOUND);
  const auto doubled = [](char a, char b) { return a == '/' && b == '/'; };
  native.erase(std::unique(native.begin(), native.end(), doubled), native.end());
  qn::StripSlashes(&native);
  const std::u16string path = qn::PathFromNative(native);
  if (path.size() >= MAX_PATH) return FailWith(ERROR_FILENAME_EXCED_RANGE);
  const mode_t mode = row->source == Source::kShared ? 0755 : 0700;
  const bool make = create || (folder & CSIDL_FLAG_CREATE);
  if (make && !MakeFolder(native, mode)) return FailWith(ERROR_PATH_NOT_FOUND);
  text[path.copy(text, MAX_PATH - 1)] = 0;
  return TRUE;
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

int StrCmpLogicalW(const WCHAR* a, const WCHAR* b) try {
  if (!a || !b) return lstrcmpiW(a, b);
  int order = CompareByFirstNumber(a, b);
  if (order == 0) order = lstrcmpiW(LogicalKey(a).c_str(), LogicalKey(b).c_str());
  // Names that differ in leading zeros alone.
  return order != 0 ? order : lstrcmpiW(a, b);
} catch (const std::bad_alloc&) {
  return lstrcmpiW(a, b);
}

}  // namespace qnplatform
