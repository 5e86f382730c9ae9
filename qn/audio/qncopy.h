// Sample copy and conversion: any of the eleven sample types to any other, with an optional gain, in one
// pass.
//
// A copy kernel is a plain function for one pair of sample types, chosen once by a lookup and then called on
// whole buffers. Each sample x, decoded to full scale 1.0, is multiplied by the gain; integer destinations
// clip at the rails of their type and then round to nearest, ties to even. A NaN has no place on an integer
// scale: the low bits of its pattern are stored, 0 for the processor's default NaN. The vector kernel of
// 16-bit from float differs where no audio is: in its blocks of four, a NaN and products from 2^31 on give
// -32768.
//
// Buffers need no alignment. A kernel may convert in place, destination and source at the same address, for
// all pairs but 32-bit big-endian from double. The pairs 16-bit with big-endian 16-bit, and 32-bit with
// big-endian 32-bit, share one kernel for both directions: with a gain other than 1.0 it reads and writes
// big-endian on both sides. Hosts rely on that.
#pragma once

#include "qn/audio/qnwaveformat.h"

// Converts `samples` single samples (channels times frames) and multiplies by `scale`. A count of 0 or less
// writes nothing. A kernel pointer stays valid for the life of the library.
using QNCOPYFUNCTION = void (*)(void* dst, const void* src, LONG samples, float scale);

// Converts one channel of interleaved audio into one channel of another interleaved buffer, with gain 1.0:
// `dstChannels` and `srcChannels` are the strides in samples, `dstChannel` and `srcChannel` the offsets of
// the first sample. A count of 0 or less writes nothing.
using QNCOPYCHANNELSFUNCTION = void (*)(void* dst, DWORD dstChannels, DWORD dstChannel, const void* src,
                                        DWORD srcChannels, DWORD srcChannel, LONG frames);

extern "C" {

// The copy kernel of a pair of sample types, or null: for values that are no sample type, and for
// QNST_PCM16BE and QNST_PCM24BE from QNST_PCM24IN32 or QNST_PCM32BE. The processor masks of this moment
// choose between the scalar and the vector kernel of the pairs that have both.
QN_API QNCOPYFUNCTION QnAudio_GetCopyFunction2(QNSAMPLETYPE dstType, QNSAMPLETYPE srcType);

// The channel kernel of a pair of sample types, or null. Beside the pairs of the copy kernels it knows some
// with QNST_TAGFE03_16 and QNST_TAGFE03_24, which appear here alone.
QN_API QNCOPYCHANNELSFUNCTION QnAudio_GetCopyChannelsFunction2(QNSAMPLETYPE dstType, QNSAMPLETYPE srcType);

// Copies channels of interleaved audio. `map` has one entry a source channel: the destination channel that
// it goes to; an entry that is negative or not below the destination's channels leaves the channel out.
// Destination channels that no entry names stay as they were. With a null map this is QnAudio_Copy with a
// scale of 1.0. Returns 0, E_NOTIMPL when the pair of formats has no kernel, E_POINTER for a null argument;
// nothing is written then. 0 frames return 0 before any other test.
QN_API HRESULT QnAudio_CopyChannels(const WAVEFORMATEX* dstFormat, void* dst, const WAVEFORMATEX* srcFormat,
                                    const void* src, DWORD frames, const int* map);

// Proves that conversion round trips are exact, for every value of the integer types of up to 24 bits.
// Returns 1 when nothing is wrong. A failure returns its status (E_UNEXPECTED for a mismatch, E_OUTOFMEMORY)
// when `window` is null; otherwise it is shown in a message box over the window, and 0 is returned. Not to be
// run by two threads at once.
QN_API HRESULT QnAudioCopy_UnitTest(HWND window);
}

// The copy and the channel kernel of two formats, or null.
QN_API QNCOPYFUNCTION QnAudio_GetCopyFunction(const WAVEFORMATEX* dstFormat, const WAVEFORMATEX* srcFormat);
QN_API QNCOPYFUNCTION QnAudio_GetCopyFunction(const WAVEFORMATEX* dstFormat, const _qnwaveformat* srcFormat);
QN_API QNCOPYFUNCTION QnAudio_GetCopyFunction(const _qnwaveformat* dstFormat, const WAVEFORMATEX* srcFormat);
QN_API QNCOPYCHANNELSFUNCTION QnAudio_GetCopyChannelsFunction(const WAVEFORMATEX* dstFormat,
                                                              const WAVEFORMATEX* srcFormat);
QN_API QNCOPYCHANNELSFUNCTION QnAudio_GetCopyChannelsFunction(const WAVEFORMATEX* dstFormat,
                                                              const _qnwaveformat* srcFormat);
QN_API QNCOPYCHANNELSFUNCTION QnAudio_GetCopyChannelsFunction(const _qnwaveformat* dstFormat,
                                                              const WAVEFORMATEX* srcFormat);

// Converts `frames` frames of the source's channel count with the gain `scale`; the destination's channel
// count plays no part. Returns 0, E_NOTIMPL when the pair of formats has no kernel, E_POINTER for a null
// argument; nothing is written then. 0 frames return 0 before any other test, and a negative count writes
// nothing.
QN_API HRESULT QnAudio_Copy(const WAVEFORMATEX* dstFormat, void* dst, const WAVEFORMATEX* srcFormat,
                            const void* src, LONG frames, float scale);
QN_API HRESULT QnAudio_Copy(const WAVEFORMATEX* dstFormat, void* dst, const _qnwaveformat* srcFormat,
                            const void* src, LONG frames, float scale);
QN_API HRESULT QnAudio_Copy(const _qnwaveformat* dstFormat, void* dst, const WAVEFORMATEX* srcFormat,
                            const void* src, LONG frames, float scale);
QN_API HRESULT QnAudio_Copy(const _qnwaveformat* dstFormat, void* dst, const _qnwaveformat* srcFormat,
                            const void* src, LONG frames, float scale);
