// Each lane of a vector is one sum, or one sample, and goes through the operations of the plain road in their
// order, so the results are the same.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/audio/qnresample2_kernels_vector.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include "hwy/foreach_target.h"
//
#include <type_traits>

#include "hwy/highway.h"
#include "qn/audio/qnresample2_kernels.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using Doubles = hn::CappedTag<double, 8>;

bool Tidy(double* values, size_t count, double least) {
  const Doubles d;
  const auto limit = hn::Set(d, least);
  // 0 times what is not finite is a NaN, which stays in a sum.
  auto zeros = hn::Zero(d);
  size_t at = 0;
  for (; at + hn::Lanes(d) <= count; at += hn::Lanes(d)) {
    const auto x = hn::LoadU(d, values + at);
    hn::StoreU(hn::IfThenZeroElse(hn::Lt(hn::Abs(x), limit), x), d, values + at);
    zeros = hn::Add(zeros, hn::Mul(x, hn::Zero(d)));
  }
  double rest = hn::GetLane(hn::SumOfLanes(d, zeros));
  for (; at < count; ++at) {
    rest += values[at] * 0;
    if ((values[at] < 0 ? -values[at] : values[at]) < least) values[at] = 0;
  }
  return rest == 0;
}

void TapsAt(double distance, const double* table, double* taps) {
  const Doubles d;
  const hn::RebindToSigned<Doubles> integers;
  for (size_t k = 0; k < kSincTaps; k += hn::Lanes(d)) {
    // Behind the last tap the table has no points; what is there is not used.
    const auto away = hn::Min(hn::Abs(hn::Sub(hn::Set(d, distance - static_cast<double>(k)), hn::Iota(d, 0))),
                              hn::Set(d, kSincDelay));
    const auto a = hn::Mul(away, hn::Set(d, 4000.0 / kSincDelay));
    const auto sum = hn::Add(hn::Sub(a, hn::Set(d, 0.499999985)), hn::Set(d, kRoundingMagic));
    const auto i = hn::Sub(hn::BitCast(integers, sum), hn::BitCast(integers, hn::Set(d, kRoundingMagic)));
    const auto low = hn::GatherIndex(d, table, i), high = hn::GatherIndex(d, table + 1, i);
    const auto part = hn::Sub(a, hn::Sub(sum, hn::Set(d, kRoundingMagic)));
    hn::StoreU(hn::Add(low, hn::Mul(hn::Sub(high, low), part)), d, taps + k);
  }
}

// kGroups groups of kChannels channels side by side, to hide the time that a sum waits for its turn. Groups
// that share their taps load them once.
template <size_t kGroups, size_t kChannels, bool kShared>
HWY_INLINE void RunSome(const SincGroup* groups, size_t rows, const double* const* frames,
                        double* const* out) {
  const Doubles d;
  for (size_t part = 0; part < kSincGroup; part += hn::Lanes(d)) {
    const double *taps[kGroups], *x[kChannels][kGroups];
    hn::Vec<Doubles> sums[kGroups][kChannels];
    HWY_UNROLL(4)
    for (size_t g = 0; g < kGroups; ++g) {
      taps[g] = groups[g].taps + part;
      HWY_UNROLL(2)
      for (size_t c = 0; c < kChannels; ++c) {
        x[c][g] = frames[c] + groups[g].newest;
        sums[g][c] = hn::Zero(d);
      }
    }
    for (size_t row = 0; row < rows; ++row) {
      const auto shared = hn::Load(d, taps[0] + row * kSincGroup);
      HWY_UNROLL(4)
      for (size_t g = 0; g < kGroups; ++g) {
        const auto tap = kShared ? shared : hn::Load(d, taps[g] + row * kSincGroup);
        HWY_UNROLL(2)
        for (size_t c = 0; c < kChannels; ++c)
          sums[g][c] = hn::Add(sums[g][c], hn::Mul(tap, hn::Set(d, *(x[c][g] - row))));
      }
    }
    HWY_UNROLL(4)
    for (size_t g = 0; g < kGroups; ++g) {
      HWY_UNROLL(2)
      for (size_t c = 0; c < kChannels; ++c) hn::StoreU(sums[g][c], d, out[c] + groups[g].out + part);
    }
  }
}

