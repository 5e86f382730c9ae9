// The arithmetic of the converters on vectors of lanes, for one instruction set: clipping, rounding and gains
// with the bits of the rule.

#if defined(QN_AUDIO_QNCOPY_ARITH_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef QN_AUDIO_QNCOPY_ARITH_INL_H_
#undef QN_AUDIO_QNCOPY_ARITH_INL_H_
#else
#define QN_AUDIO_QNCOPY_ARITH_INL_H_
#endif

#include <bit>

#include "hwy/highway.h"
#include "qn/audio/qncopy_lanes-inl.h"
#include "qn/audio/qncopy_rule.h"

#if QN_COPY_HAS_VECTOR

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

// Which rails of the destination a conversion can meet.
enum class Rails { kNone, kUpper, kBoth };

// Clips; a NaN passes.
template <class D, class V = hn::Vec<D>, typename T = hn::TFromD<D>>
HWY_INLINE V Clip(D d, V v, T low, T high) {
#if HWY_ARCH_X86
  // The processor's minimum and maximum give their second operand for a NaN.
  return hn::Min(hn::Set(d, high), hn::Max(hn::Set(d, low), v));
#else
  v = hn::IfThenElse(hn::Lt(v, hn::Set(d, low)), hn::Set(d, low), v);
  return hn::IfThenElse(hn::Gt(v, hn::Set(d, high)), hn::Set(d, high), v);
#endif
}

template <Rails kRails>
HWY_INLINE VecInt ClipInts(VecInt v, int32_t low, int32_t high) {
  const TagInt d;
  if constexpr (kRails != Rails::kNone) v = hn::Min(v, hn::Set(d, high));
  if constexpr (kRails == Rails::kBoth) v = hn::Max(v, hn::Set(d, low));
  return v;
}

// To the nearest integer, ties to even. What does not fit gives INT_MIN on x86.
HWY_INLINE VecInt NearestRaw(VecFloat v) {
#if QN_COPY_HAS_VBMI
  return VecInt{_mm512_cvtps_epi32(v.raw)};
#elif HWY_TARGET == HWY_AVX2
  return VecInt{_mm256_cvtps_epi32(v.raw)};
#else
  return hn::NearestInt(v);
#endif
}

HWY_INLINE VecInt BitsOf(VecFloat v) {
  return hn::BitCast(TagInt(), v);
}

// A step of floats in units of the destination, clipped and rounded, in the low bits. A NaN leaves what the
// low bits of its pattern would be as a double: its three lowest bits in the top of a lane, and zeros below.
template <int kDst>
HWY_INLINE void RoundFloats(const VecFloat (&y)[4], VecInt (&v)[4]) {
  const TagInt di;
  const TagFloat df;
  constexpr SampleForm form = kForm<kDst>;
  QN_COPY_UNROLL
  for (size_t i = 0; i < 4; ++i) {
    if constexpr (form.bits < 32) {
      v[i] =
          NearestRaw(Clip(df, y[i], static_cast<float>(LowRail(form)), static_cast<float>(HighRail(form))));
    } else {
      const auto tooHigh = hn::RebindMask(di, hn::Ge(y[i], hn::Set(df, 0x1p31f)));
      v[i] = hn::IfThenElse(tooHigh, hn::Set(di, INT32_MAX), NearestRaw(y[i]));
    }
  }
#if HWY_ARCH_X86
  if constexpr (form.bytes < 4) return;  // a NaN's INT_MIN has zeros in the bits that are stored
#endif
  // One NaN makes the sum a NaN; so may infinities, which the loop leaves alone.
  const VecFloat sum = hn::Add(hn::Add(y[0], y[1]), hn::Add(y[2], y[3]));
  if (HWY_LIKELY(hn::AllTrue(df, hn::Eq(sum, sum)))) return;
  QN_COPY_UNROLL
  for (size_t i = 0; i < 4; ++i) {
    v[i] = hn::IfThenElse(hn::RebindMask(di, hn::Eq(y[i], y[i])), v[i], hn::ShiftLeft<29>(BitsOf(y[i])));
  }
}

// Samples of double type in units of the destination, rounded; the low bits of two vectors side by side.
template <int kDst, Rails kRails>
HWY_INLINE VecInt RoundDoubles(VecDouble low, VecDouble high) {
  const TagInt di;
  const TagDouble dd;
  constexpr SampleForm form = kForm<kDst>;
  if constexpr (kRails == Rails::kBoth) {
    low = Clip(dd, low, LowRail(form), HighRail(form));
    high = Clip(dd, high, LowRail(form), HighRail(form));
  }
  low = hn::Add(low, hn::Set(dd, kRoundingMagic));
  high = hn::Add(high, hn::Set(dd, kRoundingMagic));
  return hn::ConcatEven(di, hn::BitCast(di, high), hn::BitCast(di, low));
}

