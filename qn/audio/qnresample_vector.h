// The vector code of the resampler, for the best instruction set of the processor.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qn/audio/qnwaveformat.h"

namespace qn {

// Outputs of linear interpolation: number n lies at the time step * n + position.
struct LinearRun {
  uint8_t* dst;
  const uint8_t* src;
  double step;
  double position;
  int64_t first;  // the outputs to make; their times are not negative
  int64_t last;   // the one behind them
  bool backward;  // for a destination that lies over the source
};

// Frames that vectors exist for at any distance. So many frames behind the first one of an output must be
// there.
enum class LinearFrame { kNone, kMono16, kStereo16, kMonoFloat, kStereoFloat };
inline constexpr int64_t kLinearReach = 40;

// Both make outputs from one end as far as whole vectors go, and take them off the run. The near ones are
// less than 2 frames apart, of one or two channels and any common type, and made on processors that can; the
// others are left as they are.
void InterpolateNear(QNSAMPLETYPE type, int channels, LinearRun& run);
void InterpolateFrames(LinearFrame frame, LinearRun& run);

// A point of the sinc table, and the way to the next one.
struct SincPoint {
  double value;
  double rise;
};

// The weights of the 25 taps for `count` outputs at the distances 12.0 - fractions[n] from the newest frame,
// from the newest on: weights[tap * stride + n]. Whole vectors are computed: fractions and weights have room
// for a multiple of 8.
void SincWeights(const SincPoint* points, const double* fractions, size_t count, size_t stride, double scale,
                 double* weights);

// sums[n] = the sum over the taps, in order, of weights[tap * stride + n] * samples[newest[n] - tap]. Whole
// vectors here too; up to 15 samples behind those asked for are read.
void SincSums(const double* weights, size_t stride, const double* samples, const int64_t* newest,
              size_t count, double* sums);

}  // namespace qn
