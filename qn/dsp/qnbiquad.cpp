// One second-order stage from musical parameters, and its run over one channel.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <numbers>

#include "qn/dsp/qniir.h"

namespace {

// b0, b1, b2, a0, a1, a2 of a stage whose feedback signs subtract.
struct Coefficients {
  double b0, b1, b2, a0, a1, a2;
};

bool FindCoefficients(const tQNBIQUAD_PARAMETERS& parameters, Coefficients& out) {
  constexpr double kLeast = 0.1f;  // a float's 0.1, a little above it
  const double frequency = std::clamp(parameters.frequency / parameters.sampleRate, 0.0001, 0.4999);
  const double gain = std::clamp(parameters.gain, -100.0, 25.0);
  const double bandwidth = std::clamp(parameters.bandwidth, kLeast, 5.0);
  const double slope = std::clamp(parameters.slope, kLeast, 1.0);
  const double A = std::pow(10.0, gain / 40);
  const double w = 2 * std::numbers::pi * frequency;
  const double s = std::sin(w);
  const double c = std::cos(w);
  // Beside Nyquist the hyperbolic sine overflows; the quotients are at their limits long before.
  const double wide = std::min(std::sinh(0.34657359027997 * bandwidth * w / s), 1e300);
  const double alpha = s * (parameters.type < 2 ? 0.70710678118655 : wide);
  const double beta = std::sqrt((A * A + 1) / slope - (A - 1) * (A - 1)) * s;
  switch (parameters.type) {
    case 0:
      out = {(1 - c) / 2, 1 - c, (1 - c) / 2, 1 + alpha, -2 * c, 1 - alpha};
      return true;
    case 1:
      out = {(1 + c) / 2, -1 - c, (1 + c) / 2, 1 + alpha, -2 * c, 1 - alpha};
      return true;
    case 2:
      out = {alpha, 0, -alpha, 1 + alpha, -2 * c, 1 - alpha};
      return true;
    case 3:
      out = {1, -2 * c, 1, 1 + alpha, -2 * c, 1 - alpha};
      return true;
    case 4:
      out = {1 + alpha * A, -2 * c, 1 - alpha * A, 1 + alpha / A, -2 * c, 1 - alpha / A};
      return true;
    case 5:
      out = {A * (A + 1 - (A - 1) * c + beta), 2 * A * (A - 1 - (A + 1) * c),
             A * (A + 1 - (A - 1) * c - beta), A + 1 + (A - 1) * c + beta,
             -2 * (A - 1 + (A + 1) * c),       A + 1 + (A - 1) * c - beta};
      return true;
    case 6:
      out = {A * (A + 1 + (A - 1) * c + beta), -2 * A * (A - 1 + (A + 1) * c),
             A * (A + 1 + (A - 1) * c - beta), A + 1 - (A - 1) * c + beta,
             2 * (A - 1 - (A + 1) * c),        A + 1 - (A - 1) * c - beta};
      return true;
    default:
      return false;
  }
}

// State below 2 to the power of -32 has decayed and becomes 0.
double Flushed(double state) {
  constexpr uint32_t kExponent = 0x7FF00000, kSmallest = 0x3DF00000;
  return (std::bit_cast<uint64_t>(state) >> 32 & kExponent) < kSmallest ? 0 : state;
}

template <class T>
void Run(T* out, const T* in, DWORD frames, ptrdiff_t step, tQNBIQUAD& biquad) {
  const auto [b0, b1, b2, a1, a2, oldD1, oldD2] = biquad;
  double d1 = Flushed(oldD1);
  double d2 = Flushed(oldD2);
  for (DWORD i = 0; i < frames; ++i) {
    const ptrdiff_t at = static_cast<ptrdiff_t>(i) * step;
    const double w = in[at] + a1 * d1 + a2 * d2;
    out[at] = static_cast<T>(b0 * w + b1 * d1 + b2 * d2);
    d2 = d1;
    d1 = w;
  }
  biquad.d1 = d1;
  biquad.d2 = d2;
}

template <class T>
void RunStrided(T* out, const T* in, DWORD frames, DWORD stride, tQNBIQUAD* biquad, LONG forward) {
  if (!out || !in || !biquad) return;
  const ptrdiff_t step = stride;
  const ptrdiff_t first = forward || frames == 0 ? 0 : (static_cast<ptrdiff_t>(frames) - 1) * step;
  Run(out + first, in + first, frames, forward ? step : -step, *biquad);
}

}  // namespace

HRESULT QnMakeBiquad(const tQNBIQUAD_PARAMETERS* parameters, double* coefficients) {
  if (!parameters || !coefficients) return E_POINTER;
  Coefficients k{1, 0, 0, 1, 0, 0};
  const bool known = FindCoefficients(*parameters, k);
  // Taken from 0, so that no coefficient is a negative zero.
  const double values[] = {k.b0 / k.a0, k.b1 / k.a0, k.b2 / k.a0, 0 - k.a1 / k.a0, 0 - k.a2 / k.a0};
  std::ranges::copy(values, coefficients);
  return known ? S_OK : E_NOTIMPL;
}

void QnBiquadFloatEx(float* out, const float* in, DWORD frames, DWORD stride, tQNBIQUAD* biquad,
                     LONG forward) {
  RunStrided(out, in, frames, stride, biquad, forward);
}

void QnBiquadDoubleEx(double* out, const double* in, DWORD frames, DWORD stride, tQNBIQUAD* biquad,
                      LONG forward) {
  RunStrided(out, in, frames, stride, biquad, forward);
}

void QnBiquadSampleFloat(float* sample, tQNBIQUAD* biquad) {
  RunStrided(sample, sample, 1, 1, biquad, 1);
}

void QnBiquadSampleDouble(double* sample, tQNBIQUAD* biquad) {
  RunStrided(sample, sample, 1, 1, biquad, 1);
}
