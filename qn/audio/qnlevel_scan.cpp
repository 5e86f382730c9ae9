// The scans, once for each instruction set.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/audio/qnlevel_scan.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include "hwy/cache_control.h"
#include "hwy/highway.h"
#include "qn/audio/qncopy_lanes-inl.h"
#include "qn/audio/qnlevel_scan.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

// A scan takes a step of samples into its lanes and gives one value a sample of the step, in their order.

#if QN_COPY_HAS_VECTOR

using TagLong = hn::Repartition<int64_t, TagInt>;
using TagSum = hn::RebindToUnsigned<TagLong>;
using VecLong = hn::Vec<TagLong>;
using VecSum = hn::Vec<TagSum>;

template <int kType>
struct HighestScan {
  using Value = uint64_t;
  using Lane = int32_t;
  static constexpr SampleForm kSample = kForm<kType>;

  VecInt low[4], high[4];

  HWY_INLINE HighestScan() {
    for (size_t i = 0; i < 4; ++i) low[i] = high[i] = hn::Zero(TagInt());
  }
  HWY_INLINE void Take(const uint8_t* src) {
    VecInt v[4];
    LoadTop<kType>(src, v);
    QN_COPY_UNROLL
    for (size_t i = 0; i < 4; ++i) {
      if constexpr (kSample.isFloat) {
        high[i] = hn::Max(high[i], hn::And(v[i], hn::Set(TagInt(), INT32_MAX)));
      } else {
        low[i] = hn::Min(low[i], v[i]);
        high[i] = hn::Max(high[i], v[i]);
      }
    }
  }
  HWY_INLINE void Give(int32_t* values) const {
    const TagInt d;
    constexpr int kUnused = 32 - 8 * kSample.bytes;
    QN_COPY_UNROLL
    for (size_t i = 0; i < 4; ++i) {
      VecInt size = high[i];
      if constexpr (!kSample.isFloat) {
        const VecInt highest = hn::Set(d, static_cast<int32_t>(HighRail(kSample)));
        const VecInt lower = hn::ShiftRight<kUnused>(low[i]);
        const VecInt upper = hn::Min(hn::ShiftRight<kUnused>(high[i]), highest);
        size = hn::Neg(hn::Max(lower, hn::Neg(highest)));
        if (kSample.bits == 8) size = hn::IfThenElse(hn::Eq(lower, hn::Set(d, -127)), hn::Set(d, 126), size);
        size = hn::Max(size, upper);
      }
      hn::StoreU(size, d, values + i * kLanes);
    }
  }
  static void Join(uint64_t& to, int32_t value) { to = std::max(to, static_cast<uint64_t>(value)); }
};

template <>
struct HighestScan<QNST_FLOAT64> {
  using Value = uint64_t;
  using Lane = uint64_t;

  VecLong high[8];

  HWY_INLINE HighestScan() {
    for (size_t i = 0; i < 8; ++i) high[i] = hn::Zero(TagLong());
  }
  HWY_INLINE void Take(const uint8_t* src) {
    const TagLong d;
    QN_COPY_UNROLL
    for (size_t i = 0; i < 8; ++i) {
      const auto bits = hn::LoadU(d, reinterpret_cast<const int64_t*>(src) + i * kLanes / 2);
      high[i] = hn::Max(high[i], hn::And(bits, hn::Set(d, INT64_MAX)));
    }
  }
  HWY_INLINE void Give(uint64_t* values) const {
    QN_COPY_UNROLL
    for (size_t i = 0; i < 8; ++i) {
      hn::StoreU(hn::BitCast(TagSum(), high[i]), TagSum(), values + i * kLanes / 2);
    }
  }
  static void Join(uint64_t& to, uint64_t value) { to = std::max(to, value); }
};

template <int kType>
struct SquareScan {
  using Value = uint64_t;
  using Lane = uint64_t;

  VecSum even[4], odd[4];

