#include "qn/kernel/qnlist.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "qn/kernel/qnlist_internal.h"

namespace {

constexpr DWORD kSignature = 0x54534C48;  // "HLST" in memory
constexpr LONG kDefaultSlots = 16;
constexpr LONG kLeastSlots = 4;
constexpr LONG kMostGrowBy = 66560;
constexpr LONG kPointerSize = 8;
constexpr SIZE_T kHeapInitialSize = 4096;
constexpr ULONGLONG kUserDataFailure = 0xFFFFFFFF;

// The pointer may be anything that has the bytes of a header.
bool HasSignature(const void* pointer) {
  DWORD signature;
  std::memcpy(&signature, static_cast<const BYTE*>(pointer) + offsetof(tQNLIST, signature), sizeof signature);
  return signature == kSignature;
}

int64_t RoundUp(int64_t value, int64_t multiple) {
  return (value + multiple - 1) / multiple * multiple;
}

// A zeroed block of slots, or null.
void* AllocateSlots(int64_t slots, ULONGLONG itemSize) {
  const auto count = static_cast<ULONGLONG>(slots);
  if (slots > INT32_MAX || (itemSize != 0 && count > SIZE_MAX / itemSize)) return nullptr;
  const HGLOBAL block = GlobalAlloc(GMEM_ZEROINIT, std::max<SIZE_T>(count * itemSize, 1));
  return block ? GlobalLock(block) : nullptr;
}

void ReleaseSlots(void* slots) {
  const HGLOBAL block = GlobalHandle(slots);
  GlobalUnlock(block);
  GlobalFree(block);
}

// A list grows by its granularity and never geometrically: hosts size their lists by it.
HRESULT Grow(tQNLIST* list, int64_t slots) {
  const int64_t allocated = list->allocated + RoundUp(slots < 1 ? list->growBy : slots, list->growBy);
  void* const grown = AllocateSlots(allocated, list->itemSize);
  if (!grown) return E_OUTOFMEMORY;
  std::memcpy(grown, list->items, static_cast<SIZE_T>(list->allocated) * list->itemSize);
  ReleaseSlots(list->items);
  list->items = grown;
  list->allocated = static_cast<LONG>(allocated);
  return S_OK;
}

HRESULT Shrink(tQNLIST* list, int64_t slots) {
  const int64_t freeSlots = list->allocated - list->count;
  int64_t released = RoundUp(slots < 0 ? freeSlots : slots, list->growBy);
  if (released > freeSlots) released -= list->growBy;
  if (released > freeSlots) return E_FAIL;  // items would go
  if (released <= 0) return S_OK;
  const auto kept = static_cast<SIZE_T>(list->allocated - released);
  const HGLOBAL block = GlobalReAlloc(GlobalHandle(list->items), std::max<SIZE_T>(kept, 1) * list->itemSize,
                                      GMEM_MOVEABLE | GMEM_ZEROINIT);
  if (!block) return E_OUTOFMEMORY;
  list->items = GlobalLock(block);
  list->allocated = static_cast<LONG>(kept);
  return S_OK;
}

LONG IndexOrEnd(const tQNLIST* list, LONG index) {
  return index < 0 || index > list->count ? list->count : index;
}

// Inserts the content of `added` slots from `source`, which may lie in the list's own slots.
HRESULT InsertSlots(tQNLIST* list, LONG index, const void* source, int64_t added) {
  std::unique_ptr<BYTE[]> copy;
  const SIZE_T offset = reinterpret_cast<uintptr_t>(source) - reinterpret_cast<uintptr_t>(list->items);
  const SIZE_T allocatedBytes = static_cast<SIZE_T>(list->allocated) * list->itemSize;
  if (offset < allocatedBytes && added > 0) {
    if (static_cast<ULONGLONG>(added) > (allocatedBytes - offset) / list->itemSize) return E_FAIL;
    const SIZE_T bytes = static_cast<SIZE_T>(added) * list->itemSize;
    copy.reset(new (std::nothrow) BYTE[bytes]);
    if (!copy) return E_OUTOFMEMORY;
    std::memcpy(copy.get(), source, bytes);
    source = copy.get();
  }
  const int64_t missing = list->count + added - list->allocated;
  if (missing > 0) {
    const HRESULT status = Grow(list, missing);
    if (FAILED(status)) return status;
  }
  const LONG at = IndexOrEnd(list, index);
  const SIZE_T bytes = static_cast<SIZE_T>(added) * list->itemSize;
  BYTE* const slot = qn::SlotAt(list, at);
  std::memmove(slot + bytes, slot, static_cast<SIZE_T>(list->count - at) * list->itemSize);
  std::memcpy(slot, source, bytes);
  list->count += static_cast<LONG>(added);
  list->pendingItem = nullptr;
  return S_OK;
}

// Takes slots out and zeroes those that fall vacant at the end; items are not freed.
void RemoveSlots(tQNLIST* list, LONG index, LONG count) {
  const LONG behind = list->count - index - count;
  BYTE* const slot = qn::SlotAt(list, index);
  std::memmove(slot, qn::SlotAt(list, index + count), static_cast<SIZE_T>(behind) * list->itemSize);
  list->count -= count;
  std::memset(qn::SlotAt(list, list->count), 0, static_cast<SIZE_T>(count) * list->itemSize);
}

void ReleaseAllItems(tQNLIST* list) {
  if (list->heap) {
    HeapDestroy(list->heap);
    list->heap = nullptr;
    std::memset(list->items, 0, static_cast<SIZE_T>(list->count) * list->itemSize);
    return;
  }
  for (LONG i = 0; i < list->count; i++) qn::ReleaseItem(list, qn::PointerAt(list, i));
}

HRESULT ReleasePendingItem(tQNLIST* list) {
  if (!list->pendingItem) return E_FAIL;
  qn::ReleaseItem(list, list->pendingItem);
  list->pendingItem = nullptr;
  return S_OK;
}

HRESULT AllocatePendingItem(tQNLIST* list, SIZE_T size) {
  if (list->pendingItem) return E_FAIL;
  list->pendingItem = qn::AllocateItem(list, size);
  return list->pendingItem ? S_OK : E_OUTOFMEMORY;
}

// An item can only be freed to the heap that it is from, so between two heaps its content moves, not itself.
HRESULT MoveItem(tQNLIST* destination, LONG destinationIndex, tQNLIST* source, LONG sourceIndex) {
  void* const item = qn::PointerAt(source, sourceIndex);
  const bool copies = destination->heap != source->heap && item;
  if (copies) {
    const SIZE_T size = qn::ItemCapacity(source, item);
    const HRESULT status = AllocatePendingItem(destination, size);
    if (FAILED(status)) return status;
    std::memcpy(destination->pendingItem, item, size);
  } else {
    destination->pendingItem = item;
  }
  const HRESULT status = QnList_InsertList(destination, destinationIndex, nullptr, -1);
  if (SUCCEEDED(status)) {
    RemoveSlots(source, sourceIndex, 1);
    if (copies) qn::ReleaseItem(source, item);
  } else if (copies) {
    ReleasePendingItem(destination);
  }
  destination->pendingItem = nullptr;
  return status;
}

// Fills a zeroed header. On failure it is no list any more and owns nothing.
HRESULT Create(tQNLIST* list, ULONGLONG itemSize, LONG initialCount, LONG growBy, DWORD options) {
  constexpr ULONGLONG kRecordUnit = 4;
  const bool array = (options & QNLIST_OPT_ARRAY) != 0;
  if (array && itemSize > UINT64_MAX - kRecordUnit) return E_OUTOFMEMORY;
  list->itemSize = array ? (itemSize + kRecordUnit - 1) & ~(kRecordUnit - 1) : kPointerSize;
  list->growBy = std::clamp(growBy < 1 ? kDefaultSlots : growBy, kLeastSlots, kMostGrowBy);
  const LONG wanted = std::max(initialCount < 1 ? kDefaultSlots : initialCount, kLeastSlots);
  const int64_t slots = RoundUp(wanted, list->growBy);
  list->items = AllocateSlots(slots, list->itemSize);
  if (!list->items) return E_OUTOFMEMORY;
  list->allocated = static_cast<LONG>(slots);
  list->signature = kSignature;
  if (options & QNLIST_OPT_LOCKED) InitializeCriticalSection(&list->lock);
  // The thread test thus sleeps until a client clears the bit in the header: hosts rely on it.
  list->options = options | QNLIST_OPT_ANY_THREAD;
  list->threadOwner = GetCurrentThreadId();
  if (!qn::OwnsItems(list)) return S_OK;
  list->heapAllocFlags = HEAP_NO_SERIALIZE | HEAP_ZERO_MEMORY;
  list->heapFreeFlags = HEAP_NO_SERIALIZE;
  if (!(options & QNLIST_OPT_PRIVATE_HEAP)) return S_OK;
  list->heap = HeapCreate(HEAP_NO_SERIALIZE, kHeapInitialSize, 0);
  if (list->heap) return S_OK;
  list->options |= QNLIST_OPT_IN_PLACE;  // the header is the caller's to free
  QnList_Destroy(list);
  return E_OUTOFMEMORY;
}

}  // namespace

