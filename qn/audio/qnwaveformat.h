// Wave formats: the sample types, the library's normal form of a format, and its conversion to and from the
// published records.
//
// A WAVEFORMATEX with tag 1 or 3 is a record of 16 bytes in many files, so only the functions that say so
// read the cbSize of one. A WAVEFORMATEX with tag 0xFFFE has at least the 40 bytes of a
// WAVEFORMATEXTENSIBLE behind its pointer, also where its cbSize says less, unless a function says that it
// looks at cbSize first.
//
// Nothing here fails: a format that is not known has sizes of 0. A null record gives 0, null or no effect.
#pragma once

#include "qn/platform/mmreg.h"
#include "qn/platform/types.h"

// The sample types. The values are part of the interface; the upper nibble groups the family. 0: the format
// is none of them, and no kernel accepts it.
enum QNSAMPLETYPE : int32_t {
  QNST_NONE = 0,
  QNST_PCM8U = 16,        // unsigned, silence is 0x80
  QNST_PCM16 = 17,        // signed little-endian, as the next two
  QNST_PCM24 = 18,        // packed in 3 bytes
  QNST_PCM32 = 19,        //
  QNST_FLOAT32 = 32,      // full scale is 1.0, as for the next
  QNST_FLOAT64 = 33,      //
  QNST_PCM24IN32 = 48,    // right-justified in a signed 32-bit little-endian word
  QNST_PCM8S = 49,        // signed, silence is 0
  QNST_PCM16BE = 64,      // signed big-endian, as the next two
  QNST_PCM24BE = 65,      // packed in 3 bytes
  QNST_PCM32BE = 66,      //
  QNST_TAGFE03_16 = 128,  // what the tag lookup gives for tag 0xFE03: these two have no size, no tag and
  QNST_TAGFE03_24 = 129,  // no kernels, so such a format is not handled
};

// The library's own format tags.
constexpr WORD QNWAVETAG_UNPACKED = 0xFE00;
constexpr WORD QNWAVETAG_SIGNED8 = 0xFE01;
constexpr WORD QNWAVETAG_BIGENDIAN = 0xFE02;

// What a conversion to WAVEFORMATEX is to produce, where the output holds the 40 bytes of an extensible one;
// a smaller output is always plain. The full mask of a format has one bit for each channel:
// (1 << nChannels % 64) - 1, cut to 32 bits.
enum QNWAVEFORMAT_COPY_DEST : int32_t {
  // Extensible if the record came from an extensible source, or has a channel mask that is neither 0 nor the
  // full mask.
  QNWFCD_AUTO = 0,
  // Never forced to extensible; a mask that says something can still make it so.
  QNWFCD_WFX = 1,
  // Never forced, and the channel mask is dropped.
  QNWFCD_WFX_NOMASK = 2,
  // Extensible if there are more than 2 channels.
  QNWFCD_EXT_MULTICHANNEL = 3,
  // Always extensible.
  QNWFCD_EXTENSIBLE = 4,
};

// Flags of _qnwaveformat: the format is no sample type, so wFormatTag and wBitsPerSample are valid; it was
// built from an extensible source.
constexpr DWORD QNWF_FOREIGN = 8;
constexpr DWORD QNWF_FROM_EXTENSIBLE = 16;

#pragma pack(push, 1)

// The library's normal form of an audio format. It has variable length: a record may own no more than its
// fixed 32 bytes, so it is never to be copied by assignment unless it is known to be whole;
// QnAudio_GeneralCopyQnWaveFormat copies records of any size. A record with a sample type has no extra bytes.
//
// `size` arguments are the bytes that the record owns: up to 32 stand for 32 (no extra bytes), 34 and more
// leave room for size - 34 extra bytes, 1024 at most.
struct QN_API _qnwaveformat {
  uint32_t cbRecord;  // 32 plus cbExtra; the two bytes of cbExtra itself are not counted
  QNSAMPLETYPE sampleType;
  uint32_t nSamplesPerSec;  // frames a second
  uint16_t nChannels;
  uint16_t nBlockAlign;      // bytes a frame
  uint32_t dwChannelMask;    // speakers, 0 means unset
  uint32_t dwFlags;          // QNWF_*
  uint16_t wFormatTag;       // valid only with QNWF_FOREIGN
  uint16_t wBitsPerSample;   // valid only with QNWF_FOREIGN
  uint32_t nAvgBytesPerSec;  //
  uint16_t cbExtra;          // present only if cbRecord is at least 34; bytes used of extra
  uint8_t extra[1024];       // format-specific bytes of a foreign format

  // A record of a sample type. `cbRecord` becomes the size. A record of 32 bytes keeps its wFormatTag and
  // wBitsPerSample, a longer one is cleared first.
  void Init(DWORD rate, QNSAMPLETYPE type, unsigned int channels, DWORD channelMask, DWORD size);

  // A record from a published one, with the extra bytes of a foreign format as far as they fit. With tag 1
  // the block align is that of the bits and channels, whatever the source says. An extensible header with a
  // null sub-format that gives its sizes in bits counts as plain audio.
  void Init(DWORD size, const WAVEFORMATEX& format);

