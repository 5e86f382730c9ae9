#include "qn/platform/memory.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "qn/platform/error_internal.h"
#include "qn/platform/mapping_internal.h"

namespace {

// In front of each block's bytes. `owner` is the handle's record of a movable block and null for a fixed
// one.
struct alignas(16) BlockHeader {
  uint64_t magic;
  struct MovableRecord* owner;
  size_t size;
  uint64_t unused;
};

// What the handle of a movable block leads to. Blocks start at multiples of 16 and handles at 8 more, so a
// handle is never taken for a block.
struct alignas(16) MovableRecord {
  uint64_t magic;
  void* bytes;
  uint32_t locks;
};

constexpr uint64_t kBlockMagic = 0x6B6C624C41424C47;
constexpr uint64_t kRecordMagic = 0x6365724C41424C47;
constexpr uintptr_t kHandleOffset = 8;

BlockHeader* HeaderOf(const void* bytes) {
  return const_cast<BlockHeader*>(static_cast<const BlockHeader*>(bytes)) - 1;
}

HGLOBAL HandleOf(MovableRecord* record) {
  return reinterpret_cast<char*>(record) + kHandleOffset;
}

// The record of a movable block's handle, or null for anything else.
MovableRecord* RecordOf(HGLOBAL block) {
  if (reinterpret_cast<uintptr_t>(block) % 16 != kHandleOffset) return nullptr;
  auto* record = reinterpret_cast<MovableRecord*>(static_cast<char*>(block) - kHandleOffset);
  return record->magic == kRecordMagic ? record : nullptr;
}

// The header of a block given by its address, or null, also for memory that is not of here: what lies before
// that on the same page can be looked at, a page before it may not be there.
[[gnu::no_sanitize_address]] BlockHeader* BlockAt(const void* bytes) {
  constexpr uintptr_t kLeastPage = 4096;
  if (!bytes || reinterpret_cast<uintptr_t>(bytes) % 16 != 0) return nullptr;
  BlockHeader* header = HeaderOf(bytes);
  if (reinterpret_cast<uintptr_t>(bytes) % kLeastPage < sizeof(BlockHeader) &&
      IsBadReadPtr(header, sizeof(BlockHeader)))
    return nullptr;
  return header->magic == kBlockMagic ? header : nullptr;
}

// The header of a block given by its handle, or null.
BlockHeader* BlockOf(HGLOBAL block) {
  if (!block) return nullptr;
  const MovableRecord* record = RecordOf(block);
  BlockHeader* header = BlockAt(record ? record->bytes : block);
  return header && (header->owner != nullptr) == (record != nullptr) ? header : nullptr;
}

void* AllocateBytes(size_t size, bool zero) {
  if (size > SIZE_MAX - sizeof(BlockHeader)) return nullptr;
  const size_t whole = sizeof(BlockHeader) + size;
  auto* header = static_cast<BlockHeader*>(zero ? std::calloc(1, whole) : std::malloc(whole));
  if (!header) return nullptr;
  *header = {kBlockMagic, nullptr, size, 0};
  return header + 1;
}

void FreeBytes(BlockHeader* header) {
  header->magic = 0;
  std::free(header);
}

}  // namespace

inline namespace qnplatform {

HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes) {
  void* const block = AllocateBytes(bytes, (flags & GMEM_ZEROINIT) != 0);
  if (block && !(flags & GMEM_MOVEABLE)) return block;
  auto* record = block ? static_cast<MovableRecord*>(std::malloc(sizeof(MovableRecord))) : nullptr;
  if (!record) {
    if (block) FreeBytes(HeaderOf(block));
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  *record = {kRecordMagic, block, 0};
  HeaderOf(block)->owner = record;
  return HandleOf(record);
}

void* GlobalLock(HGLOBAL block) {
  BlockHeader* header = BlockOf(block);
  if (!header) {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  if (header->owner) ++header->owner->locks;
  return header + 1;
}

BOOL GlobalUnlock(HGLOBAL block) {
  BlockHeader* header = BlockOf(block);
  if (!header) return qn::FailWith(ERROR_INVALID_HANDLE);
  if (header->owner && header->owner->locks > 0) --header->owner->locks;
  SetLastError(ERROR_SUCCESS);
  return header->owner && header->owner->locks > 0;
}

HGLOBAL GlobalHandle(const void* address) {
  BlockHeader* header = BlockAt(address);
  if (!header) {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  return header->owner ? HandleOf(header->owner) : header + 1;
}

SIZE_T GlobalSize(HGLOBAL block) {
  const BlockHeader* header = BlockOf(block);
  if (!header) {
    SetLastError(ERROR_INVALID_HANDLE);
    return 0;
  }
  return header->size;
}

HGLOBAL GlobalReAlloc(HGLOBAL block, SIZE_T bytes, UINT flags) {
  BlockHeader* header = BlockOf(block);
  if (!header) {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  MovableRecord* const record = header->owner;
  const bool pinned = !record || record->locks > 0;
  const size_t oldSize = header->size;
  const bool mayMove = !pinned || (flags & GMEM_MOVEABLE);
  if (!mayMove && bytes <= oldSize) {
    header->size = bytes;
    return block;
  }
  auto* moved = mayMove && bytes <= SIZE_MAX - sizeof(BlockHeader)
                    ? static_cast<BlockHeader*>(std::realloc(header, sizeof(BlockHeader) + bytes))
                    : nullptr;
  if (!moved) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
  moved->size = bytes;
  void* const data = moved + 1;
  if ((flags & GMEM_ZEROINIT) && bytes > oldSize) {
    std::memset(static_cast<char*>(data) + oldSize, 0, bytes - oldSize);
  }
  if (!record) return data;
  record->bytes = data;
  return block;
}

HGLOBAL GlobalFree(HGLOBAL block) {
  if (!block) return nullptr;
  BlockHeader* header = BlockOf(block);
  if (!header) {
    SetLastError(ERROR_INVALID_HANDLE);
    return block;
  }
  MovableRecord* const record = header->owner;
  FreeBytes(header);
  if (record) {
    record->magic = 0;
    std::free(record);
  }
  return nullptr;
}

BOOL IsBadReadPtr(const void* address, SIZE_T bytes) {
  if (bytes == 0) return FALSE;
  if (!address || reinterpret_cast<uintptr_t>(address) > UINTPTR_MAX - bytes) return TRUE;
  // One byte of each page is copied through the kernel, which reports a fault instead of raising one.
  const auto pageSize = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const uintptr_t last = reinterpret_cast<uintptr_t>(address) + bytes - 1;
  for (uintptr_t at = reinterpret_cast<uintptr_t>(address);; at = (at / pageSize + 1) * pageSize) {
    if (at > last) return FALSE;
    char byte;
    const iovec local = {&byte, 1};
    const iovec remote = {reinterpret_cast<void*>(at), 1};
    if (process_vm_readv(getpid(), &local, 1, &remote, 1, 0) == 1) continue;
    // A sandbox may refuse the call, not the list of the mappings.
    return errno == EFAULT || !qn::IsReadable(at, last);
  }
}

}  // namespace qnplatform
