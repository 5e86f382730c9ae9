// The chain of an equaliser's bands over blocks of audio.
#pragma once

#include <cstddef>

#include "qn/dsp/qneq.h"

namespace qn {

// One band over one channel. With t = x * gain + s1 * a1 (+ s2 * a2 in a peak) the output of x is
//   low shelf x + t + s1, high shelf x + t - s1, peak x + t - s2;
// then t becomes s1, and in a peak the s1 before becomes s2.
struct EqFilter {
  double a1;
  double a2;
  double s1;
  double s2;
  double gain;
};

// The bands that are on, in their order, of all channels.
struct EqChain {
  const tQNEQ_BAND* bands;
  size_t bandCount;
  const DWORD* active;
  size_t activeCount;
  EqFilter* filters;  // bandCount of each channel, one channel after the other
  size_t channels;
};

// Runs the chain over `frames` interleaved frames, of which `in` may be `out`. Floats are rounded after each
// band.
void RunChain(const EqChain& chain, float* out, const float* in, size_t frames);
void RunChain(const EqChain& chain, double* out, const double* in, size_t frames);

}  // namespace qn
