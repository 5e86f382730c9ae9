// Copying and moving trees.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "qn/platform/error_internal.h"
#include "qn/platform/file_share_internal.h"
#include "qn/platform/tree_internal.h"
#include "qn/platform/tree_place_internal.h"
#include "qn/platform/tree_record_internal.h"

namespace qn {
namespace {

// As far as the system allows: the group may be one of the user's where the owner is not.
bool KeepOwner(int folder, const char* name, const struct stat& info) {
  constexpr auto kSame = static_cast<uid_t>(-1);
  constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_EMPTY_PATH;
  return fchownat(folder, name, info.st_uid, info.st_gid, kFlags) == 0 ||
         fchownat(folder, name, kSame, info.st_gid, kFlags) == 0;
}

// Copies a tree from one open folder to another. The first failure ends it, with the last error.
class Copier {
 public:
  Copier(Descriptor from, Descriptor to, TreeRecord* record)
      : from_(std::move(from)), to_(std::move(to)), record_(record) {}

  bool Run() {
    struct stat target;
    if (fstat(to_.Get(), &target) != 0) return FailWithErrno();
    target_ = IdentityOf(target);
    if (!EnterLevel()) return false;
    for (;;) {
      Level& level = levels_.back();
      if (!level.folders.empty()) {
        const std::string name = std::move(level.folders.back());
        level.folders.pop_back();
        if (!Enter(name)) return false;
        continue;
      }
      const struct stat info = level.info;
      levels_.pop_back();
      if (levels_.empty()) {
        if (!Finish(from_.Get(), to_.Get(), info)) return FailWithErrno();
        // All at once: to wait for the disk at each entry would take many times as long.
        return TEMP_FAILURE_RETRY(syncfs(to_.Get())) == 0 ? true : FailWithErrno();
      }
      // With its entries in place and left, a folder gets its own mode, which may close it, and time.
      Descriptor from;
      Descriptor to;
      if (!from_.Up(&from) || !to_.Up(&to) || !Finish(from.Get(), to.Get(), info)) return FailWithErrno();
    }
  }

 private:
  struct Level {
    struct stat info;
    Names folders;  // still to be copied
  };

  static bool Finish(int from, int to, const struct stat& info) {
    const timespec times[] = {{0, UTIME_OMIT}, info.st_mtim};
    CopyUserAttributes(from, to);
    KeepOwner(to, "", info);
    return fchmod(to, info.st_mode & 07777) == 0 && futimens(to, times) == 0;
  }

  void Record(const struct stat& info) {
    if (record_) record_->Add(info);
  }

  bool Enter(const std::string& name) {
    Descriptor from = OpenFolder(from_.Get(), name.c_str());
    if (!from || mkdirat(to_.Get(), name.c_str(), S_IRWXU) != 0) return FailWithErrno();
    Descriptor to = OpenFolder(to_.Get(), name.c_str());
    if (!to || !from_.Down(name, std::move(from)) || !to_.Down(name, std::move(to))) return FailWithErrno();
    return EnterLevel();
  }

