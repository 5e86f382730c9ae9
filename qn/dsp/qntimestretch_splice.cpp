#include <algorithm>
#include <array>

#include "qn/dsp/qntimestretch_internal.h"

namespace {

// All are samples of the interleaved stream, whatever its channels.
constexpr size_t kWindow = 200;
constexpr size_t kFade = 1000;
constexpr size_t kShortFade = 600;
constexpr size_t kLeastOverlap = 5;  // a shorter one is ramped instead

// The gains of a crossfade, each 0.001 below the one before, with the rounding that this brings.
constexpr std::array<double, kFade> kFadeGains = [] {
  std::array<double, kFade> gains{};
  double gain = 1;
  for (double& g : gains) {
    g = gain;
    gain -= 0.001;
  }
  return gains;
}();

void FadeOver(double* out, const double* in) {
  for (size_t i = 0; i < kFade; ++i) out[i] = kFadeGains[i] * out[i] + (1 - kFadeGains[i]) * in[i];
}

// `count` values, `stride` apart from `base` on. With many channels they can reach beyond the buffer.
void Take(qn::Samples from, size_t base, size_t stride, size_t count, double* values) {
  for (size_t i = 0; i < count; ++i) {
    const size_t at = base + i * stride;
    values[i] = at < from.size ? from.values[at] : 0;
  }
}

// Where in the window from `base` on the input is most like the output from `reference` on: there the sum of
// both has the most energy. Hosts rely on lags and places both being counted in channels, so that for
// several channels the places are the square of that apart.
size_t FindSpliceLag(qn::Samples in, size_t base, qn::Samples out, size_t reference, size_t channels) {
  const size_t count = (kWindow + channels - 1) / channels;
  double wanted[kWindow], values[2 * kWindow + qn::kLagBatch] = {}, scores[qn::kLagBatch];
  Take(out, reference, channels * channels, count, wanted);
  Take(in, base, channels * channels, 2 * count - 1, values);
  double energy = 0;
  for (size_t i = 0; i < count; ++i) energy += wanted[i] * wanted[i];
  energy *= 4;
  double best = 0;
  size_t bestLag = 0;
  for (size_t lag = 0; lag < count; ++lag) {
    const size_t inBatch = lag % qn::kLagBatch;
    if (inBatch == 0) qn::ScoreLags(values + lag, wanted, count, scores);
    const double score = scores[inBatch];
    if (score > energy) return lag * channels;  // almost the same
    if (score > best) {
      best = score;
      bestLag = lag;
    }
  }
  return bestLag * channels;
}

// Cuts the end off and fades into the end of the input.
size_t Shorten(qn::Samples in, size_t n, qn::Samples out, size_t length, size_t channels) {
  std::copy_n(in.values, length, out.values);
  const size_t fade = length - kFade;
  size_t lag = kWindow;
  if (n >= kFade + kWindow) lag = FindSpliceLag(in, n - kFade - kWindow, out, fade, channels);
  FadeOver(out.values + fade, in.values + (n + lag - kWindow - kFade));
  return kWindow - lag;
}

// Fades near the end back to an earlier place, and plays from there.
size_t Lengthen(qn::Samples in, size_t n, qn::Samples out, size_t length, size_t channels) {
  const size_t segment = length - n + kFade;
  size_t lag = kWindow;
  if (n >= segment + kWindow) lag = FindSpliceLag(in, n - segment - kWindow, out, n - kFade, channels);
  const double* const from = in.values + (n + lag - kWindow - segment);
  FadeOver(out.values + n - kFade, from);
  std::copy_n(from + kFade, length - n, out.values + n);
  return kWindow - lag;
}

// Ramps the two copies of a doubled block into each other in place. Hosts rely on the second ramp reading
// behind what the first one has read.
void Ramp(double* out, size_t n) {
  const size_t width = std::min(n, kShortFade);
  for (size_t k = 0; k < width; ++k) {
    double& v = out[n - width + k];
    v = (static_cast<double>(width - k) * v + static_cast<double>(k) * out[k]) / static_cast<double>(width);
  }
  for (size_t j = 0; j < width; ++j) {
    double& v = out[n + j];
    v = (static_cast<double>(j) * v + static_cast<double>(width - j) * out[width + j]) /
        static_cast<double>(width);
  }
}

// Plays the block twice; what is longer stays silent.
void Double(const double* in, size_t n, double* out, size_t length) {
  const size_t end = std::min(2 * n, length), overlap = 2 * n - end, second = end - n;
  if (overlap < kLeastOverlap) {
    std::copy_n(out, second, out + n);
    Ramp(out, n);
  } else {
    double gain = 1;
    for (size_t i = 0; i < overlap; ++i) {
      out[second + i] = gain * out[second + i] + (1 - gain) * in[i];
      gain -= 1 / static_cast<double>(overlap);
    }
    std::copy_n(in + overlap, n - overlap, out + n);
  }
}

}  // namespace

size_t qn::Splice(Samples in, size_t inCount, Samples out, size_t outCount, size_t channels) {
  if (inCount == outCount || std::min(inCount, outCount) < kFade) {
    std::copy_n(in.values, std::min(inCount, outCount), out.values);
    return 0;
  }
  if (outCount < inCount) return Shorten(in, inCount, out, outCount, channels);
  std::copy_n(in.values, inCount, out.values);
  std::fill(out.values + inCount, out.values + outCount, 0.0);
  // Further splices would be needed when one segment is longer than the block.
  if (outCount - inCount + kFade <= inCount) return Lengthen(in, inCount, out, outCount, channels);
  Double(in.values, inCount, out.values, outCount);
  return 0;
}
