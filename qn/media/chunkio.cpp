#include <algorithm>
#include <limits>

#include "qn/media/chunkio_internal.h"
#include "qn/platform/memory.h"
#include "qn/settings/qnstatus.h"

namespace qn {
namespace {

constexpr uint64_t kMaxDistance = std::numeric_limits<int64_t>::max();

// Moves the position by a signed distance and gives the new one; 2^64 - 1 on failure.
uint64_t Move(HANDLE file, int64_t distance, DWORD method) {
  LONG high = static_cast<LONG>(distance >> 32);
  const DWORD low = SetFilePointer(file, static_cast<LONG>(distance), &high, method);
  if (low == INVALID_SET_FILE_POINTER && GetLastError() != ERROR_SUCCESS) {
    return std::numeric_limits<uint64_t>::max();
  }
  return static_cast<uint64_t>(static_cast<DWORD>(high)) << 32 | low;
}

bool Moved(uint64_t position) {
  return position <= kMaxDistance;
}

}  // namespace

uint64_t Tell(HANDLE file) {
  return Move(file, 0, FILE_CURRENT);
}

bool Seek(HANDLE file, uint64_t position) {
  return position <= kMaxDistance && Moved(Move(file, static_cast<int64_t>(position), FILE_BEGIN));
}

void SeekEnd(HANDLE file) {
  Move(file, 0, FILE_END);
}

void Skip(HANDLE file, uint64_t distance, uint32_t consumed) {
  if (distance == consumed) return;
  if (distance <= kMaxDistance &&
      Moved(Move(file, static_cast<int64_t>(distance) - consumed, FILE_CURRENT))) {
    return;
  }
  SeekEnd(file);
}

bool HasBytes(HANDLE file, uint64_t bytes) {
  LARGE_INTEGER size;
  const uint64_t position = Tell(file);
  if (!Moved(position) || !GetFileSizeEx(file, &size)) return false;
  const auto end = static_cast<uint64_t>(size.QuadPart);
  if (position <= end && bytes <= end - position) return true;
  if (position < end) SeekEnd(file);
  return false;
}

bool ReadExactly(HANDLE file, void* buffer, uint32_t bytes) {
  DWORD got = 0;
  return ReadFile(file, buffer, bytes, &got, nullptr) && got == bytes;
}

bool WriteExactly(HANDLE file, const void* buffer, uint64_t bytes) {
  constexpr uint64_t kMaxWrite = std::numeric_limits<DWORD>::max();
  auto next = static_cast<const uint8_t*>(buffer);
  do {
    const auto size = static_cast<DWORD>(std::min(bytes, kMaxWrite));
    DWORD put = 0;
    if (!WriteFile(file, next, size, &put, nullptr) || put != size) return false;
    bytes -= size;
    if (bytes > 0) next += size;
  } while (bytes > 0);
  return true;
}

bool WriteZeros(HANDLE file, uint32_t count) {
  for (; count > 0; --count) {
    if (!WriteField(file, uint8_t{0})) return false;
  }
  return true;
}

HRESULT ReadBounded(HANDLE file, void* buffer, uint32_t chunkSize, uint32_t bufferSize, uint32_t pad) {
  const uint32_t bytes = std::min(chunkSize, bufferSize);
  if (!buffer && bytes > 0) return E_INVALIDARG;
  if (!ReadExactly(file, buffer, bytes)) return QN_E_FILE_READ;
  Skip(file, uint64_t{chunkSize} - bytes + pad);
  return S_OK;
}

HRESULT ReadNewBlock(HANDLE file, uint32_t size, uint32_t pad, void** data) {
  *data = nullptr;
  if (size == 0) return S_OK;
  if (!HasBytes(file, size)) return QN_E_FILE_READ;
  const HGLOBAL block = GlobalAlloc(GHND, size);
  if (!block) return E_OUTOFMEMORY;
  void* const bytes = GlobalLock(block);
  if (!bytes || !ReadExactly(file, bytes, size)) {
    GlobalUnlock(block);
    GlobalFree(block);
    return bytes ? QN_E_FILE_READ : E_OUTOFMEMORY;
  }
  Skip(file, pad);
  *data = bytes;
  return S_OK;
}

HRESULT MoveBlock(HANDLE file, uint64_t* from, uint64_t* to, uint32_t bytes, uint32_t least,
                  uint32_t* moved) {
  uint8_t buffer[kMoveBlock];
  DWORD got = 0;
  DWORD put = 0;
  Seek(file, *from);
  if (!ReadFile(file, buffer, bytes, &got, nullptr) || got < least) return QN_E_FILE_READ;
  Seek(file, *to);
  if (!WriteFile(file, buffer, got, &put, nullptr) || put != got) return QN_E_FILE_WRITE;
  *from += got;
  *to += got;
  *moved = got;
  return S_OK;
}

}  // namespace qn
