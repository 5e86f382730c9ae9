#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "qn/image/qndib_internal.h"
#include "qn/image/qnyuv_matrix.h"
#include "qn/image/qnyuv_rows.h"
#include "qn/platform/rows_internal.h"

namespace qn {
namespace {

// What a thread more is worth: some 30 us of work, about what it takes to wake one.
constexpr size_t kLeastPixels = size_t{1} << 18;

struct Frame {
  const YuvLayout* layout;
  size_t width;
  size_t height;
  Plane luma;
  Plane u;
  Plane v;
  Plane alpha;

  bool HasHalfRows() const { return layout->lumaRows == 2; }
  // The row with its chroma; the last of an odd number of rows has none of its own.
  YuvRow Row(size_t row) const {
    const size_t chroma = HasHalfRows() ? std::min(row / 2, height / 2 - 1) : row;
    return {luma.Row(row), u.Row(chroma), v.Row(chroma)};
  }
};

HRESULT FindFrame(const BITMAPINFOHEADER& header, const void* bits, const tQNYUVOFFSETS& offsets,
                  Frame* frame) {
  const YuvLayout& layout = *frame->layout;
  if (header.biWidth <= 0 || header.biHeight == 0) return E_INVALIDARG;
  frame->width = static_cast<size_t>(header.biWidth);
  frame->height = static_cast<size_t>(std::abs(int64_t{header.biHeight}));
  frame->luma = PlaneAt(bits, 0, offsets.yStride);
  const RowShape shape = ShapeOf(layout.rows);
  const size_t width = frame->width;
  const size_t pairs = width / 2;
  if (layout.rows == RowKind::kV210) {
    return frame->luma.Room() >= (width + 5) / 6 * 16 ? S_OK : E_INVALIDARG;
  }
  if (shape.IsPacked()) {
    return width % 2 == 0 && frame->luma.Room() >= pairs * shape.luma ? S_OK : E_INVALIDARG;
  }
  if (!shape.HasFullChroma() && pairs == 0) return E_INVALIDARG;
  if (frame->HasHalfRows() && frame->height < 2) return E_INVALIDARG;
  const auto bytes = [=](int pair) { return shape.HasFullChroma() ? width * (pair / 2) : pairs * pair; };
  frame->u = PlaneAt(bits, offsets.uOffset, offsets.uStride);
  if (shape.v != 0) frame->v = PlaneAt(bits, offsets.vOffset, offsets.vStride);
  const bool fits = frame->luma.Room() >= width * (shape.luma / 2) && frame->u.Room() >= bytes(shape.u) &&
                    frame->v.Room() >= bytes(shape.v);
  if (layout.planes == Planes::kYUVA) {
    frame->alpha = PlaneAt(bits, offsets.alphaOffset, offsets.alphaStride);
  }
  return fits ? S_OK : E_INVALIDARG;
}

struct Bitmap {
  RgbKind kind;
  Plane rows;
  bool topDown;

