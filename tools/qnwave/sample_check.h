// What is wrong with samples that come from a file or go to one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "qn/audio/qnwaveformat.h"

namespace qnwave {

// The floats that are infinite or no number; integers are all numbers. `samples` may stand at any address.
uint64_t CountNotNumbers(const void* samples, size_t count, QNSAMPLETYPE type);

// Makes them silence, for sums and filters would never get rid of them; how many there were.
uint64_t SilenceNotNumbers(void* samples, size_t count, QNSAMPLETYPE type);

// The samples of the float type `from` that lie beyond the integers of a type, of which floats have none.
uint64_t CountClipped(const void* samples, size_t count, QNSAMPLETYPE from, QNSAMPLETYPE type);
inline uint64_t CountClipped(const double* samples, size_t count, QNSAMPLETYPE type) {
  return CountClipped(samples, count, QNST_FLOAT64, type);
}

// The warnings about a new file, for numbers above 0.
void WarnOfSamples(std::string_view file, uint64_t notNumbers, uint64_t clipped = 0);

}  // namespace qnwave
