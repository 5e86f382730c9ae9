// Recursive filters: CQnIIR designs a cascade of second-order stages and runs it on interleaved audio,
// QnMakeBiquad and QnBiquad* make and run one stage, QnSig_Find*Coeffs compute the sections of an equaliser.
//
// Frequencies are fractions of the sample rate, 0.5 being Nyquist, except in QnMakeBiquad. All arithmetic is
// in double, for float audio too. A stage computes, with feedback signs that add,
//   w = v + a1 * d1 + a2 * d2,  out = b0 * w + b1 * d1 + b2 * d2,  d2 = d1,  d1 = w.
//
// An object or a record of state belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "qn/dsp/qnsig.h"
#include "qn/platform/types.h"

// The band that a filter lets through, with the place where its gain is 1.
enum QNIIR_TYPE : LONG {
  QNIIR_LOWPASS = 0,   // at DC
  QNIIR_HIGHPASS = 1,  // at Nyquist
  QNIIR_BANDSTOP = 2,  // in the geometric mean of the gains at DC and Nyquist
  QNIIR_BANDPASS = 3,  // midway between the edges of the band; of a resonator at its frequency
};

enum QNIIR_DESIGN : LONG {
  QNIIR_BUTTERWORTH = 0,
  QNIIR_CHEBYSHEV = 1,  // with a ripple of 0.5 dB
  QNIIR_BESSEL = 2,     // orders 1 to 10
  QNIIR_RESONATOR = 3,  // one pair of poles; for the two band types
};

// A bit of the flags of CQnIIR::Design: both channels are not to run in one vector kernel.
constexpr DWORD QNIIR_NO_SIMD = 1;

// One stage of a cascade.
struct tQNIIR_BIQUAD {
  double b0;
  double b1;
  double b2;
  double a1;
  double a2;
  double d1[2];  // of channels 0 and 1, as d2
  double d2[2];
};

// Reserved: stays zero.
struct tQNIIR_POLYNOMIAL {
  uint32_t count;
  COMPLEX values[47];
};

// A filter for up to 2 channels. Of audio with more channels it filters the first two.
class QN_API CQnIIR {
 public:
  // An empty filter: it has no channel, so it writes nothing.
  CQnIIR();

  // A copy, state included; an empty filter from null. Assignment copies everything too.
  explicit CQnIIR(const CQnIIR* source);

  // Designs the filter and clears its state.
  //   order      1 to 15, 1 to 10 for QNIIR_BESSEL; a band filter has twice as many poles. A resonator does
  //              not look at it.
  //   frequency  the corner, or the centre of a band; at most 0.5.
  //   width      of a band in octaves, a resonator's as its Q. The other types do not look at it.
  //   gainDb     0, or the gain in dB of a band that is added to the dry signal. A QNIIR_BANDSTOP with a gain
  //              is the QNIIR_BANDPASS with the negated gain, unless it is a resonator.
  //   channels   of the audio to come.
  //   flags      0 or QNIIR_NO_SIMD.
  // 0; E_INVALIDARG for a bad frequency, which leaves the filter as it was, and for a bad order, type or
  // design; E_FAIL when the poles of a resonating QNIIR_BANDPASS are not found. The filter is empty after
  // these failures.
  HRESULT Design(QNIIR_TYPE type, QNIIR_DESIGN design, DWORD order, double frequency, double width,
                 double gainDb, DWORD channels, DWORD flags);

  // Clears the delay elements of the channels whose bits are set; of all channels.
  void Reset(DWORD channelMask);
  void ResetAll();

  // Takes over all delay elements of the stages that `other` has. Null does nothing.
  void SetDelayElementsFrom(const CQnIIR* other);

  // Filters `frames` interleaved frames of as many channels as were designed for. `in` may be `out`. Only
  // the channels of the mask (0 stands for both) are written; a channel that was not in the mask of the call
  // before starts with clear state. The result does not depend on how a stream is cut into calls.
  void ProcessFloat(float* out, const float* in, DWORD frames, DWORD channelMask);
  void ProcessDouble(double* out, const double* in, DWORD frames, DWORD channelMask);

  DWORD getChannels() const;
  DWORD getLastChannelMask() const;
  DWORD getNumBiquads() const;
  double getGain() const;
  double getDry() const;

  // A record of the filter: null for an index above 1, or at or above the number of stages.
  tQNIIR_POLYNOMIAL* getPolynomial(DWORD index);
  const tQNIIR_POLYNOMIAL* getPolynomial(DWORD index) const;
  tQNIIR_BIQUAD* getBiquad(DWORD index);
  const tQNIIR_BIQUAD* getBiquad(DWORD index) const;

  uint32_t channels;
  uint32_t lastChannelMask;
  tQNIIR_POLYNOMIAL polynomials[2];
  uint32_t numBiquads;
  tQNIIR_BIQUAD biquads[15];
  double gain;       // of the filtered signal
  double dry;        // gain of the input that is added to it
  uint32_t useSIMD;  // nonzero: two channels run together
};

