// The converters for one instruction set. Included by the qncopy_vector_*.cpp files once a target.

#if defined(QN_AUDIO_QNCOPY_VECTOR_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef QN_AUDIO_QNCOPY_VECTOR_INL_H_
#undef QN_AUDIO_QNCOPY_VECTOR_INL_H_
#else
#define QN_AUDIO_QNCOPY_VECTOR_INL_H_
#endif

#include <algorithm>
#include <cmath>
#include <type_traits>
#include <utility>

#include "hwy/highway.h"
#include "qn/audio/qncopy_arith-inl.h"
#include "qn/audio/qncopy_lanes-inl.h"
#include "qn/audio/qncopy_rule.h"
#include "qn/audio/qncopy_vector.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

#if QN_COPY_HAS_VECTOR

enum class Mode {
  kUnit,  // scale 1.0
  kSoft,  // up to kSoftest: full scale stays clear of the rails
  kLoud,  // any other
};
constexpr float kSoftest = 0.99f;

// `exact` is the scale times the ratio of the units.
HWY_INLINE Gain MakeGain(float scale, float factor, double exact) {
  const TagFloat df;
  const TagInt di;
  // The first samples, on the 24-bit grid of the top bits, whose products reach the rails.
  // (Gains below 0.5 have none.)
  const double size = std::max(std::fabs(static_cast<double>(scale)), 0.5);
  const float toHigh = static_cast<float>(std::ceil(2147483647.0 / size / 256) * 256);
  const float toLow = static_cast<float>(std::ceil(2147483648.0 / size / 256) * 256);
  const bool flips = scale < 0;
  return {hn::Set(df, factor),
          hn::Set(TagDouble(), exact),
          hn::Set(df, flips ? toLow : toHigh),
          hn::Set(df, flips ? -toHigh : -toLow),
          hn::Set(di, flips ? INT32_MIN : INT32_MAX),
          hn::Set(di, flips ? INT32_MAX : INT32_MIN)};
}

HWY_INLINE void StoreAsFloats(uint8_t* HWY_RESTRICT dst, const VecInt (&v)[4], const Gain& gain) {
  QN_COPY_UNROLL
  for (size_t i = 0; i < 4; ++i) {
    const VecFloat x = hn::Mul(hn::ConvertTo(TagFloat(), v[i]), gain.factor);
    hn::StoreU(x, TagFloat(), reinterpret_cast<float*>(dst) + i * kLanes);
  }
}

template <typename T, int kSrc>
HWY_INLINE void StepIntThroughDouble(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src,
                                     const Gain& gain) {
  VecDouble wide[8];
  LoadDoubles<kSrc>(src, wide);
  QN_COPY_UNROLL
  for (size_t i = 0; i < 4; ++i) {
    StoreDoubles(reinterpret_cast<T*>(dst) + i * kLanes, hn::Mul(wide[2 * i], gain.wide),
                 hn::Mul(wide[2 * i + 1], gain.wide));
  }
}

template <int kDst, int kSrc>
HWY_INLINE void StepInt(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src, const Gain& gain) {
  constexpr SampleForm to = kForm<kDst>, from = kForm<kSrc>;
  VecInt v[4];
  LoadTop<kSrc>(src, v);
  if constexpr (kDst == QNST_FLOAT32) return StoreAsFloats(dst, v, gain);
  if constexpr (from.bits == 24 && to.bits <= 16) {
    constexpr Rails kRails = from.IsWord24() ? Rails::kBoth : Rails::kUpper;
    QN_COPY_UNROLL
    for (VecInt& x : v) x = GainTo16<kDst, kRails>(x, gain);
    return StoreLow<kDst>(dst, v);
  }
  QN_COPY_UNROLL
  for (VecInt& x : v) {
    if constexpr (from.IsWord24()) x = TopOfWord24<to.bits>(x);
    if constexpr (from.bits > to.bits) x = RoundTop<to.bits>(x);
  }
  StoreTop<kDst>(dst, v);
}

// Integers of up to 24 bits, in the top bits.
template <int kDst, Rails kRails>
HWY_INLINE void StoreGained(uint8_t* HWY_RESTRICT dst, VecInt (&v)[4], const Gain& gain) {
  constexpr SampleForm to = kForm<kDst>;
  if constexpr (kDst == QNST_FLOAT32) return StoreAsFloats(dst, v, gain);
  QN_COPY_UNROLL
  for (VecInt& x : v) {
    if constexpr (to.bits == 32) {
      x = GainTo32<kRails>(x, gain);
    } else if constexpr (to.bits == 24) {
      x = GainTo24<kRails>(x, gain);
      if constexpr (to.IsWord24()) x = hn::Sub(x, hn::Set(TagInt(), kGain24Zero));
    } else {
      x = GainTo16<kDst, kRails>(x, gain);
    }
  }
  StoreLow<kDst>(dst, v);
}

