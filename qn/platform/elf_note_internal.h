// The version text that qn_resources leaves in a program or a library, for readers of the file.
//
// It is a note of the owner "qnkernel" and of type 1, in a segment of notes; its content is the version
// block.
#pragma once

#include <memory>

#include "qn/platform/types.h"

namespace qn {

// A version block, and the bytes of the file among which it lies when it comes from one.
struct VersionBlock {
  std::unique_ptr<uint8_t[]> content;
  const uint8_t* data = nullptr;
  DWORD size = 0;
};

// Reads `size` bytes at a place of a file; false when there are fewer.
bool ReadAt(HANDLE file, uint64_t place, void* bytes, size_t size);

// Whether a file is in the ELF format, by its first bytes.
bool IsElf(HANDLE file);

// Finds the note in an ELF file of this machine's byte order, of which only the headers and up to 1 MiB of
// notes are read. False with the last error when there is none or the file is damaged. Throws std::bad_alloc.
bool ReadVersionNote(HANDLE file, uint64_t fileSize, VersionBlock* block);

}  // namespace qn
