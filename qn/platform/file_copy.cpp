// Renaming, copying and claiming files as a whole.

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <memory>
#include <new>
#include <string>

#include "qn/platform/directory.h"
#include "qn/platform/error_internal.h"
#include "qn/platform/file_internal.h"
#include "qn/platform/file_share_internal.h"

namespace {

using qn::FailWith;
using qn::FailWithErrno;

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

bool WriteAll(int to, const char* bytes, size_t count, off_t at) {
  while (count > 0) {
    const ssize_t put = TEMP_FAILURE_RETRY(pwrite(to, bytes, count, at));
    if (put < 0) return false;
    bytes += put;
    at += put;
    count -= static_cast<size_t>(put);
  }
  return true;
}

// Copies from `*at` to `end`, or to the end of the file. Moves `*at` by what was copied.
bool CopyRange(int from, int to, off_t* at, off_t end) {
  constexpr off_t kPiece = off_t{1} << 30;
  off_t target = *at;
  while (*at < end) {
    const auto piece = static_cast<size_t>(std::min(end - *at, kPiece));
    if (TEMP_FAILURE_RETRY(copy_file_range(from, at, to, &target, piece, 0)) <= 0) break;
  }
  // Whatever the system could not copy by itself goes by hand, which also finds the reason of a failure.
  constexpr off_t kBuffer = off_t{1} << 16;
  const auto buffer = *at < end ? std::make_unique<char[]>(static_cast<size_t>(kBuffer)) : nullptr;
  while (*at < end) {
    const auto piece = static_cast<size_t>(std::min(end - *at, kBuffer));
    const ssize_t got = TEMP_FAILURE_RETRY(pread(from, buffer.get(), piece, *at));
    if (got <= 0) return got == 0;
    if (!WriteAll(to, buffer.get(), static_cast<size_t>(got), *at)) return false;
    *at += got;
  }
  return true;
}

// Holes stay holes. A file without a size may be one whose content is made as it is read.
bool CopyContent(int from, int to, off_t size) {
  constexpr off_t kNoEnd = std::numeric_limits<off_t>::max();
  off_t at = 0;
  if (size == 0) return CopyRange(from, to, &at, kNoEnd);
  for (;;) {
    const off_t data = lseek(from, at, SEEK_DATA);
    if (data < 0 && errno == ENXIO) break;  // no more of it
    const off_t hole = data < 0 ? data : lseek(from, data, SEEK_HOLE);
    if (hole < 0) return CopyRange(from, to, &at, kNoEnd);  // the file system does not tell
    at = data;
    if (!CopyRange(from, to, &at, hole)) return false;
    if (at < hole) break;  // the file has become shorter
  }
  const off_t end = lseek(from, 0, SEEK_END);
  return end >= 0 && (end <= at || ftruncate(to, end) == 0);
}

// A file under a name of its own beside `target`, removed with the object unless it took the target's place.
class FileInWaiting {
 public:
  explicit FileInWaiting(const std::string& target)
      : path_(target.substr(0, target.rfind('/') + 1) + ".qncopy-XXXXXX"),
        file_(mkostemp(path_.data(), O_CLOEXEC)) {}
  ~FileInWaiting() {
    if (file_ && !placed_) unlink(path_.c_str());
  }
  FileInWaiting(const FileInWaiting&) = delete;
  FileInWaiting& operator=(const FileInWaiting&) = delete;

  explicit operator bool() const { return static_cast<bool>(file_); }
  int Get() const { return file_.Get(); }

  bool Place(const std::string& target, bool failIfExists) {
    placed_ = failIfExists ? qn::RenameToFree(path_.c_str(), target.c_str())
                           : rename(path_.c_str(), target.c_str()) == 0;
    return placed_;
  }

