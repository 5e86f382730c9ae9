// The converters for one instruction set. Included by the qncopy_vector_*.cpp files once a target.
//
// Samples travel as 32-bit lanes: integers of up to 24 bits as the top bits of a lane ("top"), so that all
// widths share one scale; results of float arithmetic as the low bits of a lane ("low").

#if defined(QN_AUDIO_QNCOPY_VECTOR_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef QN_AUDIO_QNCOPY_VECTOR_INL_H_
#undef QN_AUDIO_QNCOPY_VECTOR_INL_H_
#else
#define QN_AUDIO_QNCOPY_VECTOR_INL_H_
#endif

#include <type_traits>
#include <utility>

#include "hwy/highway.h"
#include "qn/audio/qncopy_rule.h"
#include "qn/audio/qncopy_vector.h"

#undef QN_COPY_HAS_VECTOR
#undef QN_COPY_HAS_VBMI
// The code below counts on fused multiplication, doubles and vectors of a fixed size. Other targets run the
// rule itself.
#define QN_COPY_HAS_VECTOR (HWY_NATIVE_FMA && HWY_HAVE_FLOAT64 && !HWY_HAVE_SCALABLE)
#define QN_COPY_HAS_VBMI (HWY_TARGET == HWY_AVX3_DL)

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

#if QN_COPY_HAS_VECTOR

namespace hn = hwy::HWY_NAMESPACE;

using TagInt = hn::ScalableTag<int32_t>;
using TagFloat = hn::ScalableTag<float>;
using TagDouble = hn::ScalableTag<double>;
using TagShort = hn::ScalableTag<int16_t>;
using TagByte = hn::ScalableTag<uint8_t>;
using TagHalfInt = hn::Rebind<int32_t, TagDouble>;
using TagHalfFloat = hn::Rebind<float, TagDouble>;
using VecInt = hn::Vec<TagInt>;
using VecFloat = hn::Vec<TagFloat>;
using VecDouble = hn::Vec<TagDouble>;

inline constexpr size_t kLanes = hn::MaxLanes(TagInt());
inline constexpr size_t kStep = 4 * kLanes;  // samples of one round of a loop: four vectors of lanes
static_assert(kConvertBlock % kStep == 0);

// ---------------------------------------------------------------- loading and storing

#if QN_COPY_HAS_VBMI

struct alignas(64) ByteTable {
  uint8_t at[64];
};

// Where the window of 64 bytes begins that holds the samples of vector `vec`, without leaving the step.
constexpr int WindowStart(int bytes, int vec) {
  const int start = 16 * bytes * vec;
  return bytes == 3 ? (start > 128 ? 128 : start) : start & ~63;
}

// Sources of the bytes of 16 lanes within that window; the bytes below the sample are masked to 0.
template <int kSrc, int kVec>
constexpr ByteTable TopTable() {
  constexpr SampleForm form = kForm<kSrc>;
  ByteTable table{};
  for (int lane = 0; lane < 16; ++lane) {
    for (int byte = 4 - form.bytes; byte < 4; ++byte) {
      const int within = form.isBigEndian ? 3 - byte : byte - (4 - form.bytes);
      const int at = 16 * form.bytes * kVec - WindowStart(form.bytes, kVec) + lane * form.bytes + within;
      table.at[4 * lane + byte] = static_cast<uint8_t>(at);
    }
  }
  return table;
}
template <int kSrc, int kVec>
inline constexpr ByteTable kTopTable = TopTable<kSrc, kVec>();

// Sources of the bytes that 64 stored bytes take from the lanes of one vector. Byte `i` of the result belongs
// to sample (64 * kLine + i) / bytes of the step; `first` is the lowest lane byte of the value.
template <int kDst, int kFirst, int kLine>
constexpr ByteTable StoreTable() {
  constexpr SampleForm form = kForm<kDst>;
  ByteTable table{};
  for (int i = 0; i < 64; ++i) {
    const int at = 64 * kLine + i;
    const int within = form.isBigEndian ? form.bytes - 1 - at % form.bytes : at % form.bytes;
    table.at[i] = static_cast<uint8_t>(at / form.bytes % 16 * 4 + kFirst + within);
  }
  return table;
}
template <int kDst, int kFirst, int kLine>
inline constexpr ByteTable kStoreTable = StoreTable<kDst, kFirst, kLine>();

// The bytes of a stored line that come from vector `vec` of the step.
constexpr uint64_t LineMask(int bytes, int line, int vec) {
  uint64_t mask = 0;
  for (int i = 0; i < 64; ++i) {
    if ((64 * line + i) / bytes / 16 == vec) mask |= uint64_t{1} << i;
  }
  return mask;
}

HWY_INLINE __m512i LoadTable(const ByteTable& table) {
  return _mm512_load_si512(reinterpret_cast<const __m512i*>(table.at));
}

