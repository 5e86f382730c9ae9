// The picture of a media file.
#include <cstdlib>

#include "qn/media/mediafile_internal.h"
#include "qn/media/qnsummary_internal.h"
#include "qn/media/riff.h"

namespace {

constexpr uint32_t kDisplay = 0x50534944;  // "DISP"
constexpr uint32_t kBitmap = 8;            // CF_DIB
constexpr uint32_t kIdSize = 4;

constexpr uint32_t kMaskBytes = 12;
constexpr uint32_t kHeaderWithMasks = sizeof(BITMAPINFOHEADER) + kMaskBytes;

// A few bytes of a compressed DIB can stand for any number of pixels.
constexpr int64_t kMostCompressedPixels = 1 << 24;

// Where the bits of a packed DIB start, which has `size` bytes; `size` for one that does not hold them all.
uint64_t BitsOffset(const BITMAPINFOHEADER& header, uint32_t size) {
  const bool masked = header.biCompression == BI_BITFIELDS;
  uint64_t offset = header.biSize;
  if (masked && header.biSize == sizeof header) offset = kHeaderWithMasks;
  if (offset < (masked ? kHeaderWithMasks : sizeof header)) return size;
  const bool fullTable = header.biClrUsed == 0 && header.biBitCount <= 8;
  offset += sizeof(RGBQUAD) * (fullTable ? uint64_t{1} << header.biBitCount : header.biClrUsed);
  return std::min<uint64_t>(offset, size);
}

// Whether `bytes` bytes can be the bits of a DIB.
bool HoldsBits(const BITMAPINFOHEADER& header, uint64_t bytes) {
  const int64_t width = header.biWidth;
  const int64_t height = std::abs(int64_t{header.biHeight});
  if (width <= 0 || height == 0 || header.biBitCount == 0 || bytes == 0) return false;
  if (header.biCompression == BI_RLE8 || header.biCompression == BI_RLE4) {
    return width <= kMostCompressedPixels / height;
  }
  const int64_t stride = (width * header.biBitCount + 31) / 32 * 4;
  return static_cast<uint64_t>(stride) <= bytes / static_cast<uint64_t>(height);
}

HBITMAP CreateBitmap(void* dib, uint32_t size) {
  auto* const header = static_cast<BITMAPINFOHEADER*>(dib);
  if (size < sizeof *header) return nullptr;
  const auto offset = static_cast<uint32_t>(BitsOffset(*header, size));
  const uint32_t bytes = size - offset;
  if (!HoldsBits(*header, bytes)) return nullptr;
  // How far a compressed DIB is read.
  if (header->biSizeImage == 0 || header->biSizeImage > bytes) header->biSizeImage = bytes;
  const HDC screen = GetDC(nullptr);
  const HBITMAP bitmap = CreateDIBitmap(screen, header, CBM_INIT, static_cast<const uint8_t*>(dib) + offset,
                                        static_cast<const BITMAPINFO*>(dib), DIB_RGB_COLORS);
  if (screen) ReleaseDC(nullptr, screen);
  return bitmap;
}

// Goes behind the id of the form's first picture and gives the size of what follows; 0 when there is none.
uint32_t FindPicture(HANDLE file) {
  uint32_t left, size, id;
  HRESULT status = riff_ReadFileID(file, &left, nullptr);
  while (SUCCEEDED(status) && SUCCEEDED(status = riff_FindChunkHeader(file, kDisplay, &size, &left))) {
    const uint32_t idSize = std::min(size, kIdSize);
    if (!qn::ReadExactly(file, &id, idSize)) return 0;
    if (idSize == kIdSize && id == kBitmap) return size - kIdSize;
    const uint64_t padded = uint64_t{size} + (size & 1);
    qn::Skip(file, padded, idSize);
    left -= static_cast<uint32_t>(std::min<uint64_t>(left, padded));
  }
  return 0;
}

}  // namespace

HBITMAP displist_CreateBitmapFromFile(const WCHAR* name) {
  const qn::File file(name, GENERIC_READ, OPEN_EXISTING);
  const uint32_t size = file ? FindPicture(file.Get()) : 0;
  void* dib = nullptr;
  if (FAILED(qn::ReadNewBlock(file.Get(), size, 0, &dib))) return nullptr;
  const HBITMAP bitmap = dib ? CreateBitmap(dib, size) : nullptr;
  qn::FreeBlock(dib);
  return bitmap;
}
