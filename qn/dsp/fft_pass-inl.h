// Butterflies, passes over a column, and the exchange of rows and lanes, for one instruction set. Included by
// fft_vector.cpp once a target.

#if defined(QN_DSP_FFT_PASS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef QN_DSP_FFT_PASS_INL_H_
#undef QN_DSP_FFT_PASS_INL_H_
#else
#define QN_DSP_FFT_PASS_INL_H_
#endif

#include <algorithm>
#include <type_traits>
#include <utility>

#include "hwy/highway.h"
#include "qn/dsp/fft_internal.h"

// Arrays of vectors become registers only when every loop over them is unrolled.
#undef QN_FFT_UNROLL
#if defined(__clang__)
#define QN_FFT_UNROLL _Pragma("clang loop unroll(full)")
#else
#define QN_FFT_UNROLL _Pragma("GCC unroll 16")
#endif

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

template <class D>
constexpr size_t kLanes = hn::MaxLanes(D());

template <class D>
struct Complex {
  hn::Vec<D> re, im;
};

template <class D>
HWY_INLINE Complex<D> Plus(const Complex<D>& a, const Complex<D>& b) {
  return {hn::Add(a.re, b.re), hn::Add(a.im, b.im)};
}
template <class D>
HWY_INLINE Complex<D> Minus(const Complex<D>& a, const Complex<D>& b) {
  return {hn::Sub(a.re, b.re), hn::Sub(a.im, b.im)};
}
// a - i b
template <class D>
HWY_INLINE Complex<D> MinusTurned(const Complex<D>& a, const Complex<D>& b) {
  return {hn::Add(a.re, b.im), hn::Sub(a.im, b.re)};
}
// a + i b
template <class D>
HWY_INLINE Complex<D> PlusTurned(const Complex<D>& a, const Complex<D>& b) {
  return {hn::Sub(a.re, b.im), hn::Add(a.im, b.re)};
}
template <class D>
HWY_INLINE Complex<D> Multiply(const Complex<D>& a, const Complex<D>& b) {
  return {hn::NegMulAdd(a.im, b.im, hn::Mul(a.re, b.re)), hn::MulAdd(a.re, b.im, hn::Mul(a.im, b.re))};
}

// ---------------------------------------------------------------- memory

template <class D>
HWY_INLINE Complex<D> LoadRow(D d, const hn::TFromD<D>* from) {
  return {hn::Load(d, from), hn::Load(d, from + kLanes<D>)};
}
template <class D>
HWY_INLINE void StoreRow(const Complex<D>& x, hn::TFromD<D>* to) {
  const D d;
  hn::Store(x.re, d, to);
  hn::Store(x.im, d, to + kLanes<D>);
}
template <class D>
HWY_INLINE Complex<D> LoadPairs(D d, const hn::TFromD<D>* from) {
  Complex<D> x;
  hn::LoadInterleaved2(d, from, x.re, x.im);
  return x;
}
// Pairs in the order of blocks: their two vectors are interleaved within each block of 16 bytes, which costs
// less than to bring the lanes in order. Element of lane i: see ElementOfLane. kReversed takes pairs of
// doubles from the last to the first.
#if HWY_TARGET == HWY_SCALAR

template <bool kReversed, class D>
HWY_INLINE Complex<D> LoadBlocks(D d, const hn::TFromD<D>* from) {
  return LoadPairs(d, from);
}
template <bool kReversed, class D>
HWY_INLINE void StoreBlocks(const Complex<D>& x, hn::TFromD<D>* to) {
  hn::StoreInterleaved2(x.re, x.im, D(), to);
}

#else

template <bool kReversed, class D>
HWY_INLINE Complex<D> LoadBlocks(D d, const hn::TFromD<D>* from) {
  if constexpr (kLanes<D> == 1) {
    return LoadPairs(d, from);
  } else {
    auto a = hn::LoadU(d, from), b = hn::LoadU(d, from + kLanes<D>);
    if constexpr (kReversed) {
      const auto first = hn::ReverseBlocks(d, b);
      b = hn::ReverseBlocks(d, a);
      a = first;
    }
    return {hn::InterleaveLower(d, a, b), hn::InterleaveUpper(d, a, b)};
  }
}
template <bool kReversed, class D>
HWY_INLINE void StoreBlocks(const Complex<D>& x, hn::TFromD<D>* to) {
  const D d;
  if constexpr (kLanes<D> == 1) {
    hn::StoreInterleaved2(x.re, x.im, d, to);
  } else {
    auto a = hn::InterleaveLower(d, x.re, x.im), b = hn::InterleaveUpper(d, x.re, x.im);
    if constexpr (kReversed) {
      const auto first = hn::ReverseBlocks(d, b);
      b = hn::ReverseBlocks(d, a);
      a = first;
    }
    hn::StoreU(a, d, to);
    hn::StoreU(b, d, to + kLanes<D>);
  }
}

