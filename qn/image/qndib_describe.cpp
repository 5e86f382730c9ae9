#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "qn/image/qndib.h"
#include "qn/image/qndib_internal.h"
#include "qn/image/qnyuv.h"
#include "qn/platform/memory.h"

namespace qn {

DibCounters g_dibs;
thread_local char t_dibTag[kDibTagRoom];

namespace {

constexpr uint64_t kMaxBytes = std::numeric_limits<DWORD>::max();

struct Description {
  BITMAPINFOHEADER header;
  unsigned masks[3];
  uint64_t headerBytes;
};

// E_OUTOFMEMORY for sizes beyond 32 bits.
HRESULT Describe(Description* found, int type, LONG width, LONG height, const RGBQUAD* palette, int entries) {
  *found = {};
  BITMAPINFOHEADER& header = found->header;
  unsigned compression = 0;
  const int bits = QnPixelTypeToBitAttribs(type, &compression, found->masks);
  const int storage = QnPixelTypeToBitsPerPixelYUV(type);
  if (bits == 0 || width < 0) return E_INVALIDARG;
  header.biSize = sizeof(header);
  header.biWidth = width;
  header.biHeight = height;
  header.biPlanes = 1;
  header.biBitCount = static_cast<WORD>(storage ? storage : bits);
  header.biCompression = compression;
  if (entries > 0 || palette) {
    header.biClrUsed = static_cast<DWORD>(std::max(entries, 0));
  } else if (bits < 9) {
    header.biClrUsed = (1u << bits) - 1;
  }
  const auto rows = static_cast<uint64_t>(std::abs(int64_t{height}));
  uint64_t imageBytes = 0;
  if (storage) {
    imageBytes = QnYUVImageBytesAndOffsets(&header, nullptr);
    if (imageBytes == 0 && width != 0 && rows != 0) return E_OUTOFMEMORY;
  } else if (rows != 0) {
    if (RowBytes(bits, width) > kMaxBytes / rows) return E_OUTOFMEMORY;
    imageBytes = RowBytes(bits, width) * rows;
  }
  found->headerBytes = compression == BI_BITFIELDS
                           ? sizeof(header) + sizeof(found->masks)
                           : sizeof(header) + uint64_t{header.biClrUsed} * sizeof(RGBQUAD);
  if (found->headerBytes > kMaxBytes) return E_OUTOFMEMORY;
  header.biSizeImage = static_cast<DWORD>(imageBytes);
  return S_OK;
}

// Writes it with the palette, if that has a place behind the header.
void Write(BITMAPINFO* info, const Description& found, const RGBQUAD* palette) {
  info->bmiHeader = found.header;
  BYTE* const behind = reinterpret_cast<BYTE*>(info) + sizeof(found.header);
  if (found.header.biCompression == BI_BITFIELDS) {
    std::memcpy(behind, found.masks, sizeof(found.masks));
  } else if (palette && found.header.biClrUsed != 0) {
    std::memcpy(behind, palette, size_t{found.header.biClrUsed} * sizeof(RGBQUAD));
  }
}

}  // namespace
}  // namespace qn

HRESULT QnDibInfo(DWORD* headerBytes, DWORD* imageBytes, BITMAPINFO* info, int type, LONG width, LONG height,
                  const RGBQUAD* palette, int entries) {
  qn::Description found;
  if (!info || FAILED(qn::Describe(&found, type, width, height, palette, entries))) return E_INVALIDARG;
  qn::Write(info, found, palette);
  if (headerBytes) *headerBytes = static_cast<DWORD>(found.headerBytes);
  if (imageBytes) *imageBytes = found.header.biSizeImage;
  return S_OK;
}

HRESULT QnVideo_InitBitmapInfo(BITMAPINFO* info, int type, LONG width, LONG height, const RGBQUAD* palette,
                               int entries, DWORD* imageBytes) {
  return QnDibInfo(nullptr, imageBytes, info, type, width, height, palette, entries);
}

HRESULT QnDibAlloc(BITMAPINFO** dib, int type, LONG width, LONG height, const RGBQUAD* palette, int entries,
                   int flags) {
  qn::Description found;
  if (!dib) return E_INVALIDARG;
  const HRESULT status = qn::Describe(&found, type, width, height, palette, entries);
  if (FAILED(status)) return status;
  if (flags >= 0) {
    const auto caller = static_cast<unsigned>(reinterpret_cast<uintptr_t>(__builtin_return_address(0)));
    const auto tag = static_cast<unsigned>(flags & ~QNDIBALLOC_ZERO);
    std::snprintf(qn::t_dibTag, sizeof(qn::t_dibTag), "QnDA:%x", tag ? tag : caller);
  }
  // Where the bits of such a header are looked for, a whole table lies before them.
  const bool hasWholeTable = found.header.biClrUsed == 0 && found.header.biBitCount <= 8;
  const size_t tableBytes = hasWholeTable ? sizeof(RGBQUAD) << found.header.biBitCount : 0;
  const HGLOBAL block = GlobalAlloc(flags & QNDIBALLOC_ZERO ? GHND : GMEM_MOVEABLE,
                                    found.headerBytes + tableBytes + found.header.biSizeImage);
  auto* const made = static_cast<BITMAPINFO*>(GlobalLock(block));
  if (!made) {
    GlobalFree(block);
    return E_OUTOFMEMORY;
  }
  qn::Write(made, found, palette);
  std::memset(reinterpret_cast<BYTE*>(made) + found.headerBytes, 0, tableBytes);
  qn::g_dibs.bitmaps.fetch_add(1, std::memory_order_relaxed);
  qn::g_dibs.bytes.fetch_add(found.header.biSizeImage, std::memory_order_relaxed);
  *dib = made;
  return S_OK;
}

HRESULT QnDibFree(BITMAPINFO* dib, int flags) {
  if (!dib) return S_OK;
  const HGLOBAL block = GlobalHandle(dib);
  if (!block) return flags < 0 ? S_OK : E_INVALIDARG;
  qn::g_dibs.bitmaps.fetch_sub(1, std::memory_order_relaxed);
  qn::g_dibs.bytes.fetch_sub(dib->bmiHeader.biSizeImage, std::memory_order_relaxed);
  GlobalUnlock(block);
  GlobalFree(block);
  return S_OK;
}
