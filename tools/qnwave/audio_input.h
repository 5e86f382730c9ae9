// The samples of a file: any container that the library reads, or raw samples of a stated format.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "qn/platform/types.h"
#include "tools/qnwave/file.h"
#include "tools/qnwave/layout.h"
#include "tools/qnwave/sample_types.h"

namespace qnwave {

// Where the samples of a file are, found once; any number of readers work from it.
struct AudioSource {
  std::string name;
  AudioFormat format;
  uint64_t dataStart = 0;
  uint64_t frames = 0;

  uint64_t OffsetOf(uint64_t frame) const { return dataStart + frame * format.FrameBytes(); }
};

enum class OpenResult { kOk, kFailed, kDamaged };

// Finds the samples of a file that has been laid out. False, with nothing reported, when they cannot be read.
bool LocateAudio(const std::string& name, const Layout& layout, AudioSource* source);

// Finds the samples of a wave file and reports why there are none to be had. A file that states more samples
// than it holds is read to its end, with a warning; one whose samples are not counted at all is damaged. With
// `toEnd` all bytes from the first sample on are samples, whatever the header states.
OpenResult OpenAudio(const std::string& name, bool toEnd, AudioSource* source);

// The same for headerless samples from `offset` on.
OpenResult OpenRawAudio(const std::string& name, const AudioFormat& format, uint64_t offset,
                        AudioSource* source);

// False, and that is reported, when the target is the recording, which cannot be made again; so --force does
// not count for it, whatever links lead there.
bool IsOtherFile(const AudioSource& source, const std::string& target);

// Reads frames of a source. One reader belongs to one thread.
class AudioReader {
 public:
  // Opens the file again.
  bool Open(const AudioSource& source);

  // Reads exactly `frames` frames from `first` on. False when the file does not give them any more: the
  // system's error is in GetLastError.
  bool Read(uint64_t first, void* buffer, uint32_t frames) const;

 private:
  File file_;
  uint64_t dataStart_ = 0;
  uint32_t frameBytes_ = 0;
};

}  // namespace qnwave
