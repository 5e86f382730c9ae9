// YUV rows and RGB pixels as vectors, for one instruction set. A vector has the left pixels of as many pairs
// as it has lanes, another one the right pixels.

#if defined(QN_IMAGE_QNYUV_LANES_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef QN_IMAGE_QNYUV_LANES_INL_H_
#undef QN_IMAGE_QNYUV_LANES_INL_H_
#else
#define QN_IMAGE_QNYUV_LANES_INL_H_
#endif

#include <algorithm>
#include <cstring>

#include "hwy/highway.h"
#include "qn/image/qnyuv_rows.h"

#undef QN_YUV_HAS_VBMI
#define QN_YUV_HAS_VBMI (HWY_TARGET == HWY_AVX3_DL)

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using TagInt = hn::ScalableTag<int32_t>;
using TagFloat = hn::ScalableTag<float>;
using TagWord = hn::Repartition<uint16_t, TagInt>;
using TagShort = hn::Repartition<int16_t, TagInt>;
using TagHalfWord = hn::Rebind<uint16_t, TagInt>;
using TagByte = hn::Rebind<uint8_t, TagInt>;
using VecInt = hn::Vec<TagInt>;
using VecFloat = hn::Vec<TagFloat>;
using VecWord = hn::Vec<TagWord>;

inline constexpr size_t kPairs = hn::MaxLanes(TagInt());  // of a step

struct Couple {
  VecInt left;
  VecInt right;
};

inline VecInt LowByte(VecInt x) {
  return hn::And(x, hn::Set(TagInt(), 0xFF));
}
inline VecInt LoadDoubles(const BYTE* from) {
  return hn::LoadU(TagInt(), reinterpret_cast<const int32_t*>(from));
}
inline VecInt LoadWords(const BYTE* from) {
  return hn::PromoteTo(TagInt(), hn::LoadU(TagHalfWord(), reinterpret_cast<const uint16_t*>(from)));
}
inline void StoreDoubles(VecInt x, BYTE* to) {
  hn::StoreU(x, TagInt(), reinterpret_cast<int32_t*>(to));
}

// Two or four vectors whose lanes take turns in memory. Highway's portable target accesses such lanes one by
// one, which must be aligned then; rows may start at any address.
template <class Tag, class... Vectors>
void LoadInterleaved(Tag d, const BYTE* from, Vectors&... x) {
  using Lane = hn::TFromD<Tag>;
#if HWY_TARGET == HWY_EMU128
  Lane lanes[sizeof...(x) * hn::MaxLanes(Tag())];
  std::memcpy(lanes, from, sizeof(lanes));
#else
  const Lane* const lanes = reinterpret_cast<const Lane*>(from);
#endif
  if constexpr (sizeof...(x) == 2) {
    hn::LoadInterleaved2(d, lanes, x...);
  } else {
    hn::LoadInterleaved4(d, lanes, x...);
  }
}
template <class Tag, class... Vectors>
void StoreInterleaved(Tag d, BYTE* to, Vectors... x) {
  using Lane = hn::TFromD<Tag>;
#if HWY_TARGET == HWY_EMU128
  Lane lanes[sizeof...(x) * hn::MaxLanes(Tag())];
#else
  Lane* const lanes = reinterpret_cast<Lane*>(to);
#endif
  if constexpr (sizeof...(x) == 2) {
    hn::StoreInterleaved2(x..., d, lanes);
  } else {
    hn::StoreInterleaved4(x..., d, lanes);
  }
#if HWY_TARGET == HWY_EMU128
  std::memcpy(to, lanes, sizeof(lanes));
#endif
}

// Colours and samples are small, which saves what ConvertTo does about large floats.
inline VecInt Truncate(VecFloat x) {
#if QN_YUV_HAS_VBMI
  return VecInt{_mm512_cvttps_epi32(x.raw)};
#else
  return hn::ConvertTo(TagInt(), x);
#endif
}

// Couples of samples next to each other.
inline Couple LoadByteCouples(const BYTE* from) {
  const VecInt both = LoadWords(from);
  return {LowByte(both), hn::ShiftRight<8>(both)};
}
inline Couple SplitWords(VecInt both, int32_t mask) {
  const VecInt bits = hn::Set(TagInt(), mask);
  return {hn::And(both, bits), hn::And(hn::ShiftRight<16>(both), bits)};
}

