// A band is a recursion, whose steps wait for each other, and so is the chain. The lanes of vectors therefore
// hold several bands of one or two channels, each band some frames behind the one before, and all recursions
// run side by side. Each result has the bits that band after band and sample after sample would give.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/dsp/qneq_vector.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "qn/dsp/frames-inl.h"
#include "qn/dsp/qneq_vector.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

// How many frames a band is behind the one before it, so that the result of that one is not waited for.
constexpr size_t kLag = 4;
constexpr size_t kBlock = 1024;  // frames that fit the first cache

using D = hn::CappedTag<double, 8>;
using V = hn::Vec<D>;
using M = hn::Mask<D>;
constexpr size_t kLanes = hn::MaxLanes(D());

// On processors without vectors Highway limits what is beyond a float.
#if HWY_TARGET == HWY_EMU128 || HWY_TARGET == HWY_SCALAR
constexpr bool kDemoteLimits = true;
#else
constexpr bool kDemoteLimits = false;
#endif

HWY_INLINE V RoundToFloat(V v) {
  const D d;
  if constexpr (kDemoteLimits) {
    HWY_ALIGN double lanes[kLanes];
    hn::Store(v, d, lanes);
    for (double& lane : lanes) lane = static_cast<float>(lane);
    return hn::Load(d, lanes);
  } else {
    return hn::PromoteTo(d, hn::DemoteTo(hn::Rebind<float, D>(), v));
  }
}

template <class T>
void Scatter(const double* in, size_t stride, size_t count, T* out) {
  if constexpr (kDemoteLimits) {
    for (size_t i = 0; i < count; ++i) out[i * stride] = static_cast<T>(in[i]);
  } else {
    ScatterChannel(in, stride, count, out);
  }
}

// A frame in the lowest lanes.
template <size_t kChannels>
HWY_INLINE V LoadFrame(const double* v) {
  if constexpr (kChannels == 1)
    return hn::Set(D(), *v);
  else
    return hn::LoadDup128(D(), v);
}
template <size_t kChannels, class Tag>
HWY_INLINE void StoreFrame(Tag d, hn::Vec<Tag> frame, double* v) {
  if constexpr (kChannels == 1) {
    *v = hn::GetLane(frame);
  } else if constexpr (hn::MaxLanes(Tag()) == kChannels) {
    hn::StoreU(frame, d, v);
  } else {
    const hn::Half<Tag> half;
    StoreFrame<kChannels>(half, hn::LowerHalf(half, frame), v);
  }
}

// The bands of one vector. In a shelf's lanes s2 stays 0 and a2 is -0: their product is -0, which no sum
// notices.
struct Lanes {
  V gain, a1, a2, s1, s2;
  V shelf;    // all bits of the lanes of shelves
  V flip;     // the sign bit of the lanes of low shelves
  V delay;    // frames behind the first band
  V y[kLag];  // the last results

  // The result takes the place of the oldest one. At the edges of a block (`kEdge`) lanes whose frame lies
  // outside keep their state.
  template <bool kRound, bool kEdge, size_t kAt>
  HWY_INLINE void Step(V x, size_t step, size_t frames) {
    const D d;
    const V t = hn::Add(hn::Add(hn::Mul(x, gain), hn::Mul(s1, a1)), hn::Mul(s2, a2));
    const V behind = hn::Xor(hn::Or(hn::And(shelf, s1), s2), flip);
    y[kAt] = hn::Sub(hn::Add(x, t), behind);
    if constexpr (kRound) y[kAt] = RoundToFloat(y[kAt]);
    const V before = hn::AndNot(shelf, s1);
    if constexpr (kEdge) {
      const V frame = hn::Sub(hn::Set(d, static_cast<double>(step)), delay);
      const M inside =
          hn::And(hn::Ge(frame, hn::Zero(d)), hn::Lt(frame, hn::Set(d, static_cast<double>(frames))));
      s2 = hn::IfThenElse(inside, before, s2);
      s1 = hn::IfThenElse(inside, t, s1);
    } else {
      s2 = before;
      s1 = t;
    }
  }
};

