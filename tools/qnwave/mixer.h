// The sum of files, each with its gain, its channels and its fades.
#pragma once

#include <cstdint>
#include <vector>

#include "qn/audio/qncopy.h"
#include "qn/audio/qnmix.h"
#include "tools/qnwave/audio_input.h"

namespace qnwave {

// A channel of a file and the one of the mix that it is added to.
struct Route {
  uint32_t from;
  uint32_t to;
};

struct MixInput {
  AudioSource source;
  uint64_t offset = 0;  // of its first frame in the mix
  std::vector<Route> routes;
  tQNASR envelope = {1, 0, 0, 0, 1, 0, 1};
  double gain = 1;
};

class Mixer {
 public:
  // The routes lead to channels below `channels`, which are at most kMostChannels. `inputs` stays where it
  // is. Check Open before anything else.
  Mixer(const std::vector<MixInput>& inputs, uint32_t rate, uint32_t channels);

  // The largest frame of doubles that a format record can count.
  static constexpr uint32_t kMostChannels = kMostFrameBytes / sizeof(double);

  // Opens the files and reports a failure.
  bool Open();

  // The longest block.
  uint32_t BlockFrames() const { return blockFrames_; }

  // Mixes frames from `first` on; floats that are infinite or no number count as silence. Null when a file,
  // `*failed`, cannot be read; the system's error is in GetLastError.
  const double* Mix(uint64_t first, uint32_t frames, const MixInput** failed);

  // The samples of the files that were no numbers so far.
  uint64_t NotNumbers() const { return notNumbers_; }

 private:
  struct Track {
    const MixInput* input;
    AudioReader reader;
    tQNASRCOOKED envelope;
  };
  bool Add(Track* track, uint64_t first, uint32_t frames, double* sum);

  const uint32_t channels_;
  uint32_t blockFrames_;
  WAVEFORMATEX sumFormat_{};
  WAVEFORMATEX routedFormat_{};
  std::vector<Track> tracks_;
  std::vector<uint8_t> bytes_;
  std::vector<double> decoded_;
  std::vector<double> routed_;
  std::vector<double> sum_;
  uint64_t notNumbers_ = 0;
};

}  // namespace qnwave
