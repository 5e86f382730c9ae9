// Linear interpolation of outputs less than 2 frames apart, for processors that permute a window of samples.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/audio/qnresample_near_vector.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include <algorithm>

#include "hwy/highway.h"
#include "qn/audio/qncopy_rule.h"
#include "qn/audio/qnresample_vector.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_AVX3_DL

using Doubles = hn::Full512<double>;
using VecDouble = hn::Vec<Doubles>;

// A turn makes 16 samples: 16 frames of mono, or 8 of stereo. What they are made of lies within a window of
// 32 samples that begins with the first of it.
constexpr int64_t kTurn = 16;

// 16 samples, each a lane.
struct Samples {
  VecDouble low, high;
};

// Their places in the window: the low bits of a lane.
struct Places {
  __m512i low, high;

  __m512i Words() const {
    const __m512i even = _mm512_set_epi32(30, 28, 26, 24, 22, 20, 18, 16, 14, 12, 10, 8, 6, 4, 2, 0);
    return _mm512_permutex2var_epi32(low, even, high);
  }
};

// The window as it is read, and samples out of it, `behind` their places.
template <int kType>
class Window;

template <>
class Window<QNST_PCM16> {
 public:
  explicit Window(const uint8_t* from)
      : words_(_mm512_xor_si512(_mm512_loadu_si512(from), _mm512_set1_epi16(-0x8000))) {}

  Samples Pick(const Places& places, int behind) const {
    const __m512i add = _mm512_set1_epi64(behind);
    return {Pick(_mm512_add_epi64(places.low, add)), Pick(_mm512_add_epi64(places.high, add))};
  }

 private:
  // Under the exponent of 2^52, the lowest bits of a double are a whole number.
  VecDouble Pick(__m512i at) const {
    constexpr __mmask32 kWordAndExponent = 0x99999999;
    const __m512i bits =
        _mm512_maskz_permutex2var_epi16(kWordAndExponent, words_, at, _mm512_set1_epi16(0x4330));
    return VecDouble{_mm512_sub_pd(_mm512_castsi512_pd(bits), _mm512_set1_pd(0x1p52 + 0x8000))};
  }

  __m512i words_;
};

template <>
class Window<QNST_PCM32> {
 public:
  explicit Window(const uint8_t* from)
      : low_(_mm512_loadu_si512(from)), high_(_mm512_loadu_si512(from + 64)) {}
  Window(__m512i low, __m512i high) : low_(low), high_(high) {}

  Samples Pick(const Places& places, int behind) const {
    const __m512i at = _mm512_add_epi32(places.Words(), _mm512_set1_epi32(behind));
    const __m512i x = _mm512_permutex2var_epi32(low_, at, high_);
    return {VecDouble{_mm512_cvtepi32_pd(_mm512_castsi512_si256(x))},
            VecDouble{_mm512_cvtepi32_pd(_mm512_extracti64x4_epi64(x, 1))}};
  }

 private:
  __m512i low_, high_;
};

template <>
class Window<QNST_PCM24> : public Window<QNST_PCM32> {
 public:
  explicit Window(const uint8_t* from) : Window<QNST_PCM32>(Widen(from), Widen(from + 48)) {}

 private:
  // To the upper bytes of 32 bits, and down again with the sign.
  static __m512i Widen(const uint8_t* from) {
    const __m512i upper = _mm512_set_epi32(
        0x2F2E2D00, 0x2C2B2A00, 0x29282700, 0x26252400, 0x23222100, 0x201F1E00, 0x1D1C1B00, 0x1A191800,
        0x17161500, 0x14131200, 0x11100F00, 0x0E0D0C00, 0x0B0A0900, 0x08070600, 0x05040300, 0x02010000);
    return _mm512_srai_epi32(
        _mm512_maskz_permutexvar_epi8(0xEEEEEEEEEEEEEEEE, upper, _mm512_loadu_si512(from)), 8);
  }
};

template <>
class Window<QNST_FLOAT32> {
 public:
  explicit Window(const uint8_t* from) : low_(_mm512_loadu_ps(from)), high_(_mm512_loadu_ps(from + 64)) {}

