// The vectors need a fallback of 128 bits; Highway turns it off for compilers with a fault that this code
// does not meet, as its tests show.
#define HWY_BROKEN_EMU128 0
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/image/qnyuv_rows.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include <type_traits>
#include <utility>

#include "hwy/foreach_target.h"
//
#include "qn/image/qnyuv_lanes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

constexpr size_t kStep = 2 * kPairs;  // pixels

// Samples less their offset, which is a power of two or 0, times a factor. A fused operation rounds as the
// product of the difference does, since both are exact before.
class Scaled {
 public:
  Scaled(int32_t offset, float factor)
      : offset_(hn::Set(TagInt(), offset)),
        factor_(hn::Set(TagFloat(), factor)),
        product_(hn::Set(TagFloat(), static_cast<float>(offset) * factor)) {}

  VecFloat operator()(VecInt samples) const {
    const TagFloat d;
#if HWY_NATIVE_FMA
    return hn::MulSub(hn::ConvertTo(d, samples), factor_, product_);
#else
    return hn::Mul(hn::ConvertTo(d, hn::Sub(samples, offset_)), factor_);
#endif
  }

 private:
  [[maybe_unused]] VecInt offset_;
  VecFloat factor_;
  [[maybe_unused]] VecFloat product_;
};

#if QN_YUV_HAS_VBMI
// The same as below for factors of whole 4096ths, in integers.
void FixedStepsToRgb(const YuvRow& yuv, size_t pairs, const YuvToRgb& how, BYTE* rgb) {
  const TagInt d;
  const auto factors = [&](float byU, float byV) {
    const int32_t low = static_cast<int32_t>(byU * 4096) & 0xFFFF;
    return hn::Set(d, low | static_cast<int32_t>(byV * 4096) * 65536);
  };
  const VecInt blueBy = factors(how.blue, 0);
  const VecInt greenBy = factors(how.greenU, how.greenV);
  const VecInt redBy = factors(0, how.red);
  const VecInt high = hn::Set(d, 0xFF00);
  for (size_t pair = 0; pair < pairs; pair += kPairs) {
    const VecInt all = LoadDoubles(yuv.luma + pair * 4);
    const VecInt chroma = hn::And(all, hn::Set(d, 0x00FF00FF));
    const __m512i centred = hn::Sub(hn::BitCast(TagShort(), chroma), hn::Set(TagShort(), 128)).raw;
    const VecInt left = hn::And(all, high);
    const VecInt right = hn::And(hn::ShiftRight<16>(all), high);
    // Luma is whole 256ths: the bits that the rest loses before it is added are those that the sum would
    // lose.
    const auto colour = [&](VecInt by) {
      const VecInt sum = hn::Add(VecInt{_mm512_madd_epi16(centred, by.raw)}, hn::Set(d, 2048));
      const VecInt rest = hn::ShiftRight<4>(sum);
      return Pack(hn::Add(left, rest), hn::Add(right, rest));
    };
    StoreBlocks(colour(blueBy), colour(greenBy), colour(redBy), rgb + pair * 8);
  }
}
#endif

// `pairs` is a multiple of kPairs.
template <RowKind kRows, RgbKind kRgb>
void StepsToRgb(YuvRow yuv, size_t pairs, const YuvToRgb& how, BYTE* rgb) {
#if QN_YUV_HAS_VBMI
  if constexpr (kRows == RowKind::kUYVY && kRgb == RgbKind::kBytes) {
    if (how.isFixed) return FixedStepsToRgb(yuv, pairs, how, rgb);
  }
#endif
  // A power of two, which changes no rounding.
  constexpr float kScale = Pixels<kRgb>::kScale;
  const Scaled byLuma(how.lumaOffset, how.luma * kScale);
  const Scaled blue(how.chromaOffset, how.blue * kScale);
  const Scaled greenU(how.chromaOffset, how.greenU * kScale);
  const Scaled greenV(how.chromaOffset, how.greenV * kScale);
  const Scaled red(how.chromaOffset, how.red * kScale);
  const auto chroma = [&](VecInt u, VecInt v) {
    return Colours{blue(u), hn::Add(greenU(u), greenV(v)), red(v)};
  };
  const auto add = [&](VecInt luma, const Colours& colour) {
    const VecFloat y = byLuma(luma);
    return Colours{hn::Add(y, colour.blue), hn::Add(y, colour.green), hn::Add(y, colour.red)};
  };
  for (size_t pair = 0; pair < pairs; pair += kPairs) {
    const Samples x = Rows<kRows>::Load(yuv, pair, how.mask);
    const Colours left = chroma(x.u.left, x.v.left);
    Colours right = left;
    if constexpr (Rows<kRows>::kFullChroma) right = chroma(x.u.right, x.v.right);
    Pixels<kRgb>::Store(add(x.luma.left, left), add(x.luma.right, right),
                        rgb + pair * 2 * Pixels<kRgb>::kBytes);
  }
}

