// How the library finds the memory behind its own memory stream.
#pragma once

#include "qn/platform/com.h"

namespace qn {

// The first byte of the memory that a stream of QnCreateStreamFromMemory keeps, and how many of its bytes are
// used; null for any other stream.
const void* StreamMemory(IStream* stream, ULONGLONG* used);

}  // namespace qn
