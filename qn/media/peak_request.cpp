// Requests for peaks: from the coarsest source that is fine enough.
#include <algorithm>
#include <limits>
#include <memory>
#include <new>

#include "qn/media/mediafile_internal.h"
#include "qn/media/peak_blocks_internal.h"
#include "qn/media/peak_object_internal.h"
#include "qn/media/peak_scratch_internal.h"

namespace qn {
namespace {

constexpr int64_t kMostFrames = std::numeric_limits<int64_t>::max();

bool IsPeakType(QNSAMPLETYPE type) {
  return type == QNST_PCM16 || type == QNST_PCM8S || type == QNST_FLOAT32;
}

// count * part / parts, rounded down, for a part of at most all the parts.
uint64_t Portion(uint64_t count, uint64_t part, uint64_t parts) {
  return count / parts * part + count % parts * part / parts;
}

// A pixel for each block.
struct EqualRanges final : PixelRanges {
  explicit EqualRanges(uint64_t firstBlock) : first(firstBlock) {}
  BlockRange At(uint64_t pixel) const override { return {first + pixel, first + pixel + 1}; }
  uint64_t first;
};

// What the resample kernel makes of `count` blocks for `pixels` pixels: a pixel takes the block that its end
// lies in, or touches, from the next one.
struct TableRanges final : PixelRanges {
  TableRanges(uint64_t firstBlock, uint64_t blockCount, uint64_t pixelCount)
      : first(firstBlock), count(blockCount), pixels(pixelCount) {}
  uint64_t Start(uint64_t pixel) const {
    return first + (pixel ? std::min(Portion(count, pixel, pixels) + 1, count) : 0);
  }
  BlockRange At(uint64_t pixel) const override { return {Start(pixel), Start(pixel + 1)}; }
  uint64_t first, count, pixels;
};

// The blocks that a pixel's frames begin in, so each block is in one pixel. The last pixel of a request that
// reaches the media's end has all blocks up to there.
struct FrameRanges final : PixelRanges {
  uint64_t Start(uint64_t pixel) const { return (start + Portion(frames, pixel, pixels)) / framesPerPeak; }
  BlockRange At(uint64_t pixel) const override {
    const bool isLast = pixel + 1 == pixels && start + frames >= sourceLength;
    return {Start(pixel), std::max(Start(pixel + 1), isLast ? sourceBlocks : 0)};
  }
  uint64_t start, frames, pixels, framesPerPeak, sourceLength, sourceBlocks;
};

// Pixels on a fixed grid of frames, as the resample kernel cuts them: again a pixel takes the block that its
// end lies in. Where the first block begins in front of the request, what it has of the column before comes
// first, and the columns stand one place later; hosts rely on that.
struct GridRanges final : PixelRanges {
  uint64_t Start(uint64_t pixel) const {
    return first + (pixel ? (pixel * framesPerPixel - phase) / framesPerPeak + 1 : 0);
  }
  BlockRange At(uint64_t pixel) const override {
    return {std::min(Start(pixel), lastBlock), std::min(Start(pixel + 1), lastBlock + 1)};
  }
  uint64_t first, phase, framesPerPixel, framesPerPeak, lastBlock;
};

// A request on the grid; its end was checked to be a number of 64 bits.
struct GridRequest {
  int64_t start;
  int64_t framesPerPixel;
  LONG pixels;
  QNSAMPLETYPE type;
  void* out;
  DWORD* got;

  uint64_t EndBlock(DWORD framesPerPeak) const {
    return (static_cast<uint64_t>(start) + static_cast<uint64_t>(framesPerPixel) * DWORD(pixels) - 1) /
               framesPerPeak +
           1;
  }

  HRESULT Answer(PeakBlocks& blocks, DWORD framesPerPeak) const {
    const auto from = static_cast<uint64_t>(start);
    const auto each = static_cast<uint64_t>(framesPerPixel);
    const uint64_t first = from / framesPerPeak;
    uint64_t end = EndBlock(framesPerPeak);
    LONG count = pixels;
    if (first >= blocks.Count()) return E_FAIL;
    if (end > blocks.Count()) {
      end = blocks.Count();
      count = static_cast<LONG>((framesPerPeak * end - from - 1) / each + 1);
    }
    if (end - first == static_cast<uint64_t>(count)) {
      return MergePixels(blocks, EqualRanges(first), count, type, true, out, got);
    }
    GridRanges ranges;
    ranges.first = first;
    ranges.phase = first * framesPerPeak % each;
    ranges.framesPerPixel = each;
    ranges.framesPerPeak = framesPerPeak;
    ranges.lastBlock = end - 1;
    return MergePixels(blocks, ranges, count, type, true, out, got);
  }
};

}  // namespace

// Blocks that are read from the file through the thread's scratch block, as many at a time as it holds.
class CQnAudioPeak::FileBlocks final : public PeakBlocks {
 public:
  FileBlocks(CQnAudioPeak& peak, uint64_t count)
      : PeakBlocks(static_cast<QNSAMPLETYPE>(peak.PeakType()), peak.header_.channels, count), peak_(peak) {}