#if QN_YUV_HAS_VBMI
// Numbers clipped to words, in blocks of eight: four left ones, then the right ones.
inline VecWord Pack(VecInt left, VecInt right) {
  return VecWord{_mm512_packus_epi32(left.raw, right.raw)};
}

enum class Order { kWords, kHighBytes, kHighBytesOfHalves };

// Where the bytes of pixels in their order, or of the left ones and the right ones, are in blocks.
template <Order kOrder>
struct alignas(64) BlockOrder {
  uint8_t at[64];

  constexpr BlockOrder() : at() {
    for (int i = 0; i < 64; ++i) {
      const int word = kOrder == Order::kWords       ? i / 2
                       : kOrder == Order::kHighBytes ? i % 32
                                                     : i % 16 * 2 + i / 16 % 2;
      const int pair = word / 2;
      const int place = pair / 4 * 8 + word % 2 * 4 + pair % 4;
      at[i] = static_cast<uint8_t>(2 * place + (kOrder == Order::kWords ? i % 2 : 1));
    }
  }
};

template <Order kOrder>
VecWord InOrder(VecWord blocks) {
  static constexpr BlockOrder<kOrder> kTable;
  return VecWord{_mm512_permutexvar_epi8(_mm512_load_si512(kTable.at), blocks.raw)};
}
inline VecWord InOrder(VecWord blocks) {
  return InOrder<Order::kWords>(blocks);
}
inline void StoreHighBytes(VecWord x, BYTE* to) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(to),
                      _mm512_castsi512_si256(InOrder<Order::kHighBytes>(x).raw));
}
inline void StoreHighBytes(VecWord x, BYTE* toLeft, BYTE* toRight) {
  const __m256i both = _mm512_castsi512_si256(InOrder<Order::kHighBytesOfHalves>(x).raw);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(toLeft), _mm256_castsi256_si128(both));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(toRight), _mm256_extracti128_si256(both, 1));
}
#else
// Numbers clipped to words.
inline VecWord Pack(VecInt left, VecInt right) {
  const TagWord d;
#if HWY_TARGET == HWY_AVX2
  static constexpr uint8_t kOrder[16] = {0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15};
  const auto order = hn::LoadDup128(hn::Repartition<uint8_t, TagInt>(), kOrder);
  return hn::TableLookupBytes(VecWord{_mm256_packus_epi32(left.raw, right.raw)}, hn::BitCast(d, order));
#else
  const auto clip = [](VecInt x) {
    return hn::Min(hn::Max(x, hn::Zero(TagInt())), hn::Set(TagInt(), 0xFFFF));
  };
  return hn::OddEven(hn::BitCast(d, hn::ShiftLeft<16>(clip(right))), hn::BitCast(d, clip(left)));
#endif
}
inline VecWord InOrder(VecWord x) {
  return x;
}
inline void StoreHighBytes(VecWord x, BYTE* to) {
  const hn::Rebind<uint8_t, TagShort> d;
  hn::StoreU(hn::DemoteTo(d, hn::BitCast(TagShort(), hn::ShiftRight<8>(x))), d, to);
}
inline void StoreHighBytes(VecWord x, BYTE* toLeft, BYTE* toRight) {
  const VecInt bytes = hn::BitCast(TagInt(), hn::ShiftRight<8>(x));
  hn::StoreU(hn::DemoteTo(TagByte(), LowByte(bytes)), TagByte(), toLeft);
  hn::StoreU(hn::DemoteTo(TagByte(), hn::ShiftRight<16>(bytes)), TagByte(), toRight);
}
#endif
inline void StoreWords(VecWord x, BYTE* to) {
  hn::StoreU(InOrder(x), TagWord(), reinterpret_cast<uint16_t*>(to));
}

// The samples of pairs of pixels, by kind of rows; where a pair shares its chroma, that is on the left.
struct Samples {
  Couple luma;
  Couple u;
  Couple v;
};

template <RowKind kKind>
struct Rows {
  static constexpr RowShape kShape = ShapeOf(kKind);
  static constexpr bool kFullChroma = kShape.HasFullChroma();
  static constexpr bool kIsBytes = kKind <= RowKind::kPixels;

