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

static_assert(sizeof(SincPoint) == 16);

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

// The frames of the outputs of a vector, and those behind them.
struct FramePair {
  VecPair first;
  VecPair second;
};

// Any distance between outputs. Frames of less than 8 bytes have the second one in the same pair of words.
template <LinearFrame kFrame>
HWY_INLINE FramePair GatherFrames(const uint8_t* src, VecDouble whole) {
  const auto place = hn::ShiftLeft<FrameShift<kFrame>()>(hn::ConvertTo(TagPlace(), whole));
  const auto get = [&](size_t offset) {
    return hn::GatherOffset(TagPair(), reinterpret_cast<const uint64_t*>(src + offset), place);
  };
  const VecPair pairs = get(0);
  if constexpr (kFrame == LinearFrame::kStereoFloat) return {pairs, get(8)};
  if constexpr (kFrame == LinearFrame::kMono16) {
    return {pairs, hn::ShiftRight<16>(pairs)};
  } else {
    return {pairs, hn::ShiftRight<32>(pairs)};
  }
}

template <LinearFrame kFrame>
HWY_INLINE void MakeVector(const LinearRun& run, int64_t output) {
  const TagDouble d;
  const hn::Vec<TagDouble> number = hn::Add(hn::Iota(d, 0), hn::Set(d, static_cast<double>(output)));
  const VecDouble time = hn::Add(hn::Mul(hn::Set(d, run.step), number), hn::Set(d, run.position));
  const VecDouble whole = hn::Floor(time);
  const VecDouble factor = hn::Sub(time, whole);
  const FramePair frames = GatherFrames<kFrame>(run.src, whole);
  const VecInt from = Low(frames.first), to = Low(frames.second);
  uint8_t* const dst = run.dst + (output << FrameShift<kFrame>());
  if constexpr (kFrame == LinearFrame::kMono16) {
    const VecInt x = BetweenShorts(LowShort(from), LowShort(to), factor);
    hn::StoreU(hn::DemoteTo(TagShort(), x), TagShort(), reinterpret_cast<int16_t*>(dst));
  } else if constexpr (kFrame == LinearFrame::kStereo16) {
    const VecInt left = BetweenShorts(LowShort(from), LowShort(to), factor);
    const VecInt right = BetweenShorts(HighShort(from), HighShort(to), factor);
    const VecInt x = hn::Or(hn::And(left, hn::Set(TagInt(), 0xFFFF)), hn::ShiftLeft<16>(right));
    hn::StoreU(x, TagInt(), reinterpret_cast<int32_t*>(dst));
  } else if constexpr (kFrame == LinearFrame::kMonoFloat) {
    hn::StoreU(BetweenFloats(from, to, factor), TagInt(), reinterpret_cast<int32_t*>(dst));
  } else {
    const VecInt left = BetweenFloats(from, to, factor);
    const VecInt right = BetweenFloats(High(frames.first), High(frames.second), factor);
    hn::StoreU(Join(left, right), TagPair(), reinterpret_cast<uint64_t*>(dst));
  }
}

