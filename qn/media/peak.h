// Peaks: the minimum and maximum of each channel, for a waveform at any zoom.
#pragma once

#include "qn/audio/qncopy.h"
#include "qn/audio/qnwaveformat.h"
#include "qn/platform/com.h"
#include "qn/platform/mmreg.h"
#include "qn/platform/types.h"

// Where a peak object gets its audio from; hosts pass readers of their own for other media than wave files.
// The order of the operations is public.
class CQnAudioPeakStreamReader {
 public:
  virtual ~CQnAudioPeakStreamReader() = default;

  // Prepares for reading and ends it again. 0, or a failure, 0x8004E007 if there is nothing to read.
  virtual HRESULT Open() = 0;

  // Reads up to `frames` frames from `position` on in the source's format into `buffer`, and stores how many
  // came in `*got`. `limit` is how many frames the caller will want in all from there. 1 and 0x800A0026 tell
  // that the data have ended, which is no failure.
  virtual HRESULT Read(LONGLONG position, LONGLONG limit, void* buffer, LONG frames, DWORD* got) = 0;

  // The same in a given format; 0x80004001 where that is not supported.
  virtual HRESULT ReadConverted(LONGLONG position, LONGLONG limit, void* buffer, LONG frames, DWORD* got,
                                const WAVEFORMATEX* format) = 0;

  virtual HRESULT Close() = 0;

  // The source's format, which stays the reader's.
  virtual const WAVEFORMATEX* GetFormat() = 0;

  // The number of the stream in its media, -1 for none.
  virtual LONG GetStreamNumber() = 0;

  // The length in frames.
  virtual LONGLONG GetLength() = 0;

  // Copies the media's name, with nonzero `full` its path, into `size` characters with the terminator.
  virtual HRESULT GetName(WCHAR* buffer, LONG size, LONG full) = 0;

  // The media has a new name. 0x80004001 where that is not supported.
  virtual HRESULT Rename(const WCHAR*) { return E_NOTIMPL; }
};

// What a build of peaks reports to. Begin and Update give 0 to cancel.
struct IQnAudioPeakProgress {
  virtual void Reserved() = 0;
  virtual LONG Begin(const WCHAR* name, LONGLONG total) = 0;
  virtual LONG Update(LONGLONG done) = 0;
  virtual void End(HRESULT status) = 0;

 protected:
  ~IQnAudioPeakProgress() = default;
};

// A peak object, one for each media file. The order of the operations is public. Statuses are those of the
// file functions; `type` is QNST_PCM16 or 0, QNST_PCM8S or QNST_FLOAT32.
struct IQnAudioPeak : IUnknown {
  virtual BOOL IsValid(DWORD flags) = 0;
  virtual HRESULT GetPeakFileName(WCHAR* name, LONG size) = 0;
  virtual HRESULT Build(DWORD flags, IQnAudioPeakProgress* progress) = 0;

  // Audio has been written to the media: `frames` frames of `type` (0: the source's type) from `start` on.
  // Brings the blocks of the peak file up to date. It may read from the media. 1 when there is no peak file,
  // QN_E_FILE_WRITE, E_INVALIDARG for what is no sample type or a place that no file has, E_FAIL for a peak
  // file that is none.
  virtual HRESULT WriteAudio(const void* buffer, LONGLONG start, DWORD frames, QNSAMPLETYPE type) = 0;

  // The media was cut to `frames` frames. E_FAIL for a peak file that is not to be changed.
  virtual HRESULT Truncate(LONGLONG frames) = 0;

  virtual HRESULT Sync(DWORD reserved) = 0;
  virtual HRESULT GetReader(CQnAudioPeakStreamReader** out) = 0;

  // Zero-fills `size` bytes and copies at most the 64 bytes of the peak file's header.
  virtual HRESULT GetHeader(void* out, DWORD size) = 0;

