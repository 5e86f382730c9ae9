// Rounding, and its error fed back, over blocks of channels, for one instruction set.

#if defined(QN_DSP_QNDITHER_SHAPE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef QN_DSP_QNDITHER_SHAPE_INL_H_
#undef QN_DSP_QNDITHER_SHAPE_INL_H_
#else
#define QN_DSP_QNDITHER_SHAPE_INL_H_
#endif

#include <cstddef>
#include <cstdint>

#include "hwy/highway.h"
#include "qn/dsp/qndither_noise-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

// Leaves the nearest integer, of ties the even one, in the low half of a sum's bits, modulo 2^32.
constexpr double kRounder = 6755399441055744.0;

template <class D>
HWY_INLINE hn::Vec<D> Rounded(D d, hn::Vec<D> v) {
  const hn::Rebind<uint32_t, D> low;
  const auto bits = hn::BitCast(hn::Rebind<uint64_t, D>(), hn::Add(v, hn::Set(d, kRounder)));
  return hn::PromoteTo(d, hn::BitCast(hn::Rebind<int32_t, D>(), hn::TruncateTo(low, bits)));
}

constexpr size_t kShapeBlock = 512;  // several arrays of it fit the first cache

// One channel on its way.
struct Chain {
  double e1, e2;  // the errors
  HWY_ALIGN double x[kShapeBlock];
  HWY_ALIGN double steps[kShapeBlock];  // x + noise - the noise before
  HWY_ALIGN double v[kShapeBlock];      // the sample with the errors; then the result
  HWY_ALIGN double q[kShapeBlock];      // the integer guessed
  double noise[1 + kShapeBlock];        // behind a zero: the guess starts anew in each block
};

// Each sample waits for the error of the one before, so channels side by side take the time of one.
template <size_t kChains, bool kSecond>
void ShapeByRule(Chain (&chains)[kChains], size_t count, double inverseScale, double factor) {
  const One d;
  for (size_t at = 0; at < count; ++at) {
    for (Chain& chain : chains) {
      double v = chain.x[at] - chain.e1;
      if (kSecond) {
        v += chain.e2;
        chain.e2 = chain.e1 * factor;
      }
      const double q = hn::GetLane(Rounded(d, hn::Set(d, v + chain.noise[1 + at])));
      chain.e1 = q - v;
      chain.v[at] = q * inverseScale;
    }
  }
}

// Less is waited for if the integer is guessed. What is rounded is sum[n] = v[n] + noise[n], and with the
// error e1 = q[n-1] - v[n-1] in v[n] = x[n] - e1 (+ e2) that is
//   sum[n] = sum[n-1] - q[n-1] + x[n] + noise[n] - noise[n-1] (+ e2),
// which waits for the last integer only and not for its error. Sums in another order seldom make another
// integer.
template <bool kSecond>
class Guess {
 public:
  explicit HWY_INLINE Guess(const Chain& chain) : e1_(chain.e1), e2_(chain.e2), sum_(-chain.e1) {}

  HWY_INLINE void Step(Chain& chain, size_t at, double factor) {
    sum_ += chain.steps[at];
    if (kSecond) sum_ += e2_;
    sum_ -= q_;
    q_ = sum_ + kRounder - kRounder;
    const double v = kSecond ? chain.x[at] - e1_ + e2_ : chain.x[at] - e1_;
    if (kSecond) e2_ = e1_ * factor;
    e1_ = q_ - v;
    chain.v[at] = v;
    chain.q[at] = q_;
  }

  HWY_INLINE void Leave(Chain& chain) const {
    chain.e1 = e1_;
    chain.e2 = e2_;
  }

 private:
  double e1_, e2_, sum_;
  double q_ = 0;
};

template <size_t kChains, bool kSecond>
void GuessShape(Chain (&chains)[kChains], size_t count, double factor) {
  // Not in an array, which would lie in memory.
  Guess<kSecond> first(chains[0]), last(chains[kChains - 1]);
  for (size_t at = 0; at < count; ++at) {
    first.Step(chains[0], at, factor);
    if (kChains == 2) last.Step(chains[kChains - 1], at, factor);
  }
  first.Leave(chains[0]);
  if (kChains == 2) last.Leave(chains[kChains - 1]);
}

// True if all guesses are what the rule makes; then `v` becomes the result. Each v was made by the rule from
// the guesses before it: if the first guess is right, so is the v behind it, and so on.
bool Confirm(Chain& chain, size_t count, double inverseScale) {
  bool same = true;
  InSteps(count, [&](auto d, size_t at) HWY_ATTR {
    const auto q = Rounded(d, hn::Add(hn::LoadU(d, chain.v + at), hn::LoadU(d, chain.noise + 1 + at)));
    same &= hn::AllTrue(d, hn::Eq(q, hn::LoadU(d, chain.q + at)));
    hn::StoreU(hn::Mul(q, hn::Set(d, inverseScale)), d, chain.v + at);
  });
  return same;
}

template <size_t kChains, bool kSecond>
void ShapeBlock(Chain (&chains)[kChains], size_t count, double inverseScale, double factor) {
  double e1[kChains], e2[kChains];
  for (size_t c = 0; c < kChains; ++c) {
    e1[c] = chains[c].e1;
    e2[c] = chains[c].e2;
  }
  GuessShape<kChains, kSecond>(chains, count, factor);
  bool same = true;
  for (Chain& chain : chains) same &= Confirm(chain, count, inverseScale);
  if (same) return;
  for (size_t c = 0; c < kChains; ++c) {
    chains[c].e1 = e1[c];
    chains[c].e2 = e2[c];
  }
  ShapeByRule<kChains, kSecond>(chains, count, inverseScale, factor);
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#endif
