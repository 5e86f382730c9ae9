#include "qn/audio/qnwaveformat.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "qn/platform/memory.h"

// A record or a published format may own fewer bytes than its type has, so no code here copies one by
// assignment, and each access to cbExtra, cbSize and what follows them is behind a test of the owned size.

namespace {

constexpr DWORD kFixedSize = offsetof(_qnwaveformat, cbExtra);
constexpr DWORD kExtraOffset = offsetof(_qnwaveformat, extra);
constexpr DWORD kMaxExtra = sizeof(_qnwaveformat::extra);
constexpr DWORD kTemporarySize = 128;

constexpr DWORD kShortSize = offsetof(WAVEFORMATEX, cbSize);
constexpr DWORD kPlainSize = sizeof(WAVEFORMATEX);
constexpr DWORD kExtensibleSize = sizeof(WAVEFORMATEXTENSIBLE);
constexpr DWORD kExtensibleExtra = kExtensibleSize - kPlainSize;

struct SampleType {
  QNSAMPLETYPE type;
  BYTE bytes;
  BYTE bits;
  WORD tag;
};

constexpr SampleType kNoSampleType = {QNST_NONE, 0, 0, 0};
constexpr SampleType kSampleTypes[] = {
    {QNST_PCM8U, 1, 8, WAVE_FORMAT_PCM},           {QNST_PCM16, 2, 16, WAVE_FORMAT_PCM},
    {QNST_PCM24, 3, 24, WAVE_FORMAT_PCM},          {QNST_PCM32, 4, 32, WAVE_FORMAT_PCM},
    {QNST_FLOAT32, 4, 32, WAVE_FORMAT_IEEE_FLOAT}, {QNST_FLOAT64, 8, 64, WAVE_FORMAT_IEEE_FLOAT},
    {QNST_PCM24IN32, 4, 32, QNWAVETAG_UNPACKED},   {QNST_PCM8S, 1, 8, QNWAVETAG_SIGNED8},
    {QNST_PCM16BE, 2, 16, QNWAVETAG_BIGENDIAN},    {QNST_PCM24BE, 3, 24, QNWAVETAG_BIGENDIAN},
    {QNST_PCM32BE, 4, 32, QNWAVETAG_BIGENDIAN},
};

const SampleType& FindSampleType(QNSAMPLETYPE type) {
  for (const SampleType& row : kSampleTypes) {
    if (row.type == type) return row;
  }
  return kNoSampleType;
}

struct TaggedBits {
  WORD tag;
  BYTE bits;
  QNSAMPLETYPE type;
};

constexpr WORD kTagFE03 = 0xFE03;
constexpr TaggedBits kTaggedBits[] = {
    {WAVE_FORMAT_PCM, 8, QNST_PCM8U},
    {WAVE_FORMAT_PCM, 16, QNST_PCM16},
    {WAVE_FORMAT_PCM, 20, QNST_PCM24},
    {WAVE_FORMAT_PCM, 24, QNST_PCM24},
    {WAVE_FORMAT_PCM, 32, QNST_PCM32},
    {WAVE_FORMAT_IEEE_FLOAT, 32, QNST_FLOAT32},
    {WAVE_FORMAT_IEEE_FLOAT, 64, QNST_FLOAT64},
    {QNWAVETAG_UNPACKED, 24, QNST_PCM24IN32},
    {QNWAVETAG_UNPACKED, 32, QNST_PCM24IN32},
    {QNWAVETAG_SIGNED8, 8, QNST_PCM8S},
    {QNWAVETAG_SIGNED8, 16, QNST_PCM16},
    {QNWAVETAG_SIGNED8, 20, QNST_PCM24},
    {QNWAVETAG_SIGNED8, 24, QNST_PCM24},
    {QNWAVETAG_SIGNED8, 32, QNST_PCM32},
    {QNWAVETAG_BIGENDIAN, 8, QNST_PCM8U},  // one byte has no order
    {QNWAVETAG_BIGENDIAN, 16, QNST_PCM16BE},
    {QNWAVETAG_BIGENDIAN, 24, QNST_PCM24BE},
    {QNWAVETAG_BIGENDIAN, 32, QNST_PCM32BE},
    {kTagFE03, 16, QNST_TAGFE03_16},
    {kTagFE03, 24, QNST_TAGFE03_24},
};

// Integer PCM of 20 bits is stored as 24.
DWORD StoredBits(WORD tag, DWORD bits) {
  return tag == WAVE_FORMAT_PCM && bits == 20 ? 24 : bits;
}

WORD BlockAlign(DWORD bits, DWORD channels) {
  return static_cast<WORD>((bits >> 3) * channels);
}

DWORD FullMask(DWORD channels) {
  return static_cast<DWORD>((uint64_t{1} << (channels % 64)) - 1);
}

bool IsShortTag(WORD tag) {
  return tag == WAVE_FORMAT_PCM || tag == WAVE_FORMAT_IEEE_FLOAT;
}

bool IsExtensible(const WAVEFORMATEX& format) {
  return format.wFormatTag == WAVE_FORMAT_EXTENSIBLE;
}

const uint8_t* BytesOf(const WAVEFORMATEX& format) {
  return reinterpret_cast<const uint8_t*>(&format);
}

WAVEFORMATEXTENSIBLE LoadExtensible(const WAVEFORMATEX& format) {
  WAVEFORMATEXTENSIBLE extensible;
  std::memcpy(&extensible, BytesOf(format), sizeof(extensible));
  return extensible;
}

GUID SubFormatOf(WORD tag) {
  GUID subFormat = KSDATAFORMAT_SUBTYPE_PCM;
  subFormat.Data1 = tag;
  return subFormat;
}

// The tag in the first 16 bits of a sub-format whose other bytes are the standard base; 0 if they are not.
WORD CarriedTag(const WAVEFORMATEXTENSIBLE& format) {
  const GUID subFormat = format.SubFormat;
  const WORD tag = static_cast<WORD>(subFormat.Data1);
  return subFormat == SubFormatOf(tag) ? tag : WORD{0};
}

DWORD MaskOf(const WAVEFORMATEX& format) {
  return IsExtensible(format) ? LoadExtensible(format).dwChannelMask : 0;
}

// The bytes that are specific to a format, where they stand in a published record. Tags 1 and 3 have none:
// their records may end before cbSize.
struct ExtraBytes {
  const uint8_t* data = nullptr;
  DWORD size = 0;
};

ExtraBytes ExtraOf(const WAVEFORMATEX& format) {
  if (IsShortTag(format.wFormatTag)) return {};
  if (!IsExtensible(format)) return {BytesOf(format) + kPlainSize, format.cbSize};
  if (format.cbSize <= kExtensibleExtra) return {};
  return {BytesOf(format) + kExtensibleSize, format.cbSize - kExtensibleExtra};
}

// The same of a record: the bytes that its size covers, whatever its count says.
ExtraBytes ExtraOf(const _qnwaveformat& format) {
  if (format.cbRecord < kExtraOffset) return {};
  return {format.extra, std::min<DWORD>({format.cbExtra, format.cbRecord - kFixedSize, kMaxExtra})};
}

bool IsSame(const ExtraBytes& first, const ExtraBytes& second) {
  return first.size == second.size &&
         (first.size == 0 || std::memcmp(first.data, second.data, first.size) == 0);
}

DWORD EffectiveMask(DWORD mask, WORD channels) {
  return mask != 0 ? mask : FullMask(channels);
}

// True if the mask says something that the channel count does not.
bool HasSpecialMask(const _qnwaveformat& format) {
  return format.dwChannelMask != 0 && format.dwChannelMask != FullMask(format.nChannels);
}

// The type of plain audio under an extensible header with a null sub-format. Only headers are meant whose
// block align was computed in bits; that 32 bits yield float is what their writers stored.
QNSAMPLETYPE TypeOfDamagedHeader(const WAVEFORMATEXTENSIBLE& extensible) {
  const GUID subFormat = extensible.SubFormat;
  const WAVEFORMATEX& format = extensible.Format;
  const DWORD blockAlign = format.nBlockAlign;
  if (subFormat != GUID{} || (format.cbSize != 0 && format.cbSize != kExtensibleExtra) ||
      DWORD{format.nChannels} * format.wBitsPerSample != blockAlign ||
      blockAlign * format.nSamplesPerSec != format.nAvgBytesPerSec) {
    return QNST_NONE;
  }
  switch (format.wBitsPerSample) {
    case 8:
      return QNST_PCM8U;
    case 16:
      return QNST_PCM16;
    case 24:
      return QNST_PCM24;
    case 32:
      return QNST_FLOAT32;
    case 64:
      return QNST_FLOAT64;
    default:
      return QNST_NONE;
  }
}

// Published records are put together here and stored as far as the output reaches.
WAVEFORMATEXTENSIBLE PlainHead(WORD tag, DWORD rate, DWORD bits, DWORD channels) {
  WAVEFORMATEXTENSIBLE head = {};
  head.Format.wFormatTag = tag;
  head.Format.nChannels = static_cast<WORD>(channels);
  head.Format.nSamplesPerSec = rate;
  head.Format.nBlockAlign = BlockAlign(bits, channels);
  head.Format.nAvgBytesPerSec = head.Format.nBlockAlign * rate;
  head.Format.wBitsPerSample = static_cast<WORD>(bits);
  return head;
}

void MakeExtensible(WAVEFORMATEXTENSIBLE* head, DWORD mask) {
  head->SubFormat = SubFormatOf(head->Format.wFormatTag);
  head->Samples.wValidBitsPerSample = head->Format.wBitsPerSample;
  head->dwChannelMask = mask;
  head->Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
  head->Format.cbSize = kExtensibleExtra;
}

// Stores a head, which has no extra bytes yet, and behind it as many of them as fit.
void Store(WAVEFORMATEX* output, DWORD size, WAVEFORMATEXTENSIBLE head, const ExtraBytes& extra = {}) {
  const DWORD headSize = kPlainSize + head.Format.cbSize;
  const DWORD stored = size > headSize ? std::min(extra.size, size - headSize) : 0;
  head.Format.cbSize = static_cast<WORD>(head.Format.cbSize + stored);
  std::memcpy(static_cast<void*>(output), &head, std::min(size, headSize));
  if (stored == 0) return;
  // Records with tags 1 and 3 end before cbSize, so extra bytes replace it; hosts rely on that place.
  const DWORD place = IsShortTag(head.Format.wFormatTag) ? kShortSize : headSize;
  std::memcpy(reinterpret_cast<uint8_t*>(output) + place, extra.data, stored);
}

bool ForcesExtensible(const _qnwaveformat& format, QNWAVEFORMAT_COPY_DEST dest) {
  switch (dest) {
    case QNWFCD_AUTO:
      return (format.dwFlags & QNWF_FROM_EXTENSIBLE) != 0 || HasSpecialMask(format);
    case QNWFCD_EXT_MULTICHANNEL:
      return format.nChannels > 2;
    case QNWFCD_EXTENSIBLE:
      return true;
    default:
      return false;
  }
}

WAVEFORMATEX* AllocOutput(DWORD size) {
  const HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, size);
  return block != nullptr ? static_cast<WAVEFORMATEX*>(GlobalLock(block)) : nullptr;
}

}  // namespace