  Samples Pick(const Places& places, int behind) const {
    const __m512i at = _mm512_add_epi32(places.Words(), _mm512_set1_epi32(behind));
    const __m512 x = _mm512_permutex2var_ps(low_, at, high_);
    return {VecDouble{_mm512_cvtps_pd(_mm512_castps512_ps256(x))},
            VecDouble{_mm512_cvtps_pd(_mm512_extractf32x8_ps(x, 1))}};
  }

 private:
  __m512 low_, high_;
};

// Too wide for two vectors: each half of a turn has a window of 16 samples of its own.
template <>
class Window<QNST_FLOAT64> {
 public:
  explicit Window(const uint8_t* from) : from_(from) {}

  Samples Pick(const Places& places, int behind) const {
    const __m512i add = _mm512_set1_epi64(behind);
    return {Pick(_mm512_add_epi64(places.low, add)), Pick(_mm512_add_epi64(places.high, add))};
  }

 private:
  VecDouble Pick(__m512i at) const {
    const __m512i place = _mm512_and_si512(at, _mm512_set1_epi64(31));
    const __m128i first = _mm512_castsi512_si128(place);
    const uint8_t* const from = from_ + _mm_cvtsi128_si64(first) * 8;
    const __m512i lane = _mm512_sub_epi64(place, _mm512_broadcastq_epi64(first));
    return VecDouble{_mm512_permutex2var_pd(_mm512_loadu_pd(from), lane, _mm512_loadu_pd(from + 64))};
  }

  const uint8_t* from_;
};

// What is rounded lies between two samples, so there is nothing to clip.
template <int kType>
HWY_INLINE void Store(uint8_t* to, const Samples& samples) {
  if constexpr (kType == QNST_FLOAT64) {
    _mm512_storeu_si512(to, _mm512_castpd_si512(samples.low.raw));
    _mm512_storeu_si512(to + 64, _mm512_castpd_si512(samples.high.raw));
  } else if constexpr (kType == QNST_FLOAT32) {
    const __m512 low = _mm512_castps256_ps512(_mm512_cvtpd_ps(samples.low.raw));
    _mm512_storeu_si512(to,
                        _mm512_castps_si512(_mm512_insertf32x8(low, _mm512_cvtpd_ps(samples.high.raw), 1)));
  } else {
    const auto rounded = [](VecDouble x) {
      return _mm512_castpd_si512(_mm512_add_pd(x.raw, _mm512_set1_pd(kRoundingMagic)));
    };
    const Places words{rounded(samples.low), rounded(samples.high)};
    if constexpr (kType == QNST_PCM16) {
      const __m512i fourths = _mm512_set_epi16(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 60, 56, 52, 48,
                                               44, 40, 36, 32, 28, 24, 20, 16, 12, 8, 4, 0);
      const __m256i line = _mm512_castsi512_si256(_mm512_permutex2var_epi16(words.low, fourths, words.high));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), line);
    } else if constexpr (kType == QNST_PCM24) {
      // Four samples of each quarter to its front, then the quarters together.
      const __m512i packed = _mm512_shuffle_epi8(
          words.Words(),
          _mm512_broadcast_i32x4(_mm_set_epi8(-1, -1, -1, -1, 14, 13, 12, 10, 9, 8, 6, 5, 4, 2, 1, 0)));
      const __m512i threes = _mm512_set_epi32(15, 11, 7, 3, 14, 13, 12, 10, 9, 8, 6, 5, 4, 2, 1, 0);
      const __m512i line = _mm512_permutexvar_epi32(threes, packed);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), _mm512_castsi512_si256(line));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 32), _mm512_extracti32x4_epi32(line, 2));
    } else {
      _mm512_storeu_si512(to, words.Words());
    }
  }
}

