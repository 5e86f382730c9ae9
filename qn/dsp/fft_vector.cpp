// The vector code of the transforms, once for each instruction set.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/dsp/fft_vector.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include <algorithm>
#include <type_traits>
#include <utility>

#include "hwy/highway.h"
#include "qn/dsp/fft_internal.h"
#include "qn/dsp/fft_pass-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

// Transforms columns whose last step is the transform across the lanes.
template <class D>
void RunWhole(const FftPlan<hn::TFromD<D>>& plan, const hn::TFromD<D>* in, hn::TFromD<D>* out,
              hn::TFromD<D> scale, hn::TFromD<D> sign, hn::TFromD<D>* work) {
  using T = hn::TFromD<D>;
  const D d;
  constexpr size_t kV = kLanes<D>;
  T* const other = work + 2 * plan.points;
  // The last pass ends in `work`.
  T* const first = plan.column.passes % 2 ? work : other;
  RunColumn(d, plan.column, Pairs<const T>{in, kV, scale, scale * sign}, Rows<T>{work}, first,
            first == work ? other : work);
  const size_t rows = plan.column.rows;
  const Pairs<T> to{out, rows, 1, sign};
  for (size_t row = 0; row < rows; row += kV) {
    const size_t at = row * 2 * kV;
    const TwiddledRows<T, false> from{work + at, plan.laneTwiddles.get() + at, nullptr};
    Cross<true>(d, from, plan.crossTwiddles.get(), to.Moved(row));
  }
}

template <class D>
void RunFourStep(const FftPlan<hn::TFromD<D>>& plan, const hn::TFromD<D>* in, hn::TFromD<D>* out,
                 hn::TFromD<D> scale, hn::TFromD<D> sign, hn::TFromD<D>* work) {
  using T = hn::TFromD<D>;
  const D d;
  constexpr size_t kV = kLanes<D>;
  const size_t rows = plan.column.rows, columns = plan.second.rows;
  T* const local = work + 2 * plan.points;
  T* const other = local + 2 * kV * rows;
  T* const first = plan.column.passes % 2 ? local : other;
  const T* blockTwiddle = plan.blockTwiddles.get();
  for (size_t column = 0; column < columns; column += kV) {
    RunColumn(d, plan.column, Pairs<const T>{in + 2 * column, columns, scale, scale * sign}, Rows<T>{local},
              first, first == local ? other : local);
    for (size_t row = 0; row < rows; row += kV, blockTwiddle += 2 * kV) {
      const size_t at = row * 2 * kV;
      const TwiddledRows<T, true> from{local + at, plan.laneTwiddles.get() + at, blockTwiddle};
      Cross<false>(d, from, nullptr, Rows<T>{work + 2 * (row * columns + column * kV)});
    }
  }
  for (size_t row = 0; row < rows; row += kV) {
    RunColumn(d, plan.second, Rows<const T>{work + 2 * row * columns}, Pairs<T>{out + 2 * row, rows, 1, sign},
              local, other);
  }
}

// X[k] = E - i w^k O and X[n - k] = conj(E + i w^k O), with E and O the sum and the difference of Z[k] and
// conj(Z[n - k]); the way back has -conj(w^k). The middle one is its own partner.
template <class D>
void Split(const FftPlan<double>& plan, double* data, double sign) {
  const D d;
  constexpr size_t kV = kLanes<D>;
  const double* const twiddles = plan.splitTwiddles.get();
  const auto lanes = LoadRow(d, twiddles);
  const auto realSign = hn::Set(d, sign);
  const size_t vectors = plan.points / 2 / kV;
  for (size_t i = 0; i < vectors; ++i) {
    double* const low = data + 2 * (1 + i * kV);
    double* const high = data + 2 * (plan.points - (i + 1) * kV);
    auto w = Multiply(lanes, SetBoth(d, twiddles + 2 * (kV + i)));
    w.re = hn::Mul(w.re, realSign);
    const auto a = LoadBlocks<false>(d, low), b = LoadBlocks<true>(d, high);
    const Complex<D> even{hn::Add(a.re, b.re), hn::Sub(a.im, b.im)};
    const Complex<D> odd = Multiply(Complex<D>{hn::Sub(a.re, b.re), hn::Add(a.im, b.im)}, w);
    StoreBlocks<false>(MinusTurned(even, odd), low);
    const Complex<D> mirrored = PlusTurned(even, odd);
    StoreBlocks<true>(Complex<D>{mirrored.re, hn::Neg(mirrored.im)}, high);
  }
}

template <typename T, size_t kMost>
const FftKernels<T>& KernelsUpTo(size_t points) {
  using D = hn::CappedTag<T, kMost>;
  constexpr size_t kV = kLanes<D>;
  static constexpr FftKernels<T> kKernels = [] {
    FftKernels<T> kernels{kV, RunWhole<D>, RunFourStep<D>, nullptr};
    if constexpr (std::is_same_v<T, double>) kernels.split = Split<D>;
    return kernels;
  }();
  if constexpr (kV > 1) {
    if (kV * kV > points) return KernelsUpTo<T, kV / 2>(points);
  }
  return kKernels;
}

const FftKernels<float>& KernelsFloat(size_t points) {
  return KernelsUpTo<float, HWY_MAX_BYTES / sizeof(float)>(points);
}

const FftKernels<double>& KernelsDouble(size_t points) {
  return KernelsUpTo<double, HWY_MAX_BYTES / sizeof(double)>(points);
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(KernelsFloat);
HWY_EXPORT(KernelsDouble);

template <>
const FftKernels<float>& FindFftKernels(size_t points) {
  return HWY_DYNAMIC_DISPATCH(KernelsFloat)(points);
}

template <>
const FftKernels<double>& FindFftKernels(size_t points) {
  return HWY_DYNAMIC_DISPATCH(KernelsDouble)(points);
}

}  // namespace qn
#endif
