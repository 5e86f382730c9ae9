// The streaming sample-rate converter: linear interpolation, linear interpolation with a low-pass around it,
// and for float audio a windowed sinc of 25 taps. An interpolator between two frame counts without rates, and
// rational approximation.
//
// An instance takes a stream in buffers of any size and carries position and history from call to call: a
// stream that is cut into buffers gives the samples of the whole stream. (Not so the types 49 and 64 to 66,
// which keep no frame of the buffer before, and the sinc where source and destination counts of the calls are
// not in proportion: its hop is that of each call.) `ratio` is the destination rate divided by the source
// rate, `step` its inverse: the source frames for each output frame.
//
// Room: a call with S source frames gives at most S * ratio + 1 frames, rounded up; its `dst` is to have room
// for them. Buffers need no alignment but that of their samples. Interpolation works in place, `dst` equal to
// `src`; the sinc does not.
//
// With a low-pass on, some calls filter the *source* buffer in place, so it must be writable although the
// interface takes it as constant: linear downsampling, unless QNRESAMPLE_KEEP_SOURCE is set and `dst` is not
// `src`, in which case nothing is filtered; and sinc upsampling. The low-pass has up to two channels: of
// audio with more it filters the first two.
//
// An instance belongs to one thread at a time. All sinc instances of the process share one table. Closing any
// instance releases it, and the next open or call that needs it builds it anew, so instances with the sinc
// are to be opened, run and closed on one thread, or under one lock.
#pragma once

#include <cstdint>

#include "qn/audio/qnwaveformat.h"

// The state of a stream; opaque.
struct tQNRESAMPLEINSTANCE;

// The flags of an instance: a quality, a filter for it, and options. Integer sample types have neither filter
// nor sinc: with the sinc or any filter bit they run as QNRESAMPLE_FILTERED without a filter.
constexpr DWORD QNRESAMPLE_LINEAR = 1;    // the filter is forced off; 0 is the same
constexpr DWORD QNRESAMPLE_FILTERED = 2;  // linear with the filter
constexpr DWORD QNRESAMPLE_SINC = 3;      // any other quality produces nothing
constexpr DWORD QNRESAMPLE_LOWPASS_2ND = 0x10;
constexpr DWORD QNRESAMPLE_LOWPASS_4TH = 0x20;
constexpr DWORD QNRESAMPLE_LOWPASS_6TH = 0x30;
constexpr DWORD QNRESAMPLE_COUNT_IS_DST = 0x1000;  // QnAudio_ResampleEx is given destination frames
constexpr DWORD QNRESAMPLE_KEEP_SOURCE = 0x2000;