template <int kSrc, int kVec>
HWY_INLINE VecInt LoadTopVector(const uint8_t* HWY_RESTRICT src) {
  constexpr SampleForm form = kForm<kSrc>;
  __m512i window = _mm512_loadu_si512(src + WindowStart(form.bytes, kVec));
  if constexpr (form.bytes == 4 && !form.isBigEndian) return VecInt{window};
  if (form.isOffset) window = _mm512_xor_si512(window, _mm512_set1_epi8(-128));
  constexpr __mmask64 kUsed = 0x1111111111111111ull * (16 - (1u << (4 - form.bytes)));
  return VecInt{_mm512_maskz_permutexvar_epi8(kUsed, LoadTable(kTopTable<kSrc, kVec>), window)};
}

template <int kSrc>
HWY_INLINE void LoadTop(const uint8_t* HWY_RESTRICT src, VecInt (&v)[4]) {
  v[0] = LoadTopVector<kSrc, 0>(src);
  v[1] = LoadTopVector<kSrc, 1>(src);
  v[2] = LoadTopVector<kSrc, 2>(src);
  v[3] = LoadTopVector<kSrc, 3>(src);
}

template <int kDst, int kFirst, int kLine>
HWY_INLINE void StoreLine(uint8_t* HWY_RESTRICT dst, const VecInt (&v)[4]) {
  constexpr int kBytes = kForm<kDst>.bytes;
  constexpr int kFrom = 64 * kLine / kBytes / 16, kTo = (64 * kLine + 63) / kBytes / 16;
  const __m512i table = LoadTable(kStoreTable<kDst, kFirst, kLine>);
  __m512i line = _mm512_permutexvar_epi8(table, v[kFrom].raw);
  if constexpr (kTo > kFrom) {
    line = _mm512_mask_permutexvar_epi8(line, LineMask(kBytes, kLine, kFrom + 1), table, v[kFrom + 1].raw);
  }
  if constexpr (kTo > kFrom + 1) {
    line = _mm512_mask_permutexvar_epi8(line, LineMask(kBytes, kLine, 2), table, v[2].raw);
    line = _mm512_mask_permutexvar_epi8(line, LineMask(kBytes, kLine, 3), table, v[3].raw);
  }
  if (kForm<kDst>.isOffset) line = _mm512_xor_si512(line, _mm512_set1_epi8(-128));
  _mm512_storeu_si512(dst + 64 * kLine, line);
}

// Stores the bytes of each lane from `kFirst` on as samples.
template <int kDst, int kFirst>
HWY_INLINE void StoreBytes(uint8_t* HWY_RESTRICT dst, const VecInt (&v)[4]) {
  StoreLine<kDst, kFirst, 0>(dst, v);
  if constexpr (kForm<kDst>.bytes > 1) StoreLine<kDst, kFirst, 1>(dst, v);
  if constexpr (kForm<kDst>.bytes > 2) StoreLine<kDst, kFirst, 2>(dst, v);
  if constexpr (kForm<kDst>.bytes > 3) StoreLine<kDst, kFirst, 3>(dst, v);
}

template <int kDst>
HWY_INLINE void StoreTop(uint8_t* HWY_RESTRICT dst, const VecInt (&v)[4]) {
  if constexpr (kForm<kDst>.IsWord24()) {
    for (size_t i = 0; i < 4; ++i) {
      hn::StoreU(hn::ShiftRight<8>(v[i]), TagInt(), reinterpret_cast<int32_t*>(dst) + i * kLanes);
    }
  } else {
    StoreBytes<kDst, 4 - kForm<kDst>.bytes>(dst, v);
  }
}

template <int kDst>
HWY_INLINE void StoreLow(uint8_t* HWY_RESTRICT dst, const VecInt (&v)[4]) {
  StoreBytes<kDst, 0>(dst, v);
}

#else  // QN_COPY_HAS_VBMI

using TagBlock = hn::FixedTag<uint8_t, 16>;
using TagBlockOf3 = hn::Repartition<uint8_t, TagInt>;

// Bytes of four lanes, the same for each block of 16.
struct alignas(16) BlockTable {
  uint8_t at[16];
};
HWY_INLINE VecInt Shuffle(VecInt v, const BlockTable& table) {
  const TagByte d;
  return hn::BitCast(TagInt(), hn::TableLookupBytesOr0(hn::BitCast(d, v), hn::LoadDup128(d, table.at)));
}

// Moves the sample that lies in the low bytes of each lane to the top, its bytes in the lane's order.
template <int kSrc>
constexpr BlockTable LaneTable() {
  constexpr SampleForm form = kForm<kSrc>;
  BlockTable table{};
  for (int i = 0; i < 16; ++i) {
    const int byte = i % 4, within = form.isBigEndian ? 3 - byte : byte - (4 - form.bytes);
    const bool used = byte >= 4 - form.bytes;
    table.at[i] = static_cast<uint8_t>(used ? i / 4 * 4 + within : 0x80);
  }
  return table;
}
template <int kSrc>
inline constexpr BlockTable kLaneTable = LaneTable<kSrc>();