template <size_t kChannels>
void RunAll(const SincGroup* groups, size_t count, size_t rows, const double* const* frames,
            double* const* out) {
  constexpr size_t kGroups = kSincTogether;
  size_t g = 0;
  for (; g + kGroups <= count; g += kGroups) {
    if (groups[g].taps == groups[g + kGroups - 1].taps) {
      RunSome<kGroups, kChannels, true>(groups + g, rows, frames, out);
    } else {
      RunSome<kGroups, kChannels, false>(groups + g, rows, frames, out);
    }
  }
  for (; g < count; ++g) RunSome<1, kChannels, true>(groups + g, rows, frames, out);
}
void RunMono(const SincGroup* groups, size_t count, size_t rows, const double* const* frames,
             double* const* out) {
  RunAll<1>(groups, count, rows, frames, out);
}
void RunStereo(const SincGroup* groups, size_t count, size_t rows, const double* const* frames,
               double* const* out) {
  RunAll<2>(groups, count, rows, frames, out);
}

// ---------------------------------------------------------------- linear

#if HWY_TARGET == HWY_AVX3_DL  // has vectors of a window
// The left and the right neighbours of a group's samples, out of the window that begins at `from`.
template <class T>
HWY_INLINE void Pick(const T* from, const int32_t* places, hn::Vec<Doubles>& left, hn::Vec<Doubles>& right) {
  const Doubles d;
  using Word = std::conditional_t<std::is_same_v<T, float>, float, int32_t>;
  const hn::CappedTag<Word, 16> words;
  const hn::Half<decltype(words)> half;
  hn::Vec<decltype(words)> window;
  if constexpr (sizeof(T) == sizeof(Word)) {
    window = hn::LoadU(words, from);
  } else {
    window = hn::PromoteTo(words, hn::LoadU(hn::Rebind<T, decltype(words)>(), from));
  }
  const auto picked = hn::TableLookupLanes(window, hn::SetTableIndices(words, places));
  left = hn::PromoteTo(d, hn::LowerHalf(half, picked));
  right = hn::PromoteTo(d, hn::UpperHalf(half, picked));
}
HWY_INLINE void Pick(const double* from, const int32_t* places, hn::Vec<Doubles>& left,
                     hn::Vec<Doubles>& right) {
  const Doubles d;
  const hn::RebindToSigned<Doubles> wide;
  const hn::Rebind<int32_t, Doubles> narrow;
  const auto at = [&](const int32_t* place) {
    return hn::GatherIndex(d, from, hn::PromoteTo(wide, hn::LoadU(narrow, place)));
  };
  left = at(places);
  right = at(places + 8);
}

// Eight samples as doubles, and back. What is rounded lies between two samples, so there is nothing to clip.
template <class V>
HWY_INLINE hn::Vec<Doubles> Wide(V samples) {
  if constexpr (std::is_same_v<V, hn::Vec<Doubles>>) {
    return samples;
  } else {
    return hn::PromoteTo(Doubles(), samples);
  }
}
template <class T>
HWY_INLINE auto Narrow(hn::Vec<Doubles> values) {
  if constexpr (std::is_same_v<T, double>) {
    return values;
  } else if constexpr (std::is_same_v<T, float>) {
    return hn::DemoteTo(hn::Rebind<float, Doubles>(), values);
  } else {
    const auto words = hn::DemoteTo(hn::Rebind<int32_t, Doubles>(), hn::Round(values));
    if constexpr (sizeof(T) == sizeof(int32_t)) {
      return words;
    } else {
      return hn::DemoteTo(hn::Rebind<T, Doubles>(), words);
    }
  }
}

// Frame by frame, for audio of many channels.
template <class T>
uint64_t RunFrames(const LinearCycle& cycle, size_t channels, const T* src, uint64_t srcFrames,
                   uint64_t first, T* dst, uint64_t room) {
  uint64_t done = 0;
  // Smaller samples have no loads of a part of a vector.
  if constexpr (sizeof(T) >= 4) {
    const Doubles d;
    const hn::Rebind<T, Doubles> narrow;
    uint32_t group = cycle.at;
    int64_t origin = static_cast<int64_t>(first) - cycle.base[group];
    for (; done < room; ++done, dst += channels) {
      const uint64_t frame = static_cast<uint64_t>(origin + cycle.base[group]);
      if (frame + 1 >= srcFrames) break;
      const auto fraction = hn::Set(d, cycle.fractions[group]);
      for (size_t c = 0; c < channels; c += hn::Lanes(d)) {
        const auto here = hn::FirstN(narrow, HWY_MIN(channels - c, hn::Lanes(d)));
        const T* const from = src + frame * channels + c;
        const auto left = Wide(hn::MaskedLoad(here, narrow, from));
        const auto right = Wide(hn::MaskedLoad(here, narrow, from + channels));
        const auto between = hn::Add(left, hn::Mul(hn::Sub(right, left), fraction));
        hn::BlendedStore(Narrow<T>(hn::IfThenElse(hn::Eq(fraction, hn::Zero(d)), left, between)), here,
                         narrow, dst + c);
      }
      if (++group == cycle.Groups()) {
        group = 0;
        origin += cycle.srcPeriod;
      }
    }
  }
  return done;
}

