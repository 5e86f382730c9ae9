// Handle lists: a growable sequence in one contiguous block, in three kinds.
//
//   pointer list     slots hold pointers of the caller's; the list stores and compares them, no more
//   owned-item list  slots hold pointers to items that the list allocates and frees
//   array list       slots hold records of one size
//
//   tQNLIST* list;
//   QnList_CreateExZ(&list, sizeof(Point), -1, -1, QNLIST_OPT_ARRAY, 0, 0, 0);
//   QnList_InsertList(list, -1, &point, 1);  // -1: at the end
//   for (LONG i = 0; i < list->count; i++) Draw(static_cast<const Point*>(list->items)[i]);
//   QnList_Destroy(list);
//
// "Item", in a callback or a result, is the pointer in the slot, or on an array list the slot's address.
// Indexes count from 0; -1 as a result means none.
//
// Threads: a list created with QNLIST_OPT_LOCKED enters its recursive lock in each operation on items, also
// around callbacks, which may call the list again. Any other list has no protection. If the client clears
// QNLIST_OPT_ANY_THREAD in the header of an unlocked list, calls by other threads than `threadOwner` fail.
//
// Failures: E_INVALIDARG for a pointer that is no list, E_FAIL for misuse (wrong kind of list, wrong thread,
// range outside the list), E_OUTOFMEMORY. A failed operation leaves the list as it was. Where a result is no
// status, both misuse and a bad list give the failure value that the function names.
#pragma once

#include "qn/platform/memory.h"
#include "qn/platform/sync.h"

constexpr DWORD QNLIST_OPT_OWNED_ITEMS = 0x00000002;
constexpr DWORD QNLIST_OPT_ARRAY = 0x00000004;
constexpr DWORD QNLIST_OPT_IN_PLACE = 0x00000008;      // the header is the caller's storage
constexpr DWORD QNLIST_OPT_PRIVATE_HEAP = 0x10000000;  // owned items come from a heap of the list's own
constexpr DWORD QNLIST_OPT_ANY_THREAD = 0x40000000;    // no thread test; creation always sets it
constexpr DWORD QNLIST_OPT_LOCKED = 0x80000000;

// The header of a list. Clients read `count`, `itemSize` and `items`; the order of the fields is public.
typedef struct tQNLIST {
  LONG count;
  ULONGLONG itemSize;      // bytes of a slot: 8, or on an array list a record's size rounded up to 4
  void* items;             // the slots
  CRITICAL_SECTION lock;   // live with QNLIST_OPT_LOCKED
  DWORD signature;         // "HLST" from creation to destruction
  DWORD options;           // QNLIST_OPT_*
  ULONGLONG userData;      //
  ULONGLONG sortCriteria;  // the first argument of every comparison
  DWORD threadOwner;       // the creating thread until changed
  LONG allocated;          // slots in the block
  LONG growBy;             // the granularity of the block, in slots
  HANDLE heap;             // the private heap or null
  DWORD heapAllocFlags;    // 9 with owned items
  DWORD heapFreeFlags;     // 1 with owned items
  void* pendingItem;       // allocated and not yet inserted, or null
  ULONGLONG debugRecord;   // 0; its place is kept for a record of source file and line
} tQNLIST;

static_assert(sizeof(void*) == 8);
static_assert(offsetof(tQNLIST, itemSize) == 8 && offsetof(tQNLIST, items) == 16);
static_assert(offsetof(tQNLIST, lock) == 24 && offsetof(tQNLIST, signature) == 64);
static_assert(offsetof(tQNLIST, options) == 68 && offsetof(tQNLIST, userData) == 72);
static_assert(offsetof(tQNLIST, sortCriteria) == 80 && offsetof(tQNLIST, threadOwner) == 88);
static_assert(offsetof(tQNLIST, allocated) == 92 && offsetof(tQNLIST, growBy) == 96);
static_assert(offsetof(tQNLIST, heap) == 104 && offsetof(tQNLIST, heapAllocFlags) == 112);
static_assert(offsetof(tQNLIST, heapFreeFlags) == 116 && offsetof(tQNLIST, pendingItem) == 120);
static_assert(offsetof(tQNLIST, debugRecord) == 128 && sizeof(tQNLIST) == 136);

// The order of two items: below 0 if `first` sorts before `second`, 0 if equal, above 0 if after. In the
// sorted searches `first` is the key as the caller gave it.
typedef LONG (*QNLISTCOMPARE)(ULONGLONG sortCriteria, const void* first, const void* second);

// 0 if the item is the one looked for.
typedef LONG (*QNLISTMATCH)(void* parameter, const void* item);