// Spreads four packed 3-byte samples, from byte `skip` of a block on, to the tops of its lanes; and packs
// the three bytes of each lane from `first` on.
constexpr BlockTable SpreadTable(bool bigEndian, int skip) {
  BlockTable table{};
  for (int i = 0; i < 16; ++i) {
    const int byte = i % 4;
    table.at[i] =
        static_cast<uint8_t>(byte == 0 ? 0x80 : skip + i / 4 * 3 + (bigEndian ? 3 - byte : byte - 1));
  }
  return table;
}
constexpr BlockTable PackTable(bool bigEndian, int first) {
  BlockTable table{};
  for (int i = 0; i < 16; ++i) {
    const int within = bigEndian ? 2 - i % 3 : i % 3;
    table.at[i] = static_cast<uint8_t>(i < 12 ? i / 3 * 4 + first + within : 0x80);
  }
  return table;
}
template <bool kBigEndian, int kSkip>
inline constexpr BlockTable kSpreadTable = SpreadTable(kBigEndian, kSkip);
template <bool kBigEndian, int kFirst>
inline constexpr BlockTable kPackTable = PackTable(kBigEndian, kFirst);

inline constexpr size_t kBlocks = kLanes / 4;  // blocks of 16 bytes in a vector
static_assert(kBlocks <= 2);

// The packed samples of one vector, each block's four at the block's start (or from byte 4 on, when `skip`
// says so: reading from further back keeps the last window within the step).
HWY_INLINE VecInt LoadPacked(const uint8_t* HWY_RESTRICT src) {
  const hn::FixedTag<int32_t, 4> block;
  const auto low = hn::LoadU(block, reinterpret_cast<const int32_t*>(src));
#if HWY_TARGET == HWY_AVX2
  return hn::Combine(TagInt(), hn::LoadU(block, reinterpret_cast<const int32_t*>(src + 12)), low);
#else
  return low;
#endif
}

template <int kSrc>
HWY_INLINE void LoadTop(const uint8_t* HWY_RESTRICT src, VecInt (&v)[4]) {
  constexpr SampleForm form = kForm<kSrc>;
  if constexpr (form.bytes == 3) {
    v[0] = Shuffle(LoadPacked(src), kSpreadTable<form.isBigEndian, 0>);
    for (size_t i = 1; i < 4; ++i) {
      v[i] = Shuffle(LoadPacked(src + i * kLanes * 3 - 4), kSpreadTable<form.isBigEndian, 4>);
    }
    return;
  }
  for (size_t i = 0; i < 4; ++i) {
    const uint8_t* from = src + i * kLanes * static_cast<size_t>(form.bytes);
    if constexpr (form.bytes == 1) {
      auto bytes = hn::LoadU(hn::Rebind<int8_t, TagInt>(), reinterpret_cast<const int8_t*>(from));
      if (form.isOffset) bytes = hn::Xor(bytes, hn::Set(hn::Rebind<int8_t, TagInt>(), -128));
      v[i] = hn::ShiftLeft<24>(hn::PromoteTo(TagInt(), bytes));
    } else if constexpr (form.bytes == 2) {
      const auto shorts = hn::LoadU(hn::Rebind<int16_t, TagInt>(), reinterpret_cast<const int16_t*>(from));
      v[i] = hn::PromoteTo(TagInt(), shorts);
      v[i] = form.isBigEndian ? Shuffle(v[i], kLaneTable<kSrc>) : hn::ShiftLeft<16>(v[i]);
    } else {
      v[i] = hn::LoadU(TagInt(), reinterpret_cast<const int32_t*>(from));
      if (form.isBigEndian) v[i] = Shuffle(v[i], kLaneTable<kSrc>);
    }
  }
}

template <bool kBigEndian, int kFirst>
HWY_INLINE void StorePacked(uint8_t* HWY_RESTRICT dst, const VecInt (&v)[4]) {
  const TagBlock block;
  const TagByte d;
  for (size_t i = 0; i < 4; ++i) {
    alignas(32) uint8_t packed[sizeof(VecInt)];
    hn::Store(hn::BitCast(d, Shuffle(v[i], kPackTable<kBigEndian, kFirst>)), d, packed);
    for (size_t b = 0; b < kBlocks; ++b) {
      // Each store but the last runs 4 bytes into the place of the next.
      uint8_t* to = dst + (i * kBlocks + b) * 12;
      if (i == 3 && b == kBlocks - 1) {
        std::memcpy(to, packed + 16 * b, 12);
      } else {
        hn::StoreU(hn::Load(block, packed + 16 * b), block, to);
      }
    }
  }
}

