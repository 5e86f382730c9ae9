// Display lists.
#include <map>
#include <new>

#include "qn/media/qnsummary_internal.h"
#include "qn/media/riff.h"
#include "qn/media/riff64.h"
#include "qn/media/riff64_internal.h"
#include "qn/settings/qnstatus.h"

namespace {

constexpr uint32_t kText = 1;    // CF_TEXT
constexpr uint32_t kBitmap = 8;  // CF_DIB
constexpr uint32_t kIdSize = 4;

// The two kinds of file; sizes are those of a chunk's data.
struct Riff {
  using Id = uint32_t;
  static constexpr uint32_t kHeaderSize = 8;
  static constexpr Id kDisplay = 0x50534944;  // "DISP"
  static constexpr uint64_t kMostData = UINT32_MAX - kHeaderSize;

  static uint64_t Padded(uint64_t size) { return size + (size & 1); }
  static bool ReadHeader(HANDLE file, Id& id, uint64_t& size) {
    uint32_t size32 = 0;
    const HRESULT status = riff_ReadChunkHeader(file, &id, &size32);
    size = size32;
    return SUCCEEDED(status);
  }
  static HRESULT WriteHeader(HANDLE file, uint64_t size) {
    return riff_WriteChunkHeader(file, kDisplay, static_cast<uint32_t>(size));
  }
};

struct Wave64 {
  using Id = GUID;
  static constexpr uint32_t kHeaderSize = qn::kWave64HeaderSize;
  static constexpr Id kDisplay = {
      0x612CCA25, 0x92BB, 0x4C55, {0x84, 0x08, 0x7B, 0xDA, 0x2F, 0x15, 0xBD, 0x27}};
  static constexpr uint64_t kMostData = uint64_t{UINT32_MAX} + kIdSize;