void _qnwaveformat::Init(DWORD rate, QNSAMPLETYPE type, unsigned int channels, DWORD channelMask,
                         DWORD size) {
  if (size <= kFixedSize) {
    size = kFixedSize;
    dwFlags = 0;
  } else {
    std::memset(static_cast<void*>(this), 0, size);
  }
  cbRecord = size;
  sampleType = type;
  nSamplesPerSec = rate;
  nChannels = static_cast<uint16_t>(channels);
  nBlockAlign = static_cast<uint16_t>(FindSampleType(type).bytes * channels);
  nAvgBytesPerSec = nBlockAlign * rate;
  dwChannelMask = channelMask;
}

void _qnwaveformat::Init(DWORD size, const WAVEFORMATEX& format) {
  size = std::max(size, kFixedSize);
  std::memset(static_cast<void*>(this), 0, size);
  cbRecord = kFixedSize;
  sampleType = QnAudio_GetSampleType(&format);
  nSamplesPerSec = format.nSamplesPerSec;
  nChannels = format.nChannels;
  nBlockAlign = format.nBlockAlign;
  nAvgBytesPerSec = format.nAvgBytesPerSec;
  if (format.wFormatTag == WAVE_FORMAT_PCM) {
    nBlockAlign = BlockAlign(StoredBits(WAVE_FORMAT_PCM, format.wBitsPerSample), format.nChannels);
  }
  if (IsExtensible(format)) {
    const WAVEFORMATEXTENSIBLE extensible = LoadExtensible(format);
    dwChannelMask = extensible.dwChannelMask;
    dwFlags = QNWF_FROM_EXTENSIBLE;
    if (sampleType == QNST_NONE) sampleType = TypeOfDamagedHeader(extensible);
  }
  if (sampleType != QNST_NONE) return;

  dwFlags |= QNWF_FOREIGN;
  wFormatTag = QnAudio_GetWaveFormatTag(&format);
  wBitsPerSample = format.wBitsPerSample;
  if (size <= kExtraOffset) return;
  const ExtraBytes source = ExtraOf(format);
  const DWORD stored = std::min({source.size, size - kExtraOffset, kMaxExtra});
  if (stored == 0) return;
  cbExtra = static_cast<uint16_t>(stored);
  std::memcpy(extra, source.data, stored);
  cbRecord = kFixedSize + stored;
}