  // Where a row of the frame is.
  BYTE* Row(const Frame& frame, size_t row) const { return rows.Row(topDown ? row : frame.height - 1 - row); }
};

HRESULT FindBitmap(const BITMAPINFOHEADER& header, const void* bits, LONG stride, const Frame& frame,
                   Bitmap* bitmap) {
  const int type = QnGetPixelType(&header);
  bitmap->kind = type == QNPIXEL_RGBAFLOAT ? RgbKind::kFloats : RgbKind::kBytes;
  bitmap->topDown = header.biHeight < 0;
  if (header.biWidth < static_cast<int64_t>(frame.width) ||
      std::abs(int64_t{header.biHeight}) < static_cast<int64_t>(frame.height)) {
    return E_INVALIDARG;
  }
  DibArea area;
  if (SUCCEEDED(FindArea(&header, bits, nullptr, stride, QNPIXEL_PALETTE1, &area))) {
    bitmap->rows = {area.bits, area.stride};
  } else if (bits) {
    const auto rowBytes = static_cast<ptrdiff_t>(RowBytes(header.biBitCount, header.biWidth));
    bitmap->rows = {static_cast<BYTE*>(const_cast<void*>(bits)), stride != 0 ? stride : rowBytes};
  } else {
    return E_POINTER;  // the bits behind a header of no known type cannot be found
  }
  return bitmap->rows.Room() >= frame.width * RgbBytes(bitmap->kind) ? S_OK : E_INVALIDARG;
}

const YuvMatrix& MatrixOf(const tQNYUVCOLOR& colour, const Frame& frame) {
  switch (colour.matrix) {
    case QNYUV_601:
      return kYuv601;
    case QNYUV_709:
      return kYuv709;
    case QNYUV_2020:
      return kYuv2020;
    default:
      return YuvMatrixBySize(static_cast<int64_t>(frame.width), static_cast<int64_t>(frame.height));
  }
}

// The factors but for powers of two are those of 8-bit samples: no result depends on the scale.
YuvToRgb HowToRgb(const YuvLayout& layout, const YuvMatrix& matrix, double range) {
  const bool full = range == 0.0;
  const float lumaGain = full ? 1.0f : 1.1643835f;
  const float chromaGain = full ? 0.9776786f : 1.1383928f;
  const int unit = 1 << (layout.bits - 8 + layout.lowest);
  const float scale = 1 / static_cast<float>(unit);
  return {((1 << layout.bits) - 1) << layout.lowest,
          full ? 0 : 16 * unit,
          128 * unit,
          lumaGain * scale,
          matrix.plainRedV * chromaGain * scale,
          matrix.plainGreenU * chromaGain * scale,
          matrix.plainGreenV * chromaGain * scale,
          matrix.plainBlueU * chromaGain * scale,
          false};
}

RgbToYuv HowToYuv(const YuvLayout& layout, const YuvMatrix& matrix, double range, LONG selector) {
  const bool full = range == 0.0;
  const double gain = full ? 1.0 : 219.0 / 255;
  const int fraction = 16 - layout.bits;
  const auto scale = static_cast<float>(fraction ? 256 : 512);
  const int sharing = ShapeOf(layout.rows).HasFullChroma() ? 1 : 2 * layout.lumaRows;
  RgbToYuv how = {};
  for (int i = 0; i < 3; ++i) {
    how.luma[i] = static_cast<float>(matrix.luma[i] * gain) * scale;
    how.u[i] = static_cast<float>(matrix.u[i] * gain) * scale / static_cast<float>(sharing);
    how.v[i] = static_cast<float>(matrix.v[i] * gain) * scale / static_cast<float>(sharing);
  }
  how.lumaOffset = full ? 0 : 16 * scale;
  how.chromaOffset = 128 * scale;
  how.fraction = fraction;
  how.half = static_cast<WORD>(1 << fraction >> 1);
  how.lowest = layout.lowest;
  how.leftPixel = selector & QNYUV_CHROMA_LEFT;
  how.upperRow = selector & QNYUV_CHROMA_UPPER;
  return how;
}

// A row of the alpha plane, of 10 bits in the high ones of words; without alpha it is opaque.
void StoreAlpha(const BYTE* rgb, RgbKind kind, bool hasAlpha, size_t width, BYTE* to) {
  if (!hasAlpha) {
    constexpr WORD kOpaque = 1023 << 6;
    std::memcpy(to, &kOpaque, sizeof(kOpaque));
    for (size_t done = 1; done < width; done *= 2) {
      std::memcpy(to + 2 * done, to, 2 * std::min(done, width - done));
    }
    return;
  }
  for (size_t x = 0; x < width; ++x) {
    uint32_t alpha = 0;
    if (kind == RgbKind::kBytes) {
      alpha = (rgb[4 * x + 3] * 1023u + 127) / 255;
    } else {
      float value;
      std::memcpy(&value, rgb + 16 * x + 12, sizeof(value));
      alpha = value > 0 ? static_cast<uint32_t>(std::min(value, 1.0f) * 1023 + 0.5f) : 0;
    }
    const auto word = static_cast<WORD>(alpha << 6);
    std::memcpy(to + 2 * x, &word, sizeof(word));
  }
}

}  // namespace
}  // namespace qn

