// Audio on its way through an effect into a new file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/qnwave/audio_input.h"
#include "tools/qnwave/audio_output.h"
#include "tools/qnwave/dither.h"
#include "tools/qnwave/sample_reader.h"
#include "tools/qnwave/sample_writer.h"
#include "tools/qnwave/target.h"

namespace qnwave {

// What makes other samples of samples, as a stream.
class Effect {
 public:
  virtual ~Effect() = default;

  // Works in place on interleaved frames; how a stream is cut into calls makes no audible difference.
  virtual void Process(double* samples, uint32_t frames) = 0;

  // The frames that the output is late.
  virtual uint32_t Delay() const { return 0; }
};

// One stream through an effect into a target of the same channels. A target that is longer than the source
// gets what the effect still holds at its end, as does one that is as long, of an effect whose delay is taken
// away.
class EffectRun {
 public:
  // All are there until the end.
  EffectRun(const AudioSource& source, const Target& target, const DitherSettings& dither, bool keepsDelay,
            Effect* effect);

  // Opens both files; reports a failure.
  bool Prepare(bool overwrite);

  // Writes all frames under a progress bar; false after an interrupt, or a failure, which is reported.
  bool Write(bool quiet);

  // The file that the target's name leads to, as that of an OutputFile.
  std::string Resolved() const { return output_.Resolved(); }

  // Moves the target to its place; reports a failure.
  bool Commit() { return output_.Commit(); }

  // Tells what there was to warn of.
  void Warn() const;

 private:
  // Sends the frames from `at` on through the effect and writes those that come out, `late` frames before.
  bool WriteBlock(uint64_t at, uint32_t frames, uint64_t late);
  // Keeps a failure until the progress bar is gone. Always false.
  bool Fail(const std::string& file, HRESULT status);

  const AudioSource& source_;
  const Target& target_;
  const bool keepsDelay_;
  Effect& effect_;
  const uint32_t blockFrames_;
  SampleReader reader_;
  AudioOutput output_;
  SampleWriter writer_;
  std::vector<double> block_;
  std::string failedFile_;
  HRESULT failure_ = S_OK;
};

}  // namespace qnwave