template <RowKind kRows, RgbKind kRgb>
void RowToRgb(const YuvRow& yuv, size_t width, const YuvToRgb& how, BYTE* rgb) {
  constexpr RowShape kShape = ShapeOf(kRows);
  constexpr size_t kBytes = Pixels<kRgb>::kBytes;
  const size_t done = width / kStep * kPairs;
  StepsToRgb<kRows, kRgb>(yuv, done, how, rgb);
  const size_t left = width - 2 * done;
  if (left == 0) return;

  Rest<kRows> rest;
  const size_t pairs = (left + 1) / 2;
  std::memcpy(rest.luma, yuv.luma + done * kShape.luma,
              kShape.IsPacked() ? pairs * kShape.luma : left * (kShape.luma / 2));
  if constexpr (Rows<kRows>::kFullChroma) {
    std::memcpy(rest.u, yuv.u + done * kShape.u, left * (kShape.u / 2));
    std::memcpy(rest.v, yuv.v + done * kShape.v, left * (kShape.v / 2));
  } else if constexpr (!kShape.IsPacked()) {
    // The last pixel of an odd row has the chroma of the pair before it.
    for (size_t i = 0; i < pairs; ++i) {
      const size_t pair = std::min(done + i, width / 2 - 1);
      std::memcpy(rest.u + i * kShape.u, yuv.u + pair * kShape.u, kShape.u);
      if (kShape.v != 0) std::memcpy(rest.v + i * kShape.v, yuv.v + pair * kShape.v, kShape.v);
    }
  }
  BYTE pixels[kStep * kBytes];
  StepsToRgb<kRows, kRgb>(rest.Row(), kPairs, how, pixels);
  std::memcpy(rgb + 2 * done * kBytes, pixels, left * kBytes);
}

#if QN_YUV_HAS_VBMI
// The same as below for factors of whole 16ths, in integers.
void FixedStepsToYuv(const BYTE* rgb, size_t pairs, const RgbToYuv& how, YuvRow yuv) {
  const TagInt d;
  const TagShort dShort;
  const VecInt lowBytes = hn::Set(d, 0x00FF00FF);
  // Each word's low byte, as blue and red, and its high one, as green and alpha.
  struct Words {
    hn::Vec<TagShort> blueRed;
    hn::Vec<TagShort> greenAlpha;
  };
  const auto split = [&](VecInt pixels) {
    const auto green = hn::ShiftRight<8>(hn::BitCast(TagWord(), pixels));
    return Words{hn::BitCast(dShort, hn::And(pixels, lowBytes)), hn::BitCast(dShort, green)};
  };
  struct Weights {
    VecInt blueRed;
    VecInt green;
    VecInt offset;

    Weights(const float* by, float plus)
        : blueRed(hn::Set(TagInt(), (Whole(by[2]) & 0xFFFF) | Whole(by[0]) * 65536)),
          green(hn::Set(TagInt(), Whole(by[1]) & 0xFFFF)),
          offset(hn::Set(TagInt(), Whole(plus) + 2048)) {}
    static int32_t Whole(float factor) { return static_cast<int32_t>(factor * 16); }
  };
  const auto sample = [](const Words& x, const Weights& by) {
    const VecInt ends{_mm512_madd_epi16(x.blueRed.raw, by.blueRed.raw)};
    const VecInt middle{_mm512_madd_epi16(x.greenAlpha.raw, by.green.raw)};
    return hn::ShiftRight<12>(hn::Add(hn::Add(ends, by.offset), middle));
  };
  const auto clip = [&](VecInt low, VecInt high) {
    const auto both = hn::OddEven(hn::BitCast(dShort, hn::ShiftLeft<16>(high)), hn::BitCast(dShort, low));
    return hn::BitCast(d, hn::Min(hn::Max(both, hn::Set(dShort, 1)), hn::Set(dShort, 254)));
  };
  const Weights toLuma(how.luma, how.lumaOffset);
  const Weights toU(how.u, how.chromaOffset);
  const Weights toV(how.v, how.chromaOffset);
  for (size_t pair = 0; pair < pairs; pair += kPairs) {
    VecInt leftPixels, rightPixels;
    LoadInterleaved(d, rgb + pair * 8, leftPixels, rightPixels);
    const Words left = split(leftPixels);
    const Words right = split(rightPixels);
    const Words both = {hn::Add(left.blueRed, right.blueRed), hn::Add(left.greenAlpha, right.greenAlpha)};
    const VecInt luma = clip(sample(left, toLuma), sample(right, toLuma));
    const VecInt chroma = clip(sample(both, toU), sample(both, toV));
    StoreDoubles(hn::Or(chroma, hn::ShiftLeft<8>(luma)), yuv.luma + pair * 4);
  }
}
#endif

