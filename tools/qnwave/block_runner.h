// The blocks of a long file, handed out to one thread or to two.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "qn/platform/types.h"

namespace qnwave {

class BlockRunner {
 public:
  BlockRunner(uint64_t frames, uint64_t blockFrames) : frames_(frames), blockFrames_(blockFrames) {}

  // Calls `work`, which takes blocks until there are none: with `inParallel` in a second thread at its side
  // too, so that the one's system calls and the other one's sums overlap. Returns when all is done, or after
  // a failure or an interrupt. A lack of memory is a failure about `file`.
  void Run(bool inParallel, const std::string& file, const std::function<void()>& work);

  // The next block; false when there is none, or the run has ended before.
  bool Next(uint64_t* first, uint64_t* frames);

  // False when the run has failed or was interrupted.
  bool GoesOn() const;

  // Ends the run.
  void Fail(const std::string& file, HRESULT status);

  // The first failure and the file that it is about.
  HRESULT Status() const { return failure_; }
  const std::string& FailedFile() const { return failedFile_; }

 private:
  const uint64_t frames_;
  const uint64_t blockFrames_;
  std::atomic<uint64_t> next_{0};
  std::atomic<HRESULT> failure_{S_OK};
  std::string failedFile_;
};

}  // namespace qnwave
