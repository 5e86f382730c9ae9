// YUV frames: where the planes of each layout lie, conversion to and from RGB bitmaps, and copies of planes.
//
// A frame is described by a BITMAPINFOHEADER with the layout's FourCC, its bits and a record of where the
// planes are. Its rows go from the top down; the sign of its height means nothing. Luma starts at the bits;
// the strides of planes count as signed, so that a frame can be walked from its last row up. Of rows and
// planes nothing is read or written but the samples of the frame's width and height: what the records say
// cannot be held against the buffer behind them. "v210" has whole groups of 6 pixels in 16 bytes: its stride
// is at least (width + 5) div 6 * 16, and samples of the last group that no pixel has are written as 0, or as
// the last pixel's where an odd width ends in half a pair.
//
// Chroma that pixels share is repeated, never interpolated. A plane of halved chroma has width div 2 samples
// in a row (and height div 2 rows, if halved too): a last pixel or row beyond them has the chroma of the ones
// before it, and gives none. Widths and heights of 1 have no chroma there and are refused, as are odd widths
// of "UYVY", "YUYV" and "Y210"; "v210" takes any width.
//
// Functions return E_POINTER for null, E_FAIL for layouts and types that are not converted, E_INVALIDARG for
// bad sizes and strides, in this order of checks unless they say otherwise. They may be called by several
// threads at once.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qn/platform/types.h"
#include "qn/platform/wingdi.h"

// Where the planes of a frame lie, in bytes; luma is at 0. A plane that a layout does not have is 0, as is
// the V plane of one with U and V in turns.
struct tQNYUVOFFSETS {
  DWORD yStride;
  DWORD uOffset;
  DWORD uStride;
  DWORD vOffset;
  DWORD vStride;
  DWORD alphaOffset;
  DWORD alphaStride;
};
static_assert(sizeof(tQNYUVOFFSETS) == 28 && offsetof(tQNYUVOFFSETS, vOffset) == 12);

// The matrix of a conversion. Any other value of `matrix` chooses by size: 601 for heights below 720 with
// widths of 704 to 720, 709 for all others.
constexpr DWORD QNYUV_601 = 515;
constexpr DWORD QNYUV_709 = 516;
constexpr DWORD QNYUV_2020 = 517;
struct tQNYUVCOLOR {
  DWORD reserved;  // not looked at
  DWORD matrix;
};
static_assert(sizeof(tQNYUVCOLOR) == 8);

// The matrix of the UYVY pair; any other value is 0.
constexpr LONG QNUYVY_AUTOMATIC = 0;  // by size, as above
constexpr LONG QNUYVY_601 = 1;
constexpr LONG QNUYVY_709 = 2;
constexpr LONG QNUYVY_2020 = 3;

// Which of the pixels that share chroma give it, for QnYUV_RGBToYUV. By default their mean does.
constexpr LONG QNYUV_CHROMA_MEAN = 0;
constexpr LONG QNYUV_CHROMA_LEFT = 1;   // the left one of a pair
constexpr LONG QNYUV_CHROMA_UPPER = 2;  // the upper row of two; may be added to the former

