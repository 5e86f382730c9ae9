// The compressor over whole buffers.
#pragma once

#include <cstddef>

#include "qn/dsp/qncomp.h"

namespace qn {

void Compress(HQNCOMPDC& compressor, float* out, const float* in, size_t frames, size_t channels);
void Compress(HQNCOMPDC& compressor, double* out, const double* in, size_t frames, size_t channels);

}  // namespace qn
