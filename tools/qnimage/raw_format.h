// Raw frames: the layout, size and colours that the command line tells, for no header does.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "qn/image/qnyuv.h"
#include "tools/common/options.h"

namespace qnimage {

constexpr qntool::Option kRawSizeOption = {"size", "WxH",
                                           "the file holds raw frames of this size, rows from the top"};
constexpr qntool::Option kFrameOption = {"frame", "N", "which of the raw frames, from 0 on (default: 0)"};
constexpr qntool::Option kFourccOption = {"fourcc", "CODE",
                                          "layout of raw frames, such as UYVY, NV12 or v210"};
constexpr qntool::Option kMatrixOption = {"matrix", "auto|601|709|2020",
                                          "matrix between YUV and RGB (default: auto, 601 for pictures of "
                                          "704 to 720 columns and fewer than 720 rows, "
                                          "709 for all others)"};
constexpr qntool::Option kRangeOption = {"range", "studio|full",
                                         "luma from 16 to 235, or from 0 to 255 (default: studio)"};

struct RawFormat {
  uint32_t width = 0;  // 0: not told
  uint32_t height = 0;
  DWORD fourcc = 0;  // 0: not told
  tQNYUVCOLOR colour = {};
  double range = 1;  // as the library takes it
  uint64_t frame = 0;
};

// "720x576"; false with the mistake reported.
bool ReadSize(const char* command, std::string_view text, uint32_t* width, uint32_t* height);

// Take what the options tell; false with the mistake reported. The second is for the file that is read: with
// --size its frames are raw, and --fourcc tells their layout.
bool ReadRawTarget(const char* command, const qntool::Arguments& arguments, RawFormat* format);
bool ReadRawSource(const char* command, const qntool::Arguments& arguments, RawFormat* format);

// False, and that is reported, where options of raw frames are given and there are none, or those of the
// conversion of YUV where there is no such.
bool HasRawForItsOptions(const char* command, const qntool::Arguments& arguments, bool hasRaw,
                         bool convertsYuv);

// Whether frames are of YUV; the layout may be untold.
bool IsYuv(const RawFormat& format);

// The code as text.
std::string FourccText(DWORD fourcc);

// The type at which frames are worked on; as deep as they are.
int WorkingTypeOf(const RawFormat& format);

// The frame of a size, as the library describes it.
BITMAPINFOHEADER RawHeader(const RawFormat& format, uint32_t width, uint32_t height);

}  // namespace qnimage