#endif

template <class D>
HWY_INLINE Complex<D> SetBoth(D d, const hn::TFromD<D>* factor) {
  return {hn::Set(d, factor[0]), hn::Set(d, factor[1])};
}

// The vectors in a row: a number, or one, which the compiler knows.
using One = std::integral_constant<size_t, 1>;

// Rows of a column of `wide` vectors a row; `part` is one of them.
template <typename T, class Wide>
struct Rows {
  T* base;
  Wide wide;

  template <class D>
  HWY_INLINE Complex<D> Load(D d, size_t row, size_t part) const {
    return LoadRow(d, base + (row * wide + part) * 2 * kLanes<D>);
  }
  template <class D>
  HWY_INLINE void Store(const Complex<D>& x, size_t row, size_t part) const {
    StoreRow(x, base + (row * wide + part) * 2 * kLanes<D>);
  }
};

// Rows of a column, each multiplied by a row of factors, and in four steps by one factor for all lanes too.
template <typename T, class Wide>
struct TwiddledRows {
  static constexpr bool kFourStep = !std::is_same_v<Wide, One>;
  Rows<const T, Wide> rows;
  const T* twiddles;
  const T* rowTwiddles;

  template <class D>
  HWY_INLINE Complex<D> Load(D d, size_t row) const {
    Complex<D> twiddle = LoadRow(d, twiddles + row * 2 * kLanes<D>);
    if (kFourStep) twiddle = Multiply(twiddle, SetBoth(d, rowTwiddles + 2 * row));
    return Multiply(rows.Load(d, row, 0), twiddle);
  }
};

// Rows of pairs in the caller's memory, `stride` pairs apart. They are read in order and stored from the
// order of blocks. The conjugates of a transform's input and output make it the inverse, so the factors of
// the imaginary parts are the direction.
template <typename T>
struct Pairs {
  T* base;
  size_t stride;
  std::remove_const_t<T> re, im;

  template <class D>
  HWY_INLINE Complex<D> Load(D d, size_t row, size_t part) const {
    const Complex<D> x = LoadPairs(d, base + 2 * (row * stride + part * kLanes<D>));
    return {hn::Mul(x.re, hn::Set(d, re)), hn::Mul(x.im, hn::Set(d, im))};
  }
  template <class D>
  HWY_INLINE void Store(const Complex<D>& x, size_t row, size_t part) const {
    const Complex<D> directed{x.re, hn::Mul(x.im, hn::Set(D(), im))};
    StoreBlocks<false>(directed, base + 2 * (row * stride + part * kLanes<D>));
  }
};

// ---------------------------------------------------------------- butterflies

template <class D>
HWY_INLINE void Butterfly(Complex<D> (&)[1]) {}

template <class D>
HWY_INLINE void Butterfly(Complex<D> (&x)[2]) {
  const Complex<D> sum = Plus(x[0], x[1]);
  x[1] = Minus(x[0], x[1]);
  x[0] = sum;
}

template <class D>
HWY_INLINE void Butterfly(Complex<D> (&x)[4]) {
  const Complex<D> a = Plus(x[0], x[2]), b = Minus(x[0], x[2]);
  const Complex<D> c = Plus(x[1], x[3]), d = Minus(x[1], x[3]);
  x[0] = Plus(a, c);
  x[1] = MinusTurned(b, d);
  x[2] = Minus(a, c);
  x[3] = PlusTurned(b, d);
}

