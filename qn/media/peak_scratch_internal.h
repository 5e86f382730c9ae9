// The blocks that threads read peaks and audio through.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qn {

constexpr size_t kPeakScratchBytes = 0x20000;

struct PeakScratchBlock;

// The calling thread's block while this lives. A second one that lives beside it on the same thread, as when
// a reader of the host asks for peaks itself, has another block.
class PeakScratch {
 public:
  PeakScratch();
  ~PeakScratch();
  PeakScratch(const PeakScratch&) = delete;
  PeakScratch& operator=(const PeakScratch&) = delete;

  // kPeakScratchBytes, or null when there is no memory.
  uint8_t* Bytes() const;

 private:
  PeakScratchBlock* block_;
};

// What the library does when it is detached. A block that is asked for after it makes a new list.
void ReleasePeakScratch();

}  // namespace qn
