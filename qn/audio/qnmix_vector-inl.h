// The mixers for one instruction set. Included by the qnmix_vector_*.cpp files once a target.

#if defined(QN_AUDIO_QNMIX_VECTOR_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef QN_AUDIO_QNMIX_VECTOR_INL_H_
#undef QN_AUDIO_QNMIX_VECTOR_INL_H_
#else
#define QN_AUDIO_QNMIX_VECTOR_INL_H_
#endif

#include <type_traits>
#include <utility>

#include "hwy/highway.h"
#include "qn/audio/qncopy_arith-inl.h"
#include "qn/audio/qncopy_lanes-inl.h"
#include "qn/audio/qncopy_rule.h"
#include "qn/audio/qnmix_rule.h"
#include "qn/audio/qnmix_vector.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

#if QN_COPY_HAS_VECTOR

inline constexpr size_t kWideLanes = kLanes / 2;  // doubles of a vector

HWY_INLINE VecFloat DemotePair(VecDouble low, VecDouble high) {
  const TagHalfFloat half;
  return hn::Combine(TagFloat(), hn::DemoteTo(half, high), hn::DemoteTo(half, low));
}

// The gains of one step: a vector for each vector of samples. The gains of 1, 2, 4 and, with long vectors, 8
// channels are the same in all vectors and stay in a register; others are read from the array again.
template <bool kSame>
class StepGains {
 public:
  HWY_INLINE explicit StepGains(const double* gains)
      : gains_(gains), wide_(hn::LoadU(TagDouble(), gains)), single_(DemotePair(wide_, wide_)) {}

  HWY_INLINE VecDouble Wide(size_t at, size_t vec) const {
    return kSame ? wide_ : hn::LoadU(TagDouble(), gains_ + at + vec * kWideLanes);
  }
  HWY_INLINE VecFloat Single(size_t at, size_t vec) const {
    return kSame ? single_ : DemotePair(Wide(at, 2 * vec), Wide(at, 2 * vec + 1));
  }

 private:
  const double* gains_;
  VecDouble wide_;
  VecFloat single_;
};

// The sum, put on the rails where it runs over.
HWY_INLINE VecInt SaturatedAddInts(VecInt a, VecInt b) {
  const TagInt d;
  const VecInt sum = hn::Add(a, b);
  const VecInt over = hn::And(hn::Xor(a, sum), hn::Xor(b, sum));
  const VecInt rail = hn::Xor(hn::ShiftRight<31>(sum), hn::Set(d, INT32_MIN));
  return hn::IfThenElse(hn::Lt(over, hn::Zero(d)), rail, sum);
}

// Adds samples of 8 or 16 bits; the words are signed, only the destination has the offset of its type.
template <int kDst, bool kFlipWords>
HWY_INLINE void AddNarrow(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT words, size_t bytes) {
  using T = std::conditional_t<kForm<kDst>.bytes == 1, int8_t, int16_t>;
  const hn::ScalableTag<T> d;
  const auto flip = hn::Set(d, static_cast<T>(kForm<kDst>.isOffset ? -128 : 0));
  for (size_t i = 0; i < bytes; i += hn::MaxLanes(d) * sizeof(T)) {
    T* const to = reinterpret_cast<T*>(dst + i);
    auto word = hn::LoadU(d, reinterpret_cast<const T*>(words + i));
    if (kFlipWords) word = hn::Xor(word, flip);
    hn::StoreU(hn::Xor(hn::SaturatedAdd(hn::Xor(hn::LoadU(d, to), flip), word), flip), d, to);
  }
}

