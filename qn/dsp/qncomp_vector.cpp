// Envelope and gain are two recursions, whose steps wait for each other. The gain does not act back on the
// envelope; so the envelope is followed a block ahead, in the shadow of the other recursion, and all that
// lies between, the division too, is done for several frames at a time. Each result has the bits that the
// work frame by frame would give.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/dsp/qncomp_vector.cpp"
// The recursions need one lane, in which comparisons to masks of AVX-512 would take longer.
#define HWY_DISABLED_TARGETS \
  (HWY_SSSE3 | HWY_SSE4 | HWY_AVX3 | HWY_AVX3_DL | HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)
//
#include "hwy/foreach_target.h"
//
#include <algorithm>
#include <cmath>
#include <type_traits>

#include "hwy/highway.h"
#include "qn/dsp/qncomp_vector.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

constexpr size_t kBlock = 128;  // frames
constexpr size_t kDcChannels = 2;
constexpr double kDcInput = 0.99964393716757, kDcFeedback = 0.99928787433514;
constexpr double kDecay = 0.999;  // of the envelope

using One = hn::CappedTag<double, 1>;
using V = hn::Vec<One>;
using Pair = hn::CappedTag<double, 2>;
using Wide = hn::CappedTag<double, 4>;

// On processors without vectors a frame has no pair of lanes, and Highway limits what is beyond a float.
#define QN_HAS_PAIRS (HWY_TARGET != HWY_EMU128 && HWY_TARGET != HWY_SCALAR)

template <class D>
HWY_INLINE hn::Vec<D> ToDoubles(D d, hn::Vec<hn::Rebind<float, D>> v) {
  return hn::PromoteTo(d, v);
}
template <class D>
HWY_INLINE hn::Vec<D> ToDoubles(D, hn::Vec<D> v) {
  return v;
}
template <class D>
HWY_INLINE hn::Vec<D> FromDoubles(D d, hn::Vec<hn::Rebind<double, D>> v) {
  if constexpr (std::is_same_v<hn::TFromD<D>, float>)
    return hn::DemoteTo(d, v);
  else
    return v;
}

// What a gain moves to, frame by frame, and what its step adds to it on the way down and on the way up.
struct Targets {
  HWY_ALIGN double target[kBlock];
  HWY_ALIGN double down[kBlock];
  HWY_ALIGN double up[kBlock];

  // Works in whole vectors; those of a block have room.
  void Find(const HQNCOMPDC& record, const double* envelopes, size_t frames) {
    const Wide d;
    const auto threshold = hn::Set(d, record.threshold), one = hn::Set(d, 1.0);
    for (size_t i = 0; i < frames; i += hn::Lanes(d)) {
      const auto envelope = hn::Load(d, envelopes + i);
      const auto excess = hn::Sub(hn::Div(threshold, envelope), one);
      const auto reduced = hn::Add(hn::Mul(excess, hn::Set(d, record.slope)), one);
      const auto level = hn::IfThenElse(hn::Lt(threshold, envelope), reduced, one);
      const auto to = hn::Mul(level, hn::Set(d, record.makeup));
      hn::Store(to, d, target + i);
      hn::Store(hn::Mul(hn::Set(d, 1 - record.attack), to), d, down + i);
      hn::Store(hn::Mul(hn::Set(d, 1 - record.release), to), d, up + i);
    }
  }
};

// Multiplies each frame by its gain, in the precision of the samples. kPaired is the number of channels that
// go through vectors together, 1 or 2, or 0 where they all go one by one.
template <size_t kPaired, class T>
void Multiply(const T* in, const double* gains, size_t frames, size_t channels, T* out) {
  size_t i = 0;
#if QN_HAS_PAIRS
  const hn::CappedTag<double, 16 / sizeof(T)> wide;
  const hn::Rebind<T, decltype(wide)> d;
  const size_t lanes = hn::Lanes(d);
  const auto multiply = [&](size_t at, auto factors)
                            HWY_ATTR { hn::StoreU(hn::Mul(hn::LoadU(d, in + at), factors), d, out + at); };
  for (; kPaired != 0 && i + lanes <= frames; i += lanes) {
    const auto gain = FromDoubles(d, hn::Load(wide, gains + i));
    if (kPaired == 1) {
      multiply(i, gain);
    } else {
      multiply(2 * i, hn::InterleaveLower(d, gain, gain));
      multiply(2 * i + lanes, hn::InterleaveUpper(d, gain, gain));
    }
  }
#endif
  for (; i < frames; ++i)
    for (size_t k = i * channels; k < (i + 1) * channels; ++k) out[k] = in[k] * static_cast<T>(gains[i]);
}

// The levels of frames, and the envelope over them.
template <size_t kPaired, bool kRemoveDc, class T>
struct Follower {
  T* out;
  const T* in;
  size_t channels;
  V envelope, peak;
  hn::Vec<Pair> pairedDc;
  double dc[kDcChannels];

  Follower(const HQNCOMPDC& record, T* newOut, const T* newIn, size_t newChannels)
      : out(newOut),
        in(newIn),
        channels(newChannels),
        envelope(hn::Set(One(), record.envelope)),
        peak(hn::Zero(One())),
        pairedDc(hn::LoadU(Pair(), record.dcState)),
        dc{record.dcState[0], record.dcState[1]} {}

