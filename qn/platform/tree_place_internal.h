// Standing in a tree by descriptors: folders opened relative to the one above, names as the file system's own
// bytes. Whatever others rename or replace meanwhile, nothing outside the tree is reached.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

#include "qn/platform/file_internal.h"

namespace qn {

using Names = std::vector<std::string>;

struct Identity {
  dev_t device;
  ino_t inode;

  bool operator==(const Identity&) const = default;
};

inline Identity IdentityOf(const struct stat& info) {
  return {info.st_dev, info.st_ino};
}

// Opens a folder for reading, and follows no link. None with errno.
Descriptor OpenFolder(int parent, const char* name);

// The names in a folder apart from "." and "..". They are read as a whole before anything is done with them,
// as a directory that changes under its reader may leave some out. False with errno, with those read so far.
bool ReadNames(int folder, Names* names);

// The folder that a walk stands in: down into an opened child, up again by "..". The depth costs no
// descriptors.
class Place {
 public:
  explicit Place(Descriptor root);

  int Get() const { return folder_.Get(); }

  // Levels below and including the root; 0 when the place is lost.
  size_t Depth() const { return trail_.size(); }

  // Into a child that was opened by that name. False with errno, in the same place.
  bool Down(const std::string& name, Descriptor child);

  // To the folder above, with the one that is left in `*left`. When others have moved that away, to the
  // nearest one above that is still to be found where it was: then false with errno.
  bool Up(Descriptor* left = nullptr);

 private:
  struct Step {
    std::string name;
    Identity identity;
  };

  Descriptor root_;
  Descriptor folder_;
  std::vector<Step> trail_;
};

// Where a tree hangs: an open folder and a name in it.
struct Root {
  Descriptor parent;
  std::string name;
};

// Follows a path up to its last part. None with the last error: 5 for the root of the file system.
std::optional<Root> OpenRoot(const WCHAR* path);

class TreeRecord;

// RemoveTree of tree_internal.h.
bool RemoveRoot(const Root& root, bool removeRoot, const TreeRecord* only);

}  // namespace qn
