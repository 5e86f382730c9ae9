// The picture that a command reads: what its file says of it, and its pixels.
#pragma once

#include <cstdint>
#include <vector>

#include "qn/image/qnyuv.h"
#include "qn/settings/qnstatus.h"
#include "tools/qnimage/image.h"
#include "tools/qnimage/input_file.h"
#include "tools/qnimage/raw_format.h"

namespace qnimage {

enum class Kind { kBmp, kDib, kPng, kRaw };

const char* KindName(Kind kind);

struct Source {
  Kind kind = Kind::kRaw;
  BITMAPINFOHEADER header = {};  // as the library describes the pixels of the file
  int type = 0;
  bool fromTop = false;  // the order of the rows
  Palette palette;       // for all values that a pixel may have, or those that the pixels of the picture have
  size_t colours = 0;    // of it, that the file has
  // Raw frames.
  uint64_t frames = 1;
  uint64_t frameBytes = 0;
  uint64_t restBytes = 0;  // behind the last whole frame
  tQNYUVOFFSETS planes = {};
};

// Fill the description from the file, and with a picture that is not null that in its type to work on, rows
// from the top. They report failures.
bool ReadBmp(const InputFile& file, Source* source, Image* image);
bool ReadPng(const InputFile& file, Source* source, Image* image);
bool ReadRaw(const InputFile& file, const RawFormat& format, Source* source, Image* image);

// One of these, by the first bytes of the file, or raw frames where the format has a size; null where they
// are not read.
bool ReadSource(const InputFile& file, const RawFormat* format, Source* source, Image* image);

// Reads the bytes of the format's frame, of a file that was described; false with the failure reported.
bool ReadRawFrame(const InputFile& file, const RawFormat& format, const Source& source,
                  std::vector<uint8_t>* frame);

// The picture of a frame, rows from the top; the status of a failure, which `details` explain.
HRESULT DecodeRaw(const RawFormat& format, const BITMAPINFOHEADER& header, const std::vector<uint8_t>& frame,
                  Image* image, qntool::Message* details);

// False, and that is reported about an InputFile or an OutputFile, for sides or a size of the pixels that are
// beyond all pictures.
template <class File>
bool CheckSides(const File& file, int type, uint64_t width, uint64_t height) {
  return IsPossible(type, width, height) || file.Fail(QN_E_FILE_UNSUPPORTED, TooLarge(width, height));
}

}  // namespace qnimage