template <int kDst>
HWY_INLINE void StoreTop(uint8_t* HWY_RESTRICT dst, const VecInt (&v)[4]) {
  constexpr SampleForm form = kForm<kDst>;
  if constexpr (form.bytes == 3) {
    StorePacked<form.isBigEndian, 1>(dst, v);
    return;
  }
  for (size_t i = 0; i < 4; ++i) {
    uint8_t* to = dst + i * kLanes * static_cast<size_t>(form.bytes);
    if constexpr (form.bytes == 1) {
      const hn::Rebind<int8_t, TagInt> d;
      auto bytes = hn::DemoteTo(d, hn::ShiftRight<24>(v[i]));
      if (form.isOffset) bytes = hn::Xor(bytes, hn::Set(d, -128));
      hn::StoreU(bytes, d, reinterpret_cast<int8_t*>(to));
    } else if constexpr (form.bytes == 2) {
      const hn::Rebind<int16_t, TagInt> d;
      auto shorts = hn::DemoteTo(d, hn::ShiftRight<16>(v[i]));
      if (form.isBigEndian)
        shorts = hn::Or(
            hn::ShiftLeft<8>(shorts),
            hn::BitCast(d, hn::ShiftRight<8>(hn::BitCast(hn::RebindToUnsigned<decltype(d)>(), shorts))));
      hn::StoreU(shorts, d, reinterpret_cast<int16_t*>(to));
    } else {
      VecInt word = v[i];
      if (form.IsWord24()) word = hn::ShiftRight<8>(word);
      if (form.isBigEndian) word = Shuffle(word, kLaneTable<kDst>);
      hn::StoreU(word, TagInt(), reinterpret_cast<int32_t*>(to));
    }
  }
}

template <int kDst>
HWY_INLINE void StoreLow(uint8_t* HWY_RESTRICT dst, const VecInt (&v)[4]) {
  constexpr SampleForm form = kForm<kDst>;
  if constexpr (form.bytes == 3) {
    StorePacked<form.isBigEndian, 0>(dst, v);
  } else if constexpr (form.IsWord24()) {
    for (size_t i = 0; i < 4; ++i) hn::StoreU(v[i], TagInt(), reinterpret_cast<int32_t*>(dst) + i * kLanes);
  } else {
    VecInt top[4];
    for (size_t i = 0; i < 4; ++i) top[i] = hn::ShiftLeft<32 - 8 * form.bytes>(v[i]);
    StoreTop<kDst>(dst, top);
  }
}

#endif  // QN_COPY_HAS_VBMI

// ---------------------------------------------------------------- steps of the arithmetic

// Clips; a NaN passes.
template <class D, class V = hn::Vec<D>, typename T = hn::TFromD<D>>
HWY_INLINE V Clip(D d, V v, T low, T high) {
#if HWY_ARCH_X86
  // The processor's minimum and maximum give their second operand for a NaN.
  return hn::Min(hn::Set(d, high), hn::Max(hn::Set(d, low), v));
#else
  v = hn::IfThenElse(hn::Lt(v, hn::Set(d, low)), hn::Set(d, low), v);
  return hn::IfThenElse(hn::Gt(v, hn::Set(d, high)), hn::Set(d, high), v);
#endif
}

// To the nearest integer, ties to even. What does not fit gives INT_MIN on x86.
HWY_INLINE VecInt NearestRaw(VecFloat v) {
#if QN_COPY_HAS_VBMI
  return VecInt{_mm512_cvtps_epi32(v.raw)};
#elif HWY_TARGET == HWY_AVX2
  return VecInt{_mm256_cvtps_epi32(v.raw)};
#else
  return hn::NearestInt(v);
#endif
}

HWY_INLINE VecInt BitsOf(VecFloat v) {
  return hn::BitCast(TagInt(), v);
}

// Samples of a float type in units of the destination, rounded and in the low bits. A NaN leaves what the low
// bits of its pattern would be as a double: its three lowest bits in the top of a lane.
template <int kDst>
HWY_INLINE VecInt RoundFloat(VecFloat y) {
  const TagInt di;
  const TagFloat df;
  constexpr SampleForm form = kForm<kDst>;
  if constexpr (form.bits < 32) {
    y = Clip(df, y, static_cast<float>(LowRail(form)), static_cast<float>(HighRail(form)));
#if HWY_ARCH_X86
    if (!form.IsWord24()) return NearestRaw(y);  // a NaN's INT_MIN has zeros in the bits that are stored
#endif
    return hn::IfThenElse(hn::RebindMask(di, hn::Eq(y, y)), NearestRaw(y), hn::ShiftLeft<29>(BitsOf(y)));
  } else {
    const auto tooHigh = hn::RebindMask(di, hn::Ge(y, hn::Set(df, 0x1p31f)));
    VecInt word = hn::IfThenElse(tooHigh, hn::Set(di, INT32_MAX), NearestRaw(y));
    return hn::IfThenElse(hn::RebindMask(di, hn::Eq(y, y)), word, hn::ShiftLeft<29>(BitsOf(y)));
  }
}

