// The form's size, and deletion.
#include "qn/media/chunkio_internal.h"
#include "qn/media/riff.h"
#include "qn/settings/qnstatus.h"

namespace {

constexpr uint64_t kSizeOffset = 4;
constexpr uint32_t kHeaderSize = 8;
constexpr uint32_t kTypeSize = 4;

// A file of this RIFF size and its 8 bytes of header still has a length of 32 bits.
constexpr int64_t kMaxRiffSize = 0xFFFFFFF7;

}  // namespace

HRESULT riff_SetRIFFSize(HANDLE file, uint32_t size) {
  const qn::KeepPosition keep(file);
  qn::Seek(file, kSizeOffset);
  return qn::WriteField(file, size) ? S_OK : QN_E_FILE_WRITE;
}

HRESULT riff_UpdateRIFFSize(HANDLE file, int64_t delta) {
  const qn::KeepPosition keep(file);
  qn::Seek(file, kSizeOffset);
  uint32_t storedSize;
  if (!qn::ReadField(file, storedSize)) return QN_E_FILE_READ;
  if (delta > kMaxRiffSize - int64_t{storedSize}) {
    // The file has outgrown its format: what was just appended goes, and the header is right again.
    qn::Seek(file, uint64_t{storedSize} + kHeaderSize);
    SetEndOfFile(file);
    return QN_E_FILE_TOO_LARGE;
  }
  return riff_SetRIFFSize(file, static_cast<uint32_t>(int64_t{storedSize} + delta));
}

HRESULT riff_DeleteChunk(HANDLE file, uint32_t id, uint32_t* deleted, int32_t isList) {
  if (deleted) *deleted = 0;
  uint32_t size;
  HRESULT status = isList ? riff_FindListChunkFromStart(file, id, &size)
                          : riff_FindChunkHeaderInRIFF(file, id, &size, nullptr);
  if (FAILED(status)) return status;
  uint32_t passed = kHeaderSize;
  if (isList) {
    // The size was told without the type, below 0 for a list that declares less than its type.
    size += kTypeSize;
    passed += kTypeSize;
  }
  const uint64_t amount = uint64_t{size} + (size & 1) + kHeaderSize;
  uint64_t to = qn::Tell(file) - passed;
  uint64_t from = to + amount;
  uint32_t moved;
  do {
    status = qn::MoveBlock(file, &from, &to, qn::kMoveBlock, 0, &moved);
    if (FAILED(status)) return status;
  } while (moved == qn::kMoveBlock);
  SetEndOfFile(file);
  if (deleted) *deleted = static_cast<uint32_t>(amount);
  return riff_UpdateRIFFSize(file, -static_cast<int64_t>(amount));
}
