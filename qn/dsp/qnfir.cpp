// The design of a windowed-sinc filter, and overlap-add (Stockham; see Oppenheim and Schafer, Discrete-Time
// Signal Processing, section 8.7.3) over the pieces of a channel.
#include "qn/dsp/qnfir.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

#include "qn/dsp/qnfir_vector.h"
#include "qn/platform/memory.h"

namespace {

constexpr DWORD kLeastTaps = 127, kMostTaps = 32767;
constexpr double kLeastFrequency = 1e-6, kMostFrequency = 0.5;
constexpr DWORD kInitialMask = 3;  // also what a mask of 0 stands for
constexpr DWORD kLeastFftSize = 256;
constexpr double kPi = std::numbers::pi;

bool IsFrequency(double frequency) {
  return frequency >= kLeastFrequency && frequency <= kMostFrequency;
}

// Blocks that hosts may look at are movable ones that stay locked.
double* AllocateValues(size_t count) {
  const HGLOBAL block = GlobalAlloc(GHND, count * sizeof(double));
  return block ? static_cast<double*>(GlobalLock(block)) : nullptr;
}

void FreeValues(double* values) {
  if (!values) return;
  const HGLOBAL block = GlobalHandle(values);
  GlobalUnlock(block);
  GlobalFree(block);
}

// The tap `i` places from the middle one, before the window: the difference of two ideal low-passes, or what
// that leaves of the signal.
struct IdealTaps {
  double low;   // edges; none below is 0
  double high;  //
  bool rest;

  double Middle() const { return rest ? 1 - 2 * (high - low) : 2 * (high - low); }
  double At(double i) const {
    const double tap = (std::sin(i * (2 * kPi * high)) - std::sin(i * (2 * kPi * low))) / (i * kPi);
    return rest ? -tap : tap;
  }
};

double WindowAt(DWORD window, DWORD i, DWORD n) {
  const double symmetric = 2 * kPi * i / (n - 1), periodic = 2 * kPi * i / n;
  switch (window) {
    case QNFIR_TRIANGULAR:
      return std::min(i, n - 1 - i) / ((n - 1) * 0.5);
    case QNFIR_HAMMING:
      return 0.54 - 0.46 * std::cos(symmetric);
    case QNFIR_HANN:
      return 0.5 * (1 - std::cos(symmetric));
    case QNFIR_BLACKMAN:
      return 0.42 - 0.5 * std::cos(periodic) + 0.08 * std::cos(2 * periodic);
    case QNFIR_BLACKMANHARRIS:
      return 0.35875 - 0.48829 * std::cos(periodic) + 0.14128 * std::cos(2 * periodic) -
             0.01168 * std::cos(3 * periodic);
    default:
      return 1;
  }
}

}  // namespace

CQnFIR::CQnFIR() {
  init();
}

CQnFIR::CQnFIR(const CQnFIR* source) {
  init();
  if (source) *this = *source;
}

CQnFIR::CQnFIR(const CQnFIR& source) : CQnFIR(&source) {}

CQnFIR& CQnFIR::operator=(const CQnFIR& source) {
  if (this == &source) return *this;
  cleanup();
  init();
  if (source.channels > 0) {
    Design(static_cast<QNFIR_TYPE>(source.type), static_cast<QNFIR_WINDOW>(source.window), source.taps,
           source.frequency1, source.frequency2, source.channels, source.flags);
  }
  return *this;
}

CQnFIR::~CQnFIR() {
  cleanup();
}

void CQnFIR::init() {
  type = window = taps = channels = flags = fftSize = 0;
  frequency1 = frequency2 = 0;
  lastChannelMask = kInitialMask;
  fft = nullptr;
  h = work = spectrum = nullptr;
  std::ranges::fill(history, nullptr);
  std::ranges::fill(historyPosition, 0);
  std::ranges::fill(overlap, nullptr);
}

void CQnFIR::cleanup() {
  QnSig_UnprepareFFT(fft);
  fft = nullptr;
  const auto release = [](double*& values) {
    FreeValues(values);
    values = nullptr;
  };
  for (double** values : {&h, &work, &spectrum}) release(*values);
  std::ranges::for_each(history, release);
  std::ranges::for_each(overlap, release);
  std::ranges::fill(historyPosition, 0);
}

bool CQnFIR::allocate() {
  h = AllocateValues(taps);
  work = AllocateValues(fftSize);
  spectrum = AllocateValues(fftSize);
  if (!h || !work || !spectrum) return false;
  for (DWORD channel = 0; channel < channels; ++channel) {
    history[channel] = AllocateValues(taps);
    overlap[channel] = AllocateValues(taps);
    if (!history[channel] || !overlap[channel]) return false;
  }
  return true;
}

void CQnFIR::make_taps() {
  const bool band = type == QNFIR_BANDPASS || type == QNFIR_BANDSTOP;
  const IdealTaps ideal{band ? frequency1 : 0, band ? frequency2 : frequency1,
                        type == QNFIR_HIGHPASS || type == QNFIR_BANDSTOP};
  const DWORD middle = taps / 2;
  h[middle] = ideal.Middle();
  for (DWORD i = 1; i <= middle; ++i) {
    h[middle - i] = ideal.At(i);
    if (middle + i < taps) h[middle + i] = h[middle - i];
  }
  for (DWORD i = 0; i < taps; ++i) h[i] *= WindowAt(window, i, taps);
}

