// Blocks, texts and arrays of the metadata lists.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>

#include "qn/media/chunkio_internal.h"
#include "qn/media/qnsummary.h"
#include "qn/platform/memory.h"

namespace qn {

// A new movable block, zero and locked; null when there is no memory. A block of 0 bytes has an address too.
inline void* NewBlock(uint64_t bytes) {
  const HGLOBAL block = GlobalAlloc(GHND, std::max<uint64_t>(bytes, 1));
  if (!block) return nullptr;
  void* const address = GlobalLock(block);
  if (!address) GlobalFree(block);
  return address;
}

inline void FreeBlock(const void* address) {
  const HGLOBAL block = address ? GlobalHandle(address) : nullptr;
  if (!block) return;
  GlobalUnlock(block);
  GlobalFree(block);
}

// Makes `bytes` bytes of room in place of `*block`, of which `used` bytes stay.
template <class T>
bool GrowBlock(T** block, uint64_t used, uint64_t bytes) {
  void* const grown = NewBlock(bytes);
  if (!grown) return false;
  if (used > 0) std::memcpy(grown, *block, used);
  FreeBlock(*block);
  *block = static_cast<T*>(grown);
  return true;
}

inline bool HasText(const WCHAR* text) {
  return text && *text;
}

inline size_t TextLength(const WCHAR* text) {
  return std::char_traits<WCHAR>::length(text);
}

// Gives `*copy` a text of its own, null for null; false when there is no memory.
inline bool CopyText(const WCHAR** copy, const WCHAR* text) {
  *copy = nullptr;
  if (!text) return true;
  const size_t bytes = (TextLength(text) + 1) * sizeof(WCHAR);
  void* const block = NewBlock(bytes);
  if (!block) return false;
  std::memcpy(block, text, bytes);
  *copy = static_cast<const WCHAR*>(block);
  return true;
}

// The index of the item with an id, or -1.
template <class Item>
int32_t FindItem(const Item* items, uint32_t count, uint32_t id) {
  const Item* const found =
      std::find_if(items, items + count, [id](const Item& item) { return item.id == id; });
  return found == items + count ? -1 : static_cast<int32_t>(found - items);
}

// Adds an item, as it is, behind the others; false, with the array as it was, when there is no memory.
template <class Item>
bool AppendItem(Item** items, uint32_t* count, const Item& item) {
  if (!GrowBlock(items, uint64_t{*count} * sizeof(Item), (uint64_t{*count} + 1) * sizeof(Item))) return false;
  (*items)[(*count)++] = item;
  return true;
}

// Makes room for an item behind the `count` ones when `*room` is used up: for twice as many but no more than
// `most`, as the number of items that a stream tells is only believed as far as they arrive.
template <class Item>
bool MakeRoom(Item** items, uint64_t count, uint64_t* room, uint64_t most) {
  constexpr uint64_t kFirstItems = 256;
  if (count < *room) return true;
  const uint64_t grown = std::min(most, std::max(kFirstItems, *room * 2));
  if (!GrowBlock(items, count * sizeof(Item), grown * sizeof(Item))) return false;
  *room = grown;
  return true;
}

// Closes the gap of an item, which the caller has freed; the array goes with the last one.
template <class Item>
void RemoveItem(Item** items, uint32_t* count, int32_t index) {
  std::copy(*items + index + 1, *items + *count, *items + index);
  if (--*count > 0) return;
  FreeBlock(*items);
  *items = nullptr;
}

// What a walk may read: `*remaining`, or for null the rest of the file.
inline uint64_t BytesLeft(HANDLE file, const uint32_t* remaining) {
  if (remaining) return *remaining;
  LARGE_INTEGER size;
  if (!GetFileSizeEx(file, &size)) return 0;
  const auto end = static_cast<uint64_t>(size.QuadPart);
  return end - std::min(end, Tell(file));
}

// Takes bytes off what is left; more than all leaves nothing.
inline void Spend(uint64_t* left, uint64_t bytes) {
  *left -= std::min(*left, bytes);
}

// Reads `bytes` bytes; false when the stream fails or ends before.
bool ReadStream(IStream* stream, void* buffer, uint32_t bytes);

// Reads `bytes` bytes into a new block, which has `extra` zero bytes behind them. Room is made as the bytes
// arrive: a stream need not be able to tell whether it has as many.
HRESULT ReadStreamBlock(IStream* stream, uint32_t bytes, uint32_t extra, void** block);

}  // namespace qn
