// Mixing and measuring: a source added to a destination with gains or under an envelope, peaks and levels,
// silence, reversal.
//
// As with the copy kernels, a lookup by sample types gives a plain function without state, and an operation
// on formats looks it up and calls it. The types are 16 to 19, 32, 33, 48 and 49; the big-endian ones have no
// kernels here. Integer destinations saturate at the rails of their type; a decoded sample is clipped and
// rounded as in a copy before it is added. Buffers need no alignment.
//
// Operations return 0 for 0 frames before any other test, E_NOTIMPL when the formats have no kernel and
// E_POINTER for a null argument; nothing is written then. What is said of QnAudio_Reverse and the silences
// goes before this.
#pragma once

#include "qn/audio/qnwaveformat.h"

// The peak of one channel.
struct QNPEAKRESULT {
  float peak;      // the magnitude, full scale is about 1.0
  DWORD position;  // the frame of the peak
  BOOL clipped;
};

// An attack-sustain-release envelope in the terms of a user. Times are in units of 100 nanoseconds. A curve
// from -1 to 1 is linear; above, the segment starts flat and accelerates; below, it starts steep and
// flattens.
struct tQNASR {
  float level;  // of the sustain
  int64_t attackTime;
  int64_t releaseTime;
  int32_t attackCurve;
  float attackLevel;  // at the start of the attack
  int32_t releaseCurve;
  float releaseLevel;  // at the end of the release, and from there on
};

// The same in frames, prepared for the sample type of one source, with the state of a run through it.
struct tQNASRCOOKED {
  int32_t attackCurve;
  int32_t releaseCurve;
  int32_t attackFrames;
  int32_t releaseFrames;
  int64_t sustainFrames;
  int64_t position;  // frame of the next output, from the start of the envelope
  double level;      // levels are multiplied by the gain and the factor of the sample type
  double attackLevel;
  double releaseLevel;
  int64_t framesLeft;  // up to the next re-cook
  double gain;         // at `position`
  double gainStep;     // added to `gain` after each frame
  double gainStep2;    // added to `gainStep` after each frame
};

// Adds `samples` single samples (channels times frames), sample i times gains[i % channels]. The buffers may
// be the same only where the sample types are.
using QNMIXFUNCTION = void (*)(void* dst, const void* src, LONG samples, DWORD channels, const double* gains);

// Adds one channel of interleaved audio to one channel of another interleaved buffer; the arguments are those
// of QNCOPYCHANNELSFUNCTION.
using QNMIXCHANNELSFUNCTION = void (*)(void* dst, DWORD dstChannels, DWORD dstChannel, const void* src,
                                       DWORD srcChannels, DWORD srcChannel, LONG frames, double gain);

// Adds frames under the present segment of an envelope, which is only read. `channels` counts for source and
// destination. The kernels of mono and stereo destinations have no such argument.
using QNMIXEXFUNCTION = void (*)(void* dst, const void* src, LONG frames, DWORD channels,
                                 tQNASRCOOKED* envelope);
using QNMIXEXNARROWFUNCTION = void (*)(void* dst, const void* src, LONG frames, tQNASRCOOKED* envelope);

// Peaks, levels and sums of the channels of `frames` frames; one result a channel.
using QNFINDPEAKSFUNCTION = void (*)(int channels, int clipRun, const void* src, int frames,
                                     QNPEAKRESULT* out);
using QNCALCRMSFUNCTION = void (*)(int channels, const void* src, int frames, float* out);
using QNCALCPRERMSFUNCTION = void (*)(int channels, const void* src, DWORD frames, float* out, DWORD squared);

