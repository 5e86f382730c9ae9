// The vector kernels of 16-bit from float and float from 16-bit: scalar samples up to an aligned address,
// blocks of four with a product in single precision, scalar samples for the rest.
#include <algorithm>

#include "qn/audio/qncopy_internal.h"
#include "qn/audio/qncopy_rule.h"
#include "qn/kernel/qncpu_internal.h"

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

namespace qn {

#if defined(__x86_64__)

namespace {

constexpr unsigned kRoundingControl = 0x6000;
constexpr unsigned kFlushDenormals = 0x8040;  // flush-to-zero and denormals-are-zero

// The control word of a kernel's run: round to nearest, and no time lost on denormals where the processor
// can do without them.
class ControlWord {
 public:
  ControlWord() : saved_(_mm_getcsr()), flush_(DetectedDaz() ? kFlushDenormals : 0) {
    _mm_setcsr((saved_ & ~kRoundingControl) | flush_);
  }
  // A caller's word of 0 is not one to return to.
  ~ControlWord() {
    const bool restore = (saved_ & 0xFFFF) != 0;
    _mm_setcsr(restore ? saved_ : (_mm_getcsr() & ~kRoundingControl) | flush_);
  }
  ControlWord(const ControlWord&) = delete;
  ControlWord& operator=(const ControlWord&) = delete;

 private:
  const unsigned saved_;
  const unsigned flush_;
};

// Samples of four bytes before the next address that is a multiple of 16; all of them when there is none.
size_t HeadSamples(const void* address, size_t samples) {
  const uintptr_t at = reinterpret_cast<uintptr_t>(address);
  return at % 4 != 0 ? samples : std::min(samples, size_t{(16 - at % 16) % 16 / 4});
}

template <int kDst, int kSrc>
void CopyStepped(void* dst, const void* src, LONG samples, float scale) {
  if (samples <= 0) return;
  const CopyPair& pair = FindCopyPair(SampleFormIndex(kDst), SampleFormIndex(kSrc));
  const size_t count = static_cast<size_t>(samples);
  uint8_t* const to = static_cast<uint8_t*>(dst);
  const uint8_t* const from = static_cast<const uint8_t*>(src);
  // Only the scalar kernel widens in place.
  const bool overlap = to < from + count * pair.srcBytes && from < to + count * pair.dstBytes;
  if (kDst == QNST_FLOAT32 && overlap) return CopySamples(pair, dst, src, count, scale);

  const ControlWord control;
  const size_t head = HeadSamples(kDst == QNST_FLOAT32 ? dst : src, count);
  const size_t blocks = (count - head) / 4 * 4, tail = count - head - blocks;
  const auto scalar = [&](size_t at, size_t n) {
    CopySamples(pair, to + at * pair.dstBytes, from + at * pair.srcBytes, n, scale);
  };
  scalar(0, head);
  CopySamplesStepped(pair, to + head * pair.dstBytes, from + head * pair.srcBytes, blocks, scale);
  scalar(head + blocks, tail);
}

}  // namespace

QNCOPYFUNCTION SteppedKernel(QNSAMPLETYPE dst) {
  return dst == QNST_FLOAT32 ? CopyStepped<QNST_FLOAT32, QNST_PCM16> : CopyStepped<QNST_PCM16, QNST_FLOAT32>;
}

#else

QNCOPYFUNCTION SteppedKernel(QNSAMPLETYPE) {
  return nullptr;
}

#endif

}  // namespace qn
