// The cascade of a recursive filter over a block of doubles, for the instruction set that this is compiled
// for. Each stage is a recursion, whose steps wait for each other; so the lanes of vectors hold several
// stages, each two frames behind the one before, and the recursions run side by side.
#if defined(QN_DSP_QNIIR_CASCADE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef QN_DSP_QNIIR_CASCADE_INL_H_
#undef QN_DSP_QNIIR_CASCADE_INL_H_
#else
#define QN_DSP_QNIIR_CASCADE_INL_H_
#endif

#include <cmath>
#include <cstddef>

#include "hwy/highway.h"
#include "qn/dsp/qniir.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// A smaller state is stored as 0, which keeps it from decaying into denormals.
constexpr double kTiny = 1e-34;

inline double Flushed(double state) {
  return std::abs(state) < kTiny ? 0 : state;
}

// One stage over `frames` frames of kChannels channels, of which the first has the state `channel`.
template <size_t kChannels>
void RunStage(tQNIIR_BIQUAD& stage, size_t channel, double* v, size_t frames) {
  const auto [b0, b1, b2, a1, a2, unused1, unused2] = stage;
  double d1[kChannels], d2[kChannels];
  for (size_t c = 0; c < kChannels; ++c) {
    d1[c] = stage.d1[channel + c];
    d2[c] = stage.d2[channel + c];
  }
  for (double* const end = v + frames * kChannels; v != end; v += kChannels) {
    for (size_t c = 0; c < kChannels; ++c) {
      const double w = v[c] + a1 * d1[c] + a2 * d2[c];
      v[c] = b0 * w + b1 * d1[c] + b2 * d2[c];
      d2[c] = Flushed(d1[c]);
      d1[c] = Flushed(w);
    }
  }
  for (size_t c = 0; c < kChannels; ++c) {
    stage.d1[channel + c] = d1[c];
    stage.d2[channel + c] = d2[c];
  }
}

#if HWY_TARGET != HWY_EMU128 && HWY_TARGET != HWY_SCALAR

// How many frames a stage is behind the one before it: the result of that one is not waited for.
constexpr size_t kLag = 2;

// A frame in the top lanes.
template <size_t kChannels, class D>
HWY_INLINE hn::Vec<D> LoadFrame(D d, const double* v) {
  if constexpr (kChannels == 1)
    return hn::Set(d, *v);
  else
    return hn::LoadDup128(d, v);
}

// Lane i is channel i % kChannels of stage i / kChannels.
template <class D, size_t kChannels>
struct StageLanes {
  using V = hn::Vec<D>;
  static constexpr size_t kLanes = hn::MaxLanes(D());
  static constexpr size_t kStages = kLanes / kChannels;

  V b0, b1, b2, a1, a2, d1, d2;
  V newer, older;  // the results that the next stages have not taken yet

  // `pending` is where the oldest result of the first stage lies that the next stage has not taken.
  HWY_INLINE void Load(const tQNIIR_BIQUAD* stages, size_t channel, const double* pending) {
    const D d;
    HWY_ALIGN double lanes[9][kLanes];
    for (size_t i = 0; i < kLanes; ++i) {
      const tQNIIR_BIQUAD& stage = stages[i / kChannels];
      const size_t c = i % kChannels;
      const double* const result = pending - i / kChannels * kLag * kChannels + c;
      const double values[9] = {stage.b0,
                                stage.b1,
                                stage.b2,
                                stage.a1,
                                stage.a2,
                                stage.d1[channel + c],
                                stage.d2[channel + c],
                                result[0],
                                result[kChannels]};
      for (size_t k = 0; k < 9; ++k) lanes[k][i] = values[k];
    }
    b0 = hn::Load(d, lanes[0]);
    b1 = hn::Load(d, lanes[1]);
    b2 = hn::Load(d, lanes[2]);
    a1 = hn::Load(d, lanes[3]);
    a2 = hn::Load(d, lanes[4]);
    d1 = hn::Load(d, lanes[5]);
    d2 = hn::Load(d, lanes[6]);
    older = hn::Load(d, lanes[7]);
    newer = hn::Load(d, lanes[8]);
  }

  HWY_INLINE void Store(tQNIIR_BIQUAD* stages, size_t channel, double* pending) const {
    const D d;
    HWY_ALIGN double lanes[4][kLanes];
    hn::Store(d1, d, lanes[0]);
    hn::Store(d2, d, lanes[1]);
    hn::Store(older, d, lanes[2]);
    hn::Store(newer, d, lanes[3]);
    for (size_t i = 0; i < kLanes; ++i) {
      const size_t c = i % kChannels;
      double* const result = pending - i / kChannels * kLag * kChannels + c;
      stages[i / kChannels].d1[channel + c] = lanes[0][i];
      stages[i / kChannels].d2[channel + c] = lanes[1][i];
      result[0] = lanes[2][i];
      result[kChannels] = lanes[3][i];
    }
  }

  // The input of these stages: the older results, with those of the stage before the first moved in from the
  // top lanes of `before`.
  HWY_INLINE V Input(V before) const {
    const D d;
    if constexpr (kLanes == kChannels) {
      return before;
    } else {
      const V half = hn::ConcatLowerUpper(d, older, before);
      if constexpr (kLanes == 2 * kChannels)
        return half;
      else
        return hn::CombineShiftRightLanes<1>(d, older, half);
    }
  }

