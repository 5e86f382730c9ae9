// The shape of Wave64 chunks, shared by the sources of riff64.h.
#pragma once

#include "qn/media/chunkio_internal.h"

namespace qn {

constexpr uint32_t kWave64HeaderSize = 24;
constexpr uint32_t kWave64TypeSize = 16;
constexpr uint64_t kWave64SizeOffset = 16;

// `size` rounded up to a multiple of 8; the largest such number for a size above it.
constexpr uint64_t Wave64Padded(uint64_t size) {
  constexpr uint64_t kMost = ~uint64_t{7};
  return size > kMost ? kMost : (size + 7) & kMost;
}

// Reads a chunk's header; the size is that of the data, 0 for a stored size that does not hold the header.
inline bool ReadWave64Header(HANDLE file, GUID& id, uint64_t& dataSize) {
  uint64_t storedSize;
  if (!ReadField(file, id) || !ReadField(file, storedSize)) return false;
  dataSize = storedSize > kWave64HeaderSize ? storedSize - kWave64HeaderSize : 0;
  return true;
}

}  // namespace qn
