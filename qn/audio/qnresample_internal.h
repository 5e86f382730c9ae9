// The state of a stream that is resampled, and what the files of the resampler share.
#pragma once

#include <algorithm>
#include <cstring>
#include <memory>

#include "qn/audio/qnresample.h"
#include "qn/dsp/qniir.h"

namespace qn {

constexpr int kSincTaps = 25;
constexpr int kSincPrime = 13;  // frames that the history holds before the first output
constexpr int kSincPoints = 1000;

}  // namespace qn

// Frame -1 of a buffer is the last frame of the buffer before.
struct tQNRESAMPLEINSTANCE {
  QNSAMPLETYPE sampleType;
  int32_t channels;
  int32_t srcRate;
  int32_t dstRate;
  double ratio;
  double position;  // of the next output in the next buffer; negative before its first frame
  double step;      // source frames for each output
  // 32 samples, or as many as there are channels; and as many in which the next one is gathered.
  std::unique_ptr<double[]> prevFrame;
  std::unique_ptr<CQnIIR> iir;  // of float audio
  bool keepSource;
  int64_t srcPos;
  int64_t dstPos;
  int64_t srcOffset;
  int64_t dstOffset;
  uint32_t flagsHigh;  // told by the host, without effect
  uint32_t filterOrder;
  uint32_t quality;
  bool countIsDst;
  bool needsPrime;
  double tableScale;               // points of the sinc table for a frame of distance
  double ringPos;                  // time of the frame in the middle of the ring, on the clock of outputs
  std::unique_ptr<double[]> ring;  // 25 samples for each channel, newest first from ringIndex on
  int32_t ringIndex;
  int32_t ringFill;  // real frames in the ring, for priming and for the flush
  int32_t wrap[27];  // (i - 1) mod 25

  bool IsFloat() const { return sampleType == QNST_FLOAT32 || sampleType == QNST_FLOAT64; }
  bool IsFiltering() const { return iir && iir->getNumBiquads() != 0 && IsFloat(); }
};

namespace qn {

inline size_t PrevFrameSize(const tQNRESAMPLEINSTANCE& instance) {
  return std::max<size_t>(static_cast<size_t>(instance.channels), 32);
}

// 2 to 6 for the filter bits that stand for a low-pass, else 0.
DWORD FilterOrder(const tQNRESAMPLEINSTANCE& instance);

// Filters frames of a float type; `out` may be `in`.
void FilterFrames(tQNRESAMPLEINSTANCE& instance, QNSAMPLETYPE type, void* out, const void* in, LONG frames);

// Rounds to nearest even as the copy kernels do, and keeps the low 32 bits.
int32_t RoundByMagic(double value);

// The linear kernels: `dstFrames` outputs at most from `srcFrames` frames. The frames produced.
LONG ResampleLinear(tQNRESAMPLEINSTANCE& instance, void* dst, LONG dstFrames, const void* src,
                    LONG srcFrames);

// Makes the sinc table unless it is there; false without memory.
bool MakeSincTable();
void ReleaseSincTable();

}  // namespace qn
