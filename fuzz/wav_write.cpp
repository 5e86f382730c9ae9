// Headers written from numbers of the input and read back: what is accepted reads as what was given.
#include <cstdlib>
#include <cstring>

#include "fuzz/fuzz_file.h"
#include "qn/media/qnwav.h"

using qnfuzz::Check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  WAVEFORMATEX format;
  uint16_t headerSize;
  uint32_t dataBytes;
  if (size < 8 + sizeof format) return 0;
  std::memcpy(&headerSize, data + 1, sizeof headerSize);
  std::memcpy(&dataBytes, data + 3, sizeof dataBytes);
  std::memcpy(&format, data + 7, sizeof format);
  // Makes the record agree with itself, so that fewer are refused.
  const uint8_t mend = data[7 + sizeof format];
  if (mend & 1) format.cbSize = 0;
  if (mend & 2) format.wBitsPerSample = static_cast<WORD>(8 + format.wBitsPerSample % 4 * 8);
  if (mend & 4) format.nBlockAlign = static_cast<WORD>(format.nChannels * (format.wBitsPerSample / 8));
  if (mend & 8) format.wFormatTag = mend & 16 ? 1 : 3;

  // Bit 0 of the first byte is the container; then a new header, one with a reserve, or an inserted one.
  qnfuzz::FuzzFile file(data, size);
  const bool wave64 = data[0] & 1;
  const uint32_t align = wave64 ? 8 : 2;
  uint64_t bytes = 0, start = (uint32_t{headerSize} + align - 1) / align * align;
  HRESULT status;
  switch (data[0] / 2 % 3) {
    case 0:
      status = wave64 ? QnInitializeWav64(file.Path(), &format, CREATE_ALWAYS)
                      : QnInitializeWav(file.Path(), &format, CREATE_ALWAYS);
      start = wave64 ? 112 : 46;
      break;
    case 1:
      status = wave64 ? QnInitializeWav64WithJunk(file.Path(), &format, CREATE_ALWAYS, headerSize)
                      : QnInitializeWavWithJunk(file.Path(), &format, CREATE_ALWAYS, headerSize);
      break;
    default:
      status = wave64 ? QnInsertW64Header(file, &format, dataBytes, headerSize)
                      : QnInsertWavHeader(file, &format, dataBytes, headerSize);
      file.Close();
      start = headerSize;
      bytes = dataBytes;
  }
  if (status != S_OK) return 0;

  Check((wave64 ? QnFileIsWave64 : QnFileIsWave)(file.Path(), 1), "the header is one");
  uint64_t foundFrames = 0;
  uint64_t foundStart = 0;
  WAVEFORMATEX* found = QnGetFileWfx(file.Path(), &foundFrames, &foundStart);
  const bool linear = !QnAudio_IsCompressed(&format) && format.nBlockAlign != 0;
  Check((found != nullptr) == linear, "linear formats read back");
  if (!found) return 0;
  Check(std::memcmp(found, &format, sizeof(format)) == 0, "the format reads back");
  Check(foundStart == start && foundFrames == bytes / format.nBlockAlign, "the numbers read back");
  std::free(found);
  return 0;
}
