// The record behind an audio stream, and what its files share.
#pragma once

#include "qn/audio/qncopy.h"
#include "qn/media/qnaudiostream.h"
#include "qn/platform/com.h"

// The order of the fields up to writeType is public.
struct QnAudioStreamRecord {
  ULONGLONG reserved;
  IQnAudioPeak* peak;
  WCHAR path[260];
  WAVEFORMATEX fileFormat;
  WAVEFORMATEX clientFormat;
  WAVEFORMATEX thirdFormat;
  DWORD flags;
  HANDLE file;  // null: none
  ULONGLONG dataOffset;
  ULONGLONG length;
  ULONGLONG position;
  ULONGLONG absPosition;
  DWORD bufferBytes;
  DWORD bufferFrames;
  void* buffers[8];
  QNCOPYFUNCTION readCopy;
  QNCOPYFUNCTION writeCopy;
  DWORD conversionFrames;
  void* conversionBuffer;  // belongs to the open file: without one it is not to be looked at
  QNSAMPLETYPE writeType;
  // Kept because 18 bytes do not tell the type of an extensible format, of a file or of the caller's.
  QNSAMPLETYPE fileType;
  QNSAMPLETYPE clientType;
};
static_assert(
    offsetof(QnAudioStreamRecord, peak) == 8 && offsetof(QnAudioStreamRecord, path) == 16 &&
    offsetof(QnAudioStreamRecord, fileFormat) == 536 && offsetof(QnAudioStreamRecord, clientFormat) == 554 &&
    offsetof(QnAudioStreamRecord, thirdFormat) == 572 && offsetof(QnAudioStreamRecord, flags) == 592 &&
    offsetof(QnAudioStreamRecord, file) == 600 && offsetof(QnAudioStreamRecord, dataOffset) == 608 &&
    offsetof(QnAudioStreamRecord, length) == 616 && offsetof(QnAudioStreamRecord, position) == 624 &&
    offsetof(QnAudioStreamRecord, absPosition) == 632 && offsetof(QnAudioStreamRecord, bufferBytes) == 640 &&
    offsetof(QnAudioStreamRecord, bufferFrames) == 644 && offsetof(QnAudioStreamRecord, buffers) == 648 &&
    offsetof(QnAudioStreamRecord, readCopy) == 712 && offsetof(QnAudioStreamRecord, writeCopy) == 720 &&
    offsetof(QnAudioStreamRecord, conversionFrames) == 728 &&
    offsetof(QnAudioStreamRecord, conversionBuffer) == 736 &&
    offsetof(QnAudioStreamRecord, writeType) == 744);

namespace qn {

constexpr HRESULT kSeekFault = MakeStatus(0x80030019);
constexpr DWORD kStreamBufferBytes = 0x18000;

inline bool ForbidsWrites(DWORD flags) {
  return (flags & 0xF) == 1;
}
inline bool ForbidsReads(DWORD flags) {
  return (flags & 0xF) == 2;
}

// The bytes of a caller's frame; 0 for what is no type.
inline uint32_t FrameBytes(const QnAudioStreamRecord& stream, QNSAMPLETYPE type) {
  if (type == QNST_NONE) type = stream.clientType;
  return static_cast<uint32_t>(QnAudio_BytesFromSampleType(type)) * stream.clientFormat.nChannels;
}

// What every byte of silence is.
inline uint8_t SilenceByte(QNSAMPLETYPE type) {
  return type == QNST_PCM8U ? 0x80 : 0;
}

// Closes the file and frees what belongs to it; true if there was one.
bool CloseStreamFile(QnAudioStreamRecord* stream);

// Moves the file to a frame; false when no file can be there.
bool SeekFrame(const QnAudioStreamRecord& stream, uint64_t frame);

}  // namespace qn