  virtual HRESULT SetKeepOpen(DWORD keepOpen, LONG openNow) = 0;
  virtual HRESULT GetInfo(DWORD* sourceType, DWORD* framesPerPeak, DWORD* peakType, DWORD* memFramesPerPeak,
                          DWORD* memPeakType) = 0;

  // Requests: for each of `pixels` equal parts of the `frames` frames from `start` on, the minimum and the
  // maximum of each channel of the source, as `type`, packed in `out`; `*got` becomes the pixels that were
  // stored. They come from the table in memory, the peak file or the audio, whichever is the coarsest that is
  // fine enough. With no more frames than pixels each sample is a pixel. Fewer pixels come where the peaks
  // end. E_FAIL when there is no peak file, or no block where the request begins, E_UNEXPECTED for another
  // `type`, E_INVALIDARG for audio of no sample type, or what the reader failed with; 1 when the peak file
  // has nothing yet. GetPeaks is GetPeaksEx for QNST_PCM16.
  virtual HRESULT GetPeaks(LONGLONG start, LONGLONG frames, void* out, LONG pixels, DWORD* got) = 0;
  virtual HRESULT GetPeaksEx(LONGLONG start, LONGLONG frames, QNSAMPLETYPE type, void* out, LONG pixels,
                             DWORD* got) = 0;

  // The same with `framesPerPixel` frames for each pixel and `start` rounded down to a multiple of them: the
  // columns of a display that scrolls stay on one grid. E_INVALIDARG for less than a frame or a pixel count
  // below 0.
  virtual HRESULT GetPeaksAligned(LONGLONG start, LONGLONG framesPerPixel, QNSAMPLETYPE type, void* out,
                                  LONG pixels, DWORD* got) = 0;

  // Up to `frames` frames from `start` on, converted to `type` (0: the source's); `*got` becomes how many
  // came. E_INVALIDARG when the types have no conversion.
  virtual HRESULT ReadSamples(LONGLONG start, DWORD type, void* out, DWORD frames, DWORD* got) = 0;
  virtual HRESULT NotImplemented() = 0;
  virtual HRESULT UpdateHeader() = 0;

 protected:
  ~IQnAudioPeak() = default;
};

// The running state of a reduction: for each channel its minimum and its maximum, one pair behind the other
// in the source's sample type, packed. One record has room for 32 channels of any type; for more channels an
// array of records serves as one.
struct tQNAUDIOPEAK_SAMPLESMINMAX {
  alignas(8) BYTE values[32 * 2 * sizeof(double)];
};

// A kernel that reduces samples to pairs of one peak type, a block at a time. A block ends when the phase,
// which each frame raises by 16,384, reaches `step`: the frames per block in fixed point with 14 fractional
// bits.
//   out       the pairs, packed; those of this block go to `index`, counted in values
//   source    points to the next frame, `frames` to how many there are; both advance by what was taken
//   phase     starts at 0 and is kept from call to call
//   state     made by QnAudioPeak_InitMinMaxArray for the source type, kept from call to call
// Returns 1 when the block is finished and stored, 0 when the frames ran out before; the next call goes on
// with it. A finished block seeds the next with the values of its last frame, so the columns of a waveform
// overlap by one sample and have no gaps.
//
// A NaN is no minimum and no maximum: it is passed over, and seeds nothing. A block of nothing else keeps
// the empty pair, its minimum above its maximum.
using QNAUDIOPEAKMINMAXFUNCTION = LONG (*)(void* out, DWORD index, DWORD step, const void** source,
                                           DWORD* frames, DWORD* phase, DWORD channels,
                                           tQNAUDIOPEAK_SAMPLESMINMAX* state);

