// YUV frames: where the planes of each layout lie.
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

extern "C" {

// The bytes of a frame of the header's size and FourCC, and its planes in `*offsets` unless that is null. 0
// with
// `*offsets` as it was for null, another FourCC, a negative width and more than 32 bits can count.
QN_API DWORD QnYUVImageBytesAndOffsets(const BITMAPINFOHEADER* header, tQNYUVOFFSETS* offsets);
}
