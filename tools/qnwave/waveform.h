// The data of a picture of a waveform: for each channel and column of it the lowest and the highest sample.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/qnwave/audio_input.h"
#include "tools/qnwave/converter.h"

namespace qnwave {

struct WaveformRequest {
  uint64_t start = 0;   // the range, in frames
  uint64_t frames = 0;  // not 0
  uint32_t columns = 0;
  ChannelMap channels;  // those to draw, none of them silence
  bool withRms = false;
};

// Full scale is 1.
struct Pair {
  float low;
  float high;

  // A range without a number, as NaNs leave it.
  bool IsEmpty() const { return !(low <= high); }
};

struct Lane {
  std::vector<Pair> pairs;  // of each column, or of each frame
  std::vector<float> rms;   // of each column, when it was asked for
};

struct Waveform {
  // False: a pair is a column. True, where there are fewer frames than columns: a pair is a frame, from
  // `firstFrame` on, with a neighbour on each side of the range if there is one.
  bool isOfFrames = false;
  uint64_t firstFrame = 0;
  std::vector<Lane> lanes;
  std::string peakFile;  // where the peaks came from; empty for the audio itself

  // A sample at one of these, or beyond, is clipped: full scale for integers and for what a peak file holds
  // of floats; floats themselves clip above it.
  float clipLow = -1;
  float clipHigh = 1;
};

// Reads the data under a progress bar if that takes long, and reports a failure. A valid peak file is used
// where it is fine enough, else the audio itself; no file is made.
bool ReadWaveform(const AudioSource& source, const WaveformRequest& request, bool quiet, Waveform* waveform);

}  // namespace qnwave