  static Samples Load(const YuvRow& row, size_t pair, int32_t mask) {
    const BYTE* const luma = row.luma + pair * kShape.luma;
    const BYTE* const u = row.u + pair * kShape.u;
    const BYTE* const v = row.v + pair * kShape.v;
    Samples x;
    if constexpr (kKind == RowKind::kUYVY) {
      const VecInt all = LoadDoubles(luma);
      const VecInt unsignedRight = hn::And(hn::ShiftRight<24>(all), hn::Set(TagInt(), 0xFF));
      x.luma = {LowByte(hn::ShiftRight<8>(all)), unsignedRight};
      x.u.left = LowByte(all);
      x.v.left = LowByte(hn::ShiftRight<16>(all));
    } else if constexpr (kKind == RowKind::kYUYV) {
      const VecInt all = LoadDoubles(luma);
      x.luma = {LowByte(all), LowByte(hn::ShiftRight<16>(all))};
      x.u.left = LowByte(hn::ShiftRight<8>(all));
      x.v.left = LowByte(hn::ShiftRight<24>(all));
    } else if constexpr (kKind == RowKind::kUYVYWords || kKind == RowKind::kYUYVWords) {
      VecInt first;
      VecInt second;
      LoadInterleaved(TagInt(), luma, first, second);
      const Couple low = SplitWords(first, mask);
      const Couple high = SplitWords(second, mask);
      constexpr bool kLumaFirst = kKind == RowKind::kYUYVWords;
      x.luma = kLumaFirst ? Couple{low.left, high.left} : Couple{low.right, high.right};
      x.u.left = kLumaFirst ? low.right : low.left;
      x.v.left = kLumaFirst ? high.right : high.left;
    } else if constexpr (kKind == RowKind::kPairs) {
      x.luma = LoadByteCouples(luma);
      x.u.left = hn::PromoteTo(TagInt(), hn::LoadU(TagByte(), u));
      x.v.left = hn::PromoteTo(TagInt(), hn::LoadU(TagByte(), v));
    } else if constexpr (kKind == RowKind::kTurns) {
      x.luma = LoadByteCouples(luma);
      const Couple turns = LoadByteCouples(u);
      x.u.left = turns.left;
      x.v.left = turns.right;
    } else if constexpr (kKind == RowKind::kPixels) {
      x = {LoadByteCouples(luma), LoadByteCouples(u), LoadByteCouples(v)};
    } else if constexpr (kKind == RowKind::kTurnsWords) {
      x.luma = SplitWords(LoadDoubles(luma), mask);
      const Couple turns = SplitWords(LoadDoubles(u), mask);
      x.u.left = turns.left;
      x.v.left = turns.right;
    } else {
      static_assert(kKind == RowKind::kPixelsWords);
      x = {SplitWords(LoadDoubles(luma), mask), SplitWords(LoadDoubles(u), mask),
           SplitWords(LoadDoubles(v), mask)};
    }
    return x;
  }

  // Words as Pack() orders them, bytes in the high ones: of luma, then of U and V, or of both in couples
  // where a pair shares them, which leaves `v` unused.
  static void Store(VecWord y, VecWord u, VecWord v, const YuvRow& row, size_t pair) {
    const TagWord d;
    BYTE* const luma = row.luma + pair * kShape.luma;
    if constexpr (kKind == RowKind::kUYVY || kKind == RowKind::kYUYV) {
      const VecWord first = kKind == RowKind::kYUYV ? y : u;
      const VecWord second = kKind == RowKind::kYUYV ? u : y;
      StoreWords(hn::OrAnd(hn::ShiftRight<8>(first), second, hn::Set(d, 0xFF00)), luma);
    } else if constexpr (kKind == RowKind::kUYVYWords || kKind == RowKind::kYUYVWords) {
      const VecWord first = kKind == RowKind::kYUYVWords ? y : u;
      const VecWord second = kKind == RowKind::kYUYVWords ? u : y;
      StoreInterleaved(d, luma, InOrder(first), InOrder(second));
    } else {
      const auto store = [](VecWord x, BYTE* to) {
        if constexpr (kIsBytes) {
          StoreHighBytes(x, to);
        } else {
          StoreWords(x, to);
        }
      };
      store(y, luma);
      if (!row.u) return;
      BYTE* const toU = row.u + pair * kShape.u;
      BYTE* const toV = row.v + pair * kShape.v;
      if constexpr (kKind == RowKind::kPairs) {
        StoreHighBytes(u, toU, toV);
      } else {
        store(u, toU);
        if constexpr (kFullChroma) store(v, toV);
      }
    }
  }
};

// What a step works on when less than one is left.
template <RowKind kKind>
struct Rest {
  BYTE luma[kPairs * ShapeOf(kKind).luma] = {};
  BYTE u[kPairs * ShapeOf(kKind).u + 1] = {};
  BYTE v[kPairs * ShapeOf(kKind).v + 1] = {};

