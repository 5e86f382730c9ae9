#include <algorithm>
#include <cstring>
#include <new>

#include "qn/platform/bitmap_internal.h"
#include "qn/platform/error_internal.h"

namespace {

constexpr uint64_t kMaxPixels = 1 << 26;
constexpr WORD kBitsPixel = 32;

std::shared_ptr<qn::Bitmap> FindBitmap(HANDLE handle) {
  auto bitmap = std::dynamic_pointer_cast<qn::Bitmap>(qn::FindHandle(handle));
  if (!bitmap) SetLastError(ERROR_INVALID_HANDLE);
  return bitmap;
}

bool HasPixels(const BITMAPINFOHEADER& header) {
  return header.biWidth > 0 && header.biHeight != 0 &&
         static_cast<uint64_t>(header.biWidth) * qn::DibRows(header.biHeight) <= kMaxPixels;
}

bool HasSize(const BITMAPINFOHEADER& header, const qn::Bitmap& bitmap) {
  return header.biWidth == static_cast<LONG>(bitmap.Width()) &&
         qn::DibRows(header.biHeight) == bitmap.Height();
}

// Whether GetDIBits gives pixels in this form.
bool IsWritten(const BITMAPINFOHEADER& header) {
  return (header.biBitCount == 24 || header.biBitCount == 32) && header.biCompression == BI_RGB;
}

}  // namespace

inline namespace qnplatform {

HBITMAP CreateDIBitmap(HDC, const BITMAPINFOHEADER* header, DWORD flags, const void* bits,
                       const BITMAPINFO* info, UINT usage) try {
  const bool draws = flags & CBM_INIT;
  if (!header || !HasPixels(*header) || (draws && (!bits || !info || usage != DIB_RGB_COLORS))) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  const auto bitmap =
      std::make_shared<qn::Bitmap>(static_cast<uint32_t>(header->biWidth), qn::DibRows(header->biHeight));
  if (draws && (!HasSize(info->bmiHeader, *bitmap) || !qn::DrawDib(*info, bits, *bitmap))) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  const HANDLE handle = qn::AddHandle(bitmap);
  if (!handle) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return static_cast<HBITMAP>(handle);
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

int GetDIBits(HDC, HBITMAP handle, UINT start, UINT lines, void* bits, BITMAPINFO* info, UINT usage) {
  const auto bitmap = FindBitmap(handle);
  if (!bitmap) return 0;
  if (!info || info->bmiHeader.biSize < sizeof(BITMAPINFOHEADER) || usage != DIB_RGB_COLORS) {
    return qn::FailWith(ERROR_INVALID_PARAMETER);
  }
  BITMAPINFOHEADER& header = info->bmiHeader;
  const uint32_t height = bitmap->Height();
  if (!bits && header.biBitCount == 0) {
    header = {header.biSize,
              static_cast<LONG>(bitmap->Width()),
              static_cast<LONG>(height),
              1,
              kBitsPixel,
              BI_RGB,
              0,
              0,
              0,
              0,
              0};
  }
  if (!HasSize(header, *bitmap) || !IsWritten(header)) return qn::FailWith(ERROR_INVALID_PARAMETER);
  const uint64_t stride = qn::DibStride(bitmap->Width(), header.biBitCount);
  if (!bits) {
    header.biSizeImage = static_cast<DWORD>(stride * height);
    return TRUE;
  }
  const size_t pixelBytes = header.biBitCount / 8;
  const uint32_t count = start < height ? std::min(lines, height - start) : 0;
  for (uint32_t line = 0; line < count; ++line) {
    const uint32_t scan = start + line;
    const uint32_t* const row = bitmap->Row(header.biHeight < 0 ? scan : height - 1 - scan);
    uint8_t* to = static_cast<uint8_t*>(bits) + line * stride;
    uint8_t* const end = to + stride;
    for (uint32_t x = 0; x < bitmap->Width(); ++x, to += pixelBytes) std::memcpy(to, &row[x], pixelBytes);
    std::fill(to, end, uint8_t{0});
  }
  return static_cast<int>(count);
}

int GetObjectW(HANDLE object, int size, void* information) {
  const auto bitmap = FindBitmap(object);
  if (!bitmap) return 0;
  if (!information) return sizeof(BITMAP);
  if (size < static_cast<int>(sizeof(BITMAP))) return qn::FailWith(ERROR_INVALID_PARAMETER);
  const auto width = static_cast<LONG>(bitmap->Width());
  const BITMAP description = {
      0, width, static_cast<LONG>(bitmap->Height()), width * (kBitsPixel / 8), 1, kBitsPixel, nullptr};
  std::memcpy(information, &description, sizeof description);
  return sizeof description;
}

BOOL DeleteObject(HGDIOBJ object) {
  return FindBitmap(object) && qn::RemoveHandle(object) ? TRUE : qn::FailWith(ERROR_INVALID_HANDLE);
}

}  // namespace qnplatform
