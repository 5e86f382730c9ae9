// Broadcast fields and their lists.
#include "qn/media/qnsummary_internal.h"

HRESULT QnBWFField_Copy(QnBWFField* destination, const QnBWFField* source) {
  if (!destination || !source) return E_INVALIDARG;
  if (destination == source) return S_OK;
  *destination = {};
  destination->id = source->id;
  if (!source->value) return S_OK;
  QnBWFField copy = *source;
  copy.name = copy.value = copy.extraText = copy.note = nullptr;
  copy.valueLength = static_cast<uint32_t>(qn::TextLength(source->value));
  if (!qn::CopyText(&copy.name, source->name) || !qn::CopyText(&copy.value, source->value) ||
      !qn::CopyText(&copy.extraText, source->extraText) || !qn::CopyText(&copy.note, source->note)) {
    QnBWFField_Free(&copy);
    *destination = {};
    return E_OUTOFMEMORY;
  }
  *destination = copy;
  return S_OK;
}

HRESULT QnBWFField_Free(QnBWFField* field) {
  if (!field) return S_OK;
  for (const WCHAR* text : {field->name, field->value, field->extraText, field->note}) qn::FreeBlock(text);
  *field = {};
  return S_OK;
}

HRESULT QnBWFList_Copy(QnBWFList* destination, const QnBWFList* source) {
  if (!destination || !source) return E_INVALIDARG;
  if (destination == source) return S_OK;
  *destination = {};
  if (source->count == 0) return S_OK;
  if (!qn::GrowBlock(&destination->fields, 0, uint64_t{source->count} * sizeof(QnBWFField))) {
    return E_OUTOFMEMORY;
  }
  for (; destination->count < source->count; ++destination->count) {
    const uint32_t i = destination->count;
    const HRESULT status = QnBWFField_Copy(&destination->fields[i], &source->fields[i]);
    if (FAILED(status)) {
      QnBWFList_Free(destination);
      return status;
    }
  }
  return S_OK;
}

HRESULT QnBWFList_Free(QnBWFList* list) {
  if (!list) return S_OK;
  for (uint32_t i = 0; i < list->count; ++i) QnBWFField_Free(&list->fields[i]);
  qn::FreeBlock(list->fields);
  *list = {};
  return S_OK;
}

int32_t QnBWFList_GetItemIndex(const QnBWFList* list, uint32_t id) {
  return list ? qn::FindItem(list->fields, list->count, id) : -1;
}

HRESULT QnBWFList_SetItem(QnBWFList* list, const QnBWFField* field) {
  if (!list || !field || field->id == 0) return E_INVALIDARG;
  const int32_t index = QnBWFList_GetItemIndex(list, field->id);
  QnBWFField copy;
  if (index < 0) {
    const HRESULT status = QnBWFField_Copy(&copy, field);
    if (FAILED(status) || qn::AppendItem(&list->fields, &list->count, copy)) return status;
    QnBWFField_Free(&copy);
    return E_OUTOFMEMORY;
  }
  QnBWFField& place = list->fields[index];
  if (!qn::HasText(field->value)) {
    if (!place.value) return S_OK;
    QnBWFField_Free(&place);
    qn::RemoveItem(&list->fields, &list->count, index);
    return S_OK;
  }
  const bool hasExtra = qn::HasText(field->extraText);
  const uint32_t extraKind = hasExtra ? field->extraKind : 0;
  const WCHAR* value;
  const WCHAR* extraText;
  if (!qn::CopyText(&value, field->value)) return E_OUTOFMEMORY;
  if (!qn::CopyText(&extraText, hasExtra ? field->extraText : nullptr)) {
    qn::FreeBlock(value);
    return E_OUTOFMEMORY;
  }
  qn::FreeBlock(place.value);
  qn::FreeBlock(place.extraText);
  place.value = value;
  place.valueLength = static_cast<uint32_t>(qn::TextLength(value));
  place.extraText = extraText;
  place.extraKind = extraKind;
  return S_OK;
}

HRESULT QnBWFList_DeleteItem(QnBWFList* list, uint32_t id) {
  // Of an id that the list lacks an empty field is left there: hosts rely on it.
  QnBWFField empty = {};
  empty.id = id;
  return QnBWFList_SetItem(list, &empty);
}