  YuvRow Row() { return {luma, u, v}; }
};

template <class Vec>
struct ColoursOf {
  Vec blue;
  Vec green;
  Vec red;
};
using Colours = ColoursOf<VecFloat>;
using WholeColours = ColoursOf<VecInt>;
template <class Vec>
ColoursOf<Vec> Sum(const ColoursOf<Vec>& a, const ColoursOf<Vec>& b) {
  return {hn::Add(a.blue, b.blue), hn::Add(a.green, b.green), hn::Add(a.red, b.red)};
}

// A colour of 32nds as byte in bits 5 to 12 of each word, halves rounded up.
inline hn::Vec<TagWord> Round(VecFloat left, VecFloat right) {
  const TagShort d;
  const TagWord dWord;
  const VecInt low = Truncate(left);
  const VecInt high = hn::ShiftLeft<16>(Truncate(right));
  const auto words = hn::OddEven(hn::BitCast(d, high), hn::BitCast(d, low));
  // The sum ends at 32767, which is just below 256, the difference at 0.
  constexpr int16_t kZero = 32767 - (256 * 32 - 1);
  const auto clippedAbove = hn::SaturatedAdd(words, hn::Set(d, kZero + 16));
  return hn::SaturatedSub(hn::BitCast(dWord, clippedAbove), hn::Set(dWord, kZero));
}

template <RgbKind kKind>
struct Pixels;

template <>
struct Pixels<RgbKind::kTriples> {
  static constexpr size_t kBytes = RgbBytes(RgbKind::kTriples);
  static constexpr float kUnits[3] = {1, 1, 1};  // of red, green and blue when loaded
  using Loaded = WholeColours;
  static constexpr float kScale = 32;
  using TagHalfByte = hn::Rebind<uint8_t, TagShort>;

  static hn::Vec<TagHalfByte> Byte(VecFloat left, VecFloat right) {
    return hn::DemoteTo(TagHalfByte(), hn::BitCast(TagShort(), hn::ShiftRight<5>(Round(left, right))));
  }
  static void Store(const Colours& left, const Colours& right, BYTE* to) {
    hn::StoreInterleaved3(Byte(left.blue, right.blue), Byte(left.green, right.green),
                          Byte(left.red, right.red), TagHalfByte(), to);
  }

  static void Split(hn::Vec<TagHalfByte> both, VecInt& left, VecInt& right) {
    const VecInt words = hn::BitCast(TagInt(), hn::PromoteTo(TagShort(), both));
    left = LowByte(words);
    right = hn::ShiftRight<16>(words);
  }
  static void Load(const BYTE* from, WholeColours& left, WholeColours& right) {
    hn::Vec<TagHalfByte> blue, green, red;
    hn::LoadInterleaved3(TagHalfByte(), from, blue, green, red);
    Split(blue, left.blue, right.blue);
    Split(green, left.green, right.green);
    Split(red, left.red, right.red);
  }
};

#if QN_YUV_HAS_VBMI
// Where the words of pixels in their order are among those of blue and green, and of red and alpha.
struct alignas(64) WordOrder {
  uint16_t at[64];

  constexpr WordOrder() : at() {
    for (int i = 0; i < 64; ++i) {
      const int pair = i / 4;
      const int place = pair / 4 * 8 + i / 2 % 2 * 4 + pair % 4;
      at[i] = static_cast<uint16_t>(place + i % 2 * 32);
    }
  }
};

// The high bytes of blocks as pixels with alpha.
inline void StoreBlocks(hn::Vec<TagWord> blue, hn::Vec<TagWord> green, hn::Vec<TagWord> red, BYTE* to) {
  static constexpr WordOrder kOrder;
  const TagWord d;
  const auto high = hn::Set(d, 0xFF00);
  const auto blueGreen = hn::OrAnd(hn::ShiftRight<8>(blue), green, high);
  const auto redAlpha = hn::Or(hn::ShiftRight<8>(red), high);
  for (size_t half = 0; half < 64; half += 32) {
    const auto order = hn::Load(d, kOrder.at + half);
    const hn::Vec<TagWord> pixels{_mm512_permutex2var_epi16(blueGreen.raw, order.raw, redAlpha.raw)};
    hn::StoreU(pixels, d, reinterpret_cast<uint16_t*>(to) + half);
  }
}
#endif