namespace qn {

HRESULT CheckCaller(const tQNLIST* list) {
  if (!list || !HasSignature(list)) return E_INVALIDARG;
  if (IsLocked(list) || (list->options & QNLIST_OPT_ANY_THREAD)) return S_OK;
  return list->threadOwner == GetCurrentThreadId() ? S_OK : E_FAIL;
}

ListGuard::ListGuard(tQNLIST* list) : status_(CheckCaller(list)), entered_(nullptr) {
  if (Refused() || !IsLocked(list)) return;
  entered_ = &list->lock;
  EnterCriticalSection(entered_);
}

ListGuard::~ListGuard() {
  if (entered_) LeaveCriticalSection(entered_);
}

}  // namespace qn

using qn::ListGuard;

HRESULT QnList_CreateExZ(tQNLIST** list, ULONGLONG itemSize, LONG initialCount, LONG growBy, DWORD options,
                         ULONGLONG, ULONGLONG, ULONGLONG) {
  if (!list) return E_FAIL;
  const bool inPlace = (options & QNLIST_OPT_IN_PLACE) != 0;
  if (inPlace) {
    if (!*list) return E_FAIL;
    **list = {};
  } else {
    *list = nullptr;
  }
  constexpr DWORD kBothKinds = QNLIST_OPT_OWNED_ITEMS | QNLIST_OPT_ARRAY;
  if ((options & kBothKinds) == kBothKinds) return E_FAIL;
  tQNLIST* const header = inPlace ? *list : static_cast<tQNLIST*>(std::calloc(1, sizeof(tQNLIST)));
  if (!header) return E_OUTOFMEMORY;
  const HRESULT status = Create(header, itemSize, initialCount, growBy, options);
  if (SUCCEEDED(status)) {
    *list = header;
  } else if (!inPlace) {
    std::free(header);
  }
  return status;
}

