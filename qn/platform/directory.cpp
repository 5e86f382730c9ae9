#include "qn/platform/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <unicode/uchar.h>
#include <unicode/utf16.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "qn/platform/error_internal.h"
#include "qn/platform/file_internal.h"
#include "qn/platform/text.h"

namespace {

using qn::FailWith;
using qn::FailWithErrno;

// A pattern of names, in the published sense: `*` takes any characters, `?` one or, in front of a dot or at
// the end, none; a dot with wild cards behind it also matches the end, so that "*.*" matches everything; a
// dot at the end means a name without any.
class NamePattern {
 public:
  explicit NamePattern(std::u16string_view pattern) {
    noDots_ = pattern.ends_with(u'.');
    if (noDots_) pattern.remove_suffix(1);
    const std::u32string characters = Folded(pattern);
    for (size_t i = 0; i < characters.size(); ++i) {
      const bool wildNext = i + 1 < characters.size() && IsWild(characters[i + 1]);
      parts_.push_back(characters[i] == U'.' && wildNext ? kDotOrEnd : characters[i]);
    }
  }

  static bool IsWild(char32_t c) { return c == U'*' || c == U'?'; }

  // Follows all ways to match at once, character by character: the time is bounded by the product of the
  // lengths, whatever the pattern.
  bool Matches(std::u16string_view name) const {
    const std::u32string characters = Folded(name);
    const bool dots = characters == U"." || characters == U"..";
    if (noDots_ && !dots && characters.find(U'.') != std::u32string::npos) return false;
    std::vector<bool> reached(parts_.size() + 1);
    reached[0] = true;
    for (size_t i = 0;; ++i) {
      const char32_t c = i < characters.size() ? characters[i] : kEnd;
      for (size_t k = 0; k < parts_.size(); ++k) {
        if (reached[k] && MatchesNothing(parts_[k], c)) reached[k + 1] = true;
      }
      if (c == kEnd) return reached.back();
      std::vector<bool> next(reached.size());
      for (size_t k = 0; k < parts_.size(); ++k) {
        if (reached[k] && Takes(parts_[k], c)) next[parts_[k] == U'*' ? k : k + 1] = true;
      }
      reached.swap(next);
    }
  }

 private:
  // No characters of a name.
  static constexpr char32_t kEnd = 0;
  static constexpr char32_t kDotOrEnd = U'/';

  static std::u32string Folded(std::u16string_view text) {
    std::u32string result;
    for (size_t i = 0; i < text.size();) {
      UChar32 c;
      U16_NEXT(text.data(), i, text.size(), c);
      result.push_back(static_cast<char32_t>(u_foldCase(c, U_FOLD_CASE_DEFAULT)));
    }
    return result;
  }

  static bool MatchesNothing(char32_t part, char32_t next) {
    return part == U'*' || (part == U'?' && (next == kEnd || next == U'.')) ||
           (part == kDotOrEnd && next == kEnd);
  }

  static bool Takes(char32_t part, char32_t c) {
    return IsWild(part) || part == c || (part == kDotOrEnd && c == U'.');
  }

  std::u32string parts_;
  bool noDots_;
};

// A native name as it is shown. One that holds a backslash would read as a path that leads elsewhere, so that
// character is shown as what cannot be reached.
std::u16string ShownName(std::string_view name) {
  std::u16string shown = qn::FromUtf8(name);
  std::replace(shown.begin(), shown.end(), u'\\', u'\xFFFD');
  return shown;
}

void FillFindData(const qn::FileDescription& description, std::u16string_view name, WIN32_FIND_DATAW* data) {
  *data = {};
  data->dwFileAttributes = description.attributes;
  data->ftCreationTime = description.created;
  data->ftLastAccessTime = description.accessed;
  data->ftLastWriteTime = description.written;
  data->nFileSizeHigh = static_cast<DWORD>(description.size >> 32);
  data->nFileSizeLow = static_cast<DWORD>(description.size);
  name.copy(data->cFileName, MAX_PATH - 1);
}

struct DirectoryCloser {
  void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

// A walk through a directory, or one that is over, for a name without wild cards.
class FindObject final : public qn::SystemObject {
 public:
  FindObject() = default;
  FindObject(Directory directory, std::u16string_view pattern)
      : directory_(std::move(directory)), pattern_(pattern) {}

  // The next entry. Zero with the last error, 18 at the end.
  BOOL Next(WIN32_FIND_DATAW* data) {
    const std::lock_guard guard(mutex_);
    if (!directory_) return FailWith(ERROR_NO_MORE_FILES);
    for (; dotsGiven_ < 2;) {
      if (Give(++dotsGiven_ == 1 ? "." : "..", DT_DIR, data)) return TRUE;
    }
    for (;;) {
      errno = 0;
      const dirent* const entry = readdir(directory_.get());
      if (!entry) return errno == 0 ? FailWith(ERROR_NO_MORE_FILES) : FailWithErrno();
      const std::string_view name = entry->d_name;
      if (name != "." && name != ".." && Give(entry->d_name, entry->d_type, data)) return TRUE;
    }
  }

