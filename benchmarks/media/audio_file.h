// A long wave file on the disk, in the page cache once it is made, removed at the end.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "qn/audio/qnwaveformat.h"

namespace qnbench {

constexpr int kRate = 44'100;
constexpr int kChannels = 2;

class AudioFile {
 public:
  // Noise of `seconds` seconds in stereo.
  AudioFile(QNSAMPLETYPE type, int seconds);
  ~AudioFile();
  AudioFile(const AudioFile&) = delete;
  AudioFile& operator=(const AudioFile&) = delete;

  std::string Native() const { return path_.string(); }
  std::u16string Name() const;
  const WAVEFORMATEX& Format() const { return format_; }
  int64_t Frames() const { return frames_; }
  size_t Bytes() const { return static_cast<size_t>(frames_) * format_.nBlockAlign; }
  uint64_t DataStart() const { return dataStart_; }

 private:
  std::filesystem::path path_;
  WAVEFORMATEX format_;
  int64_t frames_;
  uint64_t dataStart_ = 0;
};

// Ten minutes, made at the first use: of 16-bit samples or floats.
const AudioFile& TenMinutes(QNSAMPLETYPE type);

}  // namespace qnbench