HRESULT CQnFIR::Design(QNFIR_TYPE newType, QNFIR_WINDOW newWindow, DWORD newTaps, double newFrequency1,
                       double newFrequency2, DWORD newChannels, DWORD newFlags) {
  if (newType < QNFIR_LOWPASS || newType > QNFIR_BANDSTOP || newWindow < QNFIR_RECTANGULAR ||
      newWindow > QNFIR_BLACKMANHARRIS || newTaps < kLeastTaps || newTaps > kMostTaps ||
      !IsFrequency(newFrequency1) || !IsFrequency(newFrequency2) || newChannels < 1 ||
      newChannels > kMostChannels) {
    return E_INVALIDARG;
  }
  cleanup();
  type = static_cast<uint32_t>(newType);
  window = static_cast<uint32_t>(newWindow);
  taps = newTaps;
  frequency1 = newFrequency1;
  frequency2 = newFrequency2;
  channels = newChannels;
  flags = newFlags;
  lastChannelMask = kInitialMask;
  fftSize = std::bit_ceil(2 * taps - 1);
  if (!allocate()) return E_OUTOFMEMORY;
  fft = QnSig_ReprepareFFT(nullptr, 0, fftSize, nullptr, !(flags & QNFIR_NO_FAST_FFT));
  if (!fft) return E_OUTOFMEMORY;
  make_taps();
  // The forward transform divides by its points; a product of two spectra may do so once only.
  for (DWORD i = 0; i < taps; ++i) spectrum[i] = fftSize * h[i];
  QnSig_FFT(fft, spectrum, fftSize, 1.0);
  return S_OK;
}

void CQnFIR::Reset(DWORD channelMask) {
  for (DWORD channel = 0; channel < channels; ++channel) {
    if (!(channelMask >> channel & 1)) continue;
    if (history[channel]) std::fill_n(history[channel], taps, 0.0);
    if (overlap[channel]) std::fill_n(overlap[channel], taps, 0.0);
    historyPosition[channel] = 0;
  }
}

void CQnFIR::ResetAll() {
  Reset(0xFFFFFFFF);
}

void CQnFIR::SetDelayElementsFrom(const CQnFIR* other) {
  // The transform is the last thing that a design allocates.
  if (!other || other == this || other->taps != taps || !fft || !other->fft) return;
  for (DWORD channel = 0; channel < std::min(channels, other->channels); ++channel) {
    std::copy_n(other->history[channel], taps, history[channel]);
    std::copy_n(other->overlap[channel], taps, overlap[channel]);
    historyPosition[channel] = other->historyPosition[channel];
  }
}

template <class T>
void CQnFIR::process(T* out, const T* in, DWORD frames, DWORD channelMask) {
  if (!fft || (frames > 0 && (!out || !in))) return;
  if (channelMask == 0) channelMask = kInitialMask;
  Reset(channelMask & ~lastChannelMask);
  lastChannelMask = channelMask;
  for (DWORD channel = 0; channel < channels; ++channel) {
    if (!(channelMask >> channel & 1)) continue;
    for (DWORD done = 0, piece; done < frames; done += piece) {
      piece = std::min(frames - done, taps);
      const size_t at = size_t{done} * channels + channel;
      qn::TakeChannel(in + at, channels, piece, work);
      if (fftSize < kLeastFftSize) {
        filter_channel(channel, piece);
      } else {
        filter_channel_fft(channel, piece);
      }
      qn::GiveChannel(work, channels, piece, out + at);
    }
  }
}

void CQnFIR::ProcessFloat(float* out, const float* in, DWORD frames, DWORD channelMask) {
  process(out, in, frames, channelMask);
}

void CQnFIR::ProcessDouble(double* out, const double* in, DWORD frames, DWORD channelMask) {
  process(out, in, frames, channelMask);
}

// The rule itself, for transforms too short to gain anything. No design makes one so short; the form is
// there as what the transforms have to agree with.
void CQnFIR::filter_channel(DWORD channel, DWORD frames) {
  double* const ring = history[channel];
  uint32_t& position = historyPosition[channel];
  for (DWORD i = 0; i < frames; ++i) {
    ring[position] = work[i];
    double sum = 0;
    DWORD tap = 0;
    for (DWORD at = position + 1; at-- > 0;) sum += h[tap++] * ring[at];
    for (DWORD at = taps; tap < taps;) sum += h[tap++] * ring[--at];
    position = position + 1 == taps ? 0 : position + 1;
    work[i] = sum;
  }
}

void CQnFIR::filter_channel_fft(DWORD channel, DWORD frames) {
  std::fill(work + frames, work + fftSize, 0.0);
  QnSig_FFTProcess(fft, work, fftSize, 1.0, 1.0, fft_multiply, spectrum);
  // The tail of a piece shorter than the taps takes in what the pieces before it have left.
  qn::AddValues(work, overlap[channel], taps - 1);
  std::copy_n(work + frames, taps - 1, overlap[channel]);
}

BOOL CQnFIR::fft_multiply(HQNFFT handle, double* data, DWORD size, void* spectrum) {
  return fnConvolution(handle, data, size, spectrum);
}