// Samples of double type in units of the destination, rounded; the low bits of two vectors side by side.
template <int kDst>
HWY_INLINE VecInt RoundDoubles(VecDouble low, VecDouble high) {
  const TagInt di;
  const TagDouble dd;
  constexpr SampleForm form = kForm<kDst>;
  low = hn::Add(Clip(dd, low, LowRail(form), HighRail(form)), hn::Set(dd, kRoundingMagic));
  high = hn::Add(Clip(dd, high, LowRail(form), HighRail(form)), hn::Set(dd, kRoundingMagic));
  return hn::ConcatEven(di, hn::BitCast(di, high), hn::BitCast(di, low));
}

HWY_INLINE VecDouble LowDoubles(VecInt v) {
  return hn::PromoteTo(TagDouble(), hn::LowerHalf(TagHalfInt(), v));
}
HWY_INLINE VecDouble HighDoubles(VecInt v) {
  return hn::PromoteTo(TagDouble(), hn::UpperHalf(TagHalfInt(), v));
}

// Two vectors of doubles as samples of a float type.
template <int kDst, typename T>
HWY_INLINE void StoreDoubles(T* HWY_RESTRICT out, VecDouble low, VecDouble high) {
  if constexpr (kDst == QNST_FLOAT32) {
    const TagHalfFloat half;
    hn::StoreU(hn::DemoteTo(half, low), half, out);
    hn::StoreU(hn::DemoteTo(half, high), half, out + kLanes / 2);
  } else {
    hn::StoreU(low, TagDouble(), out);
    hn::StoreU(high, TagDouble(), out + kLanes / 2);
  }
}

// Integers in the top bits, rounded to the `kBits` top bits; the bits below them are left undefined. Only the
// upper rail can be met.
template <int kBits>
HWY_INLINE VecInt RoundTop(VecInt v) {
  const TagInt d;
  constexpr int kShift = 32 - kBits;
  constexpr int32_t kHigh = INT32_MAX >> kShift << kShift;
  v = hn::Min(v, hn::Set(d, kHigh));
  const VecInt odd = hn::And(hn::ShiftRight<kShift>(v), hn::Set(d, 1));
  return hn::Add(hn::Add(v, hn::Set(d, (1 << (kShift - 1)) - 1)), odd);
}

// Top-aligned integers of up to 24 bits times `factor`, rounded once to the integer units of a destination
// of 8 or 16 bits. One fused addition of 1.5 * 2^23 does the product and the rounding: the result's low bits
// are the integer.
template <int kDst>
HWY_INLINE VecInt GainTo16(VecInt top, VecFloat factor) {
  const TagInt di;
  const TagFloat df;
  constexpr int32_t kZero = 0x4B400000;  // the bits of 1.5 * 2^23
  constexpr int32_t kHigh = static_cast<int32_t>(HighRail(kForm<kDst>));
  constexpr int32_t kLow = static_cast<int32_t>(LowRail(kForm<kDst>));
  const VecInt sum = BitsOf(hn::MulAdd(hn::ConvertTo(df, top), factor, hn::Set(df, 0x1.8p23f)));
  return hn::Max(hn::Min(sum, hn::Set(di, kZero + kHigh)), hn::Set(di, kZero + kLow));
}

// The same to 24 bits, which is too wide for one such step. The first rounds the product to a multiple of
// 256 (the constant's bits 0x4F60C000 stand for zero), the second what is left of the product, which is again
// exact. Both constants together have zeros in the low 24 bits.
HWY_INLINE VecInt GainTo24(VecInt top, VecFloat factor) {
  const TagInt di;
  const TagFloat df;
  constexpr float kCoarse = std::bit_cast<float>(0x4F60C000), kFine = 0x1.8p23f;
  constexpr int32_t kZero = static_cast<int32_t>((0x4F60C000u << 8) + 0x4B400000u);
  static_assert((kZero & 0xFFFFFF) == 0);
  const VecFloat sample = hn::ConvertTo(df, top);
  const VecFloat coarse = hn::MulAdd(sample, factor, hn::Set(df, kCoarse));
  const VecFloat fine = hn::MulAdd(sample, factor, hn::Sub(hn::Set(df, kCoarse + kFine), coarse));
  const VecInt sum = hn::Add(hn::ShiftLeft<8>(BitsOf(coarse)), BitsOf(fine));
  return hn::Max(hn::Min(sum, hn::Set(di, kZero + 0x7FFFFF)), hn::Set(di, kZero - 0x800000));
}

// ---------------------------------------------------------------- converters

