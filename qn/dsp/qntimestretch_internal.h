// The splice of a time stretcher, and the search for the place where it is heard least.
#pragma once

#include <cstddef>

namespace qn {

// A buffer as allocated; what is used of it is told apart.
struct Samples {
  double* values;
  size_t size;
};

// Makes `outCount` interleaved samples of `inCount`, both above 0. Gives how many samples at the end of the
// input are to go round again.
size_t Splice(Samples in, size_t inCount, Samples out, size_t outCount, size_t channels);

// scores[lag] is the sum of (values[lag + i] + reference[i]) squared over `count` places, for kLagBatch lags.
constexpr size_t kLagBatch = 16;
void ScoreLags(const double* values, const double* reference, size_t count, double* scores);

}  // namespace qn
