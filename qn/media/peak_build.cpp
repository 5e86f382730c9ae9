// Building the peak file and the table in memory.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <utility>

#include "qn/media/peak_audio_internal.h"
#include "qn/media/peak_object_internal.h"
#include "qn/platform/winuser.h"
#include "qn/settings/qnstatus.h"

namespace qn {
namespace {

constexpr DWORD kReadBytes = 0x18000;
constexpr uint64_t kWriteBytes = 0x20000;
constexpr LONGLONG kProgressParts = 10000;
constexpr DWORD kUselessFramesPerPeak = 0x200000;
constexpr LONG kMostTableBlocks = 0x20000;
constexpr LONG kTableFramesPerPeak = 2048;
constexpr LONG kMemoryTableFramesPerPeak = 256;

// Shows that something takes its time.
class WaitCursor {
 public:
  explicit WaitCursor(bool isShown) {
    const HCURSOR wait = isShown ? LoadCursorW(nullptr, MAKEINTRESOURCEW(IDC_WAIT)) : nullptr;
    isShown_ = wait != nullptr;
    if (isShown_) before_ = SetCursor(wait);
  }
  ~WaitCursor() {
    if (isShown_) SetCursor(before_);
  }
  WaitCursor(const WaitCursor&) = delete;
  WaitCursor& operator=(const WaitCursor&) = delete;

 private:
  bool isShown_;
  HCURSOR before_ = nullptr;
};

// Reads the frames of a source in order, as the kernel takes them.
class FrameSource {
 public:
  FrameSource(CQnAudioPeakStreamReader& reader, DWORD peakType, DWORD channels)
      : audio_(&reader),
        kernel_(peakType, audio_.Type()),
        length_(reader.GetLength()),
        status_(audio_.Status()) {
    if (FAILED(status_)) return;
    if (kernel_.reduce && audio_.Channels() == channels) {
      buffer_.resize(kReadBytes);
    } else {
      status_ = E_INVALIDARG;
    }
  }

  HRESULT Status() const { return status_; }
  const PeakKernel& Kernel() const { return kernel_; }
  int64_t Length() const { return length_; }
  int64_t Position() const { return position_; }
  int64_t Left() const { return std::max<int64_t>(length_ - position_, 0); }
  const void* Frames() const { return buffer_.data(); }

  // Reads the next frames; `*got` is above 0 as long as frames are left. Media can end before the length that
  // they tell: the rest is silent.
  HRESULT ReadNext(DWORD* got) {
    const size_t frameBytes = audio_.FrameBytes();
    const auto wanted = static_cast<DWORD>(std::min<int64_t>(kReadBytes / frameBytes, Left()));
    if (const HRESULT status = audio_.Read(position_, Left(), buffer_.data(), wanted, got); FAILED(status)) {
      return status;
    }
    if (audio_.IsEnd()) {
      const uint8_t silence = audio_.Type() == QNST_PCM8U ? 0x80 : 0;
      std::memset(buffer_.data() + *got * frameBytes, silence, (wanted - *got) * frameBytes);
      *got = wanted;
    }
    if (kernel_.convert) {
      kernel_.convert(buffer_.data(), buffer_.data(), static_cast<LONG>(*got * audio_.Channels()), 1.0f);
    }
    position_ += *got;
    return S_OK;
  }

 private:
  PeakAudio audio_;
  const PeakKernel kernel_;
  const int64_t length_;
  HRESULT status_;
  int64_t position_ = 0;
  std::vector<uint8_t> buffer_;
};

// Tells a host how far a scan has come, in frames or in ten-thousandths.
class ScanProgress {
 public:
  ScanProgress(IQnAudioPeakProgress* host, bool inFrames, int64_t length)
      : host_(host), inFrames_(inFrames), length_(length) {}

  // False when the host cancels.
  bool Begin(CQnAudioPeakStreamReader& reader) {
    if (!host_) return true;
    WCHAR name[4096] = {};
    if (FAILED(reader.GetName(name, static_cast<LONG>(std::size(name)), 1))) name[0] = 0;
    name[std::size(name) - 1] = 0;
    return host_->Begin(name, inFrames_ ? length_ : kProgressParts) != 0;
  }
  bool Update(int64_t position) {
    if (!host_) return true;
    const double parts = double(position) * double(kProgressParts) + std::trunc(double(length_ / 2));
    return host_->Update(inFrames_ ? position : static_cast<LONGLONG>(parts / double(length_))) != 0;
  }
  void End(HRESULT status) {
    if (host_) host_->End(status);
  }