void _qnwaveformat::InitAsWfx(uint16_t tag, DWORD rate, uint16_t bits, uint16_t channels, DWORD channelMask,
                              DWORD size) {
  const DWORD storedBits = StoredBits(tag, bits);
  const QNSAMPLETYPE type = QnAudio_GetSampleType2(tag, storedBits);
  Init(rate, type, channels, channelMask, size);
  wFormatTag = 0;
  wBitsPerSample = 0;
  if (type == QNST_NONE) {
    dwFlags = QNWF_FOREIGN;
    wFormatTag = tag;
    wBitsPerSample = static_cast<uint16_t>(storedBits);
  }
  nBlockAlign = static_cast<uint16_t>(channels * storedBits / 8);
  nAvgBytesPerSec = nBlockAlign * rate;
}

WAVEFORMATEX* _qnwaveformat::ToWfx(WAVEFORMATEX* output, unsigned int size,
                                   QNWAVEFORMAT_COPY_DEST dest) const {
  return QnAudio_GeneralCopyWfx(output, size, *this, dest);
}

DWORD _qnwaveformat::UpdateBlockAlign() {
  if (sampleType != QNST_NONE) {
    nBlockAlign = static_cast<uint16_t>(FindSampleType(sampleType).bytes * nChannels);
    nAvgBytesPerSec = nBlockAlign * nSamplesPerSec;
  }
  return nBlockAlign;
}

