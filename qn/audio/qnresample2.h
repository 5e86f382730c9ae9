// The second streaming sample-rate converter: a call is given room for frames and a supply of frames, and
// tells how much of each it used. Linear interpolation, cubic B-spline, or a windowed sinc of 25 taps, with
// an optional low-pass below the lower of the two Nyquist frequencies.
//
// An instance takes a stream in calls of any size and carries time and history from one to the next: a stream
// that is cut into calls gives the samples of the whole stream. Rates that form an exact fraction run on
// integer phases and never drift. `ratio` is the destination rate divided by the source rate, `step` its
// inverse: the source frames for each output frame.
//
// The cubic and the sinc begin when their history holds 3 or 13 frames. A call with a supply of 0 flushes:
// the frames at the end of the stream come out, so that a stream of n frames gives all outputs whose time is
// below n. The linear mode looks one frame ahead: it ends with the last output that lies between two frames
// and has nothing to flush.
//
// Integer audio is converted to float (32-bit types to double) and back, except in the linear mode without a
// low-pass, which works on the types 16, 17, 19, 48, 32 and 33 as they are. The low-pass has up to two
// channels: of audio with more it filters the first two. Buffers need no alignment but that of their samples,
// and `dst` may be `src`.
//
// An instance belongs to one thread at a time; instances share nothing.
#pragma once

#include <cstdint>

#include "qn/audio/qnwaveformat.h"

// The state of a stream; opaque.
struct tQNRESAMPLE2INSTANCE;

// The flags of an instance: a mode, a low-pass for it, and an option. Any other mode opens but has no
// kernel; any other value of the bits 4 to 6 stands for no low-pass.
constexpr DWORD QNRESAMPLE2_LINEAR = 1;
constexpr DWORD QNRESAMPLE2_CUBIC = 2;
constexpr DWORD QNRESAMPLE2_SINC = 4;
constexpr DWORD QNRESAMPLE2_LOWPASS_4TH = 0x10;
constexpr DWORD QNRESAMPLE2_LOWPASS_8TH = 0x20;
constexpr DWORD QNRESAMPLE2_LOWPASS_11TH = 0x40;
constexpr DWORD QNRESAMPLE2_NO_SIMD = 0x100;  // the low-pass and the sinc of doubles run without vectors

extern "C" {

// Opens an instance. With rates the ratio is their exact fraction; OpenEx looks for a fraction that is
// exactly the ratio and else runs on real numbers. `*instance` is null after a failure.
// 0; E_INVALIDARG for a type outside 16 to 66, a rate below 1, a channel count outside 1 to 65535, or a ratio
// that is not a number between 2^-30 and 2^30; E_NOTIMPL for a type without conversion; E_OUTOFMEMORY;
// E_POINTER.
QN_API HRESULT QnAudio_Resample2Open(tQNRESAMPLE2INSTANCE** instance, QNSAMPLETYPE type, LONG channels,
                                     LONG srcRate, LONG dstRate, DWORD flags);
QN_API HRESULT QnAudio_Resample2OpenEx(tQNRESAMPLE2INSTANCE** instance, QNSAMPLETYPE type, LONG channels,
                                       double ratio, DWORD flags);

// Change a running instance: type, channels, each rate and flags are kept where 0 is given, the ratio where 0
// or less is. `clear` nonzero starts a new stream; without it time and history go on, as long as the mode
// stays and the type that it works in, of floats the one or the other; the low-pass goes on from its state.
// One rate alone goes with the other one of the fraction in use; without a fraction it is refused.
// 0, or a status as for Open; only the types 16 to 48 are accepted here. EVERY failure but that of a null
// instance closes the instance: the handle is dead then.
QN_API HRESULT QnAudio_Resample2Reset(tQNRESAMPLE2INSTANCE* instance, QNSAMPLETYPE type, LONG channels,
                                      LONG srcRate, LONG dstRate, DWORD flags, LONG clear);
QN_API HRESULT QnAudio_Resample2ResetEx(tQNRESAMPLE2INSTANCE* instance, QNSAMPLETYPE type, LONG channels,
                                        double ratio, DWORD flags, LONG clear);

// Releases an instance, or nothing for null.
QN_API void QnAudio_Resample2Close(tQNRESAMPLE2INSTANCE* instance);

// Converts the next frames: at most `dstFrames` to `dst`, from at most `srcFrames` at `src`. `*produced` and
// `*consumed` (each may be null) tell what was used; frames that were not consumed are to be offered again.
// A supply of 0 flushes; when such a call has room left over, the stream is at its end.
//   - A ratio of exactly 1.0 copies the smaller number of frames; with `dst` equal to `src` both counts are
//     reported as given.
//   - A ratio below 1.0 with a whole `step` takes every step-th frame, whatever the mode.
// 0; E_NOTIMPL when the mode has no kernel for the type, E_OUTOFMEMORY, E_POINTER: both counts are 0 then,
// and the instance lives on.
QN_API HRESULT QnAudio_Resample2Process(tQNRESAMPLE2INSTANCE* instance, void* dst, DWORD dstFrames,
                                        DWORD* produced, const void* src, DWORD srcFrames, DWORD* consumed);

// The source frames that the next `dstFrames` outputs need, in the linear mode perhaps one more; 0 for a mode
// without kernels and for null. Larger numbers than 2^32 - 1 are given as that.
QN_API DWORD QnAudio_Resample2GetSrcFromDst(tQNRESAMPLE2INSTANCE* instance, DWORD dstFrames);

// Frames consumed and produced since the stream began.
QN_API int64_t QnAudio_Resample2GetSrcPos(tQNRESAMPLE2INSTANCE* instance);
QN_API int64_t QnAudio_Resample2GetDstPos(tQNRESAMPLE2INSTANCE* instance);
}
