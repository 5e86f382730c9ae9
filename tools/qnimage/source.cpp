#include "tools/qnimage/source.h"

#include <algorithm>
#include <cstring>

namespace qnimage {

namespace messages = qntool::messages;

const char* KindName(Kind kind) {
  constexpr const char* kNames[] = {"BMP", "DIB", "PNG", "raw"};
  return kNames[static_cast<int>(kind)];
}

bool ReadSource(const InputFile& file, const RawFormat* format, Source* source, Image* image) {
  if (format && format->width != 0) return ReadRaw(file, *format, source, image);
  constexpr uint8_t kPng[] = {0x89, 'P', 'N', 'G'};
  uint8_t start[4] = {};
  if (!file.ReadAt(0, start, std::min<uint64_t>(sizeof(start), file.Size()))) return false;
  if (std::memcmp(start, kPng, sizeof(start)) == 0) return ReadPng(file, source, image);
  DWORD size;
  std::memcpy(&size, start, sizeof(size));
  // A header alone starts with its size.
  const bool isDib = file.Size() >= sizeof(size) && size >= sizeof(BITMAPINFOHEADER) && size <= 124;
  if (isDib || std::memcmp(start, "BM", 2) == 0) return ReadBmp(file, source, image);
  return file.Fail(QN_E_FILE_FORMAT, format ? messages::NoKnownPicture : messages::NoPicture);
}

}  // namespace qnimage