// Adds a step of integers that lie in the top bits of their lanes; the bits below them do not count.
template <int kDst>
HWY_INLINE void AddTops(uint8_t* HWY_RESTRICT dst, const VecInt (&top)[4]) {
  VecInt sum[4];
  LoadTop<kDst>(dst, sum);
  QN_COPY_UNROLL
  for (size_t i = 0; i < 4; ++i) {
    if constexpr (kForm<kDst>.IsWord24()) {
      // A word of more than 24 bits is far beyond the rail with any addend.
      const VecInt tame = ClipInts<Rails::kBoth>(sum[i], -(1 << 25), 1 << 25);
      sum[i] = ClipInts<Rails::kBoth>(hn::Add(tame, hn::ShiftRight<8>(top[i])), -0x800000, 0x7FFFFF);
    } else {
      sum[i] = SaturatedAddInts(sum[i], top[i]);
    }
  }
  kForm<kDst>.IsWord24() ? StoreLow<kDst>(dst, sum) : StoreTop<kDst>(dst, sum);
}

// Adds a step of integers that lie in the low bits of their lanes.
template <int kDst>
HWY_INLINE void AddInts(uint8_t* HWY_RESTRICT dst, VecInt (&v)[4]) {
  constexpr SampleForm to = kForm<kDst>;
  if constexpr (to.bytes <= 2) {
    alignas(64) uint8_t words[kStep * static_cast<size_t>(to.bytes)];
    StoreLow<to.bytes == 1 ? QNST_PCM8S : QNST_PCM16>(words, v);
    AddNarrow<kDst, false>(dst, words, sizeof words);
  } else {
    QN_COPY_UNROLL
    for (size_t i = 0; i < 4; ++i) v[i] = hn::ShiftLeft<32 - to.bits>(v[i]);
    AddTops<kDst>(dst, v);
  }
}

template <int kDst>
void AddSamples(uint8_t* dst, const uint8_t* src, size_t samples) {
  constexpr size_t kBytes = kForm<kDst>.bytes;
  if constexpr (kBytes <= 2) return AddNarrow<kDst, true>(dst, src, samples * kBytes);
  for (size_t done = 0; done < samples; done += kStep) {
    VecInt v[4];
    LoadTop<kDst>(src + done * kBytes, v);
    if constexpr (kForm<kDst>.IsWord24()) {
      AddInts<kDst>(dst + done * kBytes, v);
    } else {
      AddTops<kDst>(dst + done * kBytes, v);
    }
  }
}

template <int kSrc>
HWY_INLINE void LoadWide(const uint8_t* HWY_RESTRICT src, VecDouble (&wide)[8]) {
  if constexpr (!kForm<kSrc>.isFloat) return LoadDoubles<kSrc>(src, wide);
  QN_COPY_UNROLL
  for (size_t i = 0; i < 8; ++i) {
    if constexpr (kSrc == QNST_FLOAT32) {
      const float* const from = reinterpret_cast<const float*>(src) + i * kWideLanes;
      wide[i] = hn::PromoteTo(TagDouble(), hn::LoadU(TagHalfFloat(), from));
    } else {
      wide[i] = hn::LoadU(TagDouble(), reinterpret_cast<const double*>(src) + i * kWideLanes);
    }
  }
}

template <int kDst, Rails kRails>
HWY_INLINE void AddWide(uint8_t* HWY_RESTRICT dst, const VecDouble (&wide)[8]) {
  if constexpr (kForm<kDst>.isFloat) {
    QN_COPY_UNROLL
    for (size_t i = 0; i < 8; ++i) {
      if constexpr (kDst == QNST_FLOAT64) {
        double* const to = reinterpret_cast<double*>(dst) + i * kWideLanes;
        hn::StoreU(hn::Add(hn::LoadU(TagDouble(), to), wide[i]), TagDouble(), to);
      } else {
        const TagHalfFloat half;
        float* const to = reinterpret_cast<float*>(dst) + i * kWideLanes;
        hn::StoreU(hn::Add(hn::LoadU(half, to), hn::DemoteTo(half, wide[i])), half, to);
      }
    }
  } else {
    VecInt v[4];
    QN_COPY_UNROLL
    for (size_t i = 0; i < 4; ++i) v[i] = RoundDoubles<kDst, kRails>(wide[2 * i], wide[2 * i + 1]);
    AddInts<kDst>(dst, v);
  }
}

