// What a path stands for, and the room of a file system.

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "qn/platform/directory.h"
#include "qn/platform/error_internal.h"
#include "qn/platform/file_internal.h"
#include "qn/platform/text.h"

namespace {

using qn::FailWith;

// The published way to give a text: its length if it fits, else the size that it needs.
DWORD Give(std::u16string_view path, DWORD size, WCHAR* text) {
  if (path.size() >= size || !text) return static_cast<DWORD>(path.size() + 1);
  text[path.copy(text, path.size())] = 0;
  return static_cast<DWORD>(path.size());
}

DWORD Fail(DWORD error) {
  FailWith(error);
  return 0;
}

// The working directory; false with the last error.
bool WorkingDirectory(std::u16string* path) {
  char text[PATH_MAX];
  if (!getcwd(text, sizeof text)) return qn::FailWithErrno();
  *path = qn::PathFromNative(text);
  return true;
}

// An absolute path without "." and ".." and doubled separators. Two at the start stay, as a server's name
// begins so.
std::u16string Normalised(std::u16string_view path) {
  std::vector<std::u16string_view> parts;
  for (size_t at = 0; at < path.size();) {
    const size_t end = std::min(path.find(u'\\', at), path.size());
    const std::u16string_view part = path.substr(at, end - at);
    at = end + 1;
    if (part == u"..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!part.empty() && part != u".") {
      parts.push_back(part);
    }
  }
  std::u16string result(path.starts_with(u"\\\\") ? 1 : 0, u'\\');
  for (const std::u16string_view part : parts) (result += u'\\') += part;
  if (parts.empty() || path.ends_with(u'\\')) result += u'\\';
  return result;
}

bool IsFolder(const char* path) {
  struct stat info;
  return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace

inline namespace qnplatform {

DWORD GetFullPathNameW(const WCHAR* path, DWORD size, WCHAR* text, WCHAR** filePart) try {
  if (filePart) *filePart = nullptr;
  if (!path || !*path) return Fail(ERROR_INVALID_NAME);
  std::u16string full = qn::PathFromNative(qn::PathToNative(path));
  if (!full.starts_with(u'\\')) {
    std::u16string folder;
    if (!WorkingDirectory(&folder)) return 0;
    full = folder + u'\\' + full;
  }
  full = Normalised(full);
  const DWORD length = Give(full, size, text);
  const size_t last = full.rfind(u'\\') + 1;
  if (filePart && length == full.size() && last < length) *filePart = text + last;
  return length;
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY);
}

DWORD GetLongPathNameW(const WCHAR* path, WCHAR* text, DWORD size) try {
  if (GetFileAttributesW(path) == INVALID_FILE_ATTRIBUTES) return 0;
  std::u16string result(path);
  std::replace(result.begin(), result.end(), u'/', u'\\');
  return Give(result, size, text);
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY);
}

DWORD GetTempPathW(DWORD size, WCHAR* text) try {
  const char* const given = getenv("TMPDIR");
  const bool usable = given && given[0] == '/' && IsFolder(given);
  std::u16string path = qn::PathFromNative(usable ? given : "/tmp");
  if (!path.ends_with(u'\\')) path += u'\\';
  return Give(path, size, text);
} catch (const std::bad_alloc&) {
  return Fail(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL GetDiskFreeSpaceExW(const WCHAR* directory, ULONGLONG* available, ULONGLONG* total,
                         ULONGLONG* free) try {
  std::string path = ".";
  if (directory && !qn::ToPath(directory, &path)) return FailWith(ERROR_PATH_NOT_FOUND);
  struct statvfs info;
  if (TEMP_FAILURE_RETRY(statvfs(path.c_str(), &info)) != 0)
    return errno == ENOENT ? FailWith(ERROR_PATH_NOT_FOUND) : qn::FailWithErrno();
  const ULONGLONG block = info.f_frsize;
  if (available) *available = block * info.f_bavail;
  if (total) *total = block * info.f_blocks;
  if (free) *free = block * info.f_bfree;
  return TRUE;
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

}  // namespace qnplatform
