// A sequence of sine values by a recurrence of two terms, without trigonometry but for a seed now and then.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qn/platform/types.h"

// An object belongs to one thread at a time.
class QN_API CSineOscillator {
 public:
  // The largest limit: the recurrence's rounding error stays bounded.
  static constexpr LONG kMostSteps = 0x40000;

  // For the values sin(index * step + phase), from `firstIndex` on. The oscillator seeds itself
  // anew when more than `limit` steps have followed a seed; 0 stands for kMostSteps, which larger ones are
  // held to.
  CSineOscillator(double step, double phase, LONG firstIndex, LONG limit);

  // Starts another sequence with the same limit.
  void Init(double step, double phase, LONG firstIndex);

  // sin(index * step + phase). The index that follows the last one costs two multiplications' worth; any
  // other seeds the oscillator, and the sequence goes on from there.
  double FindNthSine(LONG index);

  double step;
  double phase;
  double twoCos;  // 2 cos(step)
  double value;   // the last one found
  double s1;      // the value before `next`
  double s2;      // and the one before that
  int32_t next;   // the index that needs no seed
  int32_t sinceSeed;
  int32_t limit;

 private:
  void Seed(LONG index);
};

static_assert(sizeof(CSineOscillator) == 64 && offsetof(CSineOscillator, phase) == 8 &&
              offsetof(CSineOscillator, twoCos) == 16 && offsetof(CSineOscillator, value) == 24 &&
              offsetof(CSineOscillator, s1) == 32 && offsetof(CSineOscillator, s2) == 40 &&
              offsetof(CSineOscillator, next) == 48 && offsetof(CSineOscillator, sinceSeed) == 52 &&
              offsetof(CSineOscillator, limit) == 56);
