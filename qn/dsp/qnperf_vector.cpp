// The vector operations, once for each instruction set. What is left after whole vectors takes the same steps
// in vectors of one lane.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/dsp/qnperf_vector.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include <limits>

#include "hwy/highway.h"
#include "qn/dsp/qnperf_internal.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

template <typename T>
using Full = hn::ScalableTag<T>;
template <typename T>
using One = hn::CappedTag<T, 1>;

template <class D>
size_t RootsFrom(D d, size_t at, const float* in, float* out, size_t count) {
  for (; at + hn::Lanes(d) <= count; at += hn::Lanes(d)) {
    hn::StoreU(hn::Sqrt(hn::LoadU(d, in + at)), d, out + at);
  }
  return at;
}

void SquareRootsOf(const float* in, float* out, size_t count) {
  RootsFrom(One<float>(), RootsFrom(Full<float>(), 0, in, out, count), in, out, count);
}

// Several vectors of each, so that one comparison need not wait for the last.
template <class D, typename T>
size_t WidenFrom(D d, size_t at, const T* in, size_t count, T* min, T* max) {
  constexpr size_t kVectors = 4;
  const size_t lanes = hn::Lanes(d);
  hn::Vec<D> low[kVectors], high[kVectors];
  for (size_t i = 0; i < kVectors; ++i) {
    low[i] = hn::Set(d, *min);
    high[i] = hn::Set(d, *max);
  }
  for (; at + kVectors * lanes <= count; at += kVectors * lanes) {
    for (size_t i = 0; i < kVectors; ++i) {
      // Comparisons with a NaN are false.
      const auto x = hn::LoadU(d, in + at + i * lanes);
      low[i] = hn::IfThenElse(hn::Lt(x, low[i]), x, low[i]);
      high[i] = hn::IfThenElse(hn::Gt(x, high[i]), x, high[i]);
    }
  }
  for (size_t i = 1; i < kVectors; ++i) {
    low[0] = hn::Min(low[0], low[i]);
    high[0] = hn::Max(high[0], high[i]);
  }
  *min = hn::GetLane(hn::MinOfLanes(d, low[0]));
  *max = hn::GetLane(hn::MaxOfLanes(d, high[0]));
  return at;
}

template <typename T>
void MinMaxOf(const T* in, size_t count, T* min, T* max) {
  constexpr T kInfinity = std::numeric_limits<T>::infinity();
  T low = kInfinity, high = -kInfinity;
  for (size_t at = WidenFrom(Full<T>(), 0, in, count, &low, &high); at < count; ++at) {
    if (in[at] < low) low = in[at];
    if (in[at] > high) high = in[at];
  }
  const bool none = low > high;
  *min = none ? in[0] : low;
  *max = none ? in[0] : high;
}

template <class D>
size_t ProductsFrom(D d, size_t at, const double* in, double* inOut, size_t count) {
  for (; at + hn::Lanes(d) <= count; at += hn::Lanes(d)) {
    hn::Vec<D> ar, ai, br, bi;
    hn::LoadInterleaved2(d, in + 2 * at, ar, ai);
    hn::LoadInterleaved2(d, inOut + 2 * at, br, bi);
    hn::StoreInterleaved2(hn::Sub(hn::Mul(br, ar), hn::Mul(bi, ai)),
                          hn::Add(hn::Mul(br, ai), hn::Mul(bi, ar)), d, inOut + 2 * at);
  }
  return at;
}

void ProductsOf(const double* in, double* inOut, size_t count) {
  ProductsFrom(One<double>(), ProductsFrom(Full<double>(), 0, in, inOut, count), in, inOut, count);
}

void ConjugatesOf(double* inOut, size_t count) {
  size_t at = 0;
#if HWY_TARGET != HWY_SCALAR
  const Full<double> d;
  const size_t pairs = hn::Lanes(d) / 2;
  const auto signs = hn::OddEven(hn::Set(d, -0.0), hn::Zero(d));
  for (; at + pairs <= count; at += pairs) {
    hn::StoreU(hn::Xor(hn::LoadU(d, inOut + 2 * at), signs), d, inOut + 2 * at);
  }
#endif
  for (; at < count; ++at) inOut[2 * at + 1] = -inOut[2 * at + 1];
}

template <class D>
size_t StereoFrom(D d, size_t at, const float* in, size_t frames, float* left, float* right) {
  for (; at + hn::Lanes(d) <= frames; at += hn::Lanes(d)) {
    hn::Vec<D> l, r;
    hn::LoadInterleaved2(d, in + 2 * at, l, r);
    hn::StoreU(l, d, left + at);
    hn::StoreU(r, d, right + at);
  }
  return at;
}

void StereoOf(const float* in, size_t frames, float* left, float* right) {
  const size_t done = StereoFrom(Full<float>(), 0, in, frames, left, right);
  StereoFrom(One<float>(), done, in, frames, left, right);
}

void MinMaxFloats(const float* in, size_t count, float* min, float* max) {
  MinMaxOf(in, count, min, max);
}

void MinMaxDoubles(const double* in, size_t count, double* min, double* max) {
  MinMaxOf(in, count, min, max);
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(SquareRootsOf);
HWY_EXPORT(MinMaxFloats);
HWY_EXPORT(MinMaxDoubles);
HWY_EXPORT(ProductsOf);
HWY_EXPORT(ConjugatesOf);
HWY_EXPORT(StereoOf);

void SquareRoots(const float* in, float* out, size_t count) {
  HWY_DYNAMIC_DISPATCH(SquareRootsOf)(in, out, count);
}

void FindMinMax(const float* in, size_t count, float* min, float* max) {
  HWY_DYNAMIC_DISPATCH(MinMaxFloats)(in, count, min, max);
}

void FindMinMax(const double* in, size_t count, double* min, double* max) {
  HWY_DYNAMIC_DISPATCH(MinMaxDoubles)(in, count, min, max);
}

void MultiplyPairs(const double* in, double* inOut, size_t count) {
  HWY_DYNAMIC_DISPATCH(ProductsOf)(in, inOut, count);
}

void ConjugatePairs(double* inOut, size_t count) {
  HWY_DYNAMIC_DISPATCH(ConjugatesOf)(inOut, count);
}

void DeinterleaveStereo(const float* in, size_t frames, float* left, float* right) {
  HWY_DYNAMIC_DISPATCH(StereoOf)(in, frames, left, right);
}

}  // namespace qn
#endif