// 8 and 16-bit integers among themselves with unit scale, in lanes of their own width.
template <int kDst, int kSrc>
void ConvertNarrow(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src, size_t samples, float) {
  constexpr SampleForm to = kForm<kDst>, from = kForm<kSrc>;
  const TagByte dByte;
  const TagShort dShort;
  const hn::Rebind<uint8_t, TagShort> dHalf;
  const hn::RebindToUnsigned<TagShort> dWord;
  const auto offset = hn::Set(dByte, 0x80);
  const auto halfOffset = hn::Set(dHalf, 0x80);
  if constexpr (to.bytes == 1 && from.bytes == 1) {
    for (size_t i = 0; i < samples; i += hn::MaxLanes(dByte)) {
      hn::StoreU(hn::Xor(hn::LoadU(dByte, src + i), offset), dByte, dst + i);
    }
    return;
  }
  for (size_t i = 0; i < samples; i += hn::MaxLanes(dShort)) {
    uint16_t* const words = reinterpret_cast<uint16_t*>(dst) + i;
    if constexpr (from.bytes == 1) {
      auto bytes = hn::LoadU(dHalf, src + i);
      if (from.isOffset) bytes = hn::Xor(bytes, halfOffset);
      const auto wide = hn::PromoteTo(dWord, bytes);
      hn::StoreU(to.isBigEndian ? wide : hn::ShiftLeft<8>(wide), dWord, words);
    } else {
      auto v = hn::LoadU(dWord, reinterpret_cast<const uint16_t*>(src) + i);
      if (from.isBigEndian != (to.bytes == 2 && to.isBigEndian)) {
        v = hn::Or(hn::ShiftLeft<8>(v), hn::ShiftRight<8>(v));
      }
      if constexpr (to.bytes == 2) {
        hn::StoreU(v, dWord, words);
      } else {
        // Round to even; the saturating addition is the clip at the upper rail.
        const auto value = hn::BitCast(dShort, v);
        const auto odd = hn::And(hn::ShiftRight<8>(value), hn::Set(dShort, 1));
        const auto sum = hn::SaturatedAdd(value, hn::Add(odd, hn::Set(dShort, 0x7F)));
        auto bytes = hn::BitCast(dHalf, hn::DemoteTo(hn::Rebind<int8_t, TagShort>(), hn::ShiftRight<8>(sum)));
        if (to.isOffset) bytes = hn::Xor(bytes, halfOffset);
        hn::StoreU(bytes, dHalf, dst + i);
      }
    }
  }
}

// From integers, `factor` and `wide` being the gain times the ratio of the units. The unit gain is a power of
// two like any, so kUnit matters only where integers stay integers and where 32 of them become floats.
template <int kDst, int kSrc, bool kUnit>
HWY_INLINE void ConvertStepFromInt(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src,
                                   VecFloat factor, VecDouble wide) {
  constexpr SampleForm to = kForm<kDst>, from = kForm<kSrc>;
  const TagInt di;
  VecInt v[4];
  LoadTop<kSrc>(src, v);
  if constexpr (kDst == QNST_FLOAT32) {
    constexpr bool kSingle = kUnit || from.bytes < 4 || kSrc == QNST_PCM32;
    for (size_t i = 0; i < 4; ++i) {
      float* const out = reinterpret_cast<float*>(dst) + i * kLanes;
      if constexpr (kSingle) {
        hn::StoreU(hn::Mul(hn::ConvertTo(TagFloat(), v[i]), factor), TagFloat(), out);
      } else {
        StoreDoubles<kDst>(out, hn::Mul(LowDoubles(v[i]), wide), hn::Mul(HighDoubles(v[i]), wide));
      }
    }
  } else if constexpr (kDst == QNST_FLOAT64) {
    for (size_t i = 0; i < 4; ++i) {
      double* const out = reinterpret_cast<double*>(dst) + i * kLanes;
      StoreDoubles<kDst>(out, hn::Mul(LowDoubles(v[i]), wide), hn::Mul(HighDoubles(v[i]), wide));
    }
  } else if constexpr (kUnit) {
    for (VecInt& x : v) {
      if constexpr (from.IsWord24()) {
        // The word may hold more than 24 bits: the rails are met before it is moved to the top.
        const auto tooHigh = hn::Gt(x, hn::Set(di, 0x7FFFFF));
        x = hn::ShiftLeft<8>(hn::Max(hn::Min(x, hn::Set(di, 0x7FFFFF)), hn::Set(di, -0x800000)));
        if constexpr (to.bits == 32) x = hn::IfThenElse(tooHigh, hn::Set(di, INT32_MAX), x);
      }
      if constexpr (from.bits > to.bits) x = RoundTop<to.bits>(x);
    }
    StoreTop<kDst>(dst, v);
  } else {
    for (VecInt& x : v) {
      if constexpr (from.bytes == 4 || to.bits == 32) {
        x = RoundDoubles<kDst>(hn::Mul(LowDoubles(x), wide), hn::Mul(HighDoubles(x), wide));
      } else if constexpr (to.bits == 24) {
        x = GainTo24(x, factor);
        if constexpr (to.IsWord24()) x = hn::ShiftRight<8>(hn::ShiftLeft<8>(x));
      } else {
        x = GainTo16<kDst>(x, factor);
      }
    }
    StoreLow<kDst>(dst, v);
  }
}