 private:
  std::string path_;
  qn::Descriptor file_;
  bool placed_ = false;
};

// The error that keeps `target` from being replaced by a copy of `source`, or success.
DWORD ReplaceError(const std::string& target, const struct stat& source, bool failIfExists) {
  struct stat there;
  if (lstat(target.c_str(), &there) != 0) return ERROR_SUCCESS;
  if (there.st_dev == source.st_dev && there.st_ino == source.st_ino) return ERROR_SHARING_VIOLATION;
  if (failIfExists) return ERROR_FILE_EXISTS;
  const bool replaceable = S_ISLNK(there.st_mode) || (S_ISREG(there.st_mode) && (there.st_mode & S_IWUSR));
  return replaceable ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

}  // namespace

namespace qn {

Descriptor OpenRegular(int folder, const char* name, bool follow, struct stat* info) {
  // O_NONBLOCK for what takes the file's place between the question and the opening.
  const int noFollow = follow ? 0 : O_NOFOLLOW;
  if (fstatat(folder, name, info, follow ? 0 : AT_SYMLINK_NOFOLLOW) != 0) return Descriptor();
  if (S_ISREG(info->st_mode)) {
    const int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC | noFollow;
    Descriptor file(TEMP_FAILURE_RETRY(openat(folder, name, flags)));
    if (!file || fstat(file.Get(), info) != 0) return Descriptor();
    if (S_ISREG(info->st_mode)) return file;
  }
  errno = EISDIR;
  return Descriptor();
}

DeleteClaim::DeleteClaim(int folder, const char* name, DWORD access) {
  struct stat info;
  file_ = OpenRegular(folder, name, false, &info);
  refused_ = file_ && EnterShareMode(file_.Get(), access, kShareAll) == ShareResult::kConflict;
}

bool RenameToFree(const char* from, const char* to) {
  if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // The file system cannot do so. A hard link is as safe, if it can do that; directories have none.
  if (link(from, to) == 0) return unlink(from) == 0;
  if (errno == EEXIST) return false;
  struct stat info;
  if (lstat(to, &info) == 0) errno = EEXIST;
  return errno == ENOENT && rename(from, to) == 0;
}

bool CopyOpenFile(int from, int to, const struct stat& info) {
  const timespec times[] = {{0, UTIME_OMIT}, info.st_mtim};
  if (!CopyContent(from, to, info.st_size)) return false;
  CopyUserAttributes(from, to);
  return fchmod(to, info.st_mode & 0777) == 0 && futimens(to, times) == 0;
}

}  // namespace qn

inline namespace qnplatform {

BOOL MoveFileW(const WCHAR* from, const WCHAR* to) try {
  std::string source;
  std::string target;
  if (!qn::ToPath(from, &source) || !qn::ToPath(to, &target)) return FailWith(ERROR_INVALID_NAME);
  qn::StripSlashes(&source);
  qn::StripSlashes(&target);
  const qn::DeleteClaim claim(AT_FDCWD, source.c_str());
  if (claim.Refused()) return FailWith(ERROR_SHARING_VIOLATION);
  if (qn::RenameToFree(source.c_str(), target.c_str())) return TRUE;
  if (errno == EEXIST || errno == ENOTEMPTY) return FailWith(ERROR_ALREADY_EXISTS);
  if (errno != ENOENT) return FailWithErrno();
  // Either the source is missing or the target's folder.
  struct stat info;
  const bool noSource = lstat(source.c_str(), &info) != 0;
  errno = ENOENT;
  return FailWith(qn::OpenError(noSource ? source : target));
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL CopyFileW(const WCHAR* from, const WCHAR* to, BOOL failIfExists) try {
  std::string source;
  std::string target;
  if (!qn::ToPath(from, &source) || !qn::ToPath(to, &target)) return FailWith(ERROR_INVALID_NAME);
  struct stat info;
  const qn::Descriptor in = qn::OpenRegular(AT_FDCWD, source.c_str(), true, &info);
  if (!in) return FailWith(qn::OpenError(source));
  if (qn::EnterShareMode(in.Get(), GENERIC_READ, kShareAll) == qn::ShareResult::kConflict)
    return FailWith(ERROR_SHARING_VIOLATION);

  // A link stays, and the file that it leads to is replaced.
  const std::unique_ptr<char, void (*)(void*)> real(realpath(target.c_str(), nullptr), free);
  if (real) target = real.get();
  const DWORD error = ReplaceError(target, info, failIfExists != FALSE);
  if (error != ERROR_SUCCESS) return FailWith(error);
  const qn::DeleteClaim claim(AT_FDCWD, target.c_str(), GENERIC_WRITE | DELETE);
  if (claim.Refused()) return FailWith(ERROR_SHARING_VIOLATION);

  FileInWaiting copy(target);
  if (!copy) return FailWith(qn::OpenError(target));
  const bool copied = qn::CopyOpenFile(in.Get(), copy.Get(), info);
  if (!copied || TEMP_FAILURE_RETRY(fsync(copy.Get())) != 0) return FailWithErrno();
  return copy.Place(target, failIfExists != FALSE) ? TRUE : FailWithErrno();
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

}  // namespace qnplatform
