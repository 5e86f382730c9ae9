// Counts allocations: the program's malloc stands in front of the C library's, for the library and its peers
// alike.
#pragma once

#include <cstdint>

namespace qnbench {

// Blocks asked for since the start of the process.
int64_t Allocations();

}  // namespace qnbench
