// The conversion of one sample, as templates over the pair of types: the rule that every copy kernel obeys.
// Loops over it serve where vector code does not: short and overlapping buffers, processors without the
// vector units, the types of the channel lookup.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "qn/audio/qnwaveformat.h"

namespace qn {

// One sample type as the kernels see it. `bits` are those of the value: 24 for 24-in-32.
struct SampleForm {
  int type;
  int bytes;
  int bits;
  bool isFloat;
  bool isBigEndian;
  bool isOffset;  // unsigned, with 128 for silence

  constexpr bool IsWord24() const { return bytes == 4 && bits == 24; }
};

inline constexpr SampleForm kSampleForms[] = {
    {QNST_PCM8U, 1, 8, false, false, true},       {QNST_PCM16, 2, 16, false, false, false},
    {QNST_PCM24, 3, 24, false, false, false},     {QNST_PCM32, 4, 32, false, false, false},
    {QNST_FLOAT32, 4, 32, true, false, false},    {QNST_FLOAT64, 8, 64, true, false, false},
    {QNST_PCM24IN32, 4, 24, false, false, false}, {QNST_PCM8S, 1, 8, false, false, false},
    {QNST_PCM16BE, 2, 16, false, true, false},    {QNST_PCM24BE, 3, 24, false, true, false},
    {QNST_PCM32BE, 4, 32, false, true, false},
};
inline constexpr int kSampleFormCount = sizeof(kSampleForms) / sizeof(kSampleForms[0]);

// The place of a type in kSampleForms, or -1.
constexpr int SampleFormIndex(int type) {
  for (int i = 0; i < kSampleFormCount; ++i) {
    if (kSampleForms[i].type == type) return i;
  }
  return -1;
}

template <int kType>
inline constexpr SampleForm kForm = kSampleForms[SampleFormIndex(kType)];

// 2 to the power `exponent`.
constexpr double PowerOfTwo(int exponent) {
  return std::bit_cast<double>(static_cast<uint64_t>(1023 + exponent) << 52);
}

// Full scale of a type in its own units: 1.0 for the float types.
constexpr double FullScale(const SampleForm& form) {
  return form.isFloat ? 1.0 : PowerOfTwo(form.bits - 1);
}

// The highest and the lowest value of an integer type.
constexpr double HighRail(const SampleForm& form) {
  return FullScale(form) - 1.0;
}
constexpr double LowRail(const SampleForm& form) {
  return -FullScale(form);
}

// 1.5 * 2^52: added to a double below 2^51, it leaves the value rounded to nearest even in the low bits.
inline constexpr double kRoundingMagic = 6755399441055744.0;

template <typename T>
inline T LoadAs(const void* from) {
  T value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

// The stored integer, sign-extended and with the offset removed; for float types the value itself.
template <int kType>
inline auto LoadSample(const uint8_t* from) {
  constexpr SampleForm form = kForm<kType>;
  if constexpr (kType == QNST_FLOAT32) {
    return LoadAs<float>(from);
  } else if constexpr (kType == QNST_FLOAT64) {
    return LoadAs<double>(from);
  } else {
    uint32_t word = 0;
    for (int i = 0; i < form.bytes; ++i) {
      const int place = form.isBigEndian ? form.bytes - 1 - i : i;
      word |= static_cast<uint32_t>(from[i]) << (8 * place);
    }
    if (form.isOffset) word ^= 0x80;
    constexpr int kUnused = 32 - 8 * form.bytes;
    return static_cast<int32_t>(word << kUnused) >> kUnused;
  }
}

// Stores the low bits of `word`.
template <int kType>
inline void StoreWord(uint8_t* to, uint32_t word) {
  constexpr SampleForm form = kForm<kType>;
  if (form.isOffset) word ^= 0x80;
  for (int i = 0; i < form.bytes; ++i) {
    const int place = form.isBigEndian ? form.bytes - 1 - i : i;
    to[i] = static_cast<uint8_t>(word >> (8 * place));
  }
}

// Clips `y`, a value in units of the destination, and rounds it. A NaN passes the clip.
template <int kType>
inline uint32_t ClipAndRound(double y) {
  constexpr double kHigh = HighRail(kForm<kType>), kLow = LowRail(kForm<kType>);
  y = y < kLow ? kLow : y;
  y = y > kHigh ? kHigh : y;
  return static_cast<uint32_t>(std::bit_cast<uint64_t>(y + kRoundingMagic));
}

// One sample. With `unit` the scale is 1.0. Samples of the same type and unit scale are copied, not
// converted.
template <int kDst, int kSrc>
inline void ConvertSample(uint8_t* dst, const uint8_t* src, float scale, bool unit) {
  constexpr SampleForm to = kForm<kDst>, from = kForm<kSrc>;
  constexpr double kDecode = 1.0 / FullScale(from), kEncode = FullScale(to);
  if (kDst == kSrc && unit) {
    for (int i = 0; i < to.bytes; ++i) dst[i] = src[i];
    return;
  }
  const auto sample = LoadSample<kSrc>(src);
  if constexpr (kDst == QNST_FLOAT32) {
    float x;
    if constexpr (kSrc == QNST_FLOAT32) {
      x = sample * scale;
    } else if constexpr (kSrc == QNST_PCM32) {
      // The one pair whose gain is made single before it meets the sample.
      x = static_cast<float>(sample) * static_cast<float>(static_cast<double>(scale) * kDecode);
    } else {
      const double wide = static_cast<double>(sample) * kDecode;
      x = static_cast<float>(unit ? wide : wide * static_cast<double>(scale));
    }
    std::memcpy(dst, &x, sizeof x);
  } else {
    double x;
    if constexpr (kSrc == QNST_FLOAT32 && kDst != QNST_FLOAT64) {
      x = static_cast<double>(unit ? sample : sample * scale);
    } else {
      x = static_cast<double>(sample) * kDecode;
      if (!unit) x *= static_cast<double>(scale);
    }
    if constexpr (kDst == QNST_FLOAT64) {
      std::memcpy(dst, &x, sizeof x);
    } else {
      StoreWord<kDst>(dst, ClipAndRound<kDst>(x * kEncode));
    }
  }
}

// Kernels whose destination sample is wider run from the last sample to the first, so that a buffer can be
// widened in place; so do some pairs of equal width. 66 from 33 does too although it narrows, so it is no
// use in place: that order is what hosts know.
constexpr bool RunsBackward(int dst, int src) {
  constexpr int kAlsoBackward[][2] = {
      {QNST_PCM24, QNST_PCM24BE},     {QNST_PCM24BE, QNST_PCM24},   {QNST_PCM32, QNST_PCM24IN32},
      {QNST_FLOAT32, QNST_PCM24IN32}, {QNST_FLOAT32, QNST_PCM32BE}, {QNST_PCM32BE, QNST_FLOAT32},
      {QNST_PCM32BE, QNST_PCM24IN32}, {QNST_PCM32BE, QNST_FLOAT64},
  };
  for (const auto& pair : kAlsoBackward) {
    if (pair[0] == dst && pair[1] == src) return true;
  }
  return kSampleForms[SampleFormIndex(dst)].bytes > kSampleForms[SampleFormIndex(src)].bytes;
}

// The table of copy kernels is square but for four pairs, which hosts know to be missing.
constexpr bool HasCopyKernel(int dst, int src) {
  return !((dst == QNST_PCM16BE || dst == QNST_PCM24BE) && (src == QNST_PCM24IN32 || src == QNST_PCM32BE));
}

// Samples one after the other, in the given order: what overlapping buffers see.
template <int kDst, int kSrc>
void ConvertInOrder(uint8_t* dst, const uint8_t* src, size_t samples, float scale, bool backward) {
  const bool unit = scale == 1.0f;
  for (size_t i = 0; i < samples; ++i) {
    const size_t at = backward ? samples - 1 - i : i;
    ConvertSample<kDst, kSrc>(dst + at * kForm<kDst>.bytes, src + at * kForm<kSrc>.bytes, scale, unit);
  }
}

}  // namespace qn
