#include "qn/media/riff64.h"

#include "qn/media/chunkio_internal.h"
#include "qn/media/riff64_internal.h"
#include "qn/settings/qnstatus.h"

namespace {

using qn::kWave64HeaderSize;
using qn::kWave64TypeSize;

constexpr uint64_t kFirstChunk = 40;
constexpr uint64_t kAlignment = 8;

// Any of the alignment's bits, and bit 35, which hosts take for the sign.
constexpr uint64_t kBadSizeBits = 0x800000007;

// The padding behind `size` bytes.
uint32_t PadOf(uint64_t size) {
  return static_cast<uint32_t>((kAlignment - size % kAlignment) % kAlignment);
}

// A list or a file header: an id, the size as it is to be stored, and a type.
bool WriteTyped(HANDLE file, const GUID& id, uint64_t storedSize, const GUID& type) {
  return qn::WriteField(file, id) && qn::WriteField(file, storedSize) && qn::WriteField(file, type);
}

HRESULT StatusOfWrite(bool written) {
  return written ? S_OK : QN_E_FILE_WRITE;
}

}  // namespace

HRESULT riff64_SaveLocation(HANDLE file, uint64_t* location) {
  if (!location) return E_INVALIDARG;
  *location = qn::Tell(file);
  return S_OK;
}

HRESULT riff64_RestoreLocation(HANDLE file, uint64_t location) {
  qn::Seek(file, location);
  return S_OK;
}

HRESULT riff64_SeekDataStart(HANDLE file) {
  qn::Seek(file, kFirstChunk);
  return S_OK;
}

uint64_t riff64_SkipChunk(HANDLE file, uint64_t size) {
  const uint64_t distance = qn::Wave64Padded(size);
  qn::Skip(file, distance);
  return distance;
}

HRESULT riff64_ValidateChunkHeader(GUID, uint64_t size) {
  if (size & kBadSizeBits) return QN_E_CHUNK_SIZE;
  return size == 0 ? QN_E_CHUNK_EMPTY : S_OK;
}

HRESULT riff64_ReadChunkHeader(HANDLE file, GUID* id, uint64_t* size) {
  if (!id || !size) return E_INVALIDARG;
  GUID readId;
  uint64_t readSize;
  if (!qn::ReadWave64Header(file, readId, readSize)) return QN_E_FILE_READ;
  *id = readId;
  *size = readSize;
  return S_OK;
}

HRESULT riff64_ReadListHeader(HANDLE file, GUID* listType, uint64_t* size) {
  if (!listType || !size) return E_INVALIDARG;
  GUID id;
  uint64_t storedSize;
  if (!qn::ReadField(file, id) || !qn::ReadField(file, storedSize)) return QN_E_FILE_READ;
  *size = storedSize - kWave64HeaderSize;
  if (id != RIFF64_GUID_LIST) return QN_E_LIST_HEADER;
  *size -= kWave64TypeSize;
  GUID type;
  if (!qn::ReadField(file, type)) return QN_E_FILE_READ;
  *listType = type;
  return S_OK;
}

HRESULT riff64_ReadFileID(HANDLE file, uint64_t* size, GUID* formType) {
  if (size) *size = 0;
  GUID id;
  uint64_t dataSize;
  // A file too short for its header is to hosts one without a header.
  if (!qn::ReadWave64Header(file, id, dataSize) || id != RIFF64_GUID_RIFF) return QN_E_RIFF_HEADER;
  if (size) *size = dataSize - kWave64TypeSize;
  GUID type;
  if (!qn::ReadField(file, type)) return QN_E_FILE_READ;
  if (formType) *formType = type;
  return S_OK;
}

HRESULT riff64_ReadData(HANDLE file, void* buffer, uint64_t size) {
  const auto bytes = static_cast<uint32_t>(size);
  if (!buffer && bytes > 0) return E_INVALIDARG;
  if (!qn::ReadExactly(file, buffer, bytes)) return QN_E_FILE_READ;
  qn::Skip(file, PadOf(bytes));
  return S_OK;
}

HRESULT riff64_ReadDataBounded(HANDLE file, void* buffer, uint32_t chunkSize, uint32_t bufferSize) {
  return qn::ReadBounded(file, buffer, chunkSize, bufferSize, bufferSize & (kAlignment - 1));
}