  // A record from a tag and bits per sample: of a sample type if there is one for them, else foreign.
  // `cbRecord` becomes the size.
  void InitAsWfx(uint16_t tag, DWORD rate, uint16_t bits, uint16_t channels, DWORD channelMask, DWORD size);

  // QnAudio_GeneralCopyWfx of this record.
  WAVEFORMATEX* ToWfx(WAVEFORMATEX* output, unsigned int size, QNWAVEFORMAT_COPY_DEST dest) const;

  // Computes nBlockAlign and nAvgBytesPerSec again, unless the format is foreign; returns nBlockAlign.
  DWORD UpdateBlockAlign();

  uint16_t FormatTag() const;
  uint16_t BitsPerSample() const;
  uint16_t BytesPerSample() const;
  bool IsCompressed() const;

  // True for the same audio: sample type, rate, channels and mask (0 counts as the full mask); for foreign
  // formats also tag, average bytes, bits and extra bytes.
  bool operator==(const _qnwaveformat& other) const;
  bool operator==(const WAVEFORMATEX& other) const;
};

#pragma pack(pop)

static_assert(sizeof(_qnwaveformat) == 1058 && std::is_trivially_copyable_v<_qnwaveformat>);
static_assert(sizeof(QNSAMPLETYPE) == 4 && sizeof(QNWAVEFORMAT_COPY_DEST) == 4);
static_assert(offsetof(_qnwaveformat, cbRecord) == 0 && offsetof(_qnwaveformat, sampleType) == 4 &&
              offsetof(_qnwaveformat, nSamplesPerSec) == 8 && offsetof(_qnwaveformat, nChannels) == 12 &&
              offsetof(_qnwaveformat, nBlockAlign) == 14 && offsetof(_qnwaveformat, dwChannelMask) == 16 &&
              offsetof(_qnwaveformat, dwFlags) == 20 && offsetof(_qnwaveformat, wFormatTag) == 24 &&
              offsetof(_qnwaveformat, wBitsPerSample) == 26 &&
              offsetof(_qnwaveformat, nAvgBytesPerSec) == 28 && offsetof(_qnwaveformat, cbExtra) == 32 &&
              offsetof(_qnwaveformat, extra) == 34);

extern "C" {

// The sample type for a format tag and its bits per sample; 0 if there is none.
QN_API QNSAMPLETYPE QnAudio_GetSampleType2(unsigned int tag, unsigned int bits);

// The sample type of a published record. An extensible one goes by the tag that its sub-format carries,
// whatever its cbSize; a 32-bit container with 24 valid bits is QNST_PCM24IN32.
QN_API QNSAMPLETYPE QnAudio_GetSampleType(const WAVEFORMATEX* format);

// Bytes and bits of one stored sample, and the format tag, of a sample type. 0 for a value that is none.
QN_API int QnAudio_BytesFromSampleType(QNSAMPLETYPE type);
QN_API int QnAudio_BitsFromSampleType(QNSAMPLETYPE type);
QN_API int QnAudio_FormatTagFromSampleType(QNSAMPLETYPE type);

// The record's tag. An extensible record whose cbSize is at least 22 gives the tag that its sub-format
// carries, or 0 if that carries none. 0 for null.
QN_API WORD QnAudio_GetWaveFormatTag(const WAVEFORMATEX* format);

// Nonzero, with 1 or 3 in `*tag`, for an extensible record with a cbSize of at least 22 whose sub-format is
// integer PCM or float. Else 0, and `*tag` stays as it was.
QN_API int QnAudio_GetFormatTagExtensible(const WAVEFORMATEXTENSIBLE* format, DWORD* tag);

// Nonzero if the data of a format is no plain sequence of samples: by the tag, and by a block align that is
// not that of the channels and bits. An extensible record with a cbSize below 22 counts as compressed.
QN_API int QnAudio_IsCompressed(const WAVEFORMATEX* format);

// The same for an extensible record: nonzero unless its sub-format is integer PCM or float. The tag is not
// looked at.
QN_API int QnAudio_IsCompressedExtensible(const WAVEFORMATEXTENSIBLE* format);

// Nonzero if channels, rate, bits per sample and tag are the same; nothing else is compared.
QN_API int QnAudio_IsEqualFormat(const WAVEFORMATEX* first, const WAVEFORMATEX* second);

// Writes the 18-byte form of a sample type.
QN_API void QnAudio_InitWfx(WAVEFORMATEX* output, DWORD rate, QNSAMPLETYPE type, DWORD channels);

// Writes a format of any tag to an output of `size` bytes: the 18-byte form if the mask is 0, or says no
// more than the channel count does for mono and stereo, or `size` is below 40; else the extensible form. A
// mask with more bits than there are channels is replaced by the full mask.
QN_API void QnAudio_InitWfxFlex(WAVEFORMATEX* output, DWORD tag, DWORD rate, DWORD bits, DWORD channels,
                                DWORD channelMask, unsigned int size);

// Writes a record to an output of `size` bytes in the form that `dest` asks for; returns `output`. An output
// below 40 bytes gets the 18-byte form whatever is asked. The extra bytes of a foreign format follow as far
// as they fit and are counted in cbSize. Nothing behind `size` bytes is written.
QN_API WAVEFORMATEX* QnAudio_GeneralCopyWfx(WAVEFORMATEX* output, unsigned int size,
                                            const _qnwaveformat& format, QNWAVEFORMAT_COPY_DEST dest);

// Copies a record to one that owns `size` bytes (0 stands for 32) and clears what is left of those; returns
// `output`. Extra bytes that the output has too little room for are dropped as a whole. `dest` has no
// effect. As many bytes as the source's cbRecord counts are copied, so the last two extra bytes come out
// as 0. An output of exactly 34 bytes gets the count of the extra bytes without the bytes: it is for
// looking at, not for passing on.
QN_API _qnwaveformat* QnAudio_GeneralCopyQnWaveFormat(_qnwaveformat* output, unsigned int size,
                                                      const _qnwaveformat& format,
                                                      QNWAVEFORMAT_COPY_DEST dest);

// Writes `format` to an output of `size` bytes in the form that `dest` asks for, by way of a record that
// keeps up to 94 extra bytes. The two may be the same record.
QN_API void QnAudio_CopyWfx(WAVEFORMATEX* output, unsigned int size, const WAVEFORMATEX* format,
                            QNWAVEFORMAT_COPY_DEST dest);

// The same to an output of 40 bytes.
QN_API void QnAudio_CopyWfExt(WAVEFORMATEXTENSIBLE* output, const WAVEFORMATEX* format,
                              QNWAVEFORMAT_COPY_DEST dest);

// Copies the 18 bytes of a record and the cbSize bytes behind them, 40 in all at most, with no change of
// form. What the copy does not reach stays as it was. Reads cbSize for every tag.
QN_API void QnAudio_CopyWfxToWfExt(const WAVEFORMATEX* format, WAVEFORMATEXTENSIBLE* output);

// Writes the 18-byte form of an integer PCM or float extensible record, with a cbSize of 0. An extensible
// record of another sub-format leaves the output untouched; any other record gives its first 18 bytes.
QN_API void QnAudio_CopyWfExtToWfx(const WAVEFORMATEXTENSIBLE* format, WAVEFORMATEX* output);

// Mends a record with tag 1: 20 bits become 24, and the block align that of the bits and channels. 1 if
// that changed the record, else 0.
QN_API int QnAudio_FixBadWfx(WAVEFORMATEX* format);

// Full scale of integer samples of 8, 16, 24 or 32 bits: 2 to the power bits - 1. 1.0 for any other number.
QN_API double QnAudio_GetNormalizeFactor(unsigned int bits);
}