// Moves 24-in-32 words to the top if all of a step fit there, as they should.
HWY_INLINE bool MoveWords24ToTop(VecInt (&v)[4]) {
  const TagInt di;
  VecInt lost = hn::Zero(di), top[4];
  QN_COPY_UNROLL
  for (size_t i = 0; i < 4; ++i) {
    top[i] = hn::ShiftLeft<8>(v[i]);
    lost = hn::Or(lost, hn::Xor(hn::ShiftRight<8>(top[i]), v[i]));
  }
  if (!hn::AllTrue(di, hn::Eq(lost, hn::Zero(di)))) return false;
  QN_COPY_UNROLL
  for (size_t i = 0; i < 4; ++i) v[i] = top[i];
  return true;
}

template <int kDst, int kSrc, Rails kRails>
HWY_INLINE void StepIntWithGain(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src,
                                const Gain& gain) {
  constexpr SampleForm to = kForm<kDst>, from = kForm<kSrc>;
  VecInt v[4];
  if constexpr (from.bits < 32) {
    LoadTop<kSrc>(src, v);
    if (!from.IsWord24() || MoveWords24ToTop(v)) return StoreGained<kDst, kRails>(dst, v, gain);
  }
  // A product of more than 24 bits and a gain needs doubles.
  constexpr Rails kWideRails = from.IsWord24() ? Rails::kBoth : kRails;
  if constexpr (to.isFloat) return StepIntThroughDouble<float, kSrc>(dst, src, gain);
  VecDouble wide[8];
  LoadDoubles<kSrc>(src, wide);
  QN_COPY_UNROLL
  for (size_t i = 0; i < 4; ++i) {
    v[i] =
        RoundDoubles<kDst, kWideRails>(hn::Mul(wide[2 * i], gain.wide), hn::Mul(wide[2 * i + 1], gain.wide));
  }
  StoreLow<kDst>(dst, v);
}

template <int kDst>
HWY_INLINE void StepFromFloat(uint8_t* HWY_RESTRICT dst, const float* HWY_RESTRICT src, const Gain& gain) {
  VecFloat y[4];
  QN_COPY_UNROLL
  for (size_t i = 0; i < 4; ++i) {
    const float* const from = src + i * kLanes;
    if constexpr (kDst == QNST_FLOAT64) {
      const TagHalfFloat half;
      const VecDouble low = hn::PromoteTo(TagDouble(), hn::LoadU(half, from));
      const VecDouble high = hn::PromoteTo(TagDouble(), hn::LoadU(half, from + kLanes / 2));
      StoreDoubles(reinterpret_cast<double*>(dst) + i * kLanes, hn::Mul(low, gain.wide),
                   hn::Mul(high, gain.wide));
    } else {
      y[i] = hn::Mul(hn::LoadU(TagFloat(), from), gain.factor);
      if (kDst == QNST_FLOAT32) hn::StoreU(y[i], TagFloat(), reinterpret_cast<float*>(dst) + i * kLanes);
    }
  }
  if constexpr (!kForm<kDst>.isFloat) {
    VecInt v[4];
    RoundFloats<kDst>(y, v);
    StoreLow<kDst>(dst, v);
  }
}

template <int kDst>
HWY_INLINE void StepFromDouble(uint8_t* HWY_RESTRICT dst, const double* HWY_RESTRICT src, const Gain& gain) {
  VecInt v[4];
  QN_COPY_UNROLL
  for (size_t i = 0; i < 4; ++i) {
    const double* const from = src + i * kLanes;
    const VecDouble low = hn::Mul(hn::LoadU(TagDouble(), from), gain.wide);
    const VecDouble high = hn::Mul(hn::LoadU(TagDouble(), from + kLanes / 2), gain.wide);
    if constexpr (kForm<kDst>.isFloat) {
      using T = std::conditional_t<kDst == QNST_FLOAT32, float, double>;
      StoreDoubles(reinterpret_cast<T*>(dst) + i * kLanes, low, high);
    } else {
      v[i] = RoundDoubles<kDst, Rails::kBoth>(low, high);
    }
  }
  if constexpr (!kForm<kDst>.isFloat) StoreLow<kDst>(dst, v);
}