  static uint64_t Padded(uint64_t size) { return qn::Wave64Padded(size); }
  static bool ReadHeader(HANDLE file, Id& id, uint64_t& size) { return qn::ReadWave64Header(file, id, size); }
  static HRESULT WriteHeader(HANDLE file, uint64_t size) {
    return riff64_WriteChunkHeader(file, &kDisplay, size);
  }
};

void Replace(displist_Item* item, uint32_t size, void* data) {
  qn::FreeBlock(item->data);
  item->size = data ? size : 0;
  item->data = data;
}

// Reads a "DISP" chunk from its data to the next header. Four bytes are taken for the id even of a chunk that
// has fewer; it fails only when they are an id of the list, as the size of the data would be below 0.
template <class Format>
HRESULT ReadDisplay(HANDLE file, displist_List* list, uint64_t size) {
  uint32_t id;
  if (!qn::ReadField(file, id)) return QN_E_FILE_READ;
  const uint64_t padded = Format::Padded(size);
  displist_Item* const item = displist_GetItem(list, id);
  if (!item) {
    qn::Skip(file, padded, kIdSize);
    return S_OK;
  }
  if (size < kIdSize || size - kIdSize > UINT32_MAX) return QN_E_FILE_READ;
  void* data;
  const auto dataSize = static_cast<uint32_t>(size - kIdSize);
  const HRESULT status = qn::ReadNewBlock(file, dataSize, 0, &data);
  if (FAILED(status)) return status;
  qn::Skip(file, padded - size);
  Replace(item, dataSize, data);
  return S_OK;
}

template <class Format>
HRESULT ReadChunks(HANDLE file, displist_List* list, uint64_t* left) {
  while (*left >= Format::kHeaderSize) {
    typename Format::Id id;
    uint64_t size;
    if (!Format::ReadHeader(file, id, size)) return QN_E_FILE_READ;
    *left -= Format::kHeaderSize;
    if (id != Format::kDisplay) {
      qn::Skip(file, Format::Padded(size));
    } else {
      const HRESULT status = ReadDisplay<Format>(file, list, size);
      if (FAILED(status)) return status;
    }
    qn::Spend(left, Format::Padded(size));
  }
  return S_OK;
}

template <class Format>
HRESULT Load(HANDLE file, displist_List* list, uint32_t* remaining) {
  if (!list) return E_INVALIDARG;
  if (list->count == 0) return S_OK;
  if (!file) return E_INVALIDARG;
  const uint64_t start = qn::Tell(file);
  uint64_t left = qn::BytesLeft(file, remaining);
  const HRESULT status = ReadChunks<Format>(file, list, &left);
  if (FAILED(status)) {
    displist_Free(list);
    qn::Seek(file, start);
  } else if (remaining) {
    *remaining = static_cast<uint32_t>(left);
  }
  return status;
}

template <class Format>
HRESULT Save(HANDLE file, const displist_List* list, uint32_t* written) {
  if (!file || !list) return E_INVALIDARG;
  uint64_t total = 0;
  for (uint32_t i = 0; i < list->count; ++i) {
    const auto& [id, dataSize, data] = list->items[i];
    if (!data || dataSize == 0) continue;
    const uint64_t size = uint64_t{dataSize} + kIdSize;
    const uint64_t padded = Format::Padded(size);
    if (size > Format::kMostData) return QN_E_FILE_WRITE;
    const HRESULT status = Format::WriteHeader(file, size);
    if (FAILED(status)) return status;
    if (!qn::WriteField(file, id) || !qn::WriteExactly(file, data, dataSize) ||
        !qn::WriteZeros(file, static_cast<uint32_t>(padded - size))) {
      return QN_E_FILE_WRITE;
    }
    total += Format::kHeaderSize + padded;
  }
  if (written) *written = static_cast<uint32_t>(total);
  return S_OK;
}

// Ids are looked up in an ordered index: neither many of them nor chosen ones make it slow.
HRESULT ReadStreamItems(displist_List* list, IStream* stream, uint32_t count) try {
  std::map<uint32_t, uint32_t> index;
  for (uint32_t i = 0; i < list->count; ++i) index.try_emplace(list->items[i].id, i);
  uint64_t room = list->count;
  const uint64_t most = room + count;
  for (; count > 0; --count) {
    uint32_t fields[2];
    if (!qn::ReadStream(stream, fields, sizeof fields)) return QN_E_FILE_READ;
    const auto [id, size] = fields;
    const auto [place, isNew] = index.try_emplace(id, list->count);
    if (isNew) {
      if (!qn::MakeRoom(&list->items, list->count, &room, most)) return E_OUTOFMEMORY;
      list->items[list->count++] = {id, 0, nullptr};
    }
    void* data = nullptr;
    const HRESULT status = size > 0 ? qn::ReadStreamBlock(stream, size, 0, &data) : S_OK;
    if (FAILED(status)) return status;
    Replace(&list->items[place->second], size, data);
  }
  return S_OK;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

}  // namespace

displist_List* displist_Create() {
  auto* const list = static_cast<displist_List*>(qn::NewBlock(sizeof(displist_List)));
  if (!list) return nullptr;
  if (!qn::GrowBlock(&list->items, 0, 2 * sizeof(displist_Item))) {
    qn::FreeBlock(list);
    return nullptr;
  }
  list->items[0].id = kText;
  list->items[1].id = kBitmap;
  list->count = 2;
  return list;
}

HRESULT displist_Destroy(displist_List* list) {
  if (!list) return S_OK;
  displist_Free(list);
  qn::FreeBlock(list->items);
  qn::FreeBlock(list);
  return S_OK;
}

HRESULT displist_Free(displist_List* list) {
  for (uint32_t i = 0; list && i < list->count; ++i) Replace(&list->items[i], 0, nullptr);
  return S_OK;
}

displist_Item* displist_GetItem(const displist_List* list, uint32_t id) {
  const int32_t index = list ? qn::FindItem(list->items, list->count, id) : -1;
  return index < 0 ? nullptr : &list->items[index];
}

HRESULT displist_SetItem(displist_List* list, uint32_t id, uint32_t size, const void* data) {
  displist_Item* const item = displist_GetItem(list, id);
  if (!item) return -1;
  void* copy = nullptr;
  if (data && size > 0) {
    copy = qn::NewBlock(size);
    if (!copy) return -1;
    std::memcpy(copy, data, size);
  }
  Replace(item, size, copy);
  return S_OK;
}

HRESULT displist_Load(HANDLE file, displist_List* list, uint32_t* remaining) {
  return Load<Riff>(file, list, remaining);
}

HRESULT displist_Save(HANDLE file, const displist_List* list, uint32_t* written) {
  return Save<Riff>(file, list, written);
}

HRESULT displist64_Load(HANDLE file, displist_List* list, uint32_t* remaining) {
  return Load<Wave64>(file, list, remaining);
}

HRESULT displist64_Save(HANDLE file, const displist_List* list, uint32_t* written) {
  return Save<Wave64>(file, list, written);
}

HRESULT displist_LoadFromStream(displist_List* list, IStream* stream) {
  if (!list || !stream) return E_INVALIDARG;
  uint32_t count;
  const bool counted = qn::ReadStream(stream, &count, sizeof count);
  const HRESULT status = counted ? ReadStreamItems(list, stream, count) : QN_E_FILE_READ;
  if (FAILED(status)) displist_Free(list);
  return status;
}
