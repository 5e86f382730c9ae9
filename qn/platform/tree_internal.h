// Whole directory trees: sizes, removal and copies that never follow a symbolic link.
//
// Each level is opened relative to the one above it, so a directory that somebody replaces by a link while
// the walk goes on is not followed either.
#pragma once

#include "qn/platform/types.h"

namespace qn {

// Removes all that is in a directory, read-only entries too, and with `removeRoot` the directory itself.
// Links are removed, not followed, and the root itself is not followed if it is a link. Goes on after an
// entry that cannot be removed: false with the last error of the first such one.
bool RemoveTree(const WCHAR* path, bool removeRoot);

// Copies a directory with all that is in it to a path that is not there yet: contents, modes, times of
// writing; links as links, hard links within the tree as copies. On failure removes what it made: false with
// the last error. The source is only read.
bool CopyTree(const WCHAR* from, const WCHAR* to);

}  // namespace qn