 private:
  IQnAudioPeakProgress* const host_;
  const bool inFrames_;
  const int64_t length_;
};

}  // namespace

HRESULT CQnAudioPeak::Build(DWORD flags, IQnAudioPeakProgress* progress) {
  const bool isForced = flags & QNAUDIOPEAK_BUILD_FORCE;
  constexpr DWORD kRefine = QNAUDIOPEAK_BUILD_16BIT | QNAUDIOPEAK_BUILD_REFINE;
  HRESULT status = QN_S_PEAKS_VALID;
  if (isForced || Open() != S_OK || !IsValid(0) || ((flags & kRefine) == kRefine && header_.bits < 16)) {
    status = Rebuild(flags, progress);
    if (FAILED(status)) return status;
  }
  if (memFramesPerPeak_ >= 0) {
    // A table that would be too long is a failure although the file is good: hosts rely on it.
    const HRESULT tableStatus = BuildMemoryTable(isForced);
    if (FAILED(tableStatus)) status = tableStatus;
  }
  CloseUnlessKept();
  return status;
}

HRESULT CQnAudioPeak::Rebuild(DWORD flags, IQnAudioPeakProgress* progress) {
  Close();
  const WaitCursor cursor(!progress && !memoryOnly_);
  HRESULT status = Create(flags & QNAUDIOPEAK_BUILD_16BIT ? QNST_PCM16 : QNST_PCM8S);
  if (memoryOnly_) return status;
  if (SUCCEEDED(status)) {
    isScanning_ = true;
    status = Scan(flags, progress);
    isScanning_ = false;
  }
  if (FAILED(status) && file_ != INVALID_HANDLE_VALUE) {
    Close();
    DeleteFileW(peakFileName_.c_str());
  }
  return status;
}

HRESULT CQnAudioPeak::Scan(DWORD flags, IQnAudioPeakProgress* progress) try {
  int64_t covered = 0;
  HRESULT status = ScanBlocks(flags, progress, &covered);
  const bool isCancelled = status == QN_E_CANCELLED;
  if (status == S_OK || (isCancelled && flags & QNAUDIOPEAK_BUILD_KEEPCANCELLED)) {
    header_.sourceLength = covered;
    status = WriteHeader();
  } else if (isCancelled && flags & QNAUDIOPEAK_BUILD_DISCARD) {
    // So coarse that requests go to the audio.
    header_.framesPerPeak = kUselessFramesPerPeak;
  }
  return status;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

HRESULT CQnAudioPeak::ScanBlocks(DWORD flags, IQnAudioPeakProgress* progress, int64_t* covered) {
  FrameSource source(*reader_, PeakType(), header_.channels);
  if (FAILED(source.Status())) return source.Status();
  const int64_t length = source.Length();

  // The blocks share the length evenly, in steps a little off the resolution that the header tells: a file of
  // 1,000 frames at 256 has four of 250. Hosts compare with files made so.
  const auto blocks = static_cast<DWORD>(CountPeakBlocks(length, header_.framesPerPeak));
  const double exactStep =
      blocks ? std::trunc((double(blocks / 2) + double(length) * 16384.0) / double(blocks)) : 0;
  if (exactStep >= double(0x80000000) || (!blocks && length > 0)) return E_FAIL;

  const auto blockBytes = static_cast<DWORD>(BlockBytes());
  const auto bufferBlocks = static_cast<DWORD>((kWriteBytes + blockBytes - 1) / blockBytes);
  std::vector<uint8_t> pairs(size_t{bufferBlocks} * blockBytes);
  DWORD buffered = 0;  // blocks in `pairs`
  DWORD done = 0;      // blocks in the file
  const auto flush = [&] {
    if (!WriteAt(BlockOffset(done), pairs.data(), buffered * blockBytes)) return false;
    done += buffered;
    buffered = 0;
    return true;
  };

  std::vector<tQNAUDIOPEAK_SAMPLESMINMAX> state((header_.channels + 31) / 32);
  QnAudioPeak_InitMinMaxArray(source.Kernel().type, header_.channels, state.data());
  const auto step = static_cast<DWORD>(exactStep);
  DWORD phase = 0;
  // Feeds the kernel until `*frames` are used up or a block is finished, which is counted.
  const auto reduce = [&](const void** from, DWORD* frames) {
    if (!source.Kernel().reduce(pairs.data(), buffered * header_.channels * 2, step, from, frames, &phase,
                                header_.channels, state.data())) {
      return true;
    }
    ++buffered;
    return buffered < bufferBlocks || flush();
  };

  HRESULT status = S_OK;
  ScanProgress meter(progress, flags & QNAUDIOPEAK_BUILD_PROGRESSFRAMES, length);
  if (!meter.Begin(*reader_)) status = QN_E_CANCELLED;
  dirty_ = true;
  header_.sourceLength = 0;
  while (status == S_OK && source.Left() > 0) {
    DWORD frames = 0;
    status = source.ReadNext(&frames);
    if (FAILED(status)) break;
    bool isWritten = true;
    for (const void* from = source.Frames(); isWritten && frames && done + buffered < blocks;) {
      isWritten = reduce(&from, &frames);
    }
    if (source.Left() == 0) {
      // The step was rounded, so the frames can run out before the last block is full.
      for (const void* from = nullptr; isWritten && done + buffered < blocks;) {
        phase = step;
        frames = 0;
        isWritten = reduce(&from, &frames);
      }
      isWritten = isWritten && (!buffered || flush());
    }
    if (!isWritten) {
      status = QN_E_FILE_WRITE;
    } else if (!meter.Update(source.Position())) {
      status = QN_E_CANCELLED;
    }
  }
  // The finished blocks of a file that is kept.
  const bool isKept = status == QN_E_CANCELLED && flags & QNAUDIOPEAK_BUILD_KEEPCANCELLED;
  if (isKept && buffered && !flush()) status = QN_E_FILE_WRITE;
  meter.End(status);
  *covered = status == S_OK ? length : source.Position();
  return status;
}

HRESULT CQnAudioPeak::BuildMemoryTable(bool isForced) try {
  if (memFramesPerPeak_ < static_cast<LONG>(kLeastFramesPerPeak) ||
      memFramesPerPeak_ > static_cast<LONG>(kMostFramesPerPeak)) {
    memFramesPerPeak_ = memoryOnly_ ? kMemoryTableFramesPerPeak : kTableFramesPerPeak;
  }
  memFramesPerPeak_ = std::max(memFramesPerPeak_, static_cast<LONG>(header_.framesPerPeak));

  const int64_t length = reader_->GetLength();
  const int64_t count = length / memFramesPerPeak_;
  if (count > kMostTableBlocks || !header_.channels) return E_INVALIDARG;
  if (length <= 0) return S_OK;
  const auto framesPerPeak = static_cast<DWORD>(memFramesPerPeak_);
  if (!isForced && !memTable_.empty() && memBuiltFramesPerPeak_ == framesPerPeak && memBlocks_ == count) {
    return S_OK;
  }
  FreeMemoryTable();
  memoryValid_ = false;
  if (count == 0) return S_OK;

  // Detached, so that the request is not answered from it.
  std::vector<int16_t> table(size_t{header_.channels} * static_cast<size_t>(count) * 2);
  DWORD got = 0;
  const HRESULT status = GetPeaksEx(0, length, QNST_PCM16, table.data(), static_cast<LONG>(count), &got);
  if (got == 0) return status;
  memTable_ = std::move(table);
  memBlocks_ = static_cast<DWORD>(count);
  memBuiltFramesPerPeak_ = framesPerPeak;
  memoryValid_ = true;
  return S_OK;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

void CQnAudioPeak::FreeMemoryTable() {
  std::vector<int16_t>().swap(memTable_);
  memBlocks_ = 0;
  memBuiltFramesPerPeak_ = 0;
}

}  // namespace qn