template <int kDst>
HWY_INLINE void ConvertStepFromFloat(uint8_t* HWY_RESTRICT dst, const float* HWY_RESTRICT src,
                                     VecFloat factor, VecDouble wide) {
  if constexpr (kDst == QNST_FLOAT64) {
    const TagHalfFloat half;
    for (size_t i = 0; i < kStep; i += kLanes) {
      const VecDouble low = hn::PromoteTo(TagDouble(), hn::LoadU(half, src + i));
      const VecDouble high = hn::PromoteTo(TagDouble(), hn::LoadU(half, src + i + kLanes / 2));
      StoreDoubles<kDst>(reinterpret_cast<double*>(dst) + i, hn::Mul(low, wide), hn::Mul(high, wide));
    }
  } else if constexpr (kDst == QNST_FLOAT32) {
    for (size_t i = 0; i < kStep; i += kLanes) {
      const VecFloat product = hn::Mul(hn::LoadU(TagFloat(), src + i), factor);
      hn::StoreU(product, TagFloat(), reinterpret_cast<float*>(dst) + i);
    }
  } else {
    VecInt v[4];
    for (size_t i = 0; i < 4; ++i) {
      v[i] = RoundFloat<kDst>(hn::Mul(hn::LoadU(TagFloat(), src + i * kLanes), factor));
    }
    StoreLow<kDst>(dst, v);
  }
}

template <int kDst>
HWY_INLINE void ConvertStepFromDouble(uint8_t* HWY_RESTRICT dst, const double* HWY_RESTRICT src,
                                      VecDouble wide) {
  VecInt v[4];
  for (size_t i = 0; i < 4; ++i) {
    const VecDouble low = hn::Mul(hn::LoadU(TagDouble(), src + i * kLanes), wide);
    const VecDouble high = hn::Mul(hn::LoadU(TagDouble(), src + i * kLanes + kLanes / 2), wide);
    if constexpr (kForm<kDst>.isFloat) {
      using Out = std::conditional_t<kDst == QNST_FLOAT32, float, double>;
      StoreDoubles<kDst>(reinterpret_cast<Out*>(dst) + i * kLanes, low, high);
    } else {
      v[i] = RoundDoubles<kDst>(low, high);
    }
  }
  if constexpr (!kForm<kDst>.isFloat) StoreLow<kDst>(dst, v);
}

template <int kDst, int kSrc, bool kUnit>
void Convert(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src, size_t samples, float scale) {
  constexpr SampleForm to = kForm<kDst>, from = kForm<kSrc>;
  // Lanes hold integers of 8 to 24 bits as the top ones of 32.
  constexpr double kDecode = from.isFloat ? 1.0 : from.IsWord24() ? 0x1p-23 : 0x1p-31;
  const double exact = static_cast<double>(scale) * (kDecode * FullScale(to));
  const bool isFloatToFloat = kDst == QNST_FLOAT32 && kSrc == QNST_FLOAT32;
  const VecFloat factor = hn::Set(TagFloat(), isFloatToFloat ? scale : static_cast<float>(exact));
  const VecDouble wide = hn::Set(TagDouble(), exact);
  for (size_t done = 0; done < samples; done += kStep) {
    if constexpr (kSrc == QNST_FLOAT32) {
      ConvertStepFromFloat<kDst>(dst, reinterpret_cast<const float*>(src), factor, wide);
    } else if constexpr (kSrc == QNST_FLOAT64) {
      ConvertStepFromDouble<kDst>(dst, reinterpret_cast<const double*>(src), wide);
    } else {
      ConvertStepFromInt<kDst, kSrc, kUnit>(dst, src, factor, wide);
    }
    dst += kStep * static_cast<size_t>(to.bytes);
    src += kStep * static_cast<size_t>(from.bytes);
  }
}

// The two vector kernels whose product is single: 16-bit from float, where what does not fit 32 bits ends at
// the lower rail, and float from 16-bit.
template <int kDst, int kSrc>
void ConvertStepped(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src, size_t samples, float scale) {
  const hn::Rebind<int16_t, TagInt> dShort;
  const TagFloat df;
  for (size_t i = 0; i < samples; i += kLanes) {
    if constexpr (kDst == QNST_PCM16) {
      const VecFloat x = hn::LoadU(df, reinterpret_cast<const float*>(src) + i);
      const VecInt y = NearestRaw(hn::Mul(x, hn::Set(df, scale * 0x1p15f)));
      hn::StoreU(hn::DemoteTo(dShort, y), dShort, reinterpret_cast<int16_t*>(dst) + i);
    } else {
      const auto x = hn::LoadU(dShort, reinterpret_cast<const int16_t*>(src) + i);
      const VecFloat y = hn::ConvertTo(df, hn::PromoteTo(TagInt(), x));
      hn::StoreU(hn::Mul(y, hn::Set(df, scale * 0x1p-15f)), df, reinterpret_cast<float*>(dst) + i);
    }
  }
}