  const uint8_t* Get(uint64_t first, uint64_t wanted, uint64_t* there) override {
    if (first < windowFirst_ || first - windowFirst_ >= windowBlocks_) Read(first);
    if (windowBlocks_ == 0) return nullptr;
    *there = std::min(wanted, windowFirst_ + windowBlocks_ - first);
    return scratch_.Bytes() + (first - windowFirst_) * BlockBytes();
  }

 private:
  void Read(uint64_t first) {
    windowFirst_ = first;
    windowBlocks_ = 0;
    if (!scratch_.Bytes()) return;
    const uint64_t blocks = std::min<uint64_t>(kPeakScratchBytes / BlockBytes(), Count() - first);
    const auto bytes = static_cast<DWORD>(blocks * BlockBytes());
    windowBlocks_ = peak_.ReadAt(peak_.BlockOffset(first), scratch_.Bytes(), bytes) / BlockBytes();
  }

  CQnAudioPeak& peak_;
  PeakScratch scratch_;
  uint64_t windowFirst_ = 0;
  uint64_t windowBlocks_ = 0;
};

bool CQnAudioPeak::HasUsableHeader() const {
  const WAVEFORMATEX* const format = reader_ ? reader_->GetFormat() : nullptr;
  // Blocks behind the file's end would make it giant with the first write.
  const bool isInFile = file_ == INVALID_HANDLE_VALUE || FileLength(file_) >= header_.headerSize;
  return format && isInFile && header_.magic == kPeakMagic && (header_.bits == 8 || header_.bits == 16) &&
         header_.channels > 0 && header_.channels == format->nChannels && header_.framesPerPeak > 0 &&
         header_.headerSize >= sizeof header_;
}

HRESULT CQnAudioPeak::OpenBlocks(uint64_t end, std::unique_ptr<PeakBlocks>* blocks) {
  LARGE_INTEGER size;
  if (!GetFileSizeEx(file_, &size)) return E_FAIL;
  const auto fileBytes = static_cast<uint64_t>(size.QuadPart);
  const uint64_t stored =
      fileBytes > header_.headerSize ? (fileBytes - header_.headerSize) / BlockBytes() : 0;
  const uint64_t count = std::min(stored, end);

  // A view behind whose end the file was cut must not be touched.
  if (view_ && viewBytes_ != fileBytes) UnmapView();
  if (singleThread_) MapView();
  if (view_ && viewBytes_ == fileBytes) {
    *blocks = std::make_unique<PeakBlocksInMemory>(static_cast<QNSAMPLETYPE>(PeakType()), header_.channels,
                                                   count, view_ + header_.headerSize);
  } else {
    *blocks = std::make_unique<FileBlocks>(*this, count);
  }
  return S_OK;
}

HRESULT CQnAudioPeak::OpenForRequest() {
  if (Open() != S_OK || file_ == INVALID_HANDLE_VALUE) return E_FAIL;
  Sync(0);
  if (header_.sourceLength == -1 || header_.sourceLength == -2) return S_FALSE;
  // Callers have room for the source's channels, so a file of others is of no use.
  return HasUsableHeader() ? S_OK : E_FAIL;
}

HRESULT CQnAudioPeak::GetPeaks(LONGLONG start, LONGLONG frames, void* out, LONG pixels, DWORD* got) {
  return GetPeaksEx(start, frames, QNST_PCM16, out, pixels, got);
}

HRESULT CQnAudioPeak::GetPeaksEx(LONGLONG start, LONGLONG frames, QNSAMPLETYPE type, void* out, LONG pixels,
                                 DWORD* got) {
  if (!got) return E_POINTER;
  *got = 0;
  if (!reader_) return E_FAIL;
  if (pixels == 0) return S_OK;
  if (type == QNST_NONE) type = QNST_PCM16;
  if (!IsPeakType(type)) return E_UNEXPECTED;
  if (frames < 1 || pixels < 1) return S_OK;
  if (!out) return E_POINTER;
  if (start > kMostFrames - frames) return E_FAIL;

  const Operation operation(*this);
  const int64_t framesPerPixel = frames / pixels;
  if (!memTable_.empty() && framesPerPixel >= memFramesPerPeak_) {
    return RequestFromTable(start, frames, type, out, pixels, got);
  }
  if (!memoryOnly_ && framesPerPixel >= header_.framesPerPeak) {
    return RequestFromFile(start, frames, type, out, pixels, got);
  }
  return RequestFromAudio(start, frames, type, out, pixels, got);
}

HRESULT CQnAudioPeak::RequestFromTable(int64_t start, int64_t frames, QNSAMPLETYPE type, void* out,
                                       LONG pixels, DWORD* got) {
  const int64_t resolution = memBuiltFramesPerPeak_;
  const WAVEFORMATEX* const format = reader_->GetFormat();
  if (start < 0 || !format || memTable_.size() != size_t{memBlocks_} * format->nChannels * 2) return E_FAIL;
  auto first = static_cast<uint64_t>(start / resolution);
  const uint64_t wanted = static_cast<uint64_t>((start + frames) / resolution) - first;
  if (first == memBlocks_) --first;
  if (wanted < 1 || first >= memBlocks_) return E_FAIL;
  const uint64_t count = std::min<uint64_t>(wanted, memBlocks_ - first);
  const auto reached = static_cast<LONG>(count * DWORD(pixels) / wanted);
  PeakBlocksInMemory blocks(QNST_PCM16, format->nChannels, memBlocks_, memTable_.data());
  if (count == static_cast<uint64_t>(reached)) {
    return MergePixels(blocks, EqualRanges(first), reached, type, false, out, got);
  }
  return MergePixels(blocks, TableRanges(first, count, DWORD(reached)), reached, type, false, out, got);
}

HRESULT CQnAudioPeak::RequestFromFile(int64_t start, int64_t frames, QNSAMPLETYPE type, void* out,
                                      LONG pixels, DWORD* got) try {
  if (const HRESULT status = OpenForRequest(); status != S_OK) return status;
  if (start < 0) return E_FAIL;
  FrameRanges ranges;
  ranges.start = static_cast<uint64_t>(start);
  ranges.frames = static_cast<uint64_t>(frames);
  ranges.pixels = DWORD(pixels);
  ranges.framesPerPeak = header_.framesPerPeak;
  ranges.sourceLength = header_.sourceLength < 0 ? 0 : static_cast<uint64_t>(header_.sourceLength);
  ranges.sourceBlocks = CountPeakBlocks(header_.sourceLength, header_.framesPerPeak);
  std::unique_ptr<PeakBlocks> blocks;
  const uint64_t end = std::max(ranges.At(ranges.pixels - 1).end, ranges.Start(ranges.pixels - 1) + 1);
  if (const HRESULT status = OpenBlocks(end, &blocks); status != S_OK) return status;
  return MergePixels(*blocks, ranges, pixels, type, false, out, got);
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

HRESULT CQnAudioPeak::GetPeaksAligned(LONGLONG start, LONGLONG framesPerPixel, QNSAMPLETYPE type, void* out,
                                      LONG pixels, DWORD* got) try {
  if (!got) return E_POINTER;
  *got = 0;
  if (framesPerPixel < 1 || pixels < 0) return E_INVALIDARG;
  if (pixels == 0) return S_OK;
  if (!reader_) return E_FAIL;
  if (type == QNST_NONE) type = QNST_PCM16;
  if (!IsPeakType(type)) return E_UNEXPECTED;
  if (!out) return E_POINTER;
  if (start < 0) return E_FAIL;
  start -= start % framesPerPixel;
  // Two resolutions more than the request covers, so that no sum with them is too large.
  constexpr int64_t kMargin = int64_t{2} * std::numeric_limits<DWORD>::max();
  if (framesPerPixel > (kMostFrames - kMargin - start) / pixels) return E_INVALIDARG;

  const Operation operation(*this);
  const GridRequest request{start, framesPerPixel, pixels, type, out, got};
  const WAVEFORMATEX* const format = reader_->GetFormat();
  if (!memTable_.empty() && framesPerPixel >= memFramesPerPeak_) {
    if (!format || memTable_.size() != size_t{memBlocks_} * format->nChannels * 2) return E_FAIL;
    PeakBlocksInMemory blocks(QNST_PCM16, format->nChannels, memBlocks_, memTable_.data());
    return request.Answer(blocks, memBuiltFramesPerPeak_);
  }
  if (memoryOnly_ || framesPerPixel < header_.framesPerPeak) {
    return RequestFromAudio(start, framesPerPixel * pixels, type, out, pixels, got);
  }
  if (const HRESULT status = OpenForRequest(); status != S_OK) return status;
  std::unique_ptr<PeakBlocks> blocks;
  const HRESULT status = OpenBlocks(request.EndBlock(header_.framesPerPeak), &blocks);
  return status == S_OK ? request.Answer(*blocks, header_.framesPerPeak) : status;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

}  // namespace qn