template <class D>
HWY_INLINE void Butterfly(Complex<D> (&x)[8]) {
  Complex<D> even[4] = {x[0], x[2], x[4], x[6]}, odd[4] = {x[1], x[3], x[5], x[7]};
  Butterfly(even);
  Butterfly(odd);
  const auto root = hn::Set(D(), static_cast<hn::TFromD<D>>(0.70710678118654752440));
  x[0] = Plus(even[0], odd[0]);
  x[4] = Minus(even[0], odd[0]);
  x[2] = MinusTurned(even[2], odd[2]);
  x[6] = PlusTurned(even[2], odd[2]);
  // (1 - i) odd[1] and (1 + i) odd[3], to be multiplied by the root of one half.
  const Complex<D> b = MinusTurned(odd[1], odd[1]), d = PlusTurned(odd[3], odd[3]);
  x[1] = {hn::MulAdd(root, b.re, even[1].re), hn::MulAdd(root, b.im, even[1].im)};
  x[5] = {hn::NegMulAdd(root, b.re, even[1].re), hn::NegMulAdd(root, b.im, even[1].im)};
  x[3] = {hn::NegMulAdd(root, d.re, even[3].re), hn::NegMulAdd(root, d.im, even[3].im)};
  x[7] = {hn::MulAdd(root, d.re, even[3].re), hn::MulAdd(root, d.im, even[3].im)};
}

// ---------------------------------------------------------------- columns

// One pass of Stockham's autosort form, decimation in time: `kRadix` transforms of `joined` rows each become
// one, for all places of the column.
template <size_t kRadix, bool kTwiddles, class D, class Wide, class In, class Out>
HWY_NOINLINE void Pass(D d, size_t rows, Wide wide, size_t joined, const hn::TFromD<D>* twiddles, In in,
                       Out out) {
  const size_t apart = rows / kRadix;
  for (size_t at = 0, to = 0; at < apart; at += joined, to += kRadix * joined) {
    const hn::TFromD<D>* w = twiddles;
    for (size_t row = 0; row < joined; ++row) {
      for (size_t part = 0; part < wide; ++part) {
        Complex<D> x[kRadix];
        QN_FFT_UNROLL
        for (size_t i = 0; i < kRadix; ++i) {
          x[i] = in.Load(d, at + row + i * apart, part);
          if (kTwiddles && i > 0) x[i] = Multiply(x[i], SetBoth(d, w + 2 * (i - 1)));
        }
        Butterfly(x);
        QN_FFT_UNROLL
        for (size_t i = 0; i < kRadix; ++i) out.Store(x[i], to + row + i * joined, part);
      }
      w += 2 * (kRadix - 1);
    }
  }
}

// All passes; those between the first and the last go from `first` to `second` and back.
template <class D, class Wide>
class ColumnRunner {
 public:
  using T = hn::TFromD<D>;
  ColumnRunner(const FftColumn<T>& column, Wide wide, T* first, T* second)
      : column_(column), wide_(wide), first_(first), second_(second) {}

  template <class In, class Out>
  void Run(In in, Out out) {
    if (column_.passes < 2) return PassOf<false>(column_.rows, 1, nullptr, in, out);
    PassOf<false>(column_.radix[0], 1, nullptr, in, Rows<T, Wide>{first_, wide_});
    const T* twiddles = column_.twiddles.get();
    size_t joined = column_.radix[0];
    T *from = first_, *to = second_;
    for (size_t pass = 1;; ++pass) {
      const size_t radix = column_.radix[pass];
      const Rows<const T, Wide> rows{from, wide_};
      if (pass + 1 == column_.passes) return PassOf<true>(radix, joined, twiddles, rows, out);
      PassOf<true>(radix, joined, twiddles, rows, Rows<T, Wide>{to, wide_});
      twiddles += 2 * joined * (radix - 1);
      joined *= radix;
      std::swap(from, to);
    }
  }

 private:
  template <bool kTwiddles, class In, class Out>
  HWY_INLINE void PassOf(size_t radix, size_t joined, const T* twiddles, In in, Out out) {
    const auto pass = radix == 8   ? Pass<8, kTwiddles, D, Wide, In, Out>
                      : radix == 4 ? Pass<4, kTwiddles, D, Wide, In, Out>
                      : radix == 2 ? Pass<2, kTwiddles, D, Wide, In, Out>
                                   : Pass<1, kTwiddles, D, Wide, In, Out>;
    pass(D(), column_.rows, wide_, joined, twiddles, in, out);
  }

  const FftColumn<T>& column_;
  Wide wide_;
  T *first_, *second_;
};

// ---------------------------------------------------------------- rows and lanes

#if HWY_TARGET == HWY_SCALAR

// One lane has nothing to exchange.
template <class D, size_t kCount>
HWY_INLINE void TransposeWithin(D, hn::Vec<D> (&)[kCount]) {}
template <class D, size_t kCount>
HWY_INLINE void TransposeBlocks(D, hn::Vec<D> (&)[kCount]) {}

#else

