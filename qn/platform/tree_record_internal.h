// What a copy of a tree was made from, to tell what has come or changed since.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <functional>
#include <unordered_map>

#include "qn/platform/tree_place_internal.h"

namespace qn {

class TreeRecord {
 public:
  // An entry as it was before it was copied.
  void Add(const struct stat& info) { stamps_.try_emplace(IdentityOf(info), info); }

  // True for a folder that was copied, and for another entry that has not changed since.
  bool Holds(const struct stat& info) const {
    const auto found = stamps_.find(IdentityOf(info));
    return found != stamps_.end() && found->second.Fits(Stamp(info));
  }

 private:
  struct Stamp {
    explicit Stamp(const struct stat& info)
        : kind(info.st_mode & S_IFMT),
          names(info.st_nlink),
          size(info.st_size),
          written(info.st_mtim),
          changed(info.st_ctim) {}

    bool Fits(const Stamp& now) const {
      if (kind != now.kind || S_ISDIR(kind)) return kind == now.kind;
      // The removal of one name changes a file that has others.
      const bool lostNames = now.names < names;
      return size == now.size && IsSame(written, now.written) && (lostNames || IsSame(changed, now.changed));
    }

    static bool IsSame(const timespec& a, const timespec& b) {
      return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
    }

    mode_t kind;
    nlink_t names;
    off_t size;
    timespec written;
    timespec changed;
  };

  struct Hash {
    size_t operator()(const Identity& identity) const {
      return std::hash<ino_t>()(identity.inode) ^ std::hash<dev_t>()(identity.device) << 1;
    }
  };

  std::unordered_map<Identity, Stamp, Hash> stamps_;
};

}  // namespace qn
