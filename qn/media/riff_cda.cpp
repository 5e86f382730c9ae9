// CD track shortcuts.
#include <cstring>

#include "qn/media/chunkio_internal.h"
#include "qn/media/riff.h"
#include "qn/settings/qnstatus.h"

namespace {

struct CdTrackFormat {
  uint16_t version;
  uint16_t track;
  uint32_t discSerial;
  uint32_t firstSector;
  uint32_t sectorCount;
  uint8_t startFrame;
  uint8_t startSecond;
  uint8_t startMinute;
  uint8_t reserved[5];
};
static_assert(sizeof(CdTrackFormat) == 24 && offsetof(CdTrackFormat, startFrame) == 16);

constexpr uint32_t kSecondsPerMinute = 60;
constexpr uint32_t kFramesPerSecond = 75;

void Deliver(uint32_t* out, uint32_t value) {
  if (out) *out = value;
}

}  // namespace

HRESULT riff_ReadRIFFCDDA(HANDLE file, void* format24) {
  if (!format24) return E_INVALIDARG;
  uint32_t budget;
  uint32_t formType;
  HRESULT status = riff_ReadFileID(file, &budget, &formType);
  if (FAILED(status)) return status;
  if (formType != RIFF_ID_CDDA) return QN_E_FILE_FORMAT;
  uint32_t size;
  status = riff_FindChunkHeader(file, RIFF_ID_FMT, &size, &budget);
  if (FAILED(status)) return status;
  if (size != sizeof(CdTrackFormat)) return QN_E_FILE_VERSION;
  CdTrackFormat format;
  if (!qn::ReadField(file, format)) return QN_E_FILE_READ;
  std::memcpy(format24, &format, sizeof format);
  return S_OK;
}

HRESULT riff_ReadCDAFile(const WCHAR* name, uint32_t* track, uint32_t* firstSector, uint32_t* startFrames,
                         uint32_t* sectorCount, uint32_t* discSerial) {
  CdTrackFormat format = {};
  HRESULT status = name ? QN_E_FILE_OPEN : E_INVALIDARG;
  const HANDLE file = CreateFileW(name, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_SEQUENTIAL_SCAN | FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file != INVALID_HANDLE_VALUE) {
    status = riff_ReadRIFFCDDA(file, &format);
    CloseHandle(file);
  }
  Deliver(track, format.track);
  Deliver(firstSector, format.firstSector);
  Deliver(startFrames, (format.startMinute * kSecondsPerMinute + format.startSecond) * kFramesPerSecond +
                           format.startFrame);
  Deliver(sectorCount, format.sectorCount);
  Deliver(discSerial, format.discSerial);
  return status;
}