// True for pairs whose gain takes other steps than scale 1.0, which is a power of two like any elsewhere.
template <int kDst, int kSrc>
constexpr bool GainDiffers() {
  constexpr SampleForm to = kForm<kDst>, from = kForm<kSrc>;
  return !from.isFloat && (!to.isFloat || (kDst == QNST_FLOAT32 && from.bytes == 4 && kSrc != QNST_PCM32));
}

template <int kDst, int kSrc, Mode kMode>
void ConvertIn(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src, size_t samples, float scale) {
  constexpr SampleForm to = kForm<kDst>, from = kForm<kSrc>;
  // Lanes hold integers as the top ones of 32 bits, but for 24-in-32 words: as they are when the scale is 1.0
  // or doubles are needed.
  constexpr double kDecode = from.isFloat ? 1.0 : from.IsWord24() ? 0x1p-23 : 0x1p-31;
  constexpr bool kTopFactor = from.IsWord24() && kMode != Mode::kUnit;
  const double exact = static_cast<double>(scale) * (kDecode * FullScale(to));
  const double single = kTopFactor ? exact / 256 : exact;
  const bool floatToFloat = kDst == QNST_FLOAT32 && kSrc == QNST_FLOAT32;
  const Gain gain = MakeGain(scale, floatToFloat ? scale : static_cast<float>(single), exact);
  for (size_t done = 0; done < samples; done += kStep) {
    if constexpr (kSrc == QNST_FLOAT32) {
      StepFromFloat<kDst>(dst, reinterpret_cast<const float*>(src), gain);
    } else if constexpr (kSrc == QNST_FLOAT64) {
      StepFromDouble<kDst>(dst, reinterpret_cast<const double*>(src), gain);
    } else if constexpr (kDst == QNST_FLOAT64) {
      StepIntThroughDouble<double, kSrc>(dst, src, gain);
    } else if constexpr (kMode == Mode::kUnit) {
      StepInt<kDst, kSrc>(dst, src, gain);
    } else {
      StepIntWithGain<kDst, kSrc, kMode == Mode::kSoft ? Rails::kNone : Rails::kBoth>(dst, src, gain);
    }
    dst += kStep * static_cast<size_t>(to.bytes);
    src += kStep * static_cast<size_t>(from.bytes);
  }
}

template <int kDst, int kSrc>
void ConvertWithGain(uint8_t* dst, const uint8_t* src, size_t samples, float scale) {
  const bool soft = std::fabs(scale) <= kSoftest;
  const auto convert = soft ? ConvertIn<kDst, kSrc, Mode::kSoft> : ConvertIn<kDst, kSrc, Mode::kLoud>;
  convert(dst, src, samples, scale);
}

// The high bytes of two vectors of 16-bit lanes.
HWY_INLINE hn::Vec<TagByte> HighBytes(hn::Vec<TagShort> low, hn::Vec<TagShort> high) {
#if QN_COPY_HAS_VBMI
  static constexpr ByteTable kOdd = [] {
    ByteTable table{};
    for (int i = 0; i < 64; ++i) table.at[i] = static_cast<uint8_t>(2 * i + 1);
    return table;
  }();
  return hn::Vec<TagByte>{_mm512_permutex2var_epi8(low.raw, LoadTable(kOdd), high.raw)};
#else
  const hn::Rebind<int8_t, TagShort> half;
  const auto lowHalf = hn::DemoteTo(half, hn::ShiftRight<8>(low));
  const auto highHalf = hn::DemoteTo(half, hn::ShiftRight<8>(high));
  return hn::BitCast(TagByte(), hn::Combine(hn::RebindToSigned<TagByte>(), highHalf, lowHalf));
#endif
}

// Swaps the bytes of 16-bit lanes.
HWY_INLINE hn::Vec<TagByte> SwapBytes(hn::Vec<TagByte> v) {
  alignas(16) static constexpr uint8_t kSwap[16] = {1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14};
  return hn::TableLookupBytes(v, hn::LoadDup128(TagByte(), kSwap));
}

// The top bytes of a vector of 16-bit integers, rounded to even; the bytes below them are left undefined. The
// saturating addition is the clip at the upper rail.
template <bool kBigEndian>
HWY_INLINE hn::Vec<TagShort> LoadRounded(const uint8_t* HWY_RESTRICT src) {
  const TagShort d;
  auto bytes = hn::LoadU(TagByte(), src);
  if (kBigEndian) bytes = SwapBytes(bytes);
  const auto value = hn::BitCast(d, bytes);
  const auto odd = hn::And(hn::ShiftRight<8>(value), hn::Set(d, 1));
  return hn::SaturatedAdd(value, hn::Add(odd, hn::Set(d, 0x7F)));
}

