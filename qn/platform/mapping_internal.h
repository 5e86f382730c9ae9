// The memory of the process as the kernel lists it, for code that runs inside a signal.
#pragma once

#include <cstdint>

namespace qn {

// Whether an address lies in memory that the process may use in some way; the guard pages of stacks are not.
bool IsUsable(uintptr_t address);

}  // namespace qn
