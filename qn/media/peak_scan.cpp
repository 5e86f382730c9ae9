// The scans, once for each instruction set.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/media/peak_scan.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include <algorithm>
#include <bit>
#include <utility>

#include "hwy/cache_control.h"
#include "hwy/highway.h"
#include "qn/media/peak_scan_internal.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

// One value after the other: where there are too few for vectors, or very many channels.
template <int kType>
void ScanInOrder(const uint8_t* source, size_t frames, size_t channels, uint8_t* pairs) {
  for (size_t channel = 0; channel < channels; ++channel) {
    uint8_t* const place = pairs + channel * Pair<kType>::kBytes;
    auto pair = Pair<kType>::At(place);
    for (size_t frame = 0; frame < frames; ++frame) {
      const auto value = Load<kType>(source + (frame * channels + channel) * kForm<kType>.bytes);
      pair.Widen(value, value);
    }
    pair.Store(place);
  }
}

#if HWY_TARGET != HWY_SCALAR && HWY_TARGET != HWY_EMU128 && !HWY_HAVE_SCALABLE

namespace hn = hwy::HWY_NAMESPACE;

// A value that is a NaN leaves what is kept: x86's own minimum and maximum give their second operand then.
// Elsewhere a comparison does it.
template <class V>
HWY_INLINE V Lower(V value, V kept) {
#if HWY_ARCH_X86
  return hn::Min(value, kept);
#else
  return hn::IfThenElse(hn::Lt(value, kept), value, kept);
#endif
}
template <class V>
HWY_INLINE V Higher(V value, V kept) {
#if HWY_ARCH_X86
  return hn::Max(value, kept);
#else
  return hn::IfThenElse(hn::Gt(value, kept), value, kept);
#endif
}

template <class D>
struct Bounds {
  using T = hn::TFromD<D>;
  using Limits = std::numeric_limits<T>;
  static constexpr size_t kLanes = hn::MaxLanes(D());

  hn::Vec<D> low;
  hn::Vec<D> high;

  // Infinities, not the highest values: a pair that begins with an infinity may keep it.
  static HWY_INLINE Bounds Empty() {
    return {hn::Set(D(), Limits::has_infinity ? Limits::infinity() : Limits::max()),
            hn::Set(D(), Limits::has_infinity ? -Limits::infinity() : Limits::lowest())};
  }
  HWY_INLINE void Widen(hn::Vec<D> lower, hn::Vec<D> higher) {
    low = Lower(lower, low);
    high = Higher(higher, high);
  }
  HWY_INLINE void Widen(hn::Vec<D> values) { Widen(values, values); }
  HWY_INLINE void Widen(const Bounds& other) { Widen(other.low, other.high); }

  // Halves the lanes until there is one for each channel, a power of two, and stores at least these.
  HWY_INLINE void StoreFolded(size_t channels, T* HWY_RESTRICT lows, T* HWY_RESTRICT highs) const {
    if constexpr (kLanes > 1) {
      if (channels < kLanes) {
        const hn::Half<D> half;
        Bounds<hn::Half<D>> folded{hn::LowerHalf(half, low), hn::LowerHalf(half, high)};
        folded.Widen(hn::UpperHalf(half, low), hn::UpperHalf(half, high));
        return folded.StoreFolded(channels, lows, highs);
      }
    }
    hn::StoreU(low, D(), lows);
    hn::StoreU(high, D(), highs);
  }
};

// How far ahead samples are fetched: blocks end too often for the processor to look far enough by itself.
// What is behind the end may be fetched.
constexpr size_t kPrefetchBytes = 8192;

template <int kType>
struct Scanner {
  using T = Value<kType>;
  using D = hn::ScalableTag<T>;
  static constexpr size_t kLanes = hn::MaxLanes(D());
  static constexpr size_t kBytes = kForm<kType>.bytes;
  static constexpr size_t kMostColumns = 4;
  static constexpr size_t kMostChannels = 64;

  // A vector of packed 24-bit samples is read with what stands before it, never with what follows.
  static constexpr size_t kBytesBefore = kType == QNST_PCM24 ? kLanes : 0;

  // Three words for each block of 16 bytes, and from these three bytes for the top of each lane.
  struct Tables {
    alignas(64) T words[kLanes];
    alignas(16) uint8_t spread[16] = {128, 0, 1, 2, 128, 3, 4, 5, 128, 6, 7, 8, 128, 9, 10, 11};
  };
  static constexpr Tables MakeTables() {
    Tables tables{};
    for (size_t i = 0; i < kLanes; ++i) {
      tables.words[i] = static_cast<T>(kLanes / 4 + i / 4 * 3 + std::min<size_t>(i % 4, 2));
    }
    return tables;
  }

  static HWY_INLINE hn::Vec<D> LoadVector(const uint8_t* from) {
    const D d;
    const auto loaded = hn::LoadU(d, reinterpret_cast<const T*>(from - kBytesBefore));
    if constexpr (kType == QNST_PCM24) {
      static constexpr Tables kTables = MakeTables();
      const hn::Repartition<uint8_t, D> bytes;
      const auto blocks = hn::TableLookupLanes(loaded, hn::SetTableIndices(d, kTables.words));
      const auto spread = hn::LoadDup128(bytes, kTables.spread);
      return hn::ShiftRight<8>(hn::BitCast(d, hn::TableLookupBytesOr0(hn::BitCast(bytes, blocks), spread)));
    } else {
      return loaded;
    }
  }

  // Rows of vectors, in which a place belongs to the same channel in each. The last may overlap the one
  // before.
  struct Rows {
    const uint8_t* first;
    const uint8_t* last;
    size_t bytes;
  };

