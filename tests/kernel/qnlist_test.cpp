#include "qn/kernel/qnlist.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <thread>
#include <vector>

#include "tests/support/support.h"

namespace {

using Numbers = std::vector<LONG>;

constexpr DWORD kArray = QNLIST_OPT_ARRAY, kOwned = QNLIST_OPT_OWNED_ITEMS;
constexpr DWORD kInHeap = kOwned | QNLIST_OPT_PRIVATE_HEAP, kLocked = kOwned | QNLIST_OPT_LOCKED;

struct List : std::unique_ptr<tQNLIST, decltype(&QnList_Destroy)> {
  explicit List(DWORD options, ULONGLONG itemSize = 4, LONG initialCount = 4, LONG growBy = 4)
      : unique_ptr(nullptr, QnList_Destroy) {
    tQNLIST* list = nullptr;
    QnList_CreateExZ(&list, itemSize, initialCount, growBy, options, 0, 0, 0);
    reset(list);
  }
  operator tQNLIST*() const { return get(); }
};

// Lists of numbers in each of the kinds: the number is the pointer, or the first 32 bits of an owned item or
// of a record.

LONG NumberOf(ULONGLONG options, const void* item) {
  return options & (kOwned | kArray) ? *static_cast<const LONG*>(item) : reinterpret_cast<intptr_t>(item);
}

LONG CompareNumbers(ULONGLONG options, const void* first, const void* second) {
  return NumberOf(options, first) - NumberOf(options, second);
}

BYTE* ItemOf(const tQNLIST* list, LONG index) {
  BYTE* const slot = static_cast<BYTE*>(list->items) + index * list->itemSize;
  return list->options & kArray ? slot : *reinterpret_cast<BYTE**>(slot);
}

// `kind` is of another list, whose items the list also holds.
Numbers NumbersOf(const tQNLIST* list, DWORD kind = 0) {
  Numbers numbers;
  for (LONG i = 0; i < list->count; i++) numbers.push_back(NumberOf(list->options | kind, ItemOf(list, i)));
  return numbers;
}

void Insert(tQNLIST* list, LONG index, const Numbers& numbers) {
  for (LONG number : numbers) {
    const intptr_t slot[50] = {number};
    list->options& kOwned ? QnList_AllocAndInsertItem(list, slot, 4, index, nullptr)
                          : QnList_InsertList(list, index, slot, 1);
    index += index >= 0;
  }
}

void ExpectAll(HRESULT expected, std::initializer_list<HRESULT> results) {
  EXPECT_EQ(std::vector(results), std::vector(results.size(), expected));
}

TEST(List, CreationRoundsAndRefuses) {
  const LONG cases[][3] = {{1, 1, 4}, {-1, -1, 16}, {5, 4, 8}, {6, 3, 8}, {1, 99999, 66560}};
  for (const auto& [initialCount, growBy, allocated] : cases) {
    EXPECT_EQ(QnList_AllocSize(List(kArray, 10, initialCount, growBy), -1), 12 * allocated + 136);
  }
  EXPECT_TRUE(!List(kOwned | kArray) && !List(kArray, 1ull << 62));
}

TEST(List, MovesItsHeaderInPlace) {
  List made(kInHeap | QNLIST_OPT_LOCKED);
  EXPECT_EQ(QnList_GetCreateOptions(made), 0xD0000002);
  EXPECT_FALSE(QnList_IsList(reinterpret_cast<void*>(0x1000), sizeof(tQNLIST)));
  Insert(made, -1, {1, 2, 3});
  tQNLIST header, other, *list = made.release(), *moved = &header;
  EXPECT_EQ(QnList_ConvertToInPlace(&list, &header), S_OK);
  EXPECT_EQ(QnList_ConvertToInPlace(&moved, &other), E_FAIL);
  EXPECT_EQ(NumbersOf(&header), (Numbers{1, 2, 3}));
  EXPECT_EQ(QnList_Destroy(&header), S_OK);
  EXPECT_EQ(QnList_Destroy(&header), E_INVALIDARG);
}

class ListKinds : public testing::TestWithParam<DWORD> {};

INSTANTIATE_TEST_SUITE_P(All, ListKinds, testing::Values(0u, kArray, kOwned, kInHeap, kLocked));

TEST_P(ListKinds, BehavesAsASequence) {
  const List list(GetParam(), 400);
  Numbers model;
  const auto below = [](LONG end) { return static_cast<LONG>(qntest::Random()() % end); };
  for (int step = 0; step < 3000; step++) {
    const LONG size = list->count, index = below(size + 5) - 2, count = below(9) - 1, operation = below(5);
    const bool inside = index >= 0 && index < size;
    if (operation < 2) {
      Numbers numbers(count + 1);
      std::iota(numbers.begin(), numbers.end(), 8 * step);
      Insert(list, index, numbers);
      model.insert(inside ? model.begin() + index : model.end(), numbers.begin(), numbers.end());
    } else if (operation < 4) {
      const bool nothing = count == 0 || (count < 0 && index >= size), shrink = below(2);
      ASSERT_EQ(QnList_DeleteList(list, index, count, shrink), nothing || inside ? S_OK : E_FAIL);
      if (nothing || !inside) continue;
      const LONG end = count < 0 ? size : std::min(size, index + count);
      model.erase(model.begin() + index, model.begin() + end);
      ASSERT_TRUE(!shrink || list->allocated - list->count < 8);
    } else {
      const LONG from = std::max(index, 0), to = below(size + 1), last = std::max(from, to);
      const LONG moved = count < 0 ? size - last : count;
      ASSERT_EQ(QnList_MoveRange(list, from, to, count), last + moved <= size ? S_OK : E_FAIL);
      if (last + moved > size || moved < 1) continue;
      const auto middle = model.begin() + (from < to ? from + moved : from);
      std::rotate(model.begin() + std::min(from, to), middle, model.begin() + last + moved);
    }
    ASSERT_EQ(NumbersOf(list), model);
    const ULONGLONG used = list->count * list->itemSize, unused = list->allocated * list->itemSize - used;
    const BYTE* const end = static_cast<BYTE*>(list->items) + used;
    ASSERT_EQ(std::count(end, end + unused, 0), static_cast<LONGLONG>(unused));
    if (model.empty()) continue;
    const LONG wanted = below(list->count), start = std::max(index, 0);
    const LONG found = wanted >= start && (count < 0 || wanted < start + count) ? wanted : -1;
    ASSERT_EQ(QnList_FindSpecificItemRange(list, index, count, ItemOf(list, wanted)), found);
  }
}

TEST(List, GrowsAndShrinksByItsGranularity) {
  // Items in 12 slots, the argument, slots left after shrinking, slots added by growing.
  const LONG cases[][4] = {{0, 0, 12, 4}, {0, -5, 0, 4}, {5, 4, 8, 4}, {4, 9, 4, 12}, {4, 13, 12, 16}};
  for (const auto& [count, argument, shrunk, added] : cases) {
    const List list(kArray, 4, 12);
    QnList_ArrayForceItemCount(list, count, 0);
    EXPECT_EQ(QnList_ShrinkAllocated(list, argument), argument == 13 ? E_FAIL : S_OK);
    EXPECT_EQ(list->allocated, shrunk) << count << ' ' << argument;
    QnList_GrowAllocated(list, argument);
    EXPECT_EQ(list->allocated, shrunk + added) << count << ' ' << argument;
  }
}

TEST(List, ForcesCountsAndRefuses) {
  const List list(kArray);
  Insert(list, -1, {1, 2, 3});
  for (LONG count : {9, 2}) QnList_ArrayForceItemCount(list, count, 1);
  EXPECT_EQ(list->allocated, 12);
  QnList_ArrayForceItemCount(list, 4, 0);  // shows what the shorter count left
  // The list's own records as source, while its tail moves and while it grows.
  for (int i = 0; i < 3; i++) QnList_InsertList(list, 0, ItemOf(list, 1), list->count - 2);
  EXPECT_EQ(NumbersOf(list), (Numbers{1, 2, 3, 2, 3, 1, 2, 3, 3, 1, 2, 3, 2, 3, 1, 2, 3, 0}));
  EXPECT_EQ(QnList_GrowAllocated(list, INT32_MAX), E_OUTOFMEMORY);
  ExpectAll(E_FAIL, {QnList_ArrayForceItemCount(list, -1, 0), QnList_MoveRange(list, 1, 2, INT32_MAX),
                     QnList_SortTo(list, list, kArray, CompareNumbers),
                     QnList_SortTo(List(0), list, kArray, CompareNumbers),
                     QnList_InsertList(list, 0, list->items, INT32_MAX)});
}

TEST(List, KnowsTheSizesOfItsItems) {
  for (DWORD options : {kOwned, kInHeap}) {
    const List list(options);
    for (LONG size : {0, 1, 24, 25, 300000}) {
      QnList_AllocAndInsertItem(list, nullptr, size, 0, nullptr);
      EXPECT_EQ(QnList_AllocSize(list, 0), size);
      EXPECT_EQ(std::count(ItemOf(list, 0), ItemOf(list, 0) + size, 0), size);
    }
    EXPECT_EQ(QnList_AllocSize(list, -1), 300050 + 136 + 8 * list->allocated);
    for (LONG size : {10000, 20, 0}) {
      QnList_ReAllocItem(list, 0, size);
      EXPECT_EQ(QnList_AllocSize(list, 0), size);
    }
    EXPECT_EQ(QnList_ReAllocItem(list, 0, SIZE_MAX - 8), E_OUTOFMEMORY);
    void *item, *second;
    QnList_AllocItem(list, 40, &item);  // one may be pending
    ExpectAll(E_FAIL, {QnList_AllocItem(list, 40, &second), QnList_InsertList(list, 0, &item, 1)});
    QnList_InsertList(list, 0, nullptr, -1);
    EXPECT_EQ(ItemOf(list, 0), item);
    QnList_AllocItem(list, 1 << 20, &item);
    EXPECT_EQ(QnList_DeleteList(list, -1, -1, 0), S_OK);
  }
}

TEST(List, MovesItemsBetweenOwnedLists) {
  const List to(kOwned), from(kLocked), inHeap(kInHeap);
  const auto move = QnList_MoveItemsBetweenHeapLists;
  void* blocks[] = {std::calloc(1, 5), std::calloc(1, 64)};  // a host's own
  QnList_InsertList(to, 0, blocks, -2);
  Insert(from, -1, {10, 11, 12, 13, 14});
  ExpectAll(S_OK, {move(to, 1, from, 2, 2), move(to, 99, from, 0, 2)});
  EXPECT_EQ(NumbersOf(to), (Numbers{0, 12, 13, 0, 10, 11}));
  ExpectAll(S_OK, {move(inHeap, -1, to, 1, 4), move(from, 0, inHeap, 1, 2)});
  EXPECT_EQ(NumbersOf(from), (Numbers{13, 0, 14}));
  ExpectAll(E_FAIL, {move(to, 0, from, 1, -1), move(to, 0, to, 0, 1), move(List(0), 0, to, 0, 1)});
}

TEST(List, FindsKeysInSortedRanges) {
  const LONG met[] = {-1, 0, 0, 1, 1, 2, 2, 3, 3, 4, 4};  // of so many equal items
  const auto find = QnList_FindSortedItemRange, findInsert = QnList_FindSortedInsertIndexRange;
  const List list(kArray), equal(0);
  QnList_Sort(list, kArray, nullptr);
  for (LONG size = 0; size <= 10; size++) {
    EXPECT_EQ(find(equal, nullptr, 0, -1, CompareNumbers), met[size]);
    EXPECT_EQ(findInsert(equal, nullptr, size, 5, CompareNumbers), 0);
    EXPECT_EQ(findInsert(equal, nullptr, size + 1, 0, CompareNumbers), -1);
    const LONG low = size / 3, high = size - size / 4;
    for (LONG key = -1; key <= 2 * size; key++) {  // the items are 0, 2, 4, ...
      const LONG insert = std::clamp((key + 1) / 2, low, high);
      const bool hit = insert < high && key == 2 * insert;
      EXPECT_EQ(find(list, &key, low, high - low, CompareNumbers), hit ? insert : -1);
      EXPECT_EQ(findInsert(list, &key, low, high - low, CompareNumbers), insert);
    }
    Insert(equal, -1, {0});
    Insert(list, -1, {2 * size});
  }
}

TEST_P(ListKinds, SortsAscending) {
  for (size_t size = 0; size < 140; size++) {
    Numbers numbers(size / 2);
    for (LONG& number : numbers) number = qntest::Random()() % (size + 1);
    const List list(GetParam()), sorted(GetParam() & kArray);
    Insert(list, 0, numbers);
    QnList_SortTo(sorted, list, GetParam(), CompareNumbers);
    (size % 2 ? QnList_Sort : QnList_HeapSort)(list, GetParam(), CompareNumbers);
    std::sort(numbers.begin(), numbers.end());
    ASSERT_EQ(NumbersOf(list), numbers);
    ASSERT_EQ(NumbersOf(sorted, GetParam()), numbers);
  }
}

TEST(List, SortsCompareInAFixedOrder) {
  // The comparisons that a sort makes of letters, upper and lower case being equal, and what comes out.
  const std::tuple<decltype(&QnList_Sort), std::string, std::string> cases[] = {
      {QnList_Sort, "cAa", "Ac ac Aa Aac"},
      // Three comparisons build the heap; the descent after them stops above the last position.
      {QnList_HeapSort, "abcdef", "fc ed eb fe fa ae ec bd dc ad db ab bc ba abcdef"}};
  for (const auto& [sort, letters, expected] : cases) {
    std::string trace;
    const List list(kArray);
    Insert(list, 0, Numbers(letters.begin(), letters.end()));
    sort(list, reinterpret_cast<uintptr_t>(&trace), [](ULONGLONG criteria, const void* a, const void* b) {
      const auto *first = static_cast<const char*>(a), *second = static_cast<const char*>(b);
      *reinterpret_cast<std::string*>(criteria) += {*first, *second, ' '};
      return (*first | 0x20) - (*second | 0x20);
    });
    for (LONG letter : NumbersOf(list)) trace += static_cast<char>(letter);
    EXPECT_EQ(trace, expected);
    static const List gone(kArray);  // emptied by what the sort calls
    QnList_ArrayForceItemCount(gone, 9, 0);
    sort(gone, 0, [](ULONGLONG, const void*, const void*) { return 1 + QnList_DeleteList(gone, 0, -1, 1); });
    EXPECT_EQ(gone->count, 0);
  }
}

TEST(List, OtherThreadsFailWithoutTheAnyThreadOption) {
  const List list(kOwned);
  Insert(list, 0, {1, 2, 3});
  list->options &= ~QNLIST_OPT_ANY_THREAD;
  std::thread([&list] {
    EXPECT_EQ(QnList_DeleteList(list, 0, 0, 0), E_FAIL);
    EXPECT_EQ(QnList_SetUserData(list, 1), 0xFFFFFFFF);
    ExpectAll(S_OK, {QnList_SetThreadOwner(list, 0), QnList_DeleteList(list, 0, 1, 0)});
  }).join();
  EXPECT_EQ(QnList_DeleteList(list, 0, 1, 0), E_FAIL);
  QnList_SetThreadOwner(list, 0);
}

TEST(List, LockedListServesSeveralThreads) {
  static const List list(kLocked);
  list->options &= ~QNLIST_OPT_ANY_THREAD;  // is for lists without a lock
  const auto nests = [](void*, const void*) -> LONG { return !QnList_IsValidIndexSlow(list, 0); };
  const auto work = [nests](LONG first) {
    for (LONG number = first; number < 1200; number += 3) {
      Insert(list, 0, {number});
      EXPECT_EQ(QnList_FindItemRange(list, 0, 1, nullptr, nests), 0);  // the lock is recursive
      if (number % 64 == 0) QnList_HeapSort(list, kOwned, CompareNumbers);
      QnList_ReAllocItem(list, 0, 64);
    }
  };
  { const std::jthread first(work, 0), second(work, 1), third(work, 2); }
  QnList_HeapSort(list, kOwned, CompareNumbers);
  ASSERT_EQ(list->count, 1200);
  for (LONG i = 0; i < 1200; i++) EXPECT_EQ(NumberOf(kOwned, ItemOf(list, i)), i);
  QnList_DeleteList(list, 0, -1, 0);
}

TEST(SlotHash, PicksPrimesOfItsTable) {
  const int cases[][4] = {{40, 41, 0, 163}, {0, 41, 163, 313}, {1000, 1, 7, 163}, {INT32_MAX, 1, 0, 0}};
  for (const auto& [current, add, table, expected] : cases) {
    EXPECT_EQ(QnSlotHash_GetAdjustedTableSize(current, add, table), expected) << current << " + " << add;
  }
}

}  // namespace