// Each lane is one sample with its own time, so a stereo frame has its time twice.
template <int kType, int kChannels>
HWY_INLINE void MakeTurn(const LinearRun& run, int64_t output, VecDouble number) {
  constexpr int64_t kFrameBytes = int64_t{kForm<kType>.bytes} * kChannels;
  const Doubles d;
  const auto timeOf = [&](VecDouble n) {
    return hn::Add(hn::Mul(hn::Set(d, run.step), n), hn::Set(d, run.position));
  };
  const VecDouble low = timeOf(number), high = timeOf(hn::Add(number, hn::Set(d, 8.0 / kChannels)));
  const VecDouble wholeLow = hn::Floor(low), wholeHigh = hn::Floor(high);
  const VecDouble factors[] = {hn::Sub(low, wholeLow), hn::Sub(high, wholeHigh)};
  // At 2^52 the lowest bit of a number counts frames, at 2^51 halves of them: its samples.
  const double first = hn::GetLane(wholeLow);
  const __m512d base = kChannels == 1 ? _mm512_set1_pd(0x1p52)
                                      : _mm512_set_pd(0x1p51 + 0.5, 0x1p51, 0x1p51 + 0.5, 0x1p51,
                                                      0x1p51 + 0.5, 0x1p51, 0x1p51 + 0.5, 0x1p51);
  const VecDouble toPlace = hn::Sub(VecDouble{base}, hn::Set(d, first));
  const Places places{_mm512_castpd_si512(hn::Add(wholeLow, toPlace).raw),
                      _mm512_castpd_si512(hn::Add(wholeHigh, toPlace).raw)};
  const Window<kType> window(run.src + static_cast<int64_t>(first) * kFrameBytes);
  const Samples from = window.Pick(places, 0), to = window.Pick(places, kChannels);
  const auto between = [&](VecDouble a, VecDouble b, VecDouble factor) {
    const VecDouble x = hn::Add(a, hn::Mul(hn::Sub(b, a), factor));
    if constexpr (kType != QNST_FLOAT32 && kType != QNST_FLOAT64) return x;
    // A factor of 0 takes the first whatever the second is.
    return hn::IfThenElse(hn::Ne(factor, hn::Zero(d)), x, a);
  };
  Store<kType>(run.dst + output * kFrameBytes,
               {between(from.low, to.low, factors[0]), between(from.high, to.high, factors[1])});
}

template <int kType, int kChannels>
void RunTurns(LinearRun& run) {
  const Doubles d;
  constexpr int64_t kFrames = kTurn / kChannels;
  const LinearRun same = run;  // a copy, which no store of a sample can change
  const int64_t turns = std::max<int64_t>(run.last - run.first, 0) / kFrames;
  const int64_t by = same.backward ? -kFrames : kFrames;
  int64_t output = same.backward ? same.last - kFrames : same.first;
  const VecDouble lanes = hn::Iota(d, 0);
  VecDouble number = hn::Add(hn::Set(d, static_cast<double>(output)),
                             hn::Floor(hn::Mul(lanes, hn::Set(d, 1.0 / kChannels))));
  for (int64_t i = 0; i < turns; ++i) {
    MakeTurn<kType, kChannels>(same, output, number);
    number = hn::Add(number, hn::Set(d, static_cast<double>(by)));
    output += by;
  }
  (same.backward ? run.last : run.first) += by * turns;
}

template <int kType>
void RunType(int channels, LinearRun& run) {
  if (channels == 1) {
    RunTurns<kType, 1>(run);
  } else {
    RunTurns<kType, 2>(run);
  }
}

void InterpolateNearHere(QNSAMPLETYPE type, int channels, LinearRun& run) {
  // With some room: a time is rounded, so outputs 2 frames apart can be a little more.
  if (channels > 2 || !(run.step < 1.99)) return;
  if (type == QNST_PCM16) RunType<QNST_PCM16>(channels, run);
  if (type == QNST_PCM24) RunType<QNST_PCM24>(channels, run);
  if (type == QNST_PCM32 || type == QNST_PCM24IN32) RunType<QNST_PCM32>(channels, run);
  if (type == QNST_FLOAT32) RunType<QNST_FLOAT32>(channels, run);
  if (type == QNST_FLOAT64) RunType<QNST_FLOAT64>(channels, run);
}

#else

void InterpolateNearHere(QNSAMPLETYPE, int, LinearRun&) {}

#endif

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(InterpolateNearHere);

void InterpolateNear(QNSAMPLETYPE type, int channels, LinearRun& run) {
  HWY_DYNAMIC_DISPATCH(InterpolateNearHere)(type, channels, run);
}

}  // namespace qn
#endif