HRESULT QnList_Destroy(tQNLIST* list) {
  if (!list) return S_OK;
  {
    const ListGuard guard(list);
    if (guard.Refused()) return guard.Status();
    if (qn::OwnsItems(list)) ReleaseAllItems(list);
    ReleaseSlots(list->items);
    list->items = nullptr;
    list->count = 0;
    list->allocated = 0;
  }
  if (qn::IsLocked(list)) DeleteCriticalSection(&list->lock);
  list->signature = 0;
  if (!(list->options & QNLIST_OPT_IN_PLACE)) std::free(list);
  return S_OK;
}

HRESULT QnList_ConvertToInPlace(tQNLIST** list, tQNLIST* header) {
  if (!list || !*list || !header || *list == header || !HasSignature(*list)) return E_INVALIDARG;
  if ((*list)->options & QNLIST_OPT_IN_PLACE) return E_FAIL;
  *header = **list;
  header->options |= QNLIST_OPT_IN_PLACE;
  std::free(*list);
  *list = nullptr;
  return S_OK;
}

BOOL QnList_IsList(const void* pointer, SIZE_T size) {
  return size == sizeof(tQNLIST) && !IsBadReadPtr(pointer, size) && HasSignature(pointer);
}

BOOL QnList_IsListFast(const void* pointer) {
  return pointer && HasSignature(pointer);
}

BOOL QnList_IsValidIndexSlow(tQNLIST* list, LONG index) {
  const ListGuard guard(list);
  return !guard.Refused() && qn::IsIndex(list, index);
}

ULONGLONG QnList_SetUserData(tQNLIST* list, ULONGLONG value) {
  const ListGuard guard(list);
  return guard.Refused() ? kUserDataFailure : std::atomic_ref(list->userData).exchange(value);
}

ULONGLONG QnList_GetUserData(tQNLIST* list) {
  const ListGuard guard(list);
  return guard.Refused() ? kUserDataFailure : std::atomic_ref(list->userData).load();
}