// A kernel that merges `blocks` stored pairs of `channels` channels into fewer, dstCount for each srcCount.
// A counter starts at srcCount - phase, and each input pair takes dstCount from it. The output pair is stored
// when the counter is negative, which adds srcCount to it, and at the end of the input. So no output pair is
// empty. `out` may be `in`; it needs room for at most as many pairs.
using QNAUDIOPEAKRESAMPLEFUNCTION = void (*)(void* out, LONG srcCount, LONG dstCount, DWORD phase,
                                             const void* in, DWORD blocks, DWORD channels);

extern "C" {

// Empties the state: each minimum becomes the type's highest value and each maximum its lowest. QNST_PCM16BE,
// QNST_PCM24BE and QNST_PCM32BE stand for the little-endian types, which their samples are converted to
// before a reduction. E_INVALIDARG for QNST_PCM24IN32 and what is no sample type.
QN_API HRESULT QnAudioPeak_InitMinMaxArray(QNSAMPLETYPE type, DWORD channels,
                                           tQNAUDIOPEAK_SAMPLESMINMAX* state);

// Fills the state with stored pairs, converted from `storedType` to `type`. Returns 1 when the types are the
// same, 0 when the pairs were converted; E_INVALIDARG when `storedType` is not QNST_PCM8S, QNST_PCM16,
// QNST_PCM32 or QNST_FLOAT32, E_FAIL when the types have no conversion.
QN_API HRESULT QnAudioPeak_PrimeMinMaxArray(QNSAMPLETYPE type, DWORD channels,
                                            tQNAUDIOPEAK_SAMPLESMINMAX* state, QNSAMPLETYPE storedType,
                                            const void* stored);

// The kernel for a peak type (QNST_PCM16 or 0, QNST_PCM8S, QNST_FLOAT32) and a source type (QNST_PCM8U,
// QNST_PCM8S, QNST_PCM16, QNST_PCM24, QNST_PCM32, QNST_FLOAT32, QNST_FLOAT64), or null. Sources of 16 bits
// and of floats are clipped and rounded to nearest, ties to even; those of 24 and 32 bits are cut.
QN_API QNAUDIOPEAKMINMAXFUNCTION QnAudioPeak_GetMinMaxFunction(DWORD peakType, QNSAMPLETYPE sourceType);

// Calls the kernel for the two types and returns its result; 1 when there is none.
QN_API LONG QnAudioPeak_CalcMinMax(QNSAMPLETYPE sourceType, DWORD peakType, void* out, DWORD index,
                                   DWORD step, const void** source, DWORD* frames, DWORD* phase,
                                   DWORD channels, tQNAUDIOPEAK_SAMPLESMINMAX* state);

// The resample kernel for pairs of QNST_PCM16 (or 0), QNST_PCM8S, QNST_PCM32 or QNST_FLOAT32; null for
// another type and for a nonzero `reserved`.
QN_API QNAUDIOPEAKRESAMPLEFUNCTION QnAudioPeak_GetPeakResampleFunction(DWORD type, LONG reserved);

// Calls the resample kernel of a type. E_UNEXPECTED when there is none, and for a `srcCount` below
// `dstCount`.
QN_API HRESULT QnAudioPeak_Resample(DWORD type, void* out, LONG srcCount, LONG dstCount, DWORD phase,
                                    const void* in, DWORD blocks, DWORD channels);

// What a peak object is created with.
constexpr LONG QNAUDIOPEAK_READONLY = 0x01;    // the peak file is not to be changed
constexpr LONG QNAUDIOPEAK_ALWAYSTEMP = 0x02;  // a temporary peak file, deleted with the object
constexpr LONG QNAUDIOPEAK_TEMPFALLBACK =
    0x04;                                      // without ALWAYSTEMP: the file beside the media if it is there
constexpr LONG QNAUDIOPEAK_SHAREWRITE = 0x10;  // with READONLY: others may write the peak file meanwhile
constexpr LONG QNAUDIOPEAK_HIDDEN = 0x20;      // a new peak file is hidden
constexpr LONG QNAUDIOPEAK_THREADSAFE = 0x40;  // GetPeaksEx may run beside a writer
constexpr LONG QNAUDIOPEAK_MEMORYONLY = INT32_MIN;  // no peak file at all

// For Build.
constexpr DWORD QNAUDIOPEAK_BUILD_16BIT = 0x00000001;           // 16-bit peaks, else 8-bit ones
constexpr DWORD QNAUDIOPEAK_BUILD_PROGRESSFRAMES = 0x00000002;  // progress in frames, else in ten-thousandths
constexpr DWORD QNAUDIOPEAK_BUILD_KEEPCANCELLED = 0x00000004;  // a cancelled file is kept, which is a success
constexpr DWORD QNAUDIOPEAK_BUILD_REFINE = 0x20000000;         // with 16BIT: an 8-bit file is rebuilt
constexpr DWORD QNAUDIOPEAK_BUILD_DISCARD = 0x40000000;        // a cancelled file is useless
constexpr DWORD QNAUDIOPEAK_BUILD_FORCE = 0x80000000;          // whatever there is, rebuild

// What Build gives for a file that was valid: a success.
constexpr HRESULT QN_S_PEAKS_VALID = MakeStatus(0x0004E00F);

// Makes a peak object for a media file.
//   reader          the audio, which stays the caller's and has to live as long as the object; null: a wave
//                   file reader for `mediaName`, which is the object's own
//   tempFolder      where temporary peak files go; null: the system's folder for them
//   framesPerPeak   the resolution of a new peak file, 64 to 0x1000000; anything else: 256
//   memFramesPerPeak  the resolution of the table in memory; below 64 or too large: 2048, or 256
//                   for memory alone, and never finer than the peak file; negative: no table
//   flags           QNAUDIOPEAK_*
// Returns 0 for a valid peak file, which stays open, and 1 when the caller has to call Build. On failure
// `*out` is null: QN_E_FILE_OPEN when there is no readable audio, E_OUTOFMEMORY.
QN_API HRESULT QnAudioPeak_CreateInstance(IQnAudioPeak** out, CQnAudioPeakStreamReader* reader,
                                          const WCHAR* mediaName, const WCHAR* tempFolder,
                                          DWORD framesPerPeak, DWORD memFramesPerPeak, LONG flags);

// The same for audio in memory, `frames` frames of `format` at `data`, which stay the caller's and have to
// live as long as the object; they are not used with a `reader`. There is no peak file; `framesPerPeak` is
// the resolution of the table in memory, which Build makes.
QN_API HRESULT QnAudioPeak_CreateMemoryInstance(IQnAudioPeak** out, CQnAudioPeakStreamReader* reader,
                                                const WAVEFORMATEX* format, const void* data, LONGLONG frames,
                                                DWORD framesPerPeak, LONG flags);

// The media has got a new name: tells the reader, and moves the peak file to the name that goes with it. The
// readers of wave files and memory do not take new names (E_NOTIMPL), so this needs a reader of the host's
// own. QN_E_FILE_WRITE when the file cannot be moved; the old name stays then.
QN_API HRESULT QnAudioPeak_HandleMediaRename(IQnAudioPeak* peak, const WCHAR* newName);

// Makes a reader of a WAV, Wave64 or AIFF file. The file is looked at now and opened by Open. A reader is for
// one thread at a time. Without a seek between them, reads go on where the file stands: the first one after
// Open, at position 0, starts at the file's first byte, and those that follow on it stay as early. Hosts
// rely on that.
// QN_E_FILE_OPEN when the file has no readable format, E_OUTOFMEMORY; `*out` is null then.
QN_API HRESULT QnAudio_CreateWaveFileStreamReader(CQnAudioPeakStreamReader** out, const WCHAR* name);

// Deletes such a reader, which closes its file; 0. Null is allowed.
QN_API HRESULT QnAudio_DestroyWaveFileStreamReader(CQnAudioPeakStreamReader* reader);
}
