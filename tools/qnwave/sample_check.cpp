#include "tools/qnwave/sample_check.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include "tools/qnwave/report.h"
#include "tools/qnwave/sample_types.h"

namespace qnwave {
namespace {

// Without their signs floats are in the order of their bits, infinities and what is no number last.
template <class Float, class Bits>
class Floats {
 public:
  Floats(const void* samples, size_t count) : samples_(static_cast<const uint8_t*>(samples)), count_(count) {}

  // Those beyond `most`: the sign of a difference, which vector instructions of any processor make.
  uint64_t CountBeyond(Float most) const {
    const Bits limit = std::bit_cast<Bits>(most);
    Bits found = 0;
    for (size_t i = 0; i < count_; ++i) found += (limit - (At(i) & ~kSign)) >> (8 * sizeof(Bits) - 1);
    return found;
  }

  // Makes those beyond `most` that, in `samples`, and what is no number or infinite, silence; how much that
  // was.
  static uint64_t Limit(void* samples, size_t count, Float most) {
    const Floats floats(samples, count);
    const Bits limit = std::bit_cast<Bits>(most);
    const Bits last = std::bit_cast<Bits>(std::numeric_limits<Float>::max());
    uint64_t found = 0;
    for (size_t i = 0; i < count; ++i) {
      Bits bits = floats.At(i);
      const Bits magnitude = bits & ~kSign;
      if (magnitude <= limit) continue;
      found += magnitude > last;
      bits = magnitude > last ? 0 : (bits & kSign) | limit;
      std::memcpy(static_cast<uint8_t*>(samples) + i * sizeof bits, &bits, sizeof bits);
    }
    return found;
  }

 private:
  static constexpr Bits kSign = ~(~Bits{0} >> 1);

  Bits At(size_t index) const {
    Bits bits;
    std::memcpy(&bits, samples_ + index * sizeof bits, sizeof bits);
    return bits;
  }

  const uint8_t* samples_;
  const size_t count_;
};

using Floats32 = Floats<float, uint32_t>;
using Floats64 = Floats<double, uint64_t>;

constexpr double kMostFloat64 = std::numeric_limits<double>::max();

float ToFloat(double most) {
  return static_cast<float>(std::min<double>(most, std::numeric_limits<float>::max()));
}

// Half a step beyond the rails is rounded to them.
template <class Sample, class Sum>
uint64_t CountBeyond(const void* samples, size_t count, int bits) {
  const auto* const values = static_cast<const Sample*>(samples);
  const double half = std::ldexp(0.5, 1 - bits);
  const auto high = static_cast<Sample>(1 - half);
  const auto low = static_cast<Sample>(-1 - half);
  Sum found = 0;
  for (size_t i = 0; i < count; ++i) found += static_cast<Sum>((values[i] >= high) | (values[i] < low));
  return found;
}

}  // namespace

uint64_t CountLouder(const void* samples, size_t count, QNSAMPLETYPE type, double most) {
  if (type == QNST_FLOAT32) return Floats32(samples, count).CountBeyond(ToFloat(most));
  return type == QNST_FLOAT64 ? Floats64(samples, count).CountBeyond(std::min(most, kMostFloat64)) : 0;
}

uint64_t LimitSamples(void* samples, size_t count, QNSAMPLETYPE type, double most) {
  if (CountLouder(samples, count, type, most) == 0) return 0;
  return type == QNST_FLOAT32 ? Floats32::Limit(samples, count, ToFloat(most))
                              : Floats64::Limit(samples, count, std::min(most, kMostFloat64));
}

uint64_t CountClipped(const void* samples, size_t count, QNSAMPLETYPE from, QNSAMPLETYPE type) {
  if (IsFloat(type)) return 0;
  const int bits = QnAudio_BitsFromSampleType(type);
  return from == QNST_FLOAT32 ? CountBeyond<float, uint32_t>(samples, count, bits)
                              : CountBeyond<double, uint64_t>(samples, count, bits);
}

void WarnOfSamples(std::string_view file, uint64_t notNumbers, uint64_t clipped) {
  if (notNumbers != 0) ReportWarning(file, {messages::NotNumbers, {Message::Number(notNumbers)}});
  if (clipped != 0) ReportWarning(file, {messages::SamplesClipped, {Message::Number(clipped)}});
}

}  // namespace qnwave