DWORD QnList_GetCreateOptions(tQNLIST* list) {
  return QnList_IsListFast(list) ? list->options : 0;
}

ULONGLONG QnList_GetSortCriteria(tQNLIST* list) {
  const ListGuard guard(list);
  return QnList_IsListFast(list) ? list->sortCriteria : 0;
}

DWORD QnList_GetThreadOwner(tQNLIST* list) {
  const ListGuard guard(list);
  return QnList_IsListFast(list) ? list->threadOwner : 0;
}

HRESULT QnList_SetThreadOwner(tQNLIST* list, DWORD threadId) {
  const ListGuard guard(list);
  if (QnList_IsListFast(list)) list->threadOwner = threadId ? threadId : GetCurrentThreadId();
  return S_OK;
}

LONG QnList_GetFileAndLine(tQNLIST*, WCHAR* text) {
  if (text) *text = 0;
  return -1;
}

HRESULT QnList_GrowAllocated(tQNLIST* list, LONG slots) {
  const ListGuard guard(list);
  return guard.Refused() ? guard.Status() : Grow(list, slots);
}

HRESULT QnList_ShrinkAllocated(tQNLIST* list, LONG slots) {
  const ListGuard guard(list);
  return guard.Refused() ? guard.Status() : Shrink(list, slots);
}

// `shrink` asks for a deletion of no items, which never shrinks anything: hosts rely on it.
HRESULT QnList_ArrayForceItemCount(tQNLIST* list, LONG newCount, BOOL) {
  const HRESULT caller = qn::CheckCaller(list);
  if (caller != S_OK) return caller;
  if (!qn::IsArray(list) || newCount < 0) return E_FAIL;
  const ListGuard guard(list);
  if (newCount > list->allocated) {
    const HRESULT status = Grow(list, static_cast<int64_t>(newCount) - list->allocated);
    if (FAILED(status)) return status;
  }
  list->count = newCount;
  return S_OK;
}

HRESULT QnList_InsertList(tQNLIST* list, LONG index, const void* items, LONG count) {
  const ListGuard guard(list);
  if (guard.Refused()) return guard.Status();
  if (!items) {
    if (count != -1 || !list->pendingItem) return E_FAIL;
    return InsertSlots(list, index, &list->pendingItem, 1);
  }
  if (count >= 0 && qn::OwnsItems(list)) return E_FAIL;
  return InsertSlots(list, index, items, std::abs(static_cast<int64_t>(count)));
}

HRESULT QnList_DeleteList(tQNLIST* list, LONG index, LONG count, BOOL shrink) {
  const ListGuard guard(list);
  if (guard.Refused()) return guard.Status();
  if (count < 0 && index < 0) return ReleasePendingItem(list);
  const int64_t behind = static_cast<int64_t>(list->count) - index;
  if ((count < 0 ? behind : count) < 1) return S_OK;
  if (!qn::IsIndex(list, index)) return E_FAIL;
  const LONG deleted = static_cast<LONG>(count < 0 ? behind : std::min<int64_t>(count, behind));
  if (qn::OwnsItems(list)) {
    for (LONG i = index; i < index + deleted; i++) qn::ReleaseItem(list, qn::PointerAt(list, i));
  }
  RemoveSlots(list, index, deleted);
  const LONG freeSlots = list->allocated - list->count;
  // The items are gone, so a block that cannot be made smaller is no failure.
  if (shrink && freeSlots > list->growBy) Shrink(list, freeSlots);
  return S_OK;
}

HRESULT QnList_MoveRange(tQNLIST* list, LONG from, LONG to, LONG count) {
  constexpr SIZE_T kStackBytes = 512;
  const ListGuard guard(list);
  if (guard.Refused()) return guard.Status();
  if (from < 0) return E_INVALIDARG;
  to = std::max(to, 0);
  const int64_t larger = std::max(from, to);
  const int64_t moved = count < 0 ? list->count - larger : count;
  if (larger + moved > list->count) return E_FAIL;
  if (moved < 1 || from == to) return S_OK;

  const SIZE_T bytes = static_cast<SIZE_T>(moved) * list->itemSize;
  BYTE stackBlock[kStackBytes];
  const HGLOBAL heapBlock = bytes > kStackBytes ? GlobalAlloc(GMEM_FIXED, bytes) : nullptr;
  if (bytes > kStackBytes && !heapBlock) return E_OUTOFMEMORY;
  void* const saved = heapBlock ? GlobalLock(heapBlock) : stackBlock;
  BYTE* const source = qn::SlotAt(list, from);
  BYTE* const target = qn::SlotAt(list, to);
  std::memcpy(saved, source, bytes);
  if (from < to) {
    std::memmove(source, source + bytes, static_cast<SIZE_T>(target - source));
  } else {
    std::memmove(target + bytes, target, static_cast<SIZE_T>(source - target));
  }
  std::memcpy(target, saved, bytes);
  if (heapBlock) {
    GlobalUnlock(heapBlock);
    GlobalFree(heapBlock);
  }
  return S_OK;
}