// A new published record in the form that `dest` asks for, with all extra bytes; or null when there is no
// memory. It lies in a movable global block that stays locked: release it with GlobalUnlock and GlobalFree
// on its GlobalHandle.
// A published source is duplicated byte for byte (18 bytes and cbSize, for every tag) if it has the form
// asked for, or `dest` is QNWFCD_AUTO; else it goes through a record that keeps up to 94 extra bytes.
QN_API WAVEFORMATEX* QnAudio_AllocAndCopyWfx(const _qnwaveformat& format, QNWAVEFORMAT_COPY_DEST dest);
QN_API WAVEFORMATEX* QnAudio_AllocAndCopyWfx(const _qnwaveformat* format, QNWAVEFORMAT_COPY_DEST dest);
QN_API WAVEFORMATEX* QnAudio_AllocAndCopyWfx(const WAVEFORMATEX* format, QNWAVEFORMAT_COPY_DEST dest);

#pragma pack(push, 1)

// A record as a published one on the stack: of 18 bytes, which drops extra bytes and mask,
struct _qnwaveformat_wfxcopyhelper : WAVEFORMATEX {
  _qnwaveformat_wfxcopyhelper(const _qnwaveformat& format) : WAVEFORMATEX{} {
    QnAudio_GeneralCopyWfx(this, sizeof(*this), format, QNWFCD_AUTO);
  }
};

// or of 40, extensible where it needs to be.
struct _qnwaveformat_wfxecopyhelper : WAVEFORMATEXTENSIBLE {
  _qnwaveformat_wfxecopyhelper(const _qnwaveformat& format) : WAVEFORMATEXTENSIBLE{} {
    QnAudio_GeneralCopyWfx(reinterpret_cast<WAVEFORMATEX*>(this), sizeof(*this), format, QNWFCD_AUTO);
  }
};

// A published record with room for extra bytes behind it.
struct _qnwaveformat_wfxplus : WAVEFORMATEX {
  BYTE extra[118];

  void Init(const WAVEFORMATEX* format, QNWAVEFORMAT_COPY_DEST dest) {
    QnAudio_CopyWfx(this, sizeof(*this), format, dest);
  }
};

#pragma pack(pop)

static_assert(sizeof(_qnwaveformat_wfxcopyhelper) == 18 && sizeof(_qnwaveformat_wfxecopyhelper) == 40 &&
              sizeof(_qnwaveformat_wfxplus) == 136);
