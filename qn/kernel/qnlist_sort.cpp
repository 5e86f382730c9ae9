// Searches and sorts of lists, and the sizes of slot hash tables.
//
// Callbacks run inside the list's lock and may call the list. Should one remove items meanwhile, indexes are
// tested again before each use, so nothing outside the list is touched.
#include <algorithm>
#include <iterator>

#include "qn/kernel/qnlist_internal.h"

namespace {

struct Range {
  LONG start;
  LONG count;  // below 1: empty
};

Range ClampRange(const tQNLIST* list, LONG start, LONG count) {
  start = std::max(start, 0);
  const LONG behind = list->count - start;
  return {start, count < 0 ? behind : std::min(count, behind)};
}

// The first index of a range that the predicate accepts, or -1.
template <typename Accepts>
LONG FindFirst(const tQNLIST* list, LONG start, LONG count, Accepts accepts) {
  const Range range = ClampRange(list, start, count);
  for (LONG i = range.start; i - range.start < range.count && i < list->count; i++) {
    if (accepts(i)) return i;
  }
  return -1;
}

struct Bisection {
  LONG hit;     // the index of an equal item, or -1
  LONG insert;  // without a hit, where the key belongs; 0 for an empty range, which hosts rely on
};

// Which of several equal items is hit is part of the contract, hence the fixed way of probing.
Bisection Bisect(const tQNLIST* list, const void* key, Range range, QNLISTCOMPARE compare) {
  LONG low = range.start;
  LONG left = range.count;
  LONG insert = 0;
  while (left > 0) {
    const LONG half = left / 2;
    const LONG step = left % 2 != 0 ? half : half - 1;
    const LONG probe = low + step;
    if (!qn::IsIndex(list, probe)) break;
    const LONG order = compare(list->sortCriteria, key, qn::ItemAt(list, probe));
    if (order == 0) return {probe, probe};
    if (order < 0) {
      insert = probe;
      left = step;
    } else {
      insert = low = probe + 1;
      left = half;
    }
  }
  return {-1, insert};
}

// Comparisons and swaps of a sort by index.
class Sorter {
 public:
  Sorter(tQNLIST* list, ULONGLONG criteria, QNLISTCOMPARE compare)
      : list_(list), criteria_(criteria), compare_(compare) {}

  bool IsAfter(LONG first, LONG second) const {
    return HasBoth(first, second) &&
           compare_(criteria_, qn::ItemAt(list_, first), qn::ItemAt(list_, second)) > 0;
  }

  void Swap(LONG first, LONG second) const {
    if (!HasBoth(first, second)) return;
    BYTE* const slot = qn::SlotAt(list_, first);
    std::swap_ranges(slot, slot + list_->itemSize, qn::SlotAt(list_, second));
  }

 private:
  bool HasBoth(LONG first, LONG second) const {
    return qn::IsIndex(list_, first) && qn::IsIndex(list_, second);
  }

  tQNLIST* list_;
  ULONGLONG criteria_;
  QNLISTCOMPARE compare_;
};

// Selection: of equal items the earliest goes to the end, so runs of equal items come out reversed.
void SelectionSort(const Sorter& sorter, LONG count) {
  for (LONG end = count - 1; end > 0; end--) {
    LONG best = 0;
    for (LONG i = 1; i <= end; i++) {
      if (sorter.IsAfter(i, best)) best = i;
    }
    if (best != end) sorter.Swap(best, end);
  }
}

// A heap on positions from 1 on.
class HeapSorter {
 public:
  HeapSorter(const Sorter& sorter, LONG count) : sorter_(sorter), count_(count) {}

  void Sort() const {
    for (LONG node = count_ / 2; node >= 2; node--) Sift(node, count_);
    for (LONG size = count_; size >= 2; size--) {
      Sift(1, size);
      Swap(1, size);
    }
  }

 private:
  bool IsAfter(int64_t first, int64_t second) const {
    return sorter_.IsAfter(static_cast<LONG>(first - 1), static_cast<LONG>(second - 1));
  }
  void Swap(int64_t first, int64_t second) const {
    sorter_.Swap(static_cast<LONG>(first - 1), static_cast<LONG>(second - 1));
  }

  int64_t LargerOf(int64_t child) const { return IsAfter(child + 1, child) ? child + 1 : child; }

  // The descent always reaches the bottom, and compares the last position in the first round only: hosts
  // rely on the order of comparisons that this gives.
  void Sift(int64_t node, int64_t size) const {
    int64_t child = 2 * node;
    if (child < size) child = LargerOf(child);
    while (true) {
      if (IsAfter(child, node)) Swap(child, node);
      node = child;
      child *= 2;
      if (child >= size) return;
      child = LargerOf(child);
    }
  }

