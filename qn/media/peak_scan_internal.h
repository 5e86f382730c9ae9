// The scan for the lowest and highest samples of each channel, and the pairs that it widens.
#pragma once

#include <limits>

#include "qn/audio/qncopy_rule.h"

namespace qn {

// What samples are compared as: narrow values make wide vectors.
template <int kType>
struct Comparable {
  using Type = decltype(LoadSample<kType>(nullptr));
};
template <>
struct Comparable<QNST_PCM8U> {
  using Type = uint8_t;
};
template <>
struct Comparable<QNST_PCM8S> {
  using Type = int8_t;
};
template <>
struct Comparable<QNST_PCM16> {
  using Type = int16_t;
};
template <int kType>
using Value = typename Comparable<kType>::Type;

template <int kType>
Value<kType> Load(const uint8_t* from) {
  if constexpr (kType == QNST_PCM24) {
    return LoadSample<kType>(from);
  } else {
    return LoadAs<Value<kType>>(from);
  }
}

template <int kType>
struct Pair {
  static constexpr int kBytes = 2 * kForm<kType>.bytes;
  static constexpr int kUnused = kType == QNST_PCM24 ? 256 : 1;
  static constexpr auto kHighest =
      static_cast<Value<kType>>(std::numeric_limits<Value<kType>>::max() / kUnused);
  static constexpr auto kLowest =
      static_cast<Value<kType>>(std::numeric_limits<Value<kType>>::lowest() / kUnused);

  Value<kType> low = kHighest;
  Value<kType> high = kLowest;

  static Pair At(const uint8_t* from) { return {Load<kType>(from), Load<kType>(from + kForm<kType>.bytes)}; }
  void Store(uint8_t* to) const {
    std::memcpy(to, &low, kForm<kType>.bytes);
    std::memcpy(to + kForm<kType>.bytes, &high, kForm<kType>.bytes);
  }
  // A NaN widens nothing.
  void Widen(Value<kType> lower, Value<kType> higher) {
    low = lower < low ? lower : low;
    high = higher > high ? higher : high;
  }
};

// Widens the stored pairs of `channels` channels by as many values of `frames` frames. `type` is one that the
// reduction kernels take.
void ScanFrames(int type, const uint8_t* source, size_t frames, size_t channels, uint8_t* pairs);

}  // namespace qn
