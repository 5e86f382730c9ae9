// Summary lists in files.
#include <limits>
#include <new>
#include <vector>

#include "qn/media/qnsummary_internal.h"
#include "qn/media/riff.h"
#include "qn/platform/locale.h"
#include "qn/settings/qnstatus.h"

namespace {

constexpr uint32_t kInfo = 0x4F464E49;  // "INFO"
constexpr uint32_t kUnfo = 0x4F464E55;  // "UNFO"
constexpr uint32_t kHeaderSize = 8;
constexpr uint32_t kTypeSize = 4;
constexpr uint32_t kMostBody = UINT32_MAX - kHeaderSize - kTypeSize;  // bytes of all items of a list

uint64_t Padded(uint64_t size) {
  return size + (size & 1);
}

bool IsHighSurrogate(WCHAR character) {
  return (character & 0xFC00) == 0xD800;
}

// Converts terminated text, cut to `room` characters with the terminator, but not inside a surrogate pair;
// false when there is no memory.
bool Decode(const char* bytes, WCHAR* text, uint32_t room) {
  if (MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, bytes, -1, text, static_cast<int>(room)) > 0) return true;
  if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) return false;
  text[room - 1] = 0;
  if (room > 1 && IsHighSurrogate(text[room - 2])) text[room - 2] = 0;
  return true;
}

// Reads `size` bytes into a new block, with two zero bytes behind them.
HRESULT ReadRaw(HANDLE file, uint32_t size, void** raw) {
  *raw = nullptr;
  if (!qn::HasBytes(file, size)) return QN_E_FILE_READ;
  void* const block = qn::NewBlock(uint64_t{size} + sizeof(WCHAR));
  if (!block) return E_OUTOFMEMORY;
  if (!qn::ReadExactly(file, block, size)) {
    qn::FreeBlock(block);
    return QN_E_FILE_READ;
  }
  *raw = block;
  return S_OK;
}

// The two kinds of list:
//   Append(text, body)  adds the bytes of a text in the file with the terminator; false without memory
//   Text(raw, size)     makes an item's text of what ReadRaw gave, which it takes; null without memory
struct Info {
  static constexpr uint32_t kType = kInfo;

  static bool Append(const WCHAR* text, std::vector<char>* body) {
    const size_t length = qn::TextLength(text) + 1;
    if (length > std::numeric_limits<int>::max()) return false;
    const auto units = static_cast<int>(length);
    const int size = WideCharToMultiByte(CP_ACP, 0, text, units, nullptr, 0, nullptr, nullptr);
    if (size <= 0) return false;
    const size_t start = body->size();
    body->resize(start + static_cast<size_t>(size));
    return WideCharToMultiByte(CP_ACP, 0, text, units, &(*body)[start], size, nullptr, nullptr) == size;
  }
  static const WCHAR* Text(void* raw, uint32_t size) {
    const uint64_t room = uint64_t{size} + 1;
    WCHAR* text = nullptr;
    if (room <= std::numeric_limits<int>::max()) {
      text = static_cast<WCHAR*>(qn::NewBlock(room * sizeof(WCHAR)));
    }
    if (text && !Decode(static_cast<const char*>(raw), text, static_cast<uint32_t>(room))) {
      qn::FreeBlock(text);
      text = nullptr;
    }
    qn::FreeBlock(raw);
    return text;
  }
};

struct Unfo {
  static constexpr uint32_t kType = kUnfo;

  static bool Append(const WCHAR* text, std::vector<char>* body) {
    const auto* const bytes = reinterpret_cast<const char*>(text);
    body->insert(body->end(), bytes, bytes + (qn::TextLength(text) + 1) * sizeof(WCHAR));
    return true;
  }
  static const WCHAR* Text(void* raw, uint32_t size) {
    auto* const text = static_cast<WCHAR*>(raw);
    text[size / sizeof(WCHAR)] = 0;
    return text;
  }
};

// Counts the items whose headers lie in the budget; the file must have them whole.
HRESULT CountItems(HANDLE file, uint64_t left, uint32_t* count) {
  const qn::KeepPosition keep(file);
  for (*count = 0; left >= kHeaderSize; ++*count) {
    uint32_t id, size;
    const HRESULT status = riff_ReadChunkHeader(file, &id, &size);
    if (FAILED(status)) return status;
    left -= kHeaderSize;
    if (!qn::HasBytes(file, size)) return QN_E_FILE_READ;
    qn::Skip(file, Padded(size));
    qn::Spend(&left, Padded(size));
  }
  return S_OK;
}

template <class Form>
HRESULT ReadItem(HANDLE file, QnSummaryItem* item, uint64_t* left) {
  uint32_t size;
  void* raw;
  HRESULT status = riff_ReadChunkHeader(file, &item->id, &size);
  if (SUCCEEDED(status)) status = ReadRaw(file, size, &raw);
  if (FAILED(status)) return status;
  qn::Skip(file, size & 1);
  qn::Spend(left, kHeaderSize + Padded(size));
  item->text = Form::Text(raw, size);
  return item->text ? S_OK : E_OUTOFMEMORY;
}

template <class Form>
HRESULT Load(HANDLE file, _summarylisttag* list, uint32_t* remaining) {
  if (!list) return E_INVALIDARG;
  *list = {};
  if (!file || !remaining) return E_INVALIDARG;
  uint64_t left = *remaining;
  uint32_t count;
  HRESULT status = CountItems(file, left, &count);
  if (FAILED(status) || count == 0) return status;
  if (!qn::GrowBlock(&list->items, 0, uint64_t{count} * sizeof(QnSummaryItem))) return E_OUTOFMEMORY;
  for (; list->count < count; ++list->count) {
    status = ReadItem<Form>(file, &list->items[list->count], &left);
    if (FAILED(status)) {
      QnSummary_Free(list);
      return status;
    }
  }
  *remaining = static_cast<uint32_t>(left);
  return S_OK;
}

