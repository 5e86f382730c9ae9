// Loading and storing samples as vectors of 32-bit lanes, for one instruction set.
//
// Integers travel as the top bits of a lane ("top"), so that all widths share one scale; 24-in-32 words stay
// as they are. Results of float arithmetic come as the low bits of a lane ("low").

#if defined(QN_AUDIO_QNCOPY_LANES_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef QN_AUDIO_QNCOPY_LANES_INL_H_
#undef QN_AUDIO_QNCOPY_LANES_INL_H_
#else
#define QN_AUDIO_QNCOPY_LANES_INL_H_
#endif

#include "hwy/highway.h"
#include "qn/audio/qncopy_rule.h"
#include "qn/audio/qncopy_vector.h"

// Loops over the four vectors of a step must be unrolled, or the vectors take the way through memory.
#ifndef QN_COPY_UNROLL
#if HWY_COMPILER_CLANG
#define QN_COPY_UNROLL _Pragma("clang loop unroll(full)")
#else
#define QN_COPY_UNROLL _Pragma("GCC unroll 8")
#endif
#endif

#undef QN_COPY_HAS_VECTOR
#undef QN_COPY_HAS_VBMI
// The vector code counts on fused multiplication, doubles and vectors of a fixed size. Other targets run the
// rule itself.
#define QN_COPY_HAS_VECTOR (HWY_NATIVE_FMA && HWY_HAVE_FLOAT64 && !HWY_HAVE_SCALABLE)
#define QN_COPY_HAS_VBMI (HWY_TARGET == HWY_AVX3_DL)

#if QN_COPY_HAS_VECTOR

HWY_BEFORE_NAMESPACE();
namespace qn {
namespace HWY_NAMESPACE {

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
  constexpr SampleForm form = kForm<kDst>;
  if constexpr (form.bytes == 4 && !form.isBigEndian) {
    QN_COPY_UNROLL
    for (size_t i = 0; i < 4; ++i) _mm512_storeu_si512(dst + 64 * i, v[i].raw);
  } else {
    StoreLine<kDst, kFirst, 0>(dst, v);
    if constexpr (form.bytes > 1) StoreLine<kDst, kFirst, 1>(dst, v);
    if constexpr (form.bytes > 2) StoreLine<kDst, kFirst, 2>(dst, v);
    if constexpr (form.bytes > 3) StoreLine<kDst, kFirst, 3>(dst, v);
  }
}

template <int kDst>
HWY_INLINE void StoreTop(uint8_t* HWY_RESTRICT dst, const VecInt (&v)[4]) {
  if constexpr (kForm<kDst>.IsWord24()) {
    QN_COPY_UNROLL
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
    QN_COPY_UNROLL
    for (size_t i = 1; i < 4; ++i) {
      v[i] = Shuffle(LoadPacked(src + i * kLanes * 3 - 4), kSpreadTable<form.isBigEndian, 4>);
    }
    return;
  }
  QN_COPY_UNROLL
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
  QN_COPY_UNROLL
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
  QN_COPY_UNROLL
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
    QN_COPY_UNROLL
    for (size_t i = 0; i < 4; ++i) hn::StoreU(v[i], TagInt(), reinterpret_cast<int32_t*>(dst) + i * kLanes);
  } else {
    VecInt top[4];
    QN_COPY_UNROLL
    for (size_t i = 0; i < 4; ++i) top[i] = hn::ShiftLeft<32 - 8 * form.bytes>(v[i]);
    StoreTop<kDst>(dst, top);
  }
}

#endif  // QN_COPY_HAS_VBMI

// The integers of a step as doubles: two vectors for each of LoadTop's.
template <int kSrc>
HWY_INLINE void LoadDoubles(const uint8_t* HWY_RESTRICT src, VecDouble (&wide)[8]) {
  constexpr SampleForm form = kForm<kSrc>;
  const TagDouble dd;
  if constexpr (form.bytes == 4) {
    const hn::Repartition<uint8_t, TagHalfInt> bytes;
    alignas(16) static constexpr uint8_t kSwap[16] = {3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12};
    QN_COPY_UNROLL
    for (size_t i = 0; i < 8; ++i) {
      auto half = hn::LoadU(bytes, src + i * kLanes * 2);
      if (form.isBigEndian) half = hn::TableLookupBytes(half, hn::LoadDup128(bytes, kSwap));
      wide[i] = hn::PromoteTo(dd, hn::BitCast(TagHalfInt(), half));
    }
  } else {
    const TagHalfInt half;
    VecInt v[4];
    LoadTop<kSrc>(src, v);
    QN_COPY_UNROLL
    for (size_t i = 0; i < 4; ++i) {
      wide[2 * i] = hn::PromoteTo(dd, hn::LowerHalf(half, v[i]));
      wide[2 * i + 1] = hn::PromoteTo(dd, hn::UpperHalf(half, v[i]));
    }
  }
}

// Two vectors of doubles as samples of a float type.
template <typename T>
HWY_INLINE void StoreDoubles(T* HWY_RESTRICT dst, VecDouble low, VecDouble high) {
  if constexpr (sizeof(T) == sizeof(float)) {
    const TagHalfFloat half;
    hn::StoreU(hn::DemoteTo(half, low), half, dst);
    hn::StoreU(hn::DemoteTo(half, high), half, dst + kLanes / 2);
  } else {
    hn::StoreU(low, TagDouble(), dst);
    hn::StoreU(high, TagDouble(), dst + kLanes / 2);
  }
}

}  // namespace HWY_NAMESPACE
}  // namespace qn
HWY_AFTER_NAMESPACE();

#endif  // QN_COPY_HAS_VECTOR

#endif  // include guard
