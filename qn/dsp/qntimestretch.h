// A streaming time stretcher for interleaved float and double audio. It changes the length of a signal and
// keeps its pitch: each block is copied and spliced where it matches best, with a crossfade. A linear
// resampler follows, which at its rate of 1 copies.
//
// A handle belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qn/platform/types.h"

// What a host sets.
struct _time_props {
  double ratio;  // input frames per output frame, above 0
};

struct HQNTIME {
  double ratio;
  double previousRatio;
  double rate;  // of the second stage: always 1 by these functions
  double previousRate;
  LONG totalFrames;       // in the input buffer after the last block
  LONG carryFrames;       // the last ones of them, which go round again
  double* inputBuffer;    // two values a sample of bufferSamples
  double* outputBuffer;   // one
  double* stretchBuffer;  // four
  LONG sampleRate;
  DWORD channels;
  uint64_t bufferSamples;
};

static_assert(sizeof(HQNTIME) == 80 && offsetof(HQNTIME, rate) == 16 &&
              offsetof(HQNTIME, totalFrames) == 32 && offsetof(HQNTIME, carryFrames) == 36 &&
              offsetof(HQNTIME, inputBuffer) == 40 && offsetof(HQNTIME, outputBuffer) == 48 &&
              offsetof(HQNTIME, stretchBuffer) == 56 && offsetof(HQNTIME, sampleRate) == 64 &&
              offsetof(HQNTIME, channels) == 68 && offsetof(HQNTIME, bufferSamples) == 72);

extern "C" {

// With `create` nonzero makes a stretcher at `*handle`, which QnTimeClose frees and which needs
// QnTimeBufAlloc before it processes. With `create` 0 sets the ratio of the one at `*handle` for the blocks
// to come, and its rate back to 1; the rest stays, the carried frames too.
// 0; E_POINTER for null; E_INVALIDARG for a ratio that is not positive and finite, and at creation for no
// channels; E_OUTOFMEMORY. A failure changes nothing.
QN_API HRESULT QnTimeInit(HQNTIME** handle, int create, _time_props* props, LONG sampleRate, DWORD channels);

// Replaces the buffers by zeroed ones for blocks of up to `frames` frames, going in or coming out.
// 0; E_POINTER for null; E_INVALIDARG below 0; E_OUTOFMEMORY, after which the old buffers stay.
QN_API HRESULT QnTimeBufAlloc(HQNTIME* handle, int frames);

// How many input frames give `frames` output frames; 0 for null and for 0 frames or less.
QN_API int ccQnTimeGetInBufSize(HQNTIME* handle, int frames);

// Frees a stretcher; null does nothing.
QN_API void QnTimeClose(HQNTIME* handle);
}

// Stretches `inFrames` interleaved frames. `out` has room for inFrames / ratio frames; how many were written
// goes to `*outFrames`, which may be null. Of a block beyond what the buffers hold the first frames are
// stretched, and no more than 4 times the frames that they are for come out. Without buffers, or with null,
// that is 0 frames.
QN_API void QnTimeProcess(HQNTIME* handle, float* out, const float* in, DWORD* outFrames, DWORD inFrames);
QN_API void QnTimeProcess(HQNTIME* handle, double* out, const double* in, DWORD* outFrames, DWORD inFrames);