// x0 y0 x1 y1 ... of the low and the high half of each block of 16 bytes.
template <class D>
HWY_INLINE void Interleave(D d, hn::Vec<D>& x, hn::Vec<D>& y) {
  const auto low = hn::InterleaveLower(d, x, y);
  y = hn::InterleaveUpper(d, x, y);
  x = low;
}

// Exchanges the index of a row with that of the lane within its block.
template <class D, size_t kCount>
HWY_INLINE void TransposeWithin(D d, hn::Vec<D> (&x)[kCount]) {
  if constexpr (kCount == 2) {
    Interleave(d, x[0], x[1]);
  } else if constexpr (kCount == 4) {
    Interleave(d, x[0], x[2]);
    Interleave(d, x[1], x[3]);
    Interleave(d, x[0], x[1]);
    Interleave(d, x[2], x[3]);
  }
}

// Halves: the low ones of both, and the high ones.
template <class D>
HWY_INLINE void ExchangeHalves(D d, hn::Vec<D>& x, hn::Vec<D>& y) {
  const auto low = hn::ConcatLowerLower(d, y, x);
  y = hn::ConcatUpperUpper(d, y, x);
  x = low;
}

// Exchanges the index of a row with that of the block of 16 bytes.
template <class D, size_t kCount>
HWY_INLINE void TransposeBlocks(D d, hn::Vec<D> (&x)[kCount]) {
  if constexpr (kCount == 2) {
    ExchangeHalves(d, x[0], x[1]);
  } else if constexpr (kCount == 4) {
    for (size_t i = 0; i < 4; i += 2) {
      const auto even = hn::OddEvenBlocks(hn::SwapAdjacentBlocks(x[i + 1]), x[i]);
      x[i + 1] = hn::OddEvenBlocks(x[i + 1], hn::SwapAdjacentBlocks(x[i]));
      x[i] = even;
    }
    ExchangeHalves(d, x[0], x[2]);
    ExchangeHalves(d, x[1], x[3]);
  }
}

#endif

template <bool kBlocks, class D, size_t kCount>
HWY_INLINE void Transpose(D d, Complex<D> (&x)[kCount]) {
  hn::Vec<D> re[kCount], im[kCount];
  QN_FFT_UNROLL
  for (size_t i = 0; i < kCount; ++i) {
    re[i] = x[i].re;
    im[i] = x[i].im;
  }
  if constexpr (kBlocks) {
    TransposeBlocks(d, re);
    TransposeBlocks(d, im);
  } else {
    TransposeWithin(d, re);
    TransposeWithin(d, im);
  }
  QN_FFT_UNROLL
  for (size_t i = 0; i < kCount; ++i) x[i] = {re[i], im[i]};
}

// Exchanges rows and lanes of a square in two steps: blocks of 16 bytes, and within them. The rows are taken
// in the order of blocks, so that is the order of the lanes then. With kTransform
// each step does its share of the transform across the lanes, radix 4 or 2.
template <bool kTransform, class D, class In, class Out>
HWY_INLINE void Cross(D d, In in, const hn::TFromD<D>* twiddles, Out out) {
  constexpr size_t kV = kLanes<D>;
  constexpr size_t kWithin = std::min(kV, 16 / sizeof(hn::TFromD<D>));
  constexpr size_t kBlocks = kV / kWithin;
  Complex<D> square[kBlocks][kWithin];
  QN_FFT_UNROLL
  for (size_t within = 0; within < kWithin; ++within) {
    Complex<D> x[kBlocks];
    QN_FFT_UNROLL
    for (size_t i = 0; i < kBlocks; ++i) x[i] = in.Load(d, ElementOfLane(within + i * kWithin, kV, kWithin));
    Transpose<true>(d, x);
    if (kTransform) Butterfly(x);
    QN_FFT_UNROLL
    for (size_t i = 0; i < kBlocks; ++i) {
      const bool turns = kTransform && i > 0;
      square[i][within] = turns ? Multiply(x[i], LoadRow(d, twiddles + i * 2 * kV)) : x[i];
    }
  }
  QN_FFT_UNROLL
  for (size_t block = 0; block < kBlocks; ++block) {
    auto& x = square[block];
    Transpose<false>(d, x);
    if (kTransform) Butterfly(x);
    QN_FFT_UNROLL
    for (size_t i = 0; i < kWithin; ++i)
      out.Store(x[i], kTransform ? block + i * kBlocks : block * kWithin + i, 0);
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#endif