 private:
  // False for an entry that the pattern leaves out or that has gone in the meantime.
  bool Give(const char* name, unsigned char type, WIN32_FIND_DATAW* data) const {
    const std::u16string shown = ShownName(name);
    if (shown.size() >= MAX_PATH || !pattern_.Matches(shown)) return false;
    qn::FileDescription description = {};
    if (!qn::DescribeFile(dirfd(directory_.get()), name, &description)) {
      if (errno == ENOENT) return false;
      // A directory that may be listed but not searched still tells the names.
      description.attributes = type == DT_DIR ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
    }
    FillFindData(description, shown, data);
    return true;
  }

  std::mutex mutex_;
  Directory directory_;
  NamePattern pattern_{u""};
  int dotsGiven_ = 0;
};

HANDLE FailToFind(DWORD error) {
  SetLastError(error);
  return INVALID_HANDLE_VALUE;
}

HANDLE GiveFind(std::shared_ptr<FindObject> find) {
  const HANDLE handle = qn::AddHandle(std::move(find));
  return handle ? handle : FailToFind(ERROR_NOT_ENOUGH_MEMORY);
}

// The one entry of a path without wild cards, exactly as the functions that open it take its name.
HANDLE FindOne(const std::string& path, std::u16string_view name, WIN32_FIND_DATAW* data) {
  qn::FileDescription description;
  if (!qn::DescribeFile(AT_FDCWD, path.c_str(), &description)) return FailToFind(qn::OpenError(path));
  if (name.size() >= MAX_PATH) return FailToFind(ERROR_FILENAME_EXCED_RANGE);
  FillFindData(description, name, data);
  return GiveFind(std::make_shared<FindObject>());
}

}  // namespace

inline namespace qnplatform {

HANDLE FindFirstFileW(const WCHAR* pattern, WIN32_FIND_DATAW* data) try {
  if (!data) return FailToFind(ERROR_INVALID_PARAMETER);
  if (!pattern || !*pattern) return FailToFind(ERROR_PATH_NOT_FOUND);
  const std::string path = qn::PathToNative(pattern);
  const size_t nameAt = path.rfind('/') + 1;
  const std::u16string name = qn::FromUtf8(std::string_view(path).substr(nameAt));
  if (name.empty()) return FailToFind(ERROR_FILE_NOT_FOUND);
  if (!std::any_of(name.begin(), name.end(), NamePattern::IsWild)) return FindOne(path, name, data);

  const std::string folder = nameAt == 0 ? "." : path.substr(0, nameAt);
  Directory directory(opendir(folder.c_str()));
  if (!directory) return FailToFind(errno == ENOENT ? ERROR_PATH_NOT_FOUND : qn::ErrorFromErrno(errno));
  auto find = std::make_shared<FindObject>(std::move(directory), name);
  if (find->Next(data)) return GiveFind(std::move(find));
  if (GetLastError() == ERROR_NO_MORE_FILES) SetLastError(ERROR_FILE_NOT_FOUND);
  return INVALID_HANDLE_VALUE;
} catch (const std::bad_alloc&) {
  return FailToFind(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL FindNextFileW(HANDLE handle, WIN32_FIND_DATAW* data) try {
  const auto find = std::dynamic_pointer_cast<FindObject>(qn::FindHandle(handle));
  if (!find) return FailWith(ERROR_INVALID_HANDLE);
  return data ? find->Next(data) : FailWith(ERROR_INVALID_PARAMETER);
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL FindClose(HANDLE handle) {
  if (!std::dynamic_pointer_cast<FindObject>(qn::FindHandle(handle))) return FailWith(ERROR_INVALID_HANDLE);
  return CloseHandle(handle);
}

BOOL CreateDirectoryW(const WCHAR* name, void*) try {
  std::string path;
  if (!qn::ToPath(name, &path)) return FailWith(ERROR_PATH_NOT_FOUND);
  if (mkdir(path.c_str(), 0777) == 0) return TRUE;
  if (errno == EEXIST) return FailWith(ERROR_ALREADY_EXISTS);
  return errno == ENOENT ? FailWith(ERROR_PATH_NOT_FOUND) : FailWithErrno();
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL RemoveDirectoryW(const WCHAR* name) try {
  std::string path;
  if (!qn::ToPath(name, &path)) return FailWith(ERROR_PATH_NOT_FOUND);
  qn::StripSlashes(&path);
  qn::FileDescription description;
  if (!qn::DescribeFile(AT_FDCWD, path.c_str(), &description)) return FailWith(qn::OpenError(path));
  const DWORD attributes = description.attributes;
  if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) return FailWith(ERROR_DIRECTORY);
  const bool isLink = attributes & FILE_ATTRIBUTE_REPARSE_POINT;
  if (!isLink && (attributes & FILE_ATTRIBUTE_READONLY)) return FailWith(ERROR_ACCESS_DENIED);
  if ((isLink ? unlink(path.c_str()) : rmdir(path.c_str())) == 0) return TRUE;
  return errno == EEXIST ? FailWith(ERROR_DIR_NOT_EMPTY) : FailWithErrno();
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

}  // namespace qnplatform
