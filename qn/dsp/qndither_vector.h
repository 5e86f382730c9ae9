// The noise and the rounding of the dither, in vectors.
#pragma once

#include "qn/dsp/qndither.h"

namespace qn {

// The noise of a type; none for a number that is no type.
QNDITHERNOISE FindDitherNoise(uint32_t ditherType);

void Dither(CQnDither& dither, float* samples, size_t frames, size_t channels);
void Dither(CQnDither& dither, double* samples, size_t frames, size_t channels);

}  // namespace qn