template <RowKind kRows, RgbKind kRgb>
void StepsToYuv(const BYTE* rgb, const BYTE* lowerRgb, size_t pairs, const RgbToYuv& how, YuvRow yuv,
                YuvRow lower) {
#if QN_YUV_HAS_VBMI
  if constexpr (kRows == RowKind::kUYVY && kRgb == RgbKind::kBytes) {
    if (how.isFixed) return FixedStepsToYuv(rgb, pairs, how, yuv);
  }
#endif
  const TagWord dWord;
  // The colours' factors and what is added.
  struct Weights {
    VecFloat red;
    VecFloat green;
    VecFloat blue;
    VecFloat offset;

    Weights(const float* by, float plus)
        : red(hn::Set(TagFloat(), by[0] / Pixels<kRgb>::kUnits[0])),
          green(hn::Set(TagFloat(), by[1] / Pixels<kRgb>::kUnits[1])),
          blue(hn::Set(TagFloat(), by[2] / Pixels<kRgb>::kUnits[2])),
          offset(hn::Set(TagFloat(), plus)) {}
  };
  const Weights toLuma(how.luma, how.lumaOffset);
  const Weights toU(how.u, how.chromaOffset);
  const Weights toV(how.v, how.chromaOffset);
  const VecWord least = hn::Set(dWord, 1 * 256);
  const VecWord most = hn::Set(dWord, 254 * 256 + 255);
  const VecWord half = hn::Set(dWord, how.half);
  const int fraction = how.fraction;
  const int lowest = how.lowest;
  const bool isHalves = how.fraction == 0;
  const bool isFixed = how.isFixed;
  constexpr bool kIsBytes = Rows<kRows>::kIsBytes;
  using Loaded = typename Pixels<kRgb>::Loaded;
  const auto product = [](auto x, VecFloat by) {
    if constexpr (std::is_same_v<decltype(x), VecInt>) {
      return hn::Mul(hn::ConvertTo(TagFloat(), x), by);
    } else {
      return hn::Mul(x, by);
    }
  };
  const auto weigh = [&](const Loaded& x, const Weights& by) {
    const VecFloat redGreen = hn::Add(product(x.red, by.red), product(x.green, by.green));
    return hn::Add(hn::Add(redGreen, product(x.blue, by.blue)), by.offset);
  };
  const auto samples = [&](const Loaded& left, const Weights& byLeft, const Loaded& right,
                           const Weights& byRight) {
    const auto whole = [isHalves](VecFloat x) {
      const VecInt parts = Truncate(x);
      if (!kIsBytes && isHalves) return hn::ShiftRight<1>(hn::Add(parts, hn::Set(TagInt(), 1)));
      return parts;
    };
    const VecWord all =
        hn::SaturatedAdd(Pack(whole(weigh(left, byLeft)), whole(weigh(right, byRight))), half);
    if (kRows == RowKind::kUYVY && isFixed) return hn::Min(hn::Max(all, least), most);
    if constexpr (kIsBytes) return all;
    return hn::ShiftLeftSame(hn::ShiftRightSame(all, fraction), lowest);
  };
  const auto couple = [leftPixel = how.leftPixel](const Loaded& left, const Loaded& right) {
    if (leftPixel) [[unlikely]]
      return Sum(left, left);
    return Sum(left, right);
  };
  const bool upperRow = how.upperRow;
  for (size_t pair = 0; pair < pairs; pair += kPairs) {
    const size_t at = pair * 2 * Pixels<kRgb>::kBytes;
    Loaded left, right;
    Pixels<kRgb>::Load(rgb + at, left, right);
    const VecWord luma = samples(left, toLuma, right, toLuma);
    if constexpr (Rows<kRows>::kFullChroma) {
      Rows<kRows>::Store(luma, samples(left, toU, right, toU), samples(left, toV, right, toV), yuv, pair);
    } else {
      Loaded shared = couple(left, right);
      if (lower.luma) {
        Pixels<kRgb>::Load(lowerRgb + at, left, right);
        Rows<kRows>::Store(samples(left, toLuma, right, toLuma), luma, luma, lower, pair);
        shared = Sum(shared, upperRow ? shared : couple(left, right));
      }
      const VecWord chroma = samples(shared, toU, shared, toV);
      Rows<kRows>::Store(luma, chroma, chroma, yuv, pair);
    }
  }
}

