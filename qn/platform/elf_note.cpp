#include "qn/platform/elf_note_internal.h"

#include <elf.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "qn/platform/error_internal.h"
#include "qn/platform/file.h"
#include "qn/platform/resource_internal.h"

namespace {

constexpr char kOwner[] = "qnkernel";
constexpr uint32_t kVersionType = 1;
constexpr size_t kMostSegments = 256;
constexpr uint64_t kMostNotes = 1 << 20;
constexpr unsigned char kOwnOrder = std::endian::native == std::endian::little ? ELFDATA2LSB : ELFDATA2MSB;

// Looks for the version among the notes in `size` bytes: each is the sizes of name and content and its type,
// with name and content padded to `alignment`.
bool FindNote(const uint8_t* notes, uint64_t size, uint64_t alignment, qn::VersionBlock* found) {
  const auto roundUp = [&](uint64_t place) { return (place + alignment - 1) & ~(alignment - 1); };
  for (uint64_t place = 0; place + sizeof(Elf64_Nhdr) <= size;) {
    const auto header = qn::ReadUnaligned<Elf64_Nhdr>(notes + place);
    const uint64_t name = place + sizeof(header);
    const uint64_t content = roundUp(name + header.n_namesz);
    const uint64_t end = content + header.n_descsz;
    if (end > size) break;
    if (header.n_type == kVersionType && header.n_namesz == sizeof(kOwner) &&
        std::memcmp(notes + name, kOwner, sizeof(kOwner)) == 0) {
      found->data = notes + content;
      found->size = header.n_descsz;
      return true;
    }
    place = roundUp(end);
  }
  return false;
}

// The two widths of the format differ in their records alone.
template <class Header, class Segment>
bool FindInSegments(HANDLE file, uint64_t fileSize, qn::VersionBlock* block) {
  Header header;
  if (!qn::ReadAt(file, 0, &header, sizeof(header)) || header.e_phentsize != sizeof(Segment)) return false;
  Segment segments[kMostSegments];
  const size_t count = std::min<size_t>(header.e_phnum, kMostSegments);
  const size_t bytes = count * sizeof(Segment);
  if (header.e_phoff > fileSize || bytes > fileSize - header.e_phoff) return false;
  if (!qn::ReadAt(file, header.e_phoff, segments, bytes)) return false;
  uint64_t left = kMostNotes;
  for (size_t i = 0; i < count; ++i) {
    const Segment& segment = segments[i];
    if (segment.p_type != PT_NOTE || segment.p_offset > fileSize) continue;
    const uint64_t size = std::min<uint64_t>({segment.p_filesz, fileSize - segment.p_offset, left});
    left -= size;
    block->content.reset(new uint8_t[static_cast<size_t>(size)]);
    if (!qn::ReadAt(file, segment.p_offset, block->content.get(), static_cast<size_t>(size))) return false;
    if (FindNote(block->content.get(), size, segment.p_align == 8 ? 8 : 4, block)) return true;
  }
  return false;
}

}  // namespace

namespace qn {

bool ReadAt(HANDLE file, uint64_t place, void* bytes, size_t size) {
  LARGE_INTEGER distance;
  distance.QuadPart = static_cast<int64_t>(place);
  DWORD got;
  return SetFilePointerEx(file, distance, nullptr, FILE_BEGIN) &&
         ReadFile(file, bytes, static_cast<DWORD>(size), &got, nullptr) && got == size;
}

bool IsElf(HANDLE file) {
  char mark[SELFMAG];
  return ReadAt(file, 0, mark, sizeof(mark)) && std::memcmp(mark, ELFMAG, SELFMAG) == 0;
}

bool ReadVersionNote(HANDLE file, uint64_t fileSize, VersionBlock* block) {
  unsigned char identity[EI_NIDENT];
  bool found = false;
  if (ReadAt(file, 0, identity, sizeof(identity)) && identity[EI_DATA] == kOwnOrder) {
    if (identity[EI_CLASS] == ELFCLASS64)
      found = FindInSegments<Elf64_Ehdr, Elf64_Phdr>(file, fileSize, block);
    if (identity[EI_CLASS] == ELFCLASS32)
      found = FindInSegments<Elf32_Ehdr, Elf32_Phdr>(file, fileSize, block);
  }
  return found || FailWith(ERROR_RESOURCE_TYPE_NOT_FOUND);
}

}  // namespace qn
