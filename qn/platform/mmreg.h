// The published records of audio formats, as they stand in files.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

#pragma pack(push, 1)

// 18 bytes. A file may hold the first 16 alone for tags that have no extra bytes.
typedef struct tWAVEFORMATEX {
  WORD wFormatTag;
  WORD nChannels;
  DWORD nSamplesPerSec;
  DWORD nAvgBytesPerSec;
  WORD nBlockAlign;
  WORD wBitsPerSample;
  WORD cbSize;  // bytes that follow this record
} WAVEFORMATEX;

// 40 bytes: tag 0xFFFE with a cbSize of at least 22.
typedef struct {
  WAVEFORMATEX Format;
  union {
    WORD wValidBitsPerSample;
    WORD wSamplesPerBlock;
    WORD wReserved;
  } Samples;
  DWORD dwChannelMask;
  GUID SubFormat;
} WAVEFORMATEXTENSIBLE;

#pragma pack(pop)

static_assert(sizeof(WAVEFORMATEX) == 18 && offsetof(WAVEFORMATEX, cbSize) == 16);
static_assert(sizeof(WAVEFORMATEXTENSIBLE) == 40 && offsetof(WAVEFORMATEXTENSIBLE, SubFormat) == 24);

constexpr WORD WAVE_FORMAT_PCM = 1;
constexpr WORD WAVE_FORMAT_IEEE_FLOAT = 3;
constexpr WORD WAVE_FORMAT_EXTENSIBLE = 0xFFFE;

// The base of sub-formats that carry a format tag in their first 16 bits, with the tags 1 and 3.
constexpr GUID KSDATAFORMAT_SUBTYPE_PCM = {
    0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
constexpr GUID KSDATAFORMAT_SUBTYPE_IEEE_FLOAT = {
    0x00000003, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};

}  // namespace qnplatform