extern "C" {

// The mix kernel of a pair of sample types or of formats, or null. The processor masks of this moment choose
// between the two kernels of float from float: the vector kernel multiplies in single precision, where both
// buffers are 16-byte aligned.
//
// Hosts rely on these: the kernels of equal types 16, 17 and 48 take gains[0] for every sample. Those of
// equal types but 18 and 19 do nothing when the buffers are the same. Double from type 16 is the kernel of
// type 49: bytes count as signed.
QN_API QNMIXFUNCTION QnAudio_GetMixFunction2(QNSAMPLETYPE dstType, QNSAMPLETYPE srcType);
QN_API QNMIXFUNCTION QnAudio_GetMixFunction(const WAVEFORMATEX* dstFormat, const WAVEFORMATEX* srcFormat);

// Mixes `frames` frames of the source's channel count into `dst`; the destination's channel count plays no
// part. `gains` has one entry a source channel.
QN_API HRESULT QnAudio_Mix(const WAVEFORMATEX* dstFormat, void* dst, const WAVEFORMATEX* srcFormat,
                           const void* src, DWORD frames, const double* gains);

// The mix-channels kernel of a pair of sample types or of formats, or null.
//
// Hosts rely on these: the gain plays no part from integers to 16, 17, 48 and 49, nor from double to double.
// Into type 16, the stored bytes of both sides are added as unsigned numbers, and the sum ends at 127. Double
// from type 16 counts the bytes as signed.
QN_API QNMIXCHANNELSFUNCTION QnAudio_GetMixChannelsFunction2(QNSAMPLETYPE dstType, QNSAMPLETYPE srcType);
QN_API QNMIXCHANNELSFUNCTION QnAudio_GetMixChannelsFunction(const WAVEFORMATEX* dstFormat,
                                                            const WAVEFORMATEX* srcFormat);

// Mixes channels of interleaved audio. `map` and `gains` have one entry a source channel: the destination
// channel that it is added to, and its gain. An entry of `map` that is negative or not below the
// destination's channels leaves the channel out. With a null map this is QnAudio_Mix.
QN_API HRESULT QnAudio_MixChannels(const WAVEFORMATEX* dstFormat, void* dst, const WAVEFORMATEX* srcFormat,
                                   const void* src, DWORD frames, const int* map, const double* gains);

// The envelope kernel of two formats, or null: destinations are float and double only. For a destination of
// 1 or 2 channels the pointer is a QNMIXEXNARROWFUNCTION and is to be cast to that.
//
// A mono destination takes the source as stereo and adds the sum of both samples. The kernels do not store
// the advanced gain in the envelope.
QN_API QNMIXEXFUNCTION QnAudio_GetMixExFunction(const WAVEFORMATEX* dstFormat, const WAVEFORMATEX* srcFormat);

// Mixes `frames` frames under an envelope and moves its `position` and `framesLeft` on. The channels are the
// destination's, with two source samples a frame for a mono destination, whatever the source's format says:
// `src` has to hold them. A call that ends within a segment leaves the gain as it was at the segment's last
// re-cook: a caller that goes on from there calls QnAudio_ASRReCook with `position` first.
//
// Returns 1 when the destination is neither float nor double: the source was mixed at a gain of 1.0, without
// the envelope. A null envelope is a gain of 1.0 as well, and returns 0.
QN_API HRESULT QnAudio_MixEx(const WAVEFORMATEX* dstFormat, void* dst, const WAVEFORMATEX* srcFormat,
                             const void* src, int frames, tQNASRCOOKED* envelope);

// Prepares an envelope for sources of `format`, at `start` frames from its beginning. `totalTime` is the time
// from the start of the attack to the end of the release; when it is too short for both, it is divided
// equally between them. Does nothing for a null argument.
QN_API void QnAudio_ASRCook(const WAVEFORMATEX* format, const tQNASR* envelope, tQNASRCOOKED* cooked,
                            int64_t start, int64_t totalTime, double gain);

// Moves a prepared envelope to a position, in frames.
QN_API void QnAudio_ASRReCook(tQNASRCOOKED* cooked, int64_t position);

// The kernel of a format that measures peaks, levels or sums, or null; sums are those of float and double
// only.
QN_API QNFINDPEAKSFUNCTION QnAudio_GetFindPeaksFunction(const WAVEFORMATEX* format);
QN_API QNCALCRMSFUNCTION QnAudio_GetCalcRMSFunction(const WAVEFORMATEX* format);
QN_API QNCALCPRERMSFUNCTION QnAudio_GetCalcPreRMSFunction(const WAVEFORMATEX* format);

// The peak of each channel; of equal ones the last. A run of `clipRun` samples at full scale ends the walk
// through a channel, sets `clipped`, and its first sample is the position.
//
// Float sources are special, and hosts rely on it: `clipRun` plays no part, `clipped` tells of a sample above
// 1.0, and `position` is the number of frames.
QN_API HRESULT QnAudio_FindPeaks(const WAVEFORMATEX* format, DWORD clipRun, const void* src, DWORD frames,
                                 QNPEAKRESULT* out);

// The root of the mean square of each channel, of integers in whole units of the type. The squares of
// integers are added up modulo 2^64, which 32-bit samples near full scale reach after 4 frames.
QN_API HRESULT QnAudio_CalcRMS(const WAVEFORMATEX* format, const void* src, DWORD frames, float* out);

// The sum of the magnitudes of each channel, or of the squares if `squared` is not 0.
QN_API HRESULT QnAudio_CalcPreRMS(const WAVEFORMATEX* format, const void* src, DWORD frames, float* out,
                                  DWORD squared);

// Writes silence to one channel. Returns E_FAIL for a channel that the format does not have and for formats
// that are not handled; tag 0xFFFE is not. So it does for a block align too small for the samples.
QN_API HRESULT QnAudio_FillSilenceChannel(const WAVEFORMATEX* format, void* dst, DWORD channel, DWORD frames);

// Writes the frame at `sample` to every frame of `dst`. Between two types of 17, 18, 19, 32, 33 and 48, both
// sides count as stereo: two samples are converted and every frame of two takes both. Where a block align has
// room for one sample only, that one stands for both. Any other pair of types writes silence. Always 0.
QN_API HRESULT QnAudio_FillWithSample(const WAVEFORMATEX* dstFormat, void* dst, const WAVEFORMATEX* srcFormat,
                                      const void* sample, DWORD frames);

// Converts `src` into `dst` with the gain `scale`, where the two differ in anything, and reverses the order
// of the frames of `dst`. A missing kernel leaves the conversion out. Frames of 16 bytes are reversed as if
// they had 12: hosts rely on it. Returns 0, or E_FAIL with nothing written when the destination's channels
// are 0, or its block align gives frames larger than the block align and than converted frames.
QN_API HRESULT QnAudio_Reverse(const WAVEFORMATEX* dstFormat, void* dst, const WAVEFORMATEX* srcFormat,
                               const void* src, DWORD frames, float scale);
}

// Writes `frames` frames of silence. Returns E_FAIL for formats that are not handled, and 0 with nothing
// written for tag 0xFFFE with a sub-format that is neither PCM nor float.
QN_API HRESULT QnAudio_FillSilence(const WAVEFORMATEX* format, void* dst, DWORD frames);
QN_API HRESULT QnAudio_FillSilence(const _qnwaveformat* format, void* dst, DWORD frames);