template <LinearFrame kFrame>
void RunVectors(LinearRun& run) {
  constexpr int64_t kLanes = static_cast<int64_t>(hn::MaxLanes(TagDouble()));
  const LinearRun same = run;  // a copy, which no store of a sample can change
  const int64_t vectors = std::max<int64_t>(run.last - run.first, 0) / kLanes;
  if (same.backward) {
    for (int64_t i = 1; i <= vectors; ++i) MakeVector<kFrame>(same, same.last - i * kLanes);
    run.last -= vectors * kLanes;
  } else {
    for (int64_t i = 0; i < vectors; ++i) MakeVector<kFrame>(same, same.first + i * kLanes);
    run.first += vectors * kLanes;
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

// Points at places in the table, counted in bytes.
struct VecPoints {
  VecDouble value;
  VecDouble rise;
};
HWY_INLINE VecPoints LoadPoints(const SincPoint* points, const int64_t* at) {
#if HWY_TARGET == HWY_AVX3_DL
  // Plain loads of whole points are faster than gathering their halves.
  const auto load = [&](int lane) {
    return _mm_loadu_pd(reinterpret_cast<const double*>(reinterpret_cast<const char*>(points) + at[lane]));
  };
  const auto four = [&](int lane) {
    const __m256d low = _mm256_insertf128_pd(_mm256_castpd128_pd256(load(lane)), load(lane + 2), 1);
    const __m256d high = _mm256_insertf128_pd(_mm256_castpd128_pd256(load(lane + 4)), load(lane + 6), 1);
    return _mm512_insertf64x4(_mm512_castpd256_pd512(low), high, 1);
  };
  const __m512d even = four(0), odd = four(1);
  return {VecDouble{_mm512_unpacklo_pd(even, odd)}, VecDouble{_mm512_unpackhi_pd(even, odd)}};
#else
  const auto place = hn::LoadU(TagPlace(), at);
  return {hn::GatherOffset(TagDouble(), &points->value, place),
          hn::GatherOffset(TagDouble(), &points->rise, place)};
#endif
}

void SincWeightsHere(const SincPoint* points, const double* fractions, size_t count, size_t stride,
                     double scale, double* weights) {
  const TagDouble d;
  const TagPlace places;
  constexpr size_t kLanes = hn::MaxLanes(d);
  const auto magic = hn::Set(d, kRoundingMagic), nearlyHalf = hn::Set(d, 0.499999985);
  for (size_t n = 0; n < count; n += kLanes) {
    // The places are stored for all taps before the first is used, so that no load waits for its place.
    HWY_ALIGN int64_t at[kSincTaps * kLanes];
    HWY_ALIGN double behind[kSincTaps * kLanes];
    VecDouble distance = hn::Sub(hn::Set(d, 12.0), hn::LoadU(d, fractions + n));
    for (size_t tap = 0; tap < kSincTaps; ++tap) {
      const VecDouble place = hn::Mul(hn::Abs(distance), hn::Set(d, scale));
      const VecDouble floor = hn::Sub(hn::Add(hn::Sub(place, nearlyHalf), magic), magic);
      const VecDouble whole = hn::Min(floor, hn::Set(d, kSincPoints - 2.0));
      const auto index = hn::And(hn::BitCast(places, hn::Add(whole, magic)), hn::Set(places, 0x3FF));
      hn::Store(hn::ShiftLeft<4>(index), places, at + tap * kLanes);
      hn::Store(hn::Sub(place, whole), d, behind + tap * kLanes);
      distance = hn::Sub(distance, hn::Set(d, 1.0));
    }
    for (size_t tap = 0; tap < kSincTaps; ++tap) {
      const VecPoints point = LoadPoints(points, at + tap * kLanes);
      const VecDouble weight = hn::Add(point.value, hn::Mul(point.rise, hn::Load(d, behind + tap * kLanes)));
      hn::StoreU(weight, d, weights + tap * stride + n);
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
    const auto run = [&](auto&& get) {
      for (size_t tap = 0; tap < kSincTaps; ++tap)
        sum = hn::Add(sum, hn::Mul(hn::LoadU(d, weights + tap * stride + n), get(tap)));
    };
#if HWY_TARGET == HWY_AVX3_DL
    const double* const first = samples + newest[n];
    const int64_t reach = newest[n + 7] - newest[n];
    const __m512i lane = hn::Sub(place, hn::Set(places, newest[n])).raw;
    if (reach < 8) {
      run([&](size_t tap) { return VecDouble{_mm512_permutexvar_pd(lane, _mm512_loadu_pd(first - tap))}; });
      hn::StoreU(sum, d, sums + n);
      continue;
    }
    if (reach < 16) {
      run([&](size_t tap) {
        const __m512d low = _mm512_loadu_pd(first - tap), high = _mm512_loadu_pd(first - tap + 8);
        return VecDouble{_mm512_permutex2var_pd(low, lane, high)};
      });
      hn::StoreU(sum, d, sums + n);
      continue;
    }
#endif
    run([&](size_t tap) { return hn::GatherIndex(d, samples - tap, place); });
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

void SincWeights(const SincPoint* points, const double* fractions, size_t count, size_t stride, double scale,
                 double* weights) {
  HWY_DYNAMIC_DISPATCH(SincWeightsHere)(points, fractions, count, stride, scale, weights);
}

void SincSums(const double* weights, size_t stride, const double* samples, const int64_t* newest,
              size_t count, double* sums) {
  HWY_DYNAMIC_DISPATCH(SincSumsHere)(weights, stride, samples, newest, count, sums);
}

}  // namespace qn
#endif