HRESULT riff64_ReadDataAlloc(HANDLE file, riff_DataBlock* block) {
  if (!block) return E_INVALIDARG;
  return qn::ReadNewBlock(file, block->size, PadOf(block->size), &block->data);
}

HRESULT riff64_WriteData(HANDLE file, const void* data, uint64_t size, uint64_t* written) {
  const auto bytes = static_cast<uint32_t>(size);
  if (!data && bytes > 0) return E_INVALIDARG;
  if (!qn::WriteExactly(file, data, bytes) || !qn::WriteZeros(file, PadOf(bytes))) return QN_E_FILE_WRITE;
  if (written) *written = qn::Wave64Padded(bytes);
  return S_OK;
}

HRESULT riff64_WriteToFile(HANDLE file, const void* data, uint64_t size) {
  if (!data && size > 0) return E_INVALIDARG;
  return StatusOfWrite(qn::WriteExactly(file, data, size));
}

HRESULT riff64_WriteChunkHeader(HANDLE file, const GUID* id, uint64_t size) {
  if (!id) return E_INVALIDARG;
  return StatusOfWrite(qn::WriteField(file, *id) && qn::WriteField(file, size + kWave64HeaderSize));
}

HRESULT riff64_WriteChunk(HANDLE file, const GUID* id, const void* data, uint64_t size, uint64_t* written) {
  if (!data && size > 0) return E_INVALIDARG;
  const HRESULT status = riff64_WriteChunkHeader(file, id, size);
  if (FAILED(status)) return status;
  if (!qn::WriteExactly(file, data, size) || !qn::WriteZeros(file, PadOf(size))) return QN_E_FILE_WRITE;
  if (written) *written = qn::Wave64Padded(size) + kWave64HeaderSize;
  return S_OK;
}

HRESULT riff64_WriteListHeader(HANDLE file, const GUID* listType, uint64_t size) {
  if (!listType) return E_INVALIDARG;
  return StatusOfWrite(WriteTyped(file, RIFF64_GUID_LIST, size + kWave64HeaderSize, *listType));
}

HRESULT riff64_WriteFileID(HANDLE file, const GUID* formType, uint64_t size) {
  if (!formType) return E_INVALIDARG;
  // Hosts rely on the status being that of the last write alone, and on each write being tried.
  static_cast<void>(qn::WriteField(file, RIFF64_GUID_RIFF));
  static_cast<void>(qn::WriteField(file, size + kWave64HeaderSize));
  return StatusOfWrite(qn::WriteField(file, *formType));
}

HRESULT riff64_PrepareChunk(HANDLE file, const GUID* id, uint64_t* start) {
  if (!id || !start) return E_INVALIDARG;
  *start = qn::Tell(file);
  return riff64_WriteChunkHeader(file, id, 0);
}

HRESULT riff64_PrepareList(HANDLE file, const GUID* listType, uint64_t* start) {
  if (!listType || !start) return E_INVALIDARG;
  *start = qn::Tell(file);
  return riff64_WriteListHeader(file, listType, 0);
}

uint64_t riff64_AmountWritten(HANDLE file, uint64_t start) {
  return qn::Tell(file) - start;
}

HRESULT riff64_Pad(HANDLE file, uint64_t start) {
  return StatusOfWrite(qn::WriteZeros(file, PadOf(riff64_AmountWritten(file, start))));
}

HRESULT riff64_CompleteChunk(HANDLE file, uint64_t start) {
  const HRESULT status = riff64_Pad(file, start);
  if (FAILED(status)) return status;
  const qn::KeepPosition keep(file);
  const uint64_t length = riff64_AmountWritten(file, start);
  return StatusOfWrite(qn::Seek(file, start + sizeof(GUID)) && qn::WriteField(file, length));
}

HRESULT riff64_WriteChunkToFile(HANDLE file, const GUID* id, const void* data, uint64_t size) {
  if (!data && size > 0) return E_INVALIDARG;
  uint64_t start;
  HRESULT status = riff64_PrepareChunk(file, id, &start);
  if (SUCCEEDED(status)) status = riff64_WriteToFile(file, data, size);
  if (SUCCEEDED(status)) status = riff64_CompleteChunk(file, start);
  return status;
}

HRESULT riff64_getGUIDLabel() {
  return S_OK;
}

HRESULT riff64_getGUIDLabelProperly() {
  return S_OK;
}