  // Runs each stage over one frame. The state is not flushed: Tiny tells where it should be.
  HWY_INLINE void Step(V v) {
    const V w = hn::Add(hn::Add(v, hn::Mul(a1, d1)), hn::Mul(a2, d2));
    older = newer;
    newer = hn::Add(hn::Add(hn::Mul(b0, w), hn::Mul(b1, d1)), hn::Mul(b2, d2));
    d2 = d1;
    d1 = w;
  }

  HWY_INLINE auto Tiny() const { return hn::Lt(hn::Abs(d1), hn::Set(D(), kTiny)); }
  // Zeros are tiny too: in silence nothing changes, and then the next frame must not wait for this.
  HWY_INLINE void Flush() {
    const hn::RebindToSigned<D> bits;
    const V flushed = hn::IfThenZeroElse(Tiny(), d1);
    if (!hn::AllTrue(bits, hn::Eq(hn::BitCast(bits, flushed), hn::BitCast(bits, d1)))) d1 = flushed;
  }

  // The newest result of the last stage.
  HWY_INLINE void StoreLast(double* v) const {
    if constexpr (kChannels == 1) {
      *v = hn::ExtractLane(newer, kLanes - 1);
    } else {
      const hn::CappedTag<double, kChannels> pair;
      if constexpr (kLanes == kChannels)
        hn::StoreU(newer, pair, v);
      else
        hn::StoreU(hn::UpperHalf(pair, newer), pair, v);
    }
  }
};

// As many stages as `kVectors`, 1 or 2, vectors have. At both ends of the block, where not all stages have
// work in the same step, they run one by one.
template <size_t kVectors, size_t kChannels, class D>
void RunGroup(D d, tQNIIR_BIQUAD* stages, size_t channel, double* v, size_t frames) {
  using Lanes = StageLanes<D, kChannels>;
  constexpr size_t kStages = kVectors * Lanes::kStages;
  constexpr size_t kHead = kLag * kStages;
  if (frames < 2 * kHead) {
    for (size_t s = 0; s < kStages; ++s) RunStage<kChannels>(stages[s], channel, v, frames);
    return;
  }
  for (size_t s = 0; s < kStages; ++s) RunStage<kChannels>(stages[s], channel, v, kHead - kLag * s);
  // In step t stage s takes up frame t - kLag * s. The results of the frames from here on wait for stage s
  // + 1.
  const auto pending = [&](size_t t, size_t s) { return v + (t - kLag * (s + 1)) * kChannels; };
  Lanes low, high;
  low.Load(stages, channel, pending(kHead, 0));
  if constexpr (kVectors == 2) high.Load(stages + Lanes::kStages, channel, pending(kHead, Lanes::kStages));
  for (size_t t = kHead; t < frames; ++t) {
    const auto first = low.Input(LoadFrame<kChannels>(d, v + t * kChannels));
    double* const result = v + (t - kLag * (kStages - 1)) * kChannels;
    if constexpr (kVectors == 2) {
      const auto second = high.Input(low.older);
      low.Step(first);
      high.Step(second);
      high.StoreLast(result);
      if (HWY_UNLIKELY(!hn::AllFalse(d, hn::Or(low.Tiny(), high.Tiny())))) {
        low.Flush();
        high.Flush();
      }
    } else {
      low.Step(first);
      low.StoreLast(result);
      if (HWY_UNLIKELY(!hn::AllFalse(d, low.Tiny()))) low.Flush();
    }
  }
  low.Store(stages, channel, pending(frames, 0));
  if constexpr (kVectors == 2) high.Store(stages + Lanes::kStages, channel, pending(frames, Lanes::kStages));
  for (size_t s = 1; s < kStages; ++s)
    RunStage<kChannels>(stages[s], channel, v + (frames - kLag * s) * kChannels, kLag * s);
}

// As many stages as vectors of D, and of halves of it, can take; returns how many.
template <size_t kChannels, class D>
size_t RunGroups(D d, tQNIIR_BIQUAD* stages, size_t count, size_t channel, double* v, size_t frames) {
  constexpr size_t kStages = hn::MaxLanes(D()) / kChannels;
  size_t done = 0;
  for (; count - done >= 2 * kStages; done += 2 * kStages)
    RunGroup<2, kChannels>(d, stages + done, channel, v, frames);
  for (; count - done >= kStages; done += kStages)
    RunGroup<1, kChannels>(d, stages + done, channel, v, frames);
  if constexpr (hn::MaxLanes(D()) > 2)
    done += RunGroups<kChannels>(hn::Half<D>(), stages + done, count - done, channel, v, frames);
  return done;
}

#endif

// All stages over `frames` frames of kChannels channels in `v`.
template <size_t kChannels>
void RunStages(tQNIIR_BIQUAD* stages, size_t count, size_t channel, double* v, size_t frames) {
  size_t done = 0;
#if HWY_TARGET != HWY_EMU128 && HWY_TARGET != HWY_SCALAR
  done = RunGroups<kChannels>(hn::CappedTag<double, 4>(), stages, count, channel, v, frames);
#endif
  for (; done < count; ++done) RunStage<kChannels>(stages[done], channel, v, frames);
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#endif
