// Summary lists in memory.
#include "qn/media/qnsummary.h"

#include <string_view>
#include <utility>

#include "qn/media/qnsummary_internal.h"
#include "qn/settings/qnstatus.h"

namespace {

bool SameText(const WCHAR* first, const WCHAR* second) {
  if (!first || !second) return first == second;
  return std::u16string_view(first) == second;
}

HRESULT AppendCopy(_summarylisttag* list, uint32_t id, const WCHAR* text) {
  QnSummaryItem item = {id, nullptr};
  if (!qn::CopyText(&item.text, text)) return E_OUTOFMEMORY;
  if (qn::AppendItem(&list->items, &list->count, item)) return S_OK;
  qn::FreeBlock(item.text);
  return E_OUTOFMEMORY;
}

HRESULT MergeCopies(_summarylisttag* destination, const _summarylisttag* source, bool overwrite) {
  HRESULT status = S_OK;
  for (uint32_t i = 0; i < source->count && SUCCEEDED(status); ++i) {
    const auto& [id, text] = source->items[i];
    if (QnSummary_GetItemIndex(destination, id) < 0) {
      status = AppendCopy(destination, id, text);
    } else if (overwrite) {
      status = QnSummary_SetItem(destination, id, text);
    }
  }
  return status;
}

// Room is made first, so that nothing has moved when there is none.
HRESULT TakeItems(_summarylisttag* destination, _summarylisttag* source, bool overwrite) {
  const uint32_t oldCount = destination->count;
  const auto indexOf = [=](const QnSummaryItem& item) {
    return qn::FindItem(destination->items, oldCount, item.id);
  };
  const auto moves = [=](const QnSummaryItem& item) {
    return (item.id != 0 || item.text) && indexOf(item) < 0;
  };
  const auto added = std::count_if(source->items, source->items + source->count, moves);
  if (added > 0 && !qn::GrowBlock(&destination->items, uint64_t{oldCount} * sizeof(QnSummaryItem),
                                  (oldCount + static_cast<uint64_t>(added)) * sizeof(QnSummaryItem))) {
    return E_OUTOFMEMORY;
  }
  for (uint32_t i = 0; i < source->count; ++i) {
    QnSummaryItem& item = source->items[i];
    const int32_t index = indexOf(item);
    if (index < 0) {
      if (item.id == 0 && !item.text) continue;
      destination->items[destination->count++] = item;
    } else if (overwrite) {
      qn::FreeBlock(destination->items[index].text);
      destination->items[index] = item;
    } else {
      continue;
    }
    item = {};
  }
  return S_OK;
}

}  // namespace

HRESULT QnSummary_GetItemIndex(const _summarylisttag* list, uint32_t id) {
  const int32_t index = list ? qn::FindItem(list->items, list->count, id) : -1;
  return index < 0 ? QN_E_NOT_FOUND : index;
}

const WCHAR* QnSummary_GetItemText(const _summarylisttag* list, uint32_t id) {
  const HRESULT index = QnSummary_GetItemIndex(list, id);
  return index < 0 ? nullptr : list->items[index].text;
}

HRESULT QnSummary_SetItem(_summarylisttag* list, uint32_t id, const WCHAR* text) {
  if (!list || id == 0) return E_INVALIDARG;
  const HRESULT index = QnSummary_GetItemIndex(list, id);
  if (index < 0) return AppendCopy(list, id, text);
  const WCHAR*& place = list->items[index].text;
  if (!qn::HasText(text)) {
    if (!place) return S_OK;
    qn::FreeBlock(place);
    qn::RemoveItem(&list->items, &list->count, index);
    return S_OK;
  }
  // The new text may be the old one.
  const WCHAR* copy;
  if (!qn::CopyText(&copy, text)) return E_OUTOFMEMORY;
  qn::FreeBlock(place);
  place = copy;
  return S_OK;
}

HRESULT QnSummary_Copy(_summarylisttag* destination, const _summarylisttag* source) {
  if (!destination || !source) return E_INVALIDARG;
  if (destination == source) return S_OK;
  *destination = {};
  if (source->count == 0) return S_OK;
  if (!qn::GrowBlock(&destination->items, 0, uint64_t{source->count} * sizeof(QnSummaryItem))) {
    return E_OUTOFMEMORY;
  }
  for (; destination->count < source->count; ++destination->count) {
    const QnSummaryItem& item = source->items[destination->count];
    QnSummaryItem& copy = destination->items[destination->count];
    copy.id = item.id;
    if (!qn::CopyText(&copy.text, item.text)) {
      QnSummary_Free(destination);
      return E_OUTOFMEMORY;
    }
  }
  return S_OK;
}

HRESULT QnSummary_Merge(_summarylisttag* destination, _summarylisttag* source, int overwrite, int take) {
  if (!destination || !source || destination == source) return E_INVALIDARG;
  if (!take) return MergeCopies(destination, source, overwrite != 0);
  if (destination->count == 0) {
    QnSummary_Free(destination);
    std::swap(*destination, *source);
    return S_OK;
  }
  const HRESULT status = TakeItems(destination, source, overwrite != 0);
  if (SUCCEEDED(status)) QnSummary_Free(source);
  return status;
}

int QnSummary_Compare(const _summarylisttag* first, const _summarylisttag* second) {
  if (!first || !second) return 0;
  return std::equal(first->items, first->items + first->count, second->items, second->items + second->count,
                    [](const QnSummaryItem& a, const QnSummaryItem& b) { return SameText(a.text, b.text); });
}

HRESULT QnSummary_Free(_summarylisttag* list) {
  if (!list) return S_OK;
  for (uint32_t i = 0; i < list->count; ++i) qn::FreeBlock(list->items[i].text);
  qn::FreeBlock(list->items);
  *list = {};
  return S_OK;
}