// Up to as many bands as kVectors, 1 or 2, vectors have room for, at their upper end; lanes below stay 0.
template <size_t kVectors, size_t kChannels, bool kRound>
class Group {
 public:
  static constexpr size_t kRoom = kVectors * kLanes / kChannels;

  Group(const EqChain& chain, size_t channel, size_t first, size_t count)
      : chain_(chain), channel_(channel), first_(first), count_(count) {
    const D d;
    HWY_ALIGN double values[8][kVectors * kLanes] = {};
    HWY_ALIGN int64_t below[kLanes];
    for (size_t i = 0; i < kVectors * kLanes; ++i) {
      values[7][i] = std::numeric_limits<double>::infinity();
      if (i < Base()) continue;
      const LONG type = chain.bands[Band(i)].type;
      const EqFilter& filter = FilterOf(i);
      const bool peak = type == QNEQ_PEAK;
      const double all[8] = {filter.gain,
                             filter.a1,
                             peak ? filter.a2 : -0.0,
                             filter.s1,
                             peak ? filter.s2 : 0,
                             peak ? 0.0 : 1.0,
                             type == QNEQ_LOWSHELF ? -0.0 : 0.0,
                             static_cast<double>(kLag * ((i - Base()) / kChannels))};
      for (size_t k = 0; k < 8; ++k) values[k][i] = all[k];
    }
    for (size_t i = 0; i < kLanes; ++i) below[i] = static_cast<int64_t>((i + kLanes - kChannels) % kLanes);
    below_ = hn::Load(hn::Rebind<int64_t, D>(), below);
    for (size_t k = 0; k < kVectors; ++k) {
      Lanes& lanes = lanes_[k];
      const size_t at = k * kLanes;
      lanes.gain = hn::Load(d, values[0] + at);
      lanes.a1 = hn::Load(d, values[1] + at);
      lanes.a2 = hn::Load(d, values[2] + at);
      lanes.s1 = hn::Load(d, values[3] + at);
      lanes.s2 = hn::Load(d, values[4] + at);
      lanes.shelf = hn::VecFromMask(d, hn::Gt(hn::Load(d, values[5] + at), hn::Zero(d)));
      lanes.flip = hn::Load(d, values[6] + at);
      lanes.delay = hn::Load(d, values[7] + at);
      for (V& y : lanes.y) y = hn::Zero(d);
    }
  }

  // Runs the bands over a block in place and puts their state back.
  void Run(double* v, size_t frames) {
    // In registers for the time of the run.
    Lanes low = lanes_[0], high = lanes_[kVectors - 1];
    const size_t behind = kLag * count_;
    size_t step = 0;
    for (; step < behind; step += kLag) Steps<true>(low, high, v, step, frames);
    for (; step + kLag <= frames; step += kLag) Steps<false>(low, high, v, step, frames);
    for (; step < frames + behind; step += kLag) Steps<true>(low, high, v, step, frames);
    lanes_[0] = low;
    if (kVectors == 2) lanes_[1] = high;
    PutBack();
  }

 private:
  size_t Base() const { return kVectors * kLanes - count_ * kChannels; }
  size_t Band(size_t lane) const { return chain_.active[first_ + (lane - Base()) / kChannels]; }
  EqFilter& FilterOf(size_t lane) const {
    return chain_.filters[(channel_ + (lane - Base()) % kChannels) * chain_.bandCount + Band(lane)];
  }

