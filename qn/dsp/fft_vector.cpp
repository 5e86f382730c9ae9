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

// Transforms a column whose last step is the transform across the lanes.
template <class D>
void RunWhole(const FftPlan<hn::TFromD<D>>& plan, const hn::TFromD<D>* in, hn::TFromD<D>* out,
              hn::TFromD<D> scale, hn::TFromD<D> sign, hn::TFromD<D>* work) {
  using T = hn::TFromD<D>;
  constexpr size_t kV = kLanes<D>;
  const size_t rows = plan.column.rows;
  T* const other = work + 2 * plan.points;
  // The last pass ends in `work`.
  const bool odd = plan.column.passes % 2;
  ColumnRunner<D, One>(plan.column, One(), odd ? work : other, odd ? other : work)
      .Run(Pairs<const T>{in, kV, scale, scale * sign}, Rows<T, One>{work, {}});
  for (size_t row = 0; row < rows; row += kV) {
    const size_t at = row * 2 * kV;
    const TwiddledRows<T, One> from{{work + at, {}}, plan.laneTwiddles.get() + at, nullptr};
    Cross<true>(D(), from, plan.crossTwiddles.get(), Pairs<T>{out + 2 * row, rows, 1, sign});
  }
}

// The matrix between the two columns lies in `work` as the rows of the second ones.
template <class D>
void RunFourStep(const FftPlan<hn::TFromD<D>>& plan, const hn::TFromD<D>* in, hn::TFromD<D>* out,
                 hn::TFromD<D> scale, hn::TFromD<D> sign, hn::TFromD<D>* work) {
  using T = hn::TFromD<D>;
  constexpr size_t kV = kLanes<D>;
  const size_t rows = plan.column.rows, columns = plan.second.rows, wide = plan.wide;
  T* const local = work + 2 * plan.points;
  T* const other = local + 2 * rows * wide * kV;
  const bool odd = plan.column.passes % 2;
  ColumnRunner<D, size_t> first(plan.column, wide, odd ? local : other, odd ? other : local);
  const T* blockTwiddle = plan.blockTwiddles.get();
  for (size_t column = 0; column < columns; column += wide * kV) {
    first.Run(Pairs<const T>{in + 2 * column, columns, scale, scale * sign}, Rows<T, size_t>{local, wide});
    for (size_t part = 0; part < wide; ++part) {
      for (size_t row = 0; row < rows; row += kV, blockTwiddle += 2 * kV) {
        const Rows<const T, size_t> from{local + (row * wide + part) * 2 * kV, wide};
        const T* const laneTwiddles = plan.laneTwiddles.get() + row * 2 * kV;
        // Where the rows of the second columns begin, the row there, and the part of that.
        const size_t group = row / (wide * kV), toRow = column + part * kV, toPart = row / kV % wide;
        T* const to = work + ((group * columns + toRow) * wide + toPart) * 2 * kV;
        Cross<false>(D(), TwiddledRows<T, size_t>{from, laneTwiddles, blockTwiddle}, nullptr,
                     Rows<T, size_t>{to, wide});
      }
    }
  }
  ColumnRunner<D, size_t> second(plan.second, wide, local, other);
  for (size_t row = 0; row < rows; row += wide * kV) {
    second.Run(Rows<const T, size_t>{work + 2 * row * columns, wide}, Pairs<T>{out + 2 * row, rows, 1, sign});
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
