#include "qn/media/aiff.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <optional>

#include "qn/audio/qnwaveformat.h"
#include "qn/media/aiff_internal.h"
#include "qn/media/chunkio_internal.h"
#include "qn/media/mediafile_internal.h"
#include "qn/settings/qnstatus.h"

namespace qn {
namespace {

constexpr uint32_t kFormHeaderBytes = 12;
constexpr uint32_t kCommonBytes = 18;      // of a COMM chunk; AIFF-C has the compression type behind them
constexpr uint32_t kSoundHeaderBytes = 8;  // of an SSND chunk: offset and block size
constexpr int kExtendedBias = 16383;

uint32_t LoadBig(const uint8_t* bytes, int count) {
  uint32_t value = 0;
  for (int i = 0; i < count; ++i) value = value << 8 | bytes[i];
  return value;
}

void StoreBig(uint8_t* bytes, int count, uint64_t value) {
  for (int i = count; i-- > 0; value >>= 8) bytes[i] = static_cast<uint8_t>(value);
}

constexpr uint32_t Id(const char (&name)[5]) {
  uint32_t id = 0;
  for (int i = 0; i < 4; ++i) id = id << 8 | static_cast<uint8_t>(name[i]);
  return id;
}

// An 80-bit extended float as a sample rate: rounded to whole samples a second, nothing when that is not in
// the range of 1 to 32 bits.
std::optional<uint32_t> LoadRate(const uint8_t* bytes) {
  const uint64_t mantissa = uint64_t{LoadBig(bytes + 2, 4)} << 32 | LoadBig(bytes + 6, 4);
  // The sign is the top bit of these 16, and makes the exponent too large.
  const int shift = kExtendedBias + 63 - static_cast<int>(LoadBig(bytes, 2));
  if (shift < 0 || shift > 63) return std::nullopt;
  const uint64_t half = shift > 0 ? mantissa >> (shift - 1) & 1 : 0;
  const uint64_t rate = (mantissa >> shift) + half;
  if (rate == 0 || rate > UINT32_MAX) return std::nullopt;
  return static_cast<uint32_t>(rate);
}

// The mantissa has its top bit for one halved rate of 1.0 or more; a rate of 0 has the exponent of 1.
void StoreRate(uint8_t* bytes, uint32_t rate) {
  const int halvings = rate > 1 ? std::bit_width(rate) - 1 : 0;
  StoreBig(bytes, 2, static_cast<uint64_t>(kExtendedBias + halvings));
  StoreBig(bytes + 2, 8, uint64_t{rate} << (63 - halvings));
}

// How the samples of a compression type are stored: the format tags for one byte a sample and for more, and
// the only size that the type has, 0 if that is for the COMM chunk to say.
struct Encoding {
  uint32_t type;
  WORD byteTag;
  WORD wideTag;
  WORD bits;
};

// Big-endian float (fl32, fl64) is not among them: no format tag tells it.
constexpr Encoding kEncodings[] = {
    {Id("NONE"), QNWAVETAG_SIGNED8, QNWAVETAG_BIGENDIAN, 0},
    {Id("twos"), QNWAVETAG_SIGNED8, QNWAVETAG_BIGENDIAN, 0},
    {Id("sowt"), QNWAVETAG_SIGNED8, WAVE_FORMAT_PCM, 0},
    {Id("in24"), QNWAVETAG_SIGNED8, QNWAVETAG_BIGENDIAN, 24},
    {Id("in32"), QNWAVETAG_SIGNED8, QNWAVETAG_BIGENDIAN, 32},
    {Id("raw "), WAVE_FORMAT_PCM, WAVE_FORMAT_PCM, 8},
};

// Reads the form's header at the position.
HRESULT ReadFormHeader(HANDLE file, bool* isAiffC) {
  uint8_t header[kFormHeaderBytes];
  if (!ReadField(file, header)) return QN_E_FILE_READ;
  const uint32_t type = LoadBig(header + 8, 4);
  *isAiffC = type == Id("AIFC");
  return LoadBig(header, 4) == Id("FORM") && (*isAiffC || type == Id("AIFF")) ? S_OK : QN_E_FILE_FORMAT;
}

// Walks from the position to a chunk's data. The form's size is not asked: writers that died left it 0. Bytes
// that cannot be an id, such as a run of zeros, end the walk.
bool FindChunk(HANDLE file, uint32_t id, uint32_t* size) {
  uint8_t header[8];
  while (ReadField(file, header)) {
    if (std::any_of(header, header + 4, [](uint8_t c) { return c < 0x20 || c > 0x7E; })) return false;
    *size = LoadBig(header + 4, 4);
    if (LoadBig(header, 4) == id) return true;
    Skip(file, uint64_t{*size} + (*size & 1));
  }
  return false;
}

// Turns the 18 or 22 bytes of a COMM chunk into a format record.
HRESULT ParseFormat(const uint8_t* common, uint32_t compression, WAVEFORMATEX* format) {
  const Encoding* encoding = std::find_if(std::begin(kEncodings), std::end(kEncodings),
                                          [=](const Encoding& e) { return e.type == compression; });
  if (encoding == std::end(kEncodings)) return QN_E_FILE_UNSUPPORTED;
  const uint32_t channels = LoadBig(common, 2);
  const uint32_t bytes = (LoadBig(common + 6, 2) + 7) / 8;
  const std::optional<uint32_t> rate = LoadRate(common + 8);
  if (channels == 0 || bytes == 0 || !rate) return QN_E_FILE_FORMAT;
  if (bytes > 4 || (encoding->bits != 0 && bytes * 8 != encoding->bits)) return QN_E_FILE_UNSUPPORTED;
  const uint32_t blockAlign = channels * bytes;
  const uint64_t bytesPerSecond = uint64_t{blockAlign} * *rate;
  if (blockAlign > UINT16_MAX || bytesPerSecond > UINT32_MAX) return QN_E_FILE_FORMAT;
  *format = {bytes == 1 ? encoding->byteTag : encoding->wideTag,
             static_cast<WORD>(channels),
             *rate,
             static_cast<DWORD>(bytesPerSecond),
             static_cast<WORD>(blockAlign),
             static_cast<WORD>(bytes * 8),
             0};
  return S_OK;
}

HRESULT ReadForm(HANDLE file, WAVEFORMATEX* format, uint64_t* frames, uint64_t* dataStart) {
  bool isAiffC;
  const HRESULT headerStatus = ReadFormHeader(file, &isAiffC);
  if (headerStatus != S_OK) return headerStatus;
  const uint64_t firstChunk = Tell(file);

  uint32_t size;
  uint8_t common[kCommonBytes + 4];
  const uint32_t commonBytes = isAiffC ? sizeof(common) : kCommonBytes;
  if (!FindChunk(file, Id("COMM"), &size)) return QN_E_NOT_FOUND;
  if (size < commonBytes) return QN_E_FILE_FORMAT;
  if (!ReadExactly(file, common, commonBytes)) return QN_E_FILE_READ;
  WAVEFORMATEX found;
  const uint32_t compression = isAiffC ? LoadBig(common + kCommonBytes, 4) : Id("NONE");
  const HRESULT formatStatus = ParseFormat(common, compression, &found);
  if (formatStatus != S_OK) return formatStatus;

  // The chunk of the samples may stand before COMM, and its size may be wrong: the frames are COMM's.
  const uint64_t stated = LoadBig(common + 2, 4);
  if (Seek(file, firstChunk) && FindChunk(file, Id("SSND"), &size)) {
    uint8_t sound[kSoundHeaderBytes];
    if (!ReadField(file, sound)) return QN_E_FILE_READ;
    Skip(file, LoadBig(sound, 4));
  } else if (stated == 0) {
    SeekEnd(file);
  } else {
    return QN_E_NOT_FOUND;
  }
  const uint64_t start = Tell(file);
  const auto end = static_cast<uint64_t>(FileLength(file));
  if (start > end) return QN_E_FILE_FORMAT;
  *format = found;
  if (frames) *frames = std::min(stated, (end - start) / found.nBlockAlign);
  if (dataStart) *dataStart = start;
  return S_OK;
}

}  // namespace

HRESULT WriteAiffFormat(HANDLE file, const WAVEFORMATEX& format) {
  WAVEFORMATEX found;
  uint64_t frames;
  const HRESULT status = iff_GetAIFFWfx(file, &found, &frames, nullptr);
  if (status != S_OK) return status;
  if (format.wFormatTag != WAVE_FORMAT_PCM) return QN_E_FILE_UNSUPPORTED;

  uint8_t common[kCommonBytes];
  StoreBig(common, 2, format.nChannels);
  StoreBig(common + 2, 4, frames);
  StoreBig(common + 6, 2, format.wBitsPerSample);
  StoreRate(common + 8, format.nSamplesPerSec);
  uint32_t size;
  if (!FindChunk(file, Id("COMM"), &size)) return QN_E_FILE_READ;
  return WriteField(file, common) ? S_OK : QN_E_FILE_WRITE;
}

}  // namespace qn

int iff_IsAIFFFileEx(HANDLE file) {
  const qn::KeepPosition keep(file);
  bool isAiffC;
  return qn::ReadFormHeader(file, &isAiffC) == S_OK;
}

HRESULT iff_GetAIFFWfx(HANDLE file, WAVEFORMATEX* format, uint64_t* frames, uint64_t* dataStart) {
  if (!format) return E_POINTER;
  const uint64_t form = qn::Tell(file);
  const HRESULT status = qn::ReadForm(file, format, frames, dataStart);
  qn::Seek(file, status == S_OK ? form + qn::kFormHeaderBytes : form);
  return status;
}
