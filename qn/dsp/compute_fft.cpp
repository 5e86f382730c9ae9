// The plain complex transform.
#include <bit>
#include <cmath>
#include <memory>
#include <new>
#include <numbers>

#include "qn/dsp/qnsig_internal.h"

namespace {

// Kept with the precision of floats: hosts compare results with those of earlier versions.
struct Twiddle {
  float re;
  float im;
};

void FillTwiddles(Twiddle* twiddles, size_t count, double angle) {
  const double cosine = std::cos(angle);
  const double sine = std::sin(angle);
  double re = cosine;
  double im = sine;
  for (size_t i = 0; i < count; ++i) {
    twiddles[i] = {static_cast<float>(re), static_cast<float>(im)};
    const double old = re;
    re = re * cosine - im * sine;
    im = old * sine + im * cosine;
  }
}

// The butterfly of two values, of which the difference is turned.
void Join(COMPLEX& a, COMPLEX& b, double re, double im) {
  const COMPLEX difference{a.re - b.re, a.im - b.im};
  a = {a.re + b.re, a.im + b.im};
  b = {difference.re * re - difference.im * im, difference.re * im + difference.im * re};
}

}  // namespace

tStatus compute_fft(COMPLEX* data, LONG points, LONG direction) {
  if (!data || points < 2 || !std::has_single_bit(static_cast<DWORD>(points))) return FFT_BAD_ARGUMENT;
  if (direction != 1 && direction != -1) return FFT_BAD_ARGUMENT;
  const auto count = static_cast<size_t>(points);
  const size_t twiddleCount = count / 2 - 1;
  const std::unique_ptr<Twiddle[]> twiddles(new (std::nothrow) Twiddle[twiddleCount]);
  if (!twiddles) return FFT_NO_MEMORY;
  FillTwiddles(twiddles.get(), twiddleCount, std::numbers::pi / static_cast<double>(count / 2));

  const double sign = -direction;
  for (size_t span = count / 2; span > 0; span /= 2) {
    const size_t step = count / 2 / span;
    for (size_t group = 0; group < count; group += 2 * span) {
      COMPLEX* const at = data + group;
      const COMPLEX first = at[0], second = at[span];
      at[0] = {first.re + second.re, first.im + second.im};
      at[span] = {first.re - second.re, first.im - second.im};
      for (size_t i = 1; i < span; ++i) {
        const Twiddle w = twiddles[i * step - 1];
        Join(at[i], at[i + span], w.re, sign * w.im);
      }
    }
  }
  qn::ReverseBits(data, count);
  if (direction == -1) {
    const float scale = 1.0f / static_cast<float>(points);
    for (size_t i = 0; i < count; ++i) data[i] = {data[i].re * scale, data[i].im * scale};
  }
  return FFT_OK;
}