uint16_t _qnwaveformat::FormatTag() const {
  return IsCompressed() ? wFormatTag : FindSampleType(sampleType).tag;
}

uint16_t _qnwaveformat::BitsPerSample() const {
  return IsCompressed() ? wBitsPerSample : FindSampleType(sampleType).bits;
}

uint16_t _qnwaveformat::BytesPerSample() const {
  return BitsPerSample() >> 3;
}

bool _qnwaveformat::IsCompressed() const {
  return (dwFlags & QNWF_FOREIGN) != 0;
}

bool _qnwaveformat::operator==(const _qnwaveformat& other) const {
  if (sampleType != other.sampleType || nSamplesPerSec != other.nSamplesPerSec ||
      nChannels != other.nChannels || IsCompressed() != other.IsCompressed() ||
      EffectiveMask(dwChannelMask, nChannels) != EffectiveMask(other.dwChannelMask, other.nChannels)) {
    return false;
  }
  return !IsCompressed() ||
         (wFormatTag == other.wFormatTag && nAvgBytesPerSec == other.nAvgBytesPerSec &&
          wBitsPerSample == other.wBitsPerSample && IsSame(ExtraOf(*this), ExtraOf(other)));
}

bool _qnwaveformat::operator==(const WAVEFORMATEX& other) const {
  if (nSamplesPerSec != other.nSamplesPerSec || nChannels != other.nChannels ||
      EffectiveMask(dwChannelMask, nChannels) != EffectiveMask(MaskOf(other), other.nChannels)) {
    return false;
  }
  if (!IsCompressed()) return sampleType == QnAudio_GetSampleType(&other);
  return wFormatTag == QnAudio_GetWaveFormatTag(&other) && nAvgBytesPerSec == other.nAvgBytesPerSec &&
         wBitsPerSample == other.wBitsPerSample && IsSame(ExtraOf(*this), ExtraOf(other));
}

