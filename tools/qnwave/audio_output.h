// A new file of samples that appears under its name only when it is whole.
#pragma once

#include <cstdint>
#include <string>

#include "qn/platform/types.h"
#include "tools/common/output_file.h"
#include "tools/qnwave/container.h"
#include "tools/qnwave/sample_types.h"

namespace qnwave {

class AudioOutput {
 public:
  // Starts a file of exactly `frames` frames and reports a failure. A target that exists is refused without
  // `overwrite`. kUnknown is a file without a header.
  bool Create(const std::string& target, Container container, const AudioFormat& format, uint64_t frames,
              bool overwrite);

  // The place of a frame in the file.
  uint64_t OffsetOf(uint64_t frame) const { return dataStart_ + frame * format_.FrameBytes(); }

  // Writes frames from `first` on. Several threads may write at once. The failure is not reported here.
  HRESULT Write(uint64_t first, const void* frames, uint32_t count);

  // The open file, for a stream to write frames from OffsetOf(0) on.
  int Descriptor() const { return file_.Descriptor(); }
  // As that of an OutputFile.
  std::string Resolved() const { return file_.Resolved(); }

  // Ends the file and moves it to its target; reports a failure.
  bool Commit() { return file_.Commit(); }

 private:
  bool WriteHeader(Container container, uint64_t frames);

  qntool::OutputFile file_;
  AudioFormat format_;
  uint64_t dataStart_ = 0;
  uint64_t fileBytes_ = 0;
};

}  // namespace qnwave
