// The vector code around the transforms of a filter.
#pragma once

#include <cstddef>

namespace qn {

// `count` samples of one channel, `stride` apart in the audio, as doubles; and back.
void TakeChannel(const float* in, size_t stride, size_t count, double* out);
void TakeChannel(const double* in, size_t stride, size_t count, double* out);
void GiveChannel(const double* in, size_t stride, size_t count, float* out);
void GiveChannel(const double* in, size_t stride, size_t count, double* out);

// sum[i] += values[i]
void AddValues(double* sum, const double* values, size_t count);

}  // namespace qn
