// The design of an equaliser's bands, and the cross-fade to new settings.
#include "qn/dsp/qneq.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <numbers>

#include "qn/dsp/qneq_vector.h"

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kLeastGain = -100, kMostGain = 25;
constexpr double kLeastWidth = 0.10000000149011612, kMostWidth = 5;
constexpr double kMostEdge = 0.49;  // of a peak's upper edge, a fraction of the rate
constexpr size_t kFadeFrames = 32;
constexpr DWORD kMostBands = 0x7FFFFFFF;

template <class T>
bool Allocate(std::unique_ptr<T[]>& array, size_t count) {
  array.reset(new (std::nothrow) T[count]());
  return array != nullptr;
}

}  // namespace

struct tQNEQ {
  DWORD sampleRate;
  DWORD bits;
  DWORD channels;
  DWORD bandCount;
  bool fadeDue;
  DWORD activeCount;
  std::unique_ptr<DWORD[]> active;  // the bands that are on
  std::unique_ptr<tQNEQ_BAND[]> bands;
  std::unique_ptr<qn::EqFilter[]> filters;     // bandCount of each channel
  std::unique_ptr<qn::EqFilter[]> oldFilters;  // these two for cross-fading alone
  std::unique_ptr<float[]> fadeBuffer;         // kFadeFrames frames

  size_t FilterCount() const { return size_t{channels} * bandCount; }
};

namespace {

// The upper limit comes first, as it can lie below the lower one. NaN passes.
double Limited(double value, double least, double most) {
  if (value > most) value = most;
  return value < least ? least : value;
}

void Limit(tQNEQ_BAND& band, DWORD sampleRate) {
  band.gainDb = Limited(band.gainDb, kLeastGain, kMostGain);
  band.width = Limited(band.width, kLeastWidth, kMostWidth);
  band.frequency = Limited(band.frequency, 1, sampleRate / 2.0 - 1);
  band.type = std::clamp<LONG>(band.type, QNEQ_LOWSHELF, QNEQ_HIGHSHELF);
}

// The inverse of the gain of a peak's resonance at its centre, after its coefficients.
double DesignPeak(qn::EqFilter& filter, double f, double width) {
  using Complex = std::complex<double>;
  const double r = std::sqrt(std::pow(2.0, width));
  const double f1 = f / r, f2 = std::min(f * r, kMostEdge);
  const double w1 = 2 * std::tan(kPi * f1), w2 = 2 * std::tan(kPi * f2);
  const double w0 = std::sqrt(w1 * w2), b = -(w2 - w1) / 2, q = w0 / b;
  const Complex s = std::sqrt(Complex(1 - q * q));
  const Complex p1 = b * (1.0 + s), p2 = b * (1.0 - s);
  const Complex z1 = (2.0 + p1) / (2.0 - p1), z2 = (2.0 + p2) / (2.0 - p2);
  filter.a1 = (z1 + z2).real();
  filter.a2 = -(z1 * z2).real();
  const double t = kPi * (f1 + f2);
  const Complex e = std::polar(1.0, t), e2 = std::polar(1.0, 2 * t);
  const Complex response = (e2 - 1.0) / (e2 - (z1 + z2) * e + z1 * z2);
  return response == 0.0 ? 1 : 1 / std::abs(response);
}

void Design(qn::EqFilter& filter, const tQNEQ_BAND& band, DWORD sampleRate) {
  const double f = band.frequency / sampleRate;
  double k;
  if (band.type == QNEQ_PEAK) {
    k = DesignPeak(filter, f, band.width);
  } else {
    const double t = std::tan(kPi * f);
    filter.a1 = (1 - t) / (1 + t);
    k = (band.type == QNEQ_LOWSHELF ? 1 - filter.a1 : 1 + filter.a1) * 0.5;
  }
  filter.gain = band.gainDb <= kLeastGain ? -k : (std::pow(10.0, band.gainDb / 20) - 1) * k;
}

// State that has decayed so far goes before a block, lest it become denormal.
bool IsSmall(double state) {
  constexpr uint32_t kExponent = 0x7FF00000, kLeastExponent = 0x3DF00000;
  uint64_t bits;
  std::memcpy(&bits, &state, sizeof(bits));
  return (bits >> 32 & kExponent) < kLeastExponent;
}

template <class T>
void RunFilters(HQNEQ equaliser, qn::EqFilter* filters, T* out, const T* in, size_t frames) {
  if (equaliser->activeCount == 0) {
    if (out != in) std::memmove(out, in, frames * equaliser->channels * sizeof(T));
    return;
  }
  for (qn::EqFilter* filter = filters; filter != filters + equaliser->FilterCount(); ++filter) {
    if (IsSmall(filter->s1)) filter->s1 = 0;
    if (IsSmall(filter->s2)) filter->s2 = 0;
  }
  const qn::EqChain chain{
      equaliser->bands.get(), equaliser->bandCount, equaliser->active.get(), equaliser->activeCount, filters,
      equaliser->channels};
  qn::RunChain(chain, out, in, frames);
}

// Hosts rely on the old filters running with the new settings' types and bands, and in single precision for
// either type of audio.
template <class T>
DWORD Process(HQNEQ equaliser, T* out, const T* in, DWORD frames) {
  if (!equaliser) return 0;
  const size_t channels = equaliser->channels;
  if (!out || !in || channels == 0) return equaliser->channels;
  const bool fades = equaliser->fadeDue && frames >= kFadeFrames;
  float* const old = equaliser->fadeBuffer.get();
  if (fades) {
    for (size_t i = 0; i < kFadeFrames * channels; ++i) old[i] = static_cast<float>(in[i]);
    RunFilters(equaliser, equaliser->oldFilters.get(), old, old, kFadeFrames);
  }
  RunFilters(equaliser, equaliser->filters.get(), out, in, frames);
  if (fades) {
    for (size_t i = 0; i < kFadeFrames * channels; ++i) {
      const float part = static_cast<float>(i / channels) / kFadeFrames;
      out[i] = (1 - part) * old[i] + part * out[i];
    }
    equaliser->fadeDue = false;
  }
  return equaliser->channels;
}

}  // namespace

