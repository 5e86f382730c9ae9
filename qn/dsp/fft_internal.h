// Prepared transforms of powers of two: what the planner (fft_plan.cpp) makes and the vector kernels
// (fft_vector.cpp) run.
//
// One element of a vector is a lane. A column is an array of rows, each the real parts of all lanes followed
// by their imaginary parts; transforming a column transforms every lane by itself, without any shuffle.
//
// Up to kLargestWhole points are seen as a matrix of points / lanes rows: the columns are transformed, and
// the last step multiplies by the twiddle factors, transposes blocks of lanes x lanes elements and transforms
// across the lanes (Cooley-Tukey with the second factor in the registers). More points are done in four
// steps (Gentleman and Sande; Bailey): the columns of a nearly square matrix, as many at a time as there are
// lanes in a few vectors, twiddle factors, transposition, and the columns of the transposed matrix. So memory
// is passed over twice, whatever the number of points.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "hwy/aligned_allocator.h"

namespace qn {

template <typename T>
using FftTable = hwy::AlignedFreeUniquePtr<T[]>;

// The transform of a column: a pass for each radix.
template <typename T>
struct FftColumn {
  size_t rows = 0;
  size_t passes = 0;
  std::array<uint8_t, 32> radix{};
  // For the second pass and later: for each row of the transforms that it joins, the factors of all inputs
  // but the first.
  FftTable<T> twiddles;
};

// The order of blocks: when pairs fill two vectors, and these are interleaved within each block of `within`
// lanes, which element lane i has.
constexpr size_t ElementOfLane(size_t i, size_t lanes, size_t within) {
  if (within < 2) return i;
  const size_t half = within / 2, place = i % within;
  return place / half * (lanes / 2) + i / within * half + place % half;
}

template <typename T>
struct FftPlan;

// Transforms plan.points pairs, with the negative exponent for `sign` 1 and the positive one for -1. `in` may
// be `out`; `work` has plan.workCount elements and is aligned for vectors.
template <typename T>
using FftRun = void (*)(const FftPlan<T>& plan, const T* in, T* out, T scale, T sign, T* work);

// Turns the spectrum of pairs (x[2n], x[2n + 1]) into that of x, both doubled, for `sign` 1; for -1 turns the
// spectrum of x into that of the pairs. All but the first pair of elements.
using FftSplit = void (*)(const FftPlan<double>& plan, double* data, double sign);

template <typename T>
struct FftKernels {
  size_t lanes;
  FftRun<T> whole;
  FftRun<T> fourStep;
  FftSplit split;  // of doubles
};

template <typename T>
struct FftPlan {
  size_t points = 0;  // complex ones
  size_t workCount = 0;
  size_t wide = 1;  // vectors in a row of four steps
  FftRun<T> run = nullptr;
  FftSplit split = nullptr;
  FftColumn<T> column;
  FftColumn<T> second;        // of four steps only
  FftTable<T> laneTwiddles;   // for each row of `column`, factors of all lanes
  FftTable<T> blockTwiddles;  // of four steps: for each block of columns and each row, a factor
  FftTable<T> crossTwiddles;  // within the transform across the lanes
  // One vector, its lanes in the order of blocks, then a factor for each vector of half the
  // spectrum.
  FftTable<T> splitTwiddles;
};

// Sizes that leave the nearest cache gain from four steps.
template <typename T>
constexpr size_t kLargestWhole = 131072 / sizeof(T);

// The kernels for so many points on this processor: those with the most lanes whose square is no larger.
template <typename T>
const FftKernels<T>& FindFftKernels(size_t points);

// Prepares transforms of 2 to the power of `order` pairs. False when there is no memory.
template <typename T>
bool MakeFftPlan(FftPlan<T>& plan, int order);

}  // namespace qn
