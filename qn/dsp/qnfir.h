// A windowed-sinc filter of linear phase for interleaved audio of up to 32 channels.
//
// Frequencies are fractions of the sample rate, 0.5 being Nyquist. All arithmetic is in double, for float
// audio too. The signal comes out (taps - 1) / 2 frames late, and nothing makes up for that.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qn/dsp/qnsig.h"
#include "qn/platform/types.h"

enum QNFIR_TYPE : LONG {
  QNFIR_LOWPASS = 0,   // up to frequency1
  QNFIR_HIGHPASS = 1,  // from frequency1 on
  QNFIR_BANDPASS = 2,  // from frequency1 to frequency2
  QNFIR_BANDSTOP = 3,  // all but that
};

// The windows of n taps. Hosts rely on the last two being periodic, over n, and the others symmetric, over
// n - 1.
enum QNFIR_WINDOW : LONG {
  QNFIR_RECTANGULAR = 0,
  QNFIR_TRIANGULAR = 1,
  QNFIR_HAMMING = 2,
  QNFIR_HANN = 3,
  QNFIR_BLACKMAN = 4,
  QNFIR_BLACKMANHARRIS = 5,
};

// A bit of the flags of CQnFIR::Design: the transform is not to be the fast prepared one.
constexpr DWORD QNFIR_NO_FAST_FFT = 1;

// An object belongs to one thread at a time; its channels share the work memory.
class QN_API CQnFIR {
 public:
  // An empty filter: it has no channel, so it writes nothing.
  CQnFIR();

  // A filter of the same design with memory of its own and clear state; an empty one from null or from an
  // empty filter. Without memory for it the copy writes nothing.
  explicit CQnFIR(const CQnFIR* source);
  CQnFIR(const CQnFIR& source);
  CQnFIR& operator=(const CQnFIR& source);

  ~CQnFIR();

  // Designs the filter and clears its state.
  //   taps         127 to 32,767. It should be odd: the taps of an even number lie around h[taps / 2], so
  //   that
  //                the first one has no counterpart and the phase is linear only nearly.
  //   frequency1,  the edges, 1e-6 to 0.5. Both are looked at for every type; a single edge is the first.
  //   frequency2
  //   channels     of the audio to come, 1 to 32.
  //   flags        0 or QNFIR_NO_FAST_FFT.
  // 0; E_INVALIDARG for an argument outside its limits, which leaves the filter as it was; E_OUTOFMEMORY,
  // after which it writes nothing until the next design.
  HRESULT Design(QNFIR_TYPE type, QNFIR_WINDOW window, DWORD taps, double frequency1, double frequency2,
                 DWORD channels, DWORD flags);

  // Clears the state of the channels whose bits are set; of all channels.
  void Reset(DWORD channelMask);
  void ResetAll();

  // Takes over the state of the channels that both filters have. Does nothing for another number of taps and
  // for null.
  void SetDelayElementsFrom(const CQnFIR* other);

  // Filters `frames` interleaved frames of as many channels as were designed for. `in` may be `out`. Only
  // the channels of the mask (0 stands for the first two) are written; a channel that was not in the mask of
  // the call before starts with clear state. How a stream is cut into calls changes its rounding alone.
  void ProcessFloat(float* out, const float* in, DWORD frames, DWORD channelMask);
  void ProcessDouble(double* out, const double* in, DWORD frames, DWORD channelMask);

  static constexpr DWORD kMostChannels = 32;

  uint32_t type;  // the arguments of the design
  uint32_t window;
  uint32_t taps;
  double frequency1;
  double frequency2;
  uint32_t channels;
  uint32_t lastChannelMask;
  uint32_t flags;
  uint32_t fftSize;  // the smallest power of 2 not below 2 * taps - 1
  HQNFFT fft;
  double* h;                                // `taps` values
  double* work;                             // `fftSize` values
  double* history[kMostChannels];           // the last `taps` inputs, a ring of the direct form
  uint32_t historyPosition[kMostChannels];  // where the next one goes
  double* spectrum;                         // `fftSize` values, the transformed taps
  double* overlap[kMostChannels];           // `taps` values; what the frames so far add to the next ones

 private:
  void init();
  void cleanup();
  bool allocate();
  void make_taps();
  template <class T>
  void process(T* out, const T* in, DWORD frames, DWORD channelMask);
  void filter_channel(DWORD channel, DWORD frames);
  void filter_channel_fft(DWORD channel, DWORD frames);
  static BOOL fft_multiply(HQNFFT handle, double* data, DWORD size, void* spectrum);
};

static_assert(sizeof(QNFIR_TYPE) == 4 && sizeof(QNFIR_WINDOW) == 4);
static_assert(sizeof(CQnFIR) == 720 && offsetof(CQnFIR, window) == 4 && offsetof(CQnFIR, taps) == 8 &&
              offsetof(CQnFIR, frequency1) == 16 && offsetof(CQnFIR, frequency2) == 24 &&
              offsetof(CQnFIR, channels) == 32 && offsetof(CQnFIR, lastChannelMask) == 36 &&
              offsetof(CQnFIR, flags) == 40 && offsetof(CQnFIR, fftSize) == 44 &&
              offsetof(CQnFIR, fft) == 48 && offsetof(CQnFIR, h) == 56 && offsetof(CQnFIR, work) == 64 &&
              offsetof(CQnFIR, history) == 72 && offsetof(CQnFIR, historyPosition) == 328 &&
              offsetof(CQnFIR, spectrum) == 456 && offsetof(CQnFIR, overlap) == 464);
