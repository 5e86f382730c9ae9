// Wave formats: the sample types, the library's normal form of a format, and its conversion to and from the
// published records.
#pragma once

#include "qn/platform/mmreg.h"
#include "qn/platform/types.h"

// The sample types. The values are part of the interface; the upper nibble groups the family. 0: the format
// is none of them, and no kernel accepts it.
enum QNSAMPLETYPE : int32_t {
  QNST_NONE = 0,
  QNST_PCM8U = 16,
  QNST_PCM16 = 17,
  QNST_PCM24 = 18,
  QNST_PCM32 = 19,
  QNST_FLOAT32 = 32,
  QNST_FLOAT64 = 33,
  QNST_PCM24IN32 = 48,
  QNST_PCM8S = 49,
  QNST_PCM16BE = 64,
  QNST_PCM24BE = 65,
  QNST_PCM32BE = 66,
  QNST_TAGFE03_16 = 128,
  QNST_TAGFE03_24 = 129,
};

constexpr WORD QNWAVETAG_UNPACKED = 0xFE00;
constexpr WORD QNWAVETAG_SIGNED8 = 0xFE01;
constexpr WORD QNWAVETAG_BIGENDIAN = 0xFE02;

// What a conversion to WAVEFORMATEX is to produce.
enum QNWAVEFORMAT_COPY_DEST : int32_t {
  QNWFCD_AUTO = 0,
  QNWFCD_WFX = 1,
  QNWFCD_WFX_NOMASK = 2,
  QNWFCD_EXT_MULTICHANNEL = 3,
  QNWFCD_EXTENSIBLE = 4,
};

constexpr DWORD QNWF_FOREIGN = 8;
constexpr DWORD QNWF_FROM_EXTENSIBLE = 16;

#pragma pack(push, 1)
struct _qnwaveformat {
  uint32_t cbRecord;
  QNSAMPLETYPE sampleType;
  uint32_t nSamplesPerSec;
  uint16_t nChannels;
  uint16_t nBlockAlign;
  uint32_t dwChannelMask;
  uint32_t dwFlags;
  uint16_t wFormatTag;
  uint16_t wBitsPerSample;
  uint32_t nAvgBytesPerSec;
  uint16_t cbExtra;
  uint8_t extra[1024];

  void Init(DWORD rate, QNSAMPLETYPE type, unsigned int channels, DWORD channelMask, DWORD size);
  void Init(DWORD size, const WAVEFORMATEX& format);
};
#pragma pack(pop)
