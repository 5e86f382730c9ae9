#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "qn/platform/error_internal.h"
#include "qn/platform/file_internal.h"

namespace {

using qn::FailWith;
using qn::FailWithErrno;

// The mark of a file that was created hidden under a name without a leading dot.
constexpr char kHiddenMark[] = "user.qnkernel.hidden";

bool HasHiddenName(std::string_view path) {
  const std::string_view name = path.substr(path.rfind('/') + 1);
  return name.size() > 1 && name[0] == '.' && name != "..";
}

// A path to what a descriptor has open, for calls that take no descriptor of a folder, or none that was only
// opened to name a file.
std::string DescriptorPath(int descriptor) {
  return "/proc/self/fd/" + std::to_string(descriptor);
}

bool HasParentFolder(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos || slash == 0) return true;
  struct stat info;
  return stat(path.substr(0, slash).c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

DWORD AttributesOfMode(mode_t mode) {
  DWORD attributes = (mode & S_IWUSR) ? 0 : FILE_ATTRIBUTE_READONLY;
  if (S_ISDIR(mode)) return attributes | FILE_ATTRIBUTE_DIRECTORY;
  if (!S_ISREG(mode)) return attributes | FILE_ATTRIBUTE_DEVICE;
  return attributes;
}

FILETIME FromStatx(const struct statx_timestamp& time) {
  return qn::FileTimeFromUnix(time.tv_sec, time.tv_nsec);
}

constexpr unsigned kWanted = STATX_BASIC_STATS | STATX_BTIME;

}  // namespace

namespace qn {

Descriptor::~Descriptor() {
  if (value_ >= 0) close(value_);
}

bool StripSlashes(std::string* path) {
  const size_t length = path->size();
  while (path->size() > 1 && path->back() == '/') path->pop_back();
  return path->size() < length;
}

DWORD OpenError(const std::string& path) {
  const int error = errno;
  if (error == ENOENT && !HasParentFolder(path)) return ERROR_PATH_NOT_FOUND;
  return ErrorFromErrno(error);
}

bool IsHidden(const std::string& path) {
  return HasHiddenName(path) || getxattr(path.c_str(), kHiddenMark, nullptr, 0) >= 0;
}

void MarkHidden(int descriptor) {
  static_cast<void>(fsetxattr(descriptor, kHiddenMark, "1", 1, 0));
}

void CopyUserAttributes(int from, int to) {
  const ssize_t room = flistxattr(from, nullptr, 0);
  std::string names(room > 0 ? static_cast<size_t>(room) : 0, '\0');
  const ssize_t length = names.empty() ? 0 : flistxattr(from, names.data(), names.size());
  names.resize(length > 0 ? static_cast<size_t>(length) : 0);
  std::string value;
  for (size_t at = 0; at < names.size(); at += std::strlen(&names[at]) + 1) {
    const char* const name = &names[at];
    if (!std::string_view(name).starts_with("user.")) continue;
    const ssize_t size = fgetxattr(from, name, nullptr, 0);
    if (size < 0) continue;
    value.resize(static_cast<size_t>(size));
    const ssize_t got = fgetxattr(from, name, value.data(), value.size());
    if (got >= 0) static_cast<void>(fsetxattr(to, name, value.data(), static_cast<size_t>(got), 0));
  }
}

bool DescribeFile(int folder, const char* name, FileDescription* description) {
  struct statx info;
  if (statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH, kWanted, &info) != 0) return false;
  const bool isLink = S_ISLNK(info.stx_mode);
  DWORD attributes = isLink ? FILE_ATTRIBUTE_REPARSE_POINT : 0;
  struct statx target;
  const bool leadsNowhere = isLink && statx(folder, name, 0, kWanted, &target) != 0;
  if (isLink && !leadsNowhere) info = target;
  if (!leadsNowhere) attributes |= AttributesOfMode(info.stx_mode);
  // A link to an ordinary file shall not look like one that leads nowhere.
  if (attributes == FILE_ATTRIBUTE_REPARSE_POINT && !leadsNowhere) attributes |= FILE_ATTRIBUTE_NORMAL;
  const std::string path = folder == AT_FDCWD ? name : DescriptorPath(folder) + "/" + name;
  if (IsHidden(path)) attributes |= FILE_ATTRIBUTE_HIDDEN;
  description->attributes = attributes ? attributes : FILE_ATTRIBUTE_NORMAL;
  description->size = S_ISREG(info.stx_mode) ? info.stx_size : 0;
  description->accessed = FromStatx(info.stx_atime);
  description->written = FromStatx(info.stx_mtime);
  description->created = (info.stx_mask & STATX_BTIME) ? FromStatx(info.stx_btime) : description->written;
  return true;
}

}  // namespace qn

inline namespace qnplatform {

DWORD GetFileAttributesW(const WCHAR* name) try {
  std::string path;
  qn::FileDescription description;
  DWORD error = ERROR_INVALID_NAME;
  if (qn::ToPath(name, &path)) {
    const bool asFolder = qn::StripSlashes(&path);
    if (!qn::DescribeFile(AT_FDCWD, path.c_str(), &description)) {
      error = qn::OpenError(path);
    } else if (asFolder && !(description.attributes & FILE_ATTRIBUTE_DIRECTORY)) {
      error = ERROR_PATH_NOT_FOUND;
    } else {
      return description.attributes;
    }
  }
  FailWith(error);
  return INVALID_FILE_ATTRIBUTES;
} catch (const std::bad_alloc&) {
  FailWith(ERROR_NOT_ENOUGH_MEMORY);
  return INVALID_FILE_ATTRIBUTES;
}

BOOL SetFileAttributesW(const WCHAR* name, DWORD attributes) try {
  std::string path;
  if (!qn::ToPath(name, &path)) return FailWith(ERROR_INVALID_NAME);
  qn::StripSlashes(&path);
  // All goes through this descriptor, so that a link which takes the file's place is not followed.
  const qn::Descriptor file(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat info;
  if (!file || fstat(file.Get(), &info) != 0) return FailWith(qn::OpenError(path));
  if (S_ISLNK(info.st_mode)) return TRUE;
  const std::string opened = DescriptorPath(file.Get());
  // The mark can be changed while the owner may write.
  const mode_t before = info.st_mode & 07777;
  const mode_t writable = before | S_IWUSR;
  if (before != writable && chmod(opened.c_str(), writable) != 0) return FailWithErrno();
  DWORD error = ERROR_SUCCESS;
  if (!(attributes & FILE_ATTRIBUTE_HIDDEN)) {
    removexattr(opened.c_str(), kHiddenMark);
  } else if (!HasHiddenName(path) && setxattr(opened.c_str(), kHiddenMark, "1", 1, 0) != 0) {
    error = qn::ErrorFromErrno(errno);
  }
  const mode_t wanted = (attributes & FILE_ATTRIBUTE_READONLY) ? before & ~mode_t{0222} : writable;
  const mode_t after = error == ERROR_SUCCESS ? wanted : before;
  if (after != writable && chmod(opened.c_str(), after) != 0) return FailWithErrno();
  return error == ERROR_SUCCESS ? TRUE : FailWith(error);
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

}  // namespace qnplatform