// 32-bit integers rounded to their `kBits` top bits; the bits below them are left undefined.
template <int kBits>
HWY_INLINE VecInt RoundTop(VecInt v) {
  const TagInt d;
  constexpr int kShift = 32 - kBits;
  v = hn::Min(v, hn::Set(d, INT32_MAX >> kShift << kShift));
  const VecInt odd = hn::And(hn::ShiftRight<kShift>(v), hn::Set(d, 1));
  return hn::Add(hn::Add(v, hn::Set(d, (1 << (kShift - 1)) - 1)), odd);
}

// 24-in-32 words clipped and moved to the top, for destinations of `kBits` bits.
template <int kBits>
HWY_INLINE VecInt TopOfWord24(VecInt v) {
  const TagInt d;
  const VecInt top = hn::ShiftLeft<8>(ClipInts<Rails::kBoth>(v, -0x800000, 0x7FFFFF));
  if constexpr (kBits < 32) return top;
  return hn::IfThenElse(hn::Gt(v, hn::Set(d, 0x7FFFFF)), hn::Set(d, INT32_MAX), top);
}

// What a conversion multiplies by, in the units of lanes and destination.
struct Gain {
  VecFloat factor;
  VecDouble wide;
  // Samples at or beyond these give a rail where 32-bit results would run over.
  VecFloat above, below;
  VecInt railAbove, railBelow;
};

// Integers of up to 24 bits times the gain, rounded once to the integer units of a destination of 8 or 16
// bits: one fused addition of 1.5 * 2^23 does the product and the rounding, and leaves the integer in the low
// bits. (The 24-in-32 words that are inexact as floats end at the rails.)
template <int kDst, Rails kRails>
HWY_INLINE VecInt GainTo16(VecInt v, const Gain& gain) {
  const TagFloat df;
  constexpr int32_t kZero = 0x4B400000;  // the bits of 1.5 * 2^23
  constexpr int32_t kHigh = static_cast<int32_t>(HighRail(kForm<kDst>));
  const VecFloat sum = hn::MulAdd(hn::ConvertTo(df, v), gain.factor, hn::Set(df, 0x1.8p23f));
  return ClipInts<kRails>(BitsOf(sum), kZero - kHigh - 1, kZero + kHigh);
}

// The same to more than 16 bits, which is too wide for one such step. The first rounds the product to a
// multiple of 2^kShift, and its bits have the constant kCoarse for zero; the second rounds what is left,
// which is exact again: the difference of the constants and the first sum is. The result is the sum of both
// kinds of bits: the integer plus kZero.
template <uint32_t kCoarse, int kShift>
HWY_INLINE VecInt FusedProduct(VecInt top, const Gain& gain) {
  const TagFloat df;
  constexpr float kCoarseMagic = std::bit_cast<float>(kCoarse), kFineMagic = 0x1.8p23f;
  const VecFloat sample = hn::ConvertTo(df, top);
  const VecFloat coarse = hn::MulAdd(sample, gain.factor, hn::Set(df, kCoarseMagic));
  const VecFloat rest = hn::Sub(hn::Set(df, kCoarseMagic + kFineMagic), coarse);
  const VecFloat fine = hn::MulAdd(sample, gain.factor, rest);
  return hn::Add(hn::ShiftLeft<kShift>(BitsOf(coarse)), BitsOf(fine));
}
template <uint32_t kCoarse, int kShift>
inline constexpr int32_t kFusedZero = static_cast<int32_t>((kCoarse << kShift) + 0x4B400000u);

// Near 1.75 * 2^31, in steps of 256; chosen so that the zero has no bits among the low 24.
inline constexpr int32_t kGain24Zero = kFusedZero<0x4F60C000, 8>;
static_assert((kGain24Zero & 0xFFFFFF) == 0);
template <Rails kRails>
HWY_INLINE VecInt GainTo24(VecInt top, const Gain& gain) {
  return ClipInts<kRails>(FusedProduct<0x4F60C000, 8>(top, gain), kGain24Zero - 0x800000,
                          kGain24Zero + 0x7FFFFF);
}

// 1.5 * 2^32, in steps of 512: all 32-bit integers fit, and what would run over is put on the rails.
template <Rails kRails>
HWY_INLINE VecInt GainTo32(VecInt top, const Gain& gain) {
  const TagInt di;
  VecInt word = hn::Sub(FusedProduct<0x4FC00000, 9>(top, gain), hn::Set(di, kFusedZero<0x4FC00000, 9>));
  if constexpr (kRails == Rails::kBoth) {
    const VecFloat sample = hn::ConvertTo(TagFloat(), top);
    word = hn::IfThenElse(hn::RebindMask(di, hn::Ge(sample, gain.above)), gain.railAbove, word);
    word = hn::IfThenElse(hn::RebindMask(di, hn::Le(sample, gain.below)), gain.railBelow, word);
  }
  return word;
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#endif  // QN_COPY_HAS_VECTOR

#endif  // include guard
