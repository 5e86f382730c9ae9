// Floats or doubles on their way to a new file of any sample type.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/qnwave/audio_output.h"
#include "tools/qnwave/converter.h"
#include "tools/qnwave/target.h"

namespace qnwave {

class SampleWriter {
 public:
  // `type` is one of floats. `mostFrames` is the longest block. With dither the blocks have to come in their
  // order; without it several writers may serve one output.
  SampleWriter(AudioOutput* output, const AudioFormat& format, QNSAMPLETYPE type, uint32_t mostFrames,
               const DitherSettings& dither);

  // Writes frames from `first` on. The failure is not reported here.
  HRESULT Write(uint64_t first, const void* samples, uint32_t frames);

  // What was clipped, and what became silence because it was infinite or no number, or too loud for the
  // floats of the file, so far.
  uint64_t Clipped() const { return clipped_; }
  uint64_t NotNumbers() const { return converter_.NotNumbers() + notNumbers_; }

 private:
  AudioOutput& output_;
  AudioFormat format_;
  QNSAMPLETYPE type_;
  SampleConverter converter_;
  std::vector<uint8_t> block_;
  uint64_t clipped_ = 0;
  uint64_t notNumbers_ = 0;
};

}  // namespace qnwave
