// The row kernels of YUV frames, one for each kind of rows and of RGB pixels.
//
// All kernels compute in floats, in one order on every processor (the UYVY pair on some in integers, which
// give the same), so that their bytes do not depend on it. Rows may start at any address; nothing is read or
// written outside of `width` pixels.
#pragma once

#include "qn/image/qnyuv_internal.h"

namespace qn {

// RGB pixels, blue first: three bytes, the same and alpha, or four floats with white at 1.
enum class RgbKind { kTriples, kBytes, kFloats };
constexpr size_t RgbBytes(RgbKind kind) {
  return kind == RgbKind::kTriples ? 3 : kind == RgbKind::kBytes ? 4 : 16;
}

// The planes of a row; those that it does not have are null. A row without its chroma is luma alone.
struct YuvRow {
  BYTE* luma;
  BYTE* u;
  BYTE* v;
};

// For samples as they stand in memory: what is taken off them, then the factors to colours of 0 to 255.
struct YuvToRgb {
  int32_t mask;  // the bits of a word that are the sample
  int32_t lumaOffset;
  int32_t chromaOffset;
  float luma;
  float red;     // by V
  float greenU;  // by U
  float greenV;  // by V
  float blue;    // by U
  bool isFixed;  // all factors are whole 4096ths, that of luma is 1
};

// Factors from red, green and blue in 0 to 255 to a sample with its fraction, which fill a word together; to
// twice the sample of a whole word, so that its halves are seen. Those of chroma are for the sum of the
// pixels that share it.
struct RgbToYuv {
  float luma[3];
  float u[3];
  float v[3];
  float lumaOffset;
  float chromaOffset;
  int fraction;    // the bits of it
  WORD half;       // of a sample; 0 for a whole word
  int lowest;      // the bit of a word where a sample starts
  bool leftPixel;  // the chroma of a pair is that of its left pixel
  bool upperRow;   // the chroma of two rows is that of the upper one
  bool isFixed;    // all factors are whole 16ths, samples lie in 1 to 254
};

using YuvToRgbRow = void (*)(const YuvRow& yuv, size_t width, const YuvToRgb& how, BYTE* rgb);

// One row, or two with one chroma row between them, which stands in the first; `lower.luma` is null then for
// one.
using RgbToYuvRows = void (*)(const BYTE* rgb, const BYTE* lowerRgb, size_t width, const RgbToYuv& how,
                              const YuvRow& yuv, const YuvRow& lower);

// Null for RowKind::kNone; triples are for RowKind::kUYVY alone.
YuvToRgbRow FindYuvToRgbRow(RowKind rows, RgbKind rgb);
RgbToYuvRows FindRgbToYuvRows(RowKind rows, RgbKind rgb);

}  // namespace qn