HRESULT QnYUV_YUVToRGB(const BITMAPINFOHEADER* rgbHeader, double range, void* rgb, LONG stride,
                       const BITMAPINFOHEADER* yuvHeader, const void* yuv, const tQNYUVOFFSETS* offsets,
                       const tQNYUVCOLOR* colour) {
  using namespace qn;
  if (!rgbHeader || !yuvHeader || !yuv || !offsets || !colour) return E_POINTER;
  Frame frame = {};
  frame.layout = YuvLayoutOf(yuvHeader->biCompression);
  if (!frame.layout || frame.layout->rows == RowKind::kNone) return E_FAIL;
  HRESULT status = FindFrame(*yuvHeader, yuv, *offsets, &frame);
  if (FAILED(status)) return status;
  Bitmap bitmap;
  status = FindBitmap(*rgbHeader, rgb, stride, frame, &bitmap);
  if (FAILED(status)) return status;

  const YuvToRgb how = HowToRgb(*frame.layout, MatrixOf(*colour, frame), range);
  const YuvToRgbRow convert = FindYuvToRgbRow(frame.layout->rows, bitmap.kind);
  ForRows(frame.height, kLeastPixels / frame.width, [&](size_t row, size_t end) {
    for (; row < end; ++row) convert(frame.Row(row), frame.width, how, bitmap.Row(frame, row));
  });
  return S_OK;
}

HRESULT QnYUV_RGBToYUV(const BITMAPINFOHEADER* yuvHeader, void* yuv, const tQNYUVOFFSETS* offsets,
                       const tQNYUVCOLOR* colour, const BITMAPINFOHEADER* rgbHeader, const void* rgb,
                       double range, LONG stride, LONG selector) {
  using namespace qn;
  if (!rgbHeader || !yuvHeader || !yuv || !offsets || !colour) return E_POINTER;
  Frame frame = {};
  frame.layout = YuvLayoutOf(yuvHeader->biCompression);
  const int type = QnGetPixelType(rgbHeader);
  const bool isType = type == QNPIXEL_RGB32 || type == QNPIXEL_RGBA32 || type == QNPIXEL_RGBAFLOAT;
  constexpr LONG kSelectors = QNYUV_CHROMA_LEFT | QNYUV_CHROMA_UPPER;
  if (!frame.layout || frame.layout->rows == RowKind::kNone || !isType || (selector & ~kSelectors) != 0) {
    return E_FAIL;
  }
  HRESULT status = FindFrame(*yuvHeader, yuv, *offsets, &frame);
  if (FAILED(status)) return status;
  if (frame.alpha.bits && frame.alpha.Room() < 2 * frame.width) return E_INVALIDARG;
  Bitmap bitmap;
  status = FindBitmap(*rgbHeader, rgb, stride, frame, &bitmap);
  if (FAILED(status)) return status;

  const RgbToYuv how = HowToYuv(*frame.layout, MatrixOf(*colour, frame), range, selector);
  const RgbToYuvRows convert = FindRgbToYuvRows(frame.layout->rows, bitmap.kind);
  const size_t step = static_cast<size_t>(frame.layout->lumaRows);
  ForRows((frame.height + step - 1) / step, kLeastPixels / frame.width / step, [&](size_t first, size_t end) {
    for (size_t row = first * step; row < std::min(end * step, frame.height); row += step) {
      const BYTE* const upper = bitmap.Row(frame, row);
      const bool two = step == 2 && row + 1 < frame.height;
      YuvRow target = frame.Row(row);
      if (step == 2 && !two) target.u = target.v = nullptr;
      if (two) {
        convert(upper, bitmap.Row(frame, row + 1), frame.width, how, target,
                {frame.luma.Row(row + 1), nullptr, nullptr});
      } else {
        convert(upper, nullptr, frame.width, how, target, {});
      }
      if (frame.alpha.bits) {
        StoreAlpha(upper, bitmap.kind, type != QNPIXEL_RGB32, frame.width, frame.alpha.Row(row));
      }
    }
  });
  return S_OK;
}
