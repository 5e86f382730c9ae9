// Summary lists in streams.
#include "qn/media/qnsummary_internal.h"
#include "qn/settings/qnstatus.h"

namespace {

constexpr uint32_t kMark = 8;
constexpr uint32_t kFirstRoom = 65536;

bool Write(IStream* stream, const void* data, uint32_t bytes) {
  ULONG put = 0;
  return SUCCEEDED(stream->Write(data, bytes, &put)) && put == bytes;
}

bool WriteItem(IStream* stream, const QnSummaryItem& item) {
  if (!item.text) {
    // Four bytes more than a reader takes: hosts rely on it.
    const uint32_t fields[] = {item.id, 0, 0};
    return Write(stream, fields, sizeof fields);
  }
  const uint64_t bytes = (uint64_t{qn::TextLength(item.text)} + 1) * sizeof(WCHAR);
  if (bytes > UINT32_MAX) return false;
  const uint32_t fields[] = {item.id, static_cast<uint32_t>(bytes)};
  return Write(stream, fields, sizeof fields) && Write(stream, item.text, fields[1]);
}

HRESULT ReadItem(IStream* stream, QnSummaryItem* item) {
  uint32_t fields[2];
  if (!qn::ReadStream(stream, fields, sizeof fields)) return QN_E_FILE_READ;
  item->id = fields[0];
  if (fields[1] <= 1) return S_OK;
  void* block;
  const HRESULT status = qn::ReadStreamBlock(stream, fields[1], sizeof(WCHAR), &block);
  if (FAILED(status)) return status;
  auto* const text = static_cast<WCHAR*>(block);
  text[fields[1] / sizeof(WCHAR)] = 0;
  item->text = text;
  return S_OK;
}

HRESULT ReadItems(IStream* stream, uint32_t count, _summarylisttag* list) {
  uint64_t room = 0;
  while (list->count < count) {
    if (!qn::MakeRoom(&list->items, list->count, &room, count)) return E_OUTOFMEMORY;
    const HRESULT status = ReadItem(stream, &list->items[list->count]);
    if (FAILED(status)) return status;
    ++list->count;
  }
  return S_OK;
}

}  // namespace

namespace qn {

bool ReadStream(IStream* stream, void* buffer, uint32_t bytes) {
  auto next = static_cast<uint8_t*>(buffer);
  while (bytes > 0) {
    ULONG got = 0;
    if (FAILED(stream->Read(next, bytes, &got)) || got == 0 || got > bytes) return false;
    next += got;
    bytes -= got;
  }
  return true;
}

HRESULT ReadStreamBlock(IStream* stream, uint32_t bytes, uint32_t extra, void** block) {
  uint8_t* data = nullptr;
  uint64_t done = 0;
  HRESULT status = S_OK;
  do {
    const uint64_t room = std::min<uint64_t>(bytes, std::max<uint64_t>(kFirstRoom, done * 2));
    if (!GrowBlock(&data, done, room + extra)) {
      status = E_OUTOFMEMORY;
    } else if (!ReadStream(stream, data + done, static_cast<uint32_t>(room - done))) {
      status = QN_E_FILE_READ;
    }
    done = room;
  } while (SUCCEEDED(status) && done < bytes);
  if (FAILED(status)) {
    FreeBlock(data);
    data = nullptr;
  }
  *block = data;
  return status;
}

}  // namespace qn

HRESULT _summarylisttag::Persist(IStream* stream, int) {
  if (!stream) return E_INVALIDARG;
  const uint32_t head[] = {kMark, count};
  if (!Write(stream, head, sizeof head)) return QN_E_FILE_WRITE;
  const bool done = std::all_of(items, items + count,
                                [stream](const QnSummaryItem& item) { return WriteItem(stream, item); });
  return done ? S_OK : QN_E_FILE_WRITE;
}

HRESULT _summarylisttag::Create(IStream* stream, int, _summarylisttag* list) {
  if (!list) return E_INVALIDARG;
  *list = {};
  if (!stream) return E_INVALIDARG;
  uint32_t head[2];
  if (!qn::ReadStream(stream, head, sizeof head)) return QN_E_FILE_READ;
  if (head[0] != kMark) return QN_E_FILE_FORMAT;
  const HRESULT status = ReadItems(stream, head[1], list);
  if (FAILED(status)) QnSummary_Free(list);
  return status;
}