extern "C" {

QNSAMPLETYPE QnAudio_GetSampleType2(unsigned int tag, unsigned int bits) {
  for (const TaggedBits& row : kTaggedBits) {
    if (row.tag == tag && row.bits == bits) return row.type;
  }
  return QNST_NONE;
}

QNSAMPLETYPE QnAudio_GetSampleType(const WAVEFORMATEX* format) {
  if (format == nullptr) return QNST_NONE;
  if (!IsExtensible(*format)) return QnAudio_GetSampleType2(format->wFormatTag, format->wBitsPerSample);
  const WAVEFORMATEXTENSIBLE extensible = LoadExtensible(*format);
  const QNSAMPLETYPE type = QnAudio_GetSampleType2(CarriedTag(extensible), extensible.Format.wBitsPerSample);
  return type == QNST_PCM32 && extensible.Samples.wValidBitsPerSample == 24 ? QNST_PCM24IN32 : type;
}

int QnAudio_BytesFromSampleType(QNSAMPLETYPE type) {
  return FindSampleType(type).bytes;
}

int QnAudio_BitsFromSampleType(QNSAMPLETYPE type) {
  return FindSampleType(type).bits;
}

int QnAudio_FormatTagFromSampleType(QNSAMPLETYPE type) {
  return FindSampleType(type).tag;
}

WORD QnAudio_GetWaveFormatTag(const WAVEFORMATEX* format) {
  if (format == nullptr) return 0;
  if (!IsExtensible(*format) || format->cbSize < kExtensibleExtra) return format->wFormatTag;
  return CarriedTag(LoadExtensible(*format));
}

int QnAudio_GetFormatTagExtensible(const WAVEFORMATEXTENSIBLE* format, DWORD* tag) {
  if (format == nullptr || tag == nullptr || !IsExtensible(format->Format) ||
      format->Format.cbSize < kExtensibleExtra) {
    return 0;
  }
  const WORD carried = CarriedTag(*format);
  if (!IsShortTag(carried)) return 0;
  *tag = carried;
  return 1;
}

int QnAudio_IsCompressed(const WAVEFORMATEX* format) {
  if (format == nullptr) return 0;
  switch (format->wFormatTag) {
    case WAVE_FORMAT_EXTENSIBLE:
      return QnAudio_IsCompressedExtensible(reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(format));
    case WAVE_FORMAT_PCM:
    case WAVE_FORMAT_IEEE_FLOAT:
    case QNWAVETAG_UNPACKED:
    case QNWAVETAG_SIGNED8:
    case QNWAVETAG_BIGENDIAN:
      return format->nBlockAlign != DWORD{format->nChannels} * (format->wBitsPerSample >> 3);
    default:
      return 1;
  }
}

int QnAudio_IsCompressedExtensible(const WAVEFORMATEXTENSIBLE* format) {
  if (format == nullptr) return 0;
  return format->Format.cbSize < kExtensibleExtra || !IsShortTag(CarriedTag(*format));
}

int QnAudio_IsEqualFormat(const WAVEFORMATEX* first, const WAVEFORMATEX* second) {
  return first != nullptr && second != nullptr && first->nChannels == second->nChannels &&
         first->nSamplesPerSec == second->nSamplesPerSec && first->wBitsPerSample == second->wBitsPerSample &&
         first->wFormatTag == second->wFormatTag;
}

void QnAudio_InitWfx(WAVEFORMATEX* output, DWORD rate, QNSAMPLETYPE type, DWORD channels) {
  const SampleType& row = FindSampleType(type);
  QnAudio_InitWfxFlex(output, row.tag, rate, row.bits, channels, 0, kPlainSize);
}

void QnAudio_InitWfxFlex(WAVEFORMATEX* output, DWORD tag, DWORD rate, DWORD bits, DWORD channels,
                         DWORD channelMask, unsigned int size) {
  if (output == nullptr) return;
  WAVEFORMATEXTENSIBLE head = PlainHead(static_cast<WORD>(tag), rate, bits, channels);
  const DWORD fullMask = FullMask(channels);
  // A mask with too many bits still asks for the extensible form; only its value is replaced.
  if (channelMask != 0 && !(channels < 3 && channelMask == fullMask) && size >= kExtensibleSize) {
    const bool tooManyBits = static_cast<DWORD>(std::popcount(channelMask)) > channels;
    MakeExtensible(&head, tooManyBits ? fullMask : channelMask);
  }
  Store(output, size, head);
}

WAVEFORMATEX* QnAudio_GeneralCopyWfx(WAVEFORMATEX* output, unsigned int size, const _qnwaveformat& format,
                                     QNWAVEFORMAT_COPY_DEST dest) {
  if (output == nullptr) return nullptr;
  const bool holdsExtensible = size >= kExtensibleSize;
  const bool forced = holdsExtensible && ForcesExtensible(format, dest);
  const DWORD mask = dest == QNWFCD_WFX_NOMASK ? 0 : format.dwChannelMask;
  if (format.IsCompressed()) {
    const ExtraBytes extra = ExtraOf(format);
    const bool keepsMask = holdsExtensible && mask != 0 && mask != FullMask(format.nChannels) &&
                           size - kExtensibleSize >= extra.size;
    WAVEFORMATEXTENSIBLE head =
        PlainHead(format.wFormatTag, format.nSamplesPerSec, format.wBitsPerSample, format.nChannels);
    head.Format.nBlockAlign = format.nBlockAlign;
    head.Format.nAvgBytesPerSec = format.nAvgBytesPerSec;
    if (forced || keepsMask) MakeExtensible(&head, mask);
    Store(output, size, head, extra);
    return output;
  }
  const SampleType& type = FindSampleType(format.sampleType);
  if (forced) {
    WAVEFORMATEXTENSIBLE head = PlainHead(type.tag, format.nSamplesPerSec, type.bits, format.nChannels);
    MakeExtensible(&head, EffectiveMask(mask, format.nChannels));
    Store(output, size, head);
  } else {
    QnAudio_InitWfxFlex(output, type.tag, format.nSamplesPerSec, type.bits, format.nChannels, mask, size);
  }
  return output;
}

_qnwaveformat* QnAudio_GeneralCopyQnWaveFormat(_qnwaveformat* output, unsigned int size,
                                               const _qnwaveformat& format, QNWAVEFORMAT_COPY_DEST) {
  if (size == 0) size = kFixedSize;
  if (output == nullptr || size < sizeof(output->cbRecord)) return output;
  DWORD extraSize = ExtraOf(format).size;
  // Counted as cbRecord counts, without the two bytes of cbExtra: hosts know the copy by this length.
  const DWORD used = std::min(format.cbRecord != 0 ? format.cbRecord : kFixedSize, kFixedSize + extraSize);
  const DWORD copied = std::min<DWORD>(used, size);
  std::memmove(static_cast<void*>(output), &format, copied);
  std::memset(reinterpret_cast<uint8_t*>(output) + copied, 0, size - copied);

  const bool wholeRoom = size < kExtraOffset || size > kExtraOffset + kMaxExtra;
  const DWORD room = wholeRoom ? kMaxExtra : size - kExtraOffset;
  if (size < kExtraOffset || (room != 0 && room < extraSize)) extraSize = 0;
  if (size >= kExtraOffset) output->cbExtra = static_cast<uint16_t>(extraSize);
  output->cbRecord = kFixedSize + extraSize;
  return output;
}

void QnAudio_CopyWfx(WAVEFORMATEX* output, unsigned int size, const WAVEFORMATEX* format,
                     QNWAVEFORMAT_COPY_DEST dest) {
  if (output == nullptr || format == nullptr) return;
  _qnwaveformat record;
  record.Init(kTemporarySize, *format);
  QnAudio_GeneralCopyWfx(output, size, record, dest);
}

void QnAudio_CopyWfExt(WAVEFORMATEXTENSIBLE* output, const WAVEFORMATEX* format,
                       QNWAVEFORMAT_COPY_DEST dest) {
  QnAudio_CopyWfx(reinterpret_cast<WAVEFORMATEX*>(output), kExtensibleSize, format, dest);
}

void QnAudio_CopyWfxToWfExt(const WAVEFORMATEX* format, WAVEFORMATEXTENSIBLE* output) {
  if (output == nullptr || format == nullptr) return;
  std::memmove(output, BytesOf(*format), std::min(kPlainSize + format->cbSize, kExtensibleSize));
}

void QnAudio_CopyWfExtToWfx(const WAVEFORMATEXTENSIBLE* format, WAVEFORMATEX* output) {
  if (output == nullptr || format == nullptr) return;
  WAVEFORMATEX result;
  std::memcpy(&result, format, sizeof(result));
  if (IsExtensible(result)) {
    result.wFormatTag = CarriedTag(*format);
    result.cbSize = 0;
    if (!IsShortTag(result.wFormatTag)) return;
  }
  std::memcpy(output, &result, sizeof(result));
}

int QnAudio_FixBadWfx(WAVEFORMATEX* format) {
  if (format == nullptr || format->wFormatTag != WAVE_FORMAT_PCM) return 0;
  const WORD bits = static_cast<WORD>(StoredBits(WAVE_FORMAT_PCM, format->wBitsPerSample));
  const WORD blockAlign = BlockAlign(bits, format->nChannels);
  const bool changed = format->wBitsPerSample != bits || format->nBlockAlign != blockAlign;
  format->wBitsPerSample = bits;
  format->nBlockAlign = blockAlign;
  return changed;
}

double QnAudio_GetNormalizeFactor(unsigned int bits) {
  switch (bits) {
    case 8:
      return 128.0;
    case 16:
      return 32768.0;
    case 24:
      return 8388608.0;
    case 32:
      return 2147483648.0;
    default:
      return 1.0;
  }
}
}

