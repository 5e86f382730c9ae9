// The mixing of one sample, as templates over the pair of types: the rule that every mix kernel obeys. Loops
// over it serve where vector code does not: few samples, overlapping buffers, gains out of all measure,
// processors without the vector units.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "qn/audio/qncopy_rule.h"

namespace qn {

// How the sample meets its gain.
enum class Product {
  kPlain,   // the decoded sample, in double
  kSingle,  // the decoded sample and the gain made single first
  kRaw,     // the stored integer, in double: the decoding is in the gain
};

// Types that mix: the little-endian ones, which are the first of the table.
inline constexpr int kMixForms = SampleFormIndex(QNST_PCM8S) + 1;

template <int kSrc, Product kProduct>
inline constexpr double kDecodeFactor = kProduct == Product::kRaw ? 1.0 : 1.0 / FullScale(kForm<kSrc>);

// The integer that a copy stores for `y`, in units of the destination.
template <int kDst>
inline int32_t RoundToWord(double y) {
  constexpr int kUnused = 32 - kForm<kDst>.bits;
  return static_cast<int32_t>(ClipAndRound<kDst>(y) << kUnused) >> kUnused;
}

template <int kDst>
inline void AddWord(uint8_t* dst, int32_t word) {
  constexpr int64_t kHigh = static_cast<int64_t>(HighRail(kForm<kDst>));
  const int64_t sum = int64_t{LoadSample<kDst>(dst)} + word;
  StoreWord<kDst>(dst, static_cast<uint32_t>(std::clamp(sum, -kHigh - 1, kHigh)));
}

template <typename T>
inline void AddReal(uint8_t* dst, T x) {
  const T sum = LoadAs<T>(dst) + x;
  std::memcpy(dst, &sum, sizeof sum);
}

template <int kDst, int kSrc, Product kProduct>
inline void MixSample(uint8_t* dst, const uint8_t* src, double gain) {
  const auto sample = LoadSample<kSrc>(src);
  if constexpr (kProduct == Product::kSingle) {
    AddReal(dst, static_cast<float>(sample) * static_cast<float>(gain));
  } else {
    const double x = static_cast<double>(sample) * kDecodeFactor<kSrc, kProduct> * gain;
    if constexpr (kDst == QNST_FLOAT64) {
      AddReal(dst, x);
    } else if constexpr (kDst == QNST_FLOAT32) {
      AddReal(dst, static_cast<float>(x));
    } else {
      AddWord<kDst>(dst, RoundToWord<kDst>(x * FullScale(kForm<kDst>)));
    }
  }
}

template <int kDst, int kSrc, Product kProduct>
void MixInOrder(uint8_t* dst, const uint8_t* src, size_t samples, const double* gains, size_t channels) {
  size_t channel = 0;
  for (size_t i = 0; i < samples; ++i) {
    MixSample<kDst, kSrc, kProduct>(dst + i * kForm<kDst>.bytes, src + i * kForm<kSrc>.bytes, gains[channel]);
    if (++channel == channels) channel = 0;
  }
}

}  // namespace qn