// Adds an item as it lies in the file to `body`, which holds those before it.
template <class Form>
HRESULT AppendChunk(const QnSummaryItem& item, std::vector<char>* body) {
  const size_t start = body->size();
  body->resize(start + kHeaderSize);
  if (!Form::Append(item.text, body)) return E_OUTOFMEMORY;
  const uint64_t size = body->size() - start - kHeaderSize;
  if (start + kHeaderSize + Padded(size) > kMostBody) return QN_E_FILE_WRITE;
  const uint32_t header[] = {item.id, static_cast<uint32_t>(size)};
  std::memcpy(&(*body)[start], header, sizeof header);
  body->resize(start + kHeaderSize + Padded(size));
  return S_OK;
}

// Nothing is written before all texts are converted: without memory for one the file stays as it was.
template <class Form>
HRESULT Save(HANDLE file, const _summarylisttag* list, uint32_t* written) try {
  if (!file || !list) return E_INVALIDARG;
  uint32_t total = 0;
  if (list->count > 0) {
    std::vector<char> body;
    for (uint32_t i = 0; i < list->count; ++i) {
      if (!list->items[i].text) continue;
      const HRESULT status = AppendChunk<Form>(list->items[i], &body);
      if (FAILED(status)) return status;
    }
    const auto listSize = static_cast<uint32_t>(kTypeSize + body.size());
    const HRESULT status = riff_WriteListHeader(file, Form::kType, listSize);
    if (FAILED(status)) return status;
    if (!qn::WriteExactly(file, body.data(), body.size())) return QN_E_FILE_WRITE;
    total = kHeaderSize + listSize;
  }
  if (written) *written = total;
  return S_OK;
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
}

// Scans chunks from the position on; stops at the data of the one that `Wanted` tells, given id and size.
// What a chunk takes up counts as spent before `Wanted` is asked, its data when it is passed.
template <class Wanted>
HRESULT Scan(HANDLE file, uint64_t* left, uint32_t* size, Wanted wanted) {
  while (*left >= kHeaderSize) {
    uint32_t id;
    HRESULT status = riff_ReadChunkHeader(file, &id, size);
    if (FAILED(status)) return status;
    *left -= kHeaderSize;
    const uint64_t data = qn::Tell(file);
    status = wanted(id);
    if (status != S_FALSE) return status;
    qn::Seek(file, data);
    qn::Skip(file, Padded(*size));
    qn::Spend(left, Padded(*size));
  }
  return QN_E_NOT_FOUND;
}

// Finds the text of an item, whose header lies within the budget and the list; ends at the text.
HRESULT FindText(HANDLE file, uint32_t id, uint64_t* left, uint32_t* size) {
  HRESULT status = Scan(file, left, size, [&](uint32_t chunk) -> HRESULT {
    if (chunk != RIFF_ID_LIST || *size < kTypeSize || *left < kTypeSize) return S_FALSE;
    uint32_t type;
    if (!qn::ReadField(file, type)) return QN_E_FILE_READ;
    return type == kInfo ? S_OK : S_FALSE;
  });
  if (FAILED(status)) return status;
  *left -= kTypeSize;
  const uint64_t inList = std::min<uint64_t>(*left, *size - kTypeSize);
  uint64_t leftInList = inList;
  status = Scan(file, &leftInList, size, [id](uint32_t item) { return item == id ? S_OK : S_FALSE; });
  *left -= inList - leftInList;
  return status;
}

}  // namespace

HRESULT QnSummary_Load(HANDLE file, _summarylisttag* list, uint32_t* remaining) {
  return Load<Info>(file, list, remaining);
}

HRESULT QnSummary_LoadUNFO(HANDLE file, _summarylisttag* list, uint32_t* remaining) {
  return Load<Unfo>(file, list, remaining);
}

HRESULT QnSummary_Save(HANDLE file, const _summarylisttag* list, uint32_t* written) {
  return Save<Info>(file, list, written);
}

HRESULT QnSummary_SaveUNFO(HANDLE file, const _summarylisttag* list, uint32_t* written) {
  return Save<Unfo>(file, list, written);
}

HRESULT QnSummary_GetStringFromFile(HANDLE file, uint32_t id, WCHAR* buffer, int32_t size,
                                    uint32_t* remaining) {
  if (!file || !buffer || size < 1) return E_INVALIDARG;
  const uint64_t start = qn::Tell(file);
  uint64_t left = qn::BytesLeft(file, remaining);
  uint32_t bytes;
  void* raw = nullptr;
  HRESULT status = FindText(file, id, &left, &bytes);
  if (SUCCEEDED(status)) status = ReadRaw(file, bytes, &raw);
  if (SUCCEEDED(status)) {
    if (!Decode(static_cast<const char*>(raw), buffer, static_cast<uint32_t>(size))) status = E_OUTOFMEMORY;
    qn::FreeBlock(raw);
    qn::Spend(&left, Padded(bytes));
  }
  // Hosts rely on the position telling where the memory ran out.
  if (status == E_OUTOFMEMORY) return status;
  qn::Seek(file, start);
  if (remaining) *remaining = static_cast<uint32_t>(left);
  return status;
}
