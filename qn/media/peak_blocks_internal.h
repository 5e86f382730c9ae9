// The merging of stored pairs into the pixels of a request.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qn/media/peak.h"

namespace qn {

// Blocks of pairs, one behind the other: those of the table in memory or of the peak file.
class PeakBlocks {
 public:
  // `type` of the stored values is QNST_PCM8S or QNST_PCM16.
  PeakBlocks(QNSAMPLETYPE type, DWORD channels, uint64_t count)
      : type_(type), channels_(channels), count_(count) {}
  virtual ~PeakBlocks() = default;

  QNSAMPLETYPE Type() const { return type_; }
  DWORD Channels() const { return channels_; }
  uint64_t Count() const { return count_; }
  size_t BlockBytes() const { return size_t{channels_} * 2 * (type_ == QNST_PCM16 ? 2 : 1); }

  // Where blocks from `first` on stand, until the next call, and in `*there` how many, at most `wanted`; null
  // when none can be read. `first` plus `wanted` is within the count.
  virtual const uint8_t* Get(uint64_t first, uint64_t wanted, uint64_t* there) = 0;

 private:
  const QNSAMPLETYPE type_;
  const DWORD channels_;
  const uint64_t count_;
};

// Blocks in memory.
class PeakBlocksInMemory final : public PeakBlocks {
 public:
  PeakBlocksInMemory(QNSAMPLETYPE type, DWORD channels, uint64_t count, const void* blocks)
      : PeakBlocks(type, channels, count), blocks_(static_cast<const uint8_t*>(blocks)) {}

  const uint8_t* Get(uint64_t first, uint64_t wanted, uint64_t* there) override {
    *there = wanted;
    return blocks_ + first * BlockBytes();
  }

 private:
  const uint8_t* const blocks_;
};

struct BlockRange {
  uint64_t first;
  uint64_t end;
};

// The blocks of one pixel, which count from 0 to below the pixels asked for. A pixel has at least one block.
struct PixelRanges {
  virtual BlockRange At(uint64_t pixel) const = 0;

 protected:
  ~PixelRanges() = default;
};

// Merges the blocks of each pixel and stores its pairs in `out`, as `type`; `*got` becomes the pixels stored.
// The first pixel that has no blocks is the end. Values of 16 bits become 8 by their high bytes, or rounded.
// E_OUTOFMEMORY.
HRESULT MergePixels(PeakBlocks& blocks, const PixelRanges& ranges, LONG pixels, QNSAMPLETYPE type,
                    bool isRounded, void* out, DWORD* got);

}  // namespace qn