  const Sorter& sorter_;
  LONG count_;
};

}  // namespace

using qn::ListGuard;

LONG QnList_FindSpecificItemRange(tQNLIST* list, LONG start, LONG count, const void* item) {
  const ListGuard guard(list);
  if (guard.Refused()) return -1;
  if (!qn::IsArray(list)) {
    return FindFirst(list, start, count, [=](LONG i) { return qn::PointerAt(list, i) == item; });
  }
  if (!item) return -1;
  return FindFirst(list, start, count, [=](LONG i) {
    return std::equal(qn::SlotAt(list, i), qn::SlotAt(list, i + 1), static_cast<const BYTE*>(item));
  });
}

LONG QnList_FindItemRange(tQNLIST* list, LONG start, LONG count, void* parameter, QNLISTMATCH match) {
  const ListGuard guard(list);
  if (guard.Refused() || !match) return -1;
  return FindFirst(list, start, count, [=](LONG i) { return match(parameter, qn::ItemAt(list, i)) == 0; });
}

LONG QnList_FindSortedItemRange(tQNLIST* list, const void* key, LONG start, LONG count,
                                QNLISTCOMPARE compare) {
  const ListGuard guard(list);
  if (guard.Refused() || !compare) return -1;
  return Bisect(list, key, ClampRange(list, start, count), compare).hit;
}

LONG QnList_FindSortedInsertIndexRange(tQNLIST* list, const void* key, LONG start, LONG count,
                                       QNLISTCOMPARE compare) {
  const ListGuard guard(list);
  if (guard.Refused() || !compare || start > list->count) return -1;
  const Bisection found = Bisect(list, key, ClampRange(list, start, count), compare);
  return found.hit >= 0 ? found.hit : found.insert;
}

HRESULT QnList_Sort(tQNLIST* list, ULONGLONG criteria, QNLISTCOMPARE compare) {
  const ListGuard guard(list);
  if (guard.Refused()) return guard.Status();
  list->sortCriteria = criteria;
  if (compare) SelectionSort(Sorter(list, criteria, compare), list->count);
  return S_OK;
}

HRESULT QnList_HeapSort(tQNLIST* list, ULONGLONG criteria, QNLISTCOMPARE compare) {
  const ListGuard guard(list);
  if (guard.Refused()) return guard.Status();
  list->sortCriteria = criteria;
  if (compare) {
    const Sorter sorter(list, criteria, compare);
    HeapSorter(sorter, list->count).Sort();
  }
  return S_OK;
}

HRESULT QnList_SortTo(tQNLIST* destination, tQNLIST* source, ULONGLONG criteria, QNLISTCOMPARE compare) {
  const ListGuard sourceGuard(source);
  if (sourceGuard.Refused()) return sourceGuard.Status();
  {
    const ListGuard destinationGuard(destination);
    if (destinationGuard.Refused()) return destinationGuard.Status();
    // Inserting would never end in the list itself, and would read beyond slots that are smaller.
    const bool tooSmall = !qn::OwnsItems(destination) && destination->itemSize > source->itemSize;
    if (compare && (destination == source || tooSmall)) return E_FAIL;
    destination->sortCriteria = criteria;
  }
  if (!compare) return S_OK;
  for (LONG i = 0; i < source->count; i++) {
    const LONG at = QnList_FindSortedInsertIndexRange(destination, qn::ItemAt(source, i), 0, -1, compare);
    if (qn::IsIndex(source, i)) QnList_InsertList(destination, at, qn::SlotAt(source, i), 1);
  }
  return S_OK;
}

int QnSlotHash_GetAdjustedTableSize(int currentCount, int addCount, int tableSize) {
  constexpr int kPrimes[] = {163,     313,      613,      1213,     2417,      4817,     9613,    19213,
                             38393,   76777,    153523,   307009,   613999,    1227979,  2455909, 4911799,
                             9823579, 19647101, 39294107, 78588143, 157176133, 314352163};
  if (addCount == 0) return tableSize;
  const int64_t need = static_cast<int64_t>(currentCount) + addCount;
  const auto* const found = std::find_if(std::begin(kPrimes), std::end(kPrimes), [=](int prime) {
    return tableSize == 0 ? need <= prime / 2 : prime > tableSize || prime >= need * 4;
  });
  return found != std::end(kPrimes) ? *found : 0;
}
