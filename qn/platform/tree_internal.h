// Whole directory trees: removal and copies that never follow a symbolic link.
//
// Each level is opened relative to the one above it, so a directory that somebody replaces by a link while
// the walk goes on is not followed either. Names are the file system's own bytes, and the depth is limited by
// neither the stack nor the descriptors. The paths given are followed up to their last part.
#pragma once

#include "qn/platform/types.h"

namespace qn {

// Removes all that is in a directory, read-only entries too, and with `removeRoot` the directory itself.
// Links are removed, not followed; a path that itself is a link is removed with `removeRoot`, else refused
// with 267, as anything else that is no directory. Goes on after an entry that cannot be removed: false with
// the last error of the first such one, 32 for a file that an open handle does not let go. The root of the
// file system is refused with 5.
bool RemoveTree(const WCHAR* path, bool removeRoot);

// Copies a directory with all that is in it to a path that is not there yet: contents, modes, times of
// writing; links as links, hard links within the tree as copies, FIFOs and sockets as new ones. All of it is
// on the disk when this succeeds, so that the source may go. The source is only read. On failure removes what
// it made: false with the last error, 183 if the target is there, 267 if the source is no directory, 32 for a
// file that an open handle does not let others read, 5 for a device or without access, 87 if the target lies
// within the source, 112 when the disk is full.
bool CopyTree(const WCHAR* from, const WCHAR* to);

}  // namespace qn