  HWY_INLINE V Follow(size_t frame) {
    const One one;
    V next = hn::Mul(envelope, hn::Set(one, kDecay));
    // Hosts rely on the comparison with the envelope, by which a quieter channel replaces a louder one. What
    // is above the envelope is above the decayed one too.
    const auto meet = [&](V level) HWY_ATTR {
      const auto above = hn::Gt(level, envelope);
      peak = hn::IfThenElse(above, level, peak);
      next = hn::IfThenElse(above, level, next);
    };
    peak = hn::Zero(one);
#if QN_HAS_PAIRS
    if constexpr (kPaired != 0) {
      const Pair d;
      const hn::Rebind<T, Pair> samples;
      auto x = kPaired == 1 ? hn::Set(d, in[frame]) : ToDoubles(d, hn::LoadU(samples, in + 2 * frame));
      if constexpr (kRemoveDc) {
        const auto fed = hn::Mul(pairedDc, hn::Set(d, kDcFeedback));
        const auto z = hn::Add(hn::Mul(x, hn::Set(d, kDcInput)), fed);
        x = hn::Sub(z, pairedDc);
        pairedDc = z;
        if (kPaired == 1)
          out[frame] = static_cast<T>(hn::GetLane(x));
        else
          hn::StoreU(FromDoubles(samples, x), samples, out + 2 * frame);
      }
      const auto levels = hn::Abs(x);
      meet(hn::LowerHalf(one, levels));
      if (kPaired == 2) meet(hn::UpperHalf(one, levels));
    }
#endif
    for (size_t c = 0; kPaired == 0 && c < channels; ++c) {
      double x = in[frame * channels + c];
      if (kRemoveDc && c < kDcChannels) {
        const double z = x * kDcInput + dc[c] * kDcFeedback;
        x = z - dc[c];
        dc[c] = z;
      }
      if (kRemoveDc) out[frame * channels + c] = static_cast<T>(x);
      meet(hn::Set(one, std::abs(x)));
    }
    envelope = next;
    return envelope;
  }

  void PutBack(HQNCOMPDC& record) {
    if (kPaired != 0) hn::StoreU(pairedDc, Pair(), dc);
    record.envelope = hn::GetLane(envelope);
    record.blockPeak = hn::GetLane(peak);
    if (kPaired != 1) record.dcState[1] = dc[1];
    record.dcState[0] = dc[0];
  }
};

// The gain on its way to the targets.
struct Slider {
  V attack, release;
  V gain, before;

  HWY_INLINE V Slide(const Targets& targets, size_t i) {
    const One d;
    before = gain;
    const V down = hn::Add(hn::Load(d, targets.down + i), hn::Mul(attack, gain));
    const V up = hn::Add(hn::Load(d, targets.up + i), hn::Mul(release, gain));
    gain = hn::IfThenElse(hn::Gt(gain, hn::Load(d, targets.target + i)), down, up);
    return gain;
  }
};

template <size_t kPaired, bool kRemoveDc, class T>
void Run(HQNCOMPDC& record, T* out, const T* in, size_t frames, size_t channels) {
  const One d;
  HWY_ALIGN double envelopes[kBlock] = {};
  HWY_ALIGN double gains[kBlock];
  Targets targets;
  Slider slider{hn::Set(d, record.attack), hn::Set(d, record.release), hn::Set(d, record.gain),
                hn::Set(d, record.gain)};
  Follower<kPaired, kRemoveDc, T> follower(record, out, in, channels);
  // `now` frames from `at` on have an envelope and get their gain, while `next` frames get their envelope.
  for (size_t at = 0, now = 0, next = 0; at < frames; at += now, now = next) {
    next = std::min(frames - at - now, kBlock);
    targets.Find(record, envelopes, now);
    size_t i = 0;
    for (; i < std::min(now, next); ++i) {
      hn::Store(follower.Follow(at + now + i), d, envelopes + i);
      hn::Store(slider.Slide(targets, i), d, gains + i);
    }
    for (size_t k = i; k < next; ++k) hn::Store(follower.Follow(at + now + k), d, envelopes + k);
    for (; i < now; ++i) hn::Store(slider.Slide(targets, i), d, gains + i);
    follower.PutBack(record);
    if (now == 0) continue;
    record.coefficient =
        hn::GetLane(slider.before) > targets.target[now - 1] ? record.attack : record.release;
    Multiply<kPaired>((kRemoveDc ? out : in) + at * channels, gains, now, channels, out + at * channels);
  }
  record.gain = hn::GetLane(slider.gain);
}

template <class T>
void RunAny(HQNCOMPDC& record, T* out, const T* in, size_t frames, size_t channels) {
  constexpr size_t kOne = QN_HAS_PAIRS ? 1 : 0, kTwo = 2 * kOne;
  constexpr decltype(&Run<0, false, T>) kRuns[][2] = {{Run<0, false, T>, Run<0, true, T>},
                                                      {Run<kOne, false, T>, Run<kOne, true, T>},
                                                      {Run<kTwo, false, T>, Run<kTwo, true, T>}};
  kRuns[channels <= 2 ? channels : 0][record.removeDC != 0](record, out, in, frames, channels);
}

void RunFloat(HQNCOMPDC& record, float* out, const float* in, size_t frames, size_t channels) {
  RunAny(record, out, in, frames, channels);
}
void RunDouble(HQNCOMPDC& record, double* out, const double* in, size_t frames, size_t channels) {
  RunAny(record, out, in, frames, channels);
}

#undef QN_HAS_PAIRS

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(RunFloat);
HWY_EXPORT(RunDouble);

void Compress(HQNCOMPDC& compressor, float* out, const float* in, size_t frames, size_t channels) {
  HWY_DYNAMIC_DISPATCH(RunFloat)(compressor, out, in, frames, channels);
}
void Compress(HQNCOMPDC& compressor, double* out, const double* in, size_t frames, size_t channels) {
  HWY_DYNAMIC_DISPATCH(RunDouble)(compressor, out, in, frames, channels);
}

}  // namespace qn
#endif
