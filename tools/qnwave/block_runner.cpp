#include "tools/qnwave/block_runner.h"

#include <algorithm>
#include <new>
#include <system_error>
#include <thread>

#include "tools/common/interrupt.h"

namespace qnwave {

void BlockRunner::Run(bool inParallel, const std::string& file, const std::function<void()>& work) {
  const auto safely = [&] {
    try {
      work();
    } catch (const std::bad_alloc&) {
      Fail(file, E_OUTOFMEMORY);
    }
  };
  std::thread helper;
  if (inParallel && std::thread::hardware_concurrency() > 1) {
    try {
      helper = std::thread(safely);
    } catch (const std::system_error&) {
      // One thread does the work too.
    }
  }
  safely();
  if (helper.joinable()) helper.join();
}

bool BlockRunner::Next(uint64_t* first, uint64_t* frames) {
  if (!GoesOn()) return false;
  *first = next_.fetch_add(blockFrames_);
  if (*first >= frames_) return false;
  *frames = std::min(blockFrames_, frames_ - *first);
  return true;
}

bool BlockRunner::GoesOn() const {
  return failure_ == S_OK && qntool::InterruptSignal() == 0;
}

void BlockRunner::Fail(const std::string& file, HRESULT status) {
  HRESULT none = S_OK;
  if (failure_.compare_exchange_strong(none, status)) failedFile_ = file;
}

}  // namespace qnwave
