#include "qn/media/peak_blocks_internal.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "qn/media/peak_scan_internal.h"

namespace qn {
namespace {

void CutToHighBytes(void* to, const void* from, LONG samples, float) {
  for (LONG i = 0; i < samples; ++i) {
    static_cast<uint8_t*>(to)[i] = static_cast<const uint8_t*>(from)[2 * i + 1];
  }
}

// False when none of the blocks can be read. The blocks are scanned as frames that have a channel for each
// value; of the bounds that come of it, two for a value, a minimum is the lower and a maximum the higher.
template <class T>
bool MergePixel(PeakBlocks& blocks, BlockRange range, uint8_t* bounds, uint8_t* pairs) {
  const size_t values = size_t{blocks.Channels()} * 2;
  bool isBegun = false;
  for (uint64_t at = range.first; at < range.end;) {
    uint64_t there = 0;
    const uint8_t* from = blocks.Get(at, range.end - at, &there);
    if (!from || there == 0) break;
    for (size_t i = 0; !isBegun && i < values * 2; ++i) {
      std::memcpy(bounds + i * sizeof(T), from + i / 2 * sizeof(T), sizeof(T));
    }
    isBegun = true;
    ScanFrames(blocks.Type(), from, static_cast<size_t>(there), values, bounds);
    at += there;
  }
  for (size_t i = 0; i < values; ++i) {
    std::memcpy(pairs + i * sizeof(T), bounds + (2 * i + i % 2) * sizeof(T), sizeof(T));
  }
  return isBegun;
}

}  // namespace

HRESULT MergePixels(PeakBlocks& blocks, const PixelRanges& ranges, LONG pixels, QNSAMPLETYPE type,
                    bool isRounded, void* out, DWORD* got) try {
  const bool isCut = blocks.Type() == QNST_PCM16 && type == QNST_PCM8S && !isRounded;
  const QNCOPYFUNCTION convert = isCut ? CutToHighBytes : QnAudio_GetCopyFunction2(type, blocks.Type());
  const auto merge = blocks.Type() == QNST_PCM16 ? MergePixel<int16_t> : MergePixel<int8_t>;
  const size_t blockBytes = blocks.BlockBytes();
  const size_t values = size_t{blocks.Channels()} * 2;
  auto* to = static_cast<uint8_t*>(out);

  // Some pixels are converted together.
  const size_t mostPixels = std::max<size_t>(4096 / blockBytes, 1);
  std::vector<uint8_t> pairs(mostPixels * blockBytes);
  std::vector<uint8_t> bounds(2 * blockBytes);
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
    if (!merge(blocks, range, bounds.data(), &pairs[waiting * blockBytes])) break;
    if (++waiting == mostPixels) flush();
  }
  if (waiting > 0) flush();
  return S_OK;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

}  // namespace qn