HRESULT QnEq_Init(HQNEQ* equaliser, const WAVEFORMATEX* format, const tQNEQ_BAND* bands, DWORD bandCount,
                  LONG crossFade) {
  if (!equaliser || !format || (!bands && bandCount != 0)) return E_POINTER;
  if (format->wFormatTag != WAVE_FORMAT_IEEE_FLOAT) return E_NOTIMPL;
  if (format->wBitsPerSample != 32 && format->wBitsPerSample != 64) return E_NOTIMPL;
  if (bandCount > kMostBands) return E_OUTOFMEMORY;
  HQNEQ made = new (std::nothrow) tQNEQ();
  if (!made) return E_OUTOFMEMORY;
  made->sampleRate = format->nSamplesPerSec;
  made->bits = format->wBitsPerSample;
  made->channels = format->nChannels;
  made->bandCount = bandCount;
  const bool fades = crossFade != 0;
  if (!Allocate(made->active, bandCount) || !Allocate(made->bands, bandCount) ||
      !Allocate(made->filters, made->FilterCount()) ||
      (fades && (!Allocate(made->oldFilters, made->FilterCount()) ||
                 !Allocate(made->fadeBuffer, kFadeFrames * made->channels)))) {
    QnEq_Close(made);
    return E_OUTOFMEMORY;
  }
  std::copy_n(bands, bandCount, made->bands.get());
  QnEq_Reset(made, made->bands.get(), 1);
  *equaliser = made;
  return S_OK;
}

void QnEq_Reset(HQNEQ equaliser, tQNEQ_BAND* bands, LONG clearState) {
  if (!equaliser || !bands) return;
  qn::EqFilter* const filters = equaliser->filters.get();
  if (clearState)
    for (size_t i = 0; i < equaliser->FilterCount(); ++i) filters[i].s1 = filters[i].s2 = 0;
  if (equaliser->oldFilters) {
    equaliser->fadeDue = true;
    std::copy_n(filters, equaliser->FilterCount(), equaliser->oldFilters.get());
  }
  equaliser->activeCount = 0;
  for (DWORD i = 0; i < equaliser->bandCount; ++i) {
    tQNEQ_BAND& band = bands[i];
    Limit(band, equaliser->sampleRate);
    equaliser->bands[i] = band;
    // A NaN counts as a gain. What is off keeps its last coefficients, which an old filter may still use.
    if (band.enabled == 0 || band.gainDb == 0) continue;
    equaliser->active[equaliser->activeCount++] = i;
    qn::EqFilter designed{};
    if (equaliser->channels != 0) designed = filters[i];
    Design(designed, band, equaliser->sampleRate);
    for (size_t c = 0; c < equaliser->channels; ++c) {
      qn::EqFilter& filter = filters[c * equaliser->bandCount + i];
      filter.a1 = designed.a1;
      filter.a2 = designed.a2;
      filter.gain = designed.gain;
    }
  }
}

DWORD QnEq_ProcessFloat(HQNEQ equaliser, float* out, const float* in, DWORD frames) {
  return Process(equaliser, out, in, frames);
}

DWORD QnEq_ProcessDouble(HQNEQ equaliser, double* out, const double* in, DWORD frames) {
  return Process(equaliser, out, in, frames);
}

void QnEq_Close(HQNEQ equaliser) {
  delete equaliser;
}
