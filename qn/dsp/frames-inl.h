// One channel of interleaved audio as an array of doubles, for one instruction set.

#if defined(QN_DSP_FRAMES_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef QN_DSP_FRAMES_INL_H_
#undef QN_DSP_FRAMES_INL_H_
#else
#define QN_DSP_FRAMES_INL_H_
#endif

#include <cstddef>

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

template <class D>
HWY_INLINE hn::Vec<D> WideSamples(D, hn::Vec<D> v) {
  return v;
}
template <class D>
HWY_INLINE hn::Vec<D> WideSamples(D d, hn::Vec<hn::Rebind<float, D>> v) {
  return hn::PromoteTo(d, v);
}
template <class D>
HWY_INLINE void StoreSamples(D d, hn::Vec<D> v, double* to) {
  hn::StoreU(v, d, to);
}
template <class D>
HWY_INLINE void StoreSamples(D, hn::Vec<D> v, float* to) {
#if HWY_TARGET == HWY_SCALAR || HWY_TARGET == HWY_EMU128
  // Without vectors Highway limits what is beyond a float.
  double lanes[hn::MaxLanes(D())];
  hn::StoreU(v, D(), lanes);
  for (const double lane : lanes) *to++ = static_cast<float>(lane);
#else
  const hn::Rebind<float, D> narrow;
  hn::StoreU(hn::DemoteTo(narrow, v), narrow, to);
#endif
}

// Takes `count` samples that lie `stride` apart.
template <class T>
void GatherChannel(const T* in, size_t stride, size_t count, double* out) {
  const hn::ScalableTag<double> d;
  const hn::Rebind<T, decltype(d)> samples;
  const size_t lanes = hn::Lanes(d);
  size_t at = 0;
  if (stride == 1) {
    for (; at + lanes <= count; at += lanes)
      hn::StoreU(WideSamples(d, hn::LoadU(samples, in + at)), d, out + at);
  } else if (stride == 2) {
    // The last sample is left over, since there may be nothing behind it.
    for (; at + lanes < count; at += lanes) {
      hn::Vec<decltype(samples)> own, other;
      hn::LoadInterleaved2(samples, in + 2 * at, own, other);
      hn::StoreU(WideSamples(d, own), d, out + at);
    }
  }
  for (; at < count; ++at) out[at] = in[at * stride];
}

// Puts `count` samples `stride` apart. What lies between is not written, not even with what is there, since
// it may be another thread's.
template <class T>
void ScatterChannel(const double* in, size_t stride, size_t count, T* out) {
  size_t at = 0;
  if (stride == 1) {
    const hn::ScalableTag<double> d;
    const size_t lanes = hn::Lanes(d);
    for (; at + lanes <= count; at += lanes) StoreSamples(d, hn::LoadU(d, in + at), out + at);
  }
#if HWY_TARGET == HWY_AVX2 || HWY_TARGET == HWY_AVX3_DL  // have stores of single lanes
  if constexpr (sizeof(T) == sizeof(float)) {
    const hn::ScalableTag<float> samples;
    const hn::Repartition<uint64_t, decltype(samples)> pairs;
    const hn::Rebind<double, decltype(pairs)> d;
    const hn::Rebind<float, decltype(pairs)> narrow;
    const hn::Rebind<uint32_t, decltype(pairs)> bits;
    const auto own = hn::MaskFromVec(hn::BitCast(samples, hn::Set(pairs, 0xFFFFFFFF)));
    const size_t lanes = hn::Lanes(pairs);
    for (; stride == 2 && at + lanes < count; at += lanes) {
      const auto half = hn::BitCast(bits, hn::DemoteTo(narrow, hn::LoadU(d, in + at)));
      hn::BlendedStore(hn::BitCast(samples, hn::PromoteTo(pairs, half)), own, samples, out + 2 * at);
    }
  }
#endif
  for (; at < count; ++at) out[at * stride] = static_cast<T>(in[at]);
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#endif