template <RowKind kRows, RgbKind kRgb>
void RowsToYuv(const BYTE* rgb, const BYTE* lowerRgb, size_t width, const RgbToYuv& how, const YuvRow& yuv,
               const YuvRow& lower) {
  constexpr RowShape kShape = ShapeOf(kRows);
  constexpr size_t kBytes = Pixels<kRgb>::kBytes;
  const size_t done = width / kStep * kPairs;
  StepsToYuv<kRows, kRgb>(rgb, lowerRgb, done, how, yuv, lower);
  const size_t left = width - 2 * done;
  if (left == 0) return;

  // The last pixel of an odd row is a pair with itself.
  BYTE pixels[2][kStep * kBytes] = {};
  const BYTE* const rows[2] = {rgb, lower.luma ? lowerRgb : rgb};
  for (int row = 0; row < 2; ++row) {
    std::memcpy(pixels[row], rows[row] + 2 * done * kBytes, left * kBytes);
    if (left % 2) std::memcpy(pixels[row] + left * kBytes, rows[row] + (width - 1) * kBytes, kBytes);
  }
  Rest<kRows> rest;
  Rest<kRows> lowerRest;
  YuvRow restRow = rest.Row();
  if (!yuv.u) restRow.u = nullptr;
  YuvRow lowerRow = {};
  if (lower.luma) lowerRow.luma = lowerRest.luma;
  StepsToYuv<kRows, kRgb>(pixels[0], pixels[1], kPairs, how, restRow, lowerRow);

  const size_t pairs = (left + 1) / 2;
  const size_t lumaBytes = kShape.IsPacked() ? pairs * kShape.luma : left * (kShape.luma / 2);
  std::memcpy(yuv.luma + done * kShape.luma, rest.luma, lumaBytes);
  if (lower.luma) std::memcpy(lower.luma + done * kShape.luma, lowerRest.luma, lumaBytes);
  if constexpr (!kShape.IsPacked()) {
    if (!yuv.u) return;
    constexpr bool kFullChroma = Rows<kRows>::kFullChroma;
    const auto bytes = [&](int shape) { return kFullChroma ? left * (shape / 2) : left / 2 * shape; };
    std::memcpy(yuv.u + done * kShape.u, rest.u, bytes(kShape.u));
    if (kShape.v != 0) std::memcpy(yuv.v + done * kShape.v, rest.v, bytes(kShape.v));
  }
}

// v210 goes through words of its samples, a chunk of pixels at a time.
constexpr size_t kChunk = 480;
constexpr size_t kChunkDoubles = kChunk / 6 * 4;
static_assert(kChunk % kStep == 0 && kChunkDoubles % (2 * kPairs) == 0);
constexpr size_t V210Bytes(size_t pixels) {
  return (pixels + 5) / 6 * 16;
}

