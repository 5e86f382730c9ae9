// What every chunk reader and writer does with a file handle. Positions are 64-bit and absolute, except where
// a function says otherwise; only SetFilePointer moves them. The integers of chunk files are little-endian,
// as those of every machine that the library is built for.
#pragma once

#include <bit>

#include "qn/platform/file.h"

namespace qn {

static_assert(std::endian::native == std::endian::little);

// Where the handle's position is; 2^64 - 1 for a handle that has none.
uint64_t Tell(HANDLE file);

// Moves the position; false, with the position as it was, when no file can have the one asked for.
bool Seek(HANDLE file, uint64_t position);

void SeekEnd(HANDLE file);

// Moves forward by `distance`, of which `consumed` bytes have been read already. A place that the system
// refuses becomes the end of the file: a hostile size never leads backwards, and the next read comes up short
// as it would at the true place.
void Skip(HANDLE file, uint64_t distance, uint32_t consumed = 0);

// True when the file has `bytes` bytes from the position on, to be asked before they are made room for. Else
// the position goes to the end, where a read of them would have left it.
bool HasBytes(HANDLE file, uint64_t bytes);

// Reads or writes `bytes` bytes; false when it fails or comes up short. `buffer` may be null for 0 bytes.
bool ReadExactly(HANDLE file, void* buffer, uint32_t bytes);
bool WriteExactly(HANDLE file, const void* buffer, uint64_t bytes);

// Writes `count` zero bytes, one at a time.
bool WriteZeros(HANDLE file, uint32_t count);

// Reads or writes a field of a file as it lies in memory.
template <class Field>
bool ReadField(HANDLE file, Field& field) {
  return ReadExactly(file, &field, sizeof field);
}
template <class Field>
bool WriteField(HANDLE file, const Field& field) {
  return WriteExactly(file, &field, sizeof field);
}

// Reads the smaller of a chunk's and a buffer's size and moves over the rest of the chunk and `pad` bytes.
HRESULT ReadBounded(HANDLE file, void* buffer, uint32_t chunkSize, uint32_t bufferSize, uint32_t pad);

// Reads `size` bytes into a new locked block, `*data`, and moves over `pad` bytes. `*data` is null for a size
// of 0, which moves nothing, and on failure. Nothing is allocated that the file cannot fill.
HRESULT ReadNewBlock(HANDLE file, uint32_t size, uint32_t pad, void** data);

// Copies one block of at most kMoveBlock bytes within a file, from the place `*from` to the place `*to` below
// it, and moves both on by `*moved`, the bytes copied: fewer than `bytes` at the end of the file. A read of
// fewer than `least` bytes fails with nothing written.
constexpr uint32_t kMoveBlock = 4096;
HRESULT MoveBlock(HANDLE file, uint64_t* from, uint64_t* to, uint32_t bytes, uint32_t least, uint32_t* moved);

// Brings the position back to where it was.
class KeepPosition {
 public:
  explicit KeepPosition(HANDLE file) : file_(file), position_(Tell(file)) {}
  ~KeepPosition() { Seek(file_, position_); }
  KeepPosition(const KeepPosition&) = delete;
  KeepPosition& operator=(const KeepPosition&) = delete;

 private:
  HANDLE file_;
  uint64_t position_;
};

}  // namespace qn
