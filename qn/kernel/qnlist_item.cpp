// Memory of owned items.
//
// Without a private heap an item is a plain malloc block: a host may insert blocks of its own with a
// negative count, and may free items that it has taken out of the list. So nothing can stand in front of it.
// malloc_usable_size tells what the allocator made of a request, not the request itself, which stands in a
// trailer at the very end of the usable bytes. A host's own block has no trailer and counts in full.
//
// A block that a host has freed can come back to it with a trailer still in its unused bytes. So the recorded
// size is for telling alone: no copy and no resize relies on it.
#include <malloc.h>

#include <cstdlib>
#include <cstring>

#include "qn/kernel/qnlist_internal.h"

namespace {

struct ItemTrailer {
  uint64_t mark;
  uint64_t size;
};

// The mark depends on the address, so a copied trailer is none.
uint64_t MarkOf(const void* item) {
  return reinterpret_cast<uintptr_t>(item) ^ 0x9B5D3C71E84FA263;
}

// Not inlined: the compiler would hold the trailer's address against the size asked of malloc, and a
// hardened build would stop on it.
[[gnu::noinline]] void WriteTrailer(void* item, SIZE_T size) {
  const ItemTrailer trailer = {MarkOf(item), size};
  BYTE* const end = static_cast<BYTE*>(item) + malloc_usable_size(item);
  std::memcpy(end - sizeof trailer, &trailer, sizeof trailer);
}

SIZE_T MallocSize(const void* item) {
  const SIZE_T usable = malloc_usable_size(const_cast<void*>(item));
  ItemTrailer trailer;
  if (usable < sizeof trailer) return usable;
  std::memcpy(&trailer, static_cast<const BYTE*>(item) + usable - sizeof trailer, sizeof trailer);
  return trailer.mark == MarkOf(item) && trailer.size <= usable - sizeof trailer ? trailer.size : usable;
}

bool HasRoomForTrailer(SIZE_T size) {
  return size <= SIZE_MAX - sizeof(ItemTrailer);
}

}  // namespace

namespace qn {

void* AllocateItem(const tQNLIST* list, SIZE_T size) {
  if (list->heap) return HeapAlloc(list->heap, list->heapAllocFlags, size);
  void* const item = HasRoomForTrailer(size) ? std::calloc(1, size + sizeof(ItemTrailer)) : nullptr;
  if (item) WriteTrailer(item, size);
  return item;
}

void* ResizeItem(const tQNLIST* list, void* item, SIZE_T size) {
  if (list->heap) return HeapReAlloc(list->heap, list->heapAllocFlags, item, size);
  void* const resized = HasRoomForTrailer(size) ? std::realloc(item, size + sizeof(ItemTrailer)) : nullptr;
  if (resized) WriteTrailer(resized, size);
  return resized;
}

void ReleaseItem(const tQNLIST* list, void* item) {
  if (!item) return;
  if (list->heap) {
    HeapFree(list->heap, list->heapFreeFlags, item);
  } else {
    std::free(item);
  }
}

SIZE_T ItemCapacity(const tQNLIST* list, const void* item) {
  return list->heap ? ItemSize(list, item) : malloc_usable_size(const_cast<void*>(item));
}

SIZE_T ItemSize(const tQNLIST* list, const void* item) {
  if (!item) return 0;
  if (list->heap) return HeapSize(list->heap, list->heapAllocFlags & ~HEAP_NO_SERIALIZE, item);
  return MallocSize(item);
}

}  // namespace qn
