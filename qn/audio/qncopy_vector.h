// The vector code of the copy kernels: one converter a pair of sample types, for the best instruction set of
// the processor.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qn {

// Converters work on whole blocks of this many samples.
inline constexpr size_t kConvertBlock = 64;

// Converts `samples` samples, a multiple of kConvertBlock, between buffers that do not overlap. Nothing
// outside them is read or written.
using ConvertFunction = void (*)(uint8_t* dst, const uint8_t* src, size_t samples, float scale);

struct Converter {
  ConvertFunction unit;     // scale is 1.0
  ConvertFunction gain;     // any other scale; if `moderate`, only those that IsModerateScale takes
  ConvertFunction stepped;  // the vector kernels with the product in single precision, else null
  bool moderate;
};

// Scales for which single-precision steps stay far from overflow and underflow: the gains of practice. The
// others go through an intermediate buffer of floats or doubles.
inline bool IsModerateScale(float scale) {
  const float size = scale < 0 ? -scale : scale;
  return size == 0 || (size >= 0x1p-64f && size <= 32.0f);
}

// The converter of a pair, by the places of its types in kSampleForms.
const Converter& FindConverter(int dstIndex, int srcIndex);

// Copies `lines` times 64 bytes to an address that is a multiple of 64 with stores that bypass the cache.
// FinishStreaming orders these stores before all later ones.
void StreamLines(uint8_t* dst, const uint8_t* src, size_t lines);
void FinishStreaming();

// Parts of the converter table, each in a source file of its own so that they compile side by side.
const Converter& FindConverterTo8And16(int dstIndex, int srcIndex);
const Converter& FindConverterTo24And32(int dstIndex, int srcIndex);
const Converter& FindConverterToFloat(int dstIndex, int srcIndex);

}  // namespace qn