  HWY_INLINE SquareScan() {
    for (size_t i = 0; i < 4; ++i) even[i] = odd[i] = hn::Zero(TagSum());
  }
  HWY_INLINE void Take(const uint8_t* src) {
    VecInt v[4];
    LoadTop<kType>(src, v);
    QN_COPY_UNROLL
    for (size_t i = 0; i < 4; ++i) {
      const VecInt sample = hn::ShiftRight<32 - 8 * kForm<kType>.bytes>(v[i]);
      const VecInt other = hn::BitCast(TagInt(), hn::ShiftRight<32>(hn::BitCast(TagSum(), sample)));
      even[i] = hn::Add(even[i], hn::BitCast(TagSum(), hn::MulEven(sample, sample)));
      odd[i] = hn::Add(odd[i], hn::BitCast(TagSum(), hn::MulEven(other, other)));
    }
  }
  HWY_INLINE void Give(uint64_t* values) const {
    QN_COPY_UNROLL
    for (size_t i = 0; i < 4; ++i) {
      hn::StoreInterleaved2(even[i], odd[i], TagSum(), values + i * kLanes);
    }
  }
  static void Join(uint64_t& to, uint64_t value) { to += value; }
};

template <int kType, Term kTerm>
struct SumScan {
  using Value = double;
  using Lane = double;

  VecDouble sum[8];

  HWY_INLINE SumScan() {
    for (size_t i = 0; i < 8; ++i) sum[i] = hn::Zero(TagDouble());
  }
  static HWY_INLINE VecDouble Load(const uint8_t* src, size_t at) {
    const TagDouble d;
    if constexpr (kType == QNST_FLOAT32) {
      const TagHalfFloat half;
      const auto sample = hn::LoadU(half, reinterpret_cast<const float*>(src) + at);
      if constexpr (kTerm == Term::kSingleSquare) return hn::PromoteTo(d, hn::Mul(sample, sample));
      return hn::PromoteTo(d, sample);
    } else {
      return hn::LoadU(d, reinterpret_cast<const double*>(src) + at);
    }
  }
  HWY_INLINE void Take(const uint8_t* src) {
    QN_COPY_UNROLL
    for (size_t i = 0; i < 8; ++i) {
      VecDouble term = Load(src, i * kLanes / 2);
      if constexpr (kTerm == Term::kMagnitude) term = hn::Abs(term);
      if constexpr (kTerm == Term::kSquare) term = hn::Mul(term, term);
      sum[i] = hn::Add(sum[i], term);
    }
  }
  HWY_INLINE void Give(double* values) const {
    QN_COPY_UNROLL
    for (size_t i = 0; i < 8; ++i) hn::StoreU(sum[i], TagDouble(), values + i * kLanes / 2);
  }
  static void Join(double& to, double value) { to += value; }
};

// How far ahead samples are fetched; what is behind the end may be.
constexpr size_t kPrefetchBytes = 8192;

template <class Scan, int kType>
void ScanFramesWith(const uint8_t* src, size_t frames, size_t channels, typename Scan::Value* values) {
  constexpr size_t kStepBytes = kStep * kForm<kType>.bytes;
  // A place in a row of this many steps belongs to the same channel in each row.
  const size_t columns = channels / std::gcd(channels, kStep);
  const size_t rows = frames * channels / (columns * kStep);
  size_t channel = 0;
  for (size_t column = 0; column < columns; ++column) {
    Scan scan;
    const uint8_t* from = src + column * kStepBytes;
    for (size_t row = 0; row < rows; ++row, from += columns * kStepBytes) {
      for (size_t line = 0; line < kStepBytes; line += 64) hwy::Prefetch(from + kPrefetchBytes + line);
      scan.Take(from);
    }
    typename Scan::Lane lanes[kStep];
    scan.Give(lanes);
    for (const auto lane : lanes) {
      Scan::Join(values[channel], lane);
      if (++channel == channels) channel = 0;
    }
  }
}

#else  // QN_COPY_HAS_VECTOR

template <int kType>
struct HighestScan {
  using Value = uint64_t;
  static void Take(const uint8_t* from, uint64_t& to) {
    to = std::max(to, Magnitude<kType>(LoadSample<kType>(from)));
  }
};
template <int kType>
struct SquareScan {
  using Value = uint64_t;
  static void Take(const uint8_t* from, uint64_t& to) { to += SquareOf<kType>(from); }
};
template <int kType, Term kTerm>
struct SumScan {
  using Value = double;
  static void Take(const uint8_t* from, double& to) { to += TermOf<kType, kTerm>(from); }
};

