#include "qn/platform/tree_internal.h"

#include <dirent.h>
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
#include "qn/platform/file_internal.h"
#include "qn/platform/file_share_internal.h"

namespace qn {
namespace {

using Names = std::vector<std::string>;

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

Descriptor OpenFolder(int parent, const char* name) {
  return Descriptor(TEMP_FAILURE_RETRY(openat(parent, name, kFolderFlags)));
}

struct Identity {
  dev_t device;
  ino_t inode;

  bool operator==(const Identity&) const = default;
};

Identity IdentityOf(const struct stat& info) {
  return {info.st_dev, info.st_ino};
}

// The folder that a walk stands in: down into an opened child, up again by "..". The depth costs no
// descriptors. Up leads only to the very folder that it came from, wherever others have moved the child.
class Place {
 public:
  explicit Place(Descriptor root) : folder_(std::move(root)) {}

  int Get() const { return folder_.Get(); }

  bool Down(Descriptor child) {
    struct stat info;
    // A child that may not be searched could not be left again.
    if (fstat(Get(), &info) != 0 || faccessat(child.Get(), "..", F_OK, 0) != 0) return false;
    above_.push_back(IdentityOf(info));
    folder_ = std::move(child);
    return true;
  }

  bool Up() {
    Descriptor parent = OpenFolder(Get(), "..");
    struct stat info;
    if (!parent || fstat(parent.Get(), &info) != 0) return false;
    if (IdentityOf(info) != above_.back()) {
      errno = ENOENT;
      return false;
    }
    above_.pop_back();
    folder_ = std::move(parent);
    return true;
  }

 private:
  Descriptor folder_;
  std::vector<Identity> above_;
};

// The names in a folder apart from "." and "..". They are read as a whole before anything is done with them,
// as a directory that changes under its reader may leave some out.
bool ReadNames(int folder, Names* names) {
  Descriptor own = OpenFolder(folder, ".");
  if (!own) return false;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(fdopendir(own.Get()), closedir);
  if (!directory) return false;
  static_cast<void>(own.Release());
  for (;;) {
    errno = 0;
    const dirent* const entry = readdir(directory.get());
    if (!entry) return errno == 0;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names->emplace_back(name);
  }
}

// Where a tree hangs: an open folder and a name in it.
struct Root {
  Descriptor parent;
  std::string name;
};

std::optional<Root> OpenRoot(const WCHAR* name) {
  std::string path;
  if (!ToPath(name, &path)) {
    FailWith(ERROR_PATH_NOT_FOUND);
    return std::nullopt;
  }
  StripSlashes(&path);
  const size_t nameAt = path.rfind('/') + 1;
  Root root;
  root.name = path.substr(nameAt);
  if (root.name.empty()) {  // the root of the file system
    FailWith(ERROR_ACCESS_DENIED);
    return std::nullopt;
  }
  const std::string parent = nameAt == 0 ? "." : path.substr(0, nameAt);
  root.parent = Descriptor(open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!root.parent) {
    FailWith(errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno));
    return std::nullopt;
  }
  return root;
}

class Remover {
 public:
  // Of the first entry that could not be removed.
  DWORD Error() const { return error_; }

  // An entry that is gone already is what was wanted.
  void RemoveEntry(int folder, const std::string& name, int flags) {
    if (unlinkat(folder, name.c_str(), flags) != 0 && errno != ENOENT) Fail(ErrorFromErrno(errno));
  }

  // Empties a folder and what is below it.
  void Empty(Descriptor root) {
    Place place(std::move(root));
    std::vector<Level> levels;
    levels.push_back({"", RemoveFiles(place.Get())});
    for (;;) {
      Level& level = levels.back();
      if (!level.folders.empty()) {
        std::string name = std::move(level.folders.back());
        level.folders.pop_back();
        if (Enter(&place, name)) levels.push_back({std::move(name), RemoveFiles(place.Get())});
        continue;
      }
      const std::string name = std::move(level.name);
      levels.pop_back();
      if (levels.empty()) return;
      if (!place.Up()) return Fail(ErrorFromErrno(errno));
      RemoveEntry(place.Get(), name, AT_REMOVEDIR);
    }
  }