// The groups from the cycle's place on; none without such vectors.
template <class T>
uint64_t RunLinear(const LinearCycle& cycle, size_t channels, const T* src, uint64_t srcFrames,
                   uint64_t first, T* dst, uint64_t room) {
  if (channels > 2) return RunFrames(cycle, channels, src, srcFrames, first, dst, room);
  uint64_t done = 0;
  constexpr size_t kWindow = 16;
  const Doubles d;
  const size_t samples = srcFrames * channels;
  uint32_t group = cycle.at / cycle.group;
  // Of the turn; its first frame may lie before `src`.
  int64_t origin = static_cast<int64_t>(first) - cycle.base[group];
  while (room - done >= cycle.group) {
    const size_t start = static_cast<size_t>(origin + cycle.base[group]) * channels;
    if (start + kWindow > samples) break;
    hn::Vec<Doubles> left, right;
    Pick(src + start, cycle.places.get() + group * kWindow, left, right);
    const auto fraction = hn::Load(d, cycle.fractions.get() + group * 8);
    const auto between = hn::Add(left, hn::Mul(hn::Sub(right, left), fraction));
    hn::StoreU(Narrow<T>(hn::IfThenElse(hn::Eq(fraction, hn::Zero(d)), left, between)),
               hn::Rebind<T, Doubles>(), dst + done * channels);
    if (++group < cycle.Groups()) {
      done += cycle.group;
    } else {
      // What the group has behind the end of the turn is the start of the next one, again.
      done += cycle.period - (group - 1) * cycle.group;
      group = 0;
      origin += cycle.srcPeriod;
    }
  }
  return done;
}
#else
template <class T>
uint64_t RunLinear(const LinearCycle&, size_t, const T*, uint64_t, uint64_t, T*, uint64_t) {
  return 0;
}
#endif
#define QN_RUN_LINEAR(name, T)                                                                               \
  uint64_t name(const LinearCycle& cycle, size_t channels, const T* src, uint64_t srcFrames, uint64_t first, \
                T* dst, uint64_t room) {                                                                     \
    return RunLinear(cycle, channels, src, srcFrames, first, dst, room);                                     \
  }
QN_RUN_LINEAR(RunLinearBytes, uint8_t)
QN_RUN_LINEAR(RunLinearShorts, int16_t)
QN_RUN_LINEAR(RunLinearWords, int32_t)
QN_RUN_LINEAR(RunLinearFloats, float)
QN_RUN_LINEAR(RunLinearDoubles, double)
#undef QN_RUN_LINEAR

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(Tidy);
HWY_EXPORT(TapsAt);
HWY_EXPORT(RunMono);
HWY_EXPORT(RunStereo);

bool TidyValues(double* values, size_t count, double least) {
  return HWY_DYNAMIC_DISPATCH(Tidy)(values, count, least);
}
void SincTaps(double distance, const double* table, double* taps) {
  HWY_DYNAMIC_DISPATCH(TapsAt)(distance, table, taps);
}
void RunSincGroups(const SincGroup* groups, size_t count, size_t rows, const double* const* frames,
                   double* const* out, size_t channels) {
  if (channels == 1) {
    HWY_DYNAMIC_DISPATCH(RunMono)(groups, count, rows, frames, out);
  } else {
    HWY_DYNAMIC_DISPATCH(RunStereo)(groups, count, rows, frames, out);
  }
}

HWY_EXPORT(RunLinearBytes);
HWY_EXPORT(RunLinearShorts);
HWY_EXPORT(RunLinearWords);
HWY_EXPORT(RunLinearFloats);
HWY_EXPORT(RunLinearDoubles);

#define QN_RUN_LINEAR(name, T)                                                                          \
  template <>                                                                                           \
  uint64_t RunLinearGroups(const LinearCycle& cycle, size_t channels, const T* src, uint64_t srcFrames, \
                           uint64_t first, T* dst, uint64_t room) {                                     \
    return HWY_DYNAMIC_DISPATCH(name)(cycle, channels, src, srcFrames, first, dst, room);               \
  }
QN_RUN_LINEAR(RunLinearBytes, uint8_t)
QN_RUN_LINEAR(RunLinearShorts, int16_t)
QN_RUN_LINEAR(RunLinearWords, int32_t)
QN_RUN_LINEAR(RunLinearFloats, float)
QN_RUN_LINEAR(RunLinearDoubles, double)

}  // namespace qn
#endif