  // Copies what is in the folder, and leaves its folders for later.
  bool EnterLevel() {
    Level level;
    Names names;
    if (fstat(from_.Get(), &level.info) != 0) return FailWithErrno();
    // The copy lies within its source, and would go on into itself.
    if (IdentityOf(level.info) == target_) return FailWith(ERROR_INVALID_PARAMETER);
    // A file system that is mounted within would be emptied by a move and still be in its way.
    if (record_ && !levels_.empty() && level.info.st_dev != levels_.front().info.st_dev) {
      return FailWith(ERROR_ACCESS_DENIED);
    }
    Record(level.info);
    if (!ReadNames(from_.Get(), &names)) return FailWithErrno();
    for (std::string& name : names) {
      struct stat info;
      if (fstatat(from_.Get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return FailWithErrno();
      if (S_ISDIR(info.st_mode)) {
        level.folders.push_back(std::move(name));
      } else if (!CopyEntry(name.c_str(), info)) {
        return false;
      }
    }
    levels_.push_back(std::move(level));
    return true;
  }

  bool CopyEntry(const char* name, const struct stat& info) {
    Record(info);
    switch (info.st_mode & S_IFMT) {
      case S_IFREG:
        return CopyFile(name);
      case S_IFLNK:
        return CopyLink(name, info) ? true : FailWithErrno();
      case S_IFIFO:
      case S_IFSOCK:
        return MakeNode(name, info) ? true : FailWithErrno();
      default:
        return FailWith(ERROR_ACCESS_DENIED);
    }
  }

  bool CopyFile(const char* name) {
    struct stat info;
    const Descriptor from = OpenRegular(from_.Get(), name, false, &info);
    if (!from) return FailWithErrno();
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    if (EnterShareMode(from.Get(), GENERIC_READ, kShareAll) == ShareResult::kConflict)
      return FailWith(ERROR_SHARING_VIOLATION);
    const int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    const Descriptor to(TEMP_FAILURE_RETRY(openat(to_.Get(), name, flags, S_IRUSR | S_IWUSR)));
    if (!to) return FailWithErrno();
    KeepOwner(to.Get(), "", info);
    return CopyOpenFile(from.Get(), to.Get(), info) ? true : FailWithErrno();
  }

  bool SetTime(const char* name, const struct stat& info) {
    const timespec times[] = {{0, UTIME_OMIT}, info.st_mtim};
    return utimensat(to_.Get(), name, times, AT_SYMLINK_NOFOLLOW) == 0;
  }

  bool CopyLink(const char* name, const struct stat& info) {
    char text[PATH_MAX];
    const ssize_t length = readlinkat(from_.Get(), name, text, sizeof text);
    if (length < 0) return false;
    const std::string target(text, static_cast<size_t>(length));
    if (symlinkat(target.c_str(), to_.Get(), name) != 0) return false;
    KeepOwner(to_.Get(), name, info);
    return SetTime(name, info);
  }

  bool MakeNode(const char* name, const struct stat& info) {
    if (mknodat(to_.Get(), name, info.st_mode & (S_IFMT | 0777), 0) != 0) return false;
    KeepOwner(to_.Get(), name, info);
    return fchmodat(to_.Get(), name, info.st_mode & 0777, 0) == 0 && SetTime(name, info);
  }

  Place from_;
  Place to_;
  TreeRecord* const record_;
  Identity target_ = {};
  std::vector<Level> levels_;
};

// Copies to a folder that has just been made.
bool CopyToRoot(const Root& from, const Root& to, TreeRecord* record) try {
  Descriptor source = OpenFolder(from.parent.Get(), from.name.c_str());
  if (!source) return errno == ENOTDIR || errno == ELOOP ? FailWith(ERROR_DIRECTORY) : FailWithErrno();
  Descriptor target = OpenFolder(to.parent.Get(), to.name.c_str());
  if (!target) return FailWithErrno();
  return Copier(std::move(source), std::move(target), record).Run();
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

}  // namespace

bool CopyTree(const WCHAR* from, const WCHAR* to, TreeRecord* record) try {
  const std::optional<Root> source = OpenRoot(from);
  const std::optional<Root> target = source ? OpenRoot(to) : std::nullopt;
  if (!target) return false;
  if (mkdirat(target->parent.Get(), target->name.c_str(), S_IRWXU) != 0)
    return errno == EEXIST ? FailWith(ERROR_ALREADY_EXISTS) : FailWithErrno();
  if (CopyToRoot(*source, *target, record)) return true;
  const DWORD error = GetLastError();
  RemoveRoot(*target, true, nullptr);
  return FailWith(error);
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

bool MoveTree(const WCHAR* from, const WCHAR* to) try {
  TreeRecord record;
  return CopyTree(from, to, &record) && RemoveTree(from, true, &record);
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

}  // namespace qn