template <>
struct Pixels<RgbKind::kBytes> {
  static constexpr size_t kBytes = RgbBytes(RgbKind::kBytes);

#if QN_YUV_HAS_VBMI
  static constexpr float kScale = 256;

  // Halves are rounded up.
  static void Store(const Colours& left, const Colours& right, BYTE* to) {
    const auto round = [](VecFloat leftPixels, VecFloat rightPixels) {
      return hn::SaturatedAdd(Pack(Truncate(leftPixels), Truncate(rightPixels)), hn::Set(TagWord(), 128));
    };
    StoreBlocks(round(left.blue, right.blue), round(left.green, right.green), round(left.red, right.red), to);
  }
#else
  static constexpr float kScale = 32;

  static void Store(const Colours& left, const Colours& right, BYTE* to) {
    const TagWord d;
    const auto blue = Round(left.blue, right.blue);
    const auto green = Round(left.green, right.green);
    const auto red = Round(left.red, right.red);
    const auto high = hn::Set(d, 0xFF00);
    StoreInterleaved(d, to, hn::OrAnd(hn::ShiftRight<5>(blue), hn::ShiftLeft<3>(green), high),
                     hn::Or(hn::ShiftRight<5>(red), high));
  }
#endif

  // The colours stay where they are in a pixel, which makes them so many times as large.
  static constexpr float kUnits[3] = {65536, 256, 1};
  using Loaded = WholeColours;
  static WholeColours Split(VecInt pixels) {
    const TagInt d;
    return {LowByte(pixels), hn::And(pixels, hn::Set(d, 0xFF00)), hn::And(pixels, hn::Set(d, 0xFF0000))};
  }
  static void Load(const BYTE* from, WholeColours& left, WholeColours& right) {
    VecInt leftPixels;
    VecInt rightPixels;
    LoadInterleaved(TagInt(), from, leftPixels, rightPixels);
    left = Split(leftPixels);
    right = Split(rightPixels);
  }
};

template <>
struct Pixels<RgbKind::kFloats> {
  static constexpr size_t kBytes = RgbBytes(RgbKind::kFloats);
  static constexpr float kUnits[3] = {1, 1, 1};
  using Loaded = Colours;
  static constexpr float kScale = 1;

  static VecFloat Clip(VecFloat x) {
    const TagFloat d;
    const VecFloat clipped = hn::Min(hn::Max(x, hn::Zero(d)), hn::Set(d, 255.0f));
    return hn::Div(clipped, hn::Set(d, 255.0f));
  }
  static void Store(const Colours& left, const Colours& right, BYTE* to) {
    const TagFloat d;
    float planes[3][2 * kPairs];
    hn::StoreInterleaved2(Clip(left.blue), Clip(right.blue), d, planes[0]);
    hn::StoreInterleaved2(Clip(left.green), Clip(right.green), d, planes[1]);
    hn::StoreInterleaved2(Clip(left.red), Clip(right.red), d, planes[2]);
    for (size_t half = 0; half < 2; ++half) {
      const size_t at = half * kPairs;
      StoreInterleaved(d, to + at * kBytes, hn::LoadU(d, planes[0] + at), hn::LoadU(d, planes[1] + at),
                       hn::LoadU(d, planes[2] + at), hn::Set(d, 1.0f));
    }
  }

  // What is far from any colour, and what is no number, must not make other pixels of its pair so.
  static VecFloat Tame(VecFloat x) {
    const TagFloat d;
    const VecFloat number = hn::IfThenElseZero(hn::Eq(x, x), x);
    const VecFloat near = hn::Min(hn::Max(number, hn::Set(d, -16.0f)), hn::Set(d, 16.0f));
    return hn::Mul(near, hn::Set(d, 255.0f));
  }
  static void Load(const BYTE* from, Colours& left, Colours& right) {
    const TagFloat d;
    float planes[3][2 * kPairs];
    for (size_t half = 0; half < 2; ++half) {
      const size_t at = half * kPairs;
      VecFloat blue, green, red, alpha;
      LoadInterleaved(d, from + at * kBytes, blue, green, red, alpha);
      hn::StoreU(Tame(blue), d, planes[0] + at);
      hn::StoreU(Tame(green), d, planes[1] + at);
      hn::StoreU(Tame(red), d, planes[2] + at);
    }
    hn::LoadInterleaved2(d, planes[0], left.blue, right.blue);
    hn::LoadInterleaved2(d, planes[1], left.green, right.green);
    hn::LoadInterleaved2(d, planes[2], left.red, right.red);
  }
};

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#endif
