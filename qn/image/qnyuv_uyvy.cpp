#include <algorithm>
#include <cstdlib>

#include "qn/image/qnyuv_matrix.h"
#include "qn/image/qnyuv_rows.h"
#include "qn/kernel/qncpu.h"

namespace qn {
namespace {

// The matrix in 12-bit fixed point. Factors to chroma are halved, as they meet the sum of two pixels.
struct FixedMatrix {
  int luma[3];
  int u[3];
  int v[3];
  int redV;
  int greenV;
  int greenU;
  int blueU;
};

constexpr int kOne = 4096;

constexpr int Fixed(double value) {
  return static_cast<int>(value * kOne + (value < 0 ? -0.5 : 0.5));
}
constexpr FixedMatrix FixedOf(const YuvMatrix& matrix) {
  FixedMatrix fixed = {
      {}, {}, {}, Fixed(matrix.redV), Fixed(matrix.greenV), Fixed(matrix.greenU), Fixed(matrix.blueU)};
  for (int i = 0; i < 3; ++i) {
    fixed.luma[i] = Fixed(matrix.luma[i]);
    fixed.u[i] = Fixed(matrix.u[i] * 0.5);
    fixed.v[i] = Fixed(matrix.v[i] * 0.5);
  }
  return fixed;
}
constexpr FixedMatrix kFixed601 = FixedOf(kYuv601);
constexpr FixedMatrix kFixed709 = FixedOf(kYuv709);
constexpr FixedMatrix kFixed2020 = FixedOf(kYuv2020);

const FixedMatrix& FixedBySelector(LONG selector, LONG width, LONG height) {
  switch (selector) {
    case QNUYVY_601:
      return kFixed601;
    case QNUYVY_709:
      return kFixed709;
    case QNUYVY_2020:
      return kFixed2020;
    default:
      return &YuvMatrixBySize(width, height) == &kYuv601 ? kFixed601 : kFixed709;
  }
}

BYTE Clip(int value, int least, int most) {
  return static_cast<BYTE>(std::clamp(value, least, most));
}

void ToRgbScalar(const BYTE* uyvy, size_t width, const FixedMatrix& by, size_t pixelBytes, BYTE* rgb) {
  for (size_t x = 0; x < width; ++x, rgb += pixelBytes) {
    const BYTE* const pair = uyvy + x / 2 * 4;
    const int u = pair[0] - 128;
    const int v = pair[2] - 128;
    const int y = pair[1 + x % 2 * 2] * kOne + kOne / 2;
    rgb[0] = Clip((u * by.blueU + y) >> 12, 0, 255);
    rgb[1] = Clip((v * by.greenV + u * by.greenU + y) >> 12, 0, 255);
    rgb[2] = Clip((v * by.redV + y) >> 12, 0, 255);
    if (pixelBytes == 4) rgb[3] = 255;
  }
}

void ToUyvyScalar(const BYTE* rgb, size_t width, const FixedMatrix& by, size_t pixelBytes, BYTE* uyvy) {
  const auto weigh = [](const int* factors, int blue, int green, int red, int offset) {
    return Clip((factors[0] * red + factors[1] * green + factors[2] * blue + offset) >> 12, 1, 254);
  };
  for (size_t x = 0; x < width; x += 2, rgb += 2 * pixelBytes, uyvy += 4) {
    const BYTE* const second = rgb + pixelBytes;
    const int blue = rgb[0] + second[0];
    const int green = rgb[1] + second[1];
    const int red = rgb[2] + second[2];
    uyvy[0] = weigh(by.u, blue, green, red, 128 * kOne + kOne / 2);
    uyvy[1] = weigh(by.luma, rgb[0], rgb[1], rgb[2], kOne / 2);
    uyvy[2] = weigh(by.v, blue, green, red, 128 * kOne + kOne / 2);
    uyvy[3] = weigh(by.luma, second[0], second[1], second[2], kOne / 2);
  }
}

// The vector variant is that of floats, but for processors with the integers for it: in floats all sums of
// the fixed point are exact, and a half added before the shift rounds as it does.
float Factor(int fixed, float scale) {
  return static_cast<float>(fixed) / kOne * scale;
}

YuvToRgb ExactToRgb(const FixedMatrix& by) {
  return {
      0xFF, 0, 128, 1, Factor(by.redV, 1), Factor(by.greenU, 1), Factor(by.greenV, 1), Factor(by.blueU, 1),
      true};
}

RgbToYuv ExactToYuv(const FixedMatrix& by) {
  RgbToYuv how = {};
  for (int i = 0; i < 3; ++i) {
    how.luma[i] = Factor(by.luma[i], 256);
    how.u[i] = Factor(by.u[i], 256);
    how.v[i] = Factor(by.v[i], 256);
  }
  how.chromaOffset = 128 * 256;
  how.fraction = 8;
  how.half = 128;
  how.isFixed = true;
  return how;
}

// Hosts rely on a class override choosing the vector variant whatever its value: this mask has it in full.
bool UsesVector() {
  return QnGetCPUSupport(QNCPU_SSE2) != 0;
}

bool FitsRows(LONG stride, LONG width, int64_t pixelBytes) {
  return std::abs(int64_t{stride}) >= width * pixelBytes;
}

HRESULT ToRgb(void* rgb, const void* uyvy, LONG stride, LONG width, LONG height, LONG matrix, RgbKind kind) {
  if (!rgb || !uyvy) return E_POINTER;
  const size_t pixelBytes = RgbBytes(kind);
  if (height < 1 || width < 1 || width % 2 || !FitsRows(stride, width, static_cast<int64_t>(pixelBytes))) {
    return E_INVALIDARG;
  }
  const FixedMatrix& by = FixedBySelector(matrix, width, height);
  const YuvToRgb how = ExactToRgb(by);
  const YuvToRgbRow convert = UsesVector() ? FindYuvToRgbRow(RowKind::kUYVY, kind) : nullptr;
  auto* const from = static_cast<BYTE*>(const_cast<void*>(uyvy));
  auto* const to = static_cast<BYTE*>(rgb);
  const auto columns = static_cast<size_t>(width);
  for (ptrdiff_t row = 0; row < height; ++row) {
    BYTE* const source = from + row * 2 * width;
    BYTE* const target = to + row * stride;
    if (convert) {
      convert({source, nullptr, nullptr}, columns, how, target);
    } else {
      ToRgbScalar(source, columns, by, pixelBytes, target);
    }
  }
  return S_OK;
}

HRESULT ToUyvy(void* uyvy, const void* rgb, LONG uyvyStride, LONG rgbStride, LONG width, LONG height,
               LONG matrix, RgbKind kind) {
  if (!rgb || !uyvy) return E_POINTER;
  const size_t pixelBytes = RgbBytes(kind);
  if (height < 1 || width < 1 || width % 2 || !FitsRows(rgbStride, width, static_cast<int64_t>(pixelBytes)) ||
      !FitsRows(uyvyStride, width, 2)) {
    return E_INVALIDARG;
  }
  const FixedMatrix& by = FixedBySelector(matrix, width, height);
  const RgbToYuv how = ExactToYuv(by);
  const RgbToYuvRows convert = UsesVector() ? FindRgbToYuvRows(RowKind::kUYVY, kind) : nullptr;
  const auto* const from = static_cast<const BYTE*>(rgb);
  auto* const to = static_cast<BYTE*>(uyvy);
  const auto columns = static_cast<size_t>(width);
  for (ptrdiff_t row = 0; row < height; ++row) {
    const BYTE* const source = from + row * rgbStride;
    BYTE* const target = to + row * uyvyStride;
    if (convert) {
      convert(source, nullptr, columns, how, {target, nullptr, nullptr}, {});
    } else {
      ToUyvyScalar(source, columns, by, pixelBytes, target);
    }
  }
  return S_OK;
}

}  // namespace
}  // namespace qn

HRESULT QnUYVY2RGB(void* rgb, const void* uyvy, LONG rgbStride, LONG width, LONG height, LONG matrix) {
  return qn::ToRgb(rgb, uyvy, rgbStride, width, height, matrix, qn::RgbKind::kTriples);
}
HRESULT QnUYVY2RGBA(void* rgba, const void* uyvy, LONG rgbaStride, LONG width, LONG height, LONG matrix) {
  return qn::ToRgb(rgba, uyvy, rgbaStride, width, height, matrix, qn::RgbKind::kBytes);
}
HRESULT QnRGB2UYVY(void* uyvy, const void* rgb, LONG uyvyStride, LONG rgbStride, LONG width, LONG height,
                   LONG matrix) {
  return qn::ToUyvy(uyvy, rgb, uyvyStride, rgbStride, width, height, matrix, qn::RgbKind::kTriples);
}
HRESULT QnRGBA2UYVY(void* uyvy, const void* rgba, LONG uyvyStride, LONG rgbaStride, LONG width, LONG height,
                    LONG matrix) {
  return qn::ToUyvy(uyvy, rgba, uyvyStride, rgbaStride, width, height, matrix, qn::RgbKind::kBytes);
}
