// The frames of a file as floats or doubles, of which all are numbers.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/qnwave/audio_input.h"
#include "tools/qnwave/converter.h"

namespace qnwave {

class SampleReader {
 public:
  // `type` is one of floats. `mostFrames` is the longest block.
  SampleReader(const AudioSource& source, QNSAMPLETYPE type, const ChannelMap& map, float gain,
               uint32_t mostFrames);

  // Opens the file again.
  bool Open() { return reader_.Open(source_); }

  // Reads exactly `frames` frames from `first` on. False when the file does not give them any more: the
  // system's error is in GetLastError.
  bool Read(uint64_t first, void* samples, uint32_t frames);

  // The samples that were infinite or no number and became silence so far.
  uint64_t NotNumbers() const { return notNumbers_; }

 private:
  const AudioSource& source_;
  QNSAMPLETYPE type_;
  AudioReader reader_;
  SampleConverter converter_;
  std::vector<uint8_t> bytes_;
  uint64_t notNumbers_ = 0;
};

}  // namespace qnwave
