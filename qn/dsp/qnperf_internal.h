// The vector operations that have code for each instruction set; arguments are checked by the caller.
#pragma once

#include <cstddef>

namespace qn {

void SquareRoots(const float* in, float* out, size_t count);

// NaNs are passed over; both results are NaN when there is nothing else.
void FindMinMax(const float* in, size_t count, float* min, float* max);
void FindMinMax(const double* in, size_t count, double* min, double* max);

// Of `count` pairs.
void MultiplyPairs(const double* in, double* inOut, size_t count);
void ConjugatePairs(double* inOut, size_t count);

void DeinterleaveStereo(const float* in, size_t frames, float* left, float* right);

}  // namespace qn
