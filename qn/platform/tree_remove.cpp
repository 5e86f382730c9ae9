// Removing trees, and what keeps them in their place.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "qn/platform/error_internal.h"
#include "qn/platform/tree_internal.h"
#include "qn/platform/tree_place_internal.h"
#include "qn/platform/tree_record_internal.h"

namespace qn {
namespace {

class Remover {
 public:
  explicit Remover(const TreeRecord* only) : only_(only) {}

  // Of the first entry that could not be removed.
  DWORD Error() const { return error_; }

  // An entry that is gone already is what was wanted.
  void RemoveEntry(int folder, const std::string& name, int flags) {
    if (unlinkat(folder, name.c_str(), flags) == 0 || errno == ENOENT) return;
    const bool isSpared = only_ && (errno == ENOTEMPTY || errno == EEXIST);
    Fail(isSpared ? ERROR_SHARING_VIOLATION : ErrorFromErrno(errno));
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
      if (place.Up()) {
        RemoveEntry(place.Get(), name, AT_REMOVEDIR);
        continue;
      }
      // Somebody has moved a folder away with what is left in it. The others are still to go.
      Fail(only_ ? ERROR_SHARING_VIOLATION : ErrorFromErrno(errno));
      levels.resize(place.Depth());
      if (levels.empty()) return;
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
    if (child && place->Down(name, std::move(child))) return true;
    if (errno == ENOTDIR || errno == ELOOP) {
      RemoveFile(place->Get(), name);  // by now something else has that name
    } else if (errno != ENOENT) {
      Fail(ErrorFromErrno(errno));
    }
    return false;
  }

  bool MayGo(int folder, const std::string& name) const {
    struct stat info;
    return !only_ || fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 || only_->Holds(info);
  }

  void RemoveFile(int folder, const std::string& name) {
    const DeleteClaim claim(folder, name.c_str());
    if (claim.Refused() || !MayGo(folder, name)) return Fail(ERROR_SHARING_VIOLATION);
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
        if (only_ && !only_->Holds(info)) {
          Fail(ERROR_SHARING_VIOLATION);
        } else {
          folders.push_back(std::move(name));
        }
      } else {
        RemoveFile(folder, name);
      }
    }
    return folders;
  }

  const TreeRecord* const only_;
  DWORD error_ = ERROR_SUCCESS;
};

// In a folder with the sticky bit, only its owner and that of an entry may take the entry out.
bool IsKept(const struct stat& info, const struct stat& parent) {
  const uid_t user = geteuid();
  return (parent.st_mode & S_ISVTX) && user != 0 && user != info.st_uid && user != parent.st_uid;
}

}  // namespace

bool RemoveRoot(const Root& root, bool removeRoot, const TreeRecord* only) {
  struct stat info;
  if (fstatat(root.parent.Get(), root.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return FailWithErrno();
  if (only && !only->Holds(info)) return FailWith(ERROR_SHARING_VIOLATION);
  Remover remover(only);
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

bool RemoveTree(const WCHAR* path, bool removeRoot, TreeRecord* only) try {
  const std::optional<Root> root = OpenRoot(path);
  return root && RemoveRoot(*root, removeRoot, only);
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

bool IsTreeBound(const WCHAR* path) try {
  const std::optional<Root> root = OpenRoot(path);
  struct stat parent;
  struct stat info;
  struct statx mount;
  if (!root || fstat(root->parent.Get(), &parent) != 0) return true;
  const int folder = root->parent.Get();
  const char* const name = root->name.c_str();
  if (fstatat(folder, name, &info, AT_SYMLINK_NOFOLLOW) != 0 || IsKept(info, parent)) return true;
  // A kernel that does not know the attribute leaves it out; then the devices tell most of it.
  const bool known = statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, 0, &mount) == 0 &&
                     (mount.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT);
  return known ? (mount.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0 : info.st_dev != parent.st_dev;
} catch (const std::bad_alloc&) {
  return true;
}

}  // namespace qn
