// What the reading, the writing and the repair of WAV and Wave64 files share: the numbers of the two
// containers, and the two format readers.
#pragma once

#include "qn/media/chunkio_internal.h"
#include "qn/media/mediafile_internal.h"
#include "qn/media/riff.h"
#include "qn/media/riff64.h"
#include "qn/platform/mmreg.h"
#include "qn/platform/types.h"

namespace qn {

// A container as the templates over it see it. Budget, Size and Offset are the widths in which it counts what
// is left of a walk, a chunk's data, and a place in the file.
struct WavContainer {
  using Id = uint32_t;
  using Size = uint32_t;
  using Budget = uint32_t;
  using Offset = uint32_t;

  static constexpr Id kForm = 0x45564157;  // "WAVE"
  static constexpr Id kFormat = RIFF_ID_FMT;
  static constexpr Id kData = 0x61746164;  // "data"
  static constexpr Id kJunk = 0x4B4E554A;  // "JUNK"

  static constexpr uint32_t kChunkHeaderBytes = 8;
  static constexpr uint32_t kAlignment = 2;      // of chunks
  static constexpr uint32_t kRecordOffset = 20;  // where our headers have the format record
  static constexpr uint32_t kRecordEnd = 38;     // and the chunk behind it
  static constexpr uint32_t kPlainHeader = 46;   // the shortest header, and the shortest with a JUNK chunk
  static constexpr uint32_t kHeaderWithJunk = 54;

  // Reads the file header at the position. `*budget` becomes the length of the chunks behind it.
  static HRESULT ReadFileHeader(HANDLE file, Budget* budget, Id* form) {
    return riff_ReadFileID(file, budget, form);
  }
  static HRESULT Find(HANDLE file, const Id& id, Size* size, Budget* budget) {
    return riff_FindChunkHeader(file, id, size, budget);
  }
  static void Skip(HANDLE file, Size size) { riff_SkipChunk(file, size); }
};

struct Wave64Container {
  using Id = GUID;
  using Size = uint64_t;
  using Budget = int64_t;
  using Offset = int64_t;

  static constexpr Id kForm = RIFF64_GUID_WAVE;
  static constexpr Id kFormat = RIFF64_GUID_FMT;
  static constexpr Id kData = RIFF64_GUID_DATA;

  static constexpr uint32_t kChunkHeaderBytes = 24;
  static constexpr uint32_t kAlignment = 8;
  static constexpr uint32_t kRecordOffset = 64;
  static constexpr uint32_t kRecordEnd = 88;
  static constexpr uint32_t kPlainHeader = 112;
  static constexpr uint32_t kHeaderWithJunk = 136;

  static HRESULT ReadFileHeader(HANDLE file, Budget* budget, Id* form) {
    uint64_t size;
    const HRESULT status = riff64_ReadFileID(file, &size, form);
    *budget = static_cast<Budget>(size);
    return status;
  }
  static HRESULT Find(HANDLE file, const Id& id, Size* size, Budget* budget) {
    return riff64_FindChunkHeader(file, &id, size, budget);
  }
  static void Skip(HANDLE file, Size size) { riff64_SkipChunk(file, size); }
};

// Read the format of an open WAV or Wave64 file from wherever its position is, and put that back. Linear PCM
// and float only; PCM of 20 bits comes out as 24. `*frames` becomes the frame count that the `data` chunk's
// size stands for, `*dataStart` the offset of its samples. Returns a record with its cbSize bytes behind it,
// to be released with free(), or null with both outputs 0.
WAVEFORMATEX* ReadWavFormat(HANDLE file, uint32_t* frames, uint32_t* dataStart);
WAVEFORMATEX* ReadW64Format(HANDLE file, uint64_t* frames, uint64_t* dataStart);

}  // namespace qn
