// A prepared transform, and the passes that transform a signal when no faster transform is prepared.
#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

#include "qn/dsp/qnsig.h"

struct tQNFFT {
  ULONGLONG user;  // handed to the callback
  DWORD size;      // real points
  DWORD pass;      // passes done since the preparation, counted when there is a callback
  DWORD passes;    // passes of one transform: log2(size) + 1
  QNFFTPROGRESS callback;
  DWORD interval;    // least milliseconds between two calls of the callback
  DWORD nextTick;    // when the next call is due
  DWORD fast;        // the work buffer may be used
  void* buffer;      // aligned to 16
  DWORD bufferSize;  // bytes
  void* spec;        // of QnPerfsFFTInitAlloc_R_64f
};
static_assert(offsetof(tQNFFT, size) == 8 && offsetof(tQNFFT, pass) == 12 && offsetof(tQNFFT, passes) == 16);
static_assert(offsetof(tQNFFT, callback) == 24 && offsetof(tQNFFT, interval) == 32);
static_assert(offsetof(tQNFFT, nextTick) == 36 && offsetof(tQNFFT, fast) == 40);
static_assert(offsetof(tQNFFT, buffer) == 48 && offsetof(tQNFFT, bufferSize) == 56);
static_assert(offsetof(tQNFFT, spec) == 64 && sizeof(tQNFFT) == 72);

namespace qn {

// One frame of two channels that are transformed side by side.
struct StereoFrame {
  float left;
  float right;

  friend StereoFrame operator+(StereoFrame a, StereoFrame b) { return {a.left + b.left, a.right + b.right}; }
  friend StereoFrame operator-(StereoFrame a, StereoFrame b) { return {a.left - b.left, a.right - b.right}; }
  friend StereoFrame operator-(StereoFrame a) { return {-a.left, -a.right}; }
  friend StereoFrame operator*(StereoFrame a, float factor) { return {a.left * factor, a.right * factor}; }
};
static_assert(sizeof(StereoFrame) == 2 * sizeof(float));

// The number that an element is multiplied by.
template <class Element>
using FactorOf = std::conditional_t<std::is_same_v<Element, double>, double, float>;

// Exchanges each value with the one whose index has the reversed bits. `points` is a power of 2.
template <class Value>
void ReverseBits(Value* data, size_t points) {
  size_t reversed = 0;
  for (size_t i = 0; i < points; ++i) {
    if (i < reversed) std::swap(data[i], data[reversed]);
    size_t bit = points / 2;
    for (; reversed & bit; bit /= 2) reversed ^= bit;
    reversed |= bit;
  }
}

enum class Direction { kForward, kInverse };

// Counts passes that are done and tells the callback when that is due. False when it cancels.
bool ReportPasses(HQNFFT fft, DWORD count);

// Transforms `size` real elements, a power of 2, in place; Element is double, float or StereoFrame. False
// when the callback stopped it.
template <class Element>
bool TransformReal(HQNFFT fft, Element* data, DWORD size, FactorOf<Element> scale, Direction direction);

// Transforms `points` pairs of floats, a power of 2, in place.
bool TransformComplex(HQNFFT fft, float* data, DWORD points, float scale, Direction direction);

}  // namespace qn