// Reads and writes whole steps of 2 * kPairs double words, of which `doubles` are the first ones.
#if QN_YUV_HAS_VBMI
struct V210Order {
  // For each third of a step's words: the first double word of its vector, the bytes around each sample, and
  // what shifts it to the upper end of its word.
  static constexpr size_t kFirst[3] = {0, 10, 16};
  alignas(64) uint8_t bytes[3][64] = {};
  alignas(64) uint16_t factors[3][32] = {};
  // Where the first two samples of a double word are among 48 words, and the last one.
  alignas(64) uint16_t couples[32] = {};
  alignas(64) uint16_t last[32] = {};

  constexpr V210Order() {
    for (size_t i = 0; i < 96; ++i) {
      const size_t byte = (i / 3 - kFirst[i / 32]) * 4 + i % 3;
      bytes[i / 32][i % 32 * 2] = static_cast<uint8_t>(byte);
      bytes[i / 32][i % 32 * 2 + 1] = static_cast<uint8_t>(byte + 1);
      factors[i / 32][i % 32] = static_cast<uint16_t>(64 >> i % 3 * 2);
    }
    for (size_t i = 0; i < 32; ++i) {
      couples[i] = Among(i / 2 * 3 + i % 2);
      last[i] = Among(i / 2 * 3 + 2);
    }
  }
  // The second vector has the last 32 of the words.
  static constexpr uint16_t Among(size_t word) { return static_cast<uint16_t>(word < 32 ? word : word + 16); }
};
constexpr V210Order kV210Order;

void UnpackV210(const BYTE* from, size_t doubles, BYTE* words) {
  const TagWord d;
  for (size_t at = 0; at < doubles; at += 2 * kPairs) {
    for (size_t third = 0; third < 3; ++third) {
      const VecInt all = LoadDoubles(from + (at + V210Order::kFirst[third]) * 4);
      const VecWord samples{_mm512_permutexvar_epi8(_mm512_load_si512(kV210Order.bytes[third]), all.raw)};
      const VecWord high = hn::Mul(samples, hn::Load(d, kV210Order.factors[third]));
      hn::StoreU(hn::ShiftRight<6>(high), d, reinterpret_cast<uint16_t*>(words) + at * 3 + third * 32);
    }
  }
}

void PackV210(const BYTE* words, size_t doubles, BYTE* to) {
  const __m512i couples = _mm512_load_si512(kV210Order.couples);
  const __m512i last = _mm512_load_si512(kV210Order.last);
  for (size_t at = 0; at < doubles; at += kPairs) {
    const __m512i low = _mm512_loadu_si512(words + at * 6);
    const __m512i high = _mm512_loadu_si512(words + at * 6 + 32);
    const __m512i two =
        _mm512_madd_epi16(_mm512_permutex2var_epi16(low, couples, high), _mm512_set1_epi32(0x04000001));
    const VecInt third{_mm512_permutex2var_epi16(low, last, high)};
    StoreDoubles(hn::Or(VecInt{two}, hn::ShiftLeft<20>(third)), to + at * 4);
  }
}
#else
void UnpackV210(const BYTE* from, size_t doubles, BYTE* words) {
  const TagHalfWord d;
  const VecInt mask = hn::Set(TagInt(), 0x3FF);
  for (size_t at = 0; at < doubles; at += kPairs) {
    const VecInt all = LoadDoubles(from + at * 4);
    hn::StoreInterleaved3(hn::DemoteTo(d, hn::And(all, mask)),
                          hn::DemoteTo(d, hn::And(hn::ShiftRight<10>(all), mask)),
                          hn::DemoteTo(d, hn::And(hn::ShiftRight<20>(all), mask)), d,
                          reinterpret_cast<uint16_t*>(words) + at * 3);
  }
}

void PackV210(const BYTE* words, size_t doubles, BYTE* to) {
  const TagHalfWord d;
  const TagInt dInt;
  for (size_t at = 0; at < doubles; at += kPairs) {
    hn::Vec<TagHalfWord> low, middle, high;
    hn::LoadInterleaved3(d, reinterpret_cast<const uint16_t*>(words) + at * 3, low, middle, high);
    StoreDoubles(hn::Or(hn::PromoteTo(dInt, low), hn::Or(hn::ShiftLeft<10>(hn::PromoteTo(dInt, middle)),
                                                         hn::ShiftLeft<20>(hn::PromoteTo(dInt, high)))),
                 to + at * 4);
  }
}
#endif

