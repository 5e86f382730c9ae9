#include "tools/qnwave/sample_check.h"

#include <cmath>
#include <cstring>

#include "tools/qnwave/report.h"
#include "tools/qnwave/sample_types.h"

namespace qnwave {
namespace {

// One more in a full exponent sets the bit of the sign: a sum that vector instructions of any processor make.
template <class Bits, Bits kExponent>
uint64_t Count(const void* samples, size_t count) {
  constexpr Bits kOne = kExponent & -kExponent;
  Bits found = 0;
  for (size_t i = 0; i < count; ++i) {
    Bits bits;
    std::memcpy(&bits, static_cast<const uint8_t*>(samples) + i * sizeof bits, sizeof bits);
    found += ((bits & kExponent) + kOne) >> (8 * sizeof bits - 1);
  }
  return found;
}

template <class Bits, Bits kExponent>
void Silence(void* samples, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    uint8_t* const place = static_cast<uint8_t*>(samples) + i * sizeof(Bits);
    Bits bits;
    std::memcpy(&bits, place, sizeof bits);
    bits = (bits & kExponent) == kExponent ? 0 : bits;
    std::memcpy(place, &bits, sizeof bits);
  }
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

constexpr uint32_t kExponent32 = 0x7F800000;
constexpr uint64_t kExponent64 = 0x7FF0000000000000;

}  // namespace

uint64_t CountNotNumbers(const void* samples, size_t count, QNSAMPLETYPE type) {
  if (type == QNST_FLOAT32) return Count<uint32_t, kExponent32>(samples, count);
  return type == QNST_FLOAT64 ? Count<uint64_t, kExponent64>(samples, count) : 0;
}

uint64_t SilenceNotNumbers(void* samples, size_t count, QNSAMPLETYPE type) {
  const uint64_t found = CountNotNumbers(samples, count, type);
  if (found == 0) return 0;
  type == QNST_FLOAT32 ? Silence<uint32_t, kExponent32>(samples, count)
                       : Silence<uint64_t, kExponent64>(samples, count);
  return found;
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
