#include "qn/kernel/qnlist.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/support.h"

namespace {

using ListPtr = std::unique_ptr<tQNLIST, decltype(&QnList_Destroy)>;
using Numbers = std::vector<LONG>;

constexpr DWORD kArray = QNLIST_OPT_ARRAY;
constexpr DWORD kOwned = QNLIST_OPT_OWNED_ITEMS;
constexpr DWORD kOwnedInHeap = QNLIST_OPT_OWNED_ITEMS | QNLIST_OPT_PRIVATE_HEAP;

ListPtr MakeList(DWORD options, ULONGLONG itemSize = 12, LONG initialCount = 4, LONG growBy = 4) {
  tQNLIST* list = nullptr;
  EXPECT_EQ(QnList_CreateExZ(&list, itemSize, initialCount, growBy, options, 0, 0, 0), S_OK);
  return ListPtr(list, QnList_Destroy);
}

// Lists of numbers in each of the kinds: the number is the pointer, or the first 32 bits of an owned item or
// of a record.

LONG NumberOf(DWORD options, const void* item) {
  if (!(options & (kOwned | kArray))) return static_cast<LONG>(reinterpret_cast<intptr_t>(item));
  LONG number;
  std::memcpy(&number, item, sizeof number);
  return number;
}

LONG CompareNumbers(ULONGLONG options, const void* first, const void* second) {
  const auto kind = static_cast<DWORD>(options);
  return NumberOf(kind, first) - NumberOf(kind, second);
}

Numbers NumbersOf(const ListPtr& list) {
  Numbers numbers;
  for (LONG i = 0; i < list->count; i++) {
    const void* item = static_cast<const BYTE*>(list->items) + static_cast<size_t>(i) * list->itemSize;
    if (!(list->options & kArray)) std::memcpy(&item, item, sizeof item);
    numbers.push_back(NumberOf(list->options, item));
  }
  return numbers;
}

void Insert(const ListPtr& list, LONG index, const Numbers& numbers) {
  for (LONG at = index; LONG number : numbers) {
    const intptr_t slot[64] = {number};
    if (!(list->options & kOwned)) {
      EXPECT_EQ(QnList_InsertList(list.get(), at, slot, 1), S_OK);
    } else {
      EXPECT_EQ(QnList_AllocAndInsertItem(list.get(), slot, sizeof number, at, nullptr), S_OK);
    }
    if (at >= 0) at++;
  }
}

TEST(List, CreationRoundsAndRefuses) {
  const LONG cases[][4] = {{1, 1, 4, 4},   {16, 16, 16, 16},   {-1, -1, 16, 16}, {5, 4, 8, 4},
                           {-1, 5, 20, 5}, {3, 100, 100, 100}, {6, 3, 8, 4},     {1, 100000, 66560, 66560}};
  for (const auto& [initialCount, growBy, allocated, usedGrowBy] : cases) {
    const ListPtr list = MakeList(kArray, 10, initialCount, growBy);
    EXPECT_EQ(list->allocated, allocated);
    EXPECT_EQ(list->growBy, usedGrowBy);
    EXPECT_EQ(list->itemSize, 12u);
    EXPECT_EQ(QnList_AllocSize(list.get(), -1), 12 * allocated + 136);
  }
  tQNLIST header;
  std::memset(&header, 0xCC, sizeof header);
  tQNLIST* list = &header;
  EXPECT_EQ(QnList_CreateExZ(&list, 8, 1, 1, kOwned | kArray | QNLIST_OPT_IN_PLACE, 0, 0, 0), E_FAIL);
  EXPECT_EQ(header.signature | header.debugRecord, 0u);
  EXPECT_EQ(QnList_CreateExZ(&list, 8, 1, 1, kOwned | kArray, 0, 0, 0), E_FAIL);
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(QnList_CreateExZ(&list, 8, 1, 1, QNLIST_OPT_IN_PLACE, 0, 0, 0), E_FAIL);
  EXPECT_EQ(QnList_CreateExZ(&list, 1ull << 62, 4, 4, kArray, 0, 0, 0), E_OUTOFMEMORY);
  EXPECT_EQ(QnList_CreateExZ(&list, 8, INT32_MAX, 4, 0, 0, 0, 0), E_OUTOFMEMORY);
  EXPECT_EQ(QnList_Destroy(nullptr), S_OK);
}

TEST(List, MovesItsHeaderInPlace) {
  ListPtr made = MakeList(kOwnedInHeap | QNLIST_OPT_LOCKED);
  EXPECT_EQ(std::memcmp(&made->signature, "HLST", 4), 0);
  EXPECT_EQ(QnList_GetCreateOptions(made.get()), 0xD0000002);
  EXPECT_EQ(made->heapAllocFlags * 16 + made->heapFreeFlags, 0x91u);
  EXPECT_TRUE(QnList_IsList(made.get(), sizeof(tQNLIST)));
  EXPECT_FALSE(QnList_IsList(made.get(), sizeof(tQNLIST) - 8));
  EXPECT_FALSE(QnList_IsList(reinterpret_cast<void*>(0x1000), sizeof(tQNLIST)));
  EXPECT_EQ(QnList_SetUserData(made.get(), ~0ull), 0u);
  Insert(made, -1, {1, 2, 3});

  tQNLIST header, other;
  tQNLIST* list = made.release();
  EXPECT_EQ(QnList_ConvertToInPlace(&list, nullptr), E_INVALIDARG);
  EXPECT_EQ(QnList_ConvertToInPlace(&list, &header), S_OK);
  EXPECT_EQ(QnList_ConvertToInPlace(&list, &other), E_INVALIDARG);
  list = &header;
  EXPECT_EQ(QnList_ConvertToInPlace(&list, &other), E_FAIL);
  EXPECT_EQ(QnList_GetUserData(&header), ~0ull);
  EXPECT_EQ(QnList_DeleteList(&header, 1, 1, 0), S_OK);
  EXPECT_EQ(header.count, 2);
  EXPECT_EQ(QnList_Destroy(&header), S_OK);
  EXPECT_EQ(header.signature, 0u);
  EXPECT_EQ(QnList_Destroy(&header), E_INVALIDARG);
  EXPECT_EQ(QnList_DeleteList(&header, 0, 1, 0), E_INVALIDARG);
  EXPECT_EQ(QnList_AllocSize(nullptr, 0), -1);
}

class ListKinds : public testing::TestWithParam<DWORD> {};

INSTANTIATE_TEST_SUITE_P(All, ListKinds,
                         testing::Values(0u, kArray, kOwned, kOwnedInHeap, kOwned | QNLIST_OPT_LOCKED));

TEST_P(ListKinds, BehavesAsASequence) {
  const ListPtr list = MakeList(GetParam(), 10);
  Numbers model;
  LONG next = 1;
  const auto between = [](LONG low, LONG high) {
    return std::uniform_int_distribution<LONG>(low, high)(qntest::Random());
  };
  for (int step = 0; step < 3000; step++) {
    const LONG size = list->count;
    const LONG index = between(-2, size + 2), count = between(-1, 7);
    const bool inside = index >= 0 && index < size;
    const int operation = between(0, 4);
    if (operation < 2) {
      Numbers numbers(static_cast<size_t>(count + 1));
      std::iota(numbers.begin(), numbers.end(), next);
      next += count + 1;
      Insert(list, index, numbers);
      model.insert(inside ? model.begin() + index : model.end(), numbers.begin(), numbers.end());
    } else if (operation < 4) {
      const bool nothing = count == 0 || (count < 0 && index >= size);
      if (index < 0 && count < 0) continue;
      const LONG shrink = between(0, 1);
      ASSERT_EQ(QnList_DeleteList(list.get(), index, count, shrink), nothing || inside ? S_OK : E_FAIL);
      if (nothing || !inside) continue;
      const LONG end = count < 0 ? size : std::min(size, index + count);
      model.erase(model.begin() + index, model.begin() + end);
      const auto* vacated = static_cast<const BYTE*>(list->items) + model.size() * list->itemSize;
      const LONG vacatedSlots = std::min(end - index, list->allocated - list->count);
      EXPECT_EQ(std::count(vacated, vacated + vacatedSlots * list->itemSize, 0),
                static_cast<ptrdiff_t>(vacatedSlots * list->itemSize));
      if (shrink) {
        EXPECT_LT(list->allocated - list->count, 2 * list->growBy);
      }
    } else {
      const LONG from = std::max(index, 0), to = between(0, size);
      const LONG moved = count < 0 ? size - std::max(from, to) : count;
      const bool valid = std::max(from, to) + moved <= size;
      ASSERT_EQ(QnList_MoveRange(list.get(), from, to, count), valid ? S_OK : E_FAIL);
      if (!valid || moved < 1) continue;
      const auto begin = model.begin();
      if (from < to) std::rotate(begin + from, begin + from + moved, begin + to + moved);
      if (from > to) std::rotate(begin + to, begin + from, begin + from + moved);
    }
    ASSERT_EQ(NumbersOf(list), model);
    ASSERT_EQ(list->allocated % 4, 0);
  }
}

TEST(List, GrowsAndShrinksByItsGranularity) {
  const LONG cases[][5] = {// initial slots, items, argument, slots after growing, after shrinking
                           {8, 0, 0, 12, 8},  {8, 0, -5, 12, 0},  {8, 3, -1, 12, 4},  {8, 3, 5, 16, 4},
                           {12, 5, 1, 16, 8}, {12, 5, 4, 16, 8},  {8, 8, 3, 12, 8},   {8, 6, 1, 12, 8},
                           {16, 4, 9, 28, 4}, {16, 4, 13, 32, 4}, {16, 4, 17, 36, -1}};
  for (const auto& [slots, count, argument, grown, shrunk] : cases) {
    SCOPED_TRACE(std::to_string(slots) + " " + std::to_string(count) + " " + std::to_string(argument));
    const ListPtr toGrow = MakeList(kArray, 4, slots), toShrink = MakeList(kArray, 4, slots);
    EXPECT_EQ(QnList_GrowAllocated(toGrow.get(), argument), S_OK);
    EXPECT_EQ(toGrow->allocated, grown);
    EXPECT_EQ(QnList_ArrayForceItemCount(toShrink.get(), count, 0), S_OK);
    EXPECT_EQ(QnList_ShrinkAllocated(toShrink.get(), argument), shrunk < 0 ? E_FAIL : S_OK);
    EXPECT_EQ(toShrink->allocated, shrunk < 0 ? slots : shrunk);
    EXPECT_EQ(QnList_AllocSize(toShrink.get(), -1), 4 * std::max(toShrink->allocated, 1) + 136);
    Insert(toShrink, -1, {7});  // also into a list without slots
    EXPECT_EQ(NumbersOf(toShrink).back(), 7);
  }
}

TEST(List, ForcesTheCountOfArraysOnly) {
  const ListPtr list = MakeList(kArray, 4);
  Insert(list, -1, {1, 2, 3});
  EXPECT_EQ(QnList_ArrayForceItemCount(list.get(), 9, 0), S_OK);
  EXPECT_EQ(NumbersOf(list), (Numbers{1, 2, 3, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(QnList_ArrayForceItemCount(list.get(), 2, 1), S_OK);
  EXPECT_EQ(list->allocated, 12);
  EXPECT_EQ(QnList_ArrayForceItemCount(list.get(), 3, 0), S_OK);
  EXPECT_EQ(NumbersOf(list), (Numbers{1, 2, 3}));  // what the shorter count left
  EXPECT_EQ(QnList_ArrayForceItemCount(list.get(), -1, 0), E_FAIL);
  EXPECT_EQ(QnList_GrowAllocated(list.get(), INT32_MAX), E_OUTOFMEMORY);
  EXPECT_EQ(QnList_ArrayForceItemCount(MakeList(0).get(), 1, 0), E_FAIL);
  // The list's own records as source, while its tail moves and while it grows.
  for (int i = 0; i < 3; i++) {
    const LONG* const second = static_cast<LONG*>(list->items) + 1;
    EXPECT_EQ(QnList_InsertList(list.get(), 0, second, list->count - 1), S_OK);
  }
  EXPECT_EQ(NumbersOf(list), (Numbers{1, 2, 3, 2, 3, 1, 2, 3, 3, 1, 2, 3, 2, 3, 1, 2, 3}));
  EXPECT_EQ(QnList_InsertList(list.get(), 0, list->items, INT32_MAX), E_FAIL);
}

TEST(List, RefusesRanges) {
  const ListPtr list = MakeList(0), big = MakeList(kArray, 500);
  Insert(list, -1, {1, 2, 3});
  EXPECT_EQ(QnList_MoveRange(list.get(), -1, 0, 1), E_INVALIDARG);
  EXPECT_EQ(QnList_MoveRange(list.get(), 4, 4, 0), E_FAIL);
  EXPECT_EQ(QnList_MoveRange(list.get(), 1, 2, INT32_MAX), E_FAIL);
  EXPECT_EQ(QnList_MoveRange(list.get(), 2, -7, 1), S_OK);
  EXPECT_EQ(NumbersOf(list), (Numbers{3, 1, 2}));
  EXPECT_EQ(QnList_DeleteList(list.get(), -1, -1, 0), E_FAIL);
  EXPECT_EQ(QnList_InsertList(list.get(), 0, nullptr, -1), E_FAIL);
  EXPECT_EQ(QnList_IsValidIndexSlow(list.get(), 3) | QnList_IsValidIndexSlow(list.get(), -1), 0);
  EXPECT_TRUE(QnList_IsValidIndexSlow(list.get(), 2));
  Insert(big, -1, {1, 2, 3, 4, 5});
  EXPECT_EQ(QnList_MoveRange(big.get(), 0, 3, 2), S_OK);  // a block too large for the stack
  EXPECT_EQ(NumbersOf(big), (Numbers{3, 4, 5, 1, 2}));
}

TEST(List, KeepsOnePendingItem) {
  for (DWORD options : {kOwned, kOwnedInHeap}) {
    const ListPtr list = MakeList(options);
    void *item, *second = &item;
    LONG index = 9;
    ASSERT_EQ(QnList_AllocItem(list.get(), 40, &item), S_OK);
    EXPECT_EQ(QnList_AllocItem(list.get(), 40, &second), E_FAIL);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(QnList_AllocAndInsertItem(list.get(), nullptr, 4, 0, &index), E_FAIL);
    EXPECT_EQ(index, -1);
    EXPECT_EQ(QnList_InsertList(list.get(), 0, &item, 1), E_FAIL);
    EXPECT_EQ(QnList_InsertList(list.get(), 7, nullptr, -1), S_OK);
    EXPECT_EQ(*static_cast<void**>(list->items), item);
    EXPECT_EQ(QnList_AllocItem(list.get(), 1 << 20, &item), S_OK);
    EXPECT_EQ(QnList_DeleteList(list.get(), -1, -1, 0), S_OK);
    EXPECT_EQ(list->pendingItem, nullptr);
    EXPECT_EQ(QnList_AllocItem(list.get(), SIZE_MAX - 4, &item), E_OUTOFMEMORY);
  }
}

TEST(List, KnowsTheSizesAskedFor) {
  for (DWORD options : {kOwned, kOwnedInHeap}) {
    const ListPtr list = MakeList(options);
    const auto first = [&list] { return *static_cast<BYTE**>(list->items); };
    LONGLONG sum = 136;
    for (SIZE_T size : {0, 1, 8, 9, 24, 25, 1000, 300000}) {
      ASSERT_EQ(QnList_AllocAndInsertItem(list.get(), nullptr, size, 0, nullptr), S_OK);
      EXPECT_EQ(reinterpret_cast<uintptr_t>(first()) % 16, 0u);
      EXPECT_EQ(std::count(first(), first() + size, 0), static_cast<ptrdiff_t>(size));
      EXPECT_EQ(QnList_AllocSize(list.get(), 0), static_cast<LONGLONG>(size));
      sum += static_cast<LONGLONG>(size);
    }
    EXPECT_EQ(QnList_AllocSize(list.get(), -1), sum + 8 * list->allocated);
    std::memset(first(), 0x5A, 90);
    for (SIZE_T size : {90, 100, 10000, 20, 0}) {
      ASSERT_EQ(QnList_ReAllocItem(list.get(), 0, size), S_OK);
      EXPECT_EQ(QnList_AllocSize(list.get(), 0), static_cast<LONGLONG>(size));
      const auto kept = std::min<ptrdiff_t>(static_cast<ptrdiff_t>(size), 90);
      EXPECT_EQ(std::count(first(), first() + kept, 0x5A), kept);
    }
    EXPECT_EQ(QnList_ReAllocItem(list.get(), 0, SIZE_MAX - 8), E_OUTOFMEMORY);
    EXPECT_EQ(QnList_ReAllocItem(list.get(), list->count, 4), E_FAIL);
    EXPECT_EQ(QnList_AllocSize(list.get(), list->count), -1);
  }
  // Blocks of the host's own.
  const ListPtr list = MakeList(kOwned), pointers = MakeList(0);
  void* blocks[] = {std::malloc(5), std::malloc(64)};
  EXPECT_EQ(QnList_InsertList(list.get(), 0, blocks, -2), S_OK);
  EXPECT_GE(QnList_AllocSize(list.get(), 0), 5);
  EXPECT_EQ(QnList_ReAllocItem(list.get(), 0, 50), S_OK);
  EXPECT_EQ(QnList_AllocSize(list.get(), 0), 50);
  Insert(pointers, 0, {1});
  EXPECT_EQ(QnList_AllocSize(pointers.get(), 0), -1);
  EXPECT_EQ(QnList_AllocSize(pointers.get(), -1), 4 * 8 + 136);
  EXPECT_EQ(QnList_ReAllocItem(pointers.get(), 0, 8), E_FAIL);
}

TEST(List, MovesItemsBetweenOwnedLists) {
  const ListPtr to = MakeList(kOwned), from = MakeList(kOwned | QNLIST_OPT_LOCKED);
  const ListPtr inHeap = MakeList(kOwnedInHeap);
  const auto move = [](const ListPtr& target, LONG targetIndex, const ListPtr& source, LONG index,
                       LONG count) {
    return QnList_MoveItemsBetweenHeapLists(target.get(), targetIndex, source.get(), index, count);
  };
  Insert(to, -1, {1, 2, 3});
  Insert(from, -1, {10, 11, 12, 13, 14});
  EXPECT_EQ(move(to, 1, from, 2, 2), S_OK);
  EXPECT_EQ(move(to, 99, from, 0, 2), S_OK);
  EXPECT_EQ(move(to, 0, from, 1, -1), E_FAIL);
  EXPECT_EQ(move(to, 0, from, -1, 1), E_FAIL);
  EXPECT_EQ(move(to, 0, from, 9, 0), S_OK);
  EXPECT_EQ(move(to, 0, to, 0, 1), E_FAIL);
  EXPECT_EQ(move(MakeList(0), 0, to, 0, 1), E_FAIL);
  EXPECT_EQ(NumbersOf(to), (Numbers{1, 12, 13, 2, 3, 10, 11}));
  EXPECT_EQ(NumbersOf(from), Numbers{14});
  EXPECT_EQ(from->options, 0xC0000002);
  EXPECT_EQ(move(inHeap, -1, to, 1, 4), S_OK);
  EXPECT_EQ(move(from, 0, inHeap, 1, 2), S_OK);
  EXPECT_EQ(NumbersOf(inHeap), (Numbers{12, 3}));
  EXPECT_EQ(NumbersOf(from), (Numbers{13, 2, 14}));
  void* pending;
  EXPECT_EQ(QnList_AllocItem(inHeap.get(), 4, &pending), S_OK);
  EXPECT_EQ(move(inHeap, 0, from, 0, 1), E_FAIL);
}

TEST(List, FindsItemsLinearly) {
  const ListPtr pointers = MakeList(0), array = MakeList(kArray);
  for (const ListPtr* list : {&pointers, &array}) Insert(*list, 0, {5, 6, 7, 5, 6, 7});
  LONG record[3] = {6};
  const auto matches = [](void* parameter, const void* item) -> LONG {
    return NumberOf(kArray, item) != *static_cast<LONG*>(parameter);
  };
  const LONG cases[][3] = {{0, -1, 1},  {-3, -1, 1}, {2, -1, 4}, {2, 2, -1}, {2, 3, 4},
                           {5, 99, -1}, {6, -1, -1}, {1, 0, -1}, {99, 1, -1}};
  for (const auto& [start, count, found] : cases) {
    const auto six = reinterpret_cast<void*>(intptr_t{6});
    EXPECT_EQ(QnList_FindSpecificItemRange(pointers.get(), start, count, six), found);
    EXPECT_EQ(QnList_FindSpecificItemRange(array.get(), start, count, record), found);
    EXPECT_EQ(QnList_FindItemRange(array.get(), start, count, record, matches), found);
  }
}

TEST(List, FindsKeysInSortedRanges) {
  const ListPtr list = MakeList(kArray, 4);
  QnList_Sort(list.get(), kArray, nullptr);
  for (LONG size = 0; size < 40; size++) {
    for (LONG key = -1; key <= 2 * size; key++) {  // the items are 0, 2, 4, ...
      const auto expect = [&](LONG low, LONG high) {
        const LONG place = std::clamp((key + 1) / 2, low, high);
        const bool hit = key % 2 == 0 && key / 2 >= low && key / 2 < high;
        const LONG insert = low < high ? place : 0;
        ASSERT_EQ(QnList_FindSortedItemRange(list.get(), &key, low, high - low, CompareNumbers),
                  hit ? place : -1);
        ASSERT_EQ(QnList_FindSortedInsertIndexRange(list.get(), &key, low, high - low, CompareNumbers),
                  insert);
      };
      expect(0, size);
      expect(size / 3, size - size / 4);
    }
    Insert(list, -1, {2 * size});
  }
}

TEST(List, BisectionMeetsAFixedItemOfEqualOnes) {
  const LONG met[] = {-1, 0, 0, 1, 1, 2, 2, 3, 3, 4, 4};
  const ListPtr list = MakeList(kArray, 4);
  QnList_Sort(list.get(), kArray, nullptr);
  for (LONG size = 0, key = 7; size <= 10; size++) {
    EXPECT_EQ(QnList_FindSortedItemRange(list.get(), &key, 0, -1, CompareNumbers), met[size]);
    EXPECT_EQ(QnList_FindSortedInsertIndexRange(list.get(), &key, 0, -1, CompareNumbers),
              std::max(met[size], 0));
    EXPECT_EQ(QnList_FindSortedInsertIndexRange(list.get(), &key, size, 5, CompareNumbers), 0);
    EXPECT_EQ(QnList_FindSortedInsertIndexRange(list.get(), &key, size + 1, 0, CompareNumbers), -1);
    Insert(list, -1, {key});
  }
}

using SortFunction = HRESULT (*)(tQNLIST*, ULONGLONG, QNLISTCOMPARE);

TEST_P(ListKinds, SortsAscending) {
  for (SortFunction sort : {QnList_Sort, QnList_HeapSort}) {
    for (size_t size = 0; size < 70; size++) {
      Numbers numbers(size);
      for (LONG& number : numbers) number = static_cast<LONG>(qntest::Random()() % (size + 1));
      const ListPtr list = MakeList(GetParam());
      Insert(list, 0, numbers);
      EXPECT_EQ(sort(list.get(), 99, nullptr), S_OK);
      EXPECT_EQ(QnList_GetSortCriteria(list.get()), 99u);
      ASSERT_EQ(NumbersOf(list), numbers);
      EXPECT_EQ(sort(list.get(), GetParam(), CompareNumbers), S_OK);
      std::sort(numbers.begin(), numbers.end());
      ASSERT_EQ(NumbersOf(list), numbers);
    }
  }
}

// The comparisons that a sort makes of these letters, upper and lower case being equal, and what comes out.
std::string TraceSort(SortFunction sort, const char* letters) {
  std::string trace;
  const ListPtr list = MakeList(kArray, 4);
  for (; *letters; letters++) Insert(list, -1, {*letters});
  sort(list.get(), reinterpret_cast<uintptr_t>(&trace), [](ULONGLONG criteria, const void* a, const void* b) {
    const LONG first = NumberOf(kArray, a), second = NumberOf(kArray, b);
    *reinterpret_cast<std::string*>(criteria) += {static_cast<char>(first), static_cast<char>(second), ' '};
    return (first | 0x20) - (second | 0x20);
  });
  for (LONG letter : NumbersOf(list)) trace += static_cast<char>(letter);
  return trace;
}

TEST(List, SortsCompareInAFixedOrder) {
  EXPECT_EQ(TraceSort(QnList_Sort, "aA"), "Aa Aa");
  EXPECT_EQ(TraceSort(QnList_Sort, "cab"), "ac bc ab abc");
  EXPECT_EQ(TraceSort(QnList_HeapSort, "bac"), "ca cb ab abc");
  // Three comparisons build the heap; the descent after them stops above the last position.
  EXPECT_EQ(TraceSort(QnList_HeapSort, "abcdef"), "fc ed eb fe fa ae ec bd dc ad db ab bc ba abcdef");
}

TEST(List, SortToMergesIntoASortedList) {
  const ListPtr source = MakeList(kOwned | QNLIST_OPT_LOCKED), sorted = MakeList(0), owned = MakeList(kOwned);
  const ListPtr records = MakeList(kArray), sortedRecords = MakeList(kArray);
  Insert(source, 0, {5, 1, 4, 1, 3});
  EXPECT_EQ(QnList_SortTo(sorted.get(), source.get(), 9, nullptr), S_OK);
  EXPECT_EQ(QnList_GetSortCriteria(sorted.get()), 9u);
  EXPECT_EQ(sorted->count, 0);
  EXPECT_EQ(QnList_SortTo(sorted.get(), source.get(), kOwned, CompareNumbers), S_OK);
  QnList_Sort(source.get(), kOwned, CompareNumbers);
  for (LONG i = 0; i < 5; i++) {
    const void* const* const items = static_cast<void**>(sorted->items);
    EXPECT_EQ(NumberOf(kOwned, items[i]), NumbersOf(source)[static_cast<size_t>(i)]);
  }
  EXPECT_EQ(QnList_SortTo(owned.get(), source.get(), kOwned, CompareNumbers), S_OK);
  EXPECT_EQ(owned->count, 0);
  Insert(records, 0, {5, 1, 4, 2, 3, 0});
  EXPECT_EQ(QnList_SortTo(sortedRecords.get(), records.get(), kArray, CompareNumbers), S_OK);
  EXPECT_EQ(NumbersOf(sortedRecords), (Numbers{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(QnList_SortTo(records.get(), records.get(), kArray, CompareNumbers), E_FAIL);
  EXPECT_EQ(QnList_SortTo(records.get(), sorted.get(), kArray, CompareNumbers), E_FAIL);  // larger slots
}

TEST(List, OtherThreadsFailWithoutTheAnyThreadOption) {
  const ListPtr list = MakeList(kOwned);
  tQNLIST* const l = list.get();
  Insert(list, 0, {1, 2, 3});
  l->options &= ~QNLIST_OPT_ANY_THREAD;
  std::thread([l] {
    void* item = l;
    EXPECT_EQ(QnList_DeleteList(l, 0, 0, 0), E_FAIL);
    EXPECT_EQ(QnList_AllocItem(l, 4, &item), E_FAIL);
    EXPECT_EQ(QnList_AllocSize(l, -1), -1);
    EXPECT_EQ(QnList_FindSpecificItemRange(l, 0, -1, *static_cast<void**>(l->items)), -1);
    EXPECT_EQ(QnList_SetUserData(l, 1), 0xFFFFFFFF);
    EXPECT_EQ(QnList_GetUserData(l), 0xFFFFFFFF);
    EXPECT_EQ(QnList_IsValidIndexSlow(l, 0), 0);
    EXPECT_EQ(QnList_SetThreadOwner(l, 0), 0);
    EXPECT_EQ(QnList_DeleteList(l, 0, 1, 0), S_OK);
  }).join();
  EXPECT_EQ(QnList_DeleteList(l, 0, 1, 0), E_FAIL);
  EXPECT_NE(QnList_GetThreadOwner(l), GetCurrentThreadId());
  l->options |= QNLIST_OPT_ANY_THREAD;
  EXPECT_EQ(NumbersOf(list), (Numbers{2, 3}));
}

TEST(List, LockedListServesSeveralThreads) {
  const ListPtr list = MakeList(kOwned | QNLIST_OPT_LOCKED), spare = MakeList(kOwned | QNLIST_OPT_LOCKED);
  constexpr LONG kPerThread = 300;
  std::atomic<int> nested = 0;
  std::vector<std::thread> threads;
  for (LONG t = 0; t < 4; t++) {
    threads.emplace_back([&, t] {
      const auto work = [&](LONG number) {
        const auto nests = [](void* inner, const void*) -> LONG {
          return QnList_IsValidIndexSlow(static_cast<tQNLIST*>(inner), 0) == 0;  // the lock is recursive
        };
        Insert(list, 0, {number});
        nested += QnList_FindItemRange(list.get(), 0, 1, list.get(), nests) == 0;
        if (number % 50 == 49) QnList_HeapSort(list.get(), kOwned, CompareNumbers);
        if (number % 4 == 0) QnList_MoveItemsBetweenHeapLists(spare.get(), -1, list.get(), 0, 1);
        QnList_SetUserData(list.get(), static_cast<ULONGLONG>(number));
        QnList_ReAllocItem(list.get(), 0, 64);
      };
      for (LONG i = 0; i < kPerThread; i++) work(t * kPerThread + i);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(nested, 4 * kPerThread);
  EXPECT_EQ(spare->count, kPerThread);
  QnList_MoveItemsBetweenHeapLists(list.get(), 0, spare.get(), 0, -1);
  QnList_HeapSort(list.get(), kOwned, CompareNumbers);
  Numbers all(4 * kPerThread);
  std::iota(all.begin(), all.end(), 0);
  EXPECT_EQ(NumbersOf(list), all);
}

TEST(List, SurvivesCallbacksThatEmptyIt) {
  static tQNLIST* target;
  const QNLISTCOMPARE empties = [](ULONGLONG, const void*, const void*) -> LONG {
    QnList_DeleteList(target, 0, -1, 1);
    return 1;
  };
  for (int search = 0; search < 3; search++) {
    const ListPtr list = MakeList(kArray, 4);
    Insert(list, 0, {1, 2, 3, 4, 5, 6, 7, 8, 9});
    target = list.get();
    if (search == 0) QnList_Sort(target, 0, empties);
    if (search == 1) QnList_HeapSort(target, 0, empties);
    if (search == 2) QnList_FindSortedItemRange(target, target, 0, -1, empties);
    EXPECT_EQ(list->count, 0);
  }
}

TEST(SlotHash, PicksPrimesOfItsTable) {
  const int cases[][4] = {{0, 100, 0, 313},     {0, 0, 7, 7},           {0, 81, 0, 163},
                          {40, 42, 0, 313},     {0, 1, 163, 163},       {0, 41, 163, 313},
                          {1000, 1, 7, 163},    {500, 1, 613, 1213},    {0, 157176081, 0, 314352163},
                          {0, 157176082, 0, 0}, {5, 5, 314352163, 163}, {INT32_MAX, INT32_MAX, 314352163, 0}};
  for (const auto& [current, add, table, expected] : cases) {
    EXPECT_EQ(QnSlotHash_GetAdjustedTableSize(current, add, table), expected) << current << " + " << add;
  }
}

}  // namespace
