// The form's size, and deletion.
#include <algorithm>

#include "qn/media/riff64.h"
#include "qn/media/riff64_internal.h"
#include "qn/settings/qnstatus.h"

namespace {

HRESULT StoreSize(HANDLE file, uint64_t storedSize) {
  const qn::KeepPosition keep(file);
  qn::Seek(file, qn::kWave64SizeOffset);
  return qn::WriteField(file, storedSize) ? S_OK : QN_E_FILE_WRITE;
}

}  // namespace

HRESULT riff64_SetRIFFSize(HANDLE file, uint64_t size) {
  return StoreSize(file, size + qn::kWave64HeaderSize);
}

HRESULT riff64_UpdateRIFFSize(HANDLE file, int64_t delta) {
  const qn::KeepPosition keep(file);
  qn::Seek(file, qn::kWave64SizeOffset);
  uint64_t storedSize;
  if (!qn::ReadField(file, storedSize)) return QN_E_FILE_READ;
  return StoreSize(file, storedSize + static_cast<uint64_t>(delta));
}

HRESULT riff64_DeleteChunk(HANDLE file, const GUID* id, uint64_t* deleted) {
  if (deleted) *deleted = 0;
  if (!id) return E_INVALIDARG;
  qn::SeekEnd(file);
  const uint64_t fileSize = qn::Tell(file);
  uint64_t size;
  HRESULT status = riff64_FindChunkHeaderInRIFF(file, id, &size, nullptr);
  if (FAILED(status)) return status;

  const uint64_t data = qn::Tell(file);
  const uint64_t padded = qn::Wave64Padded(size);
  const uint64_t amount = padded + qn::kWave64HeaderSize;
  uint64_t to = data - qn::kWave64HeaderSize;
  uint64_t from = data + padded;
  // A chunk that overruns the file is cut off with nothing to move.
  uint64_t tail = padded < fileSize - data ? fileSize - from : 0;
  while (tail > 0) {
    const auto bytes = static_cast<uint32_t>(std::min<uint64_t>(tail, qn::kMoveBlock));
    uint32_t moved;
    status = qn::MoveBlock(file, &from, &to, bytes, bytes, &moved);
    if (FAILED(status)) return status;
    tail -= moved;
  }
  qn::Seek(file, to);
  SetEndOfFile(file);
  // Hosts rely on success here whatever the update says: the chunk is gone.
  static_cast<void>(riff64_UpdateRIFFSize(file, static_cast<int64_t>(0 - amount)));
  if (deleted) *deleted = amount;
  return S_OK;
}
