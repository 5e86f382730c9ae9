// What is wrong with samples that come from a file or go to one.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "qn/audio/qnwaveformat.h"

namespace qnwave {

// The floats beyond `most`, above 0, at either side, and those that are infinite or no number; no integers.
// `samples` may stand at any address.
uint64_t CountLouder(const void* samples, size_t count, QNSAMPLETYPE type, double most);

// Makes those beyond `most` as loud as that, and silence of what is infinite or no number, which sums and
// filters would never get rid of; how much of that there was.
uint64_t LimitSamples(void* samples, size_t count, QNSAMPLETYPE type, double most);
inline uint64_t SilenceNotNumbers(void* samples, size_t count, QNSAMPLETYPE type) {
  return LimitSamples(samples, count, type, HUGE_VAL);
}

// What every integer type clips, and none of the library's conversions takes for a number of the other sign,
// as they do from 2 to the power of 31 of its steps on.
constexpr double kBeyondIntegers = 2;

// The samples of the float type `from` that lie beyond the integers of a type, of which floats have none.
uint64_t CountClipped(const void* samples, size_t count, QNSAMPLETYPE from, QNSAMPLETYPE type);
inline uint64_t CountClipped(const double* samples, size_t count, QNSAMPLETYPE type) {
  return CountClipped(samples, count, QNST_FLOAT64, type);
}

// The warnings about a new file, for numbers above 0.
void WarnOfSamples(std::string_view file, uint64_t notNumbers, uint64_t clipped = 0);

}  // namespace qnwave
