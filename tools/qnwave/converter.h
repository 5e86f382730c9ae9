// Blocks of interleaved samples from one format to another, with a gain and a map of channels.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qn/audio/qncopy.h"
#include "tools/qnwave/audio_input.h"
#include "tools/qnwave/dither.h"
#include "tools/qnwave/sample_types.h"

namespace qnwave {

// Output channel k is input channel map[k], or silence for kSilence.
using ChannelMap = std::vector<int>;
constexpr int kSilence = -1;

// "1,0": the input channels, counted from 0, that make up the output; L and R are 0 and 1, - is silence
// where that makes sense. Nothing, with the reason in `*mistake`, for a text that is none.
std::optional<ChannelMap> ParseChannelMap(std::string_view text, bool withSilence, std::string* mistake);

// False, and that is reported, for a map with channels that are not there.
bool HasChannels(const AudioSource& source, const ChannelMap& map);

// The factor of a gain in dB. Nothing, with the reason in `*mistake`, for a text that is none.
std::optional<double> ParseGain(std::string_view text, std::string* mistake);

class SampleConverter {
 public:
  // An empty map leaves the channels as they are. `mostFrames` is the longest block. The entries of the map
  // are below the source's channels. With dither the type is one of integers, and the blocks have to come in
  // their order. Floats that are infinite or no number become silence in integers, and stay in floats.
  SampleConverter(const AudioFormat& source, QNSAMPLETYPE type, const ChannelMap& map, float gain,
                  uint32_t mostFrames, const DitherSettings& dither = {});

  // The channels that come out.
  uint32_t Channels() const { return channels_; }

  // True when blocks come out as they go in, so that Convert need not be called.
  bool IsCopy() const { return isCopy_; }

  // `source` and `destination` do not overlap.
  void Convert(void* destination, const void* source, uint32_t frames);

  // The samples that became silence so far.
  uint64_t NotNumbers() const { return notNumbers_; }

 private:
  const void* Checked(const void* samples, size_t count);
  void Dither(uint32_t frames);

  AudioFormat source_;
  ChannelMap map_;
  float gain_;
  uint32_t channels_;
  bool isCopy_;
  bool isChecked_;
  QNCOPYCHANNELSFUNCTION move_ = nullptr;
  QNCOPYFUNCTION first_ = nullptr;
  QNCOPYFUNCTION second_ = nullptr;
  std::vector<uint8_t> mapped_;
  std::vector<uint8_t> checked_;
  std::vector<double> between_;
  std::unique_ptr<CQnDither> dither_;
  uint64_t notNumbers_ = 0;
};

}  // namespace qnwave
