// A RIFF file of any bytes through every function that reads, searches, walks, deletes or updates.
#include "qn/media/riff.h"

#include "fuzz/chunk_walk.h"

namespace {

struct Riff {
  using Id = uint32_t;
  using Size = uint32_t;
  using Budget = uint32_t;
  static constexpr bool kGainsBudget = false;
  QN_CHUNK_CALLS(riff);
  static Id Key(Id id) { return id; }
  static HRESULT Delete(HANDLE file, Id id, Size* deleted, bool isList) {
    return riff_DeleteChunk(file, id, deleted, isList);
  }
  static void ReadTexts(HANDLE file, Size location, Size size) {
    for (const int32_t length : {-1, 0, 1, 16, 64}) {
      std::vector<char16_t> text(65, u'#');
      Size textSize = size;
      Restore(file, location);
      if (FAILED(riff_ReadANSIString(file, text.data(), length, &textSize))) continue;
      qnfuzz::Check(textSize == size + 1, "the size of a text");
      qnfuzz::Check(length > 0 && text[static_cast<size_t>(length) - 1] == 0, "a text without an end");
      qnfuzz::Check(text[static_cast<size_t>(length)] == u'#', "a text beyond its room");
    }
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qnfuzz::FuzzFile file(data, size);
  uint32_t form, value, id;
  uint8_t format[24];
  riff_ReadFileID(file, &value, &form);
  riff_GetFileSize(file, &value);
  riff_ReadCDAFile(file.Path(), &value, &value, &value, &value, &value);
  riff_RestoreLocation(file, 0);
  riff_ReadRIFFCDDA(file, format);
  riff_SeekDataStart(file);
  riff_ReadListHeader(file, &id, &value);
  qnfuzz::WalkEverything<Riff>(file, {RIFF_ID_FMT, RIFF_ID_LIST});
  riff_SetRIFFSize(file, 16);
  return 0;
}
