// The picture of a file of any bytes. The first byte chooses between these as they are and a form that holds
// them as its picture, so that DIBs are met without a search for chunk sizes. A picture that is made can be
// read as a whole.
#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz/fuzz_file.h"
#include "qn/media/qnsummary.h"

using qnfuzz::Check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  std::vector<uint8_t> bytes;
  if (data[0] & 1) {
    const auto chunk = static_cast<uint32_t>(size - 1 + 4);
    const uint32_t header[] = {0x46464952, chunk + 12, 0x45564157, 0x50534944, chunk, 8};  // RIFF WAVE DISP
    bytes.resize(sizeof header);
    std::memcpy(bytes.data(), header, sizeof header);
  }
  bytes.insert(bytes.end(), data + 1, data + size);
  const HBITMAP bitmap = displist_CreateBitmapFromFile(qnfuzz::FuzzFile(bytes.data(), bytes.size()).Path());
  if (!bitmap) return 0;

  BITMAPINFO info = {};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  Check(GetDIBits(nullptr, bitmap, 0, 0, nullptr, &info, DIB_RGB_COLORS), "a picture without a form");
  std::vector<uint32_t> pixels(info.bmiHeader.biSizeImage / sizeof(uint32_t), UINT32_MAX);
  const int rows = GetDIBits(nullptr, bitmap, 0, UINT32_MAX, pixels.data(), &info, DIB_RGB_COLORS);
  Check(rows > 0 && rows == info.bmiHeader.biHeight, "a picture with rows missing");
  Check(std::all_of(pixels.begin(), pixels.end(), [](uint32_t pixel) { return pixel <= 0xFFFFFF; }),
        "a pixel with a fourth byte");
  Check(DeleteObject(bitmap) && !DeleteObject(bitmap), "a picture that does not end once");
  return 0;
}
