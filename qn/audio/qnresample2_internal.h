// The inside of the second resampler: the clock of a stream, the instance, and the kernels of its modes.
#pragma once

#include <bit>
#include <cstdint>
#include <memory>
#include <new>

#include "qn/audio/qncopy.h"
#include "qn/audio/qncopy_rule.h"
#include "qn/audio/qnresample2.h"
#include "qn/dsp/qniir.h"

namespace qn {

// The whole part of a number from 0 to below 2^31, by the magic addition. From 0.999999985 on it is already
// the next number, so a fraction can lie a little below 0; hosts know the sums that come of it.
inline int32_t WholePart(double x) {
  return static_cast<int32_t>(std::bit_cast<uint64_t>(x - 0.499999985 + kRoundingMagic));
}

// The time of the next output: `load` frames must be taken from the source for its whole part; the rest lies
// in `phase`, or in `position` when the ratio is no fraction.
struct ResampleClock {
  bool rational;
  int64_t srcUnits;  // the fraction srcUnits / dstUnits is the step; -1 when unknown
  int64_t dstUnits;
  int64_t wholeStep;  // of it, and what is left in units
  int64_t stepUnits;
  int64_t phase;  // 0 to below dstUnits
  double step;
  double position;
  int64_t load;

  double Fraction() const {
    return rational ? static_cast<double>(phase) / static_cast<double>(dstUnits) : position;
  }

  // To the next output. The whole part is taken out at once, so that the rounding of the real numbers does
  // not depend on how a stream is cut into calls.
  void Advance() {
    if (rational) {
      phase += stepUnits;
      const bool carries = phase >= dstUnits;
      phase -= carries ? dstUnits : 0;
      load += wholeStep + carries;
    } else {
      const double time = position + step;
      const int32_t whole = WholePart(time);
      load += whole;
      position = time - whole;
    }
  }

  // Over `outputs` of a rational clock. The products stay below 2^63 as both factors are 32-bit numbers.
  void AdvanceBy(int64_t outputs) {
    const int64_t units = phase + outputs * srcUnits;
    load += units / dstUnits;
    phase = units % dstUnits;
  }

  // `load` after `outputs` of a rational clock.
  int64_t LoadAfter(int64_t outputs) const { return load + (phase + outputs * srcUnits) / dstUnits; }
};

// How a mode begins: the frames that it takes before its first output, of which the same number is made up
// at the end.
constexpr int kCubicDelay = 3, kSincDelay = 13;
constexpr size_t kSincTaps = 25;
constexpr size_t kSincPoints = 4001;

// What is the same for every turn of a rational clock: the outputs of one turn in groups whose vectors are
// filled from the same places of the source, with the same coefficients, each time round.
struct PhaseCycle {
  int64_t srcUnits = 0;              // of the clock that this belongs to
  int64_t dstUnits = 0;              //
  uint32_t group = 0;                // outputs of a group
  uint32_t period = 0;               // outputs of a turn; the last group reaches over its end
  uint32_t srcPeriod = 0;            // source frames of a turn
  uint32_t at = 0;                   // place of the clock in the turn
  int64_t phase = -1;                // of the clock when it was there
  std::unique_ptr<uint32_t[]> base;  // source frame of each group's first output, counted from the turn's

  uint32_t Groups() const { return (period + group - 1) / group; }

  // Lays out the turn of a clock; false when it is longer than `longest` or there is no memory.
  bool Lay(const ResampleClock& clock, uint32_t outputsOfGroup, uint32_t longest);

  // Finds the clock's place; false when it is in none, as its phase is not one of the turn's.
  bool Find(const ResampleClock& clock);

  bool BelongsTo(const ResampleClock& clock) const {
    return srcUnits == clock.srcUnits && dstUnits == clock.dstUnits;
  }
  void MoveTo(uint64_t place, const ResampleClock& clock) {
    at = static_cast<uint32_t>(place % period);
    phase = clock.phase;
  }
};

// Memory that vectors are loaded from.
struct AlignedDelete {
  void operator()(double* block) const { ::operator delete (block, std::align_val_t{64}); }
};
using AlignedDoubles = std::unique_ptr<double[], AlignedDelete>;
inline AlignedDoubles AllocateAligned(size_t count) {
  return AlignedDoubles(
      static_cast<double*>(::operator new (count * sizeof(double), std::align_val_t{64}, std::nothrow)));
}

// The taps of the sinc: row r of a group holds, for each of its 8 outputs, the tap that meets the frame r
// places before the newest of the group; 0 where the output does not reach.
struct SincCycle : PhaseCycle {
  uint32_t span = 0;  // source frames from the first to the last output of a group, at most
  uint32_t rows = 0;
  AlignedDoubles taps;
};

// The fractions of the linear mode, for each of the 8 samples of a group, and where its two neighbours are:
// 8 places of the left ones and 8 of the right ones, in samples from the group's first.
struct LinearCycle : PhaseCycle {
  AlignedDoubles fractions;
  std::unique_ptr<int32_t[]> places;
};

}  // namespace qn

struct tQNRESAMPLE2INSTANCE {
  QNSAMPLETYPE sampleType;
  LONG channels;
  DWORD mode;
  DWORD filter;
  DWORD filterFlag;
  qn::ResampleClock clock;
  double ratio;
  // The mode whose history is held, 0 for none: a call of another mode begins with an empty one.
  DWORD primedMode;
  // kSincTaps values for each channel, of which the last ones are the newest frames.
  std::unique_ptr<double[]> history;
  // Of the sinc, with one point more so that the last interval has an end.
  std::unique_ptr<double[]> table;
  int64_t flushLeft;
  QNSAMPLETYPE workType;
  size_t workFrameBytes;
  QNCOPYFUNCTION toWork;
  QNCOPYFUNCTION fromWork;
  std::unique_ptr<uint8_t[]> inBuffer;
  std::unique_ptr<uint8_t[]> outBuffer;
  size_t inBytes;
  size_t outBytes;
  int64_t srcPos;
  int64_t dstPos;
  std::unique_ptr<CQnIIR> iir;
  qn::SincCycle sinc;
  qn::LinearCycle linear;

  size_t Channels() const { return static_cast<size_t>(channels); }
};

namespace qn {

// One call of a kernel: what it may use, and what it used.
struct ResampleCall {
  void* dst;
  uint64_t room;
  const void* src;
  uint64_t supply;
  bool flush;  // the caller has nothing more to supply
  uint64_t produced;
  uint64_t consumed;
};

// The kernels. The types of the linear one are 16, 17, 19, 48, 32 and 33; the others have floats and doubles.
void ResampleLinear(tQNRESAMPLE2INSTANCE& instance, ResampleCall& call);
void ResampleCubic(tQNRESAMPLE2INSTANCE& instance, ResampleCall& call);
void ResampleSinc(tQNRESAMPLE2INSTANCE& instance, ResampleCall& call);

}  // namespace qn
