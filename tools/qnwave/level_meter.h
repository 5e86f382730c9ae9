// Peaks, levels and clipping of audio of any length, block by block.
#pragma once

#include <cstdint>
#include <vector>

#include "qn/audio/qnmix.h"
#include "tools/qnwave/converter.h"

namespace qnwave {

// What one channel came to. Full scale is 1.0.
struct ChannelLevel {
  double peak = 0;
  uint64_t position = 0;  // the frame of the peak
  double squares = 0;     // the sum of the samples' squares
  uint64_t clippedSamples = 0;
  uint64_t clippedRuns = 0;
  uint64_t notNumbers = 0;  // float samples that are infinite or no number; they count as silence
};

// The results are those that the library gives for all blocks in one buffer, whatever their borders: the
// magnitude of an integer ends at the high rail, and of equal peaks the last is the peak, but a run of
// `clipRun` integers at full scale is, by its first sample. Floats are clipped above 1.0; the library has no
// position for single ones, and here their position is that of the peak.
//
// Peaks are exact. The library gives sums of squares in single precision, one a block, and all are positive:
// a level is right to a millionth of a dB.
class LevelMeter {
 public:
  // `mostFrames` is the longest block.
  LevelMeter(const AudioFormat& format, uint32_t clipRun, uint32_t mostFrames);

  // Takes the next frames, in the format.
  void Take(const void* frames, uint32_t count);

  const std::vector<ChannelLevel>& Levels() const { return levels_; }
  double Rms(const ChannelLevel& level) const;

 private:
  struct Walk {
    uint64_t run = 0;  // clipped samples one after the other, up to here
    bool isFound = false;
  };
  void TakeLouder(size_t channel, double magnitude, uint64_t position);
  void WalkSamples(size_t channel, uint32_t count);

  const bool isFloat_;
  const uint32_t clipRun_;
  const double lowestClipped_;
  SampleConverter toDouble_;
  QNFINDPEAKSFUNCTION findPeaks_;
  QNCALCPRERMSFUNCTION calcSums_;
  std::vector<double> block_;
  std::vector<QNPEAKRESULT> peaks_;
  std::vector<float> sums_;
  std::vector<Walk> walks_;
  std::vector<ChannelLevel> levels_;
  uint64_t done_ = 0;  // frames
};

}  // namespace qnwave