extern "C" {

// Opens an instance for `channels` channels of a sample type; OpenEx takes the ratio instead of the rates.
// 0; E_OUTOFMEMORY; E_INVALIDARG for a rate below 1 or channels outside 1 to 65535; E_POINTER. The handle is
// null after a failure. A ratio that is not positive and finite stands for 1.0.
QN_API HRESULT QnAudio_ResampleOpen(tQNRESAMPLEINSTANCE** instance, QNSAMPLETYPE type, LONG srcRate,
                                    LONG dstRate, LONG channels, DWORD flags);
QN_API HRESULT QnAudio_ResampleOpenEx(tQNRESAMPLEINSTANCE** instance, QNSAMPLETYPE type, LONG channels,
                                      double ratio, DWORD flags);

// Change a running instance. A type of 0, a source rate (or ratio) of 0 or less and a channel count of 0 or
// less keep what is there; a source rate that is given sets both rates. New rates or a new ratio restart
// the positions. `clear` nonzero starts a new stream: history, positions and offsets become zero. Without it
// the history stays, unless the channel count changed.
// 0; E_OUTOFMEMORY, after which the instance is released and the handle dead; E_POINTER.
QN_API HRESULT QnAudio_ResampleReset(tQNRESAMPLEINSTANCE* instance, QNSAMPLETYPE type, LONG srcRate,
                                     LONG dstRate, LONG channels, LONG clear);
QN_API HRESULT QnAudio_ResampleResetEx(tQNRESAMPLEINSTANCE* instance, QNSAMPLETYPE type, double ratio,
                                       LONG channels, LONG clear);

// Releases an instance, or nothing for null, and the sinc table of the process. Returns 0.
QN_API HRESULT QnAudio_ResampleClose(tQNRESAMPLEINSTANCE* instance);

// Converts the next buffer and returns the frames produced. `count` is the number of source frames, all of
// which are consumed. With QNRESAMPLE_COUNT_IS_DST it is the number of frames wanted, and `src` holds the
// frames that QnAudio_ResampleGetSrcFromDst tells; when upsampling, the last of them is only looked at, and
// is the first of the next call. (The sinc takes it in all the same: give it source frames.) A ratio of
// exactly 1.0 copies.
QN_API LONG QnAudio_ResampleEx(tQNRESAMPLEINSTANCE* instance, void* dst, const void* src, LONG count);

// Fits `srcFrames` frames to `dstFrames` with the sinc, for types 32 and 33; other types, a channel count
// that is not the instance's, and `dst` equal to `src` give 0. The hop between outputs is srcFrames /
// dstFrames, whatever the instance's ratio is. All source frames are consumed; returns the frames produced,
// which are fewer while the history of 13 frames is being gathered. 0 source frames flush: the frames still
// in the history come out, at the instance's own step.
QN_API LONG QnAudio_Resample_Sinc(QNSAMPLETYPE type, LONG channels, void* dst, LONG dstFrames,
                                  const void* src, LONG srcFrames, tQNRESAMPLEINSTANCE* instance);

// Interpolates `srcFrames` frames to `dstFrames`, whatever the rates. `dst` must not overlap `src` unless it
// is the same buffer. Types 16 to 19, 32, 33 and 48; integer types truncate. Returns the frames produced; -1
// (all ones) for another type.
QN_API LONG QnAudio_ResampleStupid(tQNRESAMPLEINSTANCE* instance, void* dst, LONG dstFrames, const void* src,
                                   LONG srcFrames);

// Converts one buffer, linear with a low-pass of 4th order. Returns 0 always: failures are not reported.
QN_API HRESULT QnAudio_Resample(const WAVEFORMATEX* format, void* dst, LONG dstFrames, const void* src,
                                LONG srcFrames);

// The source frames that a call for `dstFrames` needs, as a 32-bit number; the frames to expect from
// `srcFrames`, give or take the two at its ends. 0 for null.
QN_API int64_t QnAudio_ResampleGetSrcFromDst(tQNRESAMPLEINSTANCE* instance, int64_t dstFrames);
QN_API int64_t QnAudio_ResampleGetDstFromSrc(tQNRESAMPLEINSTANCE* instance, int64_t srcFrames);

// Frames consumed and produced so far. The getters add the offset, the setters write the field alone.
QN_API int64_t QnAudio_ResampleGetSrcPos(tQNRESAMPLEINSTANCE* instance);
QN_API int64_t QnAudio_ResampleGetDstPos(tQNRESAMPLEINSTANCE* instance);
QN_API void QnAudio_ResampleSetSrcPos(tQNRESAMPLEINSTANCE* instance, int64_t position);
QN_API void QnAudio_ResampleSetDstPos(tQNRESAMPLEINSTANCE* instance, int64_t position);
QN_API void QnAudio_ResampleSetSrcOffset(tQNRESAMPLEINSTANCE* instance, int64_t offset);
QN_API void QnAudio_ResampleSetDstOffset(tQNRESAMPLEINSTANCE* instance, int64_t offset);

// Sets the frame before the next buffer, of the first two channels, in units of the samples.
QN_API void QnAudio_ResampleStuffPrevSample(tQNRESAMPLEINSTANCE* instance, double left, double right);

// Approximates `value` by a fraction of small integers; 1 on success, with the error of the fraction.
//   limit     of the larger side of the fraction, raised to the whole part of `value`. 0 stands for
//             0x7FFFFFFF, which no side exceeds in any case.
//   useTable  nonzero: a quotient of two usual sample rates gives these rates as they are.
// 0.0 gives 0 over 1 with result 0. A value that no such fraction comes near to, and a null numerator or
// denominator, give 0 and write no fraction. `error`, which may be null, is 0 then.
QN_API LONG QnRatApprox(double value, int limit, int useTable, int* numerator, int* denominator,
                        double* error);
}