  // Takes up the frame `step` and gives out the one that has been through all bands, if there are such.
  template <bool kEdge, size_t kAt>
  HWY_INLINE void Step(Lanes& low, Lanes& high, double* v, size_t step, size_t frames) const {
    const D d;
    const size_t behind = kLag * count_;
    const M first = hn::Eq(low.delay, hn::Zero(d));
    const V in = !kEdge || step < frames ? LoadFrame<kChannels>(v + step * kChannels) : hn::Zero(d);
    V passed = Pass(low.y[kAt]);
    low.template Step<kRound, kEdge, kAt>(hn::IfThenElse(first, in, passed), step, frames);
    if constexpr (kVectors == 2) {
      const V upper = Pass(high.y[kAt]);
      const V x = hn::IfThenElse(hn::FirstN(d, kChannels), passed, upper);
      high.template Step<kRound, kEdge, kAt>(x, step, frames);
      passed = upper;
    }
    if (!kEdge || (step >= behind && step - behind < frames))
      StoreFrame<kChannels>(d, passed, v + (step - behind) * kChannels);
  }
  template <bool kEdge>
  HWY_INLINE void Steps(Lanes& low, Lanes& high, double* v, size_t step, size_t frames) const {
    static_assert(kLag == 4);
    Step<kEdge, 0>(low, high, v, step, frames);
    Step<kEdge, 1>(low, high, v, step + 1, frames);
    Step<kEdge, 2>(low, high, v, step + 2, frames);
    Step<kEdge, 3>(low, high, v, step + 3, frames);
  }

  // To the next band; from the last one to the lowest lanes.
  HWY_INLINE V Pass(V y) const { return hn::TableLookupLanes(y, hn::IndicesFromVec(D(), below_)); }

  void PutBack() {
    const D d;
    HWY_ALIGN double s1[kVectors * kLanes], s2[kVectors * kLanes];
    for (size_t k = 0; k < kVectors; ++k) {
      hn::Store(lanes_[k].s1, d, s1 + k * kLanes);
      hn::Store(lanes_[k].s2, d, s2 + k * kLanes);
    }
    for (size_t i = Base(); i < kVectors * kLanes; ++i) {
      EqFilter& filter = FilterOf(i);
      filter.s1 = s1[i];
      if (chain_.bands[Band(i)].type == QNEQ_PEAK) filter.s2 = s2[i];
    }
  }

  const EqChain& chain_;
  size_t channel_, first_, count_;
  hn::Vec<hn::Rebind<int64_t, D>> below_;
  Lanes lanes_[kVectors];
};

template <size_t kChannels, bool kRound>
void RunGroups(const EqChain& chain, size_t channel, double* v, size_t frames) {
  using Small = Group<1, kChannels, kRound>;
  using Large = Group<2, kChannels, kRound>;
  for (size_t done = 0; done < chain.activeCount;) {
    const size_t count = std::min(chain.activeCount - done, Large::kRoom);
    if (count <= Small::kRoom)
      Small(chain, channel, done, count).Run(v, frames);
    else
      Large(chain, channel, done, count).Run(v, frames);
    done += count;
  }
}

template <class T>
void Run(const EqChain& chain, T* out, const T* in, size_t frames) {
  constexpr bool kRound = std::is_same_v<T, float>;
  HWY_ALIGN double v[2 * kBlock];
  for (size_t done = 0; done < frames; done += kBlock) {
    const size_t block = std::min(frames - done, kBlock);
    const size_t at = done * chain.channels;
    if constexpr (kLanes >= 2) {
      if (chain.channels == 2) {
        GatherChannel(in + at, 1, 2 * block, v);
        RunGroups<2, kRound>(chain, 0, v, block);
        Scatter(v, 1, 2 * block, out + at);
        continue;
      }
    }
    for (size_t c = 0; c < chain.channels; ++c) {
      GatherChannel(in + at + c, chain.channels, block, v);
      RunGroups<1, kRound>(chain, c, v, block);
      Scatter(v, chain.channels, block, out + at + c);
    }
  }
}

void RunFloat(const EqChain& chain, float* out, const float* in, size_t frames) {
  Run(chain, out, in, frames);
}
void RunDouble(const EqChain& chain, double* out, const double* in, size_t frames) {
  Run(chain, out, in, frames);
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(RunFloat);
HWY_EXPORT(RunDouble);

void RunChain(const EqChain& chain, float* out, const float* in, size_t frames) {
  HWY_DYNAMIC_DISPATCH(RunFloat)(chain, out, in, frames);
}
void RunChain(const EqChain& chain, double* out, const double* in, size_t frames) {
  HWY_DYNAMIC_DISPATCH(RunDouble)(chain, out, in, frames);
}

}  // namespace qn
#endif