  // Opens a folder whose entries are to go, with the owner's permissions for that. None with errno.
  static Descriptor Open(int parent, const char* name) {
    Descriptor folder = OpenFolder(parent, name);
    if (!folder && errno == EACCES) {
      const Descriptor named(openat(parent, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
      if (!named) return folder;
      // The path leads to what this descriptor has open, not to what has the name now.
      const std::string opened = "/proc/self/fd/" + std::to_string(named.Get());
      if (chmod(opened.c_str(), S_IRWXU) != 0) return folder;
      folder = OpenFolder(named.Get(), ".");
    }
    struct stat info;
    if (folder && fstat(folder.Get(), &info) == 0 && (info.st_mode & S_IRWXU) != S_IRWXU)
      static_cast<void>(fchmod(folder.Get(), (info.st_mode & 07777) | S_IRWXU));
    return folder;
  }

 private:
  struct Level {
    std::string name;
    Names folders;  // still to be entered
  };

  void Fail(DWORD error) {
    if (error_ == ERROR_SUCCESS) error_ = error;
  }

  bool Enter(Place* place, const std::string& name) {
    Descriptor child = Open(place->Get(), name.c_str());
    if (child && place->Down(std::move(child))) return true;
    if (errno == ENOTDIR || errno == ELOOP) {
      RemoveFile(place->Get(), name);  // by now something else has that name
    } else if (errno != ENOENT) {
      Fail(ErrorFromErrno(errno));
    }
    return false;
  }

  void RemoveFile(int folder, const std::string& name) {
    const DeleteClaim claim(folder, name.c_str());
    if (claim.Refused()) return Fail(ERROR_SHARING_VIOLATION);
    RemoveEntry(folder, name, 0);
  }

  // Removes all but the folders, and gives those.
  Names RemoveFiles(int folder) {
    Names names;
    if (!ReadNames(folder, &names)) Fail(ErrorFromErrno(errno));
    Names folders;
    for (std::string& name : names) {
      struct stat info;
      if (fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(info.st_mode)) {
        folders.push_back(std::move(name));
      } else {
        RemoveFile(folder, name);
      }
    }
    return folders;
  }

  DWORD error_ = ERROR_SUCCESS;
};

bool RemoveRoot(const Root& root, bool removeRoot) {
  struct stat info;
  if (fstatat(root.parent.Get(), root.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return FailWithErrno();
  Remover remover;
  if (S_ISLNK(info.st_mode) && removeRoot) {
    remover.RemoveEntry(root.parent.Get(), root.name, 0);
  } else {
    Descriptor folder = Remover::Open(root.parent.Get(), root.name.c_str());
    if (!folder) return errno == ENOTDIR || errno == ELOOP ? FailWith(ERROR_DIRECTORY) : FailWithErrno();
    remover.Empty(std::move(folder));
    if (removeRoot) remover.RemoveEntry(root.parent.Get(), root.name, AT_REMOVEDIR);
  }
  return remover.Error() == ERROR_SUCCESS ? true : FailWith(remover.Error());
}

// Copies a tree from one open folder to another. The first failure ends it, with the last error.
class Copier {
 public:
  Copier(Descriptor from, Descriptor to) : from_(std::move(from)), to_(std::move(to)) {}

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
      // With its entries in place, a folder gets its own mode and time.
      if (!Finish(level.info)) return FailWithErrno();
      levels_.pop_back();
      // All at once: to wait for the disk at each entry would take many times as long.
      if (levels_.empty()) return TEMP_FAILURE_RETRY(syncfs(to_.Get())) == 0 ? true : FailWithErrno();
      if (!from_.Up() || !to_.Up()) return FailWithErrno();
    }
  }

 private:
  struct Level {
    struct stat info;
    Names folders;  // still to be copied
  };

  bool Finish(const struct stat& info) {
    const timespec times[] = {{0, UTIME_OMIT}, info.st_mtim};
    return fchmod(to_.Get(), info.st_mode & 07777) == 0 && futimens(to_.Get(), times) == 0;
  }

  bool Enter(const std::string& name) {
    Descriptor from = OpenFolder(from_.Get(), name.c_str());
    if (!from || mkdirat(to_.Get(), name.c_str(), S_IRWXU) != 0) return FailWithErrno();
    Descriptor to = OpenFolder(to_.Get(), name.c_str());
    if (!to || !from_.Down(std::move(from)) || !to_.Down(std::move(to))) return FailWithErrno();
    return EnterLevel();
  }

  // Copies what is in the folder, and leaves its folders for later.
  bool EnterLevel() {
    Level level;
    Names names;
    if (fstat(from_.Get(), &level.info) != 0) return FailWithErrno();
    // The copy lies within its source, and would go on into itself.
    if (IdentityOf(level.info) == target_) return FailWith(ERROR_INVALID_PARAMETER);
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
    return to && CopyOpenFile(from.Get(), to.Get(), info) ? true : FailWithErrno();
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
    return symlinkat(target.c_str(), to_.Get(), name) == 0 && SetTime(name, info);
  }

  bool MakeNode(const char* name, const struct stat& info) {
    return mknodat(to_.Get(), name, info.st_mode & (S_IFMT | 0777), 0) == 0 &&
           fchmodat(to_.Get(), name, info.st_mode & 0777, 0) == 0 && SetTime(name, info);
  }

  Place from_;
  Place to_;
  Identity target_ = {};
  std::vector<Level> levels_;
};

// Copies to a folder that has just been made.
bool CopyToRoot(const Root& from, const Root& to) try {
  Descriptor source = OpenFolder(from.parent.Get(), from.name.c_str());
  if (!source) return errno == ENOTDIR || errno == ELOOP ? FailWith(ERROR_DIRECTORY) : FailWithErrno();
  Descriptor target = OpenFolder(to.parent.Get(), to.name.c_str());
  if (!target) return FailWithErrno();
  return Copier(std::move(source), std::move(target)).Run();
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

}  // namespace

bool RemoveTree(const WCHAR* path, bool removeRoot) try {
  const std::optional<Root> root = OpenRoot(path);
  return root && RemoveRoot(*root, removeRoot);
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

bool CopyTree(const WCHAR* from, const WCHAR* to) try {
  const std::optional<Root> source = OpenRoot(from);
  const std::optional<Root> target = source ? OpenRoot(to) : std::nullopt;
  if (!target) return false;
  if (mkdirat(target->parent.Get(), target->name.c_str(), S_IRWXU) != 0)
    return errno == EEXIST ? FailWith(ERROR_ALREADY_EXISTS) : FailWithErrno();
  if (CopyToRoot(*source, *target)) return true;
  const DWORD error = GetLastError();
  RemoveRoot(*target, true);
  return FailWith(error);
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

}  // namespace qn