template <class Scan, int kType>
void ScanFramesWith(const uint8_t* src, size_t frames, size_t channels, typename Scan::Value* values) {
  for (size_t frame = 0; frame < frames; ++frame) {
    for (size_t channel = 0; channel < channels; ++channel, src += kForm<kType>.bytes) {
      Scan::Take(src, values[channel]);
    }
  }
}

#endif  // QN_COPY_HAS_VECTOR

void HighestOfTarget(int type, const uint8_t* src, size_t frames, size_t channels, uint64_t* highest) {
  const auto scan = [&]<int kType>() {
    ScanFramesWith<HighestScan<kType>, kType>(src, frames, channels, highest);
  };
  switch (type) {
    case QNST_PCM8U:
      return scan.template operator()<QNST_PCM8U>();
    case QNST_PCM8S:
      return scan.template operator()<QNST_PCM8S>();
    case QNST_PCM16:
      return scan.template operator()<QNST_PCM16>();
    case QNST_PCM24:
      return scan.template operator()<QNST_PCM24>();
    case QNST_PCM24IN32:
      return scan.template operator()<QNST_PCM24IN32>();
    case QNST_PCM32:
      return scan.template operator()<QNST_PCM32>();
    case QNST_FLOAT32:
      return scan.template operator()<QNST_FLOAT32>();
    default:
      return scan.template operator()<QNST_FLOAT64>();
  }
}

void SquaresOfTarget(int type, const uint8_t* src, size_t frames, size_t channels, uint64_t* sums) {
  const auto scan = [&]<int kType>() {
    ScanFramesWith<SquareScan<kType>, kType>(src, frames, channels, sums);
  };
  switch (type) {
    case QNST_PCM8U:
      return scan.template operator()<QNST_PCM8U>();
    case QNST_PCM8S:
      return scan.template operator()<QNST_PCM8S>();
    case QNST_PCM16:
      return scan.template operator()<QNST_PCM16>();
    case QNST_PCM24:
      return scan.template operator()<QNST_PCM24>();
    default:
      return scan.template operator()<QNST_PCM32>();
  }
}

void SumsOfTarget(int type, Term term, const uint8_t* src, size_t frames, size_t channels, double* sums) {
  const auto scan = [&]<int kType, Term kTerm>() {
    ScanFramesWith<SumScan<kType, kTerm>, kType>(src, frames, channels, sums);
  };
  if (type == QNST_FLOAT64) {
    if (term == Term::kMagnitude) return scan.template operator()<QNST_FLOAT64, Term::kMagnitude>();
    return scan.template operator()<QNST_FLOAT64, Term::kSquare>();
  }
  switch (term) {
    case Term::kMagnitude:
      return scan.template operator()<QNST_FLOAT32, Term::kMagnitude>();
    case Term::kSquare:
      return scan.template operator()<QNST_FLOAT32, Term::kSquare>();
    case Term::kSingleSquare:
      return scan.template operator()<QNST_FLOAT32, Term::kSingleSquare>();
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(HighestOfTarget);
HWY_EXPORT(SquaresOfTarget);
HWY_EXPORT(SumsOfTarget);

void ScanHighest(int type, const uint8_t* src, size_t frames, size_t channels, uint64_t* highest) {
  HWY_DYNAMIC_DISPATCH(HighestOfTarget)(type, src, frames, channels, highest);
}
void ScanSquares(int type, const uint8_t* src, size_t frames, size_t channels, uint64_t* sums) {
  HWY_DYNAMIC_DISPATCH(SquaresOfTarget)(type, src, frames, channels, sums);
}
void ScanSums(int type, Term term, const uint8_t* src, size_t frames, size_t channels, double* sums) {
  HWY_DYNAMIC_DISPATCH(SumsOfTarget)(type, term, src, frames, channels, sums);
}

}  // namespace qn
#endif
