// Whole directory trees: looking through them, removal, copies and moves that never follow a symbolic link.
//
// Each level is opened relative to the one above it, so a directory that somebody replaces by a link while
// the walk goes on is not followed either. Names are the file system's own bytes, so those that cannot be
// shown are never taken for another entry. The depth is limited by neither the stack nor the descriptors. The
// paths given are followed up to their last part, or through it where that is said.
#pragma once

#include <functional>
#include <string>

#include "qn/platform/types.h"

namespace qn {

enum class EntryKind { kFolder, kFile, kLink, kOther };

// An entry that a walk has come to.
struct TreeEntry {
  std::u16string name;  // as it is shown
  EntryKind kind;
  LONGLONG size;       // bytes of a file, else 0
  int folder;          // the descriptor of the folder that it is in
  const char* native;  // its name there
};

enum class TreeStep {
  kNext,   // on to the next entry; a folder is not entered
  kEnter,  // the same, by way of what is in the folder
  kLeave,  // past the other entries of this folder
  kStop,   // the end of the walk
};

enum class TreeOrder { kAny, kByName };  // kByName: as lstrcmpiW sorts the names of a folder

enum class TreeResult {
  kRead,     // to its end, or stopped
  kPartly,   // a folder that was to be entered could not be read
  kMissing,  // nor could the first one, with the last error
};

// Visits what is in a directory, a path to which may end in a link.
TreeResult WalkTree(const WCHAR* path, TreeOrder order,
                    const std::function<TreeStep(const TreeEntry&)>& visit);

// Deletes the entries of a directory that match a pattern as FindFirstFileW has it, with `recurse` also those
// in the directories below. Directories stay, and links to them; of other links only the link goes. The path
// may end in a link. Goes on after a failure: false if one entry could not be deleted, as by DeleteFileW, or
// one directory not be read.
bool DeleteMatches(const WCHAR* path, const WCHAR* pattern, bool recurse);

// True if a handle that does not share deletion is open on a file of the tree.
bool IsTreeInUse(const WCHAR* path);

// True for a directory or link that this user cannot move away: where something is mounted on it, and of
// another user in a directory that keeps it for its owner.
bool IsTreeBound(const WCHAR* path);

// What a copy was made from.
class TreeRecord;

// Removes all that is in a directory, read-only entries too, and with `removeRoot` the directory itself.
// Links are removed, not followed; a path that itself is a link is removed with `removeRoot`, else refused
// with 267, as anything else that is no directory. Goes on after an entry that cannot be removed: false with
// the last error of the first such one, 32 for a file that an open handle does not let go. The root of the
// file system is refused with 5. With a record only what stands in it and has not changed since is removed;
// what is left counts as in use.
bool RemoveTree(const WCHAR* path, bool removeRoot, TreeRecord* only = nullptr);

// Copies a directory with all that is in it to a path that is not there yet: contents with their holes,
// modes, owners as far as allowed, the user's extended attributes, times of writing; links as links, hard
// links within the tree as copies, FIFOs and sockets as new ones. All of it is on the disk when this
// succeeds, so that the source may go. The source is only read, and entered in the record, if given. On
// failure removes what it made: false with the last error, 183 if the target is there, 267 if the source is
// no directory, 32 for a file that an open handle does not let others read, 5 for a device or without access,
// 87 if the target lies within the source, 112 when the disk is full, 223 for a file that is too large for
// it. With a record, for a move, a file system that is mounted within is refused with 5.
bool CopyTree(const WCHAR* from, const WCHAR* to, TreeRecord* record = nullptr);

// CopyTree and then RemoveTree of the source. What came to the source or changed in it meanwhile stays there,
// beside the copy: false with 32.
bool MoveTree(const WCHAR* from, const WCHAR* to);

}  // namespace qn
