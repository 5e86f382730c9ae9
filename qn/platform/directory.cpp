#include "qn/platform/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

#include "qn/platform/directory_pattern_internal.h"
#include "qn/platform/error_internal.h"
#include "qn/platform/file_internal.h"
#include "qn/platform/text.h"

namespace {

using qn::FailWith;
using qn::FailWithErrno;
using qn::NamePattern;

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
    const std::u16string shown = qn::ShownName(name);
    if (shown.size() >= MAX_PATH || !pattern_.Matches(name, shown)) return false;
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
  if (!NamePattern::HasWildCards(name)) return FindOne(path, name, data);

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
