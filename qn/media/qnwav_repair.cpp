// The repair of a file whose header is lost or damaged.
#include <algorithm>

#include "qn/audio/qnwaveformat.h"
#include "qn/media/qnwav.h"
#include "qn/media/qnwav_internal.h"
#include "qn/platform/file.h"
#include "qn/settings/qnstatus.h"

namespace qn {
namespace {

constexpr WAVEFORMATEX kDefaultFormat = {WAVE_FORMAT_PCM, 2, 44100, 44100 * 4, 4, 16, 0};

// Published records have no alignment, so their fields are read by value.
WORD MendBits(const WAVEFORMATEX& format, const WAVEFORMATEX& defaults) {
  const WORD bits = format.wBitsPerSample;
  const WORD defaultBits = defaults.wBitsPerSample;
  if (format.wFormatTag == WAVE_FORMAT_IEEE_FLOAT) {
    if (bits == 32 || bits == 64) return bits;
    return defaultBits <= 32 ? 32 : 64;
  }
  if (bits == 8 || bits == 16 || bits == 24 || bits == 32) return bits;
  return defaultBits < 32 ? defaultBits : 32;
}

// Keeps each field of a record that makes sense and takes the others from `defaults`. The fields build on one
// another in this order.
void Sanitise(WAVEFORMATEX* format, const WAVEFORMATEX& defaults) {
  constexpr DWORD kLowestRate = 2000;
  constexpr DWORD kHighestRate = 192000;
  if (format->nSamplesPerSec < kLowestRate || format->nSamplesPerSec > kHighestRate) {
    format->nSamplesPerSec = defaults.nSamplesPerSec;
  }
  if (format->nChannels != 1 && format->nChannels != 2) format->nChannels = defaults.nChannels;
  if (format->wFormatTag != WAVE_FORMAT_PCM && format->wFormatTag != WAVE_FORMAT_IEEE_FLOAT) {
    format->wFormatTag = defaults.wFormatTag;
  }
  format->wBitsPerSample = MendBits(*format, defaults);
  format->cbSize = 0;
  format->nBlockAlign = static_cast<WORD>(format->nChannels * (format->wBitsPerSample / 8u));
  format->nAvgBytesPerSec = format->nBlockAlign * format->nSamplesPerSec;
}

struct WavRepair : WavContainer {
  static constexpr uint8_t kDataTag[] = {'d', 'a', 't', 'a'};

  static Offset Limit(int64_t fileSize, Offset headerLimit) {
    return static_cast<Offset>(std::min<int64_t>(fileSize, headerLimit));
  }
  // The header counts the samples, and with them the file, in 32 bits.
  static int64_t MostBytes(int64_t start) { return int64_t{UINT32_MAX} + kChunkHeaderBytes - start; }
  static HRESULT Insert(HANDLE file, const WAVEFORMATEX& format, int64_t dataBytes, int64_t start) {
    if (start > UINT32_MAX) return QN_E_CHUNK_SIZE;
    return QnInsertWavHeader(file, &format, static_cast<uint32_t>(dataBytes), static_cast<uint32_t>(start));
  }
};

struct Wave64Repair : Wave64Container {
  static constexpr uint8_t kDataTag[] = {'d',  'a',  't',  'a',  0xF3, 0xAC, 0xD3, 0x11,
                                         0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};

  static Offset Limit(int64_t fileSize, Offset headerLimit) {
    return std::min(fileSize, headerLimit) / kAlignment * kAlignment;
  }
  static int64_t MostBytes(int64_t) { return INT64_MAX; }
  static HRESULT Insert(HANDLE file, const WAVEFORMATEX& format, int64_t dataBytes, int64_t start) {
    return QnInsertW64Header(file, &format, dataBytes, start);
  }
};

// Searches the bytes from the end of the format record on for the data tag; what comes first counts. Without
// one the samples are taken to start at `limit`.
template <class Repair>
HRESULT SearchSamples(HANDLE file, int64_t limit, int64_t* start) {
  constexpr DWORD kBlock = 4096;
  constexpr DWORD kTag = sizeof(Repair::kDataTag);
  uint8_t block[kBlock];
  for (int64_t position = Repair::kRecordEnd;; position += kBlock - kTag) {
    DWORD got;
    if (!Seek(file, static_cast<uint64_t>(position)) || !ReadFile(file, block, kBlock, &got, nullptr))
      return QN_E_FILE_READ;
    const uint8_t* const end = block + got;
    const uint8_t* const hit =
        std::search<const uint8_t*>(block, end, Repair::kDataTag, Repair::kDataTag + kTag);
    if (hit != end) {
      *start = position + (hit - block) + Repair::kChunkHeaderBytes;
      return S_OK;
    }
    if (position + got >= limit) {
      *start = limit;
      return S_OK;
    }
    if (got < kBlock) return QN_E_NOT_FOUND;
  }
}

template <class Repair>
HRESULT FindSamples(HANDLE file, typename Repair::Offset limit, int64_t* start) {
  typename Repair::Size size;
  typename Repair::Budget budget = limit;
  if (Seek(file, Repair::kRecordEnd) && Repair::Find(file, Repair::kData, &size, &budget) == S_OK) {
    *start = static_cast<int64_t>(Tell(file));
    return S_OK;
  }
  return SearchSamples<Repair>(file, limit, start);
}

template <class Repair>
HRESULT Fix(HANDLE file, const WAVEFORMATEX* defaults, typename Repair::Offset headerLimit) {
  const KeepPosition keep(file);
  const int64_t fileSize = FileLength(file);
  // Whatever stands in the record's place is taken for it: nothing before it has to be right.
  WAVEFORMATEX format;
  if (!Seek(file, Repair::kRecordOffset) || !ReadField(file, format)) return QN_E_FILE_READ;
  Sanitise(&format, defaults ? *defaults : kDefaultFormat);
  if (format.nBlockAlign == 0) return QN_E_MEDIA_TYPE;

  int64_t start;
  const HRESULT status = FindSamples<Repair>(file, Repair::Limit(fileSize, headerLimit), &start);
  if (status != S_OK) return status;
  // A tag in the file's last bytes leaves no sample behind it.
  const int64_t bytes = std::min(std::max<int64_t>(fileSize - start, 0), Repair::MostBytes(start));
  return Repair::Insert(file, format, bytes - bytes % format.nBlockAlign, start);
}

}  // namespace
}  // namespace qn

HRESULT QnFixTrashedWav(HANDLE file, const WAVEFORMATEX* format, uint32_t headerLimit) {
  return qn::Fix<qn::WavRepair>(file, format, headerLimit);
}

HRESULT QnFixTrashedW64(HANDLE file, const WAVEFORMATEX* format, int64_t headerLimit) {
  return qn::Fix<qn::Wave64Repair>(file, format, headerLimit);
}
