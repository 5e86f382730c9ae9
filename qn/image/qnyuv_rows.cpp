// The vectors need a fallback of 128 bits; Highway turns it off for compilers with a fault that this code
// does not meet, as its tests show.
#define HWY_BROKEN_EMU128 0
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "qn/image/qnyuv_rows.cpp"
#include "qn/audio/qncopy_targets.h"
//
#include <utility>

#include "hwy/foreach_target.h"
//
#include "qn/image/qnyuv_lanes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

constexpr size_t kStep = 2 * kPairs;  // pixels

inline VecInt Whole(VecFloat doubled) {
  return hn::ShiftRight<1>(hn::Add(hn::ConvertTo(TagInt(), doubled), hn::Set(TagInt(), 1)));
}

// `pairs` is a multiple of kPairs.
template <RowKind kRows, RgbKind kRgb>
void StepsToRgb(const YuvRow& yuv, size_t pairs, const YuvToRgb& how, BYTE* rgb) {
  const TagFloat d;
  const TagInt dInt;
  const VecInt lumaOffset = hn::Set(dInt, how.lumaOffset);
  const VecInt chromaOffset = hn::Set(dInt, how.chromaOffset);
  // A power of two, which changes no rounding.
  constexpr float kScale = Pixels<kRgb>::kScale;
  const VecFloat lumaGain = hn::Set(d, how.luma * kScale);
  const VecFloat red = hn::Set(d, how.red * kScale);
  const VecFloat greenU = hn::Set(d, how.greenU * kScale);
  const VecFloat greenV = hn::Set(d, how.greenV * kScale);
  const VecFloat blue = hn::Set(d, how.blue * kScale);
  const auto chroma = [&](VecInt u, VecInt v) {
    const VecFloat uFloat = hn::ConvertTo(d, hn::Sub(u, chromaOffset));
    const VecFloat vFloat = hn::ConvertTo(d, hn::Sub(v, chromaOffset));
    return Colours{hn::Mul(uFloat, blue), hn::Add(hn::Mul(uFloat, greenU), hn::Mul(vFloat, greenV)),
                   hn::Mul(vFloat, red)};
  };
  const auto add = [&](VecInt luma, const Colours& colour) {
    const VecFloat y = hn::Mul(hn::ConvertTo(d, hn::Sub(luma, lumaOffset)), lumaGain);
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

template <RowKind kRows, RgbKind kRgb>
void StepsToYuv(const BYTE* rgb, const BYTE* lowerRgb, size_t pairs, const RgbToYuv& how, const YuvRow& yuv,
                const YuvRow& lower) {
  const TagFloat d;
  const VecFloat least = hn::Set(d, how.least);
  const VecFloat most = hn::Set(d, how.most);
  const VecFloat lumaOffset = hn::Set(d, how.lumaOffset);
  const VecFloat chromaOffset = hn::Set(d, how.chromaOffset);
  const auto sample = [&](const Colours& x, const float* by, VecFloat offset) {
    const VecFloat sum =
        hn::Add(hn::Add(hn::Mul(x.red, hn::Set(d, by[0])), hn::Mul(x.green, hn::Set(d, by[1]))),
                hn::Mul(x.blue, hn::Set(d, by[2])));
    return Whole(hn::Min(hn::Max(hn::Add(sum, offset), least), most));
  };
  const auto sum = [](const Colours& a, const Colours& b) {
    return Colours{hn::Add(a.blue, b.blue), hn::Add(a.green, b.green), hn::Add(a.red, b.red)};
  };
  constexpr bool kFullChroma = Rows<kRows>::kFullChroma;
  for (size_t pair = 0; pair < pairs; pair += kPairs) {
    const size_t at = pair * 2 * Pixels<kRgb>::kBytes;
    Colours left, right;
    Pixels<kRgb>::Load(rgb + at, left, right);
    Samples x;
    x.luma = {sample(left, how.luma, lumaOffset), sample(right, how.luma, lumaOffset)};
    Colours shared = left;
    if constexpr (!kFullChroma) shared = sum(left, how.leftPixel ? left : right);
    if (lower.luma) {
      Pixels<kRgb>::Load(lowerRgb + at, left, right);
      const Samples second = {
          {sample(left, how.luma, lumaOffset), sample(right, how.luma, lumaOffset)}, x.luma, x.luma};
      Rows<kRows>::Store(second, how.lowest, lower, pair);
      const Colours below = how.upperRow ? shared : sum(left, how.leftPixel ? left : right);
      shared = sum(shared, below);
    }
    x.u.left = sample(shared, how.u, chromaOffset);
    x.v.left = sample(shared, how.v, chromaOffset);
    if constexpr (kFullChroma) {
      x.u.right = sample(right, how.u, chromaOffset);
      x.v.right = sample(right, how.v, chromaOffset);
    }
    Rows<kRows>::Store(x, how.lowest, yuv, pair);
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
constexpr size_t kChunk = 96;
constexpr size_t kChunkDoubles = kChunk / 6 * 4;
static_assert(kChunk % kStep == 0 && kChunkDoubles % kPairs == 0);
constexpr size_t V210Bytes(size_t pixels) {
  return (pixels + 5) / 6 * 16;
}

void UnpackV210(const BYTE* from, BYTE* words) {
  const TagHalfWord d;
  const VecInt mask = hn::Set(TagInt(), 0x3FF);
  for (size_t at = 0; at < kChunkDoubles; at += kPairs) {
    const VecInt all = LoadDoubles(from + at * 4);
    hn::StoreInterleaved3(hn::DemoteTo(d, hn::And(all, mask)),
                          hn::DemoteTo(d, hn::And(hn::ShiftRight<10>(all), mask)),
                          hn::DemoteTo(d, hn::And(hn::ShiftRight<20>(all), mask)), d,
                          reinterpret_cast<uint16_t*>(words) + at * 3);
  }
}

void PackV210(const BYTE* words, BYTE* to) {
  const TagHalfWord d;
  const TagInt dInt;
  for (size_t at = 0; at < kChunkDoubles; at += kPairs) {
    hn::Vec<TagHalfWord> low, middle, high;
    hn::LoadInterleaved3(d, reinterpret_cast<const uint16_t*>(words) + at * 3, low, middle, high);
    StoreDoubles(hn::Or(hn::PromoteTo(dInt, low), hn::Or(hn::ShiftLeft<10>(hn::PromoteTo(dInt, middle)),
                                                         hn::ShiftLeft<20>(hn::PromoteTo(dInt, high)))),
                 to + at * 4);
  }
}

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
    UnpackV210(from, words);
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
      PackV210(words, to);
    } else {
      BYTE rest[kChunkDoubles * 4];
      PackV210(words, rest);
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
