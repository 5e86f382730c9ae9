// Share modes of open files by locks on byte offsets that no file uses.
#pragma once

#include "qn/platform/types.h"

namespace qn {

enum class ShareResult { kGranted, kConflict };

// Enters an open descriptor with its access (GENERIC_READ, GENERIC_WRITE, DELETE) and share mode
// (FILE_SHARE_*) among all descriptors of the file, in this and other processes. The entry lasts until the
// descriptor is closed. Without locks on the file system, and for a descriptor that cannot carry them,
// everything is granted.
ShareResult EnterShareMode(int descriptor, DWORD access, DWORD share);

}  // namespace qn
