// The memory of the process as the kernel lists it, for code that runs inside a signal.
#pragma once

#include <cstdint>

namespace qn {

// The list stays open while it `isKept`, to be read when the process has no descriptor left for another.
// Callers hold a lock.
void KeepMappings(bool isKept);

// Whether an address lies in memory that the process may use in some way; the guard pages of stacks are not.
// True if the kernel lists none.
bool IsUsable(uintptr_t address);

// Whether all bytes from `first` to `last` lie in memory that may be read; true if the kernel lists none.
bool IsReadable(uintptr_t first, uintptr_t last);

}  // namespace qn
