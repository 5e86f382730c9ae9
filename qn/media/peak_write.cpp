// The peak file while audio is being written.
#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include "qn/media/peak_audio_internal.h"
#include "qn/media/peak_object_internal.h"
#include "qn/settings/qnstatus.h"

namespace qn {
namespace {

constexpr int64_t kMostFrames = std::numeric_limits<int64_t>::max();
// The frames of a write and those of a block, with room.
constexpr int64_t kMargin = int64_t{4} * std::numeric_limits<DWORD>::max();

template <class T>
void MergeInto(uint8_t* pairs, const uint8_t* others, size_t values) {
  auto* const to = reinterpret_cast<T*>(pairs);
  const auto* const from = reinterpret_cast<const T*>(others);
  for (size_t i = 0; i < values; i += 2) {
    to[i] = std::min(to[i], from[i]);
    to[i + 1] = std::max(to[i + 1], from[i + 1]);
  }
}

// The audio that was written, as blocks.
struct Write {
  const uint8_t* buffer;
  int64_t start;
  DWORD frames;
  QNSAMPLETYPE type;
  DWORD peakType;
  DWORD channels;
  int64_t framesPerPeak;
  size_t blockBytes;
  int64_t length;  // of the media, as far as it was known before

  int64_t End() const { return start + frames; }
  int64_t FirstBlock() const { return start / framesPerPeak; }
  size_t Blocks() const { return static_cast<size_t>((End() - 1) / framesPerPeak - FirstBlock() + 1); }
  DWORD ValueIndex(int64_t block) const { return static_cast<DWORD>(block * channels * 2); }

  bool Continues(const PartialPeak& partial) const {
    return partial.peakType == peakType && partial.channels == channels &&
           partial.valueIndex == ValueIndex(FirstBlock()) && partial.end == start &&
           partial.values.size() == blockBytes;
  }

  // Puts what the first block has in front of the write into its state, as far as it can be had.
  void Prime(const PartialPeak& partial, CQnAudioPeakStreamReader* reader, PeakReducer& reducer) const {
    const int64_t first = FirstBlock() * framesPerPeak;
    if (first == start) return;
    if (Continues(partial)) {
      reducer.Continue(peakType, partial.values.data());
      return;
    }
    PeakAudio audio(reader);
    if (FAILED(audio.Status()) || audio.Channels() != channels) return;
    PeakReducer before(peakType, audio.Type(), channels);
    if (before.IsUsable() && before.AddFrom(audio, first, start - first) > 0) reducer.Continue(before);
  }

  // Widens the last block by the frames that it has behind the write already.
  void AddTail(CQnAudioPeakStreamReader* reader, uint8_t* block) const {
    const int64_t blockStart = (End() - 1) / framesPerPeak * framesPerPeak;
    const int64_t end = length - blockStart < framesPerPeak ? length : blockStart + framesPerPeak;
    if (End() >= end) return;
    PeakAudio audio(reader);
    if (FAILED(audio.Status()) || audio.Channels() != channels) return;
    PeakReducer tail(peakType, audio.Type(), channels);
    if (!tail.IsUsable() || tail.AddFrom(audio, End(), end - End()) == 0) return;
    std::vector<uint8_t> pairs(blockBytes);
    tail.Add(nullptr, 0, pairs.data());
    (peakType == QNST_PCM16 ? MergeInto<int16_t> : MergeInto<int8_t>)(block, pairs.data(), channels * 2);
  }

  // The blocks; the last one, if it is not full, becomes the partial record too.
  std::vector<uint8_t> Reduce(PeakReducer& reducer, PartialPeak* partial) const {
    std::vector<uint8_t> pairs(Blocks() * blockBytes);
    const size_t frameBytes = static_cast<size_t>(QnAudio_BytesFromSampleType(type)) * channels;
    *partial = {};
    const uint8_t* from = buffer;
    uint8_t* to = pairs.data();
    for (int64_t at = start; at < End(); to += blockBytes) {
      const int64_t blockEnd = at - at % framesPerPeak + framesPerPeak;
      const auto taken = static_cast<size_t>(std::min(blockEnd, End()) - at);
      reducer.Add(from, taken, to);
      from += taken * frameBytes;
      if (blockEnd > End()) {
        *partial = {peakType, channels, ValueIndex(at / framesPerPeak), End(), {to, to + blockBytes}};
      }
      at += static_cast<int64_t>(taken);
    }
    return pairs;
  }
};

}  // namespace

HRESULT CQnAudioPeak::WriteAudio(const void* buffer, LONGLONG start, DWORD frames, QNSAMPLETYPE type) try {
  // Requests look at the header, the file and the reader too.
  const Operation operation(*this);
  if (frames == 0 || !HasUsableHeader()) return S_OK;
  if (!buffer) return E_POINTER;
  if (start < 0 || start > kMostFrames - kMargin) return E_INVALIDARG;
  if (!memoryOnly_) {
    if (const HRESULT status = Open(); status != S_OK) return status;
    if (!HasUsableHeader()) return E_FAIL;
  }
  if (type == QNST_NONE) type = QnAudio_GetSampleType(reader_->GetFormat());

  const int64_t known = header_.sourceLength;  // not aligned, so no reference may stand for it
  const Write write{static_cast<const uint8_t*>(buffer),
                    start,
                    frames,
                    type,
                    PeakType(),
                    header_.channels,
                    header_.framesPerPeak,
                    static_cast<size_t>(BlockBytes()),
                    std::clamp<int64_t>(known, 0, std::max<int64_t>(reader_->GetLength(), 0))};
  const auto firstBlock = static_cast<uint64_t>(write.FirstBlock());
  const uint64_t bytes = write.Blocks() * BlockBytes();
  if (bytes > std::numeric_limits<DWORD>::max() ||
      firstBlock > (static_cast<uint64_t>(kMostFrames) - header_.headerSize - bytes) / BlockBytes()) {
    return E_INVALIDARG;
  }
  PeakReducer reducer(write.peakType, type, write.channels);
  if (!reducer.IsUsable()) return E_INVALIDARG;
  write.Prime(partial_, reader_, reducer);
  std::vector<uint8_t> pairs = write.Reduce(reducer, &partial_);
  write.AddTail(reader_, &pairs[pairs.size() - write.blockBytes]);

  if (!memoryOnly_) {
    UnmapView();
    if (!WriteAt(BlockOffset(firstBlock), pairs.data(), static_cast<DWORD>(bytes))) return QN_E_FILE_WRITE;
  }
  FreeMemoryTable();
  dirty_ = true;
  header_.sourceLength = std::max(known, write.End());
  return WriteHeader();
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

HRESULT CQnAudioPeak::Truncate(LONGLONG frames) {
  const Operation operation(*this);
  if (readOnly_) return E_FAIL;
  if (frames < 0) return E_INVALIDARG;
  partial_ = {};
  if (!memoryOnly_) {
    if (const HRESULT status = Open(); status != S_OK) return status;
    if (!HasUsableHeader()) return E_FAIL;
    UnmapView();
    const uint64_t blocks = CountPeakBlocks(frames, header_.framesPerPeak);
    if (blocks > (static_cast<uint64_t>(kMostFrames) - header_.headerSize) / BlockBytes())
      return E_INVALIDARG;
    LARGE_INTEGER end;
    end.QuadPart = BlockOffset(blocks);
    if (!SetFilePointerEx(file_, end, nullptr, FILE_BEGIN) || !SetEndOfFile(file_)) return QN_E_FILE_WRITE;
  }
  FreeMemoryTable();
  header_.sourceLength = frames;
  dirty_ = true;
  return WriteHeader();
}

}  // namespace qn