  // Stores the bounds of some columns of vectors, side by side, or with `kFolded` one lane for each channel.
  template <bool kFolded, size_t... kColumn>
  static HWY_INLINE void ScanColumns(const Rows& rows, size_t channels, T* lows, T* highs,
                                     std::index_sequence<kColumn...>) {
    Bounds<D> bounds[] = {(static_cast<void>(kColumn), Bounds<D>::Empty())...};
    for (const uint8_t* row = rows.first;; row += rows.bytes) {
      row = std::min(row, rows.last);
      (hwy::Prefetch(row + kPrefetchBytes + kColumn * kLanes * kBytes), ...);
      (bounds[kColumn].Widen(LoadVector(row + kColumn * kLanes * kBytes)), ...);
      if (row == rows.last) break;
    }
    if constexpr (kFolded) {
      (bounds[0].Widen(bounds[kColumn]), ...);
      bounds[0].StoreFolded(channels, lows, highs);
    } else {
      (hn::StoreU(bounds[kColumn].low, D(), lows + kColumn * kLanes), ...);
      (hn::StoreU(bounds[kColumn].high, D(), highs + kColumn * kLanes), ...);
    }
  }

  template <size_t kColumns = kMostColumns>
  static HWY_INLINE void ScanUpTo(size_t columns, const Rows& rows, T* lows, T* highs) {
    if (columns >= kColumns) {
      return ScanColumns<false>(rows, 0, lows, highs, std::make_index_sequence<kColumns>());
    }
    if constexpr (kColumns > 1) ScanUpTo<kColumns - 1>(columns, rows, lows, highs);
  }

  static void Scan(const uint8_t* source, size_t frames, size_t channels, uint8_t* pairs) {
    if constexpr (kBytesBefore > 0) {
      const size_t first = std::min(frames, (kBytesBefore / kBytes + channels) / channels);
      ScanInOrder<kType>(source, first, channels, pairs);
      source += first * channels * kBytes;
      frames -= first;
    }
    // The fewest vectors that hold whole frames: one for a power of two.
    const size_t columns = channels >> std::min(std::countr_zero(channels), std::countr_zero(kLanes));
    const size_t samples = frames * channels;
    const bool isWide = columns == 1 && samples >= kMostColumns * kLanes;
    const size_t lanes = (isWide ? kMostColumns : columns) * kLanes;
    if (samples < lanes || channels > kMostChannels) {
      return ScanInOrder<kType>(source, frames, channels, pairs);
    }
    Rows rows{source, source + (samples - lanes) * kBytes, lanes * kBytes};
    T lows[(kMostChannels + 1) * kLanes];
    T highs[(kMostChannels + 1) * kLanes];
    if (isWide) {
      ScanColumns<true>(rows, channels, lows, highs, std::make_index_sequence<kMostColumns>());
    } else if (columns == 1) {
      ScanColumns<true>(rows, channels, lows, highs, std::make_index_sequence<1>());
    } else {
      for (size_t column = 0; column < columns; column += kMostColumns) {
        ScanUpTo(columns - column, rows, lows + column * kLanes, highs + column * kLanes);
        rows.first += kMostColumns * kLanes * kBytes;
        rows.last += kMostColumns * kLanes * kBytes;
      }
      Fold(lanes, channels, lows, highs);
    }
    for (size_t channel = 0; channel < channels; ++channel) {
      uint8_t* const place = pairs + channel * Pair<kType>::kBytes;
      auto pair = Pair<kType>::At(place);
      pair.Widen(lows[channel], highs[channel]);
      pair.Store(place);
    }
  }

  // Halves a row until a frame is left. What vectors take from behind its end lands behind the half.
  static HWY_INLINE void Fold(size_t lanes, size_t channels, T* lows, T* highs) {
    const D d;
    while (lanes > channels) {
      lanes /= 2;
      for (size_t i = 0; i < lanes; i += kLanes) {
        hn::StoreU(Lower(hn::LoadU(d, lows + lanes + i), hn::LoadU(d, lows + i)), d, lows + i);
        hn::StoreU(Higher(hn::LoadU(d, highs + lanes + i), hn::LoadU(d, highs + i)), d, highs + i);
      }
    }
  }
};

#else

template <int kType>
struct Scanner {
  static constexpr auto Scan = ScanInOrder<kType>;
};

#endif

void ScanOfTarget(int type, const uint8_t* source, size_t frames, size_t channels, uint8_t* pairs) {
  switch (type) {
    case QNST_PCM8U:
      return Scanner<QNST_PCM8U>::Scan(source, frames, channels, pairs);
    case QNST_PCM8S:
      return Scanner<QNST_PCM8S>::Scan(source, frames, channels, pairs);
    case QNST_PCM16:
      return Scanner<QNST_PCM16>::Scan(source, frames, channels, pairs);
    case QNST_PCM24:
      return Scanner<QNST_PCM24>::Scan(source, frames, channels, pairs);
    case QNST_PCM32:
      return Scanner<QNST_PCM32>::Scan(source, frames, channels, pairs);
    case QNST_FLOAT32:
      return Scanner<QNST_FLOAT32>::Scan(source, frames, channels, pairs);
    default:
      return Scanner<QNST_FLOAT64>::Scan(source, frames, channels, pairs);
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(ScanOfTarget);

void ScanFrames(int type, const uint8_t* source, size_t frames, size_t channels, uint8_t* pairs) {
  if (frames == 0 || channels == 0) return;
  HWY_DYNAMIC_DISPATCH(ScanOfTarget)(type, source, frames, channels, pairs);
}

}  // namespace qn
#endif
