// A fast compressor for interleaved float audio of one or two channels, with a remover of DC before it.
//
// A handle belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qn/platform/types.h"

// Levels and gains are linear, 1.0 being full scale.
struct HQNCOMPDC {
  double gain;  // the gain now applied
  double threshold;
  double knee;  // the level that an input of full scale maps to
  double slope;
  double attack;     // what is left, a frame later, of the distance to a lower gain
  double release;    // and to a higher one
  double envelope;   // of the level
  double blockPeak;  // the last frame's level above the envelope; 0 if it has none
  double makeup;
  double ratio;
  double dcState[2];   // one for each channel
  double coefficient;  // `attack` or `release`: the one used last
  uint32_t removeDC;
};

static_assert(sizeof(HQNCOMPDC) == 112 && offsetof(HQNCOMPDC, threshold) == 8 &&
              offsetof(HQNCOMPDC, knee) == 16 && offsetof(HQNCOMPDC, slope) == 24 &&
              offsetof(HQNCOMPDC, attack) == 32 && offsetof(HQNCOMPDC, release) == 40 &&
              offsetof(HQNCOMPDC, envelope) == 48 && offsetof(HQNCOMPDC, blockPeak) == 56 &&
              offsetof(HQNCOMPDC, makeup) == 64 && offsetof(HQNCOMPDC, ratio) == 72 &&
              offsetof(HQNCOMPDC, dcState) == 80 && offsetof(HQNCOMPDC, coefficient) == 96 &&
              offsetof(HQNCOMPDC, removeDC) == 104);

extern "C" {

// Takes on settings: levels above `thresholdDb` are reduced, full scale to where it is with a growth of
// 1 / `ratio` and those between in a straight line of amplitudes, and the result is made louder by
// `outputGainDb` and by 0.7 of the threshold. Attacks take 2 ms and releases 30 ms. With `create` nonzero a
// new handle goes to `*compressor`, to be freed with QnCompDCClose; else the one that is there goes on from
// its gain and its state of the DC remover, with a clear envelope.
// 0; E_OUTOFMEMORY when there is none for the handle; E_POINTER for null, or for no handle to go on with.
// `*compressor` stays as it was on failure.
QN_API HRESULT QnCompDCInit(HQNCOMPDC** compressor, LONG create, double thresholdDb, double ratio,
                            double outputGainDb, LONG sampleRate, LONG removeDC);

// Null does nothing.
QN_API void QnCompDCClose(HQNCOMPDC* compressor);
}

// Compress `frames` interleaved frames with one gain for all channels. `in` may be `out`; else the two must
// not overlap. Floats are multiplied in single precision. How a stream is cut into calls does not matter.
// The DC remover has state for two channels: those beyond pass it by, and are compressed as they are. Null
// and no channels do nothing.
QN_API void QnCompDC(HQNCOMPDC* compressor, float* out, const float* in, DWORD frames, DWORD channels);
QN_API void QnCompDC(HQNCOMPDC* compressor, double* out, const double* in, DWORD frames, DWORD channels);
