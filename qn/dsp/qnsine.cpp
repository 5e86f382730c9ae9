#include "qn/dsp/qnsine.h"

#include <algorithm>
#include <cmath>

CSineOscillator::CSineOscillator(double newStep, double newPhase, LONG firstIndex, LONG newLimit)
    : value(), limit(newLimit == 0 ? kMostSteps : std::min(newLimit, kMostSteps)) {
  Init(newStep, newPhase, firstIndex);
}

void CSineOscillator::Init(double newStep, double newPhase, LONG firstIndex) {
  step = newStep;
  phase = newPhase;
  Seed(firstIndex);
}

void CSineOscillator::Seed(LONG index) {
  next = index;
  sinceSeed = 0;
  twoCos = 2 * std::cos(step);
  s2 = std::sin((index - 2.0) * step + phase);
  s1 = std::sin((index - 1.0) * step + phase);
}

double CSineOscillator::FindNthSine(LONG index) {
  if (sinceSeed > limit || index != next) Seed(index);
  value = s1 * twoCos - s2;
  s2 = s1;
  s1 = value;
  // No index follows the highest one: whichever comes next needs a seed.
  if (next == INT32_MAX) {
    sinceSeed = INT32_MAX;
  } else {
    ++next;
    ++sinceSeed;
  }
  return value;
}
