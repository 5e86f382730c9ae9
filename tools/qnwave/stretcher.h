// Audio at another speed and the same pitch, over the library's time stretcher.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "qn/dsp/qntimestretch.h"

namespace qnwave {

// Stretches a file block by block. Each block is spliced once by each stage, at a place where it fits. Every
// channel is stretched by itself, for the place that is found for two together fits neither.
class Stretcher {
 public:
  static constexpr double kLeastRatio = 0.1, kMostRatio = 10;
  static constexpr uint32_t kMostChannels = 256;

  // `ratio` is how many input frames make an output frame.
  Stretcher(double ratio, uint32_t rate, uint32_t channels);

  // How many frames a block has at least: as many as a splice takes to be short, and to happen seldom. Only a
  // file that is shorter is one block of its own.
  uint32_t BlockFrames() const { return blockFrames_; }

  // Makes room for blocks of up to so many frames in front and behind.
  HRESULT Open(uint32_t mostIn, uint32_t mostOut);

  // Stretches the next block to exactly `outFrames`. With the last one comes what the stages have held back;
  // as that may be less than there is room for, up to 200 frames of silence may follow.
  HRESULT Process(const double* in, uint32_t inFrames, bool isLast, double* out, uint32_t outFrames);

 private:
  struct Close {
    void operator()(HQNTIME* stage) const { QnTimeClose(stage); }
  };

  using Stage = std::unique_ptr<HQNTIME, Close>;
  HRESULT ProcessChannel(const std::vector<Stage>& stages, uint32_t inFrames, bool isLast,
                         uint32_t outFrames);
  HRESULT ProcessStage(HQNTIME* stage, uint32_t inFrames, bool isLast, uint32_t* outFrames);

  uint32_t rate_;
  uint32_t blockFrames_;
  std::vector<std::vector<Stage>> channels_;
  std::vector<double> from_, to_;  // of one channel
};

}  // namespace qnwave
