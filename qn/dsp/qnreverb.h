// A reverberator for float and double audio of one or two channels: a bank of damped feedback comb filters
// for the diffuse tail, three delayed taps a channel for the early reflections, and filters on the wet path.
// All arithmetic is in double, for float audio too.
//
// A handle belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qn/platform/types.h"

// What a host sets. Rooms and patterns of early reflections are rows of fixed tables.
struct _reverb_props {
  LONG dryGain;     // of the dry signal, tenths of a dB; -8000 and less is silence
  LONG reverbGain;  // of the comb bank, alike
  LONG earlyGain;   // of the early reflections, tenths of a dB; -800 exactly is silence
  LONG room;        // row of the room table, 0 to 18
  LONG early;       // row of the early reflection table, 0 to 9
  LONG decay;       // time in which the tail falls by 60 dB, tenths of a second; not below 0
  LONG preDelay;    // of the comb bank's output, milliseconds
  LONG lowCutOn;    // nonzero for the low-cut filter
  LONG lowCutHz;    // its corner
  LONG highCutOn;   // nonzero for the high-cut filter and the combs' damping
  LONG highCutHz;   // their corner; no filter at the sample rate and above
};

// One comb filter; its line is a ring.
struct tQNREVERB_COMB {
  double* start;
  double* cursor;
  double* end;
  double gain;     // of the feedback
  double state;    // of the damping
  int64_t length;  // in frames, by the settings; an update changes it and leaves the line as long as it is
};

// A ring that the comb bank's output goes through. The value at the cursor is the oldest.
struct tQNREVERB_LINE {
  double* start;
  double* cursor;
  double* end;
};

// A ring of the input with three readers. The third one is also where the input is written.
struct tQNREVERB_TAPS {
  double* start;
  double* tap[3];
  double* end;
};

struct HQNREVERB {
  LONG sampleRate;
  DWORD channels;
  int64_t tailFrames;  // whole seconds of the decay
  DWORD combCount;     // by the room at creation, as all lines
  tQNREVERB_COMB combs[10];
  tQNREVERB_COMB rightCombs[2];  // stand for the first two in the right channel
  tQNREVERB_LINE lines[2];       // by channel, as the next two
  tQNREVERB_TAPS taps[2];
  double tapGains[2][3];  // in percent
  double dryLevel;
  double reverbLevel;
  double earlyLevel;  // for gains in percent
  double highCutA;    // of the last value
  double highCutB;    // of the input
  double highCutState;
  DWORD lowCutOn;         // at creation
  double lowCutP;         // of the last value
  double lowCutQ;         // taken off, of the one before
  double lowCutR;         // of the input
  double lowCutState[2];  // the last value and the one before
  double inputScale;      // always 1
};

static_assert(sizeof(_reverb_props) == 44 && offsetof(_reverb_props, room) == 12 &&
              offsetof(_reverb_props, decay) == 20 && offsetof(_reverb_props, preDelay) == 24 &&
              offsetof(_reverb_props, lowCutOn) == 28 && offsetof(_reverb_props, highCutHz) == 40);
static_assert(sizeof(tQNREVERB_COMB) == 48 && offsetof(tQNREVERB_COMB, gain) == 24 &&
              offsetof(tQNREVERB_COMB, state) == 32 && offsetof(tQNREVERB_COMB, length) == 40);
static_assert(offsetof(HQNREVERB, channels) == 4 && offsetof(HQNREVERB, combCount) == 16 &&
              offsetof(HQNREVERB, combs) == 24 && offsetof(HQNREVERB, rightCombs) == 504 &&
              offsetof(HQNREVERB, lines) == 600 && offsetof(HQNREVERB, taps) == 648 &&
              offsetof(HQNREVERB, tapGains) == 728 && offsetof(HQNREVERB, dryLevel) == 776 &&
              offsetof(HQNREVERB, highCutA) == 800 && offsetof(HQNREVERB, lowCutOn) == 824 &&
              offsetof(HQNREVERB, inputScale) == 872);

extern "C" {

// With `create` nonzero makes a reverberator at `*handle`, which QnReverbClose frees. It takes any number of
// channels; QnReverbProcess does nothing for others than 1 and 2.
// With `create` 0 sets the one at `*handle` anew: rate, levels, the coefficients of the filters, and the
// gains of the combs that the new room has. Hosts rely on the rest staying as it was created: all delays, the
// taps' gains, the number of combs and channels, and whether there is a low-cut. `clear` nonzero also
// silences all lines and filters. 0; E_POINTER for null; E_INVALIDARG for a row outside its table, a decay
// below 0 or a rate below 1; E_OUTOFMEMORY. A failure changes nothing.
QN_API HRESULT QnReverbInit(HQNREVERB** handle, int create, _reverb_props* props, LONG sampleRate,
                            DWORD channels, int clear);

// Frees a reverberator; null does nothing.
QN_API void QnReverbClose(HQNREVERB* handle);
}

// Reverberates `frames` interleaved frames. `in` may be `out`. The result does not depend on how a stream is
// cut into calls. Null does nothing.
QN_API void QnReverbProcess(HQNREVERB* handle, float* out, const float* in, DWORD frames);
QN_API void QnReverbProcess(HQNREVERB* handle, double* out, const double* in, DWORD frames);