// 8 and 16-bit integers among themselves at scale 1.0, in lanes of their own width.
template <int kDst, int kSrc>
void ConvertNarrow(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src, size_t samples, float) {
  constexpr SampleForm to = kForm<kDst>, from = kForm<kSrc>;
  const TagByte d;
  const hn::Rebind<uint8_t, TagShort> half;
  const hn::RebindToUnsigned<TagShort> words;
  constexpr size_t kBytes = hn::MaxLanes(d);
  const auto offset = hn::Set(d, 0x80);
  if constexpr (to.bytes == 1) {
    for (size_t i = 0; i < samples; i += kBytes) {
      if constexpr (from.bytes == 1) {
        hn::StoreU(hn::Xor(hn::LoadU(d, src + i), offset), d, dst + i);
      } else {
        const auto low = LoadRounded<from.isBigEndian>(src + 2 * i);
        const auto high = LoadRounded<from.isBigEndian>(src + 2 * i + kBytes);
        const auto bytes = HighBytes(low, high);
        hn::StoreU(to.isOffset ? hn::Xor(bytes, offset) : bytes, d, dst + i);
      }
    }
  } else if constexpr (from.bytes == 1) {
    for (size_t i = 0; i < samples; i += kBytes / 2) {
      auto bytes = hn::LoadU(half, src + i);
      if (from.isOffset) bytes = hn::Xor(bytes, hn::Set(half, 0x80));
      const auto wide = hn::PromoteTo(words, bytes);
      hn::StoreU(hn::BitCast(d, to.isBigEndian ? wide : hn::ShiftLeft<8>(wide)), d, dst + 2 * i);
    }
  } else {
    for (size_t i = 0; i < 2 * samples; i += kBytes) {
      hn::StoreU(SwapBytes(hn::LoadU(d, src + i)), d, dst + i);
    }
  }
}

#if QN_COPY_HAS_VBMI
// 8-bit integers among themselves with a gain, by a table of all results.
template <int kDst, int kSrc>
void ConvertByTable(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src, size_t samples, float scale) {
  constexpr size_t kWorthATable = 1024;
  if (samples < kWorthATable) return ConvertWithGain<kDst, kSrc>(dst, src, samples, scale);
  alignas(64) uint8_t all[256], table[256];
  for (size_t i = 0; i < 256; ++i) all[i] = static_cast<uint8_t>(i);
  ConvertWithGain<kDst, kSrc>(table, all, 256, scale);
  const __m512i t0 = _mm512_load_si512(table), t1 = _mm512_load_si512(table + 64);
  const __m512i t2 = _mm512_load_si512(table + 128), t3 = _mm512_load_si512(table + 192);
  for (size_t i = 0; i < samples; i += 64) {
    const __m512i at = _mm512_loadu_si512(src + i);
    const __m512i low = _mm512_permutex2var_epi8(t0, at, t1);
    const __m512i high = _mm512_permutex2var_epi8(t2, at, t3);
    _mm512_storeu_si512(dst + i, _mm512_mask_blend_epi8(_mm512_movepi8_mask(at), low, high));
  }
}
#endif

// The two vector kernels whose product is single: 16-bit from float, where what does not fit 32 bits ends at
// the lower rail, and float from 16-bit.
template <int kDst, int kSrc>
void ConvertStepped(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src, size_t samples, float scale) {
  const hn::Rebind<int16_t, TagInt> dShort;
  const TagFloat df;
  QN_COPY_UNROLL
  for (size_t i = 0; i < samples; i += kLanes) {
    if constexpr (kDst == QNST_PCM16) {
      const VecFloat x = hn::LoadU(df, reinterpret_cast<const float*>(src) + i);
      const VecInt y = NearestRaw(hn::Mul(x, hn::Set(df, scale * 0x1p15f)));
      hn::StoreU(hn::DemoteTo(dShort, y), dShort, reinterpret_cast<int16_t*>(dst) + i);
    } else {
      const auto x = hn::LoadU(dShort, reinterpret_cast<const int16_t*>(src) + i);
      const VecFloat y = hn::ConvertTo(df, hn::PromoteTo(TagInt(), x));
      hn::StoreU(hn::Mul(y, hn::Set(df, scale * 0x1p-15f)), df, reinterpret_cast<float*>(dst) + i);
    }
  }
}