template <RgbKind kRgb>
void V210ToRgb(const YuvRow& yuv, size_t width, const YuvToRgb& how, BYTE* rgb) {
  alignas(64) BYTE words[kChunk * 4];
  for (size_t done = 0; done < width; done += kChunk) {
    const size_t count = std::min(kChunk, width - done);
    const BYTE* from = yuv.luma + V210Bytes(done);
    BYTE rest[kChunkDoubles * 4];
    if (count < kChunk) {
      std::memset(rest, 0, sizeof(rest));
      std::memcpy(rest, from, V210Bytes(count));
      from = rest;
    }
    UnpackV210(from, V210Bytes(count) / 4, words);
    RowToRgb<RowKind::kUYVYWords, kRgb>({words, nullptr, nullptr}, count, how,
                                        rgb + done * Pixels<kRgb>::kBytes);
  }
}

template <RgbKind kRgb>
void RgbToV210(const BYTE* rgb, const BYTE*, size_t width, const RgbToYuv& how, const YuvRow& yuv,
               const YuvRow&) {
  alignas(64) BYTE words[kChunk * 4];
  for (size_t done = 0; done < width; done += kChunk) {
    const size_t count = std::min(kChunk, width - done);
    if (count < kChunk) std::memset(words, 0, sizeof(words));
    RowsToYuv<RowKind::kUYVYWords, kRgb>(rgb + done * Pixels<kRgb>::kBytes, nullptr, count, how,
                                         {words, nullptr, nullptr}, {});
    BYTE* const to = yuv.luma + V210Bytes(done);
    if (count == kChunk) {
      PackV210(words, kChunkDoubles, to);
    } else {
      BYTE rest[kChunkDoubles * 4];
      PackV210(words, V210Bytes(count) / 4, rest);
      std::memcpy(to, rest, V210Bytes(count));
    }
  }
}

struct RowKernels {
  YuvToRgbRow toRgb;
  RgbToYuvRows toYuv;
};

template <RowKind kRows, RgbKind kRgb>
constexpr RowKernels KernelsFor() {
  if constexpr (kRows == RowKind::kNone || (kRgb == RgbKind::kTriples && kRows != RowKind::kUYVY)) {
    return {nullptr, nullptr};
  } else if constexpr (kRows == RowKind::kV210) {
    return {V210ToRgb<kRgb>, RgbToV210<kRgb>};
  } else {
    return {RowToRgb<kRows, kRgb>, RowsToYuv<kRows, kRgb>};
  }
}

template <RgbKind kRgb, size_t... kRows>
RowKernels FindAmong(RowKind rows, std::index_sequence<kRows...>) {
  static constexpr RowKernels kKernels[] = {KernelsFor<static_cast<RowKind>(kRows), kRgb>()...};
  return kKernels[static_cast<size_t>(rows)];
}

RowKernels FindKernels(RowKind rows, RgbKind rgb) {
  constexpr auto kAll = std::make_index_sequence<static_cast<size_t>(RowKind::kV210) + 1>();
  switch (rgb) {
    case RgbKind::kTriples:
      return FindAmong<RgbKind::kTriples>(rows, kAll);
    case RgbKind::kBytes:
      return FindAmong<RgbKind::kBytes>(rows, kAll);
    default:
      return FindAmong<RgbKind::kFloats>(rows, kAll);
  }
}

YuvToRgbRow FindToRgb(RowKind rows, RgbKind rgb) {
  return FindKernels(rows, rgb).toRgb;
}
RgbToYuvRows FindToYuv(RowKind rows, RgbKind rgb) {
  return FindKernels(rows, rgb).toYuv;
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace qn {

HWY_EXPORT(FindToRgb);
HWY_EXPORT(FindToYuv);

YuvToRgbRow FindYuvToRgbRow(RowKind rows, RgbKind rgb) {
  return HWY_DYNAMIC_DISPATCH(FindToRgb)(rows, rgb);
}
RgbToYuvRows FindRgbToYuvRows(RowKind rows, RgbKind rgb) {
  return HWY_DYNAMIC_DISPATCH(FindToYuv)(rows, rgb);
}

}  // namespace qn
#endif
