// Headers written from numbers of the input and read back: what is accepted reads as what was given.
#include <cstdlib>
#include <cstring>

#include "fuzz/fuzz_file.h"
#include "qn/media/qnwav.h"

using qnfuzz::Check;

namespace {

struct Parameters {
  uint8_t way;  // bit 0 the container; a new header, one with a reserve, or an inserted one
  uint16_t headerSize;
  uint32_t dataBytes;
  WAVEFORMATEX format;
  uint8_t mend;  // makes the record agree with itself, so that fewer are refused
};

Parameters Load(const uint8_t* data) {
  Parameters p;
  p.way = data[0];
  std::memcpy(&p.headerSize, data + 1, 2);
  std::memcpy(&p.dataBytes, data + 3, 4);
  std::memcpy(&p.format, data + 7, sizeof(p.format));
  p.mend = data[7 + sizeof(p.format)];
  if (p.mend & 1) p.format.cbSize = 0;
  if (p.mend & 2) p.format.wBitsPerSample = static_cast<WORD>(8 + p.format.wBitsPerSample % 4 * 8);
  if (p.mend & 4) {
    p.format.nBlockAlign = static_cast<WORD>(p.format.nChannels * (p.format.wBitsPerSample / 8));
  }
  if (p.mend & 8) p.format.wFormatTag = p.mend & 16 ? 1 : 3;
  return p;
}

HRESULT Insert(const qnfuzz::FuzzFile& file, const Parameters& p) {
  const HANDLE handle = file.Open();
  const HRESULT status = p.way & 1 ? QnInsertW64Header(handle, &p.format, p.dataBytes, p.headerSize)
                                   : QnInsertWavHeader(handle, &p.format, p.dataBytes, p.headerSize);
  CloseHandle(handle);
  return status;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t kBytes = 8 + sizeof(WAVEFORMATEX);
  if (size < kBytes) return 0;
  const Parameters p = Load(data);
  const qnfuzz::FuzzFile file(data, size);
  const bool wave64 = p.way & 1;
  const uint32_t align = wave64 ? 8 : 2;
  uint64_t bytes = 0;
  uint64_t start = (uint32_t{p.headerSize} + align - 1) / align * align;
  HRESULT status;
  switch (p.way / 2 % 3) {
    case 0:
      status = wave64 ? QnInitializeWav64(file.Path(), &p.format, CREATE_ALWAYS)
                      : QnInitializeWav(file.Path(), &p.format, CREATE_ALWAYS);
      start = wave64 ? 112 : 46;
      break;
    case 1:
      status = wave64 ? QnInitializeWav64WithJunk(file.Path(), &p.format, CREATE_ALWAYS, p.headerSize)
                      : QnInitializeWavWithJunk(file.Path(), &p.format, CREATE_ALWAYS, p.headerSize);
      break;
    default:
      status = Insert(file, p);
      start = p.headerSize;
      bytes = p.dataBytes;
  }
  if (status != S_OK) return 0;

  Check((wave64 ? QnFileIsWave64 : QnFileIsWave)(file.Path(), 1), "the header is one");
  uint64_t foundFrames = 0;
  uint64_t foundStart = 0;
  WAVEFORMATEX* found = QnGetFileWfx(file.Path(), &foundFrames, &foundStart);
  const bool linear = !QnAudio_IsCompressed(&p.format) && p.format.nBlockAlign != 0;
  Check((found != nullptr) == linear, "linear formats read back");
  if (!found) return 0;
  Check(std::memcmp(found, &p.format, sizeof(p.format)) == 0, "the format reads back");
  Check(foundStart == start && foundFrames == bytes / p.format.nBlockAlign, "the numbers read back");
  std::free(found);
  return 0;
}
