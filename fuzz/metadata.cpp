// Everything that reads metadata lists, on any bytes; and what was read is written and read again.
#include <memory>
#include <vector>

#include "fuzz/fuzz_file.h"
#include "qn/kernel/qnstream.h"
#include "qn/media/qnsummary.h"

using qnfuzz::Check;

namespace {

void SeekTo(HANDLE file, LONG offset) {
  SetFilePointer(file, offset, nullptr, FILE_BEGIN);
}

uint32_t SizeOf(HANDLE file) {
  return GetFileSize(file, nullptr);
}

// Writes the list behind the input and compares what reads back. The items begin behind a header of 12 bytes.
// INFO texts may lose what the code page lacks, which is nothing by default.
void CheckSummary(HANDLE file, const _summarylisttag& list, decltype(QnSummary_Save)* save,
                  decltype(QnSummary_Load)* load) {
  for (uint32_t i = 0; i < list.count; ++i) Check(list.items[i].text, "an item without a text was read");
  const uint32_t end = SizeOf(file);
  SeekTo(file, static_cast<LONG>(end));
  uint32_t written = 0;
  Check(save(file, &list, &written) == S_OK, "a list that was read can be written");
  Check(SizeOf(file) == end + written, "all bytes are counted");
  _summarylisttag again = {};
  SeekTo(file, static_cast<LONG>(end + 12));
  uint32_t remaining = written < 12 ? 0 : written - 12;
  Check(load(file, &again, &remaining) == S_OK, "a list that was written can be read");
  Check(list.count == again.count, "as many items read back");
  QnSummary_Free(&again);
}

void UseSummary(qnfuzz::FuzzFile& file, LONG offset, uint32_t limit) {
  const struct {
    decltype(QnSummary_Load)* load;
    decltype(QnSummary_Save)* save;
  } kForms[] = {{QnSummary_Load, QnSummary_Save}, {QnSummary_LoadUNFO, QnSummary_SaveUNFO}};
  const auto size = static_cast<LONG>(SizeOf(file));
  for (const auto& form : kForms) {
    _summarylisttag list = {};
    SeekTo(file, offset);
    uint32_t remaining = limit;
    if (form.load(file, &list, &remaining) == S_OK) {
      CheckSummary(file, list, form.save, form.load);
    } else {
      Check(list.count == 0 && !list.items, "a list that failed is empty");
    }
    QnSummary_Free(&list);
    SeekTo(file, size);
    SetEndOfFile(file);
  }
  WCHAR text[20];
  SeekTo(file, offset);
  uint32_t remaining = limit;
  QnSummary_GetStringFromFile(file, 0x4D414E49, text, 20, &remaining);
  Check(SetFilePointer(file, 0, nullptr, FILE_CURRENT) == static_cast<DWORD>(offset), "the position is kept");
}

void UseDisplay(qnfuzz::FuzzFile& file, LONG offset, uint32_t limit) {
  for (const auto load : {displist_Load, displist64_Load}) {
    displist_List* const list = displist_Create();
    SeekTo(file, offset);
    uint32_t remaining = limit;
    load(file, list, &remaining);
    for (uint32_t i = 0; i < list->count; ++i) {
      Check(list->items[i].size <= SizeOf(file), "an item no larger than the file");
      volatile uint8_t sum = 0;
      const auto* const data = static_cast<const uint8_t*>(list->items[i].data);
      for (uint32_t at = 0; data && at < list->items[i].size; ++at) sum = sum ^ data[at];
    }
    displist_Destroy(list);
  }
}

void UseStreams(const uint8_t* data, size_t size) {
  const std::vector<uint8_t> bytes(data, data + size);
  const auto open = [&bytes] {
    IStream* stream = nullptr;
    const auto count = static_cast<DWORD>(bytes.size());
    QnCreateStreamFromMemory(const_cast<uint8_t*>(bytes.data()), count, count, &stream, TRUE);
    return stream;
  };
  if (IStream* const stream = open()) {
    _summarylisttag list = {};
    const HRESULT status = _summarylisttag::Create(stream, 0, &list);
    Check(status == S_OK || list.count == 0, "a list that failed is empty");
    QnSummary_Free(&list);
    stream->Release();
  }
  if (IStream* const stream = open()) {
    displist_List* const list = displist_Create();
    displist_LoadFromStream(list, stream);
    displist_Destroy(list);
    stream->Release();
  }
}

}  // namespace

// The first byte is where in the file the lists begin, the second how far they may reach (0: to its end).
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const LONG offset = data[0] % 16;
  const uint32_t limit = data[1] ? data[1] * 8u : static_cast<uint32_t>(size);
  qnfuzz::FuzzFile file(data + 2, size - 2);
  UseSummary(file, offset, limit);
  UseDisplay(file, offset, limit);
  UseStreams(data + 2, size - 2);
  return 0;
}
