#include "qn/media/riff.h"

#include <limits>

#include "qn/media/chunkio_internal.h"
#include "qn/settings/qnstatus.h"

namespace {

constexpr uint64_t kFirstChunk = 12;
constexpr uint32_t kHeaderSize = 8;
constexpr uint32_t kTypeSize = 4;

uint64_t Padded(uint32_t size) {
  return uint64_t{size} + (size & 1);
}

}  // namespace

HRESULT riff_SaveLocation(HANDLE file, uint32_t* location) {
  if (!location) return E_INVALIDARG;
  *location = static_cast<uint32_t>(qn::Tell(file));
  return S_OK;
}

HRESULT riff_RestoreLocation(HANDLE file, uint32_t location) {
  qn::Seek(file, location);
  return S_OK;
}

HRESULT riff_SeekDataStart(HANDLE file) {
  qn::Seek(file, kFirstChunk);
  return S_OK;
}

uint32_t riff_SkipChunk(HANDLE file, uint32_t size) {
  const uint64_t distance = Padded(size);
  qn::Skip(file, distance);
  constexpr uint32_t kMost = std::numeric_limits<uint32_t>::max();
  return distance > kMost ? kMost : static_cast<uint32_t>(distance);
}

HRESULT riff_ValidateChunkHeader(uint32_t, int32_t size) {
  if (size < 0) return QN_E_CHUNK_SIZE;
  return size == 0 ? QN_E_CHUNK_EMPTY : S_OK;
}

HRESULT riff_ReadChunkHeader(HANDLE file, uint32_t* id, uint32_t* size) {
  if (!id || !size) return E_INVALIDARG;
  uint32_t readId;
  uint32_t readSize;
  if (!qn::ReadField(file, readId) || !qn::ReadField(file, readSize)) return QN_E_FILE_READ;
  *id = readId;
  *size = readSize;
  return S_OK;
}

HRESULT riff_ReadListHeader(HANDLE file, uint32_t* listType, uint32_t* size) {
  if (!listType || !size) return E_INVALIDARG;
  uint32_t id;
  const HRESULT status = riff_ReadChunkHeader(file, &id, size);
  if (FAILED(status)) return status;
  if (id != RIFF_ID_LIST) return QN_E_LIST_HEADER;
  *size -= kTypeSize;
  uint32_t type;
  if (!qn::ReadField(file, type)) return QN_E_FILE_READ;
  *listType = type;
  return S_OK;
}

HRESULT riff_ReadFileID(HANDLE file, uint32_t* size, uint32_t* formType) {
  if (size) *size = 0;
  uint32_t id;
  uint32_t storedSize;
  const HRESULT status = riff_ReadChunkHeader(file, &id, &storedSize);
  if (FAILED(status)) return status;
  if (id != RIFF_ID_RIFF) return QN_E_RIFF_HEADER;
  if (size) *size = storedSize > kTypeSize ? storedSize - kTypeSize : 0;
  uint32_t type;
  if (!qn::ReadField(file, type)) return QN_E_FILE_READ;
  if (formType) *formType = type;
  return S_OK;
}

HRESULT riff_GetFileSize(HANDLE file, uint32_t* size) {
  qn::Seek(file, 0);
  uint32_t id;
  uint32_t storedSize;
  uint32_t type;
  if (!qn::ReadField(file, id) || !qn::ReadField(file, storedSize) || !qn::ReadField(file, type)) {
    return QN_E_FILE_READ;
  }
  if (id != RIFF_ID_RIFF) return QN_E_RIFF_HEADER;
  if (size) *size = storedSize + 4;
  return S_OK;
}

HRESULT riff_ReadData(HANDLE file, void* buffer, uint64_t size) {
  const auto bytes = static_cast<uint32_t>(size);
  if (!buffer && bytes > 0) return E_INVALIDARG;
  if (!qn::ReadExactly(file, buffer, bytes)) return QN_E_FILE_READ;
  qn::Skip(file, size & 1);
  return S_OK;
}

HRESULT riff_ReadDataBounded(HANDLE file, void* buffer, uint32_t chunkSize, uint32_t bufferSize) {
  return qn::ReadBounded(file, buffer, chunkSize, bufferSize, bufferSize & 1);
}

HRESULT riff_ReadDataAlloc(HANDLE file, riff_DataBlock* block) {
  if (!block) return E_INVALIDARG;
  return qn::ReadNewBlock(file, block->size, block->size & 1, &block->data);
}

HRESULT riff_WriteChunkHeader(HANDLE file, uint32_t id, uint32_t size) {
  return qn::WriteField(file, id) && qn::WriteField(file, size) ? S_OK : QN_E_FILE_WRITE;
}

HRESULT riff_WriteChunk(HANDLE file, uint32_t id, const void* data, uint32_t size, uint32_t* written) {
  if (!data && size > 0) return E_INVALIDARG;
  const HRESULT status = riff_WriteChunkHeader(file, id, size);
  if (FAILED(status)) return status;
  if (!qn::WriteExactly(file, data, size) || !qn::WriteZeros(file, size & 1)) return QN_E_FILE_WRITE;
  if (written) *written = static_cast<uint32_t>(Padded(size) + kHeaderSize);
  return S_OK;
}

HRESULT riff_WriteListHeader(HANDLE file, uint32_t listType, uint32_t size) {
  const HRESULT status = riff_WriteChunkHeader(file, RIFF_ID_LIST, size);
  if (FAILED(status)) return status;
  return qn::WriteField(file, listType) ? S_OK : QN_E_FILE_WRITE;
}

HRESULT riff_WriteFileID(HANDLE file, uint32_t formType, uint32_t size) {
  // Hosts rely on the status being that of the last write alone, and on each write being tried.
  static_cast<void>(qn::WriteField(file, RIFF_ID_RIFF));
  static_cast<void>(qn::WriteField(file, size));
  return qn::WriteField(file, formType) ? S_OK : QN_E_FILE_WRITE;
}