template <int kDst, int kSrc>
constexpr Converter MakeConverter() {
  constexpr SampleForm to = kForm<kDst>, from = kForm<kSrc>;
  constexpr bool kToInt = !to.isFloat, kNarrow = to.bytes <= 2 && from.bytes <= 2;
  constexpr bool kGainDiffers = !from.isFloat && (kToInt || (kDst == QNST_FLOAT32 && from.bytes == 4));
  Converter made{};
  if constexpr (kNarrow && kDst != kSrc) {
    made.unit = ConvertNarrow<kDst, kSrc>;
  } else if constexpr (kDst != kSrc) {
    made.unit = Convert<kDst, kSrc, true>;
  }
  made.gain = Convert < kDst, kSrc, kDst != kSrc && !kGainDiffers > ;
  made.moderate = (kSrc == QNST_FLOAT32 && kToInt) ||
                  (from.bytes < 4 && (kDst == QNST_FLOAT32 || (kToInt && to.bits <= 24)));
#if HWY_ARCH_X86
  constexpr bool kHasStepped =
      (kDst == QNST_PCM16 && kSrc == QNST_FLOAT32) || (kDst == QNST_FLOAT32 && kSrc == QNST_PCM16);
  if constexpr (kHasStepped) made.stepped = ConvertStepped<kDst, kSrc>;
#endif
  return made;
}

#else  // QN_COPY_HAS_VECTOR

template <int kDst, int kSrc>
void ConvertByRule(uint8_t* dst, const uint8_t* src, size_t samples, float scale) {
  ConvertInOrder<kDst, kSrc>(dst, src, samples, scale, false);
}

#if HWY_ARCH_X86
inline void SteppedTo16(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src, size_t samples,
                        float scale) {
  const __m128 factor = _mm_set1_ps(scale * 0x1p15f);
  for (size_t i = 0; i < samples; i += 8) {
    const float* const in = reinterpret_cast<const float*>(src) + i;
    const __m128i low = _mm_cvtps_epi32(_mm_mul_ps(_mm_loadu_ps(in), factor));
    const __m128i high = _mm_cvtps_epi32(_mm_mul_ps(_mm_loadu_ps(in + 4), factor));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst) + i / 8, _mm_packs_epi32(low, high));
  }
}

inline void SteppedToFloat(uint8_t* HWY_RESTRICT dst, const uint8_t* HWY_RESTRICT src, size_t samples,
                           float scale) {
  const __m128 factor = _mm_set1_ps(scale * 0x1p-15f);
  for (size_t i = 0; i < samples; i += 8) {
    float* const out = reinterpret_cast<float*>(dst) + i;
    const __m128i in = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src) + i / 8);
    const __m128i low = _mm_srai_epi32(_mm_unpacklo_epi16(in, in), 16);
    const __m128i high = _mm_srai_epi32(_mm_unpackhi_epi16(in, in), 16);
    _mm_storeu_ps(out, _mm_mul_ps(_mm_cvtepi32_ps(low), factor));
    _mm_storeu_ps(out + 4, _mm_mul_ps(_mm_cvtepi32_ps(high), factor));
  }
}
#endif

template <int kDst, int kSrc>
constexpr Converter MakeConverter() {
  Converter made{ConvertByRule<kDst, kSrc>, ConvertByRule<kDst, kSrc>, nullptr, false};
#if HWY_ARCH_X86
  if (kDst == QNST_PCM16 && kSrc == QNST_FLOAT32) made.stepped = SteppedTo16;
  if (kDst == QNST_FLOAT32 && kSrc == QNST_PCM16) made.stepped = SteppedToFloat;
#endif
  return made;
}

#endif  // QN_COPY_HAS_VECTOR

template <int kDst, int kSrc>
constexpr Converter MakeConverterIfAny() {
  if constexpr (HasCopyKernel(kDst, kSrc)) return MakeConverter<kDst, kSrc>();
  return {};
}

// The converters of one destination from all sources, in the order of kSampleForms.
struct ConverterRow {
  Converter from[kSampleFormCount];
};

template <int kDst, size_t... kSrc>
constexpr ConverterRow MakeRow(std::index_sequence<kSrc...>) {
  return {{MakeConverterIfAny<kDst, kSampleForms[kSrc].type>()...}};
}
template <int kDst>
inline constexpr ConverterRow kConverterRow = MakeRow<kDst>(std::make_index_sequence<kSampleFormCount>());

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#endif  // include guard