extern "C" {

// Creation and identity.

// Creates an empty list.
//   list          receives the list, or null on failure; with QNLIST_OPT_IN_PLACE it holds the address of
//                 the caller's header, which is zeroed first
//   itemSize      of an array list, bytes of a record
//   initialCount  slots to start with; below 1: 16; at least 4; rounded up to a multiple of `growBy`
//   growBy        slots to grow by; below 1: 16; held to 4..66560
//   options       QNLIST_OPT_*; owned items and array exclude each other
//   reserved      0, ignored
// E_FAIL for misuse, E_OUTOFMEMORY. Destroy it with QnList_Destroy.
QN_API HRESULT QnList_CreateExZ(tQNLIST** list, ULONGLONG itemSize, LONG initialCount, LONG growBy,
                                DWORD options, ULONGLONG reserved1, ULONGLONG reserved2, ULONGLONG reserved3);

// Frees the list with the items that it owns; a pending item only on a list with a private heap. A header in
// place stays the caller's. 0 for null.
QN_API HRESULT QnList_Destroy(tQNLIST* list);

// Moves a header made by the library into the caller's storage and goes on there as an in-place list;
// `*list` becomes null. E_INVALIDARG for a null argument or no list, E_FAIL for a list that is in place.
QN_API HRESULT QnList_ConvertToInPlace(tQNLIST** list, tQNLIST* header);

// Nonzero if `size` is a header's size, so many bytes can be read, and they are a live list. The fast form
// looks at the signature alone.
QN_API BOOL QnList_IsList(const void* pointer, SIZE_T size);
QN_API BOOL QnList_IsListFast(const void* pointer);

// Nonzero if the list has an item at `index`, asked under the lock. Failure 0.
QN_API BOOL QnList_IsValidIndexSlow(tQNLIST* list, LONG index);

// The client's value. Setting is an atomic exchange, also on a list without a lock, and gives the old value.
// Failure 0xFFFFFFFF.
QN_API ULONGLONG QnList_SetUserData(tQNLIST* list, ULONGLONG value);
QN_API ULONGLONG QnList_GetUserData(tQNLIST* list);

// The fields `options`, `sortCriteria` and `threadOwner`; 0 for no list.
QN_API DWORD QnList_GetCreateOptions(tQNLIST* list);
QN_API ULONGLONG QnList_GetSortCriteria(tQNLIST* list);
QN_API DWORD QnList_GetThreadOwner(tQNLIST* list);

// Makes a thread the owner; 0 means the calling thread. Always 0.
QN_API HRESULT QnList_SetThreadOwner(tQNLIST* list, DWORD threadId);

// Stores an empty text and gives -1: lists do not record where they were made.
QN_API LONG QnList_GetFileAndLine(tQNLIST* list, WCHAR* text);

// Storage.

// Adds `slots` slots rounded up to a multiple of `growBy`; below 1: `growBy` slots. The block moves.
QN_API HRESULT QnList_GrowAllocated(tQNLIST* list, LONG slots);

// Takes away free slots: `slots`, below 0 all, rounded up to a multiple of `growBy`; one `growBy` less if
// that is more than are free. E_FAIL if it is still more.
QN_API HRESULT QnList_ShrinkAllocated(tQNLIST* list, LONG slots);

// Sets the count of an array list and grows it as needed. New records are zero unless a shorter count left
// something there. `shrink` has no effect. E_FAIL on other lists and for a negative count.
QN_API HRESULT QnList_ArrayForceItemCount(tQNLIST* list, LONG newCount, BOOL shrink);

// Items.

// Inserts in front of `index`; below 0 or beyond the end it appends.
//   items given, count >= 0  `count` slots' content from `items`; refused with E_FAIL on an owned-item list
//   items given, count < 0   -count slots' content on any list; an owned-item list then owns these blocks,
//                            which must come from malloc or from its private heap
//   items null, count -1     the pending item
// `items` is an array of pointers, or of records on an array list. The pending item is cleared.
QN_API HRESULT QnList_InsertList(tQNLIST* list, LONG index, const void* items, LONG count);

// Deletes `count` items from `index` on, as far as there are any; below 0 all. Owned items are freed. With
// `shrink` nonzero, free slots beyond one `growBy` are given back. A count of 0 does nothing and succeeds;
// so does a negative count from the end on; E_FAIL for any other index outside the list. With both negative
// it frees the pending item, E_FAIL if there is none.
QN_API HRESULT QnList_DeleteList(tQNLIST* list, LONG index, LONG count, BOOL shrink);

// Moves a block of items so that its first one ends at index `to`; the items between shift. `to` below 0 is
// 0; a negative count is all that fit behind the larger index. E_INVALIDARG for a negative `from`, E_FAIL if
// a range of that many items leaves the list.
QN_API HRESULT QnList_MoveRange(tQNLIST* list, LONG from, LONG to, LONG count);

// Allocates a zeroed item of an owned-item list and keeps it as pending until QnList_InsertList or
// QnList_DeleteList takes it. `*itemOut` is null on refusal (no owned-item list, an item pending) and when
// there is no memory.
QN_API HRESULT QnList_AllocItem(tQNLIST* list, SIZE_T size, void** itemOut);

// Allocates an item, copies `size` bytes of `data` (null: zeros) and inserts it, all under the lock. The
// final index goes to `*indexOut`, if given, -1 on failure.
QN_API HRESULT QnList_AllocAndInsertItem(tQNLIST* list, const void* data, SIZE_T size, LONG index,
                                         LONG* indexOut);

// Resizes an owned item; it may move. Bytes that it gains are undefined. E_OUTOFMEMORY leaves it as it was.
QN_API HRESULT QnList_ReAllocItem(tQNLIST* list, LONG index, SIZE_T size);

// Bytes of an owned item, as last asked for (a host's own malloc block counts in full), or of an array list's
// slot. With a negative index, bytes of the block of slots, the header and all owned items together. What a
// pointer list points to is the caller's: its items have no size here and add nothing to the sum. Failure -1.
QN_API LONGLONG QnList_AllocSize(tQNLIST* list, LONG index);

// Moves `count` items (negative: as many as the source has) from one owned-item list to another, in order,
// to stand in front of `destinationIndex` (negative or beyond the end: at the end). Items stay where they are
// in memory, except between lists of which one has a private heap: there they get new addresses and may count
// some bytes more. E_FAIL if
// the destination has a pending item, for a range outside the source, and for one list on both sides. The
// first failing insertion stops it; what was moved stays moved.
QN_API HRESULT QnList_MoveItemsBetweenHeapLists(tQNLIST* destination, LONG destinationIndex, tQNLIST* source,
                                                LONG sourceIndex, LONG count);

// Search and order. A range is `count` items (negative: all that follow, else as many as there are) from
// `start` (negative: 0) on.

// The first index whose item is `item`: the same pointer, or on an array list a record of the same bytes as
// the one at `item`. -1 for none.
QN_API LONG QnList_FindSpecificItemRange(tQNLIST* list, LONG start, LONG count, const void* item);

// The first index that `match` accepts, or -1.
QN_API LONG QnList_FindItemRange(tQNLIST* list, LONG start, LONG count, void* parameter, QNLISTMATCH match);

// The index of an item equal to `key` in a sorted range (of several, the one that bisection meets first), or
// -1.
QN_API LONG QnList_FindSortedItemRange(tQNLIST* list, const void* key, LONG start, LONG count,
                                       QNLISTCOMPARE compare);

// Where to insert `key` in a sorted range: the index of an equal item if bisection meets one, else the place
// between its neighbours. 0 for an empty range, whatever `start` is; -1 for a `start` beyond the end.
QN_API LONG QnList_FindSortedInsertIndexRange(tQNLIST* list, const void* key, LONG start, LONG count,
                                              QNLISTCOMPARE compare);

// Sort in ascending order and store `criteria` in the list, which a null `compare` does alone. Neither is
// stable. QnList_Sort makes n * (n - 1) / 2 comparisons and few swaps; QnList_HeapSort is the one for long
// lists.
QN_API HRESULT QnList_Sort(tQNLIST* list, ULONGLONG criteria, QNLISTCOMPARE compare);
QN_API HRESULT QnList_HeapSort(tQNLIST* list, ULONGLONG criteria, QNLISTCOMPARE compare);

// Stores `criteria` in the destination and inserts each item of the source at its place there, by value.
// Failures to insert are ignored, so an owned-item destination stays empty. With a `compare`, E_FAIL for
// one list on both sides, and for a destination whose slots are larger than the source's.
QN_API HRESULT QnList_SortTo(tQNLIST* destination, tQNLIST* source, ULONGLONG criteria,
                             QNLISTCOMPARE compare);

// The number of slots for a hash table that holds `currentCount` entries and gets `addCount` more: a prime,
// or 0 if there is none large enough; `tableSize`, the present number, if nothing is added.
QN_API int QnSlotHash_GetAdjustedTableSize(int currentCount, int addCount, int tableSize);
}
