// Looking through trees.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "qn/platform/directory_pattern_internal.h"
#include "qn/platform/error_internal.h"
#include "qn/platform/locale.h"
#include "qn/platform/tree_internal.h"
#include "qn/platform/tree_place_internal.h"

namespace qn {
namespace {

struct Name {
  std::u16string shown;
  std::string native;
};

bool ReadSorted(int folder, TreeOrder order, std::vector<Name>* names) {
  Names natives;
  if (!ReadNames(folder, &natives)) return false;
  for (std::string& native : natives) names->push_back({ShownName(native), std::move(native)});
  if (order == TreeOrder::kAny) return true;
  std::sort(names->begin(), names->end(), [](const Name& a, const Name& b) {
    const int byName = lstrcmpiW(a.shown.c_str(), b.shown.c_str());
    return byName != 0 ? byName < 0 : a.native < b.native;
  });
  return true;
}

EntryKind KindOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return EntryKind::kFolder;
    case S_IFREG:
      return EntryKind::kFile;
    case S_IFLNK:
      return EntryKind::kLink;
    default:
      return EntryKind::kOther;
  }
}

class Walker {
 public:
  Walker(Descriptor root, TreeOrder order, const std::function<TreeStep(const TreeEntry&)>& visit)
      : place_(std::move(root)), order_(order), visit_(visit) {}

  TreeResult Run() {
    if (!EnterLevel()) return FailWithErrno(), TreeResult::kMissing;
    while (!levels_.empty()) {
      Level& level = levels_.back();
      if (level.next == level.names.size()) {
        Leave();
        continue;
      }
      const Name name = std::move(level.names[level.next++]);
      switch (Visit(name)) {
        case TreeStep::kNext:
          break;
        case TreeStep::kEnter:
          Enter(name.native);
          break;
        case TreeStep::kLeave:
          level.next = level.names.size();
          break;
        case TreeStep::kStop:
          return TreeResult::kRead;
      }
    }
    return result_;
  }

 private:
  struct Level {
    std::vector<Name> names;
    size_t next = 0;
  };

  bool EnterLevel() {
    Level level;
    if (!ReadSorted(place_.Get(), order_, &level.names)) return false;
    levels_.push_back(std::move(level));
    return true;
  }

  // An entry that has gone in the meantime is none; one that cannot be asked is there.
  TreeStep Visit(const Name& name) {
    struct stat info;
    if (fstatat(place_.Get(), name.native.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno != ENOENT) result_ = TreeResult::kPartly;
      return TreeStep::kNext;
    }
    const EntryKind kind = KindOf(info.st_mode);
    const LONGLONG size = kind == EntryKind::kFile ? info.st_size : 0;
    const TreeStep step = visit_({name.shown, kind, size, place_.Get(), name.native.c_str()});
    return step == TreeStep::kEnter && kind != EntryKind::kFolder ? TreeStep::kNext : step;
  }

  void Enter(const std::string& name) {
    Descriptor child = OpenFolder(place_.Get(), name.c_str());
    if (!child || !place_.Down(name, std::move(child))) {
      if (errno != ENOENT) result_ = TreeResult::kPartly;
    } else if (!EnterLevel()) {
      levels_.push_back({});  // to be left again
      result_ = TreeResult::kPartly;
    }
  }

  void Leave() {
    levels_.pop_back();
    if (levels_.empty() || place_.Up()) return;
    result_ = TreeResult::kPartly;
    levels_.resize(place_.Depth());
  }

  Place place_;
  const TreeOrder order_;
  const std::function<TreeStep(const TreeEntry&)>& visit_;
  std::vector<Level> levels_;
  TreeResult result_ = TreeResult::kRead;
};

bool LeadsToFolder(const TreeEntry& entry) {
  struct stat info;
  return fstatat(entry.folder, entry.native, &info, 0) == 0 && S_ISDIR(info.st_mode);
}

bool DeleteEntry(const TreeEntry& entry) {
  return !DeleteClaim(entry.folder, entry.native).Refused() &&
         (unlinkat(entry.folder, entry.native, 0) == 0 || errno == ENOENT);
}

}  // namespace

TreeResult WalkTree(const WCHAR* name, TreeOrder order,
                    const std::function<TreeStep(const TreeEntry&)>& visit) try {
  std::string path;
  Descriptor root;
  if (!ToPath(name, &path)) {
    FailWith(ERROR_PATH_NOT_FOUND);
    return TreeResult::kMissing;
  }
  root = Descriptor(TEMP_FAILURE_RETRY(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
  if (root) return Walker(std::move(root), order, visit).Run();
  FailWith(errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno));
  return TreeResult::kMissing;
} catch (const std::bad_alloc&) {
  FailWith(ERROR_NOT_ENOUGH_MEMORY);
  return TreeResult::kMissing;
}

bool DeleteMatches(const WCHAR* path, const WCHAR* pattern, bool recurse) try {
  const NamePattern names(pattern);
  bool allDeleted = true;
  const TreeResult result = WalkTree(path, TreeOrder::kAny, [&](const TreeEntry& entry) {
    if (entry.kind == EntryKind::kFolder) return recurse ? TreeStep::kEnter : TreeStep::kNext;
    const bool isFolder = entry.kind == EntryKind::kLink && LeadsToFolder(entry);
    if (!isFolder && names.Matches(entry.native, entry.name)) allDeleted &= DeleteEntry(entry);
    return TreeStep::kNext;
  });
  return allDeleted && result == TreeResult::kRead;
} catch (const std::bad_alloc&) {
  return FailWith(ERROR_NOT_ENOUGH_MEMORY);
}

bool IsTreeInUse(const WCHAR* path) {
  bool inUse = false;
  WalkTree(path, TreeOrder::kAny, [&inUse](const TreeEntry& entry) {
    if (entry.kind == EntryKind::kFolder) return TreeStep::kEnter;
    inUse = entry.kind == EntryKind::kFile && DeleteClaim(entry.folder, entry.native).Refused();
    return inUse ? TreeStep::kStop : TreeStep::kNext;
  });
  return inUse;
}

}  // namespace qn
