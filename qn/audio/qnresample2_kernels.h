// The vector code of the second resampler's kernels.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qn/audio/qnresample2_internal.h"

namespace qn {

constexpr size_t kSincGroup = 8;     // outputs
constexpr size_t kSincTogether = 4;  // groups that run side by side

// Sets what is smaller than `least` to 0, and tells whether all values are finite.
bool TidyValues(double* values, size_t count, double least);

// The taps of an output, for the distance of the newest frame: what SincTap gives for it, it minus 1, ...
void SincTaps(double distance, const double* table, double* taps);

// One group of outputs: its rows of taps, the frame that the first row meets, and where the outputs go.
struct SincGroup {
  const double* taps;
  size_t newest;
  size_t out;
};

// Runs groups over one or two channels. As many as run side by side are faster when they have the same taps.
// The frames below `newest`, as many as there are rows, must be finite.
void RunSincGroups(const SincGroup* groups, size_t count, size_t rows, const double* const* frames,
                   double* const* out, size_t channels);

// Runs groups of the linear mode on audio of one or two channels from the cycle's place on, at the start of a
// group; `first` is the source frame of its first output. Reads below `srcFrames` and gives at most `room`
// frames; returns the frames produced, maybe none.
template <class T>
uint64_t RunLinearGroups(const LinearCycle& cycle, size_t channels, const T* src, uint64_t srcFrames,
                         uint64_t first, T* dst, uint64_t room);

// The tap at a distance of up to 13 frames.
inline double SincTap(double distance, const double* table) {
  constexpr double kScale = 4000.0 / kSincDelay;
  const double a = (distance < 0 ? -distance : distance) * kScale;
  const int32_t i = WholePart(a);
  return table[i] + (table[i + 1] - table[i]) * (a - i);
}

}  // namespace qn