template <int kDst, int kSrc>
constexpr Converter MakeConverter() {
  constexpr SampleForm to = kForm<kDst>, from = kForm<kSrc>;
  Converter made{};
  if constexpr (kDst != kSrc && to.bytes <= 2 && from.bytes <= 2) {
    made.unit = ConvertNarrow<kDst, kSrc>;
  } else if constexpr (kDst != kSrc) {
    made.unit = ConvertIn<kDst, kSrc, Mode::kUnit>;
  }
  if constexpr (!GainDiffers<kDst, kSrc>()) {
    made.gain = ConvertIn<kDst, kSrc, Mode::kUnit>;
#if QN_COPY_HAS_VBMI
  } else if constexpr (to.bytes == 1 && from.bytes == 1) {
    made.gain = ConvertByTable<kDst, kSrc>;
#endif
  } else if constexpr (to.isFloat) {
    made.gain = ConvertIn<kDst, kSrc, Mode::kLoud>;
  } else {
    made.gain = ConvertWithGain<kDst, kSrc>;
  }
  made.moderate = kSrc == QNST_FLOAT32 ? !to.isFloat : from.bits <= 24 && kDst != QNST_FLOAT64;
#if HWY_ARCH_X86
  constexpr bool kHasStepped =
      (kDst == QNST_PCM16 && kSrc == QNST_FLOAT32) || (kDst == QNST_FLOAT32 && kSrc == QNST_PCM16);
  if constexpr (kHasStepped) made.stepped = ConvertStepped<kDst, kSrc>;
#endif
  return made;
}

#else  // QN_COPY_HAS_VECTOR

template <int kDst, int kSrc>
void ConvertByRule(uint8_t* dst, const uint8_t* src, size_t samples, float scale) {
  ConvertInOrder<kDst, kSrc>(dst, src, samples, scale, false);
}

#if HWY_ARCH_X86
inline void SteppedTo16(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src, size_t samples,
                        float scale) {
  const __m128 factor = _mm_set1_ps(scale * 0x1p15f);
  for (size_t i = 0; i < samples; i += 8) {
    const float* const in = reinterpret_cast<const float*>(src) + i;
    const __m128i low = _mm_cvtps_epi32(_mm_mul_ps(_mm_loadu_ps(in), factor));
    const __m128i high = _mm_cvtps_epi32(_mm_mul_ps(_mm_loadu_ps(in + 4), factor));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst) + i / 8, _mm_packs_epi32(low, high));
  }
}

inline void SteppedToFloat(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src, size_t samples,
                           float scale) {
  const __m128 factor = _mm_set1_ps(scale * 0x1p-15f);
  for (size_t i = 0; i < samples; i += 8) {
    float* const out = reinterpret_cast<float*>(dst) + i;
    const __m128i in = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src) + i / 8);
    const __m128i low = _mm_srai_epi32(_mm_unpacklo_epi16(in, in), 16);
    const __m128i high = _mm_srai_epi32(_mm_unpackhi_epi16(in, in), 16);
    _mm_storeu_ps(out, _mm_mul_ps(_mm_cvtepi32_ps(low), factor));
    _mm_storeu_ps(out + 4, _mm_mul_ps(_mm_cvtepi32_ps(high), factor));
  }
}
#endif

template <int kDst, int kSrc>
constexpr Converter MakeConverter() {
  Converter made{ConvertByRule<kDst, kSrc>, ConvertByRule<kDst, kSrc>, nullptr, false};
#if HWY_ARCH_X86
  if (kDst == QNST_PCM16 && kSrc == QNST_FLOAT32) made.stepped = SteppedTo16;
  if (kDst == QNST_FLOAT32 && kSrc == QNST_PCM16) made.stepped = SteppedToFloat;
#endif
  return made;
}

#endif  // QN_COPY_HAS_VECTOR

template <int kDst, int kSrc>
constexpr Converter MakeConverterIfAny() {
  if constexpr (HasCopyKernel(kDst, kSrc)) return MakeConverter<kDst, kSrc>();
  return {};
}

// The converters of one destination from all sources, in the order of kSampleForms.
struct ConverterRow {
  Converter from[kSampleFormCount];
};

template <int kDst, size_t... kSrc>
constexpr ConverterRow MakeRow(std::index_sequence<kSrc...>) {
  return {{MakeConverterIfAny<kDst, kSampleForms[kSrc].type>()...}};
}
template <int kDst>
inline constexpr ConverterRow kConverterRow = MakeRow<kDst>(std::make_index_sequence<kSampleFormCount>());

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#endif  // include guard