WAVEFORMATEX* QnAudio_AllocAndCopyWfx(const _qnwaveformat& format, QNWAVEFORMAT_COPY_DEST dest) {
  // A mask that is neither 0 nor full needs the extensible form also where it is not forced.
  const bool extensible = ForcesExtensible(format, dest) || (dest == QNWFCD_WFX && HasSpecialMask(format));
  const DWORD size = (extensible ? kExtensibleSize : kPlainSize) + ExtraOf(format).size;
  WAVEFORMATEX* output = AllocOutput(size);
  return QnAudio_GeneralCopyWfx(output, size, format, dest);
}

WAVEFORMATEX* QnAudio_AllocAndCopyWfx(const _qnwaveformat* format, QNWAVEFORMAT_COPY_DEST dest) {
  return format != nullptr ? QnAudio_AllocAndCopyWfx(*format, dest) : nullptr;
}

WAVEFORMATEX* QnAudio_AllocAndCopyWfx(const WAVEFORMATEX* format, QNWAVEFORMAT_COPY_DEST dest) {
  if (format == nullptr) return nullptr;
  const bool hasForm =
      IsExtensible(*format) ? dest == QNWFCD_EXTENSIBLE : dest == QNWFCD_WFX || dest == QNWFCD_WFX_NOMASK;
  if (dest != QNWFCD_AUTO && !hasForm) {
    _qnwaveformat record;
    record.Init(kTemporarySize, *format);
    return QnAudio_AllocAndCopyWfx(record, dest);
  }
  const DWORD size = kPlainSize + format->cbSize;
  WAVEFORMATEX* output = AllocOutput(size);
  if (output != nullptr) std::memcpy(static_cast<void*>(output), BytesOf(*format), size);
  return output;
}
