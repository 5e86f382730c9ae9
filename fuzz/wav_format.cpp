// Identification and format reading of a file of any kind. A record that is delivered must make sense and
// must be readable as far as its cbSize says.
#include <cstdlib>

#include "fuzz/fuzz_file.h"
#include "qn/media/aiff.h"
#include "qn/media/qnwav.h"

using qnfuzz::Check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qnfuzz::FuzzFile file(data, size);
  const int isWave = QnFileIsWave(file.Path(), 1);
  const int isWave64 = QnFileIsWave64(file.Path(), 1);
  const int isAiff = QnFileIsAiff(file.Path());
  Check(isWave + isWave64 + isAiff <= 1, "a file is of one kind");
  Check(QnFileIsWave(file.Path(), 0) <= isWave, "linear formats are formats");
  Check(QnFileIsWave64(file.Path(), 0) <= isWave64, "linear formats are formats");

  uint64_t frames = 0;
  uint64_t start = 0;
  WAVEFORMATEX* record = QnGetFileWfx(file.Path(), &frames, &start);
  if (record) {
    Check(isWave + isWave64 + isAiff == 1, "what can be read is recognised");
    Check(start <= size, "the samples start in the file");
    Check(record->nBlockAlign != 0 && !QnAudio_IsCompressed(record), "a frame has a size");
    const auto bytes = reinterpret_cast<const volatile uint8_t*>(record);
    for (size_t i = 0; i < sizeof(*record) + record->cbSize; ++i) static_cast<void>(bytes[i]);
    std::free(record);
  }

  // An AIFF form that begins elsewhere in the file.
  LARGE_INTEGER place{};
  place.QuadPart = size > 0 ? data[0] % 16 : 0;
  SetFilePointerEx(file, place, nullptr, FILE_BEGIN);
  WAVEFORMATEX format;
  const bool is = iff_IsAIFFFileEx(file) != 0;
  Check(is || iff_GetAIFFWfx(file, &format, &frames, &start) != S_OK, "what can be read is recognised");
  return 0;
}
