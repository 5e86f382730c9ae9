#include "qn/media/peak_blocks_internal.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <type_traits>
#include <vector>

namespace qn {
namespace {

// Unsigned bytes, which the smallest vector units can compare.
template <class T>
using Key = std::conditional_t<sizeof(T) == 1, uint8_t, T>;
template <class T>
Key<T> LoadKey(const uint8_t* from) {
  Key<T> key;
  std::memcpy(&key, from, sizeof key);
  return sizeof(T) == 1 ? static_cast<Key<T>>(key ^ 0x80) : key;
}
template <class T>
void StoreKey(uint8_t* to, Key<T> key) {
  if (sizeof(T) == 1) key = static_cast<Key<T>>(key ^ 0x80);
  std::memcpy(to, &key, sizeof key);
}

// Widens `pairs` by `count` blocks of `values` values, pair by pair.
template <class T>
void WidenOneByOne(uint8_t* pairs, const uint8_t* blocks, size_t count, size_t values) {
  for (const uint8_t* const end = blocks + count * values * sizeof(T); blocks < end;) {
    for (size_t i = 0; i < values; i += 2, blocks += 2 * sizeof(T)) {
      uint8_t* const pair = pairs + i * sizeof(T);
      StoreKey<T>(pair, std::min(LoadKey<T>(pair), LoadKey<T>(blocks)));
      StoreKey<T>(pair + sizeof(T), std::max(LoadKey<T>(pair + sizeof(T)), LoadKey<T>(blocks + sizeof(T))));
    }
  }
}

// A row of lanes that begins with a block: each sees one value of the blocks, of which it takes both the
// minimum and the maximum, so that rows are vectors for any channels. Rows may overlap.
template <class T>
struct Lanes {
  static constexpr size_t kCount = 64 / sizeof(T);

  explicit Lanes(const uint8_t* row) {
    for (size_t lane = 0; lane < kCount; ++lane) low[lane] = high[lane] = LoadKey<T>(row + lane * sizeof(T));
  }
  void Widen(const uint8_t* row) {
    for (size_t lane = 0; lane < kCount; ++lane) {
      const Key<T> key = LoadKey<T>(row + lane * sizeof(T));
      low[lane] = std::min(low[lane], key);
      high[lane] = std::max(high[lane], key);
    }
  }
  // Halves the row until it is one block, for blocks of a power of two.
  template <size_t kWidth = kCount / 2>
  void Halve(size_t values) {
    if (kWidth < values) return;
    for (size_t lane = 0; lane < kWidth; ++lane) {
      low[lane] = std::min(low[lane], low[lane + kWidth]);
      high[lane] = std::max(high[lane], high[lane + kWidth]);
    }
    if constexpr (kWidth > 2) Halve<kWidth / 2>(values);
  }
  void Fold(size_t values) {
    if (kCount % values == 0) return Halve(values);
    for (size_t lane = kCount; lane-- > values;) {
      low[lane - values] = std::min(low[lane - values], low[lane]);
      high[lane - values] = std::max(high[lane - values], high[lane]);
    }
  }

  Key<T> low[kCount];
  Key<T> high[kCount];
};

// Widens `pairs` by `count` blocks of `values` values.
template <class T>
void Widen(uint8_t* pairs, const uint8_t* blocks, size_t count, size_t values) {
  constexpr size_t kLanes = Lanes<T>::kCount;
  const size_t total = count * values;
  size_t done = 0;
  if (values <= kLanes && total >= kLanes) {
    Lanes<T> lanes(blocks);
    const size_t step = kLanes / values * values;
    for (done = step; done + kLanes <= total; done += step) lanes.Widen(blocks + done * sizeof(T));
    if (kLanes % values == 0) {
      lanes.Widen(blocks + (total - kLanes) * sizeof(T));
      done = total;
    }
    lanes.Fold(values);
    uint8_t block[kLanes * sizeof(T)];
    for (size_t i = 0; i < values; ++i) {
      StoreKey<T>(block + i * sizeof(T), i % 2 ? lanes.high[i] : lanes.low[i]);
    }
    WidenOneByOne<T>(pairs, block, 1, values);
  }
  WidenOneByOne<T>(pairs, blocks + done * sizeof(T), (total - done) / values, values);
}

void CutToHighBytes(void* to, const void* from, LONG samples, float) {
  for (LONG i = 0; i < samples; ++i) {
    static_cast<uint8_t*>(to)[i] = static_cast<const uint8_t*>(from)[2 * i + 1];
  }
}

// False when none of the blocks can be read.
bool MergePixel(PeakBlocks& blocks, BlockRange range, uint8_t* pairs) {
  const size_t values = size_t{blocks.Channels()} * 2;
  bool isBegun = false;
  for (uint64_t at = range.first; at < range.end;) {
    uint64_t there = 0;
    const uint8_t* from = blocks.Get(at, range.end - at, &there);
    if (!from || there == 0) break;
    if (!isBegun) std::memcpy(pairs, from, blocks.BlockBytes());
    isBegun = true;
    if (blocks.Type() == QNST_PCM16) {
      Widen<int16_t>(pairs, from, static_cast<size_t>(there), values);
    } else {
      Widen<int8_t>(pairs, from, static_cast<size_t>(there), values);
    }
    at += there;
  }
  return isBegun;
}

}  // namespace

HRESULT MergePixels(PeakBlocks& blocks, const PixelRanges& ranges, LONG pixels, QNSAMPLETYPE type,
                    bool isRounded, void* out, DWORD* got) try {
  const bool isCut = blocks.Type() == QNST_PCM16 && type == QNST_PCM8S && !isRounded;
  const QNCOPYFUNCTION convert = isCut ? CutToHighBytes : QnAudio_GetCopyFunction2(type, blocks.Type());
  const size_t blockBytes = blocks.BlockBytes();
  const size_t values = size_t{blocks.Channels()} * 2;
  auto* to = static_cast<uint8_t*>(out);

  // Some pixels are converted together.
  const size_t mostPixels = std::max<size_t>(4096 / blockBytes, 1);
  std::vector<uint8_t> pairs(mostPixels * blockBytes);
  size_t waiting = 0;
  const auto flush = [&] {
    convert(to, pairs.data(), static_cast<LONG>(waiting * values), 1.0f);
    to += waiting * values * static_cast<size_t>(QnAudio_BytesFromSampleType(type));
    *got += static_cast<DWORD>(waiting);
    waiting = 0;
  };
  for (uint64_t pixel = 0; pixel < static_cast<uint64_t>(pixels); ++pixel) {
    BlockRange range = ranges.At(pixel);
    range.end = std::min(std::max(range.end, range.first + 1), blocks.Count());
    if (!MergePixel(blocks, range, &pairs[waiting * blockBytes])) break;
    if (++waiting == mostPixels) flush();
  }
  if (waiting > 0) flush();
  return S_OK;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

}  // namespace qn
