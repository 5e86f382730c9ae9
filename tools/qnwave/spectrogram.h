// Levels of a range of frames over time and frequency, through the library's transform.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/qnwave/audio_input.h"
#include "tools/qnwave/converter.h"
#include "tools/qnwave/frequency_scale.h"

namespace qnwave {

struct SpectrumWindow {
  const char* name;
  double terms[3];  // of cosines, the constant one first
};

// Null for an unknown name.
const SpectrumWindow* FindSpectrumWindow(std::string_view name);

// All names, for messages.
std::string SpectrumWindowNames();

constexpr uint32_t kLeastTransform = 64;
constexpr uint32_t kMostTransform = 1 << 18;

struct SpectrumRequest {
  uint64_t start = 0;   // the range, in frames
  uint64_t frames = 0;  // not 0
  uint32_t columns = 0;
  uint32_t rows = 0;
  ChannelMap channels;   // none of them silence
  bool isMixed = false;  // one lane with the mean of the channels
  const SpectrumWindow* window = nullptr;
  uint32_t transform = 0;  // frames, a power of 2
  double overlap = 0;      // of two transforms, as a part of one; below 1
  bool isOfLoudest = false;
  double range = 0;  // decibels below full scale
};

// For each lane rows of columns from the top on, 0 for `range` below full scale and softer, 255 for the
// level of a sine of full scale and louder.
//
// The transforms of a column stand evenly in it, as near to each other as the overlap asks for, half
// overlapping at least; there is one in a column's middle where columns are nearer. A column has the mean
// power of its transforms, or the largest; a row the loudest of the frequencies that fall into it.
using Spectrogram = std::vector<std::vector<uint8_t>>;

// Computes it under a progress bar, in memory that does not depend on the length; false with the failure
// reported, or when the run was interrupted.
bool ComputeSpectrogram(const AudioSource& source, const SpectrumRequest& request,
                        const FrequencyScale& scale, bool quiet, Spectrogram* spectrogram);

}  // namespace qnwave
