#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/audio/qnresample_vector.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include <algorithm>
#include <cmath>

#include "hwy/highway.h"
#include "qn/audio/qncopy_rule.h"
#include "qn/audio/qnresample_internal.h"
#include "qn/audio/qnresample_vector.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using TagDouble = hn::ScalableTag<double>;
using TagPlace = hn::Rebind<int64_t, TagDouble>;
using TagPair = hn::Rebind<uint64_t, TagDouble>;
using TagInt = hn::Rebind<int32_t, TagDouble>;
using TagShort = hn::Rebind<int16_t, TagDouble>;
using TagFloat = hn::Rebind<float, TagDouble>;
using VecDouble = hn::Vec<TagDouble>;
using VecPair = hn::Vec<TagPair>;
using VecInt = hn::Vec<TagInt>;

#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128

HWY_INLINE VecDouble Between(VecDouble from, VecDouble to, VecDouble factor) {
  return hn::Add(from, hn::Mul(hn::Sub(to, from), factor));
}

// The low and the high half of each pair, and of each half.
HWY_INLINE VecInt Low(VecPair pairs) {
  return hn::BitCast(TagInt(), hn::TruncateTo(hn::Rebind<uint32_t, TagDouble>(), pairs));
}
HWY_INLINE VecInt High(VecPair pairs) {
  return Low(hn::ShiftRight<32>(pairs));
}
HWY_INLINE VecDouble LowShort(VecInt words) {
  return hn::PromoteTo(TagDouble(), hn::ShiftRight<16>(hn::ShiftLeft<16>(words)));
}
HWY_INLINE VecDouble HighShort(VecInt words) {
  return hn::PromoteTo(TagDouble(), hn::ShiftRight<16>(words));
}
HWY_INLINE VecDouble Float(VecInt words) {
  return hn::PromoteTo(TagDouble(), hn::BitCast(TagFloat(), words));
}
HWY_INLINE VecPair Join(VecInt low, VecInt high) {
  const hn::Rebind<uint32_t, TagDouble> bits;
  return hn::Or(hn::PromoteTo(TagPair(), hn::BitCast(bits, low)),
                hn::ShiftLeft<32>(hn::PromoteTo(TagPair(), hn::BitCast(bits, high))));
}

// An integer between two of its type needs no clipping.
HWY_INLINE VecInt BetweenShorts(VecDouble from, VecDouble to, VecDouble factor) {
  return hn::DemoteTo(TagInt(), hn::Round(Between(from, to, factor)));
}
// A factor of 0 takes the first whatever the second is.
HWY_INLINE VecInt BetweenFloats(VecInt from, VecInt to, VecDouble factor) {
  const VecDouble first = Float(from);
  const VecDouble x =
      hn::IfThenElse(hn::Eq(factor, hn::Zero(TagDouble())), first, Between(first, Float(to), factor));
  return hn::BitCast(TagInt(), hn::DemoteTo(TagFloat(), x));
}

template <LinearFrame kFrame>
constexpr int FrameShift() {
  return kFrame == LinearFrame::kMono16 ? 1 : kFrame == LinearFrame::kStereoFloat ? 3 : 2;
}

template <LinearFrame kFrame>
HWY_INLINE void MakeVector(const LinearRun& run, int64_t output) {
  const TagDouble d;
  const hn::Vec<TagDouble> number = hn::Add(hn::Iota(d, 0), hn::Set(d, static_cast<double>(output)));
  const VecDouble time = hn::Add(hn::Mul(hn::Set(d, run.step), number), hn::Set(d, run.position));
  const VecDouble whole = hn::Floor(time);
  const VecDouble factor = hn::Sub(time, whole);
  const auto place = hn::ShiftLeft<FrameShift<kFrame>()>(hn::ConvertTo(TagPlace(), whole));
  const auto get = [&](size_t offset) {
    return hn::GatherOffset(TagPair(), reinterpret_cast<const uint64_t*>(run.src + offset), place);
  };
  uint8_t* const dst = run.dst + (output << FrameShift<kFrame>());
  const VecPair pairs = get(0);
  if constexpr (kFrame == LinearFrame::kMono16) {
    const VecInt both = Low(pairs);
    const VecInt x = BetweenShorts(LowShort(both), HighShort(both), factor);
    hn::StoreU(hn::DemoteTo(TagShort(), x), TagShort(), reinterpret_cast<int16_t*>(dst));
  } else if constexpr (kFrame == LinearFrame::kStereo16) {
    const VecInt from = Low(pairs), to = High(pairs);
    const VecInt left = BetweenShorts(LowShort(from), LowShort(to), factor);
    const VecInt right = BetweenShorts(HighShort(from), HighShort(to), factor);
    const VecInt x = hn::Or(hn::And(left, hn::Set(TagInt(), 0xFFFF)), hn::ShiftLeft<16>(right));
    hn::StoreU(x, TagInt(), reinterpret_cast<int32_t*>(dst));
  } else if constexpr (kFrame == LinearFrame::kMonoFloat) {
    hn::StoreU(BetweenFloats(Low(pairs), High(pairs), factor), TagInt(), reinterpret_cast<int32_t*>(dst));
  } else {
    const VecPair next = get(8);
    const VecInt left = BetweenFloats(Low(pairs), Low(next), factor);
    const VecInt right = BetweenFloats(High(pairs), High(next), factor);
    hn::StoreU(Join(left, right), TagPair(), reinterpret_cast<uint64_t*>(dst));
  }
}

