// What the list's sources share.
#pragma once

#include "qn/kernel/qnlist.h"

namespace qn {

inline bool OwnsItems(const tQNLIST* list) {
  return (list->options & QNLIST_OPT_OWNED_ITEMS) != 0;
}
inline bool IsArray(const tQNLIST* list) {
  return (list->options & QNLIST_OPT_ARRAY) != 0;
}
inline bool IsLocked(const tQNLIST* list) {
  return (list->options & QNLIST_OPT_LOCKED) != 0;
}

inline bool IsIndex(const tQNLIST* list, LONG index) {
  return index >= 0 && index < list->count;
}

inline BYTE* SlotAt(const tQNLIST* list, LONG index) {
  return static_cast<BYTE*>(list->items) + static_cast<SIZE_T>(index) * list->itemSize;
}

// The pointer in a slot of a pointer or owned-item list.
inline void*& PointerAt(const tQNLIST* list, LONG index) {
  return static_cast<void**>(list->items)[index];
}

// The item as callbacks see it.
inline void* ItemAt(const tQNLIST* list, LONG index) {
  return IsArray(list) ? SlotAt(list, index) : PointerAt(list, index);
}

// S_OK if the calling thread may use the list, E_INVALIDARG for no list, E_FAIL for the wrong thread.
HRESULT CheckCaller(const tQNLIST* list);

// Entry to an operation: the thread test, and the lock until the end of the scope.
class ListGuard {
 public:
  explicit ListGuard(tQNLIST* list);
  ~ListGuard();
  ListGuard(const ListGuard&) = delete;
  ListGuard& operator=(const ListGuard&) = delete;

  bool Refused() const { return status_ != S_OK; }
  HRESULT Status() const { return status_; }

 private:
  HRESULT status_;
  CRITICAL_SECTION* entered_;
};

// Memory of owned items, from the private heap or from malloc (see qnlist_item.cpp).
void* AllocateItem(const tQNLIST* list, SIZE_T size);            // zeroed; null without memory
void* ResizeItem(const tQNLIST* list, void* item, SIZE_T size);  // null, and the item as it was
void ReleaseItem(const tQNLIST* list, void* item);               // null is allowed
SIZE_T ItemSize(const tQNLIST* list, const void* item);          // as last asked for; 0 for null
SIZE_T ItemCapacity(const tQNLIST* list, const void* item);      // all bytes that may hold data

}  // namespace qn
