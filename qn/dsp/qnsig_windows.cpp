// Windows and the spectral product of overlapping blocks.
#include <cmath>
#include <numbers>

#include "qn/dsp/qnperf.h"
#include "qn/dsp/qnsig.h"

namespace {

using std::numbers::pi;

double Sinc(double x, double width) {
  return width * std::sin(pi * x / width) / (pi * x);
}

template <class Sample>
void MakeWindows(Sample* first, Sample* second, LONG length, LONG fftSize, LONG hop) {
  if (!first || !second) return;
  for (LONG i = 0; i < length; ++i)
    first[i] = second[i] = static_cast<Sample>(0.54 - 0.46 * std::cos(2 * pi * i / (length - 1.0)));

  if (length <= fftSize) {
    // The synthesis window alone is normalised; steps that lead nowhere have no sum.
    if (hop < 1) return;
    double sum = 0;
    for (LONGLONG i = 0; i < length; i += hop) sum += static_cast<double>(second[i]) * second[i];
    const double factor = 1 / sum;
    for (LONG i = 0; i < length; ++i) second[i] = static_cast<Sample>(second[i] * factor);
    return;
  }
  for (LONG i = 0; i < length; ++i) {
    const double x = i - (length - 1.0) / 2;
    if (x == 0) continue;
    first[i] = static_cast<Sample>(first[i] * Sinc(x, fftSize));
    second[i] = static_cast<Sample>(second[i] * Sinc(x, hop));
  }
}

}  // namespace

void makewindows(double* first, double* second, LONG length, LONG fftSize, LONG hop) {
  MakeWindows(first, second, length, fftSize, hop);
}

void makewindows_float(float* first, float* second, LONG length, LONG fftSize, LONG hop) {
  MakeWindows(first, second, length, fftSize, hop);
}

BOOL fnConvolution(HQNFFT, double* data, DWORD size, void* kernel) {
  if (!data || !kernel) return 0;
  const auto* factors = static_cast<const double*>(kernel);
  for (DWORD i = 0; i < size && i < 2; ++i) data[i] *= factors[i];
  if (size > 3) QnPerfsMul_64fc_I(factors + 2, data + 2, static_cast<LONG>((size - 2) / 2));
  return 1;
}

BOOL fnConvolution_float(HQNFFT, float* data, DWORD size, void* kernel) {
  if (!data || !kernel) return 0;
  const auto* factors = static_cast<const double*>(kernel);
  for (DWORD i = 0; i < size && i < 2; ++i) data[i] = static_cast<float>(data[i] * factors[i]);
  for (size_t i = 2; i + 1 < size; i += 2) {
    const double re = data[i];
    const double im = data[i + 1];
    data[i] = static_cast<float>(re * factors[i] - im * factors[i + 1]);
    data[i + 1] = static_cast<float>(re * factors[i + 1] + im * factors[i]);
  }
  return 1;
}
