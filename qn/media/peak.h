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
  virtual HRESULT WriteAudio(const void* buffer, LONGLONG start, DWORD frames, QNSAMPLETYPE type) = 0;

  // The media was cut to `frames` frames.
  virtual HRESULT Truncate(LONGLONG frames) = 0;

  virtual HRESULT Sync(DWORD reserved) = 0;
  virtual HRESULT GetReader(CQnAudioPeakStreamReader** out) = 0;

  // Zero-fills `size` bytes and copies at most the 64 bytes of the peak file's header.
  virtual HRESULT GetHeader(void* out, DWORD size) = 0;

  virtual HRESULT SetKeepOpen(DWORD keepOpen, LONG openNow) = 0;
  virtual HRESULT GetInfo(DWORD* sourceType, DWORD* framesPerPeak, DWORD* peakType, DWORD* memFramesPerPeak,
                          DWORD* memPeakType) = 0;
  virtual HRESULT GetPeaks(LONGLONG start, LONGLONG frames, void* out, LONG pixels, DWORD* got) = 0;
  virtual HRESULT GetPeaksEx(LONGLONG start, LONGLONG frames, QNSAMPLETYPE type, void* out, LONG pixels,
                             DWORD* got) = 0;
  virtual HRESULT GetPeaksAligned(LONGLONG start, LONGLONG framesPerPixel, QNSAMPLETYPE type, void* out,
                                  LONG pixels, DWORD* got) = 0;
  virtual HRESULT ReadSamples(LONGLONG start, DWORD type, void* out, DWORD frames, DWORD* got) = 0;
  virtual HRESULT NotImplemented() = 0;
  virtual HRESULT UpdateHeader() = 0;

 protected:
  ~IQnAudioPeak() = default;
};