template <int kSrc, bool kSame>
HWY_INLINE void StepSingle(float* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src,
                           const StepGains<kSame>& gains, size_t at) {
  const TagFloat d;
  QN_COPY_UNROLL
  for (size_t i = 0; i < 4; ++i) {
    VecFloat x;
    if constexpr (kSrc == QNST_FLOAT32) {
      x = hn::LoadU(d, reinterpret_cast<const float*>(src) + i * kLanes);
    } else {
      const double* const from = reinterpret_cast<const double*>(src) + i * kLanes;
      x = DemotePair(hn::LoadU(TagDouble(), from), hn::LoadU(TagDouble(), from + kWideLanes));
    }
    float* const to = dst + i * kLanes;
    hn::StoreU(hn::Add(hn::LoadU(d, to), hn::Mul(x, gains.Single(at, i))), d, to);
  }
}

enum class Kind { kWide, kSoft, kSingle };

template <int kDst, int kSrc, Kind kKind, bool kSame>
HWY_INLINE void MixSteps(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src, size_t samples,
                         const double* HWY_RESTRICT pattern, size_t period) {
  const StepGains<kSame> gains(pattern);
  const size_t advance = kStep % period;
  for (size_t done = 0, at = 0; done < samples; done += kStep) {
    if constexpr (kKind == Kind::kSingle) {
      StepSingle<kSrc>(reinterpret_cast<float*>(dst), src, gains, at);
    } else {
      VecDouble wide[8];
      LoadWide<kSrc>(src, wide);
      QN_COPY_UNROLL
      for (size_t i = 0; i < 8; ++i) wide[i] = hn::Mul(wide[i], gains.Wide(at, i));
      AddWide<kDst, kKind == Kind::kSoft ? Rails::kNone : Rails::kBoth>(dst, wide);
    }
    at += advance;
    if (at >= period) at -= period;
    dst += kStep * static_cast<size_t>(kForm<kDst>.bytes);
    src += kStep * static_cast<size_t>(kForm<kSrc>.bytes);
  }
}

template <int kDst, int kSrc, Kind kKind>
void MixIn(uint8_t* dst, const uint8_t* src, size_t samples, const double* pattern, size_t period) {
  const bool same = kWideLanes % period == 0;
  const auto mix = same ? MixSteps<kDst, kSrc, kKind, true> : MixSteps<kDst, kSrc, kKind, false>;
  mix(dst, src, samples, pattern, period);
}

template <int kDst, int kSrc>
constexpr Mixer MakeMixer() {
  constexpr SampleForm to = kForm<kDst>, from = kForm<kSrc>;
  Mixer made{};
  made.wide = MixIn<kDst, kSrc, Kind::kWide>;
  if constexpr (!to.isFloat) made.add = AddSamples<kDst>;
  if constexpr (!to.isFloat && !from.isFloat && !from.IsWord24()) made.soft = MixIn<kDst, kSrc, Kind::kSoft>;
  if constexpr (kDst == QNST_FLOAT32 && from.isFloat) made.single = MixIn<kDst, kSrc, Kind::kSingle>;
  return made;
}

#else  // QN_COPY_HAS_VECTOR

template <int kDst, int kSrc>
constexpr Mixer MakeMixer() {
  return {};
}

#endif  // QN_COPY_HAS_VECTOR

// The mixers of one destination from all sources, in the order of kSampleForms.
struct MixerRow {
  Mixer from[kMixForms];
};

template <int kDst, size_t... kSrc>
constexpr MixerRow MakeMixerRow(std::index_sequence<kSrc...>) {
  return {{MakeMixer<kDst, kSampleForms[kSrc].type>()...}};
}
template <int kDst>
inline constexpr MixerRow kMixerRow = MakeMixerRow<kDst>(std::make_index_sequence<kMixForms>());

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#endif  // include guard
