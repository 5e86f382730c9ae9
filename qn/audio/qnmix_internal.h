// The tables of mix kernels, and the driver that they share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "qn/audio/qnmix.h"
#include "qn/audio/qnmix_rule.h"
#include "qn/audio/qnmix_vector.h"

namespace qn {

// One pair of sample types. The table holds all 64 in the order of kSampleForms, destinations first; lookups,
// tests and benchmarks go through it.
struct MixKernel {
  QNSAMPLETYPE dst;
  QNSAMPLETYPE src;
  QNMIXFUNCTION scalar;
  QNMIXFUNCTION vector;  // null for the pairs with one kernel only
  DWORD vectorMask;      // processor bits that choose the vector kernel
};
std::span<const MixKernel> MixKernels();

// What the driver has to know of a pair.
struct MixPair {
  int dst;  // places in kSampleForms
  int src;
  size_t dstBytes;
  size_t srcBytes;
  Product product;
  double factor;  // brings a gain to the units of the mixer's lanes and the destination
  void (*inOrder)(uint8_t* dst, const uint8_t* src, size_t samples, const double* gains, size_t channels);
};

// Lanes hold integers as the top bits of 32, but for 24-in-32 words.
template <int kDst, int kSrc, Product kProduct>
inline constexpr MixPair kMixPair = {SampleFormIndex(kDst),
                                     SampleFormIndex(kSrc),
                                     kForm<kDst>.bytes,
                                     kForm<kSrc>.bytes,
                                     kProduct,
                                     (kForm<kSrc>.isFloat ? 1.0 : PowerOfTwo(8 * kForm<kSrc>.bytes - 32)) *
                                         kDecodeFactor<kSrc, kProduct>* FullScale(kForm<kDst>),
                                     MixInOrder<kDst, kSrc, kProduct>};

// Float from double multiplies in single precision.
constexpr Product ProductOf(int dst, int src) {
  return dst == QNST_FLOAT32 && src == QNST_FLOAT64 ? Product::kSingle : Product::kPlain;
}

// Mixes with the pair's fastest code, sample i times gains[i % channels]. Overlapping buffers give what a
// loop over single samples from the first on gives.
void MixSamples(const MixPair& pair, void* dst, const void* src, size_t samples, const double* gains,
                size_t channels);

// Mixes each sample with its own gain, already multiplied by the pair's factor and moderate in size. `gains`
// has kConvertBlock entries more than samples, and is used up.
void MixLaidOut(const MixPair& pair, uint8_t* dst, const uint8_t* src, size_t samples, double* gains);

// Mixes at a gain of 1.0. `samples` may be more than a LONG holds.
void MixAtUnity(QNMIXFUNCTION kernel, QNSAMPLETYPE dstType, void* dst, QNSAMPLETYPE srcType, const void* src,
                int64_t samples);

}  // namespace qn
