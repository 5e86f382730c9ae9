// The samples of one file on their way to another: what `convert` was asked for, and the work.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "tools/qnwave/audio_input.h"
#include "tools/qnwave/audio_output.h"
#include "tools/qnwave/block_runner.h"
#include "tools/qnwave/converter.h"
#include "tools/qnwave/dither.h"
#include "tools/qnwave/progress.h"
#include "tools/qnwave/resampler.h"
#include "tools/qnwave/target.h"

namespace qnwave {

struct ConversionJob {
  AudioSource source;
  Target target;
  ChannelMap map;
  float gain = 1.0f;
  DitherSettings dither;
  RateChange rate;
};

class Conversion {
 public:
  // The job has frames.
  Conversion(const ConversionJob& job, AudioOutput* output, Progress* progress);

  // Returns when all is written, or after a failure or an interrupt.
  void Run();

  // The first failure and the file that it is about.
  HRESULT Status() const { return runner_.Status(); }
  const std::string& FailedFile() const { return runner_.FailedFile(); }

  // The samples that became silence because they were no numbers, and at another rate those that were
  // clipped: they swing beyond the samples that they come from.
  uint64_t NotNumbers() const { return notNumbers_; }
  uint64_t Clipped() const { return clipped_; }

 private:
  class PieceResampler;

  void ConvertBlocks();
  void ResamplePieces();
  void Done(uint64_t frames);

  const ConversionJob& job_;
  AudioOutput& output_;
  Progress& progress_;
  const std::thread::id mainThread_;
  const uint64_t blockFrames_;
  BlockRunner runner_;
  std::atomic<uint64_t> done_{0};
  std::atomic<uint64_t> notNumbers_{0};
  std::atomic<uint64_t> clipped_{0};
};

}  // namespace qnwave