extern "C" {

// The bytes of a frame of the header's size and FourCC, and its planes in `*offsets` unless that is null. 0
// with `*offsets` as it was for null, another FourCC, a negative width and more than 32 bits can count.
QN_API DWORD QnYUVImageBytesAndOffsets(const BITMAPINFOHEADER* header, tQNYUVOFFSETS* offsets);

// Converts a frame to RGB. Layouts: "YV24", "YV16", "YV12", "NV12", "I420", "A410", "P412", "P410", "Y210",
// "P216", "P212", "P210", "PL10", "P012", "P010", "v210", "YUYV" and "UYVY".
//   range       0.0: luma fills 0 to 255, any other value: 16 to 235
//   rgbHeader   at least as wide and high as the frame. Pixels of four floats (type 32) get 0 to 1 and alpha
//               1; all other types get blue, green, red and 255 in four bytes a pixel, whatever their bits:
//               E_INVALIDARG if a row has no room for those.
//   rgb         the row that is first by number; null finds the bits behind the header, which after the sizes
//               is E_POINTER if the header is of no known type
//   stride      bytes from row to row, of either sign; 0 is that of the header
// The top row of the frame goes to the last row, of the frame's height, of the bitmap, unless its height is
// negative: then row goes to row. Colours are computed in floats and rounded to nearest, halves up.
// Frames of some size are converted by several threads, as many as the caller has processors and 64 at
// most.
QN_API HRESULT QnYUV_YUVToRGB(const BITMAPINFOHEADER* rgbHeader, double range, void* rgb, LONG stride,
                              const BITMAPINFOHEADER* yuvHeader, const void* yuv,
                              const tQNYUVOFFSETS* offsets, const tQNYUVCOLOR* colour);

// Converts RGB of types 28, 29 and 32 to a frame, the other way of the same. Samples of more than 8 bits are
// those of 8 bits with a fraction. The alpha plane of "A410" gets the bitmap's alpha, or is opaque for type
// 28. Numbers of a float bitmap that are none are 0, those beyond +-16 count as +-16. `selector` is a sum of
// QNYUV_CHROMA flags, others are E_FAIL.
QN_API HRESULT QnYUV_RGBToYUV(const BITMAPINFOHEADER* yuvHeader, void* yuv, const tQNYUVOFFSETS* offsets,
                              const tQNYUVCOLOR* colour, const BITMAPINFOHEADER* rgbHeader, const void* rgb,
                              double range, LONG stride, LONG selector);

// The fast pair, between "UYVY" and pixels of blue, green and red in 3 bytes, or with alpha in 4, in 12-bit
// fixed point without studio range. Rows stay in their order. Rows of UYVY without a stride follow each
// other at twice the width. Alpha is 255, or not looked at. E_INVALIDARG for a height or width below 1, an
// odd width, and strides whose magnitude is below a row.
QN_API HRESULT QnUYVY2RGB(void* rgb, const void* uyvy, LONG rgbStride, LONG width, LONG height, LONG matrix);
QN_API HRESULT QnUYVY2RGBA(void* rgba, const void* uyvy, LONG rgbaStride, LONG width, LONG height,
                           LONG matrix);
QN_API HRESULT QnRGB2UYVY(void* uyvy, const void* rgb, LONG uyvyStride, LONG rgbStride, LONG width,
                          LONG height, LONG matrix);
QN_API HRESULT QnRGBA2UYVY(void* uyvy, const void* rgba, LONG uyvyStride, LONG rgbaStride, LONG width,
                           LONG height, LONG matrix);

// Copies of a rectangle of a frame to the start of another, in memory that does not overlap.
//   toHeader, to, toOffsets        the target. Its header is not looked at: each row gets at most a stride.
//   fromHeader, from, fromOffsets  the source, of the size in its header
//   x, y, width, height            the rectangle. A width of 0 is all that is left, which is also the most
//                                  that is copied. E_INVALIDARG for negative numbers, an x or y beyond the
//                                  frame and rows below it.
// Chroma that is halved starts at half of x and y, and has half the rows and columns, rounded down. Where
// pairs of pixels are packed together, x and width count as the even numbers below, a width of 1 as nothing.
// The headers' FourCCs are taken for granted.
QN_API HRESULT QnYUV_I420_To_I420_SubRect(const BITMAPINFOHEADER* toHeader, void* to,
                                          const tQNYUVOFFSETS* toOffsets, const BITMAPINFOHEADER* fromHeader,
                                          const void* from, const tQNYUVOFFSETS* fromOffsets, LONG x, LONG y,
                                          LONG width, LONG height);
QN_API HRESULT QnYUV_YV12_To_I420(const BITMAPINFOHEADER* toHeader, void* to, const tQNYUVOFFSETS* toOffsets,
                                  const BITMAPINFOHEADER* fromHeader, const void* from,
                                  const tQNYUVOFFSETS* fromOffsets, LONG x, LONG y, LONG width, LONG height);
QN_API HRESULT QnYUV_NV12_To_I420(const BITMAPINFOHEADER* toHeader, void* to, const tQNYUVOFFSETS* toOffsets,
                                  const BITMAPINFOHEADER* fromHeader, const void* from,
                                  const tQNYUVOFFSETS* fromOffsets, LONG x, LONG y, LONG width, LONG height);
QN_API HRESULT QnYUV_NV12_To_I420_SubRect(const BITMAPINFOHEADER* toHeader, void* to,
                                          const tQNYUVOFFSETS* toOffsets, const BITMAPINFOHEADER* fromHeader,
                                          const void* from, const tQNYUVOFFSETS* fromOffsets, LONG x, LONG y,
                                          LONG width, LONG height);
QN_API HRESULT QnYUV_I420_To_NV12(const BITMAPINFOHEADER* toHeader, void* to, const tQNYUVOFFSETS* toOffsets,
                                  const BITMAPINFOHEADER* fromHeader, const void* from,
                                  const tQNYUVOFFSETS* fromOffsets, LONG x, LONG y, LONG width, LONG height);
QN_API HRESULT QnYUV_YV16_To_YUYV_SubRect(const BITMAPINFOHEADER* toHeader, void* to,
                                          const tQNYUVOFFSETS* toOffsets, const BITMAPINFOHEADER* fromHeader,
                                          const void* from, const tQNYUVOFFSETS* fromOffsets, LONG x, LONG y,
                                          LONG width, LONG height);
QN_API HRESULT QnYUV_P010_To_P010_SubRect(const BITMAPINFOHEADER* toHeader, void* to,
                                          const tQNYUVOFFSETS* toOffsets, const BITMAPINFOHEADER* fromHeader,
                                          const void* from, const tQNYUVOFFSETS* fromOffsets, LONG x, LONG y,
                                          LONG width, LONG height);
QN_API HRESULT QnYUV_P216_To_P216_SubRect(const BITMAPINFOHEADER* toHeader, void* to,
                                          const tQNYUVOFFSETS* toOffsets, const BITMAPINFOHEADER* fromHeader,
                                          const void* from, const tQNYUVOFFSETS* fromOffsets, LONG x, LONG y,
                                          LONG width, LONG height);
QN_API HRESULT QnYUV_Y210_To_Y210_SubRect(const BITMAPINFOHEADER* toHeader, void* to,
                                          const tQNYUVOFFSETS* toOffsets, const BITMAPINFOHEADER* fromHeader,
                                          const void* from, const tQNYUVOFFSETS* fromOffsets, LONG x, LONG y,
                                          LONG width, LONG height);
}
