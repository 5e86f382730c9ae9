// What a file is, and its format.
#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>

#include "qn/audio/qnwaveformat.h"
#include "qn/media/aiff.h"
#include "qn/media/qnwav.h"
#include "qn/media/qnwav_internal.h"
#include "qn/platform/file.h"

namespace qn {
namespace {

struct FreeBlock {
  void operator()(void* block) const { std::free(block); }
};
using FormatPtr = std::unique_ptr<WAVEFORMATEX, FreeBlock>;

// Goes to the data of the format chunk. `*budget` becomes what the walk has left behind the chunk's header:
// the chunk itself is not counted, so that a file whose stored size is a little short still reads.
template <class Container>
bool FindFormatChunk(HANDLE file, typename Container::Size* size, typename Container::Budget* budget) {
  typename Container::Id form;
  return Seek(file, 0) && Container::ReadFileHeader(file, budget, &form) == S_OK &&
         form == Container::kForm && Container::Find(file, Container::kFormat, size, budget) == S_OK;
}

template <class Container>
int FileIs(const WCHAR* name, int allowCompressed) {
  typename Container::Size size;
  typename Container::Budget budget;
  const File file(name, GENERIC_READ, OPEN_EXISTING);
  if (!file || !FindFormatChunk<Container>(file.Get(), &size, &budget)) return 0;

  // All that the question needs, and no more than the chunk has. A file that ends within the chunk is still
  // one of its kind, so what did not come is zero.
  WAVEFORMATEXTENSIBLE record{};
  DWORD got;
  const DWORD bytes = static_cast<DWORD>(std::min<uint64_t>(size, sizeof(record)));
  if (!ReadFile(file.Get(), &record, bytes, &got, nullptr)) return 0;
  return allowCompressed || !QnAudio_IsCompressed(&record.Format);
}

// Reads the record of a format chunk of `size` bytes at the position. Files end it after 14, 16 or 18 bytes
// or state a cbSize beyond the chunk: what the chunk lacks is zero, and a caller can read all that cbSize
// says.
FormatPtr ReadRecord(HANDLE file, uint64_t size) {
  WAVEFORMATEX head{};
  const DWORD headBytes = static_cast<DWORD>(std::min<uint64_t>(size, sizeof(head)));
  if (!ReadExactly(file, &head, headBytes)) return nullptr;
  const uint32_t room = std::max<uint32_t>(sizeof(head) + head.cbSize, sizeof(WAVEFORMATEXTENSIBLE));
  FormatPtr record(static_cast<WAVEFORMATEX*>(std::calloc(1, room)));
  if (!record) return nullptr;
  *record = head;
  const DWORD tail = static_cast<DWORD>(std::min<uint64_t>(size, room)) - headBytes;
  if (!ReadExactly(file, record.get() + 1, tail)) return nullptr;
  return record;
}

// The whole frames of a `data` chunk. A Wave64 size beyond the signed range comes out negative: readers of
// such files rely on it.
uint32_t CountFrames(uint32_t size, uint16_t blockAlign) {
  return size / blockAlign;
}
uint64_t CountFrames(uint64_t size, uint16_t blockAlign) {
  return static_cast<uint64_t>(static_cast<int64_t>(size) / blockAlign);
}

template <class Container, class Count>
WAVEFORMATEX* ReadFormat(HANDLE file, uint64_t largestRecord, Count* frames, Count* dataStart) {
  *frames = 0;
  *dataStart = 0;
  const KeepPosition keep(file);
  typename Container::Size size;
  typename Container::Budget budget;
  if (!FindFormatChunk<Container>(file, &size, &budget) || size > largestRecord) return nullptr;

  const uint64_t chunkStart = Tell(file);
  FormatPtr record = ReadRecord(file, size);
  if (!record || QnAudio_IsCompressed(record.get())) return nullptr;
  Seek(file, chunkStart);
  Container::Skip(file, size);
  if (Container::Find(file, Container::kData, &size, &budget) != S_OK) return nullptr;

  QnAudio_FixBadWfx(record.get());
  const uint64_t start = Tell(file);
  if (record->nBlockAlign == 0 || start > std::numeric_limits<Count>::max()) return nullptr;
  *frames = CountFrames(size, record->nBlockAlign);
  *dataStart = static_cast<Count>(start);
  return record.release();
}

FormatPtr ReadAiffFormat(HANDLE file, uint64_t* frames, uint64_t* dataStart) {
  const KeepPosition keep(file);
  FormatPtr record(static_cast<WAVEFORMATEX*>(std::calloc(1, sizeof(WAVEFORMATEX))));
  if (!record || !Seek(file, 0) || iff_GetAIFFWfx(file, record.get(), frames, dataStart) != S_OK ||
      QnAudio_IsCompressed(record.get())) {
    return nullptr;
  }
  QnAudio_FixBadWfx(record.get());
  return record;
}

}  // namespace

WAVEFORMATEX* ReadWavFormat(HANDLE file, uint32_t* frames, uint32_t* dataStart) {
  return ReadFormat<WavContainer>(file, UINT32_MAX, frames, dataStart);
}

WAVEFORMATEX* ReadW64Format(HANDLE file, uint64_t* frames, uint64_t* dataStart) {
  constexpr uint64_t kLargestChunk = 4096;
  return ReadFormat<Wave64Container>(file, kLargestChunk, frames, dataStart);
}

}  // namespace qn

int QnFileIsWave(const WCHAR* name, int allowCompressed) {
  return qn::FileIs<qn::WavContainer>(name, allowCompressed);
}

int QnFileIsWave64(const WCHAR* name, int allowCompressed) {
  return qn::FileIs<qn::Wave64Container>(name, allowCompressed);
}

int QnFileIsAiff(const WCHAR* name) {
  const qn::File file(name, GENERIC_READ, OPEN_EXISTING);
  return file ? iff_IsAIFFFileEx(file.Get()) : 0;
}

WAVEFORMATEX* QnGetFileWfx(const WCHAR* name, uint64_t* frames, uint64_t* dataStart) {
  const qn::File file(name, GENERIC_READ, OPEN_EXISTING);
  if (!file) return nullptr;
  uint32_t wavFrames;
  uint32_t wavStart;
  uint64_t count;
  uint64_t start;
  WAVEFORMATEX* record = qn::ReadWavFormat(file.Get(), &wavFrames, &wavStart);
  if (record) {
    count = wavFrames;
    start = wavStart;
  } else {
    record = qn::ReadW64Format(file.Get(), &count, &start);
  }
  if (!record) record = qn::ReadAiffFormat(file.Get(), &count, &start).release();
  if (!record) return nullptr;
  if (frames) *frames = count;
  if (dataStart) *dataStart = start;
  return record;
}