template <LinearFrame kFrame>
void RunVectors(LinearRun& run) {
  constexpr int64_t kLanes = static_cast<int64_t>(hn::MaxLanes(TagDouble()));
  while (run.last - run.first >= kLanes) {
    if (run.backward) run.last -= kLanes;
    MakeVector<kFrame>(run, run.backward ? run.last : run.first);
    if (!run.backward) run.first += kLanes;
  }
}

void InterpolateFramesHere(LinearFrame frame, LinearRun& run) {
  switch (frame) {
    case LinearFrame::kMono16:
      return RunVectors<LinearFrame::kMono16>(run);
    case LinearFrame::kStereo16:
      return RunVectors<LinearFrame::kStereo16>(run);
    case LinearFrame::kMonoFloat:
      return RunVectors<LinearFrame::kMonoFloat>(run);
    case LinearFrame::kStereoFloat:
      return RunVectors<LinearFrame::kStereoFloat>(run);
    case LinearFrame::kNone:
      return;
  }
}

#else

void InterpolateFramesHere(LinearFrame, LinearRun&) {}

#endif

void SincWeightsHere(const double* points, const double* fractions, size_t count, size_t stride, double scale,
                     double* weights) {
  const TagDouble d;
  const TagPlace places;
  const auto magic = hn::Set(d, kRoundingMagic), nearlyHalf = hn::Set(d, 0.499999985);
  for (size_t n = 0; n < count; n += hn::Lanes(d)) {
    VecDouble distance = hn::Sub(hn::Set(d, 12.0), hn::LoadU(d, fractions + n));
    for (int tap = 0; tap < kSincTaps; ++tap) {
      const VecDouble at = hn::Mul(hn::Abs(distance), hn::Set(d, scale));
      const VecDouble floor = hn::Sub(hn::Add(hn::Sub(at, nearlyHalf), magic), magic);
      const VecDouble whole = hn::Min(floor, hn::Set(d, kSincPoints - 2.0));
      const auto index = hn::ConvertTo(places, whole);
      const VecDouble from = hn::GatherIndex(d, points, index), to = hn::GatherIndex(d, points + 1, index);
      const VecDouble weight = hn::Add(from, hn::Mul(hn::Sub(to, from), hn::Sub(at, whole)));
      hn::StoreU(weight, d, weights + static_cast<size_t>(tap) * stride + n);
      distance = hn::Sub(distance, hn::Set(d, 1.0));
    }
  }
}

void SincSumsHere(const double* weights, size_t stride, const double* samples, const int64_t* newest,
                  size_t count, double* sums) {
  const TagDouble d;
  const TagPlace places;
  for (size_t n = 0; n < count; n += hn::Lanes(d)) {
    const auto place = hn::LoadU(places, newest + n);
    VecDouble sum = hn::Zero(d);
    for (int tap = 0; tap < kSincTaps; ++tap) {
      const VecDouble x = hn::GatherIndex(d, samples - tap, place);
      sum = hn::Add(sum, hn::Mul(hn::LoadU(d, weights + static_cast<size_t>(tap) * stride + n), x));
    }
    hn::StoreU(sum, d, sums + n);
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(InterpolateFramesHere);
HWY_EXPORT(SincWeightsHere);
HWY_EXPORT(SincSumsHere);

void InterpolateFrames(LinearFrame frame, LinearRun& run) {
  HWY_DYNAMIC_DISPATCH(InterpolateFramesHere)(frame, run);
}

void SincWeights(const double* points, const double* fractions, size_t count, size_t stride, double scale,
                 double* weights) {
  HWY_DYNAMIC_DISPATCH(SincWeightsHere)(points, fractions, count, stride, scale, weights);
}

void SincSums(const double* weights, size_t stride, const double* samples, const int64_t* newest,
              size_t count, double* sums) {
  HWY_DYNAMIC_DISPATCH(SincSumsHere)(weights, stride, samples, newest, count, sums);
}

}  // namespace qn
#endif
