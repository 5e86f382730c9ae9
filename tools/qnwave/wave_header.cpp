#include "tools/qnwave/wave_header.h"

#include "qn/media/riff64.h"

namespace qnwave {
namespace {

constexpr uint32_t FourCc(const char (&text)[5]) {
  return static_cast<uint32_t>(static_cast<uint8_t>(text[0])) | static_cast<uint32_t>(text[1]) << 8 |
         static_cast<uint32_t>(text[2]) << 16 | static_cast<uint32_t>(text[3]) << 24;
}

struct Record {
  WAVEFORMATEXTENSIBLE bytes{};
  uint32_t size = 0;
};

Record RecordOf(Container container, const AudioFormat& format) {
  _qnwaveformat normal;
  normal.Init(format.rate, format.type, format.channels, format.mask, 0);
  // A private format tag is not looked for in an extensible record, and programs take every extensible record
  // of a Wave64 file for integers.
  const bool hasPrivateTag = FindSampleType(format.type)->common != format.type;
  const bool isFloat = format.type == QNST_FLOAT32 || format.type == QNST_FLOAT64;
  QNWAVEFORMAT_COPY_DEST form = format.channels > 2 ? QNWFCD_EXT_MULTICHANNEL : QNWFCD_AUTO;
  if (hasPrivateTag || (isFloat && container == Container::kWave64)) form = QNWFCD_WFX_NOMASK;
  Record record;
  normal.ToWfx(&record.bytes.Format, sizeof(record.bytes), form);
  record.size = sizeof(WAVEFORMATEX) + record.bytes.Format.cbSize;
  // Channels that nothing was said about are not given speakers.
  if (record.size == sizeof(record.bytes) && format.mask == 0) record.bytes.dwChannelMask = 0;
  return record;
}

uint64_t DataBytes(const AudioFormat& format, uint64_t frames) {
  return frames * format.FrameBytes();
}

HRESULT WriteWav(HANDLE file, const Record& record, uint64_t dataBytes, uint64_t fileBytes) {
  HRESULT status = riff_WriteFileID(file, FourCc("WAVE"), static_cast<uint32_t>(fileBytes - 8));
  if (status == S_OK) status = riff_WriteChunk(file, RIFF_ID_FMT, &record.bytes, record.size, nullptr);
  if (status == S_OK) status = riff_WriteChunkHeader(file, FourCc("data"), static_cast<uint32_t>(dataBytes));
  return status;
}

HRESULT WriteWave64(HANDLE file, const Record& record, uint64_t dataBytes, uint64_t fileBytes) {
  // The functions add the 24 bytes of a chunk's header to the sizes that they are given.
  const uint32_t header = RulesOf(Container::kWave64).chunkHeaderBytes;
  HRESULT status = riff64_WriteFileID(file, &RIFF64_GUID_WAVE, fileBytes - header);
  if (status == S_OK) status = riff64_WriteChunk(file, &RIFF64_GUID_FMT, &record.bytes, record.size, nullptr);
  if (status == S_OK) status = riff64_WriteChunkHeader(file, &RIFF64_GUID_DATA, dataBytes);
  return status;
}

}  // namespace

uint64_t WaveHeaderBytes(Container container, const AudioFormat& format) {
  const ContainerRules& rules = RulesOf(container);
  return rules.fileHeaderBytes + rules.Padded(RecordOf(container, format).size) + 2 * rules.chunkHeaderBytes;
}

uint64_t WaveFileBytes(Container container, const AudioFormat& format, uint64_t frames) {
  const uint64_t dataBytes = DataBytes(format, frames);
  // Other programs take the padding behind the samples of a Wave64 file for samples: nothing follows it, so
  // it is left out.
  const uint64_t padded = container == Container::kWave64 ? dataBytes : RulesOf(container).Padded(dataBytes);
  return WaveHeaderBytes(container, format) + padded;
}

bool CanHold(Container container, const AudioFormat& format, uint64_t frames) {
  // What the library allows a RIFF form to grow to.
  constexpr uint64_t kMostRiffBytes = 0xFFFFFFF7 + uint64_t{8};
  const uint64_t most = container == Container::kWav ? kMostRiffBytes : kMostFileBytes;
  return frames <= kMostFileBytes / format.FrameBytes() && WaveFileBytes(container, format, frames) <= most;
}

HRESULT WriteWaveHeader(HANDLE file, Container container, const AudioFormat& format, uint64_t frames) {
  const Record record = RecordOf(container, format);
  const uint64_t fileBytes = WaveFileBytes(container, format, frames);
  return container == Container::kWave64 ? WriteWave64(file, record, DataBytes(format, frames), fileBytes)
                                         : WriteWav(file, record, DataBytes(format, frames), fileBytes);
}

}  // namespace qnwave
