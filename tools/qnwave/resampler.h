// Audio at another sample rate, over the library's streaming resampler.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qn/audio/qncopy.h"
#include "qn/audio/qnresample2.h"
#include "tools/common/options.h"

namespace qnwave {

constexpr qntool::Option kQualityOption = {
    "quality", "NAME",
    "how --rate computes: sinc (of linear phase), cubic, filtered (straight lines and a low-pass) or linear "
    "(straight lines alone, quick and dull) (default: sinc)"};

// A change of rate, and what follows from it for a whole file. Time 0 stays where it is, to half a frame of
// the slower rate, and an instant has its frame where the rates say.
struct RateChange {
  // More than any two rates of audio lie apart; the low-pass holds so far.
  static constexpr uint32_t kMostTimes = 1000;

  // Each two have a table of their own.
  static constexpr uint32_t kMostChannels = 256;

  uint32_t from = 1;
  uint32_t to = 1;
  DWORD flags = 0;
  // Whether an FIR low-pass goes ahead of the resampler, in place of the recursive one that the flags have.
  bool hasFir = false;

  bool IsNone() const { return from == to; }
  bool IsPossible() const;

  // The frames that come of `frames`, rounded to the nearest number, a half up.
  uint64_t FramesAfter(uint64_t frames) const;

  // Frames before the change that at least give as many as these.
  uint64_t FramesBefore(uint64_t frames) const { return frames / to * from + (frames % to + 1) * from / to; }

  // The frames of a whole number of turns of both rates, at least `least`: a stream that begins behind so
  // many has the same phases.
  uint64_t WholeTurns(uint64_t least) const;

  // The frames in front of a place from which a stream has forgotten how it began: the recursive low-pass
  // has fallen far below the last bit of a double, the FIR one is full.
  uint64_t RunUp() const;

  // The output frames that the recursive low-pass is late for low frequencies, to the nearest.
  uint32_t Delay() const;

  // How many frames the FIR low-pass makes of each: 2 where the resampler's own kernel, which is good up to
  // a quarter of its rate, would have to reach higher.
  uint32_t Oversampling() const;

  // Of the FIR low-pass, an odd number. It is late by half of the others, in the frames that it makes.
  uint32_t Taps() const;
  uint32_t Late() const { return hasFir ? (Taps() - 1) / 2 : 0; }

  // In hertz; from there to half the lower rate it falls.
  double Corner() const;
};

// The flags of a quality; false with the mistake reported.
bool ChooseQuality(const char* command, const qntool::Arguments& arguments, RateChange* change);

// Interleaved floats or doubles of any number of channels.
class Resampler {
 public:
  // `blockFrames` is the most that a call takes or gives.
  Resampler(const RateChange& change, QNSAMPLETYPE type, uint32_t channels, uint32_t blockFrames);

  // Starts a stream.
  HRESULT Start();

  // Goes on with it: takes up to `frames` and gives up to `room`.
  HRESULT Process(const void* in, uint32_t frames, uint32_t* taken, void* out, uint32_t room,
                  uint32_t* given);

 private:
  struct Close {
    void operator()(tQNRESAMPLE2INSTANCE* instance) const { QnAudio_Resample2Close(instance); }
  };

  // The low-pass knows two channels, so more of them are done in pairs.
  static constexpr uint32_t kGroup = 2;
  uint32_t GroupChannels(size_t group) const;

  RateChange change_;
  QNSAMPLETYPE type_;
  uint32_t channels_;
  QNCOPYCHANNELSFUNCTION move_;
  std::vector<std::unique_ptr<tQNRESAMPLE2INSTANCE, Close>> instances_;
  std::vector<uint8_t> in_;
  std::vector<uint8_t> out_;
};

}  // namespace qnwave
