// What must hold for every input.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace qnfuzz {

// Ends the run when a property does not hold, in every build.
inline void Check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "property broken: %s\n", what);
  std::abort();
}

}  // namespace qnfuzz
