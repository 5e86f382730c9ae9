// The audio beneath the peaks: reading it, and the kernel that reduces it.
#pragma once

#include <optional>
#include <vector>

#include "qn/media/peak.h"
#include "qn/media/peak_scratch_internal.h"

namespace qn {

// Samples of a type become peaks by a kernel for this type, or are converted to one that has a kernel first:
// big-endian ones to the same bits, others to the peak type.
struct PeakKernel {
  PeakKernel(DWORD peakType, QNSAMPLETYPE source);

  QNAUDIOPEAKMINMAXFUNCTION reduce;  // null: there is no way
  QNSAMPLETYPE type;                 // what `reduce` takes
  QNCOPYFUNCTION convert;            // to `type`; null: not needed
};

// A reader that is open while this lives.
class PeakAudio {
 public:
  explicit PeakAudio(CQnAudioPeakStreamReader* reader);
  ~PeakAudio();
  PeakAudio(const PeakAudio&) = delete;
  PeakAudio& operator=(const PeakAudio&) = delete;

  // What opening gave: QN_E_FILE_OPEN when there is no audio, E_INVALIDARG when it is no plain samples.
  HRESULT Status() const { return status_; }
  QNSAMPLETYPE Type() const { return type_; }
  DWORD Channels() const { return channels_; }
  size_t FrameBytes() const { return frameBytes_; }

  // Whether the last read met the end of the data.
  bool IsEnd() const { return isEnd_; }

  // Reads up to `frames` frames; `*got` of 0 is the end, which is no failure. `limit` is what the caller
  // wants from here on.
  HRESULT Read(int64_t position, int64_t limit, void* buffer, DWORD frames, DWORD* got);

 private:
  CQnAudioPeakStreamReader* const reader_;
  HRESULT status_;
  bool isOpen_ = false;
  bool isEnd_ = false;
  QNSAMPLETYPE type_ = QNST_NONE;
  DWORD channels_ = 0;
  size_t frameBytes_ = 0;
};

// Reduces frames to blocks that end where the caller says. May throw std::bad_alloc.
class PeakReducer {
 public:
  PeakReducer(DWORD peakType, QNSAMPLETYPE type, DWORD channels);

  bool IsUsable() const { return kernel_.reduce && mostFrames_ > 0; }

  // Goes on with `frames` frames, the last of which ends the block if there is an `out` for its pairs.
  void Add(const void* frames, uint64_t count, void* out);

  // The same with the audio's own frames, which have this type; how many there were.
  int64_t AddFrom(PeakAudio& audio, int64_t position, int64_t frames);

  // Begins with what another of the same channels has found so far, or with stored pairs.
  void Continue(const PeakReducer& other);
  void Continue(DWORD peakType, const void* pairs);

 private:
  const PeakKernel kernel_;
  const DWORD channels_;
  size_t frameBytes_;
  DWORD mostFrames_;
  std::optional<PeakScratch> converted_;  // where frames are converted, if they are
  std::vector<tQNAUDIOPEAK_SAMPLESMINMAX> state_;
};

}  // namespace qn
