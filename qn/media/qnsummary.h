// The metadata of media files: texts (title, artist and so on), pictures and other clipboard data, and
// broadcast fields, each in a small list found by id.
//
//   summary list     texts under a FourCC; in a file a LIST of type "INFO" (ANSI text) or "UNFO" (wide text)
//   display list     data under a clipboard format; in a file "DISP" chunks
//   broadcast list   fields of a host's own under a number; only kept and copied here
//
//   _summarylisttag summary = {};
//   QnSummary_SetItem(&summary, 0x4D414E49, W("Title"));  // "INAM"
//   QnSummary_Save(file, &summary, nullptr);
//   QnSummary_Free(&summary);
//
// Arrays, texts and data are movable global blocks, locked, each of its own: whoever fills a list by hand
// takes them from GlobalAlloc and GlobalLock. Lists that a function fills anew (the result of a load, of a
// copy, of Create) may hold anything before: nothing of it is freed. A list belongs to one thread at a time.
//
// The file functions work at the handle's position as those of riff.h do. `remaining` holds how many bytes
// from the position on the lists may take up, and after a success what is left of them. An item whose header
// lies within them is read whole, also where it leads behind their end; 0 are left then. `written` is
// optional and becomes the bytes written in all, headers and padding included; on failure it stays as it was.
//
// Statuses: 0, E_INVALIDARG for a null argument that is not said to be optional, QN_E_FILE_READ for a read
// that fails or comes up short and for the size of an item to be read that leads out of the file,
// QN_E_FILE_WRITE, E_OUTOFMEMORY, QN_E_NOT_FOUND.
#pragma once

#include "qn/platform/com.h"
#include "qn/platform/types.h"
#include "qn/platform/wingdi.h"

struct QnSummaryItem {
  uint32_t id;        // a FourCC
  const WCHAR* text;  // or null
};
static_assert(sizeof(QnSummaryItem) == 16);

// A summary list; zero is an empty one.
struct _summarylisttag {
  uint32_t count;
  QnSummaryItem* items;

  // Writes the list at the stream's position. What is written for a null text does not read back in step:
  // hosts rely on both. `reserved` is ignored, here and below.
  QN_API HRESULT Persist(IStream* stream, int reserved);

  // Reads `*list` from the stream's position; empty on failure. QN_E_FILE_FORMAT if no list is there.
  QN_API static HRESULT Create(IStream* stream, int reserved, _summarylisttag* list);
};
static_assert(sizeof(_summarylisttag) == 16);

struct displist_Item {
  uint32_t id;    // a clipboard format
  uint32_t size;  // of the data, in bytes
  void* data;     // or null
};
static_assert(sizeof(displist_Item) == 16);

struct displist_List {
  uint32_t count;
  displist_Item* items;
};

struct QnBWFField {
  uint32_t spare[4];     // copied, not read, as are the other spare words
  uint32_t valueLength;  // characters of `value` without the terminator
  uint32_t id;           // not 0
  uint32_t spare2;
  const WCHAR* name;
  const WCHAR* value;
  uint32_t extraKind;
  const WCHAR* extraText;
  uint32_t spare3;
  const WCHAR* note;
};
static_assert(sizeof(QnBWFField) == 80 && offsetof(QnBWFField, value) == 40);

struct QnBWFList {
  uint32_t count;
  QnBWFField* fields;
};