HRESULT QnList_AllocItem(tQNLIST* list, SIZE_T size, void** itemOut) {
  const HRESULT caller = qn::CheckCaller(list);
  if (caller != S_OK) return caller;
  if (!itemOut) return E_FAIL;
  *itemOut = nullptr;
  if (!qn::OwnsItems(list)) return E_FAIL;
  const ListGuard guard(list);
  const HRESULT status = AllocatePendingItem(list, size);
  if (SUCCEEDED(status)) *itemOut = list->pendingItem;
  return status;
}

HRESULT QnList_AllocAndInsertItem(tQNLIST* list, const void* data, SIZE_T size, LONG index, LONG* indexOut) {
  if (indexOut) *indexOut = -1;
  const ListGuard guard(list);
  if (guard.Refused()) return guard.Status();
  const LONG at = IndexOrEnd(list, index);
  HRESULT status = qn::OwnsItems(list) ? AllocatePendingItem(list, size) : E_FAIL;
  if (SUCCEEDED(status)) {
    if (data) std::memcpy(list->pendingItem, data, size);
    status = InsertSlots(list, at, &list->pendingItem, 1);
    if (FAILED(status)) ReleasePendingItem(list);
  }
  if (indexOut && SUCCEEDED(status)) *indexOut = at;
  return status;
}

HRESULT QnList_ReAllocItem(tQNLIST* list, LONG index, SIZE_T size) {
  const HRESULT caller = qn::CheckCaller(list);
  if (caller != S_OK) return caller;
  if (!qn::OwnsItems(list)) return E_FAIL;
  const ListGuard guard(list);
  if (!qn::IsIndex(list, index)) return E_FAIL;
  void* const resized = qn::ResizeItem(list, qn::PointerAt(list, index), size);
  if (!resized) return E_OUTOFMEMORY;
  qn::PointerAt(list, index) = resized;
  return S_OK;
}

LONGLONG QnList_AllocSize(tQNLIST* list, LONG index) {
  const ListGuard guard(list);
  if (guard.Refused()) return -1;
  if (index >= 0) {
    if (qn::IsArray(list)) return static_cast<LONGLONG>(list->itemSize);
    if (!qn::OwnsItems(list) || !qn::IsIndex(list, index)) return -1;
    return static_cast<LONGLONG>(qn::ItemSize(list, qn::PointerAt(list, index)));
  }
  SIZE_T total = GlobalSize(GlobalHandle(list->items)) + sizeof(tQNLIST);
  for (LONG i = 0; qn::OwnsItems(list) && i < list->count; i++) {
    total += qn::ItemSize(list, qn::PointerAt(list, i));
  }
  return static_cast<LONGLONG>(total);
}

HRESULT QnList_MoveItemsBetweenHeapLists(tQNLIST* destination, LONG destinationIndex, tQNLIST* source,
                                         LONG sourceIndex, LONG count) {
  const ListGuard destinationGuard(destination);
  if (destinationGuard.Refused()) return destinationGuard.Status();
  const ListGuard sourceGuard(source);
  if (sourceGuard.Refused()) return sourceGuard.Status();
  if (!qn::OwnsItems(destination) || !qn::OwnsItems(source) || destination->pendingItem) return E_FAIL;
  if (count < 0) count = source->count;
  if (count == 0) return S_OK;
  if (sourceIndex < 0 || count > source->count || sourceIndex > source->count - count) return E_FAIL;
  if (destination == source) return E_FAIL;

  const LONG at = IndexOrEnd(destination, destinationIndex);
  HRESULT status = S_OK;
  for (LONG i = sourceIndex + count; i-- > sourceIndex && SUCCEEDED(status);) {
    status = MoveItem(destination, at, source, i);
  }
  return status;
}
