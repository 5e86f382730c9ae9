// Private heaps: an arena of chunks with a free list for each size class, larger blocks on their own.
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

#include "qn/platform/error_internal.h"
#include "qn/platform/memory.h"

namespace {

constexpr size_t kGranule = 16;
constexpr size_t kLargestSmall = 1024;
constexpr size_t kClasses = kLargestSmall / kGranule + 1;
constexpr size_t kChunkBytes = 64 * 1024;

// In front of each block. A large block is linked into its heap's list; a free small one into its class's.
struct alignas(16) ItemHeader {
  size_t size;
  ItemHeader* next;
  ItemHeader* previous;
  uint64_t unused;
};

struct alignas(16) Chunk {
  Chunk* next;
};

bool IsSmall(size_t size) {
  return size <= kLargestSmall;
}
size_t ClassOf(size_t size) {
  return (size + kGranule - 1) / kGranule;
}

class Heap {
 public:
  explicit Heap(bool serialized) : serialized_(serialized) {}
  ~Heap() {
    while (chunks_) std::free(std::exchange(chunks_, chunks_->next));
    while (large_) std::free(std::exchange(large_, large_->next));
  }
  Heap(const Heap&) = delete;
  Heap& operator=(const Heap&) = delete;

  void* Allocate(size_t size, bool zero) {
    const auto guard = Guard();
    ItemHeader* const item = IsSmall(size) ? TakeSmall(ClassOf(size)) : TakeLarge(size);
    if (!item) return nullptr;
    item->size = size;
    if (zero) std::memset(item + 1, 0, size);
    return item + 1;
  }

  void Free(void* block) {
    const auto guard = Guard();
    ItemHeader* const item = static_cast<ItemHeader*>(block) - 1;
    if (IsSmall(item->size)) {
      ItemHeader*& first = free_[ClassOf(item->size)];
      item->next = first;
      first = item;
      return;
    }
    (item->previous ? item->previous->next : large_) = item->next;
    if (item->next) item->next->previous = item->previous;
    std::free(item);
  }

 private:
  std::unique_lock<std::mutex> Guard() {
    return serialized_ ? std::unique_lock(mutex_) : std::unique_lock<std::mutex>();
  }

  ItemHeader* TakeSmall(size_t sizeClass) {
    if (ItemHeader* const item = free_[sizeClass]) {
      free_[sizeClass] = item->next;
      return item;
    }
    const size_t bytes = sizeof(ItemHeader) + sizeClass * kGranule;
    if (bytes > roomLeft_) {
      auto* const chunk = static_cast<Chunk*>(std::malloc(kChunkBytes));
      if (!chunk) return nullptr;
      chunk->next = chunks_;
      chunks_ = chunk;
      room_ = reinterpret_cast<char*>(chunk + 1);
      roomLeft_ = kChunkBytes - sizeof(Chunk);
    }
    auto* const item = reinterpret_cast<ItemHeader*>(room_);
    room_ += bytes;
    roomLeft_ -= bytes;
    return item;
  }

  ItemHeader* TakeLarge(size_t size) {
    if (size > SIZE_MAX - sizeof(ItemHeader)) return nullptr;
    auto* const item = static_cast<ItemHeader*>(std::malloc(sizeof(ItemHeader) + size));
    if (!item) return nullptr;
    item->previous = nullptr;
    item->next = large_;
    if (large_) large_->previous = item;
    large_ = item;
    return item;
  }

  bool serialized_;
  std::mutex mutex_;
  Chunk* chunks_ = nullptr;
  char* room_ = nullptr;
  size_t roomLeft_ = 0;
  ItemHeader* large_ = nullptr;
  ItemHeader* free_[kClasses] = {};
};

void* Failed() {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

}  // namespace

inline namespace qnplatform {

HANDLE HeapCreate(DWORD options, SIZE_T, SIZE_T) {
  Heap* const heap = new (std::nothrow) Heap((options & HEAP_NO_SERIALIZE) == 0);
  return heap ? heap : Failed();
}

BOOL HeapDestroy(HANDLE heap) {
  if (!heap) return qn::FailWith(ERROR_INVALID_HANDLE);
  delete static_cast<Heap*>(heap);
  return TRUE;
}

void* HeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes) {
  void* const block =
      heap ? static_cast<Heap*>(heap)->Allocate(bytes, (flags & HEAP_ZERO_MEMORY) != 0) : nullptr;
  return block ? block : Failed();
}

void* HeapReAlloc(HANDLE heap, DWORD flags, void* block, SIZE_T bytes) {
  if (!heap || !block) return Failed();
  const size_t oldSize = HeapSize(heap, flags, block);
  void* const moved = HeapAlloc(heap, 0, bytes);
  if (!moved) return nullptr;
  std::memcpy(moved, block, oldSize < bytes ? oldSize : bytes);
  if ((flags & HEAP_ZERO_MEMORY) && bytes > oldSize) {
    std::memset(static_cast<char*>(moved) + oldSize, 0, bytes - oldSize);
  }
  HeapFree(heap, flags, block);
  return moved;
}

BOOL HeapFree(HANDLE heap, DWORD, void* block) {
  if (!heap) return qn::FailWith(ERROR_INVALID_HANDLE);
  if (block) static_cast<Heap*>(heap)->Free(block);
  return TRUE;
}

SIZE_T HeapSize(HANDLE, DWORD, const void* block) {
  return block ? (static_cast<const ItemHeader*>(block) - 1)->size : 0;
}

}  // namespace qnplatform
