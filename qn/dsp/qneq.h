// A parametric equaliser for interleaved float audio: a chain of bands, each a first-order shelf or a
// second-order peak, with a state for every channel in double precision. New settings can be taken on in the
// middle of a stream without a click: for 32 frames the old filters run beside the new ones and fade out.
//
// A handle belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qn/platform/mmreg.h"
#include "qn/platform/types.h"

enum QNEQ_TYPE : LONG { QNEQ_LOWSHELF = 0, QNEQ_PEAK = 1, QNEQ_HIGHSHELF = 2 };

// A band. Values outside the limits are moved to them; NaN stays, and makes NaN of the audio.
struct tQNEQ_BAND {
  double gainDb;     // -100 to 25; -100 takes the band out altogether, and 0 leaves the audio as it is
  double width;      // of a peak in octaves, 0.10000000149011612 to 5
  double frequency;  // the centre, or a shelf's corner, in hertz: 1 to rate / 2 - 1, but never below 1
  LONG type;         // a QNEQ_TYPE
  LONG enabled;      // nonzero for on
};

static_assert(sizeof(QNEQ_TYPE) == 4);
static_assert(sizeof(tQNEQ_BAND) == 32 && offsetof(tQNEQ_BAND, width) == 8 &&
              offsetof(tQNEQ_BAND, frequency) == 16 && offsetof(tQNEQ_BAND, type) == 24 &&
              offsetof(tQNEQ_BAND, enabled) == 28);

struct tQNEQ;
using HQNEQ = tQNEQ*;

extern "C" {

// Makes an equaliser of `bandCount` bands with clear state for audio of a format; the bands are copied and
// stay as they are. With `crossFade` nonzero the first 32 frames fade in from the dry signal, as those after
// each QnEq_Reset do from the settings before. Free the handle with QnEq_Close.
// 0; E_NOTIMPL unless the format's tag is 3 (IEEE float) and its bits are 32 or 64; E_OUTOFMEMORY, also for
// more than 0x7FFFFFFF bands; E_POINTER for null. `*equaliser` stays as it was on failure.
QN_API HRESULT QnEq_Init(HQNEQ* equaliser, const WAVEFORMATEX* format, const tQNEQ_BAND* bands,
                         DWORD bandCount, LONG crossFade);

// Takes on new settings, as many bands as the equaliser was made with. Their fields are moved to the limits
// in place. `clearState` nonzero clears the state of all bands, which else goes on. A band that is off, or
// has a gain of 0, costs nothing. Null does nothing.
QN_API void QnEq_Reset(HQNEQ equaliser, tQNEQ_BAND* bands, LONG clearState);

// Filter `frames` interleaved frames. `in` may be `out`; else the two must not overlap. Float audio is
// rounded to float after each band. A block of fewer than 32 frames goes through the new filters alone, and a
// cross-fade that is due waits for the next one that is long enough. State that has decayed below 2 to the
// power of -32 is set to 0 before a block, so that cutting a stream into blocks can change it by so much.
// The number of channels; 0 for a null handle. With null audio nothing else is done.
QN_API DWORD QnEq_ProcessFloat(HQNEQ equaliser, float* out, const float* in, DWORD frames);
QN_API DWORD QnEq_ProcessDouble(HQNEQ equaliser, double* out, const double* in, DWORD frames);

// Null does nothing.
QN_API void QnEq_Close(HQNEQ equaliser);
}
