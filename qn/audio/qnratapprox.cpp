// Rational approximation by continued fractions, in exact integers.
#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>

#include "qn/audio/qnresample.h"

namespace {

constexpr int kRates[] = {8000, 11025, 16000, 22050, 32000, 44100, 48000, 88200, 96000, 176400, 192000};
constexpr size_t kRateCount = std::size(kRates);
constexpr int kMax = std::numeric_limits<int>::max();

// Every quotient of two usual rates; row by row.
constexpr auto kQuotients = [] {
  std::array<double, kRateCount * kRateCount> quotients{};
  for (size_t i = 0; i < quotients.size(); ++i)
    quotients[i] = static_cast<double>(kRates[i / kRateCount]) / kRates[i % kRateCount];
  return quotients;
}();

// A fraction of at most 1, or a convergent of one.
struct Fraction {
  uint64_t numerator;
  uint64_t denominator;
};

// A magnitude, inverted if it is above 1.0. Low bits of the smaller side go where the larger one would
// overflow; 0 over 0 is what is left of a magnitude that is too far from 1.0.
Fraction FromMagnitude(double magnitude) {
  constexpr int kMantissaBits = 52, kRoom = 11;
  constexpr uint64_t kHiddenBit = uint64_t{1} << kMantissaBits;
  const auto bits = std::bit_cast<uint64_t>(magnitude);
  const int exponent = static_cast<int>(bits >> kMantissaBits) - 1023;
  Fraction fraction{(bits & (kHiddenBit - 1)) | kHiddenBit, kHiddenBit};
  if (magnitude > 1.0) std::swap(fraction.numerator, fraction.denominator);
  const int distance = std::abs(exponent);
  if (distance > kRoom + kMantissaBits) return {0, 0};
  if (distance > kRoom) {
    fraction.numerator >>= distance - kRoom;
    fraction.denominator >>= distance - kRoom;
  }
  fraction.denominator <<= distance;
  return fraction;
}

// a * b <= c * d, in full.
bool IsAtMost(uint64_t a, uint64_t b, uint64_t c, uint64_t d) {
  __extension__ using Wide = unsigned __int128;
  return Wide{a} * b <= Wide{c} * d;
}

// The last convergent whose denominator is within the limit, or one with a smaller last partial quotient if
// that is nearer.
Fraction Expand(Fraction rest, uint64_t limit) {
  Fraction before{0, 1}, last{1, 0};
  while (rest.denominator != 0) {
    uint64_t quotient = rest.numerator / rest.denominator;
    uint64_t remainder = rest.numerator % rest.denominator;
    // The first quotient, of a fraction of at most 1, meets no limit: `last` is 1 over 0 for it alone.
    if (last.denominator != 0 && quotient > (limit - before.denominator) / last.denominator) {
      const uint64_t most = (limit - before.denominator) / last.denominator;
      if (most < (quotient + 1) / 2) break;
      // Half of the quotient is nearer only if the rest of the expansion is behind what came before.
      if (most * 2 == quotient && IsAtMost(rest.denominator, before.denominator, remainder, last.denominator))
        break;
      quotient = most;
      remainder = 0;
    }
    const Fraction next{quotient * last.numerator + before.numerator,
                        quotient * last.denominator + before.denominator};
    before = last;
    last = next;
    rest = {rest.denominator, remainder};
  }
  return last;
}

}  // namespace

LONG QnRatApprox(double value, int limit, int useTable, int* numerator, int* denominator, double* error) {
  if (error) *error = 0;
  if (!numerator || !denominator) return 0;
  if (useTable) {
    const auto found = std::find(kQuotients.begin(), kQuotients.end(), value);
    if (found != kQuotients.end()) {
      const size_t place = static_cast<size_t>(found - kQuotients.begin());
      *numerator = kRates[place / kRateCount];
      *denominator = kRates[place % kRateCount];
      return 1;
    }
  }
  if (value == 0) {
    *numerator = 0;
    *denominator = 1;
    return 0;
  }
  const double magnitude = std::fabs(value);
  double largest = kMax;
  if (limit != 0) largest = std::clamp(std::max(static_cast<double>(limit), magnitude), 1.0, largest);
  const bool inverted = magnitude > 1.0;
  Fraction fraction = FromMagnitude(magnitude);
  if (fraction.denominator == 0) return 0;
  fraction = Expand(fraction, static_cast<uint64_t>(largest));
  if (inverted) std::swap(fraction.numerator, fraction.denominator);
  if (fraction.denominator == 0) return 0;
  const int whole = static_cast<int>(fraction.numerator);
  *numerator = value < 0 ? -whole : whole;
  *denominator = static_cast<int>(fraction.denominator);
  if (error) *error = value - static_cast<double>(*numerator) / *denominator;
  return 1;
}