extern "C" {

// --- Summary lists ----------------------------------------------------------------------------------------

// Reads the items of an INFO or UNFO list from the position, which is behind the list's type, until fewer
// than 8 bytes of `*remaining` are left. Ends behind the last item. On failure the list is empty, and the
// position is where it was unless the failure came after all chunks had been found in order.
QN_API HRESULT QnSummary_Load(HANDLE file, _summarylisttag* list, uint32_t* remaining);
QN_API HRESULT QnSummary_LoadUNFO(HANDLE file, _summarylisttag* list, uint32_t* remaining);

// Writes an INFO or UNFO list at the position: nothing for an empty list, a header alone for one without
// texts. Items whose text is null are left out. With E_OUTOFMEMORY nothing has been written.
QN_API HRESULT QnSummary_Save(HANDLE file, const _summarylisttag* list, uint32_t* written);
QN_API HRESULT QnSummary_SaveUNFO(HANDLE file, const _summarylisttag* list, uint32_t* written);

// Finds an item in the first INFO list from the position on, which is at a chunk's header, and copies its
// text, cut to `size` characters with the terminator but not inside a surrogate pair. Without `remaining` the
// search ends with the file; with it, it becomes what the search left. The position stays, except with
// E_OUTOFMEMORY. QN_E_NOT_FOUND when there is no list or it lacks the item; E_INVALIDARG for a `size`
// below 1.
QN_API HRESULT QnSummary_GetStringFromFile(HANDLE file, uint32_t id, WCHAR* buffer, int32_t size,
                                           uint32_t* remaining);

// The index of an item, or QN_E_NOT_FOUND.
QN_API HRESULT QnSummary_GetItemIndex(const _summarylisttag* list, uint32_t id);

// An item's text, which stays the list's, or null.
QN_API const WCHAR* QnSummary_GetItemText(const _summarylisttag* list, uint32_t id);

// Sets an item's text to a copy of `text`. An id that the list lacks is added, with a null text too. A null
// or empty text removes an item that has a text, and frees the array with the last one. E_INVALIDARG for id
// 0. On failure the list is as it was.
QN_API HRESULT QnSummary_SetItem(_summarylisttag* list, uint32_t id, const WCHAR* text);

// Makes `destination` a copy with texts of its own; empty on failure.
QN_API HRESULT QnSummary_Copy(_summarylisttag* destination, const _summarylisttag* source);

// Adds the items of `source` to `destination`; with `overwrite` nonzero those whose id exists replace the
// ones there, else they are left out. With `take` nonzero the texts move over and `source` is empty
// afterwards; out of memory leaves both as they were. With `take` 0 the texts are copied, a replacement works
// as QnSummary_SetItem, and the first failure ends it. E_INVALIDARG also for one list given twice.
QN_API HRESULT QnSummary_Merge(_summarylisttag* destination, _summarylisttag* source, int overwrite,
                               int take);

// 1 if both lists have the same texts in the same order, whatever the ids; 0 else and for null.
QN_API int QnSummary_Compare(const _summarylisttag* first, const _summarylisttag* second);

// Frees texts and array and leaves an empty list. Always 0, also for null.
QN_API HRESULT QnSummary_Free(_summarylisttag* list);

// --- Display lists ----------------------------------------------------------------------------------------

// A new list of two items without data, 1 (CF_TEXT) and 8 (CF_DIB); null when there is no memory. Free it
// with displist_Destroy.
QN_API displist_List* displist_Create();

// Frees data, array and list. Always 0, also for null.
QN_API HRESULT displist_Destroy(displist_List* list);

// Frees the data; the items stay. Always 0, also for null.
QN_API HRESULT displist_Free(displist_List* list);

// An item, which stays the list's, or null.
QN_API displist_Item* displist_GetItem(const displist_List* list, uint32_t id);

// Replaces an item's data by a copy of `size` bytes; null `data` or a `size` of 0 frees it. 0, or -1, with
// the list as it was, for an id that the list lacks and when there is no memory.
QN_API HRESULT displist_SetItem(displist_List* list, uint32_t id, uint32_t size, const void* data);

// Reads the chunks from the position on, until `*remaining` (optional: then the file) has no more, and takes
// the data of "DISP" chunks whose id is in the list; others are passed. A list without items reads nothing,
// whatever the file. On failure all data is freed, and the position and `*remaining` are as they were.
QN_API HRESULT displist_Load(HANDLE file, displist_List* list, uint32_t* remaining);

// Writes a "DISP" chunk for each item that has data.
QN_API HRESULT displist_Save(HANDLE file, const displist_List* list, uint32_t* written);

// The same for Wave64 files.
QN_API HRESULT displist64_Load(HANDLE file, displist_List* list, uint32_t* remaining);
QN_API HRESULT displist64_Save(HANDLE file, const displist_List* list, uint32_t* written);

// Reads items from the stream's position: those in the list take the data, others are added. On failure all
// data is freed.
QN_API HRESULT displist_LoadFromStream(displist_List* list, IStream* stream);

// Finds the first "DISP" chunk with id 8 (CF_DIB) in the form of a RIFF file and makes a bitmap for the
// screen of its DIB with CreateDIBitmap, which tells what is read and how to end it. Null on any failure: no
// such file or chunk, a chunk that does not hold all of its header, colours and bits, a compressed DIB of
// more than 2^24 pixels, and what CreateDIBitmap refuses.
QN_API HBITMAP displist_CreateBitmapFromFile(const WCHAR* name);

// --- Broadcast fields -------------------------------------------------------------------------------------

// Makes `destination` a copy with texts of its own. Of a field without a value only the id is copied. On
// failure `destination` is zero.
QN_API HRESULT QnBWFField_Copy(QnBWFField* destination, const QnBWFField* source);

// Frees the texts and zeroes the field. Always 0, also for null.
QN_API HRESULT QnBWFField_Free(QnBWFField* field);

// Makes `destination` a copy with texts of its own; empty on failure.
QN_API HRESULT QnBWFList_Copy(QnBWFList* destination, const QnBWFList* source);

// Frees the fields and leaves an empty list. Always 0, also for null.
QN_API HRESULT QnBWFList_Free(QnBWFList* list);

// The index of a field, or -1.
QN_API int32_t QnBWFList_GetItemIndex(const QnBWFList* list, uint32_t id);

// Adds a copy of a field whose id the list lacks. In one that it has, the value and the extra text with its
// kind are replaced, an empty extra text freeing the one there; a null or empty value removes a field that
// has one, and does nothing to one that has none. E_INVALIDARG for id 0. On failure the list is as it was.
QN_API HRESULT QnBWFList_SetItem(QnBWFList* list, const QnBWFField* field);

// QnBWFList_SetItem with an empty field of that id: it adds one to a list that lacks it.
QN_API HRESULT QnBWFList_DeleteItem(QnBWFList* list, uint32_t id);

}  // extern "C"