// What QnMakeBiquad makes. Values outside the limits are moved to them.
struct tQNBIQUAD_PARAMETERS {
  uint32_t sampleRate;
  double frequency;  // in hertz; 0.0001 to 0.4999 of the rate
  double gain;       // in dB, -100 to 25, of types 4 to 6
  double bandwidth;  // in octaves, 0.1 to 5, of types 2 to 4
  double slope;      // 0.1 to 1, of types 5 and 6
  uint32_t type;     // 0 low-pass, 1 high-pass, 2 band-pass, 3 notch, 4 peaking, 5 low shelf, 6 high shelf
};

// One running stage. QnMakeBiquad fills the first five; a new stream starts with a state of 0.
struct tQNBIQUAD {
  double b0;
  double b1;
  double b2;
  double a1;
  double a2;
  double d1;
  double d2;
};

// A section of the equaliser, the resonance y = c * x + a * y1 - b * y2.
struct tQNSIG_SECTION {
  double y1;  // state
  double y2;
  double a;
  double b;
  double c;
  double d;        // correction of a high shelf's level, 1 for the other sections
  double wet;      // the cut level of a low shelf that cuts, else 1
  double dryGain;  // the gain of what the section adds
};

static_assert(sizeof(QNIIR_TYPE) == 4 && sizeof(QNIIR_DESIGN) == 4);
static_assert(sizeof(tQNIIR_BIQUAD) == 9 * sizeof(double) && offsetof(tQNIIR_BIQUAD, a1) == 24 &&
              offsetof(tQNIIR_BIQUAD, d1) == 40 && offsetof(tQNIIR_BIQUAD, d2) == 56);
static_assert(sizeof(tQNIIR_POLYNOMIAL) == 760 && offsetof(tQNIIR_POLYNOMIAL, values) == 8);
static_assert(sizeof(CQnIIR) == 2640 && std::is_trivially_copyable_v<CQnIIR> &&
              offsetof(CQnIIR, lastChannelMask) == 4 && offsetof(CQnIIR, polynomials) == 8 &&
              offsetof(CQnIIR, numBiquads) == 1528 && offsetof(CQnIIR, biquads) == 1536 &&
              offsetof(CQnIIR, gain) == 2616 && offsetof(CQnIIR, dry) == 2624 &&
              offsetof(CQnIIR, useSIMD) == 2632);
static_assert(sizeof(tQNBIQUAD_PARAMETERS) == 48 && offsetof(tQNBIQUAD_PARAMETERS, frequency) == 8 &&
              offsetof(tQNBIQUAD_PARAMETERS, bandwidth) == 24 && offsetof(tQNBIQUAD_PARAMETERS, type) == 40);
static_assert(sizeof(tQNBIQUAD) == 56 && offsetof(tQNBIQUAD, d1) == 40);
static_assert(sizeof(tQNSIG_SECTION) == 64 && offsetof(tQNSIG_SECTION, a) == 16 &&
              offsetof(tQNSIG_SECTION, wet) == 48);

extern "C" {

// Writes b0, b1, b2, a1 and a2, normalised, of a stage. 0; E_NOTIMPL for an unknown type, with the
// coefficients that pass the signal through; E_POINTER for null.
QN_API HRESULT QnMakeBiquad(const tQNBIQUAD_PARAMETERS* parameters, double* coefficients);

// Filter one channel: `frames` samples, `stride` elements apart. `forward` nonzero goes from the first to the
// last, 0 from the last to the first, so that one run each way has no phase. `in` may be `out`. State that
// has decayed below 2 to the power of -32 is set to 0 before the run. Null does nothing.
QN_API void QnBiquadFloatEx(float* out, const float* in, DWORD frames, DWORD stride, tQNBIQUAD* biquad,
                            LONG forward);
QN_API void QnBiquadDoubleEx(double* out, const double* in, DWORD frames, DWORD stride, tQNBIQUAD* biquad,
                             LONG forward);

// Filter one sample in place, as a run of one frame does.
QN_API void QnBiquadSampleFloat(float* sample, tQNBIQUAD* biquad);
QN_API void QnBiquadSampleDouble(double* sample, tQNBIQUAD* biquad);

// Compute a section of the equaliser from `parameters`: frequency, gain in dB, and Q. `clearState` nonzero
// zeroes the state, which else stays. A gain at or below `minimumDb` cuts the shelf off.
QN_API void QnSig_FindLowShelfCutCoeffs(tQNSIG_SECTION* section, const double* parameters, double minimumDb,
                                        DWORD clearState);
QN_API void QnSig_FindHiShelfCutCoeffs(tQNSIG_SECTION* section, const double* parameters, double minimumDb,
                                       DWORD clearState);
QN_API void QnSig_FindLowShelfBoostCoeffs(tQNSIG_SECTION* section, const double* parameters,
                                          DWORD clearState);
QN_API void QnSig_FindHiShelfBoostCoeffs(tQNSIG_SECTION* section, const double* parameters, DWORD clearState);
QN_API void QnSig_FindBandPassCoeffs(tQNSIG_SECTION* section, const double* parameters, LONG clearState);
}
